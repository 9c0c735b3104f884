// navigation_test.cpp - accessors per node type and the links they hide on
// purpose, text gathering per node type and at tight capacities, the DS
// variants around their stack buffer, live tag-name lists and renaming.
#include <cstring>
#include <string>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::drainErrors;
using vqtest::ds;
using vqtest::str;

class NavigationTest : public vqtest::DocumentTest {
protected:
    // An element holding texts and, between them, an element with `inner`.
    VQHANDLE mixed(const char *before, const char *inner, const char *after) {
        VQHANDLE e = el("e");
        add(e, text(before));
        add(add(e, el("i")), text(inner));
        add(e, text(after));
        return e;
    }
};

TEST_F(NavigationTest, AccessorsAndTheLinksTheyHide) {
    VQHANDLE dt = add(doc, createDocumentType(doc, ds(doc, "r")));
    add(dt, createElementDecl(doc, ds(doc, "r")));
    EXPECT_EQ(VQDOM_getFirstChild(dt) | VQDOM_getLastChild(dt), 0u);
    EXPECT_EQ(VQDOM_hasChildNodes(dt), 1);  // though its children stay hidden
    for (int type : {VQXML_ENTITY_NODE, VQXML_NOTATION_NODE}) {
        VQHANDLE n = add(dt, allocNode(doc, type, ds(doc, "n")));
        EXPECT_EQ(vqxml::node(n)->parentNode, dt);
        EXPECT_EQ(VQDOM_getParentNode(n), 0u);
    }
    VQHANDLE a = VQDOM_createAttribute(doc, ds(doc, "a"));
    VQHANDLE b = VQDOM_createAttribute(doc, ds(doc, "b"));
    vqxml::node(a)->nextSibling = b;
    vqxml::node(b)->previousSibling = a;
    EXPECT_EQ(VQDOM_getNextSibling(a) | VQDOM_getPreviousSibling(b), 0u);
    EXPECT_EQ(VQDOM_getOwnerDocument(doc), 0u);
    EXPECT_EQ(VQDOM_getNodeType(0), 0);

    // The document element and the document type are found behind other children.
    add(doc, comment());
    VQHANDLE root = add(doc, el("root"));
    add(doc, comment());
    EXPECT_EQ(VQDOM_getDocumentElement(doc), root);
    EXPECT_EQ(VQDOM_getDoctype(doc), dt);
    EXPECT_EQ(VQDOM_hasChildNodes(doc), 1);
    EXPECT_EQ(VQDOM_hasChildNodes(root), 0);
    const VQHANDLE fr = with(frag(), {text("t")}), first = el("first");
    EXPECT_EQ(VQDOM_getDocumentFragmentElement(fr), 0u);
    with(fr, {comment(), first, el("second")});
    EXPECT_EQ(VQDOM_getDocumentFragmentElement(fr), first);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(NavigationTest, BadHandlesYieldZeroAndRecordNothing) {
    VQHANDLE e = el("e");
    VQHANDLE small = ds(doc, "s");  // live, but no node
    VQHANDLE gone = el("gone");
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

TEST_F(NavigationTest, TextGatheringPerNodeType) {
    char buf[32];
    // "length:text" of either gatherer.
    auto gather = [&](VQHANDLE h, bool content) {
        std::memset(buf, '#', sizeof buf);
        const int64_t n = content ? VQDOM_getTextContent(h, buf, sizeof buf) : VQDOM_getText(h, buf, sizeof buf);
        return std::to_string(n) + ":" + buf;
    };
    const VQHANDLE a = attr("a");
    VQDOM_setNodeValue(a, s("av"));
    const VQHANDLE entity = with(allocNode(doc, VQXML_ENTITY_NODE, s("ent")), {text("replacement")});
    struct { VQHANDLE node; const char *want; } const cases[] = {
        {a, "2:av"}, {pi("t", "pd"), "2:pd"}, {comment(), "1:c"}, {entity, "0:"},
        {createDocumentType(doc, s("r")), "0:"}, {createCpChildren(doc), "0:"}, {el("empty"), "0:"}};
    for (bool content : {false, true}) {
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(c.want) + (content ? " content" : " text"));
            EXPECT_EQ(gather(c.node, content), c.want);
        }
    }
    // Fragments and entity references are containers; comments and PIs inside them give nothing.
    const VQHANDLE r = with(ref("r"), {text("b"), pi("p", "no")});
    const VQHANDLE fr = with(frag(), {text("a"), comment(), r, VQDOM_createCDATASection(doc, s("c"))});
    EXPECT_EQ(gather(fr, false), "2:ac");
    EXPECT_EQ(gather(fr, true), "3:abc");
    EXPECT_EQ(gather(r, false), "1:b");
    // Text stays at the top of an element; content descends into its elements, and measures without a buffer.
    const VQHANDLE m = mixed("x", "y", "z");
    EXPECT_EQ(gather(m, false), "2:xz");
    EXPECT_EQ(gather(m, true), "3:xyz");
    EXPECT_EQ(VQDOM_getTextContent(m, nullptr, 100), 3);
    // Capacity 0 touches nothing and still measures.
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(VQDOM_getText(fr, buf, 0), 2);
    EXPECT_EQ(VQDOM_getTextContent(fr, buf, 0), 3);
    EXPECT_EQ(buf[0], '#');
    // The DS variants give a new string in the owner document.
    const VQHANDLE copy = VQDOM_getTextContentDS(fr), t = text("x");
    EXPECT_EQ(str(copy), "abc");
    EXPECT_EQ(copy & 255, doc & 255);
    EXPECT_NE(VQDOM_getTextDS(t), VQDOM_getNodeValue(t));
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(NavigationTest, TightCapacities) {
    char buf[8];
    auto fill = [&] { std::memset(buf, '#', sizeof buf); };
    // The second piece finds one byte of room and writes only a terminator.
    VQHANDLE e = el("e");
    add(e, text("ab"));
    add(e, text("cd"));
    fill();
    EXPECT_EQ(VQDOM_getText(e, buf, 3), 4);
    EXPECT_EQ(std::string(buf, 4), std::string("ab\0#", 4));

    // A piece that does not fit leaves the cursor where it was, and the
    // next, shorter piece overwrites it; getText fills the room instead.
    VQHANDLE f = el("f");
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
    VQHANDLE root = add(doc, el("r"));
    VQHANDLE childList = VQDOM_getChildNodes(root);
    VQHANDLE name = ds(doc, "a");
    VQHANDLE first = VQDOM_getElementsByTagName(root, name);
    VQHANDLE second = VQDOM_getElementsByTagNameStr(root, "a");
    VQHANDLE all = VQDOM_getElementsByTagNameStr(doc, "*");
    EXPECT_EQ(VQDOM_getChildNodes(root), childList);
    EXPECT_EQ(toPNodeList(childList)->nextList, second);
    EXPECT_EQ(toPNodeList(second)->nextList, first);

    VQDOM_deleteDS(name);  // the list holds its own copy
    VQHANDLE a1 = add(root, el("a"));
    add(root, el("b"));
    VQHANDLE a2 = add(a1, el("a"));
    add(add(root, ref("r")), el("a"));  // lists look into elements only, not into entity references
    EXPECT_EQ(VQDOM_getLengthList(first), 2u);
    EXPECT_EQ(VQDOM_itemList(second, 1), a2);
    EXPECT_EQ(VQDOM_getLengthList(all), 4u);
    EXPECT_EQ(VQDOM_getElementsByTagNameStr(text("t"), "a"), 0u);
}

TEST_F(NavigationTest, RenameOfADocumentAndTheOneFeature) {
    EXPECT_EQ(VQDOM_rename(doc, "x"), 0);  // no document element yet
    VQHANDLE root = add(doc, el("old"));
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
