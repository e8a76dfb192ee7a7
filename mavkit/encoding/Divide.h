// Division of 64 bits by 32 in little code. The target has no instruction for it, and the functions
// that compilers provide for it take more than 4 KiB.

#ifndef MAVKIT_ENCODING_DIVIDE_H
#define MAVKIT_ENCODING_DIVIDE_H

#include <climits>

namespace mavkit {

// Divides `number`, which becomes the quotient, by `divisor`, 1 to 2^31, and returns the remainder.
// Numbers of more than 32 bits are rare here, and divided bit by bit.
inline unsigned int Divide(unsigned long long& number, unsigned int divisor) {
    if (number <= UINT_MAX) {
        const unsigned int low = static_cast<unsigned int>(number);
        number = low / divisor;
        return low % divisor;
    }
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
