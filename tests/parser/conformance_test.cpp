// conformance_test.cpp - the parser as its callers meet it: every
// parse message with its parameters, line and rendered text; the XML
// declaration and the document type declaration as stored; the first match
// of each grammar choice; attribute values with declared types, defaults
// and entities; entity values parsed as content; the path tokenizer's
// boundaries; and the trace labels of the parser's own allocations.
#include <cstdio>
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
using Errs = std::vector<Err>;

namespace {

// A subtree in brief: elements as name[attributes](children), with "~="
// for an unspecified (defaulted) attribute; text quoted; C".." CDATA, !".."
// comments, ?target"data" PIs, &name(children) references.
std::string tree(VQHANDLE n) {
    std::string out;
    switch (VQDOM_getNodeType(n)) {
        case VQXML_ELEMENT_NODE: {
            out = str(VQDOM_getNodeName(n));
            const VQHANDLE map = VQDOM_getAttributes(n);
            const uint32_t count = VQDOM_getLengthMap(map);
            for (uint32_t i = 0; i < count; ++i) {
                const VQHANDLE a = VQDOM_itemMap(map, i);
                out += (i == 0 ? "[" : " ") + str(VQDOM_getNodeName(a)) + (VQDOM_getSpecified(a) ? "=\"" : "~=\"") +
                       str(VQDOM_getValue(a)) + "\"" + (i + 1 == count ? "]" : "");
            }
            break;
        }
        case VQXML_TEXT_NODE: return "\"" + str(VQDOM_getNodeValue(n)) + "\"";
        case VQXML_CDATA_SECTION_NODE: return "C\"" + str(VQDOM_getNodeValue(n)) + "\"";
        case VQXML_COMMENT_NODE: return "!\"" + str(VQDOM_getNodeValue(n)) + "\"";
        case VQXML_PROCESSING_INSTRUCTION_NODE:
            return "?" + str(VQDOM_getNodeName(n)) + "\"" + str(VQDOM_getNodeValue(n)) + "\"";
        case VQXML_ENTITY_REFERENCE_NODE: out = "&" + str(VQDOM_getNodeName(n)); break;
        case VQXML_ENTITY_NODE: out = "E" + str(VQDOM_getNodeName(n)); break;
        case VQXML_DOCUMENT_FRAGMENT_NODE: out = "#"; break;
        default: return "T" + std::to_string(VQDOM_getNodeType(n)) + ":" + str(VQDOM_getNodeName(n));
    }
    if (VQDOM_getFirstChild(n) != 0) {
        out += "(";
        for (VQHANDLE c = VQDOM_getFirstChild(n); c != 0; c = VQDOM_getNextSibling(c))
            out += tree(c) + (VQDOM_getNextSibling(c) != 0 ? "," : "");
        out += ")";
    }
    return out;
}

// Parses `text`, which must succeed without a message, and describes its
// root element.
std::string root(const std::string &text) {
    const VQHANDLE doc = VQXML_parse(text.c_str());
    EXPECT_NE(doc, 0u) << text << ::testing::PrintToString(vqtest::drainErrors());
    const Errs errors = vqtest::drainErrors();
    EXPECT_TRUE(errors.empty()) << text << ::testing::PrintToString(errors);
    return doc != 0 ? tree(VQDOM_getDocumentElement(doc)) : "";
}

// Parses `text`, which must fail with exactly `errors`, the first one
// rendering as `message`, and leave no heap block behind.
void fails(const std::string &text, const Errs &errors, const std::string &message) {
    SCOPED_TRACE(text);
    const auto before = vqxml::memStats();
    EXPECT_EQ(VQXML_parse(text.c_str()), 0u);
    const Errs got = vqtest::drainErrors();
    EXPECT_EQ(got, errors);
    if (!got.empty()) {
        EXPECT_EQ(vqtest::message(got[0].code, got[0].params), message);
    }
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
}

// The declarations below a document type (which the DOM does not show as
// children), by their links: type:name(children).
std::string decls(VQHANDLE n) {
    const Node *r = vqxml::node(n);
    std::string out = std::to_string(r->nodeType) + ":" + str(r->nodeName);
    if (r->firstChild == 0) return out;
    out += "(";
    for (VQHANDLE c = r->firstChild; c != 0; c = vqxml::node(c)->nextSibling)
        out += decls(c) + (vqxml::node(c)->nextSibling != 0 ? "," : "");
    return out + ")";
}

VQHANDLE entityNamed(VQHANDLE doc, const char *name) {
    return VQDOM_getNamedItemStr(VQDOM_getEntities(VQDOM_getDoctype(doc)), name);
}

}  // namespace

TEST_F(LibraryTest, ParseMessageTableTexts) {
    const std::vector<std::pair<int64_t, const char *>> table = {
        {1001750, "invalid character as namestart: 7"},
        {1001755, "invalid character in name: 7"},
        {1001900, "line 7: endtag of \"X\": \"<\" expected"},
        {1001901, "line 7: endtag of \"X\": \"/\" expected"},
        {1001902, "line 7: endtag of \"X\": illegal character"},
        {1001903, "line 7: endtag of \"X\": name different"},
        {1001904, "line 7: endtag of \"X\": \">\" expected"},
        {1001905, "line 7: unknown reference"},
        {1001906, "line 7: \";\" expected on end of a reference"},
        {1001907, "line 7: attribute \"X\": quotation mark expected"},
        {1001908, "line 7: attribute \"X\": closing quotation mark expected"},
        {1001909, "line 7: attribute \"X\": \"=\" expected"},
        {1001910, "line 7: illegal character (X)"},
        {1001911, "line 7: name begins with illegal character (X)"},
        {1001912, "line 7: end of Comment not found"},
        {1001913, "line 7: \"X\" expected"},
        {1001914, "line 7: X: \"=\" expected"},
        {1001915, "error 1001915"},
        {1001916, "line 7: missing end of string or character \"X\" illegal"},
        {1001917, "line 7: \"|\" and \",\" mixed in Element Type Declaration"},
        {1001918, "line 7: enumeration of attribute values expected"},
        {1001919, "line 7: encoding: character \"X\" illegal"},
        {1001920, "line 7: attribute type expected"},
        {1001921, "line 7: Element Type Declaration error, \"(\" expected"},
        {1001922, "line 7: Element Type Declaration error, \"(\" or Name expected"},
        {1001923, "error 1001923"},
        {1001925, "line 7: X: string expected"},
        {1001926, "line 7: attribute value expected"},
        {1001927, "line 7: markup declaration expected"},
        {1001929, "error 1001929"},
        {1001930, "line 7: space expected"},
        {1001931, "line 7: name \"X\" is illegal in ProcessingInstruction"},
        {1001932, "line 7: the character \"<\" cannot be used in an attribute value"},
        {1001933, "line 7: cannot get URL \"X\""},
        {1001934, "line 7: undeclared entity \"X\""},
        {1001935, "line 7: parameter entity name expected"},
        {1001936, "line 7: parameter entity \"X\" undefined"},
        {1001937, "line 7: use of parameter entity \"X\" is illegal here"},
        {1001938, "line 7: illegal reference of external entity \"X\""},
        {1001939, "line 7: string must end in the same entity"},
        {1001940, "line 7: element \"X\": start tag syntax error"},
        {1001941, "line 7: end of document is unexpected"},
        {1001942, "Line 7: endtag \"</X>\" is missing."},
        {1001943, "Line 7: illegal \"X\"."},
        {1939, "error 1939"},
    };
    for (const auto &[code, text] : table) EXPECT_EQ(vqtest::message(code, "7|X|"), text) << code;
}

TEST_F(LibraryTest, XmlDeclarationFieldsAndFaults) {
    const VQHANDLE doc = VQXML_parse("<?xml version='1.0' encoding='a_b.c-d:9' ?><a/>");
    ASSERT_NE(doc, 0u);
    const auto *decl = static_cast<const XmlDecl *>(vqxml::payload(vqxml::rec<Document>(doc)->xmlDecl));
    EXPECT_EQ(str(decl->version), "1.0");
    EXPECT_EQ(str(decl->encoding), "a_b.c-d:9");
    EXPECT_EQ(decl->standalone, 0u);
    EXPECT_EQ(vqxml::rec<Document>(VQXML_parse("<a/>"))->xmlDecl, 0u);

    // No space behind the encoding: standalone is not looked for.
    fails("<?xml version='1.0' encoding='e'standalone='no'?><a/>", {{1001913, "1|?|"}}, "line 1: \"?\" expected");
    fails("<?xml version='1.0' standalone='YES'?><a/>", {{1001913, "1|yes/no|"}}, "line 1: \"yes/no\" expected");
    fails("<?xml version='1.0' standalone='y s'?><a/>", {{1001916, "1|0x20|"}},
          "line 1: missing end of string or character \"0x20\" illegal");
    // An empty encoding name starts with its closing mark.
    fails("<?xml version='1.0' encoding=''?><a/>", {{1001919, "1|0x27|"}}, "line 1: encoding: character \"0x27\" illegal");
    fails("<?xml version='1.0'\nencoding:'x'?><a/>", {{1001914, "2|encoding|"}}, "line 2: encoding: \"=\" expected");
    fails("<?xml version='1.0'\n?<a/>", {{1001913, "2|>|"}}, "line 2: \">\" expected");
    // Only the very first bytes can open a declaration; anywhere else, and
    // before the root element, a PI is refused as a start tag.
    fails(" <?xml version='1.0'?><a/>", {{1001911, "1|0x3f|"}}, "line 1: name begins with illegal character (0x3f)");
    fails("<?xml version='1.0'?>\n<?p x?><a/>", {{1001911, "2|0x3f|"}},
          "line 2: name begins with illegal character (0x3f)");
    fails("<!DOCTYPE a>\n<?p?><a/>", {{1001911, "2|0x3f|"}}, "line 2: name begins with illegal character (0x3f)");
    fails("<?xml version='1.0'?>\n", {{1001941, "2|"}}, "line 2: end of document is unexpected");
    fails("<a/><?xml version='1.0'?>", {{1001931, "1|xml|"}}, "line 1: name \"xml\" is illegal in ProcessingInstruction");
}

// One reading of the declaration's steps looks for standalone right behind
// the version whether or not a space came first; the code looks for it only
// behind a space. Kept off until the team settles the reading.
TEST_F(LibraryTest, StandaloneRightBehindTheVersion) {
    EXPECT_NE(VQXML_parse("<?xml standalone='yes'?><a/>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001913, "1|version|"}}));
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
    fails("<!DOCTYPE a [<!ENTITY e 'x&#65;\n<b>'>]><a/>", {{1001942, "1|b|"}}, "Line 1: endtag \"</b>\" is missing.");
}

TEST_F(LibraryTest, EveryParseClearsTheMainListFirst) {
    // Pending DOM errors go with the main list's records.
    VQXML_parse("<a>");
    const VQHANDLE scratch = VQDOM_createDocument();
    EXPECT_EQ(VQDOM_createElement(scratch, VQDOM_createDS(scratch, "1x")), 0u);
    const VQHANDLE doc = VQXML_parse("<a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_EQ(VQDOM_getError(nullptr), 0);
    VQXML_parse("<a>");
    EXPECT_NE(VQXML_parseFragment(doc, "x"), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    // A fragment for a document that is gone: the list is kept and gets the
    // handle check's message.
    VQXML_parse("<a>");
    VQDOM_deleteNode(scratch);
    EXPECT_EQ(VQXML_parseFragment(scratch, "x"), 0u);
    char hex[16];
    std::snprintf(hex, sizeof hex, "%x|", scratch);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001942, "1|a|"}, {1001748, hex}}));
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
    // its text; the entity itself stays where it was declared.
    doc = VQXML_parse("<!DOCTYPE a [<!ENTITY % p '<!ELEMENT a EMPTY><!-- c -->'> %p; ]><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(decls(VQDOM_getDoctype(doc)), "10:a(6:p,5:p(13:a,8:#comment))");
    EXPECT_EQ(vqxml::rec<Entity>(vqxml::node(VQDOM_getDoctype(doc))->firstChild)->kind, 1u);
    // Parameter entities are not general entities.
    EXPECT_EQ(entityNamed(doc, "p"), 0u);
}

TEST_F(LibraryTest, DocumentTypeFaults) {
    fails("<!DOCTYPEa><a/>", {{1001930, "1|"}}, "line 1: space expected");
    fails("<!DOCTYPE 1><a/>", {{1001911, "1|0x31|"}}, "line 1: name begins with illegal character (0x31)");
    fails("<!DOCX a><a/>", {{1001913, "1|<!DOCTYPE|"}}, "line 1: \"<!DOCTYPE\" expected");
    fails("<!DOCTYPE a x><a/>", {{1001913, "1|SYSTEM/PUBLIC|"}}, "line 1: \"SYSTEM/PUBLIC\" expected");
    fails("<!DOCTYPE a PUBLIC 'p'><a/>", {{1001930, "1|"}}, "line 1: space expected");
    fails("<!DOCTYPE a SYSTEM'x'><a/>", {{1001930, "1|"}}, "line 1: space expected");
    fails("<!DOCTYPE a [\n", {{1001913, "2|]|"}}, "line 2: \"]\" expected");
    fails("<!DOCTYPE a [] x><a/>", {{1001913, "1|>|"}}, "line 1: \">\" expected");
    fails("<!DOCTYPE a>\n", {{1001941, "2|"}}, "line 2: end of document is unexpected");
    // One document type, before the root element.
    fails("<!DOCTYPE a><!DOCTYPE b><a/>", {{1001911, "1|0x21|"}}, "line 1: name begins with illegal character (0x21)");
    fails("<a/><!DOCTYPE a>", {{1001910, "1|0x3c|"}}, "line 1: illegal character (0x3c)");
    // A "%" that opens no reference, or a reference without ";", stops the
    // parse without a message.
    fails("<!DOCTYPE a [%1;]><a/>", {}, "");
    fails("<!DOCTYPE a [<!ENTITY % p ''>%p ]><a/>", {}, "");
}

TEST_F(LibraryTest, MarkupDeclarationFaults) {
    struct Case {
        const char *decl;
        Err error;
        const char *message;
    };
    const std::vector<Case> cases = {
        {"<!ELEM a ANY>", {1001913, "2|<!ELEMENT|"}, "line 2: \"<!ELEMENT\" expected"},
        {"<!ELEMENT a(b)>", {1001930, "2|"}, "line 2: space expected"},
        {"<!ATTLISTa>", {1001930, "2|"}, "line 2: space expected"},
        {"<!NOTA n>", {1001927, "2|"}, "line 2: markup declaration expected"},
        {"<x>", {1001927, "2|"}, "line 2: markup declaration expected"},
        // Any other character where a group goes on is taken for a mixed
        // separator.
        {"<!ELEMENT a (b|c>", {1001917, "2|"}, "line 2: \"|\" and \",\" mixed in Element Type Declaration"},
        {"<!ELEMENT a (b c)>", {1001917, "2|"}, "line 2: \"|\" and \",\" mixed in Element Type Declaration"},
        {"<!ELEMENT a ()>", {1001922, "2|"}, "line 2: Element Type Declaration error, \"(\" or Name expected"},
        {"<!ELEMENT a (#PCDATX)>", {1001913, "2|#PCDATA|"}, "line 2: \"#PCDATA\" expected"},
        {"<!ELEMENT a (#PCDATA|1)*>", {1001911, "2|0x31|"}, "line 2: name begins with illegal character (0x31)"},
        {"<!ELEMENT a (#PCDATA)+>", {1001913, "2|>|"}, "line 2: \">\" expected"},
        {"<!ATTLIST a x cdata #IMPLIED>", {1001920, "2|"}, "line 2: attribute type expected"},
        {"<!ATTLIST a x CDATAX #IMPLIED>", {1001920, "2|"}, "line 2: attribute type expected"},
        {"<!ATTLIST a x CDATA #FIXED'v'>", {1001930, "2|"}, "line 2: space expected"},
        {"<!ATTLIST a x CDATA #IMPLIED y>", {1001930, "2|"}, "line 2: space expected"},
        {"<!ATTLIST a x (p q) #IMPLIED>", {1001913, "2|)|"}, "line 2: \")\" expected"},
        {"<!ENTITY %p 'x'>", {1001930, "2|"}, "line 2: space expected"},
        {"<!ENTITY e'x'>", {1001930, "2|"}, "line 2: space expected"},
        {"<!ENTITY 1 'x'>", {1001911, "2|0x31|"}, "line 2: name begins with illegal character (0x31)"},
        {"<!ENTITY e 'x\x01'>", {1001916, "2|0x1|"}, "line 2: missing end of string or character \"0x1\" illegal"},
        {"<!ENTITY % p SYSTEM 'p' NDATA n>", {1001913, "2|>|"}, "line 2: \">\" expected"},
        {"<!ENTITY e PUBLIC 'p\tq' 's'>", {1001916, "2|0x9|"},
         "line 2: missing end of string or character \"0x9\" illegal"},
        {"<!ENTITY e PUBLIC 'p'>", {1001930, "2|"}, "line 2: space expected"},
        {"<!NOTATION n>", {1001930, "2|"}, "line 2: space expected"},
        {"<!NOTATION n SYSTEM>", {1001930, "2|"}, "line 2: space expected"},
        {"<?xml x?>", {1001931, "2|xml|"}, "line 2: name \"xml\" is illegal in ProcessingInstruction"},
    };
    for (const Case &c : cases) fails(std::string("<!DOCTYPE a [\n") + c.decl + "]><a/>", {c.error}, c.message);
}

TEST_F(LibraryTest, ContentModelsAsStored) {
    const VQHANDLE doc = VQXML_parse(
        "<!DOCTYPE a [<!ELEMENT a (b)><!ELEMENT b (c*,d+,e?)><!ELEMENT c (#PCDATA)>"
        "<!ELEMENT d (#PCDATA)*><!ELEMENT e EMPTY><!ELEMENT f ANY>]><a/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    std::vector<VQHANDLE> decls;
    for (VQHANDLE d = getFirstMarkupDecl(dt, VQXML_ELEMENT_DECL_NODE); d != 0; d = getNextMarkupDecl(d))
        decls.push_back(d);
    ASSERT_EQ(decls.size(), 6u);
    auto type = [](VQHANDLE d) { return vqxml::rec<ElementDecl>(d)->contentType; };
    auto cp = [](VQHANDLE h) {
        const CpChildren *c = vqxml::rec<CpChildren>(h);
        return std::to_string(c->separator) + ":" + std::to_string(c->occurrence) + ":" + str(VQDOM_getNodeName(h));
    };
    EXPECT_EQ(type(decls[0]) * 1000 + type(decls[2]) * 100 + type(decls[4]) * 10 + type(decls[5]), 4312);
    // A group of one keeps the provisional sequence separator.
    const VQHANDLE group = vqxml::node(decls[0])->firstChild;
    EXPECT_EQ(cp(group), "44:0:");
    EXPECT_EQ(cp(vqxml::node(group)->firstChild), "0:0:b");
    std::string particles;
    for (VQHANDLE p = vqxml::node(vqxml::node(decls[1])->firstChild)->firstChild; p != 0;
         p = vqxml::node(p)->nextSibling)
        particles += cp(p) + " ";
    EXPECT_EQ(particles, "0:42:c 0:43:d 0:63:e ");
    EXPECT_EQ(cp(vqxml::node(decls[2])->firstChild), "124:0:");
    EXPECT_EQ(cp(vqxml::node(decls[3])->firstChild), "124:42:");
    EXPECT_EQ(vqxml::node(decls[4])->firstChild, 0u);
}

TEST_F(LibraryTest, DefaultAttributesFollowTheDeclarations) {
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
}

// Declarations reached through a parameter-entity reference count, but the
// walk over them does not enter a second reference that follows the first.
TEST_F(LibraryTest, DefaultsFromParameterEntities) {
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY % p '<!ATTLIST a x CDATA \"1\">'>"
                   "<!ENTITY % q '<!ATTLIST a y CDATA \"2\">'>%p;%q;<!ATTLIST a z NMTOKEN \" 3 \">]>"
                   "<a y=' 4 '/>"),
              "a[x~=\"1\" z~=\"3\" y=\" 4 \"]");
}

TEST_F(LibraryTest, AttributeValuesThroughEntities) {
    // A reference keeps its text as it is: only blanks fold, and only for
    // declared types other than CDATA.
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY s ' a  b '><!ENTITY t 'x\ty'><!ENTITY q '&quot;&#65;'>"
                   "<!ATTLIST a n NMTOKENS #IMPLIED>]><a n='&s;' c='[&s;]' t='&t;' q='&q;'/>"),
              "a[n=\"a b\" c=\"[ a  b ]\" t=\"x\ty\" q=\"\"A\"]");
    // Unparsed external entities may be named in content (they stay empty)
    // but not in values.
    EXPECT_EQ(root("<!DOCTYPE a [<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>]><a>&u;</a>"), "a(&u)");
    EXPECT_EQ(root("<!DOCTYPE a [<!ENTITY lt 'LT'>]><a x='&lt;'>&lt;</a>"), "a[x=\"<\"](\"<\")");
    // A parameter entity is no general entity; an unknown name is reported
    // before the missing ";" with a document type, after it without.
    fails("<!DOCTYPE a [<!ENTITY % p 'x'>]>\n<a>&p;</a>", {{1001934, "2|p|"}}, "line 2: undeclared entity \"p\"");
    fails("<!DOCTYPE a []><a>&foo </a>", {{1001934, "1|foo|"}}, "line 1: undeclared entity \"foo\"");
    fails("<a>&foo </a>", {{1001906, "1|"}}, "line 1: \";\" expected on end of a reference");
    fails("<a x='&#65'/>", {{1001906, "1|"}}, "line 1: \";\" expected on end of a reference");
}

TEST_F(LibraryTest, EntityValuesParsedAsContent) {
    VQHANDLE doc = VQXML_parse(
        "<!DOCTYPE a [<!ENTITY % p 'P&#66;'>\n<!ENTITY e\n\n'a%p;b&#233;c&#256;d&lt;<?t d?><!--c--><![CDATA[x]]>'>"
        "<!ENTITY n '&#256;'>]><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
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
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001936, "1|q|"}}));
    EXPECT_EQ(tree(VQDOM_getDocumentElement(doc)), "a(&e(\"a%q;b\"))");

    // An upper-case X is no hexadecimal mark: the reader and then the
    // content grammar both miss the ";".
    fails("<!DOCTYPE a [<!ENTITY e 'a&#X41;'>]><a/>", {{1001906, "1|"}, {1001906, "1|"}},
          "line 1: \";\" expected on end of a reference");
    fails("<!DOCTYPE a [<!ENTITY e 'x'>\n<!ENTITY f '<b>&e;'>]><a/>", {{1001942, "2|b|"}},
          "Line 2: endtag \"</b>\" is missing.");
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
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001908, "1|x|"}}));
    EXPECT_EQ(VQDOM_getLengthMap(vqxml::node(def)->attributes), 0u);
}

// The value of a parameter entity is checked as replacement text but kept
// as written.
TEST_F(LibraryTest, ParameterEntityValuesAreOnlyChecked) {
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE a [<!ENTITY % p '% x &#x41; &amp; &e;'>]><a/>");
    ASSERT_NE(doc, 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    const VQHANDLE p = vqxml::node(VQDOM_getDoctype(doc))->firstChild;
    EXPECT_EQ(str(vqxml::rec<Entity>(p)->value), "% x &#x41; &amp; &e;");
    fails("<!DOCTYPE a [<!ENTITY % p '%q x'>]><a/>", {{1001937, "1|q|"}, {1001913, "1|;|"}},
          "line 1: use of parameter entity \"q\" is illegal here");
    fails("<!DOCTYPE a [<!ENTITY % p '&#65 x'>]><a/>", {{1001906, "1|"}}, "line 1: \";\" expected on end of a reference");
}

TEST_F(LibraryTest, LinesCountLineFeedsOnly) {
    // CR LF is one line end, a lone CR none, wherever the scan is.
    fails("<a>\r\r</b>", {{1001903, "1|a|"}}, "line 1: endtag of \"a\": name different");
    fails("<a>\r\n\r\n</b>", {{1001903, "3|a|"}}, "line 3: endtag of \"a\": name different");
    fails("<a x='\r\r\n'\r\r\ny/>", {{1001909, "3|y|"}}, "line 3: attribute \"y\": \"=\" expected");
    fails("<a><!--\r\r\n--><![CDATA[\r\r\n]]><?p \r\r\n?>\r\n</b>", {{1001903, "5|a|"}},
          "line 5: endtag of \"a\": name different");
    fails("<!DOCTYPE a [<!ENTITY e '\r\r\n'>\r\n<!FOO>]><a/>", {{1001927, "3|"}}, "line 3: markup declaration expected");
}

TEST_F(LibraryTest, ContentFirstMatchAndFaults) {
    fails("<a 1='x'/>", {{1001940, "1|a|"}}, "line 1: element \"a\": start tag syntax error");
    fails("<a><![CDX[x]]></a>", {{1001913, "1|<![CDATA[|"}}, "line 1: \"<![CDATA[\" expected");
    fails("<a><![CX[x]]></a>", {{1001911, "1|0x21|"}}, "line 1: name begins with illegal character (0x21)");
    fails("<a><!-x--></a>", {{1001911, "1|0x21|"}}, "line 1: name begins with illegal character (0x21)");
    fails("<a><!--a---></a>", {{1001912, "1|"}}, "line 1: end of Comment not found");
    fails("<a><!--a", {{1001912, "1|"}}, "line 1: end of Comment not found");
    fails("<a><?p=x?></a>", {{1001913, "1|?>|"}}, "line 1: \"?>\" expected");
    fails("<a>\n</a>x", {{1001910, "2|0x78|"}}, "line 2: illegal character (0x78)");
    fails("\xEF\xBB\xBF<a/>", {{1001910, "1|0xef|"}}, "line 1: illegal character (0xef)");
    fails("<a><!-- x --></a>\n<!-- y", {{1001912, "2|"}}, "line 2: end of Comment not found");
    EXPECT_EQ(root("<a\tx\n=\r\n'1' />"), "a[x=\"1\"]");
    // Character numbers wrap at 32 bits.
    EXPECT_EQ(root("<a>&#4294967361;&#x;</a>"), "a(\"A\")");
    EXPECT_EQ(root("<a>x\x7F<?xml-p?><?XMLS d?></a>"), "a(\"x\x7F\",?xml-p\"\",?XMLS\"d\")");
}

TEST_F(LibraryTest, FragmentsReadWithTheDocumentType) {
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    ASSERT_NE(doc, 0u);
    const uint32_t children = VQDOM_getLengthList(VQDOM_getChildNodes(doc));
    // The CDATA reader expands references as the reader does, and keeps CR.
    VQHANDLE f = VQXML_parseFragment(doc, "x<![CDATA[&#65;\r]]>&#38;amp;");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(tree(f), "#(\"x\",C\"A\r\",\"&\")");
    // A failing fragment leaves the document as it was.
    EXPECT_EQ(VQXML_parseFragment(doc, "<b>&f;</b>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{1001934, "1|f|"}}));
    EXPECT_EQ(VQDOM_getLengthList(VQDOM_getChildNodes(doc)), children);
}

TEST_F(LibraryTest, PathTokenBoundaries) {
    XToken t{};
    // Only blanks and tabs are skipped; a line end is a bad token.
    const char *text = "\n a";
    EXPECT_EQ(nextXToken(text, &t), text);
    EXPECT_EQ(t.kind, -1);
    text = "";
    EXPECT_EQ(nextXToken(text, &t), text);
    EXPECT_EQ(t.kind, 0);
    text = "-a";
    EXPECT_EQ(nextXToken(text, &t), text);
    EXPECT_EQ(t.kind, -1);
    // Names may start with ":" or "_"; digits and dots go on a name.
    text = ":_a.1-b/";
    EXPECT_EQ(nextXToken(text, &t), text + 7);
    EXPECT_EQ(t.kind, 4);
    EXPECT_EQ(t.start, text);
    EXPECT_EQ(t.value, 7u);
    // Numbers wrap without a check.
    text = "4294967297]";
    EXPECT_EQ(nextXToken(text, &t), text + 10);
    EXPECT_EQ(t.kind, 2);
    EXPECT_EQ(t.value, 1u);
    // The other quotation mark is part of a string.
    text = "'a\"b'x";
    EXPECT_EQ(nextXToken(text, &t), text + 5);
    EXPECT_EQ(t.kind, 1);
    EXPECT_EQ(t.start, text + 1);
    EXPECT_EQ(t.value, 3u);
}

TEST_F(LibraryTest, ParserAllocationTraceLabels) {
    vqtest::TraceCapture trace('2');
    ASSERT_NE(VQXML_parse("<!DOCTYPE a [<!ENTITY e 'xy'>]><a/>"), 0u);
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE a [<!ENTITY % p 'P'>]><a/>");
    ASSERT_NE(doc, 0u);
    // A parameter-entity reference read inside a CDATA section of a
    // fragment: its expansion record is freed by the CDATA reader.
    const VQHANDLE dt = VQDOM_getDoctype(doc);
    std::string text = "<![CDATA[%p;]]>";
    Source *s = allocSource(text.data(), 0, doc);
    s->doctype = dt;
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
