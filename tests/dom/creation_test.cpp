// creation_test.cpp - the node factories and copies: what a new node carries,
// the name checks and their reports, which DS handles a refused call deleted
// and which it left to the caller, and the fields a copy takes per node type.
#include <string>
#include <vector>

#include "support/test_util.h"
#include "vqxml/dom/dom.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/node.h"

namespace {

using namespace vqxml::codes;

using vqtest::drainErrors;
using vqtest::ds;
using vqtest::Err;
using vqtest::message;
using vqtest::str;
using vqxml::rec;
using Errs = std::vector<Err>;

constexpr int64_t kWrongDoc = mainCode(kWrongDocumentErr), kBadChar = mainCode(kInvalidCharacterErr), kNoMemory = mainCode(kAllocErr);

// Liveness without the 1001748 report that VQXML_checkNode would add.
bool alive(VQHANDLE h) { return vqxml::liveHandle(h); }

class CreationTest : public vqtest::DocumentTest {
protected:
    void SetUp() override {
        DocumentTest::SetUp();
        other = VQDOM_createDocument();
    }
    VQHANDLE other = 0;
};

using Creator = VQHANDLE (*)(VQHANDLE, VQHANDLE);

TEST_F(CreationTest, NewNodesCarryTheirNamesAndValues) {
    const VQHANDLE name = s("e"), e = VQDOM_createElement(doc, name);
    EXPECT_EQ(VQDOM_getNodeName(e), name);  // the DS handed over, not a copy
    EXPECT_EQ(VQDOM_getNodeValue(e), 0u);
    const struct {
        Creator create;
        int type;
        const char *name;
    } dataNodes[] = {{VQDOM_createTextNode, VQXML_TEXT_NODE, "#text"},
                     {VQDOM_createComment, VQXML_COMMENT_NODE, "#comment"},
                     {VQDOM_createCDATASection, VQXML_CDATA_SECTION_NODE, "#cdata-section"}};
    for (const auto &c : dataNodes) {
        SCOPED_TRACE(c.name);
        const VQHANDLE data = s("d"), n = c.create(doc, data);
        EXPECT_EQ(VQDOM_getNodeType(n), c.type);
        EXPECT_EQ(str(VQDOM_getNodeName(n)), c.name);
        EXPECT_EQ(VQDOM_getNodeValue(n), data);
        EXPECT_EQ(VQDOM_getAttributes(n) | VQDOM_getChildNodes(n), 0u);
    }
    const VQHANDLE target = s("tgt"), piData = s("x=1");
    const VQHANDLE p = VQDOM_createProcessingInstruction(doc, target, piData);
    EXPECT_EQ(VQDOM_getTarget(p), target);
    EXPECT_EQ(VQDOM_getDataPI(p), piData);
    const VQHANDLE a = VQDOM_createAttribute(doc, s("a"));
    EXPECT_EQ(VQDOM_getSpecified(a), 1);
    EXPECT_EQ(VQDOM_getNodeValue(a) | VQDOM_getFirstChild(a), 0u);
    const VQHANDLE frag = VQDOM_createDocumentFragment(doc);
    EXPECT_EQ(str(VQDOM_getNodeName(frag)), "#document-fragment");
    EXPECT_NE(VQDOM_getChildNodes(frag), 0u);
    EXPECT_EQ(VQDOM_createDocumentFragment(0), 0u);
    EXPECT_EQ(str(VQDOM_getNodeName(doc)), "#document");
    // Targets take no name check.
    EXPECT_NE(VQDOM_createProcessingInstruction(doc, s("1 2"), s("")), 0u);
    EXPECT_TRUE(drainErrors().empty());
}

// The scanner reports every bad byte, the DOM error the first one and the
// whole name, cut to fit.
TEST_F(CreationTest, BadNamesAreReportedAndDeleted) {
    const std::string longName = "1" + std::string(299, 'n');
    const struct {
        Creator create;
        std::string name;
        Errs errors;
        const char *message;
    } cases[] = {
        {VQDOM_createElement, "", {{kBadNameStart, "0x0|"}, {kBadChar, "0x0||"}},
         "DOM error: INVALID_CHARACTER_ERR character \"0x0\" invalid in name \"\""},
        {VQDOM_createAttribute, "a b<", {{kBadNameCharacter, "0x20|"}, {kBadNameCharacter, "0x3c|"}, {kBadChar, "0x20|a b<|"}},
         "DOM error: INVALID_CHARACTER_ERR character \"0x20\" invalid in name \"a b<\""},
        {VQDOM_createEntityReference, longName,
         {{kBadNameStart, "0x31|"}, {kBadChar, ("0x31|" + longName).substr(0, 254) + "|"}}, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name.substr(0, 8));
        const VQHANDLE name = s(c.name.c_str());
        EXPECT_EQ(c.create(doc, name), 0u);
        EXPECT_FALSE(alive(name));
        const Errs errs = drainErrors();
        EXPECT_EQ(errs, c.errors);
        if (c.message != nullptr && !errs.empty()) {
            EXPECT_EQ(message(errs.back().code, errs.back().params), c.message);
        }
    }
    EXPECT_EQ(VQDOM_getLastError(), 5);
}

TEST_F(CreationTest, NamedCreatorsCheckTheNameBeforeTheDocument) {
    const struct {
        Creator create;
        const char *insert;
    } creators[] = {{VQDOM_createElement, "createElement|"},
                    {VQDOM_createAttribute, "createAttribute|"},
                    {VQDOM_createEntityReference, "createEntityReference|"}};
    for (const auto &c : creators) {
        SCOPED_TRACE(c.insert);
        const VQHANDLE kept = s("ok");
        EXPECT_EQ(c.create(0, kept), 0u);
        EXPECT_TRUE(alive(kept));  // an invalid handle leaves the name alone
        const VQHANDLE bad = ds(other, "1abc");  // bad and foreign: the name wins
        EXPECT_EQ(c.create(doc, bad), 0u);
        EXPECT_FALSE(alive(bad));
        EXPECT_EQ(drainErrors(), (Errs{{kBadNameStart, "0x31|"}, {kBadChar, "0x31|1abc|"}}));
        const VQHANDLE foreign = ds(other, "abc");
        EXPECT_EQ(c.create(doc, foreign), 0u);
        EXPECT_FALSE(alive(foreign));
        EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, c.insert}}));
    }
}

TEST_F(CreationTest, DataCreatorsConsumeTheirDataAndProcessingInstructionsTheirTarget) {
    const struct {
        Creator create;
        const char *insert;
    } creators[] = {{VQDOM_createTextNode, "createTextNode|"},
                    {VQDOM_createComment, "createComment|"},
                    {VQDOM_createCDATASection, "createCDATASection|"}};
    for (const auto &c : creators) {
        SCOPED_TRACE(c.insert);
        const VQHANDLE data = s("x"), foreign = ds(other, "x");
        EXPECT_EQ(c.create(0, data), 0u);
        EXPECT_FALSE(alive(data));
        EXPECT_EQ(c.create(doc, foreign), 0u);
        EXPECT_FALSE(alive(foreign));
        EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, c.insert}}));
    }
    const VQHANDLE target = s("t"), data = s("d");
    EXPECT_EQ(VQDOM_createProcessingInstruction(0, target, data), 0u);
    EXPECT_TRUE(alive(target));
    EXPECT_FALSE(alive(data));
    for (bool foreignTarget : {true, false}) {
        const VQHANDLE t = ds(foreignTarget ? other : doc, "t"), d = ds(foreignTarget ? doc : other, "d");
        EXPECT_EQ(VQDOM_createProcessingInstruction(doc, t, d), 0u);
        EXPECT_FALSE(alive(t) || alive(d));
        EXPECT_EQ(drainErrors(), (Errs{{kWrongDoc, "createProcessingInstruction|"}}));
    }
}

// A failed node allocation names its type and, whatever the record's real
// size, 48 bytes.
TEST_F(CreationTest, AllocationFailureDeletesWhatWasHandedOver) {
    const VQHANDLE name = s("e"), attrName = s("a"), refName = s("r"), data = s("d"), commentData = s("c"),
                   cdataData = s("d"), target = s("t"), piData = s("p");
    dontRealloc[doc & 255] = 1;  // use up the area's room
    while (myAlloc(doc, 1024) != 0) {
    }
    while (myAlloc(doc, 1) != 0) {
    }
    EXPECT_EQ(VQDOM_createElement(doc, name), 0u);
    EXPECT_EQ(VQDOM_createAttribute(doc, attrName), 0u);
    EXPECT_EQ(VQDOM_createEntityReference(doc, refName), 0u);
    EXPECT_EQ(VQDOM_createTextNode(doc, data), 0u);
    EXPECT_EQ(VQDOM_createComment(doc, commentData), 0u);
    EXPECT_EQ(VQDOM_createCDATASection(doc, cdataData), 0u);
    EXPECT_EQ(VQDOM_createProcessingInstruction(doc, target, piData), 0u);
    EXPECT_EQ(VQDOM_createDocumentFragment(doc), 0u);
    for (VQHANDLE h : {name, attrName, refName, data, commentData, cdataData, target, piData}) EXPECT_FALSE(alive(h));
    // Nodes whose name is a fixed string fail on that string first.
    EXPECT_EQ(drainErrors(), (Errs{{kNoMemory, "Element|48|"}, {kNoMemory, "Attr|48|"}, {kNoMemory, "EntityReference|48|"},
                                   {kNoMemory, "DOMString|6|"}, {kNoMemory, "DOMString|9|"}, {kNoMemory, "DOMString|15|"},
                                   {kNoMemory, "ProcessingInstruction|48|"}, {kNoMemory, "DOMString|19|"}}));
}

// Every declaration field shows in the printed text, so a copy that prints
// like its source after the source is gone carries them all in its own area.
TEST_F(CreationTest, CopyOfAParsedDocumentStandsOnItsOwn) {
    const VQHANDLE parsed = vqtest::parse(
        "<?xml version='1.0' standalone='yes'?><!DOCTYPE r PUBLIC '-//P' 'r.dtd' [<!ENTITY % pe 'lit'>"
        "<!ENTITY u PUBLIC '-//U' 'u.bin' NDATA gif><!NOTATION gif SYSTEM 'viewer'><!ELEMENT r (a|b?)*>"
        "<!ATTLIST r x NMTOKEN #FIXED 'v' d CDATA 'dv'><!--c-->]><r s='sv'>t</r>");
    const std::string whole = vqtest::print(parsed), dtText = vqtest::print(VQDOM_getDoctype(parsed));
    const VQHANDLE shallow = VQDOM_cloneNode(parsed, 0), deep = VQDOM_cloneNode(parsed, 1);
    const VQHANDLE dt = VQDOM_cloneNodeDoc(VQDOM_getDoctype(parsed), 0, other);  // shallow, with its declarations
    VQDOM_deleteNode(parsed);
    EXPECT_EQ(vqtest::print(deep), whole);
    EXPECT_EQ(vqtest::print(dt), dtText);
    EXPECT_EQ(vqtest::print(shallow), "<?xml version=\"1.0\" standalone=\"yes\"?>");
    EXPECT_EQ(str(VQDOM_getNodeName(shallow)), "#document");
    EXPECT_EQ(rec<Document>(VQDOM_cloneNode(other, 1))->xmlDecl, 0u);
    // The document type comes first: the copied element takes the copy's own defaults.
    const VQHANDLE root = VQDOM_getDocumentElement(deep), d = VQDOM_getAttributeNodeStr(root, "d");
    EXPECT_EQ(vqtest::print(root), "<r s=\"sv\">t</r>");
    EXPECT_EQ(str(VQDOM_getNodeValue(d)), "dv");
    EXPECT_EQ(VQDOM_getSpecified(d), 0);
    EXPECT_EQ(VQDOM_getOwnerDocument(d), deep);
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(CreationTest, CopiesTakeTheFieldsOfEachNodeType) {
    const VQHANDLE raw = text("<b/>");
    VQDOM_setRawXml(raw);
    const VQHANDLE rawCopy = VQDOM_cloneNodeDoc(raw, 0, other);
    EXPECT_EQ(VQDOM_getOwnerDocument(rawCopy), other);
    EXPECT_EQ(rec<Text>(rawCopy)->rawXml, 1u);
    EXPECT_EQ(str(VQDOM_getNodeValue(rawCopy)), "<b/>");
    EXPECT_EQ(VQDOM_getNodeValue(rawCopy) & 255, other & 255);
    const VQHANDLE r = ref("r");
    rec<EntityReference>(r)->entity = 0x1234501;
    EXPECT_EQ(rec<EntityReference>(VQDOM_cloneNode(r, 0))->entity, 0x1234501u);
    // Values travel for every type but attributes; an element may have one.
    const VQHANDLE withValue = el("v");
    VQDOM_setNodeValue(withValue, s("val"));
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_cloneNodeDoc(withValue, 0, other))), "val");
    const VQHANDLE p = VQDOM_createProcessingInstruction(doc, s("t"), s("d")), piCopy = VQDOM_cloneNode(p, 0);
    EXPECT_EQ(str(VQDOM_getTarget(piCopy)) + str(VQDOM_getDataPI(piCopy)), "td");
    EXPECT_NE(VQDOM_getDataPI(piCopy), VQDOM_getDataPI(p));
    // An attribute copied on its own keeps its flag and children, not its value string.
    const VQHANDLE a = VQDOM_createAttribute(doc, s("a"));
    add(a, text("one"));
    getNormalValue(a, 1);
    rec<Attr>(a)->specified = 0;
    const VQHANDLE deepA = VQDOM_cloneNode(a, 1);
    EXPECT_EQ(VQDOM_getSpecified(deepA), 0);
    EXPECT_EQ(str(VQDOM_getNodeValue(VQDOM_getFirstChild(deepA))), "one");
    EXPECT_EQ(VQDOM_getNodeValue(deepA), 0u);
    EXPECT_EQ(VQDOM_getFirstChild(VQDOM_cloneNode(a, 0)), 0u);
    // Copies are unlinked; bad handles give nothing.
    const VQHANDLE parent = el("p"), childCopy = VQDOM_cloneNode(add(parent, text("c")), 1);
    EXPECT_EQ(vqxml::node(childCopy)->parentNode | vqxml::node(childCopy)->nextSibling, 0u);
    EXPECT_EQ(VQDOM_cloneNode(0, 1) | VQDOM_cloneNodeDoc(parent, 1, 0) | VQDOM_cloneNodeDoc(0, 1, other), 0u);
    EXPECT_TRUE(drainErrors().empty());
}

}  // namespace
