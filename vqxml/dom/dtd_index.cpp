// dtd_index.cpp - attribute definitions by element name. A parse looks the
// definitions up for every element (its default attributes) and every
// attribute (its type); walking the declarations each time costs as much as
// the document type is long. The index is built from the same walk, keeps
// its order, and so answers exactly as the walk would while the
// declarations stay as they are.
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace vqxml {
namespace {

uint32_t hashOf(std::string_view s) {
    uint32_t h = 2166136261u;
    for (unsigned char c : s) h = (h ^ c) * 16777619u;
    return h ^ (h >> 15);
}

// The slot of the pair table where the search for an attribute name under
// the element name of bucket `bucket` starts.
uint32_t pairHash(int32_t bucket, std::string_view attribute) {
    return hashOf(attribute) ^ (static_cast<uint32_t>(bucket) * 2654435761u);
}

// Whether a definition holds a default value (item 0 of its own map). Those
// without one add nothing to an element, so they are left out of the
// defaults chain.
bool mayHaveDefault(VQHANDLE def) { return VQDOM_itemMap(node(def)->attributes, 0) != 0; }

// The live, well-formed node of a declaration, or null.
const Node *declNode(VQHANDLE h, int type) {
    const Node *n = typedNode(h);
    return n != nullptr && n->nodeType == type ? n : nullptr;
}

}  // namespace

DtdIndex::~DtdIndex() {
    if (entries_ != nullptr) dbg_free(entries_);
    if (buckets_ != nullptr) dbg_free(buckets_);
    if (pairs_ != nullptr) dbg_free(pairs_);
}

bool DtdIndex::build(VQHANDLE doctype) {
    // Count the definitions and check every name on the way.
    int32_t defs = 0, lists = 0;
    for (VQHANDLE decl = getFirstMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE); decl != 0;
         decl = getNextMarkupDecl(decl)) {
        const Node *d = declNode(decl, VQXML_ATTLIST_DECL_NODE);
        if (d == nullptr || !liveHandle(d->nodeName)) return false;
        ++lists;
        for (VQHANDLE def = d->firstChild; typedNode(def) != nullptr; def = node(def)->nextSibling) {
            if (node(def)->nodeType != VQXML_ATT_DEF_NODE) continue;
            if (!liveHandle(node(def)->nodeName)) return false;
            ++defs;
        }
    }
    uint32_t buckets = 16;
    while (buckets < 2u * static_cast<uint32_t>(lists) + 2) buckets *= 2;
    entries_ = static_cast<Entry *>(dbg_malloc(sizeof(Entry) * (defs > 0 ? defs : 1), "dtdIndex"));
    buckets_ = static_cast<Bucket *>(dbg_malloc(sizeof(Bucket) * buckets, "dtdIndex"));
    uint32_t pairs = 16;
    while (pairs < 2u * static_cast<uint32_t>(defs) + 2) pairs *= 2;
    pairs_ = static_cast<Pair *>(dbg_malloc(sizeof(Pair) * pairs, "dtdIndex"));
    if (entries_ == nullptr || buckets_ == nullptr || pairs_ == nullptr) return false;
    std::memset(buckets_, 0, sizeof(Bucket) * buckets);
    mask_ = buckets - 1;
    for (uint32_t i = 0; i < pairs; ++i) pairs_[i] = {-1, -1};
    pairMask_ = pairs - 1;

    for (VQHANDLE decl = getFirstMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE); decl != 0;
         decl = getNextMarkupDecl(decl)) {
        const VQHANDLE elementName = node(decl)->nodeName;
        const std::string_view name = dsView(elementName);
        uint32_t i = hashOf(name) & mask_;
        while (buckets_[i].elementName != 0 && dsView(buckets_[i].elementName) != name)
            i = (i + 1) & mask_;
        Bucket &b = buckets_[i];
        if (b.elementName == 0) b = {elementName, -1, -1, -1, -1};
        const int32_t bucket = static_cast<int32_t>(i);
        for (VQHANDLE def = node(decl)->firstChild; typedNode(def) != nullptr;
             def = node(def)->nextSibling) {
            if (node(def)->nodeType != VQXML_ATT_DEF_NODE) continue;
            const VQHANDLE attributeName = node(def)->nodeName;
            entries_[count_] = {def, attributeName, -1, -1};
            if (b.tail < 0)
                b.head = count_;
            else
                entries_[b.tail].next = count_;
            b.tail = count_;
            if (mayHaveDefault(def)) {
                if (b.defaultTail < 0)
                    b.defaultHead = count_;
                else
                    entries_[b.defaultTail].nextDefault = count_;
                b.defaultTail = count_;
            }
            // The first definition of a name for this element wins.
            const std::string_view attribute = dsView(attributeName);
            uint32_t j = pairHash(bucket, attribute) & pairMask_;
            while (pairs_[j].entry >= 0 &&
                   !(pairs_[j].bucket == bucket && dsView(entries_[pairs_[j].entry].attributeName) == attribute))
                j = (j + 1) & pairMask_;
            if (pairs_[j].entry < 0) pairs_[j] = {count_, bucket};
            ++count_;
        }
    }
    return true;
}

const DtdIndex::Bucket *DtdIndex::find(std::string_view element) const {
    if (buckets_ == nullptr) return nullptr;
    for (uint32_t i = hashOf(element) & mask_; buckets_[i].elementName != 0; i = (i + 1) & mask_)
        if (dsEquals(buckets_[i].elementName, element)) return &buckets_[i];
    return nullptr;
}

VQHANDLE DtdIndex::attDef(std::string_view element, std::string_view attribute) const {
    const Bucket *b = find(element);
    if (b == nullptr) return 0;
    const auto bucket = static_cast<int32_t>(b - buckets_);
    for (uint32_t j = pairHash(bucket, attribute) & pairMask_; pairs_[j].entry >= 0; j = (j + 1) & pairMask_) {
        const Pair &p = pairs_[j];
        if (p.bucket == bucket && dsEquals(entries_[p.entry].attributeName, attribute))
            return entries_[p.entry].definition;
    }
    return 0;
}

void DtdIndex::addDefaults(VQHANDLE element, std::string_view name) const {
    const Bucket *b = find(name);
    if (b == nullptr) return;
    // The definitions in declaration order, gathered first: the element's
    // name lives in the area, which the defaults themselves may move.
    VQHANDLE local[16] = {};
    int32_t n = 0;
    for (int32_t e = b->defaultHead; e >= 0; e = entries_[e].nextDefault) ++n;
    DbgPtr<VQHANDLE> heap;
    VQHANDLE *defs = local;
    if (n > 16) {
        heap.reset(static_cast<VQHANDLE *>(dbg_malloc(sizeof(VQHANDLE) * static_cast<size_t>(n), "dtdIndex")));
        if (heap == nullptr) return addDefaultAttributes(element);
        defs = heap.get();
    }
    n = 0;
    for (int32_t e = b->defaultHead; e >= 0; e = entries_[e].nextDefault) defs[n++] = entries_[e].definition;
    addDefaultAttributesFrom(element, defs, n);
}

}  // namespace vqxml
