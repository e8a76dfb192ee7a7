// Hex digits in any text, and the bytes read written and read again.
#include "mavkit/encoding/HexText.h"
#include "Fuzz.h"
#include "mavkit/encoding/MavString.h"

FUZZ_TARGET(HexText) {
    const std::string gap = in.Text(in.Byte() % 4);
    const std::string text = in.Text(in.left);
    const std::string digits = "0123456789abcdefABCDEF";
    ByteString wanted(1, 'w');
    ByteString bytes = wanted;
    for (size_t at = 0; (at = text.find_first_of(digits, at)) != std::string::npos; at += 2) {
        const std::string pair = text.substr(at, 2);
        const std::string byte = pair.substr(0, pair.find_first_not_of(digits));
        wanted += static_cast<unsigned char>(std::stoul(byte, nullptr, 16));
    }
    CHECK(ParseHexStr(text.c_str(), bytes) == 0 && bytes == wanted);

    std::string written;
    for (const unsigned char byte : bytes) {
        char two[3];
        String_uCharToAsc2(byte, two);
        CHECK(String_Asc2TouChar(two) == byte);
        written += two + gap;
    }
    ByteString again;
    CHECK(ParseHexStr(written.c_str(), again) == 0);
    CHECK(again == bytes || gap.find_first_of(digits) != std::string::npos);
}
