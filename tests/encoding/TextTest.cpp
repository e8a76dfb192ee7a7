// Bits and bytes, hexadecimal text, the string list, and hex digits in texts and files.
#include "device/Device.h"
#include "encoding/Hex.h"
#include "mavkit/encoding/Bits.h"
#include "mavkit/encoding/HexText.h"
#include "mavkit/encoding/MavString.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>

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
            const unsigned char byte = Byte(v);
            ASSERT_EQ((v & bit) != 0 ? 1 : 0, Get_BitValue(byte, n)) << v << ' ' << n;
            ASSERT_EQ(v | bit, Set_BitValue(byte, Byte(n))) << v << ' ' << n;
            ASSERT_EQ(v & ~bit, Clear_BitValue(byte, Byte(n))) << v << ' ' << n;
            ASSERT_EQ(v ^ bit, Reverse_BitValue(byte, Byte(n))) << v << ' ' << n;
        }
    }
    for (const int n : {INT_MIN, -1, 32, INT_MAX})
        EXPECT_EQ(0, Get_BitValue(0xFF, n)) << n;
}

TEST(Bits, PackedBytesAndCrcs) {
    EXPECT_EQ(0x8034, char_ushort(0x34, -128));
    EXPECT_EQ(0x12FF, char_ushort(-1, 0x12));
    EXPECT_EQ(0xFE34FF78U, char_ulong(0x78, -1, 0x34, -2));
    EXPECT_EQ(0x12FE56FFU, char_ulong(-1, 0x56, -2, 0x12));
    for (unsigned int i = 0; i < 256; ++i) {
        unsigned int entry = i << 8;
        for (int shift = 0; shift < 8; ++shift)
            entry = entry << 1 ^ ((entry & 0x8000) != 0 ? 0x11021 : 0);
        ASSERT_EQ(entry, crc_tbl[i]) << i;
    }
    unsigned short crcs[] = {0xFFFF, 0}; // CRC-16/IBM-3740 and CRC-16/XMODEM
    for (unsigned char digit = '1'; digit <= '9'; ++digit)
        for (unsigned short& crc : crcs)
            crc = Add_CRC(crc, digit);
    EXPECT_EQ(0x29B1, crcs[0]);
    EXPECT_EQ(0x31C3, crcs[1]);
}

TEST(HexText, EveryCharacter) {
    const std::string digits = "0123456789ABCDEF0123456789abcdef";
    for (int code = 0; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const std::size_t at = digits.find(c);
        const int folded = (code - (code >= 0x41 && code < 0x80 ? 0x37 : 0x30)) & 0x0F;
        EXPECT_EQ(at != digits.npos ? 1 : 0, isbcdchar(c)) << code;
        EXPECT_EQ(at != digits.npos ? int(at % 16) : folded, Char_No1Hex(c)) << code;
        const bool decimal = code >= '0' && code <= '9';
        EXPECT_EQ(decimal ? 90 + code - '0' : -2, No2Char_Dec1('9', c)) << code;
        EXPECT_EQ(decimal ? (code - '0') * 10 + 7 : -2, No2Char_Dec1(c, '7')) << code;
        EXPECT_EQ(digits[static_cast<std::size_t>(code % 16)], Get_Low4ofChar(Byte(code)));
    }
}

TEST(HexText, LinesAndNumbers) {
    for (const auto& c : kLines) {
        char key[16] = "old";
        char value[16] = "old";
        EXPECT_EQ(c.result, String_CutLine(key, value, const_cast<char*>(c.line), c.end)) << c.key;
        EXPECT_STREQ(c.key, key);
        EXPECT_STREQ(c.value, value);
    }
    for (const auto& c : kReads) {
        EXPECT_EQ(c.asShort, String_Asc4TouShort(c.digits)) << c.asLong;
        EXPECT_EQ(c.asLong, String_Asc8TouLong(const_cast<char*>(c.digits)));
    }
    EXPECT_EQ(0, String_Asc2TouChar(nullptr));
    EXPECT_EQ(0x3F, String_Asc2TouChar(std::string("3fF").data()));

    std::string text[] = {"~~~~", "~~~~~~", "~~~~~~~~~~", "~~~~~~~~~~"};
    String_uCharToAsc2(0x0A, text[0].data());
    String_uShortToAsc4(0xBEEF, text[1].data());
    String_uLongToAsc8(1, text[2].data());
    String_uLongToAsc8(static_cast<unsigned long>(0xFFF12345678ULL), text[3].data());
    EXPECT_EQ(std::string("0A\0~BEEF\0~00000001\0~12345678\0~", 30),
              text[0] + text[1] + text[2] + text[3]);
}

// The strings of a list from `from` on, each followed by a bar.
std::string Joined(const strings& list, std::size_t from) {
    std::string text;
    for (; from < list.size(); ++from)
        text += list[from] + "|";
    return text;
}

TEST(Strings, Split) {
    for (const auto& [text, delimiter, all, filled] : kSplits) {
        strings list; // grows for the first, and again for the second
        for (const bool keepEmpty : {true, false}) {
            const std::size_t before = list.size();
            const int count = list.addfrom(text, delimiter, keepEmpty);
            EXPECT_EQ(keepEmpty ? all : filled, Joined(list, before));
            EXPECT_EQ(static_cast<std::size_t>(count), list.size() - before) << all;
        }
    }
    strings own; // texts of the list itself, which move when it grows
    own.addfrom("1,2,3,4,5,6|,|over and over and over, again", "|", true);
    own.addfrom(own[0].c_str(), own[1].c_str(), true);
    own.addfrom(own[2].c_str(), own[1].c_str(), true);
    EXPECT_EQ("1|2|3|4|5|6|over and over and over| again|", Joined(own, 3));
}

// Another process may write the text while it is split.
TEST(Strings, SplitsATextThatChanges) {
    char text[] =
        "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
    std::atomic<bool> done{false};
    std::thread other([&] {
        volatile char* const middle = text + 40;
        while (!done)
            for (int i = 0; i < 30; ++i)
                middle[i] = middle[i] == ',' ? 'a' : ',';
    });
    for (int i = 0; i < 20000 && !HasFailure(); ++i) {
        strings list;
        const int count = list.addfrom(text, ",", false);
        EXPECT_EQ(static_cast<int>(list.size()), count);
        EXPECT_EQ(0, std::count(list.begin(), list.end(), ""));
    }
    done = true;
    other.join();
}

TEST(Strings, SplitReservesWhatItAppends) {
    for (const char* const delimiter : {",", ",,"}) {
        for (const bool keepEmpty : {true, false}) {
            std::string text(1024, ',');
            text.insert(512, "field");
            strings list;
            list.addfrom(text.c_str(), delimiter, keepEmpty);
            EXPECT_EQ(list.size(), list.capacity()) << delimiter << keepEmpty;
        }
    }
}

TEST(HexParse, TextAndFile) {
    ByteString bytes = Hex("55");
    EXPECT_EQ(0, ParseHexStr(nullptr, bytes));
    EXPECT_EQ(0, ParseHexStr("123 4:5", bytes));
    EXPECT_EQ(Hex("55 12 03 04 05"), bytes);
    const Device device;
    const char* const path = "/mnt/sd/meter.hex";
    // Pairs go on over the pieces of a long line, but not over a line end.
    std::string text = "012\n";
    ByteString expected = Hex("55 01 02");
    for (int i = 0; i < 750; ++i) {
        text += "aBcaBc";
        expected += Hex("AB CA BC");
    }
    // A zero byte hides the rest of its piece: of a line, or of 1022 characters of a long one.
    text += std::string("\n12\0 34\n56\n78\0", 14) + std::string(1020, '9') + "AB";
    bytes = Hex("55");
    device.Write(path, text);
    EXPECT_EQ(0, ParseHexFromFile(path, bytes));
    EXPECT_EQ(expected + Hex("12 56 78 9A 0B"), bytes);
    Device::Fail("fgets", EIO, 1, 1);
    for (const char* const none : {path, "/mnt/sd/none", "/mnt/sd"}) // a folder opens
        EXPECT_EQ(-1, ParseHexFromFile(none, bytes = Hex("55"))) << none;
    EXPECT_EQ(-1, ParseHexFromFile(nullptr, bytes));
    EXPECT_EQ(Hex("55"), bytes);
}

} // namespace
