// mutation.cpp - changing the shape of a tree: the parent/child rule,
// linking nodes in (append, insert, replace), unlinking them, merging
// adjacent text, and replacing node values. Deleting subtrees is in
// deletion.cpp, copying them in clone.cpp.
//
// Ownership: a node handed to an insertion belongs to the library from then
// on; a refused node is deleted with its subtree (callers rely on this to
// avoid leaks in long-running builders). Removed nodes stay alive until the
// caller deletes them.
//
// Depth: trees may be arbitrarily deep (a million nested elements is a
// legal document), so no walk here recurses on the tree: normalisation
// uses the store's bounded walk, which follows parent links back up, and
// keeps the order in which a recursive walk would visit.
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace vqxml {
namespace {

// ---- record access ---------------------------------------------------------


bool isParameterEntity(VQHANDLE h) {
    const Entity *e = asType<Entity>(h, VQXML_ENTITY_NODE);
    return e != nullptr && e->kind == 1;
}

// ---- the parent/child rule -------------------------------------------------

constexpr uint32_t bit(int type) { return uint32_t{1} << type; }

constexpr uint32_t kContent = bit(VQXML_ELEMENT_NODE) | bit(VQXML_TEXT_NODE) |
                              bit(VQXML_CDATA_SECTION_NODE) |
                              bit(VQXML_ENTITY_REFERENCE_NODE) |
                              bit(VQXML_PROCESSING_INSTRUCTION_NODE) | bit(VQXML_COMMENT_NODE);

// Child types a parent of the given type accepts. The document's element
// and the parameter entity are decided in allowedChild().
uint32_t childMask(int parentType) {
    switch (parentType) {
    case VQXML_ELEMENT_NODE:
    case VQXML_DOCUMENT_FRAGMENT_NODE:
    case VQXML_ENTITY_NODE:
        return kContent;
    case VQXML_ATTRIBUTE_NODE:
        return bit(VQXML_TEXT_NODE) | bit(VQXML_ENTITY_REFERENCE_NODE);
    case VQXML_ENTITY_REFERENCE_NODE:
        // A reference in the internal subset carries the declarations that
        // its parameter entity brought in.
        return kContent | bit(VQXML_ENTITY_NODE) | bit(VQXML_NOTATION_NODE) |
               bit(VQXML_ELEMENT_DECL_NODE) | bit(VQXML_ATTLIST_DECL_NODE);
    case VQXML_DOCUMENT_NODE:
        return bit(VQXML_ELEMENT_NODE) | bit(VQXML_PROCESSING_INSTRUCTION_NODE) |
               bit(VQXML_COMMENT_NODE) | bit(VQXML_DOCUMENT_TYPE_NODE);
    case VQXML_DOCUMENT_TYPE_NODE:
        return bit(VQXML_ENTITY_REFERENCE_NODE) | bit(VQXML_ENTITY_NODE) |
               bit(VQXML_PROCESSING_INSTRUCTION_NODE) | bit(VQXML_COMMENT_NODE) |
               bit(VQXML_NOTATION_NODE) | bit(VQXML_ELEMENT_DECL_NODE) |
               bit(VQXML_ATTLIST_DECL_NODE);
    case VQXML_ELEMENT_DECL_NODE:
    case VQXML_CP_CHILDREN_NODE:
        return bit(VQXML_CP_CHILDREN_NODE);
    case VQXML_ATTLIST_DECL_NODE:
        return bit(VQXML_ATT_DEF_NODE);
    case VQXML_ATT_DEF_NODE:
        return bit(VQXML_NAME_LIST_NODE);
    default:
        return 0;
    }
}

bool allowedChild(VQHANDLE parent, int parentType, VQHANDLE child, int childType) {
    if ((childMask(parentType) & bit(childType)) == 0) return false;
    if (parentType == VQXML_ENTITY_NODE) return !isParameterEntity(parent);
    if (parentType == VQXML_DOCUMENT_NODE && childType == VQXML_ELEMENT_NODE) {
        // One document element; re-appending that very element moves it.
        const VQHANDLE root = VQDOM_getDocumentElement(parent);
        return root == 0 || root == child;
    }
    return true;
}

// The node one level above `n`: its parent or, for a node that has none but
// sits in a map (an attribute), the map's owner. An attribute's children may
// be entity references holding elements, so a node can lie below an element
// by way of that element's attributes; walking these links passes every
// node it lies below.
VQHANDLE holderOf(const Node *n) {
    if (n->parentNode != 0) return n->parentNode;
    const NamedNodeMap *m = aux<NamedNodeMap>(n->containingMap);
    return m != nullptr ? m->owner : 0;
}

// Whether the children of `n` are at most one text node, which can hold
// nothing below it.
bool holdsOnlyText(const Node *n) {
    if (n->firstChild == 0) return true;
    const Node *c = asNode(n->firstChild);
    return c != nullptr && c->nodeType == VQXML_TEXT_NODE && n->firstChild == n->lastChild;
}

// Whether a node could lie below `n`: `n` has more than a lone text child,
// or one of its attributes has. The common leaves (an element with a text
// and plain attributes) need no walk.
bool mayHoldNodes(const Node *n) {
    if (!holdsOnlyText(n)) return true;
    const NamedNodeMap *m = aux<NamedNodeMap>(n->attributes);
    StepBound steps(n->attributes);
    for (const ListItem *item = m != nullptr ? aux<ListItem>(m->firstItem) : nullptr; item != nullptr;
         item = aux<ListItem>(item->nextItem)) {
        const Node *a = asNode(item->node);
        if (!steps.take() || (a != nullptr && !holdsOnlyText(a))) return true;
    }
    return false;
}

}  // namespace

// True when `child` is `parent` or lies above it (through parents and
// attribute maps), so that linking it below `parent` would make a cycle. A
// node that can hold nothing can only be the parent itself, which spares
// the walk up for the common case of appending fresh leaves to a deep tree.
bool isAncestorOrSelf(VQHANDLE child, VQHANDLE parent) {
    if (child == parent) return true;
    // A parent with nothing above it (a node being built) has only itself.
    const Node *top = asNode(parent);
    if (top == nullptr || holderOf(top) == 0) return false;
    if (const Node *c = asNode(child); c != nullptr && !mayHoldNodes(c)) return false;
    for (VQHANDLE p = holderOf(top); p != 0;) {
        if (p == child) return true;
        const Node *n = asNode(p);
        if (n == nullptr) break;
        p = holderOf(n);
    }
    return false;
}

namespace {

// ---- linking ---------------------------------------------------------------

// Drops the node from the map that holds it (frees its item) and clears its
// owner map. The first item naming the node is the one taken.
void leaveMap(VQHANDLE h) {
    Node *n = asNode(h);
    if (n == nullptr) return;
    const VQHANDLE map = n->containingMap;
    n->containingMap = 0;
    NamedNodeMap *m = aux<NamedNodeMap>(map);
    if (m == nullptr) return;
    StepBound steps(map);
    for (VQHANDLE it = m->firstItem; it != 0 && steps.take();) {
        ListItem *item = aux<ListItem>(it);
        if (item == nullptr) return;
        if (item->node != h) {
            it = item->nextItem;
            continue;
        }
        if (ListItem *prev = aux<ListItem>(item->previousItem)) prev->nextItem = item->nextItem;
        else m->firstItem = item->nextItem;
        if (ListItem *next = aux<ListItem>(item->nextItem)) next->previousItem = item->previousItem;
        else m->lastItem = item->previousItem;
        myFree(it);
        return;
    }
}

// Links an unlinked node as the last child of `parent`, given both records.
inline void linkLast(VQHANDLE parent, Node *p, VQHANDLE child, Node *c) {
    treeChanged();
    c->nextSibling = 0;
    if (Node *last = asNode(p->lastChild)) {
        c->previousSibling = p->lastChild;
        last->nextSibling = child;
    } else {
        c->previousSibling = 0;
        p->firstChild = child;
    }
    p->lastChild = child;
    c->parentNode = parent;
}

void linkLast(VQHANDLE parent, VQHANDLE child) { linkLast(parent, asNode(parent), child, asNode(child)); }

// Links an unlinked node in front of `ref`, a child of `parent`.
void linkBefore(VQHANDLE parent, VQHANDLE child, VQHANDLE ref) {
    treeChanged();
    Node *c = asNode(child);
    Node *r = asNode(ref);
    c->nextSibling = ref;
    c->previousSibling = r->previousSibling;
    if (Node *prev = asNode(r->previousSibling)) prev->nextSibling = child;
    else asNode(parent)->firstChild = child;
    r->previousSibling = child;
    c->parentNode = parent;
}

// Refusing an insertion: the node belongs to the library, so it goes.
VQHANDLE refuse(int32_t code, VQHANDLE newChild) {
    if (code != 0) domError(code, nullptr);
    VQDOM_deleteNode(newChild);
    return 0;
}

// A fragment appended or inserted into itself would rotate its children
// forever; it is refused like any node made its own child.
bool fragmentIntoItself(VQHANDLE parent, VQHANDLE fragment) {
    return parent == fragment && typeOf(fragment) == VQXML_DOCUMENT_FRAGMENT_NODE;
}

// Moves the children of a fragment one by one with `move` (each is tested on
// its own, and a refused child is deleted by that call), then deletes the
// fragment. Returns the former first child.
template <typename Move>
VQHANDLE spliceFragment(VQHANDLE fragment, Move move) {
    const VQHANDLE first = asNode(fragment)->firstChild;
    while (Node *f = asNode(fragment)) {
        const VQHANDLE child = f->firstChild;
        if (child == 0) break;
        if (asNode(child) == nullptr) {
            // A damaged chain: nothing more can be moved from it.
            f->firstChild = f->lastChild = 0;
            break;
        }
        move(child);
    }
    VQDOM_deleteNode(fragment);
    return first;
}

// ---- normalisation ---------------------------------------------------------

bool isText(VQHANDLE h) { return typeOf(h) == VQXML_TEXT_NODE; }

// Merges the run of text siblings that follows `text` into it. The whole
// run is joined in one new block moved under the first node's value handle
// (as an append does), so a run of any length costs linear time; holders of
// that handle see the merged text. The followers' values and nodes go.
// A run is at most as long as the document has objects, and never comes
// back to `text` itself, however its links are damaged; should a damaged
// follower take `text` with it when it goes, the merge ends there.
void mergeRun(VQHANDLE text) {
    auto follower = [text](StepBound &steps) -> VQHANDLE {
        const Node *t = asNode(text);
        const VQHANDLE s = t != nullptr ? t->nextSibling : 0;
        return s != text && isText(s) && steps.take() ? s : 0;
    };
    if (asNode(text) == nullptr || !isText(asNode(text)->nextSibling)) return;
    const VQHANDLE value = asNode(text)->nodeValue;
    if (!liveHandle(value)) {
        // Nothing to append to: each follower goes through the plain
        // append, which reports the missing value and drops the data.
        StepBound steps(text);
        while (const VQHANDLE sibling = follower(steps)) {
            const VQHANDLE data = asNode(sibling)->nodeValue;
            asNode(sibling)->nodeValue = 0;
            VQDOM_appendData(text, data);
            VQDOM_deleteNode(sibling);
        }
        return;
    }
    // The run as far as it goes before it meets `text` again or runs out of
    // steps; exactly those followers are joined and deleted.
    size_t total = dsView(value).size();
    int64_t followers = 0;
    StepBound counting(text);
    for (VQHANDLE s = asNode(text)->nextSibling; s != text && isText(s) && counting.take();
         s = asNode(s)->nextSibling, ++followers)
        total += dsView(asNode(s)->nodeValue).size();
    const VQHANDLE joined = allocDS(text, static_cast<int64_t>(total) + 1);
    if (joined == 0) return;
    char *out = VQDOM_getBufferDS(joined);
    const std::string_view head = dsView(value);
    std::memcpy(out, head.data(), head.size());
    out += head.size();
    VQHANDLE s = asNode(text)->nextSibling;
    for (int64_t i = 0; i < followers; ++i, s = asNode(s)->nextSibling) {
        const std::string_view piece = dsView(asNode(s)->nodeValue);
        std::memcpy(out, piece.data(), piece.size());
        out += piece.size();
    }
    *out = '\0';
    changeHandle(value, joined);
    myFree(joined);  // now names the old text
    StepBound deleting(text);
    for (int64_t i = 0; i < followers; ++i) {
        const VQHANDLE sibling = follower(deleting);
        if (sibling == 0) break;
        const VQHANDLE data = asNode(sibling)->nodeValue;
        asNode(sibling)->nodeValue = 0;
        VQDOM_deleteDS(data);
        VQDOM_deleteNode(sibling);
    }
}

}  // namespace
}  // namespace vqxml

using namespace vqxml;

// ---- the parent/child rule ---------------------------------------------------

extern "C" int hierarchyErr(VQHANDLE parent, VQHANDLE child) {
    bool refused = isAncestorOrSelf(child, parent);
    if (!refused) {
        const int parentType = typeOf(parent);
        const int childType = typeOf(child);
        // Callers have tested the handles; an invalid one is let through.
        if (parentType == 0 || childType == 0) return 0;
        refused = !allowedChild(parent, parentType, child, childType);
    }
    if (!refused) return 0;
    domError(kHierarchyRequestErr, nullptr);
    return 1;
}

// ---- linking in ----------------------------------------------------------------

extern "C" VQHANDLE VQDOM_appendChild(VQHANDLE parent, VQHANDLE newChild) {
    if (!validHandle(parent) || !validHandle(newChild)) return refuse(0, newChild);
    // Nothing below allocates before the final step, so the records stay put.
    const Node *p = asNode(parent);
    const Node *c = asNode(newChild);
    if (p == nullptr || c == nullptr) return refuse(0, newChild);
    if (p->ownerDocument != c->ownerDocument) return refuse(kWrongDocumentErr, newChild);
    const int type = c->nodeType;
    if (type == VQXML_DOCUMENT_FRAGMENT_NODE) {
        if (fragmentIntoItself(parent, newChild)) return refuse(kHierarchyRequestErr, newChild);
        return spliceFragment(newChild, [parent](VQHANDLE child) { VQDOM_appendChild(parent, child); });
    }
    if (hierarchyErr(parent, newChild)) return refuse(0, newChild);
    if (c->parentNode != 0) removeNode(newChild);
    linkLast(parent, newChild);
    // Only entities and notations are entered into the document type's maps.
    if (type == VQXML_ENTITY_NODE || type == VQXML_NOTATION_NODE) appendToMaps(newChild);
    return newChild;
}

VQHANDLE vqxml::appendToUnlinked(VQHANDLE parent, VQHANDLE child) {
    Node *p = asNode(parent);
    Node *c = asNode(child);
    if (p != nullptr && c != nullptr && parent != child && p->parentNode == 0 &&
        p->containingMap == 0 && c->parentNode == 0 && p->ownerDocument == c->ownerDocument) {
        // The parent/child rule for the parents a builder fills; entities
        // and documents have further rules and take the full path.
        uint32_t accepted = 0;
        switch (p->nodeType) {
        case VQXML_ELEMENT_NODE:
        case VQXML_DOCUMENT_FRAGMENT_NODE:
        case VQXML_ENTITY_REFERENCE_NODE:
            accepted = kContent;
            break;
        case VQXML_ATTRIBUTE_NODE:
            accepted = bit(VQXML_TEXT_NODE) | bit(VQXML_ENTITY_REFERENCE_NODE);
            break;
        default:
            break;
        }
        if ((accepted & bit(c->nodeType)) != 0) {
            linkLast(parent, p, child, c);  // nothing here allocates
            return child;
        }
    }
    return VQDOM_appendChild(parent, child);
}

extern "C" VQHANDLE VQDOM_insertBefore(VQHANDLE parent, VQHANDLE newChild, VQHANDLE refChild) {
    if (!validHandle(refChild) || asNode(refChild) == nullptr)
        return VQDOM_appendChild(parent, newChild);
    if (!validHandle(parent) || !validHandle(newChild) || asNode(parent) == nullptr ||
        asNode(newChild) == nullptr)
        return refuse(0, newChild);
    if (newChild == refChild) return refChild;
    if (asNode(parent)->ownerDocument != asNode(newChild)->ownerDocument)
        return refuse(kWrongDocumentErr, newChild);
    if (asNode(refChild)->parentNode != parent) return refuse(kNotFoundErr, newChild);
    if (typeOf(newChild) == VQXML_DOCUMENT_FRAGMENT_NODE) {
        if (fragmentIntoItself(parent, newChild)) return refuse(kHierarchyRequestErr, newChild);
        return spliceFragment(newChild, [parent, refChild](VQHANDLE c) {
            VQDOM_insertBefore(parent, c, refChild);
        });
    }
    if (hierarchyErr(parent, newChild)) return refuse(0, newChild);
    if (asNode(newChild)->parentNode != 0) removeNode(newChild);
    linkBefore(parent, newChild, refChild);
    appendToMaps(newChild);
    return newChild;
}

extern "C" VQHANDLE VQDOM_replaceChild(VQHANDLE parent, VQHANDLE newChild, VQHANDLE oldChild) {
    // Unlike the insertions, a call refused here leaves newChild alone.
    if (newChild == oldChild || !validHandle(parent) || !validHandle(newChild) ||
        asNode(parent) == nullptr || asNode(newChild) == nullptr)
        return 0;
    if (typeOf(parent) == VQXML_DOCUMENT_NODE && typeOf(newChild) == VQXML_ELEMENT_NODE) {
        // The new document element goes where the current one stands,
        // whichever child oldChild is: the one-element rule must see the
        // old element gone before the new one is linked.
        const VQHANDLE root = VQDOM_getDocumentElement(parent);
        if (root == 0) return 0;
        const VQHANDLE after = asNode(root)->nextSibling;
        const VQHANDLE removed = VQDOM_removeChild(parent, oldChild);
        VQDOM_insertBefore(parent, newChild, after);
        return removed;
    }
    VQDOM_insertBefore(parent, newChild, oldChild);
    return VQDOM_removeChild(parent, oldChild);
}

// ---- unlinking -------------------------------------------------------------------

extern "C" VQHANDLE VQDOM_removeChild(VQHANDLE parent, VQHANDLE oldChild) {
    if (validHandle(parent) && validHandle(oldChild) && asNode(oldChild) != nullptr &&
        asNode(oldChild)->parentNode == parent) {
        removeNode(oldChild);
        return oldChild;
    }
    domError(kNotFoundErr, nullptr);
    return 0;
}

extern "C" void removeNode(VQHANDLE h) {
    Node *n = asNode(h);
    if (n == nullptr) return;
    treeChanged();
    const VQHANDLE parent = n->parentNode, prev = n->previousSibling, next = n->nextSibling;
    Node *p = asNode(parent);
    if (Node *before = asNode(prev)) before->nextSibling = next;
    else if (p != nullptr) p->firstChild = next;
    if (Node *after = asNode(next)) after->previousSibling = prev;
    else if (p != nullptr) p->lastChild = prev;
    // A removed attribute simply disappears: its owner map is cleared here,
    // so no DTD default is put back in its place.
    if (n->containingMap != 0) leaveMap(h);
    n->parentNode = n->previousSibling = n->nextSibling = 0;
}

extern "C" void appendToMaps(VQHANDLE h) {
    const int type = typeOf(h);
    if (!(type == VQXML_ENTITY_NODE && !isParameterEntity(h)) && type != VQXML_NOTATION_NODE)
        return;
    const DocumentType *dt = asType<DocumentType>(VQDOM_getDoctype(asNode(h)->ownerDocument),
                                                  VQXML_DOCUMENT_TYPE_NODE);
    if (dt == nullptr) return;
    const VQHANDLE map = type == VQXML_ENTITY_NODE ? dt->entities : dt->notations;
    if (aux<NamedNodeMap>(map) == nullptr) return;
    // The first declaration of a name wins.
    if (VQDOM_getNamedItem(map, asNode(h)->nodeName) != 0) return;
    VQDOM_setNamedItem(map, h);
}

// ---- merging text ----------------------------------------------------------------------

extern "C" int VQDOM_normalize(VQHANDLE root) {
    const Node *r = asNode(root);
    if (r == nullptr) return 0;
    // Pre-order over elements only: element children are entered (as a
    // recursive normalisation would), every other node is looked at once.
    // Attribute maps are not visited; CDATA sections, references and
    // comments break a text run.
    TreeWalk walk(root);
    for (VQHANDLE cur = walk.first(); cur != 0;) {
        const int type = node(cur)->nodeType;
        if (type == VQXML_TEXT_NODE) mergeRun(cur);
        cur = walk.next(cur, type == VQXML_ELEMENT_NODE);
    }
    return 0;
}

// ---- values --------------------------------------------------------------------------

extern "C" void VQDOM_setNodeValue(VQHANDLE h, VQHANDLE value) {
    if (!validHandle(value)) return;
    if (!validHandle(h) || asNode(h) == nullptr) {
        VQDOM_deleteDS(value);
        return;
    }
    if ((h & 255) != (value & 255)) {
        VQDOM_deleteDS(value);
        domError(kWrongDocumentErr, "setNodeValue");
        return;
    }
    Node *n = asNode(h);
    // Setting a node's own value again keeps it (deleting it first would
    // leave the node holding a dead handle).
    if (n->nodeValue != value) VQDOM_deleteDS(n->nodeValue);
    n = asNode(h);
    n->nodeValue = 0;
    if (n->nodeType != VQXML_ATTRIBUTE_NODE) {
        n->nodeValue = value;
        return;
    }
    reinterpret_cast<Attr *>(n)->specified = 1;
    while (Node *a = asNode(h)) {
        const VQHANDLE child = a->firstChild;
        if (child == 0) break;
        if (!deletable(child)) {
            a->firstChild = a->lastChild = 0;
            break;
        }
        VQDOM_deleteNode(child);
    }
    VQDOM_appendChild(h, VQDOM_createTextNode(asNode(h)->ownerDocument, value));
    getNormalValue(h, 1);
}

extern "C" void VQDOM_setData(VQHANDLE h, VQHANDLE value) { VQDOM_setNodeValue(h, value); }

extern "C" void VQDOM_setValue(VQHANDLE h, VQHANDLE value) { VQDOM_setNodeValue(h, value); }
