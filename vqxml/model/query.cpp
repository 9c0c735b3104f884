// query.cpp - building queries and answers from a model and a list of
// path/value entries: the path walker, the per-entry check and store, the
// mandatory check, and the four builders.
//
// A builder records every fault and goes on with the next entry, so that
// one call reports all bad entries; only then does it discard what it built.
// The model and a query being answered are only read.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "vqxml/model/model.h"
#include "vqxml/model/query.h"
#include "vqxml/store/limits.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"

namespace vqxml {
namespace {

const Node *elementNode(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType == VQXML_ELEMENT_NODE ? n : nullptr;
}

VQHANDLE ownerOf(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr ? n->ownerDocument : 0;
}

// The document element of a Document handle, else 0.
VQHANDLE documentElementOf(VQHANDLE document) {
    const Node *d = liveNode(document);
    if (d == nullptr || d->nodeType != VQXML_DOCUMENT_NODE) return 0;
    return ElementChildren(document).next();
}

// The "PAR" (kind 0) or "DAT" section under a document's document element.
VQHANDLE sectionOf(VQHANDLE document, int32_t kind) {
    return namedChild(documentElementOf(document), kind == kParameters ? "PAR" : "DAT", 0);
}

// The first byte of an attribute, 0 when it is absent or empty.
char firstByteOf(VQHANDLE element, const char *name) {
    char buffer[32];
    VQDOM_getAttributeStr(element, name, buffer, sizeof buffer);
    return buffer[0];
}

bool hasElementChild(VQHANDLE element) { return ElementChildren(element).next() != 0; }

// Appends a new element named `tag` (with a Text child holding `text`, if
// given) as the last child of parent; the new element, or 0 (recorded by
// the DOM) on failure.
VQHANDLE appendElement(VQHANDLE parent, std::string_view tag, const char *text) {
    const VQHANDLE doc = ownerOf(parent);
    if (doc == 0) return 0;
    const VQHANDLE element = VQDOM_createElement(doc, createDSView(doc, tag));
    if (element == 0) return 0;
    if (text != nullptr) {
        const VQHANDLE t = VQDOM_createTextNode(doc, VQDOM_createDS(doc, text));
        if (t == 0 || VQDOM_appendChild(element, t) == 0) {
            VQDOM_deleteNode(element);
            return 0;
        }
    }
    if (VQDOM_appendChild(parent, element) == 0) return 0;
    noteAppended(parent, element);
    return element;
}

// 1001809 with an item's tag name as insert.
void recordNotMultiple(VQHANDLE item) {
    char tag[256];
    const std::string_view t = tagOf(item);
    const size_t n = t.size() < 255 ? t.size() : 255;
    std::memcpy(tag, t.data(), n);
    tag[n] = '\0';
    addVqXmlError(kOccurrenceNotMultiple, tag);
}

// Deletes a document that must not be handed back.
VQHANDLE discard(VQHANDLE document) {
    VQDOM_deleteNode(document);
    return 0;
}

}  // namespace
}  // namespace vqxml

using namespace vqxml;

extern "C" const char *followPath(const char *path, VQHANDLE *model, VQHANDLE *target,
                                  int *errorFlag, int32_t kind, int create) {
    if (path == nullptr || *model == 0) return path;
    const char *rest = path;
    for (const char *dot; (dot = std::strchr(rest, '.')) != nullptr; rest = dot + 1) {
        char component[256];
        const size_t length = static_cast<size_t>(dot - rest) < 255 ? dot - rest : 255;
        std::memcpy(component, rest, length);
        component[length] = '\0';
        long n = 0;
        if (char *paren = std::strchr(component, '(')) {
            n = std::strtol(paren + 1, nullptr, 10);
            *paren = '\0';
        }
        const VQHANDLE item = descChild(*model, component);
        // An index beyond any sensible count is refused like a path that
        // names no item: creating that many elements would exhaust memory.
        if (item == 0 || (create && (n < 0 || n > kMaxOccurrence))) {
            addVqXmlError(kIllegalParameter + kind, path);
            *errorFlag = 1;
            *model = 0;
            break;
        }
        if (n != 0 && !VQXML_isMultiple(item)) {
            addVqXmlError(kOccurrenceNotMultiple, path);
            *errorFlag = 1;
            n = 0;
        }
        // The tag is read afresh after each append: a target in the model's
        // own document may move the area.
        VQHANDLE found = namedChild(*target, tagOf(item), n);
        while (create && found == 0) {
            if (appendElement(*target, tagOf(item), nullptr) == 0) {
                *errorFlag = 1;
                break;
            }
            found = namedChild(*target, tagOf(item), n);
        }
        *model = item;
        *target = found;
    }
    const char *last = std::strrchr(path, '.');
    return last != nullptr ? last + 1 : path;
}

extern "C" int appendParam(VQHANDLE item, VQHANDLE target, const char *last, int32_t kind,
                           const char *entry) {
    const char *value = last + std::strlen(last) + 1;
    char type[256];
    VQXML_getElementText(item, type, sizeof type);
    const char *stored = value;
    const Verdict verdict = checkValue(item, type, value, &stored);
    switch (verdict) {
    case Verdict::kAccepted: break;
    case Verdict::kGroup: addVqXmlError(kGroupGivenValue + kind, entry); break;
    case Verdict::kNotNumber: addVqXmlError(kParameterNotNumber + kind, entry); break;
    case Verdict::kNotInValues: addVqXmlError(kNotInEnumeration + kind, entry); break;
    case Verdict::kIllegalForType: addVqXmlError3(kParameterValueIllegal + kind, entry, value, type); break;
    case Verdict::kNoMemory: break;
    }
    const bool multiple = VQXML_isMultiple(item);
    const bool present = !multiple && hasNamedChild(target, tagOf(item));
    if (present) recordNotMultiple(item);
    if (verdict != Verdict::kAccepted || present) return 1;
    if (*stored == '\0') return 0;
    return appendElement(target, tagOf(item), stored) != 0 ? 0 : 1;
}

extern "C" int appendParams(VQHANDLE modelSection, VQHANDLE target, const char **entries,
                            int32_t kind) {
    int flag = 0;
    if (entries == nullptr) return 0;
    for (const char **entry = entries; *entry != nullptr; ++entry) {
        VQHANDLE model = modelSection, t = target;
        const char *last = followPath(*entry, &model, &t, &flag, kind, 1);
        if (liveNode(model) == nullptr) continue;
        if (const VQHANDLE item = descChild(model, last)) {
            flag |= appendParam(item, t, last, kind, *entry);
        } else {
            addVqXmlError(kIllegalParameter + kind, last);
            flag = 1;
        }
    }
    return flag;
}

extern "C" int checkMandatoryParams(VQHANDLE modelElement, VQHANDLE target, int32_t kind) {
    int result = 0;
    ElementChildren items(modelElement);
    while (const VQHANDLE c = items.next()) {
        const std::string_view tag = tagOf(c);
        long k = 0;
        for (VQHANDLE occurrence; (occurrence = namedChild(target, tag, k)) != 0; ++k)
            result |= checkMandatoryParams(c, occurrence, kind);
        if (k != 0 || hasElementChild(c)) continue;
        const char use = firstByteOf(c, "USE");
        if (use != 'M' && use != 'm') continue;
        char path[256];
        getDescPath(c, path);
        char name[256];
        getDocName(c, name, sizeof name);
        char insert[512];
        std::snprintf(insert, sizeof insert, "%s|%s", path, name);
        addVqXmlError(kParameterMissing + kind, insert);
        result = 1;
    }
    return result;
}

namespace {

// Sub-queries and sub-answers: a new element for the model item, appended
// to parent (a document stands for its section), filled and checked; the
// element goes again when anything failed.
VQHANDLE createSub(VQHANDLE modelItem, const char **entries, VQHANDLE parent, int32_t kind) {
    if (entries == nullptr || elementNode(modelItem) == nullptr) return 0;
    const Node *p = liveNode(parent);
    if (p == nullptr) return 0;
    if (p->nodeType == VQXML_DOCUMENT_NODE && (parent = sectionOf(parent, kind)) == 0) return 0;
    const int64_t failures = allocationFailures();
    LookupScope scope;
    const VQHANDLE element = appendElement(parent, tagOf(modelItem), nullptr);
    if (element == 0) return 0;
    const int flag = appendParams(modelItem, element, entries, kind) |
                     checkMandatoryParams(modelItem, element, kind);
    if (flag == 0 && allocationFailures() == failures) return element;
    VQDOM_deleteNode(VQDOM_removeChild(parent, element));
    return 0;
}

}  // namespace

extern "C" VQHANDLE VQXML_createQuery(VQHANDLE model, const char **entries) {
    VQXML_resetErrorList();
    const VQHANDLE root = documentElementOf(model);
    const VQHANDLE section = namedChild(root, "PAR", 0);
    if (entries == nullptr || section == 0) return 0;
    const int64_t failures = allocationFailures();
    LookupScope scope;
    const VQHANDLE doc = VQDOM_createDocument();
    if (doc == 0) return 0;
    const VQHANDLE newRoot = appendElement(doc, tagOf(root), nullptr);
    const VQHANDLE newSection = appendElement(newRoot, tagOf(section), nullptr);
    if (newSection == 0) return discard(doc);
    const int flag = appendParams(section, newSection, entries, kParameters) |
                     checkMandatoryParams(section, newSection, kParameters);
    char id[256];
    VQDOM_getAttributeStr(root, "ID", id, sizeof id);
    if (id[0] == '\0') VQDOM_getAttributeStr(root, "PID", id, sizeof id);
    VQDOM_setAttribute(newRoot, VQDOM_createDS(doc, "PID"), VQDOM_createDS(doc, id));
    if (flag != 0 || allocationFailures() != failures) return discard(doc);
    return doc;
}

extern "C" VQHANDLE VQXML_createAnswer(VQHANDLE model, VQHANDLE query, const char **entries) {
    VQXML_resetErrorList();
    const VQHANDLE section = sectionOf(model, kData);
    if (entries == nullptr || section == 0 || documentElementOf(query) == 0) return 0;
    const int64_t failures = allocationFailures();
    const VQHANDLE copy = VQDOM_cloneNode(query, 1);
    if (copy == 0) return 0;
    VQXML_unBeautifyDocument(copy);
    LookupScope scope;
    const VQHANDLE data = VQDOM_createElement(copy, VQDOM_createDS(copy, "DAT"));
    if (data == 0) return discard(copy);
    const int flag = appendParams(section, data, entries, kData);
    const VQHANDLE root = documentElementOf(copy);
    if (VQDOM_appendChild(root, data) == 0) return discard(copy);
    const std::time_t now = std::time(nullptr);
    if (const std::tm *t = std::localtime(&now)) {
        // Month first, then day and year: the form the answers have always had.
        char stamp[64];
        std::snprintf(stamp, sizeof stamp, "%02d.%02d.%02d %02d:%02d:%02d", t->tm_mon + 1,
                      t->tm_mday, t->tm_year + 1900, t->tm_hour, t->tm_min, t->tm_sec);
        VQDOM_setAttribute(root, VQDOM_createDS(copy, "TIMESTAMP"), VQDOM_createDS(copy, stamp));
    }
    if (flag != 0 || allocationFailures() != failures) return discard(copy);
    return copy;
}

extern "C" VQHANDLE VQXML_createSubQuery(VQHANDLE modelItem, const char **entries, VQHANDLE parent) {
    return createSub(modelItem, entries, parent, kParameters);
}

extern "C" VQHANDLE VQXML_createSubAnswer(VQHANDLE modelItem, const char **entries,
                                          VQHANDLE parent) {
    return createSub(modelItem, entries, parent, kData);
}
