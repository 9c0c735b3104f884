// dom_fuzzer.cpp - a random sequence of DOM calls decoded from the input,
// with valid, stale and random handles. Every call must leave the process
// running and every block accounted for once the documents are deleted.
#include <cstring>
#include <vector>

#include "fuzz_util.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/node.h"

namespace {

// Documents with a document type, so that entities, references, defaults
// and declaration nodes join the handle pool.
const char *const kDocuments[] = {
    "<!DOCTYPE r [<!ENTITY e 'x<b a=\"1\"/>y'><!ATTLIST b d CDATA 'dv' a CDATA #IMPLIED>"
    "<!ATTLIST r k NMTOKENS ' p  q '><!ENTITY % p '<!ENTITY f \"F\">'>%p;]><r>&e;<b/>&f;</r>",
    "<?xml version='1.0'?><!DOCTYPE a [<!ELEMENT a (b|c)*><!NOTATION n SYSTEM 'n'>"
    "<!ENTITY u SYSTEM 'u' NDATA n><!-- c --><?pi d?>]><a x='&amp;'><![CDATA[z]]><!--k--></a>",
    "<d><d><d><d><d><d><d><d><d><d>deep</d></d></d></d></d></d></d></d></d></d>",
};

class Decoder {
public:
    Decoder(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    bool more() const { return p_ < end_; }
    uint8_t byte() { return p_ < end_ ? *p_++ : 0; }
    uint32_t word() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = v << 8 | byte();
        return v;
    }
    // A short string of the input's own bytes (no NUL).
    std::string str() {
        size_t n = byte() % 12;
        std::string s;
        for (size_t i = 0; i < n && more(); ++i) {
            char c = static_cast<char>(byte());
            s += c == '\0' ? 'a' : c;
        }
        return s;
    }

private:
    const uint8_t *p_;
    const uint8_t *end_;
};

struct Session {
    Decoder in;
    std::vector<VQHANDLE> pool;  // every handle seen, live or stale
    std::vector<VQHANDLE> docs;

    void keep(VQHANDLE h) {
        if (h != 0 && pool.size() < 512) pool.push_back(h);
    }
    // A handle: mostly one seen before (perhaps stale), sometimes random or
    // a special value.
    VQHANDLE handle() {
        uint8_t b = in.byte();
        if (b < 208 && !pool.empty()) return pool[b % pool.size()];
        switch (b % 6) {
            case 0: return 0;
            case 1: return 0xffffffffu;
            case 2: return in.word();
            case 3: return (in.byte() << 8) | (docs.empty() ? 1 : docs[0] & 255);
            default: return pool.empty() ? in.word() : pool[in.byte() % pool.size()] + 256;
        }
    }
    // Whether the document of `h` holds more than a few megabytes.
    static bool large(VQHANDLE h) {
        int32_t counters[6] = {};
        if ((h & 255) != 0) VQXML_debug_mem(h & 255, counters, 0);
        return counters[1] > (4 << 20);
    }
    VQHANDLE doc() {
        if (docs.empty() || in.byte() < 8) {
            VQHANDLE d = VQDOM_createDocument();
            if (d != 0 && docs.size() < 8) docs.push_back(d);
            keep(d);
            return d;
        }
        return docs[in.byte() % docs.size()];
    }
    // The handle, or 0 when it names a node.
    static VQHANDLE notNode(VQHANDLE h) { return vqxml::typedNode(h) != nullptr ? 0 : h; }
    VQHANDLE ds() {
        VQHANDLE d = in.byte() < 32 ? handle() : doc();
        VQHANDLE s = VQDOM_createDS(d, in.str().c_str());
        keep(s);
        return s;
    }

    // One call. Everything the call needs is decoded first, in a fixed
    // order: argument evaluation order differs between compilers, and an
    // input must mean the same sequence in the fuzz build and in the test
    // that replays it.
    void step() {
        char buf[300];
        const uint64_t small = in.byte();
        // The top byte values choose the definition calls (44 to 48).
        const uint8_t opByte = in.byte();
        const int op = opByte >= 224 ? 44 + opByte % 5 : opByte % 44;
        const VQHANDLE h1 = handle();
        const VQHANDLE h2 = handle();
        const VQHANDLE h3 = handle();
        const unsigned b1 = in.byte();
        const unsigned b2 = in.byte();
        const std::string s1 = in.str();
        const std::string s2 = in.str();
        switch (op) {
            case 0: keep(doc()); break;
            case 1: case 2: case 3: case 4: case 6: case 7: {
                const VQHANDLE d = doc();
                const VQHANDLE text = ds();
                switch (op) {
                    case 1: keep(VQDOM_createElement(d, text)); break;
                    case 2: keep(VQDOM_createTextNode(d, text)); break;
                    case 3: keep(VQDOM_createComment(d, text)); break;
                    case 4: keep(VQDOM_createCDATASection(d, text)); break;
                    case 6: keep(VQDOM_createAttribute(d, text)); break;
                    default: keep(VQDOM_createEntityReference(d, text)); break;
                }
                break;
            }
            case 5: {
                const VQHANDLE d = doc();
                const VQHANDLE target = ds();
                const VQHANDLE data = ds();
                keep(VQDOM_createProcessingInstruction(d, target, data));
                break;
            }
            case 8: keep(VQDOM_createDocumentFragment(doc())); break;
            case 9: keep(VQDOM_appendChild(h1, h2)); break;
            case 10: keep(VQDOM_insertBefore(h1, h2, h3)); break;
            case 11: keep(VQDOM_replaceChild(h1, h2, h3)); break;
            case 12: keep(VQDOM_removeChild(h1, h2)); break;
            case 13: VQDOM_deleteNode(h1); break;
            // Copies appended to what they copy double a tree per step; past
            // a few megabytes that is the sequence's doing, not the library's.
            case 14: if (!large(h1)) keep(VQDOM_cloneNode(h1, small & 1)); break;
            case 15: if (!large(h1) && !large(h2)) keep(VQDOM_cloneNodeDoc(h1, small & 1, h2)); break;
            case 16: VQDOM_normalize(h1); break;
            case 17: VQDOM_setNodeValue(h1, ds()); break;
            case 18: {
                const VQHANDLE name = ds();
                const VQHANDLE value = ds();
                VQDOM_setAttribute(h1, name, value);
                break;
            }
            case 19: keep(VQDOM_setAttributeNode(h1, h2)); break;
            case 20: VQDOM_removeAttributeStr(h1, s1.c_str()); break;
            case 21: VQDOM_getAttributeStr(h1, s1.c_str(), buf, small % 40); break;
            case 22: {
                VQHANDLE map = VQDOM_getAttributes(h1);
                keep(VQDOM_itemMap(map, small % 4));
                keep(VQDOM_getNamedItemStr(map, s1.c_str()));
                VQDOM_getLengthMap(map);
                keep(VQDOM_removeNamedItemStr(map, s2.c_str()));
                break;
            }
            case 23: {
                VQHANDLE list = VQDOM_getElementsByTagNameStr(h1, small & 1 ? "*" : "a");
                keep(VQDOM_itemList(list, small % 5));
                VQDOM_getLengthList(list);
                break;
            }
            case 24: {
                VQHANDLE list = VQDOM_getChildNodes(h1);
                keep(VQDOM_itemList(list, small % 5));
                VQDOM_getLengthList(list);
                break;
            }
            case 25:
                VQDOM_getText(h1, buf, static_cast<int64_t>(small % 300) - 2);
                VQDOM_getTextContent(h2, buf, static_cast<int64_t>(small % 300));
                break;
            case 26: keep(VQDOM_getTextDS(h1)); keep(VQDOM_getTextContentDS(h2)); break;
            case 27: keep(VQDOM_substringData(h1, small % 9, b1)); break;
            case 28:
                switch (small % 5) {
                    case 0: VQDOM_appendData(h1, ds()); break;
                    case 1: VQDOM_insertData(h1, b1 % 9, ds()); break;
                    case 2: VQDOM_deleteData(h1, b1 % 9, b2 % 9); break;
                    case 3: VQDOM_replaceData(h1, b1 % 9, b2 % 9, ds()); break;
                    default: VQDOM_insertDataStr(h1, b1 % 9, s1.c_str()); break;
                }
                break;
            case 29: keep(VQDOM_splitText(h1, small % 9)); break;
            case 30: VQXML_printNode(h1, buf, static_cast<int32_t>(small % 300) - 2); break;
            case 31:
                // The string functions trust that a handle names a string:
                // one that frees or rewrites a node's block is the caller's
                // fault, like freeing a pointer twice, and leaves links to
                // a freed slot that a new record may take. Those writers
                // get no handle that looks like a node.
                switch (small % 8) {
                    case 0: VQDOM_appendDS(notNode(h1), s1.c_str()); break;
                    case 1: VQDOM_appendDS2(notNode(h1), h2); break;
                    case 2: VQDOM_cmpDS(h1, h2); VQDOM_cmpDSStr(h1, "x"); break;
                    case 3: VQDOM_cpyDS(h1, buf, b1 % 40); break;
                    case 4: keep(VQDOM_cloneDS(h1, h2)); break;
                    case 5: VQDOM_removeSpacesDS(notNode(h1)); break;
                    case 6: VQDOM_cpyDS_ExpandRef(h1, buf, b1 % 40); break;
                    default: VQDOM_cpyDS_ExpandRef2(h1, buf, b1 % 40); VQDOM_deleteDS(notNode(h2)); break;
                }
                break;
            case 32:
                keep(VQDOM_getParentNode(h1));
                keep(VQDOM_getFirstChild(h1));
                keep(VQDOM_getLastChild(h1));
                keep(VQDOM_getNextSibling(h1));
                keep(VQDOM_getPreviousSibling(h1));
                keep(VQDOM_getNodeName(h1));
                keep(VQDOM_getNodeValue(h1));
                keep(VQDOM_getOwnerDocument(h1));
                keep(VQDOM_getDocumentElement(h1));
                keep(VQDOM_getDoctype(h1));
                VQDOM_getNodeType(h1);
                VQDOM_hasChildNodes(h1);
                break;
            case 33: VQDOM_rename(h1, s1.c_str()); break;
            case 34: keep(VQXML_parseFragment(doc(), s1.c_str())); break;
            case 35: VQDOM_setRawXml(h1); break;
            case 36: VQDOM_setDataPI(h1, ds()); keep(VQDOM_getTarget(h2)); break;
            case 37: keep(VQDOM_removeAttributeNode(h1, h2)); break;
            case 38: keep(VQDOM_getValue(h1)); VQDOM_getSpecified(h2); break;
            case 39: keep(VQDOM_getAttributeNodeStr(h1, s1.c_str())); break;
            case 40: {
                const VQHANDLE d = VQXML_parse(kDocuments[small % 3]);
                if (d != 0 && docs.size() < 8) docs.push_back(d);
                keep(d);
                keep(VQDOM_getDocumentElement(d));
                keep(VQDOM_getDoctype(d));
                break;
            }
            case 41: {
                char *cursor = buf;
                printNodeBeatifyEx(h1, &cursor, static_cast<int32_t>(small % 300) - 2,
                                   static_cast<int32_t>(b1 % 80));
                break;
            }
            case 42:
                // The next allocations meet a failure; the sequence goes on.
                vqxml::failAllocAt(1 + static_cast<int64_t>(small % 8));
                break;
            case 44: case 45: case 46: case 47: case 48: {
                // Definitions changed on a document type (or on whatever
                // handle comes), with names of the sample documents, texts
                // that parse and texts that do not, and null pointers.
                static const char *const kNames[] = {"r", "b", "a", "e", "x", nullptr};
                static const char *const kTexts[] = {
                    "EMPTY", "ANY", "(#PCDATA|b)*", "(a,(b|c)+)? tail", "CDATA 'v'", "(x|y) 'x'",
                    "NMTOKENS #IMPLIED", "CDATA #FIXED 'f&e;'", "ID #REQUIRED", "(a|b,c)", "", nullptr};
                const VQHANDLE dt = b2 & 1 ? h2 : VQDOM_getDoctype(doc());
                const char *element = b1 & 8 ? s1.c_str() : kNames[b1 % 6];
                const char *attribute = b2 & 8 ? s2.c_str() : kNames[b2 / 16 % 6];
                const char *text = small & 64 ? s2.c_str() : kTexts[small % 12];
                switch (op) {
                    case 44: VQDOM_deleteDS(VQDOM_enumAttValues(dt, element, attribute)); break;
                    case 45: VQDOM_createElementDef(dt, element, text); break;
                    case 46: VQDOM_createAttListDef(dt, element, attribute, text); break;
                    case 47: VQDOM_deleteElementDef(dt, element); break;
                    default: VQDOM_deleteAttListDef(dt, element, attribute); break;
                }
                break;
            }
            default: {
                // A chain deeper than any inline stack of the library.
                VQHANDLE d = doc();
                VQHANDLE top = VQDOM_createElement(d, VQDOM_createDS(d, "c"));
                VQHANDLE inner = top;
                for (int i = 0; i < 40 + static_cast<int>(small); ++i) {
                    const VQHANDLE e = VQDOM_createElement(d, VQDOM_createDS(d, "c"));
                    if (VQDOM_appendChild(inner, e) == 0) break;
                    inner = e;
                }
                keep(top);
                keep(inner);
                break;
            }
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    Session s{Decoder(data, size), {}, {}};
    for (int i = 0; i < 200 && s.in.more(); ++i) s.step();
    vqxml::failAllocAt(0);
    VQXML_deleteDocumentAreaRange(0, 255);
    for (int i = 0; i < 256; ++i) dontRealloc[i] = 0;
    return 0;
}
