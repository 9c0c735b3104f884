// deletion.cpp - deleting whole subtrees. Trees may be arbitrarily deep, so
// the walk does not recurse: it reverses links inside the records it is
// about to free, and keeps exactly the order in which a recursive deletion
// would visit and free.
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/trace.h"

namespace vqxml {
namespace {

// ---- deletion --------------------------------------------------------------

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
    // A damaged image may give a node its own handle as a string: then it
    // is gone already, and the deletion loop meets no record for it.
    n = asNode(h);
    if (n == nullptr) return;
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
    if (n == nullptr) return 0;  // freed already (see beginDelete)
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

// ---- a whole document at once -------------------------------------------------

// Deleting a document node frees, one by one, every record it reaches, and
// the area goes with the last of them. When those records are all the area
// holds and no trace shows the frees, the area can go at once: the same
// end, the same accounting. Whether they are is found by marking each
// record the deletion would free (its block's link made negative) and
// comparing the count with the area's live handles. Anything unusual on the
// way (a stale or foreign handle, a chain whose links disagree, a record
// reached twice, nesting deeper than the cursor stack) ends the check; the
// marks are then taken back and the deletion goes node by node.
class WholeAreaCheck {
public:
    explicit WholeAreaCheck(VQHANDLE doc)
        : number_(static_cast<int32_t>(doc & 255)), area_(docHead[doc & 255]) {}
    ~WholeAreaCheck() { unmark(); }

    // True when every live record of the area was reached.
    bool run(VQHANDLE doc) {
        const Node *d = asNode(doc);
        if (d == nullptr || d->nodeType != VQXML_DOCUMENT_NODE || d->parentNode != 0 ||
            d->containingMap != 0 || d->ownerDocument != doc || !visit(doc))
            return false;
        while (depth_ > 0) {
            Cursor &c = stack_[depth_ - 1];
            if (c.next == 0) {
                if (!chainEnds(c)) return false;
                --depth_;
                continue;
            }
            const VQHANDLE h = c.next;
            if (c.map == 0) {
                const Node *n = asNode(h);
                if (n == nullptr || n->parentNode != c.owner || n->previousSibling != c.prev ||
                    n->containingMap == kBeingDeleted)
                    return false;
                c.prev = h;
                c.next = n->nextSibling;
                if (!visit(h)) return false;
                continue;
            }
            const ListItem *item = aux<ListItem>(h);
            if (item == nullptr || item->previousItem != c.prev || !mark(h)) return false;
            c.prev = h;
            c.next = item->nextItem;
            const Node *member = asNode(item->node);
            if (member == nullptr || member->containingMap != c.map) return false;
            // A member that is a child of the map's owner is reached as one.
            if (member->parentNode == c.owner) continue;
            if (member->parentNode != 0 || !visit(item->node)) return false;
        }
        return count_ == area_->dbgHandles;
    }

    // After a successful check the area is deleted, marks and all.
    void keepMarks() { marked_ = false; }

private:
    // A chain still to be walked: the children of `owner`, or with `map`
    // set the items of that map, `owner` the node whose field holds it.
    struct Cursor {
        VQHANDLE owner, map, next, prev;
    };
    static constexpr int32_t kMaxCursors = 2048;

    bool mark(VQHANDLE h) {
        if (static_cast<int32_t>(h & 255) != number_ || !liveHandle(h)) return false;
        BlockHeader *b = blockAt(area_, handleTable(area_)[h >> 8]);
        if (b->blockLink <= 0) return false;
        b->blockLink = -b->blockLink;
        marked_ = true;
        ++count_;
        return true;
    }
    bool markIfSet(VQHANDLE h) { return h == 0 || mark(h); }

    bool markRecord(VQHANDLE h, bool declaration) {
        if (h == 0) return true;
        if (declaration) {
            const XmlDecl *d = aux<XmlDecl>(h);
            return d != nullptr && mark(h) && markIfSet(d->version) && markIfSet(d->encoding) &&
                   markIfSet(d->standalone);
        }
        const ExternalID *id = aux<ExternalID>(h);
        return id != nullptr && mark(h) && markIfSet(id->publicId) && markIfSet(id->systemId);
    }

    bool push(VQHANDLE owner, VQHANDLE map, VQHANDLE first) {
        if (first == 0) return map == 0 || aux<NamedNodeMap>(map)->lastItem == 0;
        if (depth_ == kMaxCursors) return false;
        stack_[depth_++] = Cursor{owner, map, first, 0};
        return true;
    }
    bool pushMap(VQHANDLE owner, VQHANDLE map) {
        if (map == 0) return true;
        const NamedNodeMap *m = aux<NamedNodeMap>(map);
        return m != nullptr && mark(map) && push(owner, map, m->firstItem);
    }
    bool chainEnds(const Cursor &c) {
        if (c.map != 0) return aux<NamedNodeMap>(c.map)->lastItem == c.prev;
        return asNode(c.owner)->lastChild == c.prev;
    }

    // The node's own records; its chains are queued.
    bool visit(VQHANDLE h) {
        const Node n = *asNode(h);
        if (!mark(h) || !markIfSet(n.nodeName) || !markIfSet(n.nodeValue)) return false;
        for (VQHANDLE list = n.childNodes; list != 0;) {
            const NodeList *l = aux<NodeList>(list);
            if (l == nullptr || !mark(list) || !markIfSet(l->tagName)) return false;
            list = l->nextList;
        }
        switch (n.nodeType) {
        case VQXML_DOCUMENT_NODE:
            if (!markRecord(rec<Document>(h)->xmlDecl, true)) return false;
            break;
        case VQXML_DOCUMENT_TYPE_NODE: {
            const DocumentType dt = *rec<DocumentType>(h);
            if (!markRecord(dt.externalID, false) || !pushMap(h, dt.entities) ||
                !pushMap(h, dt.notations))
                return false;
            break;
        }
        case VQXML_ENTITY_NODE: {
            const Entity e = *rec<Entity>(h);
            if (!markRecord(e.externalID, false) || !markIfSet(e.notationName) || !markIfSet(e.value))
                return false;
            break;
        }
        case VQXML_NOTATION_NODE:
            if (!markRecord(rec<Notation>(h)->externalID, false)) return false;
            break;
        default:
            break;
        }
        return pushMap(h, n.attributes) && push(h, 0, n.firstChild);
    }

    void unmark() {
        if (!marked_) return;
        int32_t *table = handleTable(area_);
        for (int32_t s = 1; s < area_->indexes; ++s) {
            if (table[s] == 0) continue;
            BlockHeader *b = blockAt(area_, table[s]);
            if (b->blockLink < 0) b->blockLink = -b->blockLink;
        }
    }

    int32_t number_;
    DocArea *area_;
    int32_t count_ = 0;
    int32_t depth_ = 0;
    bool marked_ = false;
    Cursor stack_[kMaxCursors];
};

// The document the parser built last, and the tree generation it left.
struct Built {
    VQHANDLE doc;
    uint64_t generation;
};
Built built = {0, 0};

}  // namespace

void documentBuilt(VQHANDLE doc) { built = {doc, treeGeneration}; }

}  // namespace vqxml

using namespace vqxml;

// ---- deletion ----------------------------------------------------------------------

extern "C" void VQDOM_deleteNode(VQHANDLE root) {
    if (!deletable(root)) return;
    // A parse refused for its copies fails, and the area of the document it
    // was building goes as a whole: what it deletes on the way out is only
    // unlinked, and the document node takes the area along. (The end is
    // the one the node-by-node deletion reaches; with the trace at level 2
    // the frees are shown one by one as before.)
    if (const CloneMeter *m = cloneMeter; m != nullptr && m->spent && m->discardArea == static_cast<int32_t>(root & 255) &&
                                          !traceOn(2)) {
        if (typeOf(root) == VQXML_DOCUMENT_NODE) {
            VQXML_deleteDocumentArea(root);
        } else {
            removeNode(root);
        }
        return;
    }
    if (typeOf(root) == VQXML_DOCUMENT_NODE && !traceOn(2)) {
        // Nothing has been made, freed or relinked in any area since the
        // parser built this document: its area holds the parser's tree and
        // nothing else, which is what the check below would find by a walk.
        if (root == built.doc && treeGeneration == built.generation) {
            VQXML_deleteDocumentArea(root);
            return;
        }
        WholeAreaCheck check(root);
        if (check.run(root)) {
            check.keepMarks();
            VQXML_deleteDocumentArea(root);
            return;
        }
    }
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
        const Node *n = asNode(cur);
        // Only a damaged tree (a node reached twice, or named as its own
        // string, so freed before its turn) gets here: the way back is lost
        // with it, and the nodes begun above it stay in the area.
        if (n == nullptr) return;
        const VQHANDLE back = n->parentNode;
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
