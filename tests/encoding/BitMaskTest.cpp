// The bit mask: single rules in tables, and all operations at random against a slow model.
#include "mavkit/encoding/BitMask.h"
#include "mavkit/diag/MavDump.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <tuple>
#include <vector>

namespace {

ByteString Bytes(const BitMask& mask) {
    unsigned char buffer[4096];
    const unsigned int size = mask.Serialize(buffer, sizeof buffer);
    return ByteString(buffer, size).substr(4);
}

BitMask Mask(const ByteString& bytes) {
    const auto n = static_cast<unsigned int>(bytes.size());
    ByteString form = {static_cast<unsigned char>(n), static_cast<unsigned char>(n >> 8),
                       static_cast<unsigned char>(n >> 16), 0};
    form += bytes;
    BitMask mask;
    EXPECT_EQ(mask.Deserialize(form.data(), n + 4), n + 4);
    return mask;
}

std::string Text(const BitMask& mask, int base = 0) {
    std::string text = "old";
    mask.ToString(text, base);
    return text;
}

TEST(BitMask, Ranges) {
    constexpr unsigned int kLast = 0xFFFFFFFF;
    using Case = std::tuple<ByteString, bool, unsigned int, unsigned int, ByteString>;
    for (const auto& [before, enable, from, to, after] : {
             Case{{}, true, 0, 0, {0x80}},
             Case{{}, true, 7, 8, {0x01, 0x80}},
             Case{{}, true, 3, 12, {0x1F, 0xF8}},
             Case{{0x40}, true, 2, 5, {0x7C}},
             Case{{}, true, kLast, 0, {}},
             Case{{0xFF, 0xFF}, false, 15, kLast, {0xFF, 0xFE}},
             Case{{0xFF, 0xFF}, false, 16, kLast, {0xFF, 0xFF}},
             Case{{0xFF, 0xFF, 0xFF}, false, 7, 16, {0xFE, 0x00, 0x7F}},
             Case{{0xFF}, false, 5, 4, {0xFF}},
             Case{{}, false, 0, kLast, {}},
         }) {
        BitMask mask = Mask(before);
        const BitMask copy = mask;
        enable ? mask.Enable(from, to) : mask.Disable(from, to);
        EXPECT_EQ(Bytes(mask), after) << enable << ' ' << from << ' ' << to;
        EXPECT_EQ(Bytes(copy), before);
    }
    const BitMask mask = Mask({0x80, 0x01});
    EXPECT_TRUE(mask.IsEnabled(0) && mask.IsEnabled(15));
    EXPECT_FALSE(mask.IsEnabled(1) || mask.IsEnabled(14) || mask.IsEnabled(16));
    EXPECT_FALSE(mask.IsEnabled(kLast) || BitMask().IsEnabled(0));
}

TEST(BitMask, Trim) {
    const ByteString kCases[][2] = {
        {{}, {}},
        {{0x10, 0x00, 0x00}, {0x10}},
        {{0x01, 0x00}, {0x01, 0x00}},
        {{0x00, 0x01}, {0x00, 0x01}},
        {ByteString(100, 0x00), {0x00}},
        {ByteString{0x01} + ByteString(100, 0x00), {0x01, 0x00}},
    };
    for (const auto& [before, after] : kCases) {
        BitMask mask = Mask(before);
        mask.Trim();
        EXPECT_EQ(Bytes(mask), after);
    }
}

TEST(BitMask, SerialisedForm) {
    ByteString buffer(300, 0xEE);
    const BitMask two = Mask({0x00, 0xFF});
    EXPECT_EQ(two.Serialize(&buffer[0], 5), 0U);
    EXPECT_EQ(two.Serialize(nullptr, 6), 0U);
    EXPECT_EQ(buffer, ByteString(300, 0xEE));
    EXPECT_EQ(two.Serialize(&buffer[0], 6), 6U);
    EXPECT_EQ(buffer.substr(0, 7), (ByteString{2, 0, 0, 0, 0x00, 0xFF, 0xEE}));
    EXPECT_EQ(Mask(ByteString(256, 1)).Serialize(&buffer[0], 300), 260U);
    EXPECT_EQ(buffer.substr(0, 5), (ByteString{0, 1, 0, 0, 1}));

    using Case = std::tuple<ByteString, unsigned int, ByteString>;
    for (const auto& [form, consumed, result] : {
             Case{{1, 0, 0, 0, 0x12, 0xFF}, 5, {0x12}},
             Case{{0, 0, 0, 0}, 4, {}},
             Case{{2, 0, 0, 0, 0x00}, 0, {0x55}},
             Case{{0, 0, 0}, 0, {0x55}},
             Case{{}, 0, {0x55}},
             Case{{0xFC, 0xFF, 0xFF, 0xFF, 0x00}, 0, {0x55}},
             Case{{0xFF, 0xFF, 0xFF, 0xFF, 0x00}, 0, {0x55}},
         }) {
        BitMask mask = Mask({0x55});
        EXPECT_EQ(mask.Deserialize(form.data(), static_cast<unsigned int>(form.size())), consumed);
        EXPECT_EQ(Bytes(mask), result);
    }
    BitMask mask;
    EXPECT_EQ(mask.Deserialize(nullptr, 100), 0U);
}

TEST(BitMask, TextForm) {
    using Case = std::tuple<ByteString, int, const char*>;
    for (const auto& [bytes, base, text] : {
             Case{{0xE4, 0x60}, 0, "0-2,5,9-10"},
             Case{{0xE4, 0x60}, -1, "1-3,6,10-11"},
             Case{{0xE4, 0x60}, 5, "-5--3,0,4-5"},
             Case{{0x00, 0x00}, 0, ""},
             Case{{0x01}, 0, "7"},
             Case{{0x80}, INT_MIN, "2147483648"},
             Case{{0xC0}, INT_MIN, "2147483648-21474836"}, // cut at 19 characters
             Case{{0xC1}, INT_MAX, "-2147483647--214748,-2147483640"},
             Case{{0x00, 0x00, 0xC0, 0x80}, -4294983, "4294999-4295000,4295007"},
         }) {
        EXPECT_EQ(Text(Mask(bytes), base), text);
    }
    BitMask far; // a quarter of a gigabyte, so that a number has more than 32 bits
    far.Enable(0x80000000, 0x80000000);
    EXPECT_EQ(Text(far, INT_MIN), "4294967296");
    std::FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    MavDump dump(file);
    EXPECT_EQ(&Mask({0xE4, 0x60}).Dump(dump), &dump);
    std::rewind(file);
    char line[32] = "";
    EXPECT_STREQ(std::fgets(line, sizeof line, file), "0-2,5,9-10");
    std::fclose(file);
}

TEST(BitMask, Lists) {
    using Case = std::tuple<const char*, int, const char*>; // the last: the bits that are meant
    for (const auto& [list, base, bits] : {
             Case{"1-3,6,x,,10", 0, "1-3,6,10"},
             Case{"0", 0, "0"},
             Case{"00,a0", 0, "0"},
             Case{",,x, ,-,--,+,x-5, -3", 0, ""},
             Case{"5-,8-0", 0, "5,8"},
             Case{"5-3", 0, ""},
             Case{"-4", 0, "4"},
             Case{"-4-6", 0, "4"},
             Case{"-0", 0, "0"},
             Case{"12ab,\t\n\v\f\r +14, 16 17", 0, "12,14,16"},
             Case{"0-2,0x5-9", 0, "0-9"},
             Case{"3-x7", 0, "3"},
             Case{"1--5,--5,7", 0, "7"},
             Case{"--5", 6, "1"},
             Case{" -3", 6, ""},
             Case{"0,1-2,7", -1, "0-1,6"},
             Case{"0-3,3", -1, "2"},
             Case{"2", INT_MAX, ""},
             Case{"2147483647,2147483646-2147483647", -2147483647, "0"},
             Case{"2147483649-2147483650", INT_MIN, "1-2"},
             Case{"8388608,1-8388608,0-4294967296,2", 0, "2"},
             Case{"4294967295,18446744073709551617,99999999999999999999999999,-"
                  "99999999999999999999999",
                  0, ""},
             Case{"8388607", 0, "8388607"},
         }) {
        BitMask mask;
        mask.ParseFrom(list, true, base);
        EXPECT_EQ(Text(mask), bits) << list;
        // Clearing by the same list leaves the others as they are.
        BitMask full = Mask(ByteString(3, 0xFF));
        full.ParseFrom(list, false, base);
        for (unsigned int bit = 0; bit < 24; ++bit) {
            EXPECT_NE(full.IsEnabled(bit), mask.IsEnabled(bit)) << list << ' ' << bit;
        }
        EXPECT_EQ(Bytes(full).size(), 3U);
    }
    BitMask mask = Mask({0x72, 0x20});
    mask.ParseFrom(nullptr, true, 0);
    EXPECT_EQ(Bytes(mask), (ByteString{0x72, 0x20}));
}

// The rules, bit by bit.
struct Model {
    std::vector<bool> bits;

    void Grow(size_t bytes) { bits.resize(std::max(bits.size(), bytes * 8)); }
    void Trim() {
        for (size_t i = bits.size(); i-- > 0 && !bits[i];) {
            bits.resize(std::min(bits.size(), (i / 8 + 1) * 8));
        }
    }
    ByteString Bytes() const {
        ByteString bytes(bits.size() / 8, 0);
        for (size_t i = 0; i < bits.size(); ++i) {
            bytes[i / 8] = static_cast<unsigned char>(bytes[i / 8] | bits[i] << (7 - i % 8));
        }
        return bytes;
    }
    std::string Text() const {
        std::string text;
        for (size_t i = 0; i < bits.size(); ++i) {
            const size_t first = i;
            while (i < bits.size() && bits[i]) {
                ++i;
            }
            if (i > first) {
                text += (text.empty() ? "" : ",") + std::to_string(first);
                text += i - first == 1 ? "" : "-" + std::to_string(i - 1);
            }
        }
        return text;
    }
};

TEST(BitMask, AgreesWithTheModel) {
    std::mt19937_64 random(3);
    const auto below = [&random](size_t n) { return static_cast<unsigned int>(random() % n); };
    for (int round = 0; round < 60; ++round) {
        BitMask masks[2];
        Model models[2];
        const size_t reach = size_t{1} << (3 + round % 8);
        for (int step = 0; step < 50; ++step) {
            const size_t which = below(2);
            BitMask& mask = masks[which];
            Model& model = models[which];
            const unsigned int from = below(reach);
            const unsigned int to = from + below(3) * below(reach / 2);
            const size_t source = step % 9 == 0 ? which : 1 - which;
            switch (below(8)) {
            case 0:
                mask.Trim();
                model.Trim();
                break;
            case 1: {
                const std::vector<bool> other = models[source].bits;
                mask.Enable(masks[source]);
                model.Grow(other.size() / 8 + 1);
                for (size_t i = 0; i < other.size(); ++i) {
                    model.bits[i] = model.bits[i] || other[i];
                }
                break;
            }
            case 2:
            case 3:
                mask.Disable(from, to);
                for (size_t i = from; i <= to && i < model.bits.size(); ++i) {
                    model.bits[i] = false;
                }
                break;
            default:
                mask.Enable(from, to);
                model.Grow(to / 8 + 1);
                for (size_t i = from; i <= to; ++i) {
                    model.bits[i] = true;
                }
            }
            ASSERT_EQ(Bytes(mask), model.Bytes()) << round << ' ' << step;
            const std::string text = Text(mask);
            ASSERT_EQ(text, model.Text()) << round << ' ' << step;
            ASSERT_EQ(mask.EnableCount(), std::count(model.bits.begin(), model.bits.end(), true));
            BitMask parsed;
            parsed.ParseFrom(Text(mask, -7).c_str(), true, -7);
            ASSERT_EQ(Text(parsed), text);
        }
    }
    // Counts beyond what one batch of the count holds.
    EXPECT_EQ(Mask(ByteString(100003, 0xFF)).EnableCount(), 800024U);
}

} // namespace
