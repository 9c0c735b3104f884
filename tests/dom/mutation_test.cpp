// mutation_test.cpp - linking, unlinking, deleting and normalising trees.
// Every test checks the whole tree's links afterwards: a broken sibling or
// map link shows up long after the call that broke it.
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"

namespace {

using robust::consistent;
using vqtest::Err;
using vqtest::str;
using vqxml::liveHandle;

constexpr int64_t kHierarchy = 1001703, kNotFound = 1001708;

bool unlinked(VQHANDLE h) {
    const Node *n = vqxml::node(h);
    return n->parentNode == 0 && n->previousSibling == 0 && n->nextSibling == 0 && n->containingMap == 0;
}

class MutationTest : public vqtest::DocumentTest {
protected:
    VQHANDLE comment() const { return VQDOM_createComment(doc, s("c")); }
    VQHANDLE fragment() const { return VQDOM_createDocumentFragment(doc); }
    // The children of a node: element names, 'text values', other node names.
    static std::string kids(VQHANDLE parent) {
        std::string out;
        for (VQHANDLE c = VQDOM_getFirstChild(parent); c != 0; c = VQDOM_getNextSibling(c)) {
            if (!out.empty()) out += ' ';
            out += VQDOM_getNodeType(c) == VQXML_TEXT_NODE ? "'" + str(VQDOM_getNodeValue(c)) + "'"
                                                           : str(VQDOM_getNodeName(c));
        }
        return out;
    }
};

TEST_F(MutationTest, RefusedInsertionsDeleteTheNode) {
    const VQHANDLE root = add(doc, el("root")), a = add(root, el("a")), b = add(a, el("b"));
    add(doc, comment());

    // A second document element is refused; the document element itself may
    // be appended again, which moves it to the end.
    const VQHANDLE second = el("second");
    EXPECT_EQ(VQDOM_appendChild(doc, second), 0u);
    EXPECT_FALSE(liveHandle(second));
    EXPECT_EQ(VQDOM_appendChild(doc, root), root);
    EXPECT_EQ(kids(doc), "#comment root");

    // A node cannot go below itself: `a` is deleted with its subtree and
    // leaves its old parent consistent.
    EXPECT_EQ(VQDOM_appendChild(b, a), 0u);
    EXPECT_FALSE(liveHandle(a) || liveHandle(b));
    EXPECT_EQ(kids(root), "");

    // Removing a node that is no child is refused; the node stays.
    const VQHANDLE stray = el("x");
    EXPECT_EQ(VQDOM_removeChild(root, stray), 0u);
    EXPECT_TRUE(liveHandle(stray));
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kHierarchy, ""}, {kHierarchy, ""}, {kNotFound, ""}}));
    EXPECT_TRUE(consistent(doc));
}

TEST_F(MutationTest, FragmentsMoveChildByChild) {
    const VQHANDLE e = el("e"), ref = add(e, el("ref"));
    VQHANDLE frag = fragment();
    const VQHANDLE t = add(frag, text("t"));
    add(frag, el("x"));
    add(frag, comment());
    EXPECT_EQ(VQDOM_insertBefore(e, frag, ref), t);
    EXPECT_FALSE(liveHandle(frag));
    EXPECT_EQ(kids(e), "'t' x #comment ref");
    EXPECT_TRUE(consistent(e));

    // Into an attribute only the text is allowed: the comment goes.
    const VQHANDLE attr = VQDOM_createAttribute(doc, s("a"));
    frag = fragment();
    const VQHANDLE v = add(frag, text("v")), c = add(frag, comment());
    EXPECT_EQ(VQDOM_appendChild(attr, frag), v);
    EXPECT_FALSE(liveHandle(frag) || liveHandle(c));
    EXPECT_EQ(kids(attr), "'v'");

    // A refused first child is still what the call returns, now dead.
    frag = fragment();
    const VQHANDLE first = add(frag, comment());
    add(frag, text("w"));
    EXPECT_EQ(VQDOM_appendChild(attr, frag), first);
    EXPECT_FALSE(liveHandle(first));
    EXPECT_EQ(kids(attr), "'v' 'w'");

    // A fragment into itself would never empty; it is refused.
    frag = fragment();
    add(frag, text("z"));
    EXPECT_EQ(VQDOM_appendChild(frag, frag), 0u);
    EXPECT_FALSE(liveHandle(frag));
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>(3, Err{kHierarchy, ""})));
    EXPECT_TRUE(consistent(attr));
}

TEST_F(MutationTest, InsertReplaceAndRemove) {
    const VQHANDLE p = el("p"), a = add(p, el("a")), c = el("c");
    add(p, el("b"));
    EXPECT_EQ(VQDOM_insertBefore(p, c, 0), c);
    EXPECT_EQ(VQDOM_insertBefore(p, c, a), c);  // moves within the parent
    EXPECT_EQ(kids(p), "c a b");

    const VQHANDLE x = el("x");
    EXPECT_EQ(VQDOM_replaceChild(p, x, a), a);
    EXPECT_TRUE(unlinked(a));
    EXPECT_EQ(kids(p), "c x b");
    EXPECT_EQ(VQDOM_removeChild(p, c), c);
    EXPECT_TRUE(unlinked(c));
    EXPECT_EQ(kids(p), "x b");
    EXPECT_TRUE(consistent(p));

    // The document element is swapped in place, between its neighbours.
    const VQHANDLE oldRoot = el("old"), newRoot = el("new");
    add(doc, comment());
    add(doc, oldRoot);
    add(doc, VQDOM_createProcessingInstruction(doc, s("pi"), s("")));
    EXPECT_EQ(VQDOM_replaceChild(doc, newRoot, oldRoot), oldRoot);
    EXPECT_TRUE(unlinked(oldRoot));
    EXPECT_EQ(kids(doc), "#comment new pi");
    EXPECT_EQ(VQDOM_getDocumentElement(doc), newRoot);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_TRUE(consistent(doc));
}

TEST_F(MutationTest, NormalizeMergesTextRunsAndKeepsTheFirstValue) {
    const VQHANDLE e = el("e"), t1 = text("a");
    const VQHANDLE held = VQDOM_getNodeValue(t1);
    for (VQHANDLE n : {t1, text("b"), text(""), text("c")}) add(e, n);
    for (VQHANDLE n : {VQDOM_createCDATASection(doc, s("cd")), text("d"), text("e")}) add(e, n);
    const VQHANDLE inner = add(e, el("inner"));
    for (int i = 0; i < 1000; ++i) add(inner, text(i % 2 ? "y" : "x"));
    add(e, text(""));  // a lone empty text stays

    EXPECT_EQ(VQDOM_normalize(e), 0);
    EXPECT_EQ(kids(e), "'abc' #cdata-section 'de' inner ''");
    EXPECT_EQ(str(held), "abc");  // the first node keeps its value handle
    VQDOM_setNodeValue(t1, held);  // and keeps it when given it again
    EXPECT_EQ(str(VQDOM_getNodeValue(t1)), "abc");
    ASSERT_EQ(VQDOM_getLengthList(VQDOM_getChildNodes(inner)), 1u);
    std::string xy;
    for (int i = 0; i < 500; ++i) xy += "xy";
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_getFirstChild(inner))), xy);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_TRUE(consistent(e));
}

TEST_F(MutationTest, DeletingADocumentFreesItsArea) {
    // An entity linked below the document type joins its entity map.
    const VQHANDLE dt = add(doc, createDocumentType(doc, s("r")));
    const VQHANDLE entity = allocNode(doc, VQXML_ENTITY_NODE, s("ent"));
    add(entity, text("replacement"));
    add(dt, entity);
    EXPECT_EQ(VQDOM_getNamedItemStr(VQDOM_getEntities(dt), "ent"), entity);
    const VQHANDLE root = add(doc, el("r"));
    for (int i = 0; i < 50; ++i) {
        const VQHANDLE e = add(root, el("e"));
        VQDOM_setAttribute(e, s("n"), s("v"));
        add(e, ref("ent"));
    }
    VQDOM_getElementsByTagNameStr(root, "e");
    ASSERT_TRUE(consistent(doc));

    // Deleting a subtree leaves the rest consistent.
    const VQHANDLE last = VQDOM_getLastChild(root);
    VQDOM_deleteNode(last);
    EXPECT_FALSE(liveHandle(last));
    EXPECT_TRUE(consistent(doc));

    VQDOM_deleteNode(doc);
    EXPECT_EQ(docHead[doc & 255], nullptr);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

}  // namespace
