// beautify.cpp - indentation as text nodes: adding it to a tree
// (VQXML_beautifyElement, beautifyElement2), removing it again
// (VQXML_unBeautifyElement), and printing a node indented by the
// pretty-printer after stripping what indentation the tree holds.
//
// Indentation text is CR LF and blanks: two blanks more per level while the
// level is below 59; from 59 on the children keep their parent's level, and
// the blank run never exceeds 62 bytes. Unlike the pretty-printer, which only
// writes the layout, these calls change the tree; a tree beautified and
// unbeautified again is the tree it was.
//
// Depth: every walk here goes down first-child links and back up parent
// links, never by recursion, so any nesting costs constant stack; each walk
// takes at most two steps per object the document held when it began.
#include <cstring>

#include "vqxml/dom/printer.h"
#include "vqxml/model/model.h"
#include "vqxml/store/dom_string.h"

namespace {

using vqxml::chainNode;
using vqxml::forEachChild;
using vqxml::liveNode;
using vqxml::walkBudget;

constexpr int32_t kKeepLevelFrom = 59;
constexpr int32_t kMaxBlanks = 62;

bool isElement(const Node *n) { return n != nullptr && n->nodeType == VQXML_ELEMENT_NODE; }

// The level of the children of an element at `level`.
int32_t childLevel(int32_t level) { return level < kKeepLevelFrom ? level + 2 : level; }

// The level `depth` generations below an element at `level`.
int32_t levelBelow(int32_t level, int64_t depth) {
    if (level >= kKeepLevelFrom) return level;
    const int64_t steps = (kKeepLevelFrom - static_cast<int64_t>(level) + 1) / 2;
    return static_cast<int32_t>(level + 2 * (depth < steps ? depth : steps));
}

// A new Text node of CR LF and `blanks` blanks (cut to 0..62), or with no
// text at all when `empty`.
VQHANDLE indentText(VQHANDLE document, int32_t blanks, bool empty = false) {
    char text[2 + kMaxBlanks + 1] = "\r\n";
    const int32_t n = blanks < 0 ? 0 : (blanks > kMaxBlanks ? kMaxBlanks : blanks);
    std::memset(text + 2, ' ', static_cast<size_t>(n));
    text[2 + n] = '\0';
    return VQDOM_createTextNode(document, VQDOM_createDS(document, empty ? "" : text));
}

// Only elements whose children are all elements or comments (and that have
// any) are indented: mixed content stays as it is.
bool indentable(VQHANDLE element) {
    const Node *e = liveNode(element);
    if (!isElement(e) || e->firstChild == 0) return false;
    bool onlyMarkup = true;
    forEachChild(element, [&](VQHANDLE, const Node *c) {
        onlyMarkup = c->nodeType == VQXML_ELEMENT_NODE || c->nodeType == VQXML_COMMENT_NODE;
        return onlyMarkup;
    });
    return onlyMarkup;
}

// Mixed content: a CDATA section, or text with anything but blanks, tabs
// and line ends.
bool holdsContent(VQHANDLE element) {
    bool mixed = false;
    forEachChild(element, [&](VQHANDLE, const Node *c) {
        if (c->nodeType == VQXML_CDATA_SECTION_NODE) mixed = true;
        if (c->nodeType == VQXML_TEXT_NODE)
            for (char ch : vqxml::dsView(c->nodeValue))
                if (ch != ' ' && ch != '\t' && ch != '\r' && ch != '\n') mixed = true;
        return !mixed;
    });
    return mixed;
}

// Deletes the Text children of an element that holds no content of its own.
void stripIndentation(VQHANDLE element) {
    if (holdsContent(element)) return;
    forEachChild(element, [&](VQHANDLE child, const Node *c) {
        if (c->nodeType == VQXML_TEXT_NODE && VQDOM_removeChild(element, child) == child)
            VQDOM_deleteNode(child);
        return true;
    });
}

}  // namespace

extern "C" {

// Before each child the inner text, after the last one the parent's own
// indentation (the children's level less two), so that the end tag lines up.
void VQXML_beautifyElement(VQHANDLE element, int32_t level) {
    if (!indentable(element)) return;
    const VQHANDLE document = getRootDocument(element);
    VQHANDLE e = element;
    int64_t depth = 0;
    VQHANDLE c = liveNode(e)->firstChild;
    for (int64_t budget = 2 * walkBudget(element) + 2; budget > 0; --budget) {
        const int32_t inner = childLevel(levelBelow(level, depth));
        if (const Node *cn = chainNode(c)) {
            const VQHANDLE next = cn->nextSibling;
            const bool descend = indentable(c);
            VQDOM_insertBefore(e, indentText(document, inner), c);
            if (descend) {
                e = c;
                ++depth;
                c = liveNode(e)->firstChild;
            } else {
                c = next;
            }
            continue;
        }
        VQDOM_appendChild(e, indentText(document, inner - 2));
        const Node *en = liveNode(e);
        if (e == element || en == nullptr) return;
        c = en->nextSibling;
        e = en->parentNode;
        --depth;
    }
}

void VQXML_beautifyDocument(VQHANDLE document) {
    VQXML_beautifyElement(VQDOM_getDocumentElement(document), 0);
}

// Every element with children, mixed content included, gets one last Text
// child of CR LF and its children's indentation (an empty one when that is
// 0); nothing is put before the children.
void beautifyElement2(VQHANDLE node, int32_t level) {
    const Node *root = liveNode(node);
    if (!isElement(root) || root->firstChild == 0) return;
    const VQHANDLE document = getRootDocument(node);
    VQHANDLE e = node;
    int64_t depth = 0;
    VQHANDLE c = root->firstChild;
    for (int64_t budget = 2 * walkBudget(node) + 2; budget > 0; --budget) {
        if (const Node *cn = chainNode(c)) {
            if (isElement(cn) && cn->firstChild != 0) {
                e = c;
                ++depth;
                c = cn->firstChild;
            } else {
                c = cn->nextSibling;
            }
            continue;
        }
        const int32_t inner = childLevel(levelBelow(level, depth));
        VQDOM_appendChild(e, indentText(document, inner, inner == 0));
        const Node *en = liveNode(e);
        if (e == node || en == nullptr) return;
        c = en->nextSibling;
        e = en->parentNode;
        --depth;
    }
}

// Text children go from every element that holds no content of its own;
// the walk goes on into the element children of every element, mixed or
// not.
void VQXML_unBeautifyElement(VQHANDLE element) {
    if (liveNode(element) == nullptr) return;
    stripIndentation(element);
    vqxml::TreeWalk walk(element);
    for (VQHANDLE h = walk.first(); h != 0;) {
        const bool descend = isElement(vqxml::node(h));
        if (descend) stripIndentation(h);
        h = walk.next(h, descend);
    }
}

void VQXML_unBeautifyDocument(VQHANDLE document) {
    VQXML_unBeautifyElement(VQDOM_getDocumentElement(document));
}

// Changes the tree: its indentation text is removed before it is printed.
int32_t VQXML_printBeautifyNode(VQHANDLE node, char *buffer, int32_t size) {
    if (validHandle(node) == 0) return 0;
    VQXML_unBeautifyElement(node);
    char *cursor = buffer;
    return printNodeBeatifyEx(node, &cursor, size, 0);
}

}  // extern "C"
