// trace.cpp - the trace switch and the trace primitives. Every allocation
// and release of an area or error record, and every document dump, goes
// through here to the support library's trace sink.
#include "vqxml/store/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/vqsupport.h"

uint64_t XmlTraceHandle;
int32_t XmlTraceFlag;
int64_t liTIKS;

namespace vqxml {
namespace {

constexpr size_t kTraceBufferSize = 65536;
constinit char *traceBuffer = nullptr;

// The document dump's buffer is kept and reused between dumps (and given
// back at clean-up) rather than left behind after each one.
constinit char *dumpBuffer = nullptr;
constinit size_t dumpBufferSize = 0;

char *dumpRoom(size_t size) {
    if (dumpBufferSize >= size) return dumpBuffer;
    char *fresh = static_cast<char *>(std::realloc(dumpBuffer, size));
    if (fresh == nullptr) return nullptr;
    dumpBuffer = fresh;
    dumpBufferSize = size;
    return dumpBuffer;
}

}  // namespace

void releaseTraceBuffers() {
    std::free(traceBuffer);
    traceBuffer = nullptr;  // a later trace takes a fresh buffer
    std::free(dumpBuffer);
    dumpBuffer = nullptr;
    dumpBufferSize = 0;
}

}  // namespace vqxml

using namespace vqxml;

extern "C" void VQXML_TRACE_XML(uint32_t level, const char *format, ...) {
    if (!traceOn(level) || format == nullptr) return;
    if (traceBuffer == nullptr) {
        traceBuffer = static_cast<char *>(std::malloc(kTraceBufferSize));
        if (traceBuffer == nullptr) return;
    }
    traceBuffer[0] = '\0';
    va_list args;
    va_start(args, format);
    std::vsnprintf(traceBuffer, kTraceBufferSize, format, args);
    va_end(args);
    VQTRACE_Text(XmlTraceHandle, traceBuffer, static_cast<int32_t>(kTraceBufferSize - 1));
}

extern "C" void VQXML_TRACE_XML_DUMP(uint32_t level, const char *label, const void *data,
                                     int64_t length, VQHANDLE node) {
    if (!traceOn(level) || data == nullptr || node == 0 || label == nullptr ||
        std::strcmp(label, "document area") != 0)
        return;
    char *text = dumpRoom(kTraceBufferSize);
    if (text == nullptr) return;
    int32_t printed = VQXML_printNode(node, text, static_cast<int32_t>(kTraceBufferSize));
    if (printed > 65600) {
        text = dumpRoom(static_cast<size_t>(printed) + 64);
        if (text == nullptr) return;
        VQXML_printNode(node, text, printed + 10);
    }
    VQTRACE_Trace2(XmlTraceHandle, label, text, length);
}

extern "C" void VQXML_xmlSetTraceFlag(uint64_t handle, int32_t flag) {
    XmlTraceHandle = handle;
    XmlTraceFlag = flag;
}

extern "C" void VQXML_clearTiks(void) { liTIKS = 0; }
extern "C" int64_t VQXML_getTiks(void) { return liTIKS; }
