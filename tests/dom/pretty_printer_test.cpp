// pretty_printer_test.cpp - indented printing: line breaks and indentation
// of nested elements, what stays on one line, the indentation ceiling, the
// fit rules and deep trees.
#include <algorithm>
#include <string>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/node.h"

namespace {

class PrettyPrinter : public vqtest::DocumentTest {
protected:


    // The pretty text of a node at `indent`, checked to fit and be terminated.
    std::string pretty(VQHANDLE n, int32_t indent = 0) {
        char *cursor = nullptr;
        const int32_t len = printNodeBeatifyEx(n, &cursor, 0, indent);
        std::string buf(static_cast<size_t>(len) + 1, '\x7f');
        cursor = buf.data();
        EXPECT_EQ(printNodeBeatifyEx(n, &cursor, len + 1, indent), len);
        EXPECT_EQ(buf[static_cast<size_t>(len)], '\0');
        return buf.substr(0, static_cast<size_t>(len));
    }
    std::string compact(VQHANDLE n) {
        const int32_t len = VQXML_printNode(n, nullptr, 0);
        std::string buf(static_cast<size_t>(len) + 1, '\0');
        EXPECT_EQ(VQXML_printNode(n, buf.data(), len + 1), len);
        return buf.substr(0, static_cast<size_t>(len));
    }

    // A chain of `depth` elements named e, outermost first.
    VQHANDLE chain(int depth) {
        VQHANDLE inner = el("e");
        for (int i = 1; i < depth; ++i) {
            const VQHANDLE outer = el("e");
            EXPECT_EQ(VQDOM_appendChild(outer, inner), inner);
            inner = outer;
        }
        return inner;
    }
    // The expected pretty text of such a chain: two blanks per level, at
    // most 63.
    static std::string chainText(int depth) {
        auto blanks = [](int level) { return std::string(std::min(2 * level, 63), ' '); };
        std::string out;
        for (int d = 0; d < depth; ++d) {
            if (d != 0) out += "\r\n";
            out += blanks(d) + (d + 1 < depth ? "<e>" : "<e/>");
        }
        for (int d = depth - 2; d >= 0; --d) out += "\r\n" + blanks(d) + "</e>";
        return out;
    }

};

TEST_F(PrettyPrinter, NestedElementsAndWhatStaysInline) {
    const VQHANDLE a = el("a");
    const VQHANDLE b = add(a, el("b"));
    add(b, text("x"));
    const VQHANDLE c = add(a, el("c"));
    VQDOM_setAttribute(c, s("k"), s("v\t"));
    EXPECT_EQ(pretty(a), "<a>\r\n  <b>x</b>\r\n  <c k=\"v&#9;\"/>\r\n</a>");

    // The end tag follows a last child that is not an element directly.
    const VQHANDLE m = el("m");
    add(m, el("n"));
    add(m, VQDOM_createComment(doc, s("c")));
    EXPECT_EQ(pretty(m), "<m>\r\n  <n/><!--c--></m>");
    const VQHANDLE o = el("o");
    add(o, el("p"));
    add(o, VQDOM_createCDATASection(doc, s("d")));
    add(o, VQDOM_createProcessingInstruction(doc, s("t"), s("")));
    add(o, VQDOM_createEntityReference(doc, s("r")));
    EXPECT_EQ(pretty(o), "<o>\r\n  <p/><![CDATA[d]]><?t_?>&r;</o>");

    // Mixed content: text stays where it falls, elements still break.
    const VQHANDLE x = el("x");
    add(x, text("t"));
    const VQHANDLE y = add(x, el("y"));
    add(y, el("z"));
    add(x, text("u"));
    EXPECT_EQ(pretty(x), "<x>t\r\n  <y>\r\n    <z/>\r\n  </y>u</x>");

    // A nested start is at indent > 0: it begins with a line break.
    EXPECT_EQ(pretty(el("q"), 4), "\r\n    <q/>");
}

TEST_F(PrettyPrinter, RawTextIsEscapedAndDocumentsStayCompact) {
    const VQHANDLE a = el("a");
    const VQHANDLE raw = add(a, text("<b/>&"));
    VQDOM_setRawXml(raw);
    EXPECT_EQ(compact(a), "<a><b/>&</a>");
    EXPECT_EQ(pretty(a), "<a>&lt;b/&gt;&amp;</a>");

    const VQHANDLE decl = createXmlDecl(doc);
    const VQHANDLE version = s("1.0");
    vqxml::rec<XmlDecl>(decl)->version = version;
    vqxml::rec<Document>(doc)->xmlDecl = decl;
    add(doc, createDocumentType(doc, s("r")));
    add(doc, VQDOM_createComment(doc, s("c")));
    const VQHANDLE r = add(doc, el("r"));
    add(add(r, el("s")), el("t"));
    EXPECT_EQ(pretty(doc), compact(doc));
    EXPECT_EQ(pretty(doc), "<?xml version=\"1.0\"?>\r\n<!DOCTYPE r [\r\n]>\r\n<!--c-->\r\n"
                           "<r><s><t/></s></r>");

    EXPECT_EQ(pretty(VQDOM_createDocumentFragment(doc)), "");
    EXPECT_EQ(pretty(VQDOM_createComment(doc, s("only"))), "<!--only-->");
}

// Beyond 31 levels the indent would not fit the 63-blank ceiling: deeper
// elements keep 63 blanks, and nothing of the tree is lost.
TEST_F(PrettyPrinter, IndentationCeiling) {
    EXPECT_EQ(pretty(chain(40)), chainText(40));
    EXPECT_EQ(pretty(el("f"), 64), "\r\n" + std::string(63, ' ') + "<f/>");
    EXPECT_EQ(pretty(el("f"), -3), "\r\n<f/>");
}

// Every size up to the full length: the result never changes, nothing lands
// past the size, and a large enough buffer holds the terminated text.
TEST_F(PrettyPrinter, EverySize) {
    const VQHANDLE a = el("a");
    const VQHANDLE b = add(a, el("b"));
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
    // "\r\n" and the indent are literals: written whole or not at all.
    std::string buf(8, '\x7f');
    char *cursor = buf.data();
    EXPECT_EQ(printNodeBeatifyEx(a, &cursor, 4, 0), len);
    EXPECT_EQ(buf.substr(0, 4), "<a>\x7f");
}

TEST_F(PrettyPrinter, DeepTreeWithoutRecursion) {
    constexpr int kDepth = 200000;
    EXPECT_EQ(pretty(chain(kDepth)), chainText(kDepth));
}

}  // namespace
