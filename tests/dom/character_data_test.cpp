// character_data_test.cpp - value edits at the edges of the clipping rule,
// the error reports and which DS each call consumes, splitting and its
// links, edits seen through a value handle taken earlier, and whole values
// set on character data and processing instructions.
#include <cstdint>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/node.h"

namespace {

using namespace vqxml::codes;

using vqtest::ds;
using vqtest::Err;
using vqtest::message;
using vqtest::str;
using Errs = std::vector<Err>;

constexpr int64_t kDom = kDomCodeBase;
constexpr uint64_t kHuge = UINT64_MAX;

bool alive(VQHANDLE h) { return vqxml::liveHandle(h); }

class CharacterDataTest : public vqtest::DocumentTest {
protected:
    std::string value(VQHANDLE n) { return str(VQDOM_getData(n)); }
};

TEST_F(CharacterDataTest, ClippingRuleAtTheEndOfTheText) {
    VQHANDLE t = text("hello");
    const VQHANDLE whole = VQDOM_substringData(t, 0, 5);  // a new string in the same document
    EXPECT_EQ(str(whole), "hello");
    EXPECT_NE(whole, VQDOM_getData(t));
    EXPECT_EQ(whole & 255, doc & 255);
    EXPECT_EQ(str(VQDOM_substringData(t, 1, 3)), "ell");
    EXPECT_EQ(str(VQDOM_substringData(t, 2, kHuge)), "llo");
    VQHANDLE empty = VQDOM_substringData(t, 5, 1);
    EXPECT_TRUE(alive(empty));
    EXPECT_EQ(str(empty), "");
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_EQ(VQDOM_substringData(t, 6, 0), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 1, "5|6|"}}));

    VQDOM_deleteData(t, 5, kHuge);
    VQDOM_deleteData(t, 6, 1);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 1, "5|6|"}}));
    VQDOM_deleteData(t, 3, kHuge);
    EXPECT_EQ(value(t), "hel");

    VQDOM_replaceData(t, 3, 3, ds(doc, "!"));
    VQDOM_replaceData(t, 0, 0, ds(doc, "<"));
    VQDOM_replaceData(t, 1, 1, ds(doc, ""));
    VQDOM_replaceData(t, 1, kHuge, ds(doc, "ELP"));
    EXPECT_EQ(value(t), "<ELP");
    VQHANDLE refused = ds(doc, "x");
    VQDOM_replaceData(t, 5, 0, refused);
    VQDOM_replaceData(t, 0, 1, ds(doc, "h"));
    EXPECT_FALSE(alive(refused));
    // Offsets beyond a signed number are refused too, not wrapped.
    VQDOM_deleteData(t, kHuge, 1);
    VQDOM_insertDataStr(t, kHuge, "x");
    EXPECT_EQ(value(t), "hELP");
    EXPECT_EQ(vqtest::drainErrors(),
              (Errs{{kDom + 1, "4|5|"}, {kDom + 1, "4|-1|"}, {kDom + 1, "4|-1|"}}));
}

TEST_F(CharacterDataTest, WhichCallsConsumeTheirDataAndWhatTheyReport) {
    VQHANDLE t = text("abc");
    VQDOM_insertData(t, 3, ds(doc, "d"));
    VQDOM_insertDataStr(t, 0, "<");
    VQDOM_appendDataStr(t, ">");
    EXPECT_EQ(value(t), "<abcd>");
    VQHANDLE late = ds(doc, "x");
    VQDOM_insertData(t, 7, late);
    EXPECT_FALSE(alive(late));
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 1, "6|7|"}}));

    // A node without a value takes the DS; appending and inserting report it,
    // replacing does not.
    VQHANDLE e = VQDOM_createElement(doc, ds(doc, "e"));
    VQHANDLE appended = ds(doc, "d");
    VQHANDLE inserted = ds(doc, "i");
    VQDOM_appendData(e, appended);
    VQDOM_insertData(e, 0, inserted);
    VQDOM_replaceData(e, 0, 1, ds(doc, "r"));
    EXPECT_FALSE(alive(appended) || alive(inserted));
    EXPECT_EQ(VQDOM_getData(e), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 12, "appendData|"},
                                           {kDom + 12, "insertData|"}}));
    // Reading it, the Str variants and a split report too; deleting and null texts do not.
    EXPECT_EQ(VQDOM_substringData(e, 0, 1), 0u);
    VQDOM_appendDataStr(e, "x");
    VQDOM_insertDataStr(e, 0, "x");
    VQDOM_deleteData(e, 0, 1);
    VQDOM_appendDataStr(e, nullptr);
    VQDOM_insertDataStr(e, 0, nullptr);
    EXPECT_EQ(VQDOM_getLengthData(e), 0);
    EXPECT_EQ(VQDOM_substringData(0, 0, 1), 0u);
    EXPECT_EQ(VQDOM_splitText(e, 0), 0u);  // fails in its substring step
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 12, "substringData|"},
                                           {kDom + 12, "appendDS|"},
                                           {kDom + 12, "insertDataStr|"},
                                           {kDom + 12, "substringData|"},
                                           {kDom + 12, "substringData|"}}));
    EXPECT_EQ(message(kDom + 12, "substringData|"), "DOM error: function \"substringData\" called with null pointer");

    // Replacing by nothing deletes the range and still reports, after the
    // index when that is past the end; without a value only the missing data.
    VQDOM_replaceData(t, 1, 2, 0);
    EXPECT_EQ(value(t), "<cd>");
    VQDOM_replaceData(t, 5, 1, 0);
    VQDOM_replaceData(e, 0, 1, 0);
    EXPECT_EQ(value(t), "<cd>");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 12, "replaceData|"},
                                           {kDom + 1, "4|5|"},
                                           {kDom + 12, "replaceData|"},
                                           {kDom + 12, "replaceData|"}}));

    // Without a node there is nothing to report, but the data is gone.
    VQHANDLE orphans[] = {ds(doc, "1"), ds(doc, "2"), ds(doc, "3"), ds(doc, "4")};
    VQDOM_appendData(0, orphans[0]);
    VQDOM_insertData(0, 0, orphans[1]);
    VQDOM_replaceData(0, 0, 1, orphans[2]);
    VQDOM_replaceData(0, 0, 1, 0);
    VQDOM_setDataPI(0, orphans[3]);
    for (VQHANDLE o : orphans) EXPECT_FALSE(alive(o));
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(CharacterDataTest, EditsShowThroughAValueHandleTakenBefore) {
    VQHANDLE t = text("abc");
    const VQHANDLE v = VQDOM_getData(t);
    VQDOM_appendData(t, ds(doc, "def"));
    EXPECT_EQ(str(v), "abcdef");
    VQDOM_replaceData(t, 0, 1, ds(doc, "A"));
    VQDOM_insertData(t, 6, ds(doc, "!"));
    VQDOM_deleteData(t, 1, 2);
    EXPECT_EQ(str(v), "Adef!");
    EXPECT_EQ(VQDOM_getData(t), v);
}

TEST_F(CharacterDataTest, SplitTextLinksTheTailBehind) {
    VQHANDLE p = VQDOM_createElement(doc, ds(doc, "p"));
    VQHANDLE t = VQDOM_appendChild(p, text("hello"));
    VQHANDLE atEnd = VQDOM_splitText(t, 5);
    EXPECT_EQ(value(t), "hello");
    EXPECT_EQ(value(atEnd), "");
    EXPECT_EQ(VQDOM_getLastChild(p), atEnd);
    EXPECT_EQ(VQDOM_getPreviousSibling(atEnd), t);
    EXPECT_EQ(VQDOM_getParentNode(atEnd), p);

    // In front of a sibling: the sibling points back at the new node, and
    // the parent's last child stays.
    VQHANDLE whole = VQDOM_splitText(t, 0);
    EXPECT_EQ(value(t), "");
    EXPECT_EQ(value(whole), "hello");
    EXPECT_EQ(VQDOM_getNextSibling(t), whole);
    EXPECT_EQ(VQDOM_getNextSibling(whole), atEnd);
    EXPECT_EQ(VQDOM_getPreviousSibling(atEnd), whole);
    EXPECT_EQ(VQDOM_getLastChild(p), atEnd);

    EXPECT_EQ(VQDOM_splitText(whole, 6), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 1, "5|6|"}}));

    // Whatever is split, the tail is plain text; a loose node's tail is
    // linked behind it, parentless.
    VQHANDLE cdata = VQDOM_createCDATASection(doc, ds(doc, "a]b"));
    VQHANDLE tail = VQDOM_splitText(cdata, 1);
    EXPECT_EQ(VQDOM_getNodeType(tail), VQXML_TEXT_NODE);
    EXPECT_EQ(value(cdata) + "|" + value(tail), "a|]b");
    const VQHANDLE c = VQDOM_createComment(doc, ds(doc, "xy")), cTail = VQDOM_splitText(c, 1);
    EXPECT_EQ(str(VQDOM_getNodeName(cTail)), "#text");
    EXPECT_EQ(value(c) + "|" + value(cTail), "x|y");
    EXPECT_EQ(VQDOM_getParentNode(cTail), 0u);
    EXPECT_EQ(VQDOM_getPreviousSibling(cTail), c);
    EXPECT_EQ(VQDOM_getNextSibling(c), cTail);
    const VQHANDLE raw = text("ab");
    VQDOM_setRawXml(raw);
    EXPECT_EQ(vqxml::rec<Text>(VQDOM_splitText(raw, 1))->rawXml, 0u);
    EXPECT_EQ(vqxml::rec<Text>(raw)->rawXml, 1u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(CharacterDataTest, WholeValues) {
    const VQHANDLE c = VQDOM_createComment(doc, ds(doc, "c")), oldValue = VQDOM_getNodeValue(c), fresh = ds(doc, "n");
    VQDOM_setNodeValue(c, 0);  // nothing given: the value stays
    EXPECT_EQ(VQDOM_getNodeValue(c), oldValue);
    VQDOM_setData(c, fresh);
    EXPECT_EQ(VQDOM_getNodeValue(c), fresh);
    EXPECT_FALSE(alive(oldValue));
    const VQHANDLE dropped = ds(doc, "x");
    VQDOM_setValue(0, dropped);
    EXPECT_FALSE(alive(dropped));

    // A processing instruction keeps its data when given none, and takes
    // data from any document.
    VQHANDLE pi = VQDOM_createProcessingInstruction(doc, ds(doc, "t"), ds(doc, "old"));
    VQHANDLE old = VQDOM_getDataPI(pi);
    VQDOM_setDataPI(pi, 0);
    EXPECT_EQ(VQDOM_getDataPI(pi), old);
    VQHANDLE foreign = ds(VQDOM_createDocument(), "new");
    VQDOM_setDataPI(pi, foreign);
    EXPECT_FALSE(alive(old));
    EXPECT_EQ(VQDOM_getDataPI(pi), foreign);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

}  // namespace
