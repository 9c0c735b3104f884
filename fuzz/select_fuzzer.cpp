// select_fuzzer.cpp - fuzzed paths, one per line, through both selection
// entry points on a fixed document with attributes, text and repeated
// names. A single node is one of the document's; a list's every item and
// its length agree with an evaluation from the start, also after the tree
// changes under it; nothing is recorded and every block comes back.
#include <cstdlib>
#include <string>

#include "fuzz_util.h"
#include "vqxml/model/select.h"

namespace {

const char kDoc[] =
    "<r a='1' b=''><i id='1' t='x'>one<b/>two</i><i id='2'><b n='1'/><b n='2'/></i>"
    "<i id='' t='x'/><j>t<![CDATA[c]]><!--c--><i/></j><\xc3\xa9 id='\xc3\xa9'>x</\xc3\xa9>"
    "<r><i id='3'/><i id='4' t='x'>four</i></r></r>";

void check(bool ok) {
    if (!ok) std::abort();
}

void checkList(VQHANDLE owner, VQHANDLE list, const std::string &path) {
    uint32_t fresh = 0;
    selectSingleNodeIndex(owner, path.c_str(), 0xffffffffu, &fresh);
    const uint32_t length = VQDOM_getLengthList(list);
    check(length == fresh);
    for (uint32_t i = 0; i <= length; ++i) {
        uint32_t counter = 0;
        const VQHANDLE item = VQDOM_itemList(list, i);
        check(item == selectSingleNodeIndex(owner, path.c_str(), i, &counter));
        check((item != 0) == (i < length));
        check(item == 0 || VQDOM_getNodeType(item) == VQXML_ELEMENT_NODE);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    const fuzz::LeakCheck leaks;
    const VQHANDLE doc = VQXML_parse(kDoc);
    check(doc != 0);
    const VQHANDLE root = VQDOM_getDocumentElement(doc);
    const VQHANDLE inner = VQDOM_getLastChild(root);
    const std::string input = fuzz::text(data, size);
    bool innerGone = false;  // its slot may name another block by now
    size_t at = 0;
    while (at <= input.size()) {
        size_t end = input.find('\n', at);
        if (end == std::string::npos) end = input.size();
        const std::string path = input.substr(at, end - at);
        at = end + 1;
        for (const VQHANDLE context : {doc, root, inner}) {
            if (context == inner && innerGone) continue;
            const VQHANDLE found = VQXML_selectSingleNode(context, path.c_str());
            const int type = VQDOM_getNodeType(found);
            check(found == 0 || type == VQXML_ELEMENT_NODE || type == VQXML_TEXT_NODE ||
                  type == VQXML_ATTRIBUTE_NODE);
            check(found == 0 || (found & 255) == (doc & 255));
            const VQHANDLE list = VQXML_selectNodes(context, path.c_str());
            check(list != 0);
            checkList(context, list, path);
            // The tree changes under the list: its first match goes.
            const VQHANDLE first = VQDOM_itemList(list, 0);
            if (first != 0 && first != root) {
                for (VQHANDLE up = inner; up != 0 && !innerGone; up = VQDOM_getParentNode(up))
                    innerGone = up == first;
                VQDOM_deleteNode(VQDOM_removeChild(VQDOM_getParentNode(first), first));
                checkList(context, list, path);
            }
        }
        check(VQXML_getError(nullptr) == 0);
    }
    VQXML_deleteDocumentArea(doc);
    return 0;
}
