// attributes.cpp - the two collection types and the attribute operations
// built on them: named node maps (an element's attributes, a document
// type's entities and notations, an attribute definition's default), node
// lists (a node's children, live tag-name searches, path selections),
// getting, setting and removing attributes, DTD default attributes, and the
// value of an attribute computed from its children.
//
// Map items keep insertion order and a lookup takes the first item whose
// node has the name. Names compare byte for byte. Lookups record nothing:
// an invalid map, list, element or name simply finds nothing.
#include <cstring>
#include <string_view>

#include "vqxml/dom/dom.h"
#include "vqxml/model/select.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/limits.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace vqxml {
namespace {

// ---- record access ---------------------------------------------------------


VQHANDLE attributeMapOf(VQHANDLE element) {
    const Node *e = asNode(element);
    return e != nullptr ? e->attributes : 0;
}

// ---- map items -------------------------------------------------------------

// The first item of the map whose node's name is `name`, or 0.
VQHANDLE itemNamed(VQHANDLE map, std::string_view name) {
    if (VQHANDLE found; indexedItem(map, name, &found)) return found;
    const NamedNodeMap *m = aux<NamedNodeMap>(map);
    StepBound steps(map);
    for (VQHANDLE it = m != nullptr ? m->firstItem : 0; it != 0 && steps.take();) {
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) return 0;
        const Node *n = asNode(item->node);
        if (n != nullptr && dsEquals(n->nodeName, name)) return it;
        it = item->nextItem;
    }
    return 0;
}

VQHANDLE itemNamedDS(VQHANDLE map, VQHANDLE nameDS) {
    return liveHandle(nameDS) ? itemNamed(map, dsView(nameDS)) : 0;
}

VQHANDLE nodeOfItem(VQHANDLE it) {
    const ListItem *item = aux<ListItem>(it);
    return item != nullptr ? item->node : 0;
}

// Unlinks an item from its map and frees it.
void dropItem(VQHANDLE map, VQHANDLE it) {
    NamedNodeMap *m = aux<NamedNodeMap>(map);
    const ListItem item = *aux<ListItem>(it);
    if (ListItem *prev = aux<ListItem>(item.previousItem)) prev->nextItem = item.nextItem;
    else m->firstItem = item.nextItem;
    if (ListItem *next = aux<ListItem>(item.nextItem)) next->previousItem = item.previousItem;
    else m->lastItem = item.previousItem;
    myFree(it);
}

// A node held by one map that is entered into another (an entity or a
// notation; attributes are refused instead) leaves the first, so that
// exactly one item ever names it.
void leaveOldMap(VQHANDLE h) {
    Node *n = asNode(h);
    const VQHANDLE map = n->containingMap;
    n->containingMap = 0;
    const NamedNodeMap *m = aux<NamedNodeMap>(map);
    StepBound steps(map);
    for (VQHANDLE it = m != nullptr ? m->firstItem : 0; it != 0 && steps.take();) {
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) return;
        if (item->node == h) {
            dropItem(map, it);
            return;
        }
        it = item->nextItem;
    }
}

// ---- node lists ------------------------------------------------------------

// Lists of mode 1 are made by the path selector, which supplies their
// search (the match numbered `wanted` below the list's owner, counting
// matches in the list's counter).
VQHANDLE selectionItem(VQHANDLE list, uint32_t wanted) { return findItemX(list, wanted); }

constexpr uint32_t kNeverMatches = 0xffffffffu;

// ---- attribute values ------------------------------------------------------

// Folds blanks in place: none in front, none behind, one for each run
// inside. Only the space character folds; tabs and line breaks stay.
void foldBlanks(char *text) {
    char *out = text;
    bool pending = false;
    for (const char *in = text; *in != '\0'; ++in) {
        if (*in == ' ') {
            pending = out != text;
            continue;
        }
        if (pending) *out++ = ' ';
        pending = false;
        *out++ = *in;
    }
    *out = '\0';
}

// Nesting of default attributes being added. A declared default can hold
// an entity reference whose elements again get defaults; a declaration set
// that leads back to itself must end rather than recurse without bound.
int defaultNesting = 0;

}  // namespace
}  // namespace vqxml

using namespace vqxml;

// ---- named node maps -----------------------------------------------------------

extern "C" VQHANDLE VQDOM_getNamedItem(VQHANDLE map, VQHANDLE name) {
    return nodeOfItem(itemNamedDS(map, name));
}

extern "C" VQHANDLE VQDOM_getNamedItemStr(VQHANDLE map, const char *name) {
    return name != nullptr ? nodeOfItem(itemNamed(map, name)) : 0;
}

namespace vqxml {
namespace {

// Enters a node into a map; `lookup` false skips the search for a node of
// the same name, for callers that know there is none. `taken` is a map item
// the caller has allocated already (0: one is allocated here); a refused
// node leaves it to the caller.
VQHANDLE setNamedItem(VQHANDLE map, VQHANDLE h, bool lookup, VQHANDLE taken = 0) {
    if (!checkHandle(map) || !checkHandle(h) || aux<NamedNodeMap>(map) == nullptr ||
        asNode(h) == nullptr) {
        VQDOM_deleteNode(h);
        return 0;
    }
    const Node *n = asNode(h);
    // An attribute belongs to one element at a time; the caller keeps it.
    if (n->nodeType == VQXML_ATTRIBUTE_NODE && n->containingMap != 0) {
        domError(kInuseAttributeErr, nullptr);
        return 0;
    }
    const VQHANDLE ownerHandle = aux<NamedNodeMap>(map)->owner;
    const Node *owner = asNode(ownerHandle);
    if (owner == nullptr || owner->ownerDocument != n->ownerDocument) {
        domError(kWrongDocumentErr, nullptr);
        VQDOM_deleteNode(h);
        return 0;
    }
    // An attribute whose value holds (through an entity reference) the very
    // element it would be given to would make the tree a cycle, which no
    // copy or walk could finish; it is refused like a node made its own
    // child.
    if (isAncestorOrSelf(h, ownerHandle)) {
        domError(kHierarchyRequestErr, nullptr);
        VQDOM_deleteNode(h);
        return 0;
    }
    if (n->containingMap != 0) leaveOldMap(h);
    const VQHANDLE displaced = lookup ? nodeOfItem(itemNamedDS(map, asNode(h)->nodeName)) : 0;
    const VQHANDLE it = taken != 0 ? taken : myAlloc(h, sizeof(ListItem));
    if (it == 0) {
        VQDOM_deleteNode(h);
        return 0;
    }
    NamedNodeMap *m = aux<NamedNodeMap>(map);
    ListItem *item = aux<ListItem>(it);
    item->nextItem = 0;
    item->previousItem = m->lastItem;
    item->node = h;
    if (ListItem *last = aux<ListItem>(m->lastItem)) last->nextItem = it;
    else m->firstItem = it;
    m->lastItem = it;
    asNode(h)->containingMap = map;
    // The new node goes to the end, so a replaced attribute moves there.
    if (displaced == 0) return 0;
    removeNode(displaced);
    return displaced;
}

}  // namespace

VQHANDLE appendAbsentAttribute(VQHANDLE element, VQHANDLE attribute) {
    const VQHANDLE map = checkHandle(element) ? attributeMapOf(element) : 0;
    return setNamedItem(map, attribute, false);
}

VQHANDLE takeMapItem(VQHANDLE document) {
    const VQHANDLE item = myAlloc(document, sizeof(ListItem));
    if (item == 0) errorAlloc("ListItem", sizeof(ListItem));
    return item;
}

VQHANDLE setAttributeNodeWith(VQHANDLE element, VQHANDLE attribute, VQHANDLE item) {
    const VQHANDLE map = checkHandle(element) ? attributeMapOf(element) : 0;
    return setNamedItem(map, attribute, true, item);
}

}  // namespace vqxml

extern "C" VQHANDLE VQDOM_setNamedItem(VQHANDLE map, VQHANDLE h) {
    return vqxml::setNamedItem(map, h, true);
}

extern "C" VQHANDLE VQDOM_removeNamedItem(VQHANDLE map, VQHANDLE name) {
    if (aux<NamedNodeMap>(map) == nullptr) return 0;
    const VQHANDLE it = itemNamedDS(map, name);
    if (it == 0) {
        domError(kNotFoundErr, nullptr);
        return 0;
    }
    // No DTD default takes the place of a removed attribute.
    const VQHANDLE h = nodeOfItem(it);
    dropItem(map, it);
    if (Node *n = asNode(h)) n->containingMap = 0;
    return h;
}

extern "C" VQHANDLE VQDOM_removeNamedItemStr(VQHANDLE map, const char *name) {
    if (aux<NamedNodeMap>(map) == nullptr) return 0;
    if (name == nullptr) {
        domError(kNotFoundErr, nullptr);
        return 0;
    }
    const VQHANDLE nameDS = VQDOM_createDS(map, name);
    const VQHANDLE h = VQDOM_removeNamedItem(map, nameDS);
    VQDOM_deleteDS(nameDS);
    return h;
}

extern "C" VQHANDLE VQDOM_itemMap(VQHANDLE map, uint64_t index) {
    const NamedNodeMap *m = aux<NamedNodeMap>(map);
    uint64_t i = 0;
    StepBound steps(map);
    for (VQHANDLE it = m != nullptr ? m->firstItem : 0; it != 0 && steps.take(); ++i) {
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) return 0;
        if (i == index) return item->node;
        it = item->nextItem;
    }
    return 0;
}

extern "C" uint32_t VQDOM_getLengthMap(VQHANDLE map) {
    const NamedNodeMap *m = aux<NamedNodeMap>(map);
    uint32_t count = 0;
    StepBound steps(map);
    for (VQHANDLE it = m != nullptr ? m->firstItem : 0; it != 0 && steps.take(); ++count) {
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) break;
        it = item->nextItem;
    }
    return count;
}

// ---- node lists ------------------------------------------------------------------

extern "C" VQHANDLE VQDOM_itemList(VQHANDLE list, uint64_t index) {
    NodeList *l = aux<NodeList>(list);
    if (l == nullptr) return 0;
    const Node *owner = asNode(l->owner);
    if (owner == nullptr) return 0;
    if (l->tagName == 0) {
        uint64_t i = 0;
        StepBound steps(list);
        for (VQHANDLE c = owner->firstChild; steps.take() && asNode(c) != nullptr; c = asNode(c)->nextSibling, ++i)
            if (i == index) return c;
        return 0;
    }
    // Live searches: the counter starts afresh on every call, so the list
    // always shows the tree as it is now. No match can be numbered past the
    // counter's range.
    if (index >= kNeverMatches) return 0;
    l->count = 0;
    if (l->mode == 1) return selectionItem(list, static_cast<uint32_t>(index));
    return findItem(list, static_cast<int64_t>(index), l->owner);
}

extern "C" uint32_t VQDOM_getLengthList(VQHANDLE list) {
    NodeList *l = aux<NodeList>(list);
    if (l == nullptr) return 0;
    const Node *owner = asNode(l->owner);
    if (owner == nullptr) return 0;
    if (l->tagName == 0) {
        uint32_t count = 0;
        StepBound steps(list);
        for (VQHANDLE c = owner->firstChild; steps.take() && asNode(c) != nullptr; c = asNode(c)->nextSibling)
            ++count;
        return count;
    }
    // The search for a match that is never reached counts them all.
    l->count = 0;
    if (l->mode == 1) selectionItem(list, kNeverMatches);
    else findItem(list, -1, l->owner);
    return aux<NodeList>(list)->count;
}

// ---- attributes of an element -------------------------------------------------------

extern "C" VQHANDLE VQDOM_getAttribute(VQHANDLE element, VQHANDLE name) {
    const Node *a = asNode(VQDOM_getNamedItem(attributeMapOf(element), name));
    return a != nullptr ? a->nodeValue : 0;
}

extern "C" int64_t VQDOM_getAttributeStr(VQHANDLE element, const char *name, char *buffer,
                                         int64_t capacity) {
    if (const Node *a = asNode(VQDOM_getNamedItemStr(attributeMapOf(element), name)))
        return VQDOM_cpyDS(a->nodeValue, buffer, capacity);
    if (buffer != nullptr && capacity != 0) buffer[0] = '\0';
    return 0;
}

extern "C" VQHANDLE VQDOM_getAttributeNode(VQHANDLE element, VQHANDLE name) {
    return VQDOM_getNamedItem(attributeMapOf(element), name);
}

extern "C" VQHANDLE VQDOM_getAttributeNodeStr(VQHANDLE element, const char *name) {
    return VQDOM_getNamedItemStr(attributeMapOf(element), name);
}

extern "C" void VQDOM_setAttribute(VQHANDLE element, VQHANDLE name, VQHANDLE value) {
    if (!checkHandle(element) || asNode(element) == nullptr) {
        VQDOM_deleteDS(name);
        VQDOM_deleteDS(value);
        return;
    }
    const VQHANDLE attr = VQDOM_createAttribute(asNode(element)->ownerDocument, name);
    if (attr == 0) {
        VQDOM_deleteDS(value);
        return;
    }
    const VQHANDLE displaced = VQDOM_setNamedItem(attributeMapOf(element), attr);
    if (asNode(attr) == nullptr) {
        // The map refused and deleted the attribute; the value goes too.
        VQDOM_deleteDS(value);
        return;
    }
    // The value is given by the caller: specified, kept exactly as written
    // whatever type the DTD declares.
    VQDOM_setNodeValue(attr, value);
    VQDOM_deleteNode(displaced);
}

extern "C" VQHANDLE VQDOM_setAttributeNode(VQHANDLE element, VQHANDLE attribute) {
    const VQHANDLE map = checkHandle(element) ? attributeMapOf(element) : 0;
    return VQDOM_setNamedItem(map, attribute);
}

extern "C" void VQDOM_removeAttribute(VQHANDLE element, VQHANDLE name) {
    VQDOM_deleteNode(VQDOM_removeNamedItem(attributeMapOf(element), name));
}

extern "C" void VQDOM_removeAttributeStr(VQHANDLE element, const char *name) {
    VQDOM_deleteNode(VQDOM_removeNamedItemStr(attributeMapOf(element), name));
}

extern "C" VQHANDLE VQDOM_removeAttributeNode(VQHANDLE element, VQHANDLE attribute) {
    if (checkHandle(element) && checkHandle(attribute)) {
        const Node *a = asNode(attribute);
        const VQHANDLE map = attributeMapOf(element);
        if (a != nullptr && map != 0 && a->containingMap == map) {
            removeNode(attribute);
            return attribute;
        }
    }
    domError(kNotFoundErr, nullptr);
    return 0;
}

// ---- DTD defaults ---------------------------------------------------------------------

extern "C" void addDefaultAttributes(VQHANDLE element) {
    const Node *e = asType<Node>(element, VQXML_ELEMENT_NODE);
    if (e == nullptr || defaultNesting >= kMaxDefaultNesting) return;
    const VQHANDLE doctype = VQDOM_getDoctype(e->ownerDocument);
    if (doctype == 0) return;
    ++defaultNesting;
    // While a parse runs (copies of elements included) the definitions with
    // a default come from an index, in the walk's order, rather than from a
    // walk over all declarations for every element.
    if (const VQHANDLE name = asNode(element)->nodeName; liveHandle(name)) {
        VQHANDLE local[16];
        int32_t n = indexedDefaults(doctype, dsView(name), local, 16);
        DbgPtr<VQHANDLE> heap;
        VQHANDLE *defs = local;
        if (n > 16) {
            heap.reset(static_cast<VQHANDLE *>(dbg_malloc(sizeof(VQHANDLE) * static_cast<size_t>(n), "nameIndex")));
            defs = heap.get();
            if (defs == nullptr || indexedDefaults(doctype, dsView(asNode(element)->nodeName), defs, n) != n) n = -1;
        }
        if (n >= 0) {
            for (int32_t i = 0; i < n; ++i) setDefaultAttribute(element, defs[i]);
            --defaultNesting;
            return;
        }
    }
    StepBound steps(doctype);
    for (VQHANDLE decl = getFirstMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE); decl != 0 && steps.take();
         decl = getNextMarkupDecl(decl)) {
        // A damaged image can hand out a declaration, or change the element
        // under the walk, so that neither reads as a node any more.
        const Node *declNode = asNode(decl);
        const Node *elementNode = asNode(element);
        if (declNode == nullptr || elementNode == nullptr) break;
        const VQHANDLE declName = declNode->nodeName;
        const VQHANDLE elementName = elementNode->nodeName;
        if (!liveHandle(declName) || !liveHandle(elementName) ||
            dsView(declName) != dsView(elementName))
            continue;
        for (VQHANDLE def = declNode->firstChild; steps.take() && asNode(def) != nullptr;
             def = asNode(def)->nextSibling) {
            if (asNode(def)->nodeType == VQXML_ATT_DEF_NODE) setDefaultAttribute(element, def);
        }
    }
    --defaultNesting;
}

VQHANDLE vqxml::defaultAttributeOf(VQHANDLE definition) {
    const AttDef *d = asType<AttDef>(definition, VQXML_ATT_DEF_NODE);
    if (d == nullptr) return 0;
    const int cdata = d->attType == 3 ? 1 : 0;
    // The default is item 0 of the definition's own map; #REQUIRED and
    // #IMPLIED definitions without a value have none.
    const VQHANDLE declared = VQDOM_itemMap(d->node.attributes, 0);
    if (asType<Attr>(declared, VQXML_ATTRIBUTE_NODE) == nullptr) return 0;
    const VQHANDLE attr = VQDOM_cloneNode(declared, 1);
    if (asType<Attr>(attr, VQXML_ATTRIBUTE_NODE) == nullptr) return 0;
    // A clone carries the default's children but never its value string,
    // and a defaulted attribute must read its declared default: the value
    // is computed from the cloned children, folded as the declared type
    // asks.
    getNormalValue(attr, cdata);
    asType<Attr>(attr, VQXML_ATTRIBUTE_NODE)->specified = 0;
    return attr;
}

extern "C" void setDefaultAttribute(VQHANDLE element, VQHANDLE definition) {
    const VQHANDLE attr = vqxml::defaultAttributeOf(definition);
    if (attr != 0) VQDOM_deleteNode(VQDOM_setAttributeNode(element, attr));
}

extern "C" int getNormalValue(VQHANDLE attribute, int cdata) {
    if (asNode(attribute) == nullptr) return 0;
    // Measured first and built in one block, so that a value made of many
    // pieces costs linear time.
    // The text children of the attribute and, inside entity references at
    // any depth, theirs.
    const VQHANDLE first = asNode(attribute)->firstChild;
    // The common value, one text child, is the one piece the walk would
    // find; the text's handle is read again after the allocation, which may
    // move the area.
    const Node *only = (first & 255) == (attribute & 255) ? typedNode(first) : nullptr;
    const bool single = only != nullptr && only->nodeType == VQXML_TEXT_NODE && only->nextSibling == 0 &&
                        only->parentNode == attribute;
    size_t total = 0;
    bool complete = true;
    if (single) {
        if (only->nodeValue != 0) total = dsView(only->nodeValue).size();
    } else {
        complete = forEachValueText(attribute, first, [&total](VQHANDLE v) {
            total += dsView(v).size();
            return true;
        });
    }
    const VQHANDLE value = allocDS(attribute, static_cast<int64_t>(total) + 1);
    if (value == 0) return 0;
    char *out = VQDOM_getBufferDS(value);
    char *const start = out;
    if (single) {
        // The text measured above, where the allocation has left it.
        if (total != 0) std::memcpy(out, dsChars(node(first)->nodeValue), total);
        out += total;
    } else {
        forEachValueText(attribute, first, [&out](VQHANDLE v) {
            const std::string_view piece = dsView(v);
            std::memcpy(out, piece.data(), piece.size());
            out += piece.size();
            return true;
        });
    }
    *out = '\0';
    // A value cut short by a child of another kind is kept as gathered.
    if (complete && cdata == 0) foldBlanks(start);
    Node *a = asNode(attribute);
    const VQHANDLE old = a->nodeValue;
    a->nodeValue = value;
    VQDOM_deleteDS(old);
    return complete ? 1 : 0;
}
