// beautify_test.cpp - indentation text added and removed in the tree: the
// exact texts, the level rule from 59 on, mixed content left alone, the
// variant that indents every element, printing indented, and deep trees.
#include <string>

#include "support/test_util.h"
#include "vqxml/model/model.h"

namespace {

using vqtest::print;

class BeautifyTest : public vqtest::LibraryTest {
protected:
    static VQHANDLE root(const char *xml) { return VQDOM_getDocumentElement(vqtest::parse(xml)); }
    static std::string nl(int blanks) { return "\r\n" + std::string(static_cast<size_t>(blanks), ' '); }
};

TEST_F(BeautifyTest, IndentsAndUnindentsExactly) {
    const char *xml = "<MODEL><PAR><P1 DESC='a'>text</P1><!--c--></PAR><DAT/></MODEL>";
    const VQHANDLE r = root(xml);
    const std::string compact = print(r);
    VQXML_beautifyDocument(VQDOM_getParentNode(r));
    EXPECT_EQ(print(r), "<MODEL>" + nl(2) + "<PAR>" + nl(4) + "<P1 DESC=\"a\">text</P1>" + nl(4) +
                            "<!--c-->" + nl(2) + "</PAR>" + nl(2) + "<DAT/>" + nl(0) + "</MODEL>");
    VQXML_unBeautifyDocument(VQDOM_getParentNode(r));
    EXPECT_EQ(print(r), compact);
}

TEST_F(BeautifyTest, LevelsStopGrowingFrom59) {
    const VQHANDLE r = root("<a><b><c><d/></c></b></a>");
    VQXML_beautifyElement(r, 57);
    // b at 59, and from there the children keep their parent's level; each
    // closing text is the children's level less two.
    EXPECT_EQ(print(r), "<a>" + nl(59) + "<b>" + nl(59) + "<c>" + nl(59) + "<d/>" + nl(57) +
                            "</c>" + nl(57) + "</b>" + nl(57) + "</a>");

    const VQHANDLE wide = root("<a><b/></a>");
    VQXML_beautifyElement(wide, 100);
    EXPECT_EQ(print(wide), "<a>" + nl(62) + "<b/>" + nl(62) + "</a>");
}

TEST_F(BeautifyTest, MixedContentIsLeftAloneAndKept) {
    const char *xml = "<a><m>t<b><c/></b></m><x><![CDATA[ ]]><y> <z/> </y></x></a>";
    const VQHANDLE r = root(xml);
    VQXML_beautifyElement(r, 0);
    EXPECT_EQ(print(r), "<a>" + nl(2) + "<m>t<b><c/></b></m>" + nl(2) +
                            "<x><![CDATA[ ]]><y> <z/> </y></x>" + nl(0) + "</a>");
    // Unindenting keeps the text of mixed elements but still goes below them.
    VQXML_unBeautifyElement(r);
    EXPECT_EQ(print(r), "<a><m>t<b><c/></b></m><x><![CDATA[ ]]><y><z/></y></x></a>");
}

TEST_F(BeautifyTest, SecondVariantOnlyClosesEveryElement) {
    const VQHANDLE r = root("<a>t<b><c/></b><e/></a>");
    beautifyElement2(r, 0);
    EXPECT_EQ(print(r), "<a>t<b><c/>" + nl(4) + "</b><e/>" + nl(2) + "</a>");

    // Children at level 0: the closing text is empty.
    const VQHANDLE s = root("<a><b><c/></b></a>");
    beautifyElement2(s, -2);
    EXPECT_EQ(print(s), "<a><b><c/>" + nl(2) + "</b></a>");
    EXPECT_EQ(VQDOM_lenDS(VQDOM_getNodeValue(VQDOM_getLastChild(s))), 0);
}

TEST_F(BeautifyTest, PrintBeautifyStripsTheTreeFirst) {
    const VQHANDLE r = root("<a>\r\n  <b>x</b>\r\n  <c/>\r\n</a>");
    char buffer[128];
    const std::string pretty = "<a>\r\n  <b>x</b>\r\n  <c/>\r\n</a>";
    EXPECT_EQ(VQXML_printBeautifyNode(r, buffer, sizeof buffer), static_cast<int32_t>(pretty.size()));
    EXPECT_EQ(buffer, pretty);  // indentation not doubled
    EXPECT_EQ(print(r), "<a><b>x</b><c/></a>");  // and the tree lost its own
    EXPECT_EQ(VQXML_printBeautifyNode(0x7fff01, buffer, sizeof buffer), 0);
    vqtest::drainErrors();
}

TEST_F(BeautifyTest, DeepTreesRoundTripWithoutRecursion) {
    const VQHANDLE d = VQDOM_createDocument();
    VQHANDLE at = VQDOM_appendChild(d, VQDOM_createElement(d, VQDOM_createDS(d, "e")));
    const VQHANDLE top = at;
    for (int i = 0; i < 30000; ++i)
        at = VQDOM_appendChild(at, VQDOM_createElement(d, VQDOM_createDS(d, "e")));
    const std::string compact = print(top);
    VQXML_beautifyElement(top, 0);
    beautifyElement2(top, 0);
    EXPECT_GT(print(top).size(), compact.size() + 30000 * 60);
    VQXML_unBeautifyElement(top);
    EXPECT_EQ(print(top), compact);
}

}  // namespace
