// printer.h - the writers of the serializer and the pretty-printer.
//
// Every writer takes the address of a write cursor and the capacity left
// (signed; 0 or less means no room) and returns the number of bytes its
// complete output needs, whether or not it fitted. Nothing is allocated.
#ifndef VQXML_DOM_PRINTER_H
#define VQXML_DOM_PRINTER_H

#include <climits>
#include <cstdint>
#include <cstring>

#include <emmintrin.h>

#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/escape.h"
#include "vqxml/vqxml.h"

extern "C" {

VQXML_API int32_t printNodeEx(VQHANDLE node, char **cursor, int32_t capacity);
VQXML_API int32_t printNodeBeatifyEx(VQHANDLE node, char **cursor,
                                     int32_t capacity, int32_t indent);
VQXML_API int32_t printString(const char *text, char **cursor, int32_t capacity);
VQXML_API int32_t printAttributes(VQHANDLE element, char **cursor, int32_t capacity);
VQXML_API int32_t printAttValue(VQHANDLE attribute, char **cursor, int32_t capacity);
VQXML_API int32_t printEntityRef(VQHANDLE reference, char **cursor, int32_t capacity);
VQXML_API int32_t printCDATASection(VQHANDLE node, char **cursor, int32_t capacity);
VQXML_API int32_t printXmlDecl(VQHANDLE xmlDecl, char **cursor, int32_t capacity);
VQXML_API int32_t printDocumentType(VQHANDLE doctype, char **cursor, int32_t capacity);
VQXML_API int32_t printExternalID(VQHANDLE externalId, char **cursor, int32_t capacity);
VQXML_API int32_t printEntity(VQHANDLE entity, char **cursor, int32_t capacity);
VQXML_API int32_t printNotation(VQHANDLE notation, char **cursor, int32_t capacity);
VQXML_API int32_t printElementDecl(VQHANDLE decl, char **cursor, int32_t capacity);
VQXML_API int32_t printCpChildren(VQHANDLE particle, char **cursor, int32_t capacity);
VQXML_API int32_t printAttlistDecl(VQHANDLE decl, char **cursor, int32_t capacity);

}  // extern "C"

// ---- internal: the writing primitives both printers share ----------------

namespace vqxml {

// The payload behind a live handle when its block holds at least `bytes`
// bytes, else null. The printers accept any handle; this keeps a stray
// handle of a small record (a DS, a map item) from being read as a node.
inline void *printableRecord(VQHANDLE h, int64_t bytes) {
    if (!liveHandle(h)) return nullptr;
    char *p = static_cast<char *>(payload(h));
    const auto *header = reinterpret_cast<const BlockHeader *>(p - sizeof(BlockHeader));
    return header->blockSize - static_cast<int64_t>(sizeof(BlockHeader)) >= bytes ? p : nullptr;
}

// Payload bytes of the block whose payload starts at `p` (a multiple of 8).
inline size_t blockCapacity(const char *p) {
    return static_cast<size_t>(reinterpret_cast<const BlockHeader *>(p - sizeof(BlockHeader))->blockSize) -
           sizeof(BlockHeader);
}

// Length of the text at `p` up to its NUL, at most `capacity` (a multiple
// of 8, the payload of its block): names and short values end within the
// first words, which are read whole without reading past the block.
inline size_t textLength(const char *p, size_t capacity) {
    constexpr uint64_t kLow = 0x0101010101010101u, kHigh = 0x8080808080808080u;
    for (size_t i = 0; i < capacity && i < 32; i += 8) {
        uint64_t w;
        std::memcpy(&w, p + i, 8);
        const uint64_t zero = (w - kLow) & ~w & kHigh;
        if (zero != 0) return i + static_cast<size_t>(__builtin_ctzll(zero)) / 8;
    }
    return capacity <= 32 ? capacity : 32 + strnlen(p + 32, capacity - 32);
}

// The length of a text that holds none of the bytes `Stops` replaces, else
// -1 (also for a block without NUL). Reads nothing past the block, whose
// payload is a multiple of 8.
template <typename Stops>
inline int64_t plainLength(const char *p, size_t capacity) {
    for (size_t i = 0;;) {
        unsigned hits;
        if (capacity - i >= 16) {
            hits = Stops::hits(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i)));
        } else if (capacity - i >= 8) {
            hits = Stops::hits(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p + i))) & 0xFFu;
        } else {
            return -1;
        }
        if (hits != 0) {
            const size_t at = i + static_cast<size_t>(__builtin_ctz(hits));
            return p[at] == '\0' ? static_cast<int64_t>(at) : -1;
        }
        i += capacity - i >= 16 ? 16 : 8;
    }
}

// One print job: the caller's cursor, the capacity the outermost writer was
// given, and the bytes counted so far. Every writer reports its full length,
// so the capacity a nested writer receives is always the outer capacity less
// everything counted before it: room(). Writers nested in one job therefore
// share a single target and no per-level state is needed.
class PrintTarget {
public:
    // The cursor is read here and written back when the job ends; in
    // between the target keeps the position itself, so that the bytes it
    // stores cannot be taken to change it. With no buffer to write to, a
    // job only measures, whatever size the caller gave.
    PrintTarget(char **cursor, int64_t capacity)
        : cursor_(cursor),
          pos_(cursor != nullptr ? *cursor : nullptr),
          capacity_(pos_ != nullptr ? capacity : 0) {}
    ~PrintTarget() {
        if (cursor_ != nullptr) *cursor_ = pos_;
    }
    PrintTarget(const PrintTarget &) = delete;
    PrintTarget &operator=(const PrintTarget &) = delete;

    int64_t room() const { return capacity_ - counted_; }
    // The job's result; saturated so that "result >= size" still reads as
    // "too small" for outputs beyond 2 GiB.
    int32_t result() const {
        return counted_ > INT32_MAX ? INT32_MAX : static_cast<int32_t>(counted_);
    }

    // The writers below read the target's fields before they store a byte
    // and write them after, never in between.

    // A fixed literal: all of it when it fits, else nothing.
    void literal(const char *text, int64_t length) {
        const int64_t counted = counted_;
        char *w = pos_;
        if (length > 0 && length <= capacity_ - counted) {
            std::memcpy(w, text, static_cast<size_t>(length));
            pos_ = w + length;
        }
        counted_ = counted + length;
    }
    template <size_t N>
    void literal(const char (&text)[N]) { literal(text, static_cast<int64_t>(N - 1)); }

    // One byte, when there is any room.
    void character(char c) {
        const int64_t counted = counted_;
        char *w = pos_;
        if (capacity_ - counted > 0) {
            *w = c;
            pos_ = w + 1;
        }
        counted_ = counted + 1;
    }

    // `n` bytes of text that fit with a NUL after them (`counted` is the
    // count before them).
    [[gnu::always_inline]] void whole(const char *text, int64_t n, int64_t counted) {
        char *w = pos_;
        copyBytes(w, text, static_cast<size_t>(n));
        w[n] = '\0';
        pos_ = w + n;
        counted_ = counted + n;
    }

    // A DS copied unchanged, as VQDOM_cpyDS copies it: the text and its NUL
    // when room is greater than the length, else room - 1 bytes and a NUL.
    // The cursor moves only when the whole piece and its NUL fitted, so a
    // later piece overwrites a cut one.
    [[gnu::always_inline]] void piece(VQHANDLE ds) {
        if (!liveHandle(ds)) return;
        const char *text = static_cast<const char *>(payload(ds));
        const auto n = static_cast<int64_t>(textLength(text, blockCapacity(text)));
        const int64_t counted = counted_;
        if (capacity_ - counted > n) return whole(text, n, counted);
        pieceCut(text, n);
    }
    // The piece that does not fit: room - 1 bytes and a NUL, the position
    // unmoved.
    [[gnu::noinline]] void pieceCut(const char *text, int64_t n) {
        const int64_t r = room();
        if (r > 0) {
            copyBytes(pos_, text, static_cast<size_t>(r - 1));
            pos_[r - 1] = '\0';
        }
        counted_ += n;
    }

    // A DS between a short literal and a byte (none when `after` is 0):
    // literal(before), piece(ds), character(after), with one test of the
    // room when all of it fits (which is then the test each would make).
    template <size_t N>
    [[gnu::always_inline]] void framed(const char (&before)[N], VQHANDLE ds, char after) {
        constexpr auto nb = static_cast<int64_t>(N - 1);
        if (liveHandle(ds)) {
            const char *text = static_cast<const char *>(payload(ds));
            const auto n = static_cast<int64_t>(textLength(text, blockCapacity(text)));
            const int64_t counted = counted_;
            if (capacity_ - counted > nb + n) {
                char *w = pos_;
                std::memcpy(w, before, static_cast<size_t>(nb));
                copyBytes(w + nb, text, static_cast<size_t>(n));
                w[nb + n] = after;
                const int64_t length = nb + n + (after != '\0' ? 1 : 0);
                pos_ = w + length;
                counted_ = counted + length;
                return;
            }
        }
        framedInParts(before, static_cast<size_t>(nb), ds, after);
    }
    [[gnu::noinline]] void framedInParts(const char *before, size_t nb, VQHANDLE ds, char after) {
        literal(before, static_cast<int64_t>(nb));
        piece(ds);
        if (after != '\0') character(after);
    }

    // Escaped copies; they move the position themselves. No room is passed
    // as -1, which only measures. A text with nothing to replace that fits
    // with its NUL, or any text when the room holds the worst case of the
    // string's whole block, comes out whole with a NUL after it: that copy
    // is made here without the call.
    void escaped(VQHANDLE ds) { escapedWith<TextStops>(ds, kTextEscapes, printDS_ExpandRef); }
    void escapedAttribute(VQHANDLE ds) {
        escapedWith<AttrStops>(ds, kAttrEscapes, printDS_ExpandRefAtt);
    }
    // An attribute value of one text child between its double quotes: the
    // same as character('"'), escapedAttribute(ds), character('"'), with one
    // test of the room when the text needs no escaping and all of it fits.
    void quotedAttribute(VQHANDLE ds) {
        if (liveHandle(ds)) {
            const char *text = static_cast<const char *>(payload(ds));
            const int64_t n = plainLength<AttrStops>(text, blockCapacity(text));
            const int64_t counted = counted_;
            if (n >= 0 && capacity_ - counted > n + 1) {
                char *w = pos_;
                w[0] = '"';
                copyBytes(w + 1, text, static_cast<size_t>(n));
                w[n + 1] = '"';
                pos_ = w + n + 2;
                counted_ = counted + n + 2;
                return;
            }
        }
        character('"');
        escapedAttribute(ds);
        character('"');
    }

    // Only the double quote escaped. Without room the length is counted
    // here, since the copy writes its NUL at the end of the room it is given.
    void quoteEscaped(VQHANDLE ds) {
        if (!liveHandle(ds)) return;
        if (room() > 0) {
            counted_ += cpyDS_quot(ds, &pos_, room());
            return;
        }
        for (char c : dsView(ds)) counted_ += c == '"' ? 6 : 1;
    }

    // The NUL each node's output ends with when its capacity exceeds its
    // length; the position stays on it.
    void terminate() {
        if (room() > 0) *pos_ = '\0';
    }

private:
    template <typename Stops>
    void escapedWith(VQHANDLE ds, const EscapeTable &table, int64_t (*copy)(VQHANDLE, char **, int64_t)) {
        if (!liveHandle(ds)) return;
        const char *text = static_cast<const char *>(payload(ds));
        const size_t capacity = blockCapacity(text);
        const int64_t counted = counted_;
        const int64_t r = capacity_ - counted;
        int64_t n = plainLength<Stops>(text, capacity);
        if (n >= 0 && r > n) return whole(text, n, counted);
        if (r > kLongestEntity * static_cast<int64_t>(capacity)) {
            escapedWhole<Stops>(text, capacity, table);
            return;
        }
        counted_ = counted + copy(ds, &pos_, measureOr(r));
    }

    // The escaped text and a NUL after it, into a room known to hold them.
    template <typename Stops>
    [[gnu::noinline]] void escapedWhole(const char *text, size_t capacity, const EscapeTable &table) {
        char *w = pos_;
        const auto n = static_cast<int64_t>(escapeUnchecked<Stops>(text, capacity, table, w));
        w[n] = '\0';
        pos_ = w + n;
        counted_ += n;
    }

    static int64_t measureOr(int64_t r) { return r > 0 ? r : -1; }

    char **cursor_;
    char *pos_;
    int64_t capacity_;
    int64_t counted_ = 0;
};

// The compact serializer on a shared target (a node with its subtree, the
// specified attributes of an element); the pretty-printer builds on them.
void serializeNode(PrintTarget &out, VQHANDLE node);
void serializeAttributes(PrintTarget &out, VQHANDLE element);

}  // namespace vqxml

#endif  // VQXML_DOM_PRINTER_H
