// query_fuzzer.cpp - queries, answers and sub-queries built from a fuzzed
// entry list against a fixed model that uses every type, cardinality and
// obligation, then every value read back. The input is lines; a line that
// starts with '#' is a data entry, the others are parameter entries. The
// first '=' of a line (or a NUL in it) ends the path; a line without one
// has the empty value. The model and a query being answered must never
// change, and every block must come back.
#include <cstring>
#include <vector>

#include "fuzz_util.h"

namespace {

const char kModel[] =
    "<MODEL ID='' PID='4711'>"
    "<PAR>"
    "<P1 DESC='Size'>number</P1>"
    "<P2 DESC='Name' USE='M'>text</P2>"
    "<P3 DESC='Color' VALUES=' red  green blue '>enumeration</P3>"
    "<P4 DESC='When'>time</P4>"
    "<P5 DESC='Light' OCCURENCE='M'>gyr</P5>"
    "<P6 DESC='Count'>long</P6><P7 DESC='Small'>int</P7>"
    "<G DESC='Grp' OCCURENCE='MULTIPLE'><X DESC='X'>int</X><Y DESC='Y' USE='mandatory'>text</Y>"
    "<H DESC='Inner' OCCURENCE='M'><Z DESC='Z' USE='M'>time</Z></H></G>"
    "<S DESC='Single'><Z DESC='Z'>text</Z></S>"
    "<L DESC='Lower' OCCURENCE='multiple'>text</L>"
    "<P DESC='Dup'>text</P><P DESC='Dup'>number</P>"
    "</PAR>"
    "<DAT>"
    "<D1 DESC='Result'>long</D1>"
    "<D2 DESC='Kind' VALUES='a b'>enumeration</D2>"
    "<R DESC='Rows' OCCURENCE='M'><V DESC='V'>time</V><W DESC='W'>gyr</W></R>"
    "<D3 DESC='Must' USE='M'>text</D3>"
    "</DAT>"
    "</MODEL>";

// Entry texts "path\0value\0" with one more NUL, so that a value always
// ends inside its text.
struct EntryList {
    std::vector<std::string> texts;
    std::vector<const char *> pointers;
    void add(std::string line) {
        if (line.find('\0') == std::string::npos) {
            const size_t eq = line.find('=');
            if (eq != std::string::npos) line[eq] = '\0';
        }
        texts.push_back(line + std::string(2, '\0'));
    }
    const char **get() {
        pointers.clear();
        for (const std::string &t : texts) pointers.push_back(t.c_str());
        pointers.push_back(nullptr);
        return pointers.data();
    }
};

void readBack(VQHANDLE model, VQHANDLE doc, int kind, EntryList &entries, size_t size) {
    char small[8];
    char large[300];
    const VQHANDLE m = VQXML_getSubModel(model, kind, "");
    const VQHANDLE t = VQXML_getSubModel(doc, kind, "");
    for (const std::string &e : entries.texts) {
        const char *path = e.c_str();
        const int32_t index = static_cast<int32_t>(e.size() % 3) - 1;
        if (kind == 0) {
            VQXML_getParValue(model, doc, path, index, small, static_cast<int32_t>(size % sizeof small));
            VQXML_getParCount(model, doc, path);
        } else {
            VQXML_getDatValue(model, doc, path, index, large, sizeof large);
            VQXML_getDatCount(model, doc, path);
        }
        VQXML_getTypedSubValue(m, t, path, index, small, static_cast<int32_t>(e.size() % sizeof small));
        VQXML_getTypedSubValue(m, t, path, 0, large, sizeof large);
        const VQHANDLE item = VQXML_getSubModel(model, kind, path);
        if (item != 0) VQXML_getSub(doc, item, index, kind);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    static const VQHANDLE model = VQXML_parse(kModel);
    static const std::string modelText = fuzz::print(model);
    if (model == 0) std::abort();
    fuzz::LeakCheck leaks;

    EntryList params, answers;
    const std::string input = fuzz::text(data, size);
    for (size_t at = 0; at <= input.size();) {
        size_t end = input.find('\n', at);
        if (end == std::string::npos) end = input.size();
        std::string line = input.substr(at, end - at);
        if (!line.empty() && line[0] == '#') answers.add(line.substr(1));
        else params.add(line);
        at = end + 1;
    }

    const VQHANDLE query = VQXML_createQuery(model, params.get());
    if (query != 0) {
        readBack(model, query, 0, params, size);
        const std::string queryText = fuzz::print(query);
        const VQHANDLE answer = VQXML_createAnswer(model, query, answers.get());
        if (fuzz::print(query) != queryText) std::abort();
        if (answer != 0) {
            readBack(model, answer, 1, answers, size);
            VQXML_createSubAnswer(VQXML_getSubModel(model, 1, "Rows"), answers.get(), answer);
            VQDOM_deleteNode(answer);
        }
        VQXML_createSubQuery(VQXML_getSubModel(model, 0, "Grp"), params.get(), query);
        VQXML_createSubQuery(VQXML_getSubModel(model, 0, "Grp.Inner"), params.get(),
                             VQXML_getSubModel(query, 0, ""));
        VQDOM_deleteNode(query);
    } else {
        // The answer of a query that is no document is refused.
        if (VQXML_createAnswer(model, 0x7fff01u, answers.get()) != 0) std::abort();
    }
    fuzz::drainErrors();
    if (fuzz::print(model) != modelText) std::abort();
    return 0;
}
