// alloc_fuzzer.cpp - a document parsed twice, the second time with one of
// its allocations made to fail (the first two input bytes pick which, and
// whether every later one fails too). The second parse must either fail
// with the allocation error recorded or hand back exactly the document of
// the first; every block must come back either way.
#include <cstdlib>

#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    if (size < 2) return 0;
    fuzz::LeakCheck leaks;
    const unsigned pick = data[0] | (data[1] & 0x7f) << 8;
    const bool sticky = (data[1] & 0x80) != 0;
    const std::string input = fuzz::text(data + 2, size - 2);

    const int32_t before = vqxml::memStats().allocCount;
    const VQHANDLE clean = VQXML_parse(input.c_str());
    const int32_t points = vqxml::memStats().allocCount - before;
    const std::string expected = clean != 0 ? fuzz::print(clean) : std::string();
    if (clean != 0) VQXML_deleteDocumentArea(clean);
    fuzz::drainErrors();
    if (points <= 0) return 0;

    vqxml::failAllocAt(pick % points + 1, sticky);
    const VQHANDLE doc = VQXML_parse(input.c_str());
    vqxml::failAllocAt(0);
    const bool reported = fuzz::drainErrors();
    if (doc != 0) {
        if (clean == 0 || fuzz::print(doc) != expected) {
            std::fprintf(stderr, "a parse that met an allocation failure handed back another document\n");
            std::abort();
        }
        VQXML_deleteDocumentArea(doc);
    } else if (clean != 0 && !sticky && !reported) {
        std::fprintf(stderr, "a parse failed for memory without reporting it\n");
        std::abort();
    }
    return 0;
}
