// One packed-BCD byte, tens digit in the high nibble. The time records and the BCD numbers share
// it.

#ifndef MAVKIT_ENCODING_BCDBYTE_H
#define MAVKIT_ENCODING_BCDBYTE_H

namespace mavkit {

// Returns the packed-BCD byte of a value from 0 to 99: 59 gives 0x59.
constexpr unsigned char ToBcdByte(unsigned int value) {
    return static_cast<unsigned char>(value + 6 * (value / 10));
}

// Returns high nibble x 10 + low nibble, 0 to 165; nibbles above 9 count with their value.
constexpr unsigned int FromBcdByte(unsigned char byte) { return byte - 6U * (byte >> 4); }

} // namespace mavkit

#endif
