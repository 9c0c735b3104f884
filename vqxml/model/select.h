// select.h - library-internal parts of path selection: the predicate trees
// and the evaluation of selection lists (node lists of mode 1).
#ifndef VQXML_MODEL_SELECT_H
#define VQXML_MODEL_SELECT_H

#include <cstdint>

#include "vqxml/vqxml.h"

// A predicate tree node (32 bytes, taken with dbg_malloc as "XExpr").
struct XExpr {
    int64_t kind;   // 0 leaf, 1 equality, 2 and
    XExpr *left;
    XExpr *right;
    char *value;    // leaves: the attribute name or the literal (an XValue)
};
static_assert(sizeof(XExpr) == 32, "XExpr is 32 bytes");

extern "C" {

// A NUL-terminated copy of the current path token's text ("XValue"), or
// null when the block cannot be had.
VQXML_API char *allocXValue(void);
// A zeroed predicate node, or null.
VQXML_API XExpr *allocXExpr(void);
// Frees a predicate tree with the values of its leaves; null is allowed.
VQXML_API void freeXExpr(XExpr *expr);
// Predicate parsers over the current path token: one equality
// ('@' name '=' literal), and equalities joined by "and". Null when the
// text has another shape; the token after the predicate is current then.
VQXML_API XExpr *xParseEqualityExpr(void);
VQXML_API XExpr *xParseAndExpr(void);
// 1 when the predicate holds on the element.
VQXML_API int checkXE(VQHANDLE element, const XExpr *expr);

// The match numbered `wanted` (from 0) of a selection list's path below
// the list's owner, or 0; the list's counter is left as the evaluation
// leaves it (the number of matches when `wanted` is never reached).
VQXML_API VQHANDLE findItemX(VQHANDLE list, uint32_t wanted);
// The same evaluation for a node and a path, counting in *counter.
VQXML_API VQHANDLE selectSingleNodeIndex(VQHANDLE node, const char *path, uint32_t wanted,
                                         uint32_t *counter);

}  // extern "C"

#endif  // VQXML_MODEL_SELECT_H
