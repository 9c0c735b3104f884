// node_test.cpp - node records: the allocator and its starting values,
// typed access, document creation and numbering, and the searches over a
// tree (filtered lists, the declarations of a document type).
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::ds;
using vqtest::Err;
using vqtest::str;
using Errs = std::vector<Err>;

class NodeTest : public vqtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = VQDOM_createDocument();
        ASSERT_NE(doc, 0u);
    }
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
    VQHANDLE doc = 0;
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

TEST_F(NodeTest, AllocNodeStartingValuesAndFailures) {
    EXPECT_EQ(toPAttr(allocNode(doc, VQXML_ATTRIBUTE_NODE, 0))->specified, 1u);
    EXPECT_EQ(toPText(allocNode(doc, VQXML_TEXT_NODE, 0))->rawXml, 0u);
    EXPECT_EQ(toPCpChildren(allocNode(doc, VQXML_CP_CHILDREN_NODE, 0))->separator, 255);
    const int32_t before = docHead[1]->dbgSize;
    VQHANDLE e = allocNode(doc, VQXML_ENTITY_NODE, 0);
    EXPECT_EQ(docHead[1]->dbgSize - before, 80);  // the full 68-byte record
    EXPECT_EQ(vqxml::node(e)->ownerDocument, doc);
    EXPECT_TRUE(vqtest::drainErrors().empty());

    VQHANDLE name = ds(doc, "e");
    ASSERT_NE(VQDOM_createDS(doc, std::string(17000, 'f').c_str()), 0u);
    dontRealloc[1] = 1;
    while (myAlloc(doc, 1) != 0) {
    }
    EXPECT_EQ(allocNode(doc, VQXML_ENTITY_NODE, name), 0u);
    EXPECT_FALSE(vqxml::liveHandle(name));  // the name goes with the failure
    EXPECT_EQ(allocNode(doc, 42, 0), 0u);
    EXPECT_EQ(createNamedNodeMap(doc), 0u);
    EXPECT_EQ(createNodeList(doc), 0u);
    EXPECT_EQ(createXmlDecl(doc), 0u);
    EXPECT_EQ(createExternalID(doc), 0u);
    EXPECT_EQ(vqtest::drainDomErrors(),
              (Errs{{11, "Entity|48|"}, {11, "???|48|"}, {11, "NamedNodeMap|12|"},
                    {11, "NodeList|20|"}, {11, "XmlDecl|16|"}, {11, "ExternalID|12|"}}));
}

TEST_F(NodeTest, TypedAccessorsReportAWrongTypeAndGoOn) {
    VQHANDLE attr = allocNode(doc, VQXML_ATTRIBUTE_NODE, 0);
    VQHANDLE cdata = allocNode(doc, VQXML_CDATA_SECTION_NODE, 0);
    EXPECT_EQ(static_cast<void *>(toPElement(attr)), toPNode(attr));
    EXPECT_EQ(static_cast<void *>(toPCharacterData(cdata)), toPNode(cdata));
    toPAttr(attr);
    toPDocument(doc);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001749, "2|1|"}, {1001749, "4|3|"}}));
    EXPECT_EQ(vqtest::message(1001749, "2|1|"), "invalid nodetype detected: 2, should be 1");

    // A caller that skipped the check gets a blank record, not a crash.
    toPElement(0xdead01)->node.firstChild = 7;
    EXPECT_EQ(toPElement(0)->node.firstChild, 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(NodeTest, DeletingRecordsTakesTheirStrings) {
    const int32_t live = docHead[1]->dbgHandles;
    VQHANDLE decl = createXmlDecl(doc);
    toPXmlDecl(decl)->version = ds(doc, "1.0");
    toPXmlDecl(decl)->standalone = ds(doc, "yes");
    deleteXmlDecl(decl);
    VQHANDLE id = createExternalID(doc);
    toPExternalID(id)->systemId = ds(doc, "a.dtd");
    deleteExternalID(id);
    EXPECT_EQ(docHead[1]->dbgHandles, live);
    deleteXmlDecl(decl);  // stale: ignored
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(NodeTest, DocumentElementAndDoctype) {
    add(doc, VQXML_COMMENT_NODE, nullptr);
    VQHANDLE dt = add(doc, VQXML_DOCUMENT_TYPE_NODE, "root");
    VQHANDLE root = add(doc, VQXML_ELEMENT_NODE, "root");
    add(doc, VQXML_ELEMENT_NODE, "second");
    EXPECT_EQ(VQDOM_getDocumentElement(doc), root);
    EXPECT_EQ(VQDOM_getDoctype(doc), dt);
    EXPECT_EQ(VQDOM_getDoctype(root), 0u);
    EXPECT_EQ(VQDOM_getDocumentElement(0x7777702), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());  // accessors stay quiet
}

TEST_F(NodeTest, DeclarationWalkDescendsOnlyOnTheWayIn) {
    // DOCTYPE: e1, %r1;(e2, %r2;(e3), e4), %r3;(e6), e7, %r4;(e8)
    VQHANDLE dt = add(doc, VQXML_DOCUMENT_TYPE_NODE, "d");
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

}  // namespace
