// dom_string.h - DOM strings (DS): NUL-terminated byte strings stored as
// blocks of a document area. Edits keep the handle: the new text is built
// in a fresh block that is swapped in under the old handle.
#ifndef VQXML_STORE_DOM_STRING_H
#define VQXML_STORE_DOM_STRING_H

#include <cstdint>
#include <string_view>

#include "vqxml/vqxml.h"

extern "C" {

// A raw block of `bytes` payload bytes; code 11 "DOMString" on failure.
VQXML_API VQHANDLE allocDS(VQHANDLE document, int64_t bytes);
// Inserts the text of `insert` at `offset`; `insert` is always deleted.
VQXML_API void insertDS(VQHANDLE ds, int64_t offset, VQHANDLE insert,
                        const char *functionName);
VQXML_API void deleteSubDS(VQHANDLE ds, int64_t offset, int64_t count);
// The quotation mark for an attribute value: 34, 39 or 0.
VQXML_API int quotDS(VQHANDLE ds);
// Escaping copies that advance a write cursor.
VQXML_API int64_t cpyDS_quot(VQHANDLE ds, char **cursor, int64_t size);
VQXML_API int64_t printDS_ExpandRef(VQHANDLE ds, char **cursor, int64_t size);
VQXML_API int64_t printDS_ExpandRefAtt(VQHANDLE ds, char **cursor, int64_t size);

}  // extern "C"

namespace vqxml {

// The bytes of a valid DS (no checks, no report).
inline const char *dsChars(VQHANDLE ds);
// The text of a DS; empty for an invalid handle (records nothing).
std::string_view dsView(VQHANDLE ds);
// True when a live DS holds exactly `text` (which holds no NUL); false for
// an invalid handle. Reads nothing past the DS's block.
inline bool dsEquals(VQHANDLE ds, std::string_view text);
// A new DS in the document of `document` holding `text` (which may contain
// any bytes but NUL); 0 and code 11 on failure.
VQHANDLE createDSView(VQHANDLE document, std::string_view text);

}  // namespace vqxml

#include "vqxml/store/area.h"

#include <cstring>

namespace vqxml {
inline const char *dsChars(VQHANDLE ds) { return static_cast<const char *>(payload(ds)); }
inline bool dsEquals(VQHANDLE ds, std::string_view text) {
    if (!liveHandle(ds)) return false;
    const char *p = dsChars(ds);
    const size_t room = static_cast<size_t>(reinterpret_cast<const BlockHeader *>(p - 8)->blockSize - 8);
    return text.size() < room && std::memcmp(p, text.data(), text.size()) == 0 &&
           p[text.size()] == '\0';
}
}  // namespace vqxml

#endif  // VQXML_STORE_DOM_STRING_H
