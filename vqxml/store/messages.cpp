// messages.cpp - the message table and the rendering of an error record
// into text. Placeholders "&01", "&02", "&03" take the '|'-separated fields
// of the record's parameter text.
#include <cstdio>
#include <cstring>

#include "vqxml/store/codes.h"
#include "vqxml/store/error_list.h"

namespace vqxml {
namespace {

struct Message {
    int32_t code;
    const char *text;
};

// In ascending code order, ended by code 0. The texts are the library's
// vocabulary and are kept exactly as they stand, quirks included.
constexpr Message kMessages[] = {
    {kDomCodeBase, ""},
    {mainCode(kIndexSizeErr), "DOM error: INDEX_SIZE_ERR stringsize: &01, offset: &01"},
    {mainCode(kDomstringSizeErr), "DOM error: DOMSTRING_SIZE_ERR"},
    {mainCode(kHierarchyRequestErr), "DOM error: HIERARCHY_REQUEST_ERR"},
    {mainCode(kWrongDocumentErr), "DOM error: WRONG_DOCUMENT_ERR"},
    {mainCode(kInvalidCharacterErr), "DOM error: INVALID_CHARACTER_ERR character \"&01\" invalid in name \"&02\""},
    {mainCode(kNoDataAllowedErr), "DOM error: NO_DATA_ALLOWED_ERR"},
    {mainCode(kNoModificationAllowedErr), "DOM error: NO_MODIFICATION_ALLOWED_ERR"},
    {mainCode(kNotFoundErr), "DOM error: NOT_FOUND_ERR"},
    {mainCode(kNotSupportedErr), "DOM error: NOT_SUPPORTED_ERR, data type \"&01\" unsupported"},
    {mainCode(kInuseAttributeErr), "DOM error: INUSE_ATTRIBUTE_ERR"},
    {mainCode(kAllocErr), "DOM error: cannot allocate \"&01\" (size: &02)"},
    {mainCode(kNullPointerErr), "DOM error: function \"&01\" called with null pointer"},
    {mainCode(kTooManyHandlesErr), "DOM error: The maximum number of 256 DOM handles was exceeded in function '&01'."},
    {mainCode(kTooManyDocumentsErr), "DOM error: The maximum number of 255 DOM Documents was exceeded."},
    {mainCode(kTooManyNodesErr), "DOM error: The maximum number of 16 777 215 nodes in a document was exceeded."},
    {kInvalidHandle, "invalid node handle detected: &01"},
    {kInvalidNodeType, "invalid nodetype detected: &01, should be &02"},
    {kBadNameStart, "invalid character as namestart: &01"},
    {kBadNameCharacter, "invalid character in name: &01"},
    {kBadDescCharacter, "invalid character in DESC: &01"},
    {kBadAreaImage, "invalid document area image: &01"},
    {kIllegalParameter, "illegal parameter: \"&01\""},
    {kIllegalData, "illegal data: \"&01\""},
    {kParameterNotNumber, "parameter \"&01\": number required"},
    {kDataNotNumber, "data \"&01\": number required"},
    {kParameterMissing, "mandatory parameter \"&01\" missing from Document \"&02\""},
    {kDataMissing, "mandatory data \"&01\" missing from Document \"&02\""},
    {kTagnameDuplicated, "tagname \"&01\" duplicated"},
    {kDescDuplicated, "DESC \"&01\" duplicated in tags \"&02\" and \"&03\""},
    {kOccurrenceNotMultiple, "OCCURENCE of DESC=\"&01\" is not MULTIPLE"},
    {kParameterNeedsSubelement, "parameter \"&01\": subelement required"},
    {kDataNeedsSubelement, "data \"&01\": subelement required"},
    {kEnumerationValueIllegal, "data \"&01\": enumeration value \"&02\" illegal"},
    {kDescNotInModel, "DESC \"&01\" not found in model \"&02\""},
    {kSubelementNotInQuery, "cannot find subelement \"&01\" in query \"&02\""},
    {kSubelementNotInAnswer, "cannot find subelement \"&01\" in answer \"&02\""},
    {kParameterValueIllegal, "parameter \"&01\": value \"&02\" is illegal for type \"&03\""},
    {kDataValueIllegal, "data \"&01\": value \"&02\" is illegal for type \"&03\""},
    {kEndTagLessExpected, "line &01: endtag of \"&02\": \"<\" expected"},
    {kEndTagSlashExpected, "line &01: endtag of \"&02\": \"/\" expected"},
    {kEndTagIllegalCharacter, "line &01: endtag of \"&02\": illegal character"},
    {kEndTagNameDifferent, "line &01: endtag of \"&02\": name different"},
    {kEndTagGreaterExpected, "line &01: endtag of \"&02\": \">\" expected"},
    {kUnknownReference, "line &01: unknown reference"},
    {kSemicolonExpected, "line &01: \";\" expected on end of a reference"},
    {kQuoteExpected, "line &01: attribute \"&02\": quotation mark expected"},
    {kClosingQuoteExpected, "line &01: attribute \"&02\": closing quotation mark expected"},
    {kEqualExpected, "line &01: attribute \"&02\": \"=\" expected"},
    {kIllegalCharacter, "line &01: illegal character (&02)"},
    {kNameStartIllegal, "line &01: name begins with illegal character (&02)"},
    {kCommentEndMissing, "line &01: end of Comment not found"},
    {kExpected, "line &01: \"&02\" expected"},
    {kEqualAfterKeyword, "line &01: &02: \"=\" expected"},
    {kLiteralUnterminated, "line &01: missing end of string or character \"&02\" illegal"},
    {kMixedSeparators, "line &01: \"|\" and \",\" mixed in Element Type Declaration"},
    {kEnumerationExpected, "line &01: enumeration of attribute values expected"},
    {kEncodingCharacter, "line &01: encoding: character \"&02\" illegal"},
    {kAttTypeExpected, "line &01: attribute type expected"},
    {kGroupOpenExpected, "line &01: Element Type Declaration error, \"(\" expected"},
    {kParticleExpected, "line &01: Element Type Declaration error, \"(\" or Name expected"},
    {kStringExpected, "line &01: &02: string expected"},
    {kValueExpected, "line &01: attribute value expected"},
    {kDeclarationExpected, "line &01: markup declaration expected"},
    {kSpaceExpected, "line &01: space expected"},
    {kReservedPiTarget, "line &01: name \"&02\" is illegal in ProcessingInstruction"},
    {kLessInValue, "line &01: the character \"<\" cannot be used in an attribute value"},
    {kCannotGetUrl, "line &01: cannot get URL \"&02\""},
    {kUndeclaredEntity, "line &01: undeclared entity \"&02\""},
    {kPeNameExpected, "line &01: parameter entity name expected"},
    {kPeUndefined, "line &01: parameter entity \"&02\" undefined"},
    {kPeIllegalHere, "line &01: use of parameter entity \"&02\" is illegal here"},
    {kExternalInValue, "line &01: illegal reference of external entity \"&02\""},
    {kNotSameEntityText, "line &01: string must end in the same entity"},
    {kStartTagSyntax, "line &01: element \"&02\": start tag syntax error"},
    {kUnexpectedEnd, "line &01: end of document is unexpected"},
    {kEndTagMissing, "Line &01: endtag \"</&02>\" is missing."},
    {kIllegalSequence, "Line &01: illegal \"&02\"."},
    {kElementsTooDeep, "line &01: elements nested deeper than &02 levels"},
    {kExpansionTooLarge, "line &01: entity expansion exceeds &02 bytes"},
    {kEntitiesTooDeep, "line &01: entity references nested deeper than &02 levels"},
    {0, nullptr},
};

const char *lookup(int64_t code) {
    for (const Message *m = kMessages; m->code != 0; ++m)
        if (m->code == code) return m->text;
    return nullptr;
}

// The N-th (from 1) '|'-terminated field of params, or false when params
// has fewer fields. A field runs to its '|' or to the end of params.
bool field(const char *params, long n, const char **start, size_t *len) {
    if (params == nullptr || n < 1) return false;
    const char *p = params;
    for (long i = 1; i < n; ++i) {
        const char *bar = std::strchr(p, '|');
        if (bar == nullptr) return false;
        p = bar + 1;
    }
    if (*p == '\0') return false;
    const char *bar = std::strchr(p, '|');
    *start = p;
    *len = bar ? static_cast<size_t>(bar - p) : std::strlen(p);
    return true;
}

// Appends bytes to the output, counting all but writing only while room
// remains for the terminator.
struct Writer {
    char *buffer;
    int64_t size;
    int64_t length = 0;
    void put(const char *s, size_t n) {
        for (size_t i = 0; i < n; ++i, ++length)
            if (buffer != nullptr && length < size - 1) buffer[length] = s[i];
    }
};

}  // namespace
}  // namespace vqxml

using namespace vqxml;

extern "C" int32_t VQXML_getErrorMsg(int64_t code, const char *params, char *buffer,
                                     int32_t bufferSize) {
    static char unknown[256];
    const char *text = lookup(code);
    if (text == nullptr) {
        std::snprintf(unknown, sizeof unknown, "error %lld", static_cast<long long>(code));
        text = unknown;
    }
    Writer out{buffer, bufferSize};
    for (const char *p = text; *p != '\0';) {
        if (*p == '&' && p[1] >= '0' && p[1] <= '9') {
            long n = 0;
            ++p;
            while (*p >= '0' && *p <= '9') {
                if (n < 1000000) n = n * 10 + (*p - '0');
                ++p;
            }
            const char *start;
            size_t len;
            if (field(params, n, &start, &len))
                out.put(start, len);
            else
                out.put("???", 3);
            continue;
        }
        out.put(p, 1);
        ++p;
    }
    if (buffer != nullptr && bufferSize > 0)
        buffer[out.length < bufferSize - 1 ? out.length : bufferSize - 1] = '\0';
    return static_cast<int32_t>(out.length);
}
