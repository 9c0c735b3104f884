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

}  // namespace
}  // namespace vqxml

using namespace vqxml;

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
