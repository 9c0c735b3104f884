// trace.h - the trace switch. Lines of level L pass when a trace handle is
// set and L + 47 is below the low byte of the trace flag ('2' passes 0..2).
#ifndef VQXML_STORE_TRACE_H
#define VQXML_STORE_TRACE_H

#include <cstdint>

#include "vqxml/vqxml.h"

namespace vqxml {

// The cheap test callers make before formatting anything.
inline bool traceOn(uint32_t level) {
    return XmlTraceHandle != 0 &&
           static_cast<int64_t>(level) + 47 <
               static_cast<int64_t>(static_cast<signed char>(XmlTraceFlag & 0xff));
}

}  // namespace vqxml

// Formats only when the level passes.
#define VQXML_TRACE(level, ...)                                  \
    do {                                                         \
        if (::vqxml::traceOn(level)) VQXML_TRACE_XML(level, __VA_ARGS__); \
    } while (0)

#endif  // VQXML_STORE_TRACE_H
