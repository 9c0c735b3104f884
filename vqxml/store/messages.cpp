// messages.cpp - the message table and the rendering of an error record
// into text. Placeholders "&01", "&02", "&03" take the '|'-separated fields
// of the record's parameter text.
#include <cstdio>
#include <cstring>

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
    {1001700, ""},
    {1001701, "DOM error: INDEX_SIZE_ERR stringsize: &01, offset: &01"},
    {1001702, "DOM error: DOMSTRING_SIZE_ERR"},
    {1001703, "DOM error: HIERARCHY_REQUEST_ERR"},
    {1001704, "DOM error: WRONG_DOCUMENT_ERR"},
    {1001705, "DOM error: INVALID_CHARACTER_ERR character \"&01\" invalid in name \"&02\""},
    {1001706, "DOM error: NO_DATA_ALLOWED_ERR"},
    {1001707, "DOM error: NO_MODIFICATION_ALLOWED_ERR"},
    {1001708, "DOM error: NOT_FOUND_ERR"},
    {1001709, "DOM error: NOT_SUPPORTED_ERR, data type \"&01\" unsupported"},
    {1001710, "DOM error: INUSE_ATTRIBUTE_ERR"},
    {1001711, "DOM error: cannot allocate \"&01\" (size: &02)"},
    {1001712, "DOM error: function \"&01\" called with null pointer"},
    {1001713, "DOM error: The maximum number of 256 DOM handles was exceeded in function '&01'."},
    {1001714, "DOM error: The maximum number of 255 DOM Documents was exceeded."},
    {1001715, "DOM error: The maximum number of 16 777 215 nodes in a document was exceeded."},
    {1001748, "invalid node handle detected: &01"},
    {1001749, "invalid nodetype detected: &01, should be &02"},
    {1001750, "invalid character as namestart: &01"},
    {1001755, "invalid character in name: &01"},
    {1001756, "invalid character in DESC: &01"},
    {1001757, "invalid document area image: &01"},
    {1001801, "illegal parameter: \"&01\""},
    {1001802, "illegal data: \"&01\""},
    {1001803, "parameter \"&01\": number required"},
    {1001804, "data \"&01\": number required"},
    {1001805, "mandatory parameter \"&01\" missing from Document \"&02\""},
    {1001806, "mandatory data \"&01\" missing from Document \"&02\""},
    {1001807, "tagname \"&01\" duplicated"},
    {1001808, "DESC \"&01\" duplicated in tags \"&02\" and \"&03\""},
    {1001809, "OCCURENCE of DESC=\"&01\" is not MULTIPLE"},
    {1001810, "parameter \"&01\": subelement required"},
    {1001811, "data \"&01\": subelement required"},
    {1001812, "data \"&01\": enumeration value \"&02\" illegal"},
    {1001813, "DESC \"&01\" not found in model \"&02\""},
    {1001814, "cannot find subelement \"&01\" in query \"&02\""},
    {1001815, "cannot find subelement \"&01\" in answer \"&02\""},
    {1001816, "parameter \"&01\": value \"&02\" is illegal for type \"&03\""},
    {1001817, "data \"&01\": value \"&02\" is illegal for type \"&03\""},
    {1001900, "line &01: endtag of \"&02\": \"<\" expected"},
    {1001901, "line &01: endtag of \"&02\": \"/\" expected"},
    {1001902, "line &01: endtag of \"&02\": illegal character"},
    {1001903, "line &01: endtag of \"&02\": name different"},
    {1001904, "line &01: endtag of \"&02\": \">\" expected"},
    {1001905, "line &01: unknown reference"},
    {1001906, "line &01: \";\" expected on end of a reference"},
    {1001907, "line &01: attribute \"&02\": quotation mark expected"},
    {1001908, "line &01: attribute \"&02\": closing quotation mark expected"},
    {1001909, "line &01: attribute \"&02\": \"=\" expected"},
    {1001910, "line &01: illegal character (&02)"},
    {1001911, "line &01: name begins with illegal character (&02)"},
    {1001912, "line &01: end of Comment not found"},
    {1001913, "line &01: \"&02\" expected"},
    {1001914, "line &01: &02: \"=\" expected"},
    {1001916, "line &01: missing end of string or character \"&02\" illegal"},
    {1001917, "line &01: \"|\" and \",\" mixed in Element Type Declaration"},
    {1001918, "line &01: enumeration of attribute values expected"},
    {1001919, "line &01: encoding: character \"&02\" illegal"},
    {1001920, "line &01: attribute type expected"},
    {1001921, "line &01: Element Type Declaration error, \"(\" expected"},
    {1001922, "line &01: Element Type Declaration error, \"(\" or Name expected"},
    {1001925, "line &01: &02: string expected"},
    {1001926, "line &01: attribute value expected"},
    {1001927, "line &01: markup declaration expected"},
    {1001930, "line &01: space expected"},
    {1001931, "line &01: name \"&02\" is illegal in ProcessingInstruction"},
    {1001932, "line &01: the character \"<\" cannot be used in an attribute value"},
    {1001933, "line &01: cannot get URL \"&02\""},
    {1001934, "line &01: undeclared entity \"&02\""},
    {1001935, "line &01: parameter entity name expected"},
    {1001936, "line &01: parameter entity \"&02\" undefined"},
    {1001937, "line &01: use of parameter entity \"&02\" is illegal here"},
    {1001938, "line &01: illegal reference of external entity \"&02\""},
    {1001939, "line &01: string must end in the same entity"},
    {1001940, "line &01: element \"&02\": start tag syntax error"},
    {1001941, "line &01: end of document is unexpected"},
    {1001942, "Line &01: endtag \"</&02>\" is missing."},
    {1001943, "Line &01: illegal \"&02\"."},
    {1001944, "line &01: elements nested deeper than &02 levels"},
    {1001945, "line &01: entity expansion exceeds &02 bytes"},
    {1001946, "line &01: entity references nested deeper than &02 levels"},
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
