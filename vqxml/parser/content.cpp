// content.cpp - the parse entry points and the grammar of document content:
// elements with their attributes, and the content between them. The
// readers of character data, markup, names, references and attribute
// values are in text.cpp and reference.cpp; what the parser's files share
// is in reader.h.
//
// Depth. Open elements are kept on an explicit heap stack, so the C stack
// does not grow with the nesting of the document. Elements are built
// bottom-up: an element receives its content while it is still unlinked
// and joins its parent only after its end tag, so every insertion's
// hierarchy check looks at one node, not at a chain of ancestors.
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

    // Records that `item` holds the attribute named by the string `name`,
    // whose hash is `h` (replacing an earlier item of that name). Names are
    // compared only when their hashes are equal.
    void add(VQHANDLE name, uint64_t h, VQHANDLE item) {
        if (saturated_) return;
        if (2 * (count_ + 1) > capacity_ && !grow()) {
            saturated_ = true;
            return;
        }
        insert(h, item, name);
    }
    // The item holding the attribute named by the string `name`, whose hash
    // is `h`; with kYes, `slot` is where the table keeps it.
    Seen find(VQHANDLE name, uint64_t h, VQHANDLE *item, size_t *slot) const {
        if (saturated_) return kUnknown;
        if (capacity_ == 0) return kNo;
        for (size_t i = h & (capacity_ - 1); slots_[i].hash != 0; i = (i + 1) & (capacity_ - 1)) {
            if (slots_[i].hash == h && nameOf(slots_[i].item) == vqxml::dsView(name)) {
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
    static std::string_view nameOf(VQHANDLE item) {
        if (vqxml::liveNode(item, sizeof(ListItem)) == nullptr) return {};
        const Node *a = vqxml::typedNode(rec<ListItem>(item)->node);
        return a != nullptr ? vqxml::dsView(a->nodeName) : std::string_view();
    }
    void insert(uint64_t h, VQHANDLE item, VQHANDLE name) {
        size_t i = h & (capacity_ - 1);
        while (slots_[i].hash != 0 && !(slots_[i].hash == h && nameOf(slots_[i].item) == vqxml::dsView(name)))
            i = (i + 1) & (capacity_ - 1);
        if (slots_[i].hash == 0) ++count_;
        slots_[i] = {h, item};
    }
    bool grow() {
        if (capacity_ == 0) {  // the first name: the inline table comes into use
            std::memset(static_cast<void *>(inline_), 0, sizeof inline_);
            capacity_ = kInline;
            return true;
        }
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

    // Most elements have no attribute: the inline table is cleared only
    // when the first name comes.
    static constexpr size_t kInline = 16;
    Slot inline_[kInline];
    Slot *slots_ = inline_;
    size_t capacity_ = 0;
    size_t count_ = 0;
    bool saturated_ = false;
};

// What the first lookup of a name (or of a pair of names) found, for the
// lookups that content reading repeats while declarations cannot change.
// Open addressing in a fixed array, cleared on first use (most parsers never
// look anything up). Names longer than an entry, and names met once the table
// is three quarters full, are not kept: their lookups are made every time.
template <typename Value, size_t kEntries, size_t kNameBytes>
class NameMemo {
public:
    static constexpr bool fits(std::string_view first, std::string_view second) {
        return first.size() + second.size() <= kNameBytes;
    }
    // The value kept for the names (`second` may be empty), or null.
    const Value *find(std::string_view first, std::string_view second, uint64_t h) {
        if (!cleared_) {
            std::memset(static_cast<void *>(entries_), 0, sizeof entries_);
            cleared_ = true;
        }
        if (!fits(first, second)) return nullptr;
        for (size_t i = start(h); entries_[i].hash != 0; i = (i + 1) & (kEntries - 1)) {
            const Entry &e = entries_[i];
            if (e.hash == h && e.firstLength == first.size() && e.secondLength == second.size() &&
                (first.empty() || std::memcmp(e.names, first.data(), first.size()) == 0) &&
                (second.empty() || std::memcmp(e.names + first.size(), second.data(), second.size()) == 0))
                return &e.value;
        }
        return nullptr;
    }
    // Keeps `value` for names that find() did not know.
    void add(std::string_view first, std::string_view second, uint64_t h, Value value) {
        if (!fits(first, second) || 4 * (count_ + 1) > 3 * kEntries) return;
        size_t i = start(h);
        while (entries_[i].hash != 0) i = (i + 1) & (kEntries - 1);
        ++count_;
        Entry &e = entries_[i];
        e.hash = h;
        e.value = value;
        e.firstLength = static_cast<uint8_t>(first.size());
        e.secondLength = static_cast<uint8_t>(second.size());
        if (!first.empty()) std::memcpy(e.names, first.data(), first.size());
        if (!second.empty()) std::memcpy(e.names + first.size(), second.data(), second.size());
    }

private:
    static_assert((kEntries & (kEntries - 1)) == 0 && kNameBytes < 256);
    static size_t start(uint64_t h) { return (h ^ (h >> 29)) & (kEntries - 1); }
    struct Entry {
        uint64_t hash;  // 0 = empty
        Value value;
        uint8_t firstLength;
        uint8_t secondLength;
        char names[kNameBytes];
    };
    Entry entries_[kEntries];
    bool cleared_ = false;
    size_t count_ = 0;
};

// The attribute definitions looked up for the attributes read, by element
// and attribute name.
class AttDefCache {
public:
    // The names' hashes are AttributeNames::hash of each.
    VQHANDLE find(VQHANDLE doctype, VQHANDLE elementName, uint64_t elementHash, VQHANDLE attributeName,
                  uint64_t attributeHash) {
        const uint64_t h = (elementHash ^ (attributeHash * 0x9e3779b97f4a7c15u)) | 1;
        if (const VQHANDLE *known = memo_.find(vqxml::dsView(elementName), vqxml::dsView(attributeName), h))
            return *known;
        const VQHANDLE found = findAttDefDS(doctype, elementName, attributeName);
        // The names are read again: nothing may keep a pointer into the
        // area across a call that could allocate there.
        memo_.add(vqxml::dsView(elementName), vqxml::dsView(attributeName), h, found);
        return found;
    }

private:
    NameMemo<VQHANDLE, 128, 48> memo_;
};

// Whether the elements of a name get default attributes, so that the search
// for defaults is made once for a name that has none.
using ElementDefaults = NameMemo<bool, 64, 48>;

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
    AttDefCache attDefs_;
    ElementDefaults defaults_;
    uint64_t elementHash_ = 0;  // of the name of the element being started
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
    const std::string_view nameText = readName(s_, names_);
    if (doctype_ != 0) elementHash_ = AttributeNames::hash(nameText);
    const VQHANDLE name = vqxml::createDSView(doc_, nameText);
    const VQHANDLE el = name != 0 ? vqxml::createElementBare(doc_, name) : 0;
    if (el == 0) return 0;
    // Without a document type there are no defaults to look for, and an
    // element name found once to have none needs no second search.
    if (doctype_ != 0) {
        const std::string_view elementName = vqxml::dsView(node(el)->nodeName);
        const bool *known = defaults_.find(elementName, {}, elementHash_);
        bool some = known != nullptr && *known;
        if (known == nullptr) {
            const int32_t n = vqxml::indexedDefaults(doctype_, elementName, nullptr, 0);
            // An index that cannot answer leaves the name unknown.
            if (n >= 0) defaults_.add(elementName, {}, elementHash_, n > 0);
            some = n != 0;
        }
        if (some) addDefaultAttributes(el);
    }
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
            if (const Node *a = vqxml::typedNode(rec<ListItem>(it)->node)) {
                seen.add(a->nodeName, AttributeNames::hash(vqxml::dsView(a->nodeName)), it);
            }
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
    // The name's hash serves both the definition lookup and the table of
    // names.
    const std::string_view nameText = readName(s_, names_);
    const uint64_t nameHash = AttributeNames::hash(nameText);
    const VQHANDLE name = vqxml::createDSView(doc_, nameText);
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
    if (doctype_ != 0) attDef = attDefs_.find(doctype_, node(el)->nodeName, elementHash_, attrName, nameHash);
    if (attributeValue(s_, attr, attDef, valueBuffer_, names_) == 0) return false;
    // A repeated name replaces the earlier value.
    VQHANDLE earlier = 0;
    size_t slot = 0;
    const AttributeNames::Seen known = seen.find(attrName, nameHash, &earlier, &slot);
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
        seen.add(node(attr)->nodeName, nameHash, item);
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
    vqxml::appendToUnlinked(parent, made);
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
                    vqxml::appendToUnlinked(parentOfNext(base), el);
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
                vqxml::appendToUnlinked(parent, el);
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
                vqxml::appendToUnlinked(parent, r.node);
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

}  // namespace

// ---- messages --------------------------------------------------------------

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

// ---- shared helpers ---------------------------------------------------------------------

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

using namespace vqxml;

// ---- entry points -------------------------------------------------------------------------

extern "C" VQHANDLE VQXML_parse(const char *text) {
    VQXML_resetErrorList();
    if (text == nullptr) text = "";
    vqxml::ParseBudget budget(text);
    const VQHANDLE doc = VQDOM_createDocument();
    if (doc == 0) return 0;
    budget.discardOnRefusal(doc);
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
    // (Copies over the budget fail their construct, and with it the parse;
    // what was deleted on the way was only unlinked.)
    if (budget.memoryFailed() || budget.spent(s)) return fail();
    deleteSource(s);
    vqxml::documentBuilt(doc);
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
