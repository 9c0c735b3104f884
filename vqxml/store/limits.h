// limits.h - the bounds the library adds so that no input can make it
// recurse, loop or copy without end. Each is reported as a recorded error
// (see codes.h) and listed with its figure in the README's Limits section;
// a change here changes that table too.
#ifndef VQXML_STORE_LIMITS_H
#define VQXML_STORE_LIMITS_H

#include <cstdint>

namespace vqxml {

// Elements open at once in a parse, and content-model groups open at once
// in a declaration (kElementsTooDeep).
constexpr int32_t kMaxNesting = 10000;

// Entity sources open at once while reading: nested references
// (kEntitiesTooDeep).
constexpr int32_t kMaxOpenEntitySources = 64;

// Fuzzing builds use small budgets, so that a crafted input costs
// milliseconds rather than seconds; the checks are the same.
#ifdef VQXML_FUZZ_LIMITS
constexpr int64_t kCopyAllowance = int64_t{1} << 20;
#else
// Bytes that copies (entity references, default attributes) may add to
// document areas in one parse call, before the share per input byte.
constexpr int64_t kCopyAllowance = int64_t{8} << 20;
#endif
// Further copy bytes allowed for each byte of the parsed text.
constexpr int64_t kCopyPerInputByte = 100;

// Bytes of entity text one parse call reads, counted once per level of
// nesting they are read through (kExpansionTooLarge): an allowance plus a
// share per byte of the parsed text. Outside a parse call the allowance
// alone holds.
constexpr int64_t kEntityTextAllowance = int64_t{1} << 20;
constexpr int64_t kEntityTextPerInputByte = 16;

// Default attributes whose values bring further defaults; deeper ones are
// not added.
constexpr int kMaxDefaultNesting = 32;

// Blanks the pretty-printer indents by at most; deeper elements keep this.
constexpr int64_t kMaxIndent = 63;

// The largest occurrence index "(n)" a query or answer path may ask the
// builder to create (kIllegalParameter / kIllegalData); smaller in fuzzing
// builds, where the check is the same.
#ifdef VQXML_FUZZ_LIMITS
constexpr long kMaxOccurrence = 255;
#else
constexpr long kMaxOccurrence = 65535;
#endif

// Model levels a parameter comparison descends; deeper models compare as
// "different" (VQXML_cmpParameters returns 1).
constexpr int32_t kMaxModelDepth = 1000;

}  // namespace vqxml

#endif  // VQXML_STORE_LIMITS_H
