// content.cpp - the parse entry points and the grammar of document content:
// elements and their attributes, character data, references, comments,
// processing instructions and CDATA sections, with the small readers that
// the prolog parser shares.
//
// Speed. The input is read in place and every byte is touched a bounded
// number of times. On a source that expands nothing (no doctype), the
// gatherers scan the bytes directly with a byte-class table and do exactly
// what the reader would do byte by byte (line counting, CR/LF folding, the
// awaited quotation mark); a source that expands references is read through
// the reader one character at a time. A text run, comment, CDATA section,
// PI data or attribute value becomes one DS in one allocation; character
// and predefined references are merged into the text around them while it
// is gathered, so no text node ever needs merging afterwards.
//
// Depth. Open elements are kept on an explicit heap stack, so the C stack
// does not grow with the nesting of the document. Elements are built
// bottom-up: an element receives its content while it is still unlinked
// and joins its parent only after its end tag, so every insertion's
// hierarchy check looks at one node, not at a chain of ancestors.
#include <array>
#include <cstdio>
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/parser/chars.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"

using namespace vqxml::codes;
using vqxml::ByteBuffer;
using vqxml::HeapStack;
using vqxml::liveHandle;
using vqxml::node;
using vqxml::rec;

namespace {

// ---- byte classes for the direct scanners ---------------------------------

// Bytes at which a scan of plain bytes stops, per construct. NUL and LF stop
// every scan (end of input, line counting); CR stops every scan that folds
// it into LF.
enum : uint8_t {
    kStopText = 0x01,     // character data
    kStopValue = 0x02,    // attribute values
    kStopComment = 0x04,  // comment text
    kStopCData = 0x08,    // CDATA sections (CR is kept there)
    kStopPi = 0x10,       // processing-instruction data
    kNameByte = 0x20,     // a name character (a "go on" class, unlike the rest)
};

constexpr std::array<uint8_t, 256> makeByteClasses() {
    std::array<uint8_t, 256> t{};
    constexpr uint8_t kAllStops = kStopText | kStopValue | kStopComment | kStopCData | kStopPi;
    t[0] = kAllStops;
    t['\n'] = kAllStops;
    t['\r'] = kStopText | kStopValue | kStopComment | kStopPi;
    for (int c = 1; c < 32; ++c) {
        if (c != '\t' && c != '\n' && c != '\r') t[c] |= kStopText | kStopValue | kStopComment | kStopCData;
    }
    t['<'] |= kStopText | kStopValue;
    t['&'] |= kStopText | kStopValue;
    t[']'] |= kStopText | kStopCData;
    t['-'] |= kStopComment;
    t['?'] |= kStopPi;
    t['"'] |= kStopValue;
    t['\''] |= kStopValue;
    t['\t'] |= kStopValue;
    for (int c = 128; c < 256; ++c) t[c] |= kNameByte;
    for (int c = 'A'; c <= 'Z'; ++c) t[c] |= kNameByte;
    for (int c = 'a'; c <= 'z'; ++c) t[c] |= kNameByte;
    for (int c = '0'; c <= '9'; ++c) t[c] |= kNameByte;
    t['-'] |= kNameByte;
    t['.'] |= kNameByte;
    t['_'] |= kNameByte;
    t[':'] |= kNameByte;
    return t;
}
constexpr std::array<uint8_t, 256> kByteClass = makeByteClasses();

using Bytes = const unsigned char *;

inline Bytes scanPlain(Bytes p, uint8_t stops) {
    while (!(kByteClass[*p] & stops)) ++p;
    return p;
}

// ---- reading ---------------------------------------------------------------

// A source whose reader never expands anything: the bytes of its text are
// exactly the characters it delivers (modulo CR/LF folding).
inline bool direct(const Source *s) { return s->doctype == 0 || !liveHandle(s->doctype); }

// The reader's step for a direct source: the same as getNextCh there.
inline unsigned stepDirect(Source *s) {
    auto p = reinterpret_cast<Bytes>(s->cursor);
    unsigned c = *p;
    if (c == 0) {
        s->current = 0;
        return 0;
    }
    ++p;
    if (c == '\n') ++s->line;
    if (s->awaited != 0 && c == s->awaited) {
        s->delimiterSeen = 1;
        s->awaited = 0;
    }
    if (c == '\r') {
        c = '\n';
        if (*p == '\n') {
            ++s->line;
            ++p;
        }
    }
    s->cursor = reinterpret_cast<const char *>(p);
    s->current = static_cast<uint16_t>(c);
    return c;
}

inline unsigned step(Source *s) {
    return direct(s) ? stepDirect(s) : static_cast<unsigned>(getNextCh(s));
}

// The n-th character counting the current one as the first (n >= 2).
inline unsigned peek(Source *s, int n) {
    if (!direct(s)) return static_cast<unsigned>(getNthCh(s, n));
    auto p = reinterpret_cast<Bytes>(s->cursor);
    for (int i = 2; i < n; ++i, ++p) {
        if (*p == 0) return 0;
    }
    return *p;
}

// Scans may run only where no closing quotation mark is awaited; elsewhere
// the reader's delimiter check has to see every byte.
inline bool scannable(const Source *s) { return s->awaited == 0 && direct(s); }

inline bool isSpace(unsigned c) { return vqxml::spaceChar(c); }
inline bool asciiNotNameStart(unsigned c) { return c < 128 && !(chType[c] & vqxml::kClassNameStart); }

// ---- messages --------------------------------------------------------------

// addParseError may cut its argument in place, so it always gets a copy.
void report(Source *s, int64_t code, std::string_view argument) {
    char text[256];
    const size_t n = argument.size() < sizeof text - 1 ? argument.size() : sizeof text - 1;
    std::memcpy(text, argument.data(), n);
    text[n] = '\0';
    addParseError(s->line, code, text);
}

void reportBare(Source *s, int64_t code) { addParseError(s->line, code, nullptr); }

void reportChar(Source *s, int64_t code, unsigned c) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", c);
    addParseError(s->line, code, text);
}

// ---- text runs ---------------------------------------------------------------

// The text of one run of character data (or of a comment, value, ...):
// referenced in place while it is one contiguous piece of the input, copied
// into a buffer as soon as it is not.
class TextRun {
public:
    explicit TextRun(ByteBuffer &buffer) : buffer_(buffer) {}
    TextRun(const TextRun &) = delete;
    TextRun &operator=(const TextRun &) = delete;

    bool active() const { return active_; }
    void start() { active_ = true; }
    void input(Bytes begin, Bytes end) {
        active_ = true;
        if (begin == end) return;
        if (!copied_) {
            if (begin_ == nullptr) {
                begin_ = begin;
                end_ = end;
                return;
            }
            if (end_ == begin) {
                end_ = end;
                return;
            }
            toBuffer();
        }
        buffer_.append(reinterpret_cast<const char *>(begin), static_cast<size_t>(end - begin));
    }
    void byte(unsigned c) {
        active_ = true;
        toBuffer();
        buffer_.push(static_cast<char>(c));
    }
    void bytes(const char *p, size_t n) {
        active_ = true;
        toBuffer();
        buffer_.append(p, n);
    }
    bool ok() const { return buffer_.ok(); }
    std::string_view view() const {
        if (copied_) return buffer_.view();
        return {reinterpret_cast<const char *>(begin_), static_cast<size_t>(end_ - begin_)};
    }
    void reset() {
        active_ = copied_ = false;
        begin_ = end_ = nullptr;
        buffer_.clear();
    }

private:
    void toBuffer() {
        if (copied_) return;
        buffer_.clear();
        if (begin_ != nullptr) buffer_.append(reinterpret_cast<const char *>(begin_), static_cast<size_t>(end_ - begin_));
        copied_ = true;
    }
    ByteBuffer &buffer_;
    Bytes begin_ = nullptr;
    Bytes end_ = nullptr;
    bool active_ = false;
    bool copied_ = false;
};

// Adds the current character of a direct source to a run: in place when it
// is the byte just read (it is not when a lone CR was folded into LF).
void takeCurrent(Source *s, TextRun &run) {
    const auto cursor = reinterpret_cast<Bytes>(s->cursor);
    const auto text = reinterpret_cast<Bytes>(s->text);
    if (text != nullptr && cursor > text && cursor[-1] == s->current) {
        run.input(cursor - 1, cursor);
    } else {
        run.byte(s->current);
    }
}

// A line end met by a direct scan at `q` (LF, or CR possibly followed by
// LF) joins the run as one LF; returns where the scan goes on.
Bytes lineEnd(Source *s, Bytes q, TextRun &run) {
    if (*q == '\n') {
        ++s->line;
        run.input(q, q + 1);
        return q + 1;
    }
    if (q[1] == '\n') {
        ++s->line;
        run.input(q + 1, q + 2);
        return q + 2;
    }
    run.byte('\n');
    return q + 1;
}

// Ends a direct scan: the byte at `q` becomes the current character.
void stopAt(Source *s, Bytes q) {
    s->cursor = reinterpret_cast<const char *>(q);
    stepDirect(s);
}

// Character data from the current character on (which okCharData has
// accepted) while okCharData holds.
void gatherText(Source *s, TextRun &run) {
    if (!scannable(s)) {
        do {
            run.byte(s->current);
            getNextCh(s);
        } while (okCharData(s));
        return;
    }
    takeCurrent(s, run);
    auto p = reinterpret_cast<Bytes>(s->cursor);
    for (;;) {
        const Bytes q = scanPlain(p, kStopText);
        run.input(p, q);
        if (*q == '\n' || *q == '\r') {
            p = lineEnd(s, q, run);
        } else if (*q == ']' && !(q[1] == ']' && q[2] == '>')) {
            run.input(q, q + 1);
            p = q + 1;
        } else {
            return stopAt(s, q);
        }
    }
}

// Comment text from the current character on while okCommentData holds.
void gatherComment(Source *s, TextRun &run) {
    if (!scannable(s)) {
        do {
            run.byte(s->current);
            getNextCh(s);
        } while (okCommentData(s));
        return;
    }
    takeCurrent(s, run);
    auto p = reinterpret_cast<Bytes>(s->cursor);
    for (;;) {
        const Bytes q = scanPlain(p, kStopComment);
        run.input(p, q);
        if (*q == '\n' || *q == '\r') {
            p = lineEnd(s, q, run);
        } else if (*q == '-' && q[1] != '-') {
            run.input(q, q + 1);
            p = q + 1;
        } else {
            return stopAt(s, q);
        }
    }
}

// Processing-instruction data from the current character on, up to a "?"
// followed by ">" or the end of the input.
void gatherPiData(Source *s, TextRun &run) {
    auto atEnd = [s] { return s->current == 0 || (s->current == '?' && peek(s, 2) == '>'); };
    if (!scannable(s)) {
        while (!atEnd()) {
            run.byte(s->current);
            getNextCh(s);
        }
        return;
    }
    if (atEnd()) return;
    takeCurrent(s, run);
    auto p = reinterpret_cast<Bytes>(s->cursor);
    for (;;) {
        const Bytes q = scanPlain(p, kStopPi);
        run.input(p, q);
        if (*q == '\n' || *q == '\r') {
            p = lineEnd(s, q, run);
        } else if (*q == '?' && q[1] != '>') {
            run.input(q, q + 1);
            p = q + 1;
        } else {
            return stopAt(s, q);
        }
    }
}

// ---- the CDATA reader ----------------------------------------------------------

// Inside a CDATA section characters are read by a copy of the reader that
// keeps CR as it is; everything else (expansions, lines, the awaited mark)
// works as in getNextCh.
int getNextChCDATA(Source *s) {
    unsigned c = static_cast<unsigned char>(*s->cursor);
    if (c == 0) {
        s->current = 0;
        return 0;
    }
    if (c == '\n') ++s->line;
    if (!direct(s)) {
        if (const int expanded = vqxml::readExpansionsBy(s, getNextChCDATA, "getNextChCDATA"); expanded != 0)
            return expanded;
        c = static_cast<unsigned char>(*s->cursor);
        if (c == 0) {
            s->current = 0;
            if (s->awaited != 0) addParseError(s->line, kNotSameEntity, nullptr);
            return 0;
        }
    }
    ++s->cursor;
    if (s->awaited != 0 && c == s->awaited) {
        s->delimiterSeen = 1;
        s->awaited = 0;
    }
    s->current = static_cast<uint16_t>(c);
    return static_cast<int>(c);
}

// CDATA text from the current character on while okCData holds.
void gatherCData(Source *s, TextRun &run) {
    if (!scannable(s)) {
        do {
            run.byte(s->current);
            getNextChCDATA(s);
        } while (okCData(s));
        return;
    }
    takeCurrent(s, run);
    auto p = reinterpret_cast<Bytes>(s->cursor);
    for (;;) {
        const Bytes q = scanPlain(p, kStopCData);
        run.input(p, q);
        if (*q == '\n') {
            ++s->line;
            run.input(q, q + 1);
            p = q + 1;
        } else if (*q == ']' && !(q[1] == ']' && q[2] == '>')) {
            run.input(q, q + 1);
            p = q + 1;
        } else {
            // The stop byte is NUL, a control character or "]]>": no CR to
            // keep, so the ordinary step reads it as the CDATA reader would.
            return stopAt(s, q);
        }
    }
}

// ---- names -------------------------------------------------------------------

// The name that starts at the current character (all following name
// characters; empty when the current one is none): in place on a direct
// source, else gathered in `buffer`.
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
        if (copy != 0) VQDOM_appendChild(reference, copy);
        child = node(child)->nextSibling;
    }
    return !vqxml::copyBudgetSpent(s);
}

// ---- references ------------------------------------------------------------------

struct Reference {
    enum Kind { kFailed, kCharacter, kNode } kind;
    uint32_t character;  // kCharacter
    VQHANDLE node;       // kNode: an EntityReference
};

// Reads a reference at "&" through its ";". A character or predefined
// reference yields its character; a named one an EntityReference node, with
// copies of the entity's children when it is declared.
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

// A Text node holding `text`, appended to `parent`; false when it cannot
// be made.
bool appendText(VQHANDLE doc, VQHANDLE parent, std::string_view text) {
    const VQHANDLE data = vqxml::createDSView(doc, text);
    const VQHANDLE textNode = data != 0 ? VQDOM_createTextNode(doc, data) : 0;
    if (textNode == 0) return false;
    VQDOM_appendChild(parent, textNode);
    return true;
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

// parseAttValue with the caller's buffers (see there).
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
            VQDOM_appendChild(attr, r.node);
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

// ---- comments, processing instructions, CDATA ----------------------------------------

VQHANDLE comment(Source *s, ByteBuffer &buffer) {
    step(s);
    for (const char *p = "!--"; *p != '\0' && s->current == static_cast<unsigned char>(*p); ++p) step(s);
    TextRun run(buffer);
    if (okCommentData(s)) gatherComment(s, run);
    for (const char *p = "-->"; *p != '\0'; ++p) {
        if (s->current != static_cast<unsigned char>(*p)) {
            report(s, kCommentEndMissing, "");
            return 0;
        }
        step(s);
    }
    const VQHANDLE data = run.ok() ? vqxml::createDSView(s->document, run.view()) : 0;
    return data != 0 ? VQDOM_createComment(s->document, data) : 0;
}

bool isXmlTarget(std::string_view target) {
    return target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
           (target[2] | 0x20) == 'l';
}

VQHANDLE processingInstruction(Source *s, ByteBuffer &buffer) {
    const VQHANDLE doc = s->document;
    step(s);
    step(s);
    if (!checkNameStart(s)) return 0;
    const VQHANDLE target = nameDS(s, buffer);
    if (target == 0) return 0;
    if (isXmlTarget(vqxml::dsView(target))) {
        addParseErrorDS(s, kReservedPiTarget, target);
        VQDOM_deleteDS(target);
        return 0;
    }
    TextRun run(buffer);
    if (parseSpace(s, 0)) gatherPiData(s, run);
    if (!parseWordErr(s, "?>")) {
        VQDOM_deleteDS(target);
        return 0;
    }
    const VQHANDLE data = run.ok() ? vqxml::createDSView(doc, run.view()) : 0;
    if (data == 0) {
        VQDOM_deleteDS(target);
        return 0;
    }
    return VQDOM_createProcessingInstruction(doc, target, data);
}

VQHANDLE cdataSection(Source *s, ByteBuffer &buffer) {
    if (!parseWordErr(s, "<![CDATA[")) return 0;
    TextRun run(buffer);
    if (okCData(s)) gatherCData(s, run);
    if (!parseWordErr(s, "]]>")) return 0;
    const VQHANDLE data = run.ok() ? vqxml::createDSView(s->document, run.view()) : 0;
    return data != 0 ? VQDOM_createCDATASection(s->document, data) : 0;
}

// ---- elements and content ----------------------------------------------------------------

// The attributes of the element being read, by name: the map item that
// holds each. A new name is appended without searching the element's map,
// and a repeated one replaces the earlier attribute without searching for
// its item, so that an element with many (or many repeated) attributes
// costs linear time. When memory for growing the table is short, it answers
// "unknown" from then on and the map is searched as usual.
class AttributeNames {
public:
    enum Seen { kNo, kYes, kUnknown };

    AttributeNames() = default;
    ~AttributeNames() {
        if (slots_ != inline_) dbg_free(slots_);
    }
    AttributeNames(const AttributeNames &) = delete;
    AttributeNames &operator=(const AttributeNames &) = delete;

    // Records that `item` holds the attribute named `name` (replacing an
    // earlier item of that name).
    void add(std::string_view name, VQHANDLE item) {
        if (saturated_) return;
        if (2 * (count_ + 1) > capacity_ && !grow()) {
            saturated_ = true;
            return;
        }
        insert(hash(name), item, name);
    }
    // The item holding the attribute named `name`; with kYes, `slot` is
    // where the table keeps it.
    Seen find(std::string_view name, VQHANDLE *item, size_t *slot) const {
        if (saturated_) return kUnknown;
        const uint64_t h = hash(name);
        for (size_t i = h & (capacity_ - 1); slots_[i].hash != 0; i = (i + 1) & (capacity_ - 1)) {
            if (slots_[i].hash == h && nameOf(slots_[i].item) == name) {
                *item = slots_[i].item;
                *slot = i;
                return kYes;
            }
        }
        return kNo;
    }
    // The attribute that find() reported at `slot` is now held by `item`.
    // (The table never keeps an item that has been freed.)
    void replace(size_t slot, VQHANDLE item) { slots_[slot].item = item; }

private:
    struct Slot {
        uint64_t hash;  // 0 = empty
        VQHANDLE item;
    };
    // FNV-1a with its bits mixed (names that differ in their last digits
    // must not crowd one stretch of the table); never 0.
    static uint64_t hash(std::string_view name) {
        uint64_t h = 14695981039346656037u;
        for (unsigned char c : name) h = (h ^ c) * 1099511628211u;
        h ^= h >> 33;
        h *= 0xff51afd7ed558ccdu;
        h ^= h >> 33;
        return h | 1;
    }
    static std::string_view nameOf(VQHANDLE item) {
        if (vqxml::liveNode(item, sizeof(ListItem)) == nullptr) return {};
        const Node *a = vqxml::typedNode(rec<ListItem>(item)->node);
        return a != nullptr ? vqxml::dsView(a->nodeName) : std::string_view();
    }
    void insert(uint64_t h, VQHANDLE item, std::string_view name) {
        size_t i = h & (capacity_ - 1);
        while (slots_[i].hash != 0 && !(slots_[i].hash == h && nameOf(slots_[i].item) == name))
            i = (i + 1) & (capacity_ - 1);
        if (slots_[i].hash == 0) ++count_;
        slots_[i] = {h, item};
    }
    bool grow() {
        const size_t capacity = capacity_ * 2;
        auto *fresh = static_cast<Slot *>(dbg_malloc(capacity * sizeof(Slot), "parseNames"));
        if (fresh == nullptr) return false;
        std::memset(static_cast<void *>(fresh), 0, capacity * sizeof(Slot));
        Slot *old = slots_;
        const size_t oldCapacity = capacity_;
        slots_ = fresh;
        capacity_ = capacity;
        for (size_t i = 0; i < oldCapacity; ++i) {
            if (old[i].hash == 0) continue;
            size_t j = old[i].hash & (capacity_ - 1);
            while (slots_[j].hash != 0) j = (j + 1) & (capacity_ - 1);
            slots_[j] = old[i];
        }
        if (old != inline_) dbg_free(old);
        return true;
    }

    Slot inline_[16] = {};
    Slot *slots_ = inline_;
    size_t capacity_ = 16;
    size_t count_ = 0;
    bool saturated_ = false;
};

// Takes a replaced attribute out of its element's map, its item being
// known, and deletes it: what removeNode and VQDOM_deleteNode do to it,
// without searching the map for the item.
void dropReplaced(VQHANDLE map, VQHANDLE item) {
    const ListItem it = *rec<ListItem>(item);
    NamedNodeMap *m = rec<NamedNodeMap>(map);
    if (it.previousItem != 0)
        rec<ListItem>(it.previousItem)->nextItem = it.nextItem;
    else
        m->firstItem = it.nextItem;
    if (it.nextItem != 0)
        rec<ListItem>(it.nextItem)->previousItem = it.previousItem;
    else
        m->lastItem = it.previousItem;
    myFree(item);
    if (Node *a = vqxml::typedNode(it.node)) a->containingMap = 0;
    VQDOM_deleteNode(it.node);
}

class ContentParser {
public:
    explicit ContentParser(Source *s) : s_(s), doc_(s->document), doctype_(VQDOM_getDoctype(s->document)) {}
    ContentParser(const ContentParser &) = delete;
    ContentParser &operator=(const ContentParser &) = delete;

    // A whole element at "<": start tag, content and end tag.
    VQHANDLE element();
    // Content into `parent` (a fragment or an unlinked element) until the
    // end of the input, or, with `inElement`, until an end tag at this
    // level. `depth` counts the elements already open around it.
    bool content(VQHANDLE parent, bool inElement, int32_t depth);
    // Character data at the current character, as a Text node.
    VQHANDLE charData();

private:
    VQHANDLE startTag(bool &empty);
    bool attribute(VQHANDLE element, AttributeNames &seen);
    bool endTag(VQHANDLE element);
    bool flush(VQHANDLE parent);
    bool markup(VQHANDLE parent, unsigned second);
    bool fail();
    VQHANDLE parentOfNext(VQHANDLE base) { return open_.empty() ? base : open_.top(); }
    Source *s_;
    VQHANDLE doc_;
    VQHANDLE doctype_;
    ByteBuffer textBuffer_;
    ByteBuffer valueBuffer_;
    ByteBuffer names_;
    TextRun run_{textBuffer_};
    HeapStack<VQHANDLE> open_;  // elements whose end tag is still to come
    // Defaults and definitions are looked up for every element and
    // attribute: the store's name indexes answer while the parser runs.
    vqxml::MapIndexScope indexes_;
};

VQHANDLE ContentParser::element() {
    bool empty = false;
    const VQHANDLE el = startTag(empty);
    if (el == 0 || empty) return el;
    if (!content(el, true, 1)) {
        VQDOM_deleteNode(el);
        return 0;
    }
    return endTag(el) ? el : 0;
}

VQHANDLE ContentParser::startTag(bool &empty) {
    step(s_);
    if (!checkNameStart(s_)) return 0;
    const VQHANDLE name = nameDS(s_, names_);
    const VQHANDLE el = name != 0 ? vqxml::createElementBare(doc_, name) : 0;
    if (el == 0) return 0;
    addDefaultAttributes(el);
    // Defaults are copies too, charged to the parse's budget.
    if (vqxml::copyBudgetSpent(s_)) {
        VQDOM_deleteNode(el);
        return 0;
    }
    // Names already in the element's map (DTD defaults, earlier attributes),
    // so that most attributes can be entered without searching the map.
    AttributeNames seen;
    const VQHANDLE mapHandle = node(el)->attributes;
    if (const auto *map = reinterpret_cast<const NamedNodeMap *>(vqxml::liveNode(mapHandle, sizeof(NamedNodeMap)))) {
        for (VQHANDLE it = map->firstItem; vqxml::liveNode(it, sizeof(ListItem)) != nullptr;
             it = rec<ListItem>(it)->nextItem)
            if (const Node *a = vqxml::typedNode(rec<ListItem>(it)->node)) seen.add(vqxml::dsView(a->nodeName), it);
    }
    // Each attribute must follow a space; whatever is not a name start ends
    // the list.
    while (parseSpace(s_, 0) && !asciiNotNameStart(s_->current)) {
        if (!attribute(el, seen)) {
            VQDOM_deleteNode(el);
            return 0;
        }
    }
    if (s_->current == '/') {
        step(s_);
        if (s_->current != '>') {
            VQDOM_deleteNode(el);
            return 0;
        }
        step(s_);
        empty = true;
        return el;
    }
    if (s_->current != '>') {
        addParseErrorDS(s_, kStartTagSyntax, node(el)->nodeName);
        VQDOM_deleteNode(el);
        return 0;
    }
    step(s_);
    empty = false;
    return el;
}

bool ContentParser::attribute(VQHANDLE el, AttributeNames &seen) {
    const VQHANDLE name = nameDS(s_, names_);
    const VQHANDLE attr = name != 0 ? VQDOM_createAttribute(doc_, name) : 0;
    if (attr == 0) return false;
    rec<Attr>(attr)->specified = 1;
    const VQHANDLE attrName = node(attr)->nodeName;
    parseSpace(s_, 0);
    if (s_->current != '=') {
        addParseErrorDS(s_, kEqualExpected, attrName);
        VQDOM_deleteNode(attr);
        return false;
    }
    step(s_);
    parseSpace(s_, 0);
    if (s_->current != '\'' && s_->current != '"') {
        addParseErrorDS(s_, kQuoteExpected, attrName);
        VQDOM_deleteNode(attr);
        return false;
    }
    VQHANDLE attDef = 0;
    if (doctype_ != 0) attDef = findAttDefDS(doctype_, node(el)->nodeName, attrName);
    if (attributeValue(s_, attr, attDef, valueBuffer_, names_) == 0) return false;
    // A repeated name replaces the earlier value.
    const std::string_view text = vqxml::dsView(attrName);
    VQHANDLE earlier = 0;
    size_t slot = 0;
    const AttributeNames::Seen known = seen.find(text, &earlier, &slot);
    if (known == AttributeNames::kUnknown) {
        if (const VQHANDLE displaced = VQDOM_setAttributeNode(el, attr); displaced != 0) VQDOM_deleteNode(displaced);
        return true;
    }
    // The new attribute goes to the end of the map; one it replaces leaves.
    const VQHANDLE map = node(el)->attributes;
    vqxml::appendAbsentAttribute(el, attr);
    if (vqxml::typedNode(attr) == nullptr || node(attr)->containingMap != map) return true;  // refused, and gone
    const VQHANDLE item = rec<NamedNodeMap>(map)->lastItem;
    if (known == AttributeNames::kYes) {
        seen.replace(slot, item);
        dropReplaced(map, earlier);
    } else {
        seen.add(vqxml::dsView(node(attr)->nodeName), item);
    }
    return true;
}

// The end tag of `el`, whose content is complete; on failure `el` is
// deleted.
bool ContentParser::endTag(VQHANDLE el) {
    const VQHANDLE name = node(el)->nodeName;
    auto fail = [&](int64_t code) {
        if (code != 0) addParseErrorDS(s_, code, name);
        VQDOM_deleteNode(el);
        return false;
    };
    if (s_->current == 0) return fail(kEndTagMissing);
    if (s_->current != '<') return fail(kEndTagLessExpected);
    step(s_);
    if (s_->current != '/') return fail(kEndTagSlashExpected);
    step(s_);
    if (asciiNotNameStart(s_->current)) return fail(kEndTagIllegalCharacter);
    const std::string_view endName = readName(s_, names_);
    if (endName != vqxml::dsView(name)) {
        addParseErrorDS(s_, kEndTagNameDifferent, name);
        parseSpace(s_, 0);
        if (s_->current == '>') {
            step(s_);
            return fail(0);
        }
        return fail(kEndTagGreaterExpected);
    }
    parseSpace(s_, 0);
    if (s_->current != '>') return fail(kEndTagGreaterExpected);
    step(s_);
    return true;
}

// The pending text run, as a Text node at the end of `parent`.
bool ContentParser::flush(VQHANDLE parent) {
    if (!run_.active()) return true;
    const bool made = run_.ok() && appendText(doc_, parent, run_.view());
    run_.reset();
    return made;
}

bool ContentParser::fail() {
    run_.reset();
    while (!open_.empty()) VQDOM_deleteNode(open_.pop());
    return false;
}

// A comment, CDATA section or processing instruction at "<", appended to
// `parent`; false (message recorded) when it fails.
bool ContentParser::markup(VQHANDLE parent, unsigned second) {
    VQHANDLE made = 0;
    if (second == '?') {
        made = processingInstruction(s_, textBuffer_);
    } else if (startComment(s_)) {
        made = comment(s_, textBuffer_);
    } else {
        made = cdataSection(s_, textBuffer_);
    }
    if (made == 0) return false;
    VQDOM_appendChild(parent, made);
    return true;
}

bool ContentParser::content(VQHANDLE base, bool inElement, int32_t depth) {
    for (;;) {
        const unsigned c = s_->current;
        const VQHANDLE parent = parentOfNext(base);
        if (c == '<') {
            if (!flush(parent)) return fail();
            const unsigned second = peek(s_, 2);
            if (second == '/') {
                if (!open_.empty()) {
                    const VQHANDLE el = open_.pop();
                    if (!endTag(el)) return fail();
                    VQDOM_appendChild(parentOfNext(base), el);
                    continue;
                }
                if (inElement) return true;  // the caller reads this end tag
            } else if (second == '?' ||
                       (second == '!' && ((peek(s_, 3) == '-' && peek(s_, 4) == '-') ||
                                          (peek(s_, 3) == '[' && peek(s_, 4) == 'C' && peek(s_, 5) == 'D')))) {
                if (!markup(parent, second)) return fail();
                continue;
            }
            if (depth + static_cast<int64_t>(open_.size()) >= vqxml::kMaxNesting) {
                vqxml::nestingTooDeep(s_);
                return fail();
            }
            bool empty = false;
            const VQHANDLE el = startTag(empty);
            if (el == 0) return fail();
            if (empty) {
                VQDOM_appendChild(parent, el);
                continue;
            }
            if (!open_.push(el)) {
                VQDOM_deleteNode(el);
                return fail();
            }
        } else if (c == 0) {
            if (open_.empty()) return flush(base) || fail();
            endTag(open_.pop());  // records the missing end tag
            return fail();
        } else if (c == '&') {
            const Reference r = readReference(s_, true, names_);
            if (r.kind == Reference::kFailed) return fail();
            if (r.kind == Reference::kCharacter) {
                appendUtf8(run_, r.character);
            } else if (!flush(parent)) {
                VQDOM_deleteNode(r.node);
                return fail();
            } else {
                VQDOM_appendChild(parent, r.node);
            }
        } else if (okCharData(s_)) {
            gatherText(s_, run_);
        } else {
            // Nothing of it is character data: "]]>" or a control character.
            if (c == ']') {
                report(s_, kIllegalSequence, "]]>");
            } else {
                reportChar(s_, kIllegalCharacter, c);
            }
            return fail();
        }
    }
}

VQHANDLE ContentParser::charData() {
    if (!okCharData(s_)) {
        if (s_->current == ']') {
            report(s_, kIllegalSequence, "]]>");
        } else {
            reportChar(s_, kIllegalCharacter, s_->current);
        }
        return 0;
    }
    gatherText(s_, run_);
    const VQHANDLE data = run_.ok() ? vqxml::createDSView(doc_, run_.view()) : 0;
    run_.reset();
    return data != 0 ? VQDOM_createTextNode(doc_, data) : 0;
}

// A nameless EntityReference carrying a character value (the public face
// of a character or predefined reference).
VQHANDLE characterReference(VQHANDLE doc, uint32_t value) {
    const VQHANDLE reference = allocNode(doc, VQXML_ENTITY_REFERENCE_NODE, 0);
    if (reference != 0) rec<EntityReference>(reference)->entity = value;
    return reference;
}

}  // namespace

// ---- shared helpers ---------------------------------------------------------------------

namespace vqxml {

ByteBuffer::~ByteBuffer() {
    if (data_ != inline_) dbg_free(data_);
}

bool ByteBuffer::grow(size_t more) {
    size_t capacity = capacity_ * 2;
    if (capacity < size_ + more) capacity = size_ + more;
    auto *fresh = static_cast<char *>(dbg_malloc(capacity, "parseBuffer"));
    if (fresh == nullptr) {
        errorAlloc("parseBuffer", static_cast<int64_t>(capacity));
        ok_ = false;
        return false;
    }
    std::memcpy(fresh, data_, size_);
    if (data_ != inline_) dbg_free(data_);
    data_ = fresh;
    capacity_ = capacity;
    return true;
}

void ByteBuffer::append(const char *bytes, size_t count) {
    if (count == 0) return;
    if (capacity_ - size_ < count && !grow(count)) return;
    std::memcpy(data_ + size_, bytes, count);
    size_ += count;
}

void *growStack(void *old, size_t used, size_t bytes) {
    void *fresh = dbg_malloc(bytes, "parseStack");
    if (fresh == nullptr) {
        errorAlloc("parseStack", static_cast<int64_t>(bytes));
        return nullptr;
    }
    if (used != 0) std::memcpy(fresh, old, used);
    if (old != nullptr) dbg_free(old);
    return fresh;
}

void releaseStack(void *block) {
    if (block != nullptr) dbg_free(block);
}

void nestingTooDeep(Source *source) {
    char bound[16];
    std::snprintf(bound, sizeof bound, "%d", kMaxNesting);
    addParseError(source->line, kElementsTooDeep, bound);
}

Source *readingLevel(Source *source) {
    while (!direct(source)) {
        const Expansion *x = vqxml::expansionAt(source, source->cursor);
        if (x == nullptr) break;
        source = x->child;
    }
    return source;
}

}  // namespace vqxml

// ---- entry points -------------------------------------------------------------------------

extern "C" VQHANDLE VQXML_parse(const char *text) {
    VQXML_resetErrorList();
    if (text == nullptr) text = "";
    const vqxml::ParseBudget budget(text);
    const VQHANDLE doc = VQDOM_createDocument();
    if (doc == 0) return 0;
    Source *s = allocSource(const_cast<char *>(text), 0, doc);
    if (s == nullptr) {
        VQDOM_deleteNode(doc);
        return 0;
    }
    auto fail = [&] {
        VQDOM_deleteNode(doc);
        deleteSource(s);
        return VQHANDLE{0};
    };
    // Comments and spaces, up to the first "<" that opens something else.
    auto misc = [&] {
        while (s->current != '<' || startComment(s)) {
            if (!parseMisc(s, doc)) return false;
        }
        return true;
    };

    if (startXMLDecl(s)) {
        const VQHANDLE decl = vqxml::parseXmlDecl(s);
        if (decl == 0) return fail();
        rec<Document>(doc)->xmlDecl = decl;
    }
    // A processing instruction is not accepted before the root element: it
    // ends this loop and then fails as a start tag.
    if (!misc()) return fail();
    if (peek(s, 2) == '!' && peek(s, 3) == 'D' && peek(s, 4) == 'O' && peek(s, 5) == 'C') {
        if (!vqxml::parseDoctypeDecl(s, doc) || !misc()) return fail();
    }
    const VQHANDLE root = parseElement(s);
    if (root == 0) return fail();
    VQDOM_appendChild(doc, root);
    while (s->current != 0) {
        if (!parseMisc(s, doc)) return fail();
    }
    // Memory that ran out on the way may have cost a part of the document
    // (a reference read as text, a default left out): no partial result.
    if (budget.memoryFailed()) return fail();
    deleteSource(s);
    return doc;
}

extern "C" VQHANDLE VQXML_parseFragment(VQHANDLE document, const char *text) {
    if (!validHandle(document)) return 0;
    VQXML_resetErrorList();
    if (text == nullptr) text = "";
    const vqxml::ParseBudget budget(text);
    Source *s = allocSource(const_cast<char *>(text), 0, document);
    if (s == nullptr) return 0;
    // The source has read its first character before the document type is
    // in force, so a reference at the very start is not expanded by the
    // reader: the content grammar reads it as it would in a document (a
    // character reference then gives UTF-8, not a single byte).
    s->doctype = VQDOM_getDoctype(document);
    VQHANDLE fragment = parseContent(s, 0);
    deleteSource(s);
    if (fragment != 0 && budget.memoryFailed()) {
        VQDOM_deleteNode(fragment);
        fragment = 0;
    }
    return fragment;
}

// ---- content grammar ------------------------------------------------------------------------

extern "C" int parseMisc(Source *source, VQHANDLE parent) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (startComment(source) || (c == '<' && peek(source, 2) == '?')) {
        const VQHANDLE made = c == '<' && peek(source, 2) == '?' ? parseProcInst(source) : parseComment(source);
        if (made == 0) return 0;
        VQDOM_appendChild(parent, made);
        return 1;
    }
    if (isSpace(c)) {
        parseSpace(source, 0);
        return 1;
    }
    if (c == 0) {
        report(source, kUnexpectedEnd, "");
    } else {
        reportChar(source, kIllegalCharacter, c);
    }
    return 0;
}

extern "C" VQHANDLE parseElement(Source *source) {
    if (source == nullptr) return 0;
    ContentParser parser(source);
    return parser.element();
}

extern "C" VQHANDLE parseContent(Source *source, int inElement) {
    if (source == nullptr) return 0;
    const VQHANDLE fragment = VQDOM_createDocumentFragment(source->document);
    if (fragment == 0) return 0;
    ContentParser parser(source);
    if (!parser.content(fragment, inElement != 0, 0)) {
        VQDOM_deleteNode(fragment);
        return 0;
    }
    return fragment;
}

extern "C" VQHANDLE parseCharData(Source *source) {
    if (source == nullptr) return 0;
    ContentParser parser(source);
    return parser.charData();
}

extern "C" int okCharData(Source *source) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (c == '<' || c == '&' || !vqxml::charOk(c)) return 0;
    return !(c == ']' && peek(source, 2) == ']' && peek(source, 3) == '>');
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

extern "C" VQHANDLE parseAttValue(Source *source, VQHANDLE attr, VQHANDLE attDef) {
    if (source == nullptr) return 0;
    ByteBuffer text;
    ByteBuffer names;
    return attributeValue(source, attr, attDef, text, names);
}

extern "C" VQHANDLE parseComment(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return comment(source, buffer);
}

extern "C" int okCommentData(Source *source) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (!vqxml::charOk(c)) return 0;
    return !(c == '-' && peek(source, 2) == '-');
}

extern "C" int startComment(Source *source) {
    if (source == nullptr) return 0;
    return source->current == '<' && peek(source, 2) == '!' && peek(source, 3) == '-' && peek(source, 4) == '-';
}

extern "C" VQHANDLE parseProcInst(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return processingInstruction(source, buffer);
}

extern "C" VQHANDLE parseCDSect(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return cdataSection(source, buffer);
}

extern "C" int okCData(Source *source) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (!vqxml::charOk(c)) return 0;
    return !(c == ']' && peek(source, 2) == ']' && peek(source, 3) == '>');
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

// ---- small readers ----------------------------------------------------------------------------

extern "C" VQHANDLE parseName(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return nameDS(source, buffer);
}

extern "C" int parseSpace(Source *source, int required) {
    if (source == nullptr) return 0;
    if (isSpace(source->current)) {
        do {
            step(source);
        } while (isSpace(source->current));
        return 1;
    }
    if (required) reportBare(source, kSpaceExpected);
    return 0;
}

extern "C" int parseCharErr(Source *source, int character) {
    if (source == nullptr) return 0;
    if (source->current == static_cast<unsigned>(character)) {
        step(source);
        return 1;
    }
    const char text[2] = {static_cast<char>(character), '\0'};
    report(source, kExpected, text);
    return 0;
}
