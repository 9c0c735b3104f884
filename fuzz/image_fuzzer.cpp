// image_fuzzer.cpp - area images as untrusted input. An input that starts
// with '<' is a document: the text up to the first NUL is parsed, the
// document streamed out, and the bytes after the NUL mutate its image (each
// four bytes: an offset, an operation and a value). Any other input is an
// image as it stands. The image
// goes through VQXML_streamIn and VQXML_documentLoaded; a document that is
// loaded is printed, walked, edited, compacted, streamed out again and
// deleted. Every call must end, read nothing outside the area, and give
// every block back.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz_util.h"

namespace {

// Applies the mutations to the image: anywhere in it, or aimed at the head
// and handle table, or at a block (its header, or the first bytes of its
// record: the links of a node).
void mutate(std::vector<uint8_t> &image, const uint8_t *ops, size_t size) {
    if (image.size() < 52) return;
    int32_t indexes;
    std::memcpy(&indexes, image.data() + 8, 4);
    const size_t front = 52 + 4 * static_cast<size_t>(indexes);
    // Block starts, found by walking the block sizes of the image as given.
    std::vector<size_t> headers;
    for (size_t off = front; off + 8 <= image.size() && headers.size() < 4096;) {
        headers.push_back(off);
        int32_t blockSize;
        std::memcpy(&blockSize, image.data() + off, 4);
        if (blockSize < 8) break;
        off += static_cast<size_t>(blockSize);
    }
    for (size_t i = 0; i + 4 <= size; i += 4) {
        const size_t pick = static_cast<size_t>(ops[i] | ops[i + 1] << 8);
        size_t at;
        switch (ops[i + 2] & 3) {
            case 0: at = pick % std::min(front, image.size()); break;
            case 1: at = headers.empty() ? pick : headers[pick % headers.size()] + (ops[i + 2] >> 2) % 4 * 4; break;
            case 2:
                at = headers.empty() ? pick : headers[pick % headers.size()] + 8 + (ops[i + 2] >> 2) % 16 * 4;
                break;
            default: at = (pick | static_cast<size_t>(ops[i + 3]) << 16) % image.size();
        }
        if (at >= image.size()) continue;
        switch (ops[i + 2] >> 6 & 3) {
            case 0: image[at] = ops[i + 3]; break;
            case 1: image[at] ^= ops[i + 3]; break;
            case 2: image[at] = static_cast<uint8_t>(image[at] + ops[i + 3]); break;
            default: {  // a whole field, taken from the same place in another record
                at &= ~size_t{3};
                if (headers.empty() || at + 4 > image.size()) break;
                const size_t from = headers[ops[i + 3] % headers.size()] + 8 + (ops[i + 2] >> 2) % 16 * 4;
                if (from + 4 <= image.size()) std::memmove(image.data() + at, image.data() + from, 4);
            }
        }
    }
}

// Reads, edits and rewrites a loaded document through the public calls.
void exercise(VQHANDLE doc) {
    fuzz::print(doc);
    char buffer[512];
    VQDOM_getTextContent(doc, buffer, sizeof buffer);
    // A walk of the callers' kind, bounded here by the caller.
    int steps = 0;
    for (VQHANDLE n = VQDOM_getFirstChild(doc); n != 0 && steps < 2000; ++steps) {
        VQDOM_getNodeName(n);
        VQDOM_getAttributes(n);
        const VQHANDLE down = VQDOM_getFirstChild(n);
        n = down != 0 ? down : VQDOM_getNextSibling(n);
    }
    const VQHANDLE root = VQDOM_getDocumentElement(doc);
    const VQHANDLE added = VQDOM_createElement(doc, VQDOM_createDS(doc, "added"));
    VQDOM_setAttribute(added, VQDOM_createDS(doc, "k"), VQDOM_createDS(doc, "v"));
    if (VQDOM_appendChild(root, added) == 0) fuzz::drainErrors();
    VQDOM_appendChild(added, VQDOM_createTextNode(doc, VQDOM_createDS(doc, "text")));
    VQDOM_normalize(root);
    VQDOM_deleteNode(VQDOM_cloneNode(root, 1));
    VQDOM_getElementsByTagNameStr(doc, "added");
    VQXML_compact(doc);
    fuzz::print(doc);
    int32_t length = 0;
    VQXML_streamOut(doc, &length);
    fuzz::print(doc);
    VQDOM_deleteNode(VQDOM_removeChild(root, added));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    std::vector<uint8_t> image;
    if (size == 0 || data[0] != '<') {
        image.assign(data, data + size);
    } else {
        const uint8_t *nul = static_cast<const uint8_t *>(std::memchr(data, 0, size));
        const size_t textSize = nul != nullptr ? static_cast<size_t>(nul - data) : size;
        const VQHANDLE doc = VQXML_parse(fuzz::text(data, textSize).c_str());
        fuzz::drainErrors();
        if (doc == 0) return 0;
        int32_t length = 0;
        const uint8_t *bytes = static_cast<const uint8_t *>(VQXML_streamOut(doc, &length));
        image.assign(bytes, bytes + length);
        VQXML_deleteDocumentArea(doc);
        if (nul != nullptr) mutate(image, nul + 1, size - textSize - 1);
    }
    if (image.empty()) return 0;
    void *block = VQXML_streamIn(static_cast<int32_t>(image.size()));
    if (block == nullptr) return 0;
    std::memcpy(block, image.data(), image.size());
    int32_t number = 0;
    std::memcpy(&number, image.data(), std::min<size_t>(4, image.size()));
    if (VQXML_documentLoaded(block) == 1) {
        // The document node is the first object of a document.
        exercise(0x100u | static_cast<VQHANDLE>(number));
        VQXML_deleteDocumentArea(static_cast<VQHANDLE>(number));
    }
    fuzz::drainErrors();
    return 0;
}
