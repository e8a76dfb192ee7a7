// Any bytes between any two layouts, and each pair of codes, are checked against the model in
// fuzz/Times.cpp. Here are the examples that a reader can check without a computer.
#include "mavkit/time/TimeLayout.h"
#include "time/TimeText.h"

namespace {

// clang-format off
const struct {
    unsigned char from; const char* in; unsigned char to; const char* out;
} kExchanges[] = {
    {0x17, "20 24 03 05 06 07 08", 0x97, "20 24 03 05 02 06 07 08"},
    {0x26, "24 03 05 06 07", 0x17, "20 24 03 05 06 07 17"},
    {0x13, "06 07 08", 0x17, "20 25 07 14 06 07 08"},
    {0x64, "05 03 24", 0x97, "20 24 03 05 02 15 16 17"},
    {0x17, "20 24 03 05 06 07 08", 0x93, "02 06 07 08"},
    {0x17, "20 24 03 05 06 07 08", 0x71, "08 07 06 05 03 24 20"},
    {0x17, "20 24 03 05 06 07 08", 0xB1, "08 07 06 02"},
    {0x17, "20 24 03 05 06 07 08", 0xC7, "20 24 03 05 02"},
    {0xE4, "04 05 03 24", 0x17, "20 24 03 05 15 16 17"},
    {0x45, "03 05", 0x97, "20 25 03 05 03 15 16 17"},
    {0x54, "05 03", 0x97, "20 25 03 05 03 15 16 17"},
    {0x31, "08 07 06", 0x94, "14 01 06 07 08"}, // no day: the weekday is today's, a Monday
    {0x17, "FF FA 1B 3C 7D 9E AF", 0x1F, "FF FA 1B 3C 7D 9E AF"}, // bit 3 means nothing
    {0xE1, "08 07 06 FF 05 03 24", 0xE1, "08 07 06 FF 05 03 24"}};

const unsigned char kInvalid[] = {0x00, 0x10, 0x01, 0x08, 0x80, 0x92, 0xA1, 0xD6, 0xF5};
// clang-format on

TEST(TimeLayout, FieldsTakeTheirPlacesAndTheClockGivesTheRest) {
    Device device;
    const Zone zone(kShanghai);
    Device::HoldClock(At("2025-07-14 15:16:17"));
    for (const auto& c : kExchanges) {
        SCOPED_TRACE(std::string(c.in) + " to " + c.out);
        std::string in = Bytes(c.in);
        std::string out(Bytes(c.out).size(), '#');
        Device::ForgetCalls();
        EXPECT_EQ(0, ExchangeBCDTime(c.from, Unsigned(in), c.to, Unsigned(out)));
        EXPECT_EQ(Bytes(c.out), out);
        EXPECT_EQ(c.from == c.to ? 0 : 1, Device::Calls("time"));
        in.resize(8, '#');
        EXPECT_EQ(0, ExchangeBCDTime(c.from, Unsigned(in), c.to, Unsigned(in)));
        EXPECT_EQ(out, in.substr(0, out.size())) << "in place";
    }
}

TEST(TimeLayout, InvalidCodesWriteNothing) {
    for (const unsigned char code : kInvalid) {
        std::string in = "12345678", out = "########";
        EXPECT_EQ(-1, ExchangeBCDTime(code, Unsigned(in), 0x17, Unsigned(out))) << int(code);
        EXPECT_EQ(-1, ExchangeBCDTime(0x17, Unsigned(in), code, Unsigned(out))) << int(code);
        EXPECT_EQ(-1, ExchangeBCDTime(code, Unsigned(in), code, Unsigned(out))) << int(code);
        EXPECT_EQ("########", out);
    }
}

} // namespace
