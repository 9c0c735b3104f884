// serializer.cpp - the compact serializer: printNodeEx, one writer per markup
// construct (shared with the pretty-printer), and VQXML_printNode.
//
// Output goes straight into the caller's buffer through a PrintTarget
// (printer.h); nothing is allocated and nothing is recorded. Every writer
// counts the full length of its output, fitted or not, so a caller detects a
// short buffer by a result that is not smaller than the size it gave.
//
// Depth: trees are walked along their parent, first-child and next-sibling
// links, never by recursion, so any nesting prints in constant stack. Every
// walk counts its steps against the document's live objects, so links that
// a damaged image or a caller fault turned into a loop end the output
// early instead of never. The
// bytes are those of a writer that recursed per child: each piece is offered
// the outer capacity less everything counted before it (the target keeps
// that count), and the NUL a recursive call stores when its capacity exceeds
// its result is the same test, outer capacity > count, made where the node's
// output ends.
#include <cstring>
#include <iterator>
#include <string_view>

#include "vqxml/dom/printer.h"
#include "vqxml/store/char_class.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace {

using vqxml::PrintTarget;

constexpr int kElement = 1;
constexpr int kAttr = 2;
constexpr int kText = 3;
constexpr int kCData = 4;
constexpr int kEntityRef = 5;
constexpr int kEntity = 6;
constexpr int kPI = 7;
constexpr int kComment = 8;
constexpr int kDocument = 9;
constexpr int kDocType = 10;
constexpr int kNotation = 12;
constexpr int kElementDecl = 13;
constexpr int kAttlistDecl = 14;
constexpr int kAttDef = 15;
constexpr int kCpChildren = 16;

// ---- record access ---------------------------------------------------------
// Nothing is allocated while printing, so a record pointer stays good for
// the whole job; the checks only keep odd handles from being misread.

Node *head(VQHANDLE h) {
    return static_cast<Node *>(vqxml::printableRecord(h, sizeof(Node)));
}

template <typename T>
T *typed(VQHANDLE h, int type) {
    auto *r = static_cast<T *>(vqxml::printableRecord(h, sizeof(T)));
    return r != nullptr && r->node.nodeType == type ? r : nullptr;
}

// The record behind an already resolved node head when its block is large
// enough for a T and the node has the given type.
template <typename T>
const T *typedAt(const Node *n, int type) {
    return n->nodeType == type && vqxml::blockCapacity(reinterpret_cast<const char *>(n)) >= sizeof(T)
               ? reinterpret_cast<const T *>(n)
               : nullptr;
}

template <typename T>
T *aux(VQHANDLE h) {
    return static_cast<T *>(vqxml::printableRecord(h, sizeof(T)));
}

// The child `h` of `parent` when it is a live node linked back to it; a
// handle that fails ends the sibling walk it came from.
const Node *linkedNode(VQHANDLE parent, VQHANDLE h) {
    const Node *n = head(h);
    return n != nullptr && n->parentNode == parent ? n : nullptr;
}
VQHANDLE linkedChild(VQHANDLE parent, VQHANDLE h) { return linkedNode(parent, h) != nullptr ? h : 0; }

// ---- construct writers -------------------------------------------------------

void writeEntityRef(PrintTarget &out, VQHANDLE reference) {
    const Node *n = head(reference);
    if (n == nullptr || !vqxml::liveHandle(n->nodeName)) return;
    // Inside a document type the reference is to a parameter entity.
    char lead = '&';
    if (n->parentNode != 0) {
        const Node *parent = head(n->parentNode);
        if (parent == nullptr) return;
        if (parent->nodeType == kDocType) lead = '%';
    }
    out.character(lead);
    out.piece(n->nodeName);
    out.character(';');
}

// The value is rebuilt from the children rather than taken from the
// normalised value string, so entity references written in the source
// come out as references again.
void writeAttValueWalk(PrintTarget &out, VQHANDLE attribute, const Node *a) {
    out.character('"');
    vqxml::StepBound steps(attribute);
    const Node *child = nullptr;
    for (VQHANDLE c = a->firstChild; (child = linkedNode(attribute, c)) != nullptr && steps.take();
         c = child->nextSibling) {
        if (child->nodeType == kText) {
            out.escapedAttribute(child->nodeValue);
        } else if (child->nodeType == kEntityRef) {
            writeEntityRef(out, c);
        }
    }
    out.character('"');
}

// Most values are one text child, for which the walk would take one step.
[[gnu::always_inline]] inline void writeAttValueAt(PrintTarget &out, VQHANDLE attribute, const Node *a) {
    const Node *only = linkedNode(attribute, a->firstChild);
    if (only != nullptr && only->nodeType == kText && linkedNode(attribute, only->nextSibling) == nullptr &&
        vqxml::walkBudget(attribute) > 0) {
        out.quotedAttribute(only->nodeValue);
        return;
    }
    writeAttValueWalk(out, attribute, a);
}

void writeAttValue(PrintTarget &out, VQHANDLE attribute) {
    if (const Node *a = head(attribute)) writeAttValueAt(out, attribute, a);
}

// Attributes copied from a DTD default (specified 0) are left out: reading
// the text back brings them in again from the declaration.
void writeAttributeItems(PrintTarget &out, VQHANDLE element, const ListItem *first) {
    vqxml::StepBound steps(element);
    for (const ListItem *item = first; item != nullptr && steps.take();
         item = aux<ListItem>(item->nextItem)) {
        const VQHANDLE h = item->node;
        const Node *a = head(h);
        if (a == nullptr) break;
        if (a->nodeType == kAttr) {
            const Attr *attr = typedAt<Attr>(a, kAttr);
            if (attr == nullptr || attr->specified == 0) continue;
        }
        out.framed(" ", a->nodeName, '=');
        writeAttValueAt(out, h, a);
    }
}

// Most elements have an empty map: that is found without the call.
[[gnu::always_inline]] inline void writeAttributesAt(PrintTarget &out, VQHANDLE element, const Node *e) {
    const auto *map = aux<NamedNodeMap>(e->attributes);
    if (map == nullptr || map->firstItem == 0) return;
    writeAttributeItems(out, element, aux<ListItem>(map->firstItem));
}

void writeAttributes(PrintTarget &out, VQHANDLE element) {
    if (const Node *e = head(element)) writeAttributesAt(out, element, e);
}

// A "]]>" in the data would end the section early, so the section is closed
// between its two brackets and reopened: a]]>b becomes two sections holding
// "a]" and "]>b". Bytes that are no XML characters become '?'.
void writeCData(PrintTarget &out, VQHANDLE node) {
    const Node *n = head(node);
    if (n == nullptr) return;
    out.literal("<![CDATA[");
    const std::string_view data = vqxml::dsView(n->nodeValue);
    const size_t size = data.size();
    for (size_t i = 0; i < size; ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (c == ']' && i + 2 < size && data[i + 1] == ']' && data[i + 2] == '>') {
            out.character(']');
            out.literal("]]>");
            out.literal("<![CDATA[");
            out.character(']');
            ++i;  // the '>' is written as ordinary data
            continue;
        }
        out.character(vqxml::charOk(c) ? static_cast<char>(c) : '?');
    }
    out.literal("]]>");
}

void writeXmlDecl(PrintTarget &out, VQHANDLE decl) {
    const auto *x = aux<XmlDecl>(decl);
    if (x == nullptr) return;
    out.literal("<?xml version=\"");
    out.piece(x->version);
    out.character('"');
    if (x->encoding != 0) {
        out.literal(" encoding=\"");
        out.piece(x->encoding);
        out.character('"');
    }
    if (x->standalone != 0) {
        out.literal(" standalone=\"");
        out.piece(x->standalone);
        out.character('"');
    }
    out.character('?');
    out.character('>');
}

void writeExternalID(PrintTarget &out, VQHANDLE id) {
    const auto *x = aux<ExternalID>(id);
    if (x == nullptr) return;
    if (x->publicId != 0) {
        out.literal("PUBLIC \"");
        out.piece(x->publicId);
        if (x->systemId != 0) {
            out.literal("\" \"");
            out.piece(x->systemId);
        }
        out.character('"');
    } else {
        out.literal("SYSTEM \"");
        out.piece(x->systemId);
        out.character('"');
    }
}

// Entity values are written as declared, unescaped; the delimiter is the
// quotation mark the value does not contain (the byte 0 when it holds both).
void writeEntity(PrintTarget &out, VQHANDLE entity) {
    const Entity *e = typed<Entity>(entity, kEntity);
    if (e == nullptr) return;
    out.literal("<!ENTITY ");
    if (e->kind != 0) out.literal("% ");
    out.piece(e->node.nodeName);
    out.character(' ');
    if (e->externalID != 0) {
        writeExternalID(out, e->externalID);
        if (e->notationName != 0) {
            out.literal(" NDATA ");
            out.piece(e->notationName);
        }
    } else {
        const char quote = static_cast<char>(vqxml::liveHandle(e->value) ? quotDS(e->value) : '"');
        out.character(quote);
        out.piece(e->value);
        out.character(quote);
    }
    out.character('>');
}

void writeNotation(PrintTarget &out, VQHANDLE notation) {
    const Notation *n = typed<Notation>(notation, kNotation);
    if (n == nullptr) return;
    out.literal("<!NOTATION ");
    out.piece(n->node.nodeName);
    out.character(' ');
    if (n->externalID != 0) writeExternalID(out, n->externalID);
    out.character('>');
}

// ---- content models ----------------------------------------------------------

CpChildren *particle(VQHANDLE h) { return typed<CpChildren>(h, kCpChildren); }

void writeOccurrence(PrintTarget &out, const CpChildren *p) {
    if (p->occurrence != 0) out.character(static_cast<char>(p->occurrence));
}

// The next particle to write inside the group `parent` from `h` onward, 0
// when the group's walk ends there.
VQHANDLE groupMember(VQHANDLE parent, VQHANDLE h) {
    return particle(linkedChild(parent, h)) != nullptr ? h : 0;
}

// A leaf (separator 0) writes its name; a group ('|' or ',') its members
// in parentheses with the separator between neighbours; a particle whose
// separator is still undecided (255 from creation) only its occurrence.
// Walked iteratively: content models built through the DOM may nest deeply.
void writeContentModel(PrintTarget &out, VQHANDLE root) {
    if (particle(root) == nullptr) return;
    vqxml::StepBound steps(root, 2);
    VQHANDLE h = root;
    for (;;) {
        if (!steps.take()) return;
        const CpChildren *p = particle(h);
        const uint8_t separator = p->separator;
        if (separator == '|' || separator == ',') {
            out.character('(');
            const VQHANDLE first = groupMember(h, p->node.firstChild);
            if (first != 0) {
                h = first;
                continue;
            }
            out.character(')');
        } else if (separator == 0) {
            out.piece(p->node.nodeName);
        }
        writeOccurrence(out, p);
        // Done with h: on to its next sibling, closing finished groups.
        for (;;) {
            if (h == root || !steps.take()) return;
            const VQHANDLE parent = particle(h)->node.parentNode;
            const CpChildren *group = particle(parent);
            const VQHANDLE next = groupMember(parent, particle(h)->node.nextSibling);
            if (next != 0) {
                out.character(static_cast<char>(group->separator));
                h = next;
                break;
            }
            out.character(')');
            writeOccurrence(out, group);
            h = parent;
        }
    }
}

void writeElementDecl(PrintTarget &out, VQHANDLE decl) {
    const ElementDecl *d = typed<ElementDecl>(decl, kElementDecl);
    if (d == nullptr) return;
    out.literal("<!ELEMENT ");
    out.piece(d->node.nodeName);
    out.character(' ');
    switch (d->contentType) {
        case 0: break;
        case 1: out.literal("EMPTY"); break;
        case 2: out.literal("ANY"); break;
        default: writeContentModel(out, d->node.firstChild); break;
    }
    out.character('>');
}

// ---- attribute-list declarations ---------------------------------------------

void writeAttType(PrintTarget &out, VQHANDLE def, uint16_t type) {
    static constexpr const char *kTypeNames[] = {
        nullptr, nullptr, nullptr, "CDATA", "ID", "IDREF", "IDREFS",
        "ENTITY", "ENTITIES", "NMTOKEN", "NMTOKENS"};
    if (type == 1) {
        out.character('(');
        bool first = true;
        vqxml::StepBound steps(def);
        for (VQHANDLE c = linkedChild(def, head(def)->firstChild); c != 0 && steps.take();
             c = linkedChild(def, head(c)->nextSibling)) {
            if (!first) out.character('|');
            first = false;
            out.piece(head(c)->nodeName);
        }
        out.character(')');
    } else if (type < std::size(kTypeNames) && kTypeNames[type] != nullptr) {
        out.literal(kTypeNames[type], static_cast<int64_t>(std::strlen(kTypeNames[type])));
    }
}

// The default value is the definition's default attribute (item 0 of its
// own map), followed by its value string when it holds one.
void writeDefaultValue(PrintTarget &out, VQHANDLE def) {
    const Node *d = head(def);
    if (const auto *map = aux<NamedNodeMap>(d->attributes)) {
        const auto *item = aux<ListItem>(map->firstItem);
        if (item != nullptr && head(item->node) != nullptr) writeAttValue(out, item->node);
    }
    if (d->nodeValue != 0) {
        out.character('"');
        out.quoteEscaped(d->nodeValue);
        out.character('"');
    }
}

void writeAttlistDecl(PrintTarget &out, VQHANDLE decl) {
    const AttlistDecl *a = typed<AttlistDecl>(decl, kAttlistDecl);
    if (a == nullptr) return;
    out.literal("<!ATTLIST ");
    out.piece(a->node.nodeName);
    vqxml::StepBound steps(decl);
    for (VQHANDLE c = linkedChild(decl, a->node.firstChild); c != 0 && steps.take();
         c = linkedChild(decl, head(c)->nextSibling)) {
        const AttDef *def = typed<AttDef>(c, kAttDef);
        if (def == nullptr) continue;
        const uint16_t type = def->attType;
        const uint16_t kind = def->defaultKind;
        out.character(' ');
        out.piece(def->node.nodeName);
        out.character(' ');
        writeAttType(out, c, type);
        out.character(' ');
        switch (kind) {
            case 0: writeDefaultValue(out, c); break;
            // No blank after #FIXED: the form stays as the library has
            // always written it, and callers compare against it.
            case 1: out.literal("#FIXED"); writeDefaultValue(out, c); break;
            case 2: out.literal("#REQUIRED"); break;
            case 3: out.literal("#IMPLIED"); break;
            default: break;
        }
    }
    out.character('>');
}

// ---- nodes -----------------------------------------------------------------------

// Writes a node that has no children to print, or the opening part of an
// element, document or document type whose children follow. Returns true in
// the second case; the caller then walks the children and calls writeClose.
bool writeOpen(PrintTarget &out, VQHANDLE h, const Node *n) {
    switch (n->nodeType) {
        case kElement:
            out.framed("<", n->nodeName, '\0');
            writeAttributesAt(out, h, n);
            if (n->firstChild != 0) {
                out.character('>');
                return true;
            }
            out.character('/');
            out.character('>');
            return false;
        case kText:
            if (const Text *t = typedAt<Text>(n, kText); t != nullptr && t->rawXml != 0) {
                out.piece(n->nodeValue);  // already markup
            } else {
                out.escaped(n->nodeValue);
            }
            return false;
        case kCData: writeCData(out, h); return false;
        case kEntityRef: writeEntityRef(out, h); return false;
        case kEntity: writeEntity(out, h); return false;
        case kPI:
            // Target and data are joined by '_', also for empty data;
            // readers of this library's output rely on that form.
            out.literal("<?");
            out.piece(n->nodeName);
            out.character('_');
            out.piece(n->nodeValue);
            out.literal("?>");
            return false;
        case kComment:
            out.literal("<!--");
            out.piece(n->nodeValue);
            out.literal("-->");
            return false;
        case kDocument: {
            const Document *d = typedAt<Document>(n, kDocument);
            if (d == nullptr) return false;
            if (d->xmlDecl != 0) {
                writeXmlDecl(out, d->xmlDecl);
                if (n->firstChild != 0) out.literal("\r\n");
            }
            return true;
        }
        case kDocType: {
            const DocumentType *d = typedAt<DocumentType>(n, kDocType);
            if (d == nullptr) return false;
            out.literal("<!DOCTYPE ");
            out.piece(n->nodeName);
            if (d->externalID != 0) {
                out.character(' ');
                writeExternalID(out, d->externalID);
            }
            // The brackets stand even for an empty internal subset.
            out.character(' ');
            out.character('[');
            return true;
        }
        case kNotation: writeNotation(out, h); return false;
        case kElementDecl: writeElementDecl(out, h); return false;
        case kAttlistDecl: writeAttlistDecl(out, h); return false;
        default: return false;  // attributes, fragments, inner DTD records
    }
}

[[gnu::always_inline]] inline void writeClose(PrintTarget &out, const Node *n) {
    if (n->nodeType == kElement) {
        out.framed("</", n->nodeName, '>');
    } else if (n->nodeType == kDocType) {
        out.literal("\r\n]>");
    }
}

// A child of the node being walked: its handle and its record.
struct Child {
    VQHANDLE h = 0;
    const Node *n = nullptr;
};

// The next child of container `parent` (record `p`) to print, starting at
// `h`, with the separator that goes before it written; none when the walk
// ends. A document separates its children by line breaks; a document type
// puts one before each declaration and passes over references that have
// lost their name.
[[gnu::always_inline]] inline Child nextChild(PrintTarget &out, VQHANDLE parent, const Node *p,
                                             VQHANDLE h, bool first) {
    const int parentType = p->nodeType;
    int64_t budget = vqxml::walkBudget(parent);
    for (;;) {
        const Node *n = budget-- > 0 ? linkedNode(parent, h) : nullptr;
        if (n == nullptr) return {};
        if (parentType == kDocType) {
            if (n->nodeType == kEntityRef && !vqxml::liveHandle(n->nodeName)) {
                h = n->nextSibling;
                continue;
            }
            out.literal("\r\n");
        } else if (parentType == kDocument && !first) {
            out.literal("\r\n");
        }
        return {h, n};
    }
}

// The walk behind printNodeEx. `terminateRoot` is false only for
// printDocumentType, which ends without the NUL that printNodeEx adds.
// Nothing is allocated while printing, so the records found stay put.
void walk(PrintTarget &out, VQHANDLE root, bool terminateRoot) {
    const Node *n = head(root);
    if (n == nullptr) return;
    vqxml::StepBound steps(root, 2);
    VQHANDLE h = root;
    for (;;) {
        if (writeOpen(out, h, n)) {
            const Child child = nextChild(out, h, n, n->firstChild, true);
            if (child.h != 0) {
                if (!steps.take()) return;
                h = child.h;
                n = child.n;
                continue;
            }
            writeClose(out, n);
        }
        if (h != root || terminateRoot) out.terminate();
        // h is written: go on with its next sibling, closing every container
        // whose last child this was.
        for (;;) {
            if (h == root || !steps.take()) return;
            const VQHANDLE parent = n->parentNode;
            const Node *p = head(parent);
            const Child next = nextChild(out, parent, p, n->nextSibling, false);
            if (next.h != 0) {
                h = next.h;
                n = next.n;
                break;
            }
            h = parent;
            n = p;
            writeClose(out, n);
            if (h != root || terminateRoot) out.terminate();
        }
    }
}

void serializeDocumentType(PrintTarget &out, VQHANDLE doctype) {
    if (typed<DocumentType>(doctype, kDocType) != nullptr) walk(out, doctype, false);
}

}  // namespace

namespace vqxml {

void serializeAttributes(PrintTarget &out, VQHANDLE element) { writeAttributes(out, element); }
void serializeNode(PrintTarget &out, VQHANDLE node) { walk(out, node, true); }

}  // namespace vqxml

// ---- exported writers --------------------------------------------------------

namespace {

// Runs one writer as a job of its own on the caller's cursor.
template <typename Writer>
int32_t runJob(Writer writer, VQHANDLE h, char **cursor, int32_t capacity) {
    PrintTarget out(cursor, capacity);
    writer(out, h);
    return out.result();
}

}  // namespace

extern "C" {

int32_t printNodeEx(VQHANDLE node, char **cursor, int32_t capacity) {
    return runJob(vqxml::serializeNode, node, cursor, capacity);
}

int32_t printString(const char *text, char **cursor, int32_t capacity) {
    if (text == nullptr) return 0;
    PrintTarget out(cursor, capacity);
    out.literal(text, static_cast<int64_t>(std::strlen(text)));
    return out.result();
}

int32_t printAttributes(VQHANDLE element, char **cursor, int32_t capacity) {
    return runJob(writeAttributes, element, cursor, capacity);
}

int32_t printAttValue(VQHANDLE attribute, char **cursor, int32_t capacity) {
    return runJob(writeAttValue, attribute, cursor, capacity);
}

int32_t printEntityRef(VQHANDLE reference, char **cursor, int32_t capacity) {
    return runJob(writeEntityRef, reference, cursor, capacity);
}

int32_t printCDATASection(VQHANDLE node, char **cursor, int32_t capacity) {
    return runJob(writeCData, node, cursor, capacity);
}

int32_t printXmlDecl(VQHANDLE xmlDecl, char **cursor, int32_t capacity) {
    return runJob(writeXmlDecl, xmlDecl, cursor, capacity);
}

int32_t printDocumentType(VQHANDLE doctype, char **cursor, int32_t capacity) {
    return runJob(serializeDocumentType, doctype, cursor, capacity);
}

int32_t printExternalID(VQHANDLE externalId, char **cursor, int32_t capacity) {
    return runJob(writeExternalID, externalId, cursor, capacity);
}

int32_t printEntity(VQHANDLE entity, char **cursor, int32_t capacity) {
    return runJob(writeEntity, entity, cursor, capacity);
}

int32_t printNotation(VQHANDLE notation, char **cursor, int32_t capacity) {
    return runJob(writeNotation, notation, cursor, capacity);
}

int32_t printElementDecl(VQHANDLE decl, char **cursor, int32_t capacity) {
    return runJob(writeElementDecl, decl, cursor, capacity);
}

int32_t printCpChildren(VQHANDLE particle, char **cursor, int32_t capacity) {
    return runJob(writeContentModel, particle, cursor, capacity);
}

int32_t printAttlistDecl(VQHANDLE decl, char **cursor, int32_t capacity) {
    return runJob(writeAttlistDecl, decl, cursor, capacity);
}

int32_t VQXML_printNode(VQHANDLE node, char *buffer, int32_t size) {
    if (validHandle(node) == 0) return 0;
    char *cursor = buffer;
    return printNodeEx(node, &cursor, size);
}

}  // extern "C"
