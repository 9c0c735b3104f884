// pretty_printer.cpp - printNodeBeatifyEx: a node written as indented XML.
//
// Only elements are laid out: each nested element starts on a new line,
// indented by two blanks per level, and an element whose last child is an
// element puts its end tag on a line of its own. Everything else, documents
// included, is written exactly as the compact serializer writes it, with the
// one difference that text marked raw is escaped here. The writing
// primitives and the construct writers are the serializer's (printer.h).
//
// Indentation ceiling: the indent text is at most 63 blanks, the most a
// 64-byte indent buffer with its terminator holds. An element at indent 64
// or deeper is indented by 63 blanks; its nesting is still written in full
// (start tag on a new line, end tag lined up with it), so no content is lost
// and no process ends, however deep the tree. A negative indent writes no
// blanks.
//
// Depth: the element tree is walked along parent, first-child and
// next-sibling links, so any depth prints in constant stack; see
// serializer.cpp for why the bytes equal those of a recursive writer. The
// walk counts its steps against the document's live objects, so a tree
// linked into a loop ends the output early.
#include "vqxml/dom/printer.h"
#include "vqxml/store/limits.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace {

using vqxml::PrintTarget;

constexpr int kElement = 1;
constexpr int kText = 3;
using vqxml::kMaxIndent;
// A line break and the most blanks an indent has.
constexpr char kNewLine[kMaxIndent + 3] =
    "\r\n                                                               ";
static_assert(sizeof(kNewLine) == kMaxIndent + 3);
constexpr const char *kBlanks = kNewLine + 2;

Node *head(VQHANDLE h) {
    return static_cast<Node *>(vqxml::printableRecord(h, sizeof(Node)));
}

const Node *linkedNode(VQHANDLE parent, VQHANDLE h) {
    const Node *n = head(h);
    return n != nullptr && n->parentNode == parent ? n : nullptr;
}

int64_t blanksFor(int64_t indent) { return indent < 0 ? 0 : (indent > kMaxIndent ? kMaxIndent : indent); }

// "\r\n" and then the indent's blanks, each a literal of its own; as one
// copy when both fit.
void writeLineAndIndent(PrintTarget &out, int64_t indent) {
    const int64_t blanks = blanksFor(indent);
    if (out.room() >= 2 + blanks) {
        out.literal(kNewLine, 2 + blanks);
        return;
    }
    out.literal("\r\n");
    out.literal(kBlanks, blanks);
}

// The start tag; true when the element has children to follow.
bool writeStartTag(PrintTarget &out, VQHANDLE element, const Node *e, int64_t indent) {
    if (indent != 0) writeLineAndIndent(out, indent);  // indent 0: no blanks either
    out.framed("<", e->nodeName, '\0');
    vqxml::serializeAttributes(out, element);
    if (e->firstChild != 0) {
        out.character('>');
        return true;
    }
    out.character('/');
    out.character('>');
    return false;
}

// The end tag goes on a line of its own only after a child element; after
// text, a comment and the like it follows on the same line.
void writeEndTag(PrintTarget &out, const Node *e, int64_t indent, int lastChildType) {
    if (lastChildType == kElement) writeLineAndIndent(out, indent);
    out.framed("</", e->nodeName, '>');
}

// Nothing is allocated while printing, so the records found stay put.
void prettyNode(PrintTarget &out, VQHANDLE root, int64_t indent) {
    const Node *r = head(root);
    if (r == nullptr) return;
    if (r->nodeType != kElement) {
        if (r->nodeType == kText) {
            out.escaped(r->nodeValue);
            out.terminate();
        } else {
            vqxml::serializeNode(out, root);
        }
        return;
    }
    vqxml::StepBound steps(root, 2);
    VQHANDLE h = root;
    const Node *n = r;
    for (;;) {
        if (n->nodeType == kElement) {
            if (writeStartTag(out, h, n, indent)) {
                const Node *child = linkedNode(h, n->firstChild);
                if (child != nullptr) {
                    if (!steps.take()) return;
                    h = n->firstChild;
                    n = child;
                    indent += 2;
                    continue;
                }
                writeEndTag(out, n, indent, 0);
            }
            out.terminate();
        } else if (n->nodeType == kText) {
            // Raw or not: escaped here, unlike in the compact form.
            out.escaped(n->nodeValue);
            out.terminate();
        } else {
            vqxml::serializeNode(out, h);
        }
        // h is written: on to its next sibling, ending every element whose
        // last child this was.
        for (;;) {
            if (h == root || !steps.take()) return;
            const VQHANDLE parent = n->parentNode;
            const int lastType = n->nodeType;
            if (const Node *next = linkedNode(parent, n->nextSibling)) {
                h = n->nextSibling;
                n = next;
                break;
            }
            h = parent;
            n = head(parent);
            indent -= 2;
            writeEndTag(out, n, indent, lastType);
            out.terminate();
        }
    }
}

}  // namespace

extern "C" int32_t printNodeBeatifyEx(VQHANDLE node, char **cursor, int32_t capacity,
                                      int32_t indent) {
    PrintTarget out(cursor, capacity);
    prettyNode(out, node, indent);
    return out.result();
}
