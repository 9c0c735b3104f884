// node.cpp - node records: the node allocator, the typed accessors, the
// auxiliary records (maps, lists, XML declaration, external identifier),
// document creation, and the searches over a tree that the store offers to
// the DOM and the parser (filtered node lists, declarations of a DTD).
//
// None of the walks here recurse: they follow the parent, first-child and
// next-sibling links, so any tree depth is safe.
#include "vqxml/store/node.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/walk.h"

namespace vqxml {
namespace {

struct TypeInfo {
    const char *name;
    int32_t size;
};

// Indexed by node type code; 0 and codes past the table are unknown.
constexpr TypeInfo kTypes[] = {
    {"???", 48},
    {"Element", 48},
    {"Attr", 52},
    {"Text", 52},
    {"CDATASection", 48},
    {"EntityReference", 52},
    {"Entity", 68},
    {"ProcessingInstruction", 48},
    {"Comment", 48},
    {"Document", 52},
    {"DocumentType", 60},
    {"DocumentFragment", 48},
    {"Notation", 52},
    {"ElementDecl", 52},
    {"AttlistDecl", 48},
    {"AttDef", 52},
    {"CpChildren", 52},
    {"NameList", 48},
};
constexpr int32_t kTypeCount = static_cast<int32_t>(sizeof kTypes / sizeof kTypes[0]);

// A zeroed record handed out for a dead handle, so that a caller that
// forgot to check cannot read or write outside the area. Each call clears
// it again, so nothing written through it leaks into the next use.
template <typename T>
T *scratch() {
    static T record;
    record = T{};
    return &record;
}

void reportType(int found, int expected) {
    char params[32];
    std::snprintf(params, sizeof params, "%d|%d|", found, expected);
    addVqXmlError(kInvalidNodeType, params);
}

// The checked view behind every toP<Type> accessor: a wrong type is
// reported, and the record is returned all the same.
template <typename T, int Type>
T *typed(VQHANDLE h) {
    if (!liveHandle(h)) return scratch<T>();
    T *p = rec<T>(h);
    if (p->node.nodeType != Type) reportType(p->node.nodeType, Type);
    return p;
}

template <typename T>
T *aux(VQHANDLE h) {
    return liveHandle(h) ? rec<T>(h) : scratch<T>();
}

// An auxiliary record of `bytes`, cleared; on failure code 11 with `name`.
VQHANDLE allocRecord(VQHANDLE document, int32_t bytes, const char *name) {
    VQHANDLE h = myAlloc(document, bytes);
    if (h == 0) {
        errorAlloc(name, bytes);
        return 0;
    }
    std::memset(payload(h), 0, static_cast<size_t>(bytes));
    return h;
}

// First child of `parent` with the given type, 0 when none.
VQHANDLE firstChildOfType(VQHANDLE parent, int type) {
    if (typedNode(parent) == nullptr) return 0;
    if (VQHANDLE found; indexedChildOfType(parent, type, &found)) return found;
    StepBound steps(parent);
    for (VQHANDLE c = node(parent)->firstChild; steps.take() && typedNode(c) != nullptr; c = node(c)->nextSibling)
        if (node(c)->nodeType == type) return c;
    return 0;
}

// The declaration search over a sibling chain: the first node of `type`,
// looking one level into EntityReference nodes when `descend` is set (the
// declarations that a parameter entity brought in hang below its reference).
VQHANDLE searchDecls(VQHANDLE first, int type, bool descend) {
    StepBound steps(first);
    for (VQHANDLE h = first; steps.take() && typedNode(h) != nullptr; h = node(h)->nextSibling) {
        const Node *n = node(h);
        if (n->nodeType == type) return h;
        if (descend && n->nodeType == VQXML_ENTITY_REFERENCE_NODE) {
            VQHANDLE inner = n->firstChild;
            for (; steps.take() && typedNode(inner) != nullptr; inner = node(inner)->nextSibling)
                if (node(inner)->nodeType == type) return inner;
        }
    }
    return 0;
}

// The lookups accept the DocumentType or its Document.
VQHANDLE doctypeOf(VQHANDLE h) {
    if (typedNode(h) == nullptr) return 0;
    if (node(h)->nodeType == VQXML_DOCUMENT_NODE)
        return firstChildOfType(h, VQXML_DOCUMENT_TYPE_NODE);
    return h;
}

// Name tests of the lookups. They go through the public comparisons, so an
// invalid name handle is reported (and compares equal) as it would be for
// any other caller.
bool nameIs(VQHANDLE h, VQHANDLE nameDS) { return VQDOM_cmpDS(node(h)->nodeName, nameDS) == 0; }
bool nameIs(VQHANDLE h, const char *name) {
    return VQDOM_cmpDSStr(node(h)->nodeName, name) == 0;
}

bool viewOf(VQHANDLE nameDS, std::string_view *view) {
    if (!liveHandle(nameDS)) return false;
    *view = dsView(nameDS);
    return true;
}
bool viewOf(const char *name, std::string_view *view) {
    if (name == nullptr) return false;
    *view = name;
    return true;
}

template <typename Name>
VQHANDLE findAttDefIn(VQHANDLE doctype, Name elementName, Name attributeName) {
    VQHANDLE dt = doctypeOf(doctype);
    if (dt == 0) return 0;
    // While a parse runs an index answers, rather than a walk over all the
    // declarations for every lookup.
    std::string_view element, attribute;
    if (VQHANDLE found; viewOf(elementName, &element) && viewOf(attributeName, &attribute) &&
                        indexedAttDef(dt, element, attribute, &found))
        return found;
    StepBound steps(dt);
    for (VQHANDLE list = getFirstMarkupDecl(dt, VQXML_ATTLIST_DECL_NODE); list != 0 && steps.take();
         list = getNextMarkupDecl(list)) {
        if (!nameIs(list, elementName)) continue;
        for (VQHANDLE d = node(list)->firstChild; steps.take() && typedNode(d) != nullptr; d = node(d)->nextSibling)
            if (node(d)->nodeType == VQXML_ATT_DEF_NODE && nameIs(d, attributeName)) return d;
    }
    return 0;
}

}  // namespace

const char *nodeTypeName(int32_t type) {
    return type > 0 && type < kTypeCount ? kTypes[type].name : "???";
}

}  // namespace vqxml

using namespace vqxml;

extern "C" VQHANDLE allocNode(VQHANDLE document, int32_t type, VQHANDLE nameDS) {
    const int32_t size = nodeRecordSize(type);
    VQHANDLE h = myAlloc(document, size);
    if (h == 0) {
        // The report names 48 bytes whatever the record's size: callers
        // and their logs have always seen that figure.
        errorAlloc(nodeTypeName(type), 48);
        VQDOM_deleteDS(nameDS);
        return 0;
    }
    std::memset(payload(h), 0, static_cast<size_t>(size));
    Node *n = node(h);
    n->ownerDocument = document;
    n->nodeType = static_cast<uint16_t>(type);
    n->nodeName = nameDS;
    // Type-specific starting values: an attribute made by a caller is
    // explicit, and a content particle has no separator until the DTD
    // parser has seen one.
    if (type == VQXML_ATTRIBUTE_NODE) rec<Attr>(h)->specified = 1;
    if (type == VQXML_CP_CHILDREN_NODE) rec<CpChildren>(h)->separator = 255;
    return h;
}

extern "C" Element *toPElement(VQHANDLE h) { return typed<Element, 1>(h); }
extern "C" Attr *toPAttr(VQHANDLE h) { return typed<Attr, 2>(h); }
extern "C" Text *toPText(VQHANDLE h) { return typed<Text, 3>(h); }
extern "C" CharacterData *toPCharacterData(VQHANDLE h) { return typed<Text, 3>(h); }
extern "C" CDATASection *toPCDATASection(VQHANDLE h) { return typed<CDATASection, 4>(h); }
extern "C" EntityReference *toPEntityReference(VQHANDLE h) {
    return typed<EntityReference, 5>(h);
}
extern "C" Entity *toPEntity(VQHANDLE h) { return typed<Entity, 6>(h); }
extern "C" ProcessingInstruction *toPProcessingInstruction(VQHANDLE h) {
    return typed<ProcessingInstruction, 7>(h);
}
extern "C" Comment *toPComment(VQHANDLE h) { return typed<Comment, 8>(h); }
extern "C" Document *toPDocument(VQHANDLE h) { return typed<Document, 9>(h); }
extern "C" DocumentType *toPDocumentType(VQHANDLE h) { return typed<DocumentType, 10>(h); }
extern "C" DocumentFragment *toPDocumentFragment(VQHANDLE h) {
    return typed<DocumentFragment, 11>(h);
}
extern "C" Notation *toPNotation(VQHANDLE h) { return typed<Notation, 12>(h); }
extern "C" ElementDecl *toPElementDecl(VQHANDLE h) { return typed<ElementDecl, 13>(h); }
extern "C" AttlistDecl *toPAttlistDecl(VQHANDLE h) { return typed<AttlistDecl, 14>(h); }
extern "C" AttDef *toPAttDef(VQHANDLE h) { return typed<AttDef, 15>(h); }
extern "C" CpChildren *toPCpChildren(VQHANDLE h) { return typed<CpChildren, 16>(h); }
extern "C" NameList *toPNameList(VQHANDLE h) { return typed<NameList, 17>(h); }

extern "C" NamedNodeMap *toPNamedNodeMap(VQHANDLE h) { return aux<NamedNodeMap>(h); }
extern "C" ListItem *toPListItem(VQHANDLE h) { return aux<ListItem>(h); }
extern "C" NodeList *toPNodeList(VQHANDLE h) { return aux<NodeList>(h); }
extern "C" XmlDecl *toPXmlDecl(VQHANDLE h) { return aux<XmlDecl>(h); }
extern "C" ExternalID *toPExternalID(VQHANDLE h) { return aux<ExternalID>(h); }

extern "C" VQHANDLE createNamedNodeMap(VQHANDLE owner) {
    VQHANDLE h = allocRecord(owner, sizeof(NamedNodeMap), "NamedNodeMap");
    if (h != 0) rec<NamedNodeMap>(h)->owner = owner;
    return h;
}

extern "C" VQHANDLE createNodeList(VQHANDLE owner) {
    VQHANDLE h = allocRecord(owner, sizeof(NodeList), "NodeList");
    if (h != 0) rec<NodeList>(h)->owner = owner;
    return h;
}

extern "C" VQHANDLE createXmlDecl(VQHANDLE document) {
    VQHANDLE h = allocRecord(document, sizeof(XmlDecl), "XmlDecl");
    if (h != 0) rec<XmlDecl>(h)->owner = document;
    return h;
}

extern "C" VQHANDLE createExternalID(VQHANDLE document) {
    VQHANDLE h = allocRecord(document, sizeof(ExternalID), "ExternalID");
    if (h != 0) rec<ExternalID>(h)->owner = document;
    return h;
}

extern "C" void deleteXmlDecl(VQHANDLE handle) {
    if (!liveHandle(handle)) return;
    const XmlDecl d = *rec<XmlDecl>(handle);
    VQDOM_deleteDS(d.version);
    VQDOM_deleteDS(d.encoding);
    VQDOM_deleteDS(d.standalone);
    myFree(handle);
}

extern "C" void deleteExternalID(VQHANDLE handle) {
    if (!liveHandle(handle)) return;
    const ExternalID id = *rec<ExternalID>(handle);
    VQDOM_deleteDS(id.publicId);
    VQDOM_deleteDS(id.systemId);
    myFree(handle);
}

extern "C" VQHANDLE VQDOM_createDocument(void) {
    uint32_t *docHandleField = nullptr;
    const int32_t number = newDocumentArea(0, &docHandleField);
    if (number == 0) return 0;
    const VQHANDLE document = static_cast<VQHANDLE>(number);
    const VQHANDLE doc = allocNode(document, VQXML_DOCUMENT_NODE, 0);
    const VQHANDLE name = doc != 0 ? createDSView(document, "#document") : 0;
    const VQHANDLE children = name != 0 ? createNodeList(doc) : 0;
    if (children == 0) {
        // A fresh area has room for all three; this only happens when the
        // area itself is unusable. Give the number back.
        VQXML_deleteDocumentArea(document);
        return 0;
    }
    Node *n = node(doc);
    n->nodeName = name;
    n->childNodes = children;
    n->ownerDocument = doc;
    if (docHandleField != nullptr) *docHandleField = doc;
    return doc;
}

// The library has no implementation object of its own: the document stands
// for it, so the handle comes back unchanged (0 stays 0).
extern "C" VQHANDLE VQDOM_getImplementation(VQHANDLE document) { return document; }

extern "C" VQHANDLE VQDOM_getDocumentElement(VQHANDLE doc) {
    return firstChildOfType(doc, VQXML_ELEMENT_NODE);
}

extern "C" VQHANDLE VQDOM_getDoctype(VQHANDLE doc) {
    return firstChildOfType(doc, VQXML_DOCUMENT_TYPE_NODE);
}

extern "C" VQHANDLE getFirstMarkupDecl(VQHANDLE doctype, int32_t nodeType) {
    if (typedNode(doctype) == nullptr) return 0;
    return searchDecls(node(doctype)->firstChild, nodeType, true);
}

extern "C" VQHANDLE getNextMarkupDecl(VQHANDLE decl) {
    const Node *n = typedNode(decl);
    if (n == nullptr) return 0;
    const int type = n->nodeType;
    const VQHANDLE parent = n->parentNode;
    if (VQHANDLE found = searchDecls(n->nextSibling, type, true)) return found;
    // Leaving an entity reference: its following siblings are compared
    // directly, without looking into further references. Callers rely on
    // this order, so it stays asymmetric with the search above.
    if (typedNode(parent) != nullptr && node(parent)->nodeType == VQXML_ENTITY_REFERENCE_NODE)
        return searchDecls(node(parent)->nextSibling, type, false);
    return 0;
}

extern "C" VQHANDLE findItem(VQHANDLE list, int64_t index, VQHANDLE root) {
    const auto *record = reinterpret_cast<const NodeList *>(liveNode(list, sizeof(NodeList)));
    if (record == nullptr || typedNode(root) == nullptr || !liveHandle(record->tagName)) return 0;
    const std::string_view tag = dsView(record->tagName);
    const bool any = tag == "*";
    // Only elements are entered; text, comments and references below the
    // root never contribute.
    TreeWalk walk(root);
    for (VQHANDLE cur = walk.first(); cur != 0;) {
        const Node *n = node(cur);
        const bool element = n->nodeType == VQXML_ELEMENT_NODE;
        if (element && (any || dsView(n->nodeName) == tag)) {
            NodeList *l = rec<NodeList>(list);
            if (static_cast<int64_t>(l->count) == index) return cur;
            ++l->count;
        }
        cur = walk.next(cur, element);
    }
    return 0;
}

extern "C" VQHANDLE findEntity(VQHANDLE doctype, VQHANDLE nameDS, uint32_t kind) {
    VQHANDLE dt = doctypeOf(doctype);
    if (dt == 0) return 0;
    if (VQHANDLE found; kind <= 1 && liveHandle(nameDS) &&
                        indexedEntity(dt, dsView(nameDS), static_cast<int>(kind), &found))
        return found;
    StepBound steps(dt);
    for (VQHANDLE e = getFirstMarkupDecl(dt, VQXML_ENTITY_NODE); e != 0 && steps.take(); e = getNextMarkupDecl(e))
        if (rec<Entity>(e)->kind == kind && nameIs(e, nameDS)) return e;
    return 0;
}

extern "C" VQHANDLE findEntityStr(VQHANDLE doctype, const char *name) {
    VQHANDLE dt = doctypeOf(doctype);
    if (dt == 0) return 0;
    if (VQHANDLE found; name != nullptr && indexedEntity(dt, name, -1, &found)) return found;
    StepBound steps(dt);
    for (VQHANDLE e = getFirstMarkupDecl(dt, VQXML_ENTITY_NODE); e != 0 && steps.take(); e = getNextMarkupDecl(e))
        if (rec<Entity>(e)->kind != 0 && nameIs(e, name)) return e;
    return 0;
}

extern "C" VQHANDLE findAttDefDS(VQHANDLE doctype, VQHANDLE elementNameDS,
                                 VQHANDLE attributeNameDS) {
    return findAttDefIn(doctype, elementNameDS, attributeNameDS);
}

extern "C" VQHANDLE findAttDef(VQHANDLE doctype, const char *elementName,
                               const char *attributeName) {
    return findAttDefIn(doctype, elementName, attributeName);
}

extern "C" VQHANDLE getMarkupDecl(VQHANDLE doctype, int32_t type, const char *name) {
    VQHANDLE dt = doctypeOf(doctype);
    if (dt == 0) return 0;
    StepBound steps(dt);
    for (VQHANDLE d = getFirstMarkupDecl(dt, type); d != 0 && steps.take(); d = getNextMarkupDecl(d))
        if (nameIs(d, name)) return d;
    return 0;
}
