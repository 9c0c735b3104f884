// depth_test.cpp - nesting of any depth: parses beyond the bound fail with
// a message, and trees built deeper through the DOM survive every walk of
// the library (deletion, copies, merging, printing, text, searches,
// attribute values through references, content models).
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/dom.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/dom_string.h"

using robust::chain;
using robust::liveAreas;
using robust::liveBlocks;
using robust::print;
using vqtest::ds;
using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;

namespace {

// Far deeper than a recursive walk could go on any usual stack.
constexpr int kDepth = 200000;

std::string repeat(const std::string &piece, int times) {
    std::string out;
    out.reserve(piece.size() * static_cast<size_t>(times));
    for (int i = 0; i < times; ++i) out += piece;
    return out;
}

}  // namespace

TEST_F(LibraryTest, NestingBeyondTheBoundFailsWithoutCrashing) {
    const int32_t blocks = liveBlocks();
    const std::string deep = repeat("<a>", 10000000);
    EXPECT_EQ(VQXML_parse(deep.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001944, "1|10000|"}}));
    EXPECT_EQ(vqtest::message(1001944, "1|10000|"), "line 1: elements nested deeper than 10000 levels");

    // The same through the expanding reader of a fragment, and in a
    // content model.
    const VQHANDLE host = VQXML_parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    ASSERT_NE(host, 0u);
    EXPECT_EQ(VQXML_parseFragment(host, deep.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001944, "1|10000|"}}));
    const std::string model = "<!DOCTYPE r [<!ELEMENT r " + repeat("(", 1000000) + "]><r/>";
    EXPECT_EQ(VQXML_parse(model.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001944, "1|10000|"}}));
    VQDOM_deleteNode(host);
    EXPECT_EQ(liveBlocks(), blocks);
    EXPECT_EQ(liveAreas(), 0);
}

TEST_F(LibraryTest, DeepTreesSurviveEveryWalk) {
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE root = chain(doc, kDepth, "e", "x");
    ASSERT_EQ(VQDOM_appendChild(doc, root), root);
    VQHANDLE leaf = root;
    while (VQDOM_getNodeType(VQDOM_getFirstChild(leaf)) == VQXML_ELEMENT_NODE) leaf = VQDOM_getFirstChild(leaf);
    // A run of text at the bottom for merging, and a comment that text
    // gathering skips.
    VQDOM_appendChild(leaf, VQDOM_createTextNode(doc, ds(doc, "y")));
    VQDOM_appendChild(leaf, VQDOM_createComment(doc, ds(doc, "c")));
    VQDOM_normalize(doc);
    ASSERT_EQ(VQDOM_getNodeType(VQDOM_getNextSibling(VQDOM_getFirstChild(leaf))), VQXML_COMMENT_NODE);
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_getFirstChild(leaf))), "xy");

    // Text, from the top and from the bottom.
    EXPECT_EQ(VQDOM_getTextContent(root, nullptr, 0), 2);
    const VQHANDLE text = VQDOM_getTextContentDS(root);
    EXPECT_EQ(str(text), "xy");
    VQDOM_deleteDS(text);
    EXPECT_EQ(VQDOM_getText(root, nullptr, 0), 0);

    // Printing: every tag, in order.
    const std::string expected =
        repeat("<e>", kDepth) + "xy<!--c-->" + repeat("</e>", kDepth);
    EXPECT_EQ(print(doc), expected);
    std::vector<char> pretty(static_cast<size_t>(kDepth) * 140 + 100);
    char *cursor = pretty.data();
    const int32_t length = printNodeBeatifyEx(root, &cursor, static_cast<int32_t>(pretty.size()), 0);
    const std::string indented(pretty.data(), static_cast<size_t>(length));
    // Indentation stops at 63 blanks; the nesting is written in full.
    EXPECT_EQ(indented.substr(0, 10), "<e>\r\n  <e>");
    EXPECT_NE(indented.find("\r\n" + std::string(63, ' ') + "<e>xy<!--c--></e>\r\n"), std::string::npos);
    EXPECT_EQ(indented.find(std::string(64, ' ')), std::string::npos);
    EXPECT_EQ(indented.substr(indented.size() - 10), "</e>\r\n</e>");

    // Searches.
    const VQHANDLE all = VQDOM_getElementsByTagNameStr(doc, "e");
    EXPECT_EQ(VQDOM_getLengthList(all), static_cast<uint32_t>(kDepth));
    EXPECT_EQ(VQDOM_itemList(all, kDepth - 1), leaf);

    // Copies: within the document, into another one, and of the document.
    const VQHANDLE copy = VQDOM_cloneNode(root, 1);
    EXPECT_EQ(print(copy), repeat("<e>", kDepth) + "xy<!--c-->" + repeat("</e>", kDepth));
    VQDOM_deleteNode(copy);
    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE moved = VQDOM_cloneNodeDoc(root, 1, other);
    EXPECT_EQ(VQDOM_appendChild(other, moved), moved);
    EXPECT_EQ(print(other), expected);
    const VQHANDLE twin = VQDOM_cloneNode(doc, 1);
    EXPECT_EQ(print(twin), expected);
    VQDOM_deleteNode(twin);
    VQDOM_deleteNode(other);

    // Making the root its own descendant is refused (and, as for any
    // refused insertion, the root goes).
    EXPECT_EQ(VQDOM_appendChild(leaf, root), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001703, ""}}));
    EXPECT_EQ(VQDOM_getDocumentElement(doc), 0u);
    VQDOM_deleteNode(doc);
    EXPECT_EQ(liveAreas(), 0);
}

TEST_F(LibraryTest, DeepReferencesInAttributeValues) {
    // An attribute value made of references nested far below each other,
    // with its text at the bottom.
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    VQHANDLE inner = attr;
    for (int i = 0; i < kDepth; ++i) {
        const VQHANDLE ref = VQDOM_createEntityReference(doc, ds(doc, "r"));
        ASSERT_EQ(VQDOM_appendChild(inner, ref), ref);
        inner = ref;
    }
    VQDOM_appendChild(inner, VQDOM_createTextNode(doc, ds(doc, "v  al")));
    EXPECT_EQ(getNormalValue(attr, 0), 1);
    EXPECT_EQ(str(VQDOM_getValue(attr)), "v al");
    VQHANDLE gathered = 0;
    EXPECT_EQ(getAttChildValue(VQDOM_getFirstChild(attr), &gathered), 1);
    EXPECT_EQ(str(gathered), "v  al");
    VQDOM_deleteDS(gathered);

    const VQHANDLE element = VQDOM_createElement(doc, ds(doc, "x"));
    EXPECT_EQ(VQDOM_setAttributeNode(element, attr), 0u);
    EXPECT_EQ(print(element), "<x a=\"&r;\"/>");
    const VQHANDLE copy = VQDOM_cloneNode(element, 0);
    char value[16];
    EXPECT_EQ(VQDOM_getAttributeStr(copy, "a", value, sizeof value), 5);
    EXPECT_STREQ(value, "v  al");
    VQDOM_deleteNode(copy);
    VQDOM_deleteNode(element);
    VQDOM_deleteNode(doc);
    EXPECT_EQ(liveAreas(), 0);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(LibraryTest, DeepContentModelsPrint) {
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE decl = createElementDecl(doc, ds(doc, "e"));
    reinterpret_cast<ElementDecl *>(vqxml::node(decl))->contentType = 4;
    VQHANDLE inner = decl;
    for (int i = 0; i < kDepth; ++i) {
        const VQHANDLE group = createCpChildren(doc);
        reinterpret_cast<CpChildren *>(vqxml::node(group))->separator = i % 2 ? '|' : ',';
        ASSERT_EQ(VQDOM_appendChild(inner, group), group);
        inner = group;
    }
    const VQHANDLE leaf = createCpChildren(doc);
    reinterpret_cast<CpChildren *>(vqxml::node(leaf))->separator = 0;
    vqxml::node(leaf)->nodeName = ds(doc, "x");
    reinterpret_cast<CpChildren *>(vqxml::node(leaf))->occurrence = '?';
    VQDOM_appendChild(inner, leaf);
    std::vector<char> out(static_cast<size_t>(kDepth) * 2 + 64);
    char *cursor = out.data();
    const int32_t length = printElementDecl(decl, &cursor, static_cast<int32_t>(out.size()));
    EXPECT_EQ(std::string(out.data(), static_cast<size_t>(length)),
              "<!ELEMENT e " + repeat("(", kDepth) + "x?" + repeat(")", kDepth) + ">");
    VQDOM_deleteNode(decl);
    VQDOM_deleteNode(doc);
    EXPECT_EQ(liveAreas(), 0);
}

TEST_F(LibraryTest, EntityReferencesNestAtMost64Deep) {
    // A parameter entity that names itself: the reader opens 64 sources,
    // then refuses; the declaration itself was already reported, since an
    // internal entity value may not use parameter entities.
    EXPECT_EQ(VQXML_parse("<!DOCTYPE r [<!ENTITY % p '%p;'>\n%p;]><r/>"), 0u);
    auto errors = vqtest::drainErrors();
    ASSERT_GE(errors.size(), 2u);
    EXPECT_EQ(errors[0], (Err{1001937, "1|p|"}));
    // (The refused reference is met again by every look-ahead at it.)
    for (size_t i = 1; i < errors.size(); ++i) EXPECT_EQ(errors[i], (Err{1001946, "1|64|"}));
    // Nesting up to the bound expands in full: 63 entities, each naming
    // the next, the last holding a declaration.
    // (The value is longer than the nesting: the nested readers read that
    // far ahead, and a closing quotation mark they have already passed
    // when the literal begins would not be seen.)
    std::string text = "<!DOCTYPE r [<!ENTITY % p62 '<!ENTITY g \"" + std::string(100, 'd') + "\">'>";
    for (int i = 61; i >= 0; --i)
        text += "<!ENTITY % p" + std::to_string(i) + " '%p" + std::to_string(i + 1) + ";'>";
    text += "%p0;]><r>&g;</r>";
    const VQHANDLE doc = VQXML_parse(text.c_str());
    ASSERT_NE(doc, 0u);
    for (const Err &e : vqtest::drainErrors()) EXPECT_EQ(e.code, 1001937);
    EXPECT_EQ(print(VQDOM_getDocumentElement(doc)), "<r>&g;</r>");
    EXPECT_EQ(VQDOM_getTextContent(VQDOM_getDocumentElement(doc), nullptr, 0), 100);
}

TEST_F(LibraryTest, DefaultsThatHoldTheirOwnElementStopNesting) {
    // A default whose value holds, through a reference, an element of the
    // very name it is the default for: every copy of it gets the default
    // again. (The parser cannot declare such a value; the library's own
    // declaration builders can.) The nesting stops at 32 levels.
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE doctype = createDocumentType(doc, ds(doc, "a"));
    VQDOM_appendChild(doc, doctype);
    const VQHANDLE decl = createAttlistDecl(doc, ds(doc, "a"));
    const VQHANDLE def = createAttDef(doc, ds(doc, "x"));
    const VQHANDLE value = VQDOM_createAttribute(doc, ds(doc, "x"));
    const VQHANDLE ref = VQDOM_createEntityReference(doc, ds(doc, "r"));
    VQDOM_appendChild(value, ref);
    VQDOM_appendChild(ref, vqxml::createElementBare(doc, ds(doc, "a")));
    VQDOM_setNamedItem(VQDOM_getAttributes(def), value);
    VQDOM_appendChild(decl, def);
    VQDOM_appendChild(doctype, decl);

    const VQHANDLE a = VQDOM_createElement(doc, ds(doc, "a"));
    int levels = 0;
    for (VQHANDLE e = a; e != 0; ++levels) {
        const VQHANDLE x = VQDOM_getAttributeNodeStr(e, "x");
        e = VQDOM_getFirstChild(VQDOM_getFirstChild(x));
    }
    EXPECT_EQ(levels, 33);
    VQDOM_deleteNode(a);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}
