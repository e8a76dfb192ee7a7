/// \file
/// Division of 64 bits by 32 in a hundred bytes of code. Private to the library: the target has no
/// such instruction, and the four functions that compilers bring for it take more than 4 KiB.

#ifndef MAVKIT_ENCODING_DIVIDE_H
#define MAVKIT_ENCODING_DIVIDE_H

namespace mavkit {

/// Divides `number`, which becomes the quotient, by `divisor`, 1 to 2^31. It goes bit by bit, so it
/// is for numbers that are seldom met.
/// \return the remainder.
inline unsigned int Divide(unsigned long long& number, unsigned int divisor) {
    unsigned int rest = 0;
    for (int bit = 0; bit < 64; ++bit) {
        rest = rest << 1 | static_cast<unsigned int>(number >> 63);
        number <<= 1;
        if (rest >= divisor) {
            rest -= divisor;
            number |= 1;
        }
    }
    return rest;
}

} // namespace mavkit

#endif
