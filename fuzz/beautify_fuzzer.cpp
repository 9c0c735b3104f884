// beautify_fuzzer.cpp - a fuzzed document indented and unindented in place,
// printed indented, and read as a model: paths of every element, the item
// predicates, the duplicate check and the parameter comparison; plus an
// empty model named by the input. Taking the indentation out of a document
// that was indented must give the document as it was before indenting, and
// a copy must compare as the original does.
#include <vector>

#include "fuzz_util.h"
#include "vqxml/model/model.h"

namespace {

[[noreturn]] void fail(const char *what) {
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// Every path and predicate of the first elements in document order.
void readAsModel(VQHANDLE doc) {
    std::vector<char> desc(255), xml(40);
    vqxml::TreeWalk walk(doc);
    int left = 200;
    for (VQHANDLE e = walk.first(); e != 0 && left > 0; e = walk.next(e, true)) {
        if (VQDOM_getNodeType(e) != VQXML_ELEMENT_NODE) continue;
        --left;
        getDescPath(e, desc.data());
        VQXML_getXmlPath(e, xml.data(), static_cast<int32_t>(xml.size()));
        VQXML_getXmlPath(e, xml.data(), 3);
        VQXML_isMultiple(e);
        VQXML_isMandatory(e);
        VQXML_isEnumerated(e);
        VQXML_isGreenYellowRed(e);
        if (VQXML_hasSubElements(e)) VQXML_checkDoubleTag(e);
        // Some element of the parent (e itself or an earlier one) has e's DESC.
        const std::string name(vqxml::descOf(e));
        if (findDesc(VQDOM_getParentNode(e), name.c_str()) == 0) fail("an item is not found by its DESC");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    const std::string input = fuzz::text(data, size);

    // An empty model named by the start of the input.
    if (size > 2) {
        const VQHANDLE model = VQXML_createEmptyModel(data[0] % 8, data[1] % 8, input.c_str() + 2, "p");
        if (model != 0 && VQXML_countSubElements(model) != 3u + data[0] % 8 + data[1] % 8)
            fail("an empty model is not whole");
        VQXML_deleteDocumentArea(model);
    }

    const VQHANDLE doc = VQXML_parse(input.c_str());
    if (doc == 0) return 0;
    readAsModel(doc);
    const VQHANDLE copy = VQDOM_cloneNode(doc, 1);
    if (copy != 0 && VQXML_cmpParameters(doc, doc, copy) != VQXML_cmpParameters(doc, doc, doc))
        fail("a copy compares otherwise than the document itself");
    VQXML_deleteDocumentArea(copy);

    VQXML_unBeautifyDocument(doc);
    const std::string plain = fuzz::print(doc);
    VQXML_beautifyDocument(doc);
    VQXML_beautifyElement(VQDOM_getDocumentElement(doc), data[0] % 80);
    VQXML_unBeautifyDocument(doc);
    if (fuzz::print(doc) != plain) fail("unindenting does not undo indenting");

    beautifyElement2(VQDOM_getDocumentElement(doc), size > 1 ? data[1] % 80 - 2 : 0);
    std::vector<char> out(static_cast<size_t>(VQXML_printBeautifyNode(doc, nullptr, 0)) + 1);
    VQXML_printBeautifyNode(doc, out.data(), static_cast<int32_t>(out.size()));
    VQXML_printBeautifyNode(doc, out.data(), 7);
    fuzz::drainErrors();
    VQXML_deleteDocumentArea(doc);
    return 0;
}
