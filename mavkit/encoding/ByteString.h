/// \file
/// The byte string: a growable, contiguous string of unsigned bytes. `BitMask` keeps its bits in
/// one, `IpcInfo` its payload fields, and the hex parsers append to one. Zero bytes are ordinary
/// content.

#ifndef MAVKIT_ENCODING_BYTESTRING_H
#define MAVKIT_ENCODING_BYTESTRING_H

#include <string>

#if defined(_LIBCPP_VERSION) && _LIBCPP_VERSION >= 180000

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <cwchar>

namespace mavkit {

/// The same for bytes as `std::char_traits` is for characters. The C++ standard does not ask for
/// traits of unsigned char: libstdc++ has them, libc++ gave up its own (deprecated in 18, removed
/// in 19).
struct ByteTraits {
    typedef unsigned char char_type;
    typedef int int_type;
    typedef std::streamoff off_type;
    typedef std::streampos pos_type;
    typedef std::mbstate_t state_type;

    static void assign(char_type& to, const char_type& from) { to = from; }
    static bool eq(char_type a, char_type b) { return a == b; }
    static bool lt(char_type a, char_type b) { return a < b; }
    static int compare(const char_type* a, const char_type* b, std::size_t count) {
        return count == 0 ? 0 : std::memcmp(a, b, count);
    }
    static std::size_t length(const char_type* text) {
        return std::strlen(reinterpret_cast<const char*>(text));
    }
    static const char_type* find(const char_type* bytes, std::size_t count, const char_type& byte) {
        return count == 0 ? nullptr
                          : static_cast<const char_type*>(std::memchr(bytes, byte, count));
    }
    static char_type* move(char_type* to, const char_type* from, std::size_t count) {
        return count == 0 ? to : static_cast<char_type*>(std::memmove(to, from, count));
    }
    static char_type* copy(char_type* to, const char_type* from, std::size_t count) {
        return move(to, from, count);
    }
    static char_type* assign(char_type* to, std::size_t count, char_type byte) {
        return count == 0 ? to : static_cast<char_type*>(std::memset(to, byte, count));
    }
    static int_type not_eof(int_type value) { return value == eof() ? 0 : value; }
    static char_type to_char_type(int_type value) { return static_cast<char_type>(value); }
    static int_type to_int_type(char_type byte) { return byte; }
    static bool eq_int_type(int_type a, int_type b) { return a == b; }
    static int_type eof() { return EOF; }
};

} // namespace mavkit

typedef std::basic_string<unsigned char, mavkit::ByteTraits> ByteString;

#else

/// A growable string of unsigned bytes; it may contain any byte value.
typedef std::basic_string<unsigned char> ByteString;

#endif

#endif
