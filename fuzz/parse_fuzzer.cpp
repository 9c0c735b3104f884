// parse_fuzzer.cpp - whole documents: parse, print both ways, copy, merge
// text, gather text, delete. A copy of the document and the document after
// merging its text must print exactly as the document did.
#include <vector>

#include "fuzz_util.h"
#include "vqxml/dom/printer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    std::string input = fuzz::text(data, size);
    VQHANDLE doc = VQXML_parse(input.c_str());
    if (doc == 0) return 0;
    const std::string printed = fuzz::print(doc);
    // What was printed parses again.
    VQHANDLE again = VQXML_parse(printed.c_str());
    if (again != 0) VQXML_deleteDocumentArea(again);

    std::vector<char> pretty(printed.size() * 4 + 4096);
    char *cursor = pretty.data();
    printNodeBeatifyEx(VQDOM_getDocumentElement(doc), &cursor, static_cast<int32_t>(pretty.size()), 0);
    VQDOM_deleteDS(VQDOM_getTextContentDS(VQDOM_getDocumentElement(doc)));

    const VQHANDLE copy = VQDOM_cloneNode(doc, 1);
    if (copy != 0 && fuzz::print(copy) != printed) {
        std::fprintf(stderr, "a copy of the document prints otherwise\n");
        std::abort();
    }
    VQXML_deleteDocumentArea(copy);
    VQDOM_normalize(doc);
    if (fuzz::print(doc) != printed) {
        std::fprintf(stderr, "merging text changed a parsed document\n");
        std::abort();
    }
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
