/*
 * model.c - the model layer from start to end: create an empty model, adjust
 * its items, build a query from path/value entries, answer it, read the
 * values back as stored and as shown, and print the documents indented.
 *
 * Run it with `cmake --build build --target run-example-model`.
 */
#include <stdio.h>
#include <string.h>

#include "vqxml/vqxml.h"

static int failures = 0;

static void printErrors(void) {
    char params[256], msg[512];
    int64_t code;
    while ((code = VQXML_getError(params)) != 0) {
        VQXML_getErrorMsg(code, params, msg, sizeof msg);
        printf("  error %lld: %s\n", (long long)code, msg);
    }
}

/* A document prints compactly; its document element prints indented. */
static void printIndented(const char *title, VQHANDLE doc) {
    static char out[4096];
    if (VQXML_printBeautifyNode(VQDOM_getDocumentElement(doc), out, sizeof out) >=
        (int32_t)sizeof out) {
        printf("%s: too large to show\n", title);
        ++failures;
        return;
    }
    printf("%s:\n%s\n\n", title, out);
}

/* Gives a model item a new DESC, type and optional attribute. */
static void adjust(VQHANDLE model, int kind, const char *oldDesc, const char *desc,
                   const char *type, const char *attribute, const char *value) {
    VQHANDLE item = VQXML_getSubModel(model, kind, oldDesc);
    VQHANDLE doc = VQDOM_getOwnerDocument(item);
    VQDOM_setAttribute(item, VQDOM_createDS(doc, "DESC"), VQDOM_createDS(doc, desc));
    VQDOM_setNodeValue(VQDOM_getFirstChild(item), VQDOM_createDS(doc, type));
    if (attribute != NULL)
        VQDOM_setAttribute(item, VQDOM_createDS(doc, attribute), VQDOM_createDS(doc, value));
}

static void expect(const char *what, const char *got, const char *wanted) {
    printf("  %-22s %s\n", what, got);
    if (strcmp(got, wanted) != 0) {
        printf("  (expected %s)\n", wanted);
        ++failures;
    }
}

int main(void) {
    /* Entries: a path, a NUL, the value. */
    const char *bad[] = {"Size\0" "12a", "Colour\0" "red", NULL};
    const char *entries[] = {"Size\0" "12", "Name\0" "Anna", "Color\0" "green", NULL};
    const char *data[] = {"Delivery\0" "2024.03.05 14:07:09", "State\0" "Yellow", "State\0" "1",
                          NULL};
    VQHANDLE model, query, answer;
    char value[64];

    VQXML_xmlInit();

    /* A model with three parameters and two data items, then adjusted. */
    model = VQXML_createEmptyModel(3, 2, "SHOP", "4711");
    adjust(model, 0, "Parameter_1", "Size", "number", NULL, NULL);
    adjust(model, 0, "Parameter_2", "Name", "text", "USE", "M");
    adjust(model, 0, "Parameter_3", "Color", "enumeration", "VALUES", "red green blue");
    adjust(model, 1, "Data_1", "Delivery", "time", NULL, NULL);
    adjust(model, 1, "Data_2", "State", "gyr", "OCCURENCE", "MULTIPLE");
    printIndented("model", model);

    /* A query with faults is not built; every fault is reported. */
    printf("query from bad entries:\n");
    if (VQXML_createQuery(model, bad) != 0) ++failures;
    printErrors();
    printf("\n");

    query = VQXML_createQuery(model, entries);
    answer = VQXML_createAnswer(model, query, data);
    if (query == 0 || answer == 0) {
        printErrors();
        return 1;
    }

    printf("values read back:\n");
    VQXML_getParValue(model, query, "Color", 0, value, sizeof value);
    expect("Color", value, "green");
    VQXML_getDatValue(model, answer, "Delivery", 0, value, sizeof value);
    expect("Delivery as stored", value, "20240305140709");
    VQXML_getTypedSubValue(VQXML_getSubModel(model, 1, ""), VQXML_getSubModel(answer, 1, ""),
                           "Delivery", 0, value, sizeof value);
    expect("Delivery as shown", value, "2024.03.05 14:07:09");
    VQXML_getTypedSubValue(VQXML_getSubModel(model, 1, ""), VQXML_getSubModel(answer, 1, ""),
                           "State", 0, value, sizeof value);
    expect("State(0) as shown", value, "yellow");
    snprintf(value, sizeof value, "%d", (int)VQXML_getDatCount(model, answer, "State"));
    expect("State occurrences", value, "2");
    printf("\n");

    printIndented("query", query);
    printIndented("answer", answer);

    VQDOM_deleteNode(answer);
    VQDOM_deleteNode(query);
    VQDOM_deleteNode(model);
    VQXML_xmlCleanup();
    return failures == 0 ? 0 : 1;
}
