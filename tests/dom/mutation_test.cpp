// mutation_test.cpp - linking, unlinking, deleting, cloning and normalising
// trees. Every test checks the whole tree's links afterwards: a broken
// sibling or map link shows up long after the call that broke it.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::ds;
using vqtest::Err;
using vqtest::str;
using vqxml::liveHandle;
using vqxml::node;

constexpr int64_t kHierarchy = 1001703, kWrongDoc = 1001704, kNotFound = 1001708;

// Checks every link below `root`: each child points back at its parent, the
// sibling chain runs both ways from the first to the last child, and every
// member of a map points at that map and is named by exactly one item.
// Attribute subtrees are checked too. Iterative: trees here go very deep.
::testing::AssertionResult consistent(VQHANDLE root) {
    std::vector<VQHANDLE> todo{root};
    while (!todo.empty()) {
        const VQHANDLE h = todo.back();
        todo.pop_back();
        if (!liveHandle(h)) return ::testing::AssertionFailure() << "dead node " << h;
        const Node *n = node(h);
        VQHANDLE prev = 0;
        for (VQHANDLE c = n->firstChild; c != 0; prev = c, c = node(c)->nextSibling) {
            if (!liveHandle(c)) return ::testing::AssertionFailure() << "dead child of " << h;
            if (node(c)->parentNode != h || node(c)->previousSibling != prev)
                return ::testing::AssertionFailure() << "bad links at child " << c;
            todo.push_back(c);
        }
        if (n->lastChild != prev) return ::testing::AssertionFailure() << "bad last child of " << h;
        std::vector<VQHANDLE> maps{n->attributes};
        if (n->nodeType == VQXML_DOCUMENT_TYPE_NODE) {
            maps.push_back(vqxml::rec<DocumentType>(h)->entities);
            maps.push_back(vqxml::rec<DocumentType>(h)->notations);
        }
        for (VQHANDLE map : maps) {
            if (map == 0) continue;
            VQHANDLE prevItem = 0, it = vqxml::rec<NamedNodeMap>(map)->firstItem;
            for (; it != 0; prevItem = it, it = vqxml::rec<ListItem>(it)->nextItem) {
                const ListItem *item = vqxml::rec<ListItem>(it);
                if (item->previousItem != prevItem || node(item->node)->containingMap != map)
                    return ::testing::AssertionFailure() << "bad map item " << it;
                if (node(item->node)->nodeType == VQXML_ATTRIBUTE_NODE) todo.push_back(item->node);
            }
            if (vqxml::rec<NamedNodeMap>(map)->lastItem != prevItem)
                return ::testing::AssertionFailure() << "bad last item of map " << map;
        }
    }
    return ::testing::AssertionSuccess();
}

bool unlinked(VQHANDLE h) {
    const Node *n = node(h);
    return n->parentNode == 0 && n->previousSibling == 0 && n->nextSibling == 0 &&
           n->containingMap == 0;
}

class MutationTest : public vqtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = VQDOM_createDocument();
        ASSERT_NE(doc, 0u);
    }
    VQHANDLE elem(const char *name, VQHANDLE d = 0) {
        return VQDOM_createElement(d ? d : doc, ds(d ? d : doc, name));
    }
    VQHANDLE text(const char *t) { return VQDOM_createTextNode(doc, ds(doc, t)); }
    VQHANDLE comment() { return VQDOM_createComment(doc, ds(doc, "c")); }
    // The children of a node: element names, 'text values', other node names.
    static std::string kids(VQHANDLE parent) {
        std::string out;
        for (VQHANDLE c = VQDOM_getFirstChild(parent); c != 0; c = VQDOM_getNextSibling(c)) {
            if (!out.empty()) out += ' ';
            const int type = VQDOM_getNodeType(c);
            out += type == VQXML_TEXT_NODE ? "'" + str(VQDOM_getNodeValue(c)) + "'"
                                           : str(VQDOM_getNodeName(c));
        }
        return out;
    }
    VQHANDLE doc = 0;
};

TEST_F(MutationTest, RefusedInsertionsDeleteTheNode) {
    const VQHANDLE root = elem("root"), a = elem("a"), b = elem("b");
    ASSERT_EQ(VQDOM_appendChild(doc, root), root);
    VQDOM_appendChild(root, a);
    VQDOM_appendChild(a, b);
    VQDOM_appendChild(doc, comment());

    // A second document element is refused; the document element itself may
    // be appended again, which moves it to the end.
    const VQHANDLE second = elem("second");
    EXPECT_EQ(VQDOM_appendChild(doc, second), 0u);
    EXPECT_FALSE(liveHandle(second));
    EXPECT_EQ(VQDOM_appendChild(doc, root), root);
    EXPECT_EQ(kids(doc), "#comment root");

    // A node cannot go below itself: `a` is deleted with its subtree and
    // leaves its old parent consistent.
    EXPECT_EQ(VQDOM_appendChild(b, a), 0u);
    EXPECT_FALSE(liveHandle(a) || liveHandle(b));
    EXPECT_EQ(kids(root), "");

    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE foreign = elem("f", other);
    EXPECT_EQ(VQDOM_appendChild(root, foreign), 0u);
    EXPECT_FALSE(liveHandle(foreign));

    const VQHANDLE stray = elem("x"), loose = elem("y");
    EXPECT_EQ(VQDOM_insertBefore(root, loose, stray), 0u);
    EXPECT_FALSE(liveHandle(loose));
    EXPECT_EQ(VQDOM_removeChild(root, stray), 0u);
    EXPECT_TRUE(liveHandle(stray));

    // An invalid parent deletes the child and reports nothing else.
    const VQHANDLE orphan = text("t");
    EXPECT_EQ(VQDOM_appendChild(0, orphan), 0u);
    EXPECT_FALSE(liveHandle(orphan));

    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kHierarchy, ""},
                                                        {kHierarchy, ""},
                                                        {kWrongDoc, ""},
                                                        {kNotFound, ""},
                                                        {kNotFound, ""}}));
    EXPECT_TRUE(consistent(doc));
}

TEST_F(MutationTest, FragmentsMoveChildByChild) {
    const VQHANDLE e = elem("e"), ref = elem("ref");
    VQDOM_appendChild(e, ref);
    VQHANDLE frag = VQDOM_createDocumentFragment(doc);
    const VQHANDLE t = text("t");
    VQDOM_appendChild(frag, t);
    VQDOM_appendChild(frag, elem("x"));
    VQDOM_appendChild(frag, comment());
    EXPECT_EQ(VQDOM_insertBefore(e, frag, ref), t);
    EXPECT_FALSE(liveHandle(frag));
    EXPECT_EQ(kids(e), "'t' x #comment ref");
    EXPECT_TRUE(consistent(e));

    // Into an attribute only the text is allowed: the comment goes.
    const VQHANDLE attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    frag = VQDOM_createDocumentFragment(doc);
    const VQHANDLE t2 = text("v"), c = comment();
    VQDOM_appendChild(frag, t2);
    VQDOM_appendChild(frag, c);
    EXPECT_EQ(VQDOM_appendChild(attr, frag), t2);
    EXPECT_FALSE(liveHandle(frag) || liveHandle(c));
    EXPECT_EQ(kids(attr), "'v'");

    // A refused first child is still what the call returns, now dead.
    frag = VQDOM_createDocumentFragment(doc);
    const VQHANDLE first = comment();
    VQDOM_appendChild(frag, first);
    VQDOM_appendChild(frag, text("w"));
    EXPECT_EQ(VQDOM_appendChild(attr, frag), first);
    EXPECT_FALSE(liveHandle(first));
    EXPECT_EQ(kids(attr), "'v' 'w'");

    // A fragment into itself would never empty; it is refused.
    frag = VQDOM_createDocumentFragment(doc);
    VQDOM_appendChild(frag, text("z"));
    EXPECT_EQ(VQDOM_appendChild(frag, frag), 0u);
    EXPECT_FALSE(liveHandle(frag));
    EXPECT_EQ(vqtest::drainErrors(),
              (std::vector<Err>{{kHierarchy, ""}, {kHierarchy, ""}, {kHierarchy, ""}}));
    EXPECT_TRUE(consistent(attr));
}

TEST_F(MutationTest, InsertReplaceAndRemove) {
    const VQHANDLE p = elem("p"), a = elem("a"), b = elem("b"), c = elem("c");
    VQDOM_appendChild(p, a);
    VQDOM_appendChild(p, b);
    EXPECT_EQ(VQDOM_insertBefore(p, b, b), b);
    EXPECT_EQ(VQDOM_insertBefore(p, c, 0), c);
    EXPECT_EQ(VQDOM_insertBefore(p, c, a), c);  // moves within the parent
    EXPECT_EQ(kids(p), "c a b");

    const VQHANDLE x = elem("x");
    EXPECT_EQ(VQDOM_replaceChild(p, x, a), a);
    EXPECT_TRUE(unlinked(a));
    EXPECT_EQ(kids(p), "c x b");
    EXPECT_EQ(VQDOM_replaceChild(p, x, x), 0u);
    EXPECT_EQ(VQDOM_removeChild(p, c), c);
    EXPECT_TRUE(unlinked(c));
    EXPECT_EQ(kids(p), "x b");
    EXPECT_TRUE(consistent(p));

    // The document element is swapped in place, between its neighbours.
    const VQHANDLE oldRoot = elem("old"), newRoot = elem("new");
    VQDOM_appendChild(doc, comment());
    VQDOM_appendChild(doc, oldRoot);
    VQDOM_appendChild(doc, VQDOM_createProcessingInstruction(doc, ds(doc, "pi"), ds(doc, "")));
    EXPECT_EQ(VQDOM_replaceChild(doc, newRoot, oldRoot), oldRoot);
    EXPECT_TRUE(unlinked(oldRoot));
    EXPECT_EQ(kids(doc), "#comment new pi");
    EXPECT_EQ(VQDOM_getDocumentElement(doc), newRoot);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_TRUE(consistent(doc));
}

TEST_F(MutationTest, NormalizeMergesTextRuns) {
    const VQHANDLE e = elem("e"), inner = elem("inner");
    const VQHANDLE t1 = text("a");
    const VQHANDLE held = VQDOM_getNodeValue(t1);
    for (VQHANDLE n : {t1, text("b"), text(""), text("c")}) VQDOM_appendChild(e, n);
    VQDOM_appendChild(e, VQDOM_createCDATASection(doc, ds(doc, "cd")));
    VQDOM_appendChild(e, text("d"));
    VQDOM_appendChild(e, text("e"));
    VQDOM_appendChild(e, inner);
    for (int i = 0; i < 1000; ++i) VQDOM_appendChild(inner, text(i % 2 ? "y" : "x"));
    VQDOM_appendChild(e, text(""));  // a lone empty text stays

    EXPECT_EQ(VQDOM_normalize(e), 0);
    EXPECT_EQ(kids(e), "'abc' #cdata-section 'de' inner ''");
    EXPECT_EQ(str(held), "abc");  // the first node keeps its value handle
    ASSERT_EQ(VQDOM_getLengthList(VQDOM_getChildNodes(inner)), 1u);
    std::string xy;
    for (int i = 0; i < 500; ++i) xy += "xy";
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_getFirstChild(inner))), xy);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_TRUE(consistent(e));
}

TEST_F(MutationTest, CloneCopiesStructureNotLinks) {
    const VQHANDLE e = elem("e"), child = elem("child");
    VQDOM_setAttribute(e, ds(doc, "id"), ds(doc, "7"));
    VQDOM_appendChild(e, child);
    VQDOM_appendChild(child, text("t"));
    VQDOM_appendChild(doc, e);

    const VQHANDLE shallow = VQDOM_cloneNode(e, 0);
    EXPECT_TRUE(unlinked(shallow));
    EXPECT_EQ(VQDOM_getFirstChild(shallow), 0u);
    EXPECT_EQ(VQDOM_getAttributeStr(shallow, "id", nullptr, 0), 1);

    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE deep = VQDOM_cloneNodeDoc(e, 1, other);
    EXPECT_EQ(VQDOM_getOwnerDocument(deep), other);
    EXPECT_EQ(kids(deep), "child");
    EXPECT_EQ(kids(VQDOM_getFirstChild(deep)), "'t'");
    EXPECT_TRUE(consistent(deep));

    // A whole document is copied into a new one.
    const VQHANDLE copy = VQDOM_cloneNode(doc, 1);
    EXPECT_NE(copy & 255, doc & 255);
    EXPECT_EQ(kids(VQDOM_getDocumentElement(copy)), "child");

    // A document type brings its declarations even when shallow.
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "e"));
    VQDOM_appendChild(doc, dt);
    VQDOM_appendChild(dt, createElementDecl(doc, ds(doc, "e")));
    const VQHANDLE dtCopy = VQDOM_cloneNode(dt, 0);
    EXPECT_NE(getFirstMarkupDecl(dtCopy, VQXML_ELEMENT_DECL_NODE), 0u);
    EXPECT_NE(VQDOM_getEntities(dtCopy), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(MutationTest, SetNodeValue) {
    const VQHANDLE attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    VQDOM_appendChild(attr, text("old"));
    vqxml::rec<Attr>(attr)->specified = 0;
    VQDOM_setNodeValue(attr, ds(doc, "new"));
    EXPECT_EQ(kids(attr), "'new'");
    EXPECT_EQ(str(VQDOM_getNodeValue(attr)), "new");
    EXPECT_EQ(VQDOM_getSpecified(attr), 1);

    // A node given its own value keeps it.
    const VQHANDLE c = comment();
    VQDOM_setNodeValue(c, VQDOM_getNodeValue(c));
    EXPECT_EQ(str(VQDOM_getNodeValue(c)), "c");

    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE foreign = ds(other, "x");
    VQDOM_setNodeValue(c, foreign);
    EXPECT_FALSE(liveHandle(foreign));
    EXPECT_EQ(str(VQDOM_getNodeValue(c)), "c");
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kWrongDoc, "setNodeValue|"}}));
}

TEST_F(MutationTest, DeletingADocumentFreesItsArea) {
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "r"));
    VQDOM_appendChild(doc, dt);
    const VQHANDLE entity = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "ent"));
    VQDOM_appendChild(entity, text("replacement"));
    VQDOM_appendChild(dt, entity);
    EXPECT_EQ(VQDOM_getNamedItemStr(VQDOM_getEntities(dt), "ent"), entity);
    const VQHANDLE root = elem("r");
    VQDOM_appendChild(doc, root);
    for (int i = 0; i < 50; ++i) {
        const VQHANDLE e = elem("e");
        VQDOM_setAttribute(e, ds(doc, "n"), ds(doc, "v"));
        VQDOM_appendChild(e, VQDOM_createEntityReference(doc, ds(doc, "ent")));
        VQDOM_appendChild(root, e);
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

// A million nested elements: deletion, cloning and normalisation must not
// use the call stack per level.
TEST_F(MutationTest, MillionDeepChain) {
    constexpr int kDepth = 1000000;
    const VQHANDLE top = elem("n");
    VQHANDLE cur = top;
    for (int i = 1; i < kDepth; ++i) {
        const VQHANDLE next = elem("n");
        ASSERT_EQ(VQDOM_appendChild(cur, next), next);
        cur = next;
    }
    VQDOM_appendChild(cur, text("a"));
    VQDOM_appendChild(cur, text("b"));
    VQDOM_normalize(top);
    EXPECT_EQ(kids(cur), "'ab'");

    const VQHANDLE target = VQDOM_createDocument();
    const VQHANDLE copy = VQDOM_cloneNodeDoc(top, 1, target);
    int depth = 0;
    VQHANDLE bottom = copy;
    for (VQHANDLE c = copy; c != 0; c = VQDOM_getFirstChild(c)) {
        bottom = c;
        depth += VQDOM_getNodeType(c) == VQXML_ELEMENT_NODE;
    }
    EXPECT_EQ(depth, kDepth);
    EXPECT_EQ(str(VQDOM_getNodeValue(bottom)), "ab");
    EXPECT_TRUE(consistent(copy));

    VQDOM_deleteNode(copy);
    VQDOM_deleteNode(top);
    EXPECT_FALSE(liveHandle(cur));
    EXPECT_TRUE(vqtest::drainErrors().empty());
    // Only the two document nodes, their names and child lists are left.
    EXPECT_EQ(docHead[doc & 255]->dbgHandles, 3);
    EXPECT_EQ(docHead[target & 255]->dbgHandles, 3);
}

}  // namespace
