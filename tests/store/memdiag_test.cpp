// memdiag_test.cpp - the accounting layer, the leak report, the dump file,
// the per-document counters, the document dump through the trace, the trace
// switch with its levels and clean-up, and the memory measurement.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

using vqtest::LibraryTest;

namespace {

using namespace vqxml::codes;

std::string readFile(const std::string &path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string dumpToString() {
    char path[] = "/tmp/vqxml-dump-XXXXXX";
    int fd = mkstemp(path);
    close(fd);
    VQXML_PRINTINTOFILE(path);
    std::string text = readFile(path);
    struct stat st;
    stat(path, &st);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    unlink(path);
    return text;
}

int newArea() {
    uint32_t *field = nullptr;
    return newDocumentArea(0, &field);
}

using Lines = std::vector<std::string>;

// Trace lines with every heap address shown as "@".
Lines traced(vqtest::TraceCapture &trace) {
    static const std::regex address("0x0x[0-9a-f]+");
    Lines out;
    for (const std::string &line : trace.lines()) out.push_back(std::regex_replace(line, address, "@"));
    return out;
}

}  // namespace

TEST_F(LibraryTest, AccountingFollowsEveryBlock) {
    const auto before = vqxml::memStats();
    void *a = dbg_malloc(100, "first");
    void *b = dbg_malloc(50, "a label that is thirty chars!!");
    auto mid = vqxml::memStats();
    EXPECT_EQ(mid.allocCount, before.allocCount + 2);
    EXPECT_EQ(mid.allocSize, before.allocSize + 150);
    EXPECT_EQ(mid.liveBlocks, before.liveBlocks + 2);
    EXPECT_GE(mid.maxAllocSize, mid.allocSize);
    EXPECT_EQ(allocMemDocArea, nullptr);

    std::string dump = dumpToString();
    char expectA[128], expectB[128];
    std::snprintf(expectA, sizeof expectA, "count = %d, size = 100, next = ", before.allocCount);
    std::snprintf(expectB, sizeof expectB, "count = %d, size = 50, next = ", before.allocCount + 1);
    EXPECT_NE(dump.find(expectA), std::string::npos);
    EXPECT_NE(dump.find(expectB), std::string::npos);
    EXPECT_NE(dump.find("text = 'a label that is thirty ', DocHandle = 0\n"), std::string::npos)
        << "labels keep their first 23 characters";
    // Newest first.
    EXPECT_LT(dump.find(expectB), dump.find(expectA));

    dbg_free(a);
    dbg_free(b);
    EXPECT_EQ(vqxml::memStats().allocSize, before.allocSize);
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
    EXPECT_EQ(vqxml::memStats().maxAllocSize, mid.maxAllocSize);

    // Blocks not ours are never freed, only reported.
    {
        vqtest::TraceCapture trace('1');
        int local = 0;
        dbg_free(&local);
        void *heap = std::malloc(8);
        dbg_free(heap);  // must stay allocated (freed below by hand)
        std::free(heap);
        EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
        const Lines lines = trace.lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].rfind("**** error **** invalid free ( 0x0x", 0), 0u);
        EXPECT_EQ(lines[0].substr(lines[0].size() - 2), " )");
    }

    // Injected failures: one-shot at the n-th request, or from it on.
    vqxml::failAllocAt(2);
    a = dbg_malloc(8, "x");
    EXPECT_NE(a, nullptr);
    EXPECT_EQ(dbg_malloc(8, "x"), nullptr);
    b = dbg_malloc(8, "x");
    EXPECT_NE(b, nullptr);
    vqxml::failAllocAt(1, true);
    EXPECT_EQ(dbg_malloc(8, "x"), nullptr);
    EXPECT_EQ(dbg_malloc(8, "x"), nullptr);
    vqxml::failAllocAt(0);
    dbg_free(a);
    dbg_free(b);
    EXPECT_EQ(newArea(), 1) << "failures are off again";
}

TEST_F(LibraryTest, CountersPerDocumentAndForAll) {
    const int n1 = newArea(), n2 = newArea();
    myAlloc(n1, 12);
    VQHANDLE h = myAlloc(n2, 100);
    myAlloc(n2, 1);
    myFree(h);
    int32_t c[6];
    std::memset(c, 0x55, sizeof c);
    EXPECT_EQ(VQXML_debug_mem(static_cast<VQHANDLE>(n2), c, 0), 1);
    EXPECT_EQ(std::vector<int32_t>(c, c + 6), (std::vector<int32_t>{1, 16, 20336, 1, 112, 1}));
    EXPECT_EQ(VQXML_debug_mem(0x300, c, 0), 1) << "low byte 0: all documents";
    EXPECT_EQ(std::vector<int32_t>(c, c + 6),
              (std::vector<int32_t>{2, 40, 2 * 20336, 1, 112, 2}));
    EXPECT_EQ(VQXML_debug_mem(0x77, c, 0), 1) << "no such document";
    EXPECT_EQ(std::vector<int32_t>(c, c + 6), (std::vector<int32_t>(6, 0)));
    EXPECT_EQ(VQXML_debug_mem(0, nullptr, 0), 1);
    EXPECT_EQ(VQXML_DomDump(), 0);
}

TEST_F(LibraryTest, DumpFileListsBlocksAndAreaHeads) {
    const int n = newArea();
    allocMemDocArea->DocHandle = 0x101;  // as the document node would set it
    myAlloc(n, 12);
    std::string dump = dumpToString();
    auto stats = vqxml::memStats();
    char first[128];
    std::snprintf(first, sizeof first, "allocCount = %d, allocSize = %d, maxAllocSize = %d\n",
                  stats.allocCount, stats.allocSize, stats.maxAllocSize);
    EXPECT_EQ(dump.rfind(first, 0), 0u);
    EXPECT_NE(dump.find(", size = 20336, next = 0x"), std::string::npos);
    EXPECT_NE(dump.find("text = 'document area', DocHandle = 257\nDocHead = 0x"), std::string::npos)
        << "a document's record is followed by its head line";
    const std::string head =
        ", doc = 1, size = 20336, indexes = 719, firstfree = 2, freesize = 17384, "
        "freeoffset = 717, dbgHandles = 1, dbgSize = 24, dbgFreeHandles = 0, dbgFreeSize = 0\n";
    size_t at = dump.find(head);
    ASSERT_NE(at, std::string::npos);
    EXPECT_NE(dump.find(head, at + 1), std::string::npos) << "and again in the list of all heads";
    VQXML_PRINTINTOFILE("/nonexistent-dir/dump");  // silently skipped
}

TEST_F(LibraryTest, LeakReportThroughTheTrace) {
    {
        vqtest::TraceCapture trace('1');
        VQXML_debug_mem(0, nullptr, 1);
        const Lines lines = trace.lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].rfind("max. allocated memory so far: 0x", 0), 0u);
        EXPECT_EQ(lines[1], "no memory allocated currently");
    }
    newArea();  // an area without a document node is listed, not dumped
    ASSERT_NE(VQDOM_createDocument(), 0u);
    void *plain = dbg_malloc(8, "plain");
    EXPECT_EQ(allocMemDocArea, nullptr);
    void *nearly = dbg_malloc(8, "document area!");
    EXPECT_EQ(allocMemDocArea, nullptr) << "only the exact label marks an area";

    vqtest::TraceCapture trace('1');
    dbg_memleak();
    const Lines lines = traced(trace);
    char first[64];
    std::snprintf(first, sizeof first, "max. allocated memory so far: 0x%x",
                  static_cast<unsigned>(vqxml::memStats().maxAllocSize));
    // Newest first; a block of another label is not dumped, the document is.
    ASSERT_GE(lines.size(), 6u);
    const std::string areaLine = "memory alloacted: address = @, size = 20336, text = document area";
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 4),
              (Lines{first, "memory alloacted: address = @, size = 8, text = document area!",
                     "memory alloacted: address = @, size = 8, text = plain", areaLine}));
    EXPECT_EQ(lines[4].rfind("[document area]", 0), 0u) << lines[4];
    EXPECT_EQ(lines.back(), areaLine);
    dbg_free(plain);
    dbg_free(nearly);
}

TEST_F(LibraryTest, DocumentDumpThroughTheTrace) {
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE text = allocNode(doc, VQXML_TEXT_NODE, 0);
    vqxml::node(text)->nodeValue = vqtest::ds(doc, std::string(70000, 'q').c_str());
    std::vector<char> printed(200000);
    const int32_t length = VQXML_printNode(text, printed.data(), static_cast<int32_t>(printed.size()));
    ASSERT_GT(length, 65600) << "the dump must print a second time with more room";
    const std::string full(printed.data(), static_cast<size_t>(length));
    const void *data = docHead[1];

    // A higher level, another label, no data or no node: nothing.
    vqtest::TraceCapture trace('1');
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
    vqtest::TraceCapture shortTrace('1');
    VQXML_TRACE_XML_DUMP(1, "document area", data, 5, text);
    EXPECT_EQ(traced(shortTrace), (Lines{"[document area] 5 bytes", full.substr(0, 5)}));
}

TEST_F(LibraryTest, TraceSwitchLevelsAndCleanUp) {
    {
        vqtest::TraceCapture trace('1');
        VQXML_TRACE_XML(1, "one %d", 1);
        VQXML_TRACE_XML(2, "two %d", 2);
        VQXML_TRACE_XML(0, "zero");
        VQXML_xmlSetTraceFlag(XmlTraceHandle, 0x7F00 | '0');  // only the low byte counts
        EXPECT_EQ(XmlTraceFlag, 0x7F30);
        VQXML_TRACE_XML(1, "level 1 is held back by '0'");
        VQXML_xmlSetTraceFlag(XmlTraceHandle, ':');  // the digit after '9' passes level 10
        VQXML_TRACE_XML(10, "ten");
        VQXML_TRACE_XML(11, "eleven");
        // A line is cut to the 65 535 bytes the sink is given.
        VQXML_TRACE_XML(0, "%s", std::string(70000, 'z').c_str());
        EXPECT_EQ(trace.lines(), (Lines{"one 1", "zero", "ten", std::string(65535, 'z')}));
    }
    VQXML_xmlSetTraceFlag(0, '9');
    VQXML_TRACE_XML(0, "no handle: nothing happens");
    EXPECT_EQ(XmlTraceFlag, '9');

    // After clean-up a fresh buffer, outside the library's own accounting.
    VQXML_xmlCleanup();
    const auto before = vqxml::memStats();
    {
        vqtest::TraceCapture trace('2');
        VQXML_TRACE_XML(2, "%s", "a fresh buffer after clean-up");
        EXPECT_EQ(trace.lines(), (Lines{"a fresh buffer after clean-up"}));
    }
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
    EXPECT_EQ(vqxml::memStats().allocSize, before.allocSize);

    // Clean-up, under either name, empties both lists and keeps the documents.
    const int n = newArea();
    addVqXmlError(kIllegalParameter, "main");
    vqxml::domError(vqxml::kNotFoundErr, "pending");
    VQXML_xmlCleanup();
    EXPECT_EQ(VQDOM_getError(nullptr), 0);
    EXPECT_EQ(VQXML_getError(nullptr), 0);
    addVqXmlError(kIllegalParameter, "main");
    xmlCleanup();
    EXPECT_EQ(VQXML_getError(nullptr), 0);
    EXPECT_NE(docHead[n], nullptr);
    VQXML_clearTiks();
    EXPECT_EQ(VQXML_getTiks(), 0);
}

TEST_F(LibraryTest, ProcessMemoryMeasurement) {
    // Without change the text is empty. Page figures can move between the two
    // calls under a busy machine, so allow a few tries.
    bool empty = false;
    for (int i = 0; i < 5 && !empty; ++i) {
        VQDOM_startMemInfo();
        empty = VQDOM_endMemInfo()[0] == '\0';
    }
    EXPECT_TRUE(empty);
    VQDOM_startMemInfo();
    const size_t big = 64u << 20;
    char *p = static_cast<char *>(std::malloc(big));
    std::memset(p, 1, big);
    std::string text = VQDOM_endMemInfo();
    EXPECT_EQ(static_cast<volatile char *>(p)[big / 2], 1) << "keeps the block from being optimised away";
    std::free(p);
    EXPECT_EQ(text.rfind("VQXML Memory Information: VM Size = ", 0), 0u) << text;
    EXPECT_LE(text.size(), 255u);
}

// Large blocks given back keep their pages for the next large block, up to
// a bound, outside the accounting; clean-up returns them.
TEST_F(LibraryTest, MemoryOfLargeBlocksIsKeptWithinItsBound) {
    VQXML_xmlCleanup();
    ASSERT_EQ(vqxml::keptBytes(), 0u);
    const auto before = vqxml::memStats();
    constexpr size_t kMiB = size_t{1} << 20;
    void *blocks[5];
    for (void *&b : blocks) {
        b = dbg_malloc(40 * kMiB, "large");
        ASSERT_NE(b, nullptr);
        std::memset(b, 0x5a, 40 * kMiB);
    }
    for (void *b : blocks) dbg_free(b);
    EXPECT_EQ(vqxml::keptBytes(), 64 * kMiB);
    EXPECT_EQ(vqxml::memStats().allocSize, before.allocSize);
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);

    // A kept block serves a larger request too, committing the rest; its
    // whole length is usable.
    void *big = dbg_malloc(50 * kMiB, "larger");
    ASSERT_NE(big, nullptr);
    std::memset(big, 1, 50 * kMiB);
    dbg_free(big);

    // A document parsed into memory of a deleted one is read as if the
    // memory were fresh.
    std::string text = "<r>";
    for (int i = 0; text.size() < 2 * kMiB; ++i)
        text += "<e n=\"" + std::to_string(i) + "\">" + std::to_string(i * 7) + "</e>";
    text += "</r>";
    std::string printed[2];
    for (std::string &p : printed) {
        const VQHANDLE doc = VQXML_parse(text.c_str());
        ASSERT_NE(doc, 0u);
        p.resize(text.size() + 64);
        p.resize(static_cast<size_t>(VQXML_printNode(doc, p.data(), static_cast<int32_t>(p.size()))));
        VQDOM_deleteNode(doc);
        EXPECT_GT(vqxml::keptBytes(), 0u);
    }
    EXPECT_EQ(printed[0], text);
    EXPECT_EQ(printed[1], text);
    VQXML_xmlCleanup();
    EXPECT_EQ(vqxml::keptBytes(), 0u);
}
