// call_index.cpp - child lookups by tag name and by DESC for the query and
// answer builders and readers.
//
// A builder asks the same parents again and again: the model section for the
// DESC of every entry, the new section for the occurrences of an item before
// it stores one, every group for the occurrences of its children in the
// mandatory check. Walking the children each time would make a build cost
// entries times items. While a LookupScope lives, the first question about a
// parent walks its children once and files them by name; later questions
// are answered from the file, and the builder reports each element it
// appends. Nothing but the builder changes the trees during its call, so the
// file stays exact. When the index cannot get memory it is dropped and the
// lookups walk, with the same answers.
//
// Readers are called once per value, so their index must outlive a call: it
// lives in a fixed arena and is trusted only while no document has changed
// since it was filled (the store counts every change). When the arena runs
// out the lookups walk until the next change.
#include <algorithm>
#include <cstring>
#include <new>

#include "vqxml/model/model.h"
#include "vqxml/model/query.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/memdiag.h"

namespace vqxml {

// ---- walking ----------------------------------------------------------------------

// The same walk as the element lookup's, one step at a time.
ElementChildren::ElementChildren(VQHANDLE parent) : cur_(0), left_(0) {
    const Node *p = liveNode(parent);
    if (p != nullptr && p->nodeType != VQXML_DOCUMENT_TYPE_NODE) {
        cur_ = p->firstChild;
        left_ = walkBudget(parent);
    }
}

VQHANDLE ElementChildren::next() {
    while (left_-- > 0) {
        const Node *n = chainNode(cur_);
        if (n == nullptr) break;
        const VQHANDLE here = cur_;
        cur_ = n->nodeType == VQXML_ATTRIBUTE_NODE ? 0 : n->nextSibling;
        if (n->nodeType == VQXML_ELEMENT_NODE) return here;
    }
    left_ = 0;
    return 0;
}

std::string_view tagOf(VQHANDLE element) {
    const Node *n = liveNode(element);
    return n != nullptr && n->nodeType == VQXML_ELEMENT_NODE ? dsView(n->nodeName)
                                                              : std::string_view{};
}

namespace {

VQHANDLE walkNamed(VQHANDLE parent, std::string_view tag, long n) {
    if (n < 0) return 0;
    ElementChildren children(parent);
    while (VQHANDLE c = children.next())
        if (tagOf(c) == tag && n-- == 0) return c;
    return 0;
}

VQHANDLE walkDesc(VQHANDLE parent, const char *desc) { return findDesc(parent, desc); }

// ---- the index ------------------------------------------------------------------------

enum Kind : uint32_t { kTagsFiled = 1, kTag, kDescsFiled, kDesc };

struct Slot {
    uint64_t hash;       // 0 = empty
    VQHANDLE parent;
    uint32_t kind;
    VQHANDLE first;      // kTag: first occurrence; kDesc: the item
    uint32_t count;      // kTag: occurrences in `list`
    uint32_t capacity;
    VQHANDLE *list;      // kTag: every occurrence, in order
};

uint64_t hashOf(VQHANDLE parent, uint32_t kind, std::string_view name) {
    uint64_t h = 14695981039346656037u ^ (uint64_t{parent} << 3 | kind);
    h *= 1099511628211u;
    for (unsigned char c : name) h = (h ^ c) * 1099511628211u;
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdu;
    h ^= h >> 33;
    return h | 1;
}

// Where an index takes its memory. Both hand out pieces of larger blocks
// and take nothing back one by one: an index is dropped whole.
//
// A builder call takes blocks from the heap and gives them all back when it
// ends. The read index outlives calls, so it must hold no heap block (the
// library's leak accounting would show one): it lives in a fixed arena.
class HeapMemory {
public:
    void *take(size_t bytes) {
        bytes = (bytes + 15) & ~size_t{15};
        if (bytes > left_) {
            const size_t size = std::max(bytes + 16, chunk_);
            auto *block = static_cast<unsigned char *>(dbg_malloc(size, "lookupIndex"));
            if (block == nullptr) return nullptr;
            *reinterpret_cast<unsigned char **>(block) = blocks_;  // chain of blocks
            blocks_ = block;
            next_ = block + 16;
            left_ = size - 16;
            if (chunk_ < (size_t{1} << 24)) chunk_ *= 2;
        }
        void *piece = next_;
        next_ += bytes;
        left_ -= bytes;
        return piece;
    }
    ~HeapMemory() {
        while (blocks_ != nullptr) {
            unsigned char *next = *reinterpret_cast<unsigned char **>(blocks_);
            dbg_free(blocks_);
            blocks_ = next;
        }
    }

private:
    unsigned char *blocks_ = nullptr;
    unsigned char *next_ = nullptr;
    size_t left_ = 0;
    size_t chunk_ = size_t{64} << 10;
};

class ArenaMemory {
public:
    ArenaMemory() { used = 0; }
    void *take(size_t bytes) {
        bytes = (bytes + 15) & ~size_t{15};
        if (bytes > kBytes - used) return nullptr;
        void *piece = arena + used;
        used += bytes;
        return piece;
    }

private:
    static constexpr size_t kBytes = size_t{16} << 20;
    alignas(16) static inline unsigned char arena[kBytes];
    static inline size_t used = 0;
};

template <typename Memory>
class Index {
public:
    // lazy: a parent is filed only when asked about a second time since the
    // index was made (a reader that alternates with changes asks once).
    explicit Index(bool lazy) : lazy_(lazy) {}

    bool broken() const { return broken_; }

    VQHANDLE named(VQHANDLE parent, std::string_view tag, long n) {
        if (!fileTags(parent)) return walkNamed(parent, tag, n);
        const Slot *s = find(parent, kTag, tag);
        if (s == nullptr || n < 0 || static_cast<uint64_t>(n) >= s->count) return 0;
        return s->list[n];
    }

    VQHANDLE desc(VQHANDLE parent, const char *desc) {
        if (!fileDescs(parent)) return walkDesc(parent, desc);
        const Slot *s = find(parent, kDesc, desc);
        return s != nullptr ? s->first : 0;
    }

    void appended(VQHANDLE parent, VQHANDLE child) {
        if (broken_ || find(parent, kTagsFiled, {}) == nullptr) return;
        fileTag(parent, child);
    }

private:
    // Files every element child of parent by tag name, once.
    bool fileTags(VQHANDLE parent) {
        if (broken_) return false;
        if (find(parent, kTagsFiled, {}) != nullptr) return true;
        if (firstAsk(parent, 0)) return false;
        ElementChildren children(parent);
        while (VQHANDLE c = children.next())
            if (!fileTag(parent, c)) return false;
        return insert(parent, kTagsFiled, {}, 0) != nullptr;
    }

    bool fileTag(VQHANDLE parent, VQHANDLE child) {
        const std::string_view tag = tagOf(child);
        Slot *s = find(parent, kTag, tag);
        if (s == nullptr && (s = insert(parent, kTag, tag, child)) == nullptr) return false;
        if (s->count == s->capacity) {
            const uint32_t grown = s->capacity == 0 ? 4 : s->capacity * 2;
            auto *list = static_cast<VQHANDLE *>(memory_.take(grown * sizeof(VQHANDLE)));
            if (list == nullptr) return fail();
            if (s->count != 0) std::memcpy(list, s->list, s->count * sizeof(VQHANDLE));
            s->list = list;
            s->capacity = grown;
        }
        s->list[s->count++] = child;
        return true;
    }

    // Files every element child of parent by DESC (the first of equal ones).
    bool fileDescs(VQHANDLE parent) {
        if (broken_) return false;
        if (find(parent, kDescsFiled, {}) != nullptr) return true;
        if (firstAsk(parent, 1)) return false;
        ElementChildren children(parent);
        while (VQHANDLE c = children.next()) {
            const std::string_view d = descOf(c);
            if (find(parent, kDesc, d) == nullptr && insert(parent, kDesc, d, c) == nullptr)
                return false;
        }
        return insert(parent, kDescsFiled, {}, 0) != nullptr;
    }

    bool firstAsk(VQHANDLE parent, int which) {
        if (!lazy_ || askedOnce_[which] == parent) return false;
        askedOnce_[which] = parent;
        return true;
    }

    // A slot's name is read from its node, so the index holds no copies.
    static bool sameName(const Slot &s, std::string_view name) {
        if (s.kind == kTag) return tagOf(s.first) == name;
        if (s.kind == kDesc) return descOf(s.first) == name;
        return true;
    }

    Slot *find(VQHANDLE parent, uint32_t kind, std::string_view name) {
        if (capacity_ == 0) return nullptr;
        const uint64_t h = hashOf(parent, kind, name);
        for (uint32_t i = static_cast<uint32_t>(h) & (capacity_ - 1);; i = (i + 1) & (capacity_ - 1)) {
            Slot &s = slots_[i];
            if (s.hash == 0) return nullptr;
            if (s.hash == h && s.parent == parent && s.kind == kind && sameName(s, name)) return &s;
        }
    }

    Slot *insert(VQHANDLE parent, uint32_t kind, std::string_view name, VQHANDLE first) {
        if ((used_ + 1) * 2 > capacity_ && !grow()) {
            fail();
            return nullptr;
        }
        const uint64_t h = hashOf(parent, kind, name);
        uint32_t i = static_cast<uint32_t>(h) & (capacity_ - 1);
        while (slots_[i].hash != 0) i = (i + 1) & (capacity_ - 1);
        slots_[i] = Slot{h, parent, kind, first, 0, 0, nullptr};
        ++used_;
        return &slots_[i];
    }

    bool grow() {
        const uint32_t fresh = capacity_ == 0 ? 64 : capacity_ * 2;
        auto *table = static_cast<Slot *>(memory_.take(sizeof(Slot) * fresh));
        if (table == nullptr) return false;
        std::memset(static_cast<void *>(table), 0, sizeof(Slot) * fresh);
        for (uint32_t i = 0; i < capacity_; ++i) {
            if (slots_[i].hash == 0) continue;
            uint32_t j = static_cast<uint32_t>(slots_[i].hash) & (fresh - 1);
            while (table[j].hash != 0) j = (j + 1) & (fresh - 1);
            table[j] = slots_[i];
        }
        slots_ = table;
        capacity_ = fresh;
        return true;
    }

    // Out of memory: from now on every lookup walks.
    bool fail() {
        drop();
        broken_ = true;
        return false;
    }

    void drop() {
        slots_ = nullptr;
        capacity_ = used_ = 0;
    }

    Memory memory_;
    Slot *slots_ = nullptr;
    uint32_t capacity_ = 0;
    uint32_t used_ = 0;
    bool broken_ = false;
    bool lazy_;
    VQHANDLE askedOnce_[2] = {0, 0};  // by filing kind: tags, DESCs
};

using CallIndex = Index<HeapMemory>;
using ReadIndex = Index<ArenaMemory>;

// The builder's index, while a scope lives.
CallIndex *active = nullptr;
int depth = 0;
alignas(CallIndex) unsigned char callStorage[sizeof(CallIndex)];

// The read index: callers read a query or answer value by value, each call
// naming a path and an occurrence. It answers as long as no document has
// changed since it was filled (treeGeneration), and starts afresh after
// any change.
ReadIndex *reader = nullptr;
uint64_t readerFilledAt = 0;
alignas(ReadIndex) unsigned char readStorage[sizeof(ReadIndex)];

ReadIndex &readIndex() {
    if (reader == nullptr || readerFilledAt != treeGeneration) {
        if (reader != nullptr) reader->~ReadIndex();
        reader = new (readStorage) ReadIndex(true);
        readerFilledAt = treeGeneration;
    }
    return *reader;
}

}  // namespace

LookupScope::LookupScope() {
    if (depth++ == 0) active = new (callStorage) CallIndex(false);
}

LookupScope::~LookupScope() {
    if (--depth == 0) {
        active->~CallIndex();
        active = nullptr;
    }
}

VQHANDLE namedChild(VQHANDLE parent, std::string_view tag, long n) {
    if (liveNode(parent) == nullptr) return walkNamed(parent, tag, n);
    return active != nullptr ? active->named(parent, tag, n) : readIndex().named(parent, tag, n);
}

VQHANDLE descChild(VQHANDLE parent, const char *desc) {
    if (liveNode(parent) == nullptr) return walkDesc(parent, desc);
    return active != nullptr ? active->desc(parent, desc) : readIndex().desc(parent, desc);
}

void noteAppended(VQHANDLE parent, VQHANDLE child) {
    if (active != nullptr) active->appended(parent, child);
}

}  // namespace vqxml
