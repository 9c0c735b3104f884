// char_class.h - the character classes every layer reads: the parser in
// its scanners, the serializer when it writes a byte as it stands, the
// name checks and start-up, which fills the table. Every byte from 0x80 to
// 0xFF is a valid character and a name character, so UTF-8 passes through
// unchanged; ASCII bytes are classified by the table chType.
#ifndef VQXML_STORE_CHAR_CLASS_H
#define VQXML_STORE_CHAR_CLASS_H

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

#endif  // VQXML_STORE_CHAR_CLASS_H
