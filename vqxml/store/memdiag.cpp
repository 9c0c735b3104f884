// memdiag.cpp - the accounting layer: every heap block of the library is
// taken with dbg_malloc and given back with dbg_free, which keep a list of
// live blocks (newest first) with labels and running totals. On top of it:
// the leak report, the dump file, per-document counters and the process
// memory measurement.
#include "vqxml/store/memdiag.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/vqsupport.h"
#include "vqxml/store/area.h"
#include "vqxml/store/trace.h"

VQXML_DbgMem *allocMemDocArea;

namespace vqxml {
namespace {

// Blocks of this size and more get a mapping of their own inside a large
// reservation of address space: a growing document area is then extended in
// place (its pages are committed as needed) instead of being copied into
// freshly faulted memory, huge pages can back it, and freeing it returns the
// memory at once. Where no reservation can be had, a plain mapping that
// mremap can move is used.
constexpr size_t kMapThreshold = 256 * 1024;
constexpr size_t kHugePage = 2 * 1024 * 1024;
constexpr size_t kReservation = size_t{2} << 30;  // an area never passes 2 GiB

// The accounting record as the library keeps it: the public part first,
// then how the block was obtained.
struct Record {
    VQXML_DbgMem pub;
    size_t mapped;    // bytes usable at addr (committed); 0 = a heap block
    size_t reserved;  // bytes of address space reserved at addr (>= mapped)
};

size_t pageRound(size_t n) { return (n + 4095) & ~size_t{4095}; }
// Committed ranges grow in whole huge pages, so that faults can be served
// with them.
size_t commitRound(size_t n) { return (n + kHugePage - 1) & ~(kHugePage - 1); }

// Reserves kReservation bytes aligned to a huge page and commits the first
// `bytes`; null when the address space cannot be had.
void *reserveBlock(size_t *committed, size_t *reserved) {
    size_t bytes = *committed;
    const size_t span = kReservation + kHugePage;
    void *raw = ::mmap(nullptr, span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
    const uintptr_t aligned = (start + kHugePage - 1) & ~uintptr_t{kHugePage - 1};
    if (aligned > start) ::munmap(raw, aligned - start);
    const uintptr_t end = aligned + kReservation;
    if (start + span > end) ::munmap(reinterpret_cast<void *>(end), start + span - end);
    void *p = reinterpret_cast<void *>(aligned);
    bytes = commitRound(bytes);
    if (::mprotect(p, bytes, PROT_READ | PROT_WRITE) != 0) {
        ::munmap(p, kReservation);
        return nullptr;
    }
    ::madvise(p, kReservation, MADV_HUGEPAGE);
    *reserved = kReservation;
    *committed = bytes;
    return p;
}

// Reservations whose blocks were given back, kept with their committed
// pages for the next large block: a document parsed after another was
// deleted then finds its memory already faulted in. At most kKeptBlocks
// are kept, with kKeptBytes of committed memory between them; the pages
// above that are returned when a block is kept. releaseKeptMemory returns
// the rest.
constexpr int kKeptBlocks = 4;
constexpr size_t kKeptBytes = size_t{64} << 20;

struct Kept {
    void *addr;
    size_t committed;
};
constinit Kept kept[kKeptBlocks] = {};
constinit int keptCount = 0;
constinit size_t keptTotal = 0;

// A kept reservation with at least `bytes` committed (the most recently
// kept one otherwise, committed further); null when none is kept or the
// pages cannot be committed.
void *reuseBlock(size_t bytes, size_t *committed) {
    if (keptCount == 0) return nullptr;
    int pick = keptCount - 1;
    for (int i = 0; i < keptCount; ++i)
        if (kept[i].committed >= bytes) pick = i;
    Kept k = kept[pick];
    if (k.committed < bytes &&
        ::mprotect(static_cast<char *>(k.addr) + k.committed, bytes - k.committed,
                   PROT_READ | PROT_WRITE) != 0)
        return nullptr;
    kept[pick] = kept[--keptCount];
    keptTotal -= k.committed;
    *committed = k.committed < bytes ? bytes : k.committed;
    return k.addr;
}

// Keeps a reservation instead of unmapping it, its committed pages cut to
// what the bound leaves room for; false when nothing may be kept.
bool keepBlock(void *p, size_t committed) {
    const size_t room = kKeptBytes - keptTotal;
    if (keptCount == kKeptBlocks || room < kHugePage) return false;
    size_t keep = committed;
    if (keep > room) {
        keep = room & ~(kHugePage - 1);
        char *cut = static_cast<char *>(p) + keep;
        if (::mprotect(cut, committed - keep, PROT_NONE) != 0 ||
            ::madvise(cut, committed - keep, MADV_DONTNEED) != 0)
            return false;
    }
    kept[keptCount++] = {p, keep};
    keptTotal += keep;
    return true;
}

void *rawAlloc(size_t size, size_t *mapped, size_t *reserved) {
    *mapped = *reserved = 0;
    if (size < kMapThreshold) return std::malloc(size);
    size_t bytes = pageRound(size);
    if (bytes <= kReservation) {
        size_t committed = 0;
        if (void *p = reuseBlock(commitRound(bytes), &committed)) {
            *mapped = committed;
            *reserved = kReservation;
            return p;
        }
        if (void *p = reserveBlock(&bytes, reserved)) {
            *mapped = bytes;
            return p;
        }
    }
    void *p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) return nullptr;
    *mapped = *reserved = bytes;
    return p;
}

void rawFree(void *p, size_t mapped, size_t reserved) {
    if (reserved == kReservation && keepBlock(p, mapped)) return;
    if (reserved != 0)
        ::munmap(p, reserved);
    else
        std::free(p);
}

constinit VQXML_DbgMem *allocatedMem = nullptr;
constinit int32_t allocCount = 1;
constinit int32_t allocSize = 0;
constinit int32_t maxAllocSize = 0;
constinit int32_t liveBlocks = 0;
constinit int64_t lMemStart = 0;
constinit int64_t lPageStart = 0;
constinit char cRecord[256] = {};

// Fault injection for tests: counts down to the allocation that fails.
constinit int64_t failCountdown = 0;
constinit bool failSticky = false;

bool injectedFailure() {
    if (failCountdown == 0) return false;
    if (failCountdown > 1) {
        --failCountdown;
        return false;
    }
    if (!failSticky) failCountdown = 0;
    return true;
}

// 32-bit counters that wrap instead of overflowing.
inline int32_t wrapAdd(int32_t a, int64_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

void writeLine(int fd, const char *line) {
    size_t n = std::strlen(line);
    while (n > 0) {
        ssize_t w = ::write(fd, line, n);
        if (w <= 0) return;
        line += w;
        n -= static_cast<size_t>(w);
    }
}

}  // namespace

int64_t trackedSize(const void *pointer) {
    for (const VQXML_DbgMem *r = allocatedMem; r != nullptr; r = r->next)
        if (r->addr == pointer) return static_cast<uint32_t>(r->size);
    return -1;
}

size_t keptBytes() { return keptTotal; }

void releaseKeptMemory() {
    while (keptCount > 0) ::munmap(kept[--keptCount].addr, kReservation);
    keptTotal = 0;
}

MemStats memStats() { return {allocCount, allocSize, maxAllocSize, liveBlocks}; }

void failAllocAt(int64_t n, bool sticky) {
    failCountdown = n < 0 ? 0 : n;
    failSticky = sticky;
}

}  // namespace vqxml

using namespace vqxml;

namespace vqxml {
namespace {

// Books a block under a record (a fresh one, or the record of the block it
// replaces) as the newest allocation.
void book(Record *r, void *block, size_t size, const char *label, size_t mapped, size_t reserved) {
    if (label == nullptr) label = "";
    VQXML_DbgMem *record = &r->pub;
    record->addr = block;
    record->count = allocCount;
    allocCount = wrapAdd(allocCount, 1);
    record->size = static_cast<int32_t>(size);
    std::strncpy(record->text, label, sizeof record->text - 1);
    record->text[sizeof record->text - 1] = '\0';
    record->next = allocatedMem;
    allocatedMem = record;
    r->mapped = mapped;
    r->reserved = reserved;
    ++liveBlocks;
    allocSize = wrapAdd(allocSize, static_cast<int64_t>(size));
    if (allocSize > maxAllocSize) maxAllocSize = allocSize;
    allocMemDocArea = std::strcmp(label, "document area") == 0 ? record : nullptr;
}

// Unlinks the record of a block; null when the list does not know it.
Record *unlinkRecord(const void *pointer) {
    VQXML_DbgMem **link = &allocatedMem;
    while (*link != nullptr && (*link)->addr != pointer) link = &(*link)->next;
    VQXML_DbgMem *record = *link;
    if (record == nullptr) return nullptr;
    *link = record->next;
    --liveBlocks;
    allocSize = wrapAdd(allocSize, -int64_t{record->size});
    if (allocMemDocArea == record) allocMemDocArea = nullptr;
    return reinterpret_cast<Record *>(record);
}

}  // namespace

void *growBlock(void *old, size_t oldSize, size_t newSize, const char *label) {
    if (injectedFailure()) return nullptr;
    Record *r = nullptr;
    for (VQXML_DbgMem *m = allocatedMem; m != nullptr; m = m->next)
        if (m->addr == old) r = reinterpret_cast<Record *>(m);
    void *block = nullptr;
    size_t mapped = 0, reserved = 0;
    const size_t bytes = pageRound(newSize);
    const size_t commit = commitRound(newSize);
    if (r != nullptr && r->mapped != 0 && newSize >= kMapThreshold && commit <= r->reserved &&
        r->reserved == kReservation) {
        // Room reserved behind the block: commit more pages in place.
        if (commit > r->mapped &&
            ::mprotect(static_cast<char *>(old) + r->mapped, commit - r->mapped,
                       PROT_READ | PROT_WRITE) != 0)
            return nullptr;
        block = old;
        mapped = commit > r->mapped ? commit : r->mapped;
        reserved = r->reserved;
    } else if (r != nullptr && r->mapped != 0 && newSize >= kMapThreshold) {
        block = ::mremap(old, r->reserved, bytes, MREMAP_MAYMOVE);
        if (block == MAP_FAILED) return nullptr;
        mapped = reserved = bytes;
    } else if (r != nullptr && r->mapped == 0 && newSize < kMapThreshold) {
        block = std::realloc(old, newSize);
        if (block == nullptr) return nullptr;
    } else {
        block = rawAlloc(newSize, &mapped, &reserved);
        if (block == nullptr) return nullptr;
        const size_t keep = r != nullptr ? static_cast<uint32_t>(r->pub.size) : oldSize;
        std::memcpy(block, old, keep < newSize ? keep : newSize);
        if (r != nullptr) rawFree(old, r->mapped, r->reserved);
    }
    if (r == nullptr) {
        // The old block was never tracked, so it is not given back (as
        // dbg_free would refuse it); the new one is tracked if possible.
        VQXML_TRACE(1, "**** error **** invalid free ( 0x%p )", old);
        auto *fresh = static_cast<Record *>(std::malloc(sizeof(Record)));
        if (fresh == nullptr) {
            allocMemDocArea = nullptr;
            return block;
        }
        fresh->pub.DocHandle = 0;
        book(fresh, block, newSize, label, mapped, reserved);
        return block;
    }
    // As if the new block were taken before the old one is given back: the
    // peak counts both, the record keeps naming the same document.
    const int32_t oldBooked = r->pub.size;
    unlinkRecord(old);
    allocSize = wrapAdd(allocSize, oldBooked);
    ++liveBlocks;
    book(r, block, newSize, label, mapped, reserved);
    --liveBlocks;
    allocSize = wrapAdd(allocSize, -int64_t{oldBooked});
    return block;
}

// ---- traced blocks ----------------------------------------------------------

void traceMalloc(uint32_t level, const char *function, const void *block, int64_t length,
                 int pad) {
    VQXML_TRACE(level, "VQXML malloc - (%s)%*s addr: 0x%p, (len: %lld)", function, pad, "", block,
                static_cast<long long>(length));
}

void traceRealloc(uint32_t level, const char *function, const void *block, int64_t length,
                  int64_t oldLength) {
    VQXML_TRACE(level, "VQXML malloc - (%s) addr: 0x%p, (len: %lld, old len: %lld)", function, block,
                static_cast<long long>(length), static_cast<long long>(oldLength));
}

void traceFree(uint32_t level, const char *function, const void *block, int pad) {
    VQXML_TRACE(level, "VQXML free   - (%s)%*s addr: 0x%p", function, pad, "", block);
}

void *tracedMalloc(size_t size, const char *label, const char *function, uint32_t level) {
    void *block = dbg_malloc(size, label);
    traceMalloc(level, function, block, static_cast<int64_t>(size));
    return block;
}

void tracedFree(void *block, const char *function, uint32_t level) {
    if (block == nullptr) return;
    traceFree(level, function, block);
    dbg_free(block);
}

}  // namespace vqxml

extern "C" void *dbg_malloc(size_t size, const char *label) {
    if (injectedFailure()) return nullptr;
    size_t mapped = 0, reserved = 0;
    void *block = rawAlloc(size, &mapped, &reserved);
    if (block == nullptr) return nullptr;
    auto *record = static_cast<Record *>(std::malloc(sizeof(Record)));
    if (record == nullptr) {
        allocMemDocArea = nullptr;
        return block;  // untracked, deliberately: the caller still gets memory
    }
    record->pub.DocHandle = 0;
    book(record, block, size, label, mapped, reserved);
    return block;
}

extern "C" void dbg_free(void *pointer) {
    Record *record = unlinkRecord(pointer);
    if (record == nullptr) {
        // A block the list does not know is never handed to the heap.
        VQXML_TRACE(1, "**** error **** invalid free ( 0x%p )", pointer);
        return;
    }
    rawFree(record->pub.addr, record->mapped, record->reserved);
    std::free(record);
}

extern "C" void dbg_memleak(void) {
    VQXML_TRACE(1, "max. allocated memory so far: 0x%x", static_cast<unsigned>(maxAllocSize));
    if (allocatedMem == nullptr) VQXML_TRACE(1, "no memory allocated currently");
    if (!traceOn(1)) return;
    for (VQXML_DbgMem *r = allocatedMem; r != nullptr; r = r->next) {
        VQXML_TRACE_XML(1, "memory alloacted: address = 0x%p, size = %d, text = %s", r->addr,
                        r->size, r->text);
        VQXML_TRACE_XML_DUMP(1, r->text, r->addr, r->size, r->DocHandle);
    }
}

extern "C" void debugMemDoc(int32_t documentNumber, int32_t *counters) {
    if (counters == nullptr || documentNumber < 0 || documentNumber > 255) return;
    const DocArea *a = docHead[documentNumber];
    if (a == nullptr) return;
    counters[0] += a->dbgHandles;
    counters[1] += a->dbgSize;
    counters[2] += a->size;
    counters[3] += a->dbgFreeHandles;
    counters[4] += a->dbgFreeSize;
    counters[5] += 1;
}

extern "C" int VQXML_debug_mem(VQHANDLE document, int32_t *counters, int withLeakReport) {
    if (withLeakReport != 0) dbg_memleak();
    if (counters == nullptr) return 1;
    std::memset(counters, 0, 6 * sizeof(int32_t));
    const int32_t number = static_cast<int32_t>(document & 255);
    if (number != 0) {
        debugMemDoc(number, counters);
    } else {
        for (int32_t n = 1; n <= 255; ++n) debugMemDoc(n, counters);
    }
    return 1;
}

extern "C" void writeHead(int fd, int32_t documentNumber) {
    if (documentNumber < 0 || documentNumber > 255) return;
    const DocArea *a = docHead[documentNumber];
    if (a == nullptr) return;
    char line[512];
    std::snprintf(line, sizeof line,
                  "DocHead = 0x%p, doc = %d, size = %d, indexes = %d, firstfree = %d, "
                  "freesize = %d, freeoffset = %d, dbgHandles = %d, dbgSize = %d, "
                  "dbgFreeHandles = %d, dbgFreeSize = %d\n",
                  static_cast<const void *>(a), a->doc, a->size, a->indexes, a->firstfree,
                  a->freesize, a->freeoffset, a->dbgHandles, a->dbgSize, a->dbgFreeHandles,
                  a->dbgFreeSize);
    writeLine(fd, line);
}

extern "C" void VQXML_PRINTINTOFILE(const char *path) {
    if (path == nullptr) return;
    int fd = ::open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return;
    char line[512];
    std::snprintf(line, sizeof line, "allocCount = %d, allocSize = %d, maxAllocSize = %d\n",
                  allocCount, allocSize, maxAllocSize);
    writeLine(fd, line);
    for (VQXML_DbgMem *r = allocatedMem; r != nullptr; r = r->next) {
        std::snprintf(line, sizeof line,
                      "DbgMem = 0x%p, addr = 0x%p, count = %d, size = %d, next = 0x%p, "
                      "text = '%.24s', DocHandle = %d\n",
                      static_cast<void *>(r), r->addr, r->count, r->size,
                      static_cast<void *>(r->next), r->text, static_cast<int>(r->DocHandle));
        writeLine(fd, line);
        if ((r->DocHandle & 255) != 0) writeHead(fd, static_cast<int32_t>(r->DocHandle & 255));
    }
    for (int32_t n = 0; n <= 255; ++n) writeHead(fd, n);
    ::close(fd);
}

extern "C" int VQXML_DomDump(void) { return 0; }

extern "C" void VQDOM_startMemInfo(void) {
    VQSYS_MEMINFO info;
    VQSYS_GetMemInfo(&info);
    lMemStart = static_cast<int64_t>(info.vmSize);
    lPageStart = static_cast<int64_t>(info.residentPages);
}

extern "C" char *VQDOM_endMemInfo(void) {
    std::memset(cRecord, 0, sizeof cRecord);
    VQSYS_MEMINFO info;
    VQSYS_GetMemInfo(&info);
    const int64_t mem = static_cast<int64_t>(info.vmSize);
    const int64_t pages = static_cast<int64_t>(info.residentPages);
    if (mem == 0 || (mem == lMemStart && pages == lPageStart)) return cRecord;
    std::snprintf(cRecord, sizeof cRecord, "VQXML Memory Information: VM Size = %12d (%12llu, %12llu )",
                  static_cast<int32_t>(static_cast<uint32_t>(mem - lMemStart)),
                  static_cast<unsigned long long>(lMemStart), static_cast<unsigned long long>(mem));
    return cRecord;
}
