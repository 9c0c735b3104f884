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

#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
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

// One print job: the caller's cursor, the capacity the outermost writer was
// given, and the bytes counted so far. Every writer reports its full length,
// so the capacity a nested writer receives is always the outer capacity less
// everything counted before it: room(). Writers nested in one job therefore
// share a single target and no per-level state is needed.
class PrintTarget {
public:
    PrintTarget(char **cursor, int64_t capacity) : cursor_(cursor), capacity_(capacity) {}

    int64_t room() const { return capacity_ - counted_; }
    // The job's result; saturated so that "result >= size" still reads as
    // "too small" for outputs beyond 2 GiB.
    int32_t result() const {
        return counted_ > INT32_MAX ? INT32_MAX : static_cast<int32_t>(counted_);
    }

    // A fixed literal: all of it when it fits, else nothing.
    void literal(const char *text, int64_t length) {
        if (length > 0 && length <= room()) {
            std::memcpy(*cursor_, text, static_cast<size_t>(length));
            *cursor_ += length;
        }
        counted_ += length;
    }
    template <size_t N>
    void literal(const char (&text)[N]) { literal(text, static_cast<int64_t>(N - 1)); }

    // One byte, when there is any room.
    void character(char c) {
        if (room() > 0) *(*cursor_)++ = c;
        ++counted_;
    }

    // A DS copied unchanged. VQDOM_cpyDS may leave a cut copy behind; the
    // cursor moves only when the whole piece and its NUL fitted, so a later
    // piece overwrites the cut one.
    void piece(VQHANDLE ds) {
        if (!liveHandle(ds)) return;
        const int64_t r = room();
        const int64_t n = r > 0 ? VQDOM_cpyDS(ds, *cursor_, r) : VQDOM_lenDS(ds);
        if (r > n) *cursor_ += n;
        counted_ += n;
    }

    // Escaped copies; they move the cursor themselves. No room is passed as
    // -1, which only measures.
    void escaped(VQHANDLE ds) {
        if (liveHandle(ds)) counted_ += printDS_ExpandRef(ds, cursor_, measureOr(room()));
    }
    void escapedAttribute(VQHANDLE ds) {
        if (liveHandle(ds)) counted_ += printDS_ExpandRefAtt(ds, cursor_, measureOr(room()));
    }
    // Only the double quote escaped. Without room the length is counted
    // here, since the copy writes its NUL at the end of the room it is given.
    void quoteEscaped(VQHANDLE ds) {
        if (!liveHandle(ds)) return;
        if (room() > 0) {
            counted_ += cpyDS_quot(ds, cursor_, room());
            return;
        }
        for (char c : dsView(ds)) counted_ += c == '"' ? 6 : 1;
    }

    // The NUL each node's output ends with when its capacity exceeds its
    // length; the cursor stays on it.
    void terminate() {
        if (room() > 0) **cursor_ = '\0';
    }

private:
    static int64_t measureOr(int64_t r) { return r > 0 ? r : -1; }

    char **cursor_;
    int64_t capacity_;
    int64_t counted_ = 0;
};

// The compact serializer on a shared target (a node with its subtree, the
// specified attributes of an element); the pretty-printer builds on them.
void serializeNode(PrintTarget &out, VQHANDLE node);
void serializeAttributes(PrintTarget &out, VQHANDLE element);

}  // namespace vqxml

#endif  // VQXML_DOM_PRINTER_H
