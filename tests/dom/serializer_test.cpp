// serializer_test.cpp - compact printing, of trees built through the DOM
// (including declarations the parser never makes) and of parsed documents:
// the bytes of every node kind and declaration, the buffer a short buffer is
// left with (literals whole or not at all, cut strings behind an unmoved
// cursor, escaped text cut inside an entity, a NUL wherever a node's output
// ended inside its room), the writers called one by one, and odd handles.
#include <string>
#include <utility>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/node.h"

namespace {

using namespace vqxml::codes;

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::parse;

constexpr char kFill = '\x7f';

VQHANDLE firstChild(VQHANDLE h) { return vqxml::node(h)->firstChild; }
VQHANDLE nextSibling(VQHANDLE h) { return vqxml::node(h)->nextSibling; }

// The first `size` bytes of a filled buffer after printing into `size`; the
// result must be `want`, and nothing may land behind the size.
std::string into(VQHANDLE n, int32_t size, int32_t want) {
    std::string buf(static_cast<size_t>(size) + 8, kFill);
    EXPECT_EQ(VQXML_printNode(n, buf.data(), size), want) << "size " << size;
    EXPECT_EQ(buf.substr(static_cast<size_t>(size)), std::string(8, kFill)) << "size " << size;
    return buf.substr(0, static_cast<size_t>(size));
}
// The whole text, which must fit a buffer of its length + 1 with its NUL.
std::string print(VQHANDLE n) {
    const int32_t len = VQXML_printNode(n, nullptr, 0);
    std::string out = into(n, len + 1, len);
    EXPECT_EQ(out.back(), '\0');
    out.pop_back();
    return out;
}

// One writer into a roomy filled buffer: the text it wrote; its result must
// be that length, the cursor must stop right behind it, and `after` is the
// byte found there (the NUL of a node's end, or the untouched fill).
using Writer = int32_t (*)(VQHANDLE, char **, int32_t);
std::string written(Writer writer, VQHANDLE h, char after = kFill) {
    std::string buf(256, kFill);
    char *cursor = buf.data();
    const int32_t result = writer(h, &cursor, 256);
    const auto len = static_cast<size_t>(cursor - buf.data());
    EXPECT_EQ(result, static_cast<int32_t>(len));
    EXPECT_EQ(buf[len], after) << buf.substr(0, len);
    return buf.substr(0, len);
}

// Builds trees in one document with the DOM functions; declaration fields
// that only the DTD parser sets are written straight into the records.
class Serializer : public vqtest::DocumentTest {
protected:
    void attr(VQHANDLE e, const char *name, const char *value) const { VQDOM_setAttribute(e, s(name), s(value)); }

    // Strings are made before a record is resolved: making one may move
    // the area.
    VQHANDLE sOr0(const char *text) const { return text ? s(text) : 0; }
    VQHANDLE entity(const char *name, const char *value, uint32_t kind = 0) const {
        const VQHANDLE e = allocNode(doc, VQXML_ENTITY_NODE, s(name)), v = sOr0(value);
        vqxml::rec<Entity>(e)->value = v;
        vqxml::rec<Entity>(e)->kind = kind;
        return e;
    }
    VQHANDLE elementDecl(const char *name, uint16_t content) const {
        const VQHANDLE d = createElementDecl(doc, s(name));
        vqxml::rec<ElementDecl>(d)->contentType = content;
        return d;
    }
    // A content particle: separator 0 with a name is a leaf.
    VQHANDLE cp(uint8_t separator, char occurrence = 0, const char *name = nullptr) const {
        const VQHANDLE p = createCpChildren(doc), n = sOr0(name);
        auto *r = vqxml::rec<CpChildren>(p);
        r->separator = separator;
        r->occurrence = static_cast<uint8_t>(occurrence);
        r->node.nodeName = n;
        return p;
    }
    VQHANDLE attDef(const char *name, uint16_t type, uint16_t kind, const char *deflt = nullptr) const {
        const VQHANDLE d = createAttDef(doc, s(name));
        vqxml::rec<AttDef>(d)->attType = type;
        vqxml::rec<AttDef>(d)->defaultKind = kind;
        if (deflt != nullptr) {
            const VQHANDLE a = VQDOM_createAttribute(doc, s(name));
            VQDOM_setNodeValue(a, s(deflt));
            EXPECT_EQ(VQDOM_setNamedItem(vqxml::node(d)->attributes, a), 0u);
        }
        return d;
    }
};

TEST_F(Serializer, ElementsTextCharacterDataAndReferences) {
    // Text escapes five characters; attribute values also tab, LF and CR.
    const VQHANDLE e = el("e");
    attr(e, "t", "a\tb\nc\rd<&\"'>");
    attr(e, "u", "");
    add(e, text("1\t<&\"'>\n"));
    add(e, el("k"));
    EXPECT_EQ(print(e),
              "<e t=\"a&#9;b&#10;c&#13;d&lt;&amp;&quot;&apos;&gt;\" u=\"\">"
              "1\t&lt;&amp;&quot;&apos;&gt;\n<k/></e>");

    // A raw text node is markup already and is copied unchanged.
    const VQHANDLE r = el("r");
    VQDOM_setRawXml(add(r, text("<b>&amp;</b>")));
    add(r, text("<"));
    EXPECT_EQ(print(r), "<r><b>&amp;</b>&lt;</r>");

    // Comments and processing instructions are not escaped.
    const VQHANDLE p = el("p");
    add(p, VQDOM_createComment(doc, s("a<&b")));
    add(p, VQDOM_createProcessingInstruction(doc, s("t"), s("d e")));
    add(p, VQDOM_createProcessingInstruction(doc, s("t"), s("")));
    add(p, ref("amp"));
    EXPECT_EQ(print(p), "<p><!--a<&b--><?t_d e?><?t_?>&amp;</p>");

    // "]]>" splits the section between its brackets; bytes that are no XML
    // characters become '?', bytes from 0x80 pass.
    auto cdata = [&](const char *data) { return print(VQDOM_createCDATASection(doc, s(data))); };
    EXPECT_EQ(cdata("a]]>b"), "<![CDATA[a]]]><![CDATA[]>b]]>");
    EXPECT_EQ(cdata("]]]>"), "<![CDATA[]]]]><![CDATA[]>]]>");
    EXPECT_EQ(cdata("x\x01y\x1f\t\xc3\xa9]]"), "<![CDATA[x?y?\t\xc3\xa9]]]]>");

    // Unlinked references, fragments and attributes.
    EXPECT_EQ(print(ref("free")), "&free;");
    EXPECT_EQ(print(allocNode(doc, VQXML_ENTITY_REFERENCE_NODE, 0)), "");
    char buf[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(VQXML_printNode(VQDOM_createDocumentFragment(doc), buf, 4), 0);
    EXPECT_EQ(buf[0], '\0');  // nothing written, but terminated
    EXPECT_EQ(print(VQDOM_createAttribute(doc, s("a"))), "");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(Serializer, DeclarationsAndContentModels) {
    // An entity value holding both quotation marks is delimited by the
    // byte 0.
    EXPECT_EQ(print(entity("q", "\"'")), std::string("<!ENTITY q \0\"'\0>", 16));

    EXPECT_EQ(print(elementDecl("c", 0)), "<!ELEMENT c >");
    const VQHANDLE d = elementDecl("d", 4);
    const VQHANDLE seq = add(d, cp(',', '+'));
    add(seq, cp(0, 0, "x"));
    const VQHANDLE choice = add(seq, cp('|', '*'));
    add(choice, cp(0, 0, "y"));
    add(choice, cp(0, '?', "z"));
    add(seq, cp('|', '?'));  // an empty group
    EXPECT_EQ(print(d), "<!ELEMENT d (x,(y|z?)*,()?)+>");
    // Mixed content as the parser leaves it: element leaves keep the
    // undecided separator 255 and print nothing but their occurrence.
    const VQHANDLE m = elementDecl("m", 3);
    const VQHANDLE mixed = add(m, cp('|', '*'));
    add(mixed, cp(0, 0, "#PCDATA"));
    add(mixed, cp(255, 0, "b"));
    add(mixed, cp(255, '+', "c"));
    EXPECT_EQ(print(m), "<!ELEMENT m (#PCDATA||+)*>");

    // Attribute types and default kinds; type 2 has no name.
    const VQHANDLE list = createAttlistDecl(doc, s("e"));
    const VQHANDLE color = add(list, attDef("c", 1, 0, "red"));
    add(color, createNameList(doc, s("red")));
    add(color, createNameList(doc, s("green")));
    add(list, attDef("i", 4, 3));
    add(list, attDef("r", 3, 2));
    add(list, attDef("f", 3, 1, "v"));
    add(list, attDef("t", 2, 0, "x"));
    EXPECT_EQ(print(list),
              "<!ATTLIST e c (red|green) \"red\" i ID #IMPLIED r CDATA #REQUIRED f CDATA #FIXED\"v\" t  \"x\">");
    EXPECT_EQ(print(createAttlistDecl(doc, s("none"))), "<!ATTLIST none>");
}

TEST_F(Serializer, ParsedDocumentWithInternalSubset) {
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
    EXPECT_EQ(print(doc), expected);
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

TEST_F(Serializer, PrologFormsOfParsedDocuments) {
    struct {
        const char *in, *out;
    } const cases[] = {
        {"<!DOCTYPE a SYSTEM 'a.dtd'><a/>", "<!DOCTYPE a SYSTEM \"a.dtd\" [\r\n]>\r\n<a/>"},
        {"<!DOCTYPE a><a/>", "<!DOCTYPE a [\r\n]>\r\n<a/>"},
        {"<!DOCTYPE a PUBLIC '-//A' 'a.dtd' [ ]>\n<a/>", "<!DOCTYPE a PUBLIC \"-//A\" \"a.dtd\" [\r\n]>\r\n<a/>"},
        {"<?xml version='1.0'?>\n\n<a>\n</a>\n\n", "<?xml version=\"1.0\"?>\r\n<a>\n</a>"},
        {"<?xml version='1.0' standalone='no' ?><a/>", "<?xml version=\"1.0\" standalone=\"no\"?>\r\n<a/>"},
        {"<!--1--><!--2--><a/><!--3--><?p?>", "<!--1-->\r\n<!--2-->\r\n<a/>\r\n<!--3-->\r\n<?p_?>"},
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
        EXPECT_EQ(print(doc), c.out);
        VQDOM_deleteNode(doc);
    }
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// What a buffer of each size holds after printing: '@' stands for a NUL and
// '~' for a byte left untouched.
TEST_F(Serializer, ShortBuffers) {
    struct Case {
        const char *why, *xml;
        char node;  // 'r' the document element, 'd' the document, 't' its document type
        int32_t length;
        std::vector<std::pair<int32_t, const char *>> sizes;
    };
    const Case cases[] = {
        {"escaped text is cut inside an entity, with no NUL unless the whole text fitted; "
         "a cut name leaves its NUL behind an unmoved cursor",
         "<a>x&amp;y</a>", 'r', 14,
         {{1, "<"}, {2, "<@"}, {3, "<a>"}, {4, "<a>~"}, {6, "<a>x&~"}, {9, "<a>x&amp~"}, {10, "<a>x&amp;~"},
          {11, "<a>x&amp;y@"}, {12, "<a>x&amp;y</"}, {13, "<a>x&amp;y</@"}, {14, "<a>x&amp;y</a>"},
          {15, "<a>x&amp;y</a>@"}}},
        {"the same inside an attribute value, whose NUL the closing quote overwrites", "<e k='a&lt;b'/>", 'r',
         15, {{8, "<e k=\"a~"}, {12, "<e k=\"a&lt;~"}, {13, "<e k=\"a&lt;b\""}, {14, "<e k=\"a&lt;b\"/"}}},
        {"a value with nothing to escape is cut like any other: no NUL unless it fits, its quotes only "
         "where there is room", "<e k='ab'/>", 'r', 11,
         {{7, "<e k=\"~"}, {8, "<e k=\"a~"}, {9, "<e k=\"ab\""}, {10, "<e k=\"ab\"/"}, {12, "<e k=\"ab\"/>@"}}},
        {"every nested node whose output ended inside the room leaves a NUL", "<a><b><c>t</c></b></a>", 'r',
         22,
         {{11, "<a><b><c>t@"}, {12, "<a><b><c>t</"}, {15, "<a><b><c>t</c>@"}, {16, "<a><b><c>t</c></"},
          {19, "<a><b><c>t</c></b>@"}, {20, "<a><b><c>t</c></b></"}, {21, "<a><b><c>t</c></b></@"}}},
        {"document children are parted by a literal line break, each ending with a NUL", "<!--c--><a/>", 'd',
         14,
         {{3, "~~~"}, {5, "<!--@"}, {8, "<!--c-->"}, {9, "<!--c-->@"}, {10, "<!--c-->\r\n"}, {11, "<!--c-->\r\n<"},
          {12, "<!--c-->\r\n<@"}, {13, "<!--c-->\r\n<a/"}, {14, "<!--c-->\r\n<a/>"},
          {15, "<!--c-->\r\n<a/>@"}}},
        {"a literal that does not fit writes nothing, and what follows it is beyond the room too",
         "<?xml version='1.0'?><a/>", 'd', 27,
         {{14, "~~~~~~~~~~~~~~"}, {15, "<?xml version=\""}, {16, "<?xml version=\"@"}, {19, "<?xml version=\"1.0\""},
          {21, "<?xml version=\"1.0\"?>"}, {22, "<?xml version=\"1.0\"?>~"}, {23, "<?xml version=\"1.0\"?>\r\n"},
          {28, "<?xml version=\"1.0\"?>\r\n<a/>@"}}},
        {"each declaration of a document type ends with a NUL", "<!DOCTYPE r [<!ELEMENT r EMPTY>]><r/>", 't',
         37,
         {{34, "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>@"}, {36, "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>@~~"},
          {37, "<!DOCTYPE r [\r\n<!ELEMENT r EMPTY>\r\n]>"}}},
        {"a comment's text is cut behind an unmoved cursor", "<a><!--hello--></a>", 'r', 19,
         {{10, "<a><!--he@"}, {13, "<a><!--hello@"}, {16, "<a><!--hello-->@"}, {17, "<a><!--hello--></"},
          {18, "<a><!--hello--></@"}, {19, "<a><!--hello--></a>"}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.why);
        const VQHANDLE doc = parse(c.xml);
        const VQHANDLE n = c.node == 'd' ? doc : c.node == 't' ? VQDOM_getDoctype(doc) : VQDOM_getDocumentElement(doc);
        ASSERT_NE(n, 0u);
        for (const auto &[size, shown] : c.sizes) {
            std::string want = shown;
            for (char &ch : want) ch = ch == '@' ? '\0' : ch == '~' ? kFill : ch;
            EXPECT_EQ(into(n, size, c.length), want);
        }
    }
    // An empty DS piece still copies its NUL while there is room.
    const VQHANDLE pi = VQDOM_createProcessingInstruction(doc, s("t"), s(""));
    EXPECT_EQ(into(pi, 4, 6), "<?t_");
    EXPECT_EQ(into(pi, 5, 6), std::string("<?t_\0", 5));
    // No room at all: nothing written, the full length still reported.
    char guard[2] = {'g', 'g'};
    EXPECT_EQ(VQXML_printNode(pi, guard, 0), 6);
    EXPECT_EQ(VQXML_printNode(pi, guard, -7), 6);
    EXPECT_EQ(std::string(guard, 2), "gg");
}

// Quote-escaped value strings of attribute definitions end the whole buffer
// with a NUL, wherever the text stops.
TEST_F(Serializer, ValueStringOfAnAttributeDefinition) {
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

// The prolog of a document built through the DOM: a declaration alone ends
// without a line break; entities of either kind, a reference to one and a
// notation without identifiers in the document type.
TEST_F(Serializer, BuiltProlog) {
    const VQHANDLE decl = createXmlDecl(doc), version = s("1.0"), sa = s("no");
    vqxml::rec<XmlDecl>(decl)->version = version;
    vqxml::rec<XmlDecl>(decl)->standalone = sa;
    vqxml::rec<Document>(doc)->xmlDecl = decl;
    EXPECT_EQ(print(doc), "<?xml version=\"1.0\" standalone=\"no\"?>");
    const VQHANDLE dt = add(doc, createDocumentType(doc, s("r")));
    for (VQHANDLE n : {entity("e", "x&y"), entity("p", "", 1), ref("p"), allocNode(doc, VQXML_NOTATION_NODE, s("n"))})
        add(dt, n);
    add(doc, VQDOM_createComment(doc, s(" top ")));
    add(doc, el("r"));
    EXPECT_EQ(print(doc), "<?xml version=\"1.0\" standalone=\"no\"?>\r\n<!DOCTYPE r [\r\n<!ENTITY e \"x&y\">\r\n"
                          "<!ENTITY % p \"\">\r\n%p;\r\n<!NOTATION n >\r\n]>\r\n<!-- top -->\r\n<r/>");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(Serializer, WritersCalledDirectly) {
    const VQHANDLE doc = parse(
        "<?xml version='1.0' encoding='UTF-8'?>"
        "<!DOCTYPE r SYSTEM 'r.dtd' [<!ENTITY % p ''>%p;<!NOTATION n PUBLIC 'pn' 'ps'>"
        "<!ELEMENT r (a|b)*><!ATTLIST r k CDATA #IMPLIED>]>"
        "<r k='v&#9;&quot;'><![CDATA[x]]></r>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE dt = VQDOM_getDoctype(doc), entity = firstChild(dt), peRef = nextSibling(entity);
    const VQHANDLE notation = nextSibling(peRef), elementDecl = nextSibling(notation);
    const VQHANDLE attlist = nextSibling(elementDecl), r = VQDOM_getDocumentElement(doc);
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

TEST_F(Serializer, InvalidHandlesEndTheWalk) {
    char buf[64];
    EXPECT_EQ(VQXML_printNode(0, buf, sizeof buf), 0);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(VQXML_printNode(0x12345, buf, sizeof buf), 0);
    EXPECT_EQ(drainErrors(), (std::vector<Err>{{kInvalidHandle, "12345|"}}));

    // A DS handle is no node: nothing written, nothing read out of bounds.
    buf[0] = 'g';
    EXPECT_EQ(VQXML_printNode(s("x"), buf, sizeof buf), 0);
    EXPECT_EQ(buf[0], 'g');
    // No buffer, whatever the size: the length is measured, nothing written.
    const VQHANDLE e = el("e");
    EXPECT_EQ(VQXML_printNode(e, nullptr, 64), 4);
    EXPECT_EQ(VQXML_printBeautifyNode(e, nullptr, 64), 4);

    const VQHANDLE a = el("a");
    const VQHANDLE b = add(a, el("b"));
    add(a, el("c"));
    const VQHANDLE gone = el("gone");
    VQDOM_deleteNode(gone);
    vqxml::node(b)->nextSibling = gone;  // a stale link ends the sibling walk
    EXPECT_EQ(print(a), "<a><b/></a>");
    vqxml::node(a)->firstChild = gone;
    EXPECT_EQ(print(a), "<a></a>");
    EXPECT_TRUE(drainErrors().empty());
}

}  // namespace
