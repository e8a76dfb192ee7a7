// Bytes read a machine word at a time, from any address.

#ifndef MAVKIT_ENCODING_WORD_H
#define MAVKIT_ENCODING_WORD_H

#include <cstddef>

namespace mavkit {

using Word = unsigned long;

constexpr std::size_t kWordBytes = sizeof(Word);

// A word at any address, in data of any type. (std::memcpy of a word would also work, but becomes a
// call on the target when the library is built for size.)
struct __attribute__((packed, may_alias)) LooseWord {
    Word value;
};

// Returns the word at `bytes`, in the processor's byte order.
inline Word LoadWord(const void* bytes) { return static_cast<const LooseWord*>(bytes)->value; }

} // namespace mavkit

#endif
