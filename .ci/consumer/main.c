/* A program that uses libvqxml from an installed tree: it parses a text,
 * prints it, and checks that the header and the library agree. */
#include <stdio.h>
#include <string.h>

#include <vqxml/vqxml.h>

int main(void) {
    char out[256];
    VQHANDLE doc;
    VQXML_xmlInit();
    doc = VQXML_parse("<hello who='world'/>");
    if (doc == 0) return 1;
    if (VQXML_printNode(doc, out, sizeof out) >= (int32_t)sizeof out) return 1;
    printf("vqxml %s: %s\n", VQXML_VERSION_STRING, out);
    VQDOM_deleteNode(doc);
    VQXML_xmlCleanup();
    return strstr(out, "hello") != NULL ? 0 : 1;
}
