// checkname_fuzzer.cpp - the name scanner never reads past the terminator
// and points into the name it was given.
#include <cstring>

#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    std::string input = fuzz::text(data, size);
    const char *name = input.c_str();
    const char *bad = VQXML_checkName(name);
    if (bad != nullptr && (bad < name || bad > name + std::strlen(name))) std::abort();
    return 0;
}
