// lookup_test.cpp - element lookup: occurrence counting past other node
// types, leaf texts, deep counts, moving children, the document-name helpers,
// and walks that must end on a child chain linked into a loop.
#include <cstring>
#include <string>

#include "support/test_util.h"
#include "vqxml/model/model.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::drainErrors;

class LookupTest : public vqtest::DocumentTest {
protected:
    VQHANDLE comment() const { return VQDOM_createComment(doc, s("c")); }
    // An element with the given text as its only child.
    VQHANDLE leaf(const char *name, const char *t) const { return with(el(name), {text(t)}); }
    std::string elementText(VQHANDLE e, int32_t size = 64) const {
        char buffer[64];
        std::memset(buffer, 'x', sizeof buffer);
        VQXML_getElementText(e, buffer, size);
        return buffer;
    }
};

TEST_F(LookupTest, OccurrencesCountOnlyMatchingElements) {
    VQHANDLE p = add(doc, el("root"));
    VQHANDLE p0 = add(p, el("P"));
    add(p, text("\r\n  "));
    add(p, comment());
    VQHANDLE q = add(p, el("Q"));
    VQHANDLE p1 = add(p, el("P"));

    EXPECT_EQ(VQXML_findChildElementStr(p, "P", 0), p0);
    EXPECT_EQ(VQXML_findChildElementStr(p, "P", 1), p1);
    EXPECT_EQ(VQXML_findChildElementStr(p, "P", 2), 0u);
    EXPECT_EQ(VQXML_findChildElementStr(p, "P", -1), 0u);
    EXPECT_EQ(VQXML_findChildElementStr(p, "p", 0), 0u);  // case counts
    const VQHANDLE name = s("P");
    EXPECT_EQ(VQXML_findChildElement(p, name, 1), p1);
    EXPECT_EQ(VQXML_countNamedChildren(p, name), 2u);
    EXPECT_EQ(VQXML_findChildElement(p, 0, 0), 0u);  // no name matches nothing

    EXPECT_EQ(VQXML_findIndexedChildElem(p, 1), q);
    EXPECT_EQ(VQXML_findIndexedChildElem(p, 3), 0u);
    EXPECT_EQ(VQXML_countChildElements(p), 3u);
    EXPECT_EQ(VQXML_countChildElements(doc), 1u);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(LookupTest, FindAttributeComparesWholeValuesUpTo255Bytes) {
    VQHANDLE p = el("root");
    VQHANDLE a = add(p, el("a"));
    VQHANDLE b = add(p, el("b"));
    VQHANDLE c = add(p, el("c"));
    const std::string longValue(300, 'v');
    VQDOM_setAttribute(a, s("DESC"), s("Sizes"));
    VQDOM_setAttribute(b, s("DESC"), s("Size"));
    VQDOM_setAttribute(c, s("DESC"), s(longValue.c_str()));

    EXPECT_EQ(VQXML_findAttribute(p, "DESC", "Size"), b);  // not the prefix match a
    EXPECT_EQ(VQXML_findAttribute(p, "DESC", "size"), 0u);
    EXPECT_EQ(VQXML_findAttribute(p, "DESC", longValue.c_str()), 0u);
    EXPECT_EQ(VQXML_findAttribute(p, "DESC", longValue.substr(0, 255).c_str()), c);
}

TEST_F(LookupTest, ElementTextOnlyOfExactlyOneTextChild) {
    EXPECT_EQ(VQXML_getElementText(leaf("e", "number"), nullptr, 0), 6);
    EXPECT_EQ(elementText(leaf("e", "number")), "number");
    EXPECT_EQ(elementText(leaf("e", "number"), 4), "num");  // cut, same result
    EXPECT_EQ(VQXML_getElementText(leaf("e", "number"), nullptr, 4), 6);

    const VQHANDLE notLeaves[] = {
        el("empty"),
        with(el("e"), {text("t"), comment()}),
        with(el("e"), {comment(), text("t")}),
        with(el("e"), {leaf("inner", "t")}),
        with(el("e"), {VQDOM_createCDATASection(doc, s("t"))}),
        with(el("e"), {text("t"), text("u")}),
    };
    for (VQHANDLE e : notLeaves) {
        char buffer[8] = "xxxxxxx";
        EXPECT_EQ(VQXML_getElementText(e, buffer, sizeof buffer), 0) << kids(e);
        EXPECT_STREQ(buffer, "");
    }
    char untouched[2] = "x";
    EXPECT_EQ(VQXML_getElementText(el("empty"), untouched, 0), 0);
    EXPECT_STREQ(untouched, "x");
}

TEST_F(LookupTest, SubElementsCountAtAllDepths) {
    VQHANDLE r = el("r");
    add(r, with(el("a"), {el("x"), text("t"), el("y"), with(el("z"), {text("t")})}));
    add(r, el("b"));
    EXPECT_EQ(VQXML_countSubElements(r), 5u);

    // Deep trees cost no stack.
    VQHANDLE deep = el("d");
    VQHANDLE at = deep;
    for (int i = 0; i < 50000; ++i) at = add(at, el("d"));
    EXPECT_EQ(VQXML_countSubElements(deep), 50000u);
    EXPECT_EQ(VQXML_countSubElements(at), 0u);
}

TEST_F(LookupTest, MovingKeepsOrderAndLeavesOtherNodesBehind) {
    VQHANDLE from = with(el("from"), {text("\r\n  "), el("a"), text("\r\n  "), comment(), el("b"),
                                      text("\r\n")});
    VQHANDLE to = with(el("to"), {el("first")});
    VQXML_moveChildElems(to, from);
    EXPECT_EQ(kids(to), "first a b");
    EXPECT_EQ(kids(from), "'\r\n  ' '\r\n  ' #comment '\r\n'");

    VQXML_moveChildren(to, from);
    EXPECT_EQ(kids(to), "first a b '\r\n  ' '\r\n  ' #comment '\r\n'");
    EXPECT_EQ(VQDOM_getFirstChild(from), 0u);

    VQXML_moveChildren(to, to);  // onto itself: nothing happens
    EXPECT_EQ(VQXML_countChildElements(to), 3u);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(LookupTest, DocumentNameAndCountedCompare) {
    VQHANDLE root = add(doc, el("MODEL"));
    VQHANDLE item = add(add(root, el("PAR")), el("P1"));
    EXPECT_EQ(getRootDocument(item), doc);
    EXPECT_EQ(getRootDocument(doc), doc);
    char name[4];
    getDocName(item, name, sizeof name);
    EXPECT_STREQ(name, "MOD");
    getDocName(VQDOM_createDocument(), name, sizeof name);  // no document element
    EXPECT_STREQ(name, "");

    EXPECT_EQ(mycmp("time", "TIME.", 4), 0);
    EXPECT_NE(mycmp("time", "timex", 5), 0);
    EXPECT_NE(mycmp("time", "tim", 3), 0);
    EXPECT_NE(mycmp("time", "tame", 4), 0);
}

// A chain linked into a loop (a damaged image or a caller fault) must not
// hang any walk; the invalid handles of a broken chain end it.
TEST_F(LookupTest, WalksEndOnLoopedOrBrokenChains) {
    VQHANDLE p = el("p");
    VQHANDLE a = add(p, with(el("a"), {el("x")}));
    VQHANDLE b = add(p, el("b"));
    Node *last = static_cast<Node *>(toPNode(b));
    last->nextSibling = a;
    EXPECT_EQ(VQXML_findChildElementStr(p, "none", 0), 0u);
    EXPECT_GE(VQXML_countChildElements(p), 2u);
    EXPECT_GE(VQXML_countSubElements(p), 3u);
    last->nextSibling = 0;

    VQHANDLE q = with(el("q"), {el("a"), el("b")});
    static_cast<Node *>(toPNode(VQDOM_getLastChild(q)))->nextSibling = 0x7fff00 | (doc & 255);
    EXPECT_EQ(VQXML_countChildElements(q), 2u);
    EXPECT_EQ(drainErrors().size(), 1u);  // the invalid handle that ended the walk
    static_cast<Node *>(toPNode(VQDOM_getLastChild(q)))->nextSibling = 0;
}

}  // namespace
