// escape.h - the escape sets of the escaping copies and the scan and copy
// they share with the printers: the bytes each set replaces, found sixteen
// (or eight) bytes at a time, and the copy of a whole text into a room
// known to hold its worst case.
#ifndef VQXML_STORE_ESCAPE_H
#define VQXML_STORE_ESCAPE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <emmintrin.h>

namespace vqxml {

// Entity text per byte; an empty entry is an ordinary byte.
using EscapeTable = std::array<std::string_view, 256>;

constexpr EscapeTable makeEscapeTable(bool quotOnly, bool attribute, bool backslash) {
    EscapeTable t{};
    t['"'] = "&quot;";
    if (quotOnly) return t;
    t['&'] = "&amp;";
    t['\''] = "&apos;";
    t['<'] = "&lt;";
    t['>'] = "&gt;";
    if (attribute) {
        t['\t'] = "&#9;";
        t['\n'] = "&#10;";
        t['\r'] = "&#13;";
    }
    if (backslash) t['\\'] = "\\\\";
    return t;
}

inline constexpr EscapeTable kQuotEscapes = makeEscapeTable(true, false, false);
inline constexpr EscapeTable kTextEscapes = makeEscapeTable(false, false, false);
inline constexpr EscapeTable kAttrEscapes = makeEscapeTable(false, true, false);
inline constexpr EscapeTable kBackslashEscapes = makeEscapeTable(false, false, true);

// No entity is longer than this; a room of this many bytes per source byte
// holds any escaped text.
constexpr int64_t kLongestEntity = 6;

// Copies exactly `k` bytes; short copies without a call.
inline void copyBytes(char *to, const char *from, size_t k) {
    if (k > 16) {
        std::memmove(to, from, k);
    } else if (k >= 8) {
        uint64_t a, b;
        std::memcpy(&a, from, 8);
        std::memcpy(&b, from + k - 8, 8);
        std::memcpy(to, &a, 8);
        std::memcpy(to + k - 8, &b, 8);
    } else if (k >= 4) {
        uint32_t a, b;
        std::memcpy(&a, from, 4);
        std::memcpy(&b, from + k - 4, 4);
        std::memcpy(to, &a, 4);
        std::memcpy(to + k - 4, &b, 4);
    } else if (k > 0) {
        to[0] = from[0];
        to[k / 2] = from[k / 2];
        to[k - 1] = from[k - 1];
    }
}

// How a scan tests sixteen bytes at once: one compare per byte of the set,
// or, for the markup sets, fewer compares that pair bytes up exactly:
// (v | 1) == 0x27 holds for '&' and the apostrophe alone, (v | 2) == 0x3E
// for '<' and '>', and (v | 4) == 0x0D for TAB and CR.
enum class ScanKind { Each, Text, Attribute };

// The bytes an escape set replaces, as template arguments: the scan looks
// for them and for the NUL that ends the text.
template <ScanKind Kind, char... Special>
struct StopBytes {
    static constexpr std::array<bool, 256> table = [] {
        std::array<bool, 256> t{};
        t[0] = true;
        ((t[static_cast<unsigned char>(Special)] = true), ...);
        return t;
    }();

    static unsigned hits(__m128i v) {
        __m128i hit = _mm_cmpeq_epi8(v, _mm_setzero_si128());
        if constexpr (Kind == ScanKind::Each) {
            ((hit = _mm_or_si128(hit, _mm_cmpeq_epi8(v, _mm_set1_epi8(Special)))), ...);
        } else {
            hit = _mm_or_si128(hit, _mm_cmpeq_epi8(v, _mm_set1_epi8('"')));
            hit = _mm_or_si128(hit, _mm_cmpeq_epi8(_mm_or_si128(v, _mm_set1_epi8(1)), _mm_set1_epi8('\'')));
            hit = _mm_or_si128(hit, _mm_cmpeq_epi8(_mm_or_si128(v, _mm_set1_epi8(2)), _mm_set1_epi8('>')));
            if constexpr (Kind == ScanKind::Attribute) {
                hit = _mm_or_si128(hit, _mm_cmpeq_epi8(_mm_or_si128(v, _mm_set1_epi8(4)), _mm_set1_epi8('\r')));
                hit = _mm_or_si128(hit, _mm_cmpeq_epi8(v, _mm_set1_epi8('\n')));
            }
        }
        return static_cast<unsigned>(_mm_movemask_epi8(hit));
    }

    // Index of the first NUL or replaced byte in s[from, cap), else cap.
    // Reads nothing at or past cap.
    static size_t next(const char *s, size_t from, size_t cap) {
        size_t i = from;
        while (cap - i >= 16) {
            const unsigned mask = hits(_mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i)));
            if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(mask));
            i += 16;
        }
        if (cap - i >= 8) {
            const unsigned mask = hits(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(s + i))) & 0xFFu;
            if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(mask));
            i += 8;
        }
        while (i < cap && !table[static_cast<unsigned char>(s[i])]) ++i;
        return i;
    }
};

using QuotStops = StopBytes<ScanKind::Each, '"'>;
using TextStops = StopBytes<ScanKind::Text, '"', '&', '\'', '<', '>'>;
using AttrStops = StopBytes<ScanKind::Attribute, '"', '&', '\'', '<', '>', '\t', '\n', '\r'>;
using BackslashStops = StopBytes<ScanKind::Each, '"', '&', '\'', '<', '>', '\\'>;

// Escapes the text at `src` (which ends at its NUL or at `cap`, the end of
// its block) into `out`, which must hold kLongestEntity * cap bytes, and
// returns the escaped length. Writes no terminator.
template <typename Stops>
inline size_t escapeUnchecked(const char *src, size_t cap, const EscapeTable &table, char *out) {
    char *w = out;
    for (size_t i = 0;;) {
        const size_t stop = Stops::next(src, i, cap);
        copyBytes(w, src + i, stop - i);
        w += stop - i;
        if (stop == cap || src[stop] == '\0') break;
        const std::string_view entity = table[static_cast<unsigned char>(src[stop])];
        copyBytes(w, entity.data(), entity.size());
        w += entity.size();
        i = stop + 1;
    }
    return static_cast<size_t>(w - out);
}

}  // namespace vqxml

#endif  // VQXML_STORE_ESCAPE_H
