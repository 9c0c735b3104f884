// parse_fuzzer.cpp - whole documents: parse, print both ways, delete.
#include <vector>

#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    std::string input = fuzz::text(data, size);
    VQHANDLE doc = VQXML_parse(input.c_str());
    if (doc == 0) return 0;
    std::vector<char> out(4096);
    int32_t need = VQXML_printNode(doc, out.data(), static_cast<int32_t>(out.size()));
    if (need >= static_cast<int32_t>(out.size())) {
        out.resize(static_cast<size_t>(need) + 1);
        VQXML_printNode(doc, out.data(), static_cast<int32_t>(out.size()));
    }
    // What was printed parses again.
    VQHANDLE again = VQXML_parse(out.data());
    if (again != 0) VQDOM_deleteNode(again);
    // Without a DTD nothing is cloned, so deleting the document node must
    // give back every object of the area, and with it the area.
    const bool plain = VQDOM_getDoctype(doc) == 0;
    VQDOM_deleteNode(doc);
    if (plain && docHead[doc & 255] != nullptr) {
        std::fprintf(stderr, "objects left in the area after deleting the document\n");
        std::abort();
    }
    VQXML_deleteDocumentArea(doc);
    return 0;
}
