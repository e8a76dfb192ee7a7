/// \file
/// Bytes taken a machine word at a time, from any address. Private to the library: the bit masks and
/// the splitter share it.

#ifndef MAVKIT_ENCODING_WORD_H
#define MAVKIT_ENCODING_WORD_H

#include <cstddef>

namespace mavkit {

using Word = unsigned long;

constexpr size_t kWordBytes = sizeof(Word);

/// A word that may lie anywhere among other data. (A copy of a word by memcpy would do as well, but
/// becomes a call on the target when it is built for size.)
struct __attribute__((packed, may_alias)) LooseWord {
    Word value;
};

/// \return the word at `bytes`, in the processor's byte order.
inline Word LoadWord(const void* bytes) { return static_cast<const LooseWord*>(bytes)->value; }

} // namespace mavkit

#endif
