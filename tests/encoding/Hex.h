// Bytes as texts of hexadecimal digits, for the tables of the encodings' tests.
#ifndef MAVKIT_TESTS_HEX_H
#define MAVKIT_TESTS_HEX_H

#include "mavkit/encoding/ByteString.h"

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>

// The bytes of "45 23 01".
inline ByteString Hex(const std::string& text) {
    ByteString bytes;
    for (std::size_t at = 0; (at = text.find_first_not_of(' ', at)) != text.npos; at += 2)
        bytes += static_cast<unsigned char>(std::stoi(text.substr(at, 2), nullptr, 16));
    return bytes;
}

template <typename T>
unsigned char Byte(T value) {
    return static_cast<unsigned char>(value);
}

#endif
