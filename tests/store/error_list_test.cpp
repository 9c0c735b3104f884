// error_list_test.cpp - recording, bounding, ordering and rendering errors.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/store/error_list.h"

using vqtest::Err;
using vqtest::LibraryTest;
using vqtest::message;

TEST_F(LibraryTest, MessagesFillPlaceholdersFromFields) {
    EXPECT_EQ(message(1001701, "12|20|"), "DOM error: INDEX_SIZE_ERR stringsize: 12, offset: 12");
    EXPECT_EQ(message(1001808, "A|B|"), "DESC \"A\" duplicated in tags \"B\" and \"???\"");
    EXPECT_EQ(message(1001808, "A||C|"), "DESC \"A\" duplicated in tags \"\" and \"C\"");
    EXPECT_EQ(message(1001808, "A|B|C"), "DESC \"A\" duplicated in tags \"B\" and \"C\"");
    EXPECT_EQ(message(1001711, ""), "DOM error: cannot allocate \"???\" (size: ?\?\?)");
    EXPECT_EQ(message(4711, ""), "error 4711");
    EXPECT_EQ(message(1001700, "x|"), "");
    EXPECT_EQ(message(1001917, "7|"), "line 7: \"|\" and \",\" mixed in Element Type Declaration");
    EXPECT_EQ(message(1001942, "3|a|"), "Line 3: endtag \"</a>\" is missing.");
    EXPECT_EQ(message(1001943, "1|]]>|"), "Line 1: illegal \"]]>\".");
    EXPECT_EQ(message(1001809, "P|"), "OCCURENCE of DESC=\"P\" is not MULTIPLE");
    EXPECT_EQ(message(1001713, "f|"),
              "DOM error: The maximum number of 256 DOM handles was exceeded in function 'f'.");
    // Codes without a text render generically.
    for (int64_t code : {1001915, 1001923, 1001924, 1001928, 1001929, 1939})
        EXPECT_EQ(message(code, "1|"), "error " + std::to_string(code));
    char buf[64];
    EXPECT_EQ(VQXML_getErrorMsg(1001748, nullptr, buf, sizeof buf), 33);
    EXPECT_STREQ(buf, "invalid node handle detected: ???");
}

TEST_F(LibraryTest, MessageTruncationCountsTheWholeText) {
    const std::string full = "invalid nodetype detected: 2, should be 1";
    char buf[10];
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(VQXML_getErrorMsg(1001749, "2|1|", buf, 10), static_cast<int32_t>(full.size()));
    EXPECT_EQ(std::string(buf), full.substr(0, 9));
    char one[1] = {'x'};
    EXPECT_EQ(VQXML_getErrorMsg(1001749, "2|1|", one, 1), static_cast<int32_t>(full.size()));
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(VQXML_getErrorMsg(1001749, "2|1|", nullptr, 0), static_cast<int32_t>(full.size()));
}

TEST_F(LibraryTest, ParameterTextsAreStoredWithTheirBar) {
    addVqXmlError(1001801, "plain");
    addVqXmlError(1001801, "ends|");
    addVqXmlError(1001801, nullptr);
    addVqXmlError(1001801, "");
    addVqXmlError(1001801, std::string(300, 'x').c_str());
    auto errs = vqtest::drainErrors();
    ASSERT_EQ(errs.size(), 5u);
    EXPECT_EQ(errs[0].params, "plain|");
    EXPECT_EQ(errs[1].params, "ends|");
    EXPECT_EQ(errs[2].params, "");
    EXPECT_EQ(errs[3].params, "|");
    EXPECT_EQ(errs[4].params, std::string(254, 'x') + "|");
    EXPECT_EQ(VQXML_getError(nullptr), 0);
}

TEST_F(LibraryTest, ThreePartParameterTexts) {
    addVqXmlError3(1001816, "Size  ", "12a", "number ");
    addVqXmlError3(1001816, "", "   ", nullptr);
    addVqXmlError3(1001816, std::string(600, 'p').c_str(), "v", "t");
    auto errs = vqtest::drainErrors();
    ASSERT_EQ(errs.size(), 3u);
    EXPECT_EQ(errs[0].params, "Size|12a|number|");
    EXPECT_EQ(message(errs[0].code, errs[0].params),
              "parameter \"Size\": value \"12a\" is illegal for type \"number\"");
    EXPECT_EQ(errs[1].params, "|||");
    // The first part fills the 512-byte buffer, leaving no room for the
    // others; the stored text is then cut to 254 bytes and a bar.
    EXPECT_EQ(errs[2].params, std::string(254, 'p') + "|");
}

TEST_F(LibraryTest, DomListIsCutInTheMiddle) {
    char params[32];
    for (int i = 1; i <= 801; ++i) {
        std::snprintf(params, sizeof params, "%d|", i);
        vqxml::domError(vqxml::kNotFoundErr, params);
    }
    EXPECT_EQ(vqxml::domErrorCount(), 641);
    auto errs = vqtest::drainDomErrors();
    ASSERT_EQ(errs.size(), 641u);
    EXPECT_EQ(errs[0].params, "1|");
    EXPECT_EQ(errs[320].params, "321|");
    EXPECT_EQ(errs[321].params, "482|");
    EXPECT_EQ(errs[639].params, "800|");
    EXPECT_EQ(errs[640].params, "801|");
    EXPECT_EQ(errs[0].code, 8);
}

TEST_F(LibraryTest, MainListIsCutInTheMiddle) {
    char params[32];
    for (int i = 1; i <= 1001; ++i) {
        std::snprintf(params, sizeof params, "%d|", i);
        addVqXmlError(1001802, params);
    }
    EXPECT_EQ(vqxml::mainErrorCount(), 801);
    auto errs = vqtest::drainErrors();
    ASSERT_EQ(errs.size(), 801u);
    EXPECT_EQ(errs[400].params, "401|");
    EXPECT_EQ(errs[401].params, "602|");
    EXPECT_EQ(errs[800].params, "1001|");
}

TEST_F(LibraryTest, DomAndMainErrorsKeepTheirOrder) {
    vqxml::domError(vqxml::kHierarchyRequestErr, nullptr);
    addVqXmlError(1001801, "a");
    vqxml::domError(vqxml::kWrongDocumentErr, "createElement");
    EXPECT_EQ(VQXML_getError(nullptr), 1001703);
    EXPECT_EQ(VQXML_getError(nullptr), 1001801);
    // The main list is empty now, so reading moves the pending DOM error.
    char params[256];
    EXPECT_EQ(VQXML_getError(params), 1001704);
    EXPECT_STREQ(params, "createElement|");
    EXPECT_EQ(VQXML_getError(params), 0);
    EXPECT_STREQ(params, "");
    EXPECT_EQ(VQDOM_getLastError(), 4) << "kept after the lists were drained";

    vqxml::domError(vqxml::kNotFoundErr, nullptr);
    EXPECT_EQ(VQDOM_getError(params), 8);
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
    EXPECT_EQ(vqtest::drainErrors(),
              (std::vector<Err>{{1001701, "5|6|"}, {1001711, "Element|48|"}, {1001715, ""}}));
    EXPECT_EQ(message(1001701, "5|6|"), "DOM error: INDEX_SIZE_ERR stringsize: 5, offset: 5");
    EXPECT_EQ(message(1001711, "Element|48|"), "DOM error: cannot allocate \"Element\" (size: 48)");
}

TEST_F(LibraryTest, ErrorRecordTraceLines) {
    vqtest::TraceCapture trace('2');
    addVqXmlError(1001802, "x");
    VQXML_getError(nullptr);
    auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("VQXML - (addError) addr: 0x0x", 0), 0u);
    EXPECT_NE(lines[0].find(", (len: 272) 1001802:x"), std::string::npos);
    EXPECT_EQ(lines[1].rfind("VQXML free   - (deleteFirstError) addr: 0x0x", 0), 0u);
}
