// dom_string.cpp - DOM strings (DS): creation, reading, comparison, the
// in-place edits that keep a string's handle, and the escaping copies the
// printers write text and attribute values with.
//
// Every string the parser builds and every byte the serializer escapes
// passes through here, so the copies move runs of ordinary bytes with
// memcpy and find the bytes to replace sixteen at a time.
#include "vqxml/store/dom_string.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "vqxml/store/area.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/escape.h"

namespace vqxml {
namespace {

// Payload bytes of the block behind a live handle.
inline size_t payloadCapacity(VQHANDLE h) {
    const auto *b = reinterpret_cast<const BlockHeader *>(dsChars(h) - 8);
    return static_cast<size_t>(b->blockSize) - 8;
}

// A byte range that survives an allocation in document `doc`. Text inside
// that document's area is kept as an offset from the data region (blocks
// keep their offsets when the area grows or moves); other text is kept as
// a plain pointer.
class Piece {
public:
    Piece(int32_t doc, const char *p, size_t n) : len_(n) {
        const DocArea *a = docHead[doc];
        const auto at = reinterpret_cast<uintptr_t>(p);
        if (a != nullptr && at >= reinterpret_cast<uintptr_t>(a->data) &&
            at < reinterpret_cast<uintptr_t>(a) + static_cast<uintptr_t>(a->size)) {
            doc_ = doc;
            off_ = static_cast<ptrdiff_t>(at - reinterpret_cast<uintptr_t>(a->data));
        } else {
            ptr_ = p;
        }
    }
    const char *get() const { return doc_ != 0 ? docHead[doc_]->data + off_ : ptr_; }
    size_t size() const { return len_; }

private:
    int32_t doc_ = 0;
    ptrdiff_t off_ = 0;
    const char *ptr_ = nullptr;
    size_t len_;
};

inline int32_t docOf(VQHANDLE h) { return static_cast<int32_t>(h & 255); }

// A new DS in `document` made of the pieces, or 0 (code 11 recorded).
VQHANDLE buildDS(VQHANDLE document, std::initializer_list<Piece> pieces) {
    size_t total = 0;
    for (const Piece &p : pieces) total += p.size();
    VQHANDLE fresh = allocDS(document, static_cast<int64_t>(total) + 1);
    if (fresh == 0) return 0;
    char *out = static_cast<char *>(payload(fresh));
    for (const Piece &p : pieces) {
        if (p.size() != 0) std::memcpy(out, p.get(), p.size());
        out += p.size();
    }
    *out = '\0';
    return fresh;
}

// Replaces the text of `ds` by the pieces under the same handle: the new
// block takes over the handle, and the old one is freed. On failure the
// DS keeps its text.
void rewriteDS(VQHANDLE ds, std::initializer_list<Piece> pieces) {
    VQHANDLE fresh = buildDS(ds, pieces);
    if (fresh == 0) return;
    changeHandle(ds, fresh);
    myFree(fresh);
}

Piece pieceOf(VQHANDLE ds, int32_t doc, size_t from, size_t to) {
    return Piece(doc, dsChars(ds) + from, to - from);
}

void nullPointer(const char *functionName) { domError(kNullPointerErr, functionName); }

// ---- escaping ---------------------------------------------------------

struct Escaped {
    int64_t total;    // length of the complete escaped text
    int64_t written;  // bytes of it stored (a prefix)
};

// Escapes the DS text at `src` (which ends at its NUL or at `cap`, the end
// of its block) into `out`, storing the first `room` bytes of the result
// (none when room <= 0) and counting all of it. When the room holds the
// worst case of the whole block the bytes go out unchecked; only a copy
// that may reach the end of the room counts each run against it.
template <typename Stops>
Escaped escape(const char *src, size_t cap, const EscapeTable &table, char *out, int64_t room) {
    if (out != nullptr && room >= kLongestEntity * static_cast<int64_t>(cap)) {
        const auto n = static_cast<int64_t>(escapeUnchecked<Stops>(src, cap, table, out));
        return {n, n};
    }
    size_t i = 0;
    int64_t total = 0;
    int64_t left = out != nullptr && room > 0 ? room : 0;
    char *w = out;
    auto put = [&](const char *p, size_t n) {
        total += static_cast<int64_t>(n);
        if (left == 0) return;
        const size_t k = static_cast<int64_t>(n) < left ? n : static_cast<size_t>(left);
        std::memcpy(w, p, k);
        w += k;
        left -= static_cast<int64_t>(k);
    };
    for (;;) {
        const size_t stop = Stops::next(src, i, cap);
        if (stop != i) put(src + i, stop - i);
        if (stop == cap || src[stop] == '\0') break;
        const std::string_view entity = table[static_cast<unsigned char>(src[stop])];
        put(entity.data(), entity.size());
        i = stop + 1;
    }
    return {total, w - out};
}

// Invalid DS in an escaping copy: nothing to write but, when `terminate`,
// the terminator at the write position. (validHandle runs only for a
// handle that failed the quick test, to record it.)
int64_t terminateOnly(char **cursor, bool terminate) {
    if (terminate && cursor != nullptr && *cursor != nullptr) **cursor = '\0';
    return 0;
}

// The copy whose terminator goes right after the text, when the whole
// text fits in the size - 1 bytes of room.
template <typename Stops>
int64_t copyTerminatedAfter(VQHANDLE ds, char **cursor, int64_t size, const EscapeTable &table) {
    // A negative size only measures, so it stores nothing at all.
    if (!liveHandle(ds) && !validHandle(ds)) return terminateOnly(cursor, size > 0);
    char *start = cursor != nullptr ? *cursor : nullptr;
    const Escaped r = escape<Stops>(dsChars(ds), payloadCapacity(ds), table, start, size - 1);
    if (start == nullptr) return r.total;
    if (r.total < size) start[r.total] = '\0';
    *cursor = start + r.written;
    return r.total;
}

// The copy that always ends its size-byte buffer with a NUL, wherever the
// text stops.
template <typename Stops>
int64_t copyTerminatedAtEnd(VQHANDLE ds, char **cursor, int64_t size, const EscapeTable &table) {
    // Any size but 0 terminates, as for VQDOM_cpyDS.
    if (!liveHandle(ds) && !validHandle(ds)) return terminateOnly(cursor, size != 0);
    char *start = cursor != nullptr ? *cursor : nullptr;
    const Escaped r = escape<Stops>(dsChars(ds), payloadCapacity(ds), table, start, size - 1);
    if (start == nullptr) return r.total;
    if (size > 0) start[size - 1] = '\0';
    *cursor = start + r.written;
    return r.total;
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

std::string_view dsView(VQHANDLE ds) {
    // An invalid handle reads as "" (never a null pointer, which callers
    // would pass on to memcpy).
    if (!liveHandle(ds)) return std::string_view("", 0);
    const char *p = dsChars(ds);
    // Bounded by the block, so that a handle naming something other than a
    // string still cannot lead a read out of its block.
    return {p, strnlen(p, payloadCapacity(ds))};
}

VQHANDLE createDSView(VQHANDLE document, std::string_view text) {
    const DocArea *a = docHead[docOf(document)];
    const auto at = reinterpret_cast<uintptr_t>(text.data());
    if (a != nullptr && at >= reinterpret_cast<uintptr_t>(a) &&
        at < reinterpret_cast<uintptr_t>(a) + static_cast<uintptr_t>(a->size))
        return buildDS(document, {Piece(docOf(document), text.data(), text.size())});
    // Text from outside the area cannot move while the block is taken.
    const VQHANDLE fresh = allocDS(document, static_cast<int64_t>(text.size()) + 1);
    if (fresh == 0) return 0;
    char *out = static_cast<char *>(payload(fresh));
    if (!text.empty()) std::memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
    return fresh;
}

}  // namespace vqxml

using namespace vqxml;

extern "C" VQHANDLE allocDS(VQHANDLE document, int64_t bytes) {
    VQHANDLE h = myAlloc(document, bytes);
    if (h == 0) errorAlloc("DOMString", bytes);
    return h;
}

extern "C" VQHANDLE VQDOM_createDS(VQHANDLE handle, const char *text) {
    if (!checkHandle(handle)) return 0;
    return createDSView(handle, text != nullptr ? std::string_view(text) : std::string_view());
}

extern "C" char *VQDOM_getBufferDS(VQHANDLE ds) {
    // The empty answer for an invalid handle is a static byte that is
    // cleared again on each call, in case a caller wrote into it.
    static char empty[1];
    if (checkHandle(ds)) return static_cast<char *>(payload(ds));
    empty[0] = '\0';
    return empty;
}

extern "C" int64_t VQDOM_lenDS(VQHANDLE ds) {
    if (!validHandle(ds)) return 0;
    return static_cast<int64_t>(dsView(ds).size());
}

extern "C" void VQDOM_deleteDS(VQHANDLE ds) {
    if (checkHandle(ds)) myFree(ds);
}

extern "C" int VQDOM_cmpDS(VQHANDLE a, VQHANDLE b) {
    // An invalid side compares equal: lookups that pass a missing name
    // then match, as they always have.
    if (!validHandle(a) || !validHandle(b)) {
        nullPointer("cmpDS");
        return 0;
    }
    return dsView(a).compare(dsView(b));
}

extern "C" int VQDOM_cmpDSStr(VQHANDLE ds, const char *text) {
    if (!validHandle(ds)) {
        nullPointer("cmpDSStr");
        return 0;
    }
    return dsView(ds).compare(text != nullptr ? std::string_view(text) : std::string_view());
}

extern "C" int64_t VQDOM_cpyDS(VQHANDLE ds, char *buffer, int64_t size) {
    // The library's own callers never pass a size below 0 (the printers
    // measure instead), so the terminator rule is kept as callers know it.
    if (!validHandle(ds)) {
        if (size != 0 && buffer != nullptr) buffer[0] = '\0';
        return 0;
    }
    const std::string_view text = dsView(ds);
    const int64_t len = static_cast<int64_t>(text.size());
    if (buffer == nullptr || size <= 0) return len;
    const size_t n = static_cast<size_t>(size > len ? len : size - 1);
    std::memmove(buffer, text.data(), n);
    buffer[n] = '\0';
    return len;
}

extern "C" VQHANDLE VQDOM_cloneDS(VQHANDLE handle, VQHANDLE ds) {
    if (!checkHandle(handle) || !checkHandle(ds)) return 0;
    const std::string_view text = dsView(ds);
    if (docOf(handle) != docOf(ds)) return buildDS(handle, {Piece(docOf(handle), text.data(), text.size())});
    // A copy within one area (the common case: copies of defaults and
    // entity content): the source is read through its handle after the
    // allocation, which may have moved the area.
    const size_t n = text.size();
    const VQHANDLE fresh = allocDS(handle, static_cast<int64_t>(n) + 1);
    if (fresh == 0) return 0;
    char *out = static_cast<char *>(payload(fresh));
    if (n != 0) std::memcpy(out, dsChars(ds), n);
    out[n] = '\0';
    return fresh;
}

extern "C" void VQDOM_appendDS(VQHANDLE ds, const char *text) {
    if (!validHandle(ds)) {
        nullPointer("appendDS");
        return;
    }
    if (text == nullptr) return;
    const int32_t doc = docOf(ds);
    const size_t len = dsView(ds).size();
    rewriteDS(ds, {pieceOf(ds, doc, 0, len), Piece(doc, text, std::strlen(text))});
}

extern "C" void VQDOM_appendDS2(VQHANDLE ds, VQHANDLE other) {
    // Reported under the name of the plain append, which callers know.
    if (!validHandle(ds) || !validHandle(other)) {
        nullPointer("appendDS");
        return;
    }
    const int32_t doc = docOf(ds);
    const std::string_view tail = dsView(other);
    rewriteDS(ds, {pieceOf(ds, doc, 0, dsView(ds).size()), Piece(doc, tail.data(), tail.size())});
}

extern "C" void insertDS(VQHANDLE ds, int64_t offset, VQHANDLE insert, const char *functionName) {
    if (!validHandle(ds)) {
        nullPointer(functionName);
    } else {
        const int32_t doc = docOf(ds);
        const size_t len = dsView(ds).size();
        if (offset < 0 || offset > static_cast<int64_t>(len)) {
            errorIndexSize(static_cast<int64_t>(len), offset);
        } else {
            const size_t at = static_cast<size_t>(offset);
            const std::string_view middle = dsView(insert);
            rewriteDS(ds, {pieceOf(ds, doc, 0, at), Piece(doc, middle.data(), middle.size()),
                           pieceOf(ds, doc, at, len)});
        }
    }
    VQDOM_deleteDS(insert);
}

extern "C" void deleteSubDS(VQHANDLE ds, int64_t offset, int64_t count) {
    if (!validHandle(ds)) {
        nullPointer("deleteSubDS");
        return;
    }
    const int32_t doc = docOf(ds);
    const int64_t len = static_cast<int64_t>(dsView(ds).size());
    if (offset < 0 || offset > len) {
        errorIndexSize(len, offset);
        return;
    }
    // A negative count is an unsigned count from a caller that means "all
    // of the rest"; like any count past the end it is cut there.
    if (count < 0 || count > len - offset) count = len - offset;
    const size_t from = static_cast<size_t>(offset);
    const size_t to = static_cast<size_t>(offset + count);
    rewriteDS(ds, {pieceOf(ds, doc, 0, from), pieceOf(ds, doc, to, static_cast<size_t>(len))});
}

extern "C" void VQDOM_removeSpacesDS(VQHANDLE ds) {
    if (!validHandle(ds)) {
        nullPointer("removeSpacesDS");
        return;
    }
    // Trimmed in place: the block keeps its size, the bytes behind the
    // shorter text are cleared.
    treeChanged();
    char *p = static_cast<char *>(payload(ds));
    const size_t len = dsView(ds).size();
    size_t begin = 0;
    while (begin < len && isSpace(p[begin])) ++begin;
    size_t end = len;
    while (end > begin && isSpace(p[end - 1])) --end;
    const size_t n = end - begin;
    if (begin != 0) std::memmove(p, p + begin, n);
    std::memset(p + n, 0, len - n);
}

extern "C" int quotDS(VQHANDLE ds) {
    const std::string_view text = validHandle(ds) ? dsView(ds) : std::string_view();
    if (text.find('"') == std::string_view::npos) return '"';
    if (text.find('\'') == std::string_view::npos) return '\'';
    return 0;
}

extern "C" int64_t cpyDS_quot(VQHANDLE ds, char **cursor, int64_t size) {
    return copyTerminatedAtEnd<QuotStops>(ds, cursor, size, kQuotEscapes);
}

extern "C" int64_t printDS_ExpandRef(VQHANDLE ds, char **cursor, int64_t size) {
    return copyTerminatedAfter<TextStops>(ds, cursor, size, kTextEscapes);
}

extern "C" int64_t printDS_ExpandRefAtt(VQHANDLE ds, char **cursor, int64_t size) {
    return copyTerminatedAfter<AttrStops>(ds, cursor, size, kAttrEscapes);
}

extern "C" int64_t VQDOM_cpyDS_ExpandRef(VQHANDLE ds, char *buffer, int64_t size) {
    char *cursor = buffer;
    return printDS_ExpandRef(ds, &cursor, size);
}

extern "C" int64_t VQDOM_cpyDS_ExpandRef2(VQHANDLE ds, char *buffer, int64_t size) {
    char *cursor = buffer;
    return copyTerminatedAtEnd<BackslashStops>(ds, &cursor, size, kBackslashEscapes);
}
