// The bit mask: single rules in tables, and all operations at random against a slow model. Any
// bytes and any lists are tried in fuzz/Masks.cpp.
#include "mavkit/encoding/BitMask.h"
#include "device/Device.h"
#include "encoding/Hex.h"
#include "mavkit/diag/MavDump.h"

#include <bitset>
#include <random>
#include <unistd.h>

namespace {

constexpr unsigned int kLast = 0xFFFFFFFF;

// The serialised form of these bytes.
ByteString Form(const ByteString& bytes) {
    const std::size_t n = bytes.size();
    return ByteString{Byte(n), Byte(n >> 8), Byte(n >> 16), 0} + bytes;
}

ByteString Bytes(const BitMask& mask) {
    static unsigned char buffer[100100];
    const ByteString form(buffer, mask.Serialize(buffer, sizeof buffer));
    EXPECT_EQ(Form(form.substr(4)).substr(0, 4), form.substr(0, 4));
    return form.substr(4);
}

BitMask Mask(const ByteString& bytes) {
    const ByteString form = Form(bytes);
    BitMask mask;
    EXPECT_EQ(form.size(), mask.Deserialize(form.data(), unsigned(form.size())));
    return mask;
}

std::string Text(const BitMask& mask, int base = 0) {
    std::string text = "old";
    mask.ToString(text, base);
    return text;
}

// clang-format off
const struct { const char* bytes; int base; const char* text; } kTexts[] = {
    {"E4 60", 0, "0-2,5,9-10"}, {"E4 60", -1, "1-3,6,10-11"}, {"E4 60", 5, "-5--3,0,4-5"},
    {"C1", INT_MAX, "-2147483647--214748,-2147483640"}}; // cut at 19 characters

const struct { const char* list; int base; const char *set, *cleared; } kLists[] = { // from 0-15
    {"1-3,6,x,,10,12ab, 14 15,5-3", 0, "1-3,6,10,12,14", "0,4-5,7-9,11,13,15"},
    {"2-4,13", -1, "1-3,12", "0,4-11,13-15"}, {"\r7,\t+3", 0, "3,7", "0-2,4-6,8-15"},
    {"1--5,x-10,--2", 0, "", "0-15"},          {"0-2", -1, "", "0-15"}, // -1 is no bit
    {"8388607", 0, "8388607", "0-15"},        {"8388608,0-8388608", 0, "", ""},
    {"4-18446744073709551617", 0, "", "0-3"}, {"18446744073709551617", 0, "", "0-15"}};
// clang-format on

TEST(BitMask, RangesAndBits) {
    BitMask mask = Mask(Hex("FF FF"));
    mask.Enable(kLast, 0);
    mask.Disable(5, 4);
    mask.Disable(16, kLast);
    EXPECT_EQ(Hex("FF FF"), Bytes(mask));
    mask.Disable(15, kLast);
    EXPECT_EQ(Hex("FF FE"), Bytes(mask));
    for (const unsigned int bit : {0U, 1U, 14U, 15U, 16U, kLast})
        EXPECT_EQ(bit == 0 || bit == 15, Mask(Hex("80 01")).IsEnabled(bit)) << bit;
    BitMask word = Mask(Hex("01 00 00 00 00 00 00 00")); // a word whose value is 1
    word.Trim();
    EXPECT_EQ(Hex("01 00"), Bytes(word));
}

TEST(BitMask, TextForm) {
    for (const auto& c : kTexts)
        EXPECT_EQ(c.text, Text(Mask(Hex(c.bytes)), c.base));
    Terminal terminal;
    MavDump dump(LEVEL_ERROR, 0);
    EXPECT_EQ(&dump, &Mask(Hex("E4 60")).Dump(dump));
    EXPECT_EQ("0-2,5,9-10", terminal.out.Take());
}

TEST(BitMask, Lists) {
    for (const auto& c : kLists) {
        BitMask set;
        set.ParseFrom(c.list, true, c.base);
        EXPECT_EQ(c.set, Text(set)) << c.list;
        BitMask cleared = Mask(Hex("FF FF"));
        cleared.ParseFrom(c.list, false, c.base);
        EXPECT_EQ(c.cleared, Text(cleared)) << c.list;
        cleared.ParseFrom(nullptr, true, 0);
        EXPECT_EQ(c.cleared, Text(cleared));
    }
}

// Masks of hundreds of megabytes, where there is memory for them.
TEST(BitMask, NumbersAndCountsBeyondThirtyTwoBits) {
    const double memory = 1.0 * double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
    if (memory < 2e9)
        GTEST_SKIP() << "needs 2 GB of memory";
    BitMask mask;
    mask.Enable(0x80000000, 0x80000000);
    EXPECT_EQ("4294967296", Text(mask, INT_MIN));
    mask.Enable(0, kLast);
    EXPECT_EQ(kLast, mask.EnableCount());
}

// The model is a text of ones and zeros, a bit each.
std::string Bits(const BitMask& mask) {
    std::string bits;
    for (const unsigned char byte : Bytes(mask))
        bits += std::bitset<8>(byte).to_string();
    return bits;
}

TEST(BitMask, AgreesWithTheModel) {
    std::mt19937_64 random(3);
    const auto below = [&random](std::size_t n) { return static_cast<unsigned int>(random() % n); };
    for (int round = 0; round < 60; ++round) {
        BitMask masks[2];
        std::string models[2];
        const std::size_t reach = std::size_t{1} << (3 + round % 8);
        for (int step = 0; step < 50; ++step) {
            const std::size_t which = below(2);
            const std::size_t source = step % 9 == 0 ? which : 1 - which; // or the same mask
            BitMask& mask = masks[which];
            std::string& model = models[which];
            const unsigned int from = below(reach);
            const unsigned int to = from + below(3) * below(reach / 2);
            const unsigned int choice = below(8);
            if (choice == 0) { // a last bit that is set keeps a zero byte after it
                mask.Trim();
                model.resize(std::min(model.size(), (model.rfind('1') + 1) / 8 * 8 + 8));
            } else if (choice == 1) {
                const std::string other = models[source];
                mask.Enable(masks[source]);
                model.resize(std::max(model.size(), other.size() + 8), '0');
                for (std::size_t i = 0; i < other.size(); ++i)
                    model[i] = std::max(model[i], other[i]);
            } else if (choice < 4) {
                mask.Disable(from, to);
                for (std::size_t i = from; i <= to && i < model.size(); ++i)
                    model[i] = '0';
            } else {
                mask.Enable(from, to);
                model.resize(std::max(model.size(), to / 8 * std::size_t{8} + 8), '0');
                model.replace(from, to - from + 1, to - from + 1, '1');
            }
            ASSERT_EQ(model, Bits(mask)) << round << ' ' << step;
            ASSERT_EQ(std::count(model.begin(), model.end(), '1'), mask.EnableCount());
        }
    }
    // Around the end of a batch of the count (30 words), of both word sizes, and a long mask.
    for (std::size_t size = 115; size < 260; ++size)
        EXPECT_EQ(8 * size, Mask(ByteString(size, 0xFF)).EnableCount()) << size;
    const ByteString many(100003, 0xFF);
    EXPECT_EQ(800024U, Mask(many).EnableCount());
    EXPECT_TRUE(many == Bytes(Mask(many)));
    EXPECT_EQ(0U, BitMask().Serialize(nullptr, 4));
    EXPECT_EQ(0U, BitMask().Deserialize(nullptr, 9));
    const unsigned char all[] = {0xFF, 0xFF, 0xFF, 0xFF, 0}; // a length that wraps with its own 4
    EXPECT_EQ(0U, BitMask().Deserialize(all, sizeof all));
}

} // namespace
