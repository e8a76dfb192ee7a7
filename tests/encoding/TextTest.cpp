// Bits and bytes, hexadecimal text, the string list, and hex digits in texts and files.
#include "device/Device.h"
#include "mavkit/encoding/Bits.h"
#include "mavkit/encoding/HexText.h"
#include "mavkit/encoding/MavString.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <tuple>

namespace {

using Fields = std::vector<std::string>;

TEST(Bits, EveryBitOfEveryByte) {
    for (int v = 0; v < 256; ++v) {
        const auto byte = static_cast<unsigned char>(v);
        for (int n = 0; n < 256; ++n) {
            const auto number = static_cast<unsigned char>(n);
            const int bit = n < 8 ? 1 << n : 0;
            ASSERT_EQ(Get_BitValue(byte, n), (v & bit) != 0) << v << ' ' << n;
            ASSERT_EQ(Set_BitValue(byte, number), v | bit) << v << ' ' << n;
            ASSERT_EQ(Clear_BitValue(byte, number), v & ~bit) << v << ' ' << n;
            ASSERT_EQ(Reverse_BitValue(byte, number), v ^ bit) << v << ' ' << n;
        }
        for (const int outside : {-1, INT_MIN, 32, INT_MAX}) {
            ASSERT_EQ(Get_BitValue(byte, outside), 0) << outside;
        }
    }
}

TEST(Bits, PackedBytesCarryNoSign) {
    EXPECT_EQ(char_ushort(0x34, 0x12), 0x1234);
    EXPECT_EQ(char_ushort(-1, 0), 0x00FF);
    EXPECT_EQ(char_ushort(0, -128), 0x8000);
    EXPECT_EQ(char_ulong(0x78, 0x56, 0x34, 0x12), 0x12345678U);
    EXPECT_EQ(char_ulong(-1, 0, -1, 0), 0x00FF00FFU);
    EXPECT_EQ(char_ulong(0, -1, 0, -1), 0xFF00FF00U);
}

TEST(Crc, TableAndCheckValues) {
    for (unsigned int i = 0; i < 256; ++i) {
        unsigned int entry = i << 8;
        for (int shift = 0; shift < 8; ++shift) {
            entry = entry << 1 ^ ((entry & 0x8000) != 0 ? 0x11021 : 0);
        }
        ASSERT_EQ(crc_tbl[i], entry) << i;
    }
    EXPECT_EQ(Add_CRC(0xFFFF, 0x00), 0xE1F0);
    unsigned short ibm3740 = 0xFFFF;
    unsigned short xmodem = 0;
    for (unsigned char digit = '1'; digit <= '9'; ++digit) {
        ibm3740 = Add_CRC(ibm3740, digit);
        xmodem = Add_CRC(xmodem, digit);
    }
    EXPECT_EQ(ibm3740, 0x29B1);
    EXPECT_EQ(xmodem, 0x31C3);
}

TEST(HexText, EveryCharacter) {
    const std::string digits = "0123456789ABCDEF0123456789abcdef";
    for (int code = 0; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const size_t at = code == 0 ? std::string::npos : digits.find(c);
        EXPECT_EQ(isbcdchar(c), at != std::string::npos) << code;
        const int folded = static_cast<signed char>(c) < 0x41 ? code - 0x30 : code - 0x37;
        EXPECT_EQ(Char_No1Hex(c), folded & 0x0F) << code;
        if (at != std::string::npos) {
            EXPECT_EQ(Char_No1Hex(c), at % 16) << code;
        }
        const bool decimal = code >= '0' && code <= '9';
        EXPECT_EQ(No2Char_Dec1('9', c), decimal ? 90 + code - '0' : -2) << code;
        EXPECT_EQ(No2Char_Dec1(c, '7'), decimal ? (code - '0') * 10 + 7 : -2) << code;
        EXPECT_EQ(Get_Low4ofChar(static_cast<unsigned char>(code)),
                  digits[static_cast<size_t>(code % 16)]);
    }
}

TEST(HexText, Readers) {
    using Case = std::tuple<const char*, unsigned int, unsigned int>;
    for (const auto& [digits, asShort, asLong] : {
             Case{"", 0, 0},
             Case{"1A", 0x1A, 0x1A},
             Case{"12345", 0x1234, 0x12345},
             Case{"1a2b3c4D", 0x1A2B, 0x1A2B3C4D},
             Case{"FFFFFFFF9", 0xFFFF, 0xFFFFFFFF},
         }) {
        char text[16];
        strcpy(text, digits);
        EXPECT_EQ(String_Asc4TouShort(text), asShort) << text;
        EXPECT_EQ(String_Asc8TouLong(text), asLong) << text;
    }
    EXPECT_EQ(String_Asc2TouChar(nullptr), 0);
    EXPECT_EQ(String_Asc4TouShort(nullptr), 0);
    EXPECT_EQ(String_Asc8TouLong(nullptr), 0U);
    char one[] = "A";
    char two[] = "3fF";
    EXPECT_EQ(String_Asc2TouChar(one), 0xA0);
    EXPECT_EQ(String_Asc2TouChar(two), 0x3F);
}

TEST(HexText, WritersFillTheirWidthAndNoMore) {
    char text[10];
    const auto clear = [&text] { memset(text, '~', sizeof text); };
    clear();
    String_uCharToAsc2(0x0A, text);
    EXPECT_EQ(std::string(text, 4), std::string("0A\0~", 4));
    clear();
    String_uShortToAsc4(0xBEEF, text);
    EXPECT_EQ(std::string(text, 6), std::string("BEEF\0~", 6));
    clear();
    String_uLongToAsc8(1, text);
    EXPECT_EQ(std::string(text, 10), std::string("00000001\0~", 10));
    String_uLongToAsc8(static_cast<unsigned long>(0xFFF12345678ULL), text);
    EXPECT_STREQ(text, "12345678");
}

TEST(HexText, CutLine) {
    using Case = std::tuple<const char*, char, int, const char*, const char*>;
    for (const auto& [text, separator, result, left, right] : {
             Case{"path=/a=b", '=', 0, "path", "/a=b"},
             Case{"=x", '=', 0, "", "x"},
             Case{"\tk = v \n", '=', 0, "\tk ", " v \n"},
             Case{"a\xFF", '\xFF', 0, "a", ""},
             Case{"nothing", '=', -2, "", ""},
             Case{"ends", '\0', -2, "", ""},
         }) {
        char line[16];
        strcpy(line, text);
        char key[16] = "old";
        char value[16] = "old";
        EXPECT_EQ(String_CutLine(key, value, line, separator), result) << text;
        EXPECT_STREQ(key, left) << text;
        EXPECT_STREQ(value, right) << text;
        EXPECT_STREQ(line, text);
    }
    char key[] = "old";
    char value[] = "old";
    EXPECT_EQ(String_CutLine(key, value, nullptr, '='), -2);
    EXPECT_STREQ(key, "");
    EXPECT_STREQ(value, "");
}

TEST(Strings, Split) {
    using Case = std::tuple<const char*, const char*, Fields>;
    strings list;
    Fields expected;
    for (const auto& [text, delimiter, fields] : {
             Case{"a,b,,c", ",", {"a", "b", "", "c"}},
             Case{"a,", ",", {"a", ""}},
             Case{",", ",", {"", ""}},
             Case{",,a", ",", {"", "", "a"}},
             Case{"", ",", {""}},
             Case{"a--b", "--", {"a", "b"}},
             Case{"a-b", "--", {"a-b"}},
             Case{"a---b-", "--", {"a", "-b-"}},
             Case{"aabaabaac", "aabaac", {"aab", ""}},
             Case{"longer than fits without the heap\xFFz",
                  "\xFF",
                  {"longer than fits without the heap", "z"}},
         }) {
        EXPECT_EQ(list.addfrom(text, delimiter, true), static_cast<int>(fields.size())) << text;
        expected.insert(expected.end(), fields.begin(), fields.end());
        Fields filled = fields;
        filled.erase(std::remove(filled.begin(), filled.end(), ""), filled.end());
        EXPECT_EQ(list.addfrom(text, delimiter, false), static_cast<int>(filled.size())) << text;
        expected.insert(expected.end(), filled.begin(), filled.end());
    }
    EXPECT_EQ(list, expected);

    strings whole;
    EXPECT_EQ(whole.addfrom(nullptr, ",", true), 0);
    EXPECT_EQ(whole.addfrom("a,b", nullptr, false), 1);
    EXPECT_EQ(whole.addfrom("", "", false), 1);
    EXPECT_EQ(whole, (Fields{"a,b", ""}));
}

TEST(Strings, SplitsItsOwnTexts) {
    strings list;
    list.addfrom("1,2,3,4,5,6|,|over and over and over, again", "|", true);
    list.addfrom(list[0].c_str(), list[1].c_str(), true);
    list.addfrom(list[2].c_str(), list[1].c_str(), true);
    EXPECT_EQ(list, (Fields{"1,2,3,4,5,6", ",", "over and over and over, again", "1", "2", "3", "4",
                            "5", "6", "over and over and over", " again"}));
}

TEST(HexParse, Text) {
    using Case = std::tuple<const char*, ByteString>;
    ByteString all;
    ByteString expected;
    for (const auto& [text, bytes] : {
             Case{"", {}},
             Case{"g-xyz!\xB1", {}},
             Case{"0A 1b", {0x0A, 0x1B}},
             Case{"ABC", {0xAB, 0x0C}},
             Case{"12:34:5", {0x12, 0x34, 0x05}},
             Case{"123 4", {0x12, 0x03, 0x04}},
             Case{"1\n2", {0x01, 0x02}},
             Case{"  7", {0x07}},
         }) {
        EXPECT_EQ(ParseHexStr(text, all), 0);
        EXPECT_EQ(all, expected += bytes) << text;
    }
    EXPECT_EQ(ParseHexStr(nullptr, all), 0);
    EXPECT_EQ(all, expected);
}

TEST(HexParse, File) {
    const Device device;
    const char* const path = "/mnt/sd/meter.hex";
    const ByteString before = {0x55};

    ByteString bytes = before;
    EXPECT_EQ(ParseHexFromFile(path, bytes), -1);
    EXPECT_EQ(ParseHexFromFile(nullptr, bytes), -1);
    EXPECT_EQ(ParseHexFromFile("/mnt/sd", bytes), -1) << "a directory opens but cannot be read";
    device.Write(path, "");
    EXPECT_EQ(ParseHexFromFile(path, bytes), 0);
    EXPECT_EQ(bytes, before);

    // Pairs go on over the pieces of a long line, but not over a line end.
    std::string text = "012\n";
    ByteString expected = {0x55, 0x01, 0x02};
    for (int i = 0; i < 1500; ++i) {
        text += "aBc";
        expected += i % 2 == 0 ? ByteString{0xAB} : ByteString{0xCA, 0xBC};
    }
    device.Write(path, text);
    EXPECT_EQ(ParseHexFromFile(path, bytes), 0);
    EXPECT_EQ(bytes, expected);

    // A zero byte hides the rest of its line.
    device.Write(path, std::string("12\0 34\n56", 9));
    bytes = before;
    EXPECT_EQ(ParseHexFromFile(path, bytes), 0);
    EXPECT_EQ(bytes, (ByteString{0x55, 0x12, 0x56}));

    device.Write(path, "12\n34\n");
    bytes = before;
    Device::Fail("fgets", EIO, 1, 1);
    EXPECT_EQ(ParseHexFromFile(path, bytes), -1);
    EXPECT_EQ(bytes, before);
}

} // namespace
