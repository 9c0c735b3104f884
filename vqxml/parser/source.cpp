// source.cpp - input sources: the record that reads a NUL-terminated text
// one byte at a time for the parser, with line counting, CR/LF folding, an
// awaited closing quotation mark, look-ahead, and the transparent expansion
// of parameter-entity and character references inside entity text; also the
// Entity node constructor and the two functions that record parse messages.
//
// A source whose doctype is 0 never expands anything: getNextCh then costs
// a NUL test, one store and the line/CR checks per byte, and everything to
// do with expansions stays out of line.
#include "vqxml/parser/source.h"

#include <cstdio>
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/parser/chars.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/area.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace {

using namespace vqxml::codes;
using vqxml::kClassNameStart;
using vqxml::kClassSpace;

// Bounds on entity expansion. Entity sources nest (the reader expands
// references inside entity text recursively, and the DTD parser opens a
// source per parameter-entity reference it meets), so an entity that names
// itself, directly or through others, would never end, and one that names
// others many times could multiply its text without limit. A source that
// would pass either bound is refused: the nesting with kEntitiesTooDeep, the
// bytes of entity text read with kExpansionTooLarge, and the reader then reads the
// reference as plain text. Every character of a nested source passes
// through each enclosing source on its way to the parser, so a source's
// text counts once for every level it is read through (its own and those
// around it): what is bounded is the reading work, which deep nesting would
// otherwise multiply up to 64 times. The bound is an allowance plus a share
// per byte of the parsed text, so that refusing a small document that asks
// for much costs little more than reading it. The count covers a whole
// parse call (so that many references, each below the bound, cannot add up
// to an unbounded amount); outside a parse it starts again whenever no
// entity source is open.
using vqxml::kMaxOpenEntitySources;
int32_t openEntitySources = 0;
int64_t expandedBytes = 0;
int64_t expandedLimit = vqxml::kEntityTextAllowance;
int32_t parseScopes = 0;

// The chain of levels the last walk from `top` handed characters down:
// level[i] stood at at[i] on an expansion whose child is level[i + 1]. While
// nothing else has moved a cursor or dropped a source, the next step from
// `top` finds the same chain, and levels whose child still has a character
// only pass it up: that part of the walk is done from here without looking
// for the expansions again. Every level recorded reads with `top`'s
// document type, so one check of it covers them all. (An intermediate level
// stands on the start of a reference, never on a NUL or LF.) The reader is
// single-threaded, like the counts above.
struct Chain {
    Source *top = nullptr;
    VQHANDLE doctype = 0;
    int depth = 0;
    Source *level[vqxml::kMaxOpenEntitySources + 2];
    const char *at[vqxml::kMaxOpenEntitySources + 1];
};
Chain chain;

// Anything but a step from the top may move cursors or drop sources.
void forgetChain() { chain.top = nullptr; }

// The count for a new source over `textLength` bytes: read through itself
// and every entity source open around it.
int64_t readingCost(int64_t textLength) { return textLength * (openEntitySources + 1); }

// Whether a new entity source over `textLength` bytes may open; when it may
// not, the refusal is recorded at `line`.
bool expansionAllowed(int32_t line, int64_t textLength) {
    int64_t code = 0, bound = 0;
    if (openEntitySources >= kMaxOpenEntitySources) {
        code = kEntitiesTooDeep;
        bound = kMaxOpenEntitySources;
    } else if (expandedBytes + readingCost(textLength) > expandedLimit) {
        code = kExpansionTooLarge;
        bound = expandedLimit;
    } else {
        return true;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%lld", static_cast<long long>(bound));
    addParseError(line, code, text);
    return false;
}

// Text of a source that has none (external entities are never fetched).
constexpr char kNoText[] = "";

// A cleared record: line 1, no text, no expansions. `function` names the
// allocation in the trace.
Source *newSourceRecord(const char *function) {
    auto *s = static_cast<Source *>(vqxml::tracedMalloc(sizeof(Source), "source", function));
    if (s == nullptr) {
        errorAlloc("Source", sizeof(Source));
        return nullptr;
    }
    std::memset(static_cast<void *>(s), 0, sizeof(Source));
    s->cursor = kNoText;
    s->line = 1;
    return s;
}

inline unsigned byteAt(const char *p) { return static_cast<unsigned char>(*p); }
inline bool asciiSpace(unsigned c) { return c < 128 && (chType[c] & kClassSpace); }

// The character `c`, just read at this level, becomes the current one. A
// LF has been counted already, by the byte test before the expansions.
inline int takeChar(Source *s, unsigned c) {
    if (s->awaited != 0 && c == s->awaited) {
        s->delimiterSeen = 1;
        s->awaited = 0;
    }
    if (c == '\r') {
        // CR LF is one line end; a lone CR becomes LF without counting a
        // line (callers' line numbers depend on this asymmetry).
        c = '\n';
        if (*s->cursor == '\n') {
            ++s->line;
            ++s->cursor;
        }
    }
    s->current = static_cast<uint16_t>(c);
    return static_cast<int>(c);
}

}  // namespace

Expansion *vqxml::expansionAt(const Source *s, const char *position) {
    for (Expansion *x = s->expansions; x != nullptr; x = x->next)
        if (x->start == position) return x;
    return nullptr;
}

namespace {
using vqxml::expansionAt;

// Look-ahead may have started expansions further on before this one, so
// the finished record is not necessarily the head of the chain.
void unlinkExpansion(Source *s, Expansion *x) {
    for (Expansion **link = &s->expansions; *link != nullptr; link = &(*link)->next) {
        if (*link == x) {
            *link = x->next;
            return;
        }
    }
}

}  // namespace

namespace {

// Look-ahead from `position` in the text of `s`: the character `skip`
// characters on, expansions included. Returns -1, with `skip` reduced by
// what was passed, when the text ends first.
int peekFrom(Source *s, const char *position, int &skip) {
    const bool expanding = s->doctype != 0 && vqxml::liveHandle(s->doctype);
    for (const char *p = position;;) {
        if (expanding) {
            Expansion *x = expansionAt(s, p);
            if (x == nullptr) x = checkEntity(s, p);
            if (x != nullptr) {
                Source *child = x->child;
                if (child->current != 0) {
                    if (skip == 0) return child->current;
                    --skip;
                    const int c = peekFrom(child, child->cursor, skip);
                    if (c >= 0) return c;
                }
                p = x->resume;
                continue;
            }
        }
        const unsigned c = byteAt(p);
        if (c == 0) return -1;
        if (skip == 0) return static_cast<int>(c);
        --skip;
        ++p;
    }
}

int digitValue(unsigned c, unsigned base) {
    if (c >= '0' && c <= '9') return static_cast<int>(c - '0');
    if (base == 16 && c >= 'a' && c <= 'f') return static_cast<int>(c - 'a' + 10);
    if (base == 16 && c >= 'A' && c <= 'F') return static_cast<int>(c - 'A' + 10);
    return -1;
}

// The child source of a character reference: one byte, the value's low
// eight bits. `end` receives the byte behind the digits.
Source *charReferenceChild(Source *s, const char *position, const char **end) {
    const char *p = position + 2;
    unsigned base = 10;
    if (*p == 'x') {
        base = 16;
        ++p;
    }
    uint32_t value = 0;
    for (int d; (d = digitValue(byteAt(p), base)) >= 0; ++p) value = value * base + static_cast<uint32_t>(d);
    *end = p;

    auto *text = static_cast<char *>(vqxml::tracedMalloc(2, "checkEntity_1", "checkEntity"));
    if (text == nullptr) {
        errorAlloc("checkEntity_1", 2);
        return nullptr;
    }
    text[0] = static_cast<char>(value & 0xff);
    text[1] = '\0';
    Source *child = allocSource(text, 1, s->document);
    if (child == nullptr) return nullptr;
    child->line = s->line;
    // The child reports under its parent's name; without memory for the
    // copy it keeps the empty one.
    if (char *name = newString(s->name); name != nullptr) {
        dbg_free(child->name);
        child->name = name;
    }
    return child;
}

// The child source of a parameter-entity reference; null (with the message
// recorded) when the reference is not one. `end` receives the byte behind
// the name.
Source *paramReferenceChild(Source *s, const char *position, const char **end) {
    const unsigned first = byteAt(position + 1);
    if (asciiSpace(first)) return nullptr;  // "% " as in a declaration
    if (first < 128 && !(chType[first] & kClassNameStart)) {
        addParseError(s->line, kPeNameExpected, nullptr);
        return nullptr;
    }
    const char *p = position + 1;
    while (vqxml::nameChar(byteAt(p))) ++p;  // stops at the NUL at the latest
    *end = p;

    const size_t length = static_cast<size_t>(p - (position + 1));
    char shortName[256];
    vqxml::DbgPtr<char> longName;
    char *name = shortName;
    if (length >= sizeof shortName) {
        longName.reset(static_cast<char *>(dbg_malloc(length + 1, "checkEntity")));
        if (longName == nullptr) {
            errorAlloc("checkEntity", static_cast<int64_t>(length + 1));
            return nullptr;
        }
        name = longName.get();
    }
    std::memcpy(name, position + 1, length);
    name[length] = '\0';

    const VQHANDLE entity = findEntityStr(s->doctype, name);
    if (!vqxml::liveHandle(entity)) {
        addParseError(s->line, kPeUndefined, name);
        return nullptr;
    }
    if (!expansionAllowed(s->line, VQDOM_lenDS(vqxml::rec<Entity>(entity)->value))) return nullptr;
    return allocSourceEntity(entity, s->document);
}

// Reads the version information, "encoding = literal" and "?>" of an
// external entity's text declaration; the values are dropped.
bool skipTextDecl(Source *s) {
    auto skipSpaces = [s] {
        while (asciiSpace(s->current)) getNextCh(s);
    };
    for (int i = 0; i < 5; ++i) getNextCh(s);
    skipSpaces();
    if (s->current == 'v') {
        const VQHANDLE version = parseVersionInfo(s);  // "version", "=" and the literal
        if (version == 0) return false;
        VQDOM_deleteDS(version);
    }
    skipSpaces();
    if (s->current == 'e') {
        if (!parseWordEqual(s, "encoding")) return false;
        const VQHANDLE encoding = parseEncodingDecl(s);
        if (encoding == 0) return false;
        VQDOM_deleteDS(encoding);
    }
    skipSpaces();
    return parseWordErr(s, "?>") != 0;
}

}  // namespace

namespace vqxml {

EntityBudgetScope::EntityBudgetScope() {
    if (parseScopes++ == 0) expandedBytes = 0;
}

void EntityBudgetScope::allowFor(int64_t inputBytes) {
    if (parseScopes == 1) expandedLimit = kEntityTextAllowance + kEntityTextPerInputByte * inputBytes;
}

EntityBudgetScope::~EntityBudgetScope() {
    if (--parseScopes != 0) return;
    expandedLimit = kEntityTextAllowance;
    if (openEntitySources == 0) expandedBytes = 0;
}

bool entitySourceAllowed(int32_t line, VQHANDLE entity) {
    const Entity *e = reinterpret_cast<const Entity *>(liveNode(entity, sizeof(Entity)));
    if (e == nullptr || e->node.nodeType != VQXML_ENTITY_NODE) return true;  // allocSourceEntity decides
    const bool external = liveHandle(e->externalID);  // (allocSourceEntity reports a bad one)
    return expansionAllowed(line, external ? 0 : VQDOM_lenDS(e->value));
}

}  // namespace vqxml

extern "C" char *dsToString(VQHANDLE ds) {
    const size_t size = static_cast<size_t>(VQDOM_lenDS(ds)) + 1;
    auto *copy = static_cast<char *>(vqxml::tracedMalloc(size, "dsToString", "dsToString"));
    if (copy != nullptr) VQDOM_cpyDS(ds, copy, static_cast<int64_t>(size));
    return copy;
}

extern "C" Source *allocSource(char *text, int ownsText, VQHANDLE document) {
    Source *s = newSourceRecord("allocSource");
    char *name = s != nullptr ? newString("") : nullptr;
    if (name == nullptr) {
        if (s != nullptr) {
            errorAlloc("Source", sizeof(Source));
            vqxml::tracedFree(s, "allocSource");
        }
        if (ownsText) vqxml::tracedFree(text, "allocSource");
        return nullptr;
    }
    s->text = text;
    s->cursor = text != nullptr ? text : kNoText;
    s->name = name;
    s->ownsText = ownsText;
    s->document = document;
    getNextCh(s);
    return s;
}

extern "C" Source *allocSourceEntity(VQHANDLE entity, VQHANDLE document) {
    if (!validHandle(entity)) return nullptr;
    const Node *head = vqxml::liveNode(entity);
    if (head == nullptr) return nullptr;
    if (head->nodeType != VQXML_ENTITY_NODE) {
        toPEntity(entity);  // records the type mismatch
        return nullptr;
    }
    const Entity *e = vqxml::rec<Entity>(entity);
    const VQHANDLE externalId = e->externalID;
    const VQHANDLE value = e->value;
    const int32_t line = e->line;

    // The entity's document type: it decides which references the text may
    // name.
    VQHANDLE doctype = head->parentNode;
    while (vqxml::typedNode(doctype) != nullptr && vqxml::node(doctype)->nodeType != VQXML_DOCUMENT_TYPE_NODE)
        doctype = vqxml::node(doctype)->parentNode;
    if (vqxml::typedNode(doctype) == nullptr) doctype = 0;

    const bool hasExternalId = externalId != 0 && validHandle(externalId);
    const int64_t textLength = hasExternalId ? 0 : VQDOM_lenDS(value);
    // Callers that know where the reference stands check first and report
    // its line; this is the last guard.
    if (!expansionAllowed(line, textLength)) return nullptr;

    Source *s = newSourceRecord("newString");
    if (s == nullptr) return nullptr;
    s->entitySource = 1;
    expandedBytes += readingCost(textLength);
    ++openEntitySources;
    if (hasExternalId) {
        // External text is never fetched: the source is at its end at once,
        // and only the system literal is kept, to name it.
        VQHANDLE systemId = 0;
        if (vqxml::liveNode(externalId, sizeof(ExternalID)) != nullptr)
            systemId = vqxml::rec<ExternalID>(externalId)->systemId;
        s->name = vqxml::liveHandle(systemId) ? dsToString(systemId) : newString("");
        s->external = 1;
    } else {
        s->name = newString("");
        s->text = vqxml::liveHandle(value) ? dsToString(value) : newString("");
        s->cursor = s->text != nullptr ? s->text : kNoText;
        s->external = externalId != 0 ? 1 : 0;
        s->line = line;
    }
    s->ownsText = 1;
    s->document = document;
    s->doctype = doctype;
    if (s->name == nullptr || (!hasExternalId && s->text == nullptr)) {
        errorAlloc("Source", sizeof(Source));
        deleteSource(s);
        return nullptr;
    }
    getNextCh(s);
    if (hasExternalId && startXMLDecl(s) && !skipTextDecl(s)) {
        deleteSource(s);
        return nullptr;
    }
    return s;
}

extern "C" void deleteSource(Source *source) {
    if (source == nullptr) return;
    forgetChain();
    // Expansions still in progress (a parse that stopped early, or records
    // that look-ahead made) go with their children.
    for (Expansion *x = source->expansions; x != nullptr;) {
        Expansion *next = x->next;
        deleteSource(x->child);
        vqxml::tracedFree(x, "deleteSource");
        x = next;
    }
    source->expansions = nullptr;
    if (source->entitySource && --openEntitySources == 0 && parseScopes == 0) expandedBytes = 0;
    if (source->ownsText) vqxml::tracedFree(source->text, "deleteSource");
    vqxml::tracedFree(source->name, "deleteSource");
    vqxml::tracedFree(source, "deleteSource");
}

// A level whose cursor stands on an expansion hands its child's current
// character on and then steps the child; nothing happens at the level after
// that, so reading through nested expansions is a walk down the chain of
// children rather than a call per level. Each level on the way does exactly
// what a step of its own would: count a LF at its cursor, drop the
// expansions that have run dry, take over the child's character and its
// delimiter mark.
namespace {

// The child whose character `s` has just taken over, or null when no
// expansion starts at the (possibly moved) cursor of `s`.
template <bool kKeepCR>
Source *handOn(Source *s) {
    for (;;) {
        // A reference, and so any expansion, starts with "%" or "&".
        const char first = *s->cursor;
        if (first != '%' && first != '&') return nullptr;
        Expansion *x = s->expansions;
        if (x == nullptr || x->start != s->cursor) x = expansionAt(s, s->cursor);
        if (x == nullptr) x = checkEntity(s, s->cursor);
        if (x == nullptr) return nullptr;
        Source *child = x->child;
        const unsigned c = child->current;
        s->current = static_cast<uint16_t>(c);
        if (child->delimiterSeen) {
            child->delimiterSeen = 0;
            s->delimiterSeen = 1;
        }
        if (c != 0) return child;
        if (kKeepCR) {
            vqxml::getNextChKeepingCR(child);
        } else {
            getNextCh(child);
        }
        s->cursor = x->resume;
        unlinkExpansion(s, x);
        deleteSource(child);
        vqxml::tracedFree(x, kKeepCR ? "getNextChCDATA" : "getNextCh");
    }
}

// One step of the reader from `source`; with kKeepCR a CR is delivered as
// it is (CDATA sections) instead of as a line end.
template <bool kKeepCR>
int readStep(Source *source) {
    Source *s = source;
    if (chain.top == source && chain.depth > 0 && source->cursor == chain.at[0] &&
        source->doctype == chain.doctype && vqxml::liveHandle(chain.doctype)) {
        int k = 0;
        for (; k < chain.depth; ++k) {
            Source *child = chain.level[k + 1];
            const unsigned c = child->current;
            if (c == 0) break;  // the walk drops it
            Source *level = chain.level[k];
            level->current = static_cast<uint16_t>(c);
            if (child->delimiterSeen) {
                child->delimiterSeen = 0;
                level->delimiterSeen = 1;
            }
        }
        chain.depth = k;
        s = chain.level[k];
    } else if (chain.top != source || chain.depth != 0 || chain.doctype != source->doctype) {
        chain.top = source;
        chain.doctype = source->doctype;
        chain.depth = 0;
        chain.level[0] = source;
    }
    for (;;) {
        unsigned c = byteAt(s->cursor);
        if (c == 0) {
            s->current = 0;  // the cursor stays: end of input is sticky
            return source->current;
        }
        // A LF is counted when it is the byte at the cursor on entry, before
        // any expansion is looked for. A LF that a finished reference
        // uncovers below is therefore read without counting a line: entity
        // texts and fragments number their lines this way, and callers'
        // messages depend on it (like the lone CR in takeChar).
        if (c == '\n') ++s->line;
        // (A silent check: this runs for every character at every level of
        // a nested expansion, and the parser set the doctype itself.)
        if (s->doctype != 0 && vqxml::liveHandle(s->doctype)) {
            if (Source *child = handOn<kKeepCR>(s); child != nullptr) {
                if (chain.top == source && chain.level[chain.depth] == s && s->doctype == chain.doctype &&
                    chain.depth <= vqxml::kMaxOpenEntitySources) {
                    chain.at[chain.depth] = s->cursor;
                    chain.level[++chain.depth] = child;
                }
                s = child;
                continue;
            }
            // A finished expansion may have moved the cursor; a LF found
            // there is not counted (see above).
            c = byteAt(s->cursor);
            if (c == 0) {
                // The text ended right behind a reference; the cursor stays
                // on the NUL so that the end remains sticky.
                s->current = 0;
                if (s->awaited != 0) addParseError(s->line, kNotSameEntity, nullptr);
                return source->current;
            }
        }
        ++s->cursor;
        if (kKeepCR) {
            if (s->awaited != 0 && c == s->awaited) {
                s->delimiterSeen = 1;
                s->awaited = 0;
            }
            s->current = static_cast<uint16_t>(c);
        } else {
            takeChar(s, c);
        }
        return source->current;
    }
}

}  // namespace

extern "C" int getNextCh(Source *source) { return source != nullptr ? readStep<false>(source) : 0; }

int vqxml::getNextChKeepingCR(Source *source) { return readStep<true>(source); }

extern "C" int getNthCh(Source *source, int n) {
    if (source == nullptr) return 0;
    if (n < 2) return source->current;
    int skip = n - 2;
    const int c = peekFrom(source, source->cursor, skip);
    return c < 0 ? 0 : c;
}

extern "C" Expansion *checkEntity(Source *source, const char *position) {
    if (source == nullptr || position == nullptr) return nullptr;
    const char *end = nullptr;
    Source *child = nullptr;
    if (position[0] == '%') {
        child = paramReferenceChild(source, position, &end);
    } else if (position[0] == '&' && position[1] == '#') {
        child = charReferenceChild(source, position, &end);
    }
    if (child == nullptr) return nullptr;
    if (*end != ';') {
        addParseError(source->line, kSemicolonExpected, nullptr);
        deleteSource(child);
        return nullptr;
    }
    auto *x = static_cast<Expansion *>(vqxml::tracedMalloc(sizeof(Expansion), "checkEntity_2", "checkEntity"));
    if (x == nullptr) {
        errorAlloc("checkEntity_2", sizeof(Expansion));
        deleteSource(child);
        return nullptr;
    }
    *x = Expansion{position, end + 1, child, nullptr};
    Expansion **tail = &source->expansions;
    while (*tail != nullptr) tail = &(*tail)->next;
    *tail = x;
    return x;
}

extern "C" VQHANDLE createEntity(VQHANDLE document, int flag, VQHANDLE name) {
    const VQHANDLE entity = allocNode(document, VQXML_ENTITY_NODE, name);
    if (entity == 0) return 0;
    Entity *e = vqxml::rec<Entity>(entity);
    e->externalID = 0;
    e->notationName = 0;
    e->value = 0;
    e->kind = static_cast<uint32_t>(flag);
    return entity;
}

extern "C" int checkNameStart(Source *source) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (c > 127 || (chType[c] & kClassNameStart)) return 1;
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", c);
    addParseError(source->line, kNameStartIllegal, text);
    return 0;
}

extern "C" void addParseError(int32_t line, int64_t code, char *argument) {
    char text[256];
    const int prefix = std::snprintf(text, sizeof text, "%d|", line);
    if (argument != nullptr) {
        // The record holds 256 bytes with the closing '|' and NUL.
        // A longer argument is cut in the caller's buffer, at the first byte
        // past the room; the scan reaches that byte only inside the string.
        const size_t room = 254 - static_cast<size_t>(prefix);
        size_t length = 0;
        for (char *p = argument; *p != '\0'; ++p, ++length) {
            if (length == room) {
                *p = '\0';
                break;
            }
        }
        std::memcpy(text + prefix, argument, length);
        text[static_cast<size_t>(prefix) + length] = '\0';
    }
    addVqXmlError(code, text);
}

extern "C" void addParseErrorDS(Source *source, int64_t code, VQHANDLE ds) {
    char text[256];
    VQDOM_cpyDS(ds, text, sizeof text);
    addParseError(source != nullptr ? source->line : 0, code, text);
}
