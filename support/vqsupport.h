/*
 * vqsupport.h - the product family's support library, as far as libvqxml
 * needs it: a trace sink, case-insensitive comparisons and the process's
 * memory figures. Compiles as C99 and as C++.
 *
 * Trace handles are file descriptors: a handle of 2 writes to standard
 * error, a descriptor from open() writes to that file. Each text becomes
 * one line.
 */
#ifndef VQSUPPORT_H
#define VQSUPPORT_H

#include <stddef.h>
#include <stdint.h>

#define VQSUPPORT_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Writes up to maxLength bytes of text (less when a NUL comes first) and a
 * line feed to the descriptor `handle`. Returns the bytes written, or -1. */
VQSUPPORT_API int VQTRACE_Text(uint64_t handle, const char *text, int32_t maxLength);

/* Writes a labelled block: a line "[label] <n> bytes", then up to `length`
 * bytes of text (less when a NUL comes first) and a line feed. */
VQSUPPORT_API int VQTRACE_Trace2(uint64_t handle, const char *label,
                                 const char *text, int64_t length);

/* 0 when equal ignoring ASCII case; else the sign of the first difference
 * of the lower-cased bytes. */
VQSUPPORT_API int VQSTRNG_stricmp(const char *a, const char *b);
VQSUPPORT_API int VQSTRNG_strnicmp(const char *a, const char *b, size_t n);

/* The process's memory figures. */
typedef struct VQSYS_MEMINFO {
    uint64_t vmSize;       /* virtual memory size in bytes */
    uint64_t residentPages;/* resident set in pages */
    uint64_t sharedPages;
    uint64_t pageSize;
} VQSYS_MEMINFO;

/* Fills `info` from /proc/self/statm; returns 1, or 0 (figures zeroed)
 * when they cannot be read. */
VQSUPPORT_API int VQSYS_GetMemInfo(VQSYS_MEMINFO *info);

#ifdef __cplusplus
}
#endif

#endif /* VQSUPPORT_H */
