// navigation_test.cpp - accessors that hide links on purpose, text gathering
// at tight capacities, the DS variants around their stack buffer, live
// tag-name lists and renaming.
#include <cstring>
#include <string>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::ds;
using vqtest::str;

class NavigationTest : public vqtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = VQDOM_createDocument();
    }
    VQHANDLE element(const char *name) { return VQDOM_createElement(doc, ds(doc, name)); }
    VQHANDLE text(const char *value) { return VQDOM_createTextNode(doc, ds(doc, value)); }
    VQHANDLE add(VQHANDLE parent, VQHANDLE child) { return VQDOM_appendChild(parent, child); }
    // An element holding texts and, between them, an element with `inner`.
    VQHANDLE mixed(const char *before, const char *inner, const char *after) {
        VQHANDLE e = element("e");
        add(e, text(before));
        add(add(e, element("i")), text(inner));
        add(e, text(after));
        return e;
    }
    VQHANDLE doc = 0;
};

TEST_F(NavigationTest, LinksThatAccessorsHide) {
    VQHANDLE dt = add(doc, createDocumentType(doc, ds(doc, "r")));
    add(dt, createElementDecl(doc, ds(doc, "r")));
    EXPECT_EQ(VQDOM_getFirstChild(dt) | VQDOM_getLastChild(dt), 0u);
    VQHANDLE entity = add(dt, allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "n")));
    EXPECT_EQ(vqxml::node(entity)->parentNode, dt);
    EXPECT_EQ(VQDOM_getParentNode(entity), 0u);

    VQHANDLE a = VQDOM_createAttribute(doc, ds(doc, "a"));
    VQHANDLE b = VQDOM_createAttribute(doc, ds(doc, "b"));
    vqxml::node(a)->nextSibling = b;
    vqxml::node(b)->previousSibling = a;
    EXPECT_EQ(VQDOM_getNextSibling(a) | VQDOM_getPreviousSibling(b), 0u);
    EXPECT_EQ(VQDOM_getOwnerDocument(doc), 0u);
}

TEST_F(NavigationTest, BadHandlesYieldZeroAndRecordNothing) {
    VQHANDLE e = element("e");
    VQHANDLE small = ds(doc, "s");  // live, but no node
    VQHANDLE gone = element("gone");
    VQDOM_deleteNode(gone);
    char buf[4] = "xyz";
    for (VQHANDLE h : {0u, 5u, 0xffffff01u, gone, small, (e & ~255u) | 77u}) {
        SCOPED_TRACE(h);
        EXPECT_EQ(VQDOM_getNodeName(h) | VQDOM_getFirstChild(h) | VQDOM_getParentNode(h) |
                      VQDOM_getChildNodes(h) | VQDOM_getOwnerDocument(h) | VQDOM_getTextDS(h) |
                      VQDOM_getEntities(h) | VQDOM_getPublicID(h) | VQDOM_getNotationName(h) |
                      VQDOM_getElementsByTagNameStr(h, "*"),
                  0u);
        EXPECT_EQ(VQDOM_getText(h, buf, sizeof buf) + VQDOM_rename(h, "x"), 0);
        EXPECT_EQ(buf[0], '\0');
    }
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(NavigationTest, TextStaysAtTheTopAndContentDescends) {
    VQHANDLE e = mixed("x", "y", "z");
    add(e, VQDOM_createComment(doc, ds(doc, "c")));
    VQHANDLE ref = add(e, VQDOM_createEntityReference(doc, ds(doc, "ent")));
    add(ref, VQDOM_createCDATASection(doc, ds(doc, "<w>")));
    char buf[32];
    EXPECT_EQ(VQDOM_getText(e, buf, sizeof buf), 2);
    EXPECT_STREQ(buf, "xz");
    EXPECT_EQ(VQDOM_getTextContent(e, buf, sizeof buf), 6);
    EXPECT_STREQ(buf, "xyz<w>");
    EXPECT_EQ(VQDOM_getTextContent(e, nullptr, 100), 6);
}

TEST_F(NavigationTest, TightCapacities) {
    char buf[8];
    auto fill = [&] { std::memset(buf, '#', sizeof buf); };
    // The second piece finds one byte of room and writes only a terminator.
    VQHANDLE e = element("e");
    add(e, text("ab"));
    add(e, text("cd"));
    fill();
    EXPECT_EQ(VQDOM_getText(e, buf, 3), 4);
    EXPECT_EQ(std::string(buf, 4), std::string("ab\0#", 4));

    // A piece that does not fit leaves the cursor where it was, and the
    // next, shorter piece overwrites it; getText fills the room instead.
    VQHANDLE f = element("f");
    add(f, text("abcd"));
    add(f, text("x"));
    fill();
    EXPECT_EQ(VQDOM_getTextContent(f, buf, 3), 5);
    EXPECT_EQ(std::string(buf, 4), std::string("x\0\0#", 4));
    fill();
    EXPECT_EQ(VQDOM_getText(f, buf, 3), 5);
    EXPECT_EQ(std::string(buf, 4), std::string("ab\0#", 4));

    // A nested element is one piece: too long as a whole, it is overwritten.
    fill();
    EXPECT_EQ(VQDOM_getTextContent(mixed("a", "bcde", "f"), buf, 4), 6);
    EXPECT_EQ(std::string(buf, 4), std::string("af\0\0", 4));
}

TEST_F(NavigationTest, DeepTreesAreGatheredWithoutRecursion) {
    // Built bottom-up, so that no append walks a long ancestry.
    VQHANDLE top = text("deep");
    for (int i = 0; i < 200000; ++i) {
        VQHANDLE parent = element("d");
        add(parent, top);
        top = parent;
    }
    add(top, text("!"));
    char buf[16];
    EXPECT_EQ(VQDOM_getTextContent(top, buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "deep!");
}

TEST_F(NavigationTest, DSVariantsAroundTheStackBuffer) {
    EXPECT_EQ(VQDOM_getTextDS(doc) | VQDOM_getTextContentDS(doc), 0u);
    for (size_t length : {255u, 256u, 300u}) {
        SCOPED_TRACE(length);
        const std::string want(length, 'q');
        VQHANDLE e = mixed(want.substr(0, 100).c_str(), "-", want.substr(100).c_str());
        EXPECT_EQ(str(VQDOM_getTextDS(e)), want);
        EXPECT_EQ(str(VQDOM_getTextContentDS(e)), want.substr(0, 100) + "-" + want.substr(100));
    }
}

TEST_F(NavigationTest, TagNameListsAreLiveAndChainedBehindTheChildList) {
    VQHANDLE root = add(doc, element("r"));
    VQHANDLE childList = VQDOM_getChildNodes(root);
    VQHANDLE name = ds(doc, "a");
    VQHANDLE first = VQDOM_getElementsByTagName(root, name);
    VQHANDLE second = VQDOM_getElementsByTagNameStr(root, "a");
    VQHANDLE all = VQDOM_getElementsByTagNameStr(doc, "*");
    EXPECT_EQ(VQDOM_getChildNodes(root), childList);
    EXPECT_EQ(toPNodeList(childList)->nextList, second);
    EXPECT_EQ(toPNodeList(second)->nextList, first);

    VQDOM_deleteDS(name);  // the list holds its own copy
    VQHANDLE a1 = add(root, element("a"));
    add(root, element("b"));
    VQHANDLE a2 = add(a1, element("a"));
    EXPECT_EQ(VQDOM_getLengthList(first), 2u);
    EXPECT_EQ(VQDOM_itemList(second, 1), a2);
    EXPECT_EQ(VQDOM_getLengthList(all), 4u);
    EXPECT_EQ(VQDOM_getElementsByTagNameStr(text("t"), "a"), 0u);
}

TEST_F(NavigationTest, RenameOfADocumentAndTheOneFeature) {
    EXPECT_EQ(VQDOM_rename(doc, "x"), 0);  // no document element yet
    VQHANDLE root = add(doc, element("old"));
    VQHANDLE oldName = VQDOM_getNodeName(root);
    EXPECT_EQ(VQDOM_rename(doc, "1 2"), 1);  // no name check either
    EXPECT_EQ(str(VQDOM_getTagName(root)), "1 2");
    EXPECT_FALSE(vqxml::liveHandle(oldName));
    EXPECT_EQ(str(VQDOM_getNodeName(doc)), "#document");
    EXPECT_EQ(VQDOM_rename(text("t"), "x"), 0);

    EXPECT_EQ(VQDOM_hasFeature(0, "xml", "1.0"), 1);
    EXPECT_EQ(VQDOM_hasFeature(0, "XML", "1.00") + VQDOM_hasFeature(0, "XML", "2.0"), 0);
}

}  // namespace
