// Numbers in packed BCD, in both byte orders.
#include "mavkit/encoding/BcdNumber.h"
#include "mavkit/encoding/ByteString.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <tuple>

namespace {

// What DoubleToBCD writes, followed by two bytes that must stay 0xEE.
struct Written {
    ByteString bytes;
    int integer;
    int decimal;
};

Written Write(double value, int integer, int decimal) {
    auto i = static_cast<unsigned char>(integer);
    auto d = static_cast<unsigned char>(decimal);
    ByteString out(300, 0xEE);
    EXPECT_EQ(DoubleToBCD(value, i, d, &out[0]), 0);
    const size_t size = (static_cast<size_t>(i) + d) / 2;
    EXPECT_EQ(out.find_first_not_of(0xEE, size), ByteString::npos) << "beyond the number";
    return {out.substr(0, size), i, d};
}

double Read(const ByteString& bytes, int integer, int decimal) {
    return BCDToDouble(bytes.data(), static_cast<unsigned char>(integer),
                       static_cast<unsigned char>(decimal));
}

TEST(BcdByte, RoundTrip) {
    for (int i = 0; i < 128; ++i) {
        const int last = i % 100;
        EXPECT_EQ(cbcd(static_cast<char>(i)), last / 10 * 16 + last % 10) << i;
        EXPECT_EQ(bcdc(static_cast<char>(cbcd(static_cast<char>(i)))), last) << i;
    }
    EXPECT_EQ(bcdc(0x0A), 10);
}

TEST(HighFirst, CompareAndSubtract) {
    char small[] = {0x20, 0x23, 0x59};
    char large[] = {0x20, static_cast<char>(0x99), 0x00};
    EXPECT_EQ(Comp_BCD(large, small, 3), 1);
    EXPECT_EQ(Comp_BCD(small, large, 3), -1);
    EXPECT_EQ(Comp_BCD(small, large, 1), 0);
    EXPECT_EQ(Comp_BCD(small, large, 0), 0);
    EXPECT_EQ(Comp_BCD(nullptr, nullptr, 0), 0);

    std::mt19937_64 random(1);
    for (int i = 0; i < 2000; ++i) {
        const long long limit = i % 2 == 0 ? 1000000000000 : 300;
        const long long a = static_cast<long long>(random() % static_cast<uint64_t>(limit));
        const long long b = static_cast<long long>(random() % static_cast<uint64_t>(limit));
        char left[6];
        char right[6];
        char expected[6];
        long long x = a;
        long long y = b;
        long long z = a < b ? 0 : a - b;
        for (int k = 5; k >= 0; --k, x /= 100, y /= 100, z /= 100) {
            left[k] = static_cast<char>(x % 100 / 10 * 16 + x % 10);
            right[k] = static_cast<char>(y % 100 / 10 * 16 + y % 10);
            expected[k] = static_cast<char>(z % 100 / 10 * 16 + z % 10);
        }
        // Into a buffer of its own, and over either operand.
        char own[6];
        char* const out = i % 3 == 0 ? own : i % 3 == 1 ? left : right;
        ASSERT_EQ(Sub_84BCD(out, left, right), a < b ? -2 : 0) << a << " - " << b;
        ASSERT_EQ(memcmp(out, expected, 6), 0) << a << " - " << b;
    }
}

TEST(LowFirst, FromDouble) {
    using Case = std::tuple<double, int, int, ByteString, int, int>;
    for (const auto& [value, integer, decimal, bytes, integerUsed, decimalUsed] : {
             Case{123.45, 4, 2, {0x45, 0x23, 0x01}, 4, 2},
             Case{123.45, 3, 2, {0x45, 0x23, 0x01}, 4, 2},
             Case{123.45, 2, 2, {0x45, 0x23}, 2, 2},
             Case{-1.5, 2, 2, {0x50, 0x01}, 2, 2},
             Case{0.00005, 2, 6, {0, 0, 0, 0}, 2, 6},
             Case{0.0001, 0, 4, {0x01, 0x00}, 0, 4},
             Case{0.999, 2, 2, {0x00, 0x01}, 2, 2},
             Case{8, 0, 0, {}, 0, 0},
             Case{1, 9, 8, {0, 0, 0, 0, 0x01, 0, 0, 0}, 8, 8},
             Case{0.5, 0, 17, {0, 0, 0, 0, 0, 0, 0, 0x50}, 0, 16},
             Case{0.5, 0, 15, {0, 0, 0, 0, 0, 0, 0, 0x05}, 1, 15},
             Case{NAN, 4, 2, {0, 0, 0}, 4, 2},
             Case{-INFINITY, 4, 2, {0, 0, 0}, 4, 2},
         }) {
        const Written written = Write(value, integer, decimal);
        EXPECT_EQ(written.bytes, bytes) << value << ' ' << integer << ' ' << decimal;
        EXPECT_EQ(written.integer, integerUsed) << value;
        EXPECT_EQ(written.decimal, decimalUsed) << value;
    }
    // The longest text of all: 309 integer digits of which the last 255 fit, and 255 decimals.
    char text[700];
    snprintf(text, sizeof text, "%.255f", DBL_MAX);
    const Written longest = Write(-DBL_MAX, 255, 255);
    for (size_t k = 0; k < 510; ++k) {
        const char digit = text[strlen(text) - 1 - k - (k < 255 ? 0 : 1)];
        ASSERT_EQ(longest.bytes[k / 2] >> (k % 2 * 4) & 0x0F, digit - '0') << k;
    }
}

TEST(LowFirst, ToDouble) {
    const ByteString number = {0x45, 0x23, 0x01};
    EXPECT_EQ(Read(number, 4, 2), 123.45);
    EXPECT_EQ(Read(number, 3, 2), 123.45);
    EXPECT_EQ(Read({0x45, 0x23, 0xF1}, 3, 2), 123.45);
    EXPECT_EQ(Read({0xA5, 0x01}, 2, 2), 1.0);
    EXPECT_EQ(Read({0x99, 0xA9}, 0, 4), 0.0);
    EXPECT_EQ(Read({}, 0, 0), 0.0);
    EXPECT_EQ(Read(ByteString(1, 0x07) + ByteString(11, 0), 0, 24), 7e-24);

    // Any length gives what atof gives for the digits as a text, up to a digit that is none.
    std::mt19937 random(2);
    const auto below = [&random](int n) { return static_cast<int>(random() % 1000000U) % n; };
    for (int i = 0; i < 5000; ++i) {
        const int most = i % 4 == 0 ? 255 : 12;
        const int integer = below(most + 1);
        const int decimal = below(most + 1);
        const int digits = integer + decimal;
        ByteString bytes(static_cast<size_t>((digits + 1) / 2), 0);
        std::string text;
        for (int k = digits - 1; k >= 0; --k) {
            const int digit = below(97) == 0 ? 10 + below(6) : below(10);
            unsigned char& byte = bytes[static_cast<size_t>(k / 2)];
            byte = static_cast<unsigned char>(byte | digit << (k % 2 * 4));
            text += static_cast<char>('0' + digit);
            text += k == decimal ? "." : "";
        }
        text.insert(0, decimal == digits ? "0." : "");
        ASSERT_EQ(Read(bytes, integer, decimal), atof(text.c_str())) << text;
        if (digits % 2 == 0 && digits <= 14 && text.find_first_of(":;<=>?") == std::string::npos &&
            atof(text.c_str()) >= 0.0001) {
            ASSERT_EQ(Write(Read(bytes, integer, decimal), integer, decimal).bytes, bytes) << text;
        }
    }
}

TEST(LowFirst, Exchange) {
    unsigned char source[8] = {0x45, 0x23, 0x01};
    using Case = std::tuple<int, int, int, int, int, ByteString>;
    for (const auto& [si, sd, ti, td, result, bytes] : {
             Case{4, 2, 4, 4, 0, {0x00, 0x45, 0x23, 0x01, 0xEE}},
             Case{4, 2, 2, 0, 0, {0x23, 0xEE, 0xEE, 0xEE, 0xEE}},
             Case{4, 2, 1, 2, 0, {0x45, 0x23, 0xEE, 0xEE, 0xEE}},
             Case{16, 0, 6, 0, 0, {0x45, 0x23, 0x01, 0xEE, 0xEE}},
             Case{17, 2, 4, 4, -1, ByteString(5, 0xEE)},
             Case{4, 17, 4, 4, -1, ByteString(5, 0xEE)},
             Case{4, 2, 17, 4, -1, ByteString(5, 0xEE)},
             Case{4, 2, 4, 255, -1, ByteString(5, 0xEE)},
         }) {
        const auto n = [](int count) { return static_cast<unsigned char>(count); };
        ByteString target(5, 0xEE);
        EXPECT_EQ(BCDExchange(source, n(si), n(sd), &target[0], n(ti), n(td)), result);
        EXPECT_EQ(target, bytes) << si << ' ' << sd << ' ' << ti << ' ' << td;
    }
}

TEST(LowFirst, Integers) {
    unsigned char number[] = {0x78, 0x56, 0x34, 0x12, 0x99};
    const int kCases[][2] = {{4, 12345678}, {1, 78}, {0, 0},       {-1, 0},
                             {INT_MIN, 0},  {5, -1}, {INT_MAX, -1}};
    for (const auto& [count, value] : kCases) {
        EXPECT_EQ(BcdToDec(count, number), value) << count;
    }
    EXPECT_EQ(BcdToDec(1, nullptr), -1);
}

TEST(PowersOfTen, AndWhatTheySum) {
    for (int e = -330; e <= 330; ++e) {
        const double power = std::pow(10.0, std::abs(e));
        ASSERT_EQ(mypow(e), e < 0 ? 1.0 / power : power) << e;
    }
    EXPECT_EQ(mypow(INT_MIN), 0.0);
    EXPECT_EQ(mypow(INT_MAX), INFINITY);

    const unsigned char number[] = {0x45, 0x23, 0x01};
    EXPECT_EQ(basechange(-2, 6, number), 123.45);
    EXPECT_EQ(basechange(0, 3, number), 345.0);
    EXPECT_EQ(basechange(5, 0, nullptr), 0.0);
    EXPECT_EQ(basechange(INT_MIN, 6, number), 0.0);
    EXPECT_EQ(basechange(INT_MAX, 6, number), INFINITY);
    // 1 x 10^308 with a zero digit at a power that no double holds.
    const unsigned char high[] = {0x01};
    EXPECT_EQ(basechange(308, 2, high), 1e308);
}

TEST(SignedText, Packs) {
    const auto n = [](int count) { return static_cast<unsigned char>(count); };
    using Case = std::tuple<double, int, int, int, int, ByteString>;
    for (const auto& [value, decimal, integer, size, result, bytes] : {
             Case{-1.5, 2, 6, 3, 0, {0x50, 0xD1, 0x00, 0xEE}},
             Case{-1.5, 2, 0, 3, -1, {0xEE, 0xEE, 0xEE, 0xEE}},
             Case{123.45, 2, 2, 3, 0, {0x45, 0x23, 0x00, 0xEE}},
             Case{123.45, 2, 1, 0, 0, {0x45, 0x03, 0xEE, 0xEE}},
             Case{0.00001, 5, 1, 4, 0, {0x01, 0x00, 0x00, 0x00}},
             Case{NAN, 2, 3, 1, 0, {0x00, 0x00, 0x00, 0xEE}},
             Case{INFINITY, 0, 2, 4, 0, {0x00, 0x00, 0x00, 0x00}},
         }) {
        ByteString out(4, 0xEE);
        EXPECT_EQ(basechange_reverse(value, n(decimal), n(integer), n(size), &out[0]), result);
        EXPECT_EQ(out, bytes) << value << ' ' << integer;
    }
    unsigned char longest[255];
    EXPECT_EQ(basechange_reverse(-DBL_MAX, 255, 255, 255, longest), 0);
    EXPECT_EQ(longest[254] >> 4, 5) << "the 255th digit before the point";
}

} // namespace
