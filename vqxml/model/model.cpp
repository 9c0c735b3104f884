// model.cpp - model descriptions: the predicates that read a model item
// (multiple, mandatory, enumerated, green-yellow-red, group), the empty
// model, the consistency checks of a model's items and their descriptions,
// the comparison of two documents' parameters as a model describes them, and
// the two paths by which messages name an element.
//
// A model item is an element of the "PAR" or "DAT" section: its DESC names
// it in paths, its only Text child gives its type, OCCURENCE (spelled with
// one R, as the family's models spell it) and USE its cardinality and
// obligation.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "vqxml/model/model.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/limits.h"

namespace {

using vqxml::chainNode;
using vqxml::descOf;
using vqxml::dsView;
using vqxml::forEachChild;
using vqxml::forEachInChain;
using vqxml::liveNode;
using vqxml::walkBudget;

using vqxml::kBadDescCharacter;
using vqxml::kDescDuplicated;
using vqxml::kTagnameDuplicated;

// Bytes for "%.*s": a view of an absent text has no address.
const char *bytes(std::string_view v) { return v.data() != nullptr ? v.data() : ""; }

bool isElement(const Node *n) { return n != nullptr && n->nodeType == VQXML_ELEMENT_NODE; }

// An item's type text as the predicates read it: at most 31 bytes.
struct TypeText {
    explicit TypeText(VQHANDLE item) { VQXML_getElementText(item, text, sizeof text); }
    char text[32];
};

// The text of a node whose only child is a Text node, or false.
bool onlyText(VQHANDLE h, std::string_view *text) {
    const Node *n = liveNode(h);
    const Node *t = n != nullptr ? liveNode(n->firstChild) : nullptr;
    if (t == nullptr || t->nodeType != VQXML_TEXT_NODE || t->nextSibling != 0) return false;
    *text = dsView(t->nodeValue);
    return true;
}

// The next element child of `parent` named `name` after `after` (from the
// first child when `after` is 0).
VQHANDLE nextNamed(VQHANDLE parent, VQHANDLE after, std::string_view name) {
    const Node *start = liveNode(after != 0 ? after : parent);
    if (start == nullptr) return 0;
    VQHANDLE found = 0;
    forEachInChain(after != 0 ? start->nextSibling : start->firstChild, walkBudget(parent),
                   [&](VQHANDLE h, const Node *n) {
                       if (!isElement(n) || dsView(n->nodeName) != name) return true;
                       found = h;
                       return false;
                   });
    return found;
}

// Element comparison of a and b as model element m describes them: 0 when
// equal, 1 when different. A leaf compares the two texts; a group compares,
// for each of its element children, the occurrences of that tag in a and b
// pairwise. Any child of m that is not an element makes the result
// "different", so a comment between model items does.
int compareAs(VQHANDLE m, VQHANDLE a, VQHANDLE b, int32_t depth) {
    if (depth > vqxml::kMaxModelDepth) return 1;
    const Node *mn = liveNode(m);
    const Node *first = mn != nullptr ? liveNode(mn->firstChild) : nullptr;
    if (first != nullptr && first->nodeType == VQXML_TEXT_NODE) {
        std::string_view ta, tb;
        if (!onlyText(a, &ta) || !onlyText(b, &tb)) return 1;
        return ta == tb ? 0 : 1;
    }
    int result = 0;
    forEachChild(m, [&](VQHANDLE c, const Node *cn) {
        if (!isElement(cn)) {
            result = 1;
            return false;
        }
        const std::string_view tag = dsView(cn->nodeName);
        VQHANDLE ak = 0, bk = 0;
        for (int64_t k = walkBudget(a) + walkBudget(b); k >= 0; --k) {
            ak = nextNamed(a, ak, tag);
            bk = nextNamed(b, bk, tag);
            if (ak == 0 && bk == 0) return true;
            if (ak == 0 || bk == 0 || compareAs(c, ak, bk, depth + 1) != 0) break;
        }
        result = 1;
        return false;
    });
    return result;
}

// Writes the bytes while the path stays below 254 bytes; once a byte would
// reach that length, it and everything after it are dropped.
struct PathWriter {
    char *buffer;
    int32_t length = 0;
    bool full = false;
    void put(std::string_view text) {
        for (char c : text) {
            if (length + 1 >= 254) {
                full = true;
                return;
            }
            buffer[length++] = c;
        }
    }
};

// The node `levels` parent steps above h.
VQHANDLE ancestor(VQHANDLE h, int32_t levels) {
    for (; levels > 0 && h != 0; --levels) {
        const Node *n = liveNode(h);
        h = n != nullptr ? n->parentNode : 0;
    }
    return h;
}

// Element siblings before h with h's tag name.
int64_t earlierNamesakes(VQHANDLE h) {
    const Node *n = liveNode(h);
    if (n == nullptr) return 0;
    const std::string_view tag = dsView(n->nodeName);
    int64_t k = 0;
    VQHANDLE p = n->previousSibling;
    for (int64_t budget = walkBudget(h); budget > 0; --budget) {
        const Node *s = chainNode(p);
        if (s == nullptr) break;
        k += isElement(s) && dsView(s->nodeName) == tag;
        p = s->previousSibling;
    }
    return k;
}

}  // namespace

namespace vqxml {

std::string_view attributeView(VQHANDLE element, const char *name) {
    if (!isElement(liveNode(element))) return {};
    const Node *a = liveNode(VQDOM_getAttributeNodeStr(element, name));
    return a != nullptr ? dsView(a->nodeValue) : std::string_view();
}

}  // namespace vqxml

extern "C" {

// Only an upper-case 'M' as the first byte counts: "multiple" in lower case
// does not make an item multiple.
int VQXML_isMultiple(VQHANDLE element) {
    const std::string_view v = vqxml::attributeView(element, "OCCURENCE");
    return !v.empty() && v[0] == 'M';
}

// 'M' only here; the mandatory check of query building also accepts 'm'.
int VQXML_isMandatory(VQHANDLE element) {
    const std::string_view v = vqxml::attributeView(element, "USE");
    return !v.empty() && v[0] == 'M';
}

int VQXML_isEnumerated(VQHANDLE element) {
    return std::strcmp(TypeText(element).text, "enumeration") == 0;
}

int VQXML_isGreenYellowRed(VQHANDLE element) {
    return std::strcmp(TypeText(element).text, "gyr") == 0;
}

// True for anything that is not a leaf with a type text, an element without
// children included.
int VQXML_hasSubElements(VQHANDLE element) { return TypeText(element).text[0] == '\0'; }

int VQXML_cmpParameters(VQHANDLE model, VQHANDLE a, VQHANDLE b) {
    auto section = [](VQHANDLE document) {
        return VQXML_findChildElementStr(VQDOM_getDocumentElement(document), "PAR", 0);
    };
    return compareAs(section(model), section(a), section(b), 0);
}

// Builds the skeleton in a new document; when any part of it cannot be
// created (a root name that is no XML name, memory), the document is
// deleted and 0 returned.
VQHANDLE VQXML_createEmptyModel(int32_t parameterCount, int32_t dataCount, const char *rootName,
                                const char *pid) {
    if (rootName == nullptr) return 0;
    const VQHANDLE doc = VQDOM_createDocument();
    if (doc == 0) return 0;
    const int64_t failures = vqxml::allocationFailures();
    bool ok = true;
    auto ds = [&](const char *text) { return VQDOM_createDS(doc, text); };
    auto element = [&](VQHANDLE parent, const char *name) {
        const VQHANDLE e = VQDOM_createElement(doc, ds(name));
        if (e == 0 || VQDOM_appendChild(parent, e) != e) ok = false;
        return e;
    };
    const VQHANDLE root = element(doc, rootName);
    if (ok) {
        VQDOM_setAttribute(root, ds("PID"), ds(pid != nullptr ? pid : ""));
        VQDOM_setAttribute(root, ds("MINTIME"), ds("10"));
        VQDOM_setAttribute(root, ds("VERS"), ds("1.0"));
        VQDOM_setAttribute(root, ds("TYPE"), ds("COLLECTED"));
    }
    auto section = [&](const char *tag, int32_t count, const char *itemPrefix,
                       const char *descPrefix) {
        const VQHANDLE s = element(root, tag);
        for (int32_t i = 1; ok && i <= count; ++i) {
            char name[32], desc[64];
            std::snprintf(name, sizeof name, "%s%d", itemPrefix, i);
            std::snprintf(desc, sizeof desc, "%s%d", descPrefix, i);
            const VQHANDLE item = element(s, name);
            if (!ok) break;
            VQDOM_setAttribute(item, ds("DESC"), ds(desc));
            const VQHANDLE type = VQDOM_createTextNode(doc, ds("text"));
            if (type == 0 || VQDOM_appendChild(item, type) != type) ok = false;
        }
    };
    if (ok) section("PAR", parameterCount, "P", "Parameter_");
    if (ok) section("DAT", dataCount, "D", "Data_");
    if (!ok || vqxml::allocationFailures() != failures) {
        VQXML_deleteDocumentArea(doc);
        return 0;
    }
    return doc;
}

// Every pair of element children (A before B) is checked: equal tag names
// record 1001807, equal DESC values 1001808 (absent DESCs are equal, empty
// values). Quadratic in the number of children of one element.
int VQXML_checkDoubleTag(VQHANDLE parent) {
    VQXML_resetErrorList();
    bool found = false;
    forEachChild(parent, [&](VQHANDLE a, const Node *an) {
        if (!isElement(an)) return true;
        const std::string_view tagA = dsView(an->nodeName);
        const std::string_view descA = descOf(a);
        forEachInChain(an->nextSibling, walkBudget(parent), [&](VQHANDLE b, const Node *bn) {
            if (!isElement(bn)) return true;
            const std::string_view tagB = dsView(bn->nodeName);
            char params[256];
            if (tagA == tagB) {
                std::snprintf(params, sizeof params, "%.*s",
                              static_cast<int>(tagA.size() > 255 ? 255 : tagA.size()), bytes(tagA));
                addVqXmlError(kTagnameDuplicated, params);
                found = true;
            }
            if (descA == descOf(b)) {
                auto cut = [](std::string_view v) { return static_cast<int>(v.size() > 84 ? 84 : v.size()); };
                std::snprintf(params, sizeof params, "%.*s|%.*s|%.*s", cut(descA), bytes(descA),
                              cut(tagA), bytes(tagA), cut(tagB), bytes(tagB));
                addVqXmlError(kDescDuplicated, params);
                found = true;
            }
            return true;
        });
        return true;
    });
    return found ? 1 : 0;
}

// '.' separates path components and '(' opens an occurrence index, so
// neither may stand in a DESC.
char *VQXML_checkDesc(const char *text) {
    VQXML_resetErrorList();
    if (text == nullptr) return nullptr;
    const char *first = nullptr;
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p != '.' && *p != '(') continue;
        char params[16];
        std::snprintf(params, sizeof params, "0x%x", static_cast<unsigned char>(*p));
        addVqXmlError(kBadDescCharacter, params);
        if (first == nullptr) first = p;
    }
    return const_cast<char *>(first);
}

VQHANDLE findDesc(VQHANDLE parent, const char *desc) {
    if (desc == nullptr) return 0;
    const std::string_view wanted(desc);
    VQHANDLE found = 0;
    forEachChild(parent, [&](VQHANDLE h, const Node *n) {
        if (!isElement(n) || descOf(h) != wanted) return true;
        found = h;
        return false;
    });
    return found;
}

int32_t getDescPath(VQHANDLE element, char *buffer) {
    if (buffer == nullptr) return 0;
    // The chain: the element and its ancestors up to the first one whose
    // parent is not an element.
    int32_t depth = 0;
    int64_t budget = walkBudget(element);
    for (VQHANDLE h = element; budget > 0; --budget) {
        const Node *n = liveNode(h);
        if (n == nullptr) break;
        ++depth;
        if (!isElement(liveNode(n->parentNode))) break;
        h = n->parentNode;
    }
    PathWriter out{buffer};
    for (int32_t level = depth - 1; level >= 0 && !out.full; --level) {
        const VQHANDLE h = ancestor(element, level);
        if (level != depth - 1) out.put(".");
        out.put(descOf(h));
        if (const int64_t k = earlierNamesakes(h); k > 0) {
            char index[32];
            std::snprintf(index, sizeof index, "(%lld)", static_cast<long long>(k));
            out.put(index);
        }
    }
    buffer[out.length] = '\0';
    return out.length;
}

// Assembled from the end of the buffer: when it is too small, the names
// nearest the document element are cut (keeping their leading bytes) or
// lost.
int32_t VQXML_getXmlPath(VQHANDLE node, char *buffer, int32_t size) {
    if (buffer == nullptr || size <= 0) return 0;
    buffer[0] = '\0';
    if (!isElement(liveNode(node))) return 0;
    int32_t pos = size - 1;
    buffer[pos] = '\0';
    VQHANDLE h = node;
    for (int64_t budget = walkBudget(node); budget > 0 && pos > 0; --budget) {
        const Node *n = liveNode(h);
        if (!isElement(n)) break;
        const std::string_view tag = dsView(n->nodeName);
        const int32_t copy = tag.size() < static_cast<size_t>(pos) ? static_cast<int32_t>(tag.size()) : pos;
        pos -= copy;
        if (copy > 0) std::memcpy(buffer + pos, tag.data(), static_cast<size_t>(copy));
        if (pos > 1) buffer[--pos] = '.';
        h = n->parentNode;
    }
    if (buffer[pos] == '.') ++pos;
    const int32_t length = size - 1 - pos;
    std::memmove(buffer, buffer + pos, static_cast<size_t>(length) + 1);
    return length;
}

}  // extern "C"
