// conformance_test.cpp - the DOM interface checked call by call against the
// behaviour callers rely on: which handles a refused call deletes and which
// it leaves to the caller, the parent/child rules, the fields a copy
// carries per node type, the map and list operations, value building
// from children, and the clipping and reports of the character-data edits.
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::message;
using vqtest::str;
using vqxml::node;
using vqxml::rec;
using Errs = std::vector<Err>;

constexpr int64_t kDom = 1001700;
constexpr int64_t kIndexSize = kDom + 1, kHierarchy = kDom + 3, kWrongDoc = kDom + 4, kBadChar = kDom + 5,
                  kNotFound = kDom + 8, kInuse = kDom + 10, kNoMemory = kDom + 11, kNullPointer = kDom + 12;

bool alive(VQHANDLE h) { return vqxml::liveHandle(h); }

class DomConformanceTest : public vqtest::DocumentTest {
protected:
    void SetUp() override {
        DocumentTest::SetUp();
        other = VQDOM_createDocument();
        ASSERT_NE(other, 0u);
    }
    VQHANDLE comment() const { return VQDOM_createComment(doc, s("c")); }
    VQHANDLE attr(const char *name) const { return VQDOM_createAttribute(doc, s(name)); }
    VQHANDLE pi(const char *t, const char *d) const { return VQDOM_createProcessingInstruction(doc, s(t), s(d)); }
    VQHANDLE frag() const { return VQDOM_createDocumentFragment(doc); }
    // Appends the children in order, each expected to go in; returns the parent.
    VQHANDLE with(VQHANDLE parent, std::initializer_list<VQHANDLE> children) const {
        for (VQHANDLE c : children) add(parent, c);
        return parent;
    }
    static void set(VQHANDLE e, const char *name, const char *value) {
        const VQHANDLE d = node(e)->ownerDocument;
        VQDOM_setAttribute(e, vqtest::ds(d, name), vqtest::ds(d, value));
    }
    // Live objects in an area: a refused subtree must give all of its back.
    static int32_t objects(VQHANDLE d) { return docHead[d & 255]->dbgHandles; }
    // An element with an attribute, a text child and a nested element: six
    // nodes, their strings, the attribute map and two child lists.
    VQHANDLE subtree() const {
        const VQHANDLE e = with(el("s"), {text("t"), el("inner")});
        set(e, "a", "1");
        return e;
    }
    // Children as element names, 'text values' and other node names.
    static std::string kids(VQHANDLE parent) {
        std::string out;
        for (VQHANDLE c = node(parent)->firstChild; c != 0; c = node(c)->nextSibling) {
            if (!out.empty()) out += ' ';
            out += VQDOM_getNodeType(c) == VQXML_TEXT_NODE ? "'" + str(VQDOM_getNodeValue(c)) + "'"
                                                           : str(VQDOM_getNodeName(c));
        }
        return out;
    }
    // Attributes in map order; defaulted ones marked with '~'.
    static std::string attrs(VQHANDLE e) {
        std::string out;
        const VQHANDLE map = VQDOM_getAttributes(e);
        for (uint32_t i = 0; i < VQDOM_getLengthMap(map); ++i) {
            const VQHANDLE a = VQDOM_itemMap(map, i);
            out += (i ? " " : "") + str(VQDOM_getNodeName(a)) + (VQDOM_getSpecified(a) ? "=" : "~") +
                   str(VQDOM_getNodeValue(a));
        }
        return out;
    }
    // A parsed document (which must parse cleanly) and its document element.
    static VQHANDLE parse(const char *xml) {
        const VQHANDLE d = VQXML_parse(xml);
        EXPECT_NE(d, 0u) << xml << ::testing::PrintToString(drainErrors());
        return d;
    }
    static VQHANDLE rootOf(VQHANDLE d) { return VQDOM_getDocumentElement(d); }

    VQHANDLE other = 0;
};

// ---- creation -------------------------------------------------------------------

TEST_F(DomConformanceTest, CreatedNodesCarryTheirNamesValuesAndStartingFields) {
    const VQHANDLE name = s("e"), e = VQDOM_createElement(doc, name);
    EXPECT_EQ(VQDOM_getNodeName(e), name);  // the DS handed over, not a copy
    EXPECT_EQ(VQDOM_getNodeType(e), VQXML_ELEMENT_NODE);
    EXPECT_EQ(VQDOM_getNodeValue(e), 0u);
    const VQHANDLE data = s("d");
    struct { VQHANDLE node; int type; const char *name; } const dataNodes[] = {
        {VQDOM_createTextNode(doc, data), VQXML_TEXT_NODE, "#text"},
        {VQDOM_createComment(doc, s("d")), VQXML_COMMENT_NODE, "#comment"},
        {VQDOM_createCDATASection(doc, s("d")), VQXML_CDATA_SECTION_NODE, "#cdata-section"}};
    for (const auto &n : dataNodes) {
        SCOPED_TRACE(n.name);
        EXPECT_EQ(VQDOM_getNodeType(n.node), n.type);
        EXPECT_EQ(str(VQDOM_getNodeName(n.node)), n.name);
        EXPECT_EQ(str(VQDOM_getNodeValue(n.node)), "d");
        EXPECT_EQ(VQDOM_getAttributes(n.node) | VQDOM_getChildNodes(n.node), 0u);
    }
    EXPECT_EQ(VQDOM_getNodeValue(dataNodes[0].node), data);
    const VQHANDLE target = s("tgt"), piData = s("x=1");
    const VQHANDLE p = VQDOM_createProcessingInstruction(doc, target, piData);
    EXPECT_EQ(VQDOM_getTarget(p), target);
    EXPECT_EQ(VQDOM_getDataPI(p), piData);
    const VQHANDLE a = attr("a");
    EXPECT_EQ(VQDOM_getSpecified(a), 1);
    EXPECT_EQ(VQDOM_getNodeValue(a) | VQDOM_getFirstChild(a), 0u);
    EXPECT_EQ(VQDOM_getNodeType(ref("amp")), VQXML_ENTITY_REFERENCE_NODE);
    EXPECT_EQ(str(VQDOM_getNodeName(frag())), "#document-fragment");
    EXPECT_NE(VQDOM_getChildNodes(frag()), 0u);
    EXPECT_EQ(VQDOM_createDocumentFragment(0), 0u);
    EXPECT_EQ(str(VQDOM_getNodeName(doc)), "#document");
    EXPECT_TRUE(drainErrors().empty());
    // A bad name: the scanner reports every bad byte, the DOM error the first one and the whole name, cut.
    const VQHANDLE empty = s("");
    EXPECT_EQ(VQDOM_createElement(doc, empty), 0u);
    EXPECT_FALSE(alive(empty));
    EXPECT_EQ(drainErrors(), (Errs{{1001750, "0x0|"}, {kBadChar, "0x0||"}}));
    EXPECT_EQ(message(kBadChar, "0x0||"), "DOM error: INVALID_CHARACTER_ERR character \"0x0\" invalid in name \"\"");
    EXPECT_EQ(VQDOM_createAttribute(doc, s("a b<")), 0u);
    const Errs errs = drainErrors();
    EXPECT_EQ(errs, (Errs{{1001755, "0x20|"}, {1001755, "0x3c|"}, {kBadChar, "0x20|a b<|"}}));
    EXPECT_EQ(message(errs.back().code, errs.back().params),
              "DOM error: INVALID_CHARACTER_ERR character \"0x20\" invalid in name \"a b<\"");
    const std::string longName = "1" + std::string(299, 'n');
    EXPECT_EQ(VQDOM_createEntityReference(doc, s(longName.c_str())), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{1001750, "0x31|"}, {kBadChar, ("0x31|" + longName).substr(0, 254) + "|"}}));
    EXPECT_EQ(VQDOM_getLastError(), 5);
}

TEST_F(DomConformanceTest, CreatorsOutOfRoomDeleteWhatWasHandedOver) {
    const VQHANDLE attrName = s("a"), refName = s("r"), commentData = s("c"), cdataData = s("d");
    dontRealloc[doc & 255] = 1;  // use up the area's room
    while (myAlloc(doc, 1024) != 0) {
    }
    while (myAlloc(doc, 1) != 0) {
    }
    EXPECT_EQ(VQDOM_createAttribute(doc, attrName), 0u);
    EXPECT_EQ(VQDOM_createEntityReference(doc, refName), 0u);
    EXPECT_EQ(VQDOM_createComment(doc, commentData), 0u);
    EXPECT_EQ(VQDOM_createCDATASection(doc, cdataData), 0u);
    EXPECT_EQ(VQDOM_createDocumentFragment(doc), 0u);
    for (VQHANDLE h : {attrName, refName, commentData, cdataData}) EXPECT_FALSE(alive(h));
    // A failed node allocation names its type and, whatever the record's real size, 48 bytes.
    const Errs errs = drainErrors();
    ASSERT_GE(errs.size(), 2u);
    EXPECT_EQ(errs[0], (Err{kNoMemory, "Attr|48|"}));
    EXPECT_EQ(errs[1], (Err{kNoMemory, "EntityReference|48|"}));
    EXPECT_EQ(message(errs[0].code, errs[0].params), "DOM error: cannot allocate \"Attr\" (size: 48)");
}

// ---- navigation -----------------------------------------------------------------

TEST_F(DomConformanceTest, AccessorsPerNodeType) {
    const VQHANDLE dt = add(doc, createDocumentType(doc, s("r")));
    const VQHANDLE notation = add(dt, allocNode(doc, VQXML_NOTATION_NODE, s("n")));
    EXPECT_EQ(node(notation)->parentNode, dt);
    EXPECT_EQ(VQDOM_getParentNode(notation), 0u);  // hidden
    EXPECT_EQ(VQDOM_getNodeType(0), 0);
    // The document element and the document type are found behind other children.
    add(doc, comment());
    const VQHANDLE root = add(doc, el("root"));
    add(doc, comment());
    EXPECT_EQ(VQDOM_getDocumentElement(doc), root);
    EXPECT_EQ(VQDOM_getDoctype(doc), dt);
    EXPECT_EQ(VQDOM_hasChildNodes(doc), 1);
    EXPECT_EQ(VQDOM_hasChildNodes(root), 0);
    EXPECT_EQ(VQDOM_hasChildNodes(dt), 1);  // though its children stay hidden
    // Tag-name lists look into elements only, not into entity references.
    add(root, el("a"));
    add(add(root, ref("r")), el("a"));
    EXPECT_EQ(VQDOM_getLengthList(VQDOM_getElementsByTagNameStr(root, "a")), 1u);
    EXPECT_EQ(VQDOM_getLengthList(VQDOM_getElementsByTagNameStr(doc, "*")), 2u);
    const VQHANDLE fr = with(frag(), {text("t")}), first = el("first");
    EXPECT_EQ(VQDOM_getDocumentFragmentElement(fr), 0u);
    with(fr, {comment(), first, el("second")});
    EXPECT_EQ(VQDOM_getDocumentFragmentElement(fr), first);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(DomConformanceTest, TextGatheringPerNodeType) {
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

// ---- the parent/child rule -----------------------------------------------------

// The table of child types per parent type is the code's own; these are the
// rules that depend on the nodes themselves.
TEST_F(DomConformanceTest, HierarchyRulesBesideTheTable) {
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

// ---- insertion and removal ------------------------------------------------------

TEST_F(DomConformanceTest, RefusedInsertionsFreeTheWholeSubtree) {
    const VQHANDLE p = add(doc, el("p"));
    const int32_t before = objects(doc);
    add(p, subtree());
    VQDOM_deleteNode(node(p)->lastChild);
    EXPECT_EQ(objects(doc), before);
    // Every refusal path gives back what the refused node held: attributes, children, strings, lists.
    EXPECT_EQ(VQDOM_appendChild(0, subtree()), 0u);                       // invalid parent
    EXPECT_EQ(VQDOM_appendChild(doc, subtree()), 0u);                     // second root
    EXPECT_EQ(VQDOM_insertBefore(p, subtree(), el("stray")), 0u);         // not a child
    EXPECT_EQ(VQDOM_insertBefore(0, subtree(), 0), 0u);                   // appended to nothing
    EXPECT_EQ(VQDOM_appendChild(VQDOM_createDocument(), subtree()), 0u);  // other document
    const VQHANDLE fr = with(frag(), {subtree(), text("x")});
    EXPECT_EQ(VQDOM_insertBefore(p, fr, el("stray2")), 0u);
    EXPECT_FALSE(alive(fr));
    // Only the two stray reference elements remain (each: node, name, map, child list).
    EXPECT_EQ(objects(doc), before + 8);
    EXPECT_EQ(drainErrors(), (Errs{{kHierarchy, ""}, {kNotFound, ""}, {kWrongDoc, ""}, {kNotFound, ""}}));
    EXPECT_EQ(message(kNotFound, ""), "DOM error: NOT_FOUND_ERR");
    EXPECT_EQ(message(kWrongDoc, ""), "DOM error: WRONG_DOCUMENT_ERR");
}

TEST_F(DomConformanceTest, InsertBeforeChecksInOrder) {
    const VQHANDLE p = el("p"), r = add(p, el("ref")), stray = el("stray");
    // newChild equal to refChild wins over every later check.
    EXPECT_EQ(VQDOM_insertBefore(p, stray, stray), stray);
    EXPECT_TRUE(alive(stray));
    EXPECT_EQ(VQDOM_getParentNode(stray), 0u);
    const VQHANDLE foreign = VQDOM_createElement(other, vqtest::ds(other, "f"));
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

TEST_F(DomConformanceTest, ReplaceChildPaths) {
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

TEST_F(DomConformanceTest, RemoveAndDelete) {
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

// ---- copies ---------------------------------------------------------------------------

// Every declaration field shows in the printed text, so a copy that prints
// like its source after the source is gone carries them all in its own area.
TEST_F(DomConformanceTest, CloneOfAParsedDocumentStandsOnItsOwn) {
    const VQHANDLE parsed = parse(
        "<?xml version='1.0' standalone='yes'?><!DOCTYPE r PUBLIC '-//P' 'r.dtd' [<!ENTITY % pe 'lit'>"
        "<!ENTITY u PUBLIC '-//U' 'u.bin' NDATA gif><!NOTATION gif SYSTEM 'viewer'><!ELEMENT r (a|b?)*>"
        "<!ATTLIST r x NMTOKEN #FIXED 'v' d CDATA 'dv'><!--c-->]><r s='sv'>t</r>");
    ASSERT_NE(parsed, 0u);
    const std::string whole = vqtest::print(parsed), dtText = vqtest::print(VQDOM_getDoctype(parsed));
    const VQHANDLE shallow = VQDOM_cloneNode(parsed, 0), deep = VQDOM_cloneNode(parsed, 1);
    const VQHANDLE dt = VQDOM_cloneNodeDoc(VQDOM_getDoctype(parsed), 0, other);  // shallow, with its declarations
    VQDOM_deleteNode(parsed);
    EXPECT_EQ(vqtest::print(deep), whole);
    EXPECT_EQ(vqtest::print(dt), dtText);
    EXPECT_EQ(vqtest::print(shallow), "<?xml version=\"1.0\" standalone=\"yes\"?>");
    EXPECT_EQ(str(VQDOM_getNodeName(shallow)), "#document");
    EXPECT_EQ(rec<Document>(VQDOM_cloneNode(other, 1))->xmlDecl, 0u);
    // The document type comes first: the copied element takes the copy's own defaults.
    const VQHANDLE root = VQDOM_getDocumentElement(deep);
    EXPECT_EQ(attrs(root), "x~v d~dv s=sv");
    EXPECT_EQ(node(VQDOM_getAttributeNodeStr(root, "d"))->ownerDocument, deep);
    EXPECT_EQ(kids(root), "'t'");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(DomConformanceTest, CloneCopiesTheFieldsOfEachNodeType) {
    const VQHANDLE raw = text("<b/>");
    VQDOM_setRawXml(raw);
    const VQHANDLE rawCopy = VQDOM_cloneNodeDoc(raw, 0, other);
    EXPECT_EQ(VQDOM_getOwnerDocument(rawCopy), other);
    EXPECT_EQ(rec<Text>(rawCopy)->rawXml, 1u);
    EXPECT_EQ(str(VQDOM_getNodeValue(rawCopy)), "<b/>");
    EXPECT_EQ(VQDOM_getNodeValue(rawCopy) & 255, other & 255);
    const VQHANDLE r = ref("r");
    rec<EntityReference>(r)->entity = 0x1234501;
    EXPECT_EQ(rec<EntityReference>(VQDOM_cloneNode(r, 0))->entity, 0x1234501u);
    // Values travel for every type but attributes; an element may have one.
    const VQHANDLE withValue = el("v");
    VQDOM_setNodeValue(withValue, s("val"));
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_cloneNodeDoc(withValue, 0, other))), "val");
    const VQHANDLE p = pi("t", "d"), piCopy = VQDOM_cloneNode(p, 0);
    EXPECT_EQ(str(VQDOM_getTarget(piCopy)) + str(VQDOM_getDataPI(piCopy)), "td");
    EXPECT_NE(VQDOM_getDataPI(piCopy), VQDOM_getDataPI(p));
    // An attribute copied on its own keeps its flag and children, not its value string.
    const VQHANDLE a = with(attr("a"), {text("one")});
    getNormalValue(a, 1);
    rec<Attr>(a)->specified = 0;
    const VQHANDLE deepA = VQDOM_cloneNode(a, 1);
    EXPECT_EQ(VQDOM_getSpecified(deepA), 0);
    EXPECT_EQ(kids(deepA), "'one'");
    EXPECT_EQ(VQDOM_getNodeValue(deepA), 0u);
    EXPECT_EQ(VQDOM_getFirstChild(VQDOM_cloneNode(a, 0)), 0u);
    // Copies are unlinked; bad handles give nothing.
    const VQHANDLE parent = el("p"), childCopy = VQDOM_cloneNode(add(parent, text("c")), 1);
    EXPECT_EQ(node(childCopy)->parentNode | node(childCopy)->nextSibling, 0u);
    EXPECT_EQ(VQDOM_cloneNode(0, 1) | VQDOM_cloneNodeDoc(parent, 1, 0), 0u);
    EXPECT_EQ(VQDOM_cloneNodeDoc(0, 1, other), 0u);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(DomConformanceTest, CloneRecomputesAttributeValuesForTheTarget) {
    const VQHANDLE d = parse("<!DOCTYPE e [<!ATTLIST e d CDATA 'dflt'>]><e y=' p  q '/>"), e = rootOf(d);
    // The value string is rebuilt from the children, not copied.
    const VQHANDLE y = VQDOM_getAttributeNodeStr(e, "y");
    VQDOM_deleteDS(node(y)->nodeValue);
    node(y)->nodeValue = vqtest::ds(d, "stale");
    EXPECT_EQ(attrs(VQDOM_cloneNodeDoc(e, 0, other)), "y= p  q ");  // no declarations: no defaults, no folding
    EXPECT_EQ(attrs(VQDOM_cloneNode(e, 0)), "d~dflt y= p  q ");     // the source's own defaults
    EXPECT_EQ(str(VQDOM_getNodeValue(y)), "stale");
    EXPECT_TRUE(drainErrors().empty());
}

// ---- normalisation and values ------------------------------------------------------

TEST_F(DomConformanceTest, NormalizeTouchesOnlyElementChildren) {
    const VQHANDLE a = with(attr("a"), {text("x"), text("y")}), r = with(ref("r"), {text("r1"), text("r2")});
    const VQHANDLE t1 = text("1"), t2 = text("2"), e = with(el("e"), {t1, t2, r, text("3"), comment(), text("4")});
    VQDOM_setAttributeNode(e, a);
    EXPECT_EQ(VQDOM_normalize(e), 0);
    EXPECT_EQ(kids(e), "'12' r '3' #comment '4'");
    EXPECT_FALSE(alive(t2));
    EXPECT_EQ(node(e)->firstChild, t1);
    EXPECT_EQ(kids(r), "'r1' 'r2'");  // references are not entered
    EXPECT_EQ(kids(a), "'x' 'y'");    // nor attribute maps
    // An attribute given directly has its own text children merged.
    EXPECT_EQ(VQDOM_normalize(a), 0);
    EXPECT_EQ(kids(a), "'xy'");
    EXPECT_EQ(VQDOM_normalize(0), 0);
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

TEST_F(DomConformanceTest, SetNodeValueRules) {
    const VQHANDLE c = comment(), oldValue = VQDOM_getNodeValue(c), fresh = s("new"), dropped = s("x");
    VQDOM_setNodeValue(c, 0);
    EXPECT_EQ(VQDOM_getNodeValue(c), oldValue);
    VQDOM_setData(c, fresh);
    EXPECT_EQ(VQDOM_getNodeValue(c), fresh);
    EXPECT_FALSE(alive(oldValue));
    VQDOM_setValue(0, dropped);
    EXPECT_FALSE(alive(dropped));
    // An attribute's children give way to one text child holding the DS itself; the value is
    // rebuilt from it, blanks kept whatever the declared type.
    const VQHANDLE d = parse("<!DOCTYPE e [<!ATTLIST e a NMTOKEN #IMPLIED>]><e a='old'/>");
    const VQHANDLE a = VQDOM_getAttributeNodeStr(rootOf(d), "a"), oldChild = VQDOM_getFirstChild(a);
    const VQHANDLE v = vqtest::ds(d, "  p  q ");
    rec<Attr>(a)->specified = 0;
    VQDOM_setNodeValue(a, v);
    EXPECT_FALSE(alive(oldChild));
    const VQHANDLE child = VQDOM_getFirstChild(a);
    EXPECT_EQ(VQDOM_getNodeValue(child), v);
    EXPECT_EQ(VQDOM_getNextSibling(child), 0u);
    EXPECT_NE(VQDOM_getNodeValue(a), v);
    EXPECT_EQ(str(VQDOM_getValue(a)), "  p  q ");
    EXPECT_EQ(VQDOM_getSpecified(a), 1);
    EXPECT_TRUE(drainErrors().empty());
    // A value of another document changes nothing.
    const VQHANDLE foreign = vqtest::ds(other, "f");
    VQDOM_setNodeValue(a, foreign);
    EXPECT_FALSE(alive(foreign));
    EXPECT_EQ(str(VQDOM_getValue(a)), "  p  q ");
    EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, "setNodeValue|"}}));
}

TEST_F(DomConformanceTest, NormalValueBoundaries) {
    // Stopped before anything was gathered: a new empty value, result 0.
    const VQHANDLE a = with(attr("a"), {with(ref("r"), {comment()})});
    EXPECT_EQ(getNormalValue(a, 0), 0);
    EXPECT_TRUE(alive(VQDOM_getNodeValue(a)));
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "");
    // Folding takes blanks only, at both ends and in runs.
    struct { const char *in, *out; } const cases[] = {
        {"  ab   cd ", "ab cd"}, {"    ", ""}, {"\n a \r\n", "\n a \r\n"}};
    for (const auto &f : cases) {
        SCOPED_TRACE(f.in);
        const VQHANDLE b = with(attr("b"), {text(f.in)});
        EXPECT_EQ(getNormalValue(b, 0), 1);
        EXPECT_EQ(str(VQDOM_getNodeValue(b)), f.out);
    }
    EXPECT_TRUE(drainErrors().empty());
}

// ---- maps and attributes --------------------------------------------------------------

TEST_F(DomConformanceTest, NamedMapOperations) {
    const VQHANDLE e = el("e");
    set(e, "a", "1");
    set(e, "b", "2");
    set(e, "c", "3");
    const VQHANDLE map = VQDOM_getAttributes(e), oldB = VQDOM_getNamedItemStr(map, "b"), newB = attr("b");
    // The displaced node comes back unlinked and alive; the new one goes to the end.
    VQDOM_setNodeValue(newB, s("4"));
    EXPECT_EQ(VQDOM_setNamedItem(map, newB), oldB);
    EXPECT_TRUE(alive(oldB));
    EXPECT_EQ(node(oldB)->containingMap, 0u);
    EXPECT_EQ(attrs(e), "a=1 c=3 b=4");
    // Entering an attribute already in this very map is refused; it stays.
    EXPECT_EQ(VQDOM_setNamedItem(map, newB), 0u);
    EXPECT_EQ(attrs(e), "a=1 c=3 b=4");
    EXPECT_EQ(drainErrors(), (Errs{{kInuse, ""}}));
    EXPECT_EQ(message(kInuse, ""), "DOM error: INUSE_ATTRIBUTE_ERR");
    // An invalid map deletes the node; an invalid node is just refused.
    const VQHANDLE lost = attr("lost");
    EXPECT_EQ(VQDOM_setNamedItem(0, lost), 0u);
    EXPECT_FALSE(alive(lost));
    EXPECT_EQ(VQDOM_setNamedItem(map, 0), 0u);
    // Positions and lengths.
    EXPECT_EQ(VQDOM_itemMap(map, 1), VQDOM_getNamedItemStr(map, "c"));
    EXPECT_EQ(VQDOM_itemMap(map, 3) | VQDOM_itemMap(map, UINT64_MAX) | VQDOM_itemMap(0, 0), 0u);
    EXPECT_EQ(VQDOM_getLengthMap(0), 0u);
    EXPECT_EQ(VQDOM_getNamedItem(map, 0) | VQDOM_getNamedItemStr(map, nullptr), 0u);
    // Removal: an invalid map says nothing, an absent name is reported.
    EXPECT_EQ(VQDOM_removeNamedItem(0, s("a")) | VQDOM_removeNamedItemStr(0, "a"), 0u);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(VQDOM_removeNamedItemStr(map, "zz"), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kNotFound, ""}}));
    EXPECT_EQ(str(VQDOM_getNodeName(VQDOM_removeNamedItemStr(map, "a"))), "a");
    EXPECT_EQ(attrs(e), "c=3 b=4");
    // Other members than attributes may move between maps.
    const VQHANDLE entities = VQDOM_getEntities(add(doc, createDocumentType(doc, s("r"))));
    const VQHANDLE first = allocNode(doc, VQXML_ENTITY_NODE, s("ent"));
    const VQHANDLE second = allocNode(doc, VQXML_ENTITY_NODE, s("ent"));
    EXPECT_EQ(VQDOM_setNamedItem(entities, first), 0u);
    EXPECT_EQ(VQDOM_setNamedItem(entities, second), first);
    EXPECT_EQ(VQDOM_getLengthMap(entities), 1u);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(DomConformanceTest, AttributeOperations) {
    const VQHANDLE e = el("e");
    set(e, "a", "hello");
    const VQHANDLE a = VQDOM_getAttributeNodeStr(e, "a"), name = s("a");
    EXPECT_EQ(VQDOM_getAttribute(e, name), VQDOM_getNodeValue(a));  // not a copy
    EXPECT_EQ(VQDOM_getAttributeNode(e, name), a);
    EXPECT_EQ(VQDOM_getName(a), VQDOM_getNodeName(a));
    char buf[8];
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(VQDOM_getAttributeStr(e, "a", buf, 3), 5);
    EXPECT_EQ(std::string(buf, 4), std::string("he\0#", 4));
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(VQDOM_getAttributeStr(e, "none", buf, 0), 0);
    EXPECT_EQ(buf[0], '#');
    // setAttribute consumes both strings on every path.
    const VQHANDLE n1 = s("x"), v1 = s("1"), n2 = s("1x"), v2 = s("2"), n3 = vqtest::ds(other, "x"), v3 = s("3");
    VQDOM_setAttribute(0, n1, v1);
    VQDOM_setAttribute(e, n2, v2);
    VQDOM_setAttribute(e, n3, v3);
    for (VQHANDLE h : {n1, v1, n2, v2, n3, v3}) EXPECT_FALSE(alive(h));
    EXPECT_EQ(drainErrors(), (Errs{{1001750, "0x31|"}, {kBadChar, "0x31|1x|"}, {kWrongDoc, "createAttribute|"}}));
    // A foreign value leaves the new attribute in place without one; the one it displaced is gone.
    const VQHANDLE foreign = vqtest::ds(other, "f");
    VQDOM_setAttribute(e, s("a"), foreign);
    EXPECT_FALSE(alive(a) || alive(foreign));
    const VQHANDLE bare = VQDOM_getAttributeNodeStr(e, "a");
    ASSERT_NE(bare, 0u);
    EXPECT_EQ(VQDOM_getNodeValue(bare) | VQDOM_getFirstChild(bare), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, "setNodeValue|"}}));
    // setAttributeNode hands back the attribute it displaced.
    const VQHANDLE replacement = attr("a");
    EXPECT_EQ(VQDOM_setAttributeNode(e, replacement), bare);
    EXPECT_TRUE(alive(bare));
    // Removal by name keeps the caller's name.
    VQDOM_removeAttribute(e, name);
    EXPECT_TRUE(alive(name));
    EXPECT_FALSE(alive(replacement));
    VQDOM_removeAttribute(e, name);
    EXPECT_TRUE(alive(name));
    EXPECT_EQ(VQDOM_removeAttributeNode(e, 0) | VQDOM_removeAttributeNode(0, bare), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kNotFound, ""}, {kNotFound, ""}, {kNotFound, ""}}));
}

TEST_F(DomConformanceTest, DefaultAttributes) {
    // Declarations brought in by a parameter entity hang below its reference, in document order.
    const VQHANDLE d = parse("<!DOCTYPE e [<!ATTLIST e first CDATA '1'><!ENTITY % pe \"<!ATTLIST e inner CDATA '2'>\">"
                             "%pe;<!ATTLIST e required CDATA #REQUIRED><!ATTLIST e last CDATA '3'>"
                             "<!ATTLIST f other CDATA '5'>]><f/>");
    const VQHANDLE e = VQDOM_createElement(d, vqtest::ds(d, "e"));
    EXPECT_EQ(attrs(e), "first~1 inner~2 last~3");
    const VQHANDLE first = VQDOM_getAttributeNodeStr(e, "first");
    EXPECT_EQ(kids(first), "'1'");
    // A default replaces an attribute of its name.
    set(e, "first", "mine");
    const VQHANDLE mine = VQDOM_getAttributeNodeStr(e, "first");
    setDefaultAttribute(e, findAttDef(d, "e", "first"));
    EXPECT_FALSE(alive(mine));
    EXPECT_EQ(attrs(e), "inner~2 last~3 first~1");
    // A definition without a default adds nothing.
    setDefaultAttribute(e, findAttDef(d, "e", "required"));
    EXPECT_EQ(VQDOM_getLengthMap(VQDOM_getAttributes(e)), 3u);
    EXPECT_TRUE(drainErrors().empty());
}

// ---- character data -----------------------------------------------------------------

TEST_F(DomConformanceTest, CharacterDataReportsAndNoOps) {
    const VQHANDLE e = el("e");  // a node without a value
    EXPECT_EQ(VQDOM_substringData(e, 0, 1), 0u);
    VQDOM_appendDataStr(e, "x");
    VQDOM_insertDataStr(e, 0, "x");
    VQDOM_deleteData(e, 0, 1);
    VQDOM_appendDataStr(e, nullptr);
    VQDOM_insertDataStr(e, 0, nullptr);
    EXPECT_EQ(VQDOM_getLengthData(e), 0);
    EXPECT_EQ(VQDOM_substringData(0, 0, 1), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kNullPointer, "substringData|"},
                                   {kNullPointer, "appendDS|"},
                                   {kNullPointer, "insertDataStr|"},
                                   {kNullPointer, "substringData|"}}));
    EXPECT_EQ(message(kNullPointer, "substringData|"),
              "DOM error: function \"substringData\" called with null pointer");
    // Splitting it fails in the substring step; a replacement reports nothing but takes its data.
    EXPECT_EQ(VQDOM_splitText(e, 0), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kNullPointer, "substringData|"}}));
    const VQHANDLE data = s("r");
    VQDOM_replaceData(e, 0, 1, data);
    EXPECT_FALSE(alive(data));
    EXPECT_TRUE(drainErrors().empty());
    // Replacing by nothing past the end reports the index, then the missing data.
    const VQHANDLE t = text("hello");
    VQDOM_replaceData(t, 6, 1, 0);
    EXPECT_EQ(str(VQDOM_getData(t)), "hello");
    EXPECT_EQ(drainErrors(), (Errs{{kIndexSize, "5|6|"}, {kNullPointer, "replaceData|"}}));
    EXPECT_EQ(message(kIndexSize, "5|6|"), "DOM error: INDEX_SIZE_ERR stringsize: 5, offset: 5");
    VQDOM_replaceData(e, 0, 1, 0);
    VQDOM_replaceData(0, 0, 1, 0);
    EXPECT_EQ(drainErrors(), (Errs{{kNullPointer, "replaceData|"}}));
    // A PI keeps its data when given none.
    const VQHANDLE p = pi("t", "d"), piData = VQDOM_getDataPI(p);
    VQDOM_setDataPI(p, 0);
    EXPECT_EQ(VQDOM_getDataPI(p), piData);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(DomConformanceTest, CharacterDataEditsAtTheEdges) {
    const VQHANDLE t = text("hello"), sub = VQDOM_substringData(t, 0, 5);
    EXPECT_EQ(VQDOM_getLengthData(t), 5);
    EXPECT_EQ(str(sub), "hello");
    EXPECT_NE(sub, VQDOM_getData(t));
    EXPECT_EQ(sub & 255, doc & 255);
    VQDOM_replaceData(t, 5, 0, s("!"));
    VQDOM_replaceData(t, 0, 0, s("<"));
    EXPECT_EQ(str(VQDOM_getData(t)), "<hello!");
    VQDOM_replaceData(t, 1, 5, s(""));
    EXPECT_EQ(str(VQDOM_getData(t)), "<!");
    // Splitting raw text gives plain text; a loose comment's tail is linked behind it, parentless.
    const VQHANDLE raw = text("ab");
    VQDOM_setRawXml(raw);
    const VQHANDLE tail = VQDOM_splitText(raw, 1);
    EXPECT_EQ(rec<Text>(tail)->rawXml, 0u);
    EXPECT_EQ(rec<Text>(raw)->rawXml, 1u);
    const VQHANDLE c = VQDOM_createComment(doc, s("xy")), cTail = VQDOM_splitText(c, 1);
    EXPECT_EQ(VQDOM_getNodeType(cTail), VQXML_TEXT_NODE);
    EXPECT_EQ(str(VQDOM_getNodeName(cTail)), "#text");
    EXPECT_EQ(str(VQDOM_getData(c)) + "|" + str(VQDOM_getData(cTail)), "x|y");
    EXPECT_EQ(node(cTail)->parentNode, 0u);
    EXPECT_EQ(node(cTail)->previousSibling, c);
    EXPECT_EQ(node(c)->nextSibling, cTail);
    EXPECT_TRUE(drainErrors().empty());
}

}  // namespace
