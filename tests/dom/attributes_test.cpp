// attributes_test.cpp - named node maps, node lists, attribute operations and
// the handles each consumes, DTD default attributes, attribute values built
// from children or set whole, and copies rebuilding values for the target.
#include <cstring>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/node.h"

namespace {

using namespace vqxml::codes;

using vqtest::ds;
using vqtest::drainErrors;
using vqtest::Err;
using vqtest::message;
using vqtest::parse;
using Errs = std::vector<Err>;
using vqtest::str;
using vqxml::liveHandle;
using vqxml::node;
using vqxml::rec;

constexpr int64_t kBadChar = mainCode(kInvalidCharacterErr), kWrongDoc = mainCode(kWrongDocumentErr), kNotFound = mainCode(kNotFoundErr), kInuse = mainCode(kInuseAttributeErr);

bool alive(VQHANDLE h) { return vqxml::liveHandle(h); }

class AttributesTest : public vqtest::DocumentTest {
protected:
    void SetUp() override {
        DocumentTest::SetUp();
        other = VQDOM_createDocument();
    }
    static void set(VQHANDLE e, const char *name, const char *value) {
        const VQHANDLE d = VQDOM_getOwnerDocument(e);
        VQDOM_setAttribute(e, ds(d, name), ds(d, value));
    }
    // The attributes in map order as name=value, defaults marked with '~'.
    static std::string attrs(VQHANDLE e) {
        std::string out;
        const VQHANDLE map = VQDOM_getAttributes(e);
        for (uint32_t i = 0; i < VQDOM_getLengthMap(map); ++i) {
            const VQHANDLE a = VQDOM_itemMap(map, i);
            out.append(i ? " " : "").append(str(VQDOM_getNodeName(a)));
            out.append(VQDOM_getSpecified(a) ? "=" : "~").append(str(VQDOM_getNodeValue(a)));
        }
        return out;
    }
    VQHANDLE other = 0;
};

TEST_F(AttributesTest, MapOperations) {
    const VQHANDLE e = el("e");
    set(e, "a", "1");
    set(e, "b", "2");
    set(e, "c", "3");
    const VQHANDLE map = VQDOM_getAttributes(e), oldB = VQDOM_getNamedItemStr(map, "b");
    set(e, "b", "4");  // the replacement goes to the end; the old node goes
    EXPECT_EQ(attrs(e), "a=1 c=3 b=4");
    EXPECT_FALSE(alive(oldB));
    // setNamedItem hands the displaced node back, unlinked and alive.
    const VQHANDLE b4 = VQDOM_getNamedItemStr(map, "b"), newB = attr("b");
    VQDOM_setNodeValue(newB, s("5"));
    EXPECT_EQ(VQDOM_setNamedItem(map, newB), b4);
    EXPECT_TRUE(alive(b4));
    EXPECT_EQ(node(b4)->containingMap, 0u);
    EXPECT_EQ(attrs(e), "a=1 c=3 b=5");
    // Entering an attribute already in this very map is refused; it stays.
    EXPECT_EQ(VQDOM_setNamedItem(map, newB), 0u);
    EXPECT_EQ(attrs(e), "a=1 c=3 b=5");
    EXPECT_EQ(drainErrors(), (Errs{{kInuse, ""}}));
    EXPECT_EQ(message(kInuse, ""), "DOM error: INUSE_ATTRIBUTE_ERR");
    // One owned by another element is refused but not deleted; one from another document is deleted.
    const VQHANDLE f = el("f"), owned = VQDOM_getAttributeNodeStr(e, "a");
    const VQHANDLE foreign = VQDOM_createAttribute(other, ds(other, "x"));
    EXPECT_EQ(VQDOM_setAttributeNode(f, owned), 0u);
    EXPECT_EQ(VQDOM_setAttributeNode(f, foreign), 0u);
    EXPECT_EQ(VQDOM_getAttributeNodeStr(e, "a"), owned);
    EXPECT_FALSE(alive(foreign));
    EXPECT_EQ(attrs(f), "");
    EXPECT_EQ(drainErrors(), (Errs{{kInuse, ""}, {kWrongDoc, ""}}));
    // An invalid map deletes the node; an invalid node is just refused.
    const VQHANDLE lost = attr("lost");
    EXPECT_EQ(VQDOM_setNamedItem(0, lost), 0u);
    EXPECT_FALSE(alive(lost));
    EXPECT_EQ(VQDOM_setNamedItem(map, 0), 0u);
    // Positions and lengths.
    EXPECT_EQ(VQDOM_itemMap(map, 1), VQDOM_getNamedItemStr(map, "c"));
    EXPECT_EQ(VQDOM_itemMap(map, 3) | VQDOM_itemMap(map, UINT64_MAX) | VQDOM_itemMap(0, 0), 0u);
    EXPECT_EQ(VQDOM_getLengthMap(0), 0u);
    EXPECT_EQ(VQDOM_getNamedItem(map, 0) | VQDOM_getNamedItemStr(map, nullptr), 0u);
    // Removal: an invalid map says nothing; an absent name or a node held elsewhere is reported.
    EXPECT_EQ(VQDOM_removeNamedItem(0, s("a")) | VQDOM_removeNamedItemStr(0, "a"), 0u);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(VQDOM_removeNamedItemStr(map, "zz"), 0u);
    EXPECT_EQ(VQDOM_removeAttributeNode(f, owned), 0u);
    VQDOM_removeAttributeStr(e, "nope");
    EXPECT_EQ(drainErrors(), (Errs(3, Err{kNotFound, ""})));
    const VQHANDLE c = VQDOM_removeNamedItemStr(map, "c");
    EXPECT_EQ(str(VQDOM_getNodeName(c)), "c");
    EXPECT_EQ(node(c)->containingMap, 0u);
    EXPECT_EQ(VQDOM_removeAttributeNode(e, owned), owned);
    VQDOM_removeAttributeStr(e, "b");
    EXPECT_EQ(attrs(e), "");
    // The removed nodes are the caller's; they can be set elsewhere.
    EXPECT_EQ(VQDOM_setAttributeNode(f, owned), 0u);
    EXPECT_EQ(attrs(f), "a=1");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(AttributesTest, DefaultsFromTheDtd) {
    // Declarations brought in by a parameter entity hang below its reference, in document order; the
    // default values are kept as declared, then folded as their type asks.
    const VQHANDLE d = parse("<!DOCTYPE e [<!ATTLIST e first CDATA ' d  v '><!ENTITY % pe \"<!ATTLIST e inner NMTOKEN"
                             " '  a   b '>\">%pe;<!ATTLIST e required CDATA #REQUIRED><!ATTLIST e last CDATA '3'>"
                             "<!ATTLIST f other CDATA '5'>]><f/>");
    const VQHANDLE e = VQDOM_createElement(d, ds(d, "e"));
    EXPECT_EQ(attrs(e), "first~ d  v  inner~a b last~3");
    EXPECT_EQ(kids(VQDOM_getAttributeNodeStr(e, "last")), "'3'");
    // A given value replaces a default and goes to the end; a default replaces an attribute of its name.
    set(e, "first", "mine");
    EXPECT_EQ(attrs(e), "inner~a b last~3 first=mine");
    const VQHANDLE mine = VQDOM_getAttributeNodeStr(e, "first");
    setDefaultAttribute(e, findAttDef(d, "e", "first"));
    EXPECT_FALSE(alive(mine));
    EXPECT_EQ(attrs(e), "inner~a b last~3 first~ d  v ");
    // A definition without a default adds nothing, nor does the removal of a default.
    setDefaultAttribute(e, findAttDef(d, "e", "required"));
    VQDOM_removeAttributeStr(e, "inner");
    EXPECT_EQ(VQDOM_getAttributeNodeStr(e, "inner"), 0u);
    EXPECT_EQ(attrs(e), "last~3 first~ d  v ");
    EXPECT_TRUE(drainErrors().empty());
}

// A copy rebuilds each value from the children (not the value string) and
// takes the target's defaults and folding; within the source nothing changes.
TEST_F(AttributesTest, CopiesRecomputeValuesForTheTarget) {
    const VQHANDLE d = parse("<!DOCTYPE e [<!ATTLIST e x CDATA 'source'>]><e y='  p   q '/>");
    const VQHANDLE e = VQDOM_getDocumentElement(d), y = VQDOM_getAttributeNodeStr(e, "y");
    VQDOM_deleteDS(node(y)->nodeValue);
    node(y)->nodeValue = ds(d, "stale");
    const VQHANDLE target = parse("<!DOCTYPE e [<!ATTLIST e x CDATA 'target' y NMTOKEN 'dflt'>]><e/>");
    const VQHANDLE copy = VQDOM_cloneNodeDoc(e, 1, target);
    EXPECT_EQ(attrs(copy), "x~target y=p q");
    EXPECT_EQ(VQDOM_getOwnerDocument(VQDOM_getAttributeNodeStr(copy, "x")), target);
    EXPECT_EQ(attrs(VQDOM_cloneNodeDoc(e, 0, other)), "y=  p   q ");  // no declarations: no defaults, no folding
    EXPECT_EQ(attrs(VQDOM_cloneNode(e, 0)), "x~source y=  p   q ");
    EXPECT_EQ(str(VQDOM_getNodeValue(y)), "stale");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(AttributesTest, NormalValueFromChildren) {
    const VQHANDLE inner = with(ref("s"), {text("\tcd  ")});
    const VQHANDLE a = with(attr("a"), {text("  a "), with(ref("r"), {text("b  "), inner}), text(" e ")});
    EXPECT_EQ(getNormalValue(a, 1), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "  a b  \tcd   e ");
    EXPECT_EQ(getNormalValue(a, 0), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "a b \tcd e");
    // A child of another kind stops the gathering: what came before stays, unfolded.
    add(inner, VQDOM_createComment(doc, s("c")));
    EXPECT_EQ(getNormalValue(a, 0), 0);
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "  a b  \tcd  ");
    // Stopped before anything was gathered: a new empty value, result 0.
    const VQHANDLE stopped = with(attr("a"), {with(ref("r"), {VQDOM_createComment(doc, s("c"))})});
    EXPECT_EQ(getNormalValue(stopped, 0), 0);
    EXPECT_TRUE(alive(VQDOM_getNodeValue(stopped)));
    EXPECT_EQ(str(VQDOM_getNodeValue(stopped)), "");
    // No children: an empty value too, result 1.
    const VQHANDLE empty = attr("e");
    EXPECT_EQ(getNormalValue(empty, 0), 1);
    EXPECT_TRUE(alive(VQDOM_getNodeValue(empty)));
    // Folding takes blanks only, at both ends and in runs.
    struct { const char *in, *out; } const cases[] = {
        {"  ab   cd ", "ab cd"}, {"    ", ""}, {"\n a \r\n", "\n a \r\n"}};
    for (const auto &f : cases) {
        SCOPED_TRACE(f.in);
        const VQHANDLE b = with(attr("b"), {text(f.in)});
        EXPECT_EQ(getNormalValue(b, 0), 1);
        EXPECT_EQ(str(VQDOM_getNodeValue(b)), f.out);
    }
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(AttributesTest, ListsFollowTheTree) {
    const VQHANDLE root = el("r"), all = VQDOM_getElementsByTagNameStr(doc, "*");
    const VQHANDLE items = VQDOM_getElementsByTagNameStr(root, "i"), children = VQDOM_getChildNodes(root);
    EXPECT_EQ(VQDOM_getLengthList(all), 0u);
    const VQHANDLE i1 = el("i"), i2 = el("i"), j = with(el("j"), {i2});
    with(add(doc, root), {i1, j, text("t")});
    EXPECT_EQ(VQDOM_getLengthList(all), 4u);
    EXPECT_EQ(VQDOM_getLengthList(items), 2u);
    EXPECT_EQ(VQDOM_itemList(items, 1), i2);
    EXPECT_EQ(VQDOM_itemList(items, 2), 0u);
    EXPECT_EQ(VQDOM_getLengthList(children), 3u);
    EXPECT_EQ(VQDOM_itemList(children, 1), j);
    VQDOM_deleteNode(VQDOM_removeChild(root, i1));
    EXPECT_EQ(VQDOM_itemList(items, 0), i2);
    EXPECT_EQ(VQDOM_getLengthList(children), 2u);
    // A path-selection list has no items until the selector provides them.
    rec<NodeList>(items)->mode = 1;
    EXPECT_EQ(VQDOM_getLengthList(items), 0u);
    EXPECT_EQ(VQDOM_itemList(items, 0), 0u);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(AttributesTest, EntitiesAndNotationsEnterTheDoctypeMaps) {
    const VQHANDLE dt = add(doc, createDocumentType(doc, s("r")));
    const VQHANDLE first = allocNode(doc, VQXML_ENTITY_NODE, s("e")), param = allocNode(doc, VQXML_ENTITY_NODE, s("p"));
    rec<Entity>(param)->kind = 1;
    const VQHANDLE notation = allocNode(doc, VQXML_NOTATION_NODE, s("n"));
    with(dt, {first, allocNode(doc, VQXML_ENTITY_NODE, s("e")), param, notation});
    const VQHANDLE entities = VQDOM_getEntities(dt);
    EXPECT_EQ(VQDOM_getLengthMap(entities), 1u);  // the first declaration wins
    EXPECT_EQ(VQDOM_getNamedItemStr(entities, "e"), first);
    EXPECT_EQ(VQDOM_getNamedItemStr(VQDOM_getNotations(dt), "n"), notation);
    // Unlinking the entity takes it out of the map as well.
    VQDOM_removeChild(dt, first);
    EXPECT_EQ(VQDOM_getLengthMap(entities), 0u);
    EXPECT_EQ(node(first)->containingMap, 0u);
    VQDOM_deleteNode(first);
    // Through the map itself a later entity replaces an earlier one.
    const VQHANDLE one = allocNode(doc, VQXML_ENTITY_NODE, s("x")), two = allocNode(doc, VQXML_ENTITY_NODE, s("x"));
    EXPECT_EQ(VQDOM_setNamedItem(entities, one), 0u);
    EXPECT_EQ(VQDOM_setNamedItem(entities, two), one);
    EXPECT_EQ(VQDOM_getLengthMap(entities), 1u);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(AttributesTest, AttributeOperations) {
    const VQHANDLE e = el("e");
    set(e, "a", "hello");
    const VQHANDLE a = VQDOM_getAttributeNodeStr(e, "a"), name = s("a");
    EXPECT_EQ(VQDOM_getAttribute(e, name), VQDOM_getNodeValue(a));  // not a copy
    EXPECT_EQ(VQDOM_getAttributeNode(e, name), a);
    EXPECT_EQ(VQDOM_getName(a), VQDOM_getNodeName(a));
    char buf[8] = "junk";
    EXPECT_EQ(VQDOM_getAttributeStr(e, "zz", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(VQDOM_getAttributeStr(e, "a", buf, 3), 5);
    EXPECT_EQ(std::string(buf, 4), std::string("he\0#", 4));
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(VQDOM_getAttributeStr(e, "none", buf, 0), 0);
    EXPECT_EQ(buf[0], '#');
    // setAttribute consumes both strings on every path.
    const VQHANDLE n1 = s("x"), v1 = s("1"), n2 = s("1x"), v2 = s("2"), n3 = ds(other, "x"), v3 = s("3");
    VQDOM_setAttribute(0, n1, v1);
    VQDOM_setAttribute(e, n2, v2);
    VQDOM_setAttribute(e, n3, v3);
    for (VQHANDLE h : {n1, v1, n2, v2, n3, v3}) EXPECT_FALSE(alive(h));
    EXPECT_EQ(drainErrors(), (Errs{{kBadNameStart, "0x31|"}, {kBadChar, "0x31|1x|"}, {kWrongDoc, "createAttribute|"}}));
    // A foreign value leaves the new attribute in place without one; the one it displaced is gone.
    const VQHANDLE foreign = ds(other, "f");
    VQDOM_setAttribute(e, s("a"), foreign);
    EXPECT_FALSE(alive(a) || alive(foreign));
    const VQHANDLE bare = VQDOM_getAttributeNodeStr(e, "a");
    ASSERT_NE(bare, 0u);
    EXPECT_EQ(VQDOM_getNodeValue(bare) | VQDOM_getFirstChild(bare), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, "setNodeValue|"}}));
    // setAttributeNode hands back the attribute it displaced.
    const VQHANDLE replacement = attr("a");
    EXPECT_EQ(VQDOM_setAttributeNode(e, replacement), bare);
    EXPECT_TRUE(alive(bare));
    // Removal by name keeps the caller's name.
    VQDOM_removeAttribute(e, name);
    EXPECT_TRUE(alive(name));
    EXPECT_FALSE(alive(replacement));
    VQDOM_removeAttribute(e, name);
    EXPECT_TRUE(alive(name));
    EXPECT_EQ(VQDOM_removeAttributeNode(e, 0) | VQDOM_removeAttributeNode(0, bare), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{kNotFound, ""}, {kNotFound, ""}, {kNotFound, ""}}));
}

TEST_F(AttributesTest, SetNodeValueReplacesTheChildren) {
    // An attribute's children give way to one text child holding the DS itself; the value is
    // rebuilt from it, blanks kept whatever the declared type.
    const VQHANDLE d = parse("<!DOCTYPE e [<!ATTLIST e a NMTOKEN #IMPLIED>]><e a='old'/>");
    const VQHANDLE a = VQDOM_getAttributeNodeStr(VQDOM_getDocumentElement(d), "a"), oldChild = VQDOM_getFirstChild(a);
    const VQHANDLE v = ds(d, "  p  q ");
    rec<Attr>(a)->specified = 0;
    VQDOM_setNodeValue(a, v);
    EXPECT_FALSE(alive(oldChild));
    const VQHANDLE child = VQDOM_getFirstChild(a);
    EXPECT_EQ(VQDOM_getNodeValue(child), v);
    EXPECT_EQ(VQDOM_getNextSibling(child), 0u);
    EXPECT_NE(VQDOM_getNodeValue(a), v);
    EXPECT_EQ(str(VQDOM_getValue(a)), "  p  q ");
    EXPECT_EQ(VQDOM_getSpecified(a), 1);
    EXPECT_TRUE(drainErrors().empty());
    // A value of another document changes nothing.
    const VQHANDLE foreign = ds(other, "f");
    VQDOM_setNodeValue(a, foreign);
    EXPECT_FALSE(alive(foreign));
    EXPECT_EQ(str(VQDOM_getValue(a)), "  p  q ");
    EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, "setNodeValue|"}}));
}

}  // namespace
