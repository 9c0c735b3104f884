// fragment_fuzzer.cpp - content parsed into a document that has a DTD, so
// that parameter-entity and character references are expanded by the reader.
#include "fuzz_util.h"

namespace {
const char kHost[] =
    "<!DOCTYPE r [\n"
    "<!ENTITY e 'x<b a=\"1\"/>y'>\n"
    "<!ENTITY % p 'pe'>\n"
    "<!ATTLIST b a CDATA 'dflt' t (u|v) 'u' n NMTOKENS ' a  b '>\n"
    "<!ELEMENT r ANY>\n"
    "]><r/>";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::start();
    fuzz::LeakCheck leaks;
    VQHANDLE doc = VQXML_parse(kHost);
    if (doc == 0) std::abort();
    std::string input = fuzz::text(data, size);
    VQHANDLE fragment = VQXML_parseFragment(doc, input.c_str());
    if (fragment != 0) {
        char out[2048];
        VQXML_printNode(VQDOM_getDocumentElement(doc), out, sizeof out);
        VQDOM_appendChild(VQDOM_getDocumentElement(doc), fragment);
        VQXML_printNode(doc, out, sizeof out);
    }
    VQDOM_deleteNode(doc);
    VQXML_deleteDocumentArea(doc);
    return 0;
}
