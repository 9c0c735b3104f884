// strings.cpp - comparisons that ignore ASCII case.
#include <cstddef>

#include "support/vqsupport.h"

namespace {
inline int lower(unsigned char c) { return (c >= 'A' && c <= 'Z') ? c + 32 : c; }
}  // namespace

extern "C" int VQSTRNG_strnicmp(const char *a, const char *b, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        int ca = lower(static_cast<unsigned char>(a[i]));
        int cb = lower(static_cast<unsigned char>(b[i]));
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) return 0;
    }
    return 0;
}

extern "C" int VQSTRNG_stricmp(const char *a, const char *b) {
    return VQSTRNG_strnicmp(a, b, static_cast<size_t>(-1));
}
