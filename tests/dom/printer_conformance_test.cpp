// printer_conformance_test.cpp - the printers on trees the parser builds:
// the exact bytes of every declaration and construct, the buffer contents a
// short buffer is left with (literals whole or not at all, cut strings behind
// an unmoved cursor, escaped text cut inside an entity, a NUL wherever a
// node's output ended inside its room), the writers called one by one, and
// the pretty-printer's line breaks after each kind of last child.
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/node.h"

namespace {

constexpr char kFill = '\x7f';

VQHANDLE parse(const char *text) {
    const VQHANDLE doc = VQXML_parse(text);
    EXPECT_NE(doc, 0u) << text << ::testing::PrintToString(vqtest::drainErrors());
    return doc;
}
VQHANDLE root(VQHANDLE doc) { return VQDOM_getDocumentElement(doc); }
VQHANDLE firstChild(VQHANDLE h) { return vqxml::node(h)->firstChild; }
VQHANDLE nextSibling(VQHANDLE h) { return vqxml::node(h)->nextSibling; }

// Both printers behind one signature; the compact one takes no indent.
using Printer = int32_t (*)(VQHANDLE, char *, int32_t, int32_t);
int32_t compact(VQHANDLE n, char *buf, int32_t size, int32_t) { return VQXML_printNode(n, buf, size); }
int32_t pretty(VQHANDLE n, char *buf, int32_t size, int32_t indent) {
    return printNodeBeatifyEx(n, &buf, size, indent);
}

// The first `size` bytes of a filled buffer after printing into `size`; the
// result must be `want`, and nothing may land behind the size.
std::string into(VQHANDLE n, int32_t size, int32_t want, Printer p = compact, int32_t indent = 0) {
    std::string buf(static_cast<size_t>(size) + 8, kFill);
    EXPECT_EQ(p(n, buf.data(), size, indent), want) << "size " << size;
    EXPECT_EQ(buf.substr(static_cast<size_t>(size)), std::string(8, kFill)) << "size " << size;
    return buf.substr(0, static_cast<size_t>(size));
}
// The whole text, which must fit a buffer of its length + 1 with its NUL.
std::string whole(VQHANDLE n, Printer p = compact, int32_t indent = 0) {
    const int32_t len = p(n, nullptr, 0, indent);
    std::string out = into(n, len + 1, len, p, indent);
    EXPECT_EQ(out.back(), '\0');
    out.pop_back();
    return out;
}

using Writer = int32_t (*)(VQHANDLE, char **, int32_t);
int32_t prettyAt0(VQHANDLE n, char **cursor, int32_t capacity) { return printNodeBeatifyEx(n, cursor, capacity, 0); }

// One writer into a roomy filled buffer: the text it wrote; its result must
// be that length, the cursor must stop right behind it, and `after` is the
// byte found there (the NUL of a node's end, or the untouched fill).
std::string written(Writer writer, VQHANDLE h, char after = kFill) {
    std::string buf(256, kFill);
    char *cursor = buf.data();
    const int32_t result = writer(h, &cursor, 256);
    const auto len = static_cast<size_t>(cursor - buf.data());
    EXPECT_EQ(result, static_cast<int32_t>(len));
    EXPECT_EQ(buf[len], after) << buf.substr(0, len);
    return buf.substr(0, len);
}

using PrinterConformance = vqtest::LibraryTest;

// ---- parsed documents, byte for byte -----------------------------------------

TEST_F(PrinterConformance, ParsedDocumentWithInternalSubset) {
    const VQHANDLE doc = parse(
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone='yes'?>\n"
        "<!DOCTYPE doc PUBLIC \"-//T//DTD doc//EN\" \"doc.dtd\" [\n"
        "  <!ELEMENT doc (head?, (p | list)+, foot*)> <!ELEMENT head EMPTY> <!ELEMENT any ANY>\n"
        "  <!ELEMENT p (#PCDATA|em|b)*> <!ELEMENT em (#PCDATA)> <!ELEMENT list ((item))>\n"
        "  <!ENTITY ent \"E&amp;F&#65;\"> <!ENTITY quoted 'say \"hi\"'> <!ENTITY % pe \"<!ELEMENT z EMPTY>\"> %pe;\n"
        "  <!ENTITY % ext SYSTEM \"ext.ent\"> <!ENTITY % pub PUBLIC \"-//P\" \"pub.ent\">\n"
        "  <!NOTATION gif SYSTEM \"viewer\"> <!NOTATION jpg PUBLIC \"-//J\">\n"
        "  <!NOTATION png PUBLIC \"-//PNG\" \"png.exe\"> <!ENTITY logo SYSTEM \"logo.gif\" NDATA gif>\n"
        "  <!ATTLIST doc kind (a|b|c) \"b\" id ID #REQUIRED ref IDREF #IMPLIED\n"
        "     refs IDREFS #IMPLIED ent ENTITY #IMPLIED ents ENTITIES #IMPLIED\n"
        "     tok NMTOKEN #FIXED 't1' toks NMTOKENS 'x  y' note CDATA 'a&ent;b&#9;c&lt;'>\n"
        "  <!--subset--> <?dtd-pi data?>\n"
        "]>\n"
        "<!--before-->\n"
        "<doc id='d1' toks='  m   n ' note='x&ent;y&#10;'>\n"
        "<head/><p>text &amp; &lt;more&gt; \"q\" 'a' &#233;<em>e</em>&ent;</p>"
        "<![CDATA[c<&>\r\nd]]><?pi?></doc>\n"
        "<?after  x ?>");
    ASSERT_NE(doc, 0u);
    const std::string expected =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?>\r\n"
        "<!DOCTYPE doc PUBLIC \"-//T//DTD doc//EN\" \"doc.dtd\" [\r\n"
        "<!ELEMENT doc (head?,(p|list)+,foot*)>\r\n<!ELEMENT head EMPTY>\r\n<!ELEMENT any ANY>\r\n"
        // Element leaves of a mixed model keep the undecided separator and
        // print nothing; the #PCDATA leaf prints its name.
        "<!ELEMENT p (#PCDATA||)*>\r\n<!ELEMENT em (#PCDATA)>\r\n<!ELEMENT list ((item))>\r\n"
        // Entity values: the literal as written, unescaped; not the
        // declarations a parameter entity produced.
        "<!ENTITY ent \"E&amp;F&#65;\">\r\n<!ENTITY quoted 'say \"hi\"'>\r\n"
        "<!ENTITY % pe \"<!ELEMENT z EMPTY>\">\r\n%pe;\r\n"
        "<!ENTITY % ext SYSTEM \"ext.ent\">\r\n<!ENTITY % pub PUBLIC \"-//P\" \"pub.ent\">\r\n"
        "<!NOTATION gif SYSTEM \"viewer\">\r\n<!NOTATION jpg PUBLIC \"-//J\">\r\n"
        "<!NOTATION png PUBLIC \"-//PNG\" \"png.exe\">\r\n<!ENTITY logo SYSTEM \"logo.gif\" NDATA gif>\r\n"
        "<!ATTLIST doc kind (a|b|c) \"b\" id ID #REQUIRED ref IDREF #IMPLIED"
        " refs IDREFS #IMPLIED ent ENTITY #IMPLIED ents ENTITIES #IMPLIED"
        " tok NMTOKEN #FIXED\"t1\" toks NMTOKENS \"x  y\" note CDATA \"a&ent;b&#9;c&lt;\">\r\n"
        "<!--subset-->\r\n<?dtd-pi_data?>\r\n"
        "]>\r\n"  // the nameless reference of the external subset is passed over
        "<!--before-->\r\n"
        // Defaults (kind, tok) are not written; values come from the children,
        // unfolded, with the reference kept and LF written as a reference.
        "<doc id=\"d1\" toks=\"  m   n \" note=\"x&ent;y&#10;\">\n"
        "<head/><p>text &amp; &lt;more&gt; &quot;q&quot; &apos;a&apos; \xC3\xA9<em>e</em>&ent;</p>"
        "<![CDATA[c<&>\r\nd]]><?pi_?></doc>\r\n"
        "<?after_x ?>";
    EXPECT_EQ(whole(doc), expected);
    EXPECT_EQ(whole(doc, pretty), expected);  // a document's children are written compactly
    EXPECT_TRUE(vqtest::drainErrors().empty());
    // Records below the declarations (attribute definitions, name lists,
    // content particles) print nothing but still end with a NUL.
    const VQHANDLE attDef = firstChild(getFirstMarkupDecl(VQDOM_getDoctype(doc), 14));
    const VQHANDLE particle = firstChild(getFirstMarkupDecl(VQDOM_getDoctype(doc), 13));
    for (VQHANDLE h : {attDef, firstChild(attDef), particle}) {
        ASSERT_NE(h, 0u);
        EXPECT_EQ(into(h, 3, 0), std::string("\0\x7f\x7f", 3));
    }
    EXPECT_EQ(written(printCpChildren, particle), "(head?,(p|list)+,foot*)");
}

TEST_F(PrinterConformance, PrologFormsOfParsedDocuments) {
    struct {
        const char *in, *out;
    } const cases[] = {
        {"<!DOCTYPE a SYSTEM 'a.dtd'><a/>", "<!DOCTYPE a SYSTEM \"a.dtd\" [\r\n]>\r\n<a/>"},
        {"<!DOCTYPE a><a/>", "<!DOCTYPE a [\r\n]>\r\n<a/>"},
        {"<!DOCTYPE a PUBLIC '-//A' 'a.dtd' [ ]>\n<a/>", "<!DOCTYPE a PUBLIC \"-//A\" \"a.dtd\" [\r\n]>\r\n<a/>"},
        {"<?xml version='1.0'?>\n\n<a>\n</a>\n\n", "<?xml version=\"1.0\"?>\r\n<a>\n</a>"},
        {"<?xml version='1.0' standalone='no' ?><a/>", "<?xml version=\"1.0\" standalone=\"no\"?>\r\n<a/>"},
        {"<!--1--><!--2--><a/><!--3--><?p?>", "<!--1-->\r\n<!--2-->\r\n<a/>\r\n<!--3-->\r\n<?p_?>"},
        // Repeating an attribute moves it to the end of the map.
        {"<a x='1' y='2' x='3'/>", "<a y=\"2\" x=\"3\"/>"},
        // Unresolved references (no DOCTYPE) stay references everywhere.
        {"<a v='1&u;2'>&u;<b/>&#x41;&gt;</a>", "<a v=\"1&u;2\">&u;<b/>A&gt;</a>"},
        // A DTD default set by the document is written; one not set is not.
        {"<!DOCTYPE a [<!ATTLIST a d CDATA 'D' e CDATA 'E'>]><a e='E'/>",
         "<!DOCTYPE a [\r\n<!ATTLIST a d CDATA \"D\" e CDATA \"E\">\r\n]>\r\n<a e=\"E\"/>"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.in);
        const VQHANDLE doc = parse(c.in);
        ASSERT_NE(doc, 0u);
        EXPECT_EQ(whole(doc), c.out);
        VQDOM_deleteNode(doc);
    }
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- the fit rules, byte for byte ----------------------------------------------

// What a buffer of each size holds after printing: '@' stands for a NUL and
// '~' for a byte left untouched.
TEST_F(PrinterConformance, ShortBuffers) {
    struct Case {
        const char *why, *xml;
        char node;  // 'r' the document element, 'd' the document, 't' its document type
        Printer printer;
        int32_t length;
        std::vector<std::pair<int32_t, const char *>> sizes;
    };
    const Case cases[] = {
        {"escaped text is cut inside an entity, with no NUL unless the whole text fitted; "
         "a cut name leaves its NUL behind an unmoved cursor",
         "<a>x&amp;y</a>", 'r', compact, 14,
         {{1, "<"}, {2, "<@"}, {3, "<a>"}, {4, "<a>~"}, {6, "<a>x&~"}, {9, "<a>x&amp~"}, {10, "<a>x&amp;~"},
          {11, "<a>x&amp;y@"}, {12, "<a>x&amp;y</"}, {13, "<a>x&amp;y</@"}, {14, "<a>x&amp;y</a>"},
          {15, "<a>x&amp;y</a>@"}}},
        {"the same inside an attribute value, whose NUL the closing quote overwrites", "<e k='a&lt;b'/>", 'r',
         compact, 15, {{8, "<e k=\"a~"}, {12, "<e k=\"a&lt;~"}, {13, "<e k=\"a&lt;b\""}, {14, "<e k=\"a&lt;b\"/"}}},
        {"every nested node whose output ended inside the room leaves a NUL", "<a><b><c>t</c></b></a>", 'r',
         compact, 22,
         {{11, "<a><b><c>t@"}, {12, "<a><b><c>t</"}, {15, "<a><b><c>t</c>@"}, {16, "<a><b><c>t</c></"},
          {19, "<a><b><c>t</c></b>@"}, {20, "<a><b><c>t</c></b></"}, {21, "<a><b><c>t</c></b></@"}}},
        {"document children are parted by a literal line break, each ending with a NUL", "<!--c--><a/>", 'd',
         compact, 14,
         {{3, "~~~"}, {5, "<!--@"}, {8, "<!--c-->"}, {9, "<!--c-->@"}, {10, "<!--c-->\r\n"}, {11, "<!--c-->\r\n<"},
          {12, "<!--c-->\r\n<@"}, {13, "<!--c-->\r\n<a/"}, {14, "<!--c-->\r\n<a/>"},
          {15, "<!--c-->\r\n<a/>@"}}},
        {"a literal that does not fit writes nothing, and what follows it is beyond the room too",
         "<?xml version='1.0'?><a/>", 'd', compact, 27,
         {{14, "~~~~~~~~~~~~~~"}, {15, "<?xml version=\""}, {16, "<?xml version=\"@"}, {19, "<?xml version=\"1.0\""},
          {21, "<?xml version=\"1.0\"?>"}, {22, "<?xml version=\"1.0\"?>~"}, {23, "<?xml version=\"1.0\"?>\r\n"},
          {28, "<?xml version=\"1.0\"?>\r\n<a/>@"}}},
        {"each declaration of a document type ends with a NUL", "<!DOCTYPE r [<!ELEMENT r EMPTY>]><r/>", 't',
         compact, 37,
         {{34, "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>@"}, {36, "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>@~~"},
          {37, "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>\r\n]>"}}},
        {"pretty: the line break and the blanks are two literals, the nested element ends with a NUL",
         "<a><b/></a>", 'r', pretty, 17,
         {{4, "<a>~"}, {6, "<a>\r\n~"}, {7, "<a>\r\n  "}, {8, "<a>\r\n  <"}, {11, "<a>\r\n  <b/>"},
          {12, "<a>\r\n  <b/>@"}, {13, "<a>\r\n  <b/>\r\n"}, {14, "<a>\r\n  <b/>\r\n~"}, {16, "<a>\r\n  <b/>\r\n</@"},
          {18, "<a>\r\n  <b/>\r\n</a>@"}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.why);
        const VQHANDLE doc = parse(c.xml);
        const VQHANDLE n = c.node == 'd' ? doc : c.node == 't' ? VQDOM_getDoctype(doc) : root(doc);
        ASSERT_NE(n, 0u);
        for (const auto &[size, shown] : c.sizes) {
            std::string want = shown;
            for (char &ch : want) ch = ch == '@' ? '\0' : ch == '~' ? kFill : ch;
            EXPECT_EQ(into(n, size, c.length, c.printer), want);
        }
    }
}

// Quote-escaped value strings of attribute definitions end the whole buffer
// with a NUL, wherever the text stops.
TEST_F(PrinterConformance, ValueStringOfAnAttributeDefinition) {
    const VQHANDLE doc = parse("<!DOCTYPE r [<!ATTLIST r q NMTOKEN 'n'>]><r/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE list = getFirstMarkupDecl(VQDOM_getDoctype(doc), 14);
    vqxml::node(firstChild(list))->nodeValue = VQDOM_createDS(doc, "w\"<");
    const std::string text = "<!ATTLIST r q NMTOKEN \"n\"\"w&quot;<\">";
    const auto len = static_cast<int32_t>(text.size());
    const std::string buf = into(list, 64, len);
    EXPECT_EQ(buf.substr(0, text.size() + 1), text + '\0');
    EXPECT_EQ(buf.substr(text.size() + 1, 62 - text.size()), std::string(62 - text.size(), kFill));
    EXPECT_EQ(buf[63], '\0');
    // Cut inside the value: the copy ends its room with the NUL.
    EXPECT_EQ(into(list, 30, len), std::string("<!ATTLIST r q NMTOKEN \"n\"\"w&q\0", 30));
}

// ---- the writers one by one ----------------------------------------------------

TEST_F(PrinterConformance, WritersCalledDirectly) {
    const VQHANDLE doc = parse(
        "<?xml version='1.0' encoding='UTF-8'?>"
        "<!DOCTYPE r SYSTEM 'r.dtd' [<!ENTITY % p ''>%p;<!NOTATION n PUBLIC 'pn' 'ps'>"
        "<!ELEMENT r (a|b)*><!ATTLIST r k CDATA #IMPLIED>]>"
        "<r k='v&#9;&quot;'><![CDATA[x]]></r>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE dt = VQDOM_getDoctype(doc), entity = firstChild(dt), peRef = nextSibling(entity);
    const VQHANDLE notation = nextSibling(peRef), elementDecl = nextSibling(notation);
    const VQHANDLE attlist = nextSibling(elementDecl), r = root(doc);
    EXPECT_EQ(written(printXmlDecl, vqxml::rec<Document>(doc)->xmlDecl), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    EXPECT_EQ(written(printExternalID, vqxml::rec<DocumentType>(dt)->externalID), "SYSTEM \"r.dtd\"");
    EXPECT_EQ(written(printEntity, entity), "<!ENTITY % p \"\">");
    EXPECT_EQ(written(printEntityRef, peRef), "%p;");
    EXPECT_EQ(written(printNotation, notation), "<!NOTATION n PUBLIC \"pn\" \"ps\">");
    EXPECT_EQ(written(printElementDecl, elementDecl), "<!ELEMENT r (a|b)*>");
    EXPECT_EQ(written(printCpChildren, firstChild(elementDecl)), "(a|b)*");
    EXPECT_EQ(written(printAttlistDecl, attlist), "<!ATTLIST r k CDATA #IMPLIED>");
    // A document type's own end gets no NUL from its writer; a node's own
    // print ends with a NUL the cursor does not pass.
    const std::string dtText = "<!DOCTYPE r SYSTEM \"r.dtd\" [\r\n<!ENTITY % p \"\">\r\n%p;\r\n"
                               "<!NOTATION n PUBLIC \"pn\" \"ps\">\r\n<!ELEMENT r (a|b)*>\r\n"
                               "<!ATTLIST r k CDATA #IMPLIED>\r\n]>";
    EXPECT_EQ(written(printDocumentType, dt), dtText);
    EXPECT_EQ(written(printNodeEx, dt, '\0'), dtText);
    EXPECT_EQ(written(printAttributes, r), " k=\"v&#9;&quot;\"");
    EXPECT_EQ(written(printAttValue, VQDOM_getAttributeNodeStr(r, "k")), "\"v&#9;&quot;\"");
    EXPECT_EQ(written(printCDATASection, firstChild(r)), "<![CDATA[x]]>");
    EXPECT_EQ(written(printNodeEx, r, '\0'), "<r k=\"v&#9;&quot;\"><![CDATA[x]]></r>");
    EXPECT_EQ(written(prettyAt0, r, '\0'), "<r k=\"v&#9;&quot;\"><![CDATA[x]]></r>");
    // The nameless reference that stands for the external subset writes nothing at all.
    const VQHANDLE external = vqxml::node(dt)->lastChild;
    EXPECT_EQ(vqxml::node(external)->nodeType, 5);
    EXPECT_EQ(written(printEntityRef, external), "");
    // A leaf particle is a plain string copy, which leaves its NUL behind.
    EXPECT_EQ(written(printCpChildren, firstChild(firstChild(elementDecl)), '\0'), "a");
    // Literals: whole or nothing, never terminated.
    std::string buf(8, kFill);
    char *cursor = buf.data();
    EXPECT_EQ(printString("abc", &cursor, 2), 3);
    EXPECT_EQ(cursor, buf.data());
    EXPECT_EQ(printString("abc", &cursor, 3), 3);
    EXPECT_EQ(cursor, buf.data() + 3);
    EXPECT_EQ(buf, "abc\x7f\x7f\x7f\x7f\x7f");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- the pretty-printer ----------------------------------------------------------

TEST_F(PrinterConformance, PrettyEndTagsAfterEachKindOfLastChild) {
    // The end tag follows a last child that is not an element directly.
    const VQHANDLE r = root(parse("<r><a>t</a><b><!--c--></b><c><![CDATA[d]]></c><d><?p q?></d><e>&x;</e>"
                                  "<f><g><h/></g>z<i/></f><j/></r>"));
    ASSERT_NE(r, 0u);
    EXPECT_EQ(whole(r, pretty),
              "<r>\r\n  <a>t</a>\r\n  <b><!--c--></b>\r\n  <c><![CDATA[d]]></c>\r\n  <d><?p_q?></d>\r\n"
              "  <e>&x;</e>\r\n  <f>\r\n    <g>\r\n      <h/>\r\n    </g>z\r\n    <i/>\r\n  </f>\r\n  <j/>\r\n</r>");
    // Started deeper, the element opens on a new line and its end tag lines
    // up with its start tag.
    const VQHANDLE f = VQDOM_itemList(VQDOM_getElementsByTagNameStr(r, "f"), 0);
    EXPECT_EQ(whole(f, pretty, 2), "\r\n  <f>\r\n    <g>\r\n      <h/>\r\n    </g>z\r\n    <i/>\r\n  </f>");
    // Whitespace text is text: without stripping, it stays where it falls,
    // and an element after it still opens a new line.
    EXPECT_EQ(whole(root(parse("<a>\n  <b/>\n</a>")), pretty), "<a>\n  \r\n  <b/>\n</a>");
    // Roots other than elements: text escaped, declarations as compact.
    const VQHANDLE t = firstChild(root(parse("<a>1&lt;2</a>")));
    EXPECT_EQ(whole(t, pretty), "1&lt;2");
    EXPECT_EQ(whole(t, pretty, 6), "1&lt;2");
    const VQHANDLE dt = VQDOM_getDoctype(parse("<!DOCTYPE a [<!ENTITY e 'v'>]><a/>"));
    EXPECT_EQ(whole(dt, pretty), "<!DOCTYPE a [\r\n<!ENTITY e \"v\">\r\n]>");
    EXPECT_EQ(whole(firstChild(dt), pretty), "<!ENTITY e \"v\">");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- the escaping copies ---------------------------------------------------------

TEST_F(PrinterConformance, EscapingCopiesOfAnInvalidString) {
    std::string buf(4, kFill);
    char *cursor = buf.data() + 1;
    // The copies that end their buffer store a NUL at the write position for
    // any size but 0; the cursor copies only measure with a negative size.
    EXPECT_EQ(cpyDS_quot(0, &cursor, -1), 0);
    EXPECT_EQ(buf, std::string("\x7f\0\x7f\x7f", 4));
    buf[1] = kFill;
    EXPECT_EQ(VQDOM_cpyDS_ExpandRef2(0, buf.data() + 2, -5), 0);
    EXPECT_EQ(buf, std::string("\x7f\x7f\0\x7f", 4));
    buf[2] = kFill;
    EXPECT_EQ(cpyDS_quot(0, &cursor, 0), 0);
    EXPECT_EQ(printDS_ExpandRef(0, &cursor, -1), 0);
    EXPECT_EQ(printDS_ExpandRefAtt(0, &cursor, -1), 0);
    EXPECT_EQ(VQDOM_cpyDS_ExpandRef(0, buf.data(), -1), 0);
    EXPECT_EQ(buf, std::string(4, kFill));
    EXPECT_EQ(cursor, buf.data() + 1);
}

}  // namespace
