// query.h - library-internal parts of query and answer building: the path
// walker, the builders and the mandatory check (C names, exported), and the
// C++ building blocks they share with the readers: the value check and
// conversion by type, and the index that answers child lookups during one
// call.
#ifndef VQXML_MODEL_QUERY_H
#define VQXML_MODEL_QUERY_H

#include <cstdint>
#include <string_view>

#include "vqxml/store/codes.h"
#include "vqxml/vqxml.h"

extern "C" {

// Follows the DESC components of `path` before its last '.' from *model
// through the model and from *target through the query or answer (creating
// missing elements when `create` is set). Faults set *errorFlag and are
// recorded; a component that names no item leaves *model at 0. Returns the
// last component.
VQXML_API const char *followPath(const char *path, VQHANDLE *model, VQHANDLE *target,
                                 int *errorFlag, int32_t kind, int create);
// Stores every entry of a null-terminated entry list below target; 1 when
// anything was recorded, else 0.
VQXML_API int appendParams(VQHANDLE modelSection, VQHANDLE target, const char **entries,
                           int32_t kind);
// Checks and stores the value of one entry (path NUL value NUL) for the
// model item; `last` is the path's last component. 1 when anything was
// recorded, else 0.
VQXML_API int appendParam(VQHANDLE modelItem, VQHANDLE target, const char *last,
                          int32_t kind, const char *entry);
// 1 (and recorded) when a mandatory leaf below modelElement has no
// occurrence below target.
VQXML_API int checkMandatoryParams(VQHANDLE modelElement, VQHANDLE target, int32_t kind);

}  // extern "C"

namespace vqxml {

// Section kinds; message codes come in pairs base + kind.
constexpr int32_t kParameters = 0;
constexpr int32_t kData = 1;

// Codes recorded as base + kind. Two of them are paired off by one with
// their wording, and callers match on the codes: a group given a value is
// kDataNeedsSubelement for a parameter and kEnumerationValueIllegal for
// data; a value outside an enumeration is kEnumerationValueIllegal for a
// parameter and kDescNotInModel for data.
constexpr int64_t kGroupGivenValue = kDataNeedsSubelement;
constexpr int64_t kNotInEnumeration = kEnumerationValueIllegal;

// ---- values by type ------------------------------------------------------------

// The outcome of checking one value against its item's type.
enum class Verdict {
    kAccepted,       // `stored` holds the value to store
    kGroup,          // the item has no type text: it is a group
    kNotNumber,
    kNotInValues,
    kIllegalForType, // time and gyr
    kNoMemory,       // the VALUES copy could not be taken (recorded)
};

// Checks `value` for a model item whose type text is `type`; on acceptance
// `stored` points at the text to store (the value itself, or a converted
// text that lives until the next conversion).
Verdict checkValue(VQHANDLE item, std::string_view type, const char *value, const char **stored);

// The display form of a stored value of type `type` ("time", "gyr"): writes
// it to `out` (at least 32 bytes) and returns true, or returns false when the
// stored value is shown unchanged.
bool displayValue(std::string_view type, std::string_view stored, char *out);

// ---- lookups during one call ------------------------------------------------------

// While one lives (a builder call), element children are looked up by tag
// name and items by DESC through an index built from one walk of each parent
// asked about. The caller promises that nothing but the library's own
// appends (reported through noteAppended) changes the trees involved while
// it lives. Without a live scope, or when the index cannot get memory, the
// lookups walk the tree; the answers are the same either way.
class LookupScope {
public:
    LookupScope();
    ~LookupScope();
    LookupScope(const LookupScope &) = delete;
    LookupScope &operator=(const LookupScope &) = delete;
};

// The n-th (from 0) element child of parent named `tag`, or 0.
VQHANDLE namedChild(VQHANDLE parent, std::string_view tag, long n);
// Whether parent has an element child named `tag`.
inline bool hasNamedChild(VQHANDLE parent, std::string_view tag) {
    return namedChild(parent, tag, 0) != 0;
}
// The first element child of parent whose DESC (its first 255 bytes) is
// `desc`, or 0.
VQHANDLE descChild(VQHANDLE parent, const char *desc);
// Tells the index that `child` was appended as the last child of `parent`.
void noteAppended(VQHANDLE parent, VQHANDLE child);

// Element children of a node in order, bounded by the number of live
// objects of its document so that a damaged sibling chain still ends.
class ElementChildren {
public:
    explicit ElementChildren(VQHANDLE parent);
    // The next element child, or 0 at the end.
    VQHANDLE next();

private:
    VQHANDLE cur_;
    int64_t left_;
};

// The tag name of an element (empty for anything else).
std::string_view tagOf(VQHANDLE element);

}  // namespace vqxml

#endif  // VQXML_MODEL_QUERY_H
