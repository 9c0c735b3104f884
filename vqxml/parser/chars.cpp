// chars.cpp - UTF-8 encoding of character references, heap string copies
// and the name scanner.
#include "vqxml/parser/chars.h"

#include <cstdio>
#include <cstring>

#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"

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
