// reference.cpp - names, references and attribute values: the readers
// that turn "&...;" into a character or an EntityReference (with copies of
// the entity's children), gather an attribute value into Text and
// EntityReference children, and build the replacement text of an entity
// value. Character and predefined references are merged into the text
// around them while it is gathered, so no text node needs merging later.
#include <cstdio>
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/parser/reader.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

namespace vqxml {
namespace {

// The character of a predefined entity, or 0.
unsigned predefinedEntity(std::string_view name) {
    static constexpr struct {
        std::string_view name;
        unsigned character;
    } kPredefined[] = {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"apos", '\''}, {"quot", '"'}};
    for (const auto &p : kPredefined)
        if (name == p.name) return p.character;
    return 0;
}

// ---- entity expansion ----------------------------------------------------------

// Copies the children of a declared entity into a reference to it. The
// copies are charged to the parse's budget (ParseBudget), which stops them
// once it is spent; the reference then fails with 1001945.
bool expandEntity(Source *s, VQHANDLE entity, VQHANDLE reference) {
    for (VQHANDLE child = node(entity)->firstChild; liveHandle(child);) {
        const VQHANDLE copy = VQDOM_cloneNode(child, 1);
        if (copy != 0) appendToUnlinked(reference, copy);
        child = node(child)->nextSibling;
    }
    return !vqxml::copyBudgetSpent(s);
}

// ---- attribute values -------------------------------------------------------------

// Attribute-value characters from the current character on (a Char-class
// character other than "<" and "&"), TAB and line ends turned into blanks,
// until a character the value loop must look at.
void gatherValue(Source *s, TextRun &run) {
    auto blank = [](unsigned c) { return c == '\t' || c == '\n' || c == '\r'; };
    if (!direct(s)) {
        run.byte(blank(s->current) ? ' ' : s->current);
        getNextCh(s);
        return;
    }
    if (blank(s->current)) {
        run.byte(' ');
    } else {
        takeCurrent(s, run);
    }
    const unsigned quote = s->awaited;
    auto p = reinterpret_cast<Bytes>(s->cursor);
    for (;;) {
        const Bytes q = scanPlain(p, kStopValue);
        run.input(p, q);
        const unsigned c = *q;
        if (c == '\t' || c == '\n' || c == '\r') {
            run.byte(' ');
            p = q + 1;
            if (c == '\n') {
                ++s->line;
            } else if (c == '\r' && *p == '\n') {
                ++s->line;
                ++p;
            }
        } else if ((c == '"' || c == '\'') && c != quote) {
            run.input(q, q + 1);
            p = q + 1;
        } else {
            return stopAt(s, q);
        }
    }
}

// A nameless EntityReference carrying a character value (the public face
// of a character or predefined reference).
VQHANDLE characterReference(VQHANDLE doc, uint32_t value) {
    const VQHANDLE reference = allocNode(doc, VQXML_ENTITY_REFERENCE_NODE, 0);
    if (reference != 0) rec<EntityReference>(reference)->entity = value;
    return reference;
}

}  // namespace

// ---- names -------------------------------------------------------------------

std::string_view readName(Source *s, ByteBuffer &buffer) {
    if (!vqxml::nameChar(s->current)) return {};
    if (direct(s)) {
        // A name character is never a folded line end, so it is the byte
        // just before the cursor.
        const char *begin = s->cursor - 1;
        auto end = reinterpret_cast<Bytes>(s->cursor);
        while (kByteClass[*end] & kNameByte) ++end;
        stopAt(s, end);
        return {begin, static_cast<size_t>(reinterpret_cast<const char *>(end) - begin)};
    }
    buffer.clear();
    do {
        buffer.push(static_cast<char>(s->current));
        getNextCh(s);
    } while (vqxml::nameChar(s->current));
    return buffer.view();
}

VQHANDLE nameDS(Source *s, ByteBuffer &buffer) {
    return vqxml::createDSView(s->document, readName(s, buffer));
}

// ---- references ------------------------------------------------------------------

Reference readReference(Source *s, bool inContent, ByteBuffer &names) {
    constexpr Reference kFailed{Reference::kFailed, 0, 0};
    step(s);
    if (s->current == '#') {
        step(s);
        const uint32_t value = parseNumber(s);
        if (s->current != ';') {
            reportBare(s, kSemicolonExpected);
            return kFailed;
        }
        step(s);
        return {Reference::kCharacter, value, 0};
    }
    if (!checkNameStart(s)) return kFailed;
    const std::string_view name = readName(s, names);
    if (const unsigned c = predefinedEntity(name); c != 0) {
        if (s->current != ';') {
            reportBare(s, kSemicolonExpected);
            return kFailed;
        }
        step(s);
        return {Reference::kCharacter, c, 0};
    }
    const VQHANDLE doc = s->document;
    const VQHANDLE nameHandle = vqxml::createDSView(doc, name);
    const VQHANDLE reference = nameHandle != 0 ? VQDOM_createEntityReference(doc, nameHandle) : 0;
    if (reference == 0) return kFailed;
    const VQHANDLE referenceName = node(reference)->nodeName;
    const VQHANDLE doctype = VQDOM_getDoctype(doc);
    VQHANDLE entity = doctype != 0 ? VQDOM_getNamedItem(VQDOM_getEntities(doctype), referenceName) : 0;
    if (vqxml::nodeTypeOf(entity) != VQXML_ENTITY_NODE) entity = 0;
    if (entity != 0 && (inContent || !liveHandle(rec<Entity>(entity)->externalID))) {
        if (!expandEntity(s, entity, reference)) {
            VQDOM_deleteNode(reference);
            return kFailed;
        }
    } else if (doctype != 0) {
        // Without a document type a reference stays unresolved and silent.
        addParseErrorDS(s, entity != 0 ? kExternalInValue : kUndeclaredEntity, referenceName);
        VQDOM_deleteNode(reference);
        return kFailed;
    }
    if (s->current != ';') {
        reportBare(s, kSemicolonExpected);
        VQDOM_deleteNode(reference);
        return kFailed;
    }
    step(s);
    return {Reference::kNode, 0, reference};
}

void appendUtf8(TextRun &run, uint32_t code) {
    char utf8[8];
    const char *end = toUTF8(utf8, code);
    run.bytes(utf8, static_cast<size_t>(end - utf8));
}

bool appendText(VQHANDLE doc, VQHANDLE parent, std::string_view text) {
    const VQHANDLE data = vqxml::createDSView(doc, text);
    const VQHANDLE textNode = data != 0 ? VQDOM_createTextNode(doc, data) : 0;
    if (textNode == 0) return false;
    appendToUnlinked(parent, textNode);
    return true;
}

VQHANDLE attributeValue(Source *s, VQHANDLE attr, VQHANDLE attDef, ByteBuffer &textBuffer,
                        ByteBuffer &names) {
    const VQHANDLE doc = s->document;
    const unsigned quote = s->current;
    vqxml::readingLevel(s)->awaited = static_cast<uint16_t>(quote);
    step(s);
    TextRun run(textBuffer);
    auto fail = [&] {
        VQDOM_deleteNode(attr);
        return VQHANDLE{0};
    };
    while (!s->delimiterSeen) {
        const unsigned c = s->current;
        if (c == '&') {
            const Reference r = readReference(s, false, names);
            if (r.kind == Reference::kFailed) return fail();
            if (r.kind == Reference::kCharacter) {
                appendUtf8(run, r.character);
                continue;
            }
            if (!run.view().empty() && !appendText(doc, attr, run.view())) {
                VQDOM_deleteNode(r.node);
                return fail();
            }
            run.reset();
            appendToUnlinked(attr, r.node);
            continue;
        }
        if (c == '<' || !vqxml::charOk(c) || c == 0) break;
        gatherValue(s, run);
    }
    // Text before a "<" (or any other stop) is dropped: only a closed value
    // keeps it, and the others fail below.
    if (s->delimiterSeen && !run.view().empty() && !appendText(doc, attr, run.view())) return fail();
    run.reset();
    const bool cdata = attDef == 0 || vqxml::nodeTypeOf(attDef) != VQXML_ATT_DEF_NODE ||
                       rec<AttDef>(attDef)->attType == 3;
    if (!getNormalValue(attr, cdata ? 1 : 0)) {
        reportBare(s, kLessInValue);
        return fail();
    }
    if (s->current != quote) {
        addParseErrorDS(s, kClosingQuoteExpected, node(attr)->nodeName);
        return fail();
    }
    step(s);
    s->delimiterSeen = 0;
    return attr;
}

}  // namespace vqxml

using namespace vqxml;

// ---- entry points ----------------------------------------------------------------------------

extern "C" VQHANDLE parseName(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return nameDS(source, buffer);
}

extern "C" uint32_t parseNumber(Source *source) {
    if (source == nullptr) return 0;
    unsigned base = 10;
    if (source->current == 'x') {
        base = 16;
        step(source);
    }
    uint32_t value = 0;
    for (;;) {
        const unsigned c = source->current;
        unsigned digit;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (base == 16 && c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (base == 16 && c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else {
            return value;
        }
        value = value * base + digit;  // wraps silently
        step(source);
    }
}

extern "C" VQHANDLE parseReference(Source *source, int inContent) {
    if (source == nullptr) return 0;
    ByteBuffer names;
    const Reference r = readReference(source, inContent != 0, names);
    switch (r.kind) {
        case Reference::kNode:
            return r.node;
        case Reference::kCharacter:
            return characterReference(source->document, r.character);
        case Reference::kFailed:
            break;
    }
    return 0;
}

extern "C" VQHANDLE parseAttValue(Source *source, VQHANDLE attr, VQHANDLE attDef) {
    if (source == nullptr) return 0;
    ByteBuffer text;
    ByteBuffer names;
    return attributeValue(source, attr, attDef, text, names);
}

// The replacement text of an entity value: character references decoded,
// general references kept as written, parameter-entity references expanded
// where they are allowed (in external text) and reported elsewhere.
extern "C" VQHANDLE replacementText(Source *source, VQHANDLE doctype) {
    if (source == nullptr) return 0;
    ByteBuffer text;
    ByteBuffer names;
    while (source->current != 0) {
        const unsigned c = source->current;
        if (c == '&' && peek(source, 2) == '#') {
            step(source);
            step(source);
            char utf8[8];
            const char *end = toUTF8(utf8, parseNumber(source));
            if (source->current != ';') {
                reportBare(source, kSemicolonExpected);
                return 0;
            }
            step(source);
            text.append(utf8, static_cast<size_t>(end - utf8));
        } else if (c == '%' && !isSpace(peek(source, 2))) {
            step(source);
            const VQHANDLE name = nameDS(source, names);
            if (name == 0) return 0;
            if (VQDOM_lenDS(name) == 0) {
                VQDOM_deleteDS(name);
                reportBare(source, kPeNameExpected);
                return 0;
            }
            VQHANDLE expansion = 0;
            if (source->external) {
                const VQHANDLE entity = findEntity(doctype, name, 1);
                if (liveHandle(entity)) {
                    Source *inner = allocSourceEntity(entity, source->document);
                    expansion = inner != nullptr ? replacementText(inner, doctype) : 0;
                    deleteSource(inner);
                } else {
                    addParseErrorDS(source, kPeUndefined, name);
                }
            } else {
                addParseErrorDS(source, kPeIllegalHere, name);
            }
            VQDOM_deleteDS(name);
            if (!parseCharErr(source, ';')) {
                VQDOM_deleteDS(expansion);
                return 0;
            }
            const std::string_view expanded = vqxml::dsView(expansion);
            text.append(expanded.data(), expanded.size());
            VQDOM_deleteDS(expansion);
        } else {
            text.push(static_cast<char>(c));
            step(source);
        }
    }
    return text.ok() ? vqxml::createDSView(source->document, text.view()) : 0;
}
