// lookup.cpp - element lookup: finding element children by tag name and
// occurrence, by attribute value or by position, reading the text of a leaf
// element, counting and moving children, and the document-name helpers.
//
// Every function walks the direct children of one node in document order and
// stops at the first handle that is not valid; each walk is bounded by the
// document's live-object count (model.h), so a chain linked into a loop ends.
#include <climits>
#include <cstring>
#include <string_view>

#include "support/vqsupport.h"
#include "vqxml/model/model.h"
#include "vqxml/store/dom_string.h"

namespace {

using vqxml::dsView;
using vqxml::liveNode;
using vqxml::forEachChild;
using vqxml::nthChildElement;

bool isElement(const Node *n) { return n->nodeType == VQXML_ELEMENT_NODE; }

}  // namespace

extern "C" {

VQHANDLE VQXML_findChildElement(VQHANDLE parent, VQHANDLE tagName, int32_t n) {
    if (!vqxml::liveHandle(parent) || !vqxml::liveHandle(tagName)) return 0;
    const std::string_view name = dsView(tagName);
    return nthChildElement(parent, n, [&](const Node *c) { return dsView(c->nodeName) == name; });
}

VQHANDLE VQXML_findChildElementStr(VQHANDLE parent, const char *tagName, int32_t n) {
    if (tagName == nullptr) return 0;
    const std::string_view name(tagName);
    return nthChildElement(parent, n, [&](const Node *c) { return dsView(c->nodeName) == name; });
}

VQHANDLE VQXML_findIndexedChildElem(VQHANDLE parent, int32_t n) {
    return nthChildElement(parent, n, [](const Node *) { return true; });
}

// The attribute value is read into 256 bytes, so a value longer than 255
// bytes never matches.
VQHANDLE VQXML_findAttribute(VQHANDLE parent, const char *attrName, const char *value) {
    if (attrName == nullptr || value == nullptr) return 0;
    VQHANDLE found = 0;
    forEachChild(parent, [&](VQHANDLE child, const Node *c) {
        if (!isElement(c)) return true;
        char buffer[256];
        VQDOM_getAttributeStr(child, attrName, buffer, sizeof buffer);
        if (std::strcmp(buffer, value) != 0) return true;
        found = child;
        return false;
    });
    return found;
}

// A leaf's text: the element's content is exactly one Text node. Anything
// else reads as the empty text with length 0.
int32_t VQXML_getElementText(VQHANDLE element, char *buffer, int32_t size) {
    if (buffer == nullptr) size = 0;
    const Node *e = liveNode(element);
    const Node *t = e != nullptr ? liveNode(e->firstChild) : nullptr;
    if (t != nullptr && t->nodeType == VQXML_TEXT_NODE && t->nextSibling == 0) {
        const int64_t length = VQDOM_cpyDS(t->nodeValue, buffer, size < 0 ? 0 : size);
        return length > INT32_MAX ? INT32_MAX : static_cast<int32_t>(length);
    }
    if (size > 0) buffer[0] = '\0';
    return 0;
}

uint32_t VQXML_countChildElements(VQHANDLE parent) {
    uint32_t count = 0;
    forEachChild(parent, [&](VQHANDLE, const Node *c) {
        count += isElement(c);
        return true;
    });
    return count;
}

uint32_t VQXML_countNamedChildren(VQHANDLE parent, VQHANDLE tagName) {
    if (!vqxml::liveHandle(tagName)) return 0;
    const std::string_view name = dsView(tagName);
    uint32_t count = 0;
    forEachChild(parent, [&](VQHANDLE, const Node *c) {
        count += isElement(c) && dsView(c->nodeName) == name;
        return true;
    });
    return count;
}

// Each element child counts 1 plus its own count: a pre-order walk that
// enters elements only, in constant stack.
uint32_t VQXML_countSubElements(VQHANDLE parent) {
    vqxml::TreeWalk walk(parent);
    uint32_t count = 0;
    for (VQHANDLE h = walk.first(); h != 0;) {
        const bool element = isElement(vqxml::node(h));
        count += element;
        h = walk.next(h, element);
    }
    return count;
}

// A child whose insertion into `to` is refused is deleted by the insertion
// (the usual ownership rule), so `from` empties either way. Moving a node's
// children onto itself changes nothing.
void VQXML_moveChildren(VQHANDLE to, VQHANDLE from) {
    if (to == from) return;
    for (int64_t budget = vqxml::walkBudget(from) + 1; budget > 0; --budget) {
        const VQHANDLE child = VQDOM_getFirstChild(from);
        if (vqxml::chainNode(child) == nullptr) return;
        if (VQDOM_removeChild(from, child) != child) return;
        VQDOM_appendChild(to, child);
    }
}

void VQXML_moveChildElems(VQHANDLE to, VQHANDLE from) {
    if (to == from) return;
    forEachChild(from, [&](VQHANDLE child, const Node *c) {
        if (!isElement(c)) return true;
        if (VQDOM_removeChild(from, child) != child) return false;
        VQDOM_appendChild(to, child);
        return true;
    });
}

VQHANDLE getRootDocument(VQHANDLE node) {
    const Node *n = liveNode(node);
    if (n == nullptr) return 0;
    return n->nodeType == VQXML_DOCUMENT_NODE ? node : n->ownerDocument;
}

void getDocName(VQHANDLE node, char *buffer, int32_t size) {
    if (buffer == nullptr || size <= 0) return;
    const Node *root = liveNode(VQDOM_getDocumentElement(getRootDocument(node)));
    if (root == nullptr) {
        buffer[0] = '\0';
        return;
    }
    VQDOM_cpyDS(root->nodeName, buffer, size);
}

int mycmp(const char *word, const char *text, uint32_t length) {
    if (word == nullptr || text == nullptr) return 1;
    if (std::strlen(word) != length) return 1;
    return VQSTRNG_strnicmp(word, text, length);
}

}  // extern "C"
