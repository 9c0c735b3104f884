// area_test.cpp - document areas: the head of a fresh area and of a new
// document, block sizing, splitting, the slot search, the sweep, growth and
// its trace, limits, handle checks, deletion, and loading images.
#include <cstdio>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace {

using namespace vqxml::codes;

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::TraceCapture;
using Errs = std::vector<Err>;
using Lines = std::vector<std::string>;

class AreaTest : public vqtest::LibraryTest {
protected:
    void TearDown() override {
        vqxml::failAllocAt(0);
        LibraryTest::TearDown();
    }
};

DocArea *area(int n) { return docHead[n]; }
int32_t *table(int n) { return vqxml::handleTable(docHead[n]); }
int32_t offsetOf(VQHANDLE h) { return table(h & 255)[h >> 8]; }
BlockHeader *block(VQHANDLE h) { return vqxml::blockAt(docHead[h & 255], offsetOf(h)); }
char *text(VQHANDLE h) { return static_cast<char *>(toPNode(h)); }
// A block as "size/link".
std::string blockAt(int n, int32_t offset) {
    const BlockHeader *b = vqxml::blockAt(docHead[n], offset);
    return std::to_string(b->blockSize) + "/" + std::to_string(b->blockLink);
}
// The head's figures: "size slots firstfree freesize freeslots".
std::string head(int n) {
    const DocArea *a = area(n);
    char out[96];
    std::snprintf(out, sizeof out, "%d %d %d %d %d", a->size, a->indexes, a->firstfree, a->freesize, a->freeoffset);
    return out;
}
// Trace lines with every heap address shown as "@".
Lines traced(TraceCapture &trace) {
    static const std::regex address("0x0x[0-9a-f]+");
    Lines out;
    for (const std::string &line : trace.lines()) out.push_back(std::regex_replace(line, address, "@"));
    return out;
}
// A heap copy of area n, as a loader hands it in.
void *imageOf(int n) {
    const size_t size = static_cast<size_t>(area(n)->size);
    void *image = dbg_malloc(size, "document area");
    std::memcpy(image, area(n), size);
    return image;
}

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
        if (b->blockLink > 0 && b->blockLink < a->indexes && vqxml::handleTable(a)[b->blockLink] == off) {
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

TEST_F(AreaTest, FreshAreaAndBlockSizes) {
    uint32_t *field = nullptr;
    ASSERT_EQ(newDocumentArea(0, &field), 1);
    ASSERT_NE(allocMemDocArea, nullptr);
    EXPECT_EQ(field, &allocMemDocArea->DocHandle);
    DocArea *a = area(1);
    // One block over the whole data region heads the free list.
    EXPECT_EQ(a->doc, 1);
    EXPECT_EQ(head(1), "20336 719 1 17408 718");
    EXPECT_EQ(a->data, reinterpret_cast<char *>(a) + 2924);
    EXPECT_EQ(table(1)[0], 4);
    EXPECT_EQ(blockAt(1, 4), "17408/0");

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

TEST_F(AreaTest, NewDocumentLayoutNumbersAndFailures) {
    // The node, its name and its child list take slots 1, 2 and 3 in that
    // order: 64 + 24 + 32 bytes of blocks.
    ASSERT_EQ(VQDOM_createDocument(), 0x101u);
    EXPECT_EQ(vqxml::node(0x101)->nodeName, 0x201u);
    EXPECT_EQ(vqxml::node(0x101)->childNodes, 0x301u);
    EXPECT_EQ(area(1)->dbgHandles, 3);
    EXPECT_EQ(area(1)->dbgSize, 120);
    EXPECT_EQ(head(1), "20336 719 4 17288 715");
    EXPECT_EQ(VQDOM_createDocument(), 0x102u);

    // No heap for the area: the number stays free, the report names the
    // full area size and the allocation line shows the null address.
    {
        TraceCapture trace('1');
        vqxml::failAllocAt(1);
        EXPECT_EQ(VQDOM_createDocument(), 0u);
        EXPECT_EQ(trace.lines().back(), "VQXML malloc - (newDocumentArea)     addr: 0x(nil), (len: 20336)");
    }
    EXPECT_EQ(drainErrors(), (Errs{{mainCode(kAllocErr), "DocumentArea|20336|"}}));
    EXPECT_EQ(area(3), nullptr);
    EXPECT_EQ(VQDOM_createDocument(), 0x103u);
}

TEST_F(AreaTest, SplitLeavesListedOrUnlistedRest) {
    // A rest of 48 bytes is too small for the list: it is unlinked and the
    // list becomes empty. One of 56 stays on the list in the chosen block's
    // place.
    for (const int32_t rest : {48, 56}) {
        SCOPED_TRACE(rest);
        const int n = newArea();
        ASSERT_NE(myAlloc(n, 17408 - rest - 8), 0u);
        EXPECT_EQ(table(n)[0], rest == 48 ? 0 : 17412 - rest);
        EXPECT_EQ(blockAt(n, 17412 - rest), std::to_string(rest) + "/0");
        checkArea(n);
    }
    // A small listed block is consumed whole.
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

TEST_F(AreaTest, SlotSearchGrowsOrRescansAtTheFreeSlotBoundary) {
    // 718 slots in use, then `freed` of them (slots 2..) given back.
    auto fullArea = [](int freed) {
        const int n = newArea();
        for (int i = 1; i <= 718; ++i) myAlloc(n, 1);
        for (int s = 2; s < 2 + freed; ++s) myFree(static_cast<VQHANDLE>(s * 256 + n));
        return n;
    };
    // 239 free slots: 3 x 239 <= 719, so the table grows (x2 + 1) and the
    // first new slot is taken; data grows x7/4. With 240 the search starts
    // again at slot 1.
    const int g = fullArea(239);
    EXPECT_EQ(myAlloc(g, 1), static_cast<VQHANDLE>(719 * 256 + g));
    EXPECT_EQ(head(g), "36272 1439 720 " + std::to_string(area(g)->freesize) + " 958");
    checkArea(g);
    const int r = fullArea(240);
    EXPECT_EQ(myAlloc(r, 1), static_cast<VQHANDLE>(2 * 256 + r));
    EXPECT_EQ(area(r)->indexes, 719);
    EXPECT_EQ(area(r)->firstfree, 3);

    // A full table that may not grow: 0 and nothing recorded. When the heap
    // refuses the slot growth, the report names the new size and the area
    // is barred from growing.
    const int f = fullArea(0);
    dontRealloc[f] = 1;
    EXPECT_EQ(myAlloc(f, 1), 0u);
    EXPECT_TRUE(drainErrors().empty());
    dontRealloc[f] = 0;
    vqxml::failAllocAt(1);
    EXPECT_EQ(myAlloc(f, 1), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{mainCode(kAllocErr), "DocumentArea|36272|"}}));
    EXPECT_EQ(dontRealloc[f], 1);
    EXPECT_EQ(area(f)->indexes, 719);
}

TEST_F(AreaTest, FreedBlocksComeBackOnlyThroughTheSweep) {
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

    // `runs` blocks of 16 bytes, a kept block, then one block to the end;
    // freeing the run and the big block makes most of the area free. Three
    // blocks merge into 48 bytes, too small for the list; four merge into
    // 64, listed first in address order, and the 32-byte rest stays off the
    // list. Either way the sweep serves the request without growth.
    const struct {
        int runs, offset, restAt;
        const char *rest;
        int listHead;
    } cases[] = {{3, 68, 4, "48/0", 100}, {4, 4, 36, "32/0", 84}};
    for (const auto &k : cases) {
        SCOPED_TRACE(k.runs);
        const int m = newArea();
        std::vector<VQHANDLE> run;
        for (int i = 0; i < k.runs; ++i) run.push_back(myAlloc(m, 8));
        myAlloc(m, 8);
        const VQHANDLE rest = myAlloc(m, 17408 - 16 * (k.runs + 1) - 8);
        for (VQHANDLE h : run) myFree(h);
        myFree(rest);
        EXPECT_EQ(offsetOf(myAlloc(m, 24)), k.offset);
        EXPECT_EQ(blockAt(m, k.restAt), k.rest);
        EXPECT_EQ(table(m)[0], k.listHead);
        EXPECT_EQ(area(m)->size, 20336);
        checkArea(m);
    }
}

TEST_F(AreaTest, GrowthHandsTheNewBytesToTheFreeList) {
    // The only listed block ends the area: it is lengthened and serves a
    // request larger than twice the data region (D' = D + needed).
    const int a = newArea();
    EXPECT_EQ(myAlloc(a, 30000), static_cast<VQHANDLE>(0x100 + a));
    EXPECT_EQ(offsetOf(0x100 + a), 4);
    EXPECT_EQ(head(a), "52480 1253 2 17408 1251");
    EXPECT_EQ(table(a)[0], 4 + 30008);
    EXPECT_EQ(blockAt(a, 4 + 30008), "17408/0");
    checkArea(a);

    // An empty list: the new bytes become one block behind the old data,
    // at the head of the list.
    const int b = newArea();
    ASSERT_NE(myAlloc(b, 17400), 0u);
    ASSERT_EQ(table(b)[0], 0);
    EXPECT_EQ(offsetOf(myAlloc(b, 8)), 17412);
    EXPECT_EQ(area(b)->size, 39880);
    EXPECT_EQ(table(b)[0], 17428);
    EXPECT_EQ(blockAt(b, 17428), "17392/0");
    checkArea(b);

    // The last listed block lies inside the area: the new block is linked
    // behind it, the request takes it, and the rest takes its place.
    const int c = newArea();
    const VQHANDLE first = myAlloc(c, 48);           // 56 bytes at 4
    ASSERT_NE(myAlloc(c, 17408 - 56 - 48 - 8), 0u);  // leaves 48 unlisted
    ASSERT_EQ(table(c)[0], 0);
    myFree(first);
    table(c)[0] = 4;  // put the freed block on the list by hand
    EXPECT_EQ(offsetOf(myAlloc(c, 100)), 17412);
    EXPECT_EQ(table(c)[0], 4);
    EXPECT_EQ(blockAt(c, 4), "56/" + std::to_string(17412 + 112));
    EXPECT_EQ(blockAt(c, 17364), "48/0");
    checkArea(c);
}

TEST_F(AreaTest, GrowthKeepsTheBytesAndSlowsPastSixtyFourMillion) {
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
    VQXML_deleteDocumentArea(static_cast<VQHANDLE>(n));

    // A single block above 1 GiB is served by growth like any other request
    // (the area may reach 2 GiB); one whose area would overflow sets the
    // growth bar and reports "DocumentArea".
    const int big = newArea();
    EXPECT_NE(myAlloc(big, 1100000000), 0u);
    VQXML_deleteDocumentArea(static_cast<VQHANDLE>(big));
    const int m = newArea();
    EXPECT_EQ(myAlloc(m, 0x7FFFFF00), 0u);
    EXPECT_EQ(dontRealloc[m], 1);
    const Errs errs = drainErrors();
    ASSERT_EQ(errs.size(), 1u);
    EXPECT_EQ(errs[0].code, mainCode(kAllocErr));
    EXPECT_EQ(errs[0].params.rfind("DocumentArea|", 0), 0u);
}

TEST_F(AreaTest, GrowthTraceAndTheBarAfterAFailedGrowth) {
    const int n = newArea();
    {
        TraceCapture trace('2');
        ASSERT_NE(myAlloc(n, 20000), 0u);
        EXPECT_EQ(traced(trace), (Lines{"VQXML malloc - (reallocDocumentArea) addr: @, (len: 42480, old len: 20336)",
                                        "VQXML free   - (reallocDocumentArea) addr: @"}));
    }
    {
        TraceCapture trace('1');
        ASSERT_NE(myAlloc(n, 40000), 0u);
        EXPECT_EQ(traced(trace).back(), "VQXML free   - (reallocDocumentArea) addr: @") << "a level-1 line";
    }

    const int m = newArea();
    const VQHANDLE h = myAlloc(m, 16);
    std::strcpy(text(h), "persistent");
    DocArea *before = area(m);
    {
        TraceCapture trace('2');
        vqxml::failAllocAt(1);
        EXPECT_EQ(myAlloc(m, 20000), 0u);
        EXPECT_EQ(trace.lines().at(0),
                  "VQXML malloc - (reallocDocumentArea) addr: 0x(nil), (len: 42480, old len: 20336)");
    }
    EXPECT_EQ(area(m), before);
    EXPECT_EQ(dontRealloc[m], 1);
    EXPECT_STREQ(text(h), "persistent");
    EXPECT_EQ(drainErrors(), (Errs{{mainCode(kAllocErr), "DocumentArea|42480|"}}));
    // Barred: later growth fails silently, small requests still fit.
    EXPECT_EQ(myAlloc(m, 20000), 0u);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_NE(myAlloc(m, 16), 0u);
    checkArea(m);

    // Deleting the area leaves the bar; reusing the number clears it, and
    // so does installing a loaded image under that number.
    VQXML_deleteDocumentArea(static_cast<VQHANDLE>(m));
    EXPECT_EQ(dontRealloc[m], 1);
    EXPECT_EQ(newArea(), m);
    EXPECT_EQ(dontRealloc[m], 0);
    void *image = imageOf(m);
    VQXML_deleteDocumentArea(static_cast<VQHANDLE>(m));
    dontRealloc[m] = 1;
    EXPECT_EQ(VQXML_documentLoaded(image), 1);
    EXPECT_EQ(dontRealloc[m], 0);
}

TEST_F(AreaTest, HandleChecksAndTheLastFree) {
    const int n = newArea();
    const VQHANDLE h = myAlloc(n, 4);
    // The null handle is quiet; an unused slot or one past the table is not.
    for (const auto &[handle, valid] : {std::pair<VQHANDLE, int>{0, 0}, {5, 0}, {h, 1}, {h + 256, 0}, {0x3e801, 0}})
        EXPECT_EQ(validHandle(handle), valid) << handle;
    EXPECT_EQ(VQXML_checkNode(0xabcd01) + VQXML_checkNode(h), 1);
    EXPECT_EQ(drainErrors(), (Errs{{kInvalidHandle, "5|"}, {kInvalidHandle, "201|"}, {kInvalidHandle, "3e801|"}, {kInvalidHandle, "abcd01|"}}));
    // Document number 0, one past 255, one without an area: quietly none.
    for (uint32_t number : {0u, 0x200u, 77u}) EXPECT_EQ(myAlloc(number, 8), 0u) << number;
    EXPECT_TRUE(drainErrors().empty());
    myFree(0);
    myFree(0x77);
    EXPECT_EQ(drainErrors(), (Errs{{kInvalidHandle, "77|"}}));

    // Freeing the last live block ends the document.
    const VQHANDLE g = myAlloc(n, 8);
    myFree(h);
    EXPECT_NE(area(n), nullptr);
    myFree(g);
    EXPECT_EQ(area(n), nullptr);
    EXPECT_EQ(validHandle(g), 0);
    EXPECT_EQ(drainErrors(), (Errs{{kInvalidHandle, "201|"}}));
    EXPECT_EQ(newArea(), n) << "the number is free again";

    // Swapping two handles swaps their blocks; a null handle is ignored.
    const VQHANDLE a = myAlloc(n, 8), b = myAlloc(n, 24);
    std::strcpy(text(a), "aaa");
    std::strcpy(text(b), "bbbbbbbb");
    changeHandle(a, b);
    EXPECT_STREQ(text(a), "bbbbbbbb");
    EXPECT_STREQ(text(b), "aaa");
    EXPECT_EQ(block(a)->blockLink, static_cast<int32_t>(a >> 8));
    EXPECT_EQ(block(b)->blockLink, static_cast<int32_t>(b >> 8));
    changeHandle(a, 0);
    checkArea(n);
}

TEST_F(AreaTest, DocumentNumbersAndTheLimit) {
    for (int i = 1; i <= 255; ++i) ASSERT_EQ(newArea(), i);
    const auto stats = vqxml::memStats();
    {
        // The docHead lines are still written, then the error record's.
        TraceCapture trace('2');
        EXPECT_EQ(newArea(), 0);
        const Lines lines = traced(trace);
        ASSERT_EQ(lines.size(), 14u);
        EXPECT_EQ(lines[12], "newDocumentArea: docHead[ 11 ] = @");
        EXPECT_EQ(lines[13], "VQXML - (addError) addr: @, (len: 272) 14:<NULL>");
    }
    EXPECT_EQ(vqxml::memStats().allocSize - stats.allocSize, 272) << "only the error record";
    EXPECT_EQ(drainErrors(), (Errs{{mainCode(kTooManyDocumentsErr), ""}}));
    EXPECT_EQ(vqtest::message(mainCode(kTooManyDocumentsErr), ""), "DOM error: The maximum number of 255 DOM Documents was exceeded.");
    VQXML_deleteDocumentArea(0x1207);  // document 7
    EXPECT_EQ(area(7), nullptr);
    EXPECT_EQ(newArea(), 7);
    uint32_t *field;
    EXPECT_EQ(newDocumentArea(9, &field), 0) << "number 9 is taken";
    EXPECT_EQ(VQDOM_getLastError(), 14);
}

TEST_F(AreaTest, DeletingAreasAndTheirTraceLines) {
    {
        TraceCapture trace('0');
        newArea();
        EXPECT_TRUE(trace.lines().empty()) << "area lines are level 1";
    }
    {
        TraceCapture trace('2');
        VQXML_deleteDocumentArea(static_cast<VQHANDLE>(newArea()));
        Lines expected = {"newDocumentArea: n = 0, *iDoc = 0x(nil)"};
        for (int i = 0; i < 12; ++i)  // area 1 is the one made above
            expected.push_back("newDocumentArea: docHead[ " + std::to_string(i) + " ] = " + (i == 1 ? "@" : "0x(nil)"));
        expected.push_back("VQXML malloc - (newDocumentArea)     addr: @, (len: 20336)");
        expected.push_back("VQXML free   - (deleteDocumentArea)  addr: @");
        EXPECT_EQ(traced(trace), expected);
    }
    for (int i = 2; i <= 5; ++i) newArea();
    {
        TraceCapture trace('1');
        VQXML_deleteDocumentAreaRange(3, 2);
        VQXML_deleteDocumentAreaRange(-1, 5);
        VQXML_deleteDocumentAreaRange(1, 256);
        for (int i = 1; i <= 5; ++i) EXPECT_NE(area(i), nullptr);
        EXPECT_EQ(trace.lines(), (Lines{"VQXML free   - (deleteDocumentAreaRange)  nRangeLow: 3, nRangeHigh: 2"}))
            << "only the valid empty range traces";
    }
    VQXML_deleteDocumentArea(2);
    {
        // A gap in the range is skipped; error record lines are level 2.
        TraceCapture trace('1');
        addVqXmlError(kIllegalParameter, "x");
        VQXML_getError(nullptr);
        VQXML_deleteDocumentAreaRange(1, 3);
        EXPECT_EQ(traced(trace), (Lines{"VQXML free   - (deleteDocumentAreaRange)  nRangeLow: 1, nRangeHigh: 3",
                                        "VQXML free   - (deleteDocumentAreaRange)  addr: @",
                                        "VQXML free   - (deleteDocumentAreaRange)  addr: @"}));
    }
    EXPECT_NE(area(4), nullptr);
    VQXML_deleteDocumentAreaRange(0, 255);
    for (int i = 1; i <= 5; ++i) EXPECT_EQ(area(i), nullptr);
    EXPECT_EQ(vqxml::memStats().liveBlocks, 0);
}

TEST_F(AreaTest, LoadingAreaImages) {
    const int n = newArea();
    const VQHANDLE a = myAlloc(n, 40), h = myAlloc(n, 32);
    ASSERT_NE(myAlloc(n, 16), 0u);  // a second live block, for the slot swap below
    std::strcpy(text(h), "kept across the round trip");
    myFree(a);
    const char *raw = reinterpret_cast<const char *>(area(n));
    const std::vector<char> good(raw, raw + area(n)->size);
    // Streamed out, it has no free block and its slots name the blocks in
    // address order: the shape the quick check takes (and must judge alike).
    int32_t length = 0;
    const char *bytes = static_cast<const char *>(VQXML_streamOut(h, &length));
    const std::vector<char> streamed(bytes, bytes + length);
    VQXML_deleteDocumentArea(h);

    // A heap copy of the image, damaged as given.
    void *image = nullptr;
    const std::vector<char> *source = &good;
    auto load = [&](void (*damage)(DocArea *)) {
        image = dbg_malloc(source->size(), "document area");
        std::memcpy(image, source->data(), source->size());
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
    for (const auto *image : {&good, &streamed}) {
        source = image;
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(c.reason ? c.reason : "number") + (image == &good ? " raw" : " streamed"));
            EXPECT_EQ(load(c.damage), 0);
            EXPECT_EQ(drainErrors(), (c.reason ? Errs{{kBadAreaImage, c.reason}} : Errs{}));
        }
    }
    EXPECT_EQ(vqxml::memStats().liveBlocks, live) << "refused images are freed";
    // Sound, with two slots naming each other's blocks: out of address
    // order, so the full check judges it, and it loads.
    ASSERT_EQ(load([](DocArea *d) {
                  int32_t *table = vqxml::handleTable(d);
                  int32_t first = 1;
                  const int32_t last = d->indexes - 1;
                  while (table[first] == 0) ++first;
                  std::swap(table[first], table[last]);
                  vqxml::blockAt(d, table[first])->blockLink = first;
                  vqxml::blockAt(d, table[last])->blockLink = last;
              }),
              1);
    EXPECT_TRUE(drainErrors().empty());
    VQXML_deleteDocumentArea(n);
    source = &good;
    EXPECT_EQ(VQXML_documentLoaded(std::vector<char>(good).data()), 0) << "not a block of ours";
    EXPECT_EQ(VQXML_documentLoaded(nullptr), 0);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(vqtest::message(kBadAreaImage, "size|"), "invalid document area image: size");

    ASSERT_EQ(load([](DocArea *) {}), 1);
    EXPECT_EQ(area(n), image);
    EXPECT_STREQ(text(h), "kept across the round trip");
    EXPECT_NE(myAlloc(n, 20000), 0u) << "a loaded area grows like any other";
    checkArea(n);

    // An image whose number is in use is released, with a level-2 line.
    for (char level : {'1', '2'}) {
        TraceCapture trace(level);
        EXPECT_EQ(VQXML_documentLoaded(imageOf(n)), 0);
        EXPECT_EQ(traced(trace), level == '1' ? Lines{} : Lines{"VQXML free   - (documentLoaded) addr: @"});
    }
    // Refused for its number (0, 256, or one in use), a block is consumed
    // before its structure is looked at: nothing is recorded.
    for (int bad : {0, 256, n}) {
        void *raw = dbg_malloc(64, "document area");
        std::memset(raw, 0, 64);
        static_cast<DocArea *>(raw)->doc = bad;
        EXPECT_EQ(VQXML_documentLoaded(raw), 0);
        EXPECT_EQ(vqxml::trackedSize(raw), -1) << "doc " << bad;
    }
    EXPECT_TRUE(drainErrors().empty());
}

}  // namespace
