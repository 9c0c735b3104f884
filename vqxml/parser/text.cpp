// text.cpp - character data and the markup that holds text: text runs,
// comments, processing instructions and CDATA sections.
//
// Speed. The input is read in place and every byte is touched a bounded
// number of times. On a direct source the gatherers scan the bytes with the
// byte-class table (reader.h); elsewhere they read through the reader one
// character at a time. A text run, comment, CDATA section or PI data
// becomes one DS in one allocation.
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

// The scan every text reader makes over a direct source, from the current
// character on: runs of bytes that are not `Stops`, line ends joined as one
// LF, and a stop byte that `belongs` keeps in the text (a "-" not before
// another, say); any other stop byte ends the text and becomes the current
// character.
template <uint8_t Stops, typename Belongs>
void scanDirect(Source *s, TextRun &run, Belongs belongs) {
    takeCurrent(s, run);
    auto p = reinterpret_cast<Bytes>(s->cursor);
    for (;;) {
        const Bytes q = scanPlain(p, Stops);
        run.input(p, q);
        if (*q == '\n' || *q == '\r') {
            p = lineEnd(s, q, run);
        } else if (belongs(q)) {
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
    scanDirect<kStopComment>(s, run, [](Bytes q) { return *q == '-' && q[1] != '-'; });
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
    scanDirect<kStopPi>(s, run, [](Bytes q) { return *q == '?' && q[1] != '>'; });
}

// ---- the CDATA reader ----------------------------------------------------------

// Inside a CDATA section characters are read by the reader's variant that
// keeps CR as it is.
int getNextChCDATA(Source *s) { return vqxml::getNextChKeepingCR(s); }

// CDATA text from the current character on while okCData holds.
void gatherCData(Source *s, TextRun &run) {
    if (!scannable(s)) {
        do {
            run.byte(s->current);
            getNextChCDATA(s);
        } while (okCData(s));
        return;
    }
    // CR is no stop byte here, so it stays as it is; the scan ends at NUL,
    // a control character or "]]>", which the ordinary step reads as the
    // CDATA reader would.
    scanDirect<kStopCData>(s, run, [](Bytes q) { return *q == ']' && !(q[1] == ']' && q[2] == '>'); });
}

bool isXmlTarget(std::string_view target) {
    return target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
           (target[2] | 0x20) == 'l';
}

}  // namespace

// ---- shared with the content grammar ----------------------------------------------------

void gatherText(Source *s, TextRun &run) {
    if (!scannable(s)) {
        do {
            run.byte(s->current);
            getNextCh(s);
        } while (okCharData(s));
        return;
    }
    scanDirect<kStopText>(s, run, [](Bytes q) { return *q == ']' && !(q[1] == ']' && q[2] == '>'); });
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

}  // namespace vqxml

using namespace vqxml;

// ---- entry points ----------------------------------------------------------------------------

extern "C" int okCharData(Source *source) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (c == '<' || c == '&' || !vqxml::charOk(c)) return 0;
    return !(c == ']' && peek(source, 2) == ']' && peek(source, 3) == '>');
}

extern "C" int startComment(Source *source) {
    if (source == nullptr) return 0;
    return source->current == '<' && peek(source, 2) == '!' && peek(source, 3) == '-' && peek(source, 4) == '-';
}

extern "C" int okCommentData(Source *source) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (!vqxml::charOk(c)) return 0;
    return !(c == '-' && peek(source, 2) == '-');
}

extern "C" VQHANDLE parseComment(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return comment(source, buffer);
}

extern "C" VQHANDLE parseProcInst(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return processingInstruction(source, buffer);
}

extern "C" int okCData(Source *source) {
    if (source == nullptr) return 0;
    const unsigned c = source->current;
    if (!vqxml::charOk(c)) return 0;
    return !(c == ']' && peek(source, 2) == ']' && peek(source, 3) == '>');
}

extern "C" VQHANDLE parseCDSect(Source *source) {
    if (source == nullptr) return 0;
    ByteBuffer buffer;
    return cdataSection(source, buffer);
}
