// test_util.h - shared fixtures for the test suites: a clean library state
// per test and helpers to read the error lists and the trace output.
#ifndef VQXML_TESTS_TEST_UTIL_H
#define VQXML_TESTS_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "vqxml/vqxml.h"

namespace vqtest {

// One recorded error: its code and its parameter text.
struct Err {
    int64_t code;
    std::string params;
    bool operator==(const Err &o) const { return code == o.code && params == o.params; }
};
std::ostream &operator<<(std::ostream &os, const Err &e);

// Drains the main list (pending DOM errors included), oldest first.
std::vector<Err> drainErrors();
// Drains only the DOM list.
std::vector<Err> drainDomErrors();
// Renders a message with VQXML_getErrorMsg.
std::string message(int64_t code, const std::string &params);

// Resets the library before each test: every area deleted, both error
// lists emptied, tracing off, the character table built.
class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// A fresh library and one empty document to build in, with short helpers.
class DocumentTest : public LibraryTest {
protected:
    void SetUp() override;
    VQHANDLE s(const char *text) const { return VQDOM_createDS(doc, text); }
    VQHANDLE el(const char *name) const { return VQDOM_createElement(doc, s(name)); }
    VQHANDLE text(const char *t) const { return VQDOM_createTextNode(doc, s(t)); }
    VQHANDLE ref(const char *name) const { return VQDOM_createEntityReference(doc, s(name)); }
    VQHANDLE attr(const char *name) const { return VQDOM_createAttribute(doc, s(name)); }
    VQHANDLE comment() const { return VQDOM_createComment(doc, s("c")); }
    VQHANDLE pi(const char *t, const char *d) const { return VQDOM_createProcessingInstruction(doc, s(t), s(d)); }
    VQHANDLE frag() const { return VQDOM_createDocumentFragment(doc); }
    // Appends and expects the insertion to succeed.
    VQHANDLE add(VQHANDLE parent, VQHANDLE child) const {
        EXPECT_EQ(VQDOM_appendChild(parent, child), child);
        return child;
    }
    // Appends the children in order; returns the parent.
    VQHANDLE with(VQHANDLE parent, std::initializer_list<VQHANDLE> children) const {
        for (VQHANDLE c : children) add(parent, c);
        return parent;
    }
    // The children of a node: 'text values', other nodes by name.
    static std::string kids(VQHANDLE parent);
    VQHANDLE doc = 0;
};

// The compact text of a node, of any length (of a fragment: of its children).
std::string print(VQHANDLE node);
// Parses `text`, expecting a document (the errors are shown if none).
VQHANDLE parse(const char *text);

// A text the parser must refuse with exactly `errors`, the first error
// rendering as `message` where one is given.
struct Failure {
    std::string text;
    std::vector<Err> errors;
    const char *message = nullptr;
};
// Parses `f.text`, which must fail as described and leave no heap block behind.
void expectFailure(const Failure &f);

// Captures trace lines written while it lives (trace flag as given).
class TraceCapture {
public:
    explicit TraceCapture(char level = '9');
    ~TraceCapture();
    // All text written so far, and the lines of it.
    std::string text();
    std::vector<std::string> lines();

private:
    int fd_ = -1;
    std::string path_;
    uint64_t savedHandle_;
    int32_t savedFlag_;
};

// A DS holding text in the document of `doc`.
inline VQHANDLE ds(VQHANDLE doc, const char *text) { return VQDOM_createDS(doc, text); }
// The text of a DS (empty for an invalid handle).
inline std::string str(VQHANDLE ds) { return VQDOM_getBufferDS(ds); }

}  // namespace vqtest

#endif  // VQXML_TESTS_TEST_UTIL_H
