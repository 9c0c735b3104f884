// trace_sink.cpp - the trace sink: each text is written as one line to the
// file descriptor that serves as the trace handle.
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/vqsupport.h"

namespace {

// Writes all iovecs, retrying short writes and interrupted calls.
int writeAll(int fd, iovec *iov, int count) {
    int total = 0;
    while (count > 0) {
        ssize_t n = ::writev(fd, iov, count);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        total += static_cast<int>(n);
        while (count > 0 && static_cast<size_t>(n) >= iov->iov_len) {
            n -= static_cast<ssize_t>(iov->iov_len);
            ++iov;
            --count;
        }
        if (count > 0) {
            iov->iov_base = static_cast<char *>(iov->iov_base) + n;
            iov->iov_len -= static_cast<size_t>(n);
        }
    }
    return total;
}

bool usable(uint64_t handle) { return handle != 0 && handle <= 0x7fffffff; }

}  // namespace

extern "C" int VQTRACE_Text(uint64_t handle, const char *text, int32_t maxLength) {
    if (!usable(handle) || text == nullptr || maxLength < 0) return -1;
    char newline = '\n';
    iovec iov[2] = {{const_cast<char *>(text), ::strnlen(text, static_cast<size_t>(maxLength))},
                    {&newline, 1}};
    return writeAll(static_cast<int>(handle), iov, 2);
}

extern "C" int VQTRACE_Trace2(uint64_t handle, const char *label, const char *text,
                              int64_t length) {
    if (!usable(handle)) return -1;
    if (label == nullptr) label = "";
    size_t n = (text == nullptr || length <= 0) ? 0 : ::strnlen(text, static_cast<size_t>(length));
    char head[96];
    int headLen = std::snprintf(head, sizeof head, "[%.40s] %zu bytes\n", label, n);
    char newline = '\n';
    iovec iov[3] = {{head, static_cast<size_t>(headLen)},
                    {const_cast<char *>(text ? text : ""), n},
                    {&newline, 1}};
    return writeAll(static_cast<int>(handle), iov, 3);
}
