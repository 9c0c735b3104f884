// dom_fuzzer.cpp - a random sequence of DOM calls decoded from the input,
// with valid, stale and random handles. Every call must leave the process
// running and every block accounted for once the documents are deleted.
#include <cstring>
#include <vector>

#include "fuzz_util.h"

namespace {

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
    VQHANDLE doc() {
        if (docs.empty() || in.byte() < 8) {
            VQHANDLE d = VQDOM_createDocument();
            if (d != 0 && docs.size() < 8) docs.push_back(d);
            keep(d);
            return d;
        }
        return docs[in.byte() % docs.size()];
    }
    VQHANDLE ds() {
        VQHANDLE d = in.byte() < 32 ? handle() : doc();
        VQHANDLE s = VQDOM_createDS(d, in.str().c_str());
        keep(s);
        return s;
    }

    void step() {
        char buf[300];
        const uint64_t small = in.byte();
        switch (in.byte() % 40) {
            case 0: keep(doc()); break;
            case 1: keep(VQDOM_createElement(doc(), ds())); break;
            case 2: keep(VQDOM_createTextNode(doc(), ds())); break;
            case 3: keep(VQDOM_createComment(doc(), ds())); break;
            case 4: keep(VQDOM_createCDATASection(doc(), ds())); break;
            case 5: keep(VQDOM_createProcessingInstruction(doc(), ds(), ds())); break;
            case 6: keep(VQDOM_createAttribute(doc(), ds())); break;
            case 7: keep(VQDOM_createEntityReference(doc(), ds())); break;
            case 8: keep(VQDOM_createDocumentFragment(doc())); break;
            case 9: keep(VQDOM_appendChild(handle(), handle())); break;
            case 10: keep(VQDOM_insertBefore(handle(), handle(), handle())); break;
            case 11: keep(VQDOM_replaceChild(handle(), handle(), handle())); break;
            case 12: keep(VQDOM_removeChild(handle(), handle())); break;
            case 13: VQDOM_deleteNode(handle()); break;
            case 14: keep(VQDOM_cloneNode(handle(), small & 1)); break;
            case 15: keep(VQDOM_cloneNodeDoc(handle(), small & 1, handle())); break;
            case 16: VQDOM_normalize(handle()); break;
            case 17: VQDOM_setNodeValue(handle(), ds()); break;
            case 18: VQDOM_setAttribute(handle(), ds(), ds()); break;
            case 19: keep(VQDOM_setAttributeNode(handle(), handle())); break;
            case 20: VQDOM_removeAttributeStr(handle(), in.str().c_str()); break;
            case 21: VQDOM_getAttributeStr(handle(), in.str().c_str(), buf, small % 40); break;
            case 22: {
                VQHANDLE map = VQDOM_getAttributes(handle());
                keep(VQDOM_itemMap(map, small % 4));
                keep(VQDOM_getNamedItemStr(map, in.str().c_str()));
                VQDOM_getLengthMap(map);
                keep(VQDOM_removeNamedItemStr(map, in.str().c_str()));
                break;
            }
            case 23: {
                VQHANDLE list = VQDOM_getElementsByTagNameStr(handle(), small & 1 ? "*" : "a");
                keep(VQDOM_itemList(list, small % 5));
                VQDOM_getLengthList(list);
                break;
            }
            case 24: {
                VQHANDLE list = VQDOM_getChildNodes(handle());
                keep(VQDOM_itemList(list, small % 5));
                VQDOM_getLengthList(list);
                break;
            }
            case 25:
                VQDOM_getText(handle(), buf, static_cast<int64_t>(small % 300) - 2);
                VQDOM_getTextContent(handle(), buf, static_cast<int64_t>(small % 300));
                break;
            case 26: keep(VQDOM_getTextDS(handle())); keep(VQDOM_getTextContentDS(handle())); break;
            case 27: keep(VQDOM_substringData(handle(), small % 9, in.byte())); break;
            case 28:
                switch (small % 5) {
                    case 0: VQDOM_appendData(handle(), ds()); break;
                    case 1: VQDOM_insertData(handle(), in.byte() % 9, ds()); break;
                    case 2: VQDOM_deleteData(handle(), in.byte() % 9, in.byte() % 9); break;
                    case 3: VQDOM_replaceData(handle(), in.byte() % 9, in.byte() % 9, ds()); break;
                    default: VQDOM_insertDataStr(handle(), in.byte() % 9, in.str().c_str()); break;
                }
                break;
            case 29: keep(VQDOM_splitText(handle(), small % 9)); break;
            case 30: VQXML_printNode(handle(), buf, static_cast<int32_t>(small % 300) - 2); break;
            case 31: {
                VQHANDLE a = handle(), b = handle();
                switch (small % 8) {
                    case 0: VQDOM_appendDS(a, in.str().c_str()); break;
                    case 1: VQDOM_appendDS2(a, b); break;
                    case 2: VQDOM_cmpDS(a, b); VQDOM_cmpDSStr(a, "x"); break;
                    case 3: VQDOM_cpyDS(a, buf, in.byte() % 40); break;
                    case 4: keep(VQDOM_cloneDS(a, b)); break;
                    case 5: VQDOM_removeSpacesDS(a); break;
                    case 6: VQDOM_cpyDS_ExpandRef(a, buf, in.byte() % 40); break;
                    default: VQDOM_cpyDS_ExpandRef2(a, buf, in.byte() % 40); VQDOM_deleteDS(b); break;
                }
                break;
            }
            case 32: {
                VQHANDLE h = handle();
                keep(VQDOM_getParentNode(h));
                keep(VQDOM_getFirstChild(h));
                keep(VQDOM_getLastChild(h));
                keep(VQDOM_getNextSibling(h));
                keep(VQDOM_getPreviousSibling(h));
                keep(VQDOM_getNodeName(h));
                keep(VQDOM_getNodeValue(h));
                keep(VQDOM_getOwnerDocument(h));
                keep(VQDOM_getDocumentElement(h));
                keep(VQDOM_getDoctype(h));
                VQDOM_getNodeType(h);
                VQDOM_hasChildNodes(h);
                break;
            }
            case 33: VQDOM_rename(handle(), in.str().c_str()); break;
            case 34: keep(VQXML_parseFragment(doc(), in.str().c_str())); break;
            case 35: VQDOM_setRawXml(handle()); break;
            case 36: VQDOM_setDataPI(handle(), ds()); keep(VQDOM_getTarget(handle())); break;
            case 37: keep(VQDOM_removeAttributeNode(handle(), handle())); break;
            case 38: keep(VQDOM_getValue(handle())); VQDOM_getSpecified(handle()); break;
            default: keep(VQDOM_getAttributeNodeStr(handle(), in.str().c_str())); break;
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    Session s{Decoder(data, size), {}, {}};
    for (int i = 0; i < 200 && s.in.more(); ++i) s.step();
    VQXML_deleteDocumentAreaRange(0, 255);
    return 0;
}
