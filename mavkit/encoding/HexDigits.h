// Bytes as upper-case hex digits.
#ifndef MAVKIT_ENCODING_HEXDIGITS_H
#define MAVKIT_ENCODING_HEXDIGITS_H

namespace mavkit {

inline constexpr char kUpperHexDigits[] = "0123456789ABCDEF";

// Writes the two digits of `byte` at `to`; returns where the next character goes.
inline char* PutHex(char* to, unsigned char byte) {
    to[0] = kUpperHexDigits[byte >> 4];
    to[1] = kUpperHexDigits[byte & 0x0F];
    return to + 2;
}

} // namespace mavkit

#endif
