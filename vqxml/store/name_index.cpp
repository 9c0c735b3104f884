// name_index.cpp - lookups by name while a parse runs: in long named node
// maps, among the entities and attribute-list declarations of a document
// type, and of a document's type among its children.
//
// Outside a parse these are searches from the front (a map is a chain of
// items; declarations are found by walking them), so a document with many
// declarations, attributes or comments cost a parse the product of their
// number and the number of lookups: every declaration checks the entity map
// before it enters it, every reference looks its entity up, every element
// and every copy of one looks for its defaults. During a parse no caller
// code runs, names do not change, and maps, declarations and children only
// grow at their end, so an index stays valid if it takes in what was
// appended since it last looked. Each answers exactly as the search it
// stands for: what it hands back is checked against the tree (an entry
// whose node has left is not trusted, and the search is done the usual
// way), and a miss can only be a name that was not there when the index
// last caught up.
#include <cstring>

#include "vqxml/store/dom_string.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace vqxml {
namespace {

int scopes = 0;

uint64_t hashOf(std::string_view name) {
    uint64_t h = 14695981039346656037u;
    for (unsigned char c : name) h = (h ^ c) * 1099511628211u;
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdu;
    h ^= h >> 33;
    return h | 1;  // never 0, which marks an empty slot
}

// Open addressing on a power-of-two table of `Slot`s whose first field is
// the hash; grows at half load.
template <typename Slot>
bool growTable(Slot *&slots, uint32_t &capacity) {
    const uint32_t fresh = capacity == 0 ? 256 : capacity * 2;
    auto *table = static_cast<Slot *>(dbg_malloc(sizeof(Slot) * fresh, "nameIndex"));
    if (table == nullptr) return false;
    std::memset(static_cast<void *>(table), 0, sizeof(Slot) * fresh);
    for (uint32_t i = 0; i < capacity; ++i) {
        if (slots[i].hash == 0) continue;
        uint32_t j = static_cast<uint32_t>(slots[i].hash) & (fresh - 1);
        while (table[j].hash != 0) j = (j + 1) & (fresh - 1);
        table[j] = slots[i];
    }
    if (slots != nullptr) dbg_free(slots);
    slots = table;
    capacity = fresh;
    return true;
}

// ---- items of long maps --------------------------------------------------------

// Maps shorter than this are searched directly.
constexpr int32_t kIndexedLength = 64;
constexpr int kMapIndexes = 4;

struct ItemSlot {
    uint64_t hash;
    VQHANDLE item;
};

struct MapIndex {
    VQHANDLE map = 0;         // 0 = unused
    VQHANDLE synced = 0;      // the last item taken in
    VQHANDLE syncedNode = 0;  // its node, to tell the item from a reused slot
    ItemSlot *slots = nullptr;
    uint32_t capacity = 0;
    uint32_t count = 0;
};

MapIndex mapIndexes[kMapIndexes];
int nextMapEvicted = 0;

const ListItem *itemAt(VQHANDLE h) {
    return reinterpret_cast<const ListItem *>(liveNode(h, static_cast<int32_t>(sizeof(ListItem))));
}

// The node an item holds, when it is one that the search from the front
// compares: a plausible node of its own document.
const Node *memberOf(const ListItem *item) {
    const Node *n = typedNode(item->node);
    return n != nullptr && (n->ownerDocument & 255) == (item->node & 255) ? n : nullptr;
}

void release(MapIndex &x) {
    if (x.slots != nullptr) dbg_free(x.slots);
    x = MapIndex{};
}

// Takes in the items behind the last one taken in; the first item of a name
// keeps its entry. False when memory is short.
bool catchUp(MapIndex &x) {
    const auto *m = reinterpret_cast<const NamedNodeMap *>(liveNode(x.map, sizeof(NamedNodeMap)));
    if (m == nullptr) return false;
    VQHANDLE it = m->firstItem;
    if (x.synced != 0) {
        const ListItem *last = itemAt(x.synced);
        const Node *n = last != nullptr ? memberOf(last) : nullptr;
        if (n == nullptr || last->node != x.syncedNode || n->containingMap != x.map) {
            // The map changed behind the index: start again.
            const VQHANDLE map = x.map;
            release(x);
            x.map = map;
        } else {
            it = last->nextItem;
        }
    }
    StepBound steps(x.map);
    for (const ListItem *item; (item = itemAt(it)) != nullptr; it = item->nextItem) {
        if (!steps.take()) return false;  // a map whose items loop: no index
        if (2 * (x.count + 1) > x.capacity && !growTable(x.slots, x.capacity)) return false;
        x.synced = it;
        x.syncedNode = item->node;
        const Node *n = memberOf(item);
        if (n == nullptr || !liveHandle(n->nodeName)) continue;
        const std::string_view name = dsView(n->nodeName);
        const uint64_t h = hashOf(name);
        uint32_t i = static_cast<uint32_t>(h) & (x.capacity - 1);
        bool known = false;
        for (; x.slots[i].hash != 0; i = (i + 1) & (x.capacity - 1)) {
            if (x.slots[i].hash != h) continue;
            const ListItem *other = itemAt(x.slots[i].item);
            const Node *o = other != nullptr ? memberOf(other) : nullptr;
            if (o != nullptr && dsEquals(o->nodeName, name)) {
                known = true;
                break;
            }
        }
        if (!known) {
            x.slots[i] = {h, it};
            ++x.count;
        }
    }
    return true;
}

bool isLong(VQHANDLE map) {
    const auto *m = reinterpret_cast<const NamedNodeMap *>(liveNode(map, sizeof(NamedNodeMap)));
    int32_t n = 0;
    for (const ListItem *item = m != nullptr ? itemAt(m->firstItem) : nullptr; item != nullptr;
         item = itemAt(item->nextItem))
        if (++n >= kIndexedLength) return true;
    return false;
}

MapIndex *mapIndexFor(VQHANDLE map) {
    for (MapIndex &x : mapIndexes)
        if (x.map == map) return &x;
    if (!isLong(map)) return nullptr;
    MapIndex &x = mapIndexes[nextMapEvicted];
    nextMapEvicted = (nextMapEvicted + 1) % kMapIndexes;
    release(x);
    x.map = map;
    return &x;
}

// ---- declarations in the order of the declaration walk ------------------------
//
// The walk (getFirstMarkupDecl / getNextMarkupDecl over one node type) goes
// from declaration to declaration; each step scans siblings after the one
// it starts from, looking one level into references, and then, when that
// one sits in a reference, the reference's following siblings without
// looking into them. Declarations are appended only at the end of the tree,
// so the steps already taken keep their result, and the step under way can
// go on from where its scan stopped: the index keeps that place instead of
// scanning from the last declaration again. Per name it keeps what the
// lookups answer: for entities the first of each kind the walk met, for
// attribute-list declarations the definitions with a default, in order.

struct NameSlot {
    uint64_t hash;
    VQHANDLE named;      // the first declaration of the name
    VQHANDLE entity[2];  // entities: the first of kind 0, of kind 1
    int32_t firstDefault;  // attribute lists: indexes into the definitions
    int32_t lastDefault;   // with a default, in walk order
};

// Attribute-list declarations: the first definition of an attribute name
// for an element name, as findAttDef's walk finds it.
struct PairSlot {
    uint64_t hash;
    VQHANDLE definition;
};

struct DeclIndex {
    VQHANDLE doctype = 0;  // 0 = unused
    int type = 0;          // entities (6) or attribute-list declarations (14)
    VQHANDLE last = 0;     // the last declaration the walk reached (0: none yet)
    // The step under way: the last sibling its scan examined (0: none), the
    // last child of that sibling examined when it is a reference looked
    // into, and the same for the scan of the siblings of last's reference.
    VQHANDLE sibling = 0;
    VQHANDLE inner = 0;
    VQHANDLE outer = 0;
    // Met a declaration the searches compare otherwise (an invalid name
    // matches every name there; an entity kind other than 0 and 1).
    bool unusable = false;
    NameSlot *slots = nullptr;
    uint32_t capacity = 0;
    uint32_t names = 0;
    VQHANDLE *defaults = nullptr;  // definitions with a default
    int32_t *nextDefault = nullptr;
    uint32_t defaultCount = 0;
    uint32_t defaultRoom = 0;
    PairSlot *pairs = nullptr;
    uint32_t pairCapacity = 0;
    uint32_t pairCount = 0;
};

constexpr int kDeclIndexes = 4;
DeclIndex declIndexes[kDeclIndexes];
int nextDeclEvicted = 0;

void release(DeclIndex &x) {
    for (void *p : {static_cast<void *>(x.slots), static_cast<void *>(x.defaults), static_cast<void *>(x.nextDefault),
                    static_cast<void *>(x.pairs)})
        if (p != nullptr) dbg_free(p);
    x = DeclIndex{};
}

void restart(DeclIndex &x) {
    const VQHANDLE doctype = x.doctype;
    const int type = x.type;
    release(x);
    x.doctype = doctype;
    x.type = type;
}

const Node *nodeAt(VQHANDLE h) { return typedNode(h); }

std::string_view nameOf(VQHANDLE h) {
    const Node *n = typedNode(h);
    return n != nullptr && liveHandle(n->nodeName) ? dsView(n->nodeName) : std::string_view();
}

// A declaration still below the document type (its parent links lead there).
bool attached(VQHANDLE h, VQHANDLE doctype) {
    if (typedNode(h) == nullptr) return false;
    VQHANDLE up = node(h)->parentNode;
    for (int i = 0; i < 100 && up != 0 && up != doctype; ++i) {
        const Node *p = liveNode(up);
        up = p != nullptr ? p->parentNode : 0;
    }
    return up == doctype;
}

// Doubles a list of handles with its chain links.
bool growList(VQHANDLE *&handles, int32_t *&links, uint32_t count, uint32_t &room) {
    const uint32_t fresh = room == 0 ? 256 : room * 2;
    auto *h = static_cast<VQHANDLE *>(dbg_malloc(sizeof(VQHANDLE) * fresh, "nameIndex"));
    auto *l = static_cast<int32_t *>(dbg_malloc(sizeof(int32_t) * fresh, "nameIndex"));
    if (h == nullptr || l == nullptr) {
        if (h != nullptr) dbg_free(h);
        if (l != nullptr) dbg_free(l);
        return false;
    }
    if (count != 0) {
        std::memcpy(h, handles, sizeof(VQHANDLE) * count);
        std::memcpy(l, links, sizeof(int32_t) * count);
    }
    if (handles != nullptr) dbg_free(handles);
    if (links != nullptr) dbg_free(links);
    handles = h;
    links = l;
    room = fresh;
    return true;
}

uint64_t pairHash(std::string_view element, std::string_view attribute) {
    const uint64_t h = hashOf(element) ^ (hashOf(attribute) * 0x9e3779b97f4a7c15u);
    return h | 1;
}

// The definition of the pair slot when it still stands for `element` and
// `attribute` (its declaration's name and its own).
bool pairMatches(VQHANDLE definition, std::string_view element, std::string_view attribute) {
    const Node *d = typedNode(definition);
    return d != nullptr && d->nodeType == VQXML_ATT_DEF_NODE && nameOf(definition) == attribute &&
           nameOf(d->parentNode) == element;
}

// Takes in the definitions of an attribute-list declaration for `element`
// (the name slot `slot`): the first of each attribute name, and those with
// a default. False when memory is short or a definition's name is invalid.
bool takeInDefinitions(DeclIndex &x, const Node *decl, std::string_view element, NameSlot &slotRef) {
    const auto slotAt = static_cast<size_t>(&slotRef - x.slots);
    StepBound steps(decl->firstChild);
    for (VQHANDLE def = decl->firstChild; const Node *d = typedNode(def); def = d->nextSibling) {
        if (!steps.take()) {  // definitions that loop
            x.unusable = true;
            return false;
        }
        if (d->nodeType != VQXML_ATT_DEF_NODE) continue;
        if (!liveHandle(d->nodeName)) {
            x.unusable = true;
            return false;
        }
        if (2 * (x.pairCount + 1) > x.pairCapacity && !growTable(x.pairs, x.pairCapacity)) return false;
        const std::string_view attribute = dsView(d->nodeName);
        const uint64_t h = pairHash(element, attribute);
        uint32_t i = static_cast<uint32_t>(h) & (x.pairCapacity - 1);
        while (x.pairs[i].hash != 0 && !(x.pairs[i].hash == h && pairMatches(x.pairs[i].definition, element, attribute)))
            i = (i + 1) & (x.pairCapacity - 1);
        if (x.pairs[i].hash == 0) {
            x.pairs[i] = PairSlot{h, def};
            ++x.pairCount;
        }
        // Definitions without a default add nothing to an element.
        if (VQDOM_itemMap(d->attributes, 0) == 0) continue;
        if (x.defaultCount == x.defaultRoom && !growList(x.defaults, x.nextDefault, x.defaultCount, x.defaultRoom))
            return false;
        const auto at = static_cast<int32_t>(x.defaultCount++);
        x.defaults[at] = def;
        x.nextDefault[at] = -1;
        NameSlot &slot = x.slots[slotAt];
        if (slot.lastDefault < 0)
            slot.firstDefault = at;
        else
            x.nextDefault[slot.lastDefault] = at;
        slot.lastDefault = at;
    }
    return true;
}

NameSlot *slotFor(const DeclIndex &x, std::string_view name, uint64_t h) {
    if (x.capacity == 0) return nullptr;
    for (uint32_t i = static_cast<uint32_t>(h) & (x.capacity - 1); x.slots[i].hash != 0; i = (i + 1) & (x.capacity - 1))
        if (x.slots[i].hash == h && nameOf(x.slots[i].named) == name) return &x.slots[i];
    return nullptr;
}

// Takes a declaration the walk reached into the index. False when memory is
// short or the declaration makes the index unusable.
bool takeIn(DeclIndex &x, VQHANDLE d) {
    const Node *n = typedNode(d);
    if (n == nullptr || n->nodeType != x.type || !liveHandle(n->nodeName) ||
        (x.type == VQXML_ENTITY_NODE && reinterpret_cast<const Entity *>(n)->kind > 1)) {
        x.unusable = true;
        return false;
    }
    if (2 * (x.names + 1) > x.capacity && !growTable(x.slots, x.capacity)) return false;
    const std::string_view name = dsView(n->nodeName);
    const uint64_t h = hashOf(name);
    NameSlot *slot = slotFor(x, name, h);
    if (slot == nullptr) {
        uint32_t i = static_cast<uint32_t>(h) & (x.capacity - 1);
        while (x.slots[i].hash != 0) i = (i + 1) & (x.capacity - 1);
        x.slots[i] = NameSlot{h, d, {0, 0}, -1, -1};
        ++x.names;
        slot = &x.slots[i];
    }
    if (x.type == VQXML_ENTITY_NODE) {
        VQHANDLE &first = slot->entity[reinterpret_cast<const Entity *>(n)->kind];
        if (first == 0) first = d;
    } else if (!takeInDefinitions(x, n, dsView(n->nodeName), *slot)) {
        return false;
    }
    x.last = d;
    x.sibling = x.inner = x.outer = 0;
    return true;
}

bool isReference(const Node *n) { return n != nullptr && n->nodeType == VQXML_ENTITY_REFERENCE_NODE; }

// The next declaration of the step under way, going on from the places
// kept; 0 when the scan reaches the end of the tree as it is now (the places
// stay for the next time). `broken` is set when the kept places no longer
// fit the tree.
VQHANDLE stepOn(DeclIndex &x, bool &broken) {
    auto wanted = [&x](const Node *n) { return n != nullptr && n->nodeType == x.type; };
    // Chains that loop run out of steps and count as broken places.
    StepBound steps(x.doctype);
    const Node *last = x.last != 0 ? nodeAt(x.last) : nullptr;
    const VQHANDLE chainParent = last != nullptr ? last->parentNode : x.doctype;
    // The scan of the siblings after `last` (of the document type's
    // children for the first step), looking one level into references.
    VQHANDLE h;
    if (x.sibling == 0) {
        const Node *from = last != nullptr ? last : nodeAt(x.doctype);
        if (from == nullptr) return broken = true, 0;
        h = last != nullptr ? last->nextSibling : from->firstChild;
    } else {
        const Node *at = nodeAt(x.sibling);
        if (at == nullptr || at->parentNode != chainParent) return broken = true, 0;
        if (isReference(at)) {
            VQHANDLE c;
            if (x.inner == 0) {
                c = at->firstChild;
            } else {
                const Node *in = nodeAt(x.inner);
                if (in == nullptr || in->parentNode != x.sibling) return broken = true, 0;
                c = in->nextSibling;
            }
            for (const Node *cn; (cn = nodeAt(c)) != nullptr; c = cn->nextSibling) {
                if (!steps.take()) return broken = true, 0;
                x.inner = c;
                if (wanted(cn)) return c;
            }
        }
        h = at->nextSibling;
    }
    for (const Node *n; (n = nodeAt(h)) != nullptr; h = n->nextSibling) {
        if (!steps.take()) return broken = true, 0;
        x.sibling = h;
        x.inner = 0;
        if (wanted(n)) return h;
        if (isReference(n)) {
            for (VQHANDLE c = n->firstChild; const Node *cn = nodeAt(c); c = cn->nextSibling) {
                if (!steps.take()) return broken = true, 0;
                x.inner = c;
                if (wanted(cn)) return c;
            }
        }
    }
    // Leaving a reference: its following siblings, without looking into
    // further references.
    if (last == nullptr || !isReference(nodeAt(last->parentNode))) return 0;
    const Node *reference = nodeAt(last->parentNode);
    VQHANDLE o;
    if (x.outer == 0) {
        o = reference->nextSibling;
    } else {
        const Node *at = nodeAt(x.outer);
        if (at == nullptr || at->parentNode != reference->parentNode) return broken = true, 0;
        o = at->nextSibling;
    }
    for (const Node *n; (n = nodeAt(o)) != nullptr; o = n->nextSibling) {
        if (!steps.take()) return broken = true, 0;
        x.outer = o;
        if (wanted(n)) return o;
    }
    return 0;
}

// Lets the walk go on as far as the tree goes now. False when the index
// cannot answer.
// A sound tree is taken in within one step per object and at most one
// fresh start; declarations linked into a loop make the index unusable, and
// lookups then walk (bounded) themselves.
bool catchUp(DeclIndex &x) {
    if (x.unusable) return false;
    if (x.last != 0 && !attached(x.last, x.doctype)) restart(x);
    StepBound steps(x.doctype);
    bool restarted = false;
    for (;;) {
        bool broken = false;
        const VQHANDLE d = steps.take() ? stepOn(x, broken) : (broken = true, 0);
        if (broken) {
            if (restarted || steps.tooManySteps()) {
                x.unusable = true;
                return false;
            }
            restart(x);
            restarted = true;
            continue;
        }
        if (d == 0) return true;
        if (!takeIn(x, d)) return false;
    }
}

// The index of `type` declarations of `doctype`, caught up; null when the
// caller must walk itself.
DeclIndex *declIndexFor(VQHANDLE doctype, int type) {
    if (scopes == 0 || liveNode(doctype) == nullptr) return nullptr;
    DeclIndex *x = nullptr;
    for (DeclIndex &candidate : declIndexes)
        if (candidate.doctype == doctype && candidate.type == type) x = &candidate;
    if (x == nullptr) {
        x = &declIndexes[nextDeclEvicted];
        nextDeclEvicted = (nextDeclEvicted + 1) % kDeclIndexes;
        release(*x);
        x->doctype = doctype;
        x->type = type;
    }
    if (!catchUp(*x)) {
        if (!x->unusable) release(*x);
        return nullptr;
    }
    return x;
}

// ---- the first child of a type ------------------------------------------------
//
// A document's type is looked up for every reference, default and entity
// the parse handles; a document may have any number of comments in front of
// it. Children are only appended during a parse, so the scan can go on from
// the last child it examined.

struct ChildScan {
    VQHANDLE parent = 0;  // 0 = unused
    int type = 0;
    VQHANDLE found = 0;
    VQHANDLE scanned = 0;  // the last child examined
};

constexpr int kChildScans = 4;
ChildScan childScans[kChildScans];
int nextScanEvicted = 0;

}  // namespace

bool indexedChildOfType(VQHANDLE parent, int type, VQHANDLE *found) {
    if (scopes == 0) return false;
    ChildScan *x = nullptr;
    for (ChildScan &candidate : childScans)
        if (candidate.parent == parent && candidate.type == type) x = &candidate;
    if (x == nullptr) {
        x = &childScans[nextScanEvicted];
        nextScanEvicted = (nextScanEvicted + 1) % kChildScans;
        *x = ChildScan{parent, type, 0, 0};
    }
    if (x->found != 0) {
        const Node *f = typedNode(x->found);
        if (f != nullptr && f->nodeType == type && f->parentNode == parent) {
            *found = x->found;
            return true;
        }
        *x = ChildScan{parent, type, 0, 0};  // it left: look again
    }
    const Node *p = liveNode(parent);
    if (p == nullptr) return false;
    VQHANDLE c = p->firstChild;
    if (x->scanned != 0) {
        const Node *s = typedNode(x->scanned);
        if (s != nullptr && s->parentNode == parent) {
            c = s->nextSibling;
        } else {
            x->scanned = 0;  // it left: from the front
        }
    }
    for (const Node *n; (n = typedNode(c)) != nullptr; c = n->nextSibling) {
        x->scanned = c;
        if (n->nodeType == type) {
            x->found = c;
            break;
        }
    }
    *found = x->found;
    return true;
}

MapIndexScope::MapIndexScope() { ++scopes; }

MapIndexScope::~MapIndexScope() {
    if (--scopes != 0) return;
    for (MapIndex &x : mapIndexes) release(x);
    for (DeclIndex &x : declIndexes) release(x);
    for (ChildScan &x : childScans) x = ChildScan{};
}

bool indexedItem(VQHANDLE map, std::string_view name, VQHANDLE *item) {
    if (scopes == 0) return false;
    MapIndex *x = mapIndexFor(map);
    if (x == nullptr) return false;
    if (!catchUp(*x)) {
        release(*x);
        return false;
    }
    *item = 0;
    const uint64_t h = hashOf(name);
    for (uint32_t i = static_cast<uint32_t>(h) & (x->capacity - 1); x->slots[i].hash != 0;
         i = (i + 1) & (x->capacity - 1)) {
        if (x->slots[i].hash != h) continue;
        const ListItem *it = itemAt(x->slots[i].item);
        const Node *n = it != nullptr ? memberOf(it) : nullptr;
        // An entry whose item has left the map may have stood for this
        // name and hidden a later item of it: the search decides then.
        if (n == nullptr || n->containingMap != map) return false;
        if (!dsEquals(n->nodeName, name)) continue;  // another name
        *item = x->slots[i].item;
        return true;
    }
    return true;
}

bool indexedEntity(VQHANDLE doctype, std::string_view name, int kind, VQHANDLE *entity) {
    if (kind < -1 || kind > 1) return false;
    const DeclIndex *x = declIndexFor(doctype, VQXML_ENTITY_NODE);
    if (x == nullptr) return false;
    const NameSlot *slot = slotFor(*x, name, hashOf(name));
    // findEntityStr takes any parameter entity: kind 1, the only one not 0.
    *entity = slot != nullptr ? slot->entity[kind == 0 ? 0 : 1] : 0;
    // One that left the tree might have hidden another: the walk decides.
    return *entity == 0 || attached(*entity, doctype);
}

bool indexedAttDef(VQHANDLE doctype, std::string_view element, std::string_view attribute, VQHANDLE *definition) {
    const DeclIndex *x = declIndexFor(doctype, VQXML_ATTLIST_DECL_NODE);
    if (x == nullptr) return false;
    *definition = 0;
    if (x->pairCapacity == 0) return true;
    const uint64_t h = pairHash(element, attribute);
    for (uint32_t i = static_cast<uint32_t>(h) & (x->pairCapacity - 1); x->pairs[i].hash != 0;
         i = (i + 1) & (x->pairCapacity - 1)) {
        if (x->pairs[i].hash != h) continue;
        const VQHANDLE def = x->pairs[i].definition;
        // An entry that no longer stands where the walk met it may have
        // hidden another: the walk decides then.
        if (typedNode(def) == nullptr || !attached(node(def)->parentNode, doctype)) return false;
        if (!pairMatches(def, element, attribute)) continue;
        *definition = def;
        return true;
    }
    return true;
}

int32_t indexedDefaults(VQHANDLE doctype, std::string_view element, VQHANDLE *out, int32_t room) {
    const DeclIndex *x = declIndexFor(doctype, VQXML_ATTLIST_DECL_NODE);
    if (x == nullptr) return -1;
    const NameSlot *slot = slotFor(*x, element, hashOf(element));
    int32_t n = 0;
    for (int32_t d = slot != nullptr ? slot->firstDefault : -1; d >= 0; d = x->nextDefault[d], ++n) {
        const VQHANDLE def = x->defaults[d];
        if (typedNode(def) == nullptr || !attached(node(def)->parentNode, doctype)) return -1;
        if (n < room) out[n] = def;
    }
    return n;
}

}  // namespace vqxml
