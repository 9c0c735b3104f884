// area_test.cpp - document areas: the head of a fresh area, block sizing,
// splitting, the sweep, growth, limits, handle checks, deletion, loading.
#include <cstring>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"

using vqtest::Err;
using vqtest::LibraryTest;

namespace {

DocArea *area(int n) { return docHead[n]; }
int32_t *table(int n) { return vqxml::handleTable(docHead[n]); }
int32_t offsetOf(VQHANDLE h) { return table(h & 255)[h >> 8]; }
BlockHeader *block(VQHANDLE h) { return vqxml::blockAt(docHead[h & 255], offsetOf(h)); }
char *text(VQHANDLE h) { return static_cast<char *>(toPNode(h)); }

int newArea() {
    uint32_t *field = nullptr;
    return newDocumentArea(0, &field);
}

// Checks the invariants of an area: the blocks tile the data region, live
// blocks and slots point at each other, and the counters add up.
void checkArea(int n) {
    DocArea *a = area(n);
    ASSERT_NE(a, nullptr);
    const int64_t end = int64_t{a->size} - 48 - 4 * int64_t{a->indexes};
    int64_t off = 4, live = 0, liveBytes = 0;
    while (off < end) {
        BlockHeader *b = vqxml::blockAt(a, static_cast<int32_t>(off));
        ASSERT_GT(b->blockSize, 0);
        ASSERT_EQ(b->blockSize % 8, 0);
        if (b->blockLink != 0 && b->blockLink < a->indexes && vqxml::handleTable(a)[b->blockLink] == off) {
            ++live;
            liveBytes += b->blockSize;
        }
        off += b->blockSize;
    }
    ASSERT_EQ(off, end) << "blocks must tile the data region";
    int64_t usedSlots = 0;
    for (int32_t s = 1; s < a->indexes; ++s) usedSlots += vqxml::handleTable(a)[s] != 0;
    EXPECT_EQ(usedSlots, live);
    EXPECT_EQ(a->dbgHandles, live);
    EXPECT_EQ(a->dbgSize, liveBytes);
    EXPECT_EQ(a->freeoffset, a->indexes - 1 - usedSlots);
    EXPECT_EQ(int64_t{a->freesize} + a->dbgSize, int64_t{a->size} - 52 - 4 * int64_t{a->indexes});
}

}  // namespace

TEST_F(LibraryTest, FreshAreaAndBlockSizes) {
    uint32_t *field = nullptr;
    ASSERT_EQ(newDocumentArea(0, &field), 1);
    ASSERT_NE(allocMemDocArea, nullptr);
    EXPECT_EQ(field, &allocMemDocArea->DocHandle);
    DocArea *a = area(1);
    // doc, size, indexes, firstfree, freesize, freeoffset; then the free
    // list: one block over the whole data region.
    EXPECT_EQ((std::vector<int32_t>{a->doc, a->size, a->indexes, a->firstfree, a->freesize, a->freeoffset}),
              (std::vector<int32_t>{1, 20336, 719, 1, 17408, 718}));
    EXPECT_EQ(a->data, reinterpret_cast<char *>(a) + 2924);
    EXPECT_EQ(table(1)[0], 4);
    EXPECT_EQ(vqxml::blockAt(a, 4)->blockSize, 17408);
    EXPECT_EQ(vqxml::blockAt(a, 4)->blockLink, 0);

    const VQHANDLE h = myAlloc(1, 10);
    EXPECT_EQ(h, 0x101u);
    EXPECT_EQ(a->firstfree, 2);
    EXPECT_EQ(offsetOf(h), 4);
    EXPECT_EQ(toPNode(h), a->data + 12);

    // Blocks round up to eight bytes with their header.
    const struct { int64_t bytes; int32_t block; } cases[] = {
        {0, 8}, {1, 16}, {8, 16}, {9, 24}, {12, 24}, {48, 56}, {52, 64}, {56, 64}, {57, 72}};
    for (const auto &c : cases) {
        const int32_t before = area(1)->dbgSize;
        const VQHANDLE b = myAlloc(1, c.bytes);
        ASSERT_NE(b, 0u);
        EXPECT_EQ(block(b)->blockSize, c.block) << "payload " << c.bytes;
        EXPECT_EQ(area(1)->dbgSize - before, c.block);
    }
    checkArea(1);
}

TEST_F(LibraryTest, SplitLeavesListedOrUnlistedRest) {
    // A rest of 48 bytes is too small for the list: it is unlinked and the
    // list becomes empty. One of 56 stays on the list in the chosen block's
    // place.
    for (const int32_t rest : {48, 56}) {
        SCOPED_TRACE(rest);
        const int n = newArea();
        ASSERT_NE(myAlloc(n, 17408 - rest - 8), 0u);
        EXPECT_EQ(table(n)[0], rest == 48 ? 0 : 17412 - rest);
        EXPECT_EQ(vqxml::blockAt(area(n), 17412 - rest)->blockSize, rest);
        EXPECT_EQ(vqxml::blockAt(area(n), 17412 - rest)->blockLink, 0);
        checkArea(n);
    }
}

TEST_F(LibraryTest, SmallListedBlockIsConsumedWhole) {
    const int n = newArea();
    ASSERT_NE(myAlloc(n, 100), 0u);
    const VQHANDLE a = myAlloc(n, 12);  // a 24-byte block
    const int32_t offA = offsetOf(a);
    myFree(a);
    // Put the freed 24-byte block at the head of the list by hand.
    const int32_t oldHead = table(n)[0];
    table(n)[0] = offA;
    vqxml::blockAt(area(n), offA)->blockLink = oldHead;
    area(n)->firstfree = 3;
    const VQHANDLE b = myAlloc(n, 12);
    EXPECT_EQ(offsetOf(b), offA);
    EXPECT_EQ(block(b)->blockSize, 24);
    EXPECT_EQ(table(n)[0], oldHead);
    checkArea(n);
}

TEST_F(LibraryTest, FreedBlocksComeBackOnlyThroughTheSweep) {
    const int n = newArea();
    const VQHANDLE a = myAlloc(n, 8000), b = myAlloc(n, 8000), c = myAlloc(n, 16);
    const int32_t offA = offsetOf(a);
    myFree(a);
    // Freed space is not reused while most of the area is in use.
    EXPECT_GT(offsetOf(myAlloc(n, 100)), offsetOf(c));
    EXPECT_EQ(area(n)->size, 20336);
    checkArea(n);

    // Once more than half is free and nothing on the list fits, the sweep
    // merges a and b into one block, which the request then gets.
    myFree(b);
    ASSERT_GT(area(n)->freesize, area(n)->size / 2);
    EXPECT_EQ(offsetOf(myAlloc(n, 12000)), offA);
    EXPECT_EQ(area(n)->size, 20336) << "the sweep, not growth, must serve it";
    checkArea(n);
}

TEST_F(LibraryTest, GrowthKeepsTheBytesAndSlowsPastSixtyFourMillion) {
    const int n = newArea();
    const VQHANDLE h = myAlloc(n, 30000000);
    ASSERT_NE(h, 0u);
    std::memset(text(h), 'k', 100);
    EXPECT_EQ(area(n)->data, reinterpret_cast<char *>(area(n)) + 48 + 4 * area(n)->indexes);
    ASSERT_NE(myAlloc(n, 30000000), 0u);
    EXPECT_EQ(area(n)->size, 60034832 + 4 * 2191 + 52);
    ASSERT_NE(myAlloc(n, 30000000), 0u);
    // Doubling would pass 64 000 000: slots x7/6, data by what is needed.
    EXPECT_EQ(area(n)->indexes, 2555);
    EXPECT_EQ(area(n)->size, 90034840 + 4 * 2555 + 52);
    EXPECT_EQ(std::string(text(h), 100), std::string(100, 'k'));
    checkArea(n);
}

TEST_F(LibraryTest, FailedGrowthKeepsTheAreaAndBarsFurtherGrowth) {
    const int n = newArea();
    const VQHANDLE h = myAlloc(n, 16);
    std::strcpy(text(h), "persistent");
    DocArea *before = area(n);
    vqxml::failAllocAt(1);
    EXPECT_EQ(myAlloc(n, 20000), 0u);
    EXPECT_EQ(area(n), before);
    EXPECT_EQ(dontRealloc[n], 1);
    EXPECT_STREQ(text(h), "persistent");
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001711, "DocumentArea|42480|"}}));
    // Barred: later growth fails silently, small requests still fit.
    EXPECT_EQ(myAlloc(n, 20000), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_NE(myAlloc(n, 16), 0u);
    checkArea(n);
}

TEST_F(LibraryTest, HandleChecksAndTheLastFree) {
    EXPECT_EQ(validHandle(0), 0);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_EQ(validHandle(5), 0);
    EXPECT_EQ(VQXML_checkNode(0xabcd01), 0);
    const int n = newArea();
    const VQHANDLE h = myAlloc(n, 4);
    EXPECT_EQ(validHandle(h), 1);
    EXPECT_EQ(VQXML_checkNode(h), 1);
    EXPECT_EQ(validHandle(h + 256), 0) << "unused slot";
    EXPECT_EQ(validHandle((1000u << 8) | static_cast<uint32_t>(n)), 0) << "slot past the table";
    EXPECT_EQ(vqtest::drainErrors(),
              (std::vector<Err>{{1001748, "5|"}, {1001748, "abcd01|"}, {1001748, "201|"}, {1001748, "3e801|"}}));
    EXPECT_EQ(myAlloc(0, 8), 0u) << "document number 0";
    EXPECT_EQ(myAlloc(0x200, 8), 0u);
    EXPECT_EQ(myAlloc(77, 8), 0u) << "a number without an area";
    EXPECT_TRUE(vqtest::drainErrors().empty());
    myFree(0);
    myFree(0x77);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001748, "77|"}}));

    // Freeing the last live block ends the document.
    const VQHANDLE g = myAlloc(n, 8);
    myFree(h);
    EXPECT_NE(area(n), nullptr);
    myFree(g);
    EXPECT_EQ(area(n), nullptr);
    EXPECT_EQ(validHandle(g), 0);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001748, "201|"}}));
    EXPECT_EQ(newArea(), n) << "the number is free again";
}

TEST_F(LibraryTest, DocumentNumbersAndTheLimit) {
    for (int i = 1; i <= 255; ++i) ASSERT_EQ(newArea(), i);
    const auto stats = vqxml::memStats();
    EXPECT_EQ(newArea(), 0);
    EXPECT_EQ(vqxml::memStats().allocSize - stats.allocSize, 272) << "only the error record";
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<Err>{{1001714, ""}}));
    EXPECT_EQ(vqtest::message(1001714, ""), "DOM error: The maximum number of 255 DOM Documents was exceeded.");
    VQXML_deleteDocumentArea(0x1207);  // document 7
    EXPECT_EQ(area(7), nullptr);
    EXPECT_EQ(newArea(), 7);
    uint32_t *field;
    EXPECT_EQ(newDocumentArea(9, &field), 0) << "number 9 is taken";
    EXPECT_EQ(VQDOM_getLastError(), 14);
}

TEST_F(LibraryTest, DeletingAreasAndTheirTraceLines) {
    {
        vqtest::TraceCapture trace('2');
        const int n = newArea();
        VQXML_deleteDocumentArea(static_cast<VQHANDLE>(n));
        const auto lines = trace.lines();
        ASSERT_EQ(lines.size(), 15u);
        EXPECT_EQ(lines[0], "newDocumentArea: n = 0, *iDoc = 0x(nil)");
        EXPECT_EQ(lines[1], "newDocumentArea: docHead[ 0 ] = 0x(nil)");
        EXPECT_EQ(lines[12], "newDocumentArea: docHead[ 11 ] = 0x(nil)");
        EXPECT_EQ(lines[13].rfind("VQXML malloc - (newDocumentArea)     addr: 0x0x", 0), 0u);
        EXPECT_NE(lines[13].find(", (len: 20336)"), std::string::npos);
        EXPECT_EQ(lines[14].rfind("VQXML free   - (deleteDocumentArea)  addr: 0x0x", 0), 0u);
    }
    for (int i = 1; i <= 5; ++i) newArea();
    vqtest::TraceCapture trace('1');
    VQXML_deleteDocumentAreaRange(3, 2);
    VQXML_deleteDocumentAreaRange(-1, 5);
    VQXML_deleteDocumentAreaRange(1, 256);
    for (int i = 1; i <= 5; ++i) EXPECT_NE(area(i), nullptr);
    const auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 1u) << "only the valid empty range traces";
    EXPECT_EQ(lines[0], "VQXML free   - (deleteDocumentAreaRange)  nRangeLow: 3, nRangeHigh: 2");
    VQXML_deleteDocumentAreaRange(2, 3);
    EXPECT_EQ(area(2), nullptr);
    EXPECT_EQ(area(3), nullptr);
    EXPECT_NE(area(4), nullptr);
    VQXML_deleteDocumentAreaRange(0, 255);
    for (int i = 1; i <= 5; ++i) EXPECT_EQ(area(i), nullptr);
    EXPECT_EQ(vqxml::memStats().liveBlocks, 0);
}

TEST_F(LibraryTest, ChangeHandleSwapsBlocks) {
    const int n = newArea();
    const VQHANDLE a = myAlloc(n, 8), b = myAlloc(n, 24);
    std::strcpy(text(a), "aaa");
    std::strcpy(text(b), "bbbbbbbb");
    changeHandle(a, b);
    EXPECT_STREQ(text(a), "bbbbbbbb");
    EXPECT_STREQ(text(b), "aaa");
    EXPECT_EQ(block(a)->blockLink, static_cast<int32_t>(a >> 8));
    EXPECT_EQ(block(b)->blockLink, static_cast<int32_t>(b >> 8));
    changeHandle(a, 0);  // ignored
    checkArea(n);
}

TEST_F(LibraryTest, LoadingAreaImages) {
    const int n = newArea();
    const VQHANDLE a = myAlloc(n, 40), h = myAlloc(n, 32);
    std::strcpy(text(h), "kept across the round trip");
    myFree(a);
    std::vector<char> good(static_cast<size_t>(area(n)->size));
    std::memcpy(good.data(), area(n), good.size());
    VQXML_deleteDocumentArea(h);

    // A heap copy of the image, damaged as given.
    void *image = nullptr;
    auto load = [&](void (*damage)(DocArea *)) {
        image = dbg_malloc(good.size(), "document area");
        std::memcpy(image, good.data(), good.size());
        auto *d = static_cast<DocArea *>(image);
        d->data = static_cast<char *>(image) + 48 + 4 * d->indexes;  // for blockAt below
        damage(d);
        return VQXML_documentLoaded(image);
    };
    const struct {
        void (*damage)(DocArea *);
        const char *reason;
    } cases[] = {
        {[](DocArea *d) { d->size += 8; }, "size|"},
        {[](DocArea *d) { d->indexes = 100000; }, "size|"},
        {[](DocArea *d) { vqxml::blockAt(d, 4)->blockSize = 12; }, "block size|"},
        {[](DocArea *d) { vqxml::handleTable(d)[2] = 12; }, "handle table|"},
        {[](DocArea *d) { vqxml::handleTable(d)[0] = 12; }, "free list|"},
        {[](DocArea *d) { d->dbgHandles = 7; }, "counters|"},
        {[](DocArea *d) { d->doc = -1; }, nullptr},
    };
    const int32_t live = vqxml::memStats().liveBlocks;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.reason ? c.reason : "number");
        EXPECT_EQ(load(c.damage), 0);
        EXPECT_EQ(vqtest::drainErrors(), (c.reason ? std::vector<Err>{{1001757, c.reason}} : std::vector<Err>{}));
    }
    EXPECT_EQ(vqxml::memStats().liveBlocks, live) << "refused images are freed";
    EXPECT_EQ(VQXML_documentLoaded(good.data()), 0) << "not a block of ours";
    EXPECT_EQ(VQXML_documentLoaded(nullptr), 0);
    EXPECT_TRUE(vqtest::drainErrors().empty());
    EXPECT_EQ(vqtest::message(1001757, "size|"), "invalid document area image: size");

    ASSERT_EQ(load([](DocArea *) {}), 1);
    EXPECT_EQ(area(n), image);
    EXPECT_STREQ(text(h), "kept across the round trip");
    EXPECT_NE(myAlloc(n, 20000), 0u) << "a loaded area grows like any other";
    checkArea(n);
}
