// fuzz_util.h - shared pieces of the fuzz targets: one-time start-up and a
// leak check against the library's own accounting after every input.
#ifndef VQXML_FUZZ_UTIL_H
#define VQXML_FUZZ_UTIL_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vqxml/store/codes.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/vqxml.h"

namespace fuzz {

inline void start() {
    static bool done = false;
    if (!done) {
        VQXML_xmlInit();
        done = true;
    }
}

// Every block the library took for this input must be back.
struct LeakCheck {
    int32_t blocks = vqxml::memStats().liveBlocks;
    ~LeakCheck() {
        VQXML_resetErrorList();
        char params[256];
        while (VQDOM_getError(params) != 0) {
        }
        if (vqxml::memStats().liveBlocks != blocks) {
            std::fprintf(stderr, "leak: %d live blocks before, %d after\n", blocks,
                         vqxml::memStats().liveBlocks);
            std::abort();
        }
    }
};

inline std::string text(const uint8_t *data, size_t size) {
    return std::string(reinterpret_cast<const char *>(data), size);
}

// The compact serialization of a node.
inline std::string print(VQHANDLE node) {
    const int32_t need = VQXML_printNode(node, nullptr, 0);
    std::string out(static_cast<size_t>(need) + 1, '\0');
    VQXML_printNode(node, out.data(), static_cast<int32_t>(out.size()));
    out.resize(static_cast<size_t>(need));
    return out;
}

// Empties both error lists; true when an allocation failure was among them.
inline bool drainErrors() {
    bool allocation = false;
    char params[256];
    for (int64_t code; (code = VQXML_getError(params)) != 0;) allocation |= code == vqxml::mainCode(vqxml::kAllocErr);
    return allocation;
}

}  // namespace fuzz

#endif  // VQXML_FUZZ_UTIL_H
