// dom_string_test.cpp - DOM strings: edits and clones under a kept handle,
// offsets, invalid handles, allocation failures, trimming, and the escaping
// copies at the exact edges of the caller's buffer.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace {

using namespace vqxml::codes;

using vqtest::ds;
using vqtest::Err;
using vqtest::str;
using Errs = std::vector<Err>;

class DomStringTest : public vqtest::DocumentTest {
protected:
    // A fresh buffer of 'x' bytes and a cursor at its start.
    char *reset() {
        std::memset(buf, 'x', sizeof buf);
        cur = buf;
        return buf;
    }
    char buf[32];
    char *cur = buf;
};

std::string hex(VQHANDLE h) {
    char b[16];
    std::snprintf(b, sizeof b, "%x|", h);
    return b;
}

TEST_F(DomStringTest, EditsKeepTheHandleAndLeaveOtherStringsAlone) {
    VQHANDLE a = ds(doc, "abc");
    VQHANDLE b = ds(doc, "xyz");
    VQDOM_appendDS(a, "def");
    VQDOM_appendDS2(a, b);
    VQDOM_appendDS2(b, b);
    EXPECT_EQ(str(a), "abcdefxyz");
    EXPECT_EQ(str(b), "xyzxyz");
    EXPECT_EQ(docHead[doc & 255]->dbgHandles, 5);  // old blocks were freed

    // Text from the same area stays readable when the append grows (and
    // so moves) the area.
    VQHANDLE big = VQDOM_createDS(doc, std::string(16000, 'q').c_str());
    char *before = docHead[doc & 255]->data;
    VQDOM_appendDS(a, VQDOM_getBufferDS(big));
    EXPECT_NE(docHead[doc & 255]->data, before);
    EXPECT_EQ(str(a), "abcdefxyz" + std::string(16000, 'q'));
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // A clone lives in the document of its first argument.
    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE copy = VQDOM_cloneDS(other, ds(doc, "shared text"));
    EXPECT_EQ(copy & 255, 2u);
    EXPECT_EQ(str(copy), "shared text");
    EXPECT_EQ(VQDOM_cloneDS(other, 0), 0u);
}

TEST_F(DomStringTest, InsertAndDeleteFollowTheOffsetRules) {
    VQHANDLE s = ds(doc, "abc");
    insertDS(s, 1, ds(doc, "-"), "insertData");
    VQHANDLE tail = ds(doc, ">");
    insertDS(s, 4, tail, "insertData");  // at the length: appends
    EXPECT_EQ(str(s), "a-bc>");
    EXPECT_FALSE(vqxml::liveHandle(tail));
    VQHANDLE late = ds(doc, "!");
    insertDS(s, 6, late, "insertData");  // one past the length
    EXPECT_FALSE(vqxml::liveHandle(late));
    EXPECT_EQ(str(s), "a-bc>");

    deleteSubDS(s, 1, 1);
    EXPECT_EQ(str(s), "abc>");
    deleteSubDS(s, 4, 3);  // at the end: nothing to remove
    deleteSubDS(s, 2, 100);  // a count past the end stops there
    EXPECT_EQ(str(s), "ab");
    deleteSubDS(s, 3, 1);
    EXPECT_EQ(str(s), "ab");
    EXPECT_EQ(vqtest::drainDomErrors(), (Errs{{1, "5|6|"}, {1, "2|3|"}}));
}

TEST_F(DomStringTest, InvalidHandlesReadEmptyAndEditsReportTheirName) {
    VQHANDLE a = ds(doc, "abc");
    VQHANDLE stale = ds(doc, "gone");
    VQDOM_deleteDS(stale);

    EXPECT_STREQ(VQDOM_getBufferDS(0), "");
    EXPECT_EQ(VQDOM_lenDS(0), 0);
    EXPECT_TRUE(vqtest::drainErrors().empty());  // the null handle is quiet
    EXPECT_EQ(VQDOM_lenDS(stale), 0);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kInvalidHandle, hex(stale)}}));
    EXPECT_EQ(VQDOM_createDS(0, "x"), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_EQ(VQDOM_createDS(0x77701, "x"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kInvalidHandle, "77701|"}}));

    EXPECT_EQ(VQDOM_cmpDS(a, 0), 0);  // reads as equal
    EXPECT_EQ(VQDOM_cmpDSStr(0, "abc"), 0);
    VQDOM_appendDS(0, "x");
    VQDOM_appendDS2(a, 0);
    VQHANDLE ins = ds(doc, "i");
    insertDS(0, 0, ins, "insertDataStr");
    EXPECT_FALSE(vqxml::liveHandle(ins));
    deleteSubDS(0, 0, 1);
    VQDOM_removeSpacesDS(0);
    EXPECT_EQ(vqtest::drainDomErrors(),
              (Errs{{12, "cmpDS|"}, {12, "cmpDSStr|"}, {12, "appendDS|"}, {12, "appendDS|"},
                    {12, "insertDataStr|"}, {12, "deleteSubDS|"}, {12, "removeSpacesDS|"}}));
    EXPECT_EQ(str(a), "abc");

    VQDOM_appendDS(stale, "x");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kInvalidHandle, hex(stale)}, {mainCode(kNullPointerErr), "appendDS|"}}));
}

TEST_F(DomStringTest, FailedAllocationLeavesTheStringAsItWas) {
    VQHANDLE s = ds(doc, "keep");
    ASSERT_NE(VQDOM_createDS(doc, std::string(17000, 'f').c_str()), 0u);  // area full
    const std::string more(1000, 'm');
    dontRealloc[doc & 255] = 1;
    VQDOM_appendDS(s, more.c_str());
    EXPECT_EQ(vqtest::drainDomErrors(), (Errs{{11, "DOMString|1005|"}}));

    // A growth that the heap refuses: the area stays, and is barred.
    dontRealloc[doc & 255] = 0;
    vqxml::failAllocAt(1);
    VQDOM_appendDS(s, more.c_str());
    vqxml::failAllocAt(0);
    const Errs errs = vqtest::drainDomErrors();
    ASSERT_EQ(errs.size(), 2u);
    EXPECT_EQ(errs[0].params.rfind("DocumentArea|", 0), 0u);
    EXPECT_EQ(errs[1], (Err{11, "DOMString|1005|"}));
    EXPECT_EQ(str(s), "keep");
    EXPECT_EQ(dontRealloc[doc & 255], 1);
}

TEST_F(DomStringTest, CopyCompareAndTrim) {
    VQHANDLE s = ds(doc, "hello");
    EXPECT_EQ(VQDOM_cpyDS(s, reset(), 6), 5);
    EXPECT_STREQ(buf, "hello");
    EXPECT_EQ(VQDOM_cpyDS(s, reset(), 5), 5);  // exactly the length: one short
    EXPECT_STREQ(buf, "hell");
    reset();
    EXPECT_EQ(VQDOM_cpyDS(s, buf, 0) + VQDOM_cpyDS(s, buf, -1) + VQDOM_cpyDS(0, buf, 0), 10);
    EXPECT_EQ(buf[0], 'x');  // none of these writes
    EXPECT_EQ(VQDOM_cpyDS(0, buf, -1), 0);
    EXPECT_EQ(buf[0], '\0') << "an invalid DS terminates for any size but 0";
    EXPECT_EQ(VQDOM_cpyDS(0, buf, 4), 0);
    EXPECT_EQ(buf[0], '\0');

    EXPECT_GT(VQDOM_cmpDS(ds(doc, "\xc3"), s), 0);  // unsigned bytes
    EXPECT_LT(VQDOM_cmpDSStr(s, "hello!"), 0);

    // Trimming keeps the block and clears the bytes behind the text.
    VQHANDLE t = ds(doc, " \t\r\n a  b\t\n ");
    const int32_t blockBefore = reinterpret_cast<BlockHeader *>(VQDOM_getBufferDS(t) - 8)->blockSize;
    VQDOM_removeSpacesDS(t);
    const char *p = VQDOM_getBufferDS(t);
    EXPECT_EQ(std::string(p, 12), std::string("a  b\0\0\0\0\0\0\0\0", 12));
    EXPECT_EQ(VQDOM_lenDS(t), 4);
    EXPECT_EQ(reinterpret_cast<const BlockHeader *>(p - 8)->blockSize, blockBefore);
    VQHANDLE blank = ds(doc, "   ");
    VQDOM_removeSpacesDS(blank);
    EXPECT_EQ(str(blank), "");

    EXPECT_EQ(quotDS(ds(doc, "it's")), '"');
    EXPECT_EQ(quotDS(ds(doc, "say \"x\"")), '\'');
    EXPECT_EQ(quotDS(ds(doc, "\"it's\"")), 0);
    EXPECT_EQ(quotDS(0), '"');
}

TEST_F(DomStringTest, ExpandRefTerminatesRightAfterTheText) {
    VQHANDLE s = ds(doc, "a<b");
    reset();
    EXPECT_EQ(printDS_ExpandRef(s, &cur, -1), 6);  // measures only
    EXPECT_EQ(cur, buf);
    EXPECT_EQ(buf[0], 'x');

    EXPECT_EQ(printDS_ExpandRef(s, &cur, 7), 6);  // fits with its NUL
    EXPECT_EQ(std::string(buf, 7), std::string("a&lt;b\0", 7));
    EXPECT_EQ(cur, buf + 6);
    reset();
    EXPECT_EQ(printDS_ExpandRef(s, &cur, 6), 6);  // one short: cut, no NUL
    EXPECT_EQ(std::string(buf, 6), "a&lt;x");
    EXPECT_EQ(cur, buf + 5);
    reset();
    EXPECT_EQ(printDS_ExpandRef(s, &cur, 3), 6);  // cut inside the entity
    EXPECT_EQ(std::string(buf, 3), "a&x");

    VQHANDLE ws = ds(doc, "\t\n\r'\"&>");
    EXPECT_EQ(VQDOM_cpyDS_ExpandRef(ws, reset(), sizeof buf), 24);
    EXPECT_STREQ(buf, "\t\n\r&apos;&quot;&amp;&gt;");
    reset();
    EXPECT_EQ(printDS_ExpandRefAtt(ws, &cur, sizeof buf), 35);
    EXPECT_EQ(std::string(buf, 31), "&#9;&#10;&#13;&apos;&quot;&amp;");
}

TEST_F(DomStringTest, QuotAndExpandRef2TerminateAtTheBufferEnd) {
    VQHANDLE s = ds(doc, "say \"hi\"<");
    reset();
    EXPECT_EQ(cpyDS_quot(s, &cur, sizeof buf), 19);
    EXPECT_EQ(std::string(buf, 20), "say &quot;hi&quot;<x");  // nothing after the text
    EXPECT_EQ(buf[31], '\0');
    EXPECT_EQ(cur, buf + 19);
    reset();
    EXPECT_EQ(cpyDS_quot(s, &cur, 8), 19);
    EXPECT_EQ(std::string(buf, 9), std::string("say &qu\0x", 9));

    VQHANDLE path = ds(doc, "C:\\a&b");
    EXPECT_EQ(VQDOM_cpyDS_ExpandRef2(path, reset(), sizeof buf), 11);
    EXPECT_EQ(std::string(buf, 12), "C:\\\\a&amp;bx");
    EXPECT_EQ(buf[31], '\0');
    EXPECT_EQ(VQDOM_cpyDS_ExpandRef2(path, reset(), 4), 11);  // inside the doubled backslash
    EXPECT_EQ(std::string(buf, 5), std::string("C:\\\0x", 5));
}

// Every size from "measure only" to far more than the worst case, for texts
// whose bytes to replace sit at the edges of 16-byte runs or among their
// byte-value neighbours: each copy stores
// exactly the prefix of the escaped text that its room holds, its NUL where
// its rule puts it, and nothing else.
TEST_F(DomStringTest, EscapingCopiesAgreeWithTheByteRuleAtEverySize) {
    const std::string texts[] = {"abcdefghijklmno<", "abcdefghijklmnop&q",
                                 "\"bcdefghijklmno\t\npqrstuvwxyzABCD'\\EFGHIJKLMNOPQRSTUVWXYZ\r0123>",
                                 std::string(47, 'z') + "&",
                                 // neighbours of the bytes that are replaced, which are not
                                 "=?%$#:;\x0b\x0c\x08\x05\x01=>?<=?&%'$\"#"};
    const char *base = "\"&'<>";
    struct Copy {
        const char *name, *escaped;  // the bytes replaced, besides the base set
        bool nulAtEnd;               // NUL in the last byte rather than after the text
        bool moves;                  // advances the cursor
        int64_t (*copy)(VQHANDLE, char **, int64_t);
    } copies[] = {
        {"quot", "", true, true, cpyDS_quot},
        {"text", base, false, true, printDS_ExpandRef},
        {"attribute", "\"&'<>\t\n\r", false, true, printDS_ExpandRefAtt},
        {"backslash", "\"&'<>\\", true, false,
         [](VQHANDLE h, char **c, int64_t n) { return VQDOM_cpyDS_ExpandRef2(h, *c, n); }},
    };
    auto entity = [](char c) -> std::string {
        switch (c) {
            case '"': return "&quot;";
            case '&': return "&amp;";
            case '\'': return "&apos;";
            case '<': return "&lt;";
            case '>': return "&gt;";
            case '\t': return "&#9;";
            case '\n': return "&#10;";
            case '\r': return "&#13;";
            default: return "\\\\";
        }
    };
    for (const std::string &text : texts) {
        const VQHANDLE h = ds(doc, text.c_str());
        for (const Copy &c : copies) {
            std::string full;
            for (char ch : text) {
                const bool replaced = ch == '"' || std::strchr(c.escaped, ch) != nullptr;
                full += replaced ? entity(ch) : std::string(1, ch);
            }
            const auto total = static_cast<int64_t>(full.size());
            for (int64_t size = -2; size <= 6 * total + 16; ++size) {
                std::string out(static_cast<size_t>(6 * total + 32), '~');
                char *at = out.data();
                ASSERT_EQ(c.copy(h, &at, size), total) << c.name << " " << text << " " << size;
                std::string want(out.size(), '~');
                const int64_t stored = std::min(std::max<int64_t>(size - 1, 0), total);
                want.replace(0, static_cast<size_t>(stored), full, 0, static_cast<size_t>(stored));
                if (c.nulAtEnd ? size > 0 : size > total) want[static_cast<size_t>(c.nulAtEnd ? size - 1 : total)] = '\0';
                ASSERT_EQ(out, want) << c.name << " " << text << " " << size;
                ASSERT_EQ(at, out.data() + (c.moves ? stored : 0));
            }
        }
    }
}

// An invalid string writes at most a NUL at the write position: the copies
// that end their buffer store it for any size but 0, the cursor copies
// (which only measure with a negative size) for a positive size only.
TEST_F(DomStringTest, InvalidStringWritesAtMostANul) {
    using Copy = int64_t (*)(char **, int32_t);
    const Copy quot = [](char **p, int32_t n) -> int64_t { return cpyDS_quot(0, p, n); };
    const Copy expand2 = [](char **p, int32_t n) -> int64_t { return VQDOM_cpyDS_ExpandRef2(0, *p, n); };
    const Copy expand = [](char **p, int32_t n) -> int64_t { return VQDOM_cpyDS_ExpandRef(0, *p, n); };
    const Copy print = [](char **p, int32_t n) -> int64_t { return printDS_ExpandRef(0, p, n); };
    const Copy printAtt = [](char **p, int32_t n) -> int64_t { return printDS_ExpandRefAtt(0, p, n); };
    const struct {
        Copy copy;
        int32_t size;
        bool nul;
    } cases[] = {{quot, 4, true},      {quot, -1, true},    {quot, 0, false},
                 {expand2, 4, true},   {expand2, -5, true}, {expand, -1, false},
                 {print, -1, false},   {printAtt, 4, true}, {printAtt, -1, false}};
    for (const auto &c : cases) {
        cur = reset() + 1;
        EXPECT_EQ(c.copy(&cur, c.size), 0) << c.size;
        EXPECT_EQ(std::string(buf, 3), c.nul ? std::string("x\0x", 3) : "xxx") << c.size;
        EXPECT_EQ(cur, buf + 1);
    }
}

TEST_F(DomStringTest, AttributeValueFromChildren) {
    auto node = [&](int type, const char *value) {
        VQHANDLE h = allocNode(doc, type, 0);
        VQHANDLE v = value != nullptr ? ds(doc, value) : 0;
        vqxml::node(h)->nodeValue = v;
        return h;
    };
    auto link = [](VQHANDLE parent, VQHANDLE child) {
        Node *p = vqxml::node(parent);
        vqxml::node(child)->parentNode = parent;
        if (p->lastChild != 0) vqxml::node(p->lastChild)->nextSibling = child;
        else p->firstChild = child;
        p->lastChild = child;
    };
    // "a", &e1;("b", &e2;("c"), &e3;()), "d"
    VQHANDLE e1 = node(VQXML_ENTITY_REFERENCE_NODE, nullptr);
    VQHANDLE e2 = node(VQXML_ENTITY_REFERENCE_NODE, nullptr);
    link(e1, node(VQXML_TEXT_NODE, "b"));
    link(e1, e2);
    link(e2, node(VQXML_TEXT_NODE, "c"));
    link(e1, node(VQXML_ENTITY_REFERENCE_NODE, nullptr));
    VQHANDLE value = 0;
    EXPECT_EQ(getAttChildValue(node(VQXML_TEXT_NODE, "a"), &value), 1);
    EXPECT_EQ(getAttChildValue(e1, &value), 1);
    EXPECT_EQ(getAttChildValue(node(VQXML_TEXT_NODE, "d"), &value), 1);
    EXPECT_EQ(str(value), "abcd");

    link(e2, node(VQXML_COMMENT_NODE, "no"));  // anything but text fails
    EXPECT_EQ(getAttChildValue(e1, &value), 0);
    EXPECT_EQ(getAttChildValue(0, &value), 0);

    // A deep chain of references is walked without recursion.
    VQHANDLE top = node(VQXML_ENTITY_REFERENCE_NODE, nullptr);
    VQHANDLE at = top;
    for (int i = 0; i < 100000; ++i) {
        VQHANDLE next = node(VQXML_ENTITY_REFERENCE_NODE, nullptr);
        link(at, next);
        at = next;
    }
    link(at, node(VQXML_TEXT_NODE, "deep"));
    link(top, node(VQXML_TEXT_NODE, "!"));
    VQHANDLE deep = 0;
    EXPECT_EQ(getAttChildValue(top, &deep), 1);
    EXPECT_EQ(str(deep), "deep!");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

}  // namespace
