// dtd_test.cpp - element and attribute definitions changed at run time: the
// values of an enumeration, definitions parsed from their texts (with the
// parser's messages), the elements brought in line, the reach of the
// specified-attribute check, failures that change nothing, and a document
// whose definitions were made this way printing as it parses back.
#include <string>
#include <utility>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/codes.h"

namespace {

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::print;
using vqtest::str;
using Errs = std::vector<Err>;
using namespace vqxml::codes;

class DtdTest : public vqtest::LibraryTest {
protected:
    // Parses `text` as the document under test; dt is its document type.
    void load(const char *text) {
        doc = vqtest::parse(text);
        dt = VQDOM_getDoctype(doc);
    }
    // The printed internal subset, between "[" and "]", without line breaks.
    std::string subset() const {
        const std::string all = print(doc);
        const size_t open = all.find('['), close = all.rfind(']');
        if (open == std::string::npos) return "";
        std::string out;
        for (const char c : all.substr(open + 1, close - open - 1))
            if (c != '\r' && c != '\n') out += c;
        return out;
    }
    // Attributes of the n-th element named `name`: name=value, "*" marking
    // specified ones.
    std::string attrs(const char *name, int n = 0) const {
        const VQHANDLE e = VQDOM_itemList(VQDOM_getElementsByTagNameStr(doc, name), static_cast<uint64_t>(n));
        const VQHANDLE map = VQDOM_getAttributes(e);
        std::string out;
        for (uint32_t i = 0; i < VQDOM_getLengthMap(map); ++i) {
            const VQHANDLE a = VQDOM_itemMap(map, i);
            out += str(VQDOM_getName(a)) + "=" + str(VQDOM_getValue(a)) + (VQDOM_getSpecified(a) ? "* " : " ");
        }
        return out;
    }
    std::string enumeration(const char *element, const char *attribute) const {
        return enumerationIn(dt, element, attribute);
    }
    static std::string enumerationIn(VQHANDLE doctype, const char *element, const char *attribute) {
        const VQHANDLE values = VQDOM_enumAttValues(doctype, element, attribute);
        if (values == 0) return "(none)";
        std::string out = str(values);
        VQDOM_deleteDS(values);
        return out;
    }
    VQHANDLE doc = 0;
    VQHANDLE dt = 0;
};

TEST_F(DtdTest, EnumeratedValues) {
    load("<!DOCTYPE r [<!ATTLIST r c (red|green|blue) 'red' t CDATA #IMPLIED>"
         "<!ATTLIST r c (x) 'x'>]><r/>");
    EXPECT_EQ(enumeration("r", "c"), "red|green|blue");  // the first definition of the name
    EXPECT_EQ(enumeration("r", "t"), "");
    EXPECT_EQ(enumeration("r", "unknown"), "(none)");
    EXPECT_EQ(enumeration("other", "c"), "(none)");
    EXPECT_EQ(VQDOM_enumAttValues(dt, nullptr, "c") | VQDOM_enumAttValues(dt, "r", nullptr) |
                  VQDOM_enumAttValues(doc, "r", "c"),
              0u);
    // Past the local buffer (1023 bytes) the text is built on the heap, whole.
    std::string values, text = "(";
    for (int i = 0; i < 300; ++i) values += (i ? "|v" : "v") + std::to_string(i);
    text += values + ") 'v0'";
    ASSERT_EQ(VQDOM_createAttListDef(dt, "r", "many", text.c_str()), 1);
    vqtest::TraceCapture trace('2');
    EXPECT_EQ(enumeration("r", "many"), values);
    EXPECT_NE(trace.text().find("VQXML malloc - (enumAttValues)"), std::string::npos);
    EXPECT_NE(trace.text().find("VQXML free   - (enumAttValues)"), std::string::npos);
}

TEST_F(DtdTest, ElementDefinitionsParsedFromTheirText) {
    struct Case {
        const char *name, *text;
        int result;
        const char *printed;  // the declaration as printed, or the errors
        Errs errors;
    };
    const Case cases[] = {
        {"e", "EMPTY", 1, "<!ELEMENT e EMPTY>", {}},
        {"m", " ( #PCDATA ) ", 1, "<!ELEMENT m (#PCDATA)>", {}},
        {"s", "(x,(y|z)+,w?)", 1, "<!ELEMENT s (x,(y|z)+,w?)>", {}},
        // Text after the content model is not read.
        {"t", "EMPTY and then some >", 1, "<!ELEMENT t EMPTY>", {}},
        {"r", "EMPTY", 0, "", {}},  // declared already
        {"u", "", 0, "", {{kExpected, "1|EMPTY/ANY/(|"}}},
        {"x", "\n\nEMTPY", 0, "", {{kExpected, "3|EMPTY/ANY/(|"}}},
    };
    load("<!DOCTYPE r [<!ELEMENT r ANY>]><r/>");
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        const std::string before = subset();
        EXPECT_EQ(VQDOM_createElementDef(dt, c.name, c.text), c.result);
        EXPECT_EQ(drainErrors(), c.errors);
        EXPECT_EQ(subset(), before + c.printed);
    }
}

TEST_F(DtdTest, NewAttributeDefinitionReachesEveryElementOfItsName) {
    load("<!DOCTYPE r [<!ATTLIST e x CDATA #IMPLIED><!ENTITY v 'vee'>]>"
         "<r><e/><o><e k='own'><e/></e></o><e k='mine' x='1'/></r>");
    // Every e, nested or not, gets the default, unspecified; an attribute of
    // that name it had, specified or not, is displaced.
    ASSERT_EQ(VQDOM_createAttListDef(dt, "e", "k", " CDATA  'de&v;f' "), 1);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(attrs("e", 0), "k=deveef ");
    EXPECT_EQ(attrs("e", 1), "k=deveef ");
    EXPECT_EQ(attrs("e", 2), "k=deveef ");
    EXPECT_EQ(attrs("e", 3), "x=1* k=deveef ");
    EXPECT_EQ(subset(), "<!ATTLIST e x CDATA #IMPLIED k CDATA \"de&v;f\"><!ENTITY v \"vee\">");
    // A definition without a default leaves the elements alone.
    ASSERT_EQ(VQDOM_createAttListDef(dt, "e", "n", "NMTOKEN #REQUIRED"), 1);
    EXPECT_EQ(attrs("e", 3), "x=1* k=deveef ");
    // An element made later gets the defaults as a parsed one would.
    const VQHANDLE made = VQDOM_createElement(doc, VQDOM_createDS(doc, "e"));
    EXPECT_EQ(str(VQDOM_getAttribute(made, VQDOM_createDS(doc, "k"))), "deveef");
    VQDOM_deleteNode(made);
}

TEST_F(DtdTest, AttributeDefinitionFailuresChangeNothing) {
    struct Case {
        const char *element, *attribute, *text;
        Errs errors;
    };
    const Case cases[] = {
        {"e", "x", "CDATA 'again'", {}},        // defined already
        {"none", "y", "CDATA 'z'", {}},        // no attribute-list declaration
        {"e", "y", "", {{kAttTypeExpected, "1|"}, {kValueExpected, "1|"}}},
        // The default declaration is read after a bad type, its faults too.
        {"e", "y", "STRING #DEFAULT", {{kAttTypeExpected, "1|"}, {kExpected, "1|FIXED/REQUIRED/IMPLIED|"}}},
    };
    load("<!DOCTYPE r [<!ATTLIST e x CDATA 'dx'>]><r><e/></r>");
    const std::string before = print(doc);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text != nullptr ? c.text : "(null)");
        EXPECT_EQ(VQDOM_createAttListDef(dt, c.element, c.attribute, c.text), 0);
        EXPECT_EQ(drainErrors(), c.errors);
        EXPECT_EQ(print(doc), before);
        EXPECT_EQ(attrs("e"), "x=dx ");
    }
    // Handles that are no document type: the document, an element, a
    // stale handle, a made-up one, none.
    const VQHANDLE stale = VQXML_parse("<!DOCTYPE s [<!ATTLIST s a CDATA 'b'>]><s/>");
    const VQHANDLE staleType = VQDOM_getDoctype(stale);
    VQDOM_deleteNode(stale);
    for (const VQHANDLE h : {doc, VQDOM_getDocumentElement(doc), staleType, dt + 0x100000u, 0u}) {
        EXPECT_EQ(VQDOM_createAttListDef(h, "e", "y", "CDATA 'z'") + VQDOM_createElementDef(h, "n", "EMPTY") +
                      VQDOM_deleteAttListDef(h, "e", "x") + VQDOM_deleteElementDef(h, "e"),
                  0);
        EXPECT_EQ(VQDOM_enumAttValues(h, "e", "x"), 0u);
    }
    EXPECT_EQ(VQDOM_createAttListDef(dt, "e", nullptr, "CDATA 'z'") + VQDOM_createAttListDef(dt, nullptr, "y", "CDATA") +
                  VQDOM_createAttListDef(dt, "e", "y", nullptr) + VQDOM_createElementDef(dt, nullptr, "EMPTY") +
                  VQDOM_createElementDef(dt, "n", nullptr),
              0);
    EXPECT_EQ(print(doc), before);
    // An attribute-list declaration without definitions does not outlive a
    // failed addition to it.
    load("<!DOCTYPE r [<!ATTLIST r><!ELEMENT r EMPTY>]><r/>");
    EXPECT_EQ(VQDOM_createAttListDef(dt, "r", "a", "BAD 'x'"), 0);
    drainErrors();
    EXPECT_EQ(subset(), "<!ELEMENT r EMPTY>");
    EXPECT_EQ(VQDOM_createAttListDef(dt, "r", "a", "CDATA 'x'"), 0);  // and then there is none
}

TEST_F(DtdTest, DeletingAnAttributeDefinition) {
    // The refusal looks only at elements of that name among the document's
    // children and nested in each other from there.
    load("<!DOCTYPE e [<!ATTLIST e a CDATA 'd' b CDATA 'd'>]><e b='s'><e><e a='set'/></e></e>");
    EXPECT_EQ(VQDOM_deleteAttListDef(dt, "e", "a"), 0);
    EXPECT_EQ(attrs("e", 2), "b=d a=set* ");
    EXPECT_EQ(VQDOM_deleteAttListDef(dt, "e", "missing") + VQDOM_deleteAttListDef(dt, nullptr, "a") +
                  VQDOM_deleteAttListDef(dt, "e", nullptr),
              0);

    load("<!DOCTYPE r [<!ATTLIST e a CDATA 'd' b CDATA 'd'>]><r><e a='set'><e a='in'/></e><e/></r>");
    EXPECT_EQ(VQDOM_deleteAttListDef(dt, "e", "a"), 1);
    EXPECT_EQ(attrs("e", 0) + "|" + attrs("e", 1) + "|" + attrs("e", 2), "b=d |b=d |b=d ");
    EXPECT_EQ(subset(), "<!ATTLIST e b CDATA \"d\">");
    // The last definition takes its declaration with it.
    EXPECT_EQ(VQDOM_deleteAttListDef(dt, "e", "b"), 1);
    EXPECT_EQ(subset(), "");
    EXPECT_EQ(attrs("e"), "");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(DtdTest, DeletingAnElementDefinition) {
    load("<!DOCTYPE r [<!ELEMENT r ANY><!ELEMENT e EMPTY><!ATTLIST e a CDATA 'd'><!ENTITY % p "
         "'<!ELEMENT e ANY>'>%p;<!ATTLIST e b CDATA #IMPLIED><!ELEMENT f EMPTY>]><r><e/></r>");
    const std::string before = subset();
    EXPECT_EQ(VQDOM_deleteElementDef(dt, "e"), 0);  // an e is in the document
    EXPECT_EQ(subset(), before);
    VQDOM_deleteNode(VQDOM_removeChild(VQDOM_getDocumentElement(doc), VQDOM_getFirstChild(VQDOM_getDocumentElement(doc))));
    EXPECT_EQ(VQDOM_deleteElementDef(dt, "e"), 1);
    // Declarations brought in by a parameter entity go too.
    EXPECT_EQ(subset(), "<!ELEMENT r ANY><!ENTITY % p \"<!ELEMENT e ANY>\">%p;<!ELEMENT f EMPTY>");
    EXPECT_EQ(VQDOM_deleteElementDef(dt, "e") + VQDOM_deleteElementDef(dt, nullptr), 0);  // nothing left
    EXPECT_EQ(VQDOM_deleteElementDef(dt, "f"), 1);
    EXPECT_TRUE(drainErrors().empty());
}

// A document type built and changed only through the calls prints a text
// that parses back into the same document.
TEST_F(DtdTest, ChangedDefinitionsPrintAsTheyParseBack) {
    load("<!DOCTYPE r [<!ATTLIST item><!ATTLIST r>]><r><item/><group><item id='i2'/></group></r>");
    ASSERT_EQ(VQDOM_createElementDef(dt, "r", "(item|group)*"), 1);
    ASSERT_EQ(VQDOM_createElementDef(dt, "item", "EMPTY"), 1);
    ASSERT_EQ(VQDOM_createElementDef(dt, "group", "(item+)"), 1);
    ASSERT_EQ(VQDOM_createElementDef(dt, "gone", "(#PCDATA)"), 1);
    ASSERT_EQ(VQDOM_createAttListDef(dt, "item", "colour", "(red|green) 'green'"), 1);
    ASSERT_EQ(VQDOM_createAttListDef(dt, "item", "id", "ID #IMPLIED"), 1);
    ASSERT_EQ(VQDOM_createAttListDef(dt, "item", "note", "CDATA #FIXED 'a\tb'"), 1);
    ASSERT_EQ(VQDOM_createAttListDef(dt, "r", "version", "NMTOKEN '1'"), 1);
    ASSERT_EQ(VQDOM_deleteAttListDef(dt, "r", "version"), 1);
    ASSERT_EQ(VQDOM_deleteElementDef(dt, "gone"), 1);
    ASSERT_EQ(VQDOM_deleteAttListDef(dt, "item", "note"), 1);
    EXPECT_TRUE(drainErrors().empty());

    const std::string printed = print(doc);
    EXPECT_EQ(printed,
              "<!DOCTYPE r [\r\n<!ATTLIST item colour (red|green) \"green\" id ID #IMPLIED>\r\n"
              "<!ELEMENT r (item|group)*>\r\n<!ELEMENT item EMPTY>\r\n<!ELEMENT group (item+)>\r\n]>\r\n"
              "<r><item/><group><item id=\"i2\"/></group></r>");
    const VQHANDLE back = vqtest::parse(printed.c_str());
    EXPECT_EQ(print(back), printed);
    const VQHANDLE backType = VQDOM_getDoctype(back);
    for (const auto &[element, attribute] : {std::pair{"item", "colour"}, {"item", "id"}, {"r", "version"}})
        EXPECT_EQ(enumeration(element, attribute), enumerationIn(backType, element, attribute));
    std::string again;
    for (const VQHANDLE d : {doc, back}) {
        const VQHANDLE item = VQDOM_itemList(VQDOM_getElementsByTagNameStr(d, "item"), 1);
        again += str(VQDOM_getAttribute(item, VQDOM_createDS(d, "colour"))) + ";";
    }
    EXPECT_EQ(again, "green;green;");
}

}  // namespace
