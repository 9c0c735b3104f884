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

// The live, well-formed node of a declaration, or null.
const Node *declNode(VQHANDLE h, int type) {
    const Node *n = typedNode(h);
    return n != nullptr && n->nodeType == type ? n : nullptr;
}

}  // namespace

DtdIndex::~DtdIndex() {
    if (entries_ != nullptr) dbg_free(entries_);
    if (buckets_ != nullptr) dbg_free(buckets_);
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
    if (entries_ == nullptr || buckets_ == nullptr) return false;
    std::memset(buckets_, 0, sizeof(Bucket) * buckets);
    mask_ = buckets - 1;

    for (VQHANDLE decl = getFirstMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE); decl != 0;
         decl = getNextMarkupDecl(decl)) {
        const VQHANDLE elementName = node(decl)->nodeName;
        const std::string_view name = dsView(elementName);
        uint32_t i = hashOf(name) & mask_;
        while (buckets_[i].elementName != 0 && dsView(buckets_[i].elementName) != name)
            i = (i + 1) & mask_;
        Bucket &b = buckets_[i];
        if (b.elementName == 0) b = {elementName, -1, -1};
        for (VQHANDLE def = node(decl)->firstChild; typedNode(def) != nullptr;
             def = node(def)->nextSibling) {
            if (node(def)->nodeType != VQXML_ATT_DEF_NODE) continue;
            entries_[count_] = {def, node(def)->nodeName, -1};
            if (b.tail < 0)
                b.head = count_;
            else
                entries_[b.tail].next = count_;
            b.tail = count_++;
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
    for (int32_t e = b != nullptr ? b->head : -1; e >= 0; e = entries_[e].next)
        if (dsEquals(entries_[e].attributeName, attribute)) return entries_[e].definition;
    return 0;
}

void DtdIndex::addDefaults(VQHANDLE element, std::string_view name) const {
    const Bucket *b = find(name);
    if (b == nullptr) return;
    // The definitions in declaration order, gathered first: the element's
    // name lives in the area, which the defaults themselves may move.
    VQHANDLE local[16] = {};
    int32_t n = 0;
    for (int32_t e = b->head; e >= 0; e = entries_[e].next) ++n;
    DbgPtr<VQHANDLE> heap;
    VQHANDLE *defs = local;
    if (n > 16) {
        heap.reset(static_cast<VQHANDLE *>(dbg_malloc(sizeof(VQHANDLE) * static_cast<size_t>(n), "dtdIndex")));
        if (heap == nullptr) return addDefaultAttributes(element);
        defs = heap.get();
    }
    n = 0;
    for (int32_t e = b->head; e >= 0; e = entries_[e].next) defs[n++] = entries_[e].definition;
    addDefaultAttributesFrom(element, defs, n);
}

}  // namespace vqxml
