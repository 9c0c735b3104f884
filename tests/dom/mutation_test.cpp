// mutation_test.cpp - linking, unlinking, deleting and normalising trees:
// the parent/child rules beside the type table, the order of the checks,
// which handles a refused call deletes (its whole subtree) and which it
// leaves to the caller. The tree's links are checked afterwards: a broken
// sibling or map link shows up long after the call that broke it.
#include <cstring>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"

namespace {

using namespace vqxml::codes;

using robust::consistent;
using vqtest::drainErrors;
using vqtest::Err;
using vqtest::message;
using vqtest::str;
using vqxml::node;
using vqxml::rec;
using Errs = std::vector<Err>;

constexpr int64_t kHierarchy = mainCode(kHierarchyRequestErr), kWrongDoc = mainCode(kWrongDocumentErr), kNotFound = mainCode(kNotFoundErr), kNullPointer = mainCode(kNullPointerErr);

bool alive(VQHANDLE h) { return vqxml::liveHandle(h); }

bool unlinked(VQHANDLE h) {
    const Node *n = node(h);
    return n->parentNode == 0 && n->previousSibling == 0 && n->nextSibling == 0 && n->containingMap == 0;
}

class MutationTest : public vqtest::DocumentTest {
protected:
    void set(VQHANDLE e, const char *name, const char *value) const { VQDOM_setAttribute(e, s(name), s(value)); }
    // Live objects in an area: a refused subtree must give all of its back.
    static int32_t objects(VQHANDLE d) { return docHead[d & 255]->dbgHandles; }
    // An element with an attribute, a text child and a nested element: six
    // nodes, their strings, the attribute map and two child lists.
    VQHANDLE subtree() const {
        const VQHANDLE e = with(el("s"), {text("t"), el("inner")});
        set(e, "a", "1");
        return e;
    }
};

TEST_F(MutationTest, FragmentsMoveChildByChild) {
    const VQHANDLE e = el("e"), ref = add(e, el("ref")), t = text("t");
    VQHANDLE fr = with(frag(), {t, el("x"), comment()});
    EXPECT_EQ(VQDOM_insertBefore(e, fr, ref), t);
    EXPECT_FALSE(alive(fr));
    EXPECT_EQ(kids(e), "'t' x #comment ref");
    EXPECT_TRUE(consistent(e));
    // Into an attribute only the text is allowed: the comment goes.
    const VQHANDLE a = attr("a"), v = text("v"), c = comment();
    fr = with(frag(), {v, c});
    EXPECT_EQ(VQDOM_appendChild(a, fr), v);
    EXPECT_FALSE(alive(fr) || alive(c));
    EXPECT_EQ(kids(a), "'v'");
    // A refused first child is still what the call returns, now dead.
    const VQHANDLE first = comment();
    EXPECT_EQ(VQDOM_appendChild(a, with(frag(), {first, text("w")})), first);
    EXPECT_FALSE(alive(first));
    EXPECT_EQ(kids(a), "'v' 'w'");
    // A fragment into itself would never empty; it is refused.
    fr = with(frag(), {text("z")});
    EXPECT_EQ(VQDOM_appendChild(fr, fr), 0u);
    EXPECT_FALSE(alive(fr));
    EXPECT_EQ(drainErrors(), (Errs(3, Err{kHierarchy, ""})));
    EXPECT_TRUE(consistent(a));
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
    with(doc, {comment(), oldRoot, pi("pi", "")});
    EXPECT_EQ(VQDOM_replaceChild(doc, newRoot, oldRoot), oldRoot);
    EXPECT_TRUE(unlinked(oldRoot));
    EXPECT_EQ(kids(doc), "#comment new pi");
    EXPECT_EQ(VQDOM_getDocumentElement(doc), newRoot);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_TRUE(consistent(doc));
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
    EXPECT_FALSE(alive(last));
    EXPECT_TRUE(consistent(doc));

    VQDOM_deleteNode(doc);
    EXPECT_EQ(docHead[doc & 255], nullptr);
    EXPECT_TRUE(drainErrors().empty());
}

// A document whose area holds records the document does not reach keeps
// them: its deletion goes node by node, and the area's block links read as
// before (an image of it loads).
TEST_F(MutationTest, DeletingADocumentLeavesWhatItDoesNotReach) {
    const VQHANDLE dt = add(doc, createDocumentType(doc, s("r")));
    const VQHANDLE entity = allocNode(doc, VQXML_ENTITY_NODE, s("ent"));
    add(dt, entity);
    const VQHANDLE root = add(doc, el("r"));
    VQDOM_setAttribute(add(root, el("e")), s("n"), s("v"));
    const VQHANDLE orphan = with(el("o"), {text("kept")});
    VQDOM_deleteNode(doc);
    ASSERT_TRUE(alive(orphan));
    EXPECT_EQ(VQDOM_getTextContent(orphan, nullptr, 0), 4);
    int32_t length = 0;
    const void *image = VQXML_streamOut(orphan, &length);
    ASSERT_NE(image, nullptr);
    const std::vector<char> bytes(static_cast<const char *>(image), static_cast<const char *>(image) + length);
    VQDOM_deleteNode(orphan);
    EXPECT_EQ(docHead[doc & 255], nullptr);
    void *copy = VQXML_streamIn(length);
    ASSERT_NE(copy, nullptr);
    std::memcpy(copy, bytes.data(), bytes.size());
    EXPECT_EQ(VQXML_documentLoaded(copy), 1);
    EXPECT_TRUE(drainErrors().empty());
    VQXML_deleteDocumentArea(doc);
}

// A parsed document goes in one step only while nothing has changed since
// the parse: a record made in its area, or a child unlinked from it, stays
// behind when the document node is deleted.
TEST_F(MutationTest, AParsedDocumentChangedSinceItsParseKeepsWhatItDoesNotReach) {
    const struct {
        const char *what;
        VQHANDLE (*change)(VQHANDLE parsed);
    } cases[] = {
        {"made", [](VQHANDLE parsed) { return VQDOM_createElement(parsed, VQDOM_createDS(parsed, "o")); }},
        {"unlinked", [](VQHANDLE parsed) {
             const VQHANDLE root = VQDOM_getDocumentElement(parsed);
             return VQDOM_removeChild(root, VQDOM_getFirstChild(root));
         }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const VQHANDLE parsed = VQXML_parse("<r><o a='1'>kept</o></r>");
        ASSERT_NE(parsed, 0u);
        const VQHANDLE orphan = c.change(parsed);
        VQDOM_deleteNode(parsed);
        EXPECT_TRUE(alive(orphan));
        VQXML_deleteDocumentArea(parsed);
    }
    const VQHANDLE parsed = VQXML_parse("<r/>");
    VQDOM_deleteNode(parsed);
    EXPECT_EQ(docHead[parsed & 255], nullptr);
    EXPECT_TRUE(drainErrors().empty());
}

// The table of child types per parent type is the code's own; these are the
// rules that depend on the nodes themselves.
TEST_F(MutationTest, HierarchyRulesBesideTheTable) {
    // A parameter entity takes no children at all, a general one content.
    const VQHANDLE param = allocNode(doc, VQXML_ENTITY_NODE, s("p"));
    const VQHANDLE general = allocNode(doc, VQXML_ENTITY_NODE, s("g"));
    rec<Entity>(param)->kind = 1;
    for (int c : {1, 3, 4, 5, 7, 8}) {
        SCOPED_TRACE(c);
        EXPECT_EQ(hierarchyErr(param, allocNode(doc, c, s("n"))), 1);
        EXPECT_EQ(hierarchyErr(general, allocNode(doc, c, s("n"))), 0);
    }
    EXPECT_EQ(drainErrors(), Errs(6, Err{kHierarchy, ""}));
    EXPECT_EQ(message(kHierarchy, ""), "DOM error: HIERARCHY_REQUEST_ERR");
    // One document element; processing instructions, comments and document types without limit.
    const VQHANDLE root = add(doc, el("root"));
    EXPECT_EQ(hierarchyErr(doc, el("second")), 1);
    EXPECT_EQ(hierarchyErr(doc, root), 0);
    for (int i = 0; i < 2; ++i) {
        add(doc, createDocumentType(doc, s("r")));
        add(doc, comment());
    }
    // No node under itself, however deep; invalid handles pass.
    const VQHANDLE mid = add(root, el("mid")), leaf = add(mid, el("leaf"));
    EXPECT_EQ(hierarchyErr(leaf, root) + hierarchyErr(leaf, leaf) + hierarchyErr(mid, mid), 3);
    EXPECT_EQ(hierarchyErr(0, root) + hierarchyErr(root, 0), 0);
    EXPECT_EQ(drainErrors().size(), 4u);
}

TEST_F(MutationTest, RefusedInsertionsFreeTheWholeSubtree) {
    const VQHANDLE p = add(doc, el("p")), a = add(p, el("a")), b = add(a, el("b"));
    add(doc, comment());
    const int32_t before = objects(doc);
    // The document element may be appended again, which moves it to the end.
    EXPECT_EQ(VQDOM_appendChild(doc, p), p);
    EXPECT_EQ(kids(doc), "#comment p");
    // A node cannot go below itself: it goes with its subtree, its old parent left consistent.
    EXPECT_EQ(VQDOM_appendChild(b, a), 0u);
    EXPECT_FALSE(alive(a) || alive(b));
    EXPECT_EQ(kids(p), "");
    EXPECT_TRUE(consistent(doc));
    EXPECT_EQ(drainErrors(), (Errs{{kHierarchy, ""}}));
    const int32_t empty = objects(doc);
    EXPECT_LT(empty, before);
    add(p, subtree());
    VQDOM_deleteNode(node(p)->lastChild);
    EXPECT_EQ(objects(doc), empty);
    // Every refusal path gives back what the refused node held: attributes, children, strings, lists.
    const VQHANDLE second = subtree();
    EXPECT_EQ(VQDOM_appendChild(0, subtree()), 0u);                       // invalid parent
    EXPECT_EQ(VQDOM_appendChild(doc, second), 0u);                        // second root
    EXPECT_FALSE(alive(second));
    EXPECT_EQ(VQDOM_insertBefore(p, subtree(), el("stray")), 0u);         // not a child
    EXPECT_EQ(VQDOM_insertBefore(0, subtree(), 0), 0u);                   // appended to nothing
    EXPECT_EQ(VQDOM_appendChild(VQDOM_createDocument(), subtree()), 0u);  // other document
    const VQHANDLE fr = with(frag(), {subtree(), text("x")});
    EXPECT_EQ(VQDOM_insertBefore(p, fr, el("stray2")), 0u);
    EXPECT_FALSE(alive(fr));
    // Only the two stray reference elements remain (each: node, name, map, child list).
    EXPECT_EQ(objects(doc), empty + 8);
    EXPECT_EQ(drainErrors(), (Errs{{kHierarchy, ""}, {kNotFound, ""}, {kWrongDoc, ""}, {kNotFound, ""}}));
    EXPECT_EQ(message(kNotFound, ""), "DOM error: NOT_FOUND_ERR");
    EXPECT_EQ(message(kWrongDoc, ""), "DOM error: WRONG_DOCUMENT_ERR");
    // Removing a node that is no child is refused; the node stays.
    const VQHANDLE stray = el("x");
    EXPECT_EQ(VQDOM_removeChild(p, stray), 0u);
    EXPECT_TRUE(alive(stray));
    EXPECT_EQ(drainErrors(), (Errs{{kNotFound, ""}}));
    EXPECT_TRUE(consistent(doc));
}

// The builders' shortcut links only what the full append would link the
// same way: a parent below its child, a child in another tree, or a child
// the parent's type refuses go the full way.
TEST_F(MutationTest, AppendToUnlinkedKeepsTheRules) {
    const VQHANDLE a = el("a"), b = add(a, el("b"));
    EXPECT_EQ(vqxml::appendToUnlinked(b, a), 0u);  // a cycle: refused with its subtree
    EXPECT_FALSE(alive(a) || alive(b));
    const VQHANDLE x = el("x"), moved = add(x, el("m")), p = el("p");
    EXPECT_EQ(vqxml::appendToUnlinked(p, moved), moved);  // leaves x
    EXPECT_EQ(kids(x) + "|" + kids(p), "|m");
    EXPECT_TRUE(consistent(x) && consistent(p));
    EXPECT_EQ(vqxml::appendToUnlinked(attr("t"), el("e")), 0u);
    EXPECT_EQ(vqxml::appendToUnlinked(p, attr("t")), 0u);
    EXPECT_EQ(drainErrors(), Errs(3, Err{kHierarchy, ""}));
    const VQHANDLE v = attr("v");
    EXPECT_NE(vqxml::appendToUnlinked(v, text("1")), 0u);
    EXPECT_NE(vqxml::appendToUnlinked(p, ref("r")), 0u);
    EXPECT_EQ(kids(v) + "|" + kids(p), "'1'|m r");
}

TEST_F(MutationTest, InsertBeforeChecksInOrder) {
    const VQHANDLE p = el("p"), r = add(p, el("ref")), stray = el("stray");
    // newChild equal to refChild wins over every later check.
    EXPECT_EQ(VQDOM_insertBefore(p, stray, stray), stray);
    EXPECT_TRUE(alive(stray));
    EXPECT_EQ(VQDOM_getParentNode(stray), 0u);
    const VQHANDLE other = VQDOM_createDocument(), foreign = VQDOM_createElement(other, vqtest::ds(other, "f"));
    EXPECT_EQ(VQDOM_insertBefore(p, foreign, foreign), foreign);
    EXPECT_TRUE(drainErrors().empty());
    // The document check comes before the parent check.
    EXPECT_EQ(VQDOM_insertBefore(p, foreign, stray), 0u);
    EXPECT_FALSE(alive(foreign));
    EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, ""}}));
    // A null child inserts nothing and reports nothing.
    EXPECT_EQ(VQDOM_insertBefore(p, 0, r), 0u);
    EXPECT_EQ(VQDOM_appendChild(p, 0), 0u);
    EXPECT_TRUE(drainErrors().empty());
    // Empty fragments: nothing moves, the fragment goes.
    for (bool before : {false, true}) {
        const VQHANDLE fr = frag();
        EXPECT_EQ(before ? VQDOM_insertBefore(p, fr, r) : VQDOM_appendChild(p, fr), 0u);
        EXPECT_FALSE(alive(fr));
    }
    EXPECT_EQ(kids(p), "ref");
    // A fragment's children are tested one by one: the document keeps the first element only.
    const VQHANDLE e1 = el("e1"), e2 = el("e2"), fr = with(frag(), {e1, e2, comment()});
    EXPECT_EQ(VQDOM_appendChild(doc, fr), e1);
    EXPECT_FALSE(alive(e2) || alive(fr));
    EXPECT_EQ(kids(doc), "e1 #comment");
    EXPECT_EQ(drainErrors(), (Errs{{kHierarchy, ""}}));
    // Moving a node takes it out of its old parent.
    const VQHANDLE q = el("q");
    add(p, el("last"));
    EXPECT_EQ(VQDOM_appendChild(q, r), r);
    EXPECT_EQ(kids(p), "last");
    EXPECT_EQ(VQDOM_getPreviousSibling(VQDOM_getFirstChild(p)), 0u);
    EXPECT_EQ(VQDOM_insertBefore(p, r, VQDOM_getFirstChild(p)), r);
    EXPECT_EQ(kids(p), "ref last");
    EXPECT_EQ(node(q)->firstChild | node(q)->lastChild, 0u);
    // An attribute held by an element cannot become a child: it is deleted and leaves the map.
    set(p, "a", "v");
    const VQHANDLE held = VQDOM_getAttributeNodeStr(p, "a");
    EXPECT_EQ(VQDOM_appendChild(q, held), 0u);
    EXPECT_FALSE(alive(held));
    EXPECT_EQ(VQDOM_getLengthMap(VQDOM_getAttributes(p)), 0u);
    EXPECT_EQ(VQDOM_itemMap(VQDOM_getAttributes(p), 0), 0u);
}

TEST_F(MutationTest, ReplaceChildPaths) {
    // Refused before anything happens: newChild is left alone.
    const VQHANDLE loose = el("loose");
    EXPECT_EQ(VQDOM_replaceChild(0, loose, el("x")), 0u);
    EXPECT_EQ(VQDOM_replaceChild(doc, loose, loose), 0u);
    EXPECT_TRUE(alive(loose));
    const VQHANDLE c1 = add(doc, comment());
    EXPECT_EQ(VQDOM_replaceChild(doc, loose, c1), 0u);  // no document element yet
    EXPECT_TRUE(alive(loose));
    EXPECT_EQ(kids(doc), "#comment");
    EXPECT_TRUE(drainErrors().empty());
    // Into a document, a new element goes where the document element stands, whichever is replaced.
    const VQHANDLE root = add(doc, el("root")), p = add(doc, pi("pi", "")), intruder = el("intruder");
    EXPECT_EQ(VQDOM_replaceChild(doc, intruder, c1), c1);  // the root is still there
    EXPECT_FALSE(alive(intruder));
    EXPECT_EQ(node(c1)->parentNode, 0u);
    EXPECT_EQ(kids(doc), "root pi");
    EXPECT_EQ(drainErrors(), (Errs{{kHierarchy, ""}}));
    // The insertion point was the replaced child itself, no longer a child when the insertion runs.
    const VQHANDLE late = el("late");
    EXPECT_EQ(VQDOM_replaceChild(doc, late, p), p);
    EXPECT_FALSE(alive(late));
    EXPECT_EQ(kids(doc), "root");
    EXPECT_EQ(drainErrors(), (Errs{{kNotFound, ""}}));
    // A document element with nothing behind it is replaced at the end.
    VQDOM_insertBefore(doc, c1, root);
    EXPECT_EQ(VQDOM_replaceChild(doc, el("fresh"), root), root);
    EXPECT_EQ(kids(doc), "#comment fresh");
    // Elsewhere the removal runs even when the insertion was refused.
    const VQHANDLE a = attr("a"), t = add(a, text("v")), c2 = comment();
    EXPECT_EQ(VQDOM_replaceChild(a, c2, t), t);
    EXPECT_FALSE(alive(c2));
    EXPECT_EQ(VQDOM_getFirstChild(a), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kHierarchy, ""}}));
    // A stranger as oldChild is reported by both halves.
    const VQHANDLE n = el("n");
    EXPECT_EQ(VQDOM_replaceChild(el("p"), n, el("stranger")), 0u);
    EXPECT_FALSE(alive(n));
    EXPECT_EQ(drainErrors(), (Errs{{kNotFound, ""}, {kNotFound, ""}}));
}

TEST_F(MutationTest, RemoveAndDelete) {
    const VQHANDLE p = el("p"), c = add(p, el("c"));
    EXPECT_EQ(VQDOM_removeChild(0, c) | VQDOM_removeChild(p, 0), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kNotFound, ""}, {kNotFound, ""}}));
    // Deleting a linked node unlinks it and frees its strings, attributes and every list chained to it.
    const int32_t before = objects(doc);
    const VQHANDLE st = add(p, subtree()), list = VQDOM_getElementsByTagNameStr(st, "inner");
    const VQHANDLE tag = rec<NodeList>(list)->tagName, a = VQDOM_getAttributeNodeStr(st, "a");
    const VQHANDLE value = VQDOM_getNodeValue(a);
    VQDOM_deleteNode(st);
    for (VQHANDLE h : {st, list, tag, a, value}) EXPECT_FALSE(alive(h));
    EXPECT_EQ(objects(doc), before);
    EXPECT_EQ(node(p)->lastChild, c);
    EXPECT_EQ(node(c)->nextSibling, 0u);
    // A document type takes its declarations and its maps' members; an entity its identifier and strings.
    const VQHANDLE dt = createDocumentType(doc, s("r")), entity = allocNode(doc, VQXML_ENTITY_NODE, s("e"));
    const VQHANDLE id = createExternalID(doc), sys = s("e.xml"), notationName = s("gif"), literal = s("lit");
    rec<ExternalID>(id)->systemId = sys;
    rec<Entity>(entity)->externalID = id;
    rec<Entity>(entity)->notationName = notationName;
    rec<Entity>(entity)->value = literal;
    EXPECT_EQ(VQDOM_setNamedItem(rec<DocumentType>(dt)->entities, entity), 0u);
    const VQHANDLE notation = allocNode(doc, VQXML_NOTATION_NODE, s("gif"));
    VQDOM_setNamedItem(rec<DocumentType>(dt)->notations, notation);
    const VQHANDLE decl = add(dt, createElementDecl(doc, s("r")));
    VQDOM_deleteNode(dt);
    for (VQHANDLE h : {dt, entity, id, sys, notationName, literal, notation, decl}) EXPECT_FALSE(alive(h));
    VQDOM_deleteNode(0);
    VQDOM_deleteNode(st);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(MutationTest, NormalizeMergesTextRunsOfElementChildren) {
    const VQHANDLE t1 = text("a"), held = VQDOM_getNodeValue(t1), t2 = text("b"), inner = el("inner");
    for (int i = 0; i < 1000; ++i) add(inner, text(i % 2 ? "y" : "x"));
    const VQHANDLE a = with(attr("a"), {text("x"), text("y")}), r = with(ref("r"), {text("r1"), text("r2")});
    const VQHANDLE e = with(el("e"), {t1, t2, text(""), text("c"), VQDOM_createCDATASection(doc, s("cd")),
                                      text("d"), text("e"), r, text("3"), comment(), inner, text("")});
    VQDOM_setAttributeNode(e, a);
    EXPECT_EQ(VQDOM_normalize(e), 0);
    EXPECT_EQ(kids(e), "'abc' #cdata-section 'de' r '3' #comment inner ''");  // a lone empty text stays
    EXPECT_FALSE(alive(t2));
    EXPECT_EQ(node(e)->firstChild, t1);
    EXPECT_EQ(str(held), "abc");  // the first node keeps its value handle
    VQDOM_setNodeValue(t1, held);  // and keeps it when given it again
    EXPECT_EQ(str(VQDOM_getNodeValue(t1)), "abc");
    ASSERT_EQ(VQDOM_getLengthList(VQDOM_getChildNodes(inner)), 1u);
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_getFirstChild(inner))), robust::repeat("xy", 500));
    EXPECT_EQ(kids(r), "'r1' 'r2'");  // references are not entered
    EXPECT_EQ(kids(a), "'x' 'y'");    // nor attribute maps
    EXPECT_TRUE(consistent(e));
    // An attribute given directly has its own text children merged.
    EXPECT_EQ(VQDOM_normalize(a), 0);
    EXPECT_EQ(kids(a), "'xy'");
    EXPECT_EQ(VQDOM_normalize(0), 0);
    EXPECT_TRUE(drainErrors().empty());
    // A text node without a value takes the others' through the append, which reports it.
    const VQHANDLE f = el("f"), bare = add(f, text("z"));
    VQDOM_deleteDS(node(bare)->nodeValue);
    node(bare)->nodeValue = 0;
    const VQHANDLE follower = add(f, text("w")), followerValue = VQDOM_getNodeValue(follower);
    VQDOM_normalize(f);
    EXPECT_FALSE(alive(follower) || alive(followerValue));
    EXPECT_EQ(node(f)->firstChild, node(f)->lastChild);
    EXPECT_EQ(drainErrors(), (Errs{{kNullPointer, "appendData|"}}));
}

}  // namespace
