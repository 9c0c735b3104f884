// source.h - input sources: a NUL-terminated text read one byte at a time,
// with line counting, CR/LF conversion, look-ahead, an awaited closing
// delimiter, and transparent expansion of parameter-entity and character
// references (only while `doctype` is set).
#ifndef VQXML_PARSER_SOURCE_H
#define VQXML_PARSER_SOURCE_H

#include <cstdint>

#include "vqxml/store/limits.h"
#include "vqxml/vqxml.h"

struct Source;

// One reference being expanded inside a source.
struct Expansion {
    const char *start;   // where the reference begins in the parent's text
    const char *resume;  // just behind the reference's ';'
    Source *child;       // delivers the replacement text
    Expansion *next;
};

struct Source {
    uint16_t current;        // the character being looked at; 0 = end
    char *text;              // owned text (null for a source without text)
    const char *cursor;      // next byte to read
    char *name;              // heap string: system id of an external entity
    int32_t line;            // line number, from 1
    int32_t external;        // text of an external entity or subset
    int32_t ownsText;        // deleteSource frees `text`
    Expansion *expansions;   // oldest first
    VQHANDLE document;       // where nodes and strings are created
    VQHANDLE doctype;        // entity lookups; 0 switches expansion off
    uint16_t awaited;        // closing quotation mark awaited, 0 = none
    int32_t delimiterSeen;   // the awaited mark was read at this level
    int32_t entitySource;    // counted among the entity sources alive at once
};

extern "C" {

VQXML_API Source *allocSource(char *text, int ownsText, VQHANDLE document);
VQXML_API Source *allocSourceEntity(VQHANDLE entity, VQHANDLE document);
VQXML_API void deleteSource(Source *source);
VQXML_API int getNextCh(Source *source);
VQXML_API int getNthCh(Source *source, int n);
VQXML_API Expansion *checkEntity(Source *source, const char *position);
VQXML_API VQHANDLE createEntity(VQHANDLE document, int flag, VQHANDLE name);
VQXML_API int checkNameStart(Source *source);
VQXML_API void addParseError(int32_t line, int64_t code, char *argument);
VQXML_API void addParseErrorDS(Source *source, int64_t code, VQHANDLE ds);

}  // extern "C"

namespace vqxml {

// The budgets of one parse call for work that entity references multiply:
// entity text read (through every level that passes it on) and bytes that
// copies add to document areas (an allowance plus a share per input byte).
// The figures are in limits.h.
//
// Entity sources open at once are bounded by kMaxOpenEntitySources and the
// bytes of entity text they read by kEntityTextAllowance plus
// kEntityTextPerInputByte for each byte the outermost scope allows for, a
// source's text counting once for every level it is read through. While a
// scope lives (a parse call) the byte count is not reset between references.
class EntityBudgetScope {
public:
    EntityBudgetScope();
    // Widens the bound of the outermost scope by the share of `inputBytes`
    // bytes of parsed text.
    void allowFor(int64_t inputBytes);
    ~EntityBudgetScope();
    EntityBudgetScope(const EntityBudgetScope &) = delete;
    EntityBudgetScope &operator=(const EntityBudgetScope &) = delete;
};

// The expansion record that starts at `position` of the source's text, or
// null.
Expansion *expansionAt(const Source *s, const char *position);
// getNextCh for CDATA sections: a CR is delivered as it is, not as a line
// end; expansions, lines and the awaited mark work as in getNextCh.
int getNextChKeepingCR(Source *source);

// Whether a source over `entity` may open now; when it may not, the refusal
// is recorded with `line` (where the reference stands).
bool entitySourceAllowed(int32_t line, VQHANDLE entity);

}  // namespace vqxml

#endif  // VQXML_PARSER_SOURCE_H
