// conformance_test.cpp - the parser as its callers meet it: parse faults
// with their codes, parameters and lines; the XML declaration and the
// document type declaration as stored; the first match of each grammar
// choice; attribute values with declared types, defaults and entities;
// entity values parsed as content; the path tokenizer's boundaries; and the
// trace labels of the parser's own allocations.
#include <cstdio>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;
using Errs = std::vector<Err>;

namespace {

// A subtree in brief: elements as name[attributes](children), with "~="
// for an unspecified (defaulted) attribute; text quoted; C".." CDATA, !".."
// comments, ?target"data" PIs, &name(children) references, Ename(children)
// entities, #(children) fragments.
std::string tree(VQHANDLE n) {
    const auto name = [n] { return str(VQDOM_getNodeName(n)); };
    const auto value = [n] { return "\"" + str(VQDOM_getNodeValue(n)) + "\""; };
    std::string out;
    switch (VQDOM_getNodeType(n)) {
        case VQXML_ELEMENT_NODE: {
            out = name();
            const VQHANDLE map = VQDOM_getAttributes(n);
            for (uint32_t i = 0, count = VQDOM_getLengthMap(map); i < count; ++i) {
                const VQHANDLE a = VQDOM_itemMap(map, i);
                out += (i == 0 ? "[" : " ") + str(VQDOM_getNodeName(a)) + (VQDOM_getSpecified(a) ? "=\"" : "~=\"") +
                       str(VQDOM_getValue(a)) + "\"" + (i + 1 == count ? "]" : "");
            }
            break;
        }
        case VQXML_TEXT_NODE: return value();
        case VQXML_CDATA_SECTION_NODE: return "C" + value();
        case VQXML_COMMENT_NODE: return "!" + value();
        case VQXML_PROCESSING_INSTRUCTION_NODE: return "?" + name() + value();
        case VQXML_ENTITY_REFERENCE_NODE: out = "&" + name(); break;
        case VQXML_ENTITY_NODE: out = "E" + name(); break;
        case VQXML_DOCUMENT_FRAGMENT_NODE: out = "#"; break;
        default: return "T" + std::to_string(VQDOM_getNodeType(n)) + ":" + name();
    }
    for (VQHANDLE c = VQDOM_getFirstChild(n); c != 0; c = VQDOM_getNextSibling(c))
        out += (c == VQDOM_getFirstChild(n) ? "(" : ",") + tree(c) + (VQDOM_getNextSibling(c) == 0 ? ")" : "");
    return out;
}

// Parses `text`, which must succeed without a message, and describes its
// root element.
std::string root(const std::string &text) {
    const VQHANDLE doc = VQXML_parse(text.c_str());
    const Errs errors = drainErrors();
    EXPECT_NE(doc, 0u) << text;
    EXPECT_TRUE(errors.empty()) << text << ::testing::PrintToString(errors);
    return doc != 0 ? tree(VQDOM_getDocumentElement(doc)) : "";
}

// Parses `text`, which must fail with exactly `errors` and leave no heap
// block behind.
void fails(const std::string &text, const Errs &errors) {
    SCOPED_TRACE(text);
    const auto before = vqxml::memStats();
    EXPECT_EQ(VQXML_parse(text.c_str()), 0u);
    EXPECT_EQ(drainErrors(), errors);
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
}

// The declarations below a document type (which the DOM does not show as
// children), by their links: type:name(children).
std::string decls(VQHANDLE n) {
    const Node *r = vqxml::node(n);
    std::string out = std::to_string(r->nodeType) + ":" + str(r->nodeName);
    for (VQHANDLE c = r->firstChild; c != 0; c = vqxml::node(c)->nextSibling)
        out += (c == r->firstChild ? "(" : ",") + decls(c) + (vqxml::node(c)->nextSibling == 0 ? ")" : "");
    return out;
}

VQHANDLE entityNamed(VQHANDLE doc, const char *name) {
    return VQDOM_getNamedItemStr(VQDOM_getEntities(VQDOM_getDoctype(doc)), name);
}

}  // namespace

TEST_F(LibraryTest, FaultsWithTheirCodesAndLines) {
    const struct {
        const char *text;
        Errs errors;
    } documents[] = {
        // The XML declaration. Only the very first bytes can open one;
        // anywhere else, and before the root element, a PI is refused as a
        // start tag. An empty encoding name starts with its closing mark.
        {"<?xml version='1.0' standalone='YES'?><a/>", {{1001913, "1|yes/no|"}}},
        {"<?xml version='1.0' standalone='y s'?><a/>", {{1001916, "1|0x20|"}}},
        {"<?xml version='1.0' encoding=''?><a/>", {{1001919, "1|0x27|"}}},
        {"<?xml version='1.0'\nencoding:'x'?><a/>", {{1001914, "2|encoding|"}}},
        {"<?xml version='1.0'\n?<a/>", {{1001913, "2|>|"}}},
        {"<?xml version='1.0'?>\n", {{1001941, "2|"}}},
        {" <?xml version='1.0'?><a/>", {{1001911, "1|0x3f|"}}},
        {"<?xml version='1.0'?>\n<?p x?><a/>", {{1001911, "2|0x3f|"}}},
        {"<!DOCTYPE a>\n<?p?><a/>", {{1001911, "2|0x3f|"}}},
        {"<a/><?xml version='1.0'?>", {{1001931, "1|xml|"}}},
        // The document type declaration: one, before the root element.
        {"<!DOCTYPEa><a/>", {{1001930, "1|"}}}, {"<!DOCTYPE 1><a/>", {{1001911, "1|0x31|"}}},
        {"<!DOCX a><a/>", {{1001913, "1|<!DOCTYPE|"}}}, {"<!DOCTYPE a x><a/>", {{1001913, "1|SYSTEM/PUBLIC|"}}},
        {"<!DOCTYPE a PUBLIC 'p'><a/>", {{1001930, "1|"}}}, {"<!DOCTYPE a SYSTEM'x'><a/>", {{1001930, "1|"}}},
        {"<!DOCTYPE a [\n", {{1001913, "2|]|"}}}, {"<!DOCTYPE a [] x><a/>", {{1001913, "1|>|"}}},
        {"<!DOCTYPE a>\n", {{1001941, "2|"}}}, {"<!DOCTYPE a><!DOCTYPE b><a/>", {{1001911, "1|0x21|"}}},
        {"<a/><!DOCTYPE a>", {{1001910, "1|0x3c|"}}},
        // A "%" that opens no reference, or a reference without ";", stops
        // the parse without a message.
        {"<!DOCTYPE a [%1;]><a/>", {}}, {"<!DOCTYPE a [<!ENTITY % p ''>%p ]><a/>", {}},
        // References. A parameter entity is no general entity; an unknown
        // name is reported before the missing ";" with a document type,
        // after it without. An upper-case X is no hexadecimal mark: the
        // reader and then the content grammar both miss the ";".
        {"<!DOCTYPE a [<!ENTITY % p 'x'>]>\n<a>&p;</a>", {{1001934, "2|p|"}}},
        {"<!DOCTYPE a []><a>&foo </a>", {{1001934, "1|foo|"}}}, {"<a>&foo </a>", {{1001906, "1|"}}},
        {"<a x='&#65'/>", {{1001906, "1|"}}},
        {"<!DOCTYPE a [<!ENTITY e 'a&#X41;'>]><a/>", {{1001906, "1|"}, {1001906, "1|"}}},
        {"<!DOCTYPE a [<!ENTITY e 'x'>\n<!ENTITY f '<b>&e;'>]><a/>", {{1001942, "2|b|"}}},
        // Parameter-entity values are checked as replacement text.
        {"<!DOCTYPE a [<!ENTITY % p '%q x'>]><a/>", {{1001937, "1|q|"}, {1001913, "1|;|"}}},
        {"<!DOCTYPE a [<!ENTITY % p '&#65 x'>]><a/>", {{1001906, "1|"}}},
        // CR LF is one line end, a lone CR none, wherever the scan is.
        {"<a>\r\r</b>", {{1001903, "1|a|"}}}, {"<a>\r\n\r\n</b>", {{1001903, "3|a|"}}},
        {"<a x='\r\r\n'\r\r\ny/>", {{1001909, "3|y|"}}},
        {"<a><!--\r\r\n--><![CDATA[\r\r\n]]><?p \r\r\n?>\r\n</b>", {{1001903, "5|a|"}}},
        {"<!DOCTYPE a [<!ENTITY e '\r\r\n'>\r\n<!FOO>]><a/>", {{1001927, "3|"}}},
        // Content: the first match of each choice decides.
        {"<a 1='x'/>", {{1001940, "1|a|"}}}, {"<a><![CDX[x]]></a>", {{1001913, "1|<![CDATA[|"}}},
        {"<a><![CX[x]]></a>", {{1001911, "1|0x21|"}}}, {"<a><!-x--></a>", {{1001911, "1|0x21|"}}},
        {"<a><!--a---></a>", {{1001912, "1|"}}}, {"<a><!--a", {{1001912, "1|"}}},
        {"<a><!-- x --></a>\n<!-- y", {{1001912, "2|"}}}, {"<a><?p=x?></a>", {{1001913, "1|?>|"}}},
        {"<a>\n</a>x", {{1001910, "2|0x78|"}}}, {"\xEF\xBB\xBF<a/>", {{1001910, "1|0xef|"}}},
    };
    for (const auto &d : documents) fails(d.text, d.errors);

    // Markup declarations, each on line 2 of an internal subset.
    const struct {
        const char *decl;
        Err error;
    } declarations[] = {
        {"<!ELEM a ANY>", {1001913, "2|<!ELEMENT|"}}, {"<!ELEMENT a(b)>", {1001930, "2|"}},
        {"<!ATTLISTa>", {1001930, "2|"}}, {"<!NOTA n>", {1001927, "2|"}}, {"<x>", {1001927, "2|"}},
        // Any other character where a group goes on is taken for a mixed
        // separator.
        {"<!ELEMENT a (b|c>", {1001917, "2|"}}, {"<!ELEMENT a (b c)>", {1001917, "2|"}},
        {"<!ELEMENT a ()>", {1001922, "2|"}}, {"<!ELEMENT a (#PCDATX)>", {1001913, "2|#PCDATA|"}},
        {"<!ELEMENT a (#PCDATA|1)*>", {1001911, "2|0x31|"}}, {"<!ELEMENT a (#PCDATA)+>", {1001913, "2|>|"}},
        {"<!ATTLIST a x cdata #IMPLIED>", {1001920, "2|"}}, {"<!ATTLIST a x CDATAX #IMPLIED>", {1001920, "2|"}},
        {"<!ATTLIST a x CDATA #FIXED'v'>", {1001930, "2|"}}, {"<!ATTLIST a x CDATA #IMPLIED y>", {1001930, "2|"}},
        {"<!ATTLIST a x (p q) #IMPLIED>", {1001913, "2|)|"}},
        {"<!ENTITY %p 'x'>", {1001930, "2|"}}, {"<!ENTITY e'x'>", {1001930, "2|"}},
        {"<!ENTITY 1 'x'>", {1001911, "2|0x31|"}}, {"<!ENTITY e 'x\x01'>", {1001916, "2|0x1|"}},
        {"<!ENTITY % p SYSTEM 'p' NDATA n>", {1001913, "2|>|"}},
        {"<!ENTITY e PUBLIC 'p\tq' 's'>", {1001916, "2|0x9|"}}, {"<!ENTITY e PUBLIC 'p'>", {1001930, "2|"}},
        {"<!NOTATION n>", {1001930, "2|"}}, {"<!NOTATION n SYSTEM>", {1001930, "2|"}},
        {"<?xml x?>", {1001931, "2|xml|"}},
    };
    for (const auto &d : declarations) fails(std::string("<!DOCTYPE a [\n") + d.decl + "]><a/>", {d.error});
}

TEST_F(LibraryTest, XmlDeclarationFields) {
    const VQHANDLE doc = VQXML_parse("<?xml version='1.0' encoding='a_b.c-d:9' ?><a/>");
    ASSERT_NE(doc, 0u);
    const auto *decl = static_cast<const XmlDecl *>(vqxml::payload(vqxml::rec<Document>(doc)->xmlDecl));
    EXPECT_EQ(str(decl->version), "1.0");
    EXPECT_EQ(str(decl->encoding), "a_b.c-d:9");
    EXPECT_EQ(decl->standalone, 0u);
    EXPECT_EQ(vqxml::rec<Document>(VQXML_parse("<a/>"))->xmlDecl, 0u);
    // Standalone does not stand in for the version: it is reported as
    // missing, and the document stands.
    EXPECT_NE(VQXML_parse("<?xml standalone='yes'?><a/>"), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{1001913, "1|version|"}}));
}

// The fragment's source reads its first character before the document
// type is set, so a reference at the very start is left to the content
// grammar (UTF-8); the code reads it again with expansion on (one byte).
// Kept off until the team settles the reading.
TEST_F(LibraryTest, DISABLED_FragmentReferenceAtTheVeryStart) {
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE f = VQXML_parseFragment(doc, "&#233;x");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(tree(f), "#(\"\xC3\xA9x\")");
}

// The reader counts a LF before it looks for expansions, so a LF right
// behind a finished reference is read without counting a line; the code
// counts it. Kept off until the team settles the reading.
TEST_F(LibraryTest, DISABLED_LineFeedBehindAReferenceIsNotCounted) {
    fails("<!DOCTYPE a [<!ENTITY e 'x&#65;\n<b>'>]><a/>", {{1001942, "1|b|"}});
}

TEST_F(LibraryTest, EveryParseClearsTheMainListFirst) {
    // Pending DOM errors go with the main list's records.
    VQXML_parse("<a>");
    const VQHANDLE scratch = VQDOM_createDocument();
    EXPECT_EQ(VQDOM_createElement(scratch, VQDOM_createDS(scratch, "1x")), 0u);
    const VQHANDLE doc = VQXML_parse("<a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(VQDOM_getError(nullptr), 0);
    VQXML_parse("<a>");
    EXPECT_NE(VQXML_parseFragment(doc, "x"), 0u);
    EXPECT_TRUE(drainErrors().empty());
    // A fragment for a document that is gone: the list is kept and gets the
    // handle check's message.
    VQXML_parse("<a>");
    VQDOM_deleteNode(scratch);
    EXPECT_EQ(VQXML_parseFragment(scratch, "x"), 0u);
    char hex[16];
    std::snprintf(hex, sizeof hex, "%x|", scratch);
    EXPECT_EQ(drainErrors(), (Errs{{1001942, "1|a|"}, {1001748, hex}}));
}

TEST_F(LibraryTest, DocumentTypeDeclarationAsBuilt) {
    VQHANDLE doc = VQXML_parse("<!-- c --><!DOCTYPE a SYSTEM 'a.dtd'\n[\n<!ELEMENT a ANY>\n]\n><!-- d --><a/>");
    ASSERT_NE(doc, 0u);
    std::string kinds;
    for (VQHANDLE c = VQDOM_getFirstChild(doc); c != 0; c = VQDOM_getNextSibling(c))
        kinds += std::to_string(VQDOM_getNodeType(c)) + " ";
    EXPECT_EQ(kinds, "8 10 8 1 ");
    // The internal subset first, then a nameless, empty reference for the
    // external subset, which is never read.
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    EXPECT_EQ(decls(dt), "10:a(13:a,5:)");
    EXPECT_EQ(str(vqxml::rec<ExternalID>(vqxml::rec<DocumentType>(dt)->externalID)->systemId), "a.dtd");

    // A parameter-entity reference keeps its name and the declarations of
    // its text; the entity itself stays where it was declared, and is no
    // general entity.
    doc = VQXML_parse("<!DOCTYPE a [<!ENTITY % p '<!ELEMENT a EMPTY><!-- c -->'> %p; ]><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(decls(VQDOM_getDoctype(doc)), "10:a(6:p,5:p(13:a,8:#comment))");
    EXPECT_EQ(vqxml::rec<Entity>(vqxml::node(VQDOM_getDoctype(doc))->firstChild)->kind, 1u);
    EXPECT_EQ(entityNamed(doc, "p"), 0u);
}

TEST_F(LibraryTest, ContentModelsAsStored) {
    const VQHANDLE doc = VQXML_parse(
        "<!DOCTYPE a [<!ELEMENT a (b)><!ELEMENT b (c*,d+,e?)><!ELEMENT c (#PCDATA)>"
        "<!ELEMENT d (#PCDATA)*><!ELEMENT e EMPTY><!ELEMENT f ANY>]><a/>");
    ASSERT_NE(doc, 0u);
    // Each declaration as "type: particles", a particle being
    // separator:occurrence:name(particles).
    const auto particles = [](const auto &self, VQHANDLE h) -> std::string {
        std::string out;
        for (VQHANDLE c = vqxml::node(h)->firstChild; c != 0; c = vqxml::node(c)->nextSibling) {
            const CpChildren *cp = vqxml::rec<CpChildren>(c);
            out += (c == vqxml::node(h)->firstChild ? "(" : ",") + std::to_string(cp->separator) + ":" +
                   std::to_string(cp->occurrence) + ":" + str(VQDOM_getNodeName(c)) + self(self, c) +
                   (vqxml::node(c)->nextSibling == 0 ? ")" : "");
        }
        return out;
    };
    std::vector<std::string> models;
    for (VQHANDLE d = getFirstMarkupDecl(VQDOM_getDoctype(doc), VQXML_ELEMENT_DECL_NODE); d != 0;
         d = getNextMarkupDecl(d))
        models.push_back(std::to_string(vqxml::rec<ElementDecl>(d)->contentType) + ": " + particles(particles, d));
    // A group of one keeps the provisional sequence separator.
    EXPECT_EQ(models, (std::vector<std::string>{"4: (44:0:(0:0:b))", "4: (44:0:(0:42:c,0:43:d,0:63:e))",
                                                "3: (124:0:(0:0:#PCDATA))", "3: (124:42:(0:0:#PCDATA))", "1: ",
                                                "2: "}));
}

TEST_F(LibraryTest, DefaultsAndDeclaredTypes) {
    // Defaults come first in declaration order; a given value replaces its
    // default and moves behind the others.
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a x CDATA 'X' y CDATA #FIXED 'Y' r CDATA #REQUIRED i CDATA #IMPLIED>]>"
                   "<a z='1' x='2'/>"),
              "a[y~=\"Y\" z=\"1\" x=\"2\"]");
    // Of two definitions of one attribute, the later default wins, while
    // the earlier definition gives the type of a written value.
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a x CDATA 'one' x NMTOKEN ' two '>]><a><a/><a x=' v '/></a>"),
              "a[x~=\"two\"](a[x~=\"two\"],a[x=\" v \"])");
    EXPECT_EQ(root("<!DOCTYPE a [<!ATTLIST a x CDATA #IMPLIED><!ATTLIST a x NMTOKEN #IMPLIED>]><a x=' v '/>"),
              "a[x=\" v \"]");
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
              "a[n=\"a b\" c=\"[ a  b ]\" t=\"x\ty\" q=\"\"A\"]");
}

TEST_F(LibraryTest, ContentAsBuilt) {
    // Unparsed external entities may be named in content (they stay empty)
    // but not in values; a redeclared predefined entity keeps its meaning.
    EXPECT_EQ(root("<!DOCTYPE a [<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>]><a>&u;</a>"), "a(&u)");
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY lt 'LT'>]><a x='&lt;'>&lt;</a>"), "a[x=\"<\"](\"<\")");
    EXPECT_EQ(root("<a\tx\n=\r\n'1' />"), "a[x=\"1\"]");
    // Character numbers wrap at 32 bits.
    EXPECT_EQ(root("<a>&#4294967361;&#x;</a>"), "a(\"A\")");
    EXPECT_EQ(root("<a>x\x7F<?xml-p?><?XMLS d?></a>"), "a(\"x\x7F\",?xml-p\"\",?XMLS\"d\")");

    // Fragments read with the document type: the CDATA reader expands
    // references as the reader does and keeps CR; a failing fragment leaves
    // the document as it was.
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    ASSERT_NE(doc, 0u);
    const uint32_t children = VQDOM_getLengthList(VQDOM_getChildNodes(doc));
    const VQHANDLE f = VQXML_parseFragment(doc, "x<![CDATA[&#65;\r]]>&#38;amp;");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(tree(f), "#(\"x\",C\"A\r\",\"&\")");
    EXPECT_EQ(VQXML_parseFragment(doc, "<b>&f;</b>"), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{1001934, "1|f|"}}));
    EXPECT_EQ(VQDOM_getLengthList(VQDOM_getChildNodes(doc)), children);
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
    EXPECT_EQ(tree(e), "Ee(\"aPBb\xE9" "cd<\",?t\"d\",!\"c\",C\"x\")");
    EXPECT_EQ(str(vqxml::rec<Entity>(e)->value), "a%p;b&#233;c&#256;d&lt;<?t d?><!--c--><![CDATA[x]]>");
    EXPECT_EQ(vqxml::rec<Entity>(e)->line, 4);
    EXPECT_EQ(vqxml::rec<Entity>(e)->kind, 0u);
    EXPECT_EQ(tree(entityNamed(doc, "n")), "En");

    // An unknown parameter entity is reported and its reference kept as text.
    doc = VQXML_parse("<!DOCTYPE a [<!ENTITY e 'a%q;b'>]><a>&e;</a>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(drainErrors(), (Errs{{1001936, "1|q|"}}));
    EXPECT_EQ(tree(VQDOM_getDocumentElement(doc)), "a(&e(\"a%q;b\"))");

    // The value of a parameter entity is only checked, and kept as written.
    doc = VQXML_parse("<!DOCTYPE a [<!ENTITY % p '% x &#x41; &amp; &e;'>]><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(str(vqxml::rec<Entity>(vqxml::node(VQDOM_getDoctype(doc))->firstChild)->value), "% x &#x41; &amp; &e;");
}

// A default value that cannot be parsed leaves its message and no default,
// yet the definition is accepted.
TEST_F(LibraryTest, DefaultValueFaultKeepsTheDefinition) {
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE a [<!ATTLIST a x NMTOKEN #IMPLIED>]><a/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE def = findAttDef(VQDOM_getDoctype(doc), "a", "x");
    ASSERT_NE(def, 0u);
    std::string text = "'v<'";
    Source *s = allocSource(text.data(), 0, doc);
    EXPECT_EQ(parseDefaultDecl(s, def), 1);
    deleteSource(s);
    EXPECT_EQ(drainErrors(), (Errs{{1001908, "1|x|"}}));
    EXPECT_EQ(VQDOM_getLengthMap(vqxml::node(def)->attributes), 0u);
}

TEST_F(LibraryTest, PathTokenBoundaries) {
    // Only blanks and tabs are skipped, so a line end is a bad token; names
    // may start with ":" or "_" and go on with digits and dots; numbers
    // wrap without a check; the other quotation mark is part of a string.
    const struct {
        const char *text;
        int kind, end, start;  // start: offset of the token text, or -1
        uint32_t value;
    } cases[] = {
        {"\n a", -1, 0, -1, 0},     {"", 0, 0, -1, 0},            {"-a", -1, 0, -1, 0},
        {":_a.1-b/", 4, 7, 0, 7}, {"4294967297]", 2, 10, -1, 1}, {"'a\"b'x", 1, 5, 1, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        XToken t{};
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

TEST_F(LibraryTest, ParserAllocationTraceLabels) {
    vqtest::TraceCapture trace('2');
    ASSERT_NE(VQXML_parse("<!DOCTYPE a [<!ENTITY e 'xy'>]><a/>"), 0u);
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE a [<!ENTITY % p 'P'>]><a/>");
    ASSERT_NE(doc, 0u);
    // A parameter-entity reference read inside a CDATA section of a
    // fragment: its expansion record is freed by the CDATA reader.
    std::string text = "<![CDATA[%p;]]>";
    Source *s = allocSource(text.data(), 0, doc);
    s->doctype = VQDOM_getDoctype(doc);
    s->cursor = text.c_str();
    getNextCh(s);
    const VQHANDLE section = parseCDSect(s);
    deleteSource(s);
    ASSERT_NE(section, 0u);
    EXPECT_EQ(str(VQDOM_getNodeValue(section)), "P");
    // The copies of the two entity values, "xy" and "P" with their NULs.
    std::string copies;
    int frees = 0;
    for (const std::string &line : trace.lines()) {
        if (line.rfind("VQXML malloc - (allocSourceDS) addr: 0x", 0) == 0) copies += line.substr(line.find(", (len: "));
        frees += line.rfind("VQXML free   - (getNextChCDATA) addr: 0x", 0) == 0;
    }
    EXPECT_EQ(copies, ", (len: 3), (len: 2)");
    EXPECT_EQ(frees, 1);
}
