// prolog_test.cpp - the prolog: XML declarations, document type
// declarations and their markup declarations, entities (general,
// parameter, external), default attributes, conditional sections, and
// every prolog message with its line.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;

namespace {

using vqtest::print;

// The internal subset as the serializer writes it, without the DOCTYPE
// line and the closing bracket.
std::string subset(const char *text) {
    const VQHANDLE doc = VQXML_parse(text);
    EXPECT_NE(doc, 0u) << text << ::testing::PrintToString(vqtest::drainErrors());
    if (doc == 0) return "";
    std::string out = print(VQDOM_getDoctype(doc));
    const size_t open = out.find("[\r\n");
    return open == std::string::npos ? out : out.substr(open + 3, out.size() - open - 3 - 4);
}

struct Failure {
    const char *text;
    std::vector<Err> errors;
    const char *message;  // of the first error
};

void expectFailure(const Failure &f) {
    SCOPED_TRACE(f.text);
    const auto before = vqxml::memStats();
    EXPECT_EQ(VQXML_parse(f.text), 0u);
    const auto errors = vqtest::drainErrors();
    EXPECT_EQ(errors, f.errors);
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(vqtest::message(errors[0].code, errors[0].params), f.message);
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
}

// A source over `text` in `doc`; deleted by the caller.
Source *source(VQHANDLE doc, const std::string &text) {
    return allocSource(const_cast<char *>(text.c_str()), 0, doc);
}

}  // namespace

TEST_F(LibraryTest, XmlDeclarationIsKept) {
    VQHANDLE doc = VQXML_parse("<?xml version='1.0' encoding=\"ISO-8859-1\" standalone = 'no' ?>\n<a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(print(doc), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"no\"?>\r\n<a/>");
    // A missing version is reported, yet the document stands.
    doc = VQXML_parse("<?xml?><a/>");
    EXPECT_NE(doc, 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001913, "1|version|"}}));
}

TEST_F(LibraryTest, DeclarationsAsTheyAreStored) {
    EXPECT_EQ(subset("<!DOCTYPE a [<!ELEMENT a ( b , ( c | d )* , e? )+>\n"
                     "<!ELEMENT b EMPTY><!ELEMENT c ANY><!ELEMENT d (#PCDATA)><!ELEMENT e (#PCDATA|b|c)*>]><a/>"),
              "<!ELEMENT a (b,(c|d)*,e?)+>\r\n<!ELEMENT b EMPTY>\r\n<!ELEMENT c ANY>\r\n"
              "<!ELEMENT d (#PCDATA)>\r\n<!ELEMENT e (#PCDATA||)*>");
    EXPECT_EQ(subset("<!DOCTYPE a [<!ATTLIST a x CDATA #REQUIRED y (p|q) 'p' z ID #IMPLIED\n"
                     " w NMTOKENS #FIXED \" m  n \">]><a/>"),
              "<!ATTLIST a x CDATA #REQUIRED y (p|q) \"p\" z ID #IMPLIED w NMTOKENS #FIXED\" m  n \">");
    EXPECT_EQ(subset("<!DOCTYPE a [<!NOTATION n PUBLIC 'p'><!NOTATION m PUBLIC 'p' 's'><!NOTATION o SYSTEM 's'>"
                     "<!ENTITY u SYSTEM 'u.bin' NDATA n><!ENTITY % pe PUBLIC '-//x' 'p.ent'>"
                     "<!-- c --><?pi d?>]><a/>"),
              "<!NOTATION n PUBLIC \"p\">\r\n<!NOTATION m PUBLIC \"p\" \"s\">\r\n<!NOTATION o SYSTEM \"s\">\r\n"
              "<!ENTITY u SYSTEM \"u.bin\" NDATA n>\r\n<!ENTITY % pe PUBLIC \"-//x\" \"p.ent\">\r\n"
              "<!-- c -->\r\n<?pi_d?>");

    // The codes behind the printed forms.
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE a [<!ELEMENT a (#PCDATA|b)*><!ATTLIST a k (x|y) #IMPLIED>]><a/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    const VQHANDLE ed = getFirstMarkupDecl(dt, VQXML_ELEMENT_DECL_NODE);
    ASSERT_NE(ed, 0u);
    EXPECT_EQ(vqxml::rec<ElementDecl>(ed)->contentType, 3);
    const VQHANDLE choice = vqxml::node(ed)->firstChild;
    EXPECT_EQ(vqxml::rec<CpChildren>(choice)->separator, '|');
    EXPECT_EQ(vqxml::rec<CpChildren>(choice)->occurrence, '*');
    const VQHANDLE pcdata = vqxml::node(choice)->firstChild;
    EXPECT_EQ(vqxml::rec<CpChildren>(pcdata)->separator, 0);
    EXPECT_EQ(str(vqxml::node(pcdata)->nodeName), "#PCDATA");
    // Element names of a mixed model keep the separator of a new particle.
    EXPECT_EQ(vqxml::rec<CpChildren>(vqxml::node(choice)->lastChild)->separator, 255);
    const VQHANDLE def = findAttDef(dt, "a", "k");
    ASSERT_NE(def, 0u);
    EXPECT_EQ(vqxml::rec<AttDef>(def)->attType, 1);
    EXPECT_EQ(vqxml::rec<AttDef>(def)->defaultKind, 3);
}

TEST_F(LibraryTest, DefaultAttributesAndDeclaredTypes) {
    const VQHANDLE doc = VQXML_parse(
        "<!DOCTYPE a [<!ATTLIST a x CDATA ' d  e ' t NMTOKENS '  p  q ' r CDATA #IMPLIED>\n"
        "<!ATTLIST b x (u|v) 'u'>]>\n"
        "<a t=' m  n ' r='  s  '><b/><b x='v'/></a>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE a = VQDOM_getDocumentElement(doc);
    const VQHANDLE x = VQDOM_getAttributeNodeStr(a, "x");
    ASSERT_NE(x, 0u);
    EXPECT_EQ(VQDOM_getSpecified(x), 0);
    EXPECT_EQ(str(VQDOM_getValue(x)), " d  e ");
    // Values of declared non-CDATA types are folded, in documents and defaults.
    EXPECT_EQ(str(VQDOM_getValue(VQDOM_getAttributeNodeStr(a, "t"))), "m n");
    EXPECT_EQ(VQDOM_getSpecified(VQDOM_getAttributeNodeStr(a, "t")), 1);
    EXPECT_EQ(str(VQDOM_getValue(VQDOM_getAttributeNodeStr(a, "r"))), "  s  ");
    const VQHANDLE b1 = VQDOM_getFirstChild(a);
    EXPECT_EQ(str(VQDOM_getValue(VQDOM_getAttributeNodeStr(b1, "x"))), "u");
    EXPECT_EQ(str(VQDOM_getValue(VQDOM_getAttributeNodeStr(VQDOM_getNextSibling(b1), "x"))), "v");
    // Defaults are not written back.
    EXPECT_EQ(print(a), "<a t=\" m  n \" r=\"  s  \"><b/><b x=\"v\"/></a>");
}

TEST_F(LibraryTest, EntitiesAndTheirReferences) {
    const VQHANDLE doc = VQXML_parse(
        "<!DOCTYPE a [\n<!ENTITY e 'x<b c=\"&#65;\"/>y'>\n<!ENTITY f '&e;&#x41;'>"
        "<!ENTITY % p '<!ENTITY g \"G\">'>\n%p;\n<!ENTITY e 'second'>]>\n<a k='1&g;2'>&e;&f;&g;</a>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    const VQHANDLE e = VQDOM_getNamedItemStr(VQDOM_getEntities(dt), "e");
    ASSERT_NE(e, 0u);
    // The literal is kept as written; the first declaration wins.
    EXPECT_EQ(str(vqxml::rec<Entity>(e)->value), "x<b c=\"&#65;\"/>y");
    EXPECT_EQ(vqxml::rec<Entity>(e)->line, 2);
    EXPECT_EQ(print(vqxml::node(e)->firstChild), "x");
    EXPECT_EQ(print(vqxml::node(e)->lastChild), "y");
    // A character reference in an entity value reaches the tree as one byte.
    const VQHANDLE f = VQDOM_getNamedItemStr(VQDOM_getEntities(dt), "f");
    EXPECT_EQ(str(VQDOM_getNodeValue(vqxml::node(f)->lastChild)), "A");
    // The parameter entity's declarations hang below its reference.
    EXPECT_EQ(print(dt), "<!DOCTYPE a [\r\n<!ENTITY e 'x<b c=\"&#65;\"/>y'>\r\n<!ENTITY f \"&e;&#x41;\">\r\n"
                         "<!ENTITY % p '<!ENTITY g \"G\">'>\r\n%p;\r\n<!ENTITY e \"second\">\r\n]>");
    EXPECT_NE(getMarkupDecl(dt, VQXML_ENTITY_NODE, "g"), 0u);

    const VQHANDLE a = VQDOM_getDocumentElement(doc);
    EXPECT_EQ(print(a), "<a k=\"1&g;2\">&e;&f;&g;</a>");
    EXPECT_EQ(str(VQDOM_getValue(VQDOM_getAttributeNodeStr(a, "k"))), "1G2");
    char text[64];
    VQDOM_getTextContent(a, text, sizeof text);
    EXPECT_STREQ(text, "xyxyAG");
    // References are copies: the entity keeps its own children.
    const VQHANDLE copy = VQDOM_getFirstChild(VQDOM_getFirstChild(a));
    EXPECT_NE(copy, vqxml::node(e)->firstChild);
}

TEST_F(LibraryTest, ExternalTextIsNeverFetched) {
    VQHANDLE doc = VQXML_parse("<!DOCTYPE a SYSTEM 'a.dtd'><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(print(doc), "<!DOCTYPE a SYSTEM \"a.dtd\" [\r\n]>\r\n<a/>");
    doc = VQXML_parse("<!DOCTYPE a PUBLIC '-//v//x' \"a.dtd\" [<!ENTITY % p SYSTEM 'p.ent'> %p;]><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(getFirstMarkupDecl(VQDOM_getDoctype(doc), VQXML_ELEMENT_DECL_NODE), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(LibraryTest, EveryPrologMessageWithItsLine) {
    const std::vector<Failure> failures = {
        {"<?xml version=\"1.1\" encoding='x'standalone='yes'?><a/>", {{1001913, "1|?|"}},
         "line 1: \"?\" expected"},
        {"<?xml version='1.0' standalone='maybe'?><a/>", {{1001913, "1|yes/no|"}}, "line 1: \"yes/no\" expected"},
        {"<?xml version='1.0'\nencoding='8bit'?><a/>", {{1001919, "2|0x38|"}},
         "line 2: encoding: character \"0x38\" illegal"},
        {"<?xml version\n'1.0'?><a/>", {{1001914, "2|version|"}, {1001913, "2|?|"}},
         "line 2: version: \"=\" expected"},
        {"<?xml version=1.0?><a/>", {{1001925, "1|version|"}, {1001913, "1|?|"}},
         "line 1: version: string expected"},
        {"<?xml version='1.0' encoding='a b'?><a/>", {{1001916, "1|0x20|"}},
         "line 1: missing end of string or character \"0x20\" illegal"},
        {"<?xml-stylesheet href='s'?><a/>", {{1001913, "1|version|"}, {1001913, "1|?|"}},
         "line 1: \"version\" expected"},
        {"<!DOCTYPE a [\n<!ELEMENT a (#PCDATA|b)>]><a/>", {{1001913, "2|*|"}}, "line 2: \"*\" expected"},
        {"<!DOCTYPE a [\n<!ELEMENT a (a,b|c)>]><a/>", {{1001917, "2|"}},
         "line 2: \"|\" and \",\" mixed in Element Type Declaration"},
        {"<!DOCTYPE a [\n<!ELEMENT a (a|#b)>]><a/>", {{1001922, "2|"}},
         "line 2: Element Type Declaration error, \"(\" or Name expected"},
        {"<!DOCTYPE a [\n<!ELEMENT a FULL>]><a/>", {{1001913, "2|EMPTY/ANY/(|"}},
         "line 2: \"EMPTY/ANY/(\" expected"},
        {"<!DOCTYPE a [<!ATTLIST a\nx NOTATION (n) #IMPLIED>]><a/>", {{1001920, "2|"}},
         "line 2: attribute type expected"},
        {"<!DOCTYPE a [<!ATTLIST a x (1|\n) #IMPLIED>]><a/>", {{1001918, "2|"}},
         "line 2: enumeration of attribute values expected"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA\n#FOO>]><a/>", {{1001913, "2|FIXED/REQUIRED/IMPLIED|"}},
         "line 2: \"FIXED/REQUIRED/IMPLIED\" expected"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA\nd>]><a/>", {{1001926, "2|"}}, "line 2: attribute value expected"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA>]><a/>", {{1001930, "1|"}}, "line 1: space expected"},
        {"<!DOCTYPE a [\n<!ENTITY e SYSTEM 'e.xml'>]><a/>", {{1001933, "2|e.xml|"}},
         "line 2: cannot get URL \"e.xml\""},
        {"<!DOCTYPE a [<!ENTITY e PUBLIC\n'a_b' 'x'>]><a/>", {{1001916, "2|0x5f|"}},
         "line 2: missing end of string or character \"0x5f\" illegal"},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM 'u' NDAT n>]><a/>", {{1001913, "1|NDATA / >|"}},
         "line 1: \"NDATA / >\" expected"},
        {"<!DOCTYPE a [<!ENTITY e x>]><a/>", {{1001913, "1|SYSTEM/PUBLIC|"}}, "line 1: \"SYSTEM/PUBLIC\" expected"},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM\n>]><a/>", {{1001925, "2|SYSTEM|"}}, "line 2: SYSTEM: string expected"},
        {"<!DOCTYPE a [\n<!FOO>]><a/>", {{1001927, "2|"}}, "line 2: markup declaration expected"},
        {"<!DOCTYPE a [<!ENTITY % p '%;'>]><a/>", {{1001935, "1|"}}, "line 1: parameter entity name expected"},
        {"<!DOCTYPE a [\n%q;]><a/>", {{1001936, "2|q|"}}, "line 2: parameter entity \"q\" undefined"},
        {"<!DOCTYPE a [<!ENTITY e '\n&b;'>]><a/>", {{1001934, "2|b|"}}, "line 2: undeclared entity \"b\""},
        {"<!DOCTYPE a [<!ENTITY e 'x'\n]><a/>", {{1001913, "2|>|"}}, "line 2: \">\" expected"},
        {"<!DOCTYPE a [<!ELEMENT a ANY>\n<a/>", {{1001927, "2|"}}, "line 2: markup declaration expected"},
    };
    for (const auto &f : failures) expectFailure(f);

    // A parameter-entity reference inside an internal entity value is
    // reported, but the declaration stands.
    EXPECT_NE(VQXML_parse("<!DOCTYPE a [<!ENTITY % p 'x%q;y'>]><a/>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001937, "1|q|"}}));
    // So does a default value that cannot be parsed; what follows decides.
    EXPECT_EQ(VQXML_parse("<!DOCTYPE a [<!ATTLIST a x CDATA 'v&u;'>]><a/>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001934, "1|u|"}, {1001913, "1|>|"}}));
}

TEST_F(LibraryTest, ConditionalSectionsAndKeywordChoice) {
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE a [ ]><a/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    // Only external text may hold conditional sections; nested INCLUDE
    // sections add their declarations in order.
    std::string text = " <![ INCLUDE [<!ELEMENT b ANY><![INCLUDE[ <!ELEMENT c ANY> ]]>]]> <!ELEMENT d ANY>";
    Source *s = source(doc, text);
    EXPECT_EQ(parseExtSubsetDecl(s, dt, 1), 1);
    deleteSource(s);
    EXPECT_EQ(print(dt), "<!DOCTYPE a [\r\n<!ELEMENT b ANY>\r\n<!ELEMENT c ANY>\r\n<!ELEMENT d ANY>\r\n]>");

    // IGNORE can never be chosen: "INCLUDE" comes first with the same letter.
    text = "<![IGNORE[ <!ELEMENT x ANY> ]]>";
    s = source(doc, text);
    EXPECT_EQ(parseExtSubsetDecl(s, dt, 1), 0);
    deleteSource(s);
    text = "<![INCLUDE[<!ELEMENT y ANY>";
    s = source(doc, text);
    EXPECT_EQ(parseExtSubsetDecl(s, dt, 1), 0);
    deleteSource(s);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001913, "1|INCLUDE/IGNORE|"}, {1001913, "1|]]>|"}}));

    const char *const words[] = {"AB", "AC", "B", nullptr};
    text = "AC";
    s = source(doc, text);
    EXPECT_EQ(parseWords(s, words), 0);
    deleteSource(s);
    text = "B";
    s = source(doc, text);
    EXPECT_EQ(parseWords(s, words), 3);
    deleteSource(s);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001913, "1|AB/AC/B|"}}));
}

TEST_F(LibraryTest, ContentModelNestingIsBounded) {
    auto model = [](int depth) {
        return "<!DOCTYPE a [<!ELEMENT a " + std::string(depth, '(') + "b" + std::string(depth, ')') + ">]><a/>";
    };
    const std::string deepest = model(10000);
    EXPECT_NE(VQXML_parse(deepest.c_str()), 0u);
    const std::string tooDeep = model(10001);
    expectFailure({tooDeep.c_str(), {{1001944, "1|10000|"}}, "line 1: elements nested deeper than 10000 levels"});
}
