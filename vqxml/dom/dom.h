// dom.h - library-internal parts of the DOM interface: the declaration-node
// creators, the hierarchy rule, unlinking, maps and default attributes.
#ifndef VQXML_DOM_DOM_H
#define VQXML_DOM_DOM_H

#include <cstdint>
#include <string_view>

#include "vqxml/vqxml.h"

extern "C" {

// Declaration nodes (the DTD parser and the DTD objects make these).
VQXML_API VQHANDLE createDocumentType(VQHANDLE doc, VQHANDLE name);
VQXML_API VQHANDLE createElementDecl(VQHANDLE doc, VQHANDLE name);
VQXML_API VQHANDLE createAttlistDecl(VQHANDLE doc, VQHANDLE name);
VQXML_API VQHANDLE createAttDef(VQHANDLE doc, VQHANDLE name);
VQXML_API VQHANDLE createCpChildren(VQHANDLE doc);
VQXML_API VQHANDLE createNameList(VQHANDLE doc, VQHANDLE name);

// 0 when `child` may be linked under `parent`, 1 (and code 3) when not.
VQXML_API int hierarchyErr(VQHANDLE parent, VQHANDLE child);
// Unlinks a node from its parent and from the map that holds it.
VQXML_API void removeNode(VQHANDLE node);
// Deletes every node held by a map, then the map.
VQXML_API void deleteNamedNodeMap(VQHANDLE map);
// Enters a linked entity or notation into its document type's map.
VQXML_API void appendToMaps(VQHANDLE node);

VQXML_API void addDefaultAttributes(VQHANDLE element);
VQXML_API void setDefaultAttribute(VQHANDLE element, VQHANDLE definition);
// Computes an attribute's value from its children; cdata 0 folds blanks.
VQXML_API int getNormalValue(VQHANDLE attribute, int cdata);

// Definitions changed at run time (dtd.cpp). changeAttDef brings `element`
// and every element below it named `elementName` in line with a definition:
// with `add` each gets the definition's default (displacing an attribute of
// that name), else loses its attribute of that name. checkSpecifiedAtt
// answers 1 when an element named `elementName` among the children of
// `node`, or below such an element through elements of that name only,
// carries the attribute as specified.
VQXML_API void changeAttDef(VQHANDLE element, const char *elementName,
                            VQHANDLE definition, int add);
VQXML_API int checkSpecifiedAtt(VQHANDLE node, const char *elementName,
                                const char *attributeName);

}  // extern "C"

#include "vqxml/store/node.h"  // vqxml::liveNode

namespace vqxml {

// The node behind a handle that names a plausible node: live, a known type
// code, a block large enough for that type's record, and in the area of its
// own document. Anything else (a string, a map, a stale or random handle)
// yields null, so a wrong handle can never make us write node fields into a
// smaller block. Records nothing.
inline Node *asNode(VQHANDLE h) {
    Node *n = typedNode(h);
    return n != nullptr && (n->ownerDocument & 255) == (h & 255) ? n : nullptr;
}

// The node type behind such a handle, 0 for anything else.
inline int typeOf(VQHANDLE h) {
    const Node *n = asNode(h);
    return n != nullptr ? n->nodeType : 0;
}

// While a node is being deleted its owner-map field holds this mark (no map
// handle is below 256), and its parent field holds the node whose deletion
// reached it. Both fields are free by then: the node has been unlinked.
constexpr VQHANDLE kBeingDeleted = 1;

// A node that VQDOM_deleteNode may start on: a node, not already on its way
// out.
inline bool deletable(VQHANDLE h) {
    const Node *n = asNode(h);
    return n != nullptr && n->containingMap != kBeingDeleted;
}

template <typename T>
inline T *asType(VQHANDLE h, int type) {
    Node *n = asNode(h);
    return n != nullptr && n->nodeType == type ? reinterpret_cast<T *>(n) : nullptr;
}

// Auxiliary records (maps, items, lists, declarations, identifiers).
template <typename T>
inline T *aux(VQHANDLE h) {
    return reinterpret_cast<T *>(liveNode(h, static_cast<int32_t>(sizeof(T))));
}

// VQDOM_setAttributeNode for an attribute whose name the caller knows is not
// in the element's map yet: the same result without searching the map.
VQHANDLE appendAbsentAttribute(VQHANDLE element, VQHANDLE attribute);

// The two halves of setDefaultAttribute, for callers that must make every
// copy before they link any: a new unlinked, unspecified copy of the
// definition's default with its value computed (0 when the definition has
// no default or memory ran out), and the linking with a map item taken
// beforehand by takeMapItem (which then cannot fail for want of memory;
// returns the attribute displaced, as VQDOM_setAttributeNode does). A
// refused attribute is deleted and leaves the item to the caller.
VQHANDLE defaultAttributeOf(VQHANDLE definition);
VQHANDLE takeMapItem(VQHANDLE document);
VQHANDLE setAttributeNodeWith(VQHANDLE element, VQHANDLE attribute, VQHANDLE item);

// VQDOM_createElement without its final step, the default attributes.
VQHANDLE createElementBare(VQHANDLE doc, VQHANDLE name);

// VQDOM_appendChild for builders that fill a node before linking it
// anywhere (the parser): when `parent` has neither parent nor owner map, it
// cannot lie below `child`, so a plain content child is linked at once; in
// every other case, and for invalid handles, the full path decides.
VQHANDLE appendToUnlinked(VQHANDLE parent, VQHANDLE child);

// Called by the parser with the document it has just built: until any area
// changes (treeGeneration), deleting that document node gives its area back
// in one step without walking it first.
void documentBuilt(VQHANDLE doc);

// True when `node` is `holder` or lies above it, by parent links or by way
// of an attribute map: linking `node` below `holder` would make a cycle.
bool isAncestorOrSelf(VQHANDLE node, VQHANDLE holder);

// A limit on what copies may add to document areas, for code that copies on
// behalf of untrusted input (the parser's entity references and default
// attributes). While one is installed, VQDOM_cloneNodeDoc charges the bytes
// each step of an outermost copy adds to the target area against `left`;
// once that is spent the copy stops, deletes what it had made and returns
// 0, and so does every later copy until the meter is removed.
// `discardArea`, when set, is the number of an area that goes as a whole
// once the meter is spent (the parse building it then fails): deleting a
// node there only unlinks it, and its document node takes the area along.
struct CloneMeter {
    int64_t left;
    bool spent;
    int32_t discardArea;
};
extern CloneMeter *cloneMeter;

}  // namespace vqxml

#endif  // VQXML_DOM_DOM_H
