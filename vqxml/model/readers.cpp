// readers.cpp - reading queries and answers back: values by path and
// occurrence (as stored or shown by type), occurrence counts, model items by
// DESC path, and the element of a query or answer that corresponds to a
// model element.
#include <cstdio>
#include <cstring>

#include "vqxml/model/model.h"
#include "vqxml/model/query.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"

namespace vqxml {
namespace {

bool isElement(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType == VQXML_ELEMENT_NODE;
}

bool isDocument(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType == VQXML_DOCUMENT_NODE;
}

VQHANDLE sectionOf(VQHANDLE document, int32_t kind) {
    if (!isDocument(document)) return 0;
    return namedChild(ElementChildren(document).next(), kind == kParameters ? "PAR" : "DAT", 0);
}

void clear(char *buffer, int32_t size) {
    if (buffer != nullptr && size > 0) buffer[0] = '\0';
}

// The model item named by `path` below model element m and the index-th
// element for it below the corresponding element t. Path errors are
// recorded (always in the parameter wording) and make the result false.
bool locate(VQHANDLE m, VQHANDLE t, const char *path, int32_t index, VQHANDLE *item,
            VQHANDLE *element) {
    if (path == nullptr) return false;
    int flag = 0;
    const char *last = followPath(path, &m, &t, &flag, kParameters, 0);
    if (flag != 0) return false;
    *item = descChild(m, last);
    *element = *item != 0 ? namedChild(t, tagOf(*item), index) : 0;
    return true;
}

int32_t countOf(VQHANDLE model, VQHANDLE document, const char *path, int32_t kind) {
    if (path == nullptr) return 0;
    VQHANDLE m = sectionOf(model, kind), t = sectionOf(document, kind);
    int flag = 0;
    const char *last = followPath(path, &m, &t, &flag, kind, 0);
    const VQHANDLE item = descChild(m, last);
    if (item == 0) return 0;
    int32_t count = 0;
    ElementChildren children(t);
    const std::string_view tag = tagOf(item);
    while (const VQHANDLE c = children.next())
        if (tagOf(c) == tag) ++count;
    return count;
}

}  // namespace
}  // namespace vqxml

using namespace vqxml;

extern "C" int32_t VQXML_getSubValue(VQHANDLE modelElement, VQHANDLE targetElement, const char *path,
                                     int32_t index, char *buffer, int32_t size) {
    VQHANDLE item = 0, element = 0;
    if (!locate(modelElement, targetElement, path, index, &item, &element)) {
        clear(buffer, size);
        return 0;
    }
    return VQXML_getElementText(element, buffer, size);
}

extern "C" int32_t VQXML_getTypedSubValue(VQHANDLE modelElement, VQHANDLE targetElement,
                                          const char *path, int32_t index, char *buffer,
                                          int32_t size) {
    VQHANDLE item = 0, element = 0;
    if (!locate(modelElement, targetElement, path, index, &item, &element)) {
        clear(buffer, size);
        return 0;
    }
    char type[256];
    VQXML_getElementText(item, type, sizeof type);
    // The whole stored value decides, not what fits the caller's buffer; a
    // value longer than this is neither a stored time nor looked at beyond
    // its first byte.
    char stored[32];
    const int32_t length = VQXML_getElementText(element, stored, sizeof stored);
    char shown[32];
    if (!displayValue(type, std::string_view(stored, length < 31 ? length : 31), shown))
        return VQXML_getElementText(element, buffer, size);
    const int32_t full = static_cast<int32_t>(std::strlen(shown));
    if (buffer != nullptr && size > 0) {
        const int32_t n = full < size ? full : size - 1;
        std::memcpy(buffer, shown, static_cast<size_t>(n));
        buffer[n] = '\0';
    }
    return full;
}

extern "C" int32_t VQXML_getParValue(VQHANDLE model, VQHANDLE query, const char *path, int32_t index,
                                     char *buffer, int32_t size) {
    return VQXML_getSubValue(sectionOf(model, kParameters), sectionOf(query, kParameters), path,
                             index, buffer, size);
}

extern "C" int32_t VQXML_getDatValue(VQHANDLE model, VQHANDLE answer, const char *path, int32_t index,
                                     char *buffer, int32_t size) {
    return VQXML_getSubValue(sectionOf(model, kData), sectionOf(answer, kData), path, index, buffer,
                             size);
}

extern "C" int32_t VQXML_getParCount(VQHANDLE model, VQHANDLE query, const char *path) {
    return countOf(model, query, path, kParameters);
}

extern "C" int32_t VQXML_getDatCount(VQHANDLE model, VQHANDLE answer, const char *path) {
    return countOf(model, answer, path, kData);
}

extern "C" VQHANDLE VQXML_getSubModel(VQHANDLE node, int32_t kind, const char *descPath) {
    VQHANDLE cur = isDocument(node) ? sectionOf(node, kind == 0 ? kParameters : kData) : node;
    const char *p = descPath != nullptr ? descPath : "";
    if (*p == '\0') return cur;
    while (isElement(cur)) {
        const char *dot = std::strchr(p, '.');
        const size_t length = dot != nullptr ? static_cast<size_t>(dot - p) : std::strlen(p);
        char component[256];
        const size_t n = length < 255 ? length : 255;
        std::memcpy(component, p, n);
        component[n] = '\0';
        const VQHANDLE next = descChild(cur, component);
        if (next == 0) {
            char name[256];
            getDocName(cur, name, sizeof name);
            char insert[640];
            std::snprintf(insert, sizeof insert, "%.*s|%s|", static_cast<int>(p + length - descPath),
                          descPath, name);
            addVqXmlError(kDescNotInModel, insert);
            return 0;
        }
        cur = next;
        if (dot == nullptr) return cur;
        p = dot + 1;
    }
    return liveNode(cur) != nullptr ? cur : 0;
}

extern "C" VQHANDLE VQXML_getSub(VQHANDLE d, VQHANDLE m, int32_t index, int32_t kind) {
    const VQHANDLE start = isDocument(d) ? ElementChildren(d).next() : d;
    if (liveNode(start) == nullptr) return 0;
    char mPath[256], dPath[256];
    VQXML_getXmlPath(m, mPath, sizeof mPath);
    VQXML_getXmlPath(start, dPath, sizeof dPath);
    size_t common = 0;
    while (mPath[common] != '\0' && mPath[common] == dPath[common]) ++common;
    const char *rest = mPath + common;
    if (*rest != '.') return d;
    VQHANDLE cur = start;
    for (const char *p = rest + 1;;) {
        const char *dot = std::strchr(p, '.');
        const size_t length = dot != nullptr ? static_cast<size_t>(dot - p) : std::strlen(p);
        char name[256];
        std::memcpy(name, p, length);
        name[length] = '\0';
        cur = VQXML_findChildElementStr(cur, name, dot != nullptr ? 0 : index);
        if (cur == 0) {
            char insert[256];
            std::snprintf(insert, sizeof insert, "%.120s|%.120s|", rest, dPath);
            addVqXmlError(kSubelementNotInQuery + kind, insert);
            return 0;
        }
        if (dot == nullptr) return cur;
        p = dot + 1;
    }
}

extern "C" VQHANDLE VQXML_getSubQuery(VQHANDLE d, VQHANDLE m, int32_t index) {
    return VQXML_getSub(d, m, index, kParameters);
}

extern "C" VQHANDLE VQXML_getSubAnswer(VQHANDLE d, VQHANDLE m, int32_t index) {
    return VQXML_getSub(d, m, index, kData);
}
