// chars.cpp - the character-class table, its predicates, UTF-8 encoding of
// character references, heap string copies and the name scanner.
#include "vqxml/parser/chars.h"

#include <cstdio>
#include <cstring>

#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"

uint16_t chType[128];

namespace {

// Bytes 0x80..0xFF (also when passed as a negative char) are outside the
// table; each predicate gives them a fixed answer.
inline bool high(int c) { return (c & 0xff) > 127 || c > 127; }
inline uint16_t bits(int c) { return chType[c & 0x7f]; }

void orInto(const char *chars, uint16_t mask) {
    for (const char *p = chars; *p != '\0'; ++p) chType[static_cast<unsigned char>(*p)] |= mask;
}

}  // namespace

extern "C" void initChType(void) {
    chType[9] = 0x0009;                                    // TAB
    chType[10] = chType[13] = chType[32] = 0x0209;         // LF, CR, SPACE
    for (int c = 33; c <= 127; ++c) chType[c] = 0x001;
    for (int c = 'A'; c <= 'Z'; ++c) chType[c] |= 0x3D0;
    for (int c = 'a'; c <= 'z'; ++c) chType[c] |= 0x3D0;
    orInto("_", 0x1C0);
    orInto(":", 0x3C0);
    orInto("-.0123456789", 0x340);
    orInto("'()*/=;!+,?@#$%", 0x200);
}

extern "C" int isChar(int c) { return high(c) ? 1 : (bits(c) & vqxml::kClassChar) != 0; }

extern "C" int isValidChar(int c) {
    const signed char s = static_cast<signed char>(c & 0xff);
    return s < 0 ? 1 : (chType[static_cast<int>(s)] & vqxml::kClassChar) != 0;
}

extern "C" int isEnglishLetter(int c) { return high(c) ? 0 : (bits(c) & vqxml::kClassLetter) != 0; }
extern "C" int isVersNum(int c) { return high(c) ? 0 : (bits(c) & vqxml::kClassVersNum) != 0; }
extern "C" int isPubId(int c) { return high(c) ? 0 : (bits(c) & vqxml::kClassPubId) != 0; }
// Callers treat bytes of 128 and above as name starts; so does this.
extern "C" int isNameStart(int c) { return high(c) ? 1 : (bits(c) & vqxml::kClassNameStart) != 0; }

extern "C" char *toUTF8(char *buffer, uint32_t code) {
    auto *out = reinterpret_cast<unsigned char *>(buffer);
    if (code == 0) {
    } else if (code < 0x80) {
        *out++ = static_cast<unsigned char>(code);
    } else if (code < 0x800) {
        *out++ = static_cast<unsigned char>(0xC0 | (code >> 6));
        *out++ = static_cast<unsigned char>(0x80 | (code & 0x3F));
    } else if (code < 0xFFFF) {  // U+FFFF itself takes the four-byte form
        *out++ = static_cast<unsigned char>(0xE0 | (code >> 12));
        *out++ = static_cast<unsigned char>(0x80 | ((code >> 6) & 0x3F));
        *out++ = static_cast<unsigned char>(0x80 | (code & 0x3F));
    } else {  // no range check: the top bits spill into the lead byte
        *out++ = static_cast<unsigned char>(0xF0 | (code >> 18));
        *out++ = static_cast<unsigned char>(0x80 | ((code >> 12) & 0x3F));
        *out++ = static_cast<unsigned char>(0x80 | ((code >> 6) & 0x3F));
        *out++ = static_cast<unsigned char>(0x80 | (code & 0x3F));
    }
    *out = '\0';
    return reinterpret_cast<char *>(out);
}

extern "C" char *newString(const char *text) {
    if (text == nullptr) text = "";
    const size_t n = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(vqxml::tracedMalloc(n, "newString", "newString"));
    if (copy != nullptr) std::memcpy(copy, text, n);
    return copy;
}

extern "C" char *VQXML_checkName(const char *name) {
    if (name == nullptr) return nullptr;
    const char *first = nullptr;
    char param[16];
    const auto c0 = static_cast<unsigned char>(name[0]);
    if (c0 < 128 && !(chType[c0] & vqxml::kClassNameStart)) {
        std::snprintf(param, sizeof param, "0x%x", c0);
        addVqXmlError(vqxml::kBadNameStart, param);
        first = name;
    }
    if (c0 != 0) {
        for (const char *p = name + 1; *p != '\0'; ++p) {
            const auto c = static_cast<unsigned char>(*p);
            if (c < 128 && !(chType[c] & vqxml::kClassNameChar)) {
                std::snprintf(param, sizeof param, "0x%x", c);
                addVqXmlError(vqxml::kBadNameCharacter, param);
                if (first == nullptr) first = p;
            }
        }
    }
    return const_cast<char *>(first);
}
