// error_list_test.cpp - recording, bounding, ordering, tracing and rendering
// errors, and the raisers that format their parameters.
#include <cstdio>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"

namespace {

using namespace vqxml::codes;

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::message;
using vqtest::TraceCapture;
using Errs = std::vector<Err>;
using Lines = std::vector<std::string>;

// Trace lines with every heap address shown as "@".
Lines traced(TraceCapture &trace) {
    static const std::regex address("0x0x[0-9a-f]+");
    Lines out;
    for (const std::string &line : trace.lines()) out.push_back(std::regex_replace(line, address, "@"));
    return out;
}

TEST_F(LibraryTest, MessagesFillPlaceholdersFromFields) {
    // Placeholders filled, a missing or short field shown as "???", an
    // empty one as nothing, extra ones ignored.
    const struct {
        int64_t code;
        const char *params, *text;
    } cases[] = {
        {kDomCodeBase, "x|", ""},
        {mainCode(kIndexSizeErr), "12|20|", "DOM error: INDEX_SIZE_ERR stringsize: 12, offset: 12"},
        {mainCode(kDomstringSizeErr), "x|", "DOM error: DOMSTRING_SIZE_ERR"},
        {mainCode(kNotSupportedErr), "blob|", "DOM error: NOT_SUPPORTED_ERR, data type \"blob\" unsupported"},
        {mainCode(kAllocErr), "", "DOM error: cannot allocate \"???\" (size: ?\?\?)"},
        {mainCode(kNullPointerErr), "", "DOM error: function \"???\" called with null pointer"},
        {mainCode(kTooManyHandlesErr), "f|", "DOM error: The maximum number of 256 DOM handles was exceeded in function 'f'."},
        {mainCode(kTooManyNodesErr), "", "DOM error: The maximum number of 16 777 215 nodes in a document was exceeded."},
        {kBadDescCharacter, "0x2f|", "invalid character in DESC: 0x2f"},
        {kParameterMissing, "p|D|x|", "mandatory parameter \"p\" missing from Document \"D\""},
        {kDescDuplicated, "A|B|", "DESC \"A\" duplicated in tags \"B\" and \"???\""},
        {kDescDuplicated, "A||C|", "DESC \"A\" duplicated in tags \"\" and \"C\""},
        {kDescDuplicated, "A|B|C", "DESC \"A\" duplicated in tags \"B\" and \"C\""},
        {kOccurrenceNotMultiple, "P|", "OCCURENCE of DESC=\"P\" is not MULTIPLE"},
        {kDataValueIllegal, "d|v|t|", "data \"d\": value \"v\" is illegal for type \"t\""},
        {kDataValueIllegal, "d|v", "data \"d\": value \"v\" is illegal for type \"???\""},
        {kEndTagLessExpected, "4|x|", "line 4: endtag of \"x\": \"<\" expected"},
        {kEndTagSlashExpected, "4|x|", "line 4: endtag of \"x\": \"/\" expected"},
        {kUnknownReference, "4|", "line 4: unknown reference"},
        {kMixedSeparators, "7|", "line 7: \"|\" and \",\" mixed in Element Type Declaration"},
        {kGroupOpenExpected, "4|", "line 4: Element Type Declaration error, \"(\" expected"},
        {kPeIllegalHere, "|p|", "line : use of parameter entity \"p\" is illegal here"},
        {kEndTagMissing, "3|a|", "Line 3: endtag \"</a>\" is missing."},
        {kIllegalSequence, "1|]]>|", "Line 1: illegal \"]]>\"."},
        {kExpansionTooLarge, "4|", "line 4: entity expansion exceeds ??? bytes"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.code);
        char buffer[256];
        EXPECT_EQ(VQXML_getErrorMsg(c.code, c.params, buffer, sizeof buffer),
                  static_cast<int32_t>(std::strlen(c.text)));
        EXPECT_STREQ(buffer, c.text);
    }
    // Codes without a text (gaps, the neighbours of the table, the end
    // marker's code) render generically.
    for (int64_t code : {0, -3, 4711, 1939, 1001699, 1001716, 1001751, 1001754, 1001818, 1001915, 1001923, 1001924,
                         1001928, 1001929, 1001947})
        EXPECT_EQ(message(code, "1|"), "error " + std::to_string(code));
    char buf[64];
    EXPECT_EQ(VQXML_getErrorMsg(kInvalidHandle, nullptr, buf, sizeof buf), 33);
    EXPECT_STREQ(buf, "invalid node handle detected: ???");

    // Truncation still counts the whole text.
    const std::string full = "invalid nodetype detected: 2, should be 1";
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(VQXML_getErrorMsg(kInvalidNodeType, "2|1|", buf, 10), static_cast<int32_t>(full.size()));
    EXPECT_EQ(std::string(buf), full.substr(0, 9));
    char one[1] = {'x'};
    EXPECT_EQ(VQXML_getErrorMsg(kInvalidNodeType, "2|1|", one, 1), static_cast<int32_t>(full.size()));
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(VQXML_getErrorMsg(kInvalidNodeType, "2|1|", nullptr, 0), static_cast<int32_t>(full.size()));
}

TEST_F(LibraryTest, ParameterTextsAreStoredWithTheirBar) {
    for (const char *p : {"plain", "ends|", static_cast<const char *>(nullptr), ""}) addVqXmlError(kIllegalParameter, p);
    addVqXmlError(kIllegalParameter, std::string(300, 'x').c_str());
    addVqXmlError3(kParameterValueIllegal, "Size  ", "12a", "number ");
    addVqXmlError3(kParameterValueIllegal, "", "   ", nullptr);
    // The first part fills the 512-byte buffer, leaving no room for the
    // others; the stored text is then cut to 254 bytes and a bar.
    addVqXmlError3(kParameterValueIllegal, std::string(600, 'p').c_str(), "v", "t");
    const Errs errs = drainErrors();
    ASSERT_EQ(errs.size(), 8u);
    const char *expected[] = {"plain|", "ends|", "", "|", nullptr, "Size|12a|number|", "|||", nullptr};
    for (int i : {0, 1, 2, 3, 5, 6}) EXPECT_EQ(errs[i].params, expected[i]) << i;
    EXPECT_EQ(errs[4].params, std::string(254, 'x') + "|");
    EXPECT_EQ(errs[7].params, std::string(254, 'p') + "|");
    EXPECT_EQ(message(errs[5].code, errs[5].params),
              "parameter \"Size\": value \"12a\" is illegal for type \"number\"");
    EXPECT_EQ(VQXML_getError(nullptr), 0);
}

TEST_F(LibraryTest, ThreePartTextsAtTheEndOfTheBuffer) {
    // The text addVqXmlError3 builds, read from the record's trace line
    // (which shows it before the record cuts it to 254 bytes).
    auto packed = [](const std::string &p1) {
        TraceCapture trace('2');
        addVqXmlError3(kParameterValueIllegal, p1.c_str(), "bb", "cc");
        const std::string line = trace.lines().back();
        const std::string mark = "(len: 272) 1001816:";
        const size_t at = line.find(mark);
        return at == std::string::npos ? "?" : line.substr(at + mark.size());
    };
    const std::string a(600, 'a');
    EXPECT_EQ(packed(a.substr(0, 509)), a.substr(0, 509) + "||");
    EXPECT_EQ(packed(a.substr(0, 508)), a.substr(0, 508) + "|b|");
    EXPECT_EQ(packed(a.substr(0, 510)), a.substr(0, 510) + "|");
    EXPECT_EQ(packed(a), a.substr(0, 510) + "|");
    // Blanks are dropped from the cut copy, which frees room for the rest.
    EXPECT_EQ(packed(a.substr(0, 505) + std::string(10, ' ')), a.substr(0, 505) + "|bb|c|");
}

TEST_F(LibraryTest, ListsAreCutInTheMiddleRecordByRecord) {
    // A full list (DOM 800, main 1000 records) loses a fifth of its records
    // from behind the first two fifths: one trace line per record, then
    // the new record's line.
    const struct {
        bool dom;
        int limit, cut;
        const char *addLine;
    } lists[] = {{true, 800, 160, "VQXML - (addError) addr: @, (len: 272) 8:"},
                 {false, 1000, 200, "VQXML - (addError) addr: @, (len: 272) 1001802:"}};
    for (const auto &l : lists) {
        SCOPED_TRACE(l.limit);
        auto add = [&](int i) {
            const std::string params = std::to_string(i) + "|";
            if (l.dom) vqxml::domError(vqxml::kNotFoundErr, params.c_str());
            else addVqXmlError(kIllegalData, params.c_str());
        };
        for (int i = 1; i <= l.limit; ++i) add(i);
        Lines expected(static_cast<size_t>(l.cut), "VQXML free   - (deleteMid) addr: @");
        expected.push_back(l.addLine + std::to_string(l.limit + 1) + "|");
        {
            TraceCapture trace('2');
            add(l.limit + 1);
            EXPECT_EQ(traced(trace), expected);
        }
        const int kept = l.limit - l.cut + 1;
        EXPECT_EQ(l.dom ? vqxml::domErrorCount() : vqxml::mainErrorCount(), kept);
        const Errs errs = l.dom ? vqtest::drainDomErrors() : drainErrors();
        ASSERT_EQ(errs.size(), static_cast<size_t>(kept));
        EXPECT_EQ(errs[0], (Err{l.dom ? 8 : kIllegalData, "1|"}));
        const int head = l.limit * 2 / 5 + 1;
        EXPECT_EQ(errs[head - 1].params, std::to_string(head) + "|");
        EXPECT_EQ(errs[head].params, std::to_string(head + l.cut + 1) + "|");
        EXPECT_EQ(errs[kept - 1].params, std::to_string(l.limit + 1) + "|");
    }
}

TEST_F(LibraryTest, DomAndMainErrorsKeepTheirOrder) {
    vqxml::domError(vqxml::kHierarchyRequestErr, nullptr);
    addVqXmlError(kIllegalParameter, "a");
    vqxml::domError(vqxml::kWrongDocumentErr, "createElement");
    EXPECT_EQ(VQXML_getError(nullptr), mainCode(kHierarchyRequestErr));
    EXPECT_EQ(VQXML_getError(nullptr), kIllegalParameter);
    // The main list is empty now, so reading moves the pending DOM error.
    char params[256];
    EXPECT_EQ(VQXML_getError(params), mainCode(kWrongDocumentErr));
    EXPECT_STREQ(params, "createElement|");
    EXPECT_EQ(VQXML_getError(params), 0);
    EXPECT_STREQ(params, "");
    EXPECT_EQ(VQDOM_getLastError(), 4) << "kept after the lists were drained";

    vqxml::domError(vqxml::kNotFoundErr, "d");
    {
        TraceCapture trace('2');
        EXPECT_EQ(VQDOM_getError(params), 8);
        EXPECT_STREQ(params, "d|");
        EXPECT_EQ(traced(trace), (Lines{"VQXML free   - (deleteFirstError) addr: @"}));
    }
    EXPECT_EQ(VQDOM_getError(params), 0);
    vqxml::domError(vqxml::kNotFoundErr, nullptr);
    VQXML_resetErrorList();
    EXPECT_EQ(VQDOM_getError(nullptr), 0) << "reset moves DOM errors first";
    EXPECT_EQ(VQXML_getError(nullptr), 0);
}

TEST_F(LibraryTest, RaisersFormatTheirParameters) {
    errorIndexSize(5, 6);
    errorAlloc("Element", 48);
    errorNoMoreHandle();
    EXPECT_EQ(drainErrors(), (Errs{{mainCode(kIndexSizeErr), "5|6|"}, {mainCode(kAllocErr), "Element|48|"}, {mainCode(kTooManyNodesErr), ""}}));
    EXPECT_EQ(message(mainCode(kIndexSizeErr), "5|6|"), "DOM error: INDEX_SIZE_ERR stringsize: 5, offset: 5");
    EXPECT_EQ(message(mainCode(kAllocErr), "Element|48|"), "DOM error: cannot allocate \"Element\" (size: 48)");

    // The name check of a new name reports every bad byte, then the DOM
    // error on both lists, and takes the name.
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE bad = vqtest::ds(doc, "1a b");
    EXPECT_EQ(invalidCharacterErr(bad), 1);
    EXPECT_FALSE(vqxml::liveHandle(bad));
    EXPECT_EQ(VQDOM_getLastError(), 5);
    EXPECT_EQ(drainErrors(), (Errs{{kBadNameStart, "0x31|"}, {kBadNameCharacter, "0x20|"}, {mainCode(kInvalidCharacterErr), "0x31|1a b|"}}));
    EXPECT_EQ(message(mainCode(kInvalidCharacterErr), "0x31|1a b|"),
              "DOM error: INVALID_CHARACTER_ERR character \"0x31\" invalid in name \"1a b\"");
    const VQHANDLE good = vqtest::ds(doc, "a:b-1.\xC3\xA9");
    EXPECT_EQ(invalidCharacterErr(good), 0);
    EXPECT_EQ(vqtest::str(good), "a:b-1.\xC3\xA9");
    EXPECT_TRUE(drainErrors().empty());
}

}  // namespace
