// walk.h - the walks over the nodes of one document that every layer uses:
// the next node in document order, the next node outside a subtree, and the
// gathering of the text that makes up an attribute value. Each walk counts
// its steps and stops, reporting "too many steps", once it has taken more
// than a sound tree could need, so a tree that a damaged area image or a
// caller fault has linked into a loop still ends in bounded time.
//
// Use. A loop over a sibling chain takes a StepBound for the document and
// calls take() once per step:
//
//     StepBound steps(parent);
//     for (VQHANDLE c = first; c != 0 && steps.take(); c = next(c)) ...
//
// A pre-order walk below `root` asks a TreeWalk for each next node and
// decides itself whether to enter a node's children:
//
//     TreeWalk walk(root);
//     for (VQHANDLE h = walk.first(); h != 0; h = walk.next(h, enter(h))) ...
//     if (walk.tooManySteps()) ... the tree is damaged ...
//
// Neither records anything; what a caller does about a walk that ran out
// of steps is the caller's decision.
#ifndef VQXML_STORE_WALK_H
#define VQXML_STORE_WALK_H

#include <cstdint>

#include "vqxml/store/area.h"
#include "vqxml/store/node.h"
#include "vqxml/vqxml.h"

extern "C" {

// Appends the text of `node` (a text node, or an entity reference with the
// text inside it at any depth) to *valueDS, making it when it is 0. Returns
// 1, or 0 when `node` is no node, something else than text and references
// lies below it, or the text could not be stored.
VQXML_API int getAttChildValue(VQHANDLE node, VQHANDLE *valueDS);

}  // extern "C"

namespace vqxml {

// The most steps a walk over the nodes of the document of `h` may take: its
// live-object count (`dbgHandles` of the area head). No sound chain or tree
// in the document has more nodes than that.
inline int64_t walkBudget(VQHANDLE h) {
    const DocArea *a = docHead[h & 255];
    return a != nullptr && a->dbgHandles > 0 ? a->dbgHandles : 0;
}

// A count of steps for one walk in the document of `h`: `perNode` steps for
// each live object.
class StepBound {
public:
    explicit StepBound(VQHANDLE h, int64_t perNode = 1) : left_(perNode * walkBudget(h)) {}
    // Takes a step; false (and from then on tooManySteps()) once none is left.
    bool take() {
        if (left_ > 0) {
            --left_;
            return true;
        }
        exhausted_ = true;
        return false;
    }
    bool tooManySteps() const { return exhausted_; }

private:
    int64_t left_;
    bool exhausted_ = false;
};

// A pre-order walk of the subtree below `root`. It steps only on plausible
// nodes of root's document (see typedNode): a link to anything else ends
// the chain it is in, as the end of that chain would. Entering a node and
// leaving it take one step each, so a whole subtree costs at most twice the
// document's live objects.
class TreeWalk {
public:
    explicit TreeWalk(VQHANDLE root) : root_(root), steps_(root, 2) {}

    // The record of `h` when the walk may step on it, else null.
    Node *at(VQHANDLE h) const {
        return (h & 255) == (root_ & 255) ? typedNode(h) : nullptr;
    }

    // The first node of the walk: root's first child (0 when it has none).
    // Every handle the walk hands out has passed at(), so a caller may read
    // its record with node() until it deletes the node.
    VQHANDLE first() {
        const Node *r = at(root_);
        return r != nullptr && at(r->firstChild) != nullptr ? enter(r->firstChild) : 0;
    }

    // The node after `cur` in document order below root: its first child
    // when `descend` is set and it has one, else nextOutside(cur).
    [[gnu::always_inline]] VQHANDLE next(VQHANDLE cur, bool descend) {
        const Node *n = at(cur);
        if (n == nullptr) return 0;
        if (descend && at(n->firstChild) != nullptr) return enter(n->firstChild);
        return outside(cur, n);
    }

    // The node after `cur` in document order below root that is not inside
    // `cur`: its next sibling, else the next sibling of the nearest
    // ancestor below root that has one; 0 at the end of root's subtree (and
    // at once when `cur` is root).
    VQHANDLE nextOutside(VQHANDLE cur) {
        const Node *n = at(cur);
        return n != nullptr ? outside(cur, n) : 0;
    }

    // True when the walk ended because it ran out of steps.
    bool tooManySteps() const { return steps_.tooManySteps(); }

private:
    VQHANDLE enter(VQHANDLE h) { return h != 0 && steps_.take() ? h : 0; }

    VQHANDLE outside(VQHANDLE cur, const Node *n) {
        if (cur == root_) return 0;
        for (;;) {
            if (at(n->nextSibling) != nullptr) return enter(n->nextSibling);
            if (!steps_.take()) return 0;
            cur = n->parentNode;
            if (cur == root_ || (n = at(cur)) == nullptr) return 0;
        }
    }

    VQHANDLE root_;
    StepBound steps_;
};

// Calls visit(valueDS) for the pieces of text that make up a value, in
// document order: the walk starts at `first`, which is `root` itself or
// lies below it, and takes text nodes and the text inside entity
// references at any depth (a text node without a value adds nothing).
// Returns false when a node of another kind ends the walk early, when
// visit returns false, or when the walk runs out of steps; true otherwise.
// The walk follows parent links back up, so nesting depth costs no stack.
template <typename Visit>
bool forEachValueText(VQHANDLE root, VQHANDLE first, Visit &&visit) {
    TreeWalk walk(root);
    if (walk.at(first) == nullptr) return true;
    for (VQHANDLE cur = first; cur != 0;) {
        const Node *n = node(cur);
        const bool reference = n->nodeType == VQXML_ENTITY_REFERENCE_NODE;
        if (n->nodeType == VQXML_TEXT_NODE) {
            if (n->nodeValue != 0 && !visit(n->nodeValue)) return false;
        } else if (!reference) {
            return false;
        }
        cur = walk.next(cur, reference);
    }
    return !walk.tooManySteps();
}

}  // namespace vqxml

#endif  // VQXML_STORE_WALK_H
