// Bytes read and written several at a time, at any address.

#ifndef MAVKIT_ENCODING_WORD_H
#define MAVKIT_ENCODING_WORD_H

#include <cstddef>

namespace mavkit {

using Word = unsigned long;

constexpr std::size_t kWordBytes = sizeof(Word);

// A number at any address, in data of any type: two instructions on the target. (std::memcpy would
// also work, but becomes a call there when the library is built for size.)
template <typename Number>
struct __attribute__((packed, may_alias)) Loose {
    Number value;
};
using LooseWord = Loose<Word>;

// Returns the word at `bytes`, in the processor's byte order.
inline Word LoadWord(const void* bytes) { return static_cast<const LooseWord*>(bytes)->value; }

} // namespace mavkit

#endif
