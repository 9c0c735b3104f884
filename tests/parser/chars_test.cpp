// chars_test.cpp - the character-class table, its predicates, UTF-8
// encoding of character numbers and the public name check.
#include <cstring>
#include <memory>
#include <string>

#include "support/test_util.h"
#include "vqxml/parser/chars.h"
#include "vqxml/store/codes.h"

namespace {

using namespace vqxml::codes;

using vqtest::Err;
using Errs = std::vector<Err>;

class CharsTest : public vqtest::LibraryTest {};

// The expected mask of an ASCII byte, from the class members rather than
// from the order in which the table is filled.
uint16_t expectedMask(int c) {
    auto in = [c](const char *set) { return c != 0 && std::strchr(set, c) != nullptr; };
    const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    const bool digit = c >= '0' && c <= '9';
    uint16_t m = 0;
    if (c >= 32 || in("\t\n\r")) m |= 0x001;
    if (in("\t\n\r ")) m |= 0x008;
    if (letter) m |= 0x010;
    if (letter || digit || in("-._:")) m |= 0x040 | 0x100;
    if (letter || in("_:")) m |= 0x080;
    if (letter || digit || in("\n\r !#$%'()*+,-./:;=?@")) m |= 0x200;
    return m;
}

TEST_F(CharsTest, TableHoldsExactMasks) {
    initChType();  // a second fill (both init entry points call it) changes nothing
    for (int c = 0; c < 128; ++c) EXPECT_EQ(chType[c], expectedMask(c)) << "byte " << c;
    EXPECT_EQ(chType[static_cast<unsigned char>('_')], 0x1C1);
    EXPECT_EQ(chType[static_cast<unsigned char>(':')], 0x3C1);
}

TEST_F(CharsTest, PredicatesOnHighAndSignedBytes) {
    for (int c = 128; c < 256; ++c) {
        for (int v : {c, static_cast<int>(static_cast<signed char>(c))}) {
            EXPECT_TRUE(isChar(v) && isValidChar(v) && isNameStart(v)) << v;
            EXPECT_FALSE(isEnglishLetter(v) || isVersNum(v) || isPubId(v)) << v;
        }
    }
    EXPECT_EQ(isChar(0) + isChar(0x1F), 0);
    EXPECT_EQ(isValidChar(0x141), 1);  // the low byte only
    EXPECT_EQ(isValidChar(0x10B), 0);
    EXPECT_EQ(isPubId('_') + isPubId('\t'), 0);
    EXPECT_EQ(isNameStart('1'), 0);
}

std::string utf8(uint32_t code) {
    char buf[8];
    std::memset(buf, 'X', sizeof buf);
    const char *end = toUTF8(buf, code);
    EXPECT_EQ(*end, '\0');
    return std::string(buf, static_cast<size_t>(end - buf));
}

TEST_F(CharsTest, Utf8Boundaries) {
    EXPECT_EQ(utf8(0x7F), "\x7F");
    EXPECT_EQ(utf8(0x80), "\xC2\x80");
    EXPECT_EQ(utf8(0x7FF), "\xDF\xBF");
    EXPECT_EQ(utf8(0x800), "\xE0\xA0\x80");
    EXPECT_EQ(utf8(0xFFFE), "\xEF\xBF\xBE");
    EXPECT_EQ(utf8(0xFFFF), "\xF0\x8F\xBF\xBF");  // four bytes on purpose
    EXPECT_EQ(utf8(0xD800), "\xED\xA0\x80");      // no range check
    EXPECT_EQ(utf8(0x200000), "\xF8\x80\x80\x80");  // spills into the lead byte
    EXPECT_EQ(utf8(0), "");
    char buf[16];
    toUTF8(toUTF8(toUTF8(buf, 0xE9), 0), 'x');  // chained
    EXPECT_STREQ(buf, "\xC3\xA9x");
}

TEST_F(CharsTest, CheckNameReportsEveryBadByte) {
    const char *name = "1a-b c";
    EXPECT_EQ(VQXML_checkName(name), name);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kBadNameStart, "0x31|"}, {kBadNameCharacter, "0x20|"}}));
    EXPECT_EQ(vqtest::message(kBadNameStart, "0x31|"), "invalid character as namestart: 0x31");
    const char *many = "a<b>c\x01";
    EXPECT_EQ(VQXML_checkName(many), many + 1);
    EXPECT_EQ(VQXML_checkName("\xC3\xA9t\xE2\x82\xAC_:.-9"), nullptr);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kBadNameCharacter, "0x3c|"}, {kBadNameCharacter, "0x3e|"}, {kBadNameCharacter, "0x1|"}}));

    // Exactly sized blocks: the sanitizer build sees any read past the NUL.
    auto empty = std::make_unique<char[]>(1);
    EXPECT_EQ(VQXML_checkName(empty.get()), empty.get());
    auto one = std::make_unique<char[]>(2);
    one[0] = '9';
    EXPECT_EQ(VQXML_checkName(one.get()), one.get());
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kBadNameStart, "0x0|"}, {kBadNameStart, "0x39|"}}));
}

}  // namespace
