// pretty_printer_test.cpp - indented printing: line breaks and indentation
// of nested elements, what stays on one line after each kind of last child,
// roots other than elements, the indentation ceiling on a deep tree, and the
// fit rules of a short buffer.
#include <algorithm>
#include <string>
#include <utility>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::parse;
using vqtest::print;

class PrettyPrinter : public vqtest::DocumentTest {
protected:
    // The pretty text of a node at `indent`, checked to fit and be terminated.
    static std::string pretty(VQHANDLE n, int32_t indent = 0) {
        char *cursor = nullptr;
        const int32_t len = printNodeBeatifyEx(n, &cursor, 0, indent);
        std::string buf(static_cast<size_t>(len) + 1, '\x7f');
        cursor = buf.data();
        EXPECT_EQ(printNodeBeatifyEx(n, &cursor, len + 1, indent), len);
        EXPECT_EQ(buf[static_cast<size_t>(len)], '\0');
        return buf.substr(0, static_cast<size_t>(len));
    }
};

TEST_F(PrettyPrinter, ElementsBreakAndOtherChildrenStayInline) {
    // The end tag follows a last child that is not an element directly.
    const VQHANDLE r = VQDOM_getDocumentElement(
        parse("<r><a>t</a><b><!--c--></b><c><![CDATA[d]]></c><d><?p q?></d><e>&x;</e>"
              "<f><g><h/></g>z<i/></f><j k='v&#9;'/><m><n/><!--c--></m></r>"));
    ASSERT_NE(r, 0u);
    EXPECT_EQ(pretty(r), "<r>\r\n  <a>t</a>\r\n  <b><!--c--></b>\r\n  <c><![CDATA[d]]></c>\r\n  <d><?p_q?></d>\r\n"
                         "  <e>&x;</e>\r\n  <f>\r\n    <g>\r\n      <h/>\r\n    </g>z\r\n    <i/>\r\n  </f>\r\n"
                         "  <j k=\"v&#9;\"/>\r\n  <m>\r\n    <n/><!--c--></m>\r\n</r>");
    // Started deeper, the element opens on a new line and its end tag lines
    // up with its start tag.
    const VQHANDLE f = VQDOM_itemList(VQDOM_getElementsByTagNameStr(r, "f"), 0);
    EXPECT_EQ(pretty(f, 2), "\r\n  <f>\r\n    <g>\r\n      <h/>\r\n    </g>z\r\n    <i/>\r\n  </f>");
    // Whitespace text is text: without stripping, it stays where it falls,
    // and an element after it still opens a new line.
    EXPECT_EQ(pretty(VQDOM_getDocumentElement(parse("<a>\n  <b/>\n</a>"))), "<a>\n  \r\n  <b/>\n</a>");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(PrettyPrinter, RootsOtherThanElements) {
    // Raw text is escaped, unlike in the compact form.
    const VQHANDLE a = el("a");
    VQDOM_setRawXml(add(a, text("<b/>&")));
    EXPECT_EQ(print(a), "<a><b/>&</a>");
    EXPECT_EQ(pretty(a), "<a>&lt;b/&gt;&amp;</a>");
    const VQHANDLE t = VQDOM_getFirstChild(VQDOM_getDocumentElement(parse("<a>1&lt;2</a>")));
    EXPECT_EQ(pretty(t), "1&lt;2");
    EXPECT_EQ(pretty(t, 6), "1&lt;2");
    EXPECT_EQ(pretty(VQDOM_createDocumentFragment(doc)), "");
    EXPECT_EQ(pretty(VQDOM_createComment(doc, s("only"))), "<!--only-->");
    const VQHANDLE dt = VQDOM_getDoctype(parse("<!DOCTYPE a [<!ENTITY e 'v'>]><a/>"));
    EXPECT_EQ(pretty(dt), "<!DOCTYPE a [\r\n<!ENTITY e \"v\">\r\n]>");
    EXPECT_EQ(pretty(vqxml::node(dt)->firstChild), "<!ENTITY e \"v\">");  // hidden from the accessors

    // A document's children are written compactly.
    const VQHANDLE decl = createXmlDecl(doc);
    const VQHANDLE version = s("1.0");
    vqxml::rec<XmlDecl>(decl)->version = version;
    vqxml::rec<Document>(doc)->xmlDecl = decl;
    add(doc, createDocumentType(doc, s("r")));
    add(doc, VQDOM_createComment(doc, s("c")));
    add(add(add(doc, el("r")), el("s")), el("t"));
    EXPECT_EQ(pretty(doc), print(doc));
    EXPECT_EQ(pretty(doc), "<?xml version=\"1.0\"?>\r\n<!DOCTYPE r [\r\n]>\r\n<!--c-->\r\n<r><s><t/></s></r>");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// Beyond 31 levels the indent would not fit the 63-blank ceiling: deeper
// elements keep 63 blanks, and nothing of the tree is lost, however deep.
TEST_F(PrettyPrinter, IndentationCeilingOnADeepTree) {
    constexpr int kDepth = 200000;
    VQHANDLE top = el("e");
    for (int i = 1; i < kDepth; ++i) {  // built bottom-up: no append walks a long ancestry
        const VQHANDLE outer = el("e");
        VQDOM_appendChild(outer, top);
        top = outer;
    }
    auto blanks = [](int level) { return std::string(std::min(2 * level, 63), ' '); };
    std::string want;
    for (int d = 0; d < kDepth; ++d) want += (d ? "\r\n" : "") + blanks(d) + (d + 1 < kDepth ? "<e>" : "<e/>");
    for (int d = kDepth - 2; d >= 0; --d) want += "\r\n" + blanks(d) + "</e>";
    EXPECT_EQ(pretty(top), want);
    EXPECT_EQ(pretty(el("f"), 64), "\r\n" + std::string(63, ' ') + "<f/>");
    EXPECT_EQ(pretty(el("f"), -3), "\r\n<f/>");
}

// Every size up to the full length: the result never changes, nothing lands
// past the size, and a large enough buffer holds the terminated text. The
// line break and the blanks are two literals, written whole or not at all.
TEST_F(PrettyPrinter, ShortBuffers) {
    const VQHANDLE a = el("a"), b = add(a, el("b"));
    add(b, text("x&"));
    add(b, el("c"));
    add(a, VQDOM_createComment(doc, s("k")));
    const std::string full = pretty(a);
    EXPECT_EQ(full, "<a>\r\n  <b>x&amp;\r\n    <c/>\r\n  </b><!--k--></a>");
    const auto len = static_cast<int32_t>(full.size());
    for (int32_t size = 0; size <= len + 1; ++size) {
        std::string buf(static_cast<size_t>(len) + 8, '\x7f');
        char *cursor = buf.data();
        ASSERT_EQ(printNodeBeatifyEx(a, &cursor, size, 0), len);
        ASSERT_EQ(buf.find_first_not_of('\x7f', static_cast<size_t>(size)), std::string::npos);
        if (size > len) {
            EXPECT_EQ(buf.substr(0, static_cast<size_t>(len) + 1), full + '\0');
        }
    }
    // What each size holds ('@' a NUL, '~' untouched): the nested element ends with a NUL.
    const VQHANDLE p = el("a");
    add(p, el("b"));
    const std::pair<int32_t, const char *> sizes[] = {
        {4, "<a>~"}, {6, "<a>\r\n~"}, {7, "<a>\r\n  "}, {8, "<a>\r\n  <"}, {11, "<a>\r\n  <b/>"},
        {12, "<a>\r\n  <b/>@"}, {13, "<a>\r\n  <b/>\r\n"}, {14, "<a>\r\n  <b/>\r\n~"}, {16, "<a>\r\n  <b/>\r\n</@"},
        {18, "<a>\r\n  <b/>\r\n</a>@"}};
    for (const auto &[size, shown] : sizes) {
        SCOPED_TRACE(size);
        std::string want = shown, buf(static_cast<size_t>(size), '\x7f');
        for (char &ch : want) ch = ch == '@' ? '\0' : ch == '~' ? '\x7f' : ch;
        char *cursor = buf.data();
        EXPECT_EQ(printNodeBeatifyEx(p, &cursor, size, 0), 17);
        EXPECT_EQ(buf, want);
    }
}

}  // namespace
