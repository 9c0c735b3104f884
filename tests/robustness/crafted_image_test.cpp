// crafted_image_test.cpp - area images that pass the image checks but link
// their nodes wrongly: sibling chains that loop, a child that is its own
// ancestor, a child link naming a string, parent links that loop, attribute
// lists that loop. Every call of every layer on such a document must end
// (each runs in a child process with an alarm) without reading outside the
// area (the sanitizer build watches that), and the document must still go
// away whole.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/store/area.h"
#include "vqxml/store/node.h"

namespace {

using vqxml::node;
using vqxml::rec;

// A model document: items with descriptions under PAR and DAT, attributes,
// text, a nested group; declarations with defaults and an entity.
const char kDocument[] =
    "<!DOCTYPE M [<!ATTLIST A DESC CDATA #IMPLIED x CDATA 'd'><!ENTITY e 'ent'>"
    "<!ATTLIST L y CDATA 'z'><!ELEMENT M ANY>]><M k='v'><PAR><A DESC='a'>text</A><B DESC='b' USE='M'>int</B>"
    "<G DESC='g' OCCURENCE='MULTIPLE'><L DESC='l'>long</L></G></PAR>"
    "<DAT><D DESC='d'>number</D></DAT>tail</M>";

// The nodes a damage and the calls refer to.
struct Nodes {
    VQHANDLE doc, M, PAR, A, B, G, L, DAT, D, doctype;
};

VQHANDLE child(VQHANDLE parent, const char *name) { return VQXML_findChildElementStr(parent, name, 0); }

Nodes find(VQHANDLE doc) {
    Nodes n{};
    n.doc = doc;
    n.M = VQDOM_getDocumentElement(doc);
    n.PAR = child(n.M, "PAR");
    n.A = child(n.PAR, "A");
    n.B = child(n.PAR, "B");
    n.G = child(n.PAR, "G");
    n.L = child(n.G, "L");
    n.DAT = child(n.M, "DAT");
    n.D = child(n.DAT, "D");
    n.doctype = VQDOM_getDoctype(doc);
    return n;
}

// Runs `work` in a child process; true when it exited normally in time.
bool endsInTime(const std::function<void()> &work) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(5);
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string printed(VQHANDLE h, bool pretty) {
    const int32_t need = pretty ? VQXML_printBeautifyNode(h, nullptr, 0) : VQXML_printNode(h, nullptr, 0);
    if (need <= 0 || need > (64 << 20)) return {};
    std::vector<char> out(static_cast<size_t>(need) + 1);
    if (pretty)
        VQXML_printBeautifyNode(h, out.data(), need + 1);
    else
        VQXML_printNode(h, out.data(), need + 1);
    return out.data();
}

using CraftedImageTest = vqtest::LibraryTest;

TEST_F(CraftedImageTest, EveryCallEndsInBoundedTime) {
    const struct {
        const char *name;
        void (*damage)(const Nodes &);
    } damages[] = {
        {"sibling chain loops", [](const Nodes &n) { node(n.G)->nextSibling = n.A; }},
        {"backward chain loops", [](const Nodes &n) { node(n.A)->previousSibling = n.G; }},
        {"child is an ancestor", [](const Nodes &n) { node(n.L)->firstChild = n.M; }},
        {"child is itself", [](const Nodes &n) { node(n.G)->firstChild = n.G, node(n.G)->lastChild = n.G; }},
        {"child names a string", [](const Nodes &n) { node(n.A)->firstChild = node(n.A)->nodeName; }},
        {"child of another document", [](const Nodes &n) { node(n.M)->firstChild = n.PAR + 7; }},
        {"text of another owner", [](const Nodes &n) { node(node(n.M)->lastChild)->ownerDocument = n.doc + 7; }},
        {"parent loops", [](const Nodes &n) { node(n.L)->parentNode = n.L, node(n.G)->parentNode = n.L; }},
        {"declarations loop", [](const Nodes &n) { node(node(n.doctype)->lastChild)->nextSibling = node(n.doctype)->firstChild; }},
        {"last child elsewhere", [](const Nodes &n) { node(n.PAR)->lastChild = n.D; }},
        {"attribute list loops",
         [](const Nodes &n) {
             const NamedNodeMap *map = rec<NamedNodeMap>(node(n.B)->attributes);
             rec<ListItem>(map->lastItem)->nextItem = map->firstItem;
         }},
    };
    // Every call that walks nodes, of every layer.
    const std::vector<std::pair<const char *, std::function<void(const Nodes &)>>> calls = {
        {"print", [](const Nodes &n) { printed(n.doc, false), printed(n.M, false); }},
        {"pretty-print", [](const Nodes &n) { printed(n.M, true); }},
        {"text content",
         [](const Nodes &n) {
             char buffer[256];
             VQDOM_getTextContent(n.M, buffer, sizeof buffer);
             VQDOM_deleteDS(VQDOM_getTextContentDS(n.M));
             VQDOM_getText(n.PAR, buffer, sizeof buffer);
             VQXML_getElementText(n.A, buffer, sizeof buffer);
         }},
        {"normalize", [](const Nodes &n) { VQDOM_normalize(n.M); }},
        {"clone", [](const Nodes &n) { VQDOM_deleteNode(VQDOM_cloneNode(n.M, 1)); }},
        {"tag-name list",
         [](const Nodes &n) {
             const VQHANDLE list = VQDOM_getElementsByTagNameStr(n.M, "L");
             for (uint32_t i = 0, k = VQDOM_getLengthList(list); i < k && i < 100; ++i) VQDOM_itemList(list, i);
         }},
        {"child list",
         [](const Nodes &n) {
             const VQHANDLE list = VQDOM_getChildNodes(n.PAR);
             for (uint32_t i = 0, k = VQDOM_getLengthList(list); i < k && i < 100; ++i) VQDOM_itemList(list, i);
         }},
        {"attributes",
         [](const Nodes &n) {
             char buffer[64];
             VQDOM_getAttributeStr(n.B, "nothere", buffer, sizeof buffer);
             VQDOM_getLengthMap(VQDOM_getAttributes(n.B));
             VQDOM_itemMap(VQDOM_getAttributes(n.B), 5);
             VQXML_findAttribute(n.PAR, "DESC", "nothere");
         }},
        {"selection",
         [](const Nodes &n) {
             VQXML_selectSingleNode(n.M, "PAR/L/text()");
             VQXML_selectSingleNode(n.M, "PAR/X[@DESC='q']");
             const VQHANDLE list = VQXML_selectNodes(n.doc, "/M/PAR/X");
             VQDOM_getLengthList(list);
         }},
        {"lookups",
         [](const Nodes &n) {
             char buffer[256];
             VQXML_findChildElementStr(n.PAR, "X", 0);
             VQXML_findIndexedChildElem(n.PAR, 50);
             VQXML_getXmlPath(n.L, buffer, sizeof buffer);
             VQXML_checkDoubleTag(n.PAR);
         }},
        {"model layer",
         [](const Nodes &n) {
             const char *entries[] = {"a\0" "x", "nothere\0" "1", "g.l\0" "5", nullptr};  // path NUL value
             VQXML_deleteDocumentArea(VQXML_createQuery(n.doc, entries));
             VQXML_getSubModel(n.M, 0, "g.l");
             VQXML_cmpParameters(n.doc, n.PAR, n.DAT);
         }},
        {"beautify", [](const Nodes &n) { VQXML_beautifyDocument(n.doc), VQXML_unBeautifyDocument(n.doc); }},
        {"edit",
         [](const Nodes &n) {
             VQDOM_appendChild(n.L, VQDOM_createElement(n.doc, VQDOM_createDS(n.doc, "new")));
             VQDOM_insertBefore(n.PAR, VQDOM_createElement(n.doc, VQDOM_createDS(n.doc, "new")), n.B);
             VQDOM_appendChild(n.D, n.PAR);
             VQDOM_removeChild(n.M, n.DAT);
         }},
        {"delete", [](const Nodes &n) { VQDOM_deleteNode(VQDOM_removeChild(n.PAR, n.G)), VQDOM_deleteNode(n.doc); }},
        {"fragment parse", [](const Nodes &n) { VQXML_parseFragment(n.doc, "<A>&e;</A><L y='1'/><A x='2'/>"); }},
        {"declaration lookups",
         [](const Nodes &n) {
             VQDOM_enumAttValues(n.doctype, "A", "x");
             VQDOM_getDoctype(n.doc);
             VQDOM_deleteElementDef(n.doctype, "Q");
         }},
        {"compact and stream", [](const Nodes &n) {
             int32_t length;
             VQXML_compact(n.doc);
             VQXML_streamOut(n.doc, &length);
         }},
    };

    const int32_t blocks = robust::liveBlocks();
    for (const auto &d : damages) {
        // The damage is made in a live document, which is then streamed
        // out and loaded back as an image.
        VQHANDLE doc = VQXML_parse(kDocument);
        ASSERT_NE(doc, 0u);
        const Nodes nodes = find(doc);
        ASSERT_NE(nodes.L, 0u);
        ASSERT_NE(nodes.doctype, 0u);
        d.damage(nodes);
        int32_t length = 0;
        const char *bytes = static_cast<const char *>(VQXML_streamOut(doc, &length));
        const std::vector<char> image(bytes, bytes + length);
        VQXML_deleteDocumentArea(doc);
        void *block = VQXML_streamIn(length);
        std::memcpy(block, image.data(), image.size());
        ASSERT_EQ(VQXML_documentLoaded(block), 1) << d.name << ": the checks see blocks, not links";
        for (const auto &c : calls)  // clang 14 cannot capture structured bindings
            EXPECT_TRUE(endsInTime([&] { c.second(nodes); })) << d.name << ": " << c.first;
        VQXML_deleteDocumentArea(doc);
    }
    vqtest::drainErrors();
    EXPECT_EQ(robust::liveBlocks(), blocks);
}

}  // namespace
