// The bit mask: single rules in tables, and all operations at random against a slow model. Any bytes
// and any lists are tried in fuzz/Masks.cpp.
#include "mavkit/encoding/BitMask.h"
#include "device/Device.h"
#include "encoding/Hex.h"
#include "mavkit/diag/MavDump.h"

#include <bitset>
#include <random>

namespace {

constexpr unsigned int kLast = 0xFFFFFFFF;

// The serialised form of these bytes.
ByteString Form(const ByteString& bytes) {
    const size_t n = bytes.size();
    return ByteString{Byte(n), Byte(n >> 8), Byte(n >> 16), 0} + bytes;
}

ByteString Bytes(const BitMask& mask) {
    static unsigned char buffer[100100];
    const ByteString form(buffer, mask.Serialize(buffer, sizeof buffer));
    EXPECT_EQ(form.substr(0, 4), Form(form.substr(4)).substr(0, 4));
    return form.substr(4);
}

BitMask Mask(const ByteString& bytes) {
    const ByteString form = Form(bytes);
    BitMask mask;
    EXPECT_EQ(mask.Deserialize(form.data(), unsigned(form.size())), form.size());
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
// clang-format on

TEST(BitMask, RangesAndBits) {
    BitMask mask = Mask(Hex("FF FF"));
    mask.Enable(kLast, 0);
    mask.Disable(5, 4);
    mask.Disable(16, kLast);
    EXPECT_EQ(Bytes(mask), Hex("FF FF"));
    mask.Disable(15, kLast);
    EXPECT_EQ(Bytes(mask), Hex("FF FE"));
    for (const unsigned int bit : {0U, 1U, 14U, 15U, 16U, kLast})
        EXPECT_EQ(Mask(Hex("80 01")).IsEnabled(bit), bit == 0 || bit == 15) << bit;
}

TEST(BitMask, TextForm) {
    for (const auto& c : kTexts)
        EXPECT_EQ(Text(Mask(Hex(c.bytes)), c.base), c.text);
    BitMask far; // a quarter of a gigabyte, so that a number has more than 32 bits
    far.Enable(0x80000000, 0x80000000);
    EXPECT_EQ(Text(far, INT_MIN), "4294967296");
    Terminal terminal;
    MavDump dump(LEVEL_ERROR, 0);
    EXPECT_EQ(&Mask(Hex("E4 60")).Dump(dump), &dump);
    EXPECT_EQ(terminal.out.Take(), "0-2,5,9-10");
}

TEST(BitMask, Lists) {
    BitMask mask;
    mask.ParseFrom("1-3,6,x,,10,12ab, 16 17,5-3,8388608", true, 0);
    EXPECT_EQ(Text(mask), "1-3,6,10,12,16");
    mask.ParseFrom("2-8,13", false, -1);
    mask.ParseFrom(nullptr, true, 0);
    EXPECT_EQ(Text(mask), "10,16");
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
    const auto below = [&random](size_t n) { return static_cast<unsigned int>(random() % n); };
    for (int round = 0; round < 60; ++round) {
        BitMask masks[2];
        std::string models[2];
        const size_t reach = size_t{1} << (3 + round % 8);
        for (int step = 0; step < 50; ++step) {
            const size_t which = below(2);
            const size_t source = step % 9 == 0 ? which : 1 - which; // or itself
            BitMask& mask = masks[which];
            std::string& model = models[which];
            const unsigned int from = below(reach);
            const unsigned int to = from + below(3) * below(reach / 2);
            const unsigned int choice = below(8);
            if (choice == 0) { // a last bit that is set keeps a zero byte behind
                mask.Trim();
                model.resize(std::min(model.size(), (model.rfind('1') + 1) / 8 * 8 + 8));
            } else if (choice == 1) {
                const std::string other = models[source];
                mask.Enable(masks[source]);
                model.resize(std::max(model.size(), other.size() + 8), '0');
                for (size_t i = 0; i < other.size(); ++i)
                    model[i] = std::max(model[i], other[i]);
            } else if (choice < 4) {
                mask.Disable(from, to);
                for (size_t i = from; i <= to && i < model.size(); ++i)
                    model[i] = '0';
            } else {
                mask.Enable(from, to);
                model.resize(std::max(model.size(), to / 8 * size_t{8} + 8), '0');
                model.replace(from, to - from + 1, to - from + 1, '1');
            }
            ASSERT_EQ(Bits(mask), model) << round << ' ' << step;
            ASSERT_EQ(mask.EnableCount(), std::count(model.begin(), model.end(), '1'));
        }
    }
    // Counts beyond what one batch of the count holds, and a length of three bytes.
    const ByteString many(100003, 0xFF);
    EXPECT_EQ(Mask(many).EnableCount(), 800024U);
    EXPECT_EQ(Bytes(Mask(many)), many);
    EXPECT_TRUE(BitMask().Serialize(nullptr, 4) == 0 && BitMask().Deserialize(nullptr, 9) == 0);
}

} // namespace
