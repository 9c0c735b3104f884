// xtoken.cpp - the tokenizer of path expressions: names, quoted strings,
// decimal numbers and the punctuation of paths, one token per call.
#include "vqxml/parser/chars.h"
#include "vqxml/parser/parser.h"

namespace {

inline unsigned byteAt(const char *p) { return static_cast<unsigned char>(*p); }

}  // namespace

extern "C" const char *nextXToken(const char *text, XToken *token) {
    token->kind = -1;
    token->start = nullptr;
    token->value = 0;
    if (text == nullptr) return text;
    while (*text == ' ' || *text == '\t') ++text;
    const unsigned c = byteAt(text);
    if (c == 0) {
        token->kind = 0;
        return text;
    }
    if (vqxml::nameStartChar(c)) {
        const char *end = text + 1;
        while (vqxml::nameChar(byteAt(end))) ++end;
        token->kind = 4;
        token->start = text;
        token->value = static_cast<uint32_t>(end - text);
        return end;
    }
    if (c == '\'' || c == '"') {
        const char *start = text + 1;
        token->start = start;
        const char *end = start;
        while (*end != '\0' && byteAt(end) != c) ++end;
        if (*end == '\0') return end;  // unterminated: kind stays -1
        token->kind = 1;
        token->value = static_cast<uint32_t>(end - start);
        return end + 1;
    }
    if (c >= '0' && c <= '9') {
        uint32_t value = 0;
        while (*text >= '0' && *text <= '9') value = value * 10 + static_cast<uint32_t>(*text++ - '0');
        token->kind = 2;
        token->value = value;
        return text;
    }
    for (const char *p = "/()[]@="; *p != '\0'; ++p) {
        if (c == byteAt(p)) {
            token->kind = 3;
            token->value = c;
            return text + 1;
        }
    }
    return text;
}
