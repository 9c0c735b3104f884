// character_data_test.cpp - value edits at the edges of the clipping rule,
// the error reports and which DS each call consumes, splitting and its
// links, and edits seen through a value handle taken earlier.
#include <cstdint>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"

namespace {

using vqtest::ds;
using vqtest::Err;
using vqtest::str;
using Errs = std::vector<Err>;

constexpr int64_t kDom = 1001700;
constexpr uint64_t kHuge = UINT64_MAX;

bool alive(VQHANDLE h) { return vqxml::liveHandle(h); }

class CharacterDataTest : public vqtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = VQDOM_createDocument();
    }
    VQHANDLE text(const char *value) { return VQDOM_createTextNode(doc, ds(doc, value)); }
    std::string value(VQHANDLE n) { return str(VQDOM_getData(n)); }
    VQHANDLE doc = 0;
};

TEST_F(CharacterDataTest, ClippingRuleAtTheEndOfTheText) {
    VQHANDLE t = text("hello");
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
    VQDOM_replaceData(t, 1, kHuge, ds(doc, "ELP"));
    EXPECT_EQ(value(t), "hELP");
    VQHANDLE refused = ds(doc, "x");
    VQDOM_replaceData(t, 5, 0, refused);
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

    // Replacing by nothing deletes the range and still reports.
    VQDOM_replaceData(t, 1, 2, 0);
    EXPECT_EQ(value(t), "<cd>");
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 12, "replaceData|"}}));

    // Without a node there is nothing to report, but the data is gone.
    VQHANDLE orphans[] = {ds(doc, "1"), ds(doc, "2"), ds(doc, "3"), ds(doc, "4")};
    VQDOM_appendData(0, orphans[0]);
    VQDOM_insertData(0, 0, orphans[1]);
    VQDOM_replaceData(0, 0, 1, orphans[2]);
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

    // Whatever is split, the tail is plain text.
    VQHANDLE cdata = VQDOM_createCDATASection(doc, ds(doc, "a]b"));
    VQHANDLE tail = VQDOM_splitText(cdata, 1);
    EXPECT_EQ(VQDOM_getNodeType(tail), VQXML_TEXT_NODE);
    EXPECT_EQ(value(cdata) + "|" + value(tail), "a|]b");
}

TEST_F(CharacterDataTest, ProcessingInstructionDataComesFromAnyDocument) {
    VQHANDLE pi = VQDOM_createProcessingInstruction(doc, ds(doc, "t"), ds(doc, "old"));
    VQHANDLE old = VQDOM_getDataPI(pi);
    VQHANDLE foreign = ds(VQDOM_createDocument(), "new");
    VQDOM_setDataPI(pi, foreign);
    EXPECT_FALSE(alive(old));
    EXPECT_EQ(VQDOM_getDataPI(pi), foreign);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

}  // namespace
