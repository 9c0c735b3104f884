// values.cpp - the value types of model items: how a value given for a query
// or answer is checked and converted before it is stored, and how a stored
// time or traffic-light value is shown when it is read back.
#include <cstring>

#include "vqxml/store/node.h"
#include "vqxml/model/model.h"
#include "vqxml/model/query.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"

namespace vqxml {
namespace {

// How times are written by callers. 'Y', 'M', 'D', 'h', 'm', 's' stand for
// digits of the year, month, day, hour, minute and second; every other
// character stands for itself. Stored times are the 14 digits alone.
char timeFormat[32] = "YYYY.MM.DD hh:mm:ss";

// A converted time lives here until the next conversion; the builder copies
// it into the document at once.
char timeConversion[16];

// Where each field of a stored time sits in the time format: the first 'Y'
// takes 4 digits, the others 2 each.
struct Field {
    char letter;
    int width;
};
constexpr Field kTimeFields[] = {{'Y', 4}, {'M', 2}, {'D', 2}, {'h', 2}, {'m', 2}, {'s', 2}};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool allDigits(std::string_view s) {
    for (char c : s)
        if (!isDigit(c)) return false;
    return true;
}

bool isStoredTime(std::string_view s) { return s.size() == 14 && allDigits(s); }

// A value matches the time format when it has the format's length and each
// of its characters is a digit where the format has a field letter (or that
// very digit), and otherwise the format's own character.
bool matchesTimeFormat(const char *value) {
    const char *f = timeFormat;
    for (; *value != '\0'; ++value, ++f) {
        if (*f == '\0') return false;
        if (isDigit(*value)) {
            if (std::strchr("YMDhms", *f) == nullptr && *f != *value) return false;
        } else if (*f != *value) {
            return false;
        }
    }
    return *f == '\0';
}

// Copies the fields out of a value written in the time format.
const char *toStoredTime(const char *value) {
    std::memset(timeConversion, ' ', 14);
    timeConversion[14] = '\0';
    int at = 0;
    for (const Field &field : kTimeFields) {
        if (const char *p = std::strchr(timeFormat, field.letter))
            std::memcpy(timeConversion + at, value + (p - timeFormat), field.width);
        at += field.width;
    }
    return timeConversion;
}

// The VALUES of an enumeration are words separated by one or more blanks; a
// leading blank makes an empty first word, and no VALUES hold no word.
bool inValues(VQHANDLE item, const char *value, bool *noMemory) {
    const std::string_view values = attributeView(item, "VALUES");
    const size_t size = values.size() + 1;
    auto *copy = static_cast<char *>(tracedMalloc(size, "checkEnumValue", "checkEnumValue"));
    if (copy == nullptr) {
        errorAlloc("checkEnumValue", static_cast<int64_t>(size));
        *noMemory = true;
        return false;
    }
    if (!values.empty()) std::memcpy(copy, values.data(), values.size());
    copy[values.size()] = '\0';
    bool found = false;
    for (char *word = copy; *word != '\0';) {
        char *end = std::strchr(word, ' ');
        if (end != nullptr) *end = '\0';
        if (std::strcmp(word, value) == 0) {
            found = true;
            break;
        }
        if (end == nullptr) break;
        word = end + 1;
        while (*word == ' ') ++word;
    }
    tracedFree(copy, "checkEnumValue");
    return found;
}

const char *gyrStored(std::string_view value) {
    if (value == "1" || value == "2" || value == "3") return nullptr;  // stored as given
    if (value == "Green") return "1";
    if (value == "Yellow") return "2";
    if (value == "Red") return "3";
    return "";
}

}  // namespace

Verdict checkValue(VQHANDLE item, std::string_view type, const char *value, const char **stored) {
    *stored = value;
    if (type.empty()) return Verdict::kGroup;
    if (type == "long" || type == "int" || type == "number")
        return allDigits(value) ? Verdict::kAccepted : Verdict::kNotNumber;
    if (type == "enumeration") {
        bool noMemory = false;
        if (inValues(item, value, &noMemory)) return Verdict::kAccepted;
        return noMemory ? Verdict::kNoMemory : Verdict::kNotInValues;
    }
    if (type == "time") {
        if (isStoredTime(value)) return Verdict::kAccepted;
        if (!matchesTimeFormat(value)) return Verdict::kIllegalForType;
        *stored = toStoredTime(value);
        return Verdict::kAccepted;
    }
    if (type == "gyr") {
        const char *converted = gyrStored(value);
        if (converted == nullptr) return Verdict::kAccepted;
        if (*converted == '\0') return Verdict::kIllegalForType;
        *stored = converted;
        return Verdict::kAccepted;
    }
    return Verdict::kAccepted;  // "text" and any other type text: free text
}

bool displayValue(std::string_view type, std::string_view stored, char *out) {
    if (type == "time") {
        if (!isStoredTime(stored)) return false;
        std::memcpy(out, timeFormat, sizeof timeFormat);
        size_t from = 0;
        for (const Field &field : kTimeFields) {
            if (char *p = std::strchr(out, field.letter)) std::memcpy(p, stored.data() + from, field.width);
            from += field.width;
        }
        return true;
    }
    if (type == "gyr") {
        static constexpr const char *kNames[] = {"green", "yellow", "red"};
        if (stored.empty() || stored[0] < '1' || stored[0] > '3') return false;
        std::strcpy(out, kNames[stored[0] - '1']);
        return true;
    }
    return false;
}

}  // namespace vqxml
