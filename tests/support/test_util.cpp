// test_util.cpp - shared fixtures for the test suites.
#include "support/test_util.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ostream>

#include "vqxml/store/memdiag.h"

namespace vqtest {

std::ostream &operator<<(std::ostream &os, const Err &e) {
    return os << "{" << e.code << ", \"" << e.params << "\"}";
}

std::vector<Err> drainErrors() {
    std::vector<Err> out;
    char params[256];
    int64_t code;
    while ((code = VQXML_getError(params)) != 0) out.push_back({code, params});
    return out;
}

std::vector<Err> drainDomErrors() {
    std::vector<Err> out;
    char params[256];
    int32_t code;
    while ((code = VQDOM_getError(params)) != 0) out.push_back({code, params});
    return out;
}

std::string message(int64_t code, const std::string &params) {
    char buffer[1024];
    VQXML_getErrorMsg(code, params.c_str(), buffer, sizeof buffer);
    return buffer;
}

void LibraryTest::SetUp() {
    VQXML_xmlSetTraceFlag(0, 0);
    VQXML_deleteDocumentAreaRange(0, 255);
    for (int i = 0; i < 256; ++i) dontRealloc[i] = 0;
    drainDomErrors();
    VQXML_resetErrorList();
    VQXML_xmlInit();
}

void LibraryTest::TearDown() {
    VQXML_xmlSetTraceFlag(0, 0);
    VQXML_deleteDocumentAreaRange(0, 255);
    drainDomErrors();
    VQXML_resetErrorList();
}

void DocumentTest::SetUp() {
    LibraryTest::SetUp();
    doc = VQDOM_createDocument();
    ASSERT_NE(doc, 0u);
}

std::string print(VQHANDLE node) {
    std::string out;
    const int32_t need = VQXML_printNode(node, nullptr, 0);
    if (need > 0) {
        out.resize(static_cast<size_t>(need) + 1);
        VQXML_printNode(node, out.data(), need + 1);
        out.pop_back();
    } else if (VQDOM_getNodeType(node) == VQXML_DOCUMENT_FRAGMENT_NODE) {
        for (VQHANDLE c = VQDOM_getFirstChild(node); c != 0; c = VQDOM_getNextSibling(c)) out += print(c);
    }
    return out;
}

VQHANDLE parse(const char *text) {
    const VQHANDLE doc = VQXML_parse(text);
    EXPECT_NE(doc, 0u) << text << ::testing::PrintToString(drainErrors());
    return doc;
}

void expectFailure(const Failure &f) {
    SCOPED_TRACE(f.text.substr(0, 80));
    const int32_t before = vqxml::memStats().liveBlocks;
    EXPECT_EQ(VQXML_parse(f.text.c_str()), 0u);
    const std::vector<Err> errors = drainErrors();
    EXPECT_EQ(errors, f.errors);
    if (f.message != nullptr && !errors.empty()) {
        EXPECT_EQ(message(errors[0].code, errors[0].params), f.message);
    }
    EXPECT_EQ(vqxml::memStats().liveBlocks, before);
}

TraceCapture::TraceCapture(char level)
    : savedHandle_(XmlTraceHandle), savedFlag_(XmlTraceFlag) {
    char path[] = "/tmp/vqxml-trace-XXXXXX";
    fd_ = ::mkstemp(path);
    path_ = path;
    VQXML_xmlSetTraceFlag(static_cast<uint64_t>(fd_), level);
}

TraceCapture::~TraceCapture() {
    VQXML_xmlSetTraceFlag(savedHandle_, savedFlag_);
    if (fd_ >= 0) ::close(fd_);
    ::unlink(path_.c_str());
}

std::string TraceCapture::text() {
    std::string out;
    int fd = ::open(path_.c_str(), O_RDONLY);
    if (fd < 0) return out;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    ::close(fd);
    return out;
}

std::vector<std::string> TraceCapture::lines() {
    std::vector<std::string> out;
    std::string all = text();
    size_t start = 0;
    while (start < all.size()) {
        size_t nl = all.find('\n', start);
        if (nl == std::string::npos) nl = all.size();
        out.push_back(all.substr(start, nl - start));
        start = nl + 1;
    }
    return out;
}

std::string DocumentTest::kids(VQHANDLE parent) {
    std::string out;
    for (VQHANDLE c = VQDOM_getFirstChild(parent); c != 0; c = VQDOM_getNextSibling(c)) {
        if (!out.empty()) out += ' ';
        if (VQDOM_getNodeType(c) == VQXML_TEXT_NODE)
            out.append("'").append(str(VQDOM_getNodeValue(c))).append("'");
        else
            out += str(VQDOM_getNodeName(c));
    }
    return out;
}

}  // namespace vqtest
