// node.h - the records that live in document areas: the node record with
// its common head and per-type tail, and the auxiliary records (named node
// map, map item, node list, XML declaration, external identifier).
//
// All fields are 32-bit handles unless noted; 0 means "none". Records are
// reached through handles only; a pointer obtained here is invalidated by
// the next allocation in the same document.
#ifndef VQXML_STORE_NODE_H
#define VQXML_STORE_NODE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "vqxml/store/area.h"
#include "vqxml/vqxml.h"

// Common head of every node record (48 bytes).
struct Node {
    VQHANDLE parentNode;
    VQHANDLE firstChild;
    VQHANDLE lastChild;
    VQHANDLE childNodes;       // first NodeList of the node's list chain
    VQHANDLE previousSibling;
    VQHANDLE nextSibling;
    VQHANDLE ownerDocument;    // a Document points at itself
    uint16_t nodeType;
    uint16_t reserved;
    VQHANDLE nodeName;         // DS
    VQHANDLE nodeValue;        // DS
    VQHANDLE attributes;       // NamedNodeMap (elements; AttDef: default map)
    VQHANDLE containingMap;    // NamedNodeMap that holds this node
};

// Per-type records: the head followed by the type's own fields.
struct Element { Node node; };                                      // 48
struct Attr { Node node; uint32_t specified; };                      // 52
struct Text { Node node; uint32_t rawXml; };                         // 52
using CharacterData = Text;
struct CDATASection { Node node; };                                  // 48
struct EntityReference { Node node; VQHANDLE entity; };              // 52
struct Entity {                                                      // 68
    Node node;
    VQHANDLE externalID;     // ExternalID record
    VQHANDLE notationName;   // DS (NDATA)
    VQHANDLE value;          // DS: the literal as written
    uint32_t kind;           // 1 parameter entity, 0 general
    int32_t line;            // line of the declaration
};
struct ProcessingInstruction { Node node; };                         // 48
struct Comment { Node node; };                                       // 48
struct Document { Node node; VQHANDLE xmlDecl; };                    // 52
struct DocumentType {                                                // 60
    Node node;
    VQHANDLE externalID;
    VQHANDLE entities;       // NamedNodeMap
    VQHANDLE notations;      // NamedNodeMap
};
struct DocumentFragment { Node node; };                              // 48
struct Notation { Node node; VQHANDLE externalID; };                 // 52
struct ElementDecl {                                                 // 52
    Node node;
    uint16_t contentType;    // 1 EMPTY, 2 ANY, 3 mixed, 4 element content
    uint16_t reserved;
};
struct AttlistDecl { Node node; };                                   // 48
struct AttDef {                                                      // 52
    Node node;
    uint16_t attType;        // 1 enumeration, 3 CDATA .. 10 NMTOKENS
    uint16_t defaultKind;    // 0 value, 1 #FIXED, 2 #REQUIRED, 3 #IMPLIED
};
struct CpChildren {                                                  // 52
    Node node;
    uint8_t separator;       // ',' '|' 0 (leaf), 255 when created
    uint8_t occurrence;      // '*' '+' '?' or 0
    uint16_t reserved;
};
struct NameList { Node node; };                                      // 48

// Auxiliary records.
struct NamedNodeMap { VQHANDLE owner, firstItem, lastItem; };        // 12
struct ListItem { VQHANDLE nextItem, previousItem, node; };          // 12
struct NodeList {                                                    // 20
    VQHANDLE owner;
    VQHANDLE nextList;
    VQHANDLE tagName;        // DS filter; 0 for the plain child list
    uint32_t count;          // working counter of the search
    uint32_t mode;           // 1 path selection, else tag-name search
};
struct XmlDecl { VQHANDLE owner, version, encoding, standalone; };   // 16
struct ExternalID { VQHANDLE owner, publicId, systemId; };           // 12

static_assert(sizeof(Node) == 48);
static_assert(offsetof(Node, nodeType) == 28 && offsetof(Node, nodeName) == 32);
static_assert(sizeof(Element) == 48 && sizeof(Attr) == 52 && sizeof(Text) == 52);
static_assert(sizeof(CDATASection) == 48 && sizeof(EntityReference) == 52);
static_assert(sizeof(Entity) == 68 && sizeof(ProcessingInstruction) == 48);
static_assert(sizeof(Comment) == 48 && sizeof(Document) == 52);
static_assert(sizeof(DocumentType) == 60 && sizeof(DocumentFragment) == 48);
static_assert(sizeof(Notation) == 52 && sizeof(ElementDecl) == 52);
static_assert(sizeof(AttlistDecl) == 48 && sizeof(AttDef) == 52);
static_assert(sizeof(CpChildren) == 52 && sizeof(NameList) == 48);
static_assert(sizeof(NamedNodeMap) == 12 && sizeof(ListItem) == 12);
static_assert(sizeof(NodeList) == 20 && sizeof(XmlDecl) == 16);
static_assert(sizeof(ExternalID) == 12);

extern "C" {

// Allocates and clears a record of `type`'s size; sets ownerDocument,
// nodeType and nodeName. On failure records code 11 and deletes nameDS.
VQXML_API VQHANDLE allocNode(VQHANDLE document, int32_t type, VQHANDLE nameDS);

// Typed accessors: record 1001749 on a type mismatch and return the record
// all the same. Callers check the handle with validHandle first.
VQXML_API Element *toPElement(VQHANDLE h);
VQXML_API Attr *toPAttr(VQHANDLE h);
VQXML_API Text *toPText(VQHANDLE h);
VQXML_API CharacterData *toPCharacterData(VQHANDLE h);
VQXML_API CDATASection *toPCDATASection(VQHANDLE h);
VQXML_API EntityReference *toPEntityReference(VQHANDLE h);
VQXML_API Entity *toPEntity(VQHANDLE h);
VQXML_API ProcessingInstruction *toPProcessingInstruction(VQHANDLE h);
VQXML_API Comment *toPComment(VQHANDLE h);
VQXML_API Document *toPDocument(VQHANDLE h);
VQXML_API DocumentType *toPDocumentType(VQHANDLE h);
VQXML_API DocumentFragment *toPDocumentFragment(VQHANDLE h);
VQXML_API Notation *toPNotation(VQHANDLE h);
VQXML_API ElementDecl *toPElementDecl(VQHANDLE h);
VQXML_API AttlistDecl *toPAttlistDecl(VQHANDLE h);
VQXML_API AttDef *toPAttDef(VQHANDLE h);
VQXML_API CpChildren *toPCpChildren(VQHANDLE h);
VQXML_API NameList *toPNameList(VQHANDLE h);
// Auxiliary accessors check nothing.
VQXML_API NamedNodeMap *toPNamedNodeMap(VQHANDLE h);
VQXML_API ListItem *toPListItem(VQHANDLE h);
VQXML_API NodeList *toPNodeList(VQHANDLE h);
VQXML_API XmlDecl *toPXmlDecl(VQHANDLE h);
VQXML_API ExternalID *toPExternalID(VQHANDLE h);

VQXML_API VQHANDLE createNamedNodeMap(VQHANDLE owner);
VQXML_API VQHANDLE createNodeList(VQHANDLE owner);
VQXML_API VQHANDLE createXmlDecl(VQHANDLE document);
VQXML_API VQHANDLE createExternalID(VQHANDLE document);
VQXML_API void deleteXmlDecl(VQHANDLE handle);
VQXML_API void deleteExternalID(VQHANDLE handle);

// Declaration walk over the children of a DocumentType.
VQXML_API VQHANDLE getFirstMarkupDecl(VQHANDLE doctype, int32_t nodeType);
VQXML_API VQHANDLE getNextMarkupDecl(VQHANDLE node);
// Filtered node-list search (see NodeList); index -1 only counts.
VQXML_API VQHANDLE findItem(VQHANDLE list, int64_t index, VQHANDLE node);
// Declaration lookups. The first argument is the DocumentType (a Document
// is accepted too and stands for its DocumentType).
VQXML_API VQHANDLE findEntity(VQHANDLE doctype, VQHANDLE nameDS, uint32_t kind);
VQXML_API VQHANDLE findEntityStr(VQHANDLE doctype, const char *name);
VQXML_API VQHANDLE findAttDefDS(VQHANDLE doctype, VQHANDLE elementNameDS,
                                VQHANDLE attributeNameDS);
VQXML_API VQHANDLE findAttDef(VQHANDLE doctype, const char *elementName,
                              const char *attributeName);
VQXML_API VQHANDLE getMarkupDecl(VQHANDLE doctype, int32_t type, const char *name);

}  // extern "C"

namespace vqxml {

// Payload sizes of the node records, by type code (0: unknown types).
inline constexpr int32_t kNodeRecordSizes[] = {48, 48, 52, 52, 48, 52, 68, 48, 48,
                                               52, 60, 48, 52, 52, 48, 52, 52, 48};

// Unchecked typed views for code that has already validated the handle and
// tested the type (no 1001749 report).
inline Node *node(VQHANDLE h) { return static_cast<Node *>(payload(h)); }
template <typename T>
inline T *rec(VQHANDLE h) { return static_cast<T *>(payload(h)); }

// The record of a live handle whose block holds at least `bytes` payload
// bytes (a whole node head by default), else null; records nothing. Guards
// field reads through handles that name something smaller than a node, such
// as a string or a map handed in where a node was expected.
inline Node *liveNode(VQHANDLE h, int32_t bytes = sizeof(Node)) {
    if (!liveHandle(h)) return nullptr;
    auto *record = static_cast<char *>(payload(h));
    const auto *header = reinterpret_cast<const BlockHeader *>(record - sizeof(BlockHeader));
    if (header->blockSize - static_cast<int32_t>(sizeof(BlockHeader)) < bytes) return nullptr;
    return reinterpret_cast<Node *>(record);
}

// The record behind a handle that names a plausible node: live, of a known
// type, in a block large enough for that type's record. Null otherwise;
// records nothing.
inline Node *typedNode(VQHANDLE h) {
    if (!liveHandle(h)) return nullptr;
    auto *record = static_cast<char *>(payload(h));
    const int32_t room =
        reinterpret_cast<const BlockHeader *>(record - sizeof(BlockHeader))->blockSize -
        static_cast<int32_t>(sizeof(BlockHeader));
    if (room < static_cast<int32_t>(sizeof(Node))) return nullptr;
    auto *n = reinterpret_cast<Node *>(record);
    const unsigned type = n->nodeType;
    if (type == 0 || type > VQXML_NAME_LIST_NODE || room < kNodeRecordSizes[type]) return nullptr;
    return n;
}

// Name lookups through indexes while a scope lives (a parse: no caller code
// runs, names do not change, and maps and document types only grow at their
// end). Each answers exactly as the search it stands for, or returns false
// when the caller must search itself:
// - indexedItem: the item of a long map that VQDOM_getNamedItem's search
//   from the front finds (0 for none);
// - indexedEntity: the entity findEntity (kind 0 or 1) or findEntityStr
//   (kind -1: any parameter entity) finds in the declarations of `doctype`;
// - indexedAttDef: the definition findAttDef finds for an element and an
//   attribute name;
// - indexedDefaults: the definitions with a default that addDefaultAttributes
//   applies to an element of that name, in order (their number, of which
//   the first `room` are stored in `out`), or -1;
class MapIndexScope {
public:
    MapIndexScope();
    ~MapIndexScope();
    MapIndexScope(const MapIndexScope &) = delete;
    MapIndexScope &operator=(const MapIndexScope &) = delete;
};
bool indexedItem(VQHANDLE map, std::string_view name, VQHANDLE *item);
bool indexedEntity(VQHANDLE doctype, std::string_view name, int kind, VQHANDLE *entity);
bool indexedAttDef(VQHANDLE doctype, std::string_view element, std::string_view attribute, VQHANDLE *definition);
int32_t indexedDefaults(VQHANDLE doctype, std::string_view element, VQHANDLE *out, int32_t room);
// - indexedChildOfType: the first child of `parent` with the node type (a
//   document's type or element), found without walking the children again.
bool indexedChildOfType(VQHANDLE parent, int type, VQHANDLE *found);

// Node type of a live handle, 0 for anything else; records nothing.
inline int nodeTypeOf(VQHANDLE h) { return liveHandle(h) ? node(h)->nodeType : 0; }

// Record size of a node type (48 for unknown types) and its name in
// reports ("???" for unknown types).
inline int32_t nodeRecordSize(int32_t type) {
    return type > 0 && type <= VQXML_NAME_LIST_NODE ? kNodeRecordSizes[type] : 48;
}
const char *nodeTypeName(int32_t type);

}  // namespace vqxml

#endif  // VQXML_STORE_NODE_H
