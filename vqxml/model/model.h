// model.h - internal functions of the model layer shared between its files:
// document helpers of the element lookup, the model look-ups used by query
// and answer building, and the bounded child walk every model loop uses.
#ifndef VQXML_MODEL_MODEL_H
#define VQXML_MODEL_MODEL_H

#include <cstdint>
#include <string_view>

#include "vqxml/store/area.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"
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

// The first element child of parent whose DESC (its first 255 bytes) equals
// desc; 0 when there is none or parent is invalid.
VQXML_API VQHANDLE findDesc(VQHANDLE parent, const char *desc);
// Writes the description path of the element (DESC values from the document
// element down, joined by '.', "(k)" behind an element with k earlier
// same-named element siblings) into a buffer of at least 255 bytes: its
// first 253 bytes at most, always terminated. Returns the length.
VQXML_API int32_t getDescPath(VQHANDLE element, char *buffer);
// Appends to every element with children in the subtree, mixed content
// included, one last Text child of CR LF and the children's indentation
// (an empty one when that is 0); nothing goes before the children.
VQXML_API void beautifyElement2(VQHANDLE node, int32_t level);

}  // extern "C"

namespace vqxml {

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

// Calls visit(handle, record) for `first` and the siblings that follow it
// until visit returns false, the chain ends, or `budget` steps are taken.
// `visit` may unlink the node it is given: the next link is read before the
// call. A record pointer is valid only until the next allocation in its
// document.
template <typename Visit>
void forEachInChain(VQHANDLE first, int64_t budget, Visit &&visit) {
    VQHANDLE h = first;
    for (; budget > 0; --budget) {
        Node *n = chainNode(h);
        if (n == nullptr) return;
        const VQHANDLE next = n->nodeType == VQXML_ATTRIBUTE_NODE ? 0 : n->nextSibling;
        if (!visit(h, n)) return;
        h = next;
    }
}

// The same over the direct children of `parent` in document order, bounded
// by walkBudget.
template <typename Visit>
void forEachChild(VQHANDLE parent, Visit &&visit) {
    const Node *p = liveNode(parent);
    if (p == nullptr || p->nodeType == VQXML_DOCUMENT_TYPE_NODE) return;
    forEachInChain(p->firstChild, walkBudget(parent), visit);
}

// Attribute values of a model item as read by the model layer (empty when
// absent or when the handle is not an element). Views into the area: valid
// until the next allocation in the document.
std::string_view attributeView(VQHANDLE element, const char *name);
// The item's DESC, at most its first 255 bytes.
inline std::string_view descOf(VQHANDLE element) {
    return attributeView(element, "DESC").substr(0, 255);
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
