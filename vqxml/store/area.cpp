// area.cpp - document areas: creation, the block allocator (slot search,
// first fit over the free list, sweep, split), frees, growth, handle
// checks, deletion and the installation of a loaded area image.
#include "vqxml/store/area.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/trace.h"

VQXML_AreaHead *docHead[256];
int32_t dontRealloc[256];

namespace vqxml {
namespace {

constexpr int64_t kGentleThreshold = 64000000;
constexpr int64_t kMaxAreaSize = 0x7fffffff;

// Bytes of the data region behind the 4 reserved ones.
inline int64_t dataBytes(const DocArea *a) {
    return int64_t{a->size} - 52 - 4 * int64_t{a->indexes};
}
inline int64_t roundUp8(int64_t v) { return (v + 7) & ~int64_t{7}; }

// First fit over the free list. Returns the offset of the first block of
// at least `size` bytes and the link that points at it, or 0.
int32_t firstFit(DocArea *a, int64_t size, int32_t **linkOut) {
    int32_t *link = &handleTable(a)[0];
    int32_t off = *link;
    while (off != 0) {
        BlockHeader *b = blockAt(a, off);
        if (b->blockSize >= size) {
            *linkOut = link;
            return off;
        }
        link = &b->blockLink;
        off = b->blockLink;
    }
    return 0;
}

// Unlinks every listed free block (entry 0 and the blocks' links to 0).
void unlinkFreeList(DocArea *a) {
    int32_t off = handleTable(a)[0];
    handleTable(a)[0] = 0;
    while (off != 0) {
        BlockHeader *b = blockAt(a, off);
        off = b->blockLink;
        b->blockLink = 0;
    }
}

// Merges runs of free blocks and rebuilds the free list in address order
// from the merged blocks of at least kMinListedBlock bytes.
void sweep(DocArea *a) {
    unlinkFreeList(a);
    const int64_t end = dataBytes(a) + 4;
    int32_t *tail = &handleTable(a)[0];
    int64_t off = 4;
    while (off < end) {
        BlockHeader *b = blockAt(a, static_cast<int32_t>(off));
        if (b->blockSize <= 0) break;  // a damaged area: stop rather than loop
        if (b->blockLink != 0) {
            off += b->blockSize;
            continue;
        }
        int64_t merged = b->blockSize;
        while (off + merged < end) {
            BlockHeader *n = blockAt(a, static_cast<int32_t>(off + merged));
            if (n->blockLink != 0 || n->blockSize <= 0) break;
            merged += n->blockSize;
        }
        b->blockSize = static_cast<int32_t>(merged);
        if (merged >= kMinListedBlock) {
            *tail = static_cast<int32_t>(off);
            tail = &b->blockLink;
        }
        off += merged;
    }
}

// Grows the area for more slots; false when growth is barred or fails.
bool growForSlots(int32_t number) {
    if (dontRealloc[number] != 0) return false;
    return reallocDocumentArea(number, 0) != 0;
}

// The image as this library streams it out: no free block at all, and the
// used slots, taken in slot order, name the blocks in address order, each
// block naming its slot back, the last one ending the data region. One pass
// with no chain from block to block, which is what makes loading cost little
// more than the caller's copy. Returns the number of used slots, or -1 as
// soon as any of it fails; the full check then decides (and names the
// damage).
int64_t tilesInSlotOrder(const int32_t *table, int32_t indexes, const char *base, int64_t D) {
    int64_t expected = 4, used = 0;
    bool tiles = true;
    for (int32_t s = 1; s < indexes && tiles; ++s) {
        const int64_t off = table[s];
        if (off == 0) continue;
        // `expected` is always a block start inside the region or its end.
        if (off != expected || expected == D + 4) return -1;
        const BlockHeader *b = reinterpret_cast<const BlockHeader *>(base + off);
        const int64_t size = b->blockSize;
        tiles = b->blockLink == s && size >= 8 && size % 8 == 0 && off + size <= D + 4;
        expected = off + size;
        ++used;
    }
    return tiles && expected == D + 4 ? used : -1;
}

// Checks that a loaded image is an area this library could have written:
// it fits its block, its blocks tile the data region, every used slot names
// a live block that names it back, the free list runs over free block starts
// without a cycle, and the counters agree. Returns null or the reason.
const char *checkAreaImage(const DocArea *a, int64_t blockBytes) {
    if (blockBytes < 52) return "too short";
    if (a->indexes < 1 || a->indexes > kMaxIndexes) return "indexes";
    const int64_t D = dataBytes(a);
    if (a->size > blockBytes || D < 0) return "size";
    if (a->size % 4 != 0 || D % 8 != 0) return "alignment";
    const char *base = reinterpret_cast<const char *>(a) + 48 + 4 * int64_t{a->indexes};
    const int32_t *table = reinterpret_cast<const int32_t *>(a + 1);
    auto header = [base](int64_t off) { return reinterpret_cast<const BlockHeader *>(base + off); };
    auto countersAgree = [a, D](int64_t live, int64_t liveBytes, int64_t used) {
        return a->dbgHandles == live && a->dbgSize == liveBytes && a->freeoffset == a->indexes - 1 - used &&
               int64_t{a->freesize} == D - liveBytes;
    };
    if (const int64_t used = table[0] == 0 ? tilesInSlotOrder(table, a->indexes, base, D) : -1; used >= 0) {
        // Every used slot names the next block and that block names it back,
        // so used slots, live blocks and blocks are one and the same.
        return countersAgree(used, D, used) ? nullptr : "counters";
    }
    // Tiling; live blocks are those their slot names.
    int64_t off = 4, live = 0, liveBytes = 0, blocks = 0;
    while (off < D + 4) {
        if (off + 8 > D + 4) return "block header";
        const BlockHeader *b = header(off);
        if (b->blockSize < 8 || b->blockSize % 8 != 0 || off + b->blockSize > D + 4)
            return "block size";
        if (b->blockLink > 0 && b->blockLink < a->indexes && table[b->blockLink] == off) {
            ++live;
            liveBytes += b->blockSize;
        }
        ++blocks;
        off += b->blockSize;
    }
    // Each live block claims its own slot (a slot names one offset), so when
    // the used slots are exactly as many as the live blocks, every used slot
    // names a block start that names it back: counting them is the check.
    int64_t used = 0;
    for (int32_t s = 1; s < a->indexes; ++s) used += table[s] != 0;
    if (used != live) return "handle table";
    if (table[0] != 0) {
        // The free list must run over block starts (4 + 8k): one bit per
        // possible start, from a second walk. Streamed-out images have an
        // empty list and skip this.
        const size_t bits = static_cast<size_t>(D / 8) + 1;
        DbgPtr<uint8_t> starts(static_cast<uint8_t *>(dbg_malloc((bits + 7) / 8, "checkArea")));
        if (starts == nullptr) {
            errorAlloc("checkArea", static_cast<int64_t>((bits + 7) / 8));
            return "no memory to check it";
        }
        std::memset(starts.get(), 0, (bits + 7) / 8);
        for (int64_t at = 4; at < D + 4; at += header(at)->blockSize) {
            const size_t k = static_cast<size_t>((at - 4) / 8);
            starts.get()[k / 8] = static_cast<uint8_t>(starts.get()[k / 8] | (1u << (k % 8)));
        }
        auto isStart = [&](int64_t at) {
            if (at < 4 || at + 8 > D + 4 || (at - 4) % 8 != 0) return false;
            const size_t k = static_cast<size_t>((at - 4) / 8);
            return (starts.get()[k / 8] >> (k % 8) & 1) != 0;
        };
        int64_t steps = 0;
        for (int64_t f = table[0]; f != 0; f = header(f)->blockLink) {
            if (!isStart(f) || ++steps > blocks) return "free list";
            const int32_t link = header(f)->blockLink;
            if (link > 0 && link < a->indexes && table[link] == f) return "free list";
        }
    }
    return countersAgree(live, liveBytes, used) ? nullptr : "counters";
}

int32_t lowestFreeNumber() {
    for (int32_t n = 1; n <= 254; ++n)
        if (docHead[n] == nullptr) return n;
    return 255;
}

}  // namespace

uint64_t treeGeneration = 0;

}  // namespace vqxml

using namespace vqxml;

extern "C" int32_t newDocumentArea(int32_t number, uint32_t **outDocHandleField) {
    static uint32_t dummyDocHandle;  // when the block could not be tracked
    VQXML_TRACE(1, "newDocumentArea: n = %d, *iDoc = 0x%p", number,
                outDocHandleField ? static_cast<void *>(*outDocHandleField) : nullptr);
    if (number == 0) number = lowestFreeNumber();
    for (int i = 0; i < 12; ++i)
        VQXML_TRACE(1, "newDocumentArea: docHead[ %d ] = 0x%p", i, static_cast<void *>(docHead[i]));
    if (number < 1 || number > 255 || docHead[number] != nullptr) {
        errorNoMoreDoc();
        return 0;
    }
    char *block = static_cast<char *>(dbg_malloc(kInitialAreaSize, "document area"));
    traceMalloc(1, "newDocumentArea", block, kInitialAreaSize, 4);
    if (block == nullptr) {
        errorAlloc("DocumentArea", kInitialAreaSize);
        return 0;
    }
    VQXML_DbgMem *record = allocMemDocArea;
    DocArea *a = reinterpret_cast<DocArea *>(block);
    docHead[number] = a;
    dontRealloc[number] = 0;
    a->doc = number;
    a->size = kInitialAreaSize;
    a->indexes = kInitialIndexes;
    a->firstfree = 1;
    a->freesize = 17408;
    a->freeoffset = kInitialIndexes - 1;
    a->dbgHandles = a->dbgSize = a->dbgFreeHandles = a->dbgFreeSize = 0;
    a->data = block + 48 + 4 * kInitialIndexes;
    std::memset(handleTable(a), 0, 4 * static_cast<size_t>(kInitialIndexes));
    handleTable(a)[0] = 4;
    std::memset(a->data, 0, 4);
    BlockHeader *first = blockAt(a, 4);
    first->blockSize = 17408;
    first->blockLink = 0;
    if (outDocHandleField != nullptr)
        *outDocHandleField = record != nullptr ? &record->DocHandle : &dummyDocHandle;
    return number;
}

namespace {

// The last step of every allocation: the block of `used` bytes at `off`
// takes `slot`, and the head's counters follow.
inline VQHANDLE book(DocArea *a, int32_t *table, BlockHeader *b, int32_t number, int32_t slot, int32_t off,
                     int32_t used) {
    a->firstfree = slot + 1;
    b->blockLink = slot;
    table[slot] = off;
    a->freesize -= used;
    a->freeoffset -= 1;
    a->dbgHandles += 1;
    a->dbgSize += used;
    return static_cast<VQHANDLE>(slot) * 256 + static_cast<VQHANDLE>(number);
}

// Everything myAlloc does beyond its common case, in the same order.
[[gnu::noinline]] VQHANDLE allocSlow(int32_t number, int64_t bytes) {
    DocArea *a = docHead[number];
    // Requests too large for any area fail in growth, which records them.
    if (a == nullptr || bytes < 0) return 0;
    if (bytes > (int64_t{1} << 40)) bytes = int64_t{1} << 40;

    // 1. A handle slot.
    int32_t *table = handleTable(a);
    int32_t slot = a->firstfree < 1 ? 1 : a->firstfree;
    while (slot < a->indexes && table[slot] != 0) ++slot;
    if (slot >= a->indexes) {
        const int64_t freeSlots = a->freeoffset;
        if (int64_t{kMaxIndexes} - 2 * freeSlots > slot && 3 * freeSlots <= a->indexes) {
            if (!growForSlots(number)) return 0;
        } else if (freeSlots >= 2) {
            a->firstfree = 1;
            slot = 1;
            while (slot < a->indexes && table[slot] != 0) ++slot;
            if (slot < a->indexes) {
                if (slot > kMaxSlot) {
                    errorNoMoreHandle();
                    return 0;
                }
            } else if (slot <= kMaxSlot) {
                if (!growForSlots(number)) return 0;
            } else {
                errorNoMoreHandle();
                return 0;
            }
        } else if (slot > kMaxSlot) {
            errorNoMoreHandle();
            return 0;
        } else if (!growForSlots(number)) {
            return 0;
        }
        a = docHead[number];
        table = handleTable(a);
        if (slot >= a->indexes || slot > kMaxSlot) {  // growth added no slot
            errorNoMoreHandle();
            return 0;
        }
    }

    // 2. A block: first fit, then a sweep when most of the area is free,
    // then growth.
    const int64_t size = blockSizeFor(bytes);
    int32_t *link = nullptr;
    int32_t off = firstFit(a, size, &link);
    if (off == 0 && a->freesize > a->size / 2) {
        sweep(a);
        off = firstFit(a, size, &link);
    }
    if (off == 0) {
        if (dontRealloc[number] != 0) return 0;
        if (!reallocDocumentArea(number, size)) return 0;
        a = docHead[number];
        table = handleTable(a);
        link = &table[0];
        off = *link;
        while (off != 0 && blockAt(a, off)->blockLink != 0) {
            link = &blockAt(a, off)->blockLink;
            off = *link;
        }
        if (off == 0 || blockAt(a, off)->blockSize < size) return 0;
    }

    // 3. Split.
    BlockHeader *b = blockAt(a, off);
    const int32_t next = b->blockLink;
    int32_t used;
    if (b->blockSize <= size + 7) {
        used = b->blockSize;
        *link = next;
    } else {
        used = static_cast<int32_t>(size);
        const int32_t restOff = off + used;
        BlockHeader *rest = blockAt(a, restOff);
        rest->blockSize = b->blockSize - used;
        if (rest->blockSize >= kMinListedBlock) {
            rest->blockLink = next;
            *link = restOff;
        } else {
            rest->blockLink = 0;
            *link = next;
        }
        b->blockSize = used;
    }

    // 4. Booking.
    return book(a, table, b, number, slot, off, used);
}

}  // namespace

// The common case of a growing document: the slot after the last one handed
// out is free and the first listed free block is large enough (a fresh
// area's free list is its one tail block). It takes what the full search
// would take, as the full search would split and book it.
extern "C" VQHANDLE myAlloc(VQHANDLE document, int64_t bytes) {
    treeChanged();
    const int32_t number = static_cast<int32_t>(document & 255);
    if (number == 0) return 0;
    DocArea *a = docHead[number];
    if (a == nullptr || bytes < 0 || bytes > (int64_t{1} << 30)) return allocSlow(number, bytes);
    int32_t *table = handleTable(a);
    const int32_t slot = a->firstfree < 1 ? 1 : a->firstfree;
    const int32_t off = table[0];
    const int32_t size = static_cast<int32_t>(blockSizeFor(bytes));
    if (slot >= a->indexes || table[slot] != 0 || off == 0) return allocSlow(number, bytes);
    BlockHeader *b = blockAt(a, off);
    if (b->blockSize < size) return allocSlow(number, bytes);
    const int32_t next = b->blockLink;
    int32_t used = b->blockSize;
    if (used <= size + 7) {
        table[0] = next;
    } else {
        BlockHeader *rest = blockAt(a, off + size);
        rest->blockSize = used - size;
        if (rest->blockSize >= kMinListedBlock) {
            rest->blockLink = next;
            table[0] = off + size;
        } else {
            rest->blockLink = 0;
            table[0] = next;
        }
        used = size;
        b->blockSize = used;
    }
    return book(a, table, b, number, slot, off, used);
}

extern "C" void myFree(VQHANDLE handle) {
    treeChanged();
    if (!checkHandle(handle)) return;
    const int32_t number = static_cast<int32_t>(handle & 255);
    DocArea *a = docHead[number];
    int32_t *table = handleTable(a);
    const int32_t slot = static_cast<int32_t>(handle >> 8);
    BlockHeader *b = blockAt(a, table[slot]);
    b->blockLink = 0;
    table[slot] = 0;
    a->freesize += b->blockSize;
    a->dbgHandles -= 1;
    a->freeoffset += 1;
    a->dbgSize -= b->blockSize;
    a->dbgFreeHandles += 1;
    a->dbgFreeSize += b->blockSize;
    if (a->freeoffset >= a->indexes - 1) VQXML_deleteDocumentArea(handle);
}

extern "C" int reallocDocumentArea(int32_t number, int64_t needed) {
    if (number < 1 || number > 255 || docHead[number] == nullptr) return 0;
    DocArea *old = docHead[number];
    const int64_t D = dataBytes(old);
    const int64_t H = old->indexes;
    auto capSlots = [H](int64_t h) {
        if (h > kMaxIndexes) h = kMaxIndexes;
        return h < H ? H : h;  // a tiny streamed-in table must not shrink
    };
    int64_t H2, D2;
    if (needed > 0) {
        H2 = capSlots(((H / 4) * 7) | 1);
        D2 = roundUp8(std::max(2 * D, D + needed));
    } else {
        H2 = capSlots(2 * H + 1);
        D2 = roundUp8(std::max((D / 4) * 7, D));
    }
    int64_t S = D2 + 4 * H2 + 52;
    if (S > kGentleThreshold) {
        if (needed > 0) {
            H2 = capSlots(((H / 6) * 7) | 1);
            D2 = roundUp8(std::max((D / 5) * 6, D + needed));
        } else {
            H2 = capSlots((H / 5) * 6 + 1);
            D2 = roundUp8(std::max((D / 6) * 7, D));
        }
        S = D2 + 4 * H2 + 52;
    }
    if (S < 1 || S > kMaxAreaSize) {
        traceRealloc(1, "reallocDocumentArea", nullptr, S, old->size);
        dontRealloc[number] = 1;
        errorAlloc("DocumentArea", S);
        return 0;
    }
    // The free list's last block, found before the move (offsets stay
    // valid). When it ends the data region its payload holds nothing, so the
    // move stops at its head and the pages behind it are left untouched.
    int32_t last = 0;
    int64_t steps = D / 8 + 1;  // a list cannot hold more blocks than that
    for (int32_t off = handleTable(old)[0]; off != 0 && --steps >= 0; off = blockAt(old, off)->blockLink)
        last = off;
    const bool freeTail = last != 0 && last + int64_t{blockAt(old, last)->blockSize} == D + 4;
    const int64_t moved = freeTail ? last + 8 : D + 4;

    // The new block starts with the old one's bytes (grown in place where the
    // memory allows): head and table stay put, the data region moves up
    // behind the larger table, and the new slots are cleared.
    const DocArea head = *old;
    const auto oldAddress = reinterpret_cast<uintptr_t>(old);
    char *block = static_cast<char *>(
        growBlock(old, static_cast<size_t>(old->size), static_cast<size_t>(S), "document area"));
    traceRealloc(1, "reallocDocumentArea", block, S, head.size);
    if (block == nullptr) {
        dontRealloc[number] = 1;
        errorAlloc("DocumentArea", S);
        return 0;
    }
    DocArea *a = reinterpret_cast<DocArea *>(block);
    std::memmove(block + 48 + 4 * H2, block + 48 + 4 * H, static_cast<size_t>(moved));
    std::memset(handleTable(a) + H, 0, 4 * static_cast<size_t>(H2 - H));
    *a = head;
    a->size = static_cast<int32_t>(S);
    a->indexes = static_cast<int32_t>(H2);
    a->freesize += static_cast<int32_t>(D2 - D);
    a->freeoffset += static_cast<int32_t>(H2 - H);
    a->data = block + 48 + 4 * H2;
    docHead[number] = a;

    if (D2 > D) {
        if (freeTail) {
            blockAt(a, last)->blockSize += static_cast<int32_t>(D2 - D);
        } else {
            BlockHeader *fresh = blockAt(a, static_cast<int32_t>(D + 4));
            fresh->blockSize = static_cast<int32_t>(D2 - D);
            fresh->blockLink = 0;
            (last != 0 ? blockAt(a, last)->blockLink : handleTable(a)[0]) = static_cast<int32_t>(D + 4);
        }
    }

    traceFree(1, "reallocDocumentArea", reinterpret_cast<void *>(oldAddress));
    return 1;
}

extern "C" int validHandle(VQHANDLE handle) {
    if (handle == 0) return 0;
    if (liveHandle(handle)) return 1;
    char params[16];
    std::snprintf(params, sizeof params, "%x|", handle);
    addVqXmlError(kInvalidHandle, params);
    return 0;
}

extern "C" int VQXML_checkNode(VQHANDLE handle) { return validHandle(handle); }

extern "C" void *toPNode(VQHANDLE handle) { return payload(handle); }

extern "C" void changeHandle(VQHANDLE a, VQHANDLE b) {
    if ((a & 255) != (b & 255) || !liveHandle(a) || !liveHandle(b)) return;
    DocArea *area = docHead[a & 255];
    int32_t *table = handleTable(area);
    const uint32_t sa = a >> 8, sb = b >> 8;
    treeChanged();
    std::swap(table[sa], table[sb]);
    blockAt(area, table[sa])->blockLink = static_cast<int32_t>(sa);
    blockAt(area, table[sb])->blockLink = static_cast<int32_t>(sb);
}

extern "C" void VQXML_deleteDocumentArea(VQHANDLE handle) {
    const uint32_t number = handle & 255;
    if (number == 0 || docHead[number] == nullptr) return;
    traceFree(1, "deleteDocumentArea", docHead[number], 1);
    treeChanged();
    dbg_free(docHead[number]);
    docHead[number] = nullptr;
}

extern "C" void VQXML_deleteDocumentAreaRange(int32_t low, int32_t high) {
    if (low < 0 || low > 255 || high >= 256) return;
    VQXML_TRACE(1, "VQXML free   - (deleteDocumentAreaRange)  nRangeLow: %i, nRangeHigh: %i",
                low, high);
    for (int32_t n = low; n <= high; ++n) {
        if (docHead[n] == nullptr) continue;
        traceFree(1, "deleteDocumentAreaRange", docHead[n], 1);
        treeChanged();
        dbg_free(docHead[n]);
        docHead[n] = nullptr;
    }
}

extern "C" int VQXML_documentLoaded(void *area) {
    if (area == nullptr) return 0;
    DocArea *a = static_cast<DocArea *>(area);
    const int64_t blockBytes = trackedSize(area);
    if (blockBytes >= 48 && a->doc >= 1 && a->doc <= 255 && docHead[a->doc] == nullptr) {
        // A damaged image would make every later handle check unsafe: refuse
        // it like an image for a number in use, and say why.
        if (const char *damage = checkAreaImage(a, blockBytes)) {
            char params[64];
            std::snprintf(params, sizeof params, "%s|", damage);
            addVqXmlError(kBadAreaImage, params);
            tracedFree(area, "documentLoaded");
            return 0;
        }
        treeChanged();
        docHead[a->doc] = a;
        dontRealloc[a->doc] = 0;
        a->data = static_cast<char *>(area) + 48 + 4 * int64_t{a->indexes};
        return 1;
    }
    tracedFree(area, "documentLoaded");
    return 0;
}
