// model_test.cpp - model descriptions: the predicates and the spellings they
// insist on, the empty model's bytes, the duplicate and DESC checks with
// their messages, the two element paths and the parameter comparison.
#include <cstring>
#include <string>

#include "support/test_util.h"
#include "vqxml/model/model.h"
#include "vqxml/store/codes.h"

namespace {

using namespace vqxml::codes;

using vqtest::drainErrors;
using vqtest::Err;
using vqtest::parse;
using vqtest::print;

class ModelTest : public vqtest::LibraryTest {
protected:
    // The item with that DESC under the "PAR" section of a parsed model.
    static VQHANDLE parItem(VQHANDLE d, const char *desc) {
        return findDesc(VQXML_findChildElementStr(VQDOM_getDocumentElement(d), "PAR", 0), desc);
    }
    static std::string descPath(VQHANDLE e) {
        char buffer[255];
        const int32_t n = getDescPath(e, buffer);
        EXPECT_EQ(static_cast<size_t>(n), std::strlen(buffer));
        return buffer;
    }
    static int documents() { return VQXML_debug_mem(0, counters, 0) * counters[5]; }
    static inline int32_t counters[6];
};

TEST_F(ModelTest, PredicatesReadOnlyTheExactSpellings) {
    const VQHANDLE d = parse(
        "<M><PAR>"
        "<a DESC='a' OCCURENCE='MULTIPLE' USE='MANDATORY'>enumeration</a>"
        "<b DESC='b' OCCURENCE='M' USE='M'>gyr</b>"
        "<c DESC='c' OCCURENCE='multiple' USE='mandatory'>Enumeration</c>"
        "<d DESC='d' OCCURRENCE='MULTIPLE'>Gyr</d>"
        "<e DESC='e'><x DESC='x'>text</x></e>"
        "<f DESC='f'/>"
        "</PAR></M>");
    struct Row {
        const char *desc;
        int multiple, mandatory, enumerated, gyr, group;
    };
    const Row rows[] = {
        {"a", 1, 1, 1, 0, 0}, {"b", 1, 1, 0, 1, 0}, {"c", 0, 0, 0, 0, 0},
        {"d", 0, 0, 0, 0, 0},  // two R's are not the attribute the layer reads
        {"e", 0, 0, 0, 0, 1}, {"f", 0, 0, 0, 0, 1},
    };
    for (const Row &r : rows) {
        const VQHANDLE item = parItem(d, r.desc);
        ASSERT_NE(item, 0u) << r.desc;
        EXPECT_EQ(VQXML_isMultiple(item), r.multiple) << r.desc;
        EXPECT_EQ(VQXML_isMandatory(item), r.mandatory) << r.desc;
        EXPECT_EQ(VQXML_isEnumerated(item), r.enumerated) << r.desc;
        EXPECT_EQ(VQXML_isGreenYellowRed(item), r.gyr) << r.desc;
        EXPECT_EQ(VQXML_hasSubElements(item), r.group) << r.desc;
    }
    EXPECT_EQ(VQXML_isMultiple(0) | VQXML_isMandatory(12345), 0);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(ModelTest, EmptyModelBytesAndFailures) {
    const VQHANDLE m = VQXML_createEmptyModel(2, 1, "MODEL", "4711");
    ASSERT_NE(m, 0u);
    EXPECT_EQ(print(m),
              "<MODEL PID=\"4711\" MINTIME=\"10\" VERS=\"1.0\" TYPE=\"COLLECTED\"><PAR>"
              "<P1 DESC=\"Parameter_1\">text</P1><P2 DESC=\"Parameter_2\">text</P2></PAR>"
              "<DAT><D1 DESC=\"Data_1\">text</D1></DAT></MODEL>");
    EXPECT_EQ(print(VQXML_createEmptyModel(0, -3, "R", "")),
              "<R PID=\"\" MINTIME=\"10\" VERS=\"1.0\" TYPE=\"COLLECTED\"><PAR/><DAT/></R>");

    const int before = documents();
    EXPECT_EQ(VQXML_createEmptyModel(1, 1, "1bad", "x"), 0u);
    EXPECT_EQ(VQXML_createEmptyModel(1, 1, nullptr, "x"), 0u);
    EXPECT_EQ(documents(), before);
    drainErrors();
}

TEST_F(ModelTest, CheckDoubleTagReportsEveryPairOfOneLevel) {
    const VQHANDLE d = parse(
        "<M><P DESC='X'/><Q DESC='Y'><R DESC='Z'/><R DESC='Z'/></Q><P DESC='X'/>"
        "<S DESC='Y'/></M>");
    VQXML_checkDesc("stale.");  // the check starts from an empty list
    EXPECT_EQ(VQXML_checkDoubleTag(VQDOM_getDocumentElement(d)), 1);
    EXPECT_EQ(drainErrors(), (std::vector<Err>{{kTagnameDuplicated, "P|"}, {kDescDuplicated, "X|P|P|"},
                                               {kDescDuplicated, "Y|Q|S|"}}));

    const VQHANDLE clean = parse("<M><P DESC='X'/><Q DESC='Y'/></M>");
    EXPECT_EQ(VQXML_checkDoubleTag(VQDOM_getDocumentElement(clean)), 0);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(ModelTest, CheckDescFlagsPathCharacters) {
    const char text[] = "a.b(1)";
    EXPECT_EQ(VQXML_checkDesc(text), text + 1);
    EXPECT_EQ(drainErrors(), (std::vector<Err>{{kBadDescCharacter, "0x2e|"}, {kBadDescCharacter, "0x28|"}}));
    EXPECT_EQ(VQXML_checkDesc("Size_1 [mm]"), nullptr);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(ModelTest, DescriptionAndXmlPaths) {
    const VQHANDLE d = parse(
        "<MODEL><PAR><P DESC='X'/><Q DESC='Y'/><P DESC='X'><T DESC='In'>text</T></P></PAR></MODEL>");
    const VQHANDLE par = VQXML_findChildElementStr(VQDOM_getDocumentElement(d), "PAR", 0);
    const VQHANDLE second = VQXML_findChildElementStr(par, "P", 1);
    EXPECT_EQ(findDesc(par, "X"), VQXML_findChildElementStr(par, "P", 0));
    EXPECT_EQ(findDesc(par, "Z") | findDesc(0, "X"), 0u);
    EXPECT_EQ(descPath(second), "..X(1)");
    EXPECT_EQ(descPath(VQDOM_getFirstChild(second)), "..X(1).In");

    char buffer[32];
    const VQHANDLE t = VQDOM_getFirstChild(second);
    EXPECT_EQ(VQXML_getXmlPath(t, buffer, sizeof buffer), 13);
    EXPECT_STREQ(buffer, "MODEL.PAR.P.T");
    // Too small: the names nearest the document element are cut (keeping
    // their leading bytes) and lose their dots first.
    EXPECT_EQ(VQXML_getXmlPath(t, buffer, 9), 8);
    EXPECT_STREQ(buffer, "MPAR.P.T");
    EXPECT_EQ(VQXML_getXmlPath(VQDOM_getFirstChild(t), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(VQXML_getXmlPath(d, buffer, sizeof buffer), 0);

    // Long description paths keep their first 253 bytes.
    const std::string desc(100, 'd');
    const std::string xml = "<M DESC='" + desc + "'><P DESC='" + desc + "'><I DESC='" + desc + "'/></P></M>";
    const VQHANDLE item = VQDOM_getFirstChild(VQDOM_getFirstChild(VQDOM_getDocumentElement(parse(xml.c_str()))));
    EXPECT_EQ(descPath(item), (desc + "." + desc + "." + desc).substr(0, 253));
}

TEST_F(ModelTest, ParameterComparisonFollowsTheModel) {
    const VQHANDLE model = parse(
        "<M><PAR><S DESC='S'>long</S><G DESC='G' OCCURENCE='M'><V DESC='V'>text</V></G></PAR></M>");
    auto query = [&](const char *par) {
        return parse((std::string("<M><PAR>") + par + "</PAR></M>").c_str());
    };
    const VQHANDLE a = query("<S>1</S><G><V>x</V></G><G><V>y</V></G>");
    EXPECT_EQ(VQXML_cmpParameters(model, a, query("<G><V>x</V></G><S>1</S><G><V>y</V></G>")), 0);
    EXPECT_EQ(VQXML_cmpParameters(model, a, query("<S>1</S><G><V>x</V></G>")), 1);
    EXPECT_EQ(VQXML_cmpParameters(model, a, query("<S>1<!--c--></S><G><V>x</V></G><G><V>y</V></G>")), 1);
    // Items of the documents that the model does not describe are not looked at.
    EXPECT_EQ(VQXML_cmpParameters(model, a, query("<S>1</S><G><V>x</V></G><G><V>y</V></G><Z/>")), 0);

    // A comment between model items makes even identical documents differ.
    const VQHANDLE commented = parse(
        "<M><PAR><S DESC='S'>long</S><!-- size --><G DESC='G'><V DESC='V'>text</V></G></PAR></M>");
    EXPECT_EQ(VQXML_cmpParameters(commented, a, a), 1);
    EXPECT_TRUE(drainErrors().empty());
}

}  // namespace
