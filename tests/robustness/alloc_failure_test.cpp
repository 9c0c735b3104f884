// alloc_failure_test.cpp - every allocation of a sample workload made to
// fail in turn (the n-th one only, and the n-th with all after it): the
// parser, the DOM operations and the printers must report the failure,
// never hand back a damaged result as a good one, leave other documents as
// they were and give every block back.
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"

using robust::allocations;
using robust::hasCode;
using robust::liveAreas;
using robust::liveBlocks;
using robust::print;
using vqtest::LibraryTest;

namespace {

constexpr int64_t kCannotAllocate = 1001711;

// A document that takes every allocating path of the parser: a document
// type with defaults (one holding a reference), general and parameter
// entities, an entity deeper than the copier's inline frames, elements
// nested past the parser's inline stack, an element with many attributes,
// long texts, and enough references to grow the area several times.
std::string sampleDocument() {
    std::string deep;
    for (int i = 0; i < 40; ++i) deep += "<d>";
    deep += "&amp;";
    for (int i = 0; i < 40; ++i) deep += "</d>";
    std::string text =
        "<?xml version='1.0' encoding='UTF-8'?>\n"
        "<!DOCTYPE r [\n"
        "<!ENTITY v 'val'>\n"
        "<!ATTLIST e k CDATA 'k&v;' t (a|b) 'a'>\n"
        "<!ENTITY deep '" + deep + "'>\n"
        "<!ENTITY e '<e x=\"1\">one&#65;<b/>two</e>'>\n"
        "<!ENTITY % p '<!ENTITY g \"G\">'>%p;\n"
        "<!NOTATION n SYSTEM 'n'>\n"
        "<!-- c --><?pi d?>\n"
        "]>\n<r";
    for (int i = 0; i < 40; ++i) text += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
    text += ">" + std::string(300, 't') + "&lt;&g;" + std::string(200, 'u');
    for (int i = 0; i < 80; ++i) text += "<n>";
    text += "<![CDATA[" + std::string(150, 'c') + "]]><!--z--><?q r?>";
    for (int i = 0; i < 80; ++i) text += "</n>";
    for (int i = 0; i < 60; ++i) text += "&e;";
    text += "&deep;<e/><e k='own'/></r>\n";
    return text;
}

// The other document that must come through every failure untouched.
struct Bystander {
    VQHANDLE doc = VQXML_parse("<keep a='1'>intact<x/></keep>");
    std::string text = print(doc);
};

}  // namespace

TEST_F(LibraryTest, ParseReportsEveryAllocationFailureAndLeaksNothing) {
    const Bystander other;
    const std::string text = sampleDocument();
    const int32_t blocks = liveBlocks();
    const int32_t areas = liveAreas();
    const int32_t start = allocations();
    const VQHANDLE clean = VQXML_parse(text.c_str());
    ASSERT_NE(clean, 0u) << ::testing::PrintToString(vqtest::drainErrors());
    const int32_t points = allocations() - start;
    const std::string expected = print(clean);
    VQDOM_deleteNode(clean);
    ASSERT_GT(points, 10);

    for (const bool sticky : {false, true}) {
        for (int32_t n = 1; n <= points; ++n) {
            vqxml::failAllocAt(n, sticky);
            const VQHANDLE doc = VQXML_parse(text.c_str());
            vqxml::failAllocAt(0);
            const auto errors = vqtest::drainErrors();
            vqtest::drainDomErrors();
            if (doc != 0) {
                // A document handed back is the whole document.
                EXPECT_EQ(print(doc), expected) << "n=" << n << " sticky=" << sticky;
                VQDOM_deleteNode(doc);
            } else if (!sticky) {
                // (With every later allocation failing too, the error
                // record itself cannot be made.)
                EXPECT_TRUE(hasCode(errors, kCannotAllocate)) << "n=" << n << ::testing::PrintToString(errors);
            }
            ASSERT_EQ(liveBlocks(), blocks) << "n=" << n << " sticky=" << sticky;
            ASSERT_EQ(liveAreas(), areas) << "n=" << n << " sticky=" << sticky;
            ASSERT_EQ(print(other.doc), other.text);
        }
    }
}

TEST_F(LibraryTest, FragmentParseReportsEveryAllocationFailure) {
    const Bystander other;
    const char *host = "<!DOCTYPE h [<!ENTITY e 'E<i/>'><!ENTITY % q 'Q'>"
                       "<!ATTLIST b d CDATA 'dv'>]><h/>";
    // With a document type the reader expands character and parameter
    // references itself.
    const std::string text = "x%q;&#66;<b c='1'>&e;" + std::string(300, 'y') + "</b>&e;<!--c-->";
    const int32_t blocks = liveBlocks();
    VQHANDLE doc = VQXML_parse(host);
    int32_t start = allocations();
    VQHANDLE clean = VQXML_parseFragment(doc, text.c_str());
    ASSERT_NE(clean, 0u);
    const int32_t points = allocations() - start;
    const std::string expected = print(clean);
    VQDOM_deleteNode(clean);
    VQDOM_deleteNode(doc);

    for (int32_t n = 1; n <= points; ++n) {
        // A failed growth leaves its area read-only, so each round gets a
        // fresh host.
        doc = VQXML_parse(host);
        const std::string hostText = print(doc);
        vqxml::failAllocAt(n);
        const VQHANDLE fragment = VQXML_parseFragment(doc, text.c_str());
        vqxml::failAllocAt(0);
        const auto errors = vqtest::drainErrors();
        if (fragment != 0) {
            EXPECT_EQ(print(fragment), expected) << "n=" << n;
            VQDOM_deleteNode(fragment);
        } else {
            EXPECT_TRUE(hasCode(errors, kCannotAllocate)) << "n=" << n << ::testing::PrintToString(errors);
        }
        EXPECT_EQ(print(doc), hostText) << "n=" << n;
        EXPECT_EQ(print(other.doc), other.text);
        VQDOM_deleteNode(doc);
        ASSERT_EQ(liveBlocks(), blocks) << "n=" << n;
    }
}

namespace {

// A DOM workload over every allocating operation; returns what it built,
// printed, the documents it made (for deleting them) and the errors
// recorded (a fragment parse empties the list, so it is drained first).
std::string domWorkload(std::vector<VQHANDLE> &docs, std::vector<vqtest::Err> &errors) {
    using vqtest::ds;
    const VQHANDLE doc = VQDOM_createDocument();
    docs.push_back(doc);
    std::string out;
    const VQHANDLE root = VQDOM_createElement(doc, ds(doc, "root"));
    VQDOM_appendChild(doc, root);
    for (int i = 0; i < 30; ++i) {
        const VQHANDLE e = VQDOM_createElement(doc, ds(doc, i % 2 ? "a" : "b"));
        VQDOM_setAttribute(e, ds(doc, "k"), ds(doc, std::string(i * 10, 'v').c_str()));
        VQDOM_appendChild(e, VQDOM_createTextNode(doc, ds(doc, "t1")));
        VQDOM_appendChild(e, VQDOM_createTextNode(doc, ds(doc, "t2")));
        VQDOM_insertBefore(root, e, VQDOM_getFirstChild(root));
    }
    // A chain deeper than the inline frames of the copier and the text
    // gatherer.
    VQDOM_appendChild(root, robust::chain(doc, 100, "d", "leaf"));
    VQDOM_normalize(root);
    const VQHANDLE copy = VQDOM_cloneNode(root, 1);
    VQDOM_appendChild(VQDOM_getLastChild(root), copy);
    const VQHANDLE text = VQDOM_getFirstChild(VQDOM_getFirstChild(root));
    VQDOM_appendDataStr(text, "appended");
    VQDOM_insertDataStr(text, 1, "ins");
    VQDOM_replaceData(text, 0, 2, ds(doc, "REP"));
    VQDOM_deleteNode(VQDOM_substringData(text, 1, 3));
    VQDOM_splitText(text, 4);
    const VQHANDLE list = VQDOM_getElementsByTagNameStr(root, "a");
    out += std::to_string(VQDOM_getLengthList(list)) + "|";
    const VQHANDLE content = VQDOM_getTextContentDS(root);
    out += std::to_string(VQDOM_lenDS(content)) + "|";
    VQDOM_deleteDS(content);
    VQDOM_removeAttributeStr(VQDOM_getFirstChild(root), "k");
    VQDOM_deleteNode(VQDOM_removeChild(root, VQDOM_getFirstChild(root)));
    const VQHANDLE twin = VQDOM_cloneNode(doc, 1);
    docs.push_back(twin);
    errors = vqtest::drainErrors();
    const VQHANDLE fragment = VQXML_parseFragment(twin, "<f g='h'>i</f>j");
    VQDOM_appendChild(VQDOM_getDocumentElement(twin), fragment);
    for (const auto &e : vqtest::drainErrors()) errors.push_back(e);
    out += print(doc) + "|" + print(twin) + "|";
    std::vector<char> pretty(1 << 16);
    char *cursor = pretty.data();
    const int32_t length = printNodeBeatifyEx(root, &cursor, static_cast<int32_t>(pretty.size()), 0);
    return out + std::string(pretty.data(), static_cast<size_t>(length));
}

}  // namespace

TEST_F(LibraryTest, DomOperationsReportEveryAllocationFailureAndLeakNothing) {
    const Bystander other;
    const int32_t blocks = liveBlocks();
    std::vector<VQHANDLE> docs;
    std::vector<vqtest::Err> errors;
    const int32_t start = allocations();
    const std::string expected = domWorkload(docs, errors);
    const int32_t points = allocations() - start;
    ASSERT_TRUE(errors.empty()) << ::testing::PrintToString(errors);
    for (VQHANDLE d : docs) VQXML_deleteDocumentArea(d);
    ASSERT_EQ(liveBlocks(), blocks);
    ASSERT_GT(points, 10);

    for (const bool sticky : {false, true}) {
        for (int32_t n = 1; n <= points; ++n) {
            docs.clear();
            vqxml::failAllocAt(n, sticky);
            const std::string result = domWorkload(docs, errors);
            vqxml::failAllocAt(0);
            // A failure either shows in the error list or changed nothing.
            if (!sticky && !hasCode(errors, kCannotAllocate)) {
                EXPECT_TRUE(result == expected) << "n=" << n << " " << result.substr(0, 30) << ::testing::PrintToString(errors);
            }
            for (VQHANDLE d : docs) VQXML_deleteDocumentArea(d);
            ASSERT_EQ(liveBlocks(), blocks) << "n=" << n << " sticky=" << sticky;
            ASSERT_EQ(print(other.doc), other.text);
        }
    }
}

namespace {

// A document whose area may not grow and has `room` bytes left: every
// allocation beyond that fails, at a different point of the workload for
// each `room`.
VQHANDLE fullHost(const char *text, int32_t room) {
    const VQHANDLE doc = VQXML_parse(text);
    const DocArea *area = docHead[doc & 255];
    const int64_t filler = int64_t{area->freesize} - room - 64;
    if (filler > 0 && allocDS(doc, filler) == 0) {
        vqtest::drainErrors();  // not one block large enough: less is filled
        allocDS(doc, filler / 2);
    }
    dontRealloc[doc & 255] = 1;
    return doc;
}

const char kHost[] =
    "<!DOCTYPE h [<!ENTITY e 'E<i j=\"k\"/>'><!ATTLIST i d CDATA 'dv' j CDATA #IMPLIED>"
    "<!ATTLIST h x CDATA 'y'>]><h>start</h>";

// Work inside one document: builders, edits, copies (defaults included),
// text, lists and a fragment parse. Returns what it built, printed.
std::string workInside(VQHANDLE doc, std::vector<vqtest::Err> &errors) {
    using vqtest::ds;
    const VQHANDLE root = VQDOM_getDocumentElement(doc);
    for (int i = 0; i < 8; ++i) {
        const VQHANDLE e = VQDOM_createElement(doc, ds(doc, i % 2 ? "i" : "b"));
        VQDOM_setAttribute(e, ds(doc, "k"), ds(doc, "value"));
        VQDOM_appendChild(e, VQDOM_createTextNode(doc, ds(doc, "t1")));
        VQDOM_appendChild(e, VQDOM_createTextNode(doc, ds(doc, "t2")));
        VQDOM_appendChild(root, e);
    }
    VQDOM_normalize(root);
    VQDOM_appendChild(root, VQDOM_cloneNode(VQDOM_getFirstChild(root), 1));
    VQDOM_appendChild(root, VQDOM_cloneNode(VQDOM_getLastChild(root), 1));
    const VQHANDLE text = VQDOM_getFirstChild(root);
    VQDOM_appendDataStr(text, "-more");
    VQDOM_insertDataStr(text, 2, "ins");
    VQDOM_replaceData(text, 0, 1, ds(doc, "S"));
    VQDOM_splitText(text, 3);
    VQDOM_deleteDS(VQDOM_getTextContentDS(root));
    std::string out = std::to_string(VQDOM_getLengthList(VQDOM_getElementsByTagNameStr(doc, "i"))) + "|";
    VQDOM_setAttribute(VQDOM_getLastChild(root), ds(doc, "d"), ds(doc, "own"));
    VQDOM_removeAttributeStr(VQDOM_getLastChild(root), "k");
    for (const auto &e : vqtest::drainErrors()) errors.push_back(e);
    const VQHANDLE fragment = VQXML_parseFragment(doc, "<i>&e;</i>&#65;x");
    for (const auto &e : vqtest::drainErrors()) errors.push_back(e);
    VQDOM_appendChild(root, fragment);
    return out + print(doc);
}

}  // namespace

TEST_F(LibraryTest, WorkInAFullAreaFailsCleanly) {
    const Bystander other;
    const int32_t blocks = liveBlocks();
    std::vector<vqtest::Err> errors;
    VQHANDLE doc = VQXML_parse(kHost);
    const std::string expected = workInside(doc, errors);
    ASSERT_TRUE(errors.empty()) << ::testing::PrintToString(errors);
    VQXML_deleteDocumentArea(doc);

    int failed = 0, rounds = 0;
    for (int32_t room = 0; room < 12000; room += 24, ++rounds) {
        doc = fullHost(kHost, room);
        errors.clear();
        const std::string result = workInside(doc, errors);
        for (const auto &e : vqtest::drainErrors()) errors.push_back(e);
        // Whatever failed, the tree holds together, and a failure that
        // was not reported changed nothing.
        EXPECT_EQ(robust::checkTree(doc), "") << "room=" << room;
        failed += hasCode(errors, kCannotAllocate);
        if (!hasCode(errors, kCannotAllocate)) {
            EXPECT_TRUE(result == expected) << "room=" << room << " " << ::testing::PrintToString(errors);
        }
        dontRealloc[doc & 255] = 0;
        VQXML_deleteDocumentArea(doc);
        ASSERT_EQ(liveBlocks(), blocks) << "room=" << room;
        ASSERT_EQ(print(other.doc), other.text);
    }
    // The rooms cover the work from its very start to beyond its end.
    EXPECT_GT(failed, rounds / 2);
    EXPECT_LT(failed, rounds);
}
