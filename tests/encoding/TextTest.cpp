// Bits and bytes, hexadecimal text, the string list, and hex digits in texts and files.
#include "device/Device.h"
#include "encoding/Hex.h"
#include "mavkit/encoding/Bits.h"
#include "mavkit/encoding/HexText.h"
#include "mavkit/encoding/MavString.h"

#include <cerrno>

namespace {

// clang-format off
const struct { const char* digits; unsigned int asShort, asLong; } kReads[] = {
    {"", 0, 0}, {"1A", 0x1A, 0x1A}, {"12345", 0x1234, 0x12345}, {"1a2b3c4D", 0x1A2B, 0x1A2B3C4D},
    {"FFFFFFFF9", 0xFFFF, 0xFFFFFFFF}, {nullptr, 0, 0}};

const struct { const char* line; char end; int result; const char *key, *value; } kLines[] = {
    {"path=/a=b", '=', 0, "path", "/a=b"}, {"\tk = v \n", '=', 0, "\tk ", " v \n"},
    {"=x", '=', 0, "", "x"},               {"a\xFF", '\xFF', 0, "a", ""},
    {"nothing", '=', -2, "", ""}, {"ends", '\0', -2, "", ""}, {nullptr, '=', -2, "", ""}};

const char* const kSplits[][4] = { // the fields with the empty ones, and without
    {",a,b,,c,", ",", "|a|b||c||", "a|b|c|"},
    {"a---b-", "--", "a|-b-|", "a|-b-|"}, {nullptr, ",", "", ""},
    {"aabaabaac", "aabaac", "aab||", "aab|"}, {"", "", "|", "|"}, {"a,b", nullptr, "a,b|", "a,b|"}};

// clang-format on

TEST(Bits, EveryBitOfEveryByte) {
    for (int v = 0; v < 256; ++v) {
        for (int n = 0; n < 256; ++n) {
            const int bit = n < 8 ? 1 << n : 0;
            ASSERT_TRUE(Get_BitValue(Byte(v), n == 255 ? INT_MIN : n) == ((v & bit) != 0 ? 1 : 0) &&
                        Set_BitValue(Byte(v), Byte(n)) == (v | bit) &&
                        Clear_BitValue(Byte(v), Byte(n)) == (v & ~bit) &&
                        Reverse_BitValue(Byte(v), Byte(n)) == (v ^ bit))
                << v << ' ' << n;
        }
    }
}

TEST(Bits, PackedBytesAndCrcs) {
    EXPECT_TRUE(char_ushort(0x34, -128) == 0x8034 && char_ushort(-1, 0x12) == 0x12FF);
    EXPECT_EQ(char_ulong(0x78, -1, 0x34, -2), 0xFE34FF78U);
    EXPECT_EQ(char_ulong(-1, 0x56, -2, 0x12), 0x12FE56FFU);
    for (unsigned int i = 0; i < 256; ++i) {
        unsigned int entry = i << 8;
        for (int shift = 0; shift < 8; ++shift)
            entry = entry << 1 ^ ((entry & 0x8000) != 0 ? 0x11021 : 0);
        ASSERT_EQ(crc_tbl[i], entry) << i;
    }
    unsigned short crcs[] = {0xFFFF, 0}; // CRC-16/IBM-3740 and CRC-16/XMODEM
    for (unsigned char digit = '1'; digit <= '9'; ++digit)
        for (unsigned short& crc : crcs)
            crc = Add_CRC(crc, digit);
    EXPECT_TRUE(crcs[0] == 0x29B1 && crcs[1] == 0x31C3);
}

TEST(HexText, EveryCharacter) {
    const std::string digits = "0123456789ABCDEF0123456789abcdef";
    for (int code = 0; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const size_t at = digits.find(c);
        const int folded = code - (code >= 0x41 && code < 0x80 ? 0x37 : 0x30);
        EXPECT_EQ(isbcdchar(c), at != std::string::npos) << code;
        EXPECT_EQ(Char_No1Hex(c), at != std::string::npos ? at % 16 : folded & 0x0F) << code;
        const bool decimal = code >= '0' && code <= '9';
        EXPECT_EQ(No2Char_Dec1('9', c), decimal ? 90 + code - '0' : -2) << code;
        EXPECT_EQ(No2Char_Dec1(c, '7'), decimal ? (code - '0') * 10 + 7 : -2) << code;
        EXPECT_EQ(Get_Low4ofChar(Byte(code)), digits[static_cast<size_t>(code % 16)]);
    }
}

TEST(HexText, LinesAndNumbers) {
    for (const auto& c : kLines) {
        char key[16] = "old";
        char value[16] = "old";
        EXPECT_EQ(String_CutLine(key, value, const_cast<char*>(c.line), c.end), c.result);
        EXPECT_TRUE(key == std::string(c.key) && value == std::string(c.value)) << c.key;
    }
    for (const auto& c : kReads) {
        EXPECT_EQ(String_Asc4TouShort(c.digits), c.asShort) << c.asLong;
        EXPECT_EQ(String_Asc8TouLong(const_cast<char*>(c.digits)), c.asLong);
    }
    EXPECT_EQ(String_Asc2TouChar(nullptr), 0);
    EXPECT_EQ(String_Asc2TouChar(std::string("3fF").data()), 0x3F);

    std::string text[] = {"~~~~", "~~~~~~", "~~~~~~~~~~", "~~~~~~~~~~"};
    String_uCharToAsc2(0x0A, text[0].data());
    String_uShortToAsc4(0xBEEF, text[1].data());
    String_uLongToAsc8(1, text[2].data());
    String_uLongToAsc8(static_cast<unsigned long>(0xFFF12345678ULL), text[3].data());
    EXPECT_EQ(text[0] + text[1] + text[2] + text[3],
              std::string("0A\0~BEEF\0~00000001\0~12345678\0~", 30));
}

// The strings of a list from one on, with a bar behind each.
std::string Joined(const strings& list, size_t from) {
    std::string text;
    for (; from < list.size(); ++from)
        text += list[from] + "|";
    return text;
}

TEST(Strings, Split) {
    for (const auto& [text, delimiter, all, filled] : kSplits) {
        strings list; // grows for the first, and again for the second
        for (const bool keepEmpty : {true, false}) {
            const size_t before = list.size();
            const int count = list.addfrom(text, delimiter, keepEmpty);
            EXPECT_EQ(Joined(list, before), keepEmpty ? all : filled);
            EXPECT_EQ(list.size() - before, static_cast<size_t>(count)) << all;
        }
    }
    strings own; // its own texts, which move when it grows
    own.addfrom("1,2,3,4,5,6|,|over and over and over, again", "|", true);
    own.addfrom(own[0].c_str(), own[1].c_str(), true);
    own.addfrom(own[2].c_str(), own[1].c_str(), true);
    EXPECT_EQ(Joined(own, 3), "1|2|3|4|5|6|over and over and over| again|");
}

TEST(HexParse, TextAndFile) {
    ByteString bytes = Hex("55");
    EXPECT_EQ(ParseHexStr(nullptr, bytes), 0);
    EXPECT_EQ(ParseHexStr("123 4:5", bytes), 0);
    EXPECT_EQ(bytes, Hex("55 12 03 04 05"));
    const Device device;
    const char* const path = "/mnt/sd/meter.hex";
    // Pairs go on over the pieces of a long line, but not over a line end.
    std::string text = "012\n";
    ByteString expected = Hex("55 01 02");
    for (int i = 0; i < 750; ++i) {
        text += "aBcaBc";
        expected += Hex("AB CA BC");
    }
    text += std::string("\n12\0 34\n56", 10); // hidden by a zero byte: the rest of its line
    bytes = Hex("55");
    device.Write(path, text);
    EXPECT_EQ(ParseHexFromFile(path, bytes), 0);
    EXPECT_EQ(bytes, expected + Hex("12 56"));
    Device::Fail("fgets", EIO, 1, 1);
    for (const char* const none : {path, "/mnt/sd/none", "/mnt/sd"}) // a directory opens, no more
        EXPECT_EQ(ParseHexFromFile(none, bytes = Hex("55")), -1) << none;
    EXPECT_EQ(ParseHexFromFile(nullptr, bytes), -1);
    EXPECT_EQ(bytes, Hex("55"));
}

} // namespace
