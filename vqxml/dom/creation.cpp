// creation.cpp - the node factories: the public VQDOM_create* functions and
// the library's own creators of declaration nodes.
//
// A creator takes over the DS handles it is given: they become the new
// node's name or value, or they are deleted when the creation fails. Two
// paths leave a DS with the caller: a name passed together with an invalid
// handle, and the target of a processing instruction in the same case.
// Names are checked before documents, so a bad name from another document
// reports the bad character.
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/node.h"

using namespace vqxml;

namespace {

// Handles of one document carry the same number in their low byte.
bool sameDocument(VQHANDLE a, VQHANDLE b) { return (a & 255) == (b & 255); }

// Deletes a handed-over DS if it is there; a handle that already failed its
// validity check is not reported a second time.
void dropDS(VQHANDLE ds) {
    if (liveHandle(ds)) VQDOM_deleteDS(ds);
}

void wrongDocument(const char *function) { domError(kWrongDocumentErr, function); }

// The checks shared by the creators that take a name. With an invalid
// handle the name stays the caller's; a refused name (deleted by the check
// itself) or a name from another document is gone afterwards.
bool acceptName(VQHANDLE doc, VQHANDLE name, const char *function) {
    if (!checkHandle(doc) || !checkHandle(name)) return false;
    if (invalidCharacterErr(name) != 0) return false;
    if (!sameDocument(doc, name)) {
        wrongDocument(function);
        VQDOM_deleteDS(name);
        return false;
    }
    return true;
}

// A node that carries its data as value and a fixed name ("#text" and the
// like). The data is deleted on every failure path.
VQHANDLE createDataNode(VQHANDLE doc, VQHANDLE data, int32_t type, const char *name,
                        const char *function) {
    if (!checkHandle(doc) || !checkHandle(data)) {
        dropDS(data);
        return 0;
    }
    if (!sameDocument(doc, data)) {
        wrongDocument(function);
        VQDOM_deleteDS(data);
        return 0;
    }
    const VQHANDLE nameDS = createDSView(doc, name);
    const VQHANDLE created = nameDS != 0 ? allocNode(doc, type, nameDS) : 0;
    if (created == 0) {
        VQDOM_deleteDS(data);
        return 0;
    }
    node(created)->nodeValue = data;
    return created;
}

// A declaration node; the name is deleted when the node cannot be made.
VQHANDLE createDeclaration(VQHANDLE doc, int32_t type, VQHANDLE name) {
    if (!checkHandle(doc)) {
        dropDS(name);
        return 0;
    }
    return allocNode(doc, type, name);
}

// Gives a new node an empty named map in the given field. A node that cannot
// get its map is not handed out half-built: it is deleted.
bool attachMap(VQHANDLE owner, VQHANDLE Node::*field) {
    const VQHANDLE map = createNamedNodeMap(owner);
    if (map == 0) return false;
    node(owner)->*field = map;
    return true;
}

bool attachChildList(VQHANDLE owner) {
    const VQHANDLE list = createNodeList(owner);
    if (list == 0) return false;
    node(owner)->childNodes = list;
    return true;
}

VQHANDLE discard(VQHANDLE created) {
    VQDOM_deleteNode(created);
    return 0;
}

}  // namespace

// ---- public creators --------------------------------------------------------

// Elements get an attribute map and a child list at once, then the default
// attributes that the document's DTD declares for their name.
VQHANDLE vqxml::createElementBare(VQHANDLE doc, VQHANDLE name) {
    if (!acceptName(doc, name, "createElement")) return 0;
    const VQHANDLE element = allocNode(doc, VQXML_ELEMENT_NODE, name);
    if (element == 0) return 0;
    if (!attachMap(element, &Node::attributes) || !attachChildList(element))
        return discard(element);
    return element;
}

extern "C" VQHANDLE VQDOM_createElement(VQHANDLE doc, VQHANDLE name) {
    const VQHANDLE element = createElementBare(doc, name);
    if (element != 0) addDefaultAttributes(element);
    return element;
}

extern "C" VQHANDLE VQDOM_createAttribute(VQHANDLE doc, VQHANDLE name) {
    if (!acceptName(doc, name, "createAttribute")) return 0;
    const VQHANDLE attr = allocNode(doc, VQXML_ATTRIBUTE_NODE, name);
    if (attr != 0) rec<Attr>(attr)->specified = 1;
    return attr;
}

extern "C" VQHANDLE VQDOM_createEntityReference(VQHANDLE doc, VQHANDLE name) {
    if (!acceptName(doc, name, "createEntityReference")) return 0;
    return allocNode(doc, VQXML_ENTITY_REFERENCE_NODE, name);
}

// New text is plain character data: the raw flag starts cleared.
extern "C" VQHANDLE VQDOM_createTextNode(VQHANDLE doc, VQHANDLE data) {
    return createDataNode(doc, data, VQXML_TEXT_NODE, "#text", "createTextNode");
}

extern "C" VQHANDLE VQDOM_createComment(VQHANDLE doc, VQHANDLE data) {
    return createDataNode(doc, data, VQXML_COMMENT_NODE, "#comment", "createComment");
}

extern "C" VQHANDLE VQDOM_createCDATASection(VQHANDLE doc, VQHANDLE data) {
    return createDataNode(doc, data, VQXML_CDATA_SECTION_NODE, "#cdata-section",
                          "createCDATASection");
}

// The target is taken as it is: processing instructions carry no name
// check.
extern "C" VQHANDLE VQDOM_createProcessingInstruction(VQHANDLE doc, VQHANDLE target,
                                                      VQHANDLE data) {
    if (!checkHandle(doc) || !checkHandle(target) || !checkHandle(data)) {
        dropDS(data);
        return 0;
    }
    if (!sameDocument(doc, target) || !sameDocument(doc, data)) {
        wrongDocument("createProcessingInstruction");
        VQDOM_deleteDS(target);
        VQDOM_deleteDS(data);
        return 0;
    }
    const VQHANDLE pi = allocNode(doc, VQXML_PROCESSING_INSTRUCTION_NODE, target);
    if (pi == 0) {
        VQDOM_deleteDS(data);
        return 0;
    }
    node(pi)->nodeValue = data;
    return pi;
}

extern "C" VQHANDLE VQDOM_createDocumentFragment(VQHANDLE doc) {
    if (!checkHandle(doc)) return 0;
    const VQHANDLE name = VQDOM_createDS(doc, "#document-fragment");
    if (name == 0) return 0;
    const VQHANDLE fragment = allocNode(doc, VQXML_DOCUMENT_FRAGMENT_NODE, name);
    if (fragment == 0) return 0;
    if (!attachChildList(fragment)) return discard(fragment);
    return fragment;
}

// ---- declaration nodes (the DTD parser and the DTD objects) ---------------

// A document type keeps its entities and notations in two maps of its own.
extern "C" VQHANDLE createDocumentType(VQHANDLE doc, VQHANDLE name) {
    const VQHANDLE doctype = createDeclaration(doc, VQXML_DOCUMENT_TYPE_NODE, name);
    if (doctype == 0) return 0;
    for (VQHANDLE DocumentType::*field : {&DocumentType::entities, &DocumentType::notations}) {
        const VQHANDLE map = createNamedNodeMap(doctype);
        if (map == 0) return discard(doctype);
        rec<DocumentType>(doctype)->*field = map;
    }
    return doctype;
}

extern "C" VQHANDLE createElementDecl(VQHANDLE doc, VQHANDLE name) {
    return createDeclaration(doc, VQXML_ELEMENT_DECL_NODE, name);
}

extern "C" VQHANDLE createAttlistDecl(VQHANDLE doc, VQHANDLE name) {
    return createDeclaration(doc, VQXML_ATTLIST_DECL_NODE, name);
}

// An attribute definition holds its default value as an attribute in a map
// of its own.
extern "C" VQHANDLE createAttDef(VQHANDLE doc, VQHANDLE name) {
    const VQHANDLE def = createDeclaration(doc, VQXML_ATT_DEF_NODE, name);
    if (def == 0) return 0;
    if (!attachMap(def, &Node::attributes)) return discard(def);
    return def;
}

// The separator is not known until the parser has read the particle's
// second member: 255 stands for "not yet decided".
extern "C" VQHANDLE createCpChildren(VQHANDLE doc) {
    const VQHANDLE cp = createDeclaration(doc, VQXML_CP_CHILDREN_NODE, 0);
    if (cp != 0) rec<CpChildren>(cp)->separator = 255;
    return cp;
}

extern "C" VQHANDLE createNameList(VQHANDLE doc, VQHANDLE name) {
    return createDeclaration(doc, VQXML_NAME_LIST_NODE, name);
}
