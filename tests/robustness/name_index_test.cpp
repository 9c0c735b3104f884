// name_index_test.cpp - the lookups a parse makes through indexes (long
// maps by name; entities and attribute definitions in the order of the
// declaration walk) answer exactly as the searches they stand for, while
// declarations and map items are added (and, for maps, removed) between
// lookups.
#include <random>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/dom.h"
#include "vqxml/parser/source.h"

using vqtest::ds;
using vqtest::LibraryTest;
using vqtest::str;
using vqxml::node;

namespace {

// A document type grown at random the way a parse grows one: declarations
// are appended at the end only, into the innermost open reference;
// references open and close (up to five deep), and comments come between.
struct Subset {
    explicit Subset(unsigned seed) : random(seed) {}
    ~Subset() { VQXML_deleteDocumentArea(doc); }
    // One step; `decl` makes a declaration.
    template <class Decl>
    void grow(Decl decl) {
        const unsigned what = random() % 10;
        if (what < 4) {
            VQDOM_appendChild(open.back(), decl());
        } else if (what < 6 && open.size() < 6) {
            open.push_back(VQDOM_appendChild(open.back(), VQDOM_createEntityReference(doc, ds(doc, "p"))));
        } else if (what < 8 && open.size() > 1) {
            open.pop_back();
        } else {
            VQDOM_appendChild(open.back(), VQDOM_createComment(doc, ds(doc, "c")));
        }
    }
    std::mt19937 random;
    const VQHANDLE doc = VQDOM_createDocument();
    const VQHANDLE doctype = VQDOM_appendChild(doc, createDocumentType(doc, ds(doc, "r")));
    std::vector<VQHANDLE> open{doctype};
};

// The declaration walk itself, as findEntity (kind 0 or 1) and
// findEntityStr (kind -1) run it.
VQHANDLE walkedEntity(VQHANDLE doctype, const std::string &name, int kind) {
    for (VQHANDLE e = getFirstMarkupDecl(doctype, VQXML_ENTITY_NODE); e != 0; e = getNextMarkupDecl(e)) {
        const auto *entity = reinterpret_cast<const Entity *>(node(e));
        const bool kindMatches = kind < 0 ? entity->kind != 0 : entity->kind == static_cast<uint32_t>(kind);
        if (kindMatches && str(entity->node.nodeName) == name) return e;
    }
    return 0;
}

// Every attribute definition for `element`, in the order of the walk.
template <class Visit>
void walkDefs(VQHANDLE doctype, const char *element, Visit visit) {
    for (VQHANDLE d = getFirstMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE); d != 0; d = getNextMarkupDecl(d)) {
        if (str(VQDOM_getNodeName(d)) != element) continue;
        for (VQHANDLE def = node(d)->firstChild; def != 0; def = node(def)->nextSibling) visit(def);
    }
}

}  // namespace

TEST_F(LibraryTest, DeclarationIndexesFollowTheDeclarationWalk) {
    const char *names[] = {"a", "b", "c", "d", "e"};
    const char *elements[] = {"a", "b", "c"};
    const char *attributes[] = {"x", "y", "z"};
    for (unsigned seed = 1; seed <= 40; ++seed) {
        Subset subset(seed);
        const vqxml::MapIndexScope scope;
        const VQHANDLE doc = subset.doc, doctype = subset.doctype;
        auto pick = [&](unsigned n) { return static_cast<int>(subset.random() % n); };
        for (int step = 0; step < 150; ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
            subset.grow([&] {
                if (pick(2)) {
                    const int kind = pick(2);
                    return createEntity(doc, kind, ds(doc, names[pick(5)]));
                }
                const VQHANDLE decl = createAttlistDecl(doc, ds(doc, elements[pick(3)]));
                for (int d = pick(3); d > 0; --d) {
                    const char *name = attributes[pick(3)];
                    const VQHANDLE def = VQDOM_appendChild(decl, createAttDef(doc, ds(doc, name)));
                    if (pick(2)) {
                        const VQHANDLE value = VQDOM_createAttribute(doc, ds(doc, name));
                        VQDOM_setNodeValue(value, ds(doc, std::to_string(step).c_str()));
                        VQDOM_setNamedItem(VQDOM_getAttributes(def), value);
                    }
                }
                return decl;
            });
            for (const char *name : names) {
                for (int kind = -1; kind <= 1; ++kind) {
                    const VQHANDLE found = kind < 0 ? findEntityStr(doctype, name)
                                                    : findEntity(doctype, ds(doc, name), static_cast<uint32_t>(kind));
                    ASSERT_EQ(found, walkedEntity(doctype, name, kind));
                }
            }
            for (const char *element : elements) {
                // Defaults through the index, and by the walk itself.
                const VQHANDLE indexed = VQDOM_createElement(doc, ds(doc, element));
                const VQHANDLE walkedTo = vqxml::createElementBare(doc, ds(doc, element));
                walkDefs(doctype, element, [&](VQHANDLE def) { setDefaultAttribute(walkedTo, def); });
                ASSERT_EQ(robust::print(indexed), robust::print(walkedTo));
                for (const char *attribute : attributes) {
                    VQHANDLE first = 0;
                    walkDefs(doctype, element, [&](VQHANDLE def) {
                        if (first == 0 && str(VQDOM_getNodeName(def)) == attribute) first = def;
                    });
                    ASSERT_EQ(findAttDef(doctype, element, attribute), first);
                }
            }
        }
    }
}

TEST_F(LibraryTest, MapIndexAnswersAsTheSearchFromTheFront) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        const VQHANDLE doc = VQDOM_createDocument();
        const VQHANDLE map = VQDOM_getAttributes(VQDOM_createElement(doc, ds(doc, "e")));
        const vqxml::MapIndexScope scope;
        for (int step = 0; step < 400; ++step) {
            const std::string name = std::string("n").append(std::to_string(random() % 150));
            if (random() % 5 == 0) {
                // Removals do not happen in a parse; the index must still
                // never answer wrongly.
                VQDOM_deleteNode(VQDOM_removeNamedItemStr(map, name.c_str()));
            } else {
                VQDOM_setNamedItem(map, VQDOM_createAttribute(doc, ds(doc, name.c_str())));
            }
            vqtest::drainErrors();
            for (int probe = 0; probe < 150; probe += 7) {
                // The search from the front of the map.
                const std::string wanted = std::string("n").append(std::to_string(probe));
                VQHANDLE searched = 0;
                for (VQHANDLE it = vqxml::rec<NamedNodeMap>(map)->firstItem; it != 0 && searched == 0;
                     it = vqxml::rec<ListItem>(it)->nextItem) {
                    const VQHANDLE n = vqxml::rec<ListItem>(it)->node;
                    if (str(VQDOM_getNodeName(n)) == wanted) searched = n;
                }
                ASSERT_EQ(VQDOM_getNamedItemStr(map, wanted.c_str()), searched)
                    << "seed " << seed << " step " << step;
            }
        }
        VQXML_deleteDocumentArea(doc);
    }
}
