/*
 * hello.c - build a small document with the DOM functions, print it, then
 * parse a text and show what the parser reports for a broken one.
 */
#include <stdio.h>

#include "vqxml/vqxml.h"

static void printErrors(void) {
    char params[256], msg[512];
    int64_t code;
    while ((code = VQXML_getError(params)) != 0) {
        VQXML_getErrorMsg(code, params, msg, sizeof msg);
        printf("  error %lld: %s\n", (long long)code, msg);
    }
}

int main(void) {
    char out[1024];
    VQHANDLE doc, root, item, parsed;

    VQXML_xmlInit();

    doc = VQDOM_createDocument();
    root = VQDOM_appendChild(doc, VQDOM_createElement(doc, VQDOM_createDS(doc, "greeting")));
    item = VQDOM_createElement(doc, VQDOM_createDS(doc, "to"));
    VQDOM_setAttribute(item, VQDOM_createDS(doc, "lang"), VQDOM_createDS(doc, "en"));
    VQDOM_appendChild(item, VQDOM_createTextNode(doc, VQDOM_createDS(doc, "world & you")));
    VQDOM_appendChild(root, item);
    VQXML_printNode(doc, out, sizeof out);
    printf("built:  %s\n", out);

    parsed = VQXML_parse("<?xml version='1.0'?><list><i n='1'>one</i><i n='2'/></list>");
    VQXML_printNode(parsed, out, sizeof out);
    printf("parsed: %s\n", out);

    printf("parsing \"<a><b></a>\":\n");
    if (VQXML_parse("<a><b></a>") == 0) printErrors();

    VQDOM_deleteNode(parsed);
    VQDOM_deleteNode(doc);
    VQXML_xmlCleanup();
    return 0;
}
