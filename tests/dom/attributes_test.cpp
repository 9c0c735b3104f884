// attributes_test.cpp - named node maps, node lists, attribute operations,
// DTD default attributes and attribute values built from children.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::ds;
using vqtest::Err;
using vqtest::str;
using vqxml::liveHandle;

constexpr int64_t kWrongDoc = 1001704, kNotFound = 1001708, kInuse = 1001710;
constexpr uint16_t kCdata = 3, kNmtoken = 9;

class AttributesTest : public vqtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = VQDOM_createDocument();
        ASSERT_NE(doc, 0u);
    }
    VQHANDLE elem(const char *name, VQHANDLE d = 0) {
        return VQDOM_createElement(d ? d : doc, ds(d ? d : doc, name));
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
            out += (i ? " " : "") + str(VQDOM_getNodeName(a)) + (VQDOM_getSpecified(a) ? "=" : "~") +
                   str(VQDOM_getNodeValue(a));
        }
        return out;
    }
    // Declares an attribute of `element` in d's document type, with a
    // default built the way the DTD parser leaves it (an Attr in the
    // definition's map whose children hold the value).
    static void declare(VQHANDLE d, const char *element, const char *name, uint16_t type,
                        const char *value) {
        VQHANDLE dt = VQDOM_getDoctype(d);
        if (dt == 0) VQDOM_appendChild(d, dt = createDocumentType(d, ds(d, element)));
        const VQHANDLE list = createAttlistDecl(d, ds(d, element));
        VQDOM_appendChild(dt, list);
        const VQHANDLE def = createAttDef(d, ds(d, name));
        vqxml::rec<AttDef>(def)->attType = type;
        VQDOM_appendChild(list, def);
        if (value == nullptr) return;
        const VQHANDLE a = VQDOM_createAttribute(d, ds(d, name));
        VQDOM_appendChild(a, VQDOM_createTextNode(d, ds(d, value)));
        VQDOM_setNamedItem(vqxml::node(def)->attributes, a);
    }
    VQHANDLE doc = 0;
};

TEST_F(AttributesTest, SetReplaceAndRemove) {
    const VQHANDLE e = elem("e");
    set(e, "a", "1");
    set(e, "b", "2");
    set(e, "c", "3");
    const VQHANDLE oldB = VQDOM_getAttributeNodeStr(e, "b");
    set(e, "b", "4");  // the replacement goes to the end; the old node goes
    EXPECT_EQ(attrs(e), "a=1 c=3 b=4");
    EXPECT_FALSE(liveHandle(oldB));

    char buf[10] = "junk";
    EXPECT_EQ(VQDOM_getAttributeStr(e, "zz", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");

    // An attribute still owned elsewhere is refused but not deleted.
    const VQHANDLE f = elem("f");
    const VQHANDLE owned = VQDOM_getAttributeNodeStr(e, "a");
    EXPECT_EQ(VQDOM_setAttributeNode(f, owned), 0u);
    EXPECT_EQ(VQDOM_getAttributeNodeStr(e, "a"), owned);
    EXPECT_EQ(attrs(f), "");

    // From another document it is deleted.
    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE foreign = VQDOM_createAttribute(other, ds(other, "x"));
    EXPECT_EQ(VQDOM_setAttributeNode(f, foreign), 0u);
    EXPECT_FALSE(liveHandle(foreign));

    const VQHANDLE removed = VQDOM_removeNamedItem(VQDOM_getAttributes(e), ds(doc, "c"));
    EXPECT_EQ(vqxml::node(removed)->containingMap, 0u);
    EXPECT_EQ(VQDOM_removeAttributeNode(f, owned), 0u);
    EXPECT_EQ(VQDOM_removeAttributeNode(e, owned), owned);
    VQDOM_removeAttributeStr(e, "nope");
    VQDOM_removeAttributeStr(e, "b");
    EXPECT_EQ(attrs(e), "");
    // The removed nodes are the caller's; they can be set elsewhere.
    EXPECT_EQ(VQDOM_setAttributeNode(f, owned), 0u);
    EXPECT_EQ(attrs(f), "a=1");
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{kInuse, ""},
                                                        {kWrongDoc, ""},
                                                        {kNotFound, ""},
                                                        {kNotFound, ""}}));
}

TEST_F(AttributesTest, DefaultsFromTheDtd) {
    declare(doc, "e", "x", kCdata, " d  v ");
    declare(doc, "e", "n", kNmtoken, "  a   b ");
    declare(doc, "e", "req", kCdata, nullptr);
    declare(doc, "other", "y", kCdata, "no");
    const VQHANDLE e = elem("e");
    EXPECT_EQ(attrs(e), "x~ d  v  n~a b");
    EXPECT_EQ(str(VQDOM_getAttribute(e, ds(doc, "x"))), " d  v ");

    set(e, "x", "mine");
    EXPECT_EQ(attrs(e), "n~a b x=mine");

    // Nothing takes the place of a removed default.
    VQDOM_removeAttributeStr(e, "n");
    EXPECT_EQ(VQDOM_getAttributeNodeStr(e, "n"), 0u);
    EXPECT_EQ(attrs(e), "x=mine");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(AttributesTest, CloneTakesTheTargetsDefaults) {
    declare(doc, "e", "x", kCdata, "source");
    const VQHANDLE e = elem("e");
    set(e, "y", "  p   q ");

    const VQHANDLE target = VQDOM_createDocument();
    declare(target, "e", "x", kCdata, "target");
    declare(target, "e", "y", kNmtoken, "dflt");
    const VQHANDLE copy = VQDOM_cloneNodeDoc(e, 1, target);
    // The default x comes from the target; the given y displaces the
    // target's default and its value folds as the target declares it.
    EXPECT_EQ(attrs(copy), "x~target y=p q");
    EXPECT_EQ(VQDOM_getOwnerDocument(VQDOM_getAttributeNodeStr(copy, "x")), target);

    // Within the source document nothing changes.
    EXPECT_EQ(attrs(VQDOM_cloneNode(e, 0)), "x~source y=  p   q ");
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(AttributesTest, NormalValueFromChildren) {
    const VQHANDLE a = VQDOM_createAttribute(doc, ds(doc, "a"));
    const VQHANDLE ref = VQDOM_createEntityReference(doc, ds(doc, "r"));
    const VQHANDLE inner = VQDOM_createEntityReference(doc, ds(doc, "s"));
    VQDOM_appendChild(inner, VQDOM_createTextNode(doc, ds(doc, "\tcd  ")));
    VQDOM_appendChild(ref, VQDOM_createTextNode(doc, ds(doc, "b  ")));
    VQDOM_appendChild(ref, inner);
    VQDOM_appendChild(a, VQDOM_createTextNode(doc, ds(doc, "  a ")));
    VQDOM_appendChild(a, ref);
    VQDOM_appendChild(a, VQDOM_createTextNode(doc, ds(doc, " e ")));

    EXPECT_EQ(getNormalValue(a, 1), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "  a b  \tcd   e ");
    EXPECT_EQ(getNormalValue(a, 0), 1);
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "a b \tcd e");

    // A child of another kind stops the gathering: what came before stays,
    // unfolded.
    VQDOM_appendChild(inner, VQDOM_createComment(doc, ds(doc, "c")));
    EXPECT_EQ(getNormalValue(a, 0), 0);
    EXPECT_EQ(str(VQDOM_getNodeValue(a)), "  a b  \tcd  ");

    const VQHANDLE empty = VQDOM_createAttribute(doc, ds(doc, "e"));
    EXPECT_EQ(getNormalValue(empty, 0), 1);
    EXPECT_TRUE(liveHandle(VQDOM_getNodeValue(empty)));
}

TEST_F(AttributesTest, ListsFollowTheTree) {
    const VQHANDLE root = elem("r");
    const VQHANDLE all = VQDOM_getElementsByTagNameStr(doc, "*");
    const VQHANDLE items = VQDOM_getElementsByTagNameStr(root, "i");
    const VQHANDLE children = VQDOM_getChildNodes(root);
    EXPECT_EQ(VQDOM_getLengthList(all), 0u);

    VQDOM_appendChild(doc, root);
    const VQHANDLE i1 = elem("i"), i2 = elem("i"), j = elem("j");
    VQDOM_appendChild(root, i1);
    VQDOM_appendChild(root, j);
    VQDOM_appendChild(j, i2);
    VQDOM_appendChild(root, VQDOM_createTextNode(doc, ds(doc, "t")));
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
    vqxml::rec<NodeList>(items)->mode = 1;
    EXPECT_EQ(VQDOM_getLengthList(items), 0u);
    EXPECT_EQ(VQDOM_itemList(items, 0), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(AttributesTest, EntitiesAndNotationsEnterTheDoctypeMaps) {
    const VQHANDLE dt = createDocumentType(doc, ds(doc, "r"));
    VQDOM_appendChild(doc, dt);
    const VQHANDLE first = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "e"));
    const VQHANDLE again = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "e"));
    const VQHANDLE param = allocNode(doc, VQXML_ENTITY_NODE, ds(doc, "p"));
    vqxml::rec<Entity>(param)->kind = 1;
    const VQHANDLE notation = allocNode(doc, VQXML_NOTATION_NODE, ds(doc, "n"));
    for (VQHANDLE n : {first, again, param, notation}) VQDOM_appendChild(dt, n);

    const VQHANDLE entities = VQDOM_getEntities(dt);
    EXPECT_EQ(VQDOM_getLengthMap(entities), 1u);  // the first declaration wins
    EXPECT_EQ(VQDOM_getNamedItemStr(entities, "e"), first);
    EXPECT_EQ(VQDOM_getNamedItemStr(VQDOM_getNotations(dt), "n"), notation);

    // Unlinking the entity takes it out of the map as well.
    VQDOM_removeChild(dt, first);
    EXPECT_EQ(VQDOM_getLengthMap(entities), 0u);
    EXPECT_EQ(vqxml::node(first)->containingMap, 0u);
    VQDOM_deleteNode(first);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

}  // namespace
