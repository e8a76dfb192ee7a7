// Intervals between records. Adding, trimming and counting units of any times is held against a model in
// fuzz/Calendar.cpp, by exact values in target/AbiTest.cpp and faults/outcomes.txt.
#include "mavkit/time/Calendar.h"
#include "time/TimeText.h"

namespace {

// clang-format off
const struct { int minutes; unsigned int radix, dots; } kDots[] = { // radix x 60 in 32 bits
    {60, 15, 4}, {60, 7, 8}, {59, 15, 3}, {1455, 1440, 1}, {7279214, 1, 7279214}, {0, 1, 0},
    {-1, 1, 0},  {1455, 0, 0}, {1455, 71582788, 0}, {1455, 1U << 30, 0}};

const struct { unsigned int radix; int n, seconds; } kSteps[] = {
    {15, 2, 1800},          {15, -4, -3600},  {1440, 0, 0},
    {1440, -100, -8640000}, {1U << 30, 3, 0}, {71582788, 1, -16}}; // seconds in 32 bits
// clang-format on

TEST(Calendar, IntervalsOfMinutes) {
    const Zone zone(kShanghai);
    const long start = At("02-28 23:45");
    std::string from = Bytes(Text(start));
    for (const auto& c : kDots) {
        std::string to = Bytes(Text(start + c.minutes * 60L));
        EXPECT_EQ(Time_BCDTime7ToDots(from.data(), to.data(), c.radix), c.dots) << c.minutes;
        EXPECT_EQ(Time_BCDTime5ToDots(from.data() + 1, to.data() + 1, c.radix), c.dots);
    }
    from[6] = 7; // the second counts in a Bcd7Time
    EXPECT_EQ(Time_BCDTime7ToDots(from.data(), Bytes("2024-02-29 00:00:06").data(), 15), 0U);
    for (const auto& c : kSteps) {
        std::string record = from;
        Add_nRadixOnBCDTime7(record.data(), c.radix, c.n, record.data());
        EXPECT_EQ(record, Bytes(Text(start + 7 + c.seconds))) << c.radix << " " << c.n;
    }
}

} // namespace
