// character_data.cpp - reading and editing the value string of text,
// CDATA-section and comment nodes (and of any other node that has a value:
// no node type is tested), splitting text nodes, and the fields of
// processing instructions and attributes.
//
// Edits keep the value's handle: the new text is built in a fresh DS that
// then takes the old one's place in the handle table, so everyone holding
// the value handle sees the edit. No failed edit changes the value.
//
// Offsets and counts are bytes of the stored string. With L the value's
// length, an offset above L is an index error, an offset of L is an empty
// range, and a count that reaches past the end is cut at the end.
#include <cstring>

#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/node.h"

using namespace vqxml;

namespace {

// The node of a handle that passes validHandle (which reports a bad
// non-zero handle), else null.
Node *checkedNode(VQHANDLE h) { return validHandle(h) ? liveNode(h) : nullptr; }

void nullPointer(const char *function) { domError(kNullPointerErr, function); }

uint64_t lengthOf(VQHANDLE ds) { return std::strlen(dsChars(ds)); }

// The count cut so that the range ends at the end of the text at most.
uint64_t clipped(uint64_t length, uint64_t offset, uint64_t count) {
    return count > length - offset ? length - offset : count;
}

// Index errors report the length and the offset as signed numbers.
void indexError(uint64_t length, uint64_t offset) {
    errorIndexSize(static_cast<int64_t>(length), static_cast<int64_t>(offset));
}

// Rebuilds `value` as its first `offset` bytes, the text of `insert` (a DS,
// or 0 for nothing) and the bytes after the `count` replaced ones. The range
// must lie inside the text. On allocation failure (code 11 recorded) the
// value is unchanged.
void splice(VQHANDLE value, uint64_t offset, uint64_t count, VQHANDLE insert) {
    const uint64_t length = lengthOf(value);
    const uint64_t added = insert != 0 ? lengthOf(insert) : 0;
    const uint64_t size = length - count + added + 1;
    const VQHANDLE fresh = allocDS(value, static_cast<int64_t>(size));
    if (fresh == 0) return;
    // Resolve only now: the allocation may have moved the area.
    char *out = static_cast<char *>(payload(fresh));
    const char *old = dsChars(value);
    std::memcpy(out, old, offset);
    if (added != 0) std::memcpy(out + offset, dsChars(insert), added);
    std::memcpy(out + offset + added, old + offset + count, length - offset - count + 1);
    changeHandle(value, fresh);
    myFree(fresh);  // now names the old block
}

// Removes a range of a valid value, with the index check.
void deleteRange(VQHANDLE value, uint64_t offset, uint64_t count) {
    const uint64_t length = lengthOf(value);
    if (offset > length) {
        indexError(length, offset);
        return;
    }
    deleteSubDS(value, static_cast<int64_t>(offset),
                static_cast<int64_t>(clipped(length, offset, count)));
}

// Inserts the DS `data` into `value` before `offset` and deletes `data`.
// An invalid value is reported under the caller's name.
void insertInto(VQHANDLE value, uint64_t offset, VQHANDLE data, const char *function) {
    if (liveHandle(value) && offset > lengthOf(value)) {
        indexError(lengthOf(value), offset);
        VQDOM_deleteDS(data);
        return;
    }
    insertDS(value, liveHandle(value) ? static_cast<int64_t>(offset) : 0, data, function);
}

}  // namespace

// ---- reading ------------------------------------------------------------------

extern "C" VQHANDLE VQDOM_getData(VQHANDLE h) {
    const Node *n = checkedNode(h);
    return n != nullptr ? n->nodeValue : 0;
}

extern "C" int64_t VQDOM_getLengthData(VQHANDLE h) {
    const Node *n = checkedNode(h);
    return n != nullptr && liveHandle(n->nodeValue) ? VQDOM_lenDS(n->nodeValue) : 0;
}

// The caller owns the new DS.
extern "C" VQHANDLE VQDOM_substringData(VQHANDLE h, uint64_t offset, uint64_t count) {
    const Node *n = checkedNode(h);
    const VQHANDLE value = n != nullptr ? n->nodeValue : 0;
    if (n == nullptr || !validHandle(value)) {
        nullPointer("substringData");
        return 0;
    }
    const uint64_t length = lengthOf(value);
    if (offset > length) {
        indexError(length, offset);
        return 0;
    }
    const uint64_t take = clipped(length, offset, count);
    const VQHANDLE out = allocDS(value, static_cast<int64_t>(take + 1));
    if (out == 0) return 0;
    char *bytes = static_cast<char *>(payload(out));
    std::memcpy(bytes, dsChars(value) + offset, take);
    bytes[take] = '\0';
    return out;
}

// ---- editing --------------------------------------------------------------------

// A valid data DS is consumed whatever happens; an invalid one ends the call.
extern "C" void VQDOM_appendData(VQHANDLE h, VQHANDLE data) {
    if (!validHandle(data)) return;
    if (const Node *n = checkedNode(h)) {
        const VQHANDLE value = n->nodeValue;
        if (validHandle(value))
            splice(value, lengthOf(value), 0, data);
        else
            nullPointer("appendData");
    }
    VQDOM_deleteDS(data);
}

extern "C" void VQDOM_appendDataStr(VQHANDLE h, const char *text) {
    if (text == nullptr) return;
    if (const Node *n = checkedNode(h)) VQDOM_appendDS(n->nodeValue, text);
}

extern "C" void VQDOM_insertData(VQHANDLE h, uint64_t offset, VQHANDLE data) {
    if (!validHandle(data)) return;
    const Node *n = checkedNode(h);
    if (n == nullptr) {
        VQDOM_deleteDS(data);
        return;
    }
    insertInto(n->nodeValue, offset, data, "insertData");
}

extern "C" void VQDOM_insertDataStr(VQHANDLE h, uint64_t offset, const char *text) {
    if (text == nullptr || checkedNode(h) == nullptr) return;
    const VQHANDLE data = VQDOM_createDS(h, text);
    if (data == 0) return;
    insertInto(node(h)->nodeValue, offset, data, "insertDataStr");
}

// Nothing to delete from is no error here.
extern "C" void VQDOM_deleteData(VQHANDLE h, uint64_t offset, uint64_t count) {
    const Node *n = liveNode(h);
    if (n == nullptr || !liveHandle(n->nodeValue)) return;
    deleteRange(n->nodeValue, offset, count);
}

// Replacing by an invalid DS still deletes the range, and is reported as a
// null pointer all the same: callers rely on both effects.
extern "C" void VQDOM_replaceData(VQHANDLE h, uint64_t offset, uint64_t count, VQHANDLE data) {
    const bool haveData = validHandle(data);
    const Node *n = checkedNode(h);
    const VQHANDLE value = n != nullptr ? n->nodeValue : 0;
    if (!haveData) {
        if (n == nullptr) return;
        if (liveHandle(value)) deleteRange(value, offset, count);
        nullPointer("replaceData");
        return;
    }
    // A node without a value takes the data and reports nothing: only a
    // missing replacement is reported.
    if (n != nullptr && liveHandle(value)) {
        if (offset > lengthOf(value)) {
            indexError(lengthOf(value), offset);
        } else {
            splice(value, offset, clipped(lengthOf(value), offset, count), data);
        }
    }
    VQDOM_deleteDS(data);
}

// The tail from `offset` on moves into a new text node linked right behind
// the split node. The new node is always plain text, whatever was split.
extern "C" VQHANDLE VQDOM_splitText(VQHANDLE h, uint64_t offset) {
    const Node *n = checkedNode(h);
    if (n == nullptr) return 0;
    const VQHANDLE value = n->nodeValue;
    const uint64_t length = liveHandle(value) ? lengthOf(value) : 0;
    if (offset > length) {
        indexError(length, offset);
        return 0;
    }
    const VQHANDLE owner = n->ownerDocument;
    const VQHANDLE tail = VQDOM_createTextNode(owner, VQDOM_substringData(h, offset, length - offset));
    if (tail == 0) return 0;
    deleteRange(value, offset, length - offset);

    Node *split = node(h);
    Node *fresh = node(tail);
    const VQHANDLE parent = split->parentNode;
    const VQHANDLE next = split->nextSibling;
    fresh->parentNode = parent;
    fresh->previousSibling = h;
    fresh->nextSibling = next;
    if (Node *following = liveNode(next)) {
        following->previousSibling = tail;
    } else if (Node *p = liveNode(parent)) {
        p->lastChild = tail;
    }
    split->nextSibling = tail;
    return tail;
}

// Marks text whose value is markup already, so that printers write it as
// it is. The handle and type are not tested; a record too small to hold
// the flag is left alone.
extern "C" void VQDOM_setRawXml(VQHANDLE h) {
    if (liveNode(h, sizeof(Text)) != nullptr) rec<Text>(h)->rawXml = 1;
}

// ---- processing instructions and attributes -------------------------------------

extern "C" VQHANDLE VQDOM_getTarget(VQHANDLE pi) {
    const Node *n = checkedNode(pi);
    return n != nullptr ? n->nodeName : 0;
}

extern "C" VQHANDLE VQDOM_getDataPI(VQHANDLE pi) { return VQDOM_getData(pi); }

// Unlike setting a node value, the data may come from any document.
extern "C" void VQDOM_setDataPI(VQHANDLE pi, VQHANDLE data) {
    if (!validHandle(data)) return;
    Node *n = checkedNode(pi);
    if (n == nullptr) {
        VQDOM_deleteDS(data);
        return;
    }
    const VQHANDLE old = n->nodeValue;
    n->nodeValue = data;
    if (old != data && liveHandle(old)) VQDOM_deleteDS(old);
}

extern "C" VQHANDLE VQDOM_getName(VQHANDLE attr) { return VQDOM_getTarget(attr); }

extern "C" VQHANDLE VQDOM_getValue(VQHANDLE attr) { return VQDOM_getData(attr); }

// Read from any record large enough to hold the flag.
extern "C" int VQDOM_getSpecified(VQHANDLE attr) {
    if (checkedNode(attr) == nullptr || liveNode(attr, sizeof(Attr)) == nullptr) return 0;
    return static_cast<int>(rec<Attr>(attr)->specified);
}
