/*
 * image.c - parse a file once, save the document's image, and load that
 * image in a fresh process, which prints the same bytes and still knows the
 * document by the handles the first process handed it.
 *
 *   example_image [FILE]        (default: catalog.xml)
 *
 * The second process is this program started again with
 * "--load IMAGE HANDLE". An image is read back only by the same build of
 * the library on the same kind of machine.
 */
#define _XOPEN_SOURCE 700
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vqxml/vqxml.h"

static char *readAll(FILE *in, long *length) {
    size_t size = 0, cap = 4096;
    char *data = malloc(cap + 1);
    size_t got;
    while (data != NULL && (got = fread(data + size, 1, cap - size, in)) > 0) {
        size += got;
        if (size == cap) {
            char *more = realloc(data, 2 * cap + 1);
            if (more == NULL) free(data);
            data = more;
            cap *= 2;
        }
    }
    if (data != NULL) data[size] = '\0';
    *length = (long)size;
    return data;
}

static char *printed(VQHANDLE node) {
    int32_t need = VQXML_printNode(node, NULL, 0);
    char *out = malloc((size_t)need + 1);
    if (out != NULL) VQXML_printNode(node, out, need + 1);
    return out;
}

/* The fresh process: load the image, print the document and the name of
 * the element behind the handle it was given. */
static int load(const char *path, VQHANDLE kept) {
    FILE *in = fopen(path, "rb");
    long length = 0;
    char *bytes = in != NULL ? readAll(in, &length) : NULL;
    void *block;
    char *text, name[64];
    if (in != NULL) fclose(in);
    if (bytes == NULL || length <= 0) return 1;
    block = VQXML_streamIn((int32_t)length);
    if (block == NULL) return 1;
    memcpy(block, bytes, (size_t)length);
    free(bytes);
    if (!VQXML_documentLoaded(block)) return 1; /* the block is consumed either way */
    text = printed(VQDOM_getOwnerDocument(kept));
    fputs(text, stdout);
    VQDOM_cpyDS(VQDOM_getNodeName(kept), name, sizeof name);
    fprintf(stderr, "loaded: handle 0x%x is still <%s>\n", (unsigned)kept, name);
    free(text);
    VQXML_deleteDocumentArea(kept);
    return 0;
}

int main(int argc, char **argv) {
    const char *file = argc > 1 ? argv[1] : "catalog.xml";
    char imagePath[] = "/tmp/vqxml-image-XXXXXX", handleText[16];
    FILE *in;
    char *source, *before, *after;
    long length = 0, afterLength = 0;
    VQHANDLE doc, root;
    int32_t imageLength = 0;
    void *image;
    int fd, link[2], status = 1;
    pid_t child;

    VQXML_xmlInit();
    if (argc == 4 && strcmp(argv[1], "--load") == 0)
        return load(argv[2], (VQHANDLE)strtoul(argv[3], NULL, 16));

    in = fopen(file, "rb");
    source = in != NULL ? readAll(in, &length) : NULL;
    if (in != NULL) fclose(in);
    if (source == NULL) {
        fprintf(stderr, "cannot read %s\n", file);
        return 1;
    }
    doc = VQXML_parse(source);
    free(source);
    if (doc == 0) {
        char params[256], msg[512];
        int64_t code = VQXML_getError(params);
        VQXML_getErrorMsg(code, params, msg, sizeof msg);
        fprintf(stderr, "%s: %s\n", file, msg);
        return 1;
    }
    root = VQDOM_getDocumentElement(doc);
    before = printed(doc);

    /* Save the image: the area made minimal, as raw bytes. */
    image = VQXML_streamOut(doc, &imageLength);
    fd = mkstemp(imagePath);
    if (fd < 0 || write(fd, image, (size_t)imageLength) != (ssize_t)imageLength) return 1;
    close(fd);
    printf("%s: %ld bytes of XML, an image of %d bytes\n", file, length, imageLength);

    /* Load it in a fresh process and read back what it prints. */
    snprintf(handleText, sizeof handleText, "%x", (unsigned)root);
    fflush(stdout); /* the child must not write this process's buffered lines */
    if (pipe(link) != 0) return 1;
    child = fork();
    if (child == 0) {
        dup2(link[1], 1);
        close(link[0]);
        close(link[1]);
        execl("/proc/self/exe", argv[0], "--load", imagePath, handleText, (char *)NULL);
        _exit(127);
    }
    close(link[1]);
    in = fdopen(link[0], "rb");
    after = in != NULL ? readAll(in, &afterLength) : NULL;
    if (in != NULL) fclose(in);
    waitpid(child, &status, 0);
    unlink(imagePath);

    if (after != NULL && WIFEXITED(status) && WEXITSTATUS(status) == 0 &&
        (size_t)afterLength == strlen(before) && memcmp(before, after, (size_t)afterLength) == 0) {
        printf("%s\nthe fresh process printed the same %ld bytes\n", after, afterLength);
        status = 0;
    } else {
        printf("the fresh process printed something else\n");
        status = 1;
    }
    free(before);
    free(after);
    VQXML_deleteDocumentArea(doc);
    VQXML_xmlCleanup();
    return status;
}
