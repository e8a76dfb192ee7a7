// Bytes as upper-case hex digits.
#ifndef MAVKIT_ENCODING_HEXDIGITS_H
#define MAVKIT_ENCODING_HEXDIGITS_H

namespace mavkit {

inline constexpr char kUpperHexDigits[] = "0123456789ABCDEF";

// Writes `pattern` at `to`, each '#' as the two digits of the next byte, and a NUL; returns `to`.
inline char* FillHex(const char* pattern, const void* bytes, char* to) {
    const unsigned char* next = static_cast<const unsigned char*>(bytes);
    char* out = to;
    for (; *pattern != '\0'; ++pattern) {
        if (*pattern == '#') {
            *out++ = kUpperHexDigits[*next >> 4];
            *out++ = kUpperHexDigits[*next++ & 0x0F];
        } else {
            *out++ = *pattern;
        }
    }
    *out = '\0';
    return to;
}

} // namespace mavkit

#endif
