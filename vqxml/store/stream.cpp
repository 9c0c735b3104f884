// stream.cpp - compaction of a document area, and areas as byte images:
// making an area minimal and handing its bytes out, and giving a caller a
// block to fill with an image (VQXML_documentLoaded in area.cpp installs it).
//
// An image is the area's bytes exactly as they stand in memory, so it is read
// back only by the same build on the same kind of machine. Handles survive
// the round trip because every reference inside an area is a slot or an
// offset relative to `data`, never an address.
#include <cstdint>
#include <cstring>

#include "vqxml/store/area.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"

namespace vqxml {
namespace {

// Offset just past the last block (relative to `data`).
inline int64_t dataEnd(const DocArea *a) { return int64_t{a->size} - 48 - 4 * int64_t{a->indexes}; }

// A live block is one whose link names a slot that names it back.
inline bool isLive(DocArea *a, int64_t off, const BlockHeader *b) {
    return b->blockLink > 0 && b->blockLink < a->indexes && handleTable(a)[b->blockLink] == off;
}

// Whether the blocks tile the data region. The library's own areas always
// do and loaded images are checked for it, so this only guards the moves
// below against an area damaged by a caller writing past an object.
bool tiles(DocArea *a) {
    const int64_t end = dataEnd(a);
    int64_t off = 4;
    while (off < end) {
        if (off + 8 > end) return false;
        const int32_t size = blockAt(a, static_cast<int32_t>(off))->blockSize;
        if (size < 8 || size % 8 != 0 || off + size > end) return false;
        off += size;
    }
    return off == end;
}

}  // namespace
}  // namespace vqxml

using namespace vqxml;

// Slides every block that is not on the free list down over the listed free
// blocks, so that the listed space ends up as one block at the end of the
// area. Free blocks that are not listed (freed objects, small remainders of
// splits) move like live ones and stay where they land: the allocator's
// sweep takes them back when it runs. The free list is kept in address
// order by the allocator; should a loaded image list its blocks in another
// order, the listed blocks from the first one out of order on are treated
// as unlisted.
extern "C" void VQXML_compact(VQHANDLE document) {
    const uint32_t number = document & 255;
    DocArea *a = number != 0 ? docHead[number] : nullptr;
    if (a == nullptr) return;
    int32_t *table = handleTable(a);
    const int64_t end = dataEnd(a);
    const int64_t first = table[0];
    if (first == 0) return;
    if (first < 4 || first >= end || !tiles(a)) return;

    int64_t gap = first;
    int64_t gapSize = blockAt(a, static_cast<int32_t>(first))->blockSize;
    int64_t next = blockAt(a, static_cast<int32_t>(first))->blockLink;
    int64_t cursor = gap + gapSize;
    bool listed = true;  // false once the list has left address order
    if (next != 0 && next < cursor) listed = false;
    while (cursor < end) {
        BlockHeader *b = blockAt(a, static_cast<int32_t>(cursor));
        if (listed && cursor == next) {
            // The next listed block follows the gap directly: take it in.
            gapSize += b->blockSize;
            cursor += b->blockSize;
            next = b->blockLink;
            if (next != 0 && (next < cursor || next >= end)) listed = false;
            continue;
        }
        // A run of blocks up to the next listed block (or the end) slides
        // down by the gap's size; their slots follow them.
        const int64_t runStart = cursor;
        while (cursor < end && !(listed && cursor == next)) {
            b = blockAt(a, static_cast<int32_t>(cursor));
            if (isLive(a, cursor, b))
                table[b->blockLink] -= static_cast<int32_t>(gapSize);
            else
                b->blockLink = 0;
            cursor += b->blockSize;
        }
        if (listed && next != 0 && cursor != next) listed = false;  // not a block start
        std::memmove(a->data + runStart - gapSize, a->data + runStart,
                     static_cast<size_t>(cursor - runStart));
        gap = cursor - gapSize;
    }
    treeChanged();  // blocks moved: answers kept between calls start afresh
    BlockHeader *last = blockAt(a, static_cast<int32_t>(gap));
    last->blockSize = static_cast<int32_t>(gapSize);
    last->blockLink = 0;
    table[0] = static_cast<int32_t>(gap);
}

// Makes the area minimal and hands it out: the handle table is cut after
// the highest slot in use (slots 0 and 1 always stay), every free block is
// dropped, and the live blocks close up behind the shorter table. The block
// behind the area keeps its size; the area simply goes on with a smaller
// `size`, and its next growth moves it to a new block as usual.
extern "C" void *VQXML_streamOut(VQHANDLE document, int32_t *lengthOut) {
    const uint32_t number = document & 255;
    DocArea *a = number != 0 ? docHead[number] : nullptr;
    if (a == nullptr) return nullptr;
    int32_t *table = handleTable(a);
    if (!tiles(a)) return nullptr;  // damaged by a caller: moving blocks could run wild

    int32_t highest = 1;
    for (int32_t s = a->indexes - 1; s >= 2; --s) {
        if (table[s] != 0) {
            highest = s;
            break;
        }
    }
    const int64_t cut = highest < a->indexes ? a->indexes - 1 - int64_t{highest} : 0;

    // Unlink the free list; a free block is then simply one that is not live.
    const int64_t end = dataEnd(a);
    table[0] = 0;

    // The data region starts 4 x cut bytes earlier; each live block moves
    // down by that plus the free bytes in front of it. Runs of adjacent
    // live blocks move together.
    char *const oldData = a->data;
    char *const newData = oldData - 4 * cut;
    std::memmove(newData, oldData, 4);  // the reserved bytes
    int64_t freeTotal = 0, off = 4, runStart = 4;
    auto flush = [&](int64_t runEnd) {
        if (runEnd > runStart)
            std::memmove(newData + runStart - freeTotal, oldData + runStart,
                         static_cast<size_t>(runEnd - runStart));
    };
    while (off < end) {
        BlockHeader *b = reinterpret_cast<BlockHeader *>(oldData + off);
        const int32_t size = b->blockSize;
        if (isLive(a, off, b)) {
            table[b->blockLink] = static_cast<int32_t>(off - freeTotal);
        } else {
            flush(off);
            freeTotal += size;
            runStart = off + size;
        }
        off += size;
    }
    flush(end);

    treeChanged();
    const int64_t dropped = 4 * cut + freeTotal;
    a->indexes -= static_cast<int32_t>(cut);
    a->freeoffset -= static_cast<int32_t>(cut);
    a->data = newData;
    if (a->firstfree > a->indexes) a->firstfree = a->indexes;
    // The dropped bytes would form one free block at the end of the area;
    // it is cut off at once, so the handed-out area has an empty free list.
    a->size -= static_cast<int32_t>(dropped);
    a->freesize -= static_cast<int32_t>(freeTotal);
    if (lengthOut != nullptr) *lengthOut = a->size;
    return a;
}

// A block for the caller to fill with an image. Lengths below 1 are refused
// like a failed allocation (code 11), since no block could hold an image.
extern "C" void *VQXML_streamIn(int32_t length) {
    void *block = nullptr;
    if (length >= 1)
        block = tracedMalloc(static_cast<size_t>(length), "document area", "streamIn");
    else
        traceMalloc(2, "streamIn", nullptr, length);
    if (block == nullptr) errorAlloc("DocumentArea", length);
    return block;
}
