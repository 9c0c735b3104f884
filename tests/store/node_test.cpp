// node_test.cpp - node records: document creation and numbering, record
// sizes and starting values, typed access, allocation failures, and the
// searches over a tree (filtered lists, the declarations of a document type)
// and the bounded walks.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace {

using namespace vqxml::codes;

using vqtest::ds;
using vqtest::Err;
using vqtest::str;
using Errs = std::vector<Err>;

class NodeTest : public vqtest::DocumentTest {
protected:
    // A new node appended to `parent` by setting the links directly, so
    // that these tests do not depend on the tree functions of the DOM.
    VQHANDLE add(VQHANDLE parent, int type, const char *name) {
        VQHANDLE child = allocNode(doc, type, name != nullptr ? ds(doc, name) : 0);
        Node *c = vqxml::node(child);
        Node *p = vqxml::node(parent);
        c->parentNode = parent;
        if (p->lastChild != 0) vqxml::node(p->lastChild)->nextSibling = child;
        else p->firstChild = child;
        p->lastChild = child;
        return child;
    }
};

TEST_F(NodeTest, CreateDocumentTakesTheLowestFreeNumber) {
    EXPECT_EQ(doc, 0x101u);
    ASSERT_NE(allocMemDocArea, nullptr);
    EXPECT_EQ(allocMemDocArea->DocHandle, doc);
    const Node *n = vqxml::node(doc);
    EXPECT_EQ(n->nodeType, VQXML_DOCUMENT_NODE);
    EXPECT_EQ(n->ownerDocument, doc);
    EXPECT_EQ(str(n->nodeName), "#document");
    EXPECT_EQ(toPNodeList(n->childNodes)->owner, doc);

    EXPECT_EQ(VQDOM_createDocument() & 255, 2u);
    VQXML_deleteDocumentArea(doc);
    EXPECT_EQ(VQDOM_createDocument(), 0x101u);
    EXPECT_EQ(VQDOM_getImplementation(doc), doc);  // the document itself
}

#define ACCESSOR(f) [](VQHANDLE h) -> void * { return f(h); }
const struct TypeRow {
    int type;
    const char *name;
    int recordSize;
    void *(*accessor)(VQHANDLE);
} kTypes[] = {
    {1, "Element", 48, ACCESSOR(toPElement)}, {2, "Attr", 52, ACCESSOR(toPAttr)},
    {3, "Text", 52, ACCESSOR(toPText)}, {4, "CDATASection", 48, ACCESSOR(toPCDATASection)},
    {5, "EntityReference", 52, ACCESSOR(toPEntityReference)}, {6, "Entity", 68, ACCESSOR(toPEntity)},
    {7, "ProcessingInstruction", 48, ACCESSOR(toPProcessingInstruction)}, {8, "Comment", 48, ACCESSOR(toPComment)},
    {9, "Document", 52, ACCESSOR(toPDocument)}, {10, "DocumentType", 60, ACCESSOR(toPDocumentType)},
    {11, "DocumentFragment", 48, ACCESSOR(toPDocumentFragment)}, {12, "Notation", 52, ACCESSOR(toPNotation)},
    {13, "ElementDecl", 52, ACCESSOR(toPElementDecl)}, {14, "AttlistDecl", 48, ACCESSOR(toPAttlistDecl)},
    {15, "AttDef", 52, ACCESSOR(toPAttDef)}, {16, "CpChildren", 52, ACCESSOR(toPCpChildren)},
    {17, "NameList", 48, ACCESSOR(toPNameList)}, {3, "Text", 52, ACCESSOR(toPCharacterData)},
};
#undef ACCESSOR

TEST_F(NodeTest, RecordSizesAccessorsAndFailures) {
    // The block a request takes: payload and header, rounded up to 8.
    auto blockOf = [&](auto create) {
        const int32_t before = docHead[1]->dbgSize;
        create();
        return docHead[1]->dbgSize - before - 8;
    };
    for (const TypeRow &row : kTypes) {
        SCOPED_TRACE(row.name);
        VQHANDLE own = 0;
        EXPECT_EQ(blockOf([&] { own = allocNode(doc, row.type, 0); }), (row.recordSize + 7) / 8 * 8);
        EXPECT_EQ(vqxml::node(own)->ownerDocument, doc);
        EXPECT_EQ(row.accessor(own), toPNode(own));
        EXPECT_TRUE(vqtest::drainErrors().empty());
        // A node of another type is reported and handed out all the same.
        const int other = row.type % 17 + 1;
        const VQHANDLE foreign = allocNode(doc, other, 0);
        EXPECT_EQ(row.accessor(foreign), toPNode(foreign));
        EXPECT_EQ(vqtest::drainErrors(),
                  (Errs{{kInvalidNodeType, std::to_string(other) + "|" + std::to_string(row.type) + "|"}}));
    }
    // Unknown types get an element-sized record; then the other records.
    for (int unknown : {0, 18, 1000}) EXPECT_EQ(blockOf([&] { allocNode(doc, unknown, 0); }), 48) << unknown;
    EXPECT_EQ(blockOf([&] { createNamedNodeMap(doc); }), 16);
    EXPECT_EQ(blockOf([&] { createNodeList(doc); }), 24);
    EXPECT_EQ(blockOf([&] { createXmlDecl(doc); }), 16);
    EXPECT_EQ(blockOf([&] { createExternalID(doc); }), 16);
    // Starting values that differ from zero.
    EXPECT_EQ(toPAttr(allocNode(doc, VQXML_ATTRIBUTE_NODE, 0))->specified, 1u);
    EXPECT_EQ(toPText(allocNode(doc, VQXML_TEXT_NODE, 0))->rawXml, 0u);
    EXPECT_EQ(toPCpChildren(allocNode(doc, VQXML_CP_CHILDREN_NODE, 0))->separator, 255);
    // A caller that skipped the check gets a blank record, not a crash.
    toPElement(0xdead01)->node.firstChild = 7;
    EXPECT_EQ(toPElement(0)->node.firstChild, 0u);
    // Deleting a declaration or an ID takes its strings; a stale one is ignored.
    const int32_t live = docHead[1]->dbgHandles;
    VQHANDLE decl = createXmlDecl(doc);
    toPXmlDecl(decl)->version = ds(doc, "1.0");
    toPXmlDecl(decl)->standalone = ds(doc, "yes");
    deleteXmlDecl(decl);
    VQHANDLE id = createExternalID(doc);
    toPExternalID(id)->systemId = ds(doc, "a.dtd");
    deleteExternalID(id);
    EXPECT_EQ(docHead[1]->dbgHandles, live);
    deleteXmlDecl(decl);
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // Out of room: every type reports its own name and the size 48; the
    // name handed in goes with the failure.
    const VQHANDLE name = ds(doc, "e");
    dontRealloc[1] = 1;
    while (myAlloc(doc, 1) != 0) {
    }
    Errs expected;
    for (int i = 0; i < 17; ++i) {
        EXPECT_EQ(allocNode(doc, kTypes[i].type, i == 5 ? name : 0), 0u);
        expected.push_back({11, std::string(kTypes[i].name) + "|48|"});
    }
    EXPECT_FALSE(vqxml::liveHandle(name));
    EXPECT_EQ(allocNode(doc, 42, 0), 0u);
    EXPECT_EQ(createNamedNodeMap(doc), 0u);
    EXPECT_EQ(createNodeList(doc), 0u);
    EXPECT_EQ(createXmlDecl(doc), 0u);
    EXPECT_EQ(createExternalID(doc), 0u);
    for (const char *rest : {"???|48|", "NamedNodeMap|12|", "NodeList|20|", "XmlDecl|16|", "ExternalID|12|"})
        expected.push_back({11, rest});
    EXPECT_EQ(vqtest::drainDomErrors(), expected);
}

TEST_F(NodeTest, DeclarationWalkDescendsOnlyOnTheWayIn) {
    // A comment, DOCTYPE, root and a second element below the document;
    // DOCTYPE: e1, %r1;(e2, %r2;(e3), e4), %r3;(e6), e7, %r4;(e8)
    add(doc, VQXML_COMMENT_NODE, nullptr);
    VQHANDLE dt = add(doc, VQXML_DOCUMENT_TYPE_NODE, "d");
    VQHANDLE root = add(doc, VQXML_ELEMENT_NODE, "root");
    add(doc, VQXML_ELEMENT_NODE, "second");
    EXPECT_EQ(VQDOM_getDocumentElement(doc), root);
    EXPECT_EQ(VQDOM_getDoctype(doc), dt);
    EXPECT_EQ(VQDOM_getDoctype(root), 0u);
    EXPECT_EQ(VQDOM_getDocumentElement(0x7777702), 0u);
    VQHANDLE e1 = add(dt, VQXML_ENTITY_NODE, "e1");
    VQHANDLE r1 = add(dt, VQXML_ENTITY_REFERENCE_NODE, "r1");
    VQHANDLE e2 = add(r1, VQXML_ENTITY_NODE, "e2");
    VQHANDLE r2 = add(r1, VQXML_ENTITY_REFERENCE_NODE, "r2");
    VQHANDLE e3 = add(r2, VQXML_ENTITY_NODE, "e3");
    VQHANDLE e4 = add(r1, VQXML_ENTITY_NODE, "e4");
    VQHANDLE r3 = add(dt, VQXML_ENTITY_REFERENCE_NODE, "r3");
    VQHANDLE e6 = add(r3, VQXML_ENTITY_NODE, "e6");
    VQHANDLE e7 = add(dt, VQXML_ENTITY_NODE, "e7");
    VQHANDLE r4 = add(dt, VQXML_ENTITY_REFERENCE_NODE, "r4");
    VQHANDLE e8 = add(r4, VQXML_ENTITY_NODE, "e8");

    std::vector<VQHANDLE> seen;
    for (VQHANDLE e = getFirstMarkupDecl(dt, VQXML_ENTITY_NODE); e != 0; e = getNextMarkupDecl(e))
        seen.push_back(e);
    // Leaving r2 and r1, their following siblings are compared without
    // entering r3; from e7's own level r4 is entered again.
    EXPECT_EQ(seen, (std::vector<VQHANDLE>{e1, e2, e3, e4, e7, e8}));
    EXPECT_EQ(getFirstMarkupDecl(r3, VQXML_ENTITY_NODE), e6);

    // Lookups by name and kind, given the doctype or its document.
    vqxml::rec<Entity>(e4)->kind = 1;
    vqxml::rec<Entity>(e6)->kind = 1;
    vqxml::rec<Entity>(e7)->kind = 1;
    VQHANDLE name = ds(doc, "e7");
    EXPECT_EQ(findEntity(dt, name, 1), e7);
    EXPECT_EQ(findEntity(doc, name, 0), 0u);
    EXPECT_EQ(findEntityStr(doc, "e4"), e4);
    EXPECT_EQ(findEntityStr(dt, "e6"), 0u);  // hidden behind r3
    EXPECT_EQ(findEntityStr(dt, "e1"), 0u);  // a general entity
    EXPECT_EQ(getMarkupDecl(doc, VQXML_ENTITY_NODE, "e8"), e8);
    EXPECT_EQ(findEntityStr(0x4242401, "e4"), 0u);

    // Attribute definitions: the first ATTLIST of the element that has one.
    VQHANDLE l1 = add(dt, VQXML_ATTLIST_DECL_NODE, "item");
    add(l1, VQXML_NAME_LIST_NODE, "id");  // not a definition
    VQHANDLE id = add(l1, VQXML_ATT_DEF_NODE, "id");
    add(add(dt, VQXML_ATTLIST_DECL_NODE, "other"), VQXML_ATT_DEF_NODE, "kind");
    VQHANDLE l2 = add(dt, VQXML_ATTLIST_DECL_NODE, "item");
    VQHANDLE kind = add(l2, VQXML_ATT_DEF_NODE, "kind");
    add(l2, VQXML_ATT_DEF_NODE, "id");
    EXPECT_EQ(findAttDef(dt, "item", "id"), id);
    EXPECT_EQ(findAttDef(doc, "item", "kind"), kind);
    EXPECT_EQ(findAttDefDS(dt, ds(doc, "other"), ds(doc, "id")), 0u);
    EXPECT_EQ(findAttDefDS(0, ds(doc, "item"), ds(doc, "id")), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(NodeTest, FindItemCountsElementsInDocumentOrder) {
    // root(a(b, "t", c(b)), &r;(b), b)
    VQHANDLE root = add(doc, VQXML_ELEMENT_NODE, "root");
    VQHANDLE a = add(root, VQXML_ELEMENT_NODE, "a");
    VQHANDLE b1 = add(a, VQXML_ELEMENT_NODE, "b");
    add(a, VQXML_TEXT_NODE, nullptr);
    VQHANDLE c = add(a, VQXML_ELEMENT_NODE, "c");
    VQHANDLE b2 = add(c, VQXML_ELEMENT_NODE, "b");
    add(add(root, VQXML_ENTITY_REFERENCE_NODE, "r"), VQXML_ELEMENT_NODE, "b");  // not entered
    VQHANDLE b3 = add(root, VQXML_ELEMENT_NODE, "b");

    VQHANDLE list = createNodeList(root);
    toPNodeList(list)->tagName = ds(doc, "b");
    auto item = [&](int64_t i, VQHANDLE below) {
        toPNodeList(list)->count = 0;
        return findItem(list, i, below);
    };
    EXPECT_EQ(item(0, root), b1);
    EXPECT_EQ(item(1, root), b2);
    EXPECT_EQ(item(2, root), b3);
    EXPECT_EQ(item(-1, root), 0u);
    EXPECT_EQ(toPNodeList(list)->count, 3u);
    EXPECT_EQ(item(0, c), b2);
    toPNodeList(list)->tagName = ds(doc, "*");
    EXPECT_EQ(item(2, root), c);  // a, b, c

    // A deep chain is searched without recursion.
    VQHANDLE at = b3;
    for (int i = 0; i < 100000; ++i) at = add(at, VQXML_ELEMENT_NODE, "deep");
    EXPECT_EQ(item(100004, root), at);
}

TEST_F(NodeTest, WalksEndOnLinksThatLoop) {
    // root(a(b("t"))) with the inner nodes elements or references, then one
    // link bent into a loop: every walk ends, and says it ran out of steps.
    const std::vector<void (*)(Node *a, Node *b, VQHANDLE ha)> damages = {
        [](Node *a, Node *, VQHANDLE ha) { a->nextSibling = ha; },  // sibling chain
        [](Node *a, Node *, VQHANDLE) { a->parentNode = a->firstChild; },  // climbing
        [](Node *, Node *b, VQHANDLE ha) { b->firstChild = ha; },  // descending
    };
    for (int type : {VQXML_ELEMENT_NODE, VQXML_ENTITY_REFERENCE_NODE}) {
        for (size_t d = 0; d < damages.size(); ++d) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", damage " << d);
            const VQHANDLE root = add(doc, type, "root");
            const VQHANDLE a = add(root, type, "a");
            const VQHANDLE b = add(a, type, "b");
            VQHANDLE t = add(b, VQXML_TEXT_NODE, nullptr);
            vqxml::node(t)->nodeValue = ds(doc, "t");
            VQHANDLE gathered = 0;
            if (type == VQXML_ENTITY_REFERENCE_NODE) {
                ASSERT_EQ(getAttChildValue(root, &gathered), 1);
                EXPECT_EQ(str(gathered), "t");
            }
            damages[d](vqxml::node(a), vqxml::node(b), a);

            vqxml::TreeWalk walk(root);
            int64_t seen = 0;
            for (VQHANDLE h = walk.first(); h != 0; h = walk.next(h, true)) ++seen;
            EXPECT_TRUE(walk.tooManySteps());
            EXPECT_LE(seen, 2 * vqxml::walkBudget(root));
            EXPECT_EQ(getAttChildValue(root, &gathered), 0);
            VQHANDLE list = createNodeList(root);
            toPNodeList(list)->tagName = ds(doc, "*");
            findItem(list, -1, root);
            VQDOM_normalize(root);
        }
    }
}

}  // namespace
