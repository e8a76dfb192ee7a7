// Numbers in packed BCD, in both byte orders. Any bytes, values and counts are tried in
// fuzz/BcdNumbers.cpp.
#include "mavkit/encoding/BcdNumber.h"
#include "encoding/Hex.h"

#include <cfloat>
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
        EXPECT_EQ(cbcd(static_cast<char>(i)), last / 10 * 16 + last % 10) << i;
        EXPECT_EQ(bcdc(static_cast<char>(cbcd(static_cast<char>(i)))), last) << i;
    }
    EXPECT_EQ(bcdc(0x0A), 10);
    EXPECT_EQ(Comp_BCD(nullptr, nullptr, 0), 0);
    std::mt19937_64 random(1);
    for (int i = 0; i < 2000; ++i) {
        const unsigned long long limit = i % 2 == 0 ? 1000000000000 : 300;
        const auto a = static_cast<long long>(random() % limit);
        const auto b = static_cast<long long>(random() % limit);
        const long long high = a / 1000000 - b / 1000000;
        ByteString left = Amount(a) + Byte(0x55); // with a byte behind that stays
        ByteString right = Amount(b) + Byte(0x55);
        ByteString own(7, 0x55);
        ByteString& out = i % 3 == 0 ? own : i % 3 == 1 ? left : right; // or over an operand
        ASSERT_EQ(Comp_BCD(Chars(left), Chars(right), 3), (high > 0) - (high < 0)) << a << " " << b;
        ASSERT_EQ(Sub_84BCD(Chars(out), Chars(left), Chars(right)), a < b ? -2 : 0);
        ASSERT_EQ(out, Amount(a < b ? 0 : a - b) + Byte(0x55)) << a << " - " << b;
    }
}

TEST(LowFirst, FromDouble) {
    // The longest text of all: 309 integer digits of which the last 255 fit, and 255 decimals.
    char text[700];
    snprintf(text, sizeof text, "%.255f", DBL_MAX);
    unsigned char counts[] = {255, 255};
    ByteString longest(255, 0);
    EXPECT_EQ(DoubleToBCD(-DBL_MAX, counts[0], counts[1], &longest[0]), 0);
    ByteString digits = Hex(std::string(text + 54, 255) + (text + 310));
    std::reverse(digits.begin(), digits.end());
    EXPECT_EQ(longest, digits);
    // The smallest that is not taken for zero.
    counts[0] = 0, counts[1] = 4;
    EXPECT_EQ(DoubleToBCD(0.0001, counts[0], counts[1], &longest[0]), 0);
    EXPECT_EQ(longest.substr(0, 2), Hex("01 00"));
    // With its sign, which is the nibble D.
    unsigned char out[] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(basechange_reverse(-1.5, 2, 0, 3, out), -1);
    EXPECT_EQ(basechange_reverse(-1.5, 2, 6, 3, out), 0);
    EXPECT_EQ(ByteString(out, 4), Hex("50 D1 00 EE"));
    EXPECT_EQ(basechange_reverse(NAN, 2, 3, 1, out), 0); // zeros, beyond the size asked for too
    EXPECT_EQ(ByteString(out, 4), Hex("00 00 00 EE"));
}

TEST(LowFirst, ToDoubleAndToInteger) {
    const unsigned char source[16] = {0x45, 0x23, 0xF1};
    EXPECT_EQ(BCDToDouble(source, 3, 2), 123.45); // the nibble beyond does not count
    unsigned char number[] = {0x78, 0x56, 0x34, 0x12, 0x99};
    const int kCounts[][2] = {{4, 12345678}, {1, 78}, {0, 0},       {-1, 0},
                              {INT_MIN, 0},  {5, -1}, {INT_MAX, -1}};
    for (const auto& [count, value] : kCounts)
        EXPECT_EQ(BcdToDec(count, number), value) << count;
    EXPECT_EQ(BcdToDec(1, nullptr), -1);
}

TEST(PowersOfTen, AndWhatTheySum) {
    for (int e = -330; e <= 330; ++e) {
        const double power = std::pow(10.0, std::abs(e));
        ASSERT_EQ(mypow(e), e < 0 ? 1.0 / power : power) << e;
    }
    EXPECT_TRUE(mypow(INT_MIN) == 0.0 && mypow(INT_MAX) == INFINITY);
    const unsigned char number[] = {0x45, 0x23, 0x01};
    EXPECT_TRUE(basechange(-2, 6, number) == 123.45 && basechange(0, 3, number) == 345.0);
    EXPECT_TRUE(basechange(5, 0, nullptr) == 0.0 && basechange(INT_MIN, 6, number) == 0.0);
    EXPECT_EQ(basechange(308, 2, number + 2), 1e308); // with a zero at a power that is infinite
}

} // namespace
