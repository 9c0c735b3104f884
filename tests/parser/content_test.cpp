// content_test.cpp - parsing document content: the trees that elements,
// attributes (with declared types and defaults), text, references, comments,
// PIs and CDATA sections become, entity values parsed as content, every
// content message with its line, the first match of each choice, fragments
// and the error list around them, and nesting depth.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;
using Errs = std::vector<Err>;

namespace {

using vqtest::expectFailure;
using vqtest::Failure;

using namespace vqxml::codes;

std::string quoted(VQHANDLE ds) {
    std::string out = "\"";
    for (const char c : str(ds)) {
        if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else if (c == '\t') out += "\\t";
        else out += c;
    }
    return out + "\"";
}

// A compact picture of a subtree: elements as name[attributes](children),
// text as its quoted value, CDATA as C"..", comments as !"..", PIs as
// ?target"data", references as &name(children), entities as Ename(children).
std::string describe(VQHANDLE n) {
    std::string out;
    switch (VQDOM_getNodeType(n)) {
        case VQXML_ELEMENT_NODE: {
            out = str(VQDOM_getNodeName(n));
            const VQHANDLE map = VQDOM_getAttributes(n);
            if (VQDOM_getLengthMap(map) != 0) {
                out += "[";
                for (uint32_t i = 0; i < VQDOM_getLengthMap(map); ++i) {
                    const VQHANDLE a = VQDOM_itemMap(map, i);
                    out += (i ? " " : "") + str(VQDOM_getNodeName(a)) + (VQDOM_getSpecified(a) ? "=" : "~=") +
                           quoted(VQDOM_getValue(a));
                }
                out += "]";
            }
            break;
        }
        case VQXML_TEXT_NODE: return quoted(VQDOM_getNodeValue(n));
        case VQXML_CDATA_SECTION_NODE: return "C" + quoted(VQDOM_getNodeValue(n));
        case VQXML_COMMENT_NODE: return "!" + quoted(VQDOM_getNodeValue(n));
        case VQXML_PROCESSING_INSTRUCTION_NODE:
            return "?" + str(VQDOM_getNodeName(n)) + quoted(VQDOM_getNodeValue(n));
        case VQXML_ENTITY_REFERENCE_NODE: out = "&" + str(VQDOM_getNodeName(n)); break;
        case VQXML_ENTITY_NODE: out = "E" + str(VQDOM_getNodeName(n)); break;
        case VQXML_DOCUMENT_FRAGMENT_NODE: out = "#"; break;
        default: return "?type" + std::to_string(VQDOM_getNodeType(n));
    }
    if (VQDOM_hasChildNodes(n)) {
        out += "(";
        for (VQHANDLE c = VQDOM_getFirstChild(n); c != 0; c = VQDOM_getNextSibling(c))
            out += describe(c) + (VQDOM_getNextSibling(c) ? "," : "");
        out += ")";
    }
    return out;
}

// The root element of a parse that must succeed without a message, described.
std::string root(const std::string &text) {
    const VQHANDLE doc = VQXML_parse(text.c_str());
    const Errs errors = drainErrors();
    EXPECT_NE(doc, 0u) << text;
    EXPECT_TRUE(errors.empty()) << text << ::testing::PrintToString(errors);
    return doc != 0 ? describe(VQDOM_getDocumentElement(doc)) : "";
}

VQHANDLE entityNamed(VQHANDLE doc, const char *name) {
    return VQDOM_getNamedItemStr(VQDOM_getEntities(VQDOM_getDoctype(doc)), name);
}

std::string nest(int depth, const char *inner = "") {
    std::string s;
    for (int i = 0; i < depth; ++i) s += "<e>";
    s += inner;
    for (int i = 0; i < depth; ++i) s += "</e>";
    return s;
}

}  // namespace

TEST_F(LibraryTest, ElementsKeepEveryPieceOfText) {
    EXPECT_EQ(root("<a/>"), "a");
    EXPECT_EQ(root("<a>\n  <b/>\n</a>"), "a(\"\\n  \",b,\"\\n\")");
    EXPECT_EQ(root("<a >x<b\t></b >y</a\n>"), "a(\"x\",b,\"y\")");
    // References that stand for characters merge with the text around them.
    EXPECT_EQ(root("<a>t&amp;&lt;&gt;&apos;&quot;&#65;&#x42;&#233;u</a>"), "a(\"t&<>'\"ABéu\")");
    EXPECT_EQ(root("<a>&#x10FFFF;</a>"), "a(\"\xF4\x8F\xBF\xBF\")");
    // A reference to character 0 leaves an empty text node where nothing
    // else is there to merge with.
    EXPECT_EQ(root("<a><!--c-->&#0;<!--d--></a>"), "a(!\"c\",\"\",!\"d\")");
    EXPECT_EQ(root("<a>x&#0;y</a>"), "a(\"xy\")");
    // Line ends arrive as LF; a lone CR too.
    EXPECT_EQ(root("<a>1\r\n2\r3\n\r\n</a>"), "a(\"1\\n2\\n3\\n\\n\")");
    EXPECT_EQ(root("<a>x]y]]z</a>"), "a(\"x]y]]z\")");
    EXPECT_EQ(root("<a>\xC3\xA9\xFF</a>"), "a(\"\xC3\xA9\xFF\")");
    EXPECT_EQ(root("<\xC3\xA9 \xC3\xA0='1'/>"), "\xC3\xA9[\xC3\xA0=\"1\"]");
    EXPECT_EQ(root("<a\tx\n=\r\n'1' />"), "a[x=\"1\"]");
    // Character numbers wrap at 32 bits; "&#x;" stands for nothing.
    EXPECT_EQ(root("<a>&#4294967361;&#x;</a>"), "a(\"A\")");
    // Unparsed external entities may be named in content (they stay empty)
    // but not in values; a redeclared predefined entity keeps its meaning.
    EXPECT_EQ(root("<!DOCTYPE a [<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>]><a>&u;</a>"), "a(&u)");
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY lt 'LT'>]><a x='&lt;'>&lt;</a>"), "a[x=\"<\"](\"<\")");
}

TEST_F(LibraryTest, MarkupInsideContent) {
    EXPECT_EQ(root("<a><![CDATA[x]]y]]></a>"), "a(C\"x]]y\")");
    EXPECT_EQ(root("<a><![CDATA[]]></a>"), "a(C\"\")");
    // CDATA keeps a CR that text would fold (after its first character).
    EXPECT_EQ(root("<a><![CDATA[x\ry\r\nz<&]]></a>"), "a(C\"x\\ry\\r\\nz<&\")");
    EXPECT_EQ(root("<a>t<![CDATA[c]]>t</a>"), "a(\"t\",C\"c\",\"t\")");
    EXPECT_EQ(root("<a><!-- a - b --></a>"), "a(!\" a - b \")");
    EXPECT_EQ(root("<a><!----></a>"), "a(!\"\")");
    EXPECT_EQ(root("<a><?t  d ?><?u?><?v\r\n?></a>"), "a(?t\"d \",?u\"\",?v\"\")");
    EXPECT_EQ(root("<a><?t x?y>z?></a>"), "a(?t\"x?y>z\")");
    EXPECT_EQ(root("<a>x\x7F<?xml-p?><?XMLS d?></a>"), "a(\"x\x7F\",?xml-p\"\",?XMLS\"d\")");
    // Without a document type a named reference stays unresolved.
    EXPECT_EQ(root("<a>x&foo;y</a>"), "a(\"x\",&foo,\"y\")");
    // Misc around the root: comments and PIs after it, spaces dropped.
    const VQHANDLE doc = vqtest::parse("<!--c-->\n<a/>\n<?p d?><!--e--> ");
    std::string all;
    for (VQHANDLE c = VQDOM_getFirstChild(doc); c != 0; c = VQDOM_getNextSibling(c)) all += describe(c) + " ";
    EXPECT_EQ(all, "!\"c\" a ?p\"d\" !\"e\" ");
}

TEST_F(LibraryTest, AttributeValues) {
    // A repeated name replaces the earlier value and moves to the end.
    EXPECT_EQ(root("<a x='1' y=\"2\" x='3'/>"), "a[y=\"2\" x=\"3\"]");
    // Tabs and line ends become blanks; references keep what they stand for.
    EXPECT_EQ(root("<a x=' a&#10;\tb\r\nc\rd&lt;&#9;'/>"), "a[x=\" a\\n b c d<\\t\"]");
    EXPECT_EQ(root("<a x='say \"hi\"' y=\"it's\" z=''/>"), "a[x=\"say \"hi\"\" y=\"it's\" z=\"\"]");
    // A named reference splits the value into children; unresolved, it adds
    // nothing to the value.
    const VQHANDLE doc = vqtest::parse("<a x='p&e;q'/>");
    const VQHANDLE x = VQDOM_getAttributeNodeStr(VQDOM_getDocumentElement(doc), "x");
    EXPECT_EQ(describe(VQDOM_getFirstChild(x)), "\"p\"");
    EXPECT_EQ(describe(VQDOM_getNextSibling(VQDOM_getFirstChild(x))), "&e");
    EXPECT_EQ(describe(VQDOM_getLastChild(x)), "\"q\"");
    EXPECT_EQ(str(VQDOM_getValue(x)), "pq");
}

TEST_F(LibraryTest, AttributeDefaultsAndDeclaredTypes) {
    // Defaults come first in declaration order; a given value replaces its
    // default and moves behind the others. Defaults are not written back.
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a x CDATA 'X' y CDATA #FIXED 'Y' r CDATA #REQUIRED i CDATA #IMPLIED>]>"
                   "<a z='1' x='2'/>"),
              "a[y~=\"Y\" z=\"1\" x=\"2\"]");
    const VQHANDLE doc = vqtest::parse("<!DOCTYPE a [<!ATTLIST a x CDATA ' d  e ' t NMTOKENS '  p  q ' r CDATA #IMPLIED>\n"
                                     "<!ATTLIST b x (u|v) 'u'>]>\n<a t=' m  n ' r='  s  '><b/><b x='v'/></a>");
    EXPECT_EQ(describe(VQDOM_getDocumentElement(doc)), "a[x~=\" d  e \" t=\"m n\" r=\"  s  \"](b[x~=\"u\"],b[x=\"v\"])");
    EXPECT_EQ(vqtest::print(VQDOM_getDocumentElement(doc)), "<a t=\" m  n \" r=\"  s  \"><b/><b x=\"v\"/></a>");
    // Of two definitions of one attribute, the later default wins, while
    // the earlier definition gives the type of a written value.
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a x CDATA 'one' x NMTOKEN ' two '>]><a><a/><a x=' v '/></a>"),
              "a[x~=\"two\"](a[x~=\"two\"],a[x=\" v \"])");
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a x CDATA #IMPLIED><!ATTLIST a x NMTOKEN #IMPLIED>]><a x=' v '/>"),
              "a[x=\" v \"]");
    // The type is that of the element's own definition, however the two
    // names split their bytes, and for names of any length.
    const std::string l(40, 'l');
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a bc NMTOKEN #IMPLIED x NMTOKEN #IMPLIED><!ATTLIST ab c CDATA #IMPLIED x CDATA #IMPLIED>"
                   "<!ATTLIST " + l + " " + l + " NMTOKEN #IMPLIED>]><a bc=' 1 ' x=' 2 '><ab c=' 3 ' x=' 4 '/>"
                   "<a bc=' 5 ' x=' 6 '/><" + l + " " + l + "=' 7 '/><ab " + l + "=' 8 '/></a>"),
              "a[bc=\"1\" x=\"2\"](ab[c=\" 3 \" x=\" 4 \"],a[bc=\"5\" x=\"6\"]," + l + "[" + l + "=\"7\"],ab[" + l + "=\" 8 \"])");
    // Many pairs: each still gets its own type.
    std::string decls, given, folded;
    for (int i = 0; i < 200; ++i) {
        const std::string n = "n" + std::to_string(i);
        decls += " " + n + (i % 2 != 0 ? " NMTOKEN" : " CDATA") + " #IMPLIED";
        given += " " + n + "=' v '";
        folded += std::string(i == 0 ? "" : " ") + n + (i % 2 != 0 ? "=\"v\"" : "=\" v \"");
    }
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a" + decls + ">]><a" + given + "/>"), "a[" + folded + "]");
    // Many element names, every second one with a default, each met twice.
    std::string lists, elements, expected;
    for (int i = 0; i < 100; ++i) {
        const std::string n = (i == 99 ? l : "") + "e" + std::to_string(i);
        if (i % 2 != 0) lists += "<!ATTLIST " + n + " d CDATA 'x'>";
        elements += "<" + n + "/><" + n + "/>";
        for (int k = 0; k < 2; ++k) expected += "," + n + (i % 2 != 0 ? "[d~=\"x\"]" : "");
    }
    EXPECT_EQ(root("<!DOCTYPE a [" + lists + "]><a>" + elements + "</a>"), "a(" + expected.substr(1) + ")");
    // Every declared type but CDATA folds blanks; tabs and line ends were
    // already blanks.
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a e (p|q) #IMPLIED i ID #IMPLIED n ENTITY #IMPLIED>]>"
                   "<a e=' p ' i='\tx\n' n=' a\r\n b '/>"),
              "a[e=\"p\" i=\"x\" n=\"a b\"]");
    // A default may name entities; its value is what they stand for.
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY e 'E'><!ATTLIST a x CDATA 'v&e;&#65;' y NMTOKENS ' &e; &e; '>]><a/>"),
              "a[x~=\"vEA\" y~=\"E E\"]");
    // Elements made while the value of an entity is parsed get defaults
    // too, and so do the copies under its references.
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST b d CDATA 'D'><!ENTITY e '<b/>'>]><a>&e;</a>"), "a(&e(b[d~=\"D\"]))");
    // Declarations reached through a parameter-entity reference count, but
    // the walk over them does not enter a second reference that follows.
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY % p '<!ATTLIST a x CDATA \"1\">'>"
                   "<!ENTITY % q '<!ATTLIST a y CDATA \"2\">'>%p;%q;<!ATTLIST a z NMTOKEN \" 3 \">]>"
                   "<a y=' 4 '/>"),
              "a[x~=\"1\" z~=\"3\" y=\" 4 \"]");
    // A reference keeps its text as it is: only blanks fold, and only for
    // declared types other than CDATA.
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY s ' a  b '><!ENTITY t 'x\ty'><!ENTITY q '&quot;&#65;'>"
                   "<!ATTLIST a n NMTOKENS #IMPLIED>]><a n='&s;' c='[&s;]' t='&t;' q='&q;'/>"),
              "a[n=\"a b\" c=\"[ a  b ]\" t=\"x\\ty\" q=\"\"A\"]");
}

TEST_F(LibraryTest, EntityValuesParsedAsContent) {
    VQHANDLE doc = VQXML_parse(
        "<!DOCTYPE a [<!ENTITY % p 'P&#66;'>\n<!ENTITY e\n\n'a%p;b&#233;c&#256;d&lt;<?t d?><!--c--><![CDATA[x]]>'>"
        "<!ENTITY n '&#256;'>]><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_TRUE(drainErrors().empty());
    // Parameter and character references are expanded by the reader (one
    // byte per character reference); the literal stays as written.
    const VQHANDLE e = entityNamed(doc, "e");
    EXPECT_EQ(describe(e), "Ee(\"aPBb\xE9" "cd<\",?t\"d\",!\"c\",C\"x\")");
    EXPECT_EQ(str(vqxml::rec<Entity>(e)->value), "a%p;b&#233;c&#256;d&lt;<?t d?><!--c--><![CDATA[x]]>");
    EXPECT_EQ(vqxml::rec<Entity>(e)->line, 4);
    EXPECT_EQ(vqxml::rec<Entity>(e)->kind, 0u);
    EXPECT_EQ(describe(entityNamed(doc, "n")), "En");

    // An unknown parameter entity is reported and its reference kept as text.
    doc = vqtest::parse("<!DOCTYPE a [<!ENTITY e 'a%q;b'>]><a>&e;</a>");
    EXPECT_EQ(drainErrors(), (Errs{{kPeUndefined, "1|q|"}}));
    EXPECT_EQ(describe(VQDOM_getDocumentElement(doc)), "a(&e(\"a%q;b\"))");

    // The value of a parameter entity is only checked, and kept as written.
    doc = vqtest::parse("<!DOCTYPE a [<!ENTITY % p '% x &#x41; &amp; &e;'>]><a/>");
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(str(vqxml::rec<Entity>(vqxml::node(VQDOM_getDoctype(doc))->firstChild)->value), "% x &#x41; &amp; &e;");
}

TEST_F(LibraryTest, EveryContentMessageWithItsLine) {
    const std::vector<Failure> failures = {
        {"\n \n", {{kUnexpectedEnd, "3|"}}, "line 3: end of document is unexpected"}, {"", {{kUnexpectedEnd, "1|"}}},
        {"<a>\n\x01</a>", {{kIllegalCharacter, "2|0x1|"}}, "line 2: illegal character (0x1)"},
        {"\nx<a/>", {{kIllegalCharacter, "2|0x78|"}}}, {"<a/>\n<b/>", {{kIllegalCharacter, "2|0x3c|"}}},
        {"<a>\nx]]>y</a>", {{kIllegalSequence, "2|]]>|"}}, "Line 2: illegal \"]]>\"."},
        {"<a>\n<1/></a>", {{kNameStartIllegal, "2|0x31|"}}, "line 2: name begins with illegal character (0x31)"},
        {"<?XmL x?><a/>", {{kNameStartIllegal, "1|0x3f|"}}}, {"<a>\n& </a>", {{kNameStartIllegal, "2|0x20|"}}},
        {"<a>\n<?XmL x?></a>", {{kReservedPiTarget, "2|XmL|"}}, "line 2: name \"XmL\" is illegal in ProcessingInstruction"},
        {"<a><?p\nx</a>", {{kExpected, "2|?>|"}}, "line 2: \"?>\" expected"},
        {"<a>\n<!-- x -- y --></a>", {{kCommentEndMissing, "2|"}}, "line 2: end of Comment not found"},
        {"<a><![CDATA[x\n</a>", {{kExpected, "2|]]>|"}}, "line 2: \"]]>\" expected"},
        {"<a\nx='1'y='2'/>", {{kStartTagSyntax, "2|a|"}}, "line 2: element \"a\": start tag syntax error"},
        {"<a x\n='1' y/>", {{kEqualExpected, "2|y|"}}, "line 2: attribute \"y\": \"=\" expected"},
        {"<a x=\n1/>", {{kQuoteExpected, "2|x|"}}, "line 2: attribute \"x\": quotation mark expected"},
        {"<a x='\n1\"/>", {{kClosingQuoteExpected, "2|x|"}}, "line 2: attribute \"x\": closing quotation mark expected"},
        {"<a>\n&#X42;</a>", {{kSemicolonExpected, "2|"}}, "line 2: \";\" expected on end of a reference"},
        {"<a x='1<'/>", {{kClosingQuoteExpected, "1|x|"}}}, {"<a x='&amp'/>", {{kSemicolonExpected, "1|"}}},
        {"<a>\n\n", {{kEndTagMissing, "3|a|"}}, "Line 3: endtag \"</a>\" is missing."},
        {"<a><b>\n</a>", {{kEndTagNameDifferent, "2|b|"}}, "line 2: endtag of \"b\": name different"},
        {"<a></a\nb>", {{kEndTagGreaterExpected, "2|a|"}}, "line 2: endtag of \"a\": \">\" expected"},
        {"<a>\n</ a>", {{kEndTagIllegalCharacter, "2|a|"}}, "line 2: endtag of \"a\": illegal character"},
        {"<!DOCTYPE a [ ]>\n<a>&foo;</a>", {{kUndeclaredEntity, "2|foo|"}}, "line 2: undeclared entity \"foo\""},
        {"<!DOCTYPE a [<!ENTITY e '<b/>'>]>\n<a x='&e;'/>", {{kLessInValue, "2|"}},
         "line 2: the character \"<\" cannot be used in an attribute value"},
        {"<!DOCTYPE a [<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>]>\n<a x='&u;'/>",
         {{kExternalInValue, "2|u|"}}, "line 2: illegal reference of external entity \"u\""},
        // Faults without a text check: references, line counting and the
        // first match of each choice.
        // A parameter entity is no general entity; an unknown name is
        // reported before the missing ";" with a document type, after it
        // without.
        {"<!DOCTYPE a [<!ENTITY % p 'x'>]>\n<a>&p;</a>", {{kUndeclaredEntity, "2|p|"}}},
        {"<!DOCTYPE a []><a>&foo </a>", {{kUndeclaredEntity, "1|foo|"}}}, {"<a>&foo </a>", {{kSemicolonExpected, "1|"}}},
        {"<a x='&#65'/>", {{kSemicolonExpected, "1|"}}},
        // CR LF is one line end, a lone CR none, wherever the scan is.
        {"<a>\r\r</b>", {{kEndTagNameDifferent, "1|a|"}}}, {"<a>\r\n\r\n</b>", {{kEndTagNameDifferent, "3|a|"}}},
        {"<a x='\r\r\n'\r\r\ny/>", {{kEqualExpected, "3|y|"}}},
        {"<a><!--\r\r\n--><![CDATA[\r\r\n]]><?p \r\r\n?>\r\n</b>", {{kEndTagNameDifferent, "5|a|"}}},
        {"<a 1='x'/>", {{kStartTagSyntax, "1|a|"}}}, {"<a><![CDX[x]]></a>", {{kExpected, "1|<![CDATA[|"}}},
        {"<a><![CX[x]]></a>", {{kNameStartIllegal, "1|0x21|"}}}, {"<a><!-x--></a>", {{kNameStartIllegal, "1|0x21|"}}},
        {"<a><!--a---></a>", {{kCommentEndMissing, "1|"}}}, {"<a><!--a", {{kCommentEndMissing, "1|"}}},
        {"<a><!-- x --></a>\n<!-- y", {{kCommentEndMissing, "2|"}}}, {"<a><?p=x?></a>", {{kExpected, "1|?>|"}}},
        {"<a>\n</a>x", {{kIllegalCharacter, "2|0x78|"}}}, {"\xEF\xBB\xBF<a/>", {{kIllegalCharacter, "1|0xef|"}}},
        {"<a/><?xml version='1.0'?>", {{kReservedPiTarget, "1|xml|"}}}, {"<a/><!DOCTYPE a>", {{kIllegalCharacter, "1|0x3c|"}}},
        // A different end tag name records its message twice when ">" is
        // missing; "<a/ >" fails without any message.
        {"<a></b", {{kEndTagNameDifferent, "1|a|"}, {kEndTagGreaterExpected, "1|a|"}}}, {"<a/ >", {}},
    };
    for (const auto &f : failures) expectFailure(f);
}

TEST_F(LibraryTest, NestingIsBoundedAndIterative) {
    const std::string deepest = nest(10000, "x");
    const VQHANDLE doc = vqtest::parse(deepest.c_str());
    VQHANDLE n = VQDOM_getDocumentElement(doc);
    int depth = 0;
    for (; VQDOM_getNodeType(n) == VQXML_ELEMENT_NODE; n = VQDOM_getFirstChild(n)) ++depth;
    EXPECT_EQ(depth, 10000);
    EXPECT_EQ(str(VQDOM_getNodeValue(n)), "x");
    VQDOM_deleteNode(doc);

    std::string tooDeep = "<r>\n" + nest(10000) + "</r>";
    expectFailure({tooDeep, {{kElementsTooDeep, "2|10000|"}}, "line 2: elements nested deeper than 10000 levels"});
    expectFailure({"<r>\n" + nest(9999, "<e/>") + "</r>", {{kElementsTooDeep, "2|10000|"}}});
    // Unclosed at depth: the innermost element is reported, all is freed.
    tooDeep.clear();
    for (int i = 0; i < 5000; ++i) tooDeep += "<e>";
    expectFailure({tooDeep, {{kEndTagMissing, "1|e|"}}});
}

TEST_F(LibraryTest, EntityExpansionIsBudgeted) {
    // Each level holds ten references to the one before: "d" stands for
    // 10^3 copies of a 1000-byte text, and the root asks for it sixteen times.
    std::string text = "<!DOCTYPE r [<!ENTITY a '" + std::string(1000, 'x') + "'>";
    const char *names = "abcd";
    for (int i = 1; i < 4; ++i) {
        text += std::string("<!ENTITY ") + names[i] + " '";
        for (int k = 0; k < 10; ++k) text += std::string("&") + names[i - 1] + ";";
        text += "'>";
    }
    text += "]>\n<r>&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;</r>";
    const std::string limit = std::to_string((int64_t{8} << 20) + 100 * int64_t(text.size()));
    expectFailure({text, {{kExpansionTooLarge, "2|" + limit + "|"}},
                   ("line 2: entity expansion exceeds " + limit + " bytes").c_str()});
    // Within the budget the same entities expand in full.
    text.replace(text.find("<r>"), std::string::npos, "<r>&d;</r>");
    const VQHANDLE doc = vqtest::parse(text.c_str());
    EXPECT_EQ(VQDOM_getTextContent(VQDOM_getDocumentElement(doc), nullptr, 0), 1000 * 1000);
}

TEST_F(LibraryTest, FragmentsOfADocument) {
    const VQHANDLE doc = vqtest::parse("<r/>");
    VQHANDLE f = VQXML_parseFragment(doc, "x<b c='1'/>&amp;y<!--z-->");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(\"x\",b[c=\"1\"],\"&y\",!\"z\")");
    EXPECT_EQ(VQDOM_getOwnerDocument(f), doc);
    // An end tag does not end fragment content.
    EXPECT_EQ(VQXML_parseFragment(doc, "a</b>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kNameStartIllegal, "1|0x2f|"}}));
    // An invalid document: nothing happens, the error list is kept.
    VQXML_parse("");
    EXPECT_EQ(VQXML_parseFragment(0, "x"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kUnexpectedEnd, "1|"}}));
    // A fragment for a document that is gone: the list is kept and gets the
    // handle check's message.
    const VQHANDLE scratch = VQDOM_createDocument();
    VQXML_parse("<a>");
    VQDOM_deleteNode(scratch);
    EXPECT_EQ(VQXML_parseFragment(scratch, "x"), 0u);
    char hex[16];
    std::snprintf(hex, sizeof hex, "%x|", scratch);
    EXPECT_EQ(drainErrors(), (Errs{{kEndTagMissing, "1|a|"}, {kInvalidHandle, hex}}));

    // With a document type the reader expands character references: one
    // byte each, and "&#60;" is markup.
    const VQHANDLE typed = vqtest::parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    f = VQXML_parseFragment(typed, "&#65;&#233;&#60;b/>&e;");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(\"A\xE9\",b,&e(\"E\"))");
    // A quotation mark delivered by a reference does not close a value.
    f = VQXML_parseFragment(typed, "<b x='&#39;\"' y=\"&#34;'\"/>");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(b[x=\"'\"\" y=\"\"'\"])");
    // The CDATA reader expands references as the reader does and keeps CR;
    // a failing fragment leaves the document as it was.
    const uint32_t children = VQDOM_getLengthList(VQDOM_getChildNodes(typed));
    f = VQXML_parseFragment(typed, "x<![CDATA[&#65;\r]]>&#38;amp;");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(\"x\",C\"A\\r\",\"&\")");
    EXPECT_EQ(VQXML_parseFragment(typed, "<b>&f;</b>"), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kUndeclaredEntity, "1|f|"}}));
    EXPECT_EQ(VQDOM_getLengthList(VQDOM_getChildNodes(typed)), children);
}

TEST_F(LibraryTest, EveryParseClearsTheMainListFirst) {
    // Pending DOM errors go with the main list's records.
    VQXML_parse("<a>");
    const VQHANDLE scratch = VQDOM_createDocument();
    EXPECT_EQ(VQDOM_createElement(scratch, VQDOM_createDS(scratch, "1x")), 0u);
    const VQHANDLE doc = vqtest::parse("<a/>");
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(VQDOM_getError(nullptr), 0);
    VQXML_parse("<a>");
    EXPECT_NE(VQXML_parseFragment(doc, "x"), 0u);
    EXPECT_TRUE(drainErrors().empty());
}

// The fragment's source reads its first character before the document
// type is set, so a reference at the very start is left to the content
// grammar (UTF-8), while a later one is expanded by the reader (one byte).
TEST_F(LibraryTest, FragmentReferenceAtTheVeryStart) {
    const VQHANDLE doc = vqtest::parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    const VQHANDLE f = VQXML_parseFragment(doc, "&#233;x&#233;");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(\"\xC3\xA9x\xE9\")");
}

TEST_F(LibraryTest, DirectScanningMatchesTheReader) {
    // A fragment of a document with a document type is read character by
    // character through the reader; one without is scanned in place. Both
    // must give the same trees and the same messages on the same lines.
    const VQHANDLE plain = VQXML_parse("<r/>");
    const VQHANDLE typed = VQXML_parse("<!DOCTYPE r [<!ENTITY z 'Z'>]><r/>");
    ASSERT_NE(plain, 0u);
    ASSERT_NE(typed, 0u);
    for (const char *text : {"a\r\nb\rc\n\r\r\nd]e]]f<x y='1\t2\r\n3\r4\n5\"6' z=\"'\"/>",
                             "<![CDATA[\n\r\nx\ry]]]]><!--\r\n-\r-->\n<?p \r\n d\r?>", "t\n\n<a>\n<b>\r\n</c>",
                             "\n\r\n<a x='1\n2\n\x02'/>", "x\r\n\x03", "\n<![CDATA[\nx", "\n<!--\n-x", "<?p\nx",
                             "<a x='\n\n", "<a>\n</a\n\n"}) {
        SCOPED_TRACE(text);
        const VQHANDLE a = VQXML_parseFragment(plain, text);
        const Errs errorsA = drainErrors();
        const VQHANDLE b = VQXML_parseFragment(typed, text);
        EXPECT_EQ(drainErrors(), errorsA);
        EXPECT_EQ(a == 0 ? "" : describe(a), b == 0 ? "" : describe(b));
    }
}
