// mutation.cpp - changing the shape of a tree: the parent/child rule,
// linking nodes in (append, insert, replace), unlinking them, deleting whole
// subtrees, copying subtrees within and across documents, merging adjacent
// text, and replacing node values.
//
// Ownership: a node handed to an insertion belongs to the library from then
// on; a refused node is deleted with its subtree (callers rely on this to
// avoid leaks in long-running builders). Removed nodes stay alive until the
// caller deletes them.
//
// Depth: trees may be arbitrarily deep (a million nested elements is a
// legal document), so no walk here recurses on the tree. Deletion reverses
// links inside the records it is about to free, cloning keeps its own frame
// stack, and normalisation follows parent links back up. Each keeps exactly
// the order in which a recursive walk would visit, allocate and free.
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


int typeOf(VQHANDLE h) {
    const Node *n = asNode(h);
    return n != nullptr ? n->nodeType : 0;
}

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
    for (const ListItem *item = m != nullptr ? aux<ListItem>(m->firstItem) : nullptr; item != nullptr;
         item = aux<ListItem>(item->nextItem)) {
        const Node *a = asNode(item->node);
        if (a != nullptr && !holdsOnlyText(a)) return true;
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
    if (const Node *c = asNode(child); c != nullptr && !mayHoldNodes(c)) return false;
    for (VQHANDLE p = parent; p != 0;) {
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
    for (VQHANDLE it = m->firstItem; it != 0;) {
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

// Links an unlinked node as the last child of `parent`.
void linkLast(VQHANDLE parent, VQHANDLE child) {
    treeChanged();
    Node *p = asNode(parent);
    Node *c = asNode(child);
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

// ---- deletion --------------------------------------------------------------

// While a node is being deleted its owner-map field holds this mark (no map
// handle is below 256), and its parent field holds the node whose deletion
// reached it. Both fields are free by then: the node has been unlinked.
constexpr VQHANDLE kBeingDeleted = 1;

bool deletable(VQHANDLE h) {
    const Node *n = asNode(h);
    return n != nullptr && n->containingMap != kBeingDeleted;
}

void freeItem(NamedNodeMap *m, VQHANDLE it) {
    ListItem *item = aux<ListItem>(it);
    if (ListItem *next = aux<ListItem>(item->nextItem)) next->previousItem = 0;
    else m->lastItem = 0;
    m->firstItem = item->nextItem;
    myFree(it);
}

// One step of emptying a map whose owner is going away: the next member to
// delete, or 0 once the map is empty and freed (its field is then cleared).
// Items whose node cannot be deleted (stale, or already on its way out) are
// dropped here, so the loop always ends.
VQHANDLE nextMapVictim(VQHANDLE &mapField) {
    while (NamedNodeMap *m = aux<NamedNodeMap>(mapField)) {
        m->owner = 0;
        const VQHANDLE it = m->firstItem;
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) break;
        if (deletable(item->node)) return item->node;
        freeItem(m, it);
    }
    if (aux<NamedNodeMap>(mapField) != nullptr) myFree(mapField);
    mapField = 0;
    return 0;
}

// Steps 2 and 3 of a node's deletion: its strings go, it leaves its parent
// and its map, and it is marked with the node to return to.
void beginDelete(VQHANDLE h, VQHANDLE returnTo) {
    Node *n = asNode(h);
    VQDOM_deleteDS(n->nodeName);
    VQDOM_deleteDS(n->nodeValue);
    n = asNode(h);
    n->nodeName = n->nodeValue = 0;
    removeNode(h);
    n->parentNode = returnTo;
    n->containingMap = kBeingDeleted;
}

// The next node to delete before `h` itself can go: its children first,
// then the members of its attribute map, then (for a document type, after
// its lists and external identifier) the entities and notations still held
// in its maps. Everything freed on the way is what the node's own deletion
// frees between those steps, in the same order.
VQHANDLE nextVictim(VQHANDLE h) {
    Node *n = asNode(h);
    while (n->firstChild != 0) {
        // A child unlinks itself from this node when its deletion begins;
        // one that would not (a damaged chain) is abandoned with the rest.
        if (deletable(n->firstChild) && asNode(n->firstChild)->parentNode == h)
            return n->firstChild;
        n->firstChild = n->lastChild = 0;
    }
    if (n->attributes != 0) {
        if (VQHANDLE v = nextMapVictim(n->attributes)) return v;
    }
    for (VQHANDLE list = n->childNodes; list != 0;) {
        const NodeList *l = aux<NodeList>(list);
        if (l == nullptr) break;
        const VQHANDLE next = l->nextList;
        VQDOM_deleteDS(l->tagName);
        myFree(list);
        list = next;
    }
    n->childNodes = 0;
    if (n->nodeType == VQXML_DOCUMENT_TYPE_NODE) {
        auto *dt = reinterpret_cast<DocumentType *>(n);
        deleteExternalID(dt->externalID);
        dt->externalID = 0;
        if (dt->entities != 0) {
            if (VQHANDLE v = nextMapVictim(dt->entities)) return v;
        }
        if (dt->notations != 0) {
            if (VQHANDLE v = nextMapVictim(dt->notations)) return v;
        }
    }
    return 0;
}

// The last steps: the records only this type owns, then the node itself.
void finishDelete(VQHANDLE h) {
    Node *n = asNode(h);
    switch (n->nodeType) {
    case VQXML_DOCUMENT_NODE:
        deleteXmlDecl(reinterpret_cast<Document *>(n)->xmlDecl);
        break;
    case VQXML_ENTITY_NODE: {
        const Entity e = *reinterpret_cast<Entity *>(n);
        deleteExternalID(e.externalID);
        VQDOM_deleteDS(e.notationName);
        VQDOM_deleteDS(e.value);
        break;
    }
    case VQXML_NOTATION_NODE:
        deleteExternalID(reinterpret_cast<Notation *>(n)->externalID);
        break;
    default:
        break;
    }
    myFree(h);
}

// ---- cloning ---------------------------------------------------------------

VQHANDLE cloneExternalID(VQHANDLE source, VQHANDLE targetDoc) {
    const ExternalID *s = aux<ExternalID>(source);
    if (s == nullptr) return 0;
    const VQHANDLE publicId = s->publicId, systemId = s->systemId;
    const VQHANDLE id = createExternalID(targetDoc);
    if (id == 0) return 0;
    const VQHANDLE publicClone = VQDOM_cloneDS(targetDoc, publicId);
    const VQHANDLE systemClone = VQDOM_cloneDS(targetDoc, systemId);
    ExternalID *x = aux<ExternalID>(id);
    x->publicId = publicClone;
    x->systemId = systemClone;
    return id;
}

// Allocates the clone of `source` in `targetDoc` with its name, its value
// (attributes get theirs from their children later), an empty attribute
// map and, for an element, the target's DTD defaults. 0 on failure.
VQHANDLE startClone(VQHANDLE source, VQHANDLE targetDoc) {
    if (!validHandle(source) || !validHandle(targetDoc)) return 0;
    const Node *s = asNode(source);
    if (s == nullptr) return 0;
    const int type = s->nodeType;
    const VQHANDLE clone = allocNode(targetDoc, type, VQDOM_cloneDS(targetDoc, s->nodeName));
    if (clone == 0) return 0;
    s = asNode(source);
    if (s->nodeValue != 0 && type != VQXML_ATTRIBUTE_NODE)
        VQDOM_setNodeValue(clone, VQDOM_cloneDS(targetDoc, asNode(source)->nodeValue));
    if (asNode(source)->attributes != 0) {
        const VQHANDLE map = createNamedNodeMap(clone);
        asNode(clone)->attributes = map;
        if (type == VQXML_ELEMENT_NODE) addDefaultAttributes(clone);
    }
    return clone;
}

// Attribute values of a clone are computed afresh from their children, by
// the target's declarations: blanks fold unless the attribute is CDATA or
// undeclared there.
void recomputeValues(VQHANDLE clone, VQHANDLE targetDoc) {
    const NamedNodeMap *m = aux<NamedNodeMap>(asNode(clone)->attributes);
    for (VQHANDLE it = m != nullptr ? m->firstItem : 0; it != 0;) {
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) break;
        const VQHANDLE next = item->nextItem;
        const VQHANDLE attr = item->node;
        const Attr *a = asType<Attr>(attr, VQXML_ATTRIBUTE_NODE);
        if (a != nullptr && a->specified != 0) {
            const VQHANDLE def =
                findAttDefDS(targetDoc, asNode(clone)->nodeName, asNode(attr)->nodeName);
            const AttDef *d = asType<AttDef>(def, VQXML_ATT_DEF_NODE);
            getNormalValue(attr, d == nullptr || d->attType == 3 ? 1 : 0);
        }
        it = next;
    }
}

// The per-type fields of a clone, after its child list.
void copyTypeFields(VQHANDLE source, VQHANDLE clone, VQHANDLE targetDoc) {
    switch (typeOf(source)) {
    case VQXML_DOCUMENT_TYPE_NODE: {
        const VQHANDLE id = cloneExternalID(reinterpret_cast<DocumentType *>(asNode(source))->externalID,
                                            targetDoc);
        // A document type always owns its two maps; the clone gets empty
        // ones (its entities enter them as they are linked in).
        const VQHANDLE entities = createNamedNodeMap(clone);
        const VQHANDLE notations = createNamedNodeMap(clone);
        auto *c = reinterpret_cast<DocumentType *>(asNode(clone));
        c->externalID = id;
        c->entities = entities;
        c->notations = notations;
        break;
    }
    case VQXML_ENTITY_REFERENCE_NODE:
        reinterpret_cast<EntityReference *>(asNode(clone))->entity =
            reinterpret_cast<EntityReference *>(asNode(source))->entity;
        break;
    case VQXML_ATTRIBUTE_NODE:
        reinterpret_cast<Attr *>(asNode(clone))->specified =
            reinterpret_cast<Attr *>(asNode(source))->specified;
        break;
    case VQXML_ENTITY_NODE: {
        const Entity s = *reinterpret_cast<Entity *>(asNode(source));
        const VQHANDLE id = cloneExternalID(s.externalID, targetDoc);
        const VQHANDLE notationName = VQDOM_cloneDS(targetDoc, s.notationName);
        const VQHANDLE value = VQDOM_cloneDS(targetDoc, s.value);
        auto *c = reinterpret_cast<Entity *>(asNode(clone));
        c->externalID = id;
        c->notationName = notationName;
        c->value = value;
        c->kind = s.kind;
        break;
    }
    case VQXML_ELEMENT_DECL_NODE:
        reinterpret_cast<ElementDecl *>(asNode(clone))->contentType =
            reinterpret_cast<ElementDecl *>(asNode(source))->contentType;
        break;
    case VQXML_ATT_DEF_NODE: {
        const AttDef *s = reinterpret_cast<AttDef *>(asNode(source));
        auto *c = reinterpret_cast<AttDef *>(asNode(clone));
        c->attType = s->attType;
        c->defaultKind = s->defaultKind;
        break;
    }
    case VQXML_CP_CHILDREN_NODE: {
        const CpChildren *s = reinterpret_cast<CpChildren *>(asNode(source));
        auto *c = reinterpret_cast<CpChildren *>(asNode(clone));
        c->separator = s->separator;
        c->occurrence = s->occurrence;
        break;
    }
    case VQXML_NOTATION_NODE: {
        const VQHANDLE id =
            cloneExternalID(reinterpret_cast<Notation *>(asNode(source))->externalID, targetDoc);
        reinterpret_cast<Notation *>(asNode(clone))->externalID = id;
        break;
    }
    case VQXML_TEXT_NODE:
        reinterpret_cast<Text *>(asNode(clone))->rawXml =
            reinterpret_cast<Text *>(asNode(source))->rawXml;
        break;
    default:
        break;
    }
}

// One node being cloned: where its source and clone are, and how far the
// copy has come. `cursor` is the source map item or source child whose copy
// is under way or next.
struct CloneFrame {
    enum Phase : uint8_t { kStart, kAttributes, kAttributeWait, kChildren, kChildWait };
    VQHANDLE source;
    VQHANDLE clone;
    VQHANDLE cursor;
    Phase phase;
    bool deep;
};

// The frames of one clone job. Shallow trees stay in the inline frames; a
// deeper tree spills to a heap block that doubles as it fills.
class CloneStack {
public:
    CloneStack() = default;
    CloneStack(const CloneStack &) = delete;
    CloneStack &operator=(const CloneStack &) = delete;
    ~CloneStack() {
        if (frames_ != inline_) release();
    }

    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }
    CloneFrame &top() { return frames_[size_ - 1]; }
    CloneFrame &at(size_t i) { return frames_[i]; }
    void pop() { --size_; }

    bool push(VQHANDLE source, bool deep) {
        if (size_ == capacity_ && !grow()) return false;
        frames_[size_++] = CloneFrame{source, 0, 0, CloneFrame::kStart, deep};
        return true;
    }

private:
    static constexpr size_t kInline = 32;

    bool grow() {
        const size_t bytes = 2 * capacity_ * sizeof(CloneFrame);
        auto *bigger = static_cast<CloneFrame *>(vqxml::tracedMalloc(bytes, "clone frames", "cloneNodeDoc"));
        if (bigger == nullptr) {
            errorAlloc("clone frames", static_cast<int64_t>(bytes));
            return false;
        }
        std::memcpy(bigger, frames_, size_ * sizeof(CloneFrame));
        if (frames_ != inline_) release();
        frames_ = bigger;
        capacity_ *= 2;
        return true;
    }

    void release() {
        vqxml::tracedFree(frames_, "cloneNodeDoc");
    }

    CloneFrame inline_[kInline];
    CloneFrame *frames_ = inline_;
    size_t capacity_ = kInline;
    size_t size_ = 0;
};

// Hands a finished clone (or 0) to the frame that asked for it: an
// attribute enters the map, a child is appended; then that frame moves on
// to the source's next item or child.
void deliver(CloneFrame &f, VQHANDLE result) {
    if (f.phase == CloneFrame::kAttributeWait) {
        // A default it displaces stays allocated in the area, unlinked.
        VQDOM_setNamedItem(asNode(f.clone)->attributes, result);
        const ListItem *item = aux<ListItem>(f.cursor);
        f.cursor = item != nullptr ? item->nextItem : 0;
        f.phase = CloneFrame::kAttributes;
    } else {
        if (liveHandle(result)) VQDOM_appendChild(f.clone, result);
        const Node *child = asNode(f.cursor);
        f.cursor = child != nullptr ? child->nextSibling : 0;
        f.phase = CloneFrame::kChildren;
    }
}

// Advances the top frame by one step; returns false when the frame is done
// (its clone, or 0, is then in f.clone).
bool stepClone(CloneFrame &f, VQHANDLE targetDoc, CloneStack &stack, bool &pushFailed) {
    switch (f.phase) {
    case CloneFrame::kStart:
        f.clone = startClone(f.source, targetDoc);
        if (f.clone == 0) return false;
        if (asNode(f.clone)->attributes != 0) {
            const NamedNodeMap *m = aux<NamedNodeMap>(asNode(f.source)->attributes);
            f.cursor = m != nullptr ? m->firstItem : 0;
            f.phase = CloneFrame::kAttributes;
            return true;
        }
        break;
    case CloneFrame::kAttributes:
        while (const ListItem *item = aux<ListItem>(f.cursor)) {
            // Attributes that came from a DTD default are not copied: the
            // target's own defaults stand in for them.
            const Attr *a = asType<Attr>(item->node, VQXML_ATTRIBUTE_NODE);
            if (a != nullptr && a->specified == 0) {
                f.cursor = item->nextItem;
                continue;
            }
            f.phase = CloneFrame::kAttributeWait;
            if (!stack.push(item->node, true)) pushFailed = true;
            return true;
        }
        recomputeValues(f.clone, targetDoc);
        break;
    case CloneFrame::kChildren:
        if (f.cursor != 0) {
            f.phase = CloneFrame::kChildWait;
            if (!stack.push(f.cursor, true)) pushFailed = true;
            return true;
        }
        return false;
    default:
        return true;
    }
    // Past the attributes: the child list, the type's own fields, then the
    // children when deep (a document type always brings its declarations).
    if (asNode(f.source)->childNodes != 0) {
        const VQHANDLE list = createNodeList(f.clone);
        asNode(f.clone)->childNodes = list;
    }
    copyTypeFields(f.source, f.clone, targetDoc);
    const Node *s = asNode(f.source);
    if (!f.deep && s->nodeType != VQXML_DOCUMENT_TYPE_NODE) return false;
    f.cursor = s->firstChild;
    f.phase = CloneFrame::kChildren;
    return true;
}

// ---- normalisation ---------------------------------------------------------

bool isText(VQHANDLE h) { return typeOf(h) == VQXML_TEXT_NODE; }

// Merges the run of text siblings that follows `text` into it. The whole
// run is joined in one new block moved under the first node's value handle
// (as an append does), so a run of any length costs linear time; holders of
// that handle see the merged text. The followers' values and nodes go.
void mergeRun(VQHANDLE text) {
    if (!isText(asNode(text)->nextSibling)) return;
    const VQHANDLE value = asNode(text)->nodeValue;
    if (!liveHandle(value)) {
        // Nothing to append to: each follower goes through the plain
        // append, which reports the missing value and drops the data.
        while (isText(asNode(text)->nextSibling)) {
            const VQHANDLE sibling = asNode(text)->nextSibling;
            const VQHANDLE data = asNode(sibling)->nodeValue;
            asNode(sibling)->nodeValue = 0;
            VQDOM_appendData(text, data);
            VQDOM_deleteNode(sibling);
        }
        return;
    }
    size_t total = dsView(value).size();
    for (VQHANDLE s = asNode(text)->nextSibling; isText(s); s = asNode(s)->nextSibling)
        total += dsView(asNode(s)->nodeValue).size();
    const VQHANDLE joined = allocDS(text, static_cast<int64_t>(total) + 1);
    if (joined == 0) return;
    char *out = VQDOM_getBufferDS(joined);
    const std::string_view head = dsView(value);
    std::memcpy(out, head.data(), head.size());
    out += head.size();
    for (VQHANDLE s = asNode(text)->nextSibling; isText(s); s = asNode(s)->nextSibling) {
        const std::string_view piece = dsView(asNode(s)->nodeValue);
        std::memcpy(out, piece.data(), piece.size());
        out += piece.size();
    }
    *out = '\0';
    changeHandle(value, joined);
    myFree(joined);  // now names the old text
    while (isText(asNode(text)->nextSibling)) {
        const VQHANDLE sibling = asNode(text)->nextSibling;
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

// ---- deletion ----------------------------------------------------------------------

extern "C" void VQDOM_deleteNode(VQHANDLE root) {
    if (!deletable(root)) return;
    // Each node is begun (strings, unlinking), then its victims are deleted
    // one after the other, each completely, before the node is finished and
    // freed. Instead of a call stack, a node in progress keeps the node to
    // return to in its own parent field.
    beginDelete(root, 0);
    VQHANDLE cur = root;
    while (true) {
        if (const VQHANDLE victim = nextVictim(cur)) {
            beginDelete(victim, cur);
            cur = victim;
            continue;
        }
        const VQHANDLE back = asNode(cur)->parentNode;
        // Freeing the root last matters: when it is the area's last object
        // the whole area goes with it.
        finishDelete(cur);
        if (cur == root) return;
        cur = back;
    }
}

extern "C" void deleteNamedNodeMap(VQHANDLE map) {
    while (NamedNodeMap *m = aux<NamedNodeMap>(map)) {
        m->owner = 0;
        const VQHANDLE it = m->firstItem;
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) break;
        if (deletable(item->node)) {
            VQDOM_deleteNode(item->node);
            // A member that was held by this map under a stale entry (its
            // owner-map field names another map) leaves the item behind.
            m = aux<NamedNodeMap>(map);
            if (m != nullptr && m->firstItem == it) freeItem(m, it);
        } else {
            freeItem(m, it);
        }
    }
    if (aux<NamedNodeMap>(map) != nullptr) myFree(map);
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

// ---- cloning -------------------------------------------------------------------------

extern "C" VQHANDLE VQDOM_cloneNode(VQHANDLE h, int deep) {
    if (!validHandle(h) || asNode(h) == nullptr) return 0;
    if (typeOf(h) != VQXML_DOCUMENT_NODE) return VQDOM_cloneNodeDoc(h, deep, asNode(h)->ownerDocument);
    const VQHANDLE doc = VQDOM_createDocument();
    if (doc == 0) return 0;
    if (const XmlDecl *s = aux<XmlDecl>(reinterpret_cast<Document *>(asNode(h))->xmlDecl)) {
        const XmlDecl source = *s;
        const VQHANDLE decl = createXmlDecl(doc);
        if (decl != 0) {
            const VQHANDLE version = VQDOM_cloneDS(doc, source.version);
            const VQHANDLE encoding = VQDOM_cloneDS(doc, source.encoding);
            const VQHANDLE standalone = VQDOM_cloneDS(doc, source.standalone);
            XmlDecl *d = aux<XmlDecl>(decl);
            d->version = version;
            d->encoding = encoding;
            d->standalone = standalone;
            reinterpret_cast<Document *>(asNode(doc))->xmlDecl = decl;
        }
    }
    if (deep) {
        for (VQHANDLE c = asNode(h)->firstChild; asNode(c) != nullptr; c = asNode(c)->nextSibling)
            VQDOM_appendChild(doc, VQDOM_cloneNodeDoc(c, 1, doc));
    }
    return doc;
}

CloneMeter *vqxml::cloneMeter = nullptr;

namespace {

// Copies started while another one runs (the default attributes of a copied
// element): their growth is part of the outer copy's step and charged there.
int cloneNesting = 0;

struct CloneNesting {
    CloneNesting() { ++cloneNesting; }
    ~CloneNesting() { --cloneNesting; }
};

int64_t areaBytes(VQHANDLE doc) {
    const DocArea *a = docHead[doc & 255];
    return a != nullptr ? a->dbgSize : 0;
}

}  // namespace

extern "C" VQHANDLE VQDOM_cloneNodeDoc(VQHANDLE h, int deep, VQHANDLE targetDoc) {
    CloneMeter *const meter = cloneMeter;
    if (meter != nullptr && meter->spent) return 0;
    const bool charging = meter != nullptr && cloneNesting == 0;
    const CloneNesting nesting;
    CloneStack stack;
    stack.push(h, deep != 0);
    while (true) {
        bool pushFailed = false;
        CloneFrame &f = stack.top();
        const int64_t before = charging ? areaBytes(targetDoc) : 0;
        const bool more = stepClone(f, targetDoc, stack, pushFailed);
        if (charging) {
            meter->left -= areaBytes(targetDoc) - before;
            if (meter->left < 0) meter->spent = true;
        }
        if (pushFailed || (meter != nullptr && meter->spent)) {
            // Out of memory for frames, or over the meter: every clone under
            // way is unlinked and goes; the copy fails as a whole.
            for (size_t i = stack.size(); i-- > 0;) VQDOM_deleteNode(stack.at(i).clone);
            return 0;
        }
        if (more) continue;
        const VQHANDLE result = f.clone;
        stack.pop();
        if (stack.empty()) return result;
        deliver(stack.top(), result);
    }
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
