/*
 * input.h - how the vqxml program takes in a file: whole, as the library
 * will see it, with one clear line for everything that would make the
 * library read something other than what the file holds.
 */
#ifndef VQXML_TOOLS_INPUT_H
#define VQXML_TOOLS_INPUT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace vqtool {

// The largest input taken: one document area holds at most this many bytes,
// and the library's lengths are 32-bit.
inline constexpr uint64_t kMaxInputBytes = 2147483647;

struct Input {
    std::string bytes;   // the file's bytes (without a terminator of its own)
    std::string error;   // empty when the bytes can be used
};

// Reads `name` ("-" is standard input) whole. On failure `error` holds one
// line for the user, starting with the name.
Input readFile(const std::string &name, uint64_t limit = kMaxInputBytes);

// Checks bytes that are to be parsed: the library reads NUL-terminated text
// and never transcodes, so an empty input, a UTF-16 byte-order mark or a NUL
// byte inside are refused with one line starting with `name`.
std::string textProblem(const std::string &name, std::string_view bytes);

// readFile and then textProblem.
Input readText(const std::string &name, uint64_t limit = kMaxInputBytes);

}  // namespace vqtool

#endif  // VQXML_TOOLS_INPUT_H
