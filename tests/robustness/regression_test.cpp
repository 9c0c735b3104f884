// regression_test.cpp - faults found by fuzzing and by the hostile-input
// review, each replayed: the inputs the fuzz targets found (kept in their
// seed corpora as regress-*) and the cases behind each fix.
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/dom_string.h"

// The DOM fuzz target, to replay its findings with its own decoder.
#define LLVMFuzzerTestOneInput domFuzzerInput
#include "fuzz/dom_fuzzer.cpp"
#undef LLVMFuzzerTestOneInput

using robust::liveAreas;
using robust::print;
using vqtest::ds;
using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::str;

namespace {

using namespace vqxml::codes;

std::vector<uint8_t> corpusFile(const std::string &target, const std::string &name) {
    const std::string path = std::string(VQXML_SOURCE_DIR) + "/fuzz/corpus/" + target + "/" + name;
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

// Found by the DOM target: an attribute whose value held, through an entity
// reference, the element it was then given to. The tree became a cycle and
// a copy of the element never ended (it grew until the handles ran out).
TEST_F(LibraryTest, AttributeValuesCannotHoldTheirOwnElement) {
    const std::vector<uint8_t> input = corpusFile("dom", "regress-attribute-cycle");
    ASSERT_FALSE(input.empty());
    EXPECT_EQ(domFuzzerInput(input.data(), input.size()), 0);

    const VQHANDLE doc = VQDOM_createDocument();
    // setAttributeNode: the element sits inside the attribute's value.
    VQHANDLE element = VQDOM_createElement(doc, ds(doc, "e"));
    VQHANDLE attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    VQHANDLE ref = VQDOM_createEntityReference(doc, ds(doc, "r"));
    ASSERT_EQ(VQDOM_appendChild(attr, ref), ref);
    ASSERT_EQ(VQDOM_appendChild(ref, element), element);
    EXPECT_EQ(VQDOM_setAttributeNode(element, attr), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{mainCode(kHierarchyRequestErr), ""}}));
    // Refused like any insertion: the attribute went, and the element
    // inside it with it.
    EXPECT_EQ(VQDOM_getNodeType(attr), 0);
    EXPECT_EQ(VQDOM_getNodeType(element), 0);

    // appendChild: the new child's attribute holds the parent.
    const VQHANDLE parent = VQDOM_createElement(doc, ds(doc, "p"));
    element = VQDOM_createElement(doc, ds(doc, "e"));
    attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    ref = VQDOM_createEntityReference(doc, ds(doc, "r"));
    VQDOM_appendChild(attr, ref);
    VQDOM_appendChild(ref, parent);
    EXPECT_EQ(VQDOM_setAttributeNode(element, attr), 0u);
    EXPECT_EQ(VQDOM_appendChild(parent, element), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{mainCode(kHierarchyRequestErr), ""}}));
    EXPECT_EQ(VQDOM_getNodeType(parent), 0);

    // A node in its own map.
    element = VQDOM_createElement(doc, ds(doc, "e"));
    EXPECT_EQ(VQDOM_setNamedItem(VQDOM_getAttributes(element), element), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{mainCode(kHierarchyRequestErr), ""}}));

    // Elements in an attribute value are allowed elsewhere, and copy.
    element = VQDOM_createElement(doc, ds(doc, "e"));
    attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    ref = VQDOM_createEntityReference(doc, ds(doc, "r"));
    VQDOM_appendChild(attr, ref);
    VQDOM_appendChild(ref, VQDOM_createElement(doc, ds(doc, "inner")));
    EXPECT_EQ(VQDOM_setAttributeNode(element, attr), 0u);
    const VQHANDLE copy = VQDOM_cloneNode(element, 1);
    EXPECT_EQ(print(copy), "<e a=\"&r;\"/>");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// Found by the parse target: a parameter entity naming itself twice in its
// text. Every reference opened a source nested inside the one reading it,
// up to 64 deep, and each character of the innermost text was handed up
// through every level; the count of entity text read did not weigh that,
// so a 242-byte document took half a minute (sanitizer build). Text now
// counts once per level it passes through, and the parse stops at the
// bound.
TEST_F(LibraryTest, SelfReferencingParameterEntityStopsAtTheBound) {
    const std::vector<uint8_t> input = corpusFile("parse", "regress-self-reference");
    ASSERT_FALSE(input.empty());
    const std::string text(input.begin(), input.end());
    EXPECT_EQ(VQXML_parse(text.c_str()), 0u);
    // (The input holds a NUL: the parse reads the text before it.)
    const int64_t parsed = static_cast<int64_t>(std::strlen(text.c_str()));
    const std::string bound = "|" + std::to_string((int64_t{1} << 20) + 16 * parsed) + "|";
    bool bounded = false;
    for (const Err &e : vqtest::drainErrors()) {
        EXPECT_TRUE(e.code == kNameStartIllegal || e.code == kPeIllegalHere || e.code == kExpansionTooLarge || e.code == kEntitiesTooDeep) << e;
        bounded |= e.code == kExpansionTooLarge && e.params.find(bound) != std::string::npos;
    }
    EXPECT_TRUE(bounded);
    EXPECT_EQ(liveAreas(), 0);
}

// Review: an element with many attributes cost quadratic time (a filter of
// 256 bits saturated, and every later attribute searched the map), and so
// did one name repeated many times (each repetition searched the map for
// the item to replace). A repeated name must still replace the earlier
// value and move to the end; a default must give way to a given value.
TEST_F(LibraryTest, ManyAttributesKeepTheirOrderAndLastValue) {
    std::string text = "<!DOCTYPE e [<!ATTLIST e d CDATA 'default' a9 CDATA 'nine'>]><e";
    for (int i = 0; i < 3000; ++i) text += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
    text += " a7='again'";
    for (int i = 0; i < 500; ++i) text += " a5='r" + std::to_string(i) + "'";
    text += " a2999='last'/>";
    const VQHANDLE doc = VQXML_parse(text.c_str());
    ASSERT_NE(doc, 0u);
    const VQHANDLE map = VQDOM_getAttributes(VQDOM_getDocumentElement(doc));
    ASSERT_EQ(VQDOM_getLengthMap(map), 3001u);
    auto at = [map](uint64_t i) {
        const VQHANDLE a = VQDOM_itemMap(map, i);
        return str(VQDOM_getNodeName(a)) + "=" + str(VQDOM_getValue(a)) + (VQDOM_getSpecified(a) ? "" : "?");
    };
    EXPECT_EQ(at(0), "d=default?");
    EXPECT_EQ(at(1), "a0=0");
    EXPECT_EQ(at(6), "a6=6");
    EXPECT_EQ(at(7), "a8=8");
    EXPECT_EQ(at(8), "a9=9");  // in place of the default, which left
    EXPECT_EQ(at(9), "a10=10");
    EXPECT_EQ(at(2996), "a2997=2997");
    EXPECT_EQ(at(2997), "a2998=2998");
    EXPECT_EQ(at(2998), "a7=again");
    EXPECT_EQ(at(2999), "a5=r499");
    EXPECT_EQ(at(3000), "a2999=last");
}

// Review: long attribute-list declarations cost the product of their
// length and the document's (every element walked all definitions, every
// attribute searched them). The indexed lookups must answer as the
// declaration walk does: the first definition of a name decides the type,
// every default is applied in order (so a later default of the same name
// wins), and definitions without a default add nothing.
TEST_F(LibraryTest, IndexedDefinitionsAnswerAsTheDeclarations) {
    std::string text = "<!DOCTYPE r [<!ATTLIST a";
    for (int i = 0; i < 200; ++i) text += " i" + std::to_string(i) + " CDATA #IMPLIED";
    text += " x NMTOKENS ' p  q ' x CDATA ' r  s ' y CDATA 'y1'>"
            "<!ATTLIST a y CDATA 'y2' z CDATA 'z1'>]>"
            "<r><a x=' m  n '/><a/><a i5=' k  l '/></r>";
    const VQHANDLE doc = VQXML_parse(text.c_str());
    ASSERT_NE(doc, 0u) << ::testing::PrintToString(vqtest::drainErrors());
    const VQHANDLE first = VQDOM_getFirstChild(VQDOM_getDocumentElement(doc));
    const VQHANDLE second = VQDOM_getNextSibling(first);
    const VQHANDLE third = VQDOM_getNextSibling(second);
    char value[32];
    VQDOM_getAttributeStr(first, "x", value, sizeof value);
    EXPECT_STREQ(value, "m n");  // NMTOKENS, the first definition: folded
    VQDOM_getAttributeStr(second, "x", value, sizeof value);
    EXPECT_STREQ(value, " r  s ");  // the later default
    VQDOM_getAttributeStr(second, "y", value, sizeof value);
    EXPECT_STREQ(value, "y2");
    VQDOM_getAttributeStr(third, "i5", value, sizeof value);
    EXPECT_STREQ(value, " k  l ");  // CDATA: kept
    EXPECT_EQ(VQDOM_getLengthMap(VQDOM_getAttributes(second)), 3u);
    // The declaration walk of an element made through the DOM agrees.
    const VQHANDLE made = VQDOM_createElement(doc, ds(doc, "a"));
    EXPECT_EQ(print(made), print(second));
    for (const char *name : {"x", "y", "z"}) {
        char walked[32];
        VQDOM_getAttributeStr(made, name, walked, sizeof walked);
        VQDOM_getAttributeStr(second, name, value, sizeof value);
        EXPECT_STREQ(walked, value) << name;
    }
}

// Review: a reference the reader could not expand for want of memory was
// read as plain text, and the parse handed back a document without it.
TEST_F(LibraryTest, AParseThatRanOutOfMemoryHandsBackNothing) {
    const VQHANDLE host = VQXML_parse("<!DOCTYPE h [<!ENTITY % q 'Q'>]><h/>");
    for (int n = 1; n <= 8; ++n) {
        vqxml::failAllocAt(n);
        const VQHANDLE fragment = VQXML_parseFragment(host, "x%q;y");
        vqxml::failAllocAt(0);
        const auto errors = vqtest::drainErrors();
        if (fragment != 0) {
            EXPECT_EQ(print(fragment), "xQy") << n;
            VQDOM_deleteNode(fragment);
        } else {
            EXPECT_TRUE(robust::hasCode(errors, mainCode(kAllocErr))) << n << ::testing::PrintToString(errors);
        }
    }
}

// Found by the DOM target: the document lookups took any live handle for a
// node, so a string handed in as the document had its text (or, for a short
// string, the bytes behind it) read as child links; garbage links could
// chain into a loop that never ended.
TEST_F(LibraryTest, StringsAndMapsAreNotWalkedAsNodes) {
    const std::vector<uint8_t> input = corpusFile("dom", "regress-string-as-parent");
    ASSERT_FALSE(input.empty());
    EXPECT_EQ(domFuzzerInput(input.data(), input.size()), 0);

    const VQHANDLE doc = VQXML_parse("<!DOCTYPE r [<!ENTITY % e 'x'><!ATTLIST r a CDATA 'd'>]><r/>");
    ASSERT_NE(doc, 0u);
    const VQHANDLE root = VQDOM_getDocumentElement(doc);
    const VQHANDLE notNodes[] = {ds(doc, "ab"), ds(doc, std::string(100, 'x').c_str()), VQDOM_getAttributes(root),
                                 VQDOM_getChildNodes(root)};
    for (const VQHANDLE h : notNodes) {
        ASSERT_NE(h, 0u);
        EXPECT_EQ(VQDOM_getDocumentElement(h), 0u);
        EXPECT_EQ(VQDOM_getDoctype(h), 0u);
        EXPECT_EQ(getFirstMarkupDecl(h, VQXML_ENTITY_NODE), 0u);
        EXPECT_EQ(getNextMarkupDecl(h), 0u);
        EXPECT_EQ(findEntityStr(h, "e"), 0u);
        EXPECT_EQ(findItem(h, 0, root), 0u);
    }
    EXPECT_NE(findEntityStr(doc, "e"), 0u);
    VQXML_deleteDocumentArea(doc);
}

// Found by the DOM target (UBSan): an attribute value gathered from a text
// child whose string had been freed copied zero bytes from a null pointer.
// Invalid strings now read as an empty text that still has an address.
TEST_F(LibraryTest, FreedValueStringsReadAsEmpty) {
    const std::vector<uint8_t> input = corpusFile("dom", "regress-empty-piece");
    ASSERT_FALSE(input.empty());
    EXPECT_EQ(domFuzzerInput(input.data(), input.size()), 0);

    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE attr = VQDOM_createAttribute(doc, ds(doc, "a"));
    const VQHANDLE text = VQDOM_createTextNode(doc, ds(doc, "x"));
    const VQHANDLE first = VQDOM_createTextNode(doc, ds(doc, "v"));
    ASSERT_EQ(VQDOM_appendChild(attr, first), first);
    ASSERT_EQ(VQDOM_appendChild(attr, text), text);
    VQDOM_deleteDS(VQDOM_getNodeValue(text));
    EXPECT_EQ(getNormalValue(attr, 1), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(attr)), "v");
    EXPECT_NE(vqxml::dsView(0).data(), nullptr);
    VQXML_deleteDocumentArea(doc);
}
