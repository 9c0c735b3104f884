// select.cpp - path selection. VQXML_selectSingleNode evaluates a small
// location path below a node at once; VQXML_selectNodes makes a live node
// list (mode 1) whose items are found on demand with a reduced form of the
// path (names and '/', nothing else).
//
// Paths are cut into tokens by nextXToken into one process-wide token
// record; selection is not re-entrant. A malformed path or a missing node
// simply selects nothing and records nothing; only running out of memory is
// recorded (code 11), so that a caller can tell it from "no such node". Every
// name and literal copied out of a path (an XValue) and every predicate node
// (an XExpr) is a dbg_malloc block that is freed before the call returns.
#include "vqxml/model/select.h"

#include <cstring>
#include <string_view>

#include "vqxml/dom/dom.h"
#include "vqxml/model/model.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/trace.h"

using namespace vqxml;

namespace {

// The current token and the read position behind it.
XToken x;
const char *xpath = nullptr;

// Reads the next token. A number too large for 32 bits is no token: the
// tokenizer would hand it over cut to its low bits, and 'item[4294967297]'
// must not select the first item.
void next() {
    const char *from = xpath;
    xpath = nextXToken(xpath, &x);
    if (x.kind != 2) return;
    while (*from == ' ' || *from == '\t') ++from;
    uint64_t value = 0;
    for (; from != xpath; ++from) {
        value = value * 10 + static_cast<uint64_t>(*from - '0');
        if (value > UINT32_MAX) {
            x.kind = -1;
            return;
        }
    }
}

bool atDelimiter(char c) { return x.kind == 3 && x.value == static_cast<unsigned char>(c); }
bool atEnd() { return x.kind == 0; }
bool atName() { return x.kind == 4; }
std::string_view tokenText() { return {x.start, x.value}; }

// The trace lines of XValues and XExprs show the address as %p prints it,
// without the "0x" that the store's own lines put in front.
void freeXValue(char *value, const char *function) {
    if (value == nullptr) return;
    VQXML_TRACE(2, "VQXML free   - (%s) addr: %p", function, static_cast<void *>(value));
    dbg_free(value);
}

// Owner of an XValue taken in VQXML_selectSingleNode.
struct StepName {
    char *text = allocXValue();
    ~StepName() { freeXValue(text, "selectSingleNode"); }
    StepName() = default;
    StepName(const StepName &) = delete;
    StepName &operator=(const StepName &) = delete;
};

// Owner of a predicate tree.
struct Predicate {
    XExpr *tree;
    ~Predicate() { freeXExpr(tree); }
};

// An inner predicate node over two sides; when a side is missing (or the
// node cannot be had) the other side is freed and there is no node.
XExpr *joinXExpr(int64_t kind, XExpr *left, XExpr *right) {
    XExpr *e = left != nullptr && right != nullptr ? allocXExpr() : nullptr;
    if (e == nullptr) {
        freeXExpr(left);
        freeXExpr(right);
        return nullptr;
    }
    e->kind = kind;
    e->left = left;
    e->right = right;
    return e;
}

XExpr *leafXExpr(char *value) {
    XExpr *e = value != nullptr ? allocXExpr() : nullptr;
    if (e == nullptr) {
        freeXValue(value, "xParseEqualityExpr");
        return nullptr;
    }
    e->value = value;
    return e;
}

bool isElementNamed(const Node *n, std::string_view name) {
    return n->nodeType == VQXML_ELEMENT_NODE && dsEquals(n->nodeName, name);
}

// The first child of `parent` that is an element named `name` and
// satisfies `expr` (when there is one), or 0.
VQHANDLE firstElementWhere(VQHANDLE parent, std::string_view name, const XExpr *expr) {
    VQHANDLE found = 0;
    forEachChild(parent, [&](VQHANDLE child, const Node *n) {
        if (isElementNamed(n, name) && (expr == nullptr || checkXE(child, expr))) found = child;
        return found == 0;
    });
    return found;
}

VQHANDLE firstTextChild(VQHANDLE parent) {
    VQHANDLE found = 0;
    forEachChild(parent, [&](VQHANDLE child, const Node *n) {
        if (n->nodeType == VQXML_TEXT_NODE) found = child;
        return found == 0;
    });
    return found;
}

// The final attribute step: '@' name and the end of the path.
VQHANDLE attributeStep(VQHANDLE context) {
    if (!atDelimiter('@')) return 0;
    next();
    if (!atName()) return 0;
    StepName name;
    if (name.text == nullptr) return 0;
    next();
    if (!atEnd()) return 0;
    return VQDOM_getAttributeNodeStr(context, name.text);
}

// A bracketed step after `name`; the current token is the one after '['.
// Returns the new context, 0 when nothing matches or the brackets are
// malformed. On return the token after ']' is current.
VQHANDLE bracketStep(VQHANDLE context, const char *name) {
    if (x.kind == 2) {
        const uint32_t position = x.value;
        next();
        if (!atDelimiter(']')) return 0;
        next();
        // Positions count from 1; [0] wraps to -1, which never matches.
        return VQXML_findChildElementStr(context, name, static_cast<int32_t>(position - 1));
    }
    Predicate predicate{xParseAndExpr()};
    if (predicate.tree == nullptr || !atDelimiter(']')) return 0;
    next();
    return firstElementWhere(context, name, predicate.tree);
}

// ---- selection lists ------------------------------------------------------

// Where the reduced path of a list leads: the matches are the element
// children of `parent` named by the last step (bytes [nameAt, nameAt +
// nameLength) of the path). `found` is false when no match can exist.
struct ListTarget {
    bool found = false;
    VQHANDLE parent = 0;
    uint32_t nameAt = 0;
    uint32_t nameLength = 0;
};

// Intermediate steps take the first element child of their name: the
// evaluation gives up at the first intermediate element whose remaining
// path yields nothing, so later elements of that name are never looked at.
// Iterative, so that a path of any number of steps costs no stack.
ListTarget followReducedPath(VQHANDLE node, const char *path) {
    ListTarget target;
    xpath = path;
    VQHANDLE context = node;
    for (;;) {
        if (asNode(context) == nullptr) return target;
        next();
        if (atDelimiter('/')) {
            context = getRootDocument(context);
            next();
        }
        if (!atName()) return target;
        const std::string_view name = tokenText();
        next();
        if (atEnd()) {
            target.found = true;
            target.parent = context;
            target.nameAt = static_cast<uint32_t>(name.data() - path);
            target.nameLength = static_cast<uint32_t>(name.size());
            return target;
        }
        if (!atDelimiter('/')) return target;
        context = firstElementWhere(context, name, nullptr);
        if (context == 0) return target;
    }
}

// Walks the element children of `parent` named `name`, behind the match
// `from` names (or from the first child when it names none), to the match
// numbered `wanted` or to the end of the chain. The bound on the chain
// counts from the first child, so that a walk resumed in the middle ends
// exactly where a fresh one would.
struct Walk {
    VQHANDLE at = 0;     // the last match reached, 0 for none
    uint32_t index = 0;  // its number
    int64_t steps = 0;   // sibling links from the first child to it
    bool ended = false;  // the chain ended before `wanted`
    uint32_t count = 0;  // matches counted when it ended
};

Walk walkMatches(VQHANDLE parent, std::string_view name, Walk from, uint32_t wanted) {
    const Node *p = asNode(parent);
    Walk w = from;
    const int64_t bound = walkBudget(parent);
    VQHANDLE c;
    uint32_t counted;  // matches before c
    if (from.at == 0) {
        c = p != nullptr ? p->firstChild : 0;
        w.steps = 0;
        counted = 0;
    } else {
        if (from.index == wanted) return from;
        c = node(from.at)->nextSibling;
        w.steps = from.steps + 1;
        counted = from.index + 1;
    }
    for (; w.steps < bound; ++w.steps) {
        const Node *n = chainNode(c);
        if (n == nullptr) break;
        if (isElementNamed(n, name)) {
            w.at = c;
            w.index = counted;
            if (counted == wanted) return w;
            ++counted;
        }
        c = n->nextSibling;
    }
    w.ended = true;
    w.count = counted;
    return w;
}

// Reading the items of a list one after the other would cost the square of
// their number if each were searched from the start. A cursor keeps the
// last answer of a list (and its length, once known) while no document has
// changed, and the next search goes on from there. A few lists can be read
// side by side.
struct ListCursor {
    VQHANDLE list = 0;
    uint64_t generation = 0;
    ListTarget target;
    Walk last;           // the last match reached, if any
    bool lengthKnown = false;
    uint32_t length = 0;
};

constexpr int kCursors = 8;
ListCursor cursors[kCursors];
int nextCursor = 0;

ListCursor &cursorFor(VQHANDLE list, VQHANDLE owner, const char *path) {
    for (ListCursor &c : cursors)
        if (c.list == list && c.generation == treeGeneration) return c;
    ListCursor &c = cursors[nextCursor];
    nextCursor = (nextCursor + 1) % kCursors;
    c = ListCursor{};
    c.list = list;
    c.generation = treeGeneration;
    c.target = followReducedPath(owner, path);
    return c;
}

// The text of a list's path, or null when the string block is not a
// terminated string (a handle that no longer names the list's path).
const char *listPath(VQHANDLE ds) {
    const std::string_view text = dsView(ds);
    if (!liveHandle(ds)) return nullptr;
    const auto *header = reinterpret_cast<const BlockHeader *>(text.data() - sizeof(BlockHeader));
    if (static_cast<int64_t>(text.size()) >= header->blockSize - int64_t{sizeof(BlockHeader)})
        return nullptr;
    return text.data();
}

}  // namespace

// ---- XValue and XExpr -------------------------------------------------------

extern "C" char *allocXValue(void) {
    const size_t length = x.kind == 1 || x.kind == 4 ? x.value : 0;
    char *value = static_cast<char *>(dbg_malloc(length + 1, "XValue"));
    VQXML_TRACE(2, "VQXML malloc - (allocXValue) addr: %p, (len: %d)", static_cast<void *>(value),
                static_cast<int>(length + 1));
    if (value == nullptr) {
        errorAlloc("XValue", static_cast<int64_t>(length + 1));
        return nullptr;
    }
    if (length != 0) std::memcpy(value, x.start, length);
    value[length] = '\0';
    return value;
}

extern "C" XExpr *allocXExpr(void) {
    auto *e = static_cast<XExpr *>(dbg_malloc(sizeof(XExpr), "XExpr"));
    VQXML_TRACE(2, "VQXML malloc - (allocXExpr) addr: %p, (len: %zu)", static_cast<void *>(e),
                sizeof(XExpr));
    if (e == nullptr) {
        errorAlloc("XExpr", sizeof(XExpr));
        return nullptr;
    }
    std::memset(e, 0, sizeof(XExpr));
    return e;
}

// A node goes before its sides, the right side before the left: that is
// the reverse of the order in which the parser took them, the order in
// which the accounting list finds blocks fastest. The "and" chains that the
// parser builds grow to the left and are followed without recursion; a
// right side is one equality.
extern "C" void freeXExpr(XExpr *expr) {
    while (expr != nullptr) {
        XExpr *left = expr->left;
        XExpr *right = expr->right;
        char *value = expr->kind == 0 ? expr->value : nullptr;
        VQXML_TRACE(2, "VQXML free   - (freeXExpr) addr: %p", static_cast<void *>(expr));
        dbg_free(expr);
        freeXExpr(right);
        freeXValue(value, "freeXExpr");
        expr = left;
    }
}

// ---- predicates -------------------------------------------------------------

extern "C" XExpr *xParseEqualityExpr(void) {
    if (!atDelimiter('@')) return nullptr;
    next();
    if (!atName()) return nullptr;
    char *name = allocXValue();
    if (name == nullptr) return nullptr;
    next();
    if (!atDelimiter('=')) {
        freeXValue(name, "xParseEqualityExpr");
        return nullptr;
    }
    next();
    if (x.kind != 1) {
        freeXValue(name, "xParseEqualityExpr");
        return nullptr;
    }
    char *literal = allocXValue();
    next();
    XExpr *left = leafXExpr(name);
    return joinXExpr(1, left, leafXExpr(literal));
}

extern "C" XExpr *xParseAndExpr(void) {
    XExpr *expr = xParseEqualityExpr();
    // "and" in any case, but no longer word: "andx" ends the predicate.
    while (expr != nullptr && atName() && mycmp("and", x.start, x.value) == 0) {
        next();
        expr = joinXExpr(2, expr, xParseEqualityExpr());
    }
    return expr;
}

// An equality holds when the attribute (its first 255 bytes) is present,
// not empty, and equal to the literal: an absent or empty attribute never
// matches, not even ''. The "and" chains that the parser builds grow to
// the left; they are followed without recursion.
extern "C" int checkXE(VQHANDLE element, const XExpr *expr) {
    for (;;) {
        if (expr == nullptr) return 0;
        if (expr->kind == 2) {
            if (!checkXE(element, expr->right)) return 0;
            expr = expr->left;
            continue;
        }
        if (expr->kind != 1 || expr->left == nullptr || expr->right == nullptr) return 0;
        const char *name = expr->left->value;
        const char *literal = expr->right->value;
        if (name == nullptr || literal == nullptr) return 0;
        char value[256];
        VQDOM_getAttributeStr(element, name, value, sizeof value);
        return value[0] != '\0' && std::strcmp(value, literal) == 0;
    }
}

// ---- single nodes -----------------------------------------------------------

extern "C" VQHANDLE VQXML_selectSingleNode(VQHANDLE node, const char *path) {
    if (path == nullptr) return 0;
    xpath = path;
    VQHANDLE context = node;
    next();
    for (;;) {
        if (asNode(context) == nullptr) return 0;
        if (atDelimiter('/')) {
            // A path that starts at the root, or "//" inside one: the
            // steps begin again at the document.
            context = getRootDocument(context);
            next();
        }
        if (x.kind == 3) return attributeStep(context);
        if (!atName()) return 0;
        StepName name;
        if (name.text == nullptr) return 0;
        next();
        if (atDelimiter('[')) {
            next();
            context = bracketStep(context, name.text);
        } else if (atDelimiter('(')) {
            if (mycmp("text", name.text, static_cast<uint32_t>(std::strlen(name.text))) != 0)
                return 0;
            next();
            if (!atDelimiter(')')) return 0;
            next();
            return atEnd() ? firstTextChild(context) : 0;
        } else {
            context = VQXML_findChildElementStr(context, name.text, 0);
        }
        if (atEnd()) return context;
        if (!atDelimiter('/')) return 0;
        next();
    }
}

// ---- selection lists --------------------------------------------------------

extern "C" VQHANDLE VQXML_selectNodes(VQHANDLE node, const char *path) {
    if (path == nullptr || asNode(node) == nullptr) return 0;
    const VQHANDLE list = createNodeList(node);
    if (!liveHandle(list)) return 0;
    const VQHANDLE text = VQDOM_createDS(node, path);
    if (text == 0) {
        myFree(list);
        return 0;
    }
    NodeList *fresh = rec<NodeList>(list);
    fresh->tagName = text;
    fresh->count = 0;
    fresh->mode = 1;
    // Into the node's chain of lists: behind its first list, or as the first.
    Node *owner = asNode(node);
    if (NodeList *head = aux<NodeList>(owner->childNodes)) {
        fresh->nextList = head->nextList;
        head->nextList = list;
    } else {
        owner->childNodes = list;
    }
    return list;
}

extern "C" VQHANDLE selectSingleNodeIndex(VQHANDLE node, const char *path, uint32_t wanted,
                                          uint32_t *counter) {
    if (path == nullptr) return 0;
    const ListTarget target = followReducedPath(node, path);
    if (!target.found) return 0;
    const Walk w = walkMatches(target.parent, {path + target.nameAt, target.nameLength}, Walk{},
                               wanted);
    if (counter != nullptr) *counter += w.ended ? w.count : wanted;
    return w.ended ? 0 : w.at;
}

extern "C" VQHANDLE findItemX(VQHANDLE list, uint32_t wanted) {
    const NodeList *l = aux<NodeList>(list);
    if (l == nullptr) return 0;
    const char *path = listPath(l->tagName);
    if (path == nullptr || asNode(l->owner) == nullptr) return 0;
    ListCursor &c = cursorFor(list, l->owner, path);
    if (!c.target.found) return 0;
    uint32_t &counter = aux<NodeList>(list)->count;
    if (c.lengthKnown && wanted >= c.length) {
        counter = c.length;
        return 0;
    }
    const std::string_view name(path + c.target.nameAt, c.target.nameLength);
    // Resume from the last answer when it lies before the wanted match.
    const Walk from = c.last.at != 0 && c.last.index <= wanted ? c.last : Walk{};
    const Walk w = walkMatches(c.target.parent, name, from, wanted);
    if (w.ended) {
        c.lengthKnown = true;
        c.length = w.count;
        counter = w.count;
        return 0;
    }
    c.last = w;
    counter = wanted;
    return w.at;
}
