#include "mavkit/diag/PrintString.h"

#include "mavkit/encoding/HexDigits.h"
#include "mavkit/encoding/Word.h"
#include "mavkit/time/DateText.h"

#include <cstddef>
#include <cstdint>

namespace {

constexpr unsigned kLineBytes = 36;

// The text of each byte: two digits, a blank, and a fourth character without meaning, as one word
// in the byte order of memory.
struct Groups {
    std::uint32_t words[256];
};

constexpr Groups MakeGroups() {
    constexpr bool kLittle = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    Groups groups = {};
    for (unsigned byte = 0; byte < 256; ++byte) {
        const char text[3] = {mavkit::kUpperHexDigits[byte >> 4],
                              mavkit::kUpperHexDigits[byte & 0x0F], ' '};
        for (unsigned i = 0; i < sizeof text; ++i)
            groups.words[byte] |= std::uint32_t{static_cast<unsigned char>(text[i])}
                                  << 8 * (kLittle ? i : 3 - i);
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
    const std::size_t start = out.size();
    const std::size_t added = asHex ? std::size_t{count} * 3 + count / kLineBytes : count;
    // A sum that does not fit 32 bits must throw too, instead of asking for too little.
    out.reserve(count <= out.max_size() / 4 ? start + 8 + added : std::string::npos);
    if (!asHex) {
        out.append(static_cast<const char*>(data), count);
    } else if (count != 0) {
        // There is room for the line feeds as well, so the text is written in place, in one pass.
        // Each group is stored as a word of four characters: the fourth is overwritten by what
        // follows, and cut off after the last group.
        out.resize(start + added + 1);
        char* to = &out[start];
        for (const unsigned char* end = bytes + count; bytes != end;) {
            const std::size_t left = static_cast<std::size_t>(end - bytes);
            const unsigned char* lineEnd = left < kLineBytes ? end : bytes + kLineBytes;
            do {
                reinterpret_cast<mavkit::Loose<std::uint32_t>*>(to)->value =
                    kGroups.words[*bytes++];
                to += 3;
            } while (bytes != lineEnd);
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
    char text[mavkit::kDateAndTimeSize];
    out += mavkit::FillHex(mavkit::kDateAndTime, time, text);
}
