// chars.h - the parser's character helpers: UTF-8 encoding of character
// references and heap string copies. The character classes themselves are
// in vqxml/store/char_class.h.
#ifndef VQXML_PARSER_CHARS_H
#define VQXML_PARSER_CHARS_H

#include <cstdint>

#include "vqxml/store/char_class.h"
#include "vqxml/vqxml.h"

extern "C" {

// Writes the UTF-8 form of `code` and a NUL; returns the NUL's address.
VQXML_API char *toUTF8(char *buffer, uint32_t code);
// Heap copies (tracked allocator; free with dbg_free).
VQXML_API char *newString(const char *text);
VQXML_API char *dsToString(VQHANDLE ds);

}  // extern "C"

#endif  // VQXML_PARSER_CHARS_H
