// error_list.cpp - the DOM list and the main list: bounded queues of error
// records (272-byte heap blocks labelled "vqxmlErr"). Pending DOM errors
// move to the main list, oldest first, before the main list is appended to,
// read while empty, or reset, so the main list shows everything in order.
#include "vqxml/store/error_list.h"

#include <cstdio>
#include <cstring>

#include "vqxml/store/memdiag.h"
#include "vqxml/store/trace.h"

namespace vqxml {
namespace {

struct ErrorRecord {
    ErrorRecord *next;
    int64_t code;
    char text[256];
};
static_assert(sizeof(ErrorRecord) == 272, "error record is 272 bytes");

struct ErrorList {
    ErrorRecord *errorList;
    int32_t lenErrorList;
    ErrorRecord **lastError;  // the `next` field of the newest record
    int32_t bound;            // a list this long is cut before appending
    int32_t keep;             // oldest records kept by the cut
    int32_t cut;              // records deleted behind them
};

constinit ErrorList domList{nullptr, 0, &domList.errorList, 800, 321, 160};
constinit ErrorList mainList{nullptr, 0, &mainList.errorList, 1000, 401, 200};
constinit int32_t last_dom_err = 0;

// Deletes a block of records from the middle once the list is at its bound:
// the first records explain the cause, the last ones the end state.
void deleteMid(ErrorList &list) {
    if (list.lenErrorList < list.bound) return;
    ErrorRecord *keepLast = list.errorList;
    for (int32_t i = 1; i < list.keep && keepLast != nullptr; ++i) keepLast = keepLast->next;
    if (keepLast == nullptr) return;
    for (int32_t i = 0; i < list.cut && keepLast->next != nullptr; ++i) {
        ErrorRecord *gone = keepLast->next;
        keepLast->next = gone->next;
        if (list.lastError == &gone->next) list.lastError = &keepLast->next;
        tracedFree(gone, "deleteMid");
        --list.lenErrorList;
    }
}

void link(ErrorList &list, ErrorRecord *record) {
    record->next = nullptr;
    *list.lastError = record;
    list.lastError = &record->next;
    ++list.lenErrorList;
}

ErrorRecord *unlinkFirst(ErrorList &list) {
    ErrorRecord *first = list.errorList;
    if (first == nullptr) return nullptr;
    list.errorList = first->next;
    if (list.errorList == nullptr) list.lastError = &list.errorList;
    --list.lenErrorList;
    return first;
}

void addError(ErrorList &list, int64_t code, const char *params) {
    deleteMid(list);
    auto *record = static_cast<ErrorRecord *>(dbg_malloc(sizeof(ErrorRecord), "vqxmlErr"));
    VQXML_TRACE(2, "VQXML - (addError) addr: 0x%p, (len: %zu) %ld:%s", static_cast<void *>(record),
                sizeof(ErrorRecord), static_cast<long>(code), params ? params : "<NULL>");
    if (record == nullptr) return;
    record->code = code;
    if (params == nullptr) {
        record->text[0] = '\0';
    } else {
        size_t n = std::strlen(params);
        if (n > 254) {
            std::memcpy(record->text, params, 254);
            record->text[254] = '|';
            record->text[255] = '\0';
        } else {
            std::memcpy(record->text, params, n + 1);
            if (n == 0 || params[n - 1] != '|') {
                record->text[n] = '|';
                record->text[n + 1] = '\0';
            }
        }
    }
    link(list, record);
}

void deleteFirstError(ErrorList &list) {
    ErrorRecord *first = unlinkFirst(list);
    if (first == nullptr) return;
    tracedFree(first, "deleteFirstError");
}

// Removes the oldest record of a list, copying its text to `buffer`.
int64_t takeFirst(ErrorList &list, char *buffer) {
    ErrorRecord *first = list.errorList;
    if (first == nullptr) {
        if (buffer != nullptr) buffer[0] = '\0';
        return 0;
    }
    int64_t code = first->code;
    if (buffer != nullptr) std::memcpy(buffer, first->text, std::strlen(first->text) + 1);
    deleteFirstError(list);
    return code;
}

}  // namespace

void domError(int32_t code, const char *params) {
    last_dom_err = code;
    addError(domList, code, params);
}

int32_t mainErrorCount() { return mainList.lenErrorList; }
int32_t domErrorCount() { return domList.lenErrorList; }

}  // namespace vqxml

using namespace vqxml;

extern "C" void checkDomError(void) {
    while (ErrorRecord *record = unlinkFirst(domList)) {
        deleteMid(mainList);
        record->code = mainCode(static_cast<DomCode>(record->code));
        link(mainList, record);
    }
}

extern "C" void addVqXmlError(int64_t code, const char *params) {
    checkDomError();
    addError(mainList, code, params);
}

extern "C" void addVqXmlError3(int64_t code, const char *p1, const char *p2, const char *p3) {
    char buffer[512];
    size_t used = 0;
    const char *parts[3] = {p1, p2, p3};
    for (int i = 0; i < 3; ++i) {
        const size_t room = sizeof buffer - used;
        if (i > 0 && room <= 1) break;
        const char *s = parts[i] ? parts[i] : "";
        if (room <= 2 || *s == '\0') {
            buffer[used++] = '|';
            buffer[used] = '\0';
            continue;
        }
        size_t n = strnlen(s, room - 2);
        while (n > 0 && s[n - 1] == ' ') --n;
        std::memcpy(buffer + used, s, n);
        used += n;
        buffer[used++] = '|';
        buffer[used] = '\0';
    }
    addVqXmlError(code, buffer);
}

extern "C" void errorIndexSize(int64_t length, int64_t offset) {
    char params[64];
    std::snprintf(params, sizeof params, "%ld|%ld|", static_cast<long>(length),
                  static_cast<long>(offset));
    domError(kIndexSizeErr, params);
}

namespace {
int64_t allocFailures = 0;
}  // namespace

int64_t vqxml::allocationFailures() { return allocFailures; }

extern "C" void errorAlloc(const char *name, int64_t size) {
    ++allocFailures;
    char params[256];
    std::snprintf(params, sizeof params, "%s|%lld|", name ? name : "",
                  static_cast<long long>(size));
    domError(kAllocErr, params);
}

extern "C" void errorNoMoreDoc(void) { domError(kTooManyDocumentsErr, nullptr); }
extern "C" void errorNoMoreHandle(void) { domError(kTooManyNodesErr, nullptr); }

extern "C" int64_t VQXML_getError(char *buffer) {
    if (mainList.errorList == nullptr) checkDomError();
    return takeFirst(mainList, buffer);
}

extern "C" void VQXML_resetErrorList(void) {
    checkDomError();
    while (mainList.errorList != nullptr) deleteFirstError(mainList);
}

extern "C" int32_t VQDOM_getError(char *buffer) {
    return static_cast<int32_t>(takeFirst(domList, buffer));
}

extern "C" int32_t VQDOM_getLastError(void) { return last_dom_err; }
