#include "mavkit/diag/PrintString.h"

#include "mavkit/encoding/HexDigits.h"

#include <cstddef>
#include <cstring>

namespace {

constexpr unsigned kLineBytes = 36;

// What each byte is rendered as: two digits, a blank, and a fourth character without meaning.
struct Groups {
    char text[256][4];
};

constexpr Groups MakeGroups() {
    Groups groups = {};
    for (unsigned byte = 0; byte < 256; ++byte) {
        groups.text[byte][0] = mavkit::kUpperHexDigits[byte >> 4];
        groups.text[byte][1] = mavkit::kUpperHexDigits[byte & 0x0F];
        groups.text[byte][2] = ' ';
    }
    return groups;
}

constexpr Groups kGroups = MakeGroups();

} // namespace

void GetPrintString(std::string& out, const void* data, unsigned int length, bool asHex,
                    unsigned int maxLen) {
    if (data == nullptr)
        return;
    const auto* bytes = static_cast<const unsigned char*>(data);
    const unsigned count = maxLen != 0 && maxLen < length ? maxLen : length;
    if (!asHex) {
        out.reserve(out.size() + 8 + count);
        out.append(static_cast<const char*>(data), count);
    } else if (count != 0) {
        // Room for the line feeds as well, so that the text is written in place, in one pass. Each
        // group is copied as the four characters of the table, which takes one load and one store:
        // the fourth is overwritten by what follows, and after the last group it is cut off.
        const std::size_t start = out.size();
        const std::size_t added = std::size_t{count} * 3 + count / kLineBytes;
        out.reserve(start + 8 + added);
        out.resize(start + added + 1);
        char* to = &out[start];
        for (const unsigned char* end = bytes + count; bytes != end;) {
            const std::size_t left = static_cast<std::size_t>(end - bytes);
            const unsigned char* lineEnd = left < kLineBytes ? end : bytes + kLineBytes;
            for (; bytes != lineEnd; ++bytes, to += 3)
                std::memcpy(to, kGroups.text[*bytes], sizeof kGroups.text[0]);
            if (left >= kLineBytes)
                *to++ = '\n';
        }
        out.resize(start + added);
    }
    if (count < length)
        out.append("......");
}

void GetBcdTimeString(std::string& out, const unsigned char* time) {
    if (time == nullptr)
        return;
    char text[sizeof "2024-03-05 06:07:08"];
    out += mavkit::FillHex("##-#-# #:#:#", time, text);
}
