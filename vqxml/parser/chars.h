// chars.h - character classes. The parser works on bytes: every byte from
// 0x80 to 0xFF is a valid character and a name character, so UTF-8 passes
// through unchanged. ASCII bytes are classified by the table chType.
#ifndef VQXML_PARSER_CHARS_H
#define VQXML_PARSER_CHARS_H

#include <cstdint>

#include "vqxml/vqxml.h"

extern "C" {

// Class masks for bytes 0..127; filled by initChType.
VQXML_API extern uint16_t chType[128];

VQXML_API void initChType(void);
VQXML_API int isChar(int c);
VQXML_API int isValidChar(int c);
VQXML_API int isEnglishLetter(int c);
VQXML_API int isVersNum(int c);
VQXML_API int isPubId(int c);
VQXML_API int isNameStart(int c);
// Writes the UTF-8 form of `code` and a NUL; returns the NUL's address.
VQXML_API char *toUTF8(char *buffer, uint32_t code);
// Heap copies (tracked allocator; free with dbg_free).
VQXML_API char *newString(const char *text);
VQXML_API char *dsToString(VQHANDLE ds);

}  // extern "C"

namespace vqxml {

enum CharClass : uint16_t {
    kClassChar = 0x001,
    kClassSpace = 0x008,
    kClassLetter = 0x010,
    kClassNameChar = 0x040,
    kClassNameStart = 0x080,
    kClassVersNum = 0x100,
    kClassPubId = 0x200,
};

// Inline forms for the parser's loops; `c` is 0..255.
inline bool charOk(unsigned c) { return c > 127 || (chType[c] & kClassChar); }
inline bool spaceChar(unsigned c) { return c < 128 && (chType[c] & kClassSpace); }
inline bool nameChar(unsigned c) { return c > 127 || (chType[c] & kClassNameChar); }
inline bool nameStartChar(unsigned c) { return c > 127 || (chType[c] & kClassNameStart); }

}  // namespace vqxml

#endif  // VQXML_PARSER_CHARS_H
