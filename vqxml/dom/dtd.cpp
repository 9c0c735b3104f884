// dtd.cpp - element and attribute definitions as objects: the values an
// enumerated attribute allows, and element and attribute definitions added
// or removed while a program runs. Definition texts are read by the DTD
// parser's own functions (content model, attribute type, default
// declaration), so a definition made here is exactly one the parser would
// have made from the same text. Adding or removing an attribute definition
// brings the document's existing elements in line.
//
// A call that fails leaves the document as it was: nothing is linked until
// everything the change needs has been made, and what was made is deleted
// again on failure.
#include <cstring>
#include <string_view>

#include "vqxml/dom/dom.h"
#include "vqxml/parser/parser.h"
#include "vqxml/store/area.h"
#include "vqxml/store/dom_string.h"
#include "vqxml/store/error_list.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/store/node.h"
#include "vqxml/store/walk.h"

using vqxml::asNode;
using vqxml::asType;
using vqxml::dsEquals;
using vqxml::dsView;

namespace {

bool named(VQHANDLE h, const char *name) {
    const Node *n = asNode(h);
    return n != nullptr && dsEquals(n->nodeName, name);
}

// The document a document type belongs to, or 0 when `doctype` is not a
// document type of a valid document.
VQHANDLE documentOf(VQHANDLE doctype) {
    const Node *t = asType<Node>(doctype, VQXML_DOCUMENT_TYPE_NODE);
    if (t == nullptr) return 0;
    const VQHANDLE doc = t->ownerDocument;
    return asType<Node>(doc, VQXML_DOCUMENT_NODE) != nullptr ? doc : 0;
}

enum class Step { kDescend, kSkip, kStop };

// Walks the element children of `root` in document order and, below each
// element for which visit() answers kDescend, that element's children the
// same way; kStop ends the walk (the result is then true). Other children
// are passed over. visit() may allocate but must not relink nodes.
template <typename Visit>
bool walkElements(VQHANDLE root, Visit visit) {
    vqxml::TreeWalk walk(root);
    for (VQHANDLE h = walk.first(); h != 0;) {
        bool enter = false;
        if (walk.at(h)->nodeType == VQXML_ELEMENT_NODE) {
            const Step step = visit(h);
            if (step == Step::kStop) return true;
            enter = step == Step::kDescend;
        }
        h = walk.next(h, enter);
    }
    return false;
}

// Calls visit(element) for `element` and every element below it (through
// element children only), in document order.
template <typename Visit>
void forEachElement(VQHANDLE element, Visit visit) {
    if (asType<Node>(element, VQXML_ELEMENT_NODE) == nullptr) return;
    visit(element);
    walkElements(element, [&visit](VQHANDLE e) {
        visit(e);
        return Step::kDescend;
    });
}

// A default attribute made for an element, with the map item that will
// link it.
struct Pending {
    VQHANDLE element;
    VQHANDLE attribute;
    VQHANDLE item;
};

// Gives every element named `elementName` from `root` down the default of
// `definition`, displacing an attribute of that name. All copies are made
// first; only when every one of them exists are they linked, which then
// needs no memory. False (nothing changed) when memory ran out.
bool addDefaults(VQHANDLE root, const char *elementName, VQHANDLE definition) {
    const AttDef *d = asType<AttDef>(definition, VQXML_ATT_DEF_NODE);
    // Without a default (#REQUIRED, #IMPLIED) there is nothing to add.
    if (d == nullptr || asType<Node>(VQDOM_itemMap(d->node.attributes, 0), VQXML_ATTRIBUTE_NODE) == nullptr)
        return true;
    const int64_t failures = vqxml::allocationFailures();
    vqxml::HeapStack<Pending> pending;
    bool made = true;
    forEachElement(root, [&](VQHANDLE element) {
        if (!made || !named(element, elementName)) return;
        Pending p{element, vqxml::defaultAttributeOf(definition), 0};
        if (p.attribute != 0) p.item = vqxml::takeMapItem(element);
        if (p.item == 0 || !pending.push(p)) {
            VQDOM_deleteNode(p.attribute);
            if (p.item != 0) myFree(p.item);
            made = false;
        }
    });
    // A value that could not be computed leaves its copy without one.
    made = made && vqxml::allocationFailures() == failures;
    while (!pending.empty()) {
        const Pending p = pending.pop();
        if (!made) {
            VQDOM_deleteNode(p.attribute);
            myFree(p.item);
            continue;
        }
        VQDOM_deleteNode(vqxml::setAttributeNodeWith(p.element, p.attribute, p.item));
        if (asNode(p.attribute) == nullptr) myFree(p.item);  // refused and deleted
    }
    return made;
}

void removeAttributes(VQHANDLE root, const char *elementName, VQHANDLE definition) {
    const Node *d = asNode(definition);
    if (d == nullptr) return;
    const VQHANDLE name = d->nodeName;
    forEachElement(root, [name, elementName](VQHANDLE element) {
        if (!named(element, elementName)) return;
        if (const VQHANDLE attr = VQDOM_getAttributeNode(element, name); attr != 0)
            VQDOM_deleteNode(VQDOM_removeAttributeNode(element, attr));
    });
}

// An attribute-list declaration keeps its place while it holds a definition.
bool holdsDefinition(VQHANDLE decl) {
    const Node *n = asNode(decl);
    VQHANDLE c = n != nullptr ? n->firstChild : 0;
    for (vqxml::StepBound steps(decl); asNode(c) != nullptr && steps.take();) {
        if (asNode(c)->nodeType == VQXML_ATT_DEF_NODE) return true;
        c = asNode(c)->nextSibling;
    }
    return false;
}

// A source over a caller's text, which it neither changes nor frees.
Source *sourceOver(const char *text, VQHANDLE doc) { return allocSource(const_cast<char *>(text), 0, doc); }

}  // namespace

extern "C" void changeAttDef(VQHANDLE element, const char *elementName, VQHANDLE definition, int add) {
    if (elementName == nullptr) return;
    if (add != 0) {
        addDefaults(element, elementName, definition);
    } else {
        removeAttributes(element, elementName, definition);
    }
}

extern "C" int checkSpecifiedAtt(VQHANDLE node, const char *elementName, const char *attributeName) {
    if (elementName == nullptr || attributeName == nullptr) return 0;
    // Only elements of that name are tested and entered: one of that name
    // below an element of another name is never reached.
    return walkElements(node, [=](VQHANDLE e) {
        if (!named(e, elementName)) return Step::kSkip;
        const Attr *a = asType<Attr>(VQDOM_getAttributeNodeStr(e, attributeName), VQXML_ATTRIBUTE_NODE);
        return a != nullptr && a->specified != 0 ? Step::kStop : Step::kDescend;
    }) ? 1 : 0;
}

extern "C" VQHANDLE VQDOM_enumAttValues(VQHANDLE doctype, const char *elementName, const char *attributeName) {
    if (elementName == nullptr || attributeName == nullptr || documentOf(doctype) == 0) return 0;
    const VQHANDLE def = findAttDef(doctype, elementName, attributeName);
    if (asType<Node>(def, VQXML_ATT_DEF_NODE) == nullptr) return 0;
    // The values are the definition's name-list children.
    auto forEachValue = [def](auto use) {
        VQHANDLE c = asNode(def)->firstChild;
        for (vqxml::StepBound steps(def); asNode(c) != nullptr && steps.take();) {
            if (asNode(c)->nodeType == VQXML_NAME_LIST_NODE) use(dsView(asNode(c)->nodeName));
            c = asNode(c)->nextSibling;
        }
    };
    int64_t size = 0;
    forEachValue([&size](std::string_view v) { size += static_cast<int64_t>(v.size()) + 1; });
    if (size == 0) return VQDOM_createDS(def, "");
    char local[1024];
    char *text = local;
    if (size > 1023) {
        text = static_cast<char *>(vqxml::tracedMalloc(static_cast<size_t>(size), "enumAttValues", "enumAttValues"));
        if (text == nullptr) {
            errorAlloc("buffer", size);
            return 0;
        }
    }
    char *out = text;
    forEachValue([&out](std::string_view v) {
        std::memcpy(out, v.data(), v.size());
        out += v.size();
        *out++ = '|';
    });
    out[-1] = '\0';
    const VQHANDLE result = VQDOM_createDS(def, text);
    if (text != local) vqxml::tracedFree(text, "enumAttValues");
    return result;
}

extern "C" int VQDOM_createElementDef(VQHANDLE doctype, const char *elementName, const char *contentText) {
    const VQHANDLE doc = documentOf(doctype);
    if (doc == 0 || elementName == nullptr || contentText == nullptr) return 0;
    if (getMarkupDecl(doctype, VQXML_ELEMENT_DECL_NODE, elementName) != 0) return 0;
    const int64_t failures = vqxml::allocationFailures();
    const VQHANDLE name = VQDOM_createDS(doc, elementName);
    const VQHANDLE decl = name != 0 ? createElementDecl(doc, name) : 0;
    if (decl == 0) return 0;
    Source *s = sourceOver(contentText, doc);
    bool ok = s != nullptr;
    if (ok) {
        parseSpace(s, 0);
        ok = parseContentSpec(s, decl) != 0;
        // What follows the content model is not read.
        if (ok) parseSpace(s, 0);
        deleteSource(s);
    }
    if (!ok || vqxml::allocationFailures() != failures || VQDOM_appendChild(doctype, decl) == 0) {
        VQDOM_deleteNode(decl);
        return 0;
    }
    return 1;
}

extern "C" int VQDOM_createAttListDef(VQHANDLE doctype, const char *elementName, const char *attributeName,
                                      const char *definitionText) {
    const VQHANDLE doc = documentOf(doctype);
    if (doc == 0 || elementName == nullptr || attributeName == nullptr || definitionText == nullptr) return 0;
    if (findAttDef(doctype, elementName, attributeName) != 0) return 0;
    // The element's attribute-list declaration must exist already.
    const VQHANDLE decl = getMarkupDecl(doctype, VQXML_ATTLIST_DECL_NODE, elementName);
    if (asType<Node>(decl, VQXML_ATTLIST_DECL_NODE) == nullptr) return 0;
    const int64_t failures = vqxml::allocationFailures();
    const VQHANDLE name = VQDOM_createDS(doc, attributeName);
    VQHANDLE def = name != 0 ? createAttDef(doc, name) : 0;
    bool ok = def != 0;
    if (ok) {
        // A default value may refer to entities: its copies are bounded as
        // in a parse of the same text.
        const vqxml::ParseBudget budget(definitionText);
        Source *s = sourceOver(definitionText, doc);
        ok = s != nullptr;
        if (ok) {
            parseSpace(s, 0);
            // The default declaration is read even after a bad type, so that
            // its faults are reported too.
            const bool type = parseAttType(s, def) != 0;
            parseSpace(s, 0);
            ok = parseDefaultDecl(s, def) != 0 && type;
            parseSpace(s, 0);
            deleteSource(s);
        }
        ok = ok && !budget.memoryFailed() && !vqxml::copyBudgetSpent(nullptr);
    }
    ok = ok && vqxml::allocationFailures() == failures &&
         addDefaults(VQDOM_getDocumentElement(doc), elementName, def);
    if (!ok) {
        VQDOM_deleteNode(def);
        if (!holdsDefinition(decl)) VQDOM_deleteNode(decl);
        return 0;
    }
    // Linking needs no memory: the declaration is already in the document
    // type, and the defaults are in place.
    VQDOM_appendChild(decl, def);
    if (asNode(decl)->parentNode == 0) VQDOM_appendChild(doctype, decl);
    return 1;
}

extern "C" int VQDOM_deleteAttListDef(VQHANDLE doctype, const char *elementName, const char *attributeName) {
    const VQHANDLE doc = documentOf(doctype);
    if (doc == 0) return 0;
    if (checkSpecifiedAtt(doc, elementName, attributeName)) return 0;
    if (elementName == nullptr || attributeName == nullptr) return 0;
    const VQHANDLE def = findAttDef(doctype, elementName, attributeName);
    if (asType<Node>(def, VQXML_ATT_DEF_NODE) == nullptr) return 0;
    const VQHANDLE decl = asNode(def)->parentNode;
    removeNode(def);
    removeAttributes(VQDOM_getDocumentElement(doc), elementName, def);
    VQDOM_deleteNode(def);
    if (asType<Node>(decl, VQXML_ATTLIST_DECL_NODE) != nullptr && !holdsDefinition(decl)) VQDOM_deleteNode(decl);
    return 1;
}

extern "C" int VQDOM_deleteElementDef(VQHANDLE doctype, const char *elementName) {
    const VQHANDLE doc = documentOf(doctype);
    if (doc == 0 || elementName == nullptr) return 0;
    // The list stays chained to the document (until it is deleted), as
    // every tag-name list does.
    const VQHANDLE list = VQDOM_getElementsByTagNameStr(doc, elementName);
    if (list == 0 || VQDOM_getLengthList(list) != 0) return 0;
    int deleted = 0;
    for (const int type : {VQXML_ELEMENT_DECL_NODE, VQXML_ATTLIST_DECL_NODE}) {
        VQHANDLE d = getFirstMarkupDecl(doctype, type);
        for (vqxml::StepBound steps(doctype); d != 0 && steps.take();) {
            const VQHANDLE next = getNextMarkupDecl(d);
            if (named(d, elementName)) {
                VQDOM_deleteNode(d);
                deleted = 1;
            }
            d = next;
        }
    }
    return deleted;
}
