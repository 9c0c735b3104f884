// corpus.h - deterministic generators for the benchmark corpora.
#ifndef VQXML_BENCH_CORPUS_H
#define VQXML_BENCH_CORPUS_H

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

struct Corpus {
    std::string name;
    std::string text;
};

// The shapes: data records with attributes, long mixed text with
// references, many attributes per element, an internal DTD with entities
// and defaults used throughout, and nesting 1 000 deep. Each generator
// stops at the first record boundary at or past `bytes`.
std::string records(size_t bytes);
std::string mixedText(size_t bytes);
std::string manyAttributes(size_t bytes);
std::string dtdHeavy(size_t bytes);
std::string deepNesting(size_t bytes);

std::vector<Corpus> generated(size_t bytes, const std::string &suffix);

// Small documents made to multiply when parsed, each of which the library
// refuses: ten levels of ten entity references over "lol", a 100 000-byte
// entity referenced 20 000 times, 200 attribute defaults of 1 000 bytes
// each on 20 000 elements, and 60 nested parameter entities over 20 000
// bytes referenced 100 times.
std::vector<Corpus> hostile();

}  // namespace bench

#endif  // VQXML_BENCH_CORPUS_H
