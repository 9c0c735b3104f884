// printer_conformance_test.cpp - the printers on trees the parser builds:
// the exact bytes of every declaration and construct, the buffer contents a
// short buffer is left with (literals whole or not at all, cut strings behind
// an unmoved cursor, escaped text cut inside an entity, a NUL wherever a
// node's output ended inside its room), the writers called one by one, and
// the pretty-printer's line breaks after each kind of last child.
#include <cstring>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/node.h"

namespace {

constexpr char kFill = '\x7f';

class PrinterConformance : public vqtest::LibraryTest {
protected:
    static VQHANDLE parse(const char *text) {
        const VQHANDLE doc = VQXML_parse(text);
        EXPECT_NE(doc, 0u) << text << ::testing::PrintToString(vqtest::drainErrors());
        return doc;
    }
    static VQHANDLE root(VQHANDLE doc) { return VQDOM_getDocumentElement(doc); }
    static VQHANDLE firstChild(VQHANDLE h) { return vqxml::node(h)->firstChild; }
    static VQHANDLE nextSibling(VQHANDLE h) { return vqxml::node(h)->nextSibling; }
    static VQHANDLE doctype(VQHANDLE doc) { return VQDOM_getDoctype(doc); }

    // The whole text, which must fit a buffer of its length + 1 with its NUL.
    static std::string print(VQHANDLE n) {
        const int32_t len = VQXML_printNode(n, nullptr, 0);
        std::string buf(static_cast<size_t>(len) + 1, kFill);
        EXPECT_EQ(VQXML_printNode(n, buf.data(), len + 1), len);
        EXPECT_EQ(buf[static_cast<size_t>(len)], '\0');
        return buf.substr(0, static_cast<size_t>(len));
    }
    // The first `size` bytes of a filled buffer after printing into `size`;
    // nothing may land behind them.
    static std::string printInto(VQHANDLE n, int32_t size, int32_t expectResult) {
        std::string buf(static_cast<size_t>(size) + 8, kFill);
        EXPECT_EQ(VQXML_printNode(n, buf.data(), size), expectResult) << "size " << size;
        EXPECT_EQ(buf.substr(static_cast<size_t>(size)), std::string(8, kFill)) << "size " << size;
        return buf.substr(0, static_cast<size_t>(size));
    }
    static std::string pretty(VQHANDLE n, int32_t indent = 0) {
        char *cursor = nullptr;
        const int32_t len = printNodeBeatifyEx(n, &cursor, 0, indent);
        std::string buf(static_cast<size_t>(len) + 1, kFill);
        cursor = buf.data();
        EXPECT_EQ(printNodeBeatifyEx(n, &cursor, len + 1, indent), len);
        EXPECT_EQ(buf[static_cast<size_t>(len)], '\0');
        return buf.substr(0, static_cast<size_t>(len));
    }
    static std::string prettyInto(VQHANDLE n, int32_t size, int32_t expectResult) {
        std::string buf(static_cast<size_t>(size) + 8, kFill);
        char *cursor = buf.data();
        EXPECT_EQ(printNodeBeatifyEx(n, &cursor, size, 0), expectResult) << "size " << size;
        EXPECT_EQ(buf.substr(static_cast<size_t>(size)), std::string(8, kFill)) << "size " << size;
        return buf.substr(0, static_cast<size_t>(size));
    }
    static std::string filled(const std::string &head, size_t size) {
        return head + std::string(size - head.size(), kFill);
    }
};

using Writer = int32_t (*)(VQHANDLE, char **, int32_t);

int32_t printNodeBeatifyEx0(VQHANDLE node, char **cursor, int32_t capacity) {
    return printNodeBeatifyEx(node, cursor, capacity, 0);
}

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

// ---- parsed documents, byte for byte -----------------------------------------

TEST_F(PrinterConformance, ParsedDocumentWithInternalSubset) {
    const VQHANDLE doc = parse(
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone='yes'?>\n"
        "<!DOCTYPE doc PUBLIC \"-//T//DTD doc//EN\" \"doc.dtd\" [\n"
        "  <!ELEMENT doc (head?, (p | list)+, foot*)>\n"
        "  <!ELEMENT head EMPTY>\n"
        "  <!ELEMENT any ANY>\n"
        "  <!ELEMENT p (#PCDATA|em|b)*>\n"
        "  <!ELEMENT em (#PCDATA)>\n"
        "  <!ELEMENT list ((item))>\n"
        "  <!ENTITY ent \"E&amp;F&#65;\">\n"
        "  <!ENTITY quoted 'say \"hi\"'>\n"
        "  <!ENTITY % pe \"<!ELEMENT z EMPTY>\">\n"
        "  %pe;\n"
        "  <!ENTITY % ext SYSTEM \"ext.ent\">\n"
        "  <!ENTITY % pub PUBLIC \"-//P\" \"pub.ent\">\n"
        "  <!NOTATION gif SYSTEM \"viewer\">\n"
        "  <!NOTATION jpg PUBLIC \"-//J\">\n"
        "  <!NOTATION png PUBLIC \"-//PNG\" \"png.exe\">\n"
        "  <!ENTITY logo SYSTEM \"logo.gif\" NDATA gif>\n"
        "  <!ATTLIST doc kind (a|b|c) \"b\" id ID #REQUIRED ref IDREF #IMPLIED\n"
        "     refs IDREFS #IMPLIED ent ENTITY #IMPLIED ents ENTITIES #IMPLIED\n"
        "     tok NMTOKEN #FIXED 't1' toks NMTOKENS 'x  y' note CDATA 'a&ent;b&#9;c&lt;'>\n"
        "  <!--subset-->\n"
        "  <?dtd-pi data?>\n"
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
        "<!ELEMENT doc (head?,(p|list)+,foot*)>\r\n"
        "<!ELEMENT head EMPTY>\r\n"
        "<!ELEMENT any ANY>\r\n"
        // Element leaves of a mixed model keep the undecided separator and
        // print nothing; the #PCDATA leaf prints its name.
        "<!ELEMENT p (#PCDATA||)*>\r\n"
        "<!ELEMENT em (#PCDATA)>\r\n"
        "<!ELEMENT list ((item))>\r\n"
        // Entity values: the literal as written, unescaped.
        "<!ENTITY ent \"E&amp;F&#65;\">\r\n"
        "<!ENTITY quoted 'say \"hi\"'>\r\n"
        "<!ENTITY % pe \"<!ELEMENT z EMPTY>\">\r\n"
        "%pe;\r\n"  // the declarations it produced are not written
        "<!ENTITY % ext SYSTEM \"ext.ent\">\r\n"
        "<!ENTITY % pub PUBLIC \"-//P\" \"pub.ent\">\r\n"
        "<!NOTATION gif SYSTEM \"viewer\">\r\n"
        "<!NOTATION jpg PUBLIC \"-//J\">\r\n"
        "<!NOTATION png PUBLIC \"-//PNG\" \"png.exe\">\r\n"
        "<!ENTITY logo SYSTEM \"logo.gif\" NDATA gif>\r\n"
        "<!ATTLIST doc kind (a|b|c) \"b\" id ID #REQUIRED ref IDREF #IMPLIED"
        " refs IDREFS #IMPLIED ent ENTITY #IMPLIED ents ENTITIES #IMPLIED"
        " tok NMTOKEN #FIXED\"t1\" toks NMTOKENS \"x  y\" note CDATA \"a&ent;b&#9;c&lt;\">\r\n"
        "<!--subset-->\r\n"
        "<?dtd-pi_data?>\r\n"
        "]>\r\n"  // the nameless reference of the external subset is passed over
        "<!--before-->\r\n"
        // Defaults (kind, tok) are not written; values come from the children,
        // unfolded, with the reference kept and LF written as a reference.
        "<doc id=\"d1\" toks=\"  m   n \" note=\"x&ent;y&#10;\">\n"
        "<head/><p>text &amp; &lt;more&gt; &quot;q&quot; &apos;a&apos; \xC3\xA9<em>e</em>&ent;</p>"
        "<![CDATA[c<&>\r\nd]]><?pi_?></doc>\r\n"
        "<?after_x ?>";
    EXPECT_EQ(print(doc), expected);
    // The pretty-printer writes a document's children compactly.
    EXPECT_EQ(pretty(doc), expected);
    EXPECT_TRUE(vqtest::drainErrors().empty());

    // Records below the declarations (attribute definitions, name lists,
    // content particles) print nothing but still end with a NUL.
    const VQHANDLE attlist = getFirstMarkupDecl(doctype(doc), 14);
    const VQHANDLE attDef = firstChild(attlist);
    const VQHANDLE particle = firstChild(getFirstMarkupDecl(doctype(doc), 13));
    for (VQHANDLE h : {attDef, firstChild(attDef), particle}) {
        ASSERT_NE(h, 0u);
        EXPECT_EQ(printInto(h, 3, 0), std::string("\0\x7f\x7f", 3));
    }
    EXPECT_EQ(written(printCpChildren, particle), "(head?,(p|list)+,foot*)");
}

TEST_F(PrinterConformance, PrologFormsOfParsedDocuments) {
    struct Case {
        const char *in;
        const char *out;
    };
    const Case cases[] = {
        {"<!DOCTYPE a SYSTEM 'a.dtd'><a/>", "<!DOCTYPE a SYSTEM \"a.dtd\" [\r\n]>\r\n<a/>"},
        {"<!DOCTYPE a><a/>", "<!DOCTYPE a [\r\n]>\r\n<a/>"},
        {"<!DOCTYPE a PUBLIC '-//A' 'a.dtd' [ ]>\n<a/>",
         "<!DOCTYPE a PUBLIC \"-//A\" \"a.dtd\" [\r\n]>\r\n<a/>"},
        {"<?xml version='1.0'?>\n\n<a>\n</a>\n\n", "<?xml version=\"1.0\"?>\r\n<a>\n</a>"},
        {"<?xml version='1.0' standalone='no' ?><a/>",
         "<?xml version=\"1.0\" standalone=\"no\"?>\r\n<a/>"},
        {"<!--1--><!--2--><a/><!--3--><?p?>", "<!--1-->\r\n<!--2-->\r\n<a/>\r\n<!--3-->\r\n<?p_?>"},
        // Repeating an attribute moves it to the end of the map.
        {"<a x='1' y='2' x='3'/>", "<a y=\"2\" x=\"3\"/>"},
        // Unresolved references (no DOCTYPE) stay references everywhere.
        {"<a v='1&u;2'>&u;<b/>&#x41;&gt;</a>", "<a v=\"1&u;2\">&u;<b/>A&gt;</a>"},
        // A DTD default set by the document is written; one not set is not.
        {"<!DOCTYPE a [<!ATTLIST a d CDATA 'D' e CDATA 'E'>]><a e='E'/>",
         "<!DOCTYPE a [\r\n<!ATTLIST a d CDATA \"D\" e CDATA \"E\">\r\n]>\r\n<a e=\"E\"/>"},
    };
    for (const Case &c : cases) {
        const VQHANDLE doc = parse(c.in);
        ASSERT_NE(doc, 0u);
        EXPECT_EQ(print(doc), c.out) << c.in;
        VQDOM_deleteNode(doc);
    }
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// ---- the fit rules, byte for byte ----------------------------------------------

// <a>x&amp;y</a> is 14 bytes. The text is escaped straight into the buffer:
// cut inside an entity when the room ends there, with the cursor behind what
// was written and no NUL unless the whole text fitted.
TEST_F(PrinterConformance, ShortBuffersAroundEscapedText) {
    const VQHANDLE doc = parse("<a>x&amp;y</a>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE a = root(doc);
    struct Case {
        int32_t size;
        std::string bytes;
    };
    const Case cases[] = {
        {1, "<"},
        {2, std::string("<\0", 2)},  // the name cut to its NUL, cursor unmoved
        {3, "<a>"},
        {4, "<a>\x7f"},  // one byte of room: the text writes nothing, not even a NUL
        {6, "<a>x&\x7f"},
        {9, "<a>x&amp\x7f"},
        {10, "<a>x&amp;\x7f"},
        {11, std::string("<a>x&amp;y\0", 11)},  // the text node's own NUL
        {12, "<a>x&amp;y</"},
        {13, std::string("<a>x&amp;y</\0", 13)},
        {14, "<a>x&amp;y</a>"},
        {15, std::string("<a>x&amp;y</a>\0", 15)},
    };
    for (const Case &c : cases) EXPECT_EQ(printInto(a, c.size, 14), c.bytes) << c.size;

    // The same inside an attribute value: <e k="a&lt;b"/> is 15 bytes.
    const VQHANDLE e = root(parse("<e k='a&lt;b'/>"));
    EXPECT_EQ(printInto(e, 8, 15), "<e k=\"a\x7f");
    EXPECT_EQ(printInto(e, 12, 15), "<e k=\"a&lt;\x7f");
    EXPECT_EQ(printInto(e, 13, 15), "<e k=\"a&lt;b\"");  // the value's NUL overwritten
    EXPECT_EQ(printInto(e, 14, 15), "<e k=\"a&lt;b\"/");
}

// Every nested node whose output ended inside the room leaves a NUL there,
// which the next piece overwrites if it fits: <a><b><c>t</c></b></a> is 22.
TEST_F(PrinterConformance, NulAtTheEndOfEveryNestedNode) {
    const VQHANDLE a = root(parse("<a><b><c>t</c></b></a>"));
    ASSERT_NE(a, 0u);
    EXPECT_EQ(printInto(a, 11, 22), std::string("<a><b><c>t\0", 11));
    EXPECT_EQ(printInto(a, 12, 22), "<a><b><c>t</");
    EXPECT_EQ(printInto(a, 15, 22), std::string("<a><b><c>t</c>\0", 15));
    EXPECT_EQ(printInto(a, 16, 22), "<a><b><c>t</c></");
    EXPECT_EQ(printInto(a, 19, 22), std::string("<a><b><c>t</c></b>\0", 19));
    EXPECT_EQ(printInto(a, 20, 22), "<a><b><c>t</c></b></");
    EXPECT_EQ(printInto(a, 21, 22), std::string("<a><b><c>t</c></b></\0", 21));
}

// Document children are separated by a literal line break, and every child
// ends with a NUL when its output ended inside the room.
TEST_F(PrinterConformance, ShortBuffersAroundDocumentChildren) {
    const VQHANDLE doc = parse("<!--c--><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(print(doc), "<!--c-->\r\n<a/>");
    EXPECT_EQ(printInto(doc, 3, 14), "\x7f\x7f\x7f");
    EXPECT_EQ(printInto(doc, 5, 14), std::string("<!--\0", 5));
    EXPECT_EQ(printInto(doc, 8, 14), "<!--c-->");
    EXPECT_EQ(printInto(doc, 9, 14), std::string("<!--c-->\0", 9));
    EXPECT_EQ(printInto(doc, 10, 14), "<!--c-->\r\n");
    EXPECT_EQ(printInto(doc, 11, 14), "<!--c-->\r\n<");
    EXPECT_EQ(printInto(doc, 12, 14), std::string("<!--c-->\r\n<\0", 12));
    EXPECT_EQ(printInto(doc, 13, 14), "<!--c-->\r\n<a/");
    EXPECT_EQ(printInto(doc, 14, 14), "<!--c-->\r\n<a/>");

    // A literal that does not fit writes nothing, whatever follows: with
    // fewer than 15 bytes the declaration's opening is skipped, and all
    // that comes after it is beyond the room as well.
    const VQHANDLE decl = parse("<?xml version='1.0'?><a/>");
    ASSERT_NE(decl, 0u);
    EXPECT_EQ(print(decl), "<?xml version=\"1.0\"?>\r\n<a/>");
    EXPECT_EQ(printInto(decl, 14, 27), std::string(14, kFill));
    EXPECT_EQ(printInto(decl, 15, 27), "<?xml version=\"");
    EXPECT_EQ(printInto(decl, 16, 27), std::string("<?xml version=\"\0", 16));
    EXPECT_EQ(printInto(decl, 19, 27), "<?xml version=\"1.0\"");
    EXPECT_EQ(printInto(decl, 21, 27), "<?xml version=\"1.0\"?>");
    EXPECT_EQ(printInto(decl, 22, 27), "<?xml version=\"1.0\"?>\x7f");  // no NUL: not a node's end
    EXPECT_EQ(printInto(decl, 23, 27), "<?xml version=\"1.0\"?>\r\n");

    // A document type's own end gets no NUL when printed by its writer,
    // while each declaration inside it ends with one.
    const VQHANDLE dt = doctype(parse("<!DOCTYPE r [<!ELEMENT r EMPTY>]><r/>"));
    ASSERT_NE(dt, 0u);
    EXPECT_EQ(written(printDocumentType, dt), "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>\r\n]>");
    EXPECT_EQ(written(printNodeEx, dt, '\0'), "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>\r\n]>");
    EXPECT_EQ(printInto(dt, 34, 37), std::string("<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>\0", 34));
    EXPECT_EQ(printInto(dt, 36, 37), std::string("<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>\0\x7f\x7f", 36));
    EXPECT_EQ(printInto(dt, 37, 37), "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>\r\n]>");
}

// Quote-escaped value strings of attribute definitions end the whole buffer
// with a NUL, wherever the text stops.
TEST_F(PrinterConformance, ValueStringOfAnAttributeDefinition) {
    const VQHANDLE doc = parse("<!DOCTYPE r [<!ATTLIST r q NMTOKEN 'n'>]><r/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE list = getFirstMarkupDecl(doctype(doc), 14);
    const VQHANDLE value = VQDOM_createDS(doc, "w\"<");
    vqxml::node(firstChild(list))->nodeValue = value;
    const std::string text = "<!ATTLIST r q NMTOKEN \"n\"\"w&quot;<\">";
    std::string buf(64, kFill);
    EXPECT_EQ(VQXML_printNode(list, buf.data(), 64), static_cast<int32_t>(text.size()));
    EXPECT_EQ(buf.substr(0, text.size() + 1), text + '\0');
    EXPECT_EQ(buf.substr(text.size() + 1, 63 - text.size() - 1),
              std::string(63 - text.size() - 1, kFill));
    EXPECT_EQ(buf[63], '\0');
    // Cut inside the value: the copy ends its room with the NUL.
    EXPECT_EQ(printInto(list, 30, static_cast<int32_t>(text.size())),
              std::string("<!ATTLIST r q NMTOKEN \"n\"\"w&q\0", 30));
}

// ---- the writers one by one ----------------------------------------------------

TEST_F(PrinterConformance, WritersCalledDirectly) {
    const VQHANDLE doc = parse(
        "<?xml version='1.0' encoding='UTF-8'?>"
        "<!DOCTYPE r SYSTEM 'r.dtd' [<!ENTITY % p ''>%p;<!NOTATION n PUBLIC 'pn' 'ps'>"
        "<!ELEMENT r (a|b)*><!ATTLIST r k CDATA #IMPLIED>]>"
        "<r k='v&#9;&quot;'><![CDATA[x]]></r>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE dt = doctype(doc);
    const VQHANDLE entity = firstChild(dt);
    const VQHANDLE peRef = nextSibling(entity);
    const VQHANDLE notation = nextSibling(peRef);
    const VQHANDLE elementDecl = nextSibling(notation);
    const VQHANDLE attlist = nextSibling(elementDecl);
    const VQHANDLE r = root(doc);
    const VQHANDLE k = VQDOM_getAttributeNodeStr(r, "k");

    EXPECT_EQ(written(printXmlDecl, vqxml::rec<Document>(doc)->xmlDecl),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    EXPECT_EQ(written(printExternalID, vqxml::rec<DocumentType>(dt)->externalID),
              "SYSTEM \"r.dtd\"");
    EXPECT_EQ(written(printEntity, entity), "<!ENTITY % p \"\">");
    EXPECT_EQ(written(printEntityRef, peRef), "%p;");
    EXPECT_EQ(written(printNotation, notation), "<!NOTATION n PUBLIC \"pn\" \"ps\">");
    EXPECT_EQ(written(printElementDecl, elementDecl), "<!ELEMENT r (a|b)*>");
    EXPECT_EQ(written(printCpChildren, firstChild(elementDecl)), "(a|b)*");
    EXPECT_EQ(written(printAttlistDecl, attlist), "<!ATTLIST r k CDATA #IMPLIED>");
    EXPECT_EQ(written(printDocumentType, dt),
              "<!DOCTYPE r SYSTEM \"r.dtd\" [\r\n<!ENTITY % p \"\">\r\n%p;\r\n"
              "<!NOTATION n PUBLIC \"pn\" \"ps\">\r\n<!ELEMENT r (a|b)*>\r\n"
              "<!ATTLIST r k CDATA #IMPLIED>\r\n]>");
    EXPECT_EQ(written(printAttributes, r), " k=\"v&#9;&quot;\"");
    EXPECT_EQ(written(printAttValue, k), "\"v&#9;&quot;\"");
    EXPECT_EQ(written(printCDATASection, firstChild(r)), "<![CDATA[x]]>");
    // A node's own print ends with a NUL the cursor does not pass.
    EXPECT_EQ(written(printNodeEx, r, '\0'), "<r k=\"v&#9;&quot;\"><![CDATA[x]]></r>");
    EXPECT_EQ(written(printNodeBeatifyEx0, r, '\0'), "<r k=\"v&#9;&quot;\"><![CDATA[x]]></r>");

    // The nameless reference that stands for the external subset writes
    // nothing at all.
    const VQHANDLE external = vqxml::node(dt)->lastChild;
    EXPECT_EQ(vqxml::node(external)->nodeType, 5);
    EXPECT_EQ(written(printEntityRef, external), "");

    // A leaf particle is a plain string copy, which leaves its NUL behind.
    const VQHANDLE leaf = firstChild(firstChild(elementDecl));
    EXPECT_EQ(written(printCpChildren, leaf, '\0'), "a");

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
    struct Case {
        const char *tail;     // the last child as parsed
        const char *written;  // as printed
    };
    const Case cases[] = {
        {"tail &lt;", "tail &lt;"},
        {"<!--c-->", "<!--c-->"},
        {"<![CDATA[d]]>", "<![CDATA[d]]>"},
        {"<?p q?>", "<?p_q?>"},
        {"&x;", "&x;"},
    };
    for (const Case &c : cases) {
        const std::string in = std::string("<r><a/>") + c.tail + "</r>";
        const VQHANDLE doc = parse(in.c_str());
        ASSERT_NE(doc, 0u);
        EXPECT_EQ(pretty(root(doc)), std::string("<r>\r\n  <a/>") + c.written + "</r>") << in;
        VQDOM_deleteNode(doc);
    }

    const VQHANDLE doc = parse(
        "<r><a>t</a><b><!--c--></b><c><![CDATA[d]]></c><d><?p q?></d><e>&x;</e>"
        "<f><g><h/></g>z<i/></f><j/></r>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(pretty(root(doc)),
              "<r>\r\n"
              "  <a>t</a>\r\n"
              "  <b><!--c--></b>\r\n"
              "  <c><![CDATA[d]]></c>\r\n"
              "  <d><?p_q?></d>\r\n"
              "  <e>&x;</e>\r\n"
              "  <f>\r\n"
              "    <g>\r\n"
              "      <h/>\r\n"
              "    </g>z\r\n"
              "    <i/>\r\n"
              "  </f>\r\n"
              "  <j/>\r\n"
              "</r>");
    // Started deeper, the element opens on a new line and its end tag lines
    // up with its start tag.
    const VQHANDLE f = nextSibling(nextSibling(nextSibling(nextSibling(nextSibling(firstChild(root(doc)))))));
    EXPECT_EQ(pretty(f, 2),
              "\r\n  <f>\r\n    <g>\r\n      <h/>\r\n    </g>z\r\n    <i/>\r\n  </f>");

    // Whitespace text is text: without stripping, it stays where it falls,
    // and an element after it still opens a new line.
    const VQHANDLE spaced = parse("<a>\n  <b/>\n</a>");
    ASSERT_NE(spaced, 0u);
    EXPECT_EQ(pretty(root(spaced)), "<a>\n  \r\n  <b/>\n</a>");

    // Roots other than elements: text escaped, declarations as compact.
    const VQHANDLE t = firstChild(root(parse("<a>1&lt;2</a>")));
    EXPECT_EQ(pretty(t), "1&lt;2");
    EXPECT_EQ(pretty(t, 6), "1&lt;2");
    const VQHANDLE dt = doctype(parse("<!DOCTYPE a [<!ENTITY e 'v'>]><a/>"));
    EXPECT_EQ(pretty(dt), "<!DOCTYPE a [\r\n<!ENTITY e \"v\">\r\n]>");
    EXPECT_EQ(pretty(firstChild(dt)), "<!ENTITY e \"v\">");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// <a>\r\n  <b/>\r\n</a> is 17 bytes: the line break and the blanks are two
// literals, and the nested element ends with its own NUL.
TEST_F(PrinterConformance, PrettyShortBuffers) {
    const VQHANDLE a = root(parse("<a><b/></a>"));
    ASSERT_NE(a, 0u);
    EXPECT_EQ(pretty(a), "<a>\r\n  <b/>\r\n</a>");
    EXPECT_EQ(prettyInto(a, 4, 17), "<a>\x7f");
    EXPECT_EQ(prettyInto(a, 6, 17), "<a>\r\n\x7f");
    EXPECT_EQ(prettyInto(a, 7, 17), "<a>\r\n  ");
    EXPECT_EQ(prettyInto(a, 8, 17), "<a>\r\n  <");
    EXPECT_EQ(prettyInto(a, 11, 17), "<a>\r\n  <b/>");
    EXPECT_EQ(prettyInto(a, 12, 17), std::string("<a>\r\n  <b/>\0", 12));
    EXPECT_EQ(prettyInto(a, 13, 17), "<a>\r\n  <b/>\r\n");
    EXPECT_EQ(prettyInto(a, 14, 17), "<a>\r\n  <b/>\r\n\x7f");
    EXPECT_EQ(prettyInto(a, 16, 17), std::string("<a>\r\n  <b/>\r\n</\0", 16));
    EXPECT_EQ(prettyInto(a, 18, 17), std::string("<a>\r\n  <b/>\r\n</a>\0", 18));
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
