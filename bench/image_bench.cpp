// image_bench.cpp - documents as area images: loading a streamed image
// against parsing the same text, the image's size against the text's, and
// what VQXML_compact does after half of a document's elements are deleted,
// on the generated corpora (1 MB and 24 MB of each shape). Every image is
// checked on the way: loaded under the same number it prints the same bytes.
//
//   vqxml_image_bench              1 MB and 24 MB corpora
//   vqxml_image_bench --quick      1 MB corpora only
//   vqxml_image_bench --runs N     N timed runs per figure (median reported)
//
// Load time covers the block from VQXML_streamIn, the copy of the image
// into it and VQXML_documentLoaded with its image checks; parse time covers
// VQXML_parse to a complete tree. Trees are freed outside the timing. The
// copy and the check are also shown apart: "ceiling" is the speedup loading
// would have if it cost nothing but the caller's copy of the image.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "corpus.h"
#include "vqxml/vqxml.h"

namespace {

using Clock = std::chrono::steady_clock;

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// The largest block on a document's free list.
int32_t largestListed(VQHANDLE doc) {
    const VQXML_AreaHead *a = docHead[doc & 255];
    const int32_t *table = reinterpret_cast<const int32_t *>(a + 1);
    int32_t largest = 0;
    for (int32_t off = table[0]; off != 0;) {
        const int32_t *block = reinterpret_cast<const int32_t *>(a->data + off);
        largest = std::max(largest, block[0]);
        off = block[1];
    }
    return largest;
}

// Every element below the document element, in document order.
std::vector<VQHANDLE> elements(VQHANDLE doc) {
    std::vector<VQHANDLE> out, todo{VQDOM_getDocumentElement(doc)};
    while (!todo.empty()) {
        const VQHANDLE n = todo.back();
        todo.pop_back();
        std::vector<VQHANDLE> kids;
        for (VQHANDLE c = VQDOM_getFirstChild(n); c != 0; c = VQDOM_getNextSibling(c))
            if (VQDOM_getNodeType(c) == VQXML_ELEMENT_NODE) kids.push_back(c);
        for (auto it = kids.rbegin(); it != kids.rend(); ++it) todo.push_back(*it);
        out.insert(out.end(), kids.begin(), kids.end());
    }
    return out;
}

// One row per corpus; a failed round trip is marked in its row.
int images(bool quick, int runs) {
    std::vector<bench::Corpus> inputs = bench::generated(1u << 20, "-1MB");
    if (!quick)
        for (auto &c : bench::generated(24u << 20, "-24MB")) inputs.push_back(std::move(c));
    std::printf("%-16s %7s | %9s %9s %7s | %8s %8s %7s | %7s | %-28s %s\n", "corpus", "MB", "parse ms",
                "load ms", "speedup", "copy ms", "check ms", "ceiling", "img/txt", "half deleted: area MB, free", "listed before -> after compact");
    std::printf("%s\n", std::string(151, '-').c_str());
    for (const auto &in : inputs) {
        const int n = runs > 0 ? runs : (in.text.size() > (8u << 20) ? 5 : 15);
        std::vector<double> parseTimes, loadTimes, copyTimes, checkTimes;
        VQHANDLE doc = 0;
        for (int r = 0; r < n; ++r) {
            if (doc != 0) VQXML_deleteDocumentArea(doc);
            const auto t0 = Clock::now();
            doc = VQXML_parse(in.text.c_str());
            parseTimes.push_back(std::chrono::duration<double>(Clock::now() - t0).count());
            if (doc == 0) break;
        }
        if (doc == 0) {
            std::printf("%-16s parse failed\n", in.name.c_str());
            continue;
        }
        const size_t need = static_cast<size_t>(VQXML_printNode(doc, nullptr, 0)) + 1;
        std::vector<char> printed(need), again(need);
        VQXML_printNode(doc, printed.data(), static_cast<int32_t>(need));
        int32_t length = 0;
        const char *bytes = static_cast<const char *>(VQXML_streamOut(doc, &length));
        const std::vector<char> image(bytes, bytes + length);
        VQXML_deleteDocumentArea(doc);
        bool same = true;
        for (int r = 0; r < n; ++r) {
            const auto t0 = Clock::now();
            void *block = VQXML_streamIn(length);
            const auto t1 = Clock::now();
            std::memcpy(block, image.data(), image.size());
            const auto t2 = Clock::now();
            const int loaded = VQXML_documentLoaded(block);
            const auto t3 = Clock::now();
            loadTimes.push_back(std::chrono::duration<double>(t3 - t0).count());
            copyTimes.push_back(std::chrono::duration<double>(t2 - t1).count());
            checkTimes.push_back(std::chrono::duration<double>(t3 - t2).count());
            same = same && loaded == 1;
            if (loaded != 1) break;
            if (r == 0) {
                VQXML_printNode(doc, again.data(), static_cast<int32_t>(need));
                same = printed == again;
            }
            VQXML_deleteDocumentArea(doc);
        }

        // Every second element deleted, then compaction.
        doc = VQXML_parse(in.text.c_str());
        const std::vector<VQHANDLE> all = elements(doc);
        for (size_t i = 1; i < all.size(); i += 2) {
            if (VQDOM_getParentNode(all[i]) == 0) continue;  // went with an ancestor
            VQDOM_deleteNode(VQDOM_removeChild(VQDOM_getParentNode(all[i]), all[i]));
        }
        VQXML_resetErrorList();
        const VQXML_AreaHead *a = docHead[doc & 255];
        const double areaMB = a->size / 1e6, freeMB = a->freesize / 1e6;
        const double listedBefore = largestListed(doc) / 1e6;
        VQXML_compact(doc);
        const double listedAfter = largestListed(doc) / 1e6;
        int32_t halfLength = 0;
        VQXML_streamOut(doc, &halfLength);
        VQXML_deleteDocumentArea(doc);

        const double parseMs = median(parseTimes) * 1e3, loadMs = median(loadTimes) * 1e3;
        const double copyMs = median(copyTimes) * 1e3, checkMs = median(checkTimes) * 1e3;
        char half[64];
        std::snprintf(half, sizeof half, "%.1f, %.1f free", areaMB, freeMB);
        std::printf("%-16s %7.2f | %9.2f %9.2f %6.1fx | %8.2f %8.2f %6.1fx | %7.2f | %-28s %.2f -> %.2f MB (image %.1f MB)%s\n",
                    in.name.c_str(), static_cast<double>(in.text.size()) / 1e6, parseMs, loadMs,
                    parseMs / loadMs, copyMs, checkMs, parseMs / copyMs, static_cast<double>(length) / static_cast<double>(in.text.size()),
                    half, listedBefore, listedAfter, halfLength / 1e6, same ? "" : "  ROUND TRIP FAILED");
        std::fflush(stdout);
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    bool quick = false;
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0)
            quick = true;
        else if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc)
            runs = std::atoi(argv[++i]);
    }
    VQXML_xmlInit();
    const int status = images(quick, runs);
    VQXML_xmlCleanup();
    return status;
}
