// name_index_test.cpp - the lookups a parse makes through indexes (long
// maps by name, entities in the order of the declaration walk) answer
// exactly as the searches they stand for, while declarations and map items
// are added (and, for maps, removed) between lookups.
#include <random>
#include <string>
#include <vector>

#include "robustness/helpers.h"
#include "vqxml/dom/dom.h"
#include "vqxml/parser/source.h"

using vqtest::ds;
using vqtest::LibraryTest;

namespace {

// The declaration walk itself, as findEntity (kind 0 or 1) and
// findEntityStr (kind -1) run it.
VQHANDLE walked(VQHANDLE doctype, const std::string &name, int kind) {
    for (VQHANDLE e = getFirstMarkupDecl(doctype, VQXML_ENTITY_NODE); e != 0; e = getNextMarkupDecl(e)) {
        const auto *entity = reinterpret_cast<const Entity *>(vqxml::node(e));
        const bool kindMatches = kind < 0 ? entity->kind != 0 : entity->kind == static_cast<uint32_t>(kind);
        if (kindMatches && vqtest::str(entity->node.nodeName) == name) return e;
    }
    return 0;
}

// The search from the front of a map.
VQHANDLE searched(VQHANDLE map, const std::string &name) {
    for (VQHANDLE it = vqxml::rec<NamedNodeMap>(map)->firstItem; it != 0; it = vqxml::rec<ListItem>(it)->nextItem) {
        const VQHANDLE n = vqxml::rec<ListItem>(it)->node;
        if (vqtest::str(VQDOM_getNodeName(n)) == name) return n;
    }
    return 0;
}

}  // namespace

TEST_F(LibraryTest, EntityIndexFollowsTheDeclarationWalk) {
    const char *names[] = {"a", "b", "c", "d", "e"};
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        const VQHANDLE doc = VQDOM_createDocument();
        const VQHANDLE doctype = createDocumentType(doc, ds(doc, "r"));
        VQDOM_appendChild(doc, doctype);
        const vqxml::MapIndexScope scope;
        // Declarations are appended at the end only, as a parse does: into
        // the innermost open reference.
        std::vector<VQHANDLE> open{doctype};
        for (int step = 0; step < 150; ++step) {
            const unsigned what = random() % 10;
            if (what < 4) {
                const VQHANDLE e = createEntity(doc, static_cast<int>(random() % 2), ds(doc, names[random() % 5]));
                VQDOM_appendChild(open.back(), e);
            } else if (what < 6 && open.size() < 6) {
                const VQHANDLE ref = VQDOM_createEntityReference(doc, ds(doc, "p"));
                VQDOM_appendChild(open.back(), ref);
                open.push_back(ref);
            } else if (what < 8 && open.size() > 1) {
                open.pop_back();
            } else {
                VQDOM_appendChild(open.back(), VQDOM_createComment(doc, ds(doc, "c")));
            }
            for (const char *name : names) {
                for (int kind = -1; kind <= 1; ++kind) {
                    const VQHANDLE found = kind < 0 ? findEntityStr(doctype, name)
                                                    : findEntity(doctype, ds(doc, name), static_cast<uint32_t>(kind));
                    ASSERT_EQ(found, walked(doctype, name, kind)) << "seed " << seed << " step " << step;
                }
            }
        }
        VQXML_deleteDocumentArea(doc);
    }
}

TEST_F(LibraryTest, MapIndexAnswersAsTheSearchFromTheFront) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        const VQHANDLE doc = VQDOM_createDocument();
        const VQHANDLE element = VQDOM_createElement(doc, ds(doc, "e"));
        const VQHANDLE map = VQDOM_getAttributes(element);
        const vqxml::MapIndexScope scope;
        for (int step = 0; step < 400; ++step) {
            const std::string name = "n" + std::to_string(random() % 150);
            if (random() % 5 == 0) {
                // Removals do not happen in a parse; the index must still
                // never answer wrongly.
                VQDOM_deleteNode(VQDOM_removeNamedItemStr(map, name.c_str()));
            } else {
                VQDOM_setNamedItem(map, VQDOM_createAttribute(doc, ds(doc, name.c_str())));
            }
            vqtest::drainErrors();
            for (int probe = 0; probe < 150; probe += 7) {
                const std::string wanted = "n" + std::to_string(probe);
                ASSERT_EQ(VQDOM_getNamedItemStr(map, wanted.c_str()), searched(map, wanted))
                    << "seed " << seed << " step " << step;
            }
        }
        VQXML_deleteDocumentArea(doc);
    }
}

TEST_F(LibraryTest, AttlistIndexFollowsTheDeclarationWalk) {
    const char *elements[] = {"a", "b", "c"};
    const char *attributes[] = {"x", "y", "z"};
    for (unsigned seed = 1; seed <= 25; ++seed) {
        std::mt19937 random(seed);
        const VQHANDLE doc = VQDOM_createDocument();
        const VQHANDLE doctype = createDocumentType(doc, ds(doc, "r"));
        VQDOM_appendChild(doc, doctype);
        const vqxml::MapIndexScope scope;
        std::vector<VQHANDLE> open{doctype};
        for (int step = 0; step < 80; ++step) {
            const unsigned what = random() % 10;
            if (what < 4) {
                const VQHANDLE decl = createAttlistDecl(doc, ds(doc, elements[random() % 3]));
                for (unsigned d = random() % 3; d > 0; --d) {
                    const char *name = attributes[random() % 3];
                    const VQHANDLE def = createAttDef(doc, ds(doc, name));
                    if (random() % 2) {
                        const VQHANDLE value = VQDOM_createAttribute(doc, ds(doc, name));
                        VQDOM_setNodeValue(value, ds(doc, std::to_string(step).c_str()));
                        VQDOM_setNamedItem(VQDOM_getAttributes(def), value);
                    }
                    VQDOM_appendChild(decl, def);
                }
                VQDOM_appendChild(open.back(), decl);
            } else if (what < 6 && open.size() < 5) {
                const VQHANDLE ref = VQDOM_createEntityReference(doc, ds(doc, "p"));
                VQDOM_appendChild(open.back(), ref);
                open.push_back(ref);
            } else if (what < 8 && open.size() > 1) {
                open.pop_back();
            } else {
                VQDOM_appendChild(open.back(), VQDOM_createComment(doc, ds(doc, "c")));
            }
            for (const char *element : elements) {
                // Defaults through the index, and by the walk itself.
                const VQHANDLE indexed = VQDOM_createElement(doc, ds(doc, element));
                const VQHANDLE walkedTo = vqxml::createElementBare(doc, ds(doc, element));
                for (VQHANDLE d = getFirstMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE); d != 0; d = getNextMarkupDecl(d)) {
                    if (vqtest::str(VQDOM_getNodeName(d)) != element) continue;
                    for (VQHANDLE def = vqxml::node(d)->firstChild; def != 0; def = vqxml::node(def)->nextSibling)
                        setDefaultAttribute(walkedTo, def);
                }
                ASSERT_EQ(robust::print(indexed), robust::print(walkedTo)) << "seed " << seed << " step " << step;
                for (const char *attribute : attributes) {
                    VQHANDLE expected = 0;
                    for (VQHANDLE d = getFirstMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE); d != 0 && expected == 0;
                         d = getNextMarkupDecl(d)) {
                        if (vqtest::str(VQDOM_getNodeName(d)) != element) continue;
                        for (VQHANDLE def = vqxml::node(d)->firstChild; def != 0 && expected == 0;
                             def = vqxml::node(def)->nextSibling)
                            if (vqtest::str(VQDOM_getNodeName(def)) == attribute) expected = def;
                    }
                    ASSERT_EQ(findAttDef(doctype, element, attribute), expected) << "seed " << seed << " step " << step;
                }
            }
        }
        VQXML_deleteDocumentArea(doc);
    }
}
