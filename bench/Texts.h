// The texts that are read. The peers use the same ones.
#ifndef MAVKIT_BENCH_TEXTS_H
#define MAVKIT_BENCH_TEXTS_H

#include "Bench.h"

namespace bench {

// The lengths of texts.
std::vector<Size> TextSizes(bool large);

// Bytes as upper-case hex digits, two for each and nothing between.
std::string HexOf(const std::vector<unsigned char>& data);

// `size` characters in fields of 1 to 24, short ones and some that do not fit the short form of a
// string.
std::string FieldsText(std::size_t size);

} // namespace bench

#endif
