// model.h - internal functions of the model layer shared between its files:
// document helpers of the element lookup, the model look-ups used by query
// and answer building, and the bounded child walk every model loop uses.
#ifndef VQXML_MODEL_MODEL_H
#define VQXML_MODEL_MODEL_H

#include <cstdint>

#include "vqxml/store/area.h"
#include "vqxml/store/node.h"
#include "vqxml/vqxml.h"

extern "C" {

// The node itself when it is a Document, else its owner document; 0 for an
// invalid handle.
VQXML_API VQHANDLE getRootDocument(VQHANDLE node);
// Copies the tag name of the document element of the node's document (at
// most size bytes with the terminator; the empty text when there is none).
VQXML_API void getDocName(VQHANDLE node, char *buffer, int32_t size);
// 0 when the counted text equals the word without regard to case; a
// different length gives 1.
VQXML_API int mycmp(const char *word, const char *text, uint32_t length);

}  // extern "C"

namespace vqxml {

// The most steps a walk over the nodes of the document of `h` may take: its
// live-object count. A chain or tree that a damaged image or a caller fault
// has linked into a loop ends after that many steps.
inline int64_t walkBudget(VQHANDLE h) {
    const DocArea *a = docHead[h & 255];
    return a != nullptr && a->dbgHandles > 0 ? a->dbgHandles : 0;
}

// The next handle of a child chain, or 0 where the chain ends: at the null
// handle, at a handle that is no longer valid (recorded as an invalid handle,
// as validHandle does), or at something that is not a node record.
inline Node *chainNode(VQHANDLE h) {
    if (h == 0) return nullptr;
    if (!liveHandle(h)) {
        validHandle(h);
        return nullptr;
    }
    return liveNode(h);
}

// Calls visit(child, record) for the direct children of `parent` in
// document order until it returns false; bounded by walkBudget. `visit` may
// unlink the child it is given: the next link is read before the call.
// The record pointer is valid only until the next allocation in the document.
template <typename Visit>
void forEachChild(VQHANDLE parent, Visit &&visit) {
    const Node *p = liveNode(parent);
    if (p == nullptr || p->nodeType == VQXML_DOCUMENT_TYPE_NODE) return;
    VQHANDLE h = p->firstChild;
    for (int64_t budget = walkBudget(parent); budget > 0; --budget) {
        Node *n = chainNode(h);
        if (n == nullptr) return;
        const VQHANDLE next = n->nodeType == VQXML_ATTRIBUTE_NODE ? 0 : n->nextSibling;
        if (!visit(h, n)) return;
        h = next;
    }
}

// The n-th (0-based) element child of `parent` for which match(record)
// holds; 0 when there are fewer or n is negative.
template <typename Match>
VQHANDLE nthChildElement(VQHANDLE parent, int32_t n, Match &&match) {
    VQHANDLE found = 0;
    if (n < 0) return 0;
    forEachChild(parent, [&](VQHANDLE child, const Node *c) {
        if (c->nodeType != VQXML_ELEMENT_NODE || !match(c)) return true;
        if (n-- != 0) return true;
        found = child;
        return false;
    });
    return found;
}

}  // namespace vqxml

#endif  // VQXML_MODEL_MODEL_H
