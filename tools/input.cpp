// input.cpp - reading the vqxml program's input files.
#include "input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace vqtool {
namespace {

std::string sizeText(uint64_t n) { return std::to_string(n) + " bytes"; }

std::string overLimit(const std::string &name, const char *what, uint64_t limit) {
    return name + ": " + what + " over the limit of " + sizeText(limit) +
           " (the most one document area can hold)";
}

// Closes the descriptor unless it is standard input.
struct Descriptor {
    int fd;
    bool owned;
    ~Descriptor() {
        if (owned && fd >= 0) close(fd);
    }
};

}  // namespace

Input readFile(const std::string &name, uint64_t limit) {
    Input in;
    const bool standardInput = name == "-";
    Descriptor d{standardInput ? 0 : open(name.c_str(), O_RDONLY | O_CLOEXEC), !standardInput};
    if (d.fd < 0) {
        in.error = name + ": cannot open: " + std::strerror(errno);
        return in;
    }
    struct stat st {};
    if (fstat(d.fd, &st) != 0) {
        in.error = name + ": cannot read: " + std::strerror(errno);
        return in;
    }
    if (S_ISDIR(st.st_mode)) {
        in.error = name + ": is a directory";
        return in;
    }
    if (S_ISREG(st.st_mode)) {
        if (static_cast<uint64_t>(st.st_size) > limit) {
            in.error = overLimit(name, (sizeText(static_cast<uint64_t>(st.st_size)) + " is").c_str(), limit);
            return in;
        }
        in.bytes.reserve(static_cast<size_t>(st.st_size));
    }
    // Pipes and devices tell no size: read until the end or past the limit.
    char chunk[65536];
    for (;;) {
        const ssize_t got = read(d.fd, chunk, sizeof chunk);
        if (got < 0) {
            if (errno == EINTR) continue;
            in.error = name + ": cannot read: " + std::strerror(errno);
            in.bytes.clear();
            return in;
        }
        if (got == 0) break;
        if (in.bytes.size() + static_cast<uint64_t>(got) > limit) {
            in.error = overLimit(name, "input is", limit);
            in.bytes.clear();
            return in;
        }
        in.bytes.append(chunk, static_cast<size_t>(got));
    }
    return in;
}

std::string textProblem(const std::string &name, std::string_view bytes) {
    if (bytes.empty()) return name + ": empty file";
    if (bytes.size() >= 2) {
        const auto b0 = static_cast<unsigned char>(bytes[0]);
        const auto b1 = static_cast<unsigned char>(bytes[1]);
        if ((b0 == 0xFF && b1 == 0xFE) || (b0 == 0xFE && b1 == 0xFF))
            return name + ": starts with a UTF-16 byte-order mark; the library reads bytes and never "
                          "transcodes: convert the file to UTF-8 first";
    }
    const size_t nul = bytes.find('\0');
    if (nul != std::string_view::npos) {
        const auto line = 1 + std::count(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(nul), '\n');
        return name + ":" + std::to_string(line) + ": NUL byte at offset " + std::to_string(nul) +
               "; the library reads NUL-terminated text and would silently ignore the " +
               std::to_string(bytes.size() - nul - 1) + " bytes after it";
    }
    return {};
}

Input readText(const std::string &name, uint64_t limit) {
    Input in = readFile(name, limit);
    if (in.error.empty()) {
        in.error = textProblem(name, in.bytes);
        if (!in.error.empty()) in.bytes.clear();
    }
    return in;
}

}  // namespace vqtool
