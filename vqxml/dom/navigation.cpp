// navigation.cpp - the read side of the node store: the accessors callers
// walk a tree with, text gathering, live tag-name lists, renaming, and the
// field reads on document type, entity and notation nodes.
//
// Accessors record nothing: an invalid or stale handle simply yields 0 (or
// an empty buffer), so callers may probe handles freely.
#include <cstring>

#include "support/vqsupport.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

using namespace vqxml;

namespace {

// Nodes whose text is the text of their children.
bool isContainer(int type) {
    return type == VQXML_ELEMENT_NODE || type == VQXML_ENTITY_REFERENCE_NODE ||
           type == VQXML_DOCUMENT_NODE || type == VQXML_DOCUMENT_FRAGMENT_NODE;
}

// Nodes whose text is their own value.
bool hasOwnText(int type) {
    return type == VQXML_ATTRIBUTE_NODE || type == VQXML_TEXT_NODE ||
           type == VQXML_CDATA_SECTION_NODE || type == VQXML_PROCESSING_INSTRUCTION_NODE ||
           type == VQXML_COMMENT_NODE;
}

void terminate(char *buf, int64_t cap) {
    if (cap > 0) *buf = '\0';
}

int nodeType(const Node *n) { return n != nullptr ? n->nodeType : 0; }

// Text of the direct text and CDATA children. A piece that does not fit
// fills what room is left, so a caller sees as much of the text as fits.
int64_t directText(VQHANDLE child, char *buf, int64_t cap) {
    char *cursor = buf;
    int64_t remaining = cap;
    int64_t total = 0;
    StepBound steps(child);
    for (const Node *c; steps.take() && (c = liveNode(child)) != nullptr; child = c->nextSibling) {
        if (c->nodeType != VQXML_TEXT_NODE && c->nodeType != VQXML_CDATA_SECTION_NODE) continue;
        const int64_t n = VQDOM_cpyDS(c->nodeValue, cursor, remaining);
        if (n <= remaining) {
            cursor += n;
            remaining -= n;
        } else if (remaining > 0) {
            cursor += remaining;
            remaining = 0;
        }
        total += n;
    }
    terminate(cursor, remaining);
    return total;
}

// One open container of the text-content walk: where its text started in
// the buffer and how much text had been counted before it.
struct Frame {
    VQHANDLE container;
    int64_t entryPos;
    int64_t entryTotal;
};

// The walk's open containers. Shallow trees stay on the C++ stack; deeper
// ones spill to the heap, so no tree depth can exhaust the C++ stack.
class FrameStack {
public:
    bool push(const Frame &f) {
        if (size_ == capacity_ && !grow()) return false;
        data_[size_++] = f;
        return true;
    }
    Frame pop() { return data_[--size_]; }
    bool empty() const { return size_ == 0; }
    size_t bytesWanted() const { return capacity_ * 2 * sizeof(Frame); }

private:
    bool grow() {
        auto *bigger = static_cast<Frame *>(dbg_malloc(bytesWanted(), "textFrames"));
        if (bigger == nullptr) return false;
        std::memcpy(bigger, data_, size_ * sizeof(Frame));
        heap_.reset(bigger);
        data_ = bigger;
        capacity_ *= 2;
        return true;
    }

    Frame local_[64];
    Frame *data_ = local_;
    size_t size_ = 0;
    size_t capacity_ = 64;
    DbgPtr<Frame> heap_;
};

// Text of everything below a container, in document order, skipping
// comments and processing instructions. The result is what a recursive
// gathering gives, where each container's text is placed like one piece:
// a piece that does not fit in the room left does not move the cursor, so
// a later, shorter piece is written over it. Every level ends at the same
// buffer end, which is why one cursor (pos) serves all of them. A tree
// linked into a loop ends the text once the walk has taken as many steps
// as the document has objects.
int64_t containerText(VQHANDLE root, char *buf, int64_t cap) {
    FrameStack open;
    int64_t pos = 0;    // cursor, as an offset into buf
    int64_t total = 0;  // length of all text met so far
    open.push({root, 0, 0});
    VQHANDLE next = node(root)->firstChild;
    StepBound steps(root);
    for (;;) {
        if (const Node *c = liveNode(next)) {
            if (!steps.take()) {
                terminate(buf + pos, cap - pos);
                return total;
            }
            const int type = c->nodeType;
            if (type == VQXML_PROCESSING_INSTRUCTION_NODE || type == VQXML_COMMENT_NODE) {
                next = c->nextSibling;
            } else if (isContainer(type)) {
                if (!open.push({next, pos, total})) {
                    errorAlloc("buffer", static_cast<int64_t>(open.bytesWanted()));
                    terminate(buf, cap);
                    return 0;
                }
                next = c->firstChild;
            } else {
                if (hasOwnText(type)) {
                    const int64_t n = VQDOM_cpyDS(c->nodeValue, buf + pos, cap - pos);
                    if (n <= cap - pos) pos += n;
                    total += n;
                } else {
                    terminate(buf + pos, cap - pos);
                }
                next = c->nextSibling;
            }
            continue;
        }
        // The children of the innermost open container are done.
        const Frame done = open.pop();
        terminate(buf + pos, cap - pos);
        const int64_t length = total - done.entryTotal;
        pos = length <= cap - done.entryPos ? done.entryPos + length : done.entryPos;
        if (open.empty()) return total;
        next = node(done.container)->nextSibling;
    }
}

using Gatherer = int64_t (*)(VQHANDLE, char *, int64_t);

// The text of a node as a new DS of its owner document. Short texts go
// through a stack buffer; longer ones are gathered a second time straight
// into a DS of the right size.
VQHANDLE textAsDS(VQHANDLE h, Gatherer gather) {
    const VQHANDLE owner = VQDOM_getOwnerDocument(h);
    if (!liveHandle(owner)) return 0;
    char local[256];
    const int64_t length = gather(h, local, sizeof local);
    if (length <= 255) return VQDOM_createDS(owner, local);
    const VQHANDLE ds = allocDS(owner, length + 1);
    if (ds == 0) return 0;
    gather(h, VQDOM_getBufferDS(ds), length + 1);
    return ds;
}

}  // namespace

// ---- plain accessors ------------------------------------------------------

extern "C" VQHANDLE VQDOM_getNodeName(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr ? n->nodeName : 0;
}

extern "C" VQHANDLE VQDOM_getNodeValue(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr ? n->nodeValue : 0;
}

extern "C" int32_t VQDOM_getNodeType(VQHANDLE h) { return nodeType(liveNode(h)); }

// Entities and notations live in their document type's maps, not in the
// tree, so they report no parent.
extern "C" VQHANDLE VQDOM_getParentNode(VQHANDLE h) {
    const Node *n = liveNode(h);
    const int type = nodeType(n);
    if (n == nullptr || type == VQXML_ENTITY_NODE || type == VQXML_NOTATION_NODE) return 0;
    return n->parentNode;
}

// A node whose list chain starts with a tag-name list has no plain child
// list to give.
extern "C" VQHANDLE VQDOM_getChildNodes(VQHANDLE h) {
    const Node *n = liveNode(h);
    if (n == nullptr || !liveHandle(n->childNodes)) return 0;
    return rec<NodeList>(n->childNodes)->tagName == 0 ? n->childNodes : 0;
}

// A document type's children are its internal-subset declarations; tree
// walkers never see them (the printer and the DTD objects do).
extern "C" VQHANDLE VQDOM_getFirstChild(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType != VQXML_DOCUMENT_TYPE_NODE ? n->firstChild : 0;
}

extern "C" VQHANDLE VQDOM_getLastChild(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType != VQXML_DOCUMENT_TYPE_NODE ? n->lastChild : 0;
}

// Attributes sit in maps; the sibling links of an attribute's own children
// are not its siblings.
extern "C" VQHANDLE VQDOM_getPreviousSibling(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType != VQXML_ATTRIBUTE_NODE ? n->previousSibling : 0;
}

extern "C" VQHANDLE VQDOM_getNextSibling(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType != VQXML_ATTRIBUTE_NODE ? n->nextSibling : 0;
}

extern "C" VQHANDLE VQDOM_getAttributes(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr ? n->attributes : 0;
}

// A document's owner field names the document itself; callers get 0.
extern "C" VQHANDLE VQDOM_getOwnerDocument(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->nodeType != VQXML_DOCUMENT_NODE ? n->ownerDocument : 0;
}

extern "C" int VQDOM_hasChildNodes(VQHANDLE h) {
    const Node *n = liveNode(h);
    return n != nullptr && n->firstChild != 0 ? 1 : 0;
}

extern "C" VQHANDLE VQDOM_getTagName(VQHANDLE h) { return VQDOM_getNodeName(h); }

extern "C" VQHANDLE VQDOM_getDocumentFragmentElement(VQHANDLE h) {
    const Node *n = liveNode(h);
    VQHANDLE child = n != nullptr ? n->firstChild : 0;
    StepBound steps(h);
    for (const Node *c; steps.take() && (c = liveNode(child)) != nullptr; child = c->nextSibling)
        if (c->nodeType == VQXML_ELEMENT_NODE) return child;
    return 0;
}

// The library offers one feature: XML 1.0. The name is matched without
// regard to case, the version exactly.
extern "C" int VQDOM_hasFeature(VQHANDLE, const char *feature, const char *version) {
    if (feature == nullptr || version == nullptr) return 0;
    return VQSTRNG_stricmp(feature, "XML") == 0 && std::strcmp(version, "1.0") == 0 ? 1 : 0;
}

// ---- text -------------------------------------------------------------------

// A null buffer only measures.
extern "C" int64_t VQDOM_getText(VQHANDLE h, char *buf, int64_t cap) {
    char none = '\0';
    if (buf == nullptr) {
        buf = &none;
        cap = 0;
    }
    const Node *n = liveNode(h);
    const int type = nodeType(n);
    if (isContainer(type)) return directText(n->firstChild, buf, cap);
    if (hasOwnText(type)) return VQDOM_cpyDS(n->nodeValue, buf, cap);
    terminate(buf, cap);
    return 0;
}

extern "C" int64_t VQDOM_getTextContent(VQHANDLE h, char *buf, int64_t cap) {
    char none = '\0';
    if (buf == nullptr) {
        buf = &none;
        cap = 0;
    }
    const Node *n = liveNode(h);
    const int type = nodeType(n);
    if (isContainer(type)) return containerText(h, buf, cap);
    if (hasOwnText(type)) return VQDOM_cpyDS(n->nodeValue, buf, cap);
    terminate(buf, cap);
    return 0;
}

extern "C" VQHANDLE VQDOM_getTextDS(VQHANDLE h) { return textAsDS(h, VQDOM_getText); }

extern "C" VQHANDLE VQDOM_getTextContentDS(VQHANDLE h) {
    return textAsDS(h, VQDOM_getTextContent);
}

// ---- tag-name lists -----------------------------------------------------------

// The new list is live: the list operations search the subtree afresh on
// every call. It hangs in the node's list chain, behind the child list when
// there is one, and lives as long as the node.
extern "C" VQHANDLE VQDOM_getElementsByTagName(VQHANDLE h, VQHANDLE name) {
    const int type = nodeType(liveNode(h));
    if ((type != VQXML_ELEMENT_NODE && type != VQXML_DOCUMENT_NODE) || !liveHandle(name)) return 0;
    const VQHANDLE list = createNodeList(h);
    if (!liveHandle(list)) return 0;
    const VQHANDLE tag = VQDOM_cloneDS(h, name);
    if (tag == 0) {
        myFree(list);
        return 0;
    }
    NodeList *fresh = rec<NodeList>(list);
    fresh->tagName = tag;
    fresh->count = 0;
    fresh->mode = 0;
    Node *owner = node(h);
    if (liveHandle(owner->childNodes)) {
        NodeList *head = rec<NodeList>(owner->childNodes);
        fresh->nextList = head->nextList;
        head->nextList = list;
    } else {
        owner->childNodes = list;
    }
    return list;
}

extern "C" VQHANDLE VQDOM_getElementsByTagNameStr(VQHANDLE h, const char *name) {
    if (name == nullptr || liveNode(h) == nullptr) return 0;
    const VQHANDLE temporary = VQDOM_createDS(h, name);
    if (temporary == 0) return 0;
    const VQHANDLE list = VQDOM_getElementsByTagName(h, temporary);
    VQDOM_deleteDS(temporary);
    return list;
}

// Renaming a document renames its document element. The new name is taken
// as it is, without the name check of the creators.
extern "C" int VQDOM_rename(VQHANDLE h, const char *newName) {
    if (newName == nullptr) return 0;
    VQHANDLE target = h;
    if (nodeType(liveNode(h)) == VQXML_DOCUMENT_NODE) target = VQDOM_getDocumentElement(h);
    if (nodeType(liveNode(target)) != VQXML_ELEMENT_NODE) return 0;
    const VQHANDLE name = VQDOM_createDS(target, newName);
    if (name == 0) return 0;
    const VQHANDLE old = node(target)->nodeName;
    if (liveHandle(old)) VQDOM_deleteDS(old);
    node(target)->nodeName = name;
    return 1;
}

// ---- document type, entity and notation fields ------------------------------

extern "C" VQHANDLE VQDOM_getNameDTD(VQHANDLE doctype) { return VQDOM_getNodeName(doctype); }

extern "C" VQHANDLE VQDOM_getEntities(VQHANDLE doctype) {
    const Node *n = liveNode(doctype, sizeof(DocumentType));
    if (nodeType(n) != VQXML_DOCUMENT_TYPE_NODE) return 0;
    return rec<DocumentType>(doctype)->entities;
}

extern "C" VQHANDLE VQDOM_getNotations(VQHANDLE doctype) {
    const Node *n = liveNode(doctype, sizeof(DocumentType));
    if (nodeType(n) != VQXML_DOCUMENT_TYPE_NODE) return 0;
    return rec<DocumentType>(doctype)->notations;
}

namespace {

// The external-ID record of an entity or a notation, 0 for other nodes.
// Both records keep it in the first word after the node head.
VQHANDLE externalIdOf(VQHANDLE h) {
    const Node *n = liveNode(h, sizeof(Notation));
    const int type = nodeType(n);
    if (type != VQXML_ENTITY_NODE && type != VQXML_NOTATION_NODE) return 0;
    static_assert(offsetof(Entity, externalID) == offsetof(Notation, externalID));
    const VQHANDLE id = rec<Notation>(h)->externalID;
    return liveHandle(id) ? id : 0;
}

}  // namespace

extern "C" VQHANDLE VQDOM_getPublicID(VQHANDLE h) {
    const VQHANDLE id = externalIdOf(h);
    return id != 0 ? rec<ExternalID>(id)->publicId : 0;
}

extern "C" VQHANDLE VQDOM_getSystemID(VQHANDLE h) {
    const VQHANDLE id = externalIdOf(h);
    return id != 0 ? rec<ExternalID>(id)->systemId : 0;
}

// The node type is not tested: whatever record is large enough to hold the
// field answers with it. Smaller records answer 0.
extern "C" VQHANDLE VQDOM_getNotationName(VQHANDLE entity) {
    if (liveNode(entity, offsetof(Entity, notationName) + sizeof(VQHANDLE)) == nullptr) return 0;
    return rec<Entity>(entity)->notationName;
}
