// content_test.cpp - parsing document content: the trees that elements,
// attributes, text, references, comments, PIs and CDATA sections become,
// every content message with its line, fragments, and nesting depth.
#include <cstring>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/memdiag.h"

using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;

namespace {

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
// ?target"data", references as &name(children).
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

// The root element of a parse that must succeed, described.
std::string root(const char *text) {
    const VQHANDLE doc = VQXML_parse(text);
    EXPECT_NE(doc, 0u) << text << " " << ::testing::PrintToString(vqtest::drainErrors());
    return doc != 0 ? describe(VQDOM_getDocumentElement(doc)) : "";
}

struct Failure {
    const char *text;
    Err error;
    const char *message;
};

// Parses `text`, which must fail with exactly `f.error`, rendered as
// `f.message`, and leave nothing allocated behind.
void expectFailure(const Failure &f) {
    SCOPED_TRACE(std::string(f.text).substr(0, 80));
    const auto before = vqxml::memStats();
    EXPECT_EQ(VQXML_parse(f.text), 0u);
    const auto errors = vqtest::drainErrors();
    ASSERT_EQ(errors.size(), 1u) << ::testing::PrintToString(errors);
    EXPECT_EQ(errors[0], f.error);
    EXPECT_EQ(vqtest::message(errors[0].code, errors[0].params), f.message);
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
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
    // Without a document type a named reference stays unresolved.
    EXPECT_EQ(root("<a>x&foo;y</a>"), "a(\"x\",&foo,\"y\")");
    // Misc around the root: comments and PIs after it, spaces dropped.
    const VQHANDLE doc = VQXML_parse("<!--c-->\n<a/>\n<?p d?><!--e--> ");
    ASSERT_NE(doc, 0u);
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
    const VQHANDLE doc = VQXML_parse("<a x='p&e;q'/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE x = VQDOM_getAttributeNodeStr(VQDOM_getDocumentElement(doc), "x");
    EXPECT_EQ(describe(VQDOM_getFirstChild(x)), "\"p\"");
    EXPECT_EQ(describe(VQDOM_getNextSibling(VQDOM_getFirstChild(x))), "&e");
    EXPECT_EQ(describe(VQDOM_getLastChild(x)), "\"q\"");
    EXPECT_EQ(str(VQDOM_getValue(x)), "pq");
}

TEST_F(LibraryTest, EveryContentMessageWithItsLine) {
    const std::vector<Failure> failures = {
        {"", {1001941, "1|"}, "line 1: end of document is unexpected"},
        {"\n \n", {1001941, "3|"}, "line 3: end of document is unexpected"},
        {"\nx<a/>", {1001910, "2|0x78|"}, "line 2: illegal character (0x78)"},
        {"<a/>\n<b/>", {1001910, "2|0x3c|"}, "line 2: illegal character (0x3c)"},
        {"<a>\n\x01</a>", {1001910, "2|0x1|"}, "line 2: illegal character (0x1)"},
        {"<a>\nx]]>y</a>", {1001943, "2|]]>|"}, "Line 2: illegal \"]]>\"."},
        {"<a>\n<1/></a>", {1001911, "2|0x31|"}, "line 2: name begins with illegal character (0x31)"},
        {"<?XmL x?><a/>", {1001911, "1|0x3f|"}, "line 1: name begins with illegal character (0x3f)"},
        {"<a>\n<?XmL x?></a>", {1001931, "2|XmL|"}, "line 2: name \"XmL\" is illegal in ProcessingInstruction"},
        {"<a><?p\nx</a>", {1001913, "2|?>|"}, "line 2: \"?>\" expected"},
        {"<a>\n<!-- x -- y --></a>", {1001912, "2|"}, "line 2: end of Comment not found"},
        {"<a><![CDATA[x\n</a>", {1001913, "2|]]>|"}, "line 2: \"]]>\" expected"},
        {"<a\nx='1'y='2'/>", {1001940, "2|a|"}, "line 2: element \"a\": start tag syntax error"},
        {"<a x\n='1' y/>", {1001909, "2|y|"}, "line 2: attribute \"y\": \"=\" expected"},
        {"<a x=\n1/>", {1001907, "2|x|"}, "line 2: attribute \"x\": quotation mark expected"},
        {"<a x='\n1\"/>", {1001908, "2|x|"}, "line 2: attribute \"x\": closing quotation mark expected"},
        {"<a x='1<'/>", {1001908, "1|x|"}, "line 1: attribute \"x\": closing quotation mark expected"},
        {"<a>\n&#X42;</a>", {1001906, "2|"}, "line 2: \";\" expected on end of a reference"},
        {"<a x='&amp'/>", {1001906, "1|"}, "line 1: \";\" expected on end of a reference"},
        {"<a>\n& </a>", {1001911, "2|0x20|"}, "line 2: name begins with illegal character (0x20)"},
        {"<a>\n\n", {1001942, "3|a|"}, "Line 3: endtag \"</a>\" is missing."},
        {"<a><b>\n</a>", {1001903, "2|b|"}, "line 2: endtag of \"b\": name different"},
        {"<a></a\nb>", {1001904, "2|a|"}, "line 2: endtag of \"a\": \">\" expected"},
        {"<a>\n</ a>", {1001902, "2|a|"}, "line 2: endtag of \"a\": illegal character"},
        {"<!DOCTYPE a [ ]>\n<a>&foo;</a>", {1001934, "2|foo|"}, "line 2: undeclared entity \"foo\""},
        {"<!DOCTYPE a [<!ENTITY e '<b/>'>]>\n<a x='&e;'/>", {1001932, "2|"},
         "line 2: the character \"<\" cannot be used in an attribute value"},
        {"<!DOCTYPE a [<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>]>\n<a x='&u;'/>",
         {1001938, "2|u|"}, "line 2: illegal reference of external entity \"u\""},
    };
    for (const auto &f : failures) expectFailure(f);

    // A different end tag name records its message twice when ">" is missing.
    EXPECT_EQ(VQXML_parse("<a></b"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001903, "1|a|"}, {1001904, "1|a|"}}));
    // "<a/ >" fails without any message.
    EXPECT_EQ(VQXML_parse("<a/ >"), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(LibraryTest, NestingIsBoundedAndIterative) {
    const std::string deepest = nest(10000, "x");
    const VQHANDLE doc = VQXML_parse(deepest.c_str());
    ASSERT_NE(doc, 0u);
    VQHANDLE n = VQDOM_getDocumentElement(doc);
    int depth = 0;
    for (; VQDOM_getNodeType(n) == VQXML_ELEMENT_NODE; n = VQDOM_getFirstChild(n)) ++depth;
    EXPECT_EQ(depth, 10000);
    EXPECT_EQ(str(VQDOM_getNodeValue(n)), "x");
    VQDOM_deleteNode(doc);

    std::string tooDeep = "<r>\n" + nest(10000) + "</r>";
    expectFailure({tooDeep.c_str(), {1001944, "2|10000|"}, "line 2: elements nested deeper than 10000 levels"});
    tooDeep = "<r>\n" + nest(9999, "<e/>") + "</r>";
    EXPECT_EQ(VQXML_parse(tooDeep.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001944, "2|10000|"}}));
    // Unclosed at depth: the innermost element is reported, all is freed.
    const auto before = vqxml::memStats();
    tooDeep = std::string(5000 * 3, ' ');
    for (int i = 0; i < 5000; ++i) tooDeep.replace(i * 3, 3, "<e>");
    EXPECT_EQ(VQXML_parse(tooDeep.c_str()), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001942, "1|e|"}}));
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
}

TEST_F(LibraryTest, EntityExpansionIsBudgeted) {
    // Each level holds ten references to the one before: "e" stands for
    // 10^4 copies of a 1000-byte text, and the root asks for it eight times.
    std::string text = "<!DOCTYPE r [<!ENTITY a '" + std::string(1000, 'x') + "'>";
    const char *names = "abcde";
    for (int i = 1; i < 5; ++i) {
        text += std::string("<!ENTITY ") + names[i] + " '";
        for (int k = 0; k < 10; ++k) text += std::string("&") + names[i - 1] + ";";
        text += "'>";
    }
    text += "]>\n<r>&e;&e;&e;&e;&e;&e;&e;&e;</r>";
    const std::string limit = std::to_string((int64_t{64} << 20) + 64 * int64_t(text.size()));
    expectFailure({text.c_str(), {1001945, "2|" + limit + "|"},
                   ("line 2: entity expansion exceeds " + limit + " bytes").c_str()});
    // Within the budget the same entities expand in full.
    text.replace(text.find("<r>"), std::string::npos, "<r>&d;</r>");
    const VQHANDLE doc = VQXML_parse(text.c_str());
    ASSERT_NE(doc, 0u);
    EXPECT_EQ(VQDOM_getTextContent(VQDOM_getDocumentElement(doc), nullptr, 0), 1000 * 1000);
}

TEST_F(LibraryTest, FragmentsOfADocument) {
    const VQHANDLE doc = VQXML_parse("<r/>");
    ASSERT_NE(doc, 0u);
    VQHANDLE f = VQXML_parseFragment(doc, "x<b c='1'/>&amp;y<!--z-->");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(\"x\",b[c=\"1\"],\"&y\",!\"z\")");
    EXPECT_EQ(VQDOM_getOwnerDocument(f), doc);
    // An end tag does not end fragment content.
    EXPECT_EQ(VQXML_parseFragment(doc, "a</b>"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001911, "1|0x2f|"}}));
    // An invalid document: nothing happens, the error list is kept.
    VQXML_parse("");
    EXPECT_EQ(VQXML_parseFragment(0, "x"), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001941, "1|"}}));

    // With a document type the reader expands character references: one
    // byte each, and "&#60;" is markup.
    const VQHANDLE typed = VQXML_parse("<!DOCTYPE r [<!ENTITY e 'E'>]><r/>");
    ASSERT_NE(typed, 0u);
    f = VQXML_parseFragment(typed, "&#65;&#233;&#60;b/>&e;");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(\"A\xE9\",b,&e(\"E\"))");
    // A quotation mark delivered by a reference does not close a value.
    f = VQXML_parseFragment(typed, "<b x='&#39;\"' y=\"&#34;'\"/>");
    ASSERT_NE(f, 0u);
    EXPECT_EQ(describe(f), "#(b[x=\"'\"\" y=\"\"'\"])");
}

TEST_F(LibraryTest, DirectScanningMatchesTheReader) {
    // A fragment of a document with a document type is read character by
    // character through the reader; one without is scanned in place. Both
    // must give the same trees and the same messages on the same lines.
    const VQHANDLE plain = VQXML_parse("<r/>");
    const VQHANDLE typed = VQXML_parse("<!DOCTYPE r [<!ENTITY z 'Z'>]><r/>");
    ASSERT_NE(plain, 0u);
    ASSERT_NE(typed, 0u);
    const char *texts[] = {
        "a\r\nb\rc\n\r\r\nd]e]]f<x y='1\t2\r\n3\r4\n5\"6' z=\"'\"/>",
        "<![CDATA[\n\r\nx\ry]]]]><!--\r\n-\r-->\n<?p \r\n d\r?>",
        "t\n\n<a>\n<b>\r\n</c>",
        "\n\r\n<a x='1\n2\n\x02'/>",
        "x\r\n\x03",
        "\n<![CDATA[\nx",
        "\n<!--\n-x",
        "<?p\nx",
        "<a x='\n\n",
        "<a>\n</a\n\n",
    };
    for (const char *text : texts) {
        SCOPED_TRACE(text);
        const VQHANDLE a = VQXML_parseFragment(plain, text);
        const auto errorsA = vqtest::drainErrors();
        const VQHANDLE b = VQXML_parseFragment(typed, text);
        const auto errorsB = vqtest::drainErrors();
        EXPECT_EQ(a == 0, b == 0);
        EXPECT_EQ(errorsA, errorsB);
        if (a != 0 && b != 0) {
            EXPECT_EQ(describe(a), describe(b));
        }
    }
}
