// serializer.cpp - placeholder until the serializer lands.
#include "vqxml/dom/printer.h"

extern "C" int32_t printNodeEx(VQHANDLE, char **, int32_t) { return 0; }
extern "C" int32_t VQXML_printNode(VQHANDLE node, char *buffer, int32_t size) {
    if (node == 0) return 0;
    char *cursor = buffer;
    return printNodeEx(node, &cursor, size);
}
