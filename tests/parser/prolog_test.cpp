// prolog_test.cpp - the prolog: XML declarations, document type
// declarations and their markup declarations as stored, entities (general,
// parameter, external), default values, conditional sections, and every
// prolog message with its line.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;

namespace {

using vqtest::expectFailure;
using vqtest::Failure;

using namespace vqxml::codes;

using vqtest::print;

// The internal subset as the serializer writes it, without the DOCTYPE
// line and the closing bracket.
std::string subset(const char *text) {
    const VQHANDLE doc = vqtest::parse(text);
    if (doc == 0) return "";
    std::string out = print(VQDOM_getDoctype(doc));
    const size_t open = out.find("[\r\n");
    return open == std::string::npos ? out : out.substr(open + 3, out.size() - open - 3 - 4);
}

// The declarations below a document type (which the DOM does not show as
// children), by their links: type:name(children).
std::string decls(VQHANDLE n) {
    const Node *r = vqxml::node(n);
    std::string out = std::to_string(r->nodeType) + ":" + str(r->nodeName);
    for (VQHANDLE c = r->firstChild; c != 0; c = vqxml::node(c)->nextSibling) {
        out.append(c == r->firstChild ? "(" : ",").append(decls(c));
        out.append(vqxml::node(c)->nextSibling == 0 ? ")" : "");
    }
    return out;
}

// Runs `read` over a source on `text` in `doc`, and returns its result.
template <typename Read>
int readWith(VQHANDLE doc, std::string text, Read read) {
    Source *s = allocSource(text.data(), 0, doc);
    const int result = read(s);
    deleteSource(s);
    return result;
}

}  // namespace

TEST_F(LibraryTest, XmlDeclarationIsKept) {
    VQHANDLE doc = vqtest::parse("<?xml version='1.0' encoding=\"ISO-8859-1\" standalone = 'no' ?>\n<a/>");
    EXPECT_EQ(print(doc), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"no\"?>\r\n<a/>");
    doc = vqtest::parse("<?xml version='1.0' encoding='a_b.c-d:9' ?><a/>");
    const auto *decl = static_cast<const XmlDecl *>(vqxml::payload(vqxml::rec<Document>(doc)->xmlDecl));
    EXPECT_EQ(str(decl->version), "1.0");
    EXPECT_EQ(str(decl->encoding), "a_b.c-d:9");
    EXPECT_EQ(decl->standalone, 0u);
    EXPECT_EQ(vqxml::rec<Document>(VQXML_parse("<a/>"))->xmlDecl, 0u);
    // A missing version is reported, yet the document stands; standalone
    // does not stand in for it.
    for (const char *text : {"<?xml?><a/>", "<?xml standalone='yes'?><a/>"}) {
        EXPECT_NE(VQXML_parse(text), 0u);
        EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kExpected, "1|version|"}})) << text;
    }
}

TEST_F(LibraryTest, DocumentTypeDeclarationAsBuilt) {
    VQHANDLE doc = vqtest::parse("<!-- c --><!DOCTYPE a SYSTEM 'a.dtd'\n[\n<!ELEMENT a ANY>\n]\n><!-- d --><a/>");
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
    doc = vqtest::parse("<!DOCTYPE a [<!ENTITY % p '<!ELEMENT a EMPTY><!-- c -->'> %p; ]><a/>");
    EXPECT_EQ(decls(VQDOM_getDoctype(doc)), "10:a(6:p,5:p(13:a,8:#comment))");
    EXPECT_EQ(vqxml::rec<Entity>(vqxml::node(VQDOM_getDoctype(doc))->firstChild)->kind, 1u);
    EXPECT_EQ(VQDOM_getNamedItemStr(VQDOM_getEntities(VQDOM_getDoctype(doc)), "p"), 0u);
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

    // The codes behind the printed forms: each declaration as "type:
    // particles", a particle being separator:occurrence:name(particles).
    const VQHANDLE doc = vqtest::parse(
        "<!DOCTYPE a [<!ELEMENT a (b)><!ELEMENT b (c*,d+,e?)><!ELEMENT c (#PCDATA)><!ELEMENT d (#PCDATA)*>"
        "<!ELEMENT e EMPTY><!ELEMENT f ANY><!ELEMENT g (#PCDATA|b)*><!ATTLIST a k (x|y) #IMPLIED>]><a/>");
    const auto particles = [](const auto &self, VQHANDLE h) -> std::string {
        std::string out;
        for (VQHANDLE c = vqxml::node(h)->firstChild; c != 0; c = vqxml::node(c)->nextSibling) {
            const CpChildren *cp = vqxml::rec<CpChildren>(c);
            out.append(c == vqxml::node(h)->firstChild ? "(" : ",").append(std::to_string(cp->separator));
            out.append(":").append(std::to_string(cp->occurrence)).append(":");
            out.append(str(VQDOM_getNodeName(c))).append(self(self, c));
            out.append(vqxml::node(c)->nextSibling == 0 ? ")" : "");
        }
        return out;
    };
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    std::vector<std::string> models;
    for (VQHANDLE d = getFirstMarkupDecl(dt, VQXML_ELEMENT_DECL_NODE); d != 0; d = getNextMarkupDecl(d))
        models.push_back(std::to_string(vqxml::rec<ElementDecl>(d)->contentType) + ": " + particles(particles, d));
    // A group of one keeps the provisional sequence separator; element
    // names of a mixed model keep the separator of a new particle.
    EXPECT_EQ(models, (std::vector<std::string>{"4: (44:0:(0:0:b))", "4: (44:0:(0:42:c,0:43:d,0:63:e))",
                                                "3: (124:0:(0:0:#PCDATA))", "3: (124:42:(0:0:#PCDATA))", "1: ",
                                                "2: ", "3: (124:42:(0:0:#PCDATA,255:0:b))"}));
    const VQHANDLE def = findAttDef(dt, "a", "k");
    ASSERT_NE(def, 0u);
    EXPECT_EQ(vqxml::rec<AttDef>(def)->attType, 1);
    EXPECT_EQ(vqxml::rec<AttDef>(def)->defaultKind, 3);
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
    const VQHANDLE doc = vqtest::parse("<!DOCTYPE a PUBLIC '-//v//x' \"a.dtd\" [<!ENTITY % p SYSTEM 'p.ent'> %p;]><a/>");
    EXPECT_EQ(getFirstMarkupDecl(VQDOM_getDoctype(doc), VQXML_ELEMENT_DECL_NODE), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(LibraryTest, EveryPrologMessageWithItsLine) {
    const std::vector<Failure> failures = {
        {"<?xml version=\"1.1\" encoding='x'standalone='yes'?><a/>", {{kExpected, "1|?|"}},
         "line 1: \"?\" expected"},
        {"<?xml version='1.0' standalone='maybe'?><a/>", {{kExpected, "1|yes/no|"}}, "line 1: \"yes/no\" expected"},
        {"<?xml version='1.0'\nencoding='8bit'?><a/>", {{kEncodingCharacter, "2|0x38|"}},
         "line 2: encoding: character \"0x38\" illegal"},
        {"<?xml version\n'1.0'?><a/>", {{kEqualAfterKeyword, "2|version|"}, {kExpected, "2|?|"}},
         "line 2: version: \"=\" expected"},
        {"<?xml version=1.0?><a/>", {{kStringExpected, "1|version|"}, {kExpected, "1|?|"}},
         "line 1: version: string expected"},
        {"<?xml version='1.0' encoding='a b'?><a/>", {{kLiteralUnterminated, "1|0x20|"}},
         "line 1: missing end of string or character \"0x20\" illegal"},
        {"<?xml-stylesheet href='s'?><a/>", {{kExpected, "1|version|"}, {kExpected, "1|?|"}},
         "line 1: \"version\" expected"},
        {"<!DOCTYPE a [\n<!ELEMENT a (#PCDATA|b)>]><a/>", {{kExpected, "2|*|"}}, "line 2: \"*\" expected"},
        {"<!DOCTYPE a [\n<!ELEMENT a (a,b|c)>]><a/>", {{kMixedSeparators, "2|"}},
         "line 2: \"|\" and \",\" mixed in Element Type Declaration"},
        {"<!DOCTYPE a [\n<!ELEMENT a (a|#b)>]><a/>", {{kParticleExpected, "2|"}},
         "line 2: Element Type Declaration error, \"(\" or Name expected"},
        {"<!DOCTYPE a [\n<!ELEMENT a FULL>]><a/>", {{kExpected, "2|EMPTY/ANY/(|"}},
         "line 2: \"EMPTY/ANY/(\" expected"},
        {"<!DOCTYPE a [<!ATTLIST a\nx NOTATION (n) #IMPLIED>]><a/>", {{kAttTypeExpected, "2|"}},
         "line 2: attribute type expected"},
        {"<!DOCTYPE a [<!ATTLIST a x (1|\n) #IMPLIED>]><a/>", {{kEnumerationExpected, "2|"}},
         "line 2: enumeration of attribute values expected"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA\n#FOO>]><a/>", {{kExpected, "2|FIXED/REQUIRED/IMPLIED|"}},
         "line 2: \"FIXED/REQUIRED/IMPLIED\" expected"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA\nd>]><a/>", {{kValueExpected, "2|"}}, "line 2: attribute value expected"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA>]><a/>", {{kSpaceExpected, "1|"}}, "line 1: space expected"},
        {"<!DOCTYPE a [\n<!ENTITY e SYSTEM 'e.xml'>]><a/>", {{kCannotGetUrl, "2|e.xml|"}},
         "line 2: cannot get URL \"e.xml\""},
        {"<!DOCTYPE a [<!ENTITY e PUBLIC\n'a_b' 'x'>]><a/>", {{kLiteralUnterminated, "2|0x5f|"}},
         "line 2: missing end of string or character \"0x5f\" illegal"},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM 'u' NDAT n>]><a/>", {{kExpected, "1|NDATA / >|"}},
         "line 1: \"NDATA / >\" expected"},
        {"<!DOCTYPE a [<!ENTITY e x>]><a/>", {{kExpected, "1|SYSTEM/PUBLIC|"}}, "line 1: \"SYSTEM/PUBLIC\" expected"},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM\n>]><a/>", {{kStringExpected, "2|SYSTEM|"}}, "line 2: SYSTEM: string expected"},
        {"<!DOCTYPE a [\n<!FOO>]><a/>", {{kDeclarationExpected, "2|"}}, "line 2: markup declaration expected"},
        {"<!DOCTYPE a [<!ENTITY % p '%;'>]><a/>", {{kPeNameExpected, "1|"}}, "line 1: parameter entity name expected"},
        {"<!DOCTYPE a [\n%q;]><a/>", {{kPeUndefined, "2|q|"}}, "line 2: parameter entity \"q\" undefined"},
        {"<!DOCTYPE a [<!ENTITY e '\n&b;'>]><a/>", {{kUndeclaredEntity, "2|b|"}}, "line 2: undeclared entity \"b\""},
        {"<!DOCTYPE a [<!ENTITY e 'x'\n]><a/>", {{kExpected, "2|>|"}}, "line 2: \">\" expected"},
        {"<!DOCTYPE a [<!ELEMENT a ANY>\n<a/>", {{kDeclarationExpected, "2|"}}, "line 2: markup declaration expected"},
        // Only the very first bytes can open an XML declaration; anywhere
        // else, and before the root element, a PI is refused as a start
        // tag. An empty encoding name starts with its closing mark.
        {"<?xml version='1.0' standalone='y s'?><a/>", {{kLiteralUnterminated, "1|0x20|"}}},
        {"<?xml version='1.0' encoding=''?><a/>", {{kEncodingCharacter, "1|0x27|"}}},
        {"<?xml version='1.0'\nencoding:'x'?><a/>", {{kEqualAfterKeyword, "2|encoding|"}}},
        {"<?xml version='1.0'\n?<a/>", {{kExpected, "2|>|"}}}, {"<?xml version='1.0'?>\n", {{kUnexpectedEnd, "2|"}}},
        {" <?xml version='1.0'?><a/>", {{kNameStartIllegal, "1|0x3f|"}}},
        {"<?xml version='1.0'?>\n<?p x?><a/>", {{kNameStartIllegal, "2|0x3f|"}}},
        {"<!DOCTYPE a>\n<?p?><a/>", {{kNameStartIllegal, "2|0x3f|"}}},
        // One document type declaration, before the root element.
        {"<!DOCTYPEa><a/>", {{kSpaceExpected, "1|"}}}, {"<!DOCTYPE 1><a/>", {{kNameStartIllegal, "1|0x31|"}}},
        {"<!DOCX a><a/>", {{kExpected, "1|<!DOCTYPE|"}}}, {"<!DOCTYPE a x><a/>", {{kExpected, "1|SYSTEM/PUBLIC|"}}},
        {"<!DOCTYPE a PUBLIC 'p'><a/>", {{kSpaceExpected, "1|"}}}, {"<!DOCTYPE a SYSTEM'x'><a/>", {{kSpaceExpected, "1|"}}},
        {"<!DOCTYPE a [\n", {{kExpected, "2|]|"}}}, {"<!DOCTYPE a [] x><a/>", {{kExpected, "1|>|"}}},
        {"<!DOCTYPE a>\n", {{kUnexpectedEnd, "2|"}}}, {"<!DOCTYPE a><!DOCTYPE b><a/>", {{kNameStartIllegal, "1|0x21|"}}},
        // A "%" that opens no reference, or a reference without ";", stops
        // the parse without a message.
        {"<!DOCTYPE a [%1;]><a/>", {}}, {"<!DOCTYPE a [<!ENTITY % p ''>%p ]><a/>", {}},
        // An upper-case X is no hexadecimal mark: the reader and then the
        // content grammar both miss the ";". Parameter-entity values are
        // checked as replacement text.
        {"<!DOCTYPE a [<!ENTITY e 'a&#X41;'>]><a/>", {{kSemicolonExpected, "1|"}, {kSemicolonExpected, "1|"}}},
        {"<!DOCTYPE a [<!ENTITY e 'x'>\n<!ENTITY f '<b>&e;'>]><a/>", {{kEndTagMissing, "2|b|"}}},
        {"<!DOCTYPE a [<!ENTITY % p '%q x'>]><a/>", {{kPeIllegalHere, "1|q|"}, {kExpected, "1|;|"}}},
        {"<!DOCTYPE a [<!ENTITY % p '&#65 x'>]><a/>", {{kSemicolonExpected, "1|"}}},
        {"<!DOCTYPE a [<!ENTITY e '\r\r\n'>\r\n<!FOO>]><a/>", {{kDeclarationExpected, "3|"}}},
    };
    for (const auto &f : failures) expectFailure(f);

    // Markup declarations, each on line 2 of an internal subset: the first
    // match of each choice decides.
    const struct {
        const char *decl;
        Err error;
    } declarations[] = {
        {"<!ELEM a ANY>", {kExpected, "2|<!ELEMENT|"}}, {"<!ELEMENT a(b)>", {kSpaceExpected, "2|"}},
        {"<!ATTLISTa>", {kSpaceExpected, "2|"}}, {"<!NOTA n>", {kDeclarationExpected, "2|"}}, {"<x>", {kDeclarationExpected, "2|"}},
        // Any other character where a group goes on is taken for a mixed
        // separator.
        {"<!ELEMENT a (b|c>", {kMixedSeparators, "2|"}}, {"<!ELEMENT a (b c)>", {kMixedSeparators, "2|"}},
        {"<!ELEMENT a ()>", {kParticleExpected, "2|"}}, {"<!ELEMENT a (#PCDATX)>", {kExpected, "2|#PCDATA|"}},
        {"<!ELEMENT a (#PCDATA|1)*>", {kNameStartIllegal, "2|0x31|"}}, {"<!ELEMENT a (#PCDATA)+>", {kExpected, "2|>|"}},
        {"<!ATTLIST a x cdata #IMPLIED>", {kAttTypeExpected, "2|"}}, {"<!ATTLIST a x CDATAX #IMPLIED>", {kAttTypeExpected, "2|"}},
        {"<!ATTLIST a x CDATA #FIXED'v'>", {kSpaceExpected, "2|"}}, {"<!ATTLIST a x CDATA #IMPLIED y>", {kSpaceExpected, "2|"}},
        {"<!ATTLIST a x (p q) #IMPLIED>", {kExpected, "2|)|"}},
        {"<!ENTITY %p 'x'>", {kSpaceExpected, "2|"}}, {"<!ENTITY e'x'>", {kSpaceExpected, "2|"}},
        {"<!ENTITY 1 'x'>", {kNameStartIllegal, "2|0x31|"}}, {"<!ENTITY e 'x\x01'>", {kLiteralUnterminated, "2|0x1|"}},
        {"<!ENTITY % p SYSTEM 'p' NDATA n>", {kExpected, "2|>|"}},
        {"<!ENTITY e PUBLIC 'p\tq' 's'>", {kLiteralUnterminated, "2|0x9|"}}, {"<!ENTITY e PUBLIC 'p'>", {kSpaceExpected, "2|"}},
        {"<!NOTATION n>", {kSpaceExpected, "2|"}}, {"<!NOTATION n SYSTEM>", {kSpaceExpected, "2|"}},
        {"<?xml x?>", {kReservedPiTarget, "2|xml|"}},
    };
    for (const auto &d : declarations) expectFailure({std::string("<!DOCTYPE a [\n") + d.decl + "]><a/>", {d.error}});

    // A parameter-entity reference inside an internal entity value is
    // reported, but the declaration stands.
    EXPECT_NE(VQXML_parse("<!DOCTYPE a [<!ENTITY % p 'x%q;y'>]><a/>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kPeIllegalHere, "1|q|"}}));
    // So does a default value that cannot be parsed; what follows decides.
    EXPECT_EQ(VQXML_parse("<!DOCTYPE a [<!ATTLIST a x CDATA 'v&u;'>]><a/>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kUndeclaredEntity, "1|u|"}, {kExpected, "1|>|"}}));
    // Read on its own, such a default leaves its message and no default,
    // yet the definition is accepted.
    const VQHANDLE doc = vqtest::parse("<!DOCTYPE a [<!ATTLIST a x NMTOKEN #IMPLIED>]><a/>");
    const VQHANDLE def = findAttDef(VQDOM_getDoctype(doc), "a", "x");
    ASSERT_NE(def, 0u);
    EXPECT_EQ(readWith(doc, "'v<'", [&](Source *s) { return parseDefaultDecl(s, def); }), 1);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kClosingQuoteExpected, "1|x|"}}));
    EXPECT_EQ(VQDOM_getLengthMap(vqxml::node(def)->attributes), 0u);
}

TEST_F(LibraryTest, ConditionalSectionsAndKeywordChoice) {
    const VQHANDLE doc = vqtest::parse("<!DOCTYPE a [ ]><a/>");
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    // Only external text may hold conditional sections; nested INCLUDE
    // sections add their declarations in order.
    const auto subsetDecl = [&](Source *s) { return parseExtSubsetDecl(s, dt, 1); };
    EXPECT_EQ(readWith(doc, " <![ INCLUDE [<!ELEMENT b ANY><![INCLUDE[ <!ELEMENT c ANY> ]]>]]> <!ELEMENT d ANY>",
                       subsetDecl),
              1);
    EXPECT_EQ(print(dt), "<!DOCTYPE a [\r\n<!ELEMENT b ANY>\r\n<!ELEMENT c ANY>\r\n<!ELEMENT d ANY>\r\n]>");

    // IGNORE can never be chosen: "INCLUDE" comes first with the same
    // letter. Of words sharing a first letter only the first is tried.
    EXPECT_EQ(readWith(doc, "<![IGNORE[ <!ELEMENT x ANY> ]]>", subsetDecl), 0);
    EXPECT_EQ(readWith(doc, "<![INCLUDE[<!ELEMENT y ANY>", subsetDecl), 0);
    const char *const words[] = {"AB", "AC", "B", nullptr};
    const auto word = [&](Source *s) { return parseWords(s, words); };
    EXPECT_EQ(readWith(doc, "AC", word), 0);
    EXPECT_EQ(readWith(doc, "B", word), 3);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kExpected, "1|INCLUDE/IGNORE|"}, {kExpected, "1|]]>|"},
                                                       {kExpected, "1|AB/AC/B|"}}));
}

TEST_F(LibraryTest, ContentModelNestingIsBounded) {
    auto model = [](int depth) {
        return "<!DOCTYPE a [<!ELEMENT a " + std::string(depth, '(') + "b" + std::string(depth, ')') + ">]><a/>";
    };
    const std::string deepest = model(10000);
    EXPECT_NE(VQXML_parse(deepest.c_str()), 0u);
    const std::string tooDeep = model(10001);
    expectFailure({tooDeep.c_str(), {{kElementsTooDeep, "1|10000|"}}, "line 1: elements nested deeper than 10000 levels"});
}
