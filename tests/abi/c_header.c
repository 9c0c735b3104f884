/* c_header.c - the public header compiles as C99, and a C program can build,
 * print and take apart a document through the shared library. */
#include <stdio.h>
#include <string.h>

#include "vqxml/vqxml.h"

int main(void) {
    char msg[256];
    int32_t counters[6];
    VQXML_xmlInit();
    if (VQXML_checkNode(5) != 0) return 1;
    if (VQXML_getError(msg) != 1001748 || strcmp(msg, "5|") != 0) return 2;
    VQXML_getErrorMsg(1001748, "5|", msg, sizeof msg);
    if (strcmp(msg, "invalid node handle detected: 5") != 0) return 3;
    VQXML_debug_mem(0, counters, 0);
    if (counters[5] != 0) return 4;
    VQXML_xmlCleanup();
    puts("C interface ok");
    return 0;
}
