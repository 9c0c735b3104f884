// xtoken_fuzzer.cpp - the path tokenizer stays inside the text, always moves
// forward and stops at the end.
#include <cstring>

#include "fuzz_util.h"
#include "vqxml/parser/parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    std::string input = fuzz::text(data, size);
    const char *p = input.c_str();
    const char *end = p + std::strlen(p);
    XToken token;
    for (size_t steps = 0; steps <= input.size() + 1; ++steps) {
        const char *next = nextXToken(p, &token);
        if (next < p || next > end) std::abort();
        if (token.kind == 1 || token.kind == 4) {
            if (token.start < input.c_str() || token.start + token.value > end) std::abort();
        }
        if (token.kind <= 0) return 0;
        if (next == p) std::abort();  // a token that consumed nothing
        p = next;
    }
    std::abort();  // never reached the end
}
