// lookup_test.cpp - element lookup: occurrences past other node types, leaf
// texts, deep counts, moving children, and walks over looped chains.
#include <cstring>
#include <string>

#include "support/test_util.h"
#include "vqxml/model/model.h"
#include "vqxml/store/node.h"

namespace {

class LookupTest : public vqtest::DocumentTest {
protected:
    VQHANDLE leaf(const char *t) const { return with(el("e"), {text(t)}); }
};

TEST_F(LookupTest, OccurrencesCountOnlyMatchingElements) {
    VQHANDLE p = add(doc, el("root"));
    VQHANDLE p0 = add(p, el("P"));
    with(p, {text("\r\n  "), comment()});
    VQHANDLE q = add(p, el("Q"));
    VQHANDLE p1 = add(p, el("P"));
    VQDOM_setAttribute(p0, s("DESC"), s(std::string(300, 'v').c_str()));
    VQDOM_setAttribute(p1, s("DESC"), s("Size"));

    EXPECT_EQ(VQXML_findChildElementStr(p, "P", 1), p1);
    EXPECT_EQ(VQXML_findChildElementStr(p, "P", 2) | VQXML_findChildElementStr(p, "P", -1), 0u);
    EXPECT_EQ(VQXML_findChildElement(p, s("P"), 0), p0);
    EXPECT_EQ(VQXML_findChildElement(p, 0, 0), 0u);
    EXPECT_EQ(VQXML_countNamedChildren(p, s("P")), 2u);
    EXPECT_EQ(VQXML_findIndexedChildElem(p, 1), q);
    EXPECT_EQ(VQXML_countChildElements(p), 3u);
    // Attribute values are read into 256 bytes and compared whole.
    EXPECT_EQ(VQXML_findAttribute(p, "DESC", "Siz"), 0u);
    EXPECT_EQ(VQXML_findAttribute(p, "DESC", "Size"), p1);
    EXPECT_EQ(VQXML_findAttribute(p, "DESC", std::string(255, 'v').c_str()), p0);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(LookupTest, ElementTextOnlyOfExactlyOneTextChild) {
    char buffer[8] = "xxxxxxx";
    EXPECT_EQ(VQXML_getElementText(leaf("number"), buffer, 4), 6);  // cut, full length
    EXPECT_STREQ(buffer, "num");
    const VQHANDLE notLeaves[] = {
        el("empty"),
        with(el("e"), {text("t"), comment()}),
        with(el("e"), {leaf("t")}),
        with(el("e"), {VQDOM_createCDATASection(doc, s("t"))}),
        with(el("e"), {text("t"), text("u")}),
    };
    for (VQHANDLE e : notLeaves) {
        std::strcpy(buffer, "xxxxxxx");
        EXPECT_EQ(VQXML_getElementText(e, buffer, sizeof buffer), 0) << kids(e);
        EXPECT_STREQ(buffer, "");
    }
}

TEST_F(LookupTest, SubElementsCountAtAllDepthsWithoutRecursion) {
    VQHANDLE r = with(el("r"), {with(el("a"), {el("x"), text("t"), el("y"), leaf("z")}), el("b")});
    EXPECT_EQ(VQXML_countSubElements(r), 5u);
    VQHANDLE at = r;
    for (int i = 0; i < 50000; ++i) at = add(at, el("d"));
    EXPECT_EQ(VQXML_countSubElements(r), 50005u);
}

TEST_F(LookupTest, MovingKeepsOrderAndLeavesOtherNodesBehind) {
    VQHANDLE from = with(el("from"), {text("\r\n  "), el("a"), comment(), el("b"), text("\r\n")});
    VQHANDLE to = with(el("to"), {el("first")});
    VQXML_moveChildElems(to, from);
    EXPECT_EQ(kids(to), "first a b");
    EXPECT_EQ(kids(from), "'\r\n  ' #comment '\r\n'");
    VQXML_moveChildren(to, from);
    EXPECT_EQ(kids(to), "first a b '\r\n  ' #comment '\r\n'");
    EXPECT_EQ(VQDOM_getFirstChild(from), 0u);
}

// A chain linked into a loop (a damaged image or a caller fault) must not
// hang a walk; a dangling link ends it and is reported.
TEST_F(LookupTest, WalksEndOnLoopedOrBrokenChains) {
    VQHANDLE p = with(el("p"), {with(el("a"), {el("x")}), el("b")});
    Node *last = static_cast<Node *>(toPNode(VQDOM_getLastChild(p)));
    last->nextSibling = VQDOM_getFirstChild(p);
    EXPECT_EQ(VQXML_findChildElementStr(p, "none", 0), 0u);
    EXPECT_GE(VQXML_countSubElements(p), 3u);
    last->nextSibling = 0x7fff00 | (doc & 255);
    EXPECT_EQ(VQXML_countChildElements(p), 2u);
    EXPECT_EQ(vqtest::drainErrors().size(), 1u);
    last->nextSibling = 0;
}

TEST_F(LookupTest, DocumentNameAndCountedCompare) {
    VQHANDLE item = add(add(add(doc, el("MODEL")), el("PAR")), el("P1"));
    char name[4];
    getDocName(item, name, sizeof name);
    EXPECT_STREQ(name, "MOD");
    EXPECT_EQ(getRootDocument(item), doc);
    EXPECT_EQ(mycmp("time", "TIME.", 4), 0);
    EXPECT_NE(mycmp("time", "timex", 5), 0);
}

}  // namespace
