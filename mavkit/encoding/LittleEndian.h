// Unsigned 32-bit numbers in byte buffers, least significant byte first. Private to the library:
// the bit masks and the request records share it.
#ifndef MAVKIT_ENCODING_LITTLEENDIAN_H
#define MAVKIT_ENCODING_LITTLEENDIAN_H

namespace mavkit {

inline void PutNumber32(unsigned char* bytes, unsigned int value) {
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(value >> 8 * i);
}

inline unsigned int GetNumber32(const unsigned char* bytes) {
    return bytes[0] | static_cast<unsigned int>(bytes[1]) << 8 |
           static_cast<unsigned int>(bytes[2]) << 16 | static_cast<unsigned int>(bytes[3]) << 24;
}

} // namespace mavkit

#endif
