// source_test.cpp - input sources: line counting, end of input, look-ahead,
// expansion of parameter-entity and character references, the awaited
// delimiter, entity sources, parse messages, and the absence of leaks and
// over-reads for any byte in any position.
#include <cstring>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/parser/chars.h"
#include "vqxml/parser/parser.h"
#include "vqxml/parser/source.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace {

using namespace vqxml::codes;

using vqtest::ds;
using vqtest::Err;
using Errs = std::vector<Err>;

class SourceTest : public vqtest::DocumentTest {
protected:
    void SetUp() override {
        DocumentTest::SetUp();
        doctype = allocNode(doc, VQXML_DOCUMENT_TYPE_NODE, ds(doc, "d"));
    }

    // An entity appended under the document type, where lookups find it.
    VQHANDLE entity(const char *name, const char *value, int param = 1, int line = 1) {
        const VQHANDLE e = createEntity(doc, param, ds(doc, name));
        const VQHANDLE v = value != nullptr ? ds(doc, value) : 0;
        vqxml::rec<Entity>(e)->value = v;
        vqxml::rec<Entity>(e)->line = line;
        Node *dt = vqxml::node(doctype);
        if (dt->lastChild != 0) vqxml::node(dt->lastChild)->nextSibling = e;
        else dt->firstChild = e;
        vqxml::node(e)->previousSibling = dt->lastChild;
        dt->lastChild = e;
        vqxml::node(e)->parentNode = doctype;
        return e;
    }

    // A source that expands references (the text of a general entity), and
    // one that does not, over an exactly sized copy of the text.
    Source *expanding(const char *text) { return allocSourceEntity(entity("host", text, 0), doc); }
    Source *plain(const char *text) { return allocSource(newString(text), 1, doc); }

    static std::string readAll(Source *s) {
        std::string out;
        for (int c = s->current; c != 0; c = getNextCh(s)) out += static_cast<char>(c);
        return out;
    }

    VQHANDLE doctype = 0;
};

TEST_F(SourceTest, LinesAndEndOfInput) {
    Source *s = plain("a\r\nb\rc\nd\r\r\ne\r");
    std::vector<std::pair<int, int>> seen;
    for (int c = s->current; c != 0; c = getNextCh(s)) seen.push_back({c, s->line});
    // CR LF is one LF and one line; a lone CR becomes LF without a line.
    EXPECT_EQ(seen, (std::vector<std::pair<int, int>>{{'a', 1}, {'\n', 2}, {'b', 2}, {'\n', 2},
                                                       {'c', 2}, {'\n', 3}, {'d', 3}, {'\n', 3},
                                                       {'\n', 4}, {'e', 4}, {'\n', 4}}));
    const char *end = s->cursor;
    EXPECT_EQ(getNextCh(s) + getNextCh(s) + getNthCh(s, 2), 0);  // sticky
    EXPECT_EQ(s->cursor, end);
    deleteSource(s);

    s = plain("\nab");
    EXPECT_EQ(s->line, 2);  // a leading LF counts once it is current
    EXPECT_EQ(getNthCh(s, 3), 'b');
    EXPECT_EQ(getNthCh(s, 4) + getNthCh(s, 50), 0);
    EXPECT_EQ(readAll(s), "\nab");  // look-ahead did not move
    deleteSource(s);
}

TEST_F(SourceTest, ExpandsParameterEntitiesAndCharacterReferences) {
    entity("p", "1%q;2");
    entity("q", "Q");
    entity("n", "1\n2");
    Source *s = expanding("a%p;b&#x41;c&#65;d&#233;e&#256;f&#x;g");
    EXPECT_EQ(readAll(s), "a1Q2bAcAd\xE9" "efg");  // one byte, the low eight bits
    deleteSource(s);
    // An entity's lines are its own; a LF right behind a reference is not
    // counted (see LineFeedBehindAReferenceIsNotCounted).
    s = expanding("%n;\n%n;");
    EXPECT_EQ(readAll(s), "1\n2\n1\n2");
    EXPECT_EQ(s->line, 1);
    deleteSource(s);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    s = plain("a%p;&#65;");  // no document type: read as it stands
    EXPECT_EQ(readAll(s), "a%p;&#65;");
    deleteSource(s);
}

TEST_F(SourceTest, BadReferencesStayText) {
    entity("p", "P");
    Source *s = expanding("% a%1b%zz;c%p d&#X41;e&#65 %");
    EXPECT_EQ(readAll(s), "% a%1b%zz;c%p d&#X41;e&#65 %");
    deleteSource(s);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kPeNameExpected, "1|"}, {kPeUndefined, "1|zz|"}, {kSemicolonExpected, "1|"},
                                          {kSemicolonExpected, "1|"}, {kSemicolonExpected, "1|"}, {kPeNameExpected, "1|"}}));
    EXPECT_EQ(vqtest::message(kPeUndefined, "3|zz|"), "line 3: parameter entity \"zz\" undefined");
}

TEST_F(SourceTest, LookAheadAcrossExpansions) {
    entity("p", "XY");
    Source *s = expanding("a%p;&#66;c");
    std::string ahead;
    for (int n = 2; n <= 6; ++n) ahead += static_cast<char>(getNthCh(s, n) + (n == 6 ? '$' : 0));
    EXPECT_EQ(ahead, "XYBc$");
    EXPECT_EQ(getNextCh(s), 'X');
    EXPECT_EQ(getNthCh(s, 3), 'B');
    EXPECT_EQ(readAll(s), "XYBc");
    deleteSource(s);

    // Look-ahead passes an unknown %q; and starts %p; further on; once q
    // is known the reader finishes q's expansion before p's.
    const int32_t blocks = vqxml::memStats().liveBlocks;
    s = expanding("a%q;%p;");
    EXPECT_EQ(getNthCh(s, 6), 'Y');
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kPeUndefined, "1|q|"}}));
    entity("q", "Q");
    EXPECT_EQ(readAll(s), "aQXY");
    deleteSource(s);
    EXPECT_EQ(vqxml::memStats().liveBlocks, blocks);
}

TEST_F(SourceTest, DelimiterCountsOnlyAtItsOwnLevel) {
    entity("p", "x'y");
    entity("e", "z");
    Source *s = expanding("'%p;'%e;");
    s->awaited = '\'';
    EXPECT_EQ(getNextCh(s), 'x');
    EXPECT_EQ(getNextCh(s), '\'');
    EXPECT_EQ(s->delimiterSeen, 0);  // came from the entity's text
    EXPECT_EQ(getNextCh(s), 'y');
    EXPECT_EQ(getNextCh(s), '\'');
    EXPECT_EQ(s->delimiterSeen + (s->awaited == 0), 2);
    // Text that ends behind a reference while a mark is awaited records
    // the bare code 1939, once.
    s->awaited = '"';
    EXPECT_EQ(readAll(s), "'z");
    EXPECT_EQ(getNextCh(s), 0);
    deleteSource(s);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1939, "1|"}}));
}

// The reader counts a LF before it looks for expansions, so a LF right
// behind a finished reference is read without counting a line: the
// unclosed <b> is reported on line 1, not 2.
TEST_F(SourceTest, LineFeedBehindAReferenceIsNotCounted) {
    EXPECT_EQ(VQXML_parse("<!DOCTYPE a [<!ENTITY e 'x&#65;\n<b>'>]><a/>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{vqxml::kEndTagMissing, "1|b|"}}));
}

TEST_F(SourceTest, NestingOfEntitySourcesIsBounded) {
    // A self-reference stops at 64 open entity sources: host and 63 p.
    const VQHANDLE p = entity("p", "x%p;", 1, 5);
    Source *s = expanding("%p;");
    EXPECT_EQ(readAll(s), std::string(63, 'x') + "%p;");
    deleteSource(s);
    // Sources opened one by one count as well, until they close.
    std::vector<Source *> open;
    for (int i = 0; i < 64; ++i) open.push_back(allocSourceEntity(entity("q", "y"), doc));
    EXPECT_EQ(allocSourceEntity(p, doc), nullptr);
    deleteSource(open.back());
    open.back() = allocSourceEntity(p, doc);
    EXPECT_NE(open.back(), nullptr);
    for (Source *o : open) deleteSource(o);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kEntitiesTooDeep, "5|64|"}, {kEntitiesTooDeep, "5|64|"}}));
    EXPECT_EQ(vqtest::message(kEntitiesTooDeep, "5|64|"), "line 5: entity references nested deeper than 64 levels");
}

TEST_F(SourceTest, EntitySourcesAndMessages) {
    Source *s = allocSourceEntity(entity("i", "a\nb", 1, 7), doc);
    EXPECT_EQ(s->line, 7);
    EXPECT_EQ(s->doctype, doctype);
    EXPECT_EQ(readAll(s), "a\nb");
    EXPECT_EQ(s->line, 8);
    deleteSource(s);

    // External text is never fetched; the source is named by the literal.
    const VQHANDLE ext = entity("x", "ignored");
    const VQHANDLE id = createExternalID(doc);
    const VQHANDLE system = ds(doc, "e.xml");
    toPExternalID(id)->systemId = system;
    vqxml::rec<Entity>(ext)->externalID = id;
    s = allocSourceEntity(ext, doc);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->current, 0);
    EXPECT_STREQ(s->name, "e.xml");
    EXPECT_EQ(s->external, 1);
    deleteSource(s);
    EXPECT_EQ(allocSourceEntity(doctype, doc), nullptr);
    EXPECT_EQ(allocSourceEntity(0x7fff01, doc), nullptr);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kInvalidNodeType, "10|6|"}, {kInvalidHandle, "7fff01|"}}));

    // Arguments are cut to fit the record, in the caller's buffer.
    std::string arg(300, 'a');
    addParseError(12, kExpected, arg.data());
    EXPECT_EQ(std::strlen(arg.c_str()), 251u);
    s = plain("1\xC3");
    addParseErrorDS(s, kUndeclaredEntity, ds(doc, std::string(400, 'b').c_str()));
    EXPECT_EQ(checkNameStart(s), 0);
    getNextCh(s);
    EXPECT_EQ(checkNameStart(s), 1);
    getNextCh(s);
    EXPECT_EQ(checkNameStart(s), 0);
    deleteSource(s);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kExpected, "12|" + std::string(251, 'a') + "|"},
                                          {kUndeclaredEntity, "1|" + std::string(252, 'b') + "|"},
                                          {kNameStartIllegal, "1|0x31|"},
                                          {kNameStartIllegal, "1|0x0|"}}));
}

TEST_F(SourceTest, TraceLabels) {
    entity("p", "P");
    vqtest::TraceCapture trace('2');
    Source *s = expanding("%p;&#65;");
    readAll(s);
    deleteSource(s);
    dbg_free(dsToString(ds(doc, "abc")));
    const std::string t = trace.text();
    for (const char *label :
         {"VQXML malloc - (newString) addr: 0x", "VQXML malloc - (allocSource) addr: 0x",
          "VQXML malloc - (checkEntity) addr: 0x", "VQXML free   - (getNextCh) addr: 0x",
          "VQXML free   - (deleteSource) addr: 0x", "(len: 2)\n", "(len: 4)\n"})
        EXPECT_NE(t.find(label), std::string::npos) << label;

    // Entity values are copied with their NULs ("xy", then "P"); a
    // parameter-entity reference read inside a CDATA section of a fragment
    // has its expansion record freed by the CDATA reader.
    vqtest::TraceCapture parse('2');
    ASSERT_NE(VQXML_parse("<!DOCTYPE a [<!ENTITY e 'xy'>]><a/>"), 0u);
    const VQHANDLE typed = vqtest::parse("<!DOCTYPE a [<!ENTITY % p 'P'>]><a/>");
    std::string text = "<![CDATA[%p;]]>";
    s = allocSource(text.data(), 0, typed);
    s->doctype = VQDOM_getDoctype(typed);
    s->cursor = text.c_str();
    getNextCh(s);
    const VQHANDLE section = parseCDSect(s);
    deleteSource(s);
    ASSERT_NE(section, 0u);
    EXPECT_EQ(vqtest::str(VQDOM_getNodeValue(section)), "P");
    std::string copies;
    int frees = 0;
    for (const std::string &line : parse.lines()) {
        if (line.rfind("VQXML malloc - (allocSourceDS) addr: 0x", 0) == 0) copies += line.substr(line.find(", (len: "));
        frees += line.rfind("VQXML free   - (getNextChCDATA) addr: 0x", 0) == 0;
    }
    EXPECT_EQ(copies, ", (len: 3), (len: 2)");
    EXPECT_EQ(frees, 1);
}

TEST_F(SourceTest, NoLeaksWhenAllocationsFail) {
    entity("p", "xy");
    const int32_t blocks = vqxml::memStats().liveBlocks;
    for (int n = 1; n <= 14; ++n) {
        const VQHANDLE host = entity("h", "a%p;&#66;c");
        vqxml::failAllocAt(n);
        Source *s = allocSourceEntity(host, doc);
        if (s != nullptr) readAll(s);
        deleteSource(s);
        vqxml::failAllocAt(0);
        vqtest::drainErrors();
        EXPECT_EQ(vqxml::memStats().liveBlocks, blocks) << n;
    }
    char *text = newString("abc");  // handed over, so freed on failure
    vqxml::failAllocAt(1);
    EXPECT_EQ(allocSource(text, 1, doc), nullptr);
    vqxml::failAllocAt(0);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{mainCode(kAllocErr), "Source|" + std::to_string(sizeof(Source)) + "|"}}));
    EXPECT_EQ(vqxml::memStats().liveBlocks, blocks);
}

// Every byte in every position of a short entity text, read with
// look-ahead at each step: no crash, no read past the text (sanitizer
// build), no block left behind.
TEST_F(SourceTest, AnyByteInAnyPosition) {
    entity("p", "%q;z");
    entity("q", "&#x51;");
    const std::string base = "'a%p;&#65;\r\nb%q;'";
    const VQHANDLE host = entity("h", nullptr, 0);
    const int32_t blocks = vqxml::memStats().liveBlocks;
    for (size_t pos = 0; pos < base.size(); ++pos) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string text = base;
            text[pos] = static_cast<char>(byte);  // 0 cuts the text short
            const VQHANDLE value = ds(doc, text.c_str());
            vqxml::rec<Entity>(host)->value = value;
            Source *s = allocSourceEntity(host, doc);
            ASSERT_NE(s, nullptr);
            s->awaited = '\'';
            for (int guard = 0; s->current != 0 && guard < 1000; ++guard) {
                for (int n = 2; n <= 6; ++n) getNthCh(s, n);
                getNextCh(s);
            }
            EXPECT_EQ(s->current, 0);
            deleteSource(s);
            VQDOM_deleteDS(value);
            vqtest::drainErrors();
        }
    }
    EXPECT_EQ(vqxml::memStats().liveBlocks, blocks);
}

}  // namespace
