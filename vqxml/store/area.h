// area.h - document areas, handles and the block allocator inside an area.
//
// An area is one heap block: the 48-byte head, the handle table (`indexes`
// int32 entries, entry 0 = head of the free list), 4 reserved bytes, then
// blocks laid end to end. Each block starts with an 8-byte header
// (blockSize, blockLink); a handle's slot holds its block's offset relative
// to `data`. Pointers into an area die with the next allocation in the same
// document (the area may move); handles do not.
#ifndef VQXML_STORE_AREA_H
#define VQXML_STORE_AREA_H

#include <cstdint>

#include "vqxml/vqxml.h"

using DocArea = VQXML_AreaHead;

struct BlockHeader {
    int32_t blockSize;  // whole block, header included, multiple of 8
    int32_t blockLink;  // live: its slot; free: next free offset or 0
};
static_assert(sizeof(DocArea) == 48, "area head is 48 bytes");
static_assert(sizeof(BlockHeader) == 8, "block header is 8 bytes");

extern "C" {

// Creates an area; `number` 0 takes the lowest free number. Receives the
// address of the area's diagnostics DocHandle field. Returns the number or 0.
VQXML_API int32_t newDocumentArea(int32_t number, uint32_t **outDocHandleField);
// Allocates `bytes` of payload in the document of `document` (low 8 bits).
VQXML_API VQHANDLE myAlloc(VQHANDLE document, int64_t bytes);
VQXML_API void myFree(VQHANDLE handle);
// needed 0: more handle slots; else room for a block of that size.
VQXML_API int reallocDocumentArea(int32_t number, int64_t needed);
VQXML_API int validHandle(VQHANDLE handle);
// Payload of a handle; no checks (callers check with validHandle first).
VQXML_API void *toPNode(VQHANDLE handle);
// Swaps the blocks named by two handles of the same document.
VQXML_API void changeHandle(VQHANDLE a, VQHANDLE b);

}  // extern "C"

namespace vqxml {

constexpr int32_t kMaxSlot = 16777214;      // highest slot handed out
constexpr int32_t kMaxIndexes = 16777215;   // handle-table size cap
constexpr int32_t kInitialAreaSize = 20336;
constexpr int32_t kInitialIndexes = 719;
constexpr int32_t kMinListedBlock = 56;     // smaller free blocks stay unlisted

inline int32_t *handleTable(DocArea *a) {
    return reinterpret_cast<int32_t *>(a + 1);
}
inline BlockHeader *blockAt(DocArea *a, int32_t offset) {
    return reinterpret_cast<BlockHeader *>(a->data + offset);
}

// Fast resolution for code inside the library. The handle must be valid.
inline void *payload(VQHANDLE h) {
    DocArea *a = docHead[h & 255];
    return a->data + handleTable(a)[h >> 8] + 8;
}

// Validity test that records nothing (for walks that stop at the first
// invalid handle without reporting it).
inline bool liveHandle(VQHANDLE h) {
    if (h < 256) return false;
    DocArea *a = docHead[h & 255];
    if (a == nullptr) return false;
    uint32_t slot = h >> 8;
    return slot < static_cast<uint32_t>(a->indexes) && handleTable(a)[slot] != 0;
}

// validHandle for the library's hot paths: the common answer inline, the
// report of an invalid handle out of line.
inline int checkHandle(VQHANDLE h) { return liveHandle(h) ? 1 : validHandle(h); }

// Bumped whenever any document may have changed shape: an object made or
// freed, a block given another handle, an area installed or deleted, nodes
// linked or unlinked, a string rewritten in place. Code that keeps answers
// between calls (the selection lists' cursors, the model layer's read
// index) trusts them only while this stays the same.
extern uint64_t treeGeneration;
inline void treeChanged() { ++treeGeneration; }

// Size of the block that holds a payload of `bytes` (header included).
inline int64_t blockSizeFor(int64_t bytes) { return (bytes + 8 + 7) & ~int64_t{7}; }

}  // namespace vqxml

#endif  // VQXML_STORE_AREA_H
