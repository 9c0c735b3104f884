// alloc_failure_test.cpp - every allocation of a sample workload made to
// fail in turn (the n-th one only, and the n-th with all after it): the
// parser, the DOM operations and the printers must report the failure,
// never hand back a damaged result as a good one, leave other documents as
// they were and give every block back.
#include <cstring>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/printer.h"
#include "vqxml/store/area.h"
#include "vqxml/store/codes.h"
#include "vqxml/store/dom_string.h"

using robust::allocations;
using robust::hasCode;
using robust::liveAreas;
using robust::liveBlocks;
using robust::print;
using vqtest::ds;
using vqtest::Err;
using vqtest::LibraryTest;

namespace {

using namespace vqxml::codes;

constexpr int64_t kCannotAllocate = mainCode(kAllocErr);

// A document that takes every allocating path of the parser: a document
// type with defaults (one holding a reference), general and parameter
// entities, an entity deeper than the copier's inline frames, elements
// nested past the parser's inline stack, an element with many attributes,
// long texts, and enough references to grow the area several times.
std::string sampleDocument() {
    const std::string deep = robust::repeat("<d>", 40) + "&amp;" + robust::repeat("</d>", 40);
    std::string text =
        "<?xml version='1.0' encoding='UTF-8'?>\n"
        "<!DOCTYPE r [\n"
        "<!ENTITY v 'val'>\n"
        "<!ATTLIST e k CDATA 'k&v;' t (a|b) 'a'>\n"
        "<!ENTITY deep '" + deep + "'>\n"
        "<!ENTITY e '<e x=\"1\">one&#65;<b/>two</e>'>\n"
        "<!ENTITY % p '<!ENTITY g \"G\">'>%p;\n"
        "<!NOTATION n SYSTEM 'n'>\n"
        "<!-- c --><?pi d?>\n"
        "]>\n<r";
    for (int i = 0; i < 40; ++i) {
        const std::string n = std::to_string(i);
        text.append(" a").append(n).append("='").append(n).append("'");
    }
    text.append(">").append(300, 't').append("&lt;&g;").append(200, 'u').append(robust::repeat("<n>", 80));
    text.append("<![CDATA[").append(150, 'c').append("]]><!--z--><?q r?>").append(robust::repeat("</n>", 80));
    return text + robust::repeat("&e;", 60) + "&deep;<e/><e k='own'/></r>\n";
}

// The other document that must come through every failure untouched.
struct Bystander {
    VQHANDLE doc = VQXML_parse("<keep a='1'>intact<x/></keep>");
    std::string text = print(doc);
};

// One run of a workload: the text of what it built, whether it handed back
// a result (which must then be whole), and the errors it recorded.
struct Outcome {
    std::string text;
    bool made;
    std::vector<Err> errors;
};

// Runs `work` cleanly (after `prepare`, which is not counted), then again
// with each allocation it makes failing in turn: alone and, with `sticky`,
// together with all after it. A result handed back is whole; a single
// failure is reported or changed nothing (with all later ones failing too
// the error record itself cannot be made); every block and area comes back
// and the bystander is untouched.
template <class Prepare, class Work>
void sweep(bool sticky, Prepare prepare, Work work) {
    const Bystander other;
    const int32_t blocks = liveBlocks(), areas = liveAreas();
    prepare();
    const int32_t start = allocations();
    const Outcome clean = work();
    const int32_t points = allocations() - start;
    ASSERT_TRUE(clean.errors.empty()) << ::testing::PrintToString(clean.errors);
    ASSERT_EQ(liveBlocks(), blocks);
    ASSERT_GT(points, 10);

    for (const bool allAfter : {false, true}) {
        if (allAfter && !sticky) break;
        for (int32_t n = 1; n <= points; ++n) {
            prepare();
            vqxml::failAllocAt(n, allAfter);
            const Outcome got = work();
            vqxml::failAllocAt(0);
            vqtest::drainErrors();
            vqtest::drainDomErrors();
            if (got.made || (!allAfter && !hasCode(got.errors, kCannotAllocate))) {
                EXPECT_TRUE(got.text == clean.text)
                    << "n=" << n << " " << got.text.substr(0, 30) << ::testing::PrintToString(got.errors);
            }
            ASSERT_EQ(liveBlocks(), blocks) << "n=" << n << " sticky=" << allAfter;
            ASSERT_EQ(liveAreas(), areas) << "n=" << n << " sticky=" << allAfter;
            ASSERT_EQ(print(other.doc), other.text);
        }
    }
}

const char kHost[] =
    "<!DOCTYPE h [<!ENTITY e 'E<i j=\"k\"/>'><!ENTITY % q 'Q'><!ATTLIST i d CDATA 'dv' j CDATA #IMPLIED>"
    "<!ATTLIST b d CDATA 'dv'><!ATTLIST h x CDATA 'y'>]><h>start</h>";

// A fragment for that document, as given and as printed back.
const std::string kFragment = "<i>&e;</i>x%q;&#66;<b c='1'>&e;" + std::string(300, 'y') + "</b>&e;<!--c-->";
const std::string kFragmentPrinted = "<i>&e;</i>xQB<b c=\"1\">&e;" + std::string(300, 'y') + "</b>&e;<!--c-->";

// Work inside one document over every allocating DOM operation: builders
// (`size` elements and a chain 4 x `size` deep), edits, copies (defaults
// included), text, lists, a copy of the whole document, a fragment parse and
// both printers. Returns what it built, printed, and adds the errors
// recorded to `errors` (a fragment parse empties the list, so it is drained
// before).
std::string workInside(VQHANDLE doc, std::vector<Err> &errors, int size) {
    const VQHANDLE root = VQDOM_getDocumentElement(doc);
    for (int i = 0; i < size; ++i) {
        const VQHANDLE e = VQDOM_createElement(doc, ds(doc, i % 2 ? "i" : "b"));
        VQDOM_setAttribute(e, ds(doc, "k"), ds(doc, std::string(i * 10, 'v').c_str()));
        VQDOM_appendChild(e, VQDOM_createTextNode(doc, ds(doc, "t1")));
        VQDOM_appendChild(e, VQDOM_createTextNode(doc, ds(doc, "t2")));
        VQDOM_insertBefore(root, e, VQDOM_getFirstChild(root));
    }
    VQDOM_appendChild(root, robust::chain(doc, 4 * size, "d", "leaf"));
    VQDOM_normalize(root);
    VQDOM_appendChild(VQDOM_getLastChild(root), VQDOM_cloneNode(root, 1));
    const VQHANDLE text = VQDOM_getFirstChild(VQDOM_getFirstChild(root));
    VQDOM_appendDataStr(text, "appended");
    VQDOM_insertDataStr(text, 1, "ins");
    VQDOM_replaceData(text, 0, 2, ds(doc, "REP"));
    VQDOM_deleteNode(VQDOM_substringData(text, 1, 3));
    VQDOM_splitText(text, 4);
    std::string out = std::to_string(VQDOM_getLengthList(VQDOM_getElementsByTagNameStr(doc, "i"))) + "|";
    const VQHANDLE content = VQDOM_getTextContentDS(root);
    out += std::to_string(VQDOM_lenDS(content)) + "|";
    VQDOM_deleteDS(content);
    VQDOM_setAttribute(VQDOM_getLastChild(root), ds(doc, "d"), ds(doc, "own"));
    VQDOM_removeAttributeStr(VQDOM_getFirstChild(root), "k");
    VQDOM_deleteNode(VQDOM_removeChild(root, VQDOM_getFirstChild(root)));
    const VQHANDLE twin = VQDOM_cloneNode(doc, 1);
    for (const auto &e : vqtest::drainErrors()) errors.push_back(e);
    // With a document type the reader expands character and parameter
    // references itself. A fragment handed back is whole; a failed parse
    // leaves the document as it was.
    const std::string host = print(doc);
    const VQHANDLE fragment = VQXML_parseFragment(doc, kFragment.c_str());
    for (const auto &e : vqtest::drainErrors()) errors.push_back(e);
    if (fragment != 0) {
        EXPECT_EQ(print(fragment), kFragmentPrinted);
    } else {
        EXPECT_EQ(print(doc), host);
    }
    VQDOM_appendChild(root, fragment);
    out += print(doc) + "|" + print(twin) + "|";
    VQXML_deleteDocumentArea(twin);
    char *cursor = nullptr;
    std::string pretty(static_cast<size_t>(printNodeBeatifyEx(root, &cursor, 0, 0)) + 1, '\0');
    cursor = pretty.data();
    pretty.resize(static_cast<size_t>(printNodeBeatifyEx(root, &cursor, static_cast<int32_t>(pretty.size()), 0)));
    return out + pretty;
}

}  // namespace

TEST_F(LibraryTest, ParseReportsEveryAllocationFailureAndLeaksNothing) {
    const std::string text = sampleDocument();
    sweep(true, [] {}, [&] {
        const VQHANDLE doc = VQXML_parse(text.c_str());
        Outcome out{print(doc), doc != 0, vqtest::drainErrors()};
        VQDOM_deleteNode(doc);
        return out;
    });
}

TEST_F(LibraryTest, DomWorkReportsEveryAllocationFailureAndLeaksNothing) {
    // Each round works in a fresh document: a failed growth leaves its area
    // read-only.
    VQHANDLE doc = 0;
    sweep(true, [&] { doc = VQXML_parse(kHost); }, [&] {
        Outcome out{"", false, {}};
        // The chain is deeper than the inline frames of the copier and the
        // text gatherer.
        out.text = workInside(doc, out.errors, 30);
        VQXML_deleteDocumentArea(doc);
        return out;
    });
}

// A document streamed out and loaded back in a block from VQXML_streamIn:
// the block and the image check can fail, and the loaded document then
// takes the same work as any other.
TEST_F(LibraryTest, ImageRoundTripReportsEveryAllocationFailure) {
    VQHANDLE doc = 0;
    sweep(true, [&] { doc = VQXML_parse(kHost); }, [&] {
        Outcome out{"", false, {}};
        int32_t length = 0;
        const char *bytes = static_cast<const char *>(VQXML_streamOut(doc, &length));
        const std::vector<char> image(bytes, bytes + length);
        VQXML_deleteDocumentArea(doc);
        if (void *block = VQXML_streamIn(length)) {
            std::memcpy(block, image.data(), image.size());
            if (VQXML_documentLoaded(block) == 1) {
                out.text = workInside(doc, out.errors, 3);
                VQXML_deleteDocumentArea(doc);
            }
        }
        for (const auto &e : vqtest::drainErrors()) out.errors.push_back(e);
        return out;
    });
}

// The same work in a document whose area may not grow and has `room` bytes
// left: every allocation there beyond that fails, at a different point of
// the work for each `room`.
TEST_F(LibraryTest, WorkInAFullAreaFailsCleanly) {
    const Bystander other;
    const int32_t blocks = liveBlocks();
    std::vector<Err> errors;
    VQHANDLE doc = VQXML_parse(kHost);
    const std::string expected = workInside(doc, errors, 3);
    ASSERT_TRUE(errors.empty()) << ::testing::PrintToString(errors);
    VQXML_deleteDocumentArea(doc);

    int failed = 0, rounds = 0;
    for (int32_t room = 0; room < 16000; room += 24, ++rounds) {
        doc = VQXML_parse(kHost);
        const int64_t filler = int64_t{docHead[doc & 255]->freesize} - room - 64;
        if (filler > 0 && allocDS(doc, filler) == 0) {
            vqtest::drainErrors();  // not one block large enough: less is filled
            allocDS(doc, filler / 2);
        }
        dontRealloc[doc & 255] = 1;
        errors.clear();
        const std::string result = workInside(doc, errors, 3);
        // Whatever failed, the tree holds together, and a failure that
        // was not reported changed nothing.
        EXPECT_TRUE(robust::consistent(doc)) << "room=" << room;
        const bool reported = hasCode(errors, kCannotAllocate);
        failed += reported;
        if (!reported) {
            EXPECT_TRUE(result == expected) << "room=" << room << ::testing::PrintToString(errors);
        }
        dontRealloc[doc & 255] = 0;
        VQXML_deleteDocumentArea(doc);
        ASSERT_EQ(liveBlocks(), blocks) << "room=" << room;
        ASSERT_EQ(print(other.doc), other.text);
    }
    // The rooms cover the work from its very start to beyond its end.
    EXPECT_GT(failed, rounds / 2);
    EXPECT_LT(failed, rounds);
}

// An empty model is whole or not there at all; indenting it and taking the
// indentation out again may stop anywhere but leaks nothing.
TEST_F(LibraryTest, EmptyModelIsWholeOrAbsent) {
    sweep(true, [] {}, [] {
        Outcome out{"", true, {}};
        for (const int items : {1, 40, 150, 300}) {
            const VQHANDLE model = VQXML_createEmptyModel(items, items, "MODEL", "4711");
            if (model != 0) {
                EXPECT_EQ(VQXML_countSubElements(model), 2u * items + 3);
            }
            out.text += print(model);
            out.made = out.made && model != 0;
            VQXML_beautifyDocument(model);
            VQXML_unBeautifyDocument(model);
            VQXML_deleteDocumentArea(model);
        }
        out.errors = vqtest::drainErrors();
        return out;
    });
}

// Selection takes a block for every name and literal of a path and for every
// predicate node; each failure selects nothing (and says why), and every
// block taken before it comes back.
TEST_F(LibraryTest, SelectionReportsEveryAllocationFailureAndLeaksNothing) {
    VQHANDLE doc = 0;
    sweep(true, [&] { doc = VQXML_parse("<r><i id='1' t='x'>one</i><i id='2' t='x'><b/><b n='2'/></i></r>"); }, [&] {
        Outcome out{"", false, {}};
        const VQHANDLE root = VQDOM_getDocumentElement(doc);
        for (const char *path : {"i[@id='2' and @t='x']/b[2]", "i[2]/@t", "/r/i/text()", "i[@id='1' AND @t='x']"}) {
            const VQHANDLE found = VQXML_selectSingleNode(root, path);
            out.text += (found != 0 ? print(found) : "-") + "|";
        }
        const VQHANDLE list = VQXML_selectNodes(root, "/r/i");
        out.text += std::to_string(VQDOM_getLengthList(list)) + "|";
        out.errors = vqtest::drainErrors();
        VQXML_deleteDocumentArea(doc);
        return out;
    });
}

// Every element's attributes, defaults included (which the printers leave
// out), read without allocating.
std::string attributesBelow(VQHANDLE node) {
    std::string out;
    for (VQHANDLE c = VQDOM_getFirstChild(node); c != 0; c = VQDOM_getNextSibling(c)) {
        if (VQDOM_getNodeType(c) != VQXML_ELEMENT_NODE) continue;
        const VQHANDLE map = VQDOM_getAttributes(c);
        for (uint32_t i = 0; i < VQDOM_getLengthMap(map); ++i) {
            const VQHANDLE a = VQDOM_itemMap(map, i);
            out += vqtest::str(VQDOM_getName(a)) + "=" + vqtest::str(VQDOM_getValue(a)) + (VQDOM_getSpecified(a) ? "* " : " ");
        }
        out += "(" + attributesBelow(c) + ")";
    }
    return out;
}

std::string state(VQHANDLE doc) { return print(doc) + attributesBelow(doc); }

// The calls that change definitions: each one either succeeds whole or
// returns 0 with the document as it was (declarations, elements and their
// attributes), whichever allocation fails.
TEST_F(LibraryTest, DefinitionChangesFailWholeOrChangeNothing) {
    const std::string text = "<!DOCTYPE r [<!ATTLIST i d CDATA 'dv'><!ATTLIST b x CDATA #IMPLIED><!ENTITY v 'vee'>]><r>" +
                             robust::repeat("<i/><b><i d='own' k='mine'/></b>", 150) + "</r>";
    std::string values;
    for (int i = 0; i < 200; ++i) values += (i ? "|v" : "v") + std::to_string(i);
    const std::string enumeration = "(" + values + ") 'v7'";
    VQHANDLE doc = 0;
    sweep(true, [&] { doc = VQXML_parse(text.c_str()); }, [&] {
        Outcome out{"", false, {}};
        const VQHANDLE dt = VQDOM_getDoctype(doc);
        auto step = [&](auto call) {
            const std::string before = state(doc);
            const int done = call();
            if (done == 0) {
                EXPECT_EQ(state(doc), before);
            }
            out.text += std::to_string(done) + "|";
        };
        step([&] { return VQDOM_createElementDef(dt, "n", "(a,(b|c)*,d?)"); });
        step([&] { return VQDOM_createAttListDef(dt, "i", "k", "CDATA 'k&v;k'"); });
        step([&] { return VQDOM_createAttListDef(dt, "b", "e", enumeration.c_str()); });
        step([&] {
            const VQHANDLE listed = VQDOM_enumAttValues(dt, "b", "e");
            const int whole = listed != 0 && vqtest::str(listed) == values;
            VQDOM_deleteDS(listed);
            return whole;
        });
        step([&] { return VQDOM_deleteAttListDef(dt, "i", "d"); });
        step([&] { return VQDOM_deleteElementDef(dt, "n"); });
        out.text += state(doc);
        out.errors = vqtest::drainErrors();
        VQXML_deleteDocumentArea(doc);
        return out;
    });

    // In an area that may not grow, the first allocation past the room left
    // fails, at every point of the walk over the elements in turn.
    const std::string small = "<!DOCTYPE r [<!ATTLIST i d CDATA 'dv'>]><r>" +
                              robust::repeat("<i/><b><i k='mine'/></b>", 40) + "</r>";
    int failed = 0, rounds = 0;
    for (int32_t room = 0; room < 16000; room += 40, ++rounds) {
        doc = VQXML_parse(small.c_str());
        const int64_t filler = int64_t{docHead[doc & 255]->freesize} - room - 64;
        if (filler > 0 && allocDS(doc, filler) == 0) {
            vqtest::drainErrors();  // not one block large enough: less is filled
            allocDS(doc, filler / 2);
        }
        dontRealloc[doc & 255] = 1;
        const std::string before = state(doc);
        const int done = VQDOM_createAttListDef(VQDOM_getDoctype(doc), "i", "k", "CDATA 'kv'");
        const std::string after = state(doc);
        failed += done == 0;
        if (done == 0) {
            EXPECT_EQ(after, before) << "room=" << room;
            EXPECT_TRUE(hasCode(vqtest::drainErrors(), kCannotAllocate)) << "room=" << room;
        } else {
            EXPECT_EQ(after.find("k=mine"), std::string::npos) << "room=" << room;
        }
        dontRealloc[doc & 255] = 0;
        VQXML_deleteDocumentArea(doc);
        vqtest::drainErrors();
    }
    EXPECT_GT(failed, 10);
    EXPECT_LT(failed, rounds);
}

namespace {

const char kShopModel[] =
    "<SHOP PID='1'><PAR><P1 DESC='Size' USE='M'>number</P1>"
    "<P2 DESC='Color' VALUES='red green'>enumeration</P2><P3 DESC='When'>time</P3>"
    "<G DESC='Grp' OCCURENCE='M'><X DESC='X' USE='M'>gyr</X><Y DESC='Y'>text</Y></G></PAR>"
    "<DAT><D1 DESC='Result'>long</D1><R DESC='Rows' OCCURENCE='M'><V DESC='V'>time</V></R></DAT></SHOP>";

// The printed text without the answer's time stamp, which changes by the
// second.
std::string withoutStamp(std::string text) {
    const size_t at = text.find(" TIMESTAMP=\"");
    if (at != std::string::npos) text.erase(at, 12 + 19 + 1);
    return text;
}

}  // namespace

TEST_F(LibraryTest, QueryAndAnswerBuildingReportEveryAllocationFailure) {
    // Enough groups with long texts that every document area grows a few
    // times while it is built.
    std::vector<std::string> texts = {std::string("Size\0" "12", 8), std::string("Color\0" "green", 12),
                                      std::string("When\0" "2024.03.05 14:07:09", 25)};
    for (int g = 0; g < 150; ++g) {
        const std::string at = "Grp(" + std::to_string(g) + ").";
        texts.push_back(at + "X" + '\0' + (g % 2 ? "Red" : "1") + '\0');
        texts.push_back(at + "Y" + '\0' + std::string(400, 'y') + '\0');
    }
    std::vector<const char *> params;
    for (const std::string &t : texts) params.push_back(t.c_str());
    params.push_back(nullptr);
    const char *data[] = {"Result\0" "42", "Rows(3).V\0" "20240305140709", nullptr};
    const char *sub[] = {"X\0" "Green", "Y\0" "long text value", nullptr};
    VQHANDLE model = 0;
    sweep(true, [&] { model = VQXML_parse(kShopModel); }, [&] {
        Outcome out{"", false, {}};
        const VQHANDLE query = VQXML_createQuery(model, params.data());
        out.errors = vqtest::drainErrors();
        const VQHANDLE answer = query != 0 ? VQXML_createAnswer(model, query, data) : 0;
        for (const auto &e : vqtest::drainErrors()) out.errors.push_back(e);
        const VQHANDLE grp = VQXML_getSubModel(model, 0, "Grp");
        const VQHANDLE added = query != 0 ? VQXML_createSubQuery(grp, sub, query) : 0;
        for (const auto &e : vqtest::drainErrors()) out.errors.push_back(e);
        out.made = query != 0 && answer != 0 && added != 0;
        out.text = print(query) + "|" + withoutStamp(print(answer));
        if (out.made) {
            char value[32];
            VQXML_getTypedSubValue(grp, VQXML_getSubQuery(query, grp, 150), "X", 0, value, sizeof value);
            out.text += std::string("|") + value;
        }
        VQDOM_deleteNode(answer);
        VQDOM_deleteNode(query);
        VQXML_deleteDocumentArea(model);
        return out;
    });
}
