// conformance_test.cpp - the store's exact figures as callers and tools see
// them: area layout after creation and growth, the slot search and sweep at
// their boundaries, trace lines with their levels, the cut of long error
// lists, parameter-text packing, message rendering, node record sizes and
// names, string edges, and the trace switch with its document dump.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace {

using vqtest::drainErrors;
using vqtest::ds;
using vqtest::Err;
using vqtest::str;
using vqtest::TraceCapture;
using Errs = std::vector<Err>;
using Lines = std::vector<std::string>;

class ConformanceTest : public vqtest::LibraryTest {
protected:
    void TearDown() override {
        vqxml::failAllocAt(0);
        LibraryTest::TearDown();
    }
};

int newArea() {
    uint32_t *field = nullptr;
    return newDocumentArea(0, &field);
}
DocArea *area(int n) { return docHead[n]; }
int32_t *table(int n) { return vqxml::handleTable(docHead[n]); }
int32_t offsetOf(VQHANDLE h) { return table(h & 255)[h >> 8]; }
// A block as "size/link".
std::string blockAt(int n, int32_t offset) {
    const BlockHeader *b = vqxml::blockAt(docHead[n], offset);
    return std::to_string(b->blockSize) + "/" + std::to_string(b->blockLink);
}
// The head's figures: "size slots firstfree freesize freeslots".
std::string head(int n) {
    const DocArea *a = area(n);
    char text[96];
    std::snprintf(text, sizeof text, "%d %d %d %d %d", a->size, a->indexes, a->firstfree, a->freesize, a->freeoffset);
    return text;
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

// The blocks tile the data region and the head's counters agree with the
// live blocks.
void expectConsistent(int n) {
    DocArea *a = area(n);
    ASSERT_NE(a, nullptr);
    const int64_t end = int64_t{a->size} - 48 - 4 * int64_t{a->indexes};
    int64_t off = 4, live = 0, liveBytes = 0;
    while (off < end) {
        const BlockHeader *b = vqxml::blockAt(a, static_cast<int32_t>(off));
        ASSERT_GT(b->blockSize, 0);
        if (b->blockLink > 0 && b->blockLink < a->indexes && vqxml::handleTable(a)[b->blockLink] == off) {
            ++live;
            liveBytes += b->blockSize;
        }
        off += b->blockSize;
    }
    EXPECT_EQ(off, end);
    EXPECT_EQ(a->dbgHandles, live);
    EXPECT_EQ(a->dbgSize, liveBytes);
    EXPECT_EQ(int64_t{a->freesize} + a->dbgSize, int64_t{a->size} - 52 - 4 * int64_t{a->indexes});
}

// ---- areas and handles ---------------------------------------------------

TEST_F(ConformanceTest, NewDocumentLayoutNumbersAndFailures) {
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
    EXPECT_EQ(drainErrors(), (Errs{{1001711, "DocumentArea|20336|"}}));
    EXPECT_EQ(area(3), nullptr);
    EXPECT_EQ(VQDOM_createDocument(), 0x103u);

    // All 255 numbers taken: the docHead lines are still written and code
    // 14 is recorded without parameters.
    for (int i = 4; i <= 255; ++i) ASSERT_EQ(VQDOM_createDocument(), 0x100u + i);
    TraceCapture trace('2');
    EXPECT_EQ(VQDOM_createDocument(), 0u);
    const Lines lines = traced(trace);
    ASSERT_EQ(lines.size(), 14u);
    EXPECT_EQ(lines[0], "newDocumentArea: n = 0, *iDoc = 0x(nil)");
    EXPECT_EQ(lines[12], "newDocumentArea: docHead[ 11 ] = @");
    EXPECT_EQ(lines[13], "VQXML - (addError) addr: @, (len: 272) 14:<NULL>");
}

TEST_F(ConformanceTest, SlotSearchGrowsOrRescansAtTheFreeSlotBoundary) {
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
    expectConsistent(g);
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
    EXPECT_EQ(drainErrors(), (Errs{{1001711, "DocumentArea|36272|"}}));
    EXPECT_EQ(dontRealloc[f], 1);
    EXPECT_EQ(area(f)->indexes, 719);
}

TEST_F(ConformanceTest, GrowthHandsTheNewBytesToTheFreeList) {
    // The only listed block ends the area: it is lengthened and serves a
    // request larger than twice the data region (D' = D + needed).
    const int a = newArea();
    EXPECT_EQ(myAlloc(a, 30000), static_cast<VQHANDLE>(0x100 + a));
    EXPECT_EQ(offsetOf(0x100 + a), 4);
    EXPECT_EQ(head(a), "52480 1253 2 17408 1251");
    EXPECT_EQ(table(a)[0], 4 + 30008);
    EXPECT_EQ(blockAt(a, 4 + 30008), "17408/0");
    expectConsistent(a);

    // An empty list: the new bytes become one block behind the old data,
    // at the head of the list.
    const int b = newArea();
    ASSERT_NE(myAlloc(b, 17400), 0u);
    ASSERT_EQ(table(b)[0], 0);
    EXPECT_EQ(offsetOf(myAlloc(b, 8)), 17412);
    EXPECT_EQ(area(b)->size, 39880);
    EXPECT_EQ(table(b)[0], 17428);
    EXPECT_EQ(blockAt(b, 17428), "17392/0");
    expectConsistent(b);

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
    expectConsistent(c);
}

TEST_F(ConformanceTest, SweepListsOnlyMergedRunsOfFiftySixBytes) {
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
    for (const auto &c : cases) {
        SCOPED_TRACE(c.runs);
        const int n = newArea();
        std::vector<VQHANDLE> run;
        for (int i = 0; i < c.runs; ++i) run.push_back(myAlloc(n, 8));
        myAlloc(n, 8);
        const VQHANDLE rest = myAlloc(n, 17408 - 16 * (c.runs + 1) - 8);
        for (VQHANDLE h : run) myFree(h);
        myFree(rest);
        EXPECT_EQ(offsetOf(myAlloc(n, 24)), c.offset);
        EXPECT_EQ(blockAt(n, c.restAt), c.rest);
        EXPECT_EQ(table(n)[0], c.listHead);
        EXPECT_EQ(area(n)->size, 20336);
        expectConsistent(n);
    }
}

TEST_F(ConformanceTest, GrowthTraceAndTheBarAfterAFailedGrowth) {
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
    {
        TraceCapture trace('2');
        vqxml::failAllocAt(1);
        EXPECT_EQ(myAlloc(m, 20000), 0u);
        EXPECT_EQ(trace.lines().at(0),
                  "VQXML malloc - (reallocDocumentArea) addr: 0x(nil), (len: 42480, old len: 20336)");
    }
    EXPECT_EQ(dontRealloc[m], 1);
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

TEST_F(ConformanceTest, StoreTraceLinesAndRefusedImages) {
    {
        TraceCapture trace('0');
        newArea();
        EXPECT_TRUE(trace.lines().empty()) << "area lines are level 1";
    }
    newArea();
    newArea();
    VQXML_deleteDocumentArea(2);
    {
        TraceCapture trace('1');
        addVqXmlError(1001801, "x");  // record lines are level 2
        VQXML_getError(nullptr);
        VQXML_deleteDocumentAreaRange(1, 3);
        EXPECT_EQ(traced(trace), (Lines{"VQXML free   - (deleteDocumentAreaRange)  nRangeLow: 1, nRangeHigh: 3",
                                        "VQXML free   - (deleteDocumentAreaRange)  addr: @",
                                        "VQXML free   - (deleteDocumentAreaRange)  addr: @"}));
    }
    // An image whose number is in use is released with a level-2 line.
    const int n = newArea();
    for (char level : {'1', '2'}) {
        TraceCapture trace(level);
        EXPECT_EQ(VQXML_documentLoaded(imageOf(n)), 0);
        EXPECT_EQ(traced(trace), level == '1' ? Lines{} : Lines{"VQXML free   - (documentLoaded) addr: @"});
    }
    // Refused for its number (0, 256, or one in use), a block is consumed
    // before its structure is looked at: nothing is recorded.
    for (int bad : {0, 256, n}) {
        void *block = dbg_malloc(64, "document area");
        std::memset(block, 0, 64);
        static_cast<DocArea *>(block)->doc = bad;
        EXPECT_EQ(VQXML_documentLoaded(block), 0);
        EXPECT_EQ(vqxml::trackedSize(block), -1) << "doc " << bad;
    }
    EXPECT_TRUE(drainErrors().empty());
}

// A single block above 1 GiB is served by growth like any other request
// (the area may reach 2 GiB); one whose area would overflow sets the
// growth bar and reports "DocumentArea".
TEST_F(ConformanceTest, BlocksAboveOneGibibyteGoThroughGrowth) {
    const int n = newArea();
    EXPECT_NE(myAlloc(n, 1100000000), 0u);
    VQXML_deleteDocumentArea(static_cast<VQHANDLE>(n));
    const int m = newArea();
    EXPECT_EQ(myAlloc(m, 0x7FFFFF00), 0u);
    EXPECT_EQ(dontRealloc[m], 1);
    const Errs errs = drainErrors();
    ASSERT_EQ(errs.size(), 1u);
    EXPECT_EQ(errs[0].code, 1001711);
    EXPECT_EQ(errs[0].params.rfind("DocumentArea|", 0), 0u);
}

// ---- error lists and messages ----------------------------------------------

TEST_F(ConformanceTest, ListCutsAreTracedRecordByRecord) {
    // The DOM list cuts 160 of its 800 records, the main list 200 of 1000:
    // one line per record, then the new record's line.
    for (int i = 0; i < 800; ++i) vqxml::domError(vqxml::kNotFoundErr, "d");
    Lines expected(160, "VQXML free   - (deleteMid) addr: @");
    expected.push_back("VQXML - (addError) addr: @, (len: 272) 8:last");
    {
        TraceCapture trace('2');
        vqxml::domError(vqxml::kNotFoundErr, "last");
        EXPECT_EQ(traced(trace), expected);
    }
    {
        TraceCapture trace('2');
        char params[256];
        EXPECT_EQ(VQDOM_getError(params), 8);
        EXPECT_STREQ(params, "d|");
        EXPECT_EQ(traced(trace), (Lines{"VQXML free   - (deleteFirstError) addr: @"}));
    }
    vqtest::drainDomErrors();
    for (int i = 0; i < 1000; ++i) addVqXmlError(1001802, "m");
    expected.assign(200, expected[0]);
    expected.push_back("VQXML - (addError) addr: @, (len: 272) 1001802:last");
    TraceCapture trace('2');
    addVqXmlError(1001802, "last");
    EXPECT_EQ(traced(trace), expected);
}

TEST_F(ConformanceTest, ThreePartTextsAtTheEndOfTheBuffer) {
    // The text addVqXmlError3 builds, read from the record's trace line
    // (which shows it before the record cuts it to 254 bytes).
    auto packed = [](const std::string &p1) {
        TraceCapture trace('2');
        addVqXmlError3(1001816, p1.c_str(), "bb", "cc");
        const std::string line = trace.lines().back();
        const std::string mark = "(len: 272) 1001816:";
        const size_t at = line.find(mark);
        return at == std::string::npos ? "?" : line.substr(at + mark.size());
    };
    const std::string a(600, 'a');
    EXPECT_EQ(packed(a.substr(0, 509)), a.substr(0, 509) + "||");
    EXPECT_EQ(packed(a.substr(0, 508)), a.substr(0, 508) + "|b|");
    EXPECT_EQ(packed(a.substr(0, 510)), a.substr(0, 510) + "|");
    EXPECT_EQ(packed(a), a.substr(0, 510) + "|");
    // Blanks are dropped from the cut copy, which frees room for the rest.
    EXPECT_EQ(packed(a.substr(0, 505) + std::string(10, ' ')), a.substr(0, 505) + "|bb|c|");
}

TEST_F(ConformanceTest, MessagesOfEachRange) {
    // A few texts of each range: placeholders filled, a missing or short
    // field shown as "???", an empty one as nothing, extra ones ignored.
    const struct {
        int64_t code;
        const char *params, *text;
    } cases[] = {
        {1001702, "x|", "DOM error: DOMSTRING_SIZE_ERR"},
        {1001709, "blob|", "DOM error: NOT_SUPPORTED_ERR, data type \"blob\" unsupported"},
        {1001712, "", "DOM error: function \"???\" called with null pointer"},
        {1001715, "", "DOM error: The maximum number of 16 777 215 nodes in a document was exceeded."},
        {1001756, "0x2f|", "invalid character in DESC: 0x2f"},
        {1001805, "p|D|x|", "mandatory parameter \"p\" missing from Document \"D\""},
        {1001817, "d|v|t|", "data \"d\": value \"v\" is illegal for type \"t\""},
        {1001817, "d|v", "data \"d\": value \"v\" is illegal for type \"???\""},
        {1001900, "4|x|", "line 4: endtag of \"x\": \"<\" expected"},
        {1001901, "4|x|", "line 4: endtag of \"x\": \"/\" expected"},
        {1001905, "4|", "line 4: unknown reference"},
        {1001921, "4|", "line 4: Element Type Declaration error, \"(\" expected"},
        {1001937, "|p|", "line : use of parameter entity \"p\" is illegal here"},
        {1001945, "4|", "line 4: entity expansion exceeds ??? bytes"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.code);
        char buffer[256];
        EXPECT_EQ(VQXML_getErrorMsg(c.code, c.params, buffer, sizeof buffer),
                  static_cast<int32_t>(std::strlen(c.text)));
        EXPECT_STREQ(buffer, c.text);
    }
    // Gaps in the table, the codes around it and the end marker's code
    // render generically.
    for (int code : {0, -3, 1001699, 1001716, 1001751, 1001754, 1001818, 1001947})
        EXPECT_EQ(vqtest::message(code, "P1|"), "error " + std::to_string(code));
}

TEST_F(ConformanceTest, NameCheckOfANewNameReportsOnBothLists) {
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE bad = ds(doc, "1a b");
    EXPECT_EQ(invalidCharacterErr(bad), 1);
    EXPECT_FALSE(vqxml::liveHandle(bad));
    EXPECT_EQ(VQDOM_getLastError(), 5);
    EXPECT_EQ(drainErrors(), (Errs{{1001750, "0x31|"}, {1001755, "0x20|"}, {1001705, "0x31|1a b|"}}));
    EXPECT_EQ(vqtest::message(1001705, "0x31|1a b|"),
              "DOM error: INVALID_CHARACTER_ERR character \"0x31\" invalid in name \"1a b\"");
    const VQHANDLE good = ds(doc, "a:b-1.\xC3\xA9");
    EXPECT_EQ(invalidCharacterErr(good), 0);
    EXPECT_EQ(str(good), "a:b-1.\xC3\xA9");
    EXPECT_TRUE(drainErrors().empty());
}

// ---- node records and DOM strings ------------------------------------------

#define ACCESSOR(f) [](VQHANDLE h) -> void * { return f(h); }
const struct TypeRow {
    int type;
    const char *name;
    int recordSize;
    void *(*accessor)(VQHANDLE);
} kTypes[] = {
    {1, "Element", 48, ACCESSOR(toPElement)}, {2, "Attr", 52, ACCESSOR(toPAttr)},
    {3, "Text", 52, ACCESSOR(toPText)}, {4, "CDATASection", 48, ACCESSOR(toPCDATASection)},
    {5, "EntityReference", 52, ACCESSOR(toPEntityReference)}, {6, "Entity", 68, ACCESSOR(toPEntity)},
    {7, "ProcessingInstruction", 48, ACCESSOR(toPProcessingInstruction)}, {8, "Comment", 48, ACCESSOR(toPComment)},
    {9, "Document", 52, ACCESSOR(toPDocument)}, {10, "DocumentType", 60, ACCESSOR(toPDocumentType)},
    {11, "DocumentFragment", 48, ACCESSOR(toPDocumentFragment)}, {12, "Notation", 52, ACCESSOR(toPNotation)},
    {13, "ElementDecl", 52, ACCESSOR(toPElementDecl)}, {14, "AttlistDecl", 48, ACCESSOR(toPAttlistDecl)},
    {15, "AttDef", 52, ACCESSOR(toPAttDef)}, {16, "CpChildren", 52, ACCESSOR(toPCpChildren)},
    {17, "NameList", 48, ACCESSOR(toPNameList)}, {3, "Text", 52, ACCESSOR(toPCharacterData)},
};
#undef ACCESSOR

TEST_F(ConformanceTest, RecordSizesNamesAndAccessorTypes) {
    const VQHANDLE doc = VQDOM_createDocument();
    // The block a request takes: payload and header, rounded up to 8.
    auto blockOf = [&](auto create) {
        const int32_t before = area(1)->dbgSize;
        create();
        return area(1)->dbgSize - before - 8;
    };
    for (const TypeRow &row : kTypes) {
        SCOPED_TRACE(row.name);
        VQHANDLE own = 0;
        EXPECT_EQ(blockOf([&] { own = allocNode(doc, row.type, 0); }), (row.recordSize + 7) / 8 * 8);
        EXPECT_EQ(row.accessor(own), toPNode(own));
        EXPECT_TRUE(drainErrors().empty());
        // A node of another type is reported and handed out all the same.
        const int other = row.type % 17 + 1;
        const VQHANDLE foreign = allocNode(doc, other, 0);
        EXPECT_EQ(row.accessor(foreign), toPNode(foreign));
        EXPECT_EQ(drainErrors(), (Errs{{1001749, std::to_string(other) + "|" + std::to_string(row.type) + "|"}}));
    }
    // Unknown types get an element-sized record; then the other records.
    for (int unknown : {0, 18, 1000}) EXPECT_EQ(blockOf([&] { allocNode(doc, unknown, 0); }), 48) << unknown;
    EXPECT_EQ(blockOf([&] { createNamedNodeMap(doc); }), 16);
    EXPECT_EQ(blockOf([&] { createNodeList(doc); }), 24);
    EXPECT_EQ(blockOf([&] { createXmlDecl(doc); }), 16);
    EXPECT_EQ(blockOf([&] { createExternalID(doc); }), 16);

    // Out of room: every type reports its own name and the size 48.
    dontRealloc[1] = 1;
    while (myAlloc(doc, 1) != 0) {
    }
    Errs expected;
    for (int i = 0; i < 17; ++i) {
        EXPECT_EQ(allocNode(doc, kTypes[i].type, 0), 0u);
        expected.push_back({11, std::string(kTypes[i].name) + "|48|"});
    }
    EXPECT_EQ(vqtest::drainDomErrors(), expected);
}

TEST_F(ConformanceTest, StringEdgesOutsideTheEscapingCopies) {
    const VQHANDLE doc = VQDOM_createDocument();
    EXPECT_EQ(VQDOM_createDS(0, "x"), 0u);
    EXPECT_TRUE(drainErrors().empty());
    EXPECT_EQ(VQDOM_createDS(0x77701, "x"), 0u);
    EXPECT_EQ(drainErrors(), (Errs{{1001748, "77701|"}}));

    // A clone lives in the document of its first argument.
    const VQHANDLE other = VQDOM_createDocument();
    const VQHANDLE copy = VQDOM_cloneDS(other, ds(doc, "shared text"));
    EXPECT_EQ(copy & 255, 2u);
    EXPECT_EQ(str(copy), "shared text");
    EXPECT_EQ(VQDOM_cloneDS(other, 0), 0u);

    // Trimming keeps the block and clears the bytes behind the text.
    const VQHANDLE t = ds(doc, "  ab  ");
    const int32_t blockBefore = reinterpret_cast<BlockHeader *>(VQDOM_getBufferDS(t) - 8)->blockSize;
    VQDOM_removeSpacesDS(t);
    const char *p = VQDOM_getBufferDS(t);
    EXPECT_EQ(std::string(p, 7), std::string("ab\0\0\0\0\0", 7));
    EXPECT_EQ(VQDOM_lenDS(t), 2);
    EXPECT_EQ(reinterpret_cast<const BlockHeader *>(p - 8)->blockSize, blockBefore);

    // An invalid string in the copies that end their buffer: a NUL at the
    // write position, nothing else.
    char buf[8];
    std::memset(buf, 'x', sizeof buf);
    char *cursor = buf + 1;
    EXPECT_EQ(cpyDS_quot(0, &cursor, 4), 0);
    EXPECT_EQ(std::string(buf, 3), std::string("x\0x", 3));
    EXPECT_EQ(VQDOM_cpyDS_ExpandRef2(0, buf + 2, 4), 0);
    EXPECT_EQ(std::string(buf + 2, 2), std::string("\0x", 2));
}

// ---- the trace switch and the memory report ---------------------------------

TEST_F(ConformanceTest, TraceSwitchBufferAndCleanUp) {
    {
        TraceCapture trace('9');
        VQXML_xmlSetTraceFlag(XmlTraceHandle, 0x7F00 | '1');  // only the low byte counts
        EXPECT_EQ(XmlTraceFlag, 0x7F31);
        VQXML_TRACE_XML(1, "one");
        VQXML_TRACE_XML(2, "two");
        VQXML_xmlSetTraceFlag(XmlTraceHandle, ':');  // the digit after '9' passes level 10
        VQXML_TRACE_XML(10, "ten");
        VQXML_TRACE_XML(11, "eleven");
        // A line is cut to the 65 535 bytes the sink is given.
        VQXML_TRACE_XML(0, "%s", std::string(70000, 'z').c_str());
        EXPECT_EQ(trace.lines(), (Lines{"one", "ten", std::string(65535, 'z')}));
    }
    // The trace buffer is outside the library's own accounting.
    VQXML_xmlCleanup();
    const auto before = vqxml::memStats();
    {
        TraceCapture trace('0');
        VQXML_TRACE_XML(0, "after clean-up");
    }
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
    EXPECT_EQ(vqxml::memStats().allocSize, before.allocSize);

    // Clean-up, under either name, empties both lists and keeps the documents.
    const int n = newArea();
    addVqXmlError(1001801, "main");
    vqxml::domError(vqxml::kNotFoundErr, "pending");
    VQXML_xmlCleanup();
    EXPECT_EQ(VQDOM_getError(nullptr), 0);
    EXPECT_EQ(VQXML_getError(nullptr), 0);
    addVqXmlError(1001801, "main");
    xmlCleanup();
    EXPECT_EQ(VQXML_getError(nullptr), 0);
    EXPECT_NE(area(n), nullptr);
}

TEST_F(ConformanceTest, DocumentDumpThroughTheTrace) {
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE text = allocNode(doc, VQXML_TEXT_NODE, 0);
    vqxml::node(text)->nodeValue = ds(doc, std::string(70000, 'q').c_str());
    std::vector<char> printed(200000);
    const int32_t length = VQXML_printNode(text, printed.data(), static_cast<int32_t>(printed.size()));
    ASSERT_GT(length, 65600) << "the dump must print a second time with more room";
    const std::string full(printed.data(), static_cast<size_t>(length));
    const void *data = area(1);

    // A higher level, another label, no data or no node: nothing.
    TraceCapture trace('1');
    VQXML_TRACE_XML_DUMP(2, "document area", data, 200000, text);
    VQXML_TRACE_XML_DUMP(1, "document are", data, 200000, text);
    VQXML_TRACE_XML_DUMP(1, "document area", nullptr, 200000, text);
    VQXML_TRACE_XML_DUMP(1, "document area", data, 200000, 0);
    EXPECT_TRUE(trace.text().empty());
    VQXML_TRACE_XML_DUMP(1, "document area", data, 200000, text);
    const std::string out = trace.text();
    EXPECT_EQ(out.rfind("[document area]", 0), 0u) << out.substr(0, 40);
    EXPECT_NE(out.find(full), std::string::npos) << "the whole print reaches the sink";

    // The length handed on is the caller's, not the printed one.
    TraceCapture shortTrace('1');
    VQXML_TRACE_XML_DUMP(1, "document area", data, 5, text);
    EXPECT_EQ(traced(shortTrace), (Lines{"[document area] 5 bytes", full.substr(0, 5)}));
}

TEST_F(ConformanceTest, LeakReportDumpsOnlyDocumentAreas) {
    ASSERT_NE(VQDOM_createDocument(), 0u);
    void *plain = dbg_malloc(8, "plain");
    EXPECT_EQ(allocMemDocArea, nullptr);
    void *nearly = dbg_malloc(8, "document area!");
    EXPECT_EQ(allocMemDocArea, nullptr) << "only the exact label marks an area";

    TraceCapture trace('1');
    dbg_memleak();
    Lines lines = traced(trace);
    char first[64];
    std::snprintf(first, sizeof first, "max. allocated memory so far: 0x%x",
                  static_cast<unsigned>(vqxml::memStats().maxAllocSize));
    // Newest first; a block of another label is not dumped, the document is.
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 3),
              (Lines{first, "memory alloacted: address = @, size = 8, text = document area!",
                     "memory alloacted: address = @, size = 8, text = plain"}));
    const std::string areaLine = "memory alloacted: address = @, size = 20336, text = document area";
    const auto at = std::find(lines.begin(), lines.end(), areaLine);
    ASSERT_NE(at, lines.end());
    ASSERT_NE(at + 1, lines.end());
    EXPECT_EQ(at[1].rfind("[document area]", 0), 0u) << at[1];
    dbg_free(plain);
    dbg_free(nearly);
}

}  // namespace
