// serializer_test.cpp - compact printing of trees built through the DOM:
// the bytes of every node kind (including declarations the parser never
// makes), the fit rules of a short buffer, every buffer size of a sample
// document, and odd handles.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::drainErrors;
using vqtest::Err;

// Builds trees in one document with the DOM functions; declaration fields
// that only the DTD parser sets are written straight into the records.
class Serializer : public vqtest::DocumentTest {
protected:
    void attr(VQHANDLE e, const char *name, const char *value) const { VQDOM_setAttribute(e, s(name), s(value)); }

    // Strings are made before a record is resolved: making one may move
    // the area.
    VQHANDLE sOr0(const char *text) const { return text ? s(text) : 0; }
    VQHANDLE entity(const char *name, const char *value, uint32_t kind = 0) const {
        const VQHANDLE e = allocNode(doc, VQXML_ENTITY_NODE, s(name)), v = sOr0(value);
        vqxml::rec<Entity>(e)->value = v;
        vqxml::rec<Entity>(e)->kind = kind;
        return e;
    }
    VQHANDLE elementDecl(const char *name, uint16_t content) const {
        const VQHANDLE d = createElementDecl(doc, s(name));
        vqxml::rec<ElementDecl>(d)->contentType = content;
        return d;
    }
    // A content particle: separator 0 with a name is a leaf.
    VQHANDLE cp(uint8_t separator, char occurrence = 0, const char *name = nullptr) const {
        const VQHANDLE p = createCpChildren(doc), n = sOr0(name);
        auto *r = vqxml::rec<CpChildren>(p);
        r->separator = separator;
        r->occurrence = static_cast<uint8_t>(occurrence);
        r->node.nodeName = n;
        return p;
    }
    VQHANDLE attDef(const char *name, uint16_t type, uint16_t kind, const char *deflt = nullptr) const {
        const VQHANDLE d = createAttDef(doc, s(name));
        vqxml::rec<AttDef>(d)->attType = type;
        vqxml::rec<AttDef>(d)->defaultKind = kind;
        if (deflt != nullptr) {
            const VQHANDLE a = VQDOM_createAttribute(doc, s(name));
            VQDOM_setNodeValue(a, s(deflt));
            EXPECT_EQ(VQDOM_setNamedItem(vqxml::node(d)->attributes, a), 0u);
        }
        return d;
    }

    // The full text of a node, checked to fit exactly and to be terminated.
    static std::string print(VQHANDLE n) {
        const int32_t len = VQXML_printNode(n, nullptr, 0);
        std::string buf(static_cast<size_t>(len) + 1, '\x7f');
        EXPECT_EQ(VQXML_printNode(n, buf.data(), len + 1), len);
        EXPECT_EQ(buf[static_cast<size_t>(len)], '\0');
        return buf.substr(0, static_cast<size_t>(len));
    }
    // What a buffer of `size` bytes holds after printing (sentinel 0x7f).
    static std::string printInto(VQHANDLE n, int32_t size, int32_t expectResult) {
        std::string buf(static_cast<size_t>(size), '\x7f');
        EXPECT_EQ(VQXML_printNode(n, buf.data(), size), expectResult) << "size " << size;
        return buf;
    }
};

TEST_F(Serializer, ElementsTextCharacterDataAndReferences) {
    // Text escapes five characters; attribute values also tab, LF and CR.
    const VQHANDLE e = el("e");
    attr(e, "t", "a\tb\nc\rd<&\"'>");
    attr(e, "u", "");
    add(e, text("1\t<&\"'>\n"));
    add(e, el("k"));
    EXPECT_EQ(print(e),
              "<e t=\"a&#9;b&#10;c&#13;d&lt;&amp;&quot;&apos;&gt;\" u=\"\">"
              "1\t&lt;&amp;&quot;&apos;&gt;\n<k/></e>");

    // A raw text node is markup already and is copied unchanged.
    const VQHANDLE r = el("r");
    VQDOM_setRawXml(add(r, text("<b>&amp;</b>")));
    add(r, text("<"));
    EXPECT_EQ(print(r), "<r><b>&amp;</b>&lt;</r>");

    // Comments and processing instructions are not escaped.
    const VQHANDLE p = el("p");
    add(p, VQDOM_createComment(doc, s("a<&b")));
    add(p, VQDOM_createProcessingInstruction(doc, s("t"), s("d e")));
    add(p, VQDOM_createProcessingInstruction(doc, s("t"), s("")));
    add(p, ref("amp"));
    EXPECT_EQ(print(p), "<p><!--a<&b--><?t_d e?><?t_?>&amp;</p>");

    // "]]>" splits the section between its brackets; bytes that are no XML
    // characters become '?', bytes from 0x80 pass.
    auto cdata = [&](const char *data) { return print(VQDOM_createCDATASection(doc, s(data))); };
    EXPECT_EQ(cdata("a]]>b"), "<![CDATA[a]]]><![CDATA[]>b]]>");
    EXPECT_EQ(cdata("]]]>"), "<![CDATA[]]]]><![CDATA[]>]]>");
    EXPECT_EQ(cdata("x\x01y\x1f\t\xc3\xa9]]"), "<![CDATA[x?y?\t\xc3\xa9]]]]>");

    // Unlinked references, fragments and attributes.
    EXPECT_EQ(print(ref("free")), "&free;");
    EXPECT_EQ(print(allocNode(doc, VQXML_ENTITY_REFERENCE_NODE, 0)), "");
    char buf[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(VQXML_printNode(VQDOM_createDocumentFragment(doc), buf, 4), 0);
    EXPECT_EQ(buf[0], '\0');  // nothing written, but terminated
    EXPECT_EQ(print(VQDOM_createAttribute(doc, s("a"))), "");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(Serializer, DeclarationsAndContentModels) {
    // An entity value holding both quotation marks is delimited by the
    // byte 0.
    EXPECT_EQ(print(entity("q", "\"'")), std::string("<!ENTITY q \0\"'\0>", 16));

    EXPECT_EQ(print(elementDecl("c", 0)), "<!ELEMENT c >");
    const VQHANDLE d = elementDecl("d", 4);
    const VQHANDLE seq = add(d, cp(',', '+'));
    add(seq, cp(0, 0, "x"));
    const VQHANDLE choice = add(seq, cp('|', '*'));
    add(choice, cp(0, 0, "y"));
    add(choice, cp(0, '?', "z"));
    add(seq, cp('|', '?'));  // an empty group
    EXPECT_EQ(print(d), "<!ELEMENT d (x,(y|z?)*,()?)+>");
    // Mixed content as the parser leaves it: element leaves keep the
    // undecided separator 255 and print nothing but their occurrence.
    const VQHANDLE m = elementDecl("m", 3);
    const VQHANDLE mixed = add(m, cp('|', '*'));
    add(mixed, cp(0, 0, "#PCDATA"));
    add(mixed, cp(255, 0, "b"));
    add(mixed, cp(255, '+', "c"));
    EXPECT_EQ(print(m), "<!ELEMENT m (#PCDATA||+)*>");

    // Attribute types and default kinds; type 2 has no name.
    const VQHANDLE list = createAttlistDecl(doc, s("e"));
    const VQHANDLE color = add(list, attDef("c", 1, 0, "red"));
    add(color, createNameList(doc, s("red")));
    add(color, createNameList(doc, s("green")));
    add(list, attDef("i", 4, 3));
    add(list, attDef("r", 3, 2));
    add(list, attDef("f", 3, 1, "v"));
    add(list, attDef("t", 2, 0, "x"));
    EXPECT_EQ(print(list),
              "<!ATTLIST e c (red|green) \"red\" i ID #IMPLIED r CDATA #REQUIRED f CDATA #FIXED\"v\" t  \"x\">");
    EXPECT_EQ(print(createAttlistDecl(doc, s("none"))), "<!ATTLIST none>");
}

// <a><!--hello--></a> is 19 bytes. Literals go in whole or not at all, DS
// pieces may leave a cut copy behind an unmoved cursor, single characters go
// in while any room is left, and every node ends with a NUL when its
// capacity exceeded its length.
TEST_F(Serializer, FitRulesOfAShortBuffer) {
    const VQHANDLE a = el("a");
    add(a, VQDOM_createComment(doc, s("hello")));
    EXPECT_EQ(print(a), "<a><!--hello--></a>");
    const struct {
        int32_t size;
        std::string bytes;
    } cases[] = {
        {10, std::string("<a><!--he\0", 10)},
        {13, std::string("<a><!--hello\0", 13)},
        {16, std::string("<a><!--hello-->\0", 16)},
        {17, "<a><!--hello--></"},
        {18, std::string("<a><!--hello--></\0", 18)},
        {19, "<a><!--hello--></a>"},
    };
    for (const auto &c : cases) EXPECT_EQ(printInto(a, c.size, 19), c.bytes);

    // An empty DS piece still copies its NUL while there is room.
    const VQHANDLE pi = VQDOM_createProcessingInstruction(doc, s("t"), s(""));
    EXPECT_EQ(printInto(pi, 4, 6), "<?t_");
    EXPECT_EQ(printInto(pi, 5, 6), std::string("<?t_\0", 5));

    // No room at all: nothing written, the full length still reported.
    char guard[2] = {'g', 'g'};
    EXPECT_EQ(VQXML_printNode(a, guard, 0), 19);
    EXPECT_EQ(VQXML_printNode(a, guard, -7), 19);
    EXPECT_EQ(std::string(guard, 2), "gg");
}

// A document with every node kind, printed into every size from 0 to its
// full length: the result never changes, nothing lands past the size, and a
// size above the result always gives the terminated text.
TEST_F(Serializer, EverySizeOfASampleDocument) {
    const VQHANDLE decl = createXmlDecl(doc);
    const VQHANDLE version = s("1.0"), sa = s("no");
    vqxml::rec<XmlDecl>(decl)->version = version;
    vqxml::rec<XmlDecl>(decl)->standalone = sa;
    vqxml::rec<Document>(doc)->xmlDecl = decl;
    EXPECT_EQ(print(doc), "<?xml version=\"1.0\" standalone=\"no\"?>");  // no line break
    const VQHANDLE dt = add(doc, createDocumentType(doc, s("r")));
    add(dt, entity("e", "x&y"));
    add(dt, entity("p", "", 1));
    add(dt, ref("p"));
    const VQHANDLE group = add(add(dt, elementDecl("r", 4)), cp('|', '*'));
    add(group, cp(0, 0, "a"));
    add(group, cp(0, '?', "b"));
    add(add(dt, createAttlistDecl(doc, s("r"))), attDef("k", 3, 1, "fixed"));
    add(dt, allocNode(doc, VQXML_NOTATION_NODE, s("n")));
    add(doc, VQDOM_createComment(doc, s(" top ")));
    const VQHANDLE r = add(doc, el("r"));
    attr(r, "id", "a\tb");
    add(r, text("t&"));
    add(r, VQDOM_createCDATASection(doc, s("c]]>d")));
    add(r, ref("e"));
    const VQHANDLE inner = add(r, el("i"));
    add(inner, VQDOM_createProcessingInstruction(doc, s("pi"), s("data")));
    add(inner, el("j"));
    VQDOM_setRawXml(add(r, text("<raw/>")));

    const std::string full = print(doc);
    EXPECT_EQ(full,
              "<?xml version=\"1.0\" standalone=\"no\"?>\r\n"
              "<!DOCTYPE r [\r\n<!ENTITY e \"x&y\">\r\n<!ENTITY % p \"\">\r\n%p;"
              "\r\n<!ELEMENT r (a|b?)*>\r\n<!ATTLIST r k CDATA #FIXED\"fixed\">"
              "\r\n<!NOTATION n >\r\n]>\r\n"
              "<!-- top -->\r\n"
              "<r id=\"a&#9;b\">t&amp;<![CDATA[c]]]><![CDATA[]>d]]>&e;"
              "<i><?pi_data?><j/></i><raw/></r>");
    const auto len = static_cast<int32_t>(full.size());
    for (int32_t size = 0; size <= len + 1; ++size) {
        std::string buf(static_cast<size_t>(len) + 8, '\x7f');
        ASSERT_EQ(VQXML_printNode(doc, buf.data(), size), len) << "size " << size;
        ASSERT_EQ(buf.find_first_not_of('\x7f', static_cast<size_t>(size)), std::string::npos)
            << "write past size " << size;
        if (size > len) {
            EXPECT_EQ(buf.substr(0, static_cast<size_t>(len) + 1), full + '\0');
        }
    }
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(Serializer, InvalidHandlesEndTheWalk) {
    char buf[64];
    EXPECT_EQ(VQXML_printNode(0, buf, sizeof buf), 0);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(VQXML_printNode(0x12345, buf, sizeof buf), 0);
    EXPECT_EQ(drainErrors(), (std::vector<Err>{{1001748, "12345|"}}));

    // A DS handle is no node: nothing written, nothing read out of bounds.
    buf[0] = 'g';
    EXPECT_EQ(VQXML_printNode(s("x"), buf, sizeof buf), 0);
    EXPECT_EQ(buf[0], 'g');

    const VQHANDLE a = el("a");
    const VQHANDLE b = add(a, el("b"));
    add(a, el("c"));
    const VQHANDLE gone = el("gone");
    VQDOM_deleteNode(gone);
    vqxml::node(b)->nextSibling = gone;  // a stale link ends the sibling walk
    EXPECT_EQ(print(a), "<a><b/></a>");
    vqxml::node(a)->firstChild = gone;
    EXPECT_EQ(print(a), "<a></a>");
    EXPECT_TRUE(drainErrors().empty());
}

}  // namespace
