// stream_test.cpp - compaction, streaming an area out and back in: the
// exact block moves of a compaction, the minimal area a stream-out leaves,
// the block for an image and its failures, and the round trip over every
// document of the test corpora (same number, same bytes under every handle,
// same printed text, and a loaded document that goes on working).
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/memdiag.h"

namespace {

using vqtest::drainErrors;
using vqtest::Err;
using Errs = std::vector<Err>;

class StreamTest : public vqtest::LibraryTest {
protected:
    void TearDown() override {
        vqxml::failAllocAt(0);
        LibraryTest::TearDown();
    }
};

DocArea *area(VQHANDLE h) { return docHead[h & 255]; }
int32_t *table(VQHANDLE h) { return vqxml::handleTable(area(h)); }
char *text(VQHANDLE h) { return static_cast<char *>(toPNode(h)); }

VQHANDLE filled(int n, int64_t bytes, char fill) {
    const VQHANDLE h = myAlloc(static_cast<VQHANDLE>(n), bytes);
    std::memset(text(h), fill, static_cast<size_t>(bytes));
    return h;
}

// The blocks of an area in address order: "size" plus L (live), F (on the
// free list) or U (free, not listed).
std::string layout(int n) {
    DocArea *a = docHead[n];
    std::vector<int32_t> listed;
    for (int32_t f = vqxml::handleTable(a)[0]; f != 0; f = vqxml::blockAt(a, f)->blockLink) listed.push_back(f);
    std::string out;
    const int64_t end = int64_t{a->size} - 48 - 4 * int64_t{a->indexes};
    for (int64_t off = 4; off < end;) {
        const BlockHeader *b = vqxml::blockAt(a, static_cast<int32_t>(off));
        if (b->blockSize <= 0) return out + "broken";
        const bool live =
            b->blockLink > 0 && b->blockLink < a->indexes && vqxml::handleTable(a)[b->blockLink] == off;
        const bool isListed = std::find(listed.begin(), listed.end(), off) != listed.end();
        out += std::to_string(b->blockSize) + (live ? "L " : isListed ? "F " : "U ");
        off += b->blockSize;
    }
    return out;
}

// The invariants of an area: blocks tile the data region, slots and live
// blocks name each other, and the counters agree with what is there.
::testing::AssertionResult sound(int n) {
    DocArea *a = docHead[n];
    if (a == nullptr) return ::testing::AssertionFailure() << "no area " << n;
    const int32_t *t = vqxml::handleTable(a);
    const int64_t end = int64_t{a->size} - 48 - 4 * int64_t{a->indexes};
    int64_t off = 4, live = 0, liveBytes = 0, used = 0;
    while (off < end) {
        const BlockHeader *b = vqxml::blockAt(a, static_cast<int32_t>(off));
        if (b->blockSize < 8 || b->blockSize % 8 != 0) return ::testing::AssertionFailure() << "block at " << off;
        if (b->blockLink > 0 && b->blockLink < a->indexes && t[b->blockLink] == off) ++live, liveBytes += b->blockSize;
        off += b->blockSize;
    }
    for (int32_t s = 1; s < a->indexes; ++s) used += t[s] != 0;
    if (off != end || used != live || a->dbgHandles != live || a->dbgSize != liveBytes ||
        a->freeoffset != a->indexes - 1 - used || int64_t{a->freesize} + a->dbgSize != end - 4)
        return ::testing::AssertionFailure() << "area " << n << " disagrees with its counters";
    return ::testing::AssertionSuccess();
}

// The bytes under every used slot of a document.
std::map<int32_t, std::string> contents(VQHANDLE doc) {
    std::map<int32_t, std::string> out;
    DocArea *a = area(doc);
    for (int32_t s = 1; s < a->indexes; ++s) {
        const int32_t off = vqxml::handleTable(a)[s];
        if (off == 0) continue;
        const BlockHeader *b = vqxml::blockAt(a, off);
        out[s] = std::string(reinterpret_cast<const char *>(b + 1), static_cast<size_t>(b->blockSize - 8));
    }
    return out;
}

// Streams a document out, into a copy of its bytes.
std::vector<char> streamOut(VQHANDLE doc) {
    int32_t length = -1;
    const char *bytes = static_cast<const char *>(VQXML_streamOut(doc, &length));
    EXPECT_NE(bytes, nullptr);
    if (bytes == nullptr) return {};
    EXPECT_EQ(length, area(doc)->size);
    return std::vector<char>(bytes, bytes + length);
}

// Loads an image as a caller does: a block from streamIn, filled, installed.
int load(const std::vector<char> &image) {
    void *block = VQXML_streamIn(static_cast<int32_t>(image.size()));
    if (block == nullptr) return 0;
    std::memcpy(block, image.data(), image.size());
    return VQXML_documentLoaded(block);
}

TEST_F(StreamTest, StreamOutLeavesTheMinimalArea) {
    const int n = newDocumentArea(0, nullptr);
    std::vector<VQHANDLE> h;
    for (int i = 0; i < 10; ++i) h.push_back(filled(n, 8 + 8 * i, static_cast<char>('a' + i)));
    for (int i : {1, 5, 8, 9}) myFree(h[i]);  // slot 8 stays the highest in use
    int64_t liveBytes = area(n)->dbgSize;
    const std::vector<char> image = streamOut(h[0]);
    const DocArea *a = area(n);
    EXPECT_EQ(a->indexes, 9) << "the table ends at the highest slot in use";
    EXPECT_EQ(a->size, 52 + 4 * 9 + liveBytes);
    EXPECT_EQ(a->freesize, 0);
    EXPECT_EQ(a->firstfree, 9) << "lowered to the table's end";
    EXPECT_EQ(table(h[0])[0], 0) << "an empty free list";
    EXPECT_EQ(layout(n), "16L 32L 40L 48L 64L 72L ");
    EXPECT_TRUE(sound(n));
    EXPECT_EQ(std::memcmp(image.data(), a, image.size()), 0);
    for (int i : {0, 2, 3, 4, 6, 7}) EXPECT_EQ(text(h[i])[7 + 8 * i], 'a' + i) << i;

    // The area goes on: it grows again when something no longer fits.
    const int32_t minimal = a->size;
    const VQHANDLE more = filled(n, 100, 'z');
    EXPECT_EQ(more >> 8, 9u) << "the next slot after the table's end";
    EXPECT_GT(area(n)->size, minimal);
    EXPECT_EQ(text(h[7])[63], 'h');
    EXPECT_TRUE(sound(n));

    // Slots 0 and 1 always stay, in use or not.
    for (const bool keepFirst : {true, false}) {
        const int m = newDocumentArea(0, nullptr);
        const VQHANDLE first = filled(m, 8, 'x'), second = filled(m, 8, 'y');
        myFree(keepFirst ? second : first);
        liveBytes = area(m)->dbgSize;
        streamOut(first);
        EXPECT_EQ(area(m)->indexes, keepFirst ? 2 : 3) << keepFirst;
        EXPECT_EQ(area(m)->size, 52 + 4 * area(m)->indexes + liveBytes);
        EXPECT_TRUE(sound(m));
    }

    // An unknown document: nothing is handed out, the length is untouched.
    int32_t length = -7;
    EXPECT_EQ(VQXML_streamOut(0x177, &length), nullptr);
    EXPECT_EQ(VQXML_streamOut(0, &length), nullptr);
    EXPECT_EQ(length, -7);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(StreamTest, CompactionMovesOnlyListedSpace) {
    // Five blocks of 3000 bytes with two small ones between the second and
    // the third leave 2384 listed bytes at the end. Freeing the first two
    // and the fourth puts more than half of the area in free blocks, so the
    // next request that does not fit sweeps them onto the list.
    const int n = newDocumentArea(0, nullptr);
    const VQHANDLE A = filled(n, 2992, 'A'), B = filled(n, 2992, 'B'), s = filled(n, 16, 's');
    const VQHANDLE c1 = filled(n, 16, '1'), C2 = filled(n, 2968, 'C'), D = filled(n, 2992, 'D');
    const VQHANDLE E = filled(n, 2992, 'E');
    for (VQHANDLE h : {B, D, s, A}) myFree(h);
    const VQHANDLE X = filled(n, 2392, 'X');
    myFree(filled(n, 16, 't'));
    myFree(c1);
    ASSERT_EQ(layout(n), "2400L 24U 3600F 24U 2976L 3000F 3000L 2384F ");
    const int32_t freesize = area(n)->freesize;

    // The listed blocks close up at the end; the unlisted ones move with
    // the live blocks and are not taken in.
    VQXML_compact(X);
    EXPECT_EQ(layout(n), "2400L 24U 24U 2976L 3000L 8984F ");
    EXPECT_EQ(table(X)[0], 8428);
    EXPECT_EQ(vqxml::blockAt(area(n), 8428)->blockLink, 0);
    EXPECT_EQ(table(C2)[C2 >> 8], 2452);
    EXPECT_EQ(table(E)[E >> 8], 5428);
    EXPECT_EQ(text(C2)[2967], 'C');
    EXPECT_EQ(text(E)[0], 'E');
    EXPECT_EQ(text(X)[2391], 'X');
    EXPECT_EQ(area(n)->freesize, freesize);
    EXPECT_TRUE(sound(n));

    // With its only listed block at the end, compaction changes nothing;
    // an empty free list or an unknown document neither.
    std::vector<char> before(reinterpret_cast<char *>(area(n)), reinterpret_cast<char *>(area(n)) + area(n)->size);
    VQXML_compact(X);
    EXPECT_EQ(std::memcmp(before.data(), area(n), before.size()), 0);
    streamOut(X);
    before.assign(reinterpret_cast<char *>(area(n)), reinterpret_cast<char *>(area(n)) + area(n)->size);
    VQXML_compact(X);
    VQXML_compact(0x1ff);
    EXPECT_EQ(std::memcmp(before.data(), area(n), before.size()), 0);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(StreamTest, BlocksForImagesAndTheirFailures) {
    {
        vqtest::TraceCapture trace('2');
        void *block = VQXML_streamIn(96);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(vqxml::trackedSize(block), 96);
        char expected[96];
        std::snprintf(expected, sizeof expected, "VQXML malloc - (streamIn) addr: 0x%p, (len: 96)", block);
        EXPECT_EQ(trace.lines(), std::vector<std::string>{expected});
        dbg_free(block);
    }
    {
        vqtest::TraceCapture trace('1');
        dbg_free(VQXML_streamIn(8));
        EXPECT_TRUE(trace.lines().empty()) << "a level-2 line";
    }
    // No memory, or no length: DOM code 11 with the length asked for.
    vqxml::failAllocAt(1);
    EXPECT_EQ(VQXML_streamIn(4096), nullptr);
    vqxml::failAllocAt(0);
    EXPECT_EQ(VQXML_streamIn(0), nullptr);
    EXPECT_EQ(VQXML_streamIn(-5), nullptr);
    const int64_t cannot = vqxml::mainCode(vqxml::kAllocErr);
    EXPECT_EQ(drainErrors(),
              (Errs{{cannot, "DocumentArea|4096|"}, {cannot, "DocumentArea|0|"}, {cannot, "DocumentArea|-5|"}}));
}

// Every document the test corpora hold, and one built through the DOM.
std::vector<std::string> corpus() {
    std::vector<std::string> texts;
    const std::string root = VQXML_SOURCE_DIR "/";
    for (const char *dir : {"fuzz/corpus/parse", "fuzz/corpus/alloc", "fuzz/corpus/image", "examples"}) {
        if (!std::filesystem::is_directory(root + dir)) continue;
        for (const auto &entry : std::filesystem::directory_iterator(root + dir)) {
            if (entry.path().extension() != ".xml") continue;
            std::ifstream in(entry.path(), std::ios::binary);
            std::stringstream ss;
            ss << in.rdbuf();
            texts.push_back(ss.str());
        }
    }
    return texts;
}

// Stream out, delete, stream in, load: the same number, the same bytes
// under every handle, the same text. The loaded document then takes edits,
// loses half its elements, compacts, and makes the round trip again.
TEST_F(StreamTest, RoundTripOverTheCorpora) {
    std::vector<std::string> texts = corpus();
    ASSERT_GE(texts.size(), 5u);
    const int32_t blocks = robust::liveBlocks();
    VQXML_parse("<other/>");  // so that the documents are not number 1
    size_t parsed = 0;
    for (const std::string &input : texts) {
        const VQHANDLE doc = VQXML_parse(input.c_str());
        drainErrors();
        if (doc == 0) continue;
        ++parsed;
        SCOPED_TRACE(input.substr(0, 60));
        std::string printed = robust::print(doc);
        for (int round = 0; round < 2; ++round) {
            const auto kept = contents(doc);
            const std::vector<char> image = streamOut(doc);
            EXPECT_EQ(robust::print(doc), printed) << "still in use after streaming out";
            VQXML_deleteDocumentArea(doc);
            ASSERT_EQ(load(image), 1);
            EXPECT_TRUE(sound(static_cast<int>(doc & 255)));
            EXPECT_EQ(contents(doc), kept);
            EXPECT_EQ(robust::print(doc), printed);
            EXPECT_TRUE(robust::consistent(doc));
            if (round == 1) break;

            // Edits and growth, then every other element of the root's
            // children goes and the area is compacted.
            const VQHANDLE root = VQDOM_getDocumentElement(doc);
            const VQHANDLE added = VQDOM_createElement(doc, VQDOM_createDS(doc, "added"));
            VQDOM_setAttribute(added, VQDOM_createDS(doc, "k"), VQDOM_createDS(doc, std::string(5000, 'v').c_str()));
            ASSERT_EQ(VQDOM_appendChild(root, added), added);
            bool odd = false;
            for (VQHANDLE c = VQDOM_getFirstChild(root), next; c != 0; c = next) {
                next = VQDOM_getNextSibling(c);
                if (VQDOM_getNodeType(c) == VQXML_ELEMENT_NODE && (odd = !odd) && c != added)
                    VQDOM_deleteNode(VQDOM_removeChild(root, c));
            }
            const std::string edited = robust::print(doc);
            const auto before = contents(doc);
            VQXML_compact(doc);
            EXPECT_EQ(contents(doc), before);
            EXPECT_TRUE(sound(static_cast<int>(doc & 255)));
            EXPECT_EQ(robust::print(doc), edited);
            printed = edited;
        }
        VQXML_deleteDocumentArea(doc);
    }
    EXPECT_GE(parsed, 10u) << "the well-formed seeds";
    EXPECT_TRUE(drainErrors().empty());
    VQXML_deleteDocumentAreaRange(0, 255);
    EXPECT_EQ(robust::liveBlocks(), blocks);
}

}  // namespace
