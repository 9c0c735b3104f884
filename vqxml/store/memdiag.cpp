// memdiag.cpp - the accounting layer: every heap block of the library is
// taken with dbg_malloc and given back with dbg_free, which keep a list of
// live blocks (newest first) with labels and running totals. On top of it:
// the leak report, the dump file, per-document counters and the process
// memory measurement.
#include "vqxml/store/memdiag.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/vqsupport.h"
#include "vqxml/model/trace.h"
#include "vqxml/store/area.h"

VQXML_DbgMem *allocMemDocArea;

namespace vqxml {
namespace {

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

MemStats memStats() { return {allocCount, allocSize, maxAllocSize, liveBlocks}; }

void failAllocAt(int64_t n, bool sticky) {
    failCountdown = n < 0 ? 0 : n;
    failSticky = sticky;
}

}  // namespace vqxml

using namespace vqxml;

extern "C" void *dbg_malloc(size_t size, const char *label) {
    if (injectedFailure()) return nullptr;
    void *block = std::malloc(size);
    if (block == nullptr) return nullptr;
    auto *record = static_cast<VQXML_DbgMem *>(std::malloc(sizeof(VQXML_DbgMem)));
    if (record == nullptr) {
        allocMemDocArea = nullptr;
        return block;  // untracked, deliberately: the caller still gets memory
    }
    if (label == nullptr) label = "";
    record->addr = block;
    record->count = allocCount;
    allocCount = wrapAdd(allocCount, 1);
    record->size = static_cast<int32_t>(size);
    record->DocHandle = 0;
    std::strncpy(record->text, label, sizeof record->text - 1);
    record->text[sizeof record->text - 1] = '\0';
    record->next = allocatedMem;
    allocatedMem = record;
    ++liveBlocks;
    allocSize = wrapAdd(allocSize, static_cast<int64_t>(size));
    if (allocSize > maxAllocSize) maxAllocSize = allocSize;
    allocMemDocArea = std::strcmp(label, "document area") == 0 ? record : nullptr;
    return block;
}

extern "C" void dbg_free(void *pointer) {
    VQXML_DbgMem **link = &allocatedMem;
    while (*link != nullptr && (*link)->addr != pointer) link = &(*link)->next;
    VQXML_DbgMem *record = *link;
    if (record == nullptr) {
        // A block the list does not know is never handed to the heap.
        VQXML_TRACE(1, "**** error **** invalid free ( 0x%p )", pointer);
        return;
    }
    *link = record->next;
    --liveBlocks;
    allocSize = wrapAdd(allocSize, -int64_t{record->size});
    if (allocMemDocArea == record) allocMemDocArea = nullptr;
    std::free(record->addr);
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
