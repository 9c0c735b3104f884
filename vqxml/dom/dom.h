// dom.h - library-internal parts of the DOM interface: the declaration-node
// creators, the hierarchy rule, unlinking, maps and default attributes.
#ifndef VQXML_DOM_DOM_H
#define VQXML_DOM_DOM_H

#include <cstdint>

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

}  // extern "C"

#include "vqxml/store/node.h"  // vqxml::liveNode

#endif  // VQXML_DOM_DOM_H
