// codes.h - the names of the library's error codes. The texts live in the
// message table (messages.cpp); this header only says which number means
// what, so that code, tests and fuzz targets can name a code instead of
// spelling its digits. Numbers are kept exactly as callers see them, gaps
// and oddities included.
#ifndef VQXML_STORE_CODES_H
#define VQXML_STORE_CODES_H

#include <cstdint>

// The names sit in an inline namespace of their own, so that a file can take
// all of them with `using namespace vqxml::codes;` and nothing else.
namespace vqxml {
inline namespace codes {

// ---- the DOM list (VQDOM_getError, VQDOM_getLastError) ----------------------
enum DomCode : int32_t {
    kIndexSizeErr = 1,          // offset or count outside a string
    kDomstringSizeErr = 2,
    kHierarchyRequestErr = 3,   // a node may not go where it was put
    kWrongDocumentErr = 4,      // a node of another document
    kInvalidCharacterErr = 5,   // a name with a character a name may not hold
    kNoDataAllowedErr = 6,
    kNoModificationAllowedErr = 7,
    kNotFoundErr = 8,           // the reference node is not a child
    kNotSupportedErr = 9,
    kInuseAttributeErr = 10,    // the attribute belongs to another element
    kAllocErr = 11,             // a heap block or an area could not grow
    kNullPointerErr = 12,
    kTooManyHandlesErr = 13,
    kTooManyDocumentsErr = 14,  // all 255 document numbers are taken
    kTooManyNodesErr = 15,      // the handle table of a document is full
};

// ---- the main list (VQXML_getError) -------------------------------------------
// A DOM record moves to the main list as its code plus this base; the base
// itself has an empty text.
constexpr int64_t kDomCodeBase = 1001700;
// The main-list code of a DOM record that has moved there.
constexpr int64_t mainCode(DomCode code) { return kDomCodeBase + code; }

// Handles, names and area images.
constexpr int64_t kInvalidHandle = 1001748;     // a handle that names nothing
constexpr int64_t kInvalidNodeType = 1001749;   // a node of another type than asked
constexpr int64_t kBadNameStart = 1001750;      // a name's first character
constexpr int64_t kBadNameCharacter = 1001755;  // a later character of a name
constexpr int64_t kBadDescCharacter = 1001756;
constexpr int64_t kBadAreaImage = 1001757;      // a loaded area image is damaged

// Models, queries and answers.
constexpr int64_t kIllegalParameter = 1001801;
constexpr int64_t kIllegalData = 1001802;
constexpr int64_t kParameterNotNumber = 1001803;
constexpr int64_t kDataNotNumber = 1001804;
constexpr int64_t kParameterMissing = 1001805;
constexpr int64_t kDataMissing = 1001806;
constexpr int64_t kTagnameDuplicated = 1001807;
constexpr int64_t kDescDuplicated = 1001808;
constexpr int64_t kOccurrenceNotMultiple = 1001809;
constexpr int64_t kParameterNeedsSubelement = 1001810;
constexpr int64_t kDataNeedsSubelement = 1001811;
constexpr int64_t kEnumerationValueIllegal = 1001812;
constexpr int64_t kDescNotInModel = 1001813;
constexpr int64_t kSubelementNotInQuery = 1001814;
constexpr int64_t kSubelementNotInAnswer = 1001815;
constexpr int64_t kParameterValueIllegal = 1001816;
constexpr int64_t kDataValueIllegal = 1001817;

// The parser; each text starts with the line number.
constexpr int64_t kEndTagLessExpected = 1001900;
constexpr int64_t kEndTagSlashExpected = 1001901;
constexpr int64_t kEndTagIllegalCharacter = 1001902;
constexpr int64_t kEndTagNameDifferent = 1001903;
constexpr int64_t kEndTagGreaterExpected = 1001904;
constexpr int64_t kUnknownReference = 1001905;
constexpr int64_t kSemicolonExpected = 1001906;
constexpr int64_t kQuoteExpected = 1001907;
constexpr int64_t kClosingQuoteExpected = 1001908;
constexpr int64_t kEqualExpected = 1001909;          // after an attribute name
constexpr int64_t kIllegalCharacter = 1001910;
constexpr int64_t kNameStartIllegal = 1001911;
constexpr int64_t kCommentEndMissing = 1001912;
constexpr int64_t kExpected = 1001913;               // "the given text expected"
constexpr int64_t kEqualAfterKeyword = 1001914;      // in the XML declaration
constexpr int64_t kLiteralUnterminated = 1001916;
constexpr int64_t kMixedSeparators = 1001917;        // '|' and ',' in one group
constexpr int64_t kEnumerationExpected = 1001918;
constexpr int64_t kEncodingCharacter = 1001919;
constexpr int64_t kAttTypeExpected = 1001920;
constexpr int64_t kGroupOpenExpected = 1001921;
constexpr int64_t kParticleExpected = 1001922;
constexpr int64_t kStringExpected = 1001925;
constexpr int64_t kValueExpected = 1001926;
constexpr int64_t kDeclarationExpected = 1001927;
constexpr int64_t kSpaceExpected = 1001930;
constexpr int64_t kReservedPiTarget = 1001931;       // a PI target spelling "xml"
constexpr int64_t kLessInValue = 1001932;
constexpr int64_t kCannotGetUrl = 1001933;           // external text is never fetched
constexpr int64_t kUndeclaredEntity = 1001934;
constexpr int64_t kPeNameExpected = 1001935;
constexpr int64_t kPeUndefined = 1001936;
constexpr int64_t kPeIllegalHere = 1001937;
constexpr int64_t kExternalInValue = 1001938;
// A literal that ends in another entity than it began in is recorded with
// the bare number, without the 1001000 of its neighbours, so it reads
// "error 1939"; the table's text under 1001939 is never shown for it.
constexpr int64_t kNotSameEntity = 1939;
constexpr int64_t kNotSameEntityText = 1001939;
constexpr int64_t kStartTagSyntax = 1001940;
constexpr int64_t kUnexpectedEnd = 1001941;
constexpr int64_t kEndTagMissing = 1001942;
constexpr int64_t kIllegalSequence = 1001943;
constexpr int64_t kElementsTooDeep = 1001944;        // see kMaxNesting
constexpr int64_t kExpansionTooLarge = 1001945;      // see kEntityTextAllowance
constexpr int64_t kEntitiesTooDeep = 1001946;        // see kMaxOpenEntitySources

}  // namespace codes
}  // namespace vqxml

#endif  // VQXML_STORE_CODES_H
