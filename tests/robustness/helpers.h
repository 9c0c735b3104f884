// helpers.h - small helpers shared by the robustness suites (and the DOM
// mutation suite): printing a node into a string, counting live areas and
// blocks, building deep trees and checking every link of a tree.
#ifndef VQXML_TESTS_ROBUSTNESS_HELPERS_H
#define VQXML_TESTS_ROBUSTNESS_HELPERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace robust {

using vqtest::print;

inline int32_t liveAreas() {
    int32_t counters[6] = {};
    VQXML_debug_mem(0, counters, 0);
    return counters[5];
}

inline int32_t liveBlocks() { return vqxml::memStats().liveBlocks; }

// Successful tracked allocations so far: the number of points where an
// injected failure can strike in a deterministic piece of work.
inline int32_t allocations() { return vqxml::memStats().allocCount; }

inline bool hasCode(const std::vector<vqtest::Err> &errors, int64_t code) {
    for (const auto &e : errors)
        if (e.code == code) return true;
    return false;
}

inline std::string repeat(const std::string &piece, int times) {
    std::string out;
    out.reserve(piece.size() * static_cast<size_t>(times));
    for (int i = 0; i < times; ++i) out += piece;
    return out;
}

// `depth` nested elements named `name` built through the DOM; returns the
// outermost, unlinked. The innermost holds the text `leaf` when not empty.
inline VQHANDLE chain(VQHANDLE doc, int depth, const char *name, const char *leaf = "") {
    auto element = [&] { return VQDOM_createElement(doc, VQDOM_createDS(doc, name)); };
    const VQHANDLE top = element();
    VQHANDLE inner = top;
    for (int i = 1; i < depth; ++i) inner = VQDOM_appendChild(inner, element());
    if (*leaf != '\0') VQDOM_appendChild(inner, VQDOM_createTextNode(doc, VQDOM_createDS(doc, leaf)));
    return top;
}

// Checks every link below `root`: each child is a live node naming its
// parent, the sibling chain runs both ways from the first to the last
// child, and every member of a map (attributes; a document type's entities
// and notations) is live and points back at that map. Attribute subtrees
// are checked too. Iterative: trees here go very deep.
inline ::testing::AssertionResult consistent(VQHANDLE root) {
    using vqxml::liveHandle;
    using vqxml::node;
    using vqxml::rec;
    std::vector<VQHANDLE> todo{root};
    while (!todo.empty()) {
        const VQHANDLE h = todo.back();
        todo.pop_back();
        if (vqxml::typedNode(h) == nullptr) return ::testing::AssertionFailure() << "dead node " << h;
        const Node *n = node(h);
        VQHANDLE prev = 0;
        for (VQHANDLE c = n->firstChild; c != 0; prev = c, c = node(c)->nextSibling) {
            if (vqxml::typedNode(c) == nullptr) return ::testing::AssertionFailure() << "dead child of " << h;
            if (node(c)->parentNode != h || node(c)->previousSibling != prev)
                return ::testing::AssertionFailure() << "bad links at child " << c;
            todo.push_back(c);
        }
        if (n->lastChild != prev) return ::testing::AssertionFailure() << "bad last child of " << h;
        std::vector<VQHANDLE> maps{n->attributes};
        if (n->nodeType == VQXML_DOCUMENT_TYPE_NODE) {
            maps.push_back(rec<DocumentType>(h)->entities);
            maps.push_back(rec<DocumentType>(h)->notations);
        }
        for (VQHANDLE map : maps) {
            if (!liveHandle(map)) continue;
            VQHANDLE prevItem = 0, it = rec<NamedNodeMap>(map)->firstItem;
            for (; it != 0; prevItem = it, it = rec<ListItem>(it)->nextItem) {
                if (!liveHandle(it)) return ::testing::AssertionFailure() << "dead item of map " << map;
                const ListItem *item = rec<ListItem>(it);
                if (item->previousItem != prevItem || vqxml::typedNode(item->node) == nullptr ||
                    node(item->node)->containingMap != map)
                    return ::testing::AssertionFailure() << "bad map item " << it;
                if (node(item->node)->nodeType == VQXML_ATTRIBUTE_NODE) todo.push_back(item->node);
            }
            if (rec<NamedNodeMap>(map)->lastItem != prevItem)
                return ::testing::AssertionFailure() << "bad last item of map " << map;
        }
    }
    return ::testing::AssertionSuccess();
}

}  // namespace robust

#endif  // VQXML_TESTS_ROBUSTNESS_HELPERS_H
