// memdiag.h - the accounting layer under every heap block of the library:
// a list of live blocks with labels, running totals, a leak report, a file
// dump and per-document counters.
#ifndef VQXML_STORE_MEMDIAG_H
#define VQXML_STORE_MEMDIAG_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "vqxml/vqxml.h"

extern "C" {

VQXML_API void *dbg_malloc(size_t size, const char *label);
VQXML_API void dbg_free(void *pointer);
VQXML_API void dbg_memleak(void);
VQXML_API void writeHead(int fd, int32_t documentNumber);
VQXML_API void debugMemDoc(int32_t documentNumber, int32_t *counters);

}  // extern "C"

namespace vqxml {

static_assert(sizeof(VQXML_DbgMem) == 56, "diagnostics record is 56 bytes");

// Figures of the accounting layer.
struct MemStats {
    int32_t allocCount;    // next sequence number
    int32_t allocSize;     // bytes currently allocated
    int32_t maxAllocSize;  // peak of allocSize
    int32_t liveBlocks;    // records in the list
};
MemStats memStats();

// Replaces a block by one of `newSize` bytes whose first bytes are the old
// block's (up to the smaller size), with the accounting of a dbg_malloc of
// the new block followed by a dbg_free of the old one; the block's record
// keeps its DocHandle. Null on failure, the old block then intact.
// `oldSize` is used only for a block the list does not know.
void *growBlock(void *old, size_t oldSize, size_t newSize, const char *label);

// Size of a block taken with dbg_malloc, or -1 when the list does not
// know the pointer.
int64_t trackedSize(const void *pointer);

// Memory of given-back large blocks that is kept for reuse (committed
// bytes, at most 64 MiB), and its return to the system. Kept memory is no
// live block: the accounting reads as if it had been returned.
size_t keptBytes();
void releaseKeptMemory();

// Test hook: the n-th dbg_malloc from now on (1 = the next one) fails, and
// so does every one after it while `sticky` is set. 0 switches it off.
// Not exported from the shared library.
void failAllocAt(int64_t n, bool sticky = false);

// ---- traced blocks -------------------------------------------------------
// Blocks whose taking and giving back show in the trace. Every trace line
// about a heap block is written here, in one of these forms:
//   "VQXML malloc - (function) addr: 0x<p>, (len: <n>)"
//   "VQXML malloc - (function) addr: 0x<p>, (len: <n>, old len: <o>)"
//   "VQXML free   - (function) addr: 0x<p>"
// `function` names the caller in the line, `label` the block in the
// accounting list; `pad` adds blanks between the ')' and "addr", where a
// caller's lines have always been aligned that way. A taking is traced
// whether or not it succeeded (a failure shows as a null address).

// dbg_malloc with its trace line at `level`.
void *tracedMalloc(size_t size, const char *label, const char *function, uint32_t level = 2);
// dbg_free with its trace line at `level`; a null block is neither traced
// nor freed.
void tracedFree(void *block, const char *function, uint32_t level = 2);
// The lines alone, for blocks taken or given back some other way.
void traceMalloc(uint32_t level, const char *function, const void *block, int64_t length,
                 int pad = 0);
void traceRealloc(uint32_t level, const char *function, const void *block, int64_t length,
                  int64_t oldLength);
void traceFree(uint32_t level, const char *function, const void *block, int pad = 0);

// Owner of a block taken with dbg_malloc.
struct DbgFree {
    void operator()(void *p) const { dbg_free(p); }
};
template <typename T>
using DbgPtr = std::unique_ptr<T, DbgFree>;

}  // namespace vqxml

#endif  // VQXML_STORE_MEMDIAG_H
