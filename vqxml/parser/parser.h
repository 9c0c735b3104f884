// parser.h - the recursive-descent parser: document content, the prolog and
// the internal document type definition, and the path tokenizer. Each parse
// function returns what it built (or 1 where nothing is built) and 0 on
// failure, after recording its message on the main error list.
#ifndef VQXML_PARSER_PARSER_H
#define VQXML_PARSER_PARSER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "vqxml/dom/dom.h"
#include "vqxml/parser/source.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/limits.h"
#include "vqxml/vqxml.h"

// Token of the path tokenizer.
struct XToken {
    int32_t kind;       // -1 none/bad, 0 end, 1 string, 2 number, 3 punct, 4 name
    const char *start;  // contents of a string, or the name
    uint32_t value;     // length (1, 4), number (2), character (3)
};

extern "C" {

// Path tokenizer: reads one token, returns the position behind it.
VQXML_API const char *nextXToken(const char *text, XToken *token);

// Content (document and fragment).
VQXML_API int parseMisc(Source *source, VQHANDLE parent);
VQXML_API VQHANDLE parseElement(Source *source);
VQXML_API VQHANDLE parseContent(Source *source, int inElement);
VQXML_API VQHANDLE parseCharData(Source *source);
VQXML_API int okCharData(Source *source);
VQXML_API VQHANDLE parseReference(Source *source, int inContent);
VQXML_API uint32_t parseNumber(Source *source);
VQXML_API VQHANDLE parseAttValue(Source *source, VQHANDLE attr, VQHANDLE attDef);
VQXML_API VQHANDLE parseComment(Source *source);
VQXML_API int okCommentData(Source *source);
VQXML_API int startComment(Source *source);
VQXML_API VQHANDLE parseProcInst(Source *source);
VQXML_API VQHANDLE parseCDSect(Source *source);
VQXML_API int okCData(Source *source);
VQXML_API VQHANDLE replacementText(Source *source, VQHANDLE doctype);
VQXML_API VQHANDLE parseName(Source *source);
VQXML_API int parseSpace(Source *source, int required);
VQXML_API int parseCharErr(Source *source, int character);
VQXML_API int parseWordErr(Source *source, const char *word);

// Prolog and document type definition.
VQXML_API int startXMLDecl(Source *source);
VQXML_API int startConditionalSect(Source *source);
VQXML_API int parseWords(Source *source, const char *const *table);
VQXML_API int parseWordEqual(Source *source, const char *word);
VQXML_API VQHANDLE parseVersionInfo(Source *source);
VQXML_API VQHANDLE parseEncodingDecl(Source *source);
VQXML_API VQHANDLE parseLiteral(Source *source, int (*charClass)(int),
                                const char *what);
VQXML_API VQHANDLE parseExternalID(Source *source, int systemRequired);
VQXML_API VQHANDLE parseMarkupDecl(Source *source);
VQXML_API int parseContentSpec(Source *source, VQHANDLE elementDecl);
VQXML_API int parseAttType(Source *source, VQHANDLE attDef);
VQXML_API int parseDefaultDecl(Source *source, VQHANDLE attDef);
VQXML_API VQHANDLE parseCP(Source *source, int nested);
VQXML_API int parsePEReference(Source *source, VQHANDLE entityReference,
                               int setName);
VQXML_API int parsePE(VQHANDLE document, VQHANDLE entity,
                      VQHANDLE entityReference);
VQXML_API int parseExtSubsetDecl(Source *source, VQHANDLE parent,
                                 int conditionalAllowed);
VQXML_API int parseIgnore(Source *source);
VQXML_API int parseIgnoreSectContents(Source *source);

}  // extern "C"

namespace vqxml {

// Deeper input than kMaxNesting records kElementsTooDeep and fails.
void nestingTooDeep(Source *source);

// The source level that reads the current character: the innermost
// expansion that is delivering it, else the source itself. A closing
// quotation mark is awaited there.
Source *readingLevel(Source *source);

// A growable byte buffer on the tracked heap for gathering a text before
// its DS is made. A failed growth records the allocation error, drops the
// byte(s) and leaves ok() false.
class ByteBuffer {
public:
    ByteBuffer() = default;
    ~ByteBuffer();
    ByteBuffer(const ByteBuffer &) = delete;
    ByteBuffer &operator=(const ByteBuffer &) = delete;

    void push(char c) {
        if (size_ == capacity_ && !grow(1)) return;
        data_[size_++] = c;
    }
    void append(const char *bytes, size_t count);
    void clear() { size_ = 0; }
    bool ok() const { return ok_; }
    std::string_view view() const { return {data_, size_}; }

private:
    bool grow(size_t more);
    char inline_[128];
    char *data_ = inline_;
    size_t size_ = 0;
    size_t capacity_ = sizeof inline_;
    bool ok_ = true;
};

// The block behind HeapStack: a new block of `bytes` holding the first
// `used` bytes of `old` (which is released), or null with the allocation
// error recorded (`old` kept).
void *growStack(void *old, size_t used, size_t bytes);
void releaseStack(void *block);

// A stack of trivially copyable records on the tracked heap, for walks
// that must not recurse with the depth of the input.
template <typename T>
class HeapStack {
public:
    HeapStack() = default;
    ~HeapStack() { releaseStack(data_); }
    HeapStack(const HeapStack &) = delete;
    HeapStack &operator=(const HeapStack &) = delete;

    bool push(const T &value) {
        if (size_ == capacity_ && !grow()) return false;
        data_[size_++] = value;
        return true;
    }
    T &top() { return data_[size_ - 1]; }
    T pop() { return data_[--size_]; }
    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }

private:
    bool grow() {
        const size_t capacity = capacity_ == 0 ? 64 : capacity_ * 2;
        void *fresh = growStack(data_, size_ * sizeof(T), capacity * sizeof(T));
        if (fresh == nullptr) return false;
        data_ = static_cast<T *>(fresh);
        capacity_ = capacity;
        return true;
    }
    T *data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// The budget of one parse call for copies. A reference to a declared entity
// copies the entity's nodes and every element gets copies of its DTD
// defaults, so a small text could otherwise grow a document without limit.
// While a budget lives, the copies may add at most 8 MiB plus 100 bytes per
// input byte to document areas; the construct that goes beyond fails with
// 1001945. It also keeps the reader's count of entity text for the whole
// call (EntityBudgetScope).
class ParseBudget {
public:
    explicit ParseBudget(const char *text);
    ~ParseBudget();
    ParseBudget(const ParseBudget &) = delete;
    ParseBudget &operator=(const ParseBudget &) = delete;

    // True, with 1001945 recorded at the source's line the first time, when
    // the copies made so far have spent the budget.
    bool spent(Source *source);
    // `doc` is the parse's own document, which goes as a whole when its
    // copies spend the budget.
    void discardOnRefusal(VQHANDLE doc) { meter_.discardArea = static_cast<int32_t>(doc & 255); }
    // The budget of the parse in progress, or null.
    static ParseBudget *active() { return active_; }
    // Whether an allocation failed (and was recorded) since the budget
    // began: the parse then fails as a whole rather than hand back a
    // document with parts missing.
    bool memoryFailed() const { return allocationFailures() != failuresAtStart_; }

private:
    static ParseBudget *active_;
    ParseBudget *outer_;
    CloneMeter *outerMeter_;
    CloneMeter meter_;
    EntityBudgetScope entityText_;
    MapIndexScope mapIndexes_;
    int64_t limit_;
    int64_t failuresAtStart_;
    bool reported_ = false;
};

// ParseBudget::spent of the parse in progress; false outside a parse.
inline bool copyBudgetSpent(Source *source) {
    ParseBudget *budget = ParseBudget::active();
    return budget != nullptr && budget->spent(source);
}

// The prolog steps that VQXML_parse calls: the XML declaration (returns the
// XmlDecl handle or 0) and the document type declaration with its internal
// and external subsets (returns 1 or 0; the DocumentType is appended to the
// document, and deleted again on failure).
VQHANDLE parseXmlDecl(Source *source);
int parseDoctypeDecl(Source *source, VQHANDLE document);

}  // namespace vqxml

#endif  // VQXML_PARSER_PARSER_H
