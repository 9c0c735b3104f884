// clone.cpp - copying subtrees within and across documents. Trees may be
// arbitrarily deep, so the copy keeps its own frame stack instead of
// recursing, and allocates in exactly the order of a recursive copy.
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

namespace vqxml {
namespace {

// ---- cloning ---------------------------------------------------------------

VQHANDLE cloneExternalID(VQHANDLE source, VQHANDLE targetDoc) {
    const ExternalID *s = aux<ExternalID>(source);
    if (s == nullptr) return 0;
    const VQHANDLE publicId = s->publicId, systemId = s->systemId;
    const VQHANDLE id = createExternalID(targetDoc);
    if (id == 0) return 0;
    const VQHANDLE publicClone = VQDOM_cloneDS(targetDoc, publicId);
    const VQHANDLE systemClone = VQDOM_cloneDS(targetDoc, systemId);
    ExternalID *x = aux<ExternalID>(id);
    x->publicId = publicClone;
    x->systemId = systemClone;
    return id;
}

// Allocates the clone of `source` in `targetDoc` with its name, its value
// (attributes get theirs from their children later), an empty attribute
// map and, for an element, the target's DTD defaults. 0 on failure.
VQHANDLE startClone(VQHANDLE source, VQHANDLE targetDoc) {
    if (!checkHandle(source) || !checkHandle(targetDoc)) return 0;
    const Node *s = asNode(source);
    if (s == nullptr) return 0;
    const int type = s->nodeType;
    const VQHANDLE clone = allocNode(targetDoc, type, VQDOM_cloneDS(targetDoc, s->nodeName));
    if (clone == 0) return 0;
    s = asNode(source);
    if (s->nodeValue != 0 && type != VQXML_ATTRIBUTE_NODE) {
        // The clone is fresh, without a value, and of the value's document:
        // setting the value could only store it.
        const VQHANDLE value = VQDOM_cloneDS(targetDoc, asNode(source)->nodeValue);
        if (value != 0) node(clone)->nodeValue = value;
    }
    if (asNode(source)->attributes != 0) {
        const VQHANDLE map = createNamedNodeMap(clone);
        asNode(clone)->attributes = map;
        if (type == VQXML_ELEMENT_NODE) addDefaultAttributes(clone);
    }
    return clone;
}

// Attribute values of a clone are computed afresh from their children, by
// the target's declarations: blanks fold unless the attribute is CDATA or
// undeclared there.
void recomputeValues(VQHANDLE clone, VQHANDLE targetDoc) {
    const NamedNodeMap *m = aux<NamedNodeMap>(asNode(clone)->attributes);
    StepBound steps(clone);
    for (VQHANDLE it = m != nullptr ? m->firstItem : 0; it != 0 && steps.take();) {
        const ListItem *item = aux<ListItem>(it);
        if (item == nullptr) break;
        const VQHANDLE next = item->nextItem;
        const VQHANDLE attr = item->node;
        const Attr *a = asType<Attr>(attr, VQXML_ATTRIBUTE_NODE);
        if (a != nullptr && a->specified != 0) {
            const VQHANDLE def =
                findAttDefDS(targetDoc, asNode(clone)->nodeName, asNode(attr)->nodeName);
            const AttDef *d = asType<AttDef>(def, VQXML_ATT_DEF_NODE);
            getNormalValue(attr, d == nullptr || d->attType == 3 ? 1 : 0);
        }
        it = next;
    }
}

// The per-type fields of a clone, after its child list.
void copyTypeFields(VQHANDLE source, VQHANDLE clone, VQHANDLE targetDoc) {
    switch (typeOf(source)) {
    case VQXML_DOCUMENT_TYPE_NODE: {
        const VQHANDLE id = cloneExternalID(reinterpret_cast<DocumentType *>(asNode(source))->externalID,
                                            targetDoc);
        // A document type always owns its two maps; the clone gets empty
        // ones (its entities enter them as they are linked in).
        const VQHANDLE entities = createNamedNodeMap(clone);
        const VQHANDLE notations = createNamedNodeMap(clone);
        auto *c = reinterpret_cast<DocumentType *>(asNode(clone));
        c->externalID = id;
        c->entities = entities;
        c->notations = notations;
        break;
    }
    case VQXML_ENTITY_REFERENCE_NODE:
        reinterpret_cast<EntityReference *>(asNode(clone))->entity =
            reinterpret_cast<EntityReference *>(asNode(source))->entity;
        break;
    case VQXML_ATTRIBUTE_NODE:
        reinterpret_cast<Attr *>(asNode(clone))->specified =
            reinterpret_cast<Attr *>(asNode(source))->specified;
        break;
    case VQXML_ENTITY_NODE: {
        const Entity s = *reinterpret_cast<Entity *>(asNode(source));
        const VQHANDLE id = cloneExternalID(s.externalID, targetDoc);
        const VQHANDLE notationName = VQDOM_cloneDS(targetDoc, s.notationName);
        const VQHANDLE value = VQDOM_cloneDS(targetDoc, s.value);
        auto *c = reinterpret_cast<Entity *>(asNode(clone));
        c->externalID = id;
        c->notationName = notationName;
        c->value = value;
        c->kind = s.kind;
        break;
    }
    case VQXML_ELEMENT_DECL_NODE:
        reinterpret_cast<ElementDecl *>(asNode(clone))->contentType =
            reinterpret_cast<ElementDecl *>(asNode(source))->contentType;
        break;
    case VQXML_ATT_DEF_NODE: {
        const AttDef *s = reinterpret_cast<AttDef *>(asNode(source));
        auto *c = reinterpret_cast<AttDef *>(asNode(clone));
        c->attType = s->attType;
        c->defaultKind = s->defaultKind;
        break;
    }
    case VQXML_CP_CHILDREN_NODE: {
        const CpChildren *s = reinterpret_cast<CpChildren *>(asNode(source));
        auto *c = reinterpret_cast<CpChildren *>(asNode(clone));
        c->separator = s->separator;
        c->occurrence = s->occurrence;
        break;
    }
    case VQXML_NOTATION_NODE: {
        const VQHANDLE id =
            cloneExternalID(reinterpret_cast<Notation *>(asNode(source))->externalID, targetDoc);
        reinterpret_cast<Notation *>(asNode(clone))->externalID = id;
        break;
    }
    case VQXML_TEXT_NODE:
        reinterpret_cast<Text *>(asNode(clone))->rawXml =
            reinterpret_cast<Text *>(asNode(source))->rawXml;
        break;
    default:
        break;
    }
}

// One node being cloned: where its source and clone are, and how far the
// copy has come. `cursor` is the source map item or source child whose copy
// is under way or next.
struct CloneFrame {
    enum Phase : uint8_t { kStart, kAttributes, kAttributeWait, kChildren, kChildWait };
    VQHANDLE source;
    VQHANDLE clone;
    VQHANDLE cursor;
    Phase phase;
    bool deep;
};

// The frames of one clone job. Shallow trees stay in the inline frames; a
// deeper tree spills to a heap block that doubles as it fills.
class CloneStack {
public:
    CloneStack() = default;
    CloneStack(const CloneStack &) = delete;
    CloneStack &operator=(const CloneStack &) = delete;
    ~CloneStack() {
        if (frames_ != inline_) release();
    }

    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }
    CloneFrame &top() { return frames_[size_ - 1]; }
    CloneFrame &at(size_t i) { return frames_[i]; }
    void pop() { --size_; }

    bool push(VQHANDLE source, bool deep) {
        if (size_ == capacity_ && !grow()) return false;
        frames_[size_++] = CloneFrame{source, 0, 0, CloneFrame::kStart, deep};
        return true;
    }

private:
    static constexpr size_t kInline = 32;

    bool grow() {
        const size_t bytes = 2 * capacity_ * sizeof(CloneFrame);
        auto *bigger = static_cast<CloneFrame *>(vqxml::tracedMalloc(bytes, "clone frames", "cloneNodeDoc"));
        if (bigger == nullptr) {
            errorAlloc("clone frames", static_cast<int64_t>(bytes));
            return false;
        }
        std::memcpy(bigger, frames_, size_ * sizeof(CloneFrame));
        if (frames_ != inline_) release();
        frames_ = bigger;
        capacity_ *= 2;
        return true;
    }

    void release() {
        vqxml::tracedFree(frames_, "cloneNodeDoc");
    }

    CloneFrame inline_[kInline];
    CloneFrame *frames_ = inline_;
    size_t capacity_ = kInline;
    size_t size_ = 0;
};

// Hands a finished clone (or 0) to the frame that asked for it: an
// attribute enters the map, a child is appended; then that frame moves on
// to the source's next item or child.
void deliver(CloneFrame &f, VQHANDLE result) {
    if (f.phase == CloneFrame::kAttributeWait) {
        // A default it displaces stays allocated in the area, unlinked.
        VQDOM_setNamedItem(asNode(f.clone)->attributes, result);
        const ListItem *item = aux<ListItem>(f.cursor);
        f.cursor = item != nullptr ? item->nextItem : 0;
        f.phase = CloneFrame::kAttributes;
    } else {
        if (liveHandle(result)) appendToUnlinked(f.clone, result);
        const Node *child = asNode(f.cursor);
        f.cursor = child != nullptr ? child->nextSibling : 0;
        f.phase = CloneFrame::kChildren;
    }
}

// Advances the top frame by one step; returns false when the frame is done
// (its clone, or 0, is then in f.clone).
bool stepClone(CloneFrame &f, VQHANDLE targetDoc, CloneStack &stack, bool &pushFailed) {
    switch (f.phase) {
    case CloneFrame::kStart:
        f.clone = startClone(f.source, targetDoc);
        if (f.clone == 0) return false;
        if (asNode(f.clone)->attributes != 0) {
            const NamedNodeMap *m = aux<NamedNodeMap>(asNode(f.source)->attributes);
            f.cursor = m != nullptr ? m->firstItem : 0;
            f.phase = CloneFrame::kAttributes;
            return true;
        }
        break;
    case CloneFrame::kAttributes: {
        // Skipped items take no step of the caller's bound: a map whose
        // items loop through defaulted attributes only must end here.
        StepBound skips(f.source);
        while (const ListItem *item = aux<ListItem>(f.cursor)) {
            // Attributes that came from a DTD default are not copied: the
            // target's own defaults stand in for them.
            const Attr *a = asType<Attr>(item->node, VQXML_ATTRIBUTE_NODE);
            if (a != nullptr && a->specified == 0) {
                if (!skips.take()) {
                    pushFailed = true;  // the copy fails as a whole
                    return true;
                }
                f.cursor = item->nextItem;
                continue;
            }
            f.phase = CloneFrame::kAttributeWait;
            if (!stack.push(item->node, true)) pushFailed = true;
            return true;
        }
        recomputeValues(f.clone, targetDoc);
        break;
    }
    case CloneFrame::kChildren:
        if (f.cursor != 0) {
            f.phase = CloneFrame::kChildWait;
            if (!stack.push(f.cursor, true)) pushFailed = true;
            return true;
        }
        return false;
    default:
        return true;
    }
    // Past the attributes: the child list, the type's own fields, then the
    // children when deep (a document type always brings its declarations).
    if (asNode(f.source)->childNodes != 0) {
        const VQHANDLE list = createNodeList(f.clone);
        asNode(f.clone)->childNodes = list;
    }
    copyTypeFields(f.source, f.clone, targetDoc);
    const Node *s = asNode(f.source);
    if (!f.deep && s->nodeType != VQXML_DOCUMENT_TYPE_NODE) return false;
    f.cursor = s->firstChild;
    f.phase = CloneFrame::kChildren;
    return true;
}

}  // namespace
}  // namespace vqxml

using namespace vqxml;

// ---- cloning -------------------------------------------------------------------------

extern "C" VQHANDLE VQDOM_cloneNode(VQHANDLE h, int deep) {
    if (!checkHandle(h) || asNode(h) == nullptr) return 0;
    if (typeOf(h) != VQXML_DOCUMENT_NODE) return VQDOM_cloneNodeDoc(h, deep, asNode(h)->ownerDocument);
    const VQHANDLE doc = VQDOM_createDocument();
    if (doc == 0) return 0;
    if (const XmlDecl *s = aux<XmlDecl>(reinterpret_cast<Document *>(asNode(h))->xmlDecl)) {
        const XmlDecl source = *s;
        const VQHANDLE decl = createXmlDecl(doc);
        if (decl != 0) {
            const VQHANDLE version = VQDOM_cloneDS(doc, source.version);
            const VQHANDLE encoding = VQDOM_cloneDS(doc, source.encoding);
            const VQHANDLE standalone = VQDOM_cloneDS(doc, source.standalone);
            XmlDecl *d = aux<XmlDecl>(decl);
            d->version = version;
            d->encoding = encoding;
            d->standalone = standalone;
            reinterpret_cast<Document *>(asNode(doc))->xmlDecl = decl;
        }
    }
    if (deep) {
        StepBound steps(h);
        for (VQHANDLE c = asNode(h)->firstChild; steps.take() && asNode(c) != nullptr; c = asNode(c)->nextSibling)
            VQDOM_appendChild(doc, VQDOM_cloneNodeDoc(c, 1, doc));
    }
    return doc;
}

CloneMeter *vqxml::cloneMeter = nullptr;

namespace {

// Copies started while another one runs (the default attributes of a copied
// element): their growth is part of the outer copy's step and charged there.
int cloneNesting = 0;

struct CloneNesting {
    CloneNesting() { ++cloneNesting; }
    ~CloneNesting() { --cloneNesting; }
};

int64_t areaBytes(VQHANDLE doc) {
    const DocArea *a = docHead[doc & 255];
    return a != nullptr ? a->dbgSize : 0;
}

// A node without attribute map or children to copy (text, comments, most
// copies of entity content): the general copy would take its first step
// only, and end with the same charge and the same checks.
bool copiesAlone(const Node *s, int deep) {
    return s->attributes == 0 && s->nodeType != VQXML_DOCUMENT_TYPE_NODE && (deep == 0 || s->firstChild == 0);
}

// The first step of copying such a node, charged like a step of the
// general copy. The clone, or 0.
VQHANDLE firstStep(VQHANDLE h, VQHANDLE targetDoc, CloneMeter *meter, bool charging) {
    const int64_t before = charging ? areaBytes(targetDoc) : 0;
    const VQHANDLE clone = startClone(h, targetDoc);
    if (clone != 0) {
        if (asNode(h)->childNodes != 0) {
            const VQHANDLE list = createNodeList(clone);
            asNode(clone)->childNodes = list;
        }
        copyTypeFields(h, clone, targetDoc);
    }
    if (charging) {
        meter->left -= areaBytes(targetDoc) - before;
        if (meter->left < 0) meter->spent = true;
    }
    return clone;
}

bool meterSpent(const CloneMeter *meter) { return meter != nullptr && meter->spent; }

VQHANDLE cloneAlone(VQHANDLE h, VQHANDLE targetDoc, CloneMeter *meter, bool charging) {
    const VQHANDLE clone = firstStep(h, targetDoc, meter, charging);
    if (meterSpent(meter)) {
        VQDOM_deleteNode(clone);
        return 0;
    }
    return clone;
}

// A deep copy of a node without attribute map whose children all copy
// alone (a default attribute and its text, most references' content).
bool copiesWithLeaves(VQHANDLE h, const Node *s, int deep) {
    if (deep == 0 || s->attributes != 0 || s->nodeType == VQXML_DOCUMENT_TYPE_NODE) return false;
    // A link to something that is no node is left to the general copy,
    // which reports it.
    StepBound steps(h);
    for (VQHANDLE c = s->firstChild; c != 0;) {
        const Node *n = asNode(c);
        if (n == nullptr || !steps.take() || !copiesAlone(n, 1)) return false;
        c = n->nextSibling;
    }
    return true;
}

// The general copy's steps for such a node: the node, then each child in
// turn, linked in as it is done; a spent meter deletes what is under way.
VQHANDLE cloneWithLeaves(VQHANDLE h, VQHANDLE targetDoc, CloneMeter *meter, bool charging) {
    const VQHANDLE top = firstStep(h, targetDoc, meter, charging);
    if (meterSpent(meter)) {
        VQDOM_deleteNode(top);
        return 0;
    }
    if (top == 0) return 0;
    for (VQHANDLE c = asNode(h)->firstChild; c != 0;) {
        const VQHANDLE copy = firstStep(c, targetDoc, meter, charging);
        if (meterSpent(meter)) {
            VQDOM_deleteNode(copy);
            VQDOM_deleteNode(top);
            return 0;
        }
        if (liveHandle(copy)) appendToUnlinked(top, copy);
        const Node *child = asNode(c);
        c = child != nullptr ? child->nextSibling : 0;
    }
    return top;
}

}  // namespace

extern "C" VQHANDLE VQDOM_cloneNodeDoc(VQHANDLE h, int deep, VQHANDLE targetDoc) {
    CloneMeter *const meter = cloneMeter;
    if (meter != nullptr && meter->spent) return 0;
    const bool charging = meter != nullptr && cloneNesting == 0;
    const CloneNesting nesting;
    if (const Node *s = asNode(h); s != nullptr && copiesAlone(s, deep))
        return cloneAlone(h, targetDoc, meter, charging);
    if (const Node *s = asNode(h); s != nullptr && copiesWithLeaves(h, s, deep))
        return cloneWithLeaves(h, targetDoc, meter, charging);
    CloneStack stack;
    stack.push(h, deep != 0);
    // A sound source takes a few steps per object (its start, each child or
    // attribute handed on, its end); a source whose links loop runs out.
    StepBound steps(h, 8);
    while (true) {
        bool pushFailed = false;
        CloneFrame &f = stack.top();
        const int64_t before = charging ? areaBytes(targetDoc) : 0;
        const bool more = stepClone(f, targetDoc, stack, pushFailed);
        if (charging) {
            meter->left -= areaBytes(targetDoc) - before;
            if (meter->left < 0) meter->spent = true;
        }
        if (pushFailed || (meter != nullptr && meter->spent) || !steps.take()) {
            // Out of memory for frames, over the meter, or a source linked
            // into a loop: every clone under way is unlinked and goes; the
            // copy fails as a whole.
            for (size_t i = stack.size(); i-- > 0;) VQDOM_deleteNode(stack.at(i).clone);
            return 0;
        }
        if (more) continue;
        const VQHANDLE result = f.clone;
        stack.pop();
        if (stack.empty()) return result;
        deliver(stack.top(), result);
    }
}
