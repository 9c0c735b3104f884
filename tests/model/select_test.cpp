// select_test.cpp - path selection: the path grammar of single nodes, the
// reduced grammar and the liveness of selection lists, the cursor that
// makes reading a list linear, and what bad paths and handles leave behind.
#include <string>
#include <utility>
#include <vector>

#include "robustness/helpers.h"
#include "support/test_util.h"
#include "vqxml/model/select.h"
#include "vqxml/store/node.h"

using vqtest::LibraryTest;

namespace {

// Every element carries n so that the tests can tell same-named ones apart.
const char kDoc[] =
    "<MODEL n='0'>"
    "<PAR n='1'><P1 n='2'/><P1 n='3'/></PAR>"
    "<item n='4' id='7'>one</item><item n='5' id='7' type='x'>two</item>"
    "<item n='6' id='' type='x'/><item n='7' id='8' type='x'/>"
    "<a n='8' id='1'>text-a<!--c--><b n='9'/></a><a n='10'><b n='11'/></a>"
    "<\xc3\xa9l n='12'/>"
    "</MODEL>";

// "-" for no node; element: name#n; text: 'value'; attribute: @name=value.
std::string describe(VQHANDLE h) {
    char buf[64];
    switch (VQDOM_getNodeType(h)) {
    case VQXML_ELEMENT_NODE:
        VQDOM_getAttributeStr(h, "n", buf, sizeof buf);
        return vqtest::str(VQDOM_getNodeName(h)) + "#" + buf;
    case VQXML_TEXT_NODE:
        return "'" + vqtest::str(VQDOM_getNodeValue(h)) + "'";
    case VQXML_ATTRIBUTE_NODE:
        return "@" + vqtest::str(VQDOM_getNodeName(h)) + "=" + vqtest::str(VQDOM_getNodeValue(h));
    default:
        return h == 0 ? "-" : "?";
    }
}

std::vector<std::string> items(VQHANDLE list) {
    std::vector<std::string> out;
    const uint32_t n = VQDOM_getLengthList(list);
    for (uint32_t i = 0; i < n; ++i) out.push_back(describe(VQDOM_itemList(list, i)));
    EXPECT_EQ(VQDOM_itemList(list, n), 0u);
    return out;
}

class SelectTest : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        doc = vqtest::parse(kDoc);
        root = VQDOM_getDocumentElement(doc);
    }
    VQHANDLE doc = 0, root = 0;
};

}  // namespace

TEST_F(SelectTest, SingleNodePaths) {
    const std::pair<const char *, const char *> cases[] = {
        {"PAR/P1", "P1#2"}, {"PAR/P1[2]", "P1#3"},
        {"PAR/P1[3]", "-"}, {"item[0]", "-"},
        {"item[4294967298]", "-"},  // would be item[2] cut to 32 bits
        {" PAR / P1 [ 2 ] ", "P1#3"}, {"item[@id='7' and @type='x']", "item#5"},
        {"item[@id=\"7\" AnD @type='x']", "item#5"}, {"item[@type='x' and @id='8']", "item#7"},
        {"item[@id='7' andx @type='x']", "-"},
        {"item[@id='']", "-"},  // item 6 has id='' and still never matches
        {"item[@nope='']", "-"}, {"item[@id='7']/text()", "'one'"},
        {"a/text()", "'text-a'"}, {"a/TEXT()", "'text-a'"},
        {"a/text() /b", "-"}, {"PAR/text()", "-"},
        {"a/@id", "@id=1"}, {"@n", "@n=0"},
        {"a/@id/b", "-"}, {"a/@nope", "-"},
        {"/MODEL/a/b", "b#9"},
        {"a//MODEL/PAR", "PAR#1"},  // "//" starts again at the document
        {"//MODEL", "-"},
        {"\xc3\xa9l", "\xc3\xa9l#12"}, {"a[2]/b", "b#11"},
    };
    for (const auto &[path, want] : cases) EXPECT_EQ(describe(VQXML_selectSingleNode(root, path)), want) << path;
    // From any node of the document, a path from the root means the same.
    const VQHANDLE deep = VQXML_selectSingleNode(root, "a/@id");
    EXPECT_EQ(describe(VQXML_selectSingleNode(deep, "/MODEL/PAR/P1")), "P1#2");
    EXPECT_EQ(describe(VQXML_selectSingleNode(doc, "/MODEL/PAR/P1[2]")), "P1#3");
    // Attribute values are compared on their first 255 bytes.
    const std::string value(300, 'v');
    VQDOM_setAttribute(root, vqtest::ds(doc, "long"), vqtest::ds(doc, value.c_str()));
    EXPECT_EQ(VQXML_selectSingleNode(doc, ("MODEL[@long='" + value.substr(0, 255) + "']").c_str()), root);
    EXPECT_EQ(VQXML_selectSingleNode(doc, ("MODEL[@long='" + value + "']").c_str()), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(SelectTest, ListsFollowOnlyTheFirstIntermediateElement) {
    // The first a holds one b, the second another: only the first counts.
    EXPECT_EQ(items(VQXML_selectNodes(root, "/MODEL/a/b")), (std::vector<std::string>{"b#9"}));
    EXPECT_EQ(items(VQXML_selectNodes(root, "item")),
              (std::vector<std::string>{"item#4", "item#5", "item#6", "item#7"}));
    // When the first a holds no b the list is empty, later a's
    // notwithstanding.
    VQDOM_deleteNode(VQDOM_removeChild(VQXML_selectSingleNode(root, "a"), VQXML_selectSingleNode(root, "a/b")));
    EXPECT_EQ(VQDOM_getLengthList(VQXML_selectNodes(doc, "/MODEL/a/b")), 0u);
    EXPECT_EQ(VQDOM_itemList(VQXML_selectNodes(doc, "/MODEL/a/b"), 0), 0u);
    // "//" restarts at the document here too.
    EXPECT_EQ(items(VQXML_selectNodes(root, "a//MODEL")), (std::vector<std::string>{"MODEL#0"}));
    // Everything beyond names and '/' selects nothing; an empty path makes
    // an empty list.
    for (const char *path : {"item[1]", "item[@id='7']", "a/text()", "a/@id", "a/", "//a", "", "a b"}) {
        const VQHANDLE list = VQXML_selectNodes(root, path);
        ASSERT_NE(list, 0u) << path;
        EXPECT_EQ(VQDOM_getLengthList(list), 0u) << path;
        EXPECT_EQ(VQDOM_itemList(list, 0), 0u) << path;
    }
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

TEST_F(SelectTest, ListsJoinTheChainOfTheirNode) {
    // An element has its child list first: new lists go right behind it.
    const VQHANDLE first = VQXML_selectNodes(root, "item");
    const VQHANDLE second = VQXML_selectNodes(root, "a");
    const VQHANDLE head = vqxml::node(root)->childNodes;
    EXPECT_EQ(VQDOM_getChildNodes(root), head);
    EXPECT_EQ(vqxml::rec<NodeList>(head)->nextList, second);
    EXPECT_EQ(vqxml::rec<NodeList>(second)->nextList, first);
    // A text node has no list: the selection list becomes its first.
    const VQHANDLE text = VQXML_selectSingleNode(root, "a/text()");
    EXPECT_EQ(vqxml::node(text)->childNodes, VQXML_selectNodes(text, "x"));
}

TEST_F(SelectTest, ListsAnswerForTheTreeAsItIsNow) {
    const VQHANDLE list = VQXML_selectNodes(root, "PAR/P1");
    const VQHANDLE par = VQXML_selectSingleNode(root, "PAR");
    ASSERT_EQ(items(list), (std::vector<std::string>{"P1#2", "P1#3"}));
    // Moved about without a block taken or freed.
    const VQHANDLE third = VQDOM_getLastChild(par);
    VQDOM_removeChild(par, third);
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#2"}));
    VQDOM_insertBefore(par, third, VQDOM_getFirstChild(par));
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#3", "P1#2"}));
    VQDOM_appendChild(par, third);
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#2", "P1#3"}));
    // Inserted in front, between reads of the same list.
    const VQHANDLE fresh = VQDOM_createElement(doc, vqtest::ds(doc, "P1"));
    VQDOM_setAttribute(fresh, vqtest::ds(doc, "n"), vqtest::ds(doc, "new"));
    VQDOM_insertBefore(par, fresh, VQDOM_getFirstChild(par));
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#new", "P1#2", "P1#3"}));
    // Renamed, and replaced by a renamed copy.
    VQDOM_rename(fresh, "Q");
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#2", "P1#3"}));
    const VQHANDLE copy = VQDOM_cloneNode(fresh, 1);
    VQDOM_rename(copy, "P1");
    VQDOM_deleteNode(VQDOM_replaceChild(par, copy, VQDOM_getLastChild(par)));
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#2", "P1#new"}));
    // A name changed inside its string, and a child removed.
    VQDOM_appendDS(VQDOM_getNodeName(copy), "x");
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#2"}));
    VQDOM_deleteNode(VQDOM_removeChild(par, VQDOM_getFirstChild(par)));
    EXPECT_EQ(items(list), (std::vector<std::string>{"P1#2"}));
    // The intermediate element itself goes: the list is empty.
    VQDOM_deleteNode(VQDOM_removeChild(root, par));
    EXPECT_EQ(items(list), std::vector<std::string>{});
    // Deleting the list's node, then its document, leaves nothing to trip on.
    const VQHANDLE a = VQXML_selectSingleNode(root, "a");
    const VQHANDLE onA = VQXML_selectNodes(a, "b");
    EXPECT_EQ(VQDOM_getLengthList(onA), 1u);
    VQDOM_deleteNode(VQDOM_removeChild(root, a));
    EXPECT_EQ(VQDOM_getLengthList(onA), 0u);
    EXPECT_EQ(VQDOM_itemList(onA, 0), 0u);
    const int32_t blocks = robust::liveBlocks();
    VQXML_deleteDocumentArea(doc);
    EXPECT_LT(robust::liveBlocks(), blocks);
    EXPECT_EQ(VQDOM_getLengthList(list), 0u);
    EXPECT_EQ(VQDOM_itemList(list, 0), 0u);
}

// Whatever order items are read in, with lengths and other lists in
// between, the answers are those of an evaluation from the start.
TEST_F(SelectTest, ResumedReadsAgreeWithFreshEvaluation) {
    const VQHANDLE wide = VQDOM_createElement(doc, vqtest::ds(doc, "w"));
    for (int i = 0; i < 60; ++i) {
        VQDOM_appendChild(wide, VQDOM_createElement(doc, vqtest::ds(doc, i % 3 ? "k" : "o")));
        VQDOM_appendChild(wide, VQDOM_createTextNode(doc, vqtest::ds(doc, "t")));
    }
    VQDOM_appendChild(root, wide);
    const char *paths[] = {"w/k", "w/o", "/MODEL/w/k"};
    std::vector<VQHANDLE> lists;
    for (const char *p : paths) lists.push_back(VQXML_selectNodes(root, p));
    EXPECT_EQ(VQDOM_getLengthList(lists[0]), 40u);
    EXPECT_EQ(VQDOM_getLengthList(lists[2]), 40u);
    const uint32_t order[] = {0, 1, 2, 2, 5, 3, 39, 40, 41, 7, 0, 100, 19, 20, 21, 0xfffffffeu};
    int step = 0;
    for (const uint32_t i : order) {
        for (size_t l = 0; l < lists.size(); ++l) {
            uint32_t counter = 0;
            EXPECT_EQ(VQDOM_itemList(lists[l], i), selectSingleNodeIndex(root, paths[l], i, &counter))
                << paths[l] << " " << i;
            EXPECT_EQ(vqxml::rec<NodeList>(lists[l])->count, counter) << paths[l] << " " << i;
            counter = 0;
            selectSingleNodeIndex(root, paths[l], 0xffffffffu, &counter);
            EXPECT_EQ(VQDOM_getLengthList(lists[l]), counter);
        }
        // Now and then the tree changes under the lists.
        if (++step % 4 == 0) VQDOM_deleteNode(VQDOM_removeChild(wide, VQDOM_getFirstChild(wide)));
        if (step % 5 == 0) VQDOM_appendChild(wide, VQDOM_createElement(doc, vqtest::ds(doc, "k")));
    }
}

// A sibling chain closed into a loop (a damaged image, a caller's fault)
// ends every walk in bounded time.
TEST_F(SelectTest, LoopedSiblingChainsEnd) {
    const VQHANDLE par = VQXML_selectSingleNode(root, "PAR");
    const VQHANDLE last = VQDOM_getLastChild(par);
    vqxml::node(last)->nextSibling = VQDOM_getFirstChild(par);
    const VQHANDLE list = VQXML_selectNodes(root, "PAR/P1");
    const uint32_t length = VQDOM_getLengthList(list);
    EXPECT_GE(length, 2u);
    EXPECT_LE(length, static_cast<uint32_t>(docHead[doc & 255]->dbgHandles));
    EXPECT_EQ(VQDOM_itemList(list, length), 0u);
    EXPECT_EQ(VQXML_selectSingleNode(root, "PAR/P1[@n='none']"), 0u);
    EXPECT_EQ(VQXML_selectSingleNode(root, "PAR/text()"), 0u);
    vqxml::node(last)->nextSibling = 0;
}

// Bad paths of every kind through both entry points (and through a list's
// every item and length), and bad contexts: no node, nothing recorded,
// every block back.
TEST_F(SelectTest, BadPathsLeaveNoBlockBehind) {
    // Most start with a step that matches: what follows must still spoil it.
    std::vector<std::string> paths = {
        "", "/", "//", "[", "]", "@", "@@", "'", "\"", "\t\t", "a b", "a=b", "a/", "a/[1]", "a/@", "a/@id=",
        "item[2", "item[2]x", "item[2]/", "item[x]", "item['7']", "item[1][2]", "item[99999999999]",
        "item['", "item[@id=7]", "item[@id='7]", "item[@id='7'", "item[@id='7'][1]", "item[@id=='7']",
        "item[@='7']", "item[@id='7' and", "item[@id='7' and @", "item[@id='7' and @t='x'",
        "item[@id='7' and 'x']", "item[@id='7' or @t='x']", "item[@id='7' and @type='x' and]",
        "item(", "item()", "a/text(", "a/texts()", "text()x", "\x80\xff", "a/\x80[@\x81='\x82']",
    };
    paths.push_back(robust::repeat("a/", 100000));
    paths.push_back(robust::repeat("a[", 100000));
    paths.push_back("item" + robust::repeat("[", 100000));
    paths.push_back("item[@id='7'" + robust::repeat(" and @id='7'", 30000));
    paths.push_back(robust::repeat("/", 100000) + "a");
    const int32_t blocks = robust::liveBlocks();
    for (const std::string &path : paths) {
        const VQHANDLE list = VQXML_selectNodes(root, path.c_str());
        const int32_t withList = robust::liveBlocks();
        EXPECT_EQ(VQXML_selectSingleNode(root, path.c_str()), 0u) << path.substr(0, 40);
        EXPECT_EQ(VQDOM_getLengthList(list), 0u) << path.substr(0, 40);
        EXPECT_EQ(VQDOM_itemList(list, 0), 0u);
        EXPECT_EQ(robust::liveBlocks(), withList) << path.substr(0, 40);
    }
    // The long conjunction that does hold is evaluated, and freed, too.
    const std::string many = "item[@id='7'" + robust::repeat(" and @id='7'", 30000) + "]";
    EXPECT_EQ(describe(VQXML_selectSingleNode(root, many.c_str())), "item#4");
    EXPECT_EQ(robust::liveBlocks(), blocks);  // the lists live in the area
    // Bad contexts: null, invalid, stale, a string, a made-up handle.
    const VQHANDLE stale = VQXML_selectSingleNode(root, "PAR");
    VQDOM_deleteNode(VQDOM_removeChild(root, stale));
    for (const VQHANDLE h : {0u, 255u, stale, VQDOM_getNodeName(root), 0x12345600u | 77u}) {
        EXPECT_EQ(VQXML_selectSingleNode(h, "item"), 0u) << h;
        EXPECT_EQ(VQXML_selectNodes(h, "item"), 0u) << h;
    }
    EXPECT_EQ(VQXML_selectNodes(root, nullptr), 0u);
    EXPECT_EQ(VQXML_selectSingleNode(root, nullptr), 0u);
    EXPECT_TRUE(vqtest::drainErrors().empty());
}

// Each XValue and XExpr is traced when taken and when given back.
TEST_F(SelectTest, PredicateBlocksAreTracedInPairs) {
    vqtest::TraceCapture trace('2');
    VQXML_selectSingleNode(root, "item[@id='7' and @type='x']/text()");
    int taken = 0, given = 0;
    for (const std::string &line : trace.lines()) {
        taken += line.rfind("VQXML malloc - (allocX", 0) == 0 && line.find(") addr: 0x") != std::string::npos;
        for (const char *f : {"(selectSingleNode) addr: ", "(xParseEqualityExpr) addr: ", "(freeXExpr) addr: "})
            given += line.rfind(std::string("VQXML free   - ") + f, 0) == 0;
    }
    // item, text, id, '7', type, 'x'; four leaves, two equalities, one "and".
    EXPECT_EQ(taken, 6 + 7);
    EXPECT_EQ(given, taken);
}
