// roundtrip_test.cpp - parse, print, parse again: what the serializer
// writes reads back to the same document, DTD and entities included.
#include <string>

#include "support/test_util.h"
#include "vqxml/store/codes.h"

using vqtest::LibraryTest;

namespace {

using namespace vqxml::codes;

using vqtest::print;

// The first print of `text`; the print of that print must be the same.
std::string settled(const std::string &text) {
    const VQHANDLE first = vqtest::parse(text.c_str());
    const std::string once = print(first);
    const VQHANDLE second = vqtest::parse(once.c_str());
    EXPECT_EQ(print(second), once);
    VQDOM_deleteNode(first);
    VQDOM_deleteNode(second);
    return once;
}

}  // namespace

TEST_F(LibraryTest, DocumentsWithADtdReadBack) {
    const std::string once = settled(
        "<?xml version='1.0' encoding='UTF-8'?>\n"
        "<!DOCTYPE r SYSTEM \"r.dtd\" [\n"
        "  <!ELEMENT r (a|b|c)*>\n"
        "  <!ELEMENT a (#PCDATA)>\n"
        "  <!ATTLIST a k (x|y) 'x' n NMTOKEN #IMPLIED f CDATA 'F'>\n"
        "  <!ENTITY e 'one <c>two</c> &amp; three'>\n"
        "  <!ENTITY % decls '<!ENTITY g \"G\">'>\n"
        "  %decls;\n"
        "  <!NOTATION png PUBLIC '-//png'>\n"
        "  <!ENTITY pic SYSTEM 'p.png' NDATA png>\n"
        "  <!-- the subset -->\n"
        "]>\n"
        "<!-- before -->\n"
        "<r>\n"
        "  <a k='y' n='t\tu'>text &lt;&amp;&gt; &#233;&#x20AC; \"q\" 'a'</a>\n"
        "  <b>&e;&g;</b><c v='1&#10;2&#13;3&g;'/>\n"
        "  <![CDATA[<raw> & ]]]]><![CDATA[> more]]>\n"
        "</r>\n"
        "<!-- after -->");
    EXPECT_EQ(once,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
              "<!DOCTYPE r SYSTEM \"r.dtd\" [\r\n"
              "<!ELEMENT r (a|b|c)*>\r\n<!ELEMENT a (#PCDATA)>\r\n"
              "<!ATTLIST a k (x|y) \"x\" n NMTOKEN #IMPLIED f CDATA \"F\">\r\n"
              "<!ENTITY e \"one <c>two</c> &amp; three\">\r\n"
              "<!ENTITY % decls '<!ENTITY g \"G\">'>\r\n%decls;\r\n"
              "<!NOTATION png PUBLIC \"-//png\">\r\n<!ENTITY pic SYSTEM \"p.png\" NDATA png>\r\n"
              "<!-- the subset -->\r\n]>\r\n"
              "<!-- before -->\r\n"
              "<r>\n  <a k=\"y\" n=\"t u\">text &lt;&amp;&gt; \xC3\xA9\xE2\x82\xAC &quot;q&quot; &apos;a&apos;</a>\n"
              "  <b>&e;&g;</b><c v=\"1&#10;2&#13;3&g;\"/>\n"
              "  <![CDATA[<raw> & ]]]]><![CDATA[> more]]>\n</r>\r\n"
              "<!-- after -->");
}

TEST_F(LibraryTest, WhatDoesNotReadBackTheSame) {
    // Processing instructions are written with "_" between target and data,
    // so a PI with data reads back as a longer target.
    const VQHANDLE doc = vqtest::parse("<a><?t d?></a>");
    const std::string once = print(doc);
    EXPECT_EQ(once, "<a><?t_d?></a>");
    const VQHANDLE again = vqtest::parse(once.c_str());
    const VQHANDLE pi = VQDOM_getFirstChild(VQDOM_getDocumentElement(again));
    EXPECT_EQ(vqtest::str(VQDOM_getTarget(pi)), "t_d");
    EXPECT_EQ(vqtest::str(VQDOM_getDataPI(pi)), "");
    // Element names of a mixed content model are not written.
    const VQHANDLE mixed = vqtest::parse("<!DOCTYPE a [<!ELEMENT a (#PCDATA|b)*>]><a/>");
    EXPECT_EQ(VQXML_parse(print(mixed).c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<vqtest::Err>{{kNameStartIllegal, "2|0x29|"}}));
    // Nor is the blank after #FIXED.
    const VQHANDLE fixed = vqtest::parse("<!DOCTYPE a [<!ATTLIST a f CDATA #FIXED 'F'>]><a/>");
    EXPECT_EQ(VQXML_parse(print(fixed).c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<vqtest::Err>{{kSpaceExpected, "2|"}}));
}
