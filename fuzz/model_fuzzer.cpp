// model_fuzzer.cpp - a fuzzed text parsed as a model, put through the model
// checks and predicates, then a query and an answer built from entries made
// of the model's own DESC values, and read back. Nothing may crash, the
// model may not change, and every block must come back.
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_util.h"

namespace {

const char *const kValues[] = {"1", "", "Green", "2024.03.05 14:07:09", "20240305140709",
                               "a", "12a", "Yellow", "3"};

std::string descOf(VQHANDLE item) {
    char buffer[300];
    VQDOM_getAttributeStr(item, "DESC", buffer, sizeof buffer);
    return buffer;
}

// Entries for the items of one section: each item by its DESC, and the
// items of a group below its first and second occurrence.
std::vector<std::string> entriesFor(VQHANDLE section, size_t seed) {
    std::vector<std::string> out;
    int i = 0;
    for (VQHANDLE item = VQXML_findIndexedChildElem(section, 0); item != 0 && i < 48;
         item = VQXML_findIndexedChildElem(section, ++i)) {
        const std::string desc = descOf(item);
        VQXML_isMultiple(item);
        VQXML_isMandatory(item);
        VQXML_isEnumerated(item);
        VQXML_isGreenYellowRed(item);
        VQXML_checkDesc(desc.c_str());
        const char *value = kValues[(seed + static_cast<size_t>(i)) % std::size(kValues)];
        if (!VQXML_hasSubElements(item)) {
            out.push_back(desc + '\0' + value + '\0');
            continue;
        }
        for (int k = 0; k < 4; ++k) {
            const VQHANDLE sub = VQXML_findIndexedChildElem(item, k);
            if (sub == 0) break;
            const std::string index = k % 2 ? "(1)" : "";
            out.push_back(desc + index + "." + descOf(sub) + '\0' + value + '\0');
        }
    }
    return out;
}

std::vector<const char *> pointers(const std::vector<std::string> &texts) {
    std::vector<const char *> p;
    for (const std::string &t : texts) p.push_back(t.c_str());
    p.push_back(nullptr);
    return p;
}

void readBack(VQHANDLE model, VQHANDLE doc, int kind, const std::vector<std::string> &entries) {
    char buffer[64];
    for (const std::string &e : entries) {
        VQXML_getSubValue(VQXML_getSubModel(model, kind, ""), VQXML_getSubModel(doc, kind, ""),
                          e.c_str(), 0, buffer, sizeof buffer);
        VQXML_getTypedSubValue(VQXML_getSubModel(model, kind, ""), VQXML_getSubModel(doc, kind, ""),
                               e.c_str(), 1, buffer, sizeof buffer);
        if (kind == 0) VQXML_getParCount(model, doc, e.c_str());
        else VQXML_getDatCount(model, doc, e.c_str());
        const VQHANDLE item = VQXML_getSubModel(model, kind, e.c_str());
        if (item != 0) VQXML_getSub(doc, item, 0, kind);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    const std::string input = fuzz::text(data, size);
    const VQHANDLE model = VQXML_parse(input.c_str());
    if (model == 0) return 0;
    const std::string modelText = fuzz::print(model);
    const VQHANDLE root = VQDOM_getDocumentElement(model);
    VQXML_checkDoubleTag(root);
    const VQHANDLE par = VQXML_getSubModel(model, 0, "");
    const VQHANDLE dat = VQXML_getSubModel(model, 1, "");
    VQXML_checkDoubleTag(par);
    VQXML_checkDoubleTag(dat);

    const std::vector<std::string> params = entriesFor(par, size);
    const std::vector<std::string> answers = entriesFor(dat, size / 3);
    std::vector<const char *> p = pointers(params), a = pointers(answers);
    const VQHANDLE query = VQXML_createQuery(model, p.data());
    if (query != 0) {
        readBack(model, query, 0, params);
        VQXML_cmpParameters(model, query, query);
        const VQHANDLE answer = VQXML_createAnswer(model, query, a.data());
        if (answer != 0) {
            readBack(model, answer, 1, answers);
            VQXML_cmpParameters(model, query, answer);
            VQDOM_deleteNode(answer);
        }
        VQXML_createSubQuery(VQXML_findIndexedChildElem(par, 0), p.data(), query);
        VQDOM_deleteNode(query);
    }
    fuzz::drainErrors();
    if (fuzz::print(model) != modelText) std::abort();
    VQDOM_deleteNode(model);
    return 0;
}
