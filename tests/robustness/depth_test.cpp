// depth_test.cpp - nesting of any depth: parses beyond the bound fail with
// a message, and trees built deeper through the DOM survive every walk of
// the library (deletion, copies, merging, printing, text, searches,
// attribute values through references, content models).
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/dom.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/walk.h"

using robust::liveAreas;
using robust::print;
using robust::repeat;
using vqtest::ds;
using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;

namespace {

using namespace vqxml::codes;

// Far deeper than a recursive walk could go on any usual stack.
constexpr int kDepth = 200000;

}  // namespace

TEST_F(LibraryTest, NestingBeyondTheBoundFailsWithoutCrashing) {
    // Far beyond the bound: a document, the same through the expanding
    // reader of a fragment, and a content model.
    const int32_t blocks = robust::liveBlocks();
    const std::vector<Err> tooDeep{{kElementsTooDeep, "1|10000|"}};
    const std::string deep = repeat("<a>", 10000000);
    EXPECT_EQ(VQXML_parse(deep.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), tooDeep);
    const VQHANDLE host = VQXML_parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    ASSERT_NE(host, 0u);
    EXPECT_EQ(VQXML_parseFragment(host, deep.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), tooDeep);
    EXPECT_EQ(VQXML_parse(("<!DOCTYPE r [<!ELEMENT r " + repeat("(", 1000000) + "]><r/>").c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), tooDeep);
    VQDOM_deleteNode(host);
    EXPECT_EQ(robust::liveBlocks(), blocks);
    EXPECT_EQ(liveAreas(), 0);
}

TEST_F(LibraryTest, DeepTreesSurviveEveryWalk) {
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE root = robust::chain(doc, kDepth, "e", "x");
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
    EXPECT_TRUE(robust::consistent(doc));

    // Text, from the top and from the bottom.
    EXPECT_EQ(VQDOM_getTextContent(root, nullptr, 0), 2);
    const VQHANDLE text = VQDOM_getTextContentDS(root);
    EXPECT_EQ(str(text), "xy");
    VQDOM_deleteDS(text);
    EXPECT_EQ(VQDOM_getText(root, nullptr, 0), 0);

    // Printing: every tag, in order.
    const std::string expected = repeat("<e>", kDepth) + "xy<!--c-->" + repeat("</e>", kDepth);
    EXPECT_EQ(print(doc), expected);

    // Searches.
    const VQHANDLE all = VQDOM_getElementsByTagNameStr(doc, "e");
    EXPECT_EQ(VQDOM_getLengthList(all), static_cast<uint32_t>(kDepth));
    EXPECT_EQ(VQDOM_itemList(all, kDepth - 1), leaf);

    // Copies: within the document (deleting it gives every block back),
    // into another one, and of the document.
    const int32_t objects = docHead[doc & 255]->dbgHandles;
    const VQHANDLE copy = VQDOM_cloneNode(root, 1);
    EXPECT_EQ(print(copy), expected);
    VQDOM_deleteNode(copy);
    EXPECT_EQ(docHead[doc & 255]->dbgHandles, objects);
    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE moved = VQDOM_cloneNodeDoc(root, 1, other);
    EXPECT_EQ(VQDOM_appendChild(other, moved), moved);
    EXPECT_TRUE(robust::consistent(other));
    EXPECT_EQ(print(other), expected);
    const VQHANDLE twin = VQDOM_cloneNode(doc, 1);
    EXPECT_EQ(print(twin), expected);
    VQDOM_deleteNode(twin);
    VQDOM_deleteNode(other);

    // Making the root its own descendant is refused (and, as for any
    // refused insertion, the root goes).
    EXPECT_EQ(VQDOM_appendChild(leaf, root), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{mainCode(kHierarchyRequestErr), ""}}));
    EXPECT_EQ(VQDOM_getDocumentElement(doc), 0u);
    VQDOM_deleteNode(doc);
    EXPECT_EQ(liveAreas(), 0);
}

TEST_F(LibraryTest, DeepReferencesInValuesAndDeepContentModels) {
    // An attribute value made of references nested far below each other,
    // with its text at the bottom.
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    VQHANDLE inner = attr;
    for (int i = 0; i < kDepth; ++i) inner = VQDOM_appendChild(inner, VQDOM_createEntityReference(doc, ds(doc, "r")));
    ASSERT_NE(inner, 0u);
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

    // A content model of groups nested as deep.
    const VQHANDLE decl = createElementDecl(doc, ds(doc, "e")), name = ds(doc, "x");
    vqxml::rec<ElementDecl>(decl)->contentType = 4;
    inner = decl;
    for (int i = 0; i <= kDepth; ++i) {  // the last one is the leaf
        inner = VQDOM_appendChild(inner, createCpChildren(doc));
        ASSERT_NE(inner, 0u);
        vqxml::rec<CpChildren>(inner)->separator = i == kDepth ? 0 : (i % 2 ? '|' : ',');
    }
    vqxml::rec<CpChildren>(inner)->occurrence = '?';
    vqxml::node(inner)->nodeName = name;
    std::vector<char> out(static_cast<size_t>(kDepth) * 2 + 64);
    char *cursor = out.data();
    const int32_t length = printElementDecl(decl, &cursor, static_cast<int32_t>(out.size()));
    EXPECT_EQ(std::string(out.data(), static_cast<size_t>(length)),
              "<!ELEMENT e " + repeat("(", kDepth) + "x?" + repeat(")", kDepth) + ">");
    for (VQHANDLE h : {copy, element, decl, doc}) VQDOM_deleteNode(h);
    EXPECT_EQ(liveAreas(), 0);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(LibraryTest, EntityReferencesNestAtMost64Deep) {
    // A parameter entity that names itself: the reader opens 64 sources,
    // then refuses; the declaration itself was already reported, since an
    // internal entity value may not use parameter entities.
    EXPECT_EQ(VQXML_parse("<!DOCTYPE r [<!ENTITY % p '%p;'>\n%p;]><r/>"), 0u);
    auto errors = vqtest::drainErrors();
    ASSERT_GE(errors.size(), 2u);
    EXPECT_EQ(errors[0], (Err{kPeIllegalHere, "1|p|"}));
    // (The refused reference is met again by every look-ahead at it.)
    for (size_t i = 1; i < errors.size(); ++i) EXPECT_EQ(errors[i], (Err{kEntitiesTooDeep, "1|64|"}));
    // Nesting up to the bound expands in full: 63 entities, each naming
    // the next, the last holding a declaration.
    // (The value is longer than the nesting: the nested readers read that
    // far ahead, and a closing quotation mark they have already passed
    // when the literal begins would not be seen.)
    std::string text = "<!DOCTYPE r [<!ENTITY % p62 '<!ENTITY g \"" + std::string(100, 'd') + "\">'>";
    for (int i = 61; i >= 0; --i) text += "<!ENTITY % p" + std::to_string(i) + " '%p" + std::to_string(i + 1) + ";'>";
    const VQHANDLE doc = VQXML_parse((text + "%p0;]><r>&g;</r>").c_str());
    ASSERT_NE(doc, 0u);
    for (const Err &e : vqtest::drainErrors()) EXPECT_EQ(e.code, kPeIllegalHere);
    EXPECT_EQ(print(VQDOM_getDocumentElement(doc)), "<r>&g;</r>");
    EXPECT_EQ(VQDOM_getTextContent(VQDOM_getDocumentElement(doc), nullptr, 0), 100);
}

TEST_F(LibraryTest, DefaultsThatHoldTheirOwnElementStopNesting) {
    // A default whose value holds, through a reference, an element of the
    // very name it is the default for: every copy of it gets the default
    // again. (The parser cannot declare such a value; the library's own
    // declaration builders can.) The nesting stops at 32 levels.
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE doctype = VQDOM_appendChild(doc, createDocumentType(doc, ds(doc, "a")));
    const VQHANDLE decl = createAttlistDecl(doc, ds(doc, "a"));
    const VQHANDLE def = createAttDef(doc, ds(doc, "x"));
    const VQHANDLE value = VQDOM_createAttribute(doc, ds(doc, "x"));
    const VQHANDLE ref = VQDOM_appendChild(value, VQDOM_createEntityReference(doc, ds(doc, "r")));
    VQDOM_appendChild(ref, vqxml::createElementBare(doc, ds(doc, "a")));
    VQDOM_setNamedItem(VQDOM_getAttributes(def), value);
    VQDOM_appendChild(decl, def);
    VQDOM_appendChild(doctype, decl);

    const VQHANDLE a = VQDOM_createElement(doc, ds(doc, "a"));
    int levels = 0;
    for (VQHANDLE e = a; e != 0; ++levels) {
        e = VQDOM_getFirstChild(VQDOM_getFirstChild(VQDOM_getAttributeNodeStr(e, "x")));
    }
    EXPECT_EQ(levels, 33);
    VQDOM_deleteNode(a);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}
