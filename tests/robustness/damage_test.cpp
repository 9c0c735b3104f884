// damage_test.cpp - damaged input: every truncation and many single-
// byte corruptions of a document that uses every construct must either
// parse or fail with a message, never crash, and leave nothing allocated.
#include <string>

#include "robustness/helpers.h"
#include "vqxml/store/codes.h"

using robust::liveAreas;
using vqtest::LibraryTest;

namespace {

using namespace vqxml::codes;

const std::string kSample =
    "<?xml version='1.0' encoding='UTF-8' standalone='no'?>\n"
    "<!DOCTYPE r [\n"
    "<!ELEMENT r (a|(b,c?)+)*>\n"
    "<!ATTLIST a k (x|y) 'x' n NMTOKENS #FIXED ' p q '>\n"
    "<!ENTITY e 'one <b>&#65;</b> two'>\n"
    "<!ENTITY % p '<!ENTITY g \"G&#66;\">'>%p;\n"
    "<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>\n"
    "<!-- c --><?pi d?>\n"
    "]>\n"
    "<r><a k='y' v=\"1&amp;2&g;\r\n\">t&lt;&#x41;&e;&g;\r<![CDATA[x]]y]]><!--z--><?q r?></a>\n"
    "<b/><c/></r>\n";

// Two faults fail without a message: a parameter-entity reference without
// a name or ";", and an empty-element tag whose "/" is not followed by ">".
// `at` is where `text` was damaged.
bool maySkipMessage(const std::string &text, size_t at) {
    const size_t from = at < 3 ? 0 : at - 3;
    return text.substr(from, at - from + 1).find_first_of("%/") != std::string::npos;
}

// Parses `text` as a document and as a fragment of `host`; a failure must
// have recorded something, and everything made must be freed again.
void survive(const std::string &text, size_t at, VQHANDLE host) {
    const auto before = vqxml::memStats();
    const int32_t areas = liveAreas();
    const VQHANDLE doc = VQXML_parse(text.c_str());
    if (doc == 0) {
        EXPECT_TRUE(!vqtest::drainErrors().empty() || maySkipMessage(text, at)) << text;
    } else {
        VQDOM_deleteNode(doc);
        vqtest::drainErrors();
    }
    EXPECT_EQ(liveAreas(), areas) << text;
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks) << text;
    const VQHANDLE fragment = VQXML_parseFragment(host, text.c_str());
    if (fragment == 0) {
        EXPECT_TRUE(!vqtest::drainErrors().empty() || maySkipMessage(text, at)) << text;
    } else {
        VQDOM_deleteNode(fragment);
        vqtest::drainErrors();
    }
    vqtest::drainDomErrors();
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks) << text;
}

// A document with a document type, so that fragments go through the
// expanding reader as well.
VQHANDLE host() {
    const VQHANDLE doc = VQXML_parse("<!DOCTYPE h [<!ENTITY % q '<!ENTITY h \"H\">'> %q;<!ENTITY e 'E'>]><h/>");
    EXPECT_NE(doc, 0u);
    return doc;
}

}  // namespace

TEST_F(LibraryTest, SampleParsesAndEmptyInputFails) {
    const VQHANDLE doc = VQXML_parse(kSample.c_str());
    ASSERT_NE(doc, 0u) << ::testing::PrintToString(vqtest::drainErrors());
    EXPECT_TRUE(vqtest::drainErrors().empty());
    VQDOM_deleteNode(doc);
    EXPECT_EQ(liveAreas(), 0);
    const auto before = vqxml::memStats();
    EXPECT_EQ(VQXML_parse(""), 0u);
    EXPECT_EQ(VQXML_parse(nullptr), 0u);
    EXPECT_EQ(vqtest::drainErrors(), (std::vector<vqtest::Err>{{kUnexpectedEnd, "1|"}}));
    EXPECT_EQ(vqxml::memStats().liveBlocks, before.liveBlocks);
    EXPECT_EQ(liveAreas(), 0);
}

TEST_F(LibraryTest, EveryTruncationFailsCleanly) {
    const VQHANDLE h = host();
    for (size_t n = 0; n < kSample.size(); ++n) survive(kSample.substr(0, n), n, h);
}

TEST_F(LibraryTest, EverySingleByteCorruptionIsSurvived) {
    const VQHANDLE h = host();
    const char replacements[] = {'<', '>', '&', '%', '"', '\'', ']', '[', '\r', '\x01', '\xff', ';', '#', ' '};
    for (size_t i = 0; i < kSample.size(); ++i) {
        for (const char c : replacements) {
            if (kSample[i] == c) continue;
            std::string text = kSample;
            text[i] = c;
            survive(text, i, h);
        }
    }
}
