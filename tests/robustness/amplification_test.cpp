// amplification_test.cpp - documents that are small as text but would make
// the parser copy without limit: nested entity references, one large entity
// named many times, elements that each receive large DTD defaults, and
// parameter entities. Each is refused with its bound and leaves nothing.
#include <cstdint>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"

using robust::liveAreas;
using robust::liveBlocks;
using robust::repeat;
using vqtest::Err;
using vqtest::LibraryTest;

namespace {

using namespace vqxml::codes;

// Ten levels of ten references each, over `leaf`.
std::string laughs(const std::string &leaf) {
    std::string text = "<!DOCTYPE r [<!ENTITY l0 '" + leaf + "'>";
    for (int i = 1; i < 10; ++i)
        text += "<!ENTITY l" + std::to_string(i) + " '" + repeat("&l" + std::to_string(i - 1) + ";", 10) + "'>";
    return text + "]>\n<r>&l9;</r>";
}

// Parses `text`, which must be refused with the copy budget of its parse
// exceeded at `line`, and nothing else; all memory comes back.
void expectRefused(const std::string &text, int line) {
    const int32_t blocks = liveBlocks();
    EXPECT_EQ(VQXML_parse(text.c_str()), 0u);
    const std::string budget = std::to_string((int64_t{8} << 20) + 100 * static_cast<int64_t>(text.size()));
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kExpansionTooLarge, std::to_string(line) + "|" + budget + "|"}}));
    EXPECT_EQ(liveBlocks(), blocks);
    EXPECT_EQ(liveAreas(), 0);
}

// The bound on entity text read while parsing `text`, as recorded.
std::string textBound(const std::string &text) {
    return std::to_string((int64_t{1} << 20) + 16 * static_cast<int64_t>(text.size()));
}

}  // namespace

TEST_F(LibraryTest, CopiesBeyondTheBudgetAreRefused) {
    const std::string large(100000, 'x');
    const struct {
        const char *what;
        std::string text;
        int line;
    } cases[] = {
        // Billions of short texts, and the same with elements (each copy
        // costs little text but a node record).
        {"texts", laughs("lol"), 1},
        {"elements", laughs("<a/>"), 1},
        {"large entity", "<!DOCTYPE r [<!ENTITY a '" + large + "'>]>\n<r>" + repeat("&a;", 20000) + "</r>", 2},
        {"in a value", "<!DOCTYPE r [<!ENTITY a '" + large + "'>]>\n<r v='" + repeat("&a;", 2000) + "'/>", 2},
        // A large default given to many elements, and to the elements of an
        // entity declared before the defaults, whose copies receive them.
        {"defaults", "<!DOCTYPE r [<!ATTLIST a x CDATA '" + std::string(100000, 'y') + "'>]>\n<r>" +
                         repeat("<a/>", 2000) + "</r>", 2},
        {"defaults of copies", "<!DOCTYPE r [<!ENTITY e '" + repeat("<a/>", 2000) + "'><!ATTLIST a x CDATA '" +
                                   std::string(10000, 'y') + "'>]>\n<r>" + repeat("&e;", 100) + "</r>", 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        expectRefused(c.text, c.line);
    }
}

TEST_F(LibraryTest, AFragmentOverTheBudgetLeavesItsHostAsItWas) {
    // The refused parse of a document lets its area go as a whole; a
    // fragment lives in its host's area, so what it made is deleted.
    const VQHANDLE host = VQXML_parse(("<!DOCTYPE r [<!ENTITY a '" + std::string(100000, 'x') + "'>]><r/>").c_str());
    ASSERT_NE(host, 0u);
    const int32_t objects = docHead[host & 255]->dbgHandles;
    EXPECT_EQ(VQXML_parseFragment(host, ("<b/>" + repeat("&a;", 200)).c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors().back().code, kExpansionTooLarge);
    EXPECT_EQ(docHead[host & 255]->dbgHandles, objects);
    VQDOM_deleteNode(host);
    EXPECT_EQ(liveAreas(), 0);
}

TEST_F(LibraryTest, ParameterEntityTextIsBoundedPerParse) {
    // Each top-level reference stays far below the bound; together they
    // pass it. (The declarations report their references first: an
    // internal entity value may not use parameter entities.)
    std::string text = "<!DOCTYPE r [<!ENTITY % a '" + std::string(1000, ' ') + "'>";
    text += "<!ENTITY % b '" + repeat("%a;", 100) + "'>\n" + repeat("%b;", 1000) + "]><r/>";
    EXPECT_EQ(VQXML_parse(text.c_str()), 0u);
    const auto errors = vqtest::drainErrors();
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(errors.front(), (Err{kPeIllegalHere, "1|a|"}));
    EXPECT_EQ(errors.back(), (Err{kExpansionTooLarge, "1|" + textBound(text) + "|"}));
    EXPECT_EQ(liveAreas(), 0);

    // Text read through many nested references counts once per level: 60
    // levels over 20 000 bytes, a hundred times, is 120 MB of reading
    // though only 2 MB of text.
    text = "<!DOCTYPE r [<!ENTITY % p60 '" + std::string(20000, ' ') + "'>";
    for (int i = 59; i >= 0; --i) text += "<!ENTITY % p" + std::to_string(i) + " '%p" + std::to_string(i + 1) + ";'>";
    text += repeat("%p0;", 100) + "]><r/>";
    EXPECT_EQ(VQXML_parse(text.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors().back(), (Err{kExpansionTooLarge, "1|" + textBound(text) + "|"}));
}

TEST_F(LibraryTest, ExpansionsWithinTheBudgetAreKeptWhole) {
    // 600 copies of a 10 000-byte entity: about 6 MB of text. The last
    // reference's copy of <b/> got its default as well.
    const std::string text = "<!DOCTYPE r [<!ENTITY a '" + std::string(10000, 'x') +
                             "'><!ATTLIST b d CDATA 'dv'><!ENTITY e '<b/>'>]><r>" + repeat("&a;&e;", 600) + "</r>";
    const VQHANDLE doc = VQXML_parse(text.c_str());
    ASSERT_NE(doc, 0u) << ::testing::PrintToString(vqtest::drainErrors());
    const VQHANDLE root = VQDOM_getDocumentElement(doc);
    EXPECT_EQ(VQDOM_getTextContent(root, nullptr, 0), 600 * 10000);
    char value[8];
    EXPECT_EQ(VQDOM_getAttributeStr(VQDOM_getFirstChild(VQDOM_getLastChild(root)), "d", value, sizeof value), 2);
    EXPECT_STREQ(value, "dv");
    VQXML_deleteDocumentArea(doc);

    // Every parse has a budget of its own: a refused one does not use up
    // the next, and copies made by callers afterwards are not metered.
    expectRefused(laughs("lol"), 1);
    const VQHANDLE again = VQXML_parse(text.c_str());
    ASSERT_NE(again, 0u);
    VQHANDLE copy = VQDOM_getDocumentElement(again);
    for (int i = 0; i < 4; ++i) copy = VQDOM_cloneNode(copy, 1);  // 4 x 6 MB, beyond a budget
    EXPECT_EQ(VQDOM_getTextContent(copy, nullptr, 0), 600 * 10000);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}
