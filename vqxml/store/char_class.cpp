// char_class.cpp - the character-class table and its predicates.
#include "vqxml/store/char_class.h"

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

