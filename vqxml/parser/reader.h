// reader.h - what the parser's files share: the byte classes of the direct
// scanners, the reading steps, the message helpers, text runs and the
// readers that one construct's file offers another (names, references,
// attribute values, character data and markup).
//
// A source whose reader never expands anything (no document type) is read
// "directly": the bytes of its text are the characters it delivers, and the
// scanners look at them with a byte-class table while doing exactly what
// the reader would do byte by byte (line counting, CR/LF folding, the
// awaited quotation mark). Any other source is read through the reader one
// character at a time.
#ifndef VQXML_PARSER_READER_H
#define VQXML_PARSER_READER_H

#include <array>
#include <cstdint>
#include <string_view>

#include "vqxml/parser/chars.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/area.h"

namespace vqxml {

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
inline constexpr std::array<uint8_t, 256> kByteClass = makeByteClasses();

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

// Parse messages at the source's current line. addParseError may cut its
// argument in place, so report always hands it a copy (the first 255
// bytes); a null argument, like reportBare, records none.
void report(Source *s, int64_t code, std::string_view argument);
void reportBare(Source *s, int64_t code);
inline void report(Source *s, int64_t code, const char *argument) {
    if (argument == nullptr) return reportBare(s, code);
    report(s, code, std::string_view(argument));
}
// The character as "0x.." (hexadecimal).
void reportChar(Source *s, int64_t code, unsigned c);

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
inline void takeCurrent(Source *s, TextRun &run) {
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
inline Bytes lineEnd(Source *s, Bytes q, TextRun &run) {
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
inline void stopAt(Source *s, Bytes q) {
    s->cursor = reinterpret_cast<const char *>(q);
    stepDirect(s);
}

// ---- readers shared between the construct files ------------------------------

// Character data from the current character on (which okCharData has
// accepted) while okCharData holds (text.cpp).
void gatherText(Source *s, TextRun &run);
// A comment, processing instruction or CDATA section at "<", as a node;
// 0 (message recorded) when it fails. `buffer` gathers the text (text.cpp).
VQHANDLE comment(Source *s, ByteBuffer &buffer);
VQHANDLE processingInstruction(Source *s, ByteBuffer &buffer);
VQHANDLE cdataSection(Source *s, ByteBuffer &buffer);

// The name that starts at the current character (all following name
// characters; empty when the current one is none): in place on a direct
// source, else gathered in `buffer` (reference.cpp). nameDS makes it a DS.
std::string_view readName(Source *s, ByteBuffer &buffer);
VQHANDLE nameDS(Source *s, ByteBuffer &buffer);

struct Reference {
    enum Kind { kFailed, kCharacter, kNode } kind;
    uint32_t character;  // kCharacter
    VQHANDLE node;       // kNode: an EntityReference
};
// Reads a reference at "&" through its ";". A character or predefined
// reference yields its character; a named one an EntityReference node, with
// copies of the entity's children when it is declared (reference.cpp).
Reference readReference(Source *s, bool inContent, ByteBuffer &names);
void appendUtf8(TextRun &run, uint32_t code);
// A Text node holding `text`, appended to `parent`; false when it cannot
// be made.
bool appendText(VQHANDLE doc, VQHANDLE parent, std::string_view text);
// parseAttValue with the caller's buffers (reference.cpp).
VQHANDLE attributeValue(Source *s, VQHANDLE attr, VQHANDLE attDef, ByteBuffer &textBuffer,
                        ByteBuffer &names);

}  // namespace vqxml

#endif  // VQXML_PARSER_READER_H
