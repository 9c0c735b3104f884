// prolog.cpp - the prolog: the XML declaration, the document type
// declaration with its internal subset, the markup declarations (ELEMENT,
// ATTLIST, ENTITY, NOTATION), parameter-entity references and the
// conditional sections of external text.
//
// The declarations become nodes under the DocumentType (or under the
// EntityReference of the parameter entity whose text held them), in the
// order they were written. External text is never fetched: an external
// subset or parameter entity contributes nothing, and an external parsed
// general entity stops the parse with "cannot get URL".
//
// Declarations are short, so this file reads through the reader one
// character at a time. Content-model groups and conditional sections nest
// without bound in the input; both are parsed without recursion.
#include <cstdio>
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/parser/reader.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

using namespace vqxml::codes;
using vqxml::asciiNotNameStart;
using vqxml::ByteBuffer;
using vqxml::liveHandle;
using vqxml::node;
using vqxml::rec;
using vqxml::report;
using vqxml::reportChar;

namespace {


// Keyword tables: a word's result is its position, counting from 1.
const char *const kExternalIdWords[] = {"SYSTEM", "PUBLIC", nullptr};
const char *const kContentSpecWords[] = {"EMPTY", "ANY", "(", nullptr};
const char *const kDefaultDeclWords[] = {"FIXED", "REQUIRED", "IMPLIED", nullptr};
const char *const kConditionalWords[] = {"INCLUDE", "IGNORE", nullptr};

// Attribute types by keyword; their codes run from 3 in this order.
const char *const kAttTypes[] = {"CDATA", "ID", "IDREF", "IDREFS", "ENTITY", "ENTITIES", "NMTOKEN", "NMTOKENS"};

inline unsigned cur(const Source *s) { return s->current; }
inline void next(Source *s) { getNextCh(s); }
inline bool isQuote(unsigned c) { return c == '\'' || c == '"'; }

// The characters of `text` at `s` match (first character included)?
// Consumes while they do.
bool matchText(Source *s, const char *text) {
    for (; *text != '\0'; ++text) {
        if (cur(s) != static_cast<unsigned char>(*text)) return false;
        next(s);
    }
    return true;
}

bool ahead(Source *s, const char *text) {
    if (cur(s) != static_cast<unsigned char>(text[0])) return false;
    for (int i = 1; text[i] != '\0'; ++i)
        if (getNthCh(s, i + 1) != static_cast<unsigned char>(text[i])) return false;
    return true;
}

// A literal between quotation marks (see parseLiteral). With
// `letterFirst`, its first character must be an ASCII letter (encoding
// names).
VQHANDLE literal(Source *s, int (*charClass)(int), const char *what, bool letterFirst) {
    const unsigned quote = cur(s);
    if (!isQuote(quote)) {
        report(s, kStringExpected, what);
        return 0;
    }
    vqxml::readingLevel(s)->awaited = static_cast<uint16_t>(quote);
    next(s);
    if (letterFirst && (s->delimiterSeen || !isEnglishLetter(cur(s)))) {
        reportChar(s, kEncodingCharacter, cur(s));
        return 0;
    }
    ByteBuffer text;
    while (!s->delimiterSeen && charClass(static_cast<int>(cur(s)))) {
        text.push(static_cast<char>(cur(s)));
        next(s);
    }
    if (!s->delimiterSeen) {
        reportChar(s, kLiteralUnterminated, cur(s));
        return 0;
    }
    s->delimiterSeen = 0;
    next(s);
    return text.ok() ? vqxml::createDSView(s->document, text.view()) : 0;
}

// A source over a copy of an entity value, placed where the value began
// (its line, its parent's name and external flag) and expanding with
// `doctype`.
Source *literalSource(Source *parent, VQHANDLE value, VQHANDLE doctype) {
    const std::string_view v = vqxml::dsView(value);
    auto *copy = static_cast<char *>(vqxml::tracedMalloc(v.size() + 1, "allocSourceDS", "allocSourceDS"));
    if (copy == nullptr) {
        errorAlloc("allocSourceDS", static_cast<int64_t>(v.size() + 1));
        return nullptr;
    }
    std::memcpy(copy, v.data(), v.size());
    copy[v.size()] = '\0';
    Source *s = allocSource(copy, 1, parent->document);
    if (s == nullptr) return nullptr;
    int32_t lineEnds = 0;
    for (const char c : v) lineEnds += c == '\n';
    if (char *name = newString(parent->name); name != nullptr) {
        dbg_free(s->name);
        s->name = name;
    }
    s->external = parent->external;
    // allocSource read the first character with nothing in force; read it
    // again from the right line and with the doctype, like every later one.
    s->doctype = doctype;
    s->cursor = s->text;
    s->line = parent->line - lineEnds;
    getNextCh(s);
    return s;
}

// ---- declarations ------------------------------------------------------------------

VQHANDLE elementDecl(Source *s) {
    if (!parseWordErr(s, "<!ELEMENT") || !parseSpace(s, 1) || !checkNameStart(s)) return 0;
    const VQHANDLE name = parseName(s);
    const VQHANDLE decl = name != 0 ? createElementDecl(s->document, name) : 0;
    if (decl == 0) return 0;
    if (!parseSpace(s, 1) || !parseContentSpec(s, decl)) {
        VQDOM_deleteNode(decl);
        return 0;
    }
    parseSpace(s, 0);
    if (!parseCharErr(s, '>')) {
        VQDOM_deleteNode(decl);
        return 0;
    }
    return decl;
}

VQHANDLE attlistDecl(Source *s) {
    if (!parseWordErr(s, "<!ATTLIST") || !parseSpace(s, 1) || !checkNameStart(s)) return 0;
    const VQHANDLE name = parseName(s);
    const VQHANDLE decl = name != 0 ? createAttlistDecl(s->document, name) : 0;
    if (decl == 0) return 0;
    if (parseSpace(s, 0)) {
        while (vqxml::nameStartChar(cur(s))) {
            const VQHANDLE attName = parseName(s);
            const VQHANDLE def = attName != 0 ? createAttDef(s->document, attName) : 0;
            if (def == 0) {
                VQDOM_deleteNode(decl);
                return 0;
            }
            const bool ok = parseSpace(s, 1) && parseAttType(s, def) && parseSpace(s, 1) && parseDefaultDecl(s, def);
            VQDOM_appendChild(decl, def);
            if (!ok) {
                VQDOM_deleteNode(decl);
                return 0;
            }
            if (!parseSpace(s, 0)) break;
        }
    }
    if (!parseCharErr(s, '>')) {
        VQDOM_deleteNode(decl);
        return 0;
    }
    return decl;
}

// The value of a general entity, parsed as content: its nodes become the
// entity's children.
bool generalEntityValue(Source *s, VQHANDLE entity, VQHANDLE value) {
    Source *text = literalSource(s, value, VQDOM_getDoctype(s->document));
    if (text == nullptr) return false;
    const VQHANDLE fragment = parseContent(text, 0);
    deleteSource(text);
    if (fragment == 0) return false;
    VQDOM_appendChild(entity, fragment);
    return true;
}

// The value of a parameter entity is only checked; it is kept as written.
bool parameterEntityValue(Source *s, VQHANDLE value) {
    Source *text = literalSource(s, value, s->doctype);
    if (text == nullptr) return false;
    const VQHANDLE replaced = replacementText(text, VQDOM_getDoctype(s->document));
    deleteSource(text);
    if (replaced == 0) return false;
    VQDOM_deleteDS(replaced);
    return true;
}

// The rest of an external entity declaration behind its identifier.
bool externalEntityTail(Source *s, VQHANDLE entity, bool parameter) {
    if (parameter) {
        parseSpace(s, 0);
        return parseCharErr(s, '>') != 0;
    }
    if (parseSpace(s, 0) && cur(s) != '>') {
        if (!matchText(s, "NDATA")) {
            report(s, kExpected, "NDATA / >");
            return false;
        }
        if (!parseSpace(s, 1) || !checkNameStart(s)) return false;
        const VQHANDLE notation = parseName(s);
        if (notation == 0) return false;
        rec<Entity>(entity)->notationName = notation;
        parseSpace(s, 0);
        return parseCharErr(s, '>') != 0;
    }
    // A parsed external entity would have to be fetched.
    const VQHANDLE id = rec<Entity>(entity)->externalID;
    addParseErrorDS(s, kCannotGetUrl, rec<ExternalID>(id)->systemId);
    return false;
}

VQHANDLE entityDecl(Source *s) {
    if (!parseWordErr(s, "<!ENTITY") || !parseSpace(s, 1)) return 0;
    int parameter = 0;
    if (cur(s) == '%') {
        next(s);
        if (!parseSpace(s, 1)) return 0;
        parameter = 1;
    }
    if (!checkNameStart(s)) return 0;
    const VQHANDLE name = parseName(s);
    const VQHANDLE entity = name != 0 ? createEntity(s->document, parameter, name) : 0;
    if (entity == 0) return 0;
    auto fail = [entity] {
        VQDOM_deleteNode(entity);
        return VQHANDLE{0};
    };
    if (!parseSpace(s, 1)) return fail();
    rec<Entity>(entity)->line = s->line;
    if (isQuote(cur(s))) {
        const VQHANDLE value = parseLiteral(s, isChar, "ENTITY");
        if (value == 0) return fail();
        rec<Entity>(entity)->value = value;
        if (!(parameter ? parameterEntityValue(s, value) : generalEntityValue(s, entity, value))) return fail();
        parseSpace(s, 0);
        return parseCharErr(s, '>') ? entity : fail();
    }
    const VQHANDLE id = parseExternalID(s, 1);
    if (id == 0) return fail();
    rec<Entity>(entity)->externalID = id;
    return externalEntityTail(s, entity, parameter != 0) ? entity : fail();
}

VQHANDLE notationDecl(Source *s) {
    // Everything that names no other declaration arrives here; the first
    // character that departs from "<!NOTATION" is reported.
    for (const char *p = "<!NOTATION"; *p != '\0'; ++p) {
        if (cur(s) != static_cast<unsigned char>(*p)) {
            report(s, kDeclarationExpected, nullptr);
            return 0;
        }
        next(s);
    }
    if (!parseSpace(s, 1) || !checkNameStart(s)) return 0;
    const VQHANDLE name = parseName(s);
    const VQHANDLE notation = name != 0 ? allocNode(s->document, VQXML_NOTATION_NODE, name) : 0;
    if (notation == 0) return 0;
    VQHANDLE id = 0;
    if (parseSpace(s, 1) && (id = parseExternalID(s, 0)) != 0) {
        rec<Notation>(notation)->externalID = id;
        parseSpace(s, 0);
        if (parseCharErr(s, '>')) return notation;
    }
    VQDOM_deleteNode(notation);
    return 0;
}

// A content-model group whose particles are being read.
struct OpenGroup {
    VQHANDLE group;
    bool separatorFixed;
};

void occurrence(Source *s, VQHANDLE particle) {
    const unsigned c = cur(s);
    if (c == '*' || c == '+' || c == '?') {
        rec<CpChildren>(particle)->occurrence = static_cast<uint8_t>(c);
        next(s);
    }
}

}  // namespace

// ---- XML declaration ---------------------------------------------------------------

namespace vqxml {

VQHANDLE parseXmlDecl(Source *s) {
    const VQHANDLE decl = createXmlDecl(s->document);
    if (!liveHandle(decl)) return 0;
    auto fail = [decl] {
        deleteXmlDecl(decl);
        return VQHANDLE{0};
    };
    for (int i = 0; i < 5; ++i) next(s);
    parseSpace(s, 0);
    // A missing version is reported but does not stop the parse by itself.
    const VQHANDLE version = parseWordEqual(s, "version") ? parseVersionInfo(s) : 0;
    rec<XmlDecl>(decl)->version = version;
    // The standalone check follows whether or not a space followed the
    // version; only an encoding without a space behind it skips it.
    bool standaloneMayFollow = true;
    if (parseSpace(s, 0) && cur(s) == 'e') {
        const VQHANDLE encoding = parseWordEqual(s, "encoding") ? parseEncodingDecl(s) : 0;
        if (encoding == 0) return fail();
        rec<XmlDecl>(decl)->encoding = encoding;
        standaloneMayFollow = parseSpace(s, 0) != 0;
    }
    if (standaloneMayFollow && cur(s) == 's') {
        if (!parseWordEqual(s, "standalone")) return fail();
        const VQHANDLE standalone = parseLiteral(s, isEnglishLetter, "standalone");
        if (standalone == 0) return fail();
        const std::string_view value = dsView(standalone);
        if (value != "yes" && value != "no") {
            report(s, kExpected, "yes/no");
            VQDOM_deleteDS(standalone);
            return fail();
        }
        rec<XmlDecl>(decl)->standalone = standalone;
    }
    parseSpace(s, 0);
    if (!parseCharErr(s, '?') || !parseCharErr(s, '>')) return fail();
    return decl;
}

// ---- document type declaration ------------------------------------------------------

int parseDoctypeDecl(Source *s, VQHANDLE document) {
    if (!parseWordErr(s, "<!DOCTYPE") || !parseSpace(s, 1) || !checkNameStart(s)) return 0;
    const VQHANDLE name = parseName(s);
    const VQHANDLE doctype = name != 0 ? createDocumentType(document, name) : 0;
    if (doctype == 0 || VQDOM_appendChild(document, doctype) == 0) return 0;
    auto fail = [doctype] {
        VQDOM_deleteNode(doctype);
        return 0;
    };
    if (parseSpace(s, 0) && cur(s) != '[' && cur(s) != '>') {
        const VQHANDLE id = parseExternalID(s, 1);
        if (id == 0) return fail();
        rec<DocumentType>(doctype)->externalID = id;
        parseSpace(s, 0);
    }
    if (cur(s) == '[') {
        next(s);
        for (;;) {
            parseSpace(s, 0);
            if (cur(s) == '<') {
                const VQHANDLE decl = parseMarkupDecl(s);
                if (decl == 0) return fail();
                VQDOM_appendChild(doctype, decl);
            } else if (cur(s) == '%') {
                const VQHANDLE reference = allocNode(document, VQXML_ENTITY_REFERENCE_NODE, 0);
                if (reference == 0) return fail();
                VQDOM_appendChild(doctype, reference);
                if (!parsePEReference(s, reference, 1)) return fail();
            } else {
                break;
            }
        }
        if (!parseCharErr(s, ']')) return fail();
        parseSpace(s, 0);
    }
    if (!parseCharErr(s, '>')) return fail();

    // The external subset: read through a parameter entity that borrows the
    // identifier. Nothing is fetched, so it yields no declarations.
    const VQHANDLE id = rec<DocumentType>(doctype)->externalID;
    if (liveHandle(id)) {
        const VQHANDLE reference = allocNode(document, VQXML_ENTITY_REFERENCE_NODE, 0);
        if (reference == 0) return fail();
        VQDOM_appendChild(doctype, reference);
        const VQHANDLE subset = createEntity(document, 1, 0);
        if (subset == 0) return fail();
        rec<Entity>(subset)->externalID = id;
        const int ok = parsePE(document, subset, reference);
        rec<Entity>(subset)->externalID = 0;
        VQDOM_deleteNode(subset);
        if (!ok) return fail();
    }
    return 1;
}

}  // namespace vqxml

// ---- small readers -------------------------------------------------------------------

extern "C" int startXMLDecl(Source *source) { return source != nullptr && ahead(source, "<?xml"); }

extern "C" int startConditionalSect(Source *source) { return source != nullptr && ahead(source, "<!["); }

extern "C" int parseWordErr(Source *source, const char *word) {
    if (source == nullptr || word == nullptr) return 0;
    for (const char *p = word; *p != '\0'; ++p) {
        if (cur(source) != static_cast<unsigned char>(*p)) {
            report(source, kExpected, word);
            return 0;
        }
        next(source);
    }
    return 1;
}

// The choice is made on the first character alone: of two words with the
// same first character only the earlier can ever match.
extern "C" int parseWords(Source *source, const char *const *table) {
    if (source == nullptr || table == nullptr) return 0;
    for (int i = 0; table[i] != nullptr; ++i) {
        if (cur(source) != static_cast<unsigned char>(table[i][0])) continue;
        if (matchText(source, table[i])) return i + 1;
        break;
    }
    char words[256] = "";
    for (int i = 0; table[i] != nullptr; ++i) {
        const size_t used = std::strlen(words);
        std::snprintf(words + used, sizeof words - used, "%s%s", i == 0 ? "" : "/", table[i]);
    }
    report(source, kExpected, words);
    return 0;
}

extern "C" int parseWordEqual(Source *source, const char *word) {
    if (!parseWordErr(source, word)) return 0;
    parseSpace(source, 0);
    if (cur(source) != '=') {
        report(source, kEqualAfterKeyword, word);
        return 0;
    }
    next(source);
    parseSpace(source, 0);
    return 1;
}

extern "C" VQHANDLE parseVersionInfo(Source *source) {
    if (source == nullptr) return 0;
    return literal(source, isVersNum, "version", false);
}

extern "C" VQHANDLE parseEncodingDecl(Source *source) {
    if (source == nullptr) return 0;
    return literal(source, isVersNum, "encoding", true);
}

extern "C" VQHANDLE parseLiteral(Source *source, int (*charClass)(int), const char *what) {
    if (source == nullptr || charClass == nullptr) return 0;
    return literal(source, charClass, what, false);
}

// ---- declarations ----------------------------------------------------------------------

extern "C" VQHANDLE parseExternalID(Source *source, int systemRequired) {
    if (source == nullptr) return 0;
    const int word = parseWords(source, kExternalIdWords);
    if (word == 0 || !parseSpace(source, 1)) return 0;
    const VQHANDLE doc = source->document;
    VQHANDLE publicId = 0;
    if (word == 2) {
        publicId = parseLiteral(source, isPubId, "PUBLIC");
        if (publicId == 0) return 0;
        const int spaced = parseSpace(source, systemRequired);
        if (systemRequired && !spaced) {
            VQDOM_deleteDS(publicId);
            return 0;
        }
    }
    const VQHANDLE id = createExternalID(doc);
    if (!liveHandle(id)) {
        if (publicId != 0) VQDOM_deleteDS(publicId);
        return 0;
    }
    rec<ExternalID>(id)->publicId = publicId;
    // A notation may name a public identifier alone.
    if (word == 2 && !systemRequired && cur(source) == '>') return id;
    const VQHANDLE systemId = parseLiteral(source, isChar, "SYSTEM");
    if (systemId == 0) {
        deleteExternalID(id);
        return 0;
    }
    rec<ExternalID>(id)->systemId = systemId;
    return id;
}

extern "C" VQHANDLE parseMarkupDecl(Source *source) {
    if (source == nullptr) return 0;
    if (startComment(source)) return parseComment(source);
    if (cur(source) != '<') {
        report(source, kDeclarationExpected, nullptr);
        return 0;
    }
    if (getNthCh(source, 2) == '?') return parseProcInst(source);
    if (ahead(source, "<!ELE")) return elementDecl(source);
    if (ahead(source, "<!ATT")) return attlistDecl(source);
    if (ahead(source, "<!ENT")) return entityDecl(source);
    return notationDecl(source);
}

extern "C" int parseContentSpec(Source *source, VQHANDLE elementDecl) {
    if (source == nullptr || !validHandle(elementDecl)) return 0;
    const VQHANDLE doc = source->document;
    const int word = parseWords(source, kContentSpecWords);
    if (word == 0) return 0;
    if (word != 3) {
        rec<ElementDecl>(elementDecl)->contentType = static_cast<uint16_t>(word);  // EMPTY 1, ANY 2
        return 1;
    }
    parseSpace(source, 0);
    if (cur(source) != '#') {
        rec<ElementDecl>(elementDecl)->contentType = 4;
        const VQHANDLE model = parseCP(source, 0);
        if (model == 0) return 0;
        VQDOM_appendChild(elementDecl, model);
        return 1;
    }
    // Mixed content: a choice of #PCDATA and element names. The leaves of
    // the names keep the separator a new particle starts with.
    rec<ElementDecl>(elementDecl)->contentType = 3;
    if (!parseWordErr(source, "#PCDATA")) return 0;
    const VQHANDLE choice = createCpChildren(doc);
    if (choice == 0) return 0;
    rec<CpChildren>(choice)->separator = '|';
    VQDOM_appendChild(elementDecl, choice);
    const VQHANDLE pcdata = createCpChildren(doc);
    const VQHANDLE pcdataName = pcdata != 0 ? VQDOM_createDS(doc, "#PCDATA") : 0;
    if (pcdataName == 0) return 0;
    rec<CpChildren>(pcdata)->separator = 0;
    node(pcdata)->nodeName = pcdataName;
    VQDOM_appendChild(choice, pcdata);
    parseSpace(source, 0);
    bool named = false;
    while (cur(source) == '|') {
        next(source);
        parseSpace(source, 0);
        if (!checkNameStart(source)) return 0;
        const VQHANDLE name = parseName(source);
        const VQHANDLE leaf = name != 0 ? createCpChildren(doc) : 0;
        if (leaf == 0) {
            VQDOM_deleteDS(name);
            return 0;
        }
        node(leaf)->nodeName = name;
        VQDOM_appendChild(choice, leaf);
        named = true;
        parseSpace(source, 0);
    }
    if (!parseCharErr(source, ')')) return 0;
    if (cur(source) == '*') {
        next(source);
        rec<CpChildren>(choice)->occurrence = '*';
    } else if (named) {
        report(source, kExpected, "*");
        return 0;
    }
    return 1;
}

// A content particle: a name, or a group in parentheses of particles all
// separated by "," or all by "|". Groups are kept on a heap stack; a
// particle joins its group only when it is complete, as a recursive
// descent would link it.
extern "C" VQHANDLE parseCP(Source *source, int nested) {
    if (source == nullptr) return 0;
    const VQHANDLE doc = source->document;
    vqxml::HeapStack<OpenGroup> open;
    auto fail = [&open](VQHANDLE pending) {
        VQDOM_deleteNode(pending);
        while (!open.empty()) VQDOM_deleteNode(open.pop().group);
        return VQHANDLE{0};
    };
    bool wantNested = nested != 0;
    for (;;) {
        VQHANDLE particle = createCpChildren(doc);
        if (particle == 0) return fail(0);
        bool leaf = false;
        if (wantNested) {
            if (vqxml::nameStartChar(cur(source))) {
                const VQHANDLE name = parseName(source);
                if (name == 0) return fail(particle);
                rec<CpChildren>(particle)->separator = 0;
                node(particle)->nodeName = name;
                leaf = true;
            } else if (cur(source) != '(') {
                report(source, kParticleExpected, nullptr);
                return fail(particle);
            } else {
                next(source);
            }
        }
        if (!leaf) {
            if (open.size() >= static_cast<size_t>(vqxml::kMaxNesting)) {
                vqxml::nestingTooDeep(source);
                return fail(particle);
            }
            // The separator stays "," until the first one is met.
            rec<CpChildren>(particle)->separator = ',';
            if (!open.push({particle, false})) return fail(particle);
            parseSpace(source, 0);
            wantNested = true;
            continue;
        }
        // `particle` is complete but for its occurrence; it joins its group,
        // which may complete in turn.
        for (;;) {
            occurrence(source, particle);
            if (open.empty()) return particle;
            OpenGroup &group = open.top();
            VQDOM_appendChild(group.group, particle);
            parseSpace(source, 0);
            const unsigned c = cur(source);
            if (c == ')') {
                next(source);
                particle = open.pop().group;
                continue;
            }
            if (c != '|' && c != ',') {
                report(source, kMixedSeparators, nullptr);
                return fail(0);
            }
            if (!group.separatorFixed) {
                rec<CpChildren>(group.group)->separator = static_cast<uint8_t>(c);
                group.separatorFixed = true;
            } else if (rec<CpChildren>(group.group)->separator != c) {
                report(source, kMixedSeparators, nullptr);
                return fail(0);
            }
            next(source);
            parseSpace(source, 0);
            break;
        }
    }
}

extern "C" int parseAttType(Source *source, VQHANDLE attDef) {
    if (source == nullptr || !validHandle(attDef)) return 0;
    const VQHANDLE doc = source->document;
    if (cur(source) == '(') {
        next(source);
        for (;;) {
            parseSpace(source, 0);
            const unsigned c = cur(source);
            if (c < 128 && !(chType[c] & vqxml::kClassNameChar)) {
                report(source, kEnumerationExpected, nullptr);
                return 0;
            }
            const VQHANDLE token = parseName(source);
            const VQHANDLE value = token != 0 ? createNameList(doc, token) : 0;
            if (value == 0) return 0;
            VQDOM_appendChild(attDef, value);
            parseSpace(source, 0);
            if (cur(source) == '|') {
                next(source);
                continue;
            }
            if (!parseCharErr(source, ')')) return 0;
            rec<AttDef>(attDef)->attType = 1;
            return 1;
        }
    }
    if (cur(source) >= 'A' && cur(source) <= 'Z') {
        const VQHANDLE keyword = parseName(source);
        const std::string_view word = vqxml::dsView(keyword);
        for (size_t i = 0; i < sizeof kAttTypes / sizeof kAttTypes[0]; ++i) {
            if (word == kAttTypes[i]) {
                VQDOM_deleteDS(keyword);
                rec<AttDef>(attDef)->attType = static_cast<uint16_t>(i + 3);
                return 1;
            }
        }
        if (keyword != 0) VQDOM_deleteDS(keyword);
    }
    report(source, kAttTypeExpected, nullptr);
    return 0;
}

extern "C" int parseDefaultDecl(Source *source, VQHANDLE attDef) {
    if (source == nullptr || !validHandle(attDef)) return 0;
    const VQHANDLE doc = source->document;
    if (cur(source) == '#') {
        next(source);
        const int word = parseWords(source, kDefaultDeclWords);
        if (word == 0) return 0;
        rec<AttDef>(attDef)->defaultKind = static_cast<uint16_t>(word);  // FIXED 1, REQUIRED 2, IMPLIED 3
        if (word != 1) return 1;
        if (!parseSpace(source, 1)) return 0;
    }
    if (!isQuote(cur(source))) {
        report(source, kValueExpected, nullptr);
        return 0;
    }
    const VQHANDLE name = VQDOM_cloneDS(doc, node(attDef)->nodeName);
    const VQHANDLE attr = name != 0 ? VQDOM_createAttribute(doc, name) : 0;
    if (attr == 0) return 0;
    // A default value that does not parse leaves its message, but the
    // declaration stands.
    if (const VQHANDLE value = parseAttValue(source, attr, attDef); value != 0)
        VQDOM_setNamedItem(node(attDef)->attributes, value);
    return 1;
}

// ---- parameter entities and external text -----------------------------------------------

extern "C" int parsePEReference(Source *source, VQHANDLE entityReference, int setName) {
    if (source == nullptr) return 0;
    next(source);
    if (asciiNotNameStart(cur(source))) return 0;
    const VQHANDLE name = parseName(source);
    if (name == 0) return 0;
    if (cur(source) != ';') {
        VQDOM_deleteDS(name);
        return 0;
    }
    next(source);
    const VQHANDLE entity = findEntity(VQDOM_getDoctype(source->document), name, 1);
    if (!liveHandle(entity)) {
        addParseErrorDS(source, kPeUndefined, name);
        VQDOM_deleteDS(name);
        return 0;
    }
    if (setName && liveHandle(entityReference)) {
        const VQHANDLE old = node(entityReference)->nodeName;
        if (liveHandle(old)) VQDOM_deleteDS(old);
        node(entityReference)->nodeName = name;
    } else {
        VQDOM_deleteDS(name);
    }
    if (!vqxml::entitySourceAllowed(source->line, entity)) return 0;
    return parsePE(source->document, entity, entityReference);
}

extern "C" int parsePE(VQHANDLE document, VQHANDLE entity, VQHANDLE entityReference) {
    Source *text = allocSourceEntity(entity, document);
    if (text == nullptr) return 0;
    const int ok = parseExtSubsetDecl(text, entityReference, text->external);
    deleteSource(text);
    return ok;
}

// Declarations up to the end of the text. An INCLUDE section only adds a
// level that its "]]>" closes again, so sections are counted, not recursed
// into.
extern "C" int parseExtSubsetDecl(Source *source, VQHANDLE parent, int conditionalAllowed) {
    if (source == nullptr) return 0;
    int64_t included = 0;
    parseSpace(source, 0);
    while (cur(source) != 0) {
        if (included > 0 && cur(source) == ']') {
            if (!parseWordErr(source, "]]>")) return 0;
            --included;
        } else if (conditionalAllowed && startConditionalSect(source)) {
            for (int i = 0; i < 3; ++i) next(source);
            parseSpace(source, 0);
            const int word = parseWords(source, kConditionalWords);
            if (word == 0) return 0;
            parseSpace(source, 0);
            if (!parseCharErr(source, '[')) return 0;
            if (word == 1) {
                ++included;
            } else if (!parseIgnoreSectContents(source) || !parseWordErr(source, "]]>")) {
                // IGNORE: never chosen by parseWords (see there), kept for
                // completeness.
                return 0;
            }
        } else if (cur(source) == '%') {
            if (!parsePEReference(source, parent, 0)) return 0;
        } else {
            const VQHANDLE decl = parseMarkupDecl(source);
            if (decl == 0) return 0;
            VQDOM_appendChild(parent, decl);
        }
        parseSpace(source, 0);
    }
    return included == 0 || parseWordErr(source, "]]>");
}

// Skips to a nested "<![" or the "]]>" that ends the section (or the end of
// the text), consuming neither.
extern "C" int parseIgnore(Source *source) {
    if (source == nullptr) return 0;
    while (cur(source) != 0 && !startConditionalSect(source) && !ahead(source, "]]>")) next(source);
    return 1;
}

// Skips the contents of an ignored section, nested sections included, up
// to the "]]>" that closes it (left for the caller).
extern "C" int parseIgnoreSectContents(Source *source) {
    if (source == nullptr) return 0;
    int64_t nested = 0;
    for (;;) {
        parseIgnore(source);
        if (startConditionalSect(source)) {
            for (int i = 0; i < 3; ++i) next(source);
            ++nested;
            continue;
        }
        if (nested == 0) return 1;
        if (!parseWordErr(source, "]]>")) return 0;
        --nested;
    }
}
