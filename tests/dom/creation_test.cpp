// creation_test.cpp - the node factories: on every refusal, which DS
// handles the call deleted and which it left to the caller.
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"

namespace {

using vqtest::ds;
using vqtest::Err;
using Errs = std::vector<Err>;

constexpr int64_t kDom = 1001700;

// Liveness without the 1001748 report that VQXML_checkNode would add.
bool alive(VQHANDLE h) { return vqxml::liveHandle(h); }

class CreationTest : public vqtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = VQDOM_createDocument();
        other = VQDOM_createDocument();
    }
    VQHANDLE doc = 0;
    VQHANDLE other = 0;
};

TEST_F(CreationTest, NamedCreatorsCheckTheNameBeforeTheDocument) {
    struct {
        VQHANDLE (*create)(VQHANDLE, VQHANDLE);
        const char *insert;
    } const creators[] = {{VQDOM_createElement, "createElement|"},
                          {VQDOM_createAttribute, "createAttribute|"},
                          {VQDOM_createEntityReference, "createEntityReference|"}};
    for (const auto &c : creators) {
        SCOPED_TRACE(c.insert);
        VQHANDLE kept = ds(doc, "ok");
        EXPECT_EQ(c.create(0, kept), 0u);
        EXPECT_TRUE(alive(kept));  // an invalid handle leaves the name alone

        VQHANDLE bad = ds(other, "1abc");  // bad and foreign: the name wins
        EXPECT_EQ(c.create(doc, bad), 0u);
        EXPECT_FALSE(alive(bad));
        EXPECT_EQ(vqtest::drainErrors(),
                  (Errs{{1001750, "0x31|"}, {kDom + 5, "0x31|1abc|"}}));

        VQHANDLE foreign = ds(other, "abc");
        EXPECT_EQ(c.create(doc, foreign), 0u);
        EXPECT_FALSE(alive(foreign));
        EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 4, c.insert}}));
    }
}

TEST_F(CreationTest, DataCreatorsConsumeTheirDataAndProcessingInstructionsTheirTarget) {
    struct {
        VQHANDLE (*create)(VQHANDLE, VQHANDLE);
        const char *insert;
    } const creators[] = {{VQDOM_createTextNode, "createTextNode|"},
                          {VQDOM_createComment, "createComment|"},
                          {VQDOM_createCDATASection, "createCDATASection|"}};
    for (const auto &c : creators) {
        SCOPED_TRACE(c.insert);
        VQHANDLE data = ds(doc, "x");
        EXPECT_EQ(c.create(0, data), 0u);
        EXPECT_FALSE(alive(data));
        VQHANDLE foreign = ds(other, "x");
        EXPECT_EQ(c.create(doc, foreign), 0u);
        EXPECT_FALSE(alive(foreign));
        EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 4, c.insert}}));
    }

    VQHANDLE target = ds(doc, "t");
    VQHANDLE data = ds(doc, "d");
    EXPECT_EQ(VQDOM_createProcessingInstruction(0, target, data), 0u);
    EXPECT_TRUE(alive(target));
    EXPECT_FALSE(alive(data));
    for (bool foreignTarget : {true, false}) {
        VQHANDLE t = ds(foreignTarget ? other : doc, "t");
        VQHANDLE d = ds(foreignTarget ? doc : other, "d");
        EXPECT_EQ(VQDOM_createProcessingInstruction(doc, t, d), 0u);
        EXPECT_FALSE(alive(t) || alive(d));
        EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 4, "createProcessingInstruction|"}}));
    }
    // Targets take no name check.
    EXPECT_NE(VQDOM_createProcessingInstruction(doc, target, ds(doc, "")), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(CreationTest, AllocationFailureDeletesWhatWasHandedOver) {
    VQHANDLE name = ds(doc, "e");
    VQHANDLE data = ds(doc, "d");
    VQHANDLE target = ds(doc, "t");
    VQHANDLE piData = ds(doc, "p");
    dontRealloc[doc & 255] = 1;
    while (myAlloc(doc, 1024) != 0) {
    }
    while (myAlloc(doc, 1) != 0) {
    }
    EXPECT_EQ(VQDOM_createElement(doc, name), 0u);
    EXPECT_EQ(VQDOM_createTextNode(doc, data), 0u);
    EXPECT_EQ(VQDOM_createProcessingInstruction(doc, target, piData), 0u);
    EXPECT_FALSE(alive(name) || alive(data) || alive(target) || alive(piData));
    EXPECT_EQ(vqtest::drainErrors(), (Errs{{kDom + 11, "Element|48|"},
                                           {kDom + 11, "DOMString|6|"},
                                           {kDom + 11, "ProcessingInstruction|48|"}}));
}

}  // namespace
