// error_list.h - the two error lists (the DOM list and the main list; the
// codes are named in codes.h) and the functions that record into them.
#ifndef VQXML_STORE_ERROR_LIST_H
#define VQXML_STORE_ERROR_LIST_H

#include <cstdint>

#include "vqxml/store/codes.h"
#include "vqxml/vqxml.h"

extern "C" {

// DOM-code raisers; each sets last_dom_err and appends to the DOM list.
VQXML_API void errorIndexSize(int64_t length, int64_t offset);
VQXML_API void errorAlloc(const char *name, int64_t size);
VQXML_API void errorNoMoreDoc(void);
VQXML_API void errorNoMoreHandle(void);
// Checks the name held in a DS; on a bad character records code 5, deletes
// the DS and returns 1, else returns 0.
VQXML_API int invalidCharacterErr(VQHANDLE nameDS);

// Moves pending DOM errors to the main list, then appends there.
VQXML_API void addVqXmlError(int64_t code, const char *params);
// Joins three strings into a parameter text and records it.
VQXML_API void addVqXmlError3(int64_t code, const char *p1, const char *p2,
                              const char *p3);
// Moves every DOM record, oldest first, to the main list (see mainCode).
VQXML_API void checkDomError(void);

}  // extern "C"

namespace vqxml {

// Records a DOM code with a parameter text (may be null): sets
// last_dom_err and appends to the DOM list.
void domError(int32_t code, const char *params);

// Number of records currently held (for tests and diagnostics).
int32_t mainErrorCount();

// How many allocation failures errorAlloc has recorded since the process
// started: work that must not hand back a partial result (a parse) compares
// it before and after.
int64_t allocationFailures();
int32_t domErrorCount();

}  // namespace vqxml

#endif  // VQXML_STORE_ERROR_LIST_H
