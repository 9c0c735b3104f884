// xtoken_test.cpp - the path tokenizer: each kind of token, where the
// cursor ends up, skipped blanks, number wrap, and unterminated or unknown
// input.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/parser/parser.h"

using vqtest::LibraryTest;

namespace {

// The tokens of a whole text as "kind:value:text" items, up to the end or
// the first bad token.
std::vector<std::string> tokens(const char *text) {
    std::vector<std::string> out;
    for (;;) {
        XToken t;
        const char *next = nextXToken(text, &t);
        std::string item = std::to_string(t.kind) + ":" + std::to_string(t.value);
        if (t.kind == 1 || t.kind == 4) item.append(":").append(t.start, t.value);
        out.push_back(item);
        if (t.kind <= 0) return out;
        text = next;
    }
}

}  // namespace

TEST_F(LibraryTest, PathsSplitIntoTokens) {
    EXPECT_EQ(tokens(" /a/b.c[12]/@x='y z'"),
              (std::vector<std::string>{"3:47", "4:1:a", "3:47", "4:3:b.c", "3:91", "2:12", "3:93", "3:47", "3:64",
                                        "4:1:x", "3:61", "1:3:y z", "0:0"}));
    EXPECT_EQ(tokens("\t\xC3\xA9t\xC3\xA9(\"\")"),
              (std::vector<std::string>{"4:5:\xC3\xA9t\xC3\xA9", "3:40", "1:0:", "3:41", "0:0"}));
    EXPECT_EQ(tokens("007x"), (std::vector<std::string>{"2:7", "4:1:x", "0:0"}));
}

TEST_F(LibraryTest, CursorAfterEachToken) {
    XToken t;
    const char *text = "  @abc";
    EXPECT_EQ(nextXToken(text, &t), text + 3);
    EXPECT_EQ(t.kind, 3);
    EXPECT_EQ(t.value, uint32_t{'@'});
    // Unknown characters are not consumed.
    text = "a !b";
    const char *after = nextXToken(text, &t);
    EXPECT_EQ(nextXToken(after, &t), text + 2);
    EXPECT_EQ(t.kind, -1);
    // Unterminated strings stop at the NUL; a lone quote just after it.
    text = "'abc";
    EXPECT_EQ(nextXToken(text, &t), text + 4);
    EXPECT_EQ(t.kind, -1);
    text = " \"";
    EXPECT_EQ(nextXToken(text, &t), text + 2);
    EXPECT_EQ(t.kind, -1);
    EXPECT_EQ(t.start, text + 2);
    // The end stays the end.
    text = "   ";
    EXPECT_EQ(nextXToken(text, &t), text + 3);
    EXPECT_EQ(t.kind, 0);

    // Only blanks and tabs are skipped, so a line end is a bad token; names
    // may start with ":" or "_" and go on with digits and dots; numbers
    // wrap without a check; the other quotation mark is part of a string.
    const struct {
        const char *text;
        int kind, end, start;  // start: offset of the token text, or -1
        uint32_t value;
    } cases[] = {
        {"\n a", -1, 0, -1, 0},   {"", 0, 0, -1, 0},            {"-a", -1, 0, -1, 0},
        {":_a.1-b/", 4, 7, 0, 7}, {"4294967297]", 2, 10, -1, 1}, {"'a\"b'x", 1, 5, 1, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        t = XToken{};
        EXPECT_EQ(nextXToken(c.text, &t), c.text + c.end);
        EXPECT_EQ(t.kind, c.kind);
        if (c.kind > 0) {
            EXPECT_EQ(t.value, c.value);
        }
        if (c.start >= 0) {
            EXPECT_EQ(t.start, c.text + c.start);
        }
    }
}
