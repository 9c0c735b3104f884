// conformance_test.cpp - the DOM interface checked call by call against the
// behaviour callers rely on: which handles a refused call deletes and which
// it leaves to the caller, the parent/child rule pair by pair, the fields a
// copy carries per node type, the map and list operations, value building
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

using vqtest::ds;
using vqtest::Err;
using vqtest::message;
using vqtest::str;
using vqxml::liveHandle;
using vqxml::node;
using vqxml::rec;
using Errs = std::vector<Err>;

constexpr int64_t kDom = 1001700;
constexpr int64_t kIndexSize = kDom + 1, kHierarchy = kDom + 3, kWrongDoc = kDom + 4,
                  kBadChar = kDom + 5, kNotFound = kDom + 8, kInuse = kDom + 10,
                  kNoMemory = kDom + 11, kNullPointer = kDom + 12;
constexpr uint16_t kCdata = 3, kNmtoken = 9;

bool alive(VQHANDLE h) { return liveHandle(h); }

class DomConformanceTest : public vqtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = VQDOM_createDocument();
        other = VQDOM_createDocument();
        ASSERT_NE(doc, 0u);
        ASSERT_NE(other, 0u);
    }
    VQHANDLE elem(const char *name, VQHANDLE d = 0) {
        return VQDOM_createElement(d ? d : doc, ds(d ? d : doc, name));
    }
    VQHANDLE text(const char *t, VQHANDLE d = 0) {
        return VQDOM_createTextNode(d ? d : doc, ds(d ? d : doc, t));
    }
    VQHANDLE comment() { return VQDOM_createComment(doc, ds(doc, "c")); }
    VQHANDLE attr(const char *name) { return VQDOM_createAttribute(doc, ds(doc, name)); }
    VQHANDLE add(VQHANDLE parent, VQHANDLE child) { return VQDOM_appendChild(parent, child); }
    void set(VQHANDLE e, const char *name, const char *value) {
        const VQHANDLE d = node(e)->ownerDocument;
        VQDOM_setAttribute(e, ds(d, name), ds(d, value));
    }
    // Live objects in an area: a refused subtree must give all of its back.
    static int32_t objects(VQHANDLE d) { return docHead[d & 255]->dbgHandles; }

    // An element with an attribute, a text child and a nested element: six
    // nodes, their strings, the attribute map and two child lists.
    VQHANDLE subtree() {
        const VQHANDLE e = elem("s");
        set(e, "a", "1");
        add(e, text("t"));
        add(e, elem("inner"));
        return e;
    }

    // Children as element names, 'text values' and other node names.
    static std::string kids(VQHANDLE parent) {
        std::string out;
        for (VQHANDLE c = node(parent)->firstChild; c != 0; c = node(c)->nextSibling) {
            if (!out.empty()) out += ' ';
            out += VQDOM_getNodeType(c) == VQXML_TEXT_NODE
                       ? "'" + str(VQDOM_getNodeValue(c)) + "'"
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
            out += (i ? " " : "") + str(VQDOM_getNodeName(a)) +
                   (VQDOM_getSpecified(a) ? "=" : "~") + str(VQDOM_getNodeValue(a));
        }
        return out;
    }
    // Declares attribute `name` of `element` in d's document type, in an
    // attribute-list declaration of its own, with a default held the way
    // the DTD parser leaves it (an Attr in the definition's map whose text
    // child holds the value). Returns the definition.
    static VQHANDLE declare(VQHANDLE d, const char *element, const char *name, uint16_t type,
                            const char *value, VQHANDLE under = 0) {
        VQHANDLE dt = VQDOM_getDoctype(d);
        if (dt == 0) VQDOM_appendChild(d, dt = createDocumentType(d, ds(d, element)));
        const VQHANDLE list = createAttlistDecl(d, ds(d, element));
        VQDOM_appendChild(under != 0 ? under : dt, list);
        const VQHANDLE def = createAttDef(d, ds(d, name));
        rec<AttDef>(def)->attType = type;
        VQDOM_appendChild(list, def);
        if (value != nullptr) {
            const VQHANDLE a = VQDOM_createAttribute(d, ds(d, name));
            VQDOM_appendChild(a, VQDOM_createTextNode(d, ds(d, value)));
            VQDOM_setNamedItem(node(def)->attributes, a);
        }
        return def;
    }
    // Uses up the room of an area so that the next allocation fails.
    static void exhaust(VQHANDLE d) {
        dontRealloc[d & 255] = 1;
        while (myAlloc(d, 1024) != 0) {
        }
        while (myAlloc(d, 1) != 0) {
        }
    }

    VQHANDLE doc = 0;
    VQHANDLE other = 0;
};

// ---- creation -------------------------------------------------------------------

TEST_F(DomConformanceTest, CreatedNodesCarryTheirNamesValuesAndStartingFields) {
    const VQHANDLE name = ds(doc, "e");
    const VQHANDLE e = VQDOM_createElement(doc, name);
    EXPECT_EQ(VQDOM_getNodeName(e), name);  // the DS handed over, not a copy
    EXPECT_EQ(VQDOM_getNodeType(e), VQXML_ELEMENT_NODE);
    EXPECT_NE(VQDOM_getAttributes(e), 0u);
    EXPECT_NE(VQDOM_getChildNodes(e), 0u);
    EXPECT_EQ(VQDOM_getNodeValue(e), 0u);

    const VQHANDLE data = ds(doc, "d");
    struct {
        VQHANDLE node;
        int type;
        const char *name;
    } const dataNodes[] = {
        {VQDOM_createTextNode(doc, data), VQXML_TEXT_NODE, "#text"},
        {VQDOM_createComment(doc, ds(doc, "d")), VQXML_COMMENT_NODE, "#comment"},
        {VQDOM_createCDATASection(doc, ds(doc, "d")), VQXML_CDATA_SECTION_NODE, "#cdata-section"},
    };
    for (const auto &n : dataNodes) {
        SCOPED_TRACE(n.name);
        EXPECT_EQ(VQDOM_getNodeType(n.node), n.type);
        EXPECT_EQ(str(VQDOM_getNodeName(n.node)), n.name);
        EXPECT_EQ(str(VQDOM_getNodeValue(n.node)), "d");
        EXPECT_EQ(VQDOM_getAttributes(n.node) | VQDOM_getChildNodes(n.node), 0u);
    }
    EXPECT_EQ(VQDOM_getNodeValue(dataNodes[0].node), data);
    EXPECT_EQ(rec<Text>(dataNodes[0].node)->rawXml, 0u);

    const VQHANDLE target = ds(doc, "tgt"), piData = ds(doc, "x=1");
    const VQHANDLE pi = VQDOM_createProcessingInstruction(doc, target, piData);
    EXPECT_EQ(VQDOM_getTarget(pi), target);
    EXPECT_EQ(VQDOM_getDataPI(pi), piData);

    const VQHANDLE a = attr("a");
    EXPECT_EQ(VQDOM_getSpecified(a), 1);
    EXPECT_EQ(VQDOM_getNodeValue(a) | VQDOM_getFirstChild(a), 0u);
    EXPECT_EQ(VQDOM_getNodeType(VQDOM_createEntityReference(doc, ds(doc, "amp"))),
              VQXML_ENTITY_REFERENCE_NODE);

    const VQHANDLE frag = VQDOM_createDocumentFragment(doc);
    EXPECT_EQ(str(VQDOM_getNodeName(frag)), "#document-fragment");
    EXPECT_NE(VQDOM_getChildNodes(frag), 0u);
    EXPECT_EQ(VQDOM_createDocumentFragment(0), 0u);

    EXPECT_EQ(str(VQDOM_getNodeName(doc)), "#document");
    EXPECT_EQ(node(doc)->ownerDocument, doc);
    EXPECT_EQ(VQDOM_getOwnerDocument(doc), 0u);
    EXPECT_EQ(VQDOM_getOwnerDocument(e), doc);

    // The library's own declaration nodes.
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "r"));
    EXPECT_NE(rec<DocumentType>(dt)->entities, 0u);
    EXPECT_NE(rec<DocumentType>(dt)->notations, 0u);
    EXPECT_NE(rec<DocumentType>(dt)->entities, rec<DocumentType>(dt)->notations);
    EXPECT_NE(node(createAttDef(doc, ds(doc, "x")))->attributes, 0u);
    const VQHANDLE cp = createCpChildren(doc);
    EXPECT_EQ(rec<CpChildren>(cp)->separator, 255);
    EXPECT_EQ(VQDOM_getNodeName(cp), 0u);
    EXPECT_EQ(VQDOM_getNodeType(createNameList(doc, ds(doc, "n"))), VQXML_NAME_LIST_NODE);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(DomConformanceTest, NameCheckReportsTheFirstBadByteAndTheWholeName) {
    const VQHANDLE empty = ds(doc, "");
    EXPECT_EQ(VQDOM_createElement(doc, empty), 0u);
    EXPECT_FALSE(alive(empty));
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001750, "0x0|"}, {kBadChar, "0x0||"}}));
    EXPECT_EQ(message(kBadChar, "0x0||"),
              "DOM error: INVALID_CHARACTER_ERR character \"0x0\" invalid in name \"\"");

    // Every bad byte is reported by the scanner; the DOM error names the
    // first one.
    EXPECT_EQ(VQDOM_createAttribute(doc, ds(doc, "a b<")), 0u);
    const Errs errs = vqtest::drainErrors();
    EXPECT_EQ(errs, (Errs{{1001755, "0x20|"}, {1001755, "0x3c|"}, {kBadChar, "0x20|a b<|"}}));
    EXPECT_EQ(message(errs.back().code, errs.back().params),
              "DOM error: INVALID_CHARACTER_ERR character \"0x20\" invalid in name \"a b<\"");

    // The report is bounded: a long name is cut.
    const std::string longName = "1" + std::string(299, 'n');
    EXPECT_EQ(VQDOM_createEntityReference(doc, ds(doc, longName.c_str())), 0u);
    EXPECT_EQ(vqtest::drainErrors(),
              (Errs{{1001750, "0x31|"}, {kBadChar, ("0x31|" + longName).substr(0, 254) + "|"}}));
    EXPECT_EQ(VQDOM_getLastError(), 5);
}

TEST_F(DomConformanceTest, CreatorsOutOfRoomDeleteWhatWasHandedOver) {
    const VQHANDLE attrName = ds(doc, "a"), refName = ds(doc, "r");
    const VQHANDLE commentData = ds(doc, "c"), cdataData = ds(doc, "d");
    exhaust(doc);
    EXPECT_EQ(VQDOM_createAttribute(doc, attrName), 0u);
    EXPECT_EQ(VQDOM_createEntityReference(doc, refName), 0u);
    EXPECT_EQ(VQDOM_createComment(doc, commentData), 0u);
    EXPECT_EQ(VQDOM_createCDATASection(doc, cdataData), 0u);
    EXPECT_EQ(VQDOM_createDocumentFragment(doc), 0u);
    for (VQHANDLE h : {attrName, refName, commentData, cdataData}) EXPECT_FALSE(alive(h));
    // A failed node allocation names its type and, whatever the record's
    // real size, 48 bytes.
    const Errs errs = vqtest::drainErrors();
    ASSERT_GE(errs.size(), 2u);
    EXPECT_EQ(errs[0], (Err{kNoMemory, "Attr|48|"}));
    EXPECT_EQ(errs[1], (Err{kNoMemory, "EntityReference|48|"}));
    EXPECT_EQ(message(errs[0].code, errs[0].params),
              "DOM error: cannot allocate \"Attr\" (size: 48)");
}

// ---- navigation -----------------------------------------------------------------

TEST_F(DomConformanceTest, AccessorsPerNodeType) {
    const VQHANDLE dt = add(doc, createDocumentType(doc, ds(doc, "r")));
    const VQHANDLE notation = add(dt, allocNode(doc, VQXML_NOTATION_NODE, ds(doc, "n")));
    EXPECT_EQ(node(notation)->parentNode, dt);
    EXPECT_EQ(VQDOM_getParentNode(notation), 0u);
    EXPECT_EQ(VQDOM_getNodeType(0), 0);

    // The document element and the document type are found behind other
    // children.
    add(doc, comment());
    const VQHANDLE root = add(doc, elem("root"));
    add(doc, comment());
    EXPECT_EQ(VQDOM_getDocumentElement(doc), root);
    EXPECT_EQ(VQDOM_getDoctype(doc), dt);
    EXPECT_EQ(VQDOM_hasChildNodes(doc), 1);
    EXPECT_EQ(VQDOM_hasChildNodes(root), 0);
    EXPECT_EQ(VQDOM_hasChildNodes(dt), 1);  // though its children stay hidden

    // Tag-name lists look into elements only, not into entity references.
    add(root, elem("a"));
    const VQHANDLE ref = add(root, VQDOM_createEntityReference(doc, ds(doc, "r")));
    add(ref, elem("a"));
    EXPECT_EQ(VQDOM_getLengthList(VQDOM_getElementsByTagNameStr(root, "a")), 1u);
    EXPECT_EQ(VQDOM_getLengthList(VQDOM_getElementsByTagNameStr(doc, "*")), 2u);

    const VQHANDLE frag = VQDOM_createDocumentFragment(doc);
    add(frag, text("t"));
    EXPECT_EQ(VQDOM_getDocumentFragmentElement(frag), 0u);
    add(frag, comment());
    const VQHANDLE first = add(frag, elem("first"));
    add(frag, elem("second"));
    EXPECT_EQ(VQDOM_getDocumentFragmentElement(frag), first);

    // A node whose list chain starts with a tag-name list has no child
    // list to give.
    const VQHANDLE e = elem("e");
    node(e)->childNodes = 0;
    const VQHANDLE list = VQDOM_getElementsByTagNameStr(e, "x");
    EXPECT_EQ(node(e)->childNodes, list);
    EXPECT_EQ(VQDOM_getChildNodes(e), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(DomConformanceTest, TextGatheringPerNodeType) {
    char buf[32];
    // "length:text" of either gatherer.
    auto gather = [&](VQHANDLE h, bool content) {
        std::memset(buf, '#', sizeof buf);
        const int64_t n = content ? VQDOM_getTextContent(h, buf, sizeof buf)
                                  : VQDOM_getText(h, buf, sizeof buf);
        return std::to_string(n) + ":" + buf;
    };
    auto textOf = [&](VQHANDLE h) { return gather(h, false); };
    auto contentOf = [&](VQHANDLE h) { return gather(h, true); };
    const VQHANDLE a = attr("a");
    VQDOM_setNodeValue(a, ds(doc, "av"));
    const VQHANDLE pi = VQDOM_createProcessingInstruction(doc, ds(doc, "t"), ds(doc, "pd"));
    const VQHANDLE entity = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "ent"));
    add(entity, text("replacement"));
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "r"));
    const VQHANDLE cp = createCpChildren(doc);
    for (bool content : {false, true}) {
        SCOPED_TRACE(content);
        EXPECT_EQ(gather(a, content), "2:av");
        EXPECT_EQ(gather(pi, content), "2:pd");
        EXPECT_EQ(gather(comment(), content), "1:c");
        EXPECT_EQ(gather(entity, content), "0:");
        EXPECT_EQ(gather(dt, content), "0:");
        EXPECT_EQ(gather(cp, content), "0:");
        EXPECT_EQ(gather(elem("empty"), content), "0:");
    }

    // Fragments and entity references are containers; comments and
    // processing instructions inside them give nothing.
    const VQHANDLE frag = VQDOM_createDocumentFragment(doc);
    add(frag, text("a"));
    add(frag, comment());
    const VQHANDLE ref = add(frag, VQDOM_createEntityReference(doc, ds(doc, "r")));
    add(ref, text("b"));
    add(ref, VQDOM_createProcessingInstruction(doc, ds(doc, "p"), ds(doc, "no")));
    add(frag, VQDOM_createCDATASection(doc, ds(doc, "c")));
    EXPECT_EQ(textOf(frag), "2:ac");
    EXPECT_EQ(contentOf(frag), "3:abc");
    EXPECT_EQ(textOf(ref), "1:b");

    // Capacity 0 touches nothing and still measures.
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(VQDOM_getText(frag, buf, 0), 2);
    EXPECT_EQ(VQDOM_getTextContent(frag, buf, 0), 3);
    EXPECT_EQ(buf[0], '#');

    // The DS variants: a new string in the owner document, 0 for a node
    // without one.
    const VQHANDLE copy = VQDOM_getTextContentDS(frag);
    EXPECT_EQ(str(copy), "abc");
    EXPECT_EQ(copy & 255, doc & 255);
    const VQHANDLE t = text("x");
    EXPECT_NE(VQDOM_getTextDS(t), VQDOM_getNodeValue(t));
    EXPECT_EQ(VQDOM_getTextContentDS(doc), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- the parent/child rule -----------------------------------------------------

TEST_F(DomConformanceTest, HierarchyTableRowByRow) {
    auto bits = [](std::initializer_list<int> types) {
        uint32_t m = 0;
        for (int t : types) m |= 1u << t;
        return m;
    };
    const uint32_t content = bits({1, 3, 4, 5, 7, 8});
    uint32_t allowed[18] = {};
    allowed[1] = allowed[11] = content;
    allowed[2] = bits({3, 5});
    allowed[5] = bits({1, 3, 4, 5, 6, 7, 8, 12, 13, 14});
    allowed[6] = content;
    allowed[9] = bits({1, 7, 8, 10});
    allowed[10] = bits({5, 6, 7, 8, 12, 13, 14});
    allowed[13] = allowed[16] = bits({16});
    allowed[14] = bits({15});
    allowed[15] = bits({17});

    // A fresh, unlinked node of each type; the document stands for itself.
    auto make = [&](int type) {
        if (type == VQXML_DOCUMENT_NODE) return other;
        return allocNode(doc, type, ds(doc, "n"));
    };
    int refusals = 0;
    for (int p = 1; p <= 17; ++p) {
        for (int c = 1; c <= 17; ++c) {
            SCOPED_TRACE(std::to_string(p) + " <- " + std::to_string(c));
            const VQHANDLE parent = p == VQXML_DOCUMENT_NODE ? doc : make(p);
            const int want = (allowed[p] >> c) & 1 ? 0 : 1;
            EXPECT_EQ(hierarchyErr(parent, make(c)), want);
            refusals += want;
        }
    }
    // A parameter entity takes no children at all.
    const VQHANDLE param = make(VQXML_ENTITY_NODE);
    rec<Entity>(param)->kind = 1;
    for (int c : {1, 3, 4, 5, 7, 8}) EXPECT_EQ(hierarchyErr(param, make(c)), 1);
    refusals += 6;

    const Errs errs = vqtest::drainErrors();
    EXPECT_EQ(errs.size(), static_cast<size_t>(refusals));
    for (const Err &e : errs) EXPECT_EQ(e, (Err{kHierarchy, ""}));
    EXPECT_EQ(message(kHierarchy, ""), "DOM error: HIERARCHY_REQUEST_ERR");

    // One document element; processing instructions, comments and
    // document types without limit.
    const VQHANDLE root = add(doc, elem("root"));
    EXPECT_EQ(hierarchyErr(doc, elem("second")), 1);
    EXPECT_EQ(hierarchyErr(doc, root), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_NE(add(doc, createDocumentType(doc, ds(doc, "r"))), 0u);
        EXPECT_NE(add(doc, comment()), 0u);
    }
    // No node under itself, however deep; invalid handles pass.
    const VQHANDLE mid = add(root, elem("mid"));
    const VQHANDLE leaf = add(mid, elem("leaf"));
    EXPECT_EQ(hierarchyErr(leaf, root) + hierarchyErr(leaf, leaf) + hierarchyErr(mid, mid), 3);
    EXPECT_EQ(hierarchyErr(0, root) + hierarchyErr(root, 0), 0);
    EXPECT_EQ(vqtest::drainErrors().size(), 4u);
}

// ---- insertion and removal ------------------------------------------------------

TEST_F(DomConformanceTest, RefusedInsertionsFreeTheWholeSubtree) {
    const VQHANDLE p = add(doc, elem("p"));
    const int32_t before = objects(doc);

    // Every refusal path of the insertions gives back what the refused
    // node held: attributes, children, strings, lists.
    add(p, subtree());
    VQDOM_deleteNode(node(p)->lastChild);
    EXPECT_EQ(objects(doc), before);

    EXPECT_EQ(VQDOM_appendChild(0, subtree()), 0u);                     // invalid parent
    EXPECT_EQ(VQDOM_appendChild(doc, subtree()), 0u);                   // second root
    EXPECT_EQ(VQDOM_insertBefore(p, subtree(), elem("stray")), 0u);     // not a child
    EXPECT_EQ(VQDOM_insertBefore(0, subtree(), 0), 0u);                 // appended to nothing
    EXPECT_EQ(VQDOM_appendChild(VQDOM_createDocument(), subtree()), 0u);  // other document
    const VQHANDLE frag = VQDOM_createDocumentFragment(doc);
    add(frag, subtree());
    add(frag, text("x"));
    EXPECT_EQ(VQDOM_insertBefore(p, frag, elem("stray2")), 0u);
    EXPECT_FALSE(alive(frag));
    // Only the two stray reference elements remain (each: node, name, map,
    // child list).
    EXPECT_EQ(objects(doc), before + 8);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kHierarchy, ""}, {kNotFound, ""}, {kWrongDoc, ""},
                                           {kNotFound, ""}}));
    EXPECT_EQ(message(kNotFound, ""), "DOM error: NOT_FOUND_ERR");
    EXPECT_EQ(message(kWrongDoc, ""), "DOM error: WRONG_DOCUMENT_ERR");
}

TEST_F(DomConformanceTest, InsertBeforeChecksInOrder) {
    const VQHANDLE p = elem("p"), ref = add(p, elem("ref"));
    const VQHANDLE stray = elem("stray");

    // newChild equal to refChild wins over every later check.
    EXPECT_EQ(VQDOM_insertBefore(p, stray, stray), stray);
    EXPECT_TRUE(alive(stray));
    EXPECT_EQ(node(stray)->parentNode, 0u);
    const VQHANDLE foreign = elem("f", other);
    EXPECT_EQ(VQDOM_insertBefore(p, foreign, foreign), foreign);
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // The document check comes before the parent check.
    EXPECT_EQ(VQDOM_insertBefore(p, foreign, stray), 0u);
    EXPECT_FALSE(alive(foreign));
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kWrongDoc, ""}}));

    // A null child inserts nothing and reports nothing.
    EXPECT_EQ(VQDOM_insertBefore(p, 0, ref), 0u);
    EXPECT_EQ(VQDOM_appendChild(p, 0), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // Empty fragments: nothing moves, the fragment goes.
    for (bool before : {false, true}) {
        const VQHANDLE frag = VQDOM_createDocumentFragment(doc);
        EXPECT_EQ(before ? VQDOM_insertBefore(p, frag, ref) : VQDOM_appendChild(p, frag), 0u);
        EXPECT_FALSE(alive(frag));
    }
    EXPECT_EQ(kids(p), "ref");

    // A fragment's children are tested one by one: the document keeps the
    // first element and refuses the second.
    const VQHANDLE frag = VQDOM_createDocumentFragment(doc);
    const VQHANDLE e1 = add(frag, elem("e1")), e2 = add(frag, elem("e2"));
    add(frag, comment());
    EXPECT_EQ(VQDOM_appendChild(doc, frag), e1);
    EXPECT_FALSE(alive(e2) || alive(frag));
    EXPECT_EQ(kids(doc), "e1 #comment");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kHierarchy, ""}}));

    // Moving a node takes it out of its old parent.
    const VQHANDLE q = elem("q");
    add(p, elem("last"));
    EXPECT_EQ(VQDOM_appendChild(q, ref), ref);
    EXPECT_EQ(kids(p), "last");
    EXPECT_EQ(node(node(p)->firstChild)->previousSibling, 0u);
    EXPECT_EQ(VQDOM_insertBefore(p, ref, node(p)->firstChild), ref);
    EXPECT_EQ(kids(p), "ref last");
    EXPECT_EQ(node(q)->firstChild | node(q)->lastChild, 0u);

    // An attribute held by an element cannot become a child: it is deleted
    // and leaves the element's map.
    set(p, "a", "v");
    const VQHANDLE held = VQDOM_getAttributeNodeStr(p, "a");
    EXPECT_EQ(VQDOM_appendChild(q, held), 0u);
    EXPECT_FALSE(alive(held));
    EXPECT_EQ(VQDOM_getLengthMap(VQDOM_getAttributes(p)), 0u);
    EXPECT_EQ(VQDOM_itemMap(VQDOM_getAttributes(p), 0), 0u);
}

TEST_F(DomConformanceTest, ReplaceChildPaths) {
    // Refused before anything happens: newChild is left alone.
    const VQHANDLE loose = elem("loose");
    EXPECT_EQ(VQDOM_replaceChild(0, loose, elem("x")), 0u);
    EXPECT_EQ(VQDOM_replaceChild(doc, loose, loose), 0u);
    EXPECT_TRUE(alive(loose));
    const VQHANDLE c1 = add(doc, comment());
    EXPECT_EQ(VQDOM_replaceChild(doc, loose, c1), 0u);  // no document element yet
    EXPECT_TRUE(alive(loose));
    EXPECT_EQ(kids(doc), "#comment");
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // Into a document, a new element goes where the document element
    // stands, whichever child is replaced.
    const VQHANDLE root = add(doc, elem("root"));
    const VQHANDLE pi =
        add(doc, VQDOM_createProcessingInstruction(doc, ds(doc, "pi"), ds(doc, "")));
    const VQHANDLE intruder = elem("intruder");
    EXPECT_EQ(VQDOM_replaceChild(doc, intruder, c1), c1);  // the root is still there
    EXPECT_FALSE(alive(intruder));
    EXPECT_EQ(node(c1)->parentNode, 0u);
    EXPECT_EQ(kids(doc), "root pi");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kHierarchy, ""}}));

    // The remembered insertion point was the replaced child itself: it is
    // no longer a child when the insertion runs.
    const VQHANDLE late = elem("late");
    EXPECT_EQ(VQDOM_replaceChild(doc, late, pi), pi);
    EXPECT_FALSE(alive(late));
    EXPECT_EQ(kids(doc), "root");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNotFound, ""}}));

    // A document element with nothing behind it is replaced at the end.
    add(doc, c1);
    VQDOM_insertBefore(doc, c1, root);
    const VQHANDLE fresh = elem("fresh");
    EXPECT_EQ(VQDOM_replaceChild(doc, fresh, root), root);
    EXPECT_EQ(kids(doc), "#comment fresh");

    // Elsewhere the removal runs even when the insertion was refused.
    const VQHANDLE a = attr("a");
    const VQHANDLE t = add(a, text("v"));
    const VQHANDLE c2 = comment();
    EXPECT_EQ(VQDOM_replaceChild(a, c2, t), t);
    EXPECT_FALSE(alive(c2));
    EXPECT_EQ(VQDOM_getFirstChild(a), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kHierarchy, ""}}));

    // A stranger as oldChild is reported by both halves.
    const VQHANDLE p = elem("p");
    const VQHANDLE n = elem("n");
    EXPECT_EQ(VQDOM_replaceChild(p, n, elem("stranger")), 0u);
    EXPECT_FALSE(alive(n));
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNotFound, ""}, {kNotFound, ""}}));
}

TEST_F(DomConformanceTest, RemoveAndDelete) {
    const VQHANDLE p = elem("p"), c = add(p, elem("c"));
    EXPECT_EQ(VQDOM_removeChild(0, c) | VQDOM_removeChild(p, 0), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNotFound, ""}, {kNotFound, ""}}));

    // Deleting a linked node unlinks it first and frees its strings, its
    // attributes and every list chained to it.
    const int32_t before = objects(doc);
    const VQHANDLE s = add(p, subtree());
    const VQHANDLE list = VQDOM_getElementsByTagNameStr(s, "inner");
    const VQHANDLE tag = rec<NodeList>(list)->tagName;
    const VQHANDLE a = VQDOM_getAttributeNodeStr(s, "a");
    const VQHANDLE value = VQDOM_getNodeValue(a);
    VQDOM_deleteNode(s);
    for (VQHANDLE h : {s, list, tag, a, value}) EXPECT_FALSE(alive(h));
    EXPECT_EQ(objects(doc), before);
    EXPECT_EQ(node(p)->lastChild, c);
    EXPECT_EQ(node(c)->nextSibling, 0u);

    // A document type takes its declarations and whatever its maps still
    // hold; an entity its identifier and strings.
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "r"));
    const VQHANDLE entity = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "e"));
    const VQHANDLE id = createExternalID(doc);
    const VQHANDLE sys = ds(doc, "e.xml");
    rec<ExternalID>(id)->systemId = sys;
    const VQHANDLE notationName = ds(doc, "gif"), literal = ds(doc, "lit");
    rec<Entity>(entity)->externalID = id;
    rec<Entity>(entity)->notationName = notationName;
    rec<Entity>(entity)->value = literal;
    EXPECT_EQ(VQDOM_setNamedItem(rec<DocumentType>(dt)->entities, entity), 0u);
    const VQHANDLE notation = allocNode(doc, VQXML_NOTATION_NODE, ds(doc, "gif"));
    VQDOM_setNamedItem(rec<DocumentType>(dt)->notations, notation);
    const VQHANDLE decl = add(dt, createElementDecl(doc, ds(doc, "r")));
    VQDOM_deleteNode(dt);
    for (VQHANDLE h : {dt, entity, id, sys, notationName, literal, notation, decl})
        EXPECT_FALSE(alive(h));

    VQDOM_deleteNode(0);
    VQDOM_deleteNode(s);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- copies ---------------------------------------------------------------------------

TEST_F(DomConformanceTest, CloneCopiesTheFieldsOfEachType) {
    const VQHANDLE target = other;
    auto sameText = [&](VQHANDLE copy, VQHANDLE source) {
        return str(copy) == str(source) && (copy == 0 || (copy & 255) == (target & 255));
    };

    const VQHANDLE raw = text("<b/>");
    VQDOM_setRawXml(raw);
    const VQHANDLE rawCopy = VQDOM_cloneNodeDoc(raw, 0, target);
    EXPECT_EQ(rec<Text>(rawCopy)->rawXml, 1u);
    EXPECT_TRUE(sameText(VQDOM_getNodeValue(rawCopy), VQDOM_getNodeValue(raw)));

    const VQHANDLE ref = VQDOM_createEntityReference(doc, ds(doc, "r"));
    rec<EntityReference>(ref)->entity = 0x1234501;
    EXPECT_EQ(rec<EntityReference>(VQDOM_cloneNode(ref, 0))->entity, 0x1234501u);

    const VQHANDLE entity = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "e"));
    const VQHANDLE id = createExternalID(doc);
    rec<ExternalID>(id)->publicId = ds(doc, "-//P");
    rec<ExternalID>(id)->systemId = ds(doc, "s.dtd");
    rec<Entity>(entity)->externalID = id;
    rec<Entity>(entity)->notationName = ds(doc, "gif");
    rec<Entity>(entity)->value = ds(doc, "lit");
    rec<Entity>(entity)->kind = 1;
    const VQHANDLE entityCopy = VQDOM_cloneNodeDoc(entity, 0, target);
    const Entity e = *rec<Entity>(entityCopy);
    const Entity s = *rec<Entity>(entity);
    EXPECT_NE(e.externalID, id);
    EXPECT_TRUE(sameText(rec<ExternalID>(e.externalID)->publicId, rec<ExternalID>(id)->publicId));
    EXPECT_TRUE(sameText(rec<ExternalID>(e.externalID)->systemId, rec<ExternalID>(id)->systemId));
    EXPECT_TRUE(sameText(e.notationName, s.notationName));
    EXPECT_TRUE(sameText(e.value, s.value));
    EXPECT_EQ(e.kind, 1u);

    const VQHANDLE notation = allocNode(doc, VQXML_NOTATION_NODE, ds(doc, "n"));
    rec<Notation>(notation)->externalID = createExternalID(doc);
    rec<ExternalID>(rec<Notation>(notation)->externalID)->systemId = ds(doc, "viewer");
    const VQHANDLE notationCopy = VQDOM_cloneNodeDoc(notation, 0, target);
    EXPECT_EQ(str(VQDOM_getSystemID(notationCopy)), "viewer");

    const VQHANDLE edecl = createElementDecl(doc, ds(doc, "e"));
    rec<ElementDecl>(edecl)->contentType = 4;
    const VQHANDLE cp = add(edecl, createCpChildren(doc));
    rec<CpChildren>(cp)->separator = '|';
    rec<CpChildren>(cp)->occurrence = '*';
    const VQHANDLE edeclCopy = VQDOM_cloneNodeDoc(edecl, 1, target);
    EXPECT_EQ(rec<ElementDecl>(edeclCopy)->contentType, 4);
    const VQHANDLE cpCopy = node(edeclCopy)->firstChild;
    EXPECT_EQ(rec<CpChildren>(cpCopy)->separator, '|');
    EXPECT_EQ(rec<CpChildren>(cpCopy)->occurrence, '*');
    EXPECT_EQ(VQDOM_getNodeName(cpCopy), 0u);

    const VQHANDLE def = createAttDef(doc, ds(doc, "x"));
    rec<AttDef>(def)->attType = 9;
    rec<AttDef>(def)->defaultKind = 1;
    const VQHANDLE defCopy = VQDOM_cloneNodeDoc(def, 0, target);
    EXPECT_EQ(rec<AttDef>(defCopy)->attType, 9);
    EXPECT_EQ(rec<AttDef>(defCopy)->defaultKind, 1);

    // A document type always brings its declarations and its identifier.
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "r"));
    rec<DocumentType>(dt)->externalID = createExternalID(doc);
    rec<ExternalID>(rec<DocumentType>(dt)->externalID)->systemId = ds(doc, "r.dtd");
    add(dt, createElementDecl(doc, ds(doc, "r")));
    add(dt, comment());
    const VQHANDLE dtCopy = VQDOM_cloneNodeDoc(dt, 0, target);
    EXPECT_EQ(kids(dtCopy), "r #comment");
    EXPECT_EQ(str(rec<ExternalID>(rec<DocumentType>(dtCopy)->externalID)->systemId), "r.dtd");

    // Values travel for every type but attributes; an element may have one.
    const VQHANDLE withValue = elem("v");
    VQDOM_setNodeValue(withValue, ds(doc, "val"));
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_cloneNodeDoc(withValue, 0, target))), "val");
    const VQHANDLE pi = VQDOM_createProcessingInstruction(doc, ds(doc, "t"), ds(doc, "d"));
    const VQHANDLE piCopy = VQDOM_cloneNode(pi, 0);
    EXPECT_EQ(str(VQDOM_getTarget(piCopy)) + str(VQDOM_getDataPI(piCopy)), "td");
    EXPECT_NE(VQDOM_getDataPI(piCopy), VQDOM_getDataPI(pi));

    // An attribute copied on its own keeps its flag and children; its value
    // string is not copied.
    const VQHANDLE a = attr("a");
    add(a, text("one"));
    getNormalValue(a, 1);
    rec<Attr>(a)->specified = 0;
    const VQHANDLE deepA = VQDOM_cloneNode(a, 1);
    EXPECT_EQ(VQDOM_getSpecified(deepA), 0);
    EXPECT_EQ(kids(deepA), "'one'");
    EXPECT_EQ(VQDOM_getNodeValue(deepA), 0u);
    EXPECT_EQ(VQDOM_getFirstChild(VQDOM_cloneNode(a, 0)), 0u);

    // Copies are unlinked; bad handles give nothing.
    const VQHANDLE p = elem("p");
    const VQHANDLE child = add(p, text("c"));
    const VQHANDLE childCopy = VQDOM_cloneNode(child, 1);
    EXPECT_EQ(node(childCopy)->parentNode | node(childCopy)->nextSibling, 0u);
    EXPECT_EQ(VQDOM_cloneNode(0, 1) | VQDOM_cloneNodeDoc(p, 1, 0), 0u);
    EXPECT_EQ(VQDOM_cloneNodeDoc(0, 1, target), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(DomConformanceTest, CloneOfADocument) {
    const VQHANDLE decl = createXmlDecl(doc);
    rec<XmlDecl>(decl)->version = ds(doc, "1.0");
    rec<XmlDecl>(decl)->standalone = ds(doc, "yes");
    rec<Document>(doc)->xmlDecl = decl;
    declare(doc, "root", "d", kCdata, "dv");
    const VQHANDLE root = add(doc, elem("root"));
    set(root, "s", "sv");
    add(root, text("t"));

    const VQHANDLE shallow = VQDOM_cloneNode(doc, 0);
    EXPECT_EQ(node(shallow)->firstChild, 0u);
    const VQHANDLE copiedDecl = rec<Document>(shallow)->xmlDecl;
    ASSERT_NE(copiedDecl, decl);
    EXPECT_EQ(str(rec<XmlDecl>(copiedDecl)->version), "1.0");
    EXPECT_EQ(rec<XmlDecl>(copiedDecl)->encoding, 0u);
    EXPECT_EQ(str(rec<XmlDecl>(copiedDecl)->standalone), "yes");
    EXPECT_EQ(rec<XmlDecl>(copiedDecl)->version & 255, shallow & 255);
    EXPECT_EQ(str(VQDOM_getNodeName(shallow)), "#document");

    // Deep: the document type comes first, so the copied element takes its
    // defaults from the copy's own declarations.
    const VQHANDLE deep = VQDOM_cloneNode(doc, 1);
    const VQHANDLE rootCopy = VQDOM_getDocumentElement(deep);
    EXPECT_NE(VQDOM_getDoctype(deep), 0u);
    EXPECT_EQ(attrs(rootCopy), "d~dv s=sv");
    EXPECT_EQ(node(VQDOM_getAttributeNodeStr(rootCopy, "d"))->ownerDocument, deep);
    EXPECT_EQ(kids(rootCopy), "'t'");
    EXPECT_EQ(rec<Document>(VQDOM_cloneNode(other, 1))->xmlDecl, 0u);

    // A parsed document copies the same way.
    const VQHANDLE parsed = VQXML_parse("<!DOCTYPE r [<!ATTLIST r a CDATA \"x\">]><r c=\"1\"/>");
    ASSERT_NE(parsed, 0u);
    EXPECT_EQ(attrs(VQDOM_getDocumentElement(parsed)), "a~x c=1");
    EXPECT_EQ(attrs(VQDOM_getDocumentElement(VQDOM_cloneNode(parsed, 1))), "a~x c=1");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(DomConformanceTest, CloneRecomputesAttributeValuesForTheTarget) {
    declare(doc, "e", "d", kCdata, "dflt");
    const VQHANDLE e = elem("e");
    set(e, "y", " p  q ");
    // The value string is rebuilt from the children, not copied.
    const VQHANDLE y = VQDOM_getAttributeNodeStr(e, "y");
    VQDOM_deleteDS(node(y)->nodeValue);
    node(y)->nodeValue = ds(doc, "stale");

    // A target without declarations: no defaults, no folding.
    EXPECT_EQ(attrs(VQDOM_cloneNodeDoc(e, 0, other)), "y= p  q ");
    // The source's own document: its defaults, values rebuilt.
    EXPECT_EQ(attrs(VQDOM_cloneNode(e, 0)), "d~dflt y= p  q ");
    EXPECT_EQ(str(VQDOM_getNodeValue(y)), "stale");

    // A given attribute displaces the target's default of its name and
    // goes behind the other defaults; its value folds as declared there.
    const VQHANDLE folding = VQDOM_createDocument();
    declare(folding, "e", "y", kNmtoken, "dy");
    declare(folding, "e", "z", kCdata, "dz");
    EXPECT_EQ(attrs(VQDOM_cloneNodeDoc(e, 0, folding)), "z~dz y=p q");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- normalisation and values ------------------------------------------------------

TEST_F(DomConformanceTest, NormalizeTouchesOnlyElementChildren) {
    const VQHANDLE e = elem("e");
    const VQHANDLE a = attr("a");
    add(a, text("x"));
    add(a, text("y"));
    VQDOM_setAttributeNode(e, a);
    const VQHANDLE t1 = add(e, text("1"));
    const VQHANDLE t2 = add(e, text("2"));
    const VQHANDLE ref = add(e, VQDOM_createEntityReference(doc, ds(doc, "r")));
    add(ref, text("r1"));
    add(ref, text("r2"));
    add(e, text("3"));
    add(e, comment());
    add(e, text("4"));

    EXPECT_EQ(VQDOM_normalize(e), 0);
    EXPECT_EQ(kids(e), "'12' r '3' #comment '4'");
    EXPECT_FALSE(alive(t2));
    EXPECT_EQ(node(e)->firstChild, t1);
    EXPECT_EQ(kids(ref), "'r1' 'r2'");  // references are not entered
    EXPECT_EQ(kids(a), "'x' 'y'");      // nor attribute maps

    // An attribute given directly has its own text children merged.
    EXPECT_EQ(VQDOM_normalize(a), 0);
    EXPECT_EQ(kids(a), "'xy'");
    EXPECT_EQ(VQDOM_normalize(0), 0);

    // A text node without a value takes the others' through the append,
    // which reports the missing value.
    const VQHANDLE f = elem("f");
    const VQHANDLE bare = add(f, text("z"));
    VQDOM_deleteDS(node(bare)->nodeValue);
    node(bare)->nodeValue = 0;
    const VQHANDLE follower = add(f, text("w"));
    const VQHANDLE followerValue = VQDOM_getNodeValue(follower);
    VQDOM_normalize(f);
    EXPECT_FALSE(alive(follower) || alive(followerValue));
    EXPECT_EQ(node(f)->firstChild, node(f)->lastChild);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNullPointer, "appendData|"}}));
}

TEST_F(DomConformanceTest, SetNodeValueRules) {
    const VQHANDLE c = comment();
    const VQHANDLE oldValue = VQDOM_getNodeValue(c);
    VQDOM_setNodeValue(c, 0);
    EXPECT_EQ(VQDOM_getNodeValue(c), oldValue);
    const VQHANDLE fresh = ds(doc, "new");
    VQDOM_setData(c, fresh);
    EXPECT_EQ(VQDOM_getNodeValue(c), fresh);
    EXPECT_FALSE(alive(oldValue));
    const VQHANDLE dropped = ds(doc, "x");
    VQDOM_setValue(0, dropped);
    EXPECT_FALSE(alive(dropped));
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // An attribute: its children give way to one text child that holds the
    // given DS itself; the value is rebuilt from it, blanks kept whatever
    // the declared type.
    declare(doc, "e", "a", kNmtoken, nullptr);
    const VQHANDLE e = elem("e");
    set(e, "a", "old");
    const VQHANDLE a = VQDOM_getAttributeNodeStr(e, "a");
    const VQHANDLE oldChild = VQDOM_getFirstChild(a);
    rec<Attr>(a)->specified = 0;
    const VQHANDLE v = ds(doc, "  p  q ");
    VQDOM_setNodeValue(a, v);
    EXPECT_FALSE(alive(oldChild));
    const VQHANDLE child = VQDOM_getFirstChild(a);
    EXPECT_EQ(VQDOM_getNodeValue(child), v);
    EXPECT_EQ(VQDOM_getNextSibling(child), 0u);
    EXPECT_NE(VQDOM_getNodeValue(a), v);
    EXPECT_EQ(str(VQDOM_getValue(a)), "  p  q ");
    EXPECT_EQ(VQDOM_getSpecified(a), 1);

    // A value of another document changes nothing.
    const VQHANDLE foreign = ds(other, "f");
    VQDOM_setNodeValue(a, foreign);
    EXPECT_FALSE(alive(foreign));
    EXPECT_EQ(str(VQDOM_getValue(a)), "  p  q ");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kWrongDoc, "setNodeValue|"}}));
}

// ---- maps and lists -------------------------------------------------------------------

TEST_F(DomConformanceTest, NamedMapOperations) {
    const VQHANDLE e = elem("e");
    set(e, "a", "1");
    set(e, "b", "2");
    set(e, "c", "3");
    const VQHANDLE map = VQDOM_getAttributes(e);
    const VQHANDLE oldB = VQDOM_getNamedItemStr(map, "b");

    // The displaced node comes back unlinked and alive; the new one goes
    // to the end.
    const VQHANDLE newB = attr("b");
    VQDOM_setNodeValue(newB, ds(doc, "4"));
    EXPECT_EQ(VQDOM_setNamedItem(map, newB), oldB);
    EXPECT_TRUE(alive(oldB));
    EXPECT_EQ(node(oldB)->containingMap, 0u);
    EXPECT_EQ(attrs(e), "a=1 c=3 b=4");
    EXPECT_EQ(VQDOM_setAttributeNode(elem("f"), oldB), 0u);  // free to go elsewhere

    // Entering an attribute already in this very map is refused; it stays.
    EXPECT_EQ(VQDOM_setNamedItem(map, newB), 0u);
    EXPECT_EQ(attrs(e), "a=1 c=3 b=4");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kInuse, ""}}));
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
    EXPECT_EQ(VQDOM_removeNamedItem(0, ds(doc, "a")) | VQDOM_removeNamedItemStr(0, "a"), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_EQ(VQDOM_removeNamedItemStr(map, "zz"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNotFound, ""}}));
    const VQHANDLE a = VQDOM_removeNamedItemStr(map, "a");
    EXPECT_EQ(str(VQDOM_getNodeName(a)), "a");
    EXPECT_EQ(attrs(e), "c=3 b=4");

    // Other members than attributes may move between maps.
    const VQHANDLE dt = add(doc, createDocumentType(doc, ds(doc, "r")));
    const VQHANDLE entities = VQDOM_getEntities(dt);
    const VQHANDLE first = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "ent"));
    const VQHANDLE second = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "ent"));
    EXPECT_EQ(VQDOM_setNamedItem(entities, first), 0u);
    EXPECT_EQ(VQDOM_setNamedItem(entities, second), first);
    EXPECT_EQ(VQDOM_getLengthMap(entities), 1u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(DomConformanceTest, AttributeOperations) {
    const VQHANDLE e = elem("e");
    set(e, "a", "hello");
    const VQHANDLE a = VQDOM_getAttributeNodeStr(e, "a");
    const VQHANDLE name = ds(doc, "a");
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
    const VQHANDLE n1 = ds(doc, "x"), v1 = ds(doc, "1");
    VQDOM_setAttribute(0, n1, v1);
    const VQHANDLE n2 = ds(doc, "1x"), v2 = ds(doc, "2");
    VQDOM_setAttribute(e, n2, v2);
    const VQHANDLE n3 = ds(other, "x"), v3 = ds(doc, "3");
    VQDOM_setAttribute(e, n3, v3);
    for (VQHANDLE h : {n1, v1, n2, v2, n3, v3}) EXPECT_FALSE(alive(h));
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001750, "0x31|"},
                                           {kBadChar, "0x31|1x|"},
                                           {kWrongDoc, "createAttribute|"}}));

    // A value from another document leaves the new attribute in place with
    // no value; the attribute it displaced is gone all the same.
    const VQHANDLE foreign = ds(other, "f");
    VQDOM_setAttribute(e, ds(doc, "a"), foreign);
    EXPECT_FALSE(alive(a) || alive(foreign));
    const VQHANDLE bare = VQDOM_getAttributeNodeStr(e, "a");
    ASSERT_NE(bare, 0u);
    EXPECT_EQ(VQDOM_getNodeValue(bare) | VQDOM_getFirstChild(bare), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kWrongDoc, "setNodeValue|"}}));

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
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNotFound, ""}, {kNotFound, ""}, {kNotFound, ""}}));
}

TEST_F(DomConformanceTest, DefaultAttributes) {
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "e"));
    add(doc, dt);
    // Declarations brought in by a parameter entity hang below its
    // reference; they count in document order.
    declare(doc, "e", "first", kCdata, "1");
    const VQHANDLE pe = add(dt, VQDOM_createEntityReference(doc, ds(doc, "pe")));
    declare(doc, "e", "inner", kCdata, "2", pe);
    declare(doc, "e", "required", kCdata, nullptr);
    declare(doc, "e", "last", kCdata, "3");
    declare(doc, "f", "other", kCdata, "5");

    const VQHANDLE e = elem("e");
    EXPECT_EQ(attrs(e), "first~1 inner~2 last~3");
    const VQHANDLE first = VQDOM_getAttributeNodeStr(e, "first");
    EXPECT_EQ(node(first)->ownerDocument, doc);
    EXPECT_EQ(kids(first), "'1'");

    // A default replaces an attribute of its name.
    set(e, "first", "mine");
    const VQHANDLE mine = VQDOM_getAttributeNodeStr(e, "first");
    setDefaultAttribute(e, findAttDef(doc, "e", "first"));
    EXPECT_FALSE(alive(mine));
    EXPECT_EQ(attrs(e), "inner~2 last~3 first~1");
    // A definition without a default adds nothing.
    setDefaultAttribute(e, findAttDef(doc, "e", "required"));
    EXPECT_EQ(VQDOM_getLengthMap(VQDOM_getAttributes(e)), 3u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(DomConformanceTest, NormalValueBoundaries) {
    // Stopped before anything was gathered: a new empty value, result 0.
    const VQHANDLE a = attr("a");
    add(a, text("stale"));
    getNormalValue(a, 1);
    VQDOM_deleteNode(VQDOM_getFirstChild(a));
    node(a)->firstChild = node(a)->lastChild = 0;
    const VQHANDLE c = comment();
    node(a)->firstChild = node(a)->lastChild = c;
    node(c)->parentNode = a;
    EXPECT_EQ(getNormalValue(a, 0), 0);
    EXPECT_TRUE(alive(VQDOM_getNodeValue(a)));
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "");

    // Folding: blanks only, at both ends and in runs.
    const VQHANDLE b = attr("b");
    add(b, text("  ab   cd "));
    EXPECT_EQ(getNormalValue(b, 0), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(b)), "ab cd");
    const VQHANDLE blanks = attr("c");
    add(blanks, text("    "));
    EXPECT_EQ(getNormalValue(blanks, 0), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(blanks)), "");
    const VQHANDLE lines = attr("d");
    add(lines, text("\n a \r\n"));
    EXPECT_EQ(getNormalValue(lines, 0), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(lines)), "\n a \r\n");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- character data -----------------------------------------------------------------

TEST_F(DomConformanceTest, CharacterDataReportsAndNoOps) {
    const VQHANDLE e = elem("e");  // a node without a value
    EXPECT_EQ(VQDOM_substringData(e, 0, 1), 0u);
    VQDOM_appendDataStr(e, "x");
    VQDOM_insertDataStr(e, 0, "x");
    VQDOM_deleteData(e, 0, 1);
    VQDOM_appendDataStr(e, nullptr);
    VQDOM_insertDataStr(e, 0, nullptr);
    EXPECT_EQ(VQDOM_getLengthData(e), 0);
    EXPECT_EQ(VQDOM_substringData(0, 0, 1), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNullPointer, "substringData|"},
                                           {kNullPointer, "appendDS|"},
                                           {kNullPointer, "insertDataStr|"},
                                           {kNullPointer, "substringData|"}}));
    EXPECT_EQ(message(kNullPointer, "substringData|"),
              "DOM error: function \"substringData\" called with null pointer");

    // Splitting a node without a value fails in the substring step.
    EXPECT_EQ(VQDOM_splitText(e, 0), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNullPointer, "substringData|"}}));

    // Replacing by nothing past the end: the deletion reports the index,
    // then the missing data is reported.
    const VQHANDLE t = text("hello");
    VQDOM_replaceData(t, 6, 1, 0);
    EXPECT_EQ(str(VQDOM_getData(t)), "hello");
    const Errs errs = vqtest::drainErrors();
    EXPECT_EQ(errs, (Errs{{kIndexSize, "5|6|"}, {kNullPointer, "replaceData|"}}));
    EXPECT_EQ(message(kIndexSize, "5|6|"), "DOM error: INDEX_SIZE_ERR stringsize: 5, offset: 5");
    VQDOM_replaceData(e, 0, 1, 0);
    VQDOM_replaceData(0, 0, 1, 0);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kNullPointer, "replaceData|"}}));

    // A PI keeps its data when given none.
    const VQHANDLE pi = VQDOM_createProcessingInstruction(doc, ds(doc, "t"), ds(doc, "d"));
    const VQHANDLE piData = VQDOM_getDataPI(pi);
    VQDOM_setDataPI(pi, 0);
    EXPECT_EQ(VQDOM_getDataPI(pi), piData);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(DomConformanceTest, CharacterDataEditsAtTheEdges) {
    const VQHANDLE t = text("hello");
    EXPECT_EQ(VQDOM_getLengthData(t), 5);
    const VQHANDLE sub = VQDOM_substringData(t, 0, 5);
    EXPECT_EQ(str(sub), "hello");
    EXPECT_NE(sub, VQDOM_getData(t));
    EXPECT_EQ(sub & 255, doc & 255);

    VQDOM_replaceData(t, 5, 0, ds(doc, "!"));
    VQDOM_replaceData(t, 0, 0, ds(doc, "<"));
    EXPECT_EQ(str(VQDOM_getData(t)), "<hello!");
    VQDOM_replaceData(t, 1, 5, ds(doc, ""));
    EXPECT_EQ(str(VQDOM_getData(t)), "<!");
    VQDOM_deleteData(t, 0, 0);
    VQDOM_deleteData(t, 2, 5);
    EXPECT_EQ(str(VQDOM_getData(t)), "<!");
    VQDOM_insertDataStr(t, 2, "end");
    VQDOM_insertData(t, 0, ds(doc, "["));
    EXPECT_EQ(str(VQDOM_getData(t)), "[<!end");
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // Splitting raw text gives plain text; splitting a loose comment links
    // the tail behind it with no parent.
    const VQHANDLE raw = text("ab");
    VQDOM_setRawXml(raw);
    EXPECT_EQ(rec<Text>(raw)->rawXml, 1u);
    const VQHANDLE tail = VQDOM_splitText(raw, 1);
    EXPECT_EQ(rec<Text>(tail)->rawXml, 0u);
    EXPECT_EQ(rec<Text>(raw)->rawXml, 1u);
    const VQHANDLE c = VQDOM_createComment(doc, ds(doc, "xy"));
    const VQHANDLE cTail = VQDOM_splitText(c, 1);
    EXPECT_EQ(VQDOM_getNodeType(cTail), VQXML_TEXT_NODE);
    EXPECT_EQ(str(VQDOM_getNodeName(cTail)), "#text");
    EXPECT_EQ(str(VQDOM_getData(c)) + "|" + str(VQDOM_getData(cTail)), "x|y");
    EXPECT_EQ(node(cTail)->parentNode, 0u);
    EXPECT_EQ(node(cTail)->previousSibling, c);
    EXPECT_EQ(node(c)->nextSibling, cTail);

    // Attributes answer the attribute accessors.
    const VQHANDLE e = elem("e");
    set(e, "k", "v");
    const VQHANDLE a = VQDOM_getAttributeNodeStr(e, "k");
    EXPECT_EQ(str(VQDOM_getName(a)) + "=" + str(VQDOM_getValue(a)), "k=v");
    EXPECT_EQ(VQDOM_getSpecified(a), 1);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// A replacement on a node without a value has nothing to report: only a
// missing replacement text is a null pointer. The library reports it too.
TEST_F(DomConformanceTest, ReplaceDataOnANodeWithoutValueReportsNothing) {
    const VQHANDLE e = elem("e");
    const VQHANDLE data = ds(doc, "r");
    VQDOM_replaceData(e, 0, 1, data);
    EXPECT_FALSE(alive(data));
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

}  // namespace
