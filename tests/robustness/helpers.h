// helpers.h - small helpers shared by the robustness suites: printing a node
// into a string, counting live areas and blocks, and building deep trees.
#ifndef VQXML_TESTS_ROBUSTNESS_HELPERS_H
#define VQXML_TESTS_ROBUSTNESS_HELPERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace robust {

// The compact serialization of a node (a fragment: of its children).
inline std::string print(VQHANDLE node) {
    if (VQDOM_getNodeType(node) == VQXML_DOCUMENT_FRAGMENT_NODE) {
        std::string all;
        for (VQHANDLE c = VQDOM_getFirstChild(node); c != 0; c = VQDOM_getNextSibling(c)) all += print(c);
        return all;
    }
    const int32_t need = VQXML_printNode(node, nullptr, 0);
    std::vector<char> out(static_cast<size_t>(need) + 1);
    VQXML_printNode(node, out.data(), static_cast<int32_t>(out.size()));
    return std::string(out.data(), static_cast<size_t>(need));
}

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

// `depth` nested elements named `name` built through the DOM; returns the
// outermost, unlinked. The innermost holds the text `leaf` when not empty.
inline VQHANDLE chain(VQHANDLE doc, int depth, const char *name, const char *leaf = "") {
    VQHANDLE top = 0;
    VQHANDLE inner = 0;
    for (int i = 0; i < depth; ++i) {
        const VQHANDLE e = VQDOM_createElement(doc, VQDOM_createDS(doc, name));
        if (top == 0) {
            top = e;
        } else {
            VQDOM_appendChild(inner, e);
        }
        inner = e;
    }
    if (*leaf != '\0') VQDOM_appendChild(inner, VQDOM_createTextNode(doc, VQDOM_createDS(doc, leaf)));
    return top;
}

// Checks the links of everything below `root` (iteratively): each child
// names its parent, sibling links agree both ways, the parent's first and
// last child are the ends of the chain, and every member of an attribute
// map points back at that map. Returns an empty text when all holds, else
// what broke first.
inline std::string checkTree(VQHANDLE root) {
    using vqxml::liveHandle;
    using vqxml::node;
    if (vqxml::typedNode(root) == nullptr) return "root is no node";
    VQHANDLE cur = root;
    for (;;) {
        const Node *n = node(cur);
        VQHANDLE prev = 0;
        for (VQHANDLE c = n->firstChild; c != 0; c = node(c)->nextSibling) {
            if (vqxml::typedNode(c) == nullptr) return "dead child " + std::to_string(c);
            if (node(c)->parentNode != cur) return "child without its parent " + std::to_string(c);
            if (node(c)->previousSibling != prev) return "broken previous link " + std::to_string(c);
            prev = c;
        }
        if (n->lastChild != prev) return "last child is not the end " + std::to_string(cur);
        if (liveHandle(n->attributes)) {
            const auto *map = vqxml::rec<NamedNodeMap>(n->attributes);
            VQHANDLE before = 0;
            for (VQHANDLE it = map->firstItem; it != 0; it = vqxml::rec<ListItem>(it)->nextItem) {
                if (!liveHandle(it)) return "dead map item";
                const ListItem *item = vqxml::rec<ListItem>(it);
                if (item->previousItem != before) return "broken item link";
                if (vqxml::typedNode(item->node) == nullptr) return "dead map member";
                if (node(item->node)->containingMap != n->attributes) return "member without its map";
                before = it;
            }
            if (map->lastItem != before) return "map end is wrong";
        }
        // Next in pre-order below root.
        if (n->firstChild != 0) {
            cur = n->firstChild;
            continue;
        }
        while (cur != root && node(cur)->nextSibling == 0) cur = node(cur)->parentNode;
        if (cur == root) return "";
        cur = node(cur)->nextSibling;
    }
}

}  // namespace robust

#endif  // VQXML_TESTS_ROBUSTNESS_HELPERS_H
