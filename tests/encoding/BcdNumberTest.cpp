// Numbers in packed BCD, in both byte orders. Any bytes, values and counts are tried in
// fuzz/BcdNumbers.cpp.
#include "mavkit/encoding/BcdNumber.h"
#include "encoding/Hex.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <random>

namespace {

// The six bytes of a number, the high ones first.
ByteString Amount(long long number) {
    return Hex(std::to_string(1000000000000 + number).substr(1));
}

char* Chars(ByteString& bytes) { return reinterpret_cast<char*>(&bytes[0]); }

TEST(HighFirst, BytesAndAmounts) {
    for (int i = 0; i < 128; ++i) {
        const int last = i % 100;
        EXPECT_EQ(last / 10 * 16 + last % 10, cbcd(static_cast<char>(i))) << i;
        EXPECT_EQ(last, bcdc(static_cast<char>(cbcd(static_cast<char>(i))))) << i;
    }
    EXPECT_EQ(10, bcdc(0x0A));
    EXPECT_EQ(0, Comp_BCD(nullptr, nullptr, 0));
    std::mt19937_64 random(1);
    for (int i = 0; i < 2000; ++i) {
        const unsigned long long limit = i % 2 == 0 ? 1000000000000 : 300;
        const auto a = static_cast<long long>(random() % limit);
        const auto b = static_cast<long long>(random() % limit);
        const unsigned char count = i % 3 == 0 ? 1 : 3;
        const long long unit = count == 1 ? 10000000000 : 1000000;
        const long long high = a / unit - b / unit;
        ByteString left = Amount(a) + Byte(0x55); // with a byte after it that stays
        ByteString right = Amount(b) + Byte(0x55);
        ByteString own(7, 0x55);
        ByteString& out = i % 3 == 0 ? own : i % 3 == 1 ? left : right; // or an operand
        ASSERT_EQ((high > 0) - (high < 0), Comp_BCD(Chars(left), Chars(right), count))
            << a << " " << b;
        ASSERT_EQ(a < b ? -2 : 0, Sub_84BCD(Chars(out), Chars(left), Chars(right)));
        ASSERT_EQ(Amount(a < b ? 0 : a - b) + Byte(0x55), out) << a << " - " << b;
    }
}

TEST(LowFirst, FromDouble) {
    // The longest text of all: 309 integer digits of which the last 255 fit, and 255 decimals.
    char text[700];
    std::snprintf(text, sizeof text, "%.255f", DBL_MAX);
    unsigned char counts[] = {255, 255};
    ByteString longest(255, 0);
    EXPECT_EQ(0, DoubleToBCD(-DBL_MAX, counts[0], counts[1], &longest[0]));
    ByteString digits = Hex(std::string(text + 54, 255) + (text + 310));
    std::reverse(digits.begin(), digits.end());
    EXPECT_EQ(digits, longest);
    // The smallest value that is not treated as zero.
    counts[0] = 0, counts[1] = 4;
    EXPECT_EQ(0, DoubleToBCD(0.0001, counts[0], counts[1], &longest[0]));
    EXPECT_EQ(Hex("01 00"), longest.substr(0, 2));
}

// clang-format off
const struct {
    double value; unsigned char decimals, integers, size; int result; const char* bytes;
} kSigned[] = { // into bytes that are EE before
    {-1.5, 2, 0, 3, -1, "EE EE EE EE EE"}, {-1.5, 2, 6, 3, 0, "50 D1 00 EE EE"},
    {1.5, 2, 6, 1, 0, "50 01 00 EE EE"},   {-12.5, 1, 2, 2, 0, "25 01 EE EE EE"}, // no sign
    {NAN, 2, 3, 1, 0, "00 00 00 EE EE"},   {-INFINITY, 0, 1, 0, 0, "00 EE EE EE EE"}};
// clang-format on

TEST(LowFirst, FromDoubleWithItsSign) {
    for (const auto& c : kSigned) {
        ByteString out(5, 0xEE);
        EXPECT_EQ(c.result, basechange_reverse(c.value, c.decimals, c.integers, c.size, &out[0]));
        EXPECT_EQ(Hex(c.bytes), out) << c.value;
    }
}

TEST(LowFirst, ToDoubleAndToInteger) {
    unsigned char source[16] = {0x45, 0x23, 0xF1};
    EXPECT_EQ(123.45, BCDToDouble(source, 3, 2)); // the nibble after the digits is ignored
    const unsigned char one[12] = {0x01};
    for (const int decimals : {21, 22, 23}) // up to and beyond the powers that a double has exactly
        EXPECT_DOUBLE_EQ(std::pow(10.0, -decimals), BCDToDouble(one, 0, Byte(decimals)));
    unsigned char number[] = {0x78, 0x56, 0x34, 0x12, 0x99};
    const int kCounts[][2] = {{4, 12345678}, {1, 78}, {0, 0},       {-1, 0},
                              {INT_MIN, 0},  {5, -1}, {INT_MAX, -1}};
    for (const auto& [count, value] : kCounts)
        EXPECT_EQ(value, BcdToDec(count, number)) << count;
    EXPECT_EQ(-1, BcdToDec(1, nullptr));
}

TEST(LowFirst, ExchangeRefusesMoreThanSixteenDigits) {
    for (int over = 0; over < 5; ++over) {
        const unsigned char digits[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0x12};
        ByteString source(digits, 16);
        ByteString target(16, 0xEE);
        const auto count = [over](int which) { return Byte(over == which ? 17 : 16); };
        const int result =
            BCDExchange(&source[0], count(0), count(1), &target[0], count(2), count(3));
        EXPECT_EQ(over < 4 ? -1 : 0, result) << over;
        EXPECT_EQ(over < 4 ? ByteString(16, 0xEE) : source, target) << over;
    }
}

TEST(PowersOfTen, AndWhatTheySum) {
    for (int e = -330; e <= 330; ++e) {
        const double power = std::pow(10.0, std::abs(e));
        ASSERT_EQ(e < 0 ? 1.0 / power : power, mypow(e)) << e;
    }
    EXPECT_EQ(0.0, mypow(INT_MIN));
    EXPECT_EQ(INFINITY, mypow(INT_MAX));
    const unsigned char number[] = {0x45, 0x23, 0x01};
    EXPECT_EQ(123.45, basechange(-2, 6, number));
    EXPECT_EQ(345.0, basechange(0, 3, number));
    EXPECT_EQ(0.0, basechange(5, 0, nullptr));
    EXPECT_EQ(0.0, basechange(INT_MIN, 6, number));
    const unsigned char tens[] = {0x20};
    EXPECT_EQ(INFINITY, basechange(INT_MAX, 2, tens)); // the power is beyond an int
    EXPECT_EQ(1e308, basechange(308, 2, number + 2));  // with a zero at a power that is infinite
}

} // namespace
