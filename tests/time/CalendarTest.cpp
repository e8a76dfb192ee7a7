#include "mavkit/time/Calendar.h"
#include "time/TimeText.h"

namespace {

struct Row {
    unsigned char unit;
    long n;
    const char *from, *to; // from null: no time
    const char* zone = kShanghai;
};

// clang-format off
const Row kSums[] = {
    {Month, 1, "01-31", "03-02"}, {Year, 1, "02-29", "2025-03-01"}, {7, -5, "03-05", "03-05"},
    // Where the clock is changed a day has 23 or 25 hours; noon stays noon.
    {Day, 1, "03-30 12", "03-31 12", kBerlin}, {Day, -1, "11-04 12", "11-03 12", kNewYork}};

const struct { unsigned char unit; const char *start, *zone; } kStarts[] = { // of 10-06 10:20:30's
    {Hour, "10-06 09:30", kKolkata}, {Day, "10-06", kSydney}, {Year, "01-01", kBerlin},
    {0, "10-06", kShanghai}, {7, "01-01", kShanghai}};

const Row kSpans[] = {
    {Hour, 1, "03-05 10:59:59", "03-05 11"}, {Month, 3, "2023-11-30", "02-01"},
    {0, 172800, "03-05 10", "03-07 01"}, {9, 5, "2020-12-31 23:59", "2025-01-01"},
    // No time counts as time 0, which is 08:00 in Shanghai and the evening before in New York.
    {Day, 1, nullptr, "1970-01-03 12"}, {Day, 2, nullptr, "1970-01-03 12", kNewYork}};

const struct { int minutes; unsigned int radix, dots; } kDots[] = { // radix x 60 in 32 bits
    {60, 15, 4}, {60, 7, 8}, {59, 15, 3}, {1455, 1440, 1}, {7279214, 1, 7279214}, {0, 1, 0},
    {-1, 1, 0},  {1455, 0, 0}, {1455, 71582788, 0}, {1455, 1U << 30, 0}};

const struct { unsigned int radix; int n, seconds; } kSteps[] = {
    {15, 2, 1800},          {15, -4, -3600},  {1440, 0, 0},
    {1440, -100, -8640000}, {1U << 30, 3, 0}, {71582788, 1, -16}}; // seconds in 32 bits
// clang-format on

TEST(Calendar, UnitsAreAddedAndTrimmedOnTheWallClock) {
    for (const Row& c : kSums) {
        const Zone zone(c.zone);
        EXPECT_EQ(dateadd(c.unit, c.n, At(c.from)), At(c.to)) << c.from << " + " << c.n;
        EXPECT_EQ(dateadd(c.unit, 0, At(c.from)), At(c.from));
        for (const long none : {0L, -1L, LONG_MIN})
            EXPECT_TRUE(dateadd(c.unit, c.n, none) == none && datetrim(c.unit, none) == 0);
    }
    for (const auto& c : kStarts) {
        const Zone zone(c.zone);
        EXPECT_EQ(datetrim(c.unit, At("10-06 10:20:30")), At(c.start)) << c.start;
    }
}

TEST(Calendar, BoundariesAreCountedNotUnits) {
    for (const Row& c : kSpans) {
        SCOPED_TRACE(std::to_string(c.unit) + " to " + c.to);
        const Zone zone(c.zone);
        const long to = At(c.to);
        const long from = c.from != nullptr ? At(c.from) : LONG_MIN;
        EXPECT_EQ(datediff(c.unit, from, to), c.n);
        EXPECT_EQ(datediff(c.unit, to, from), -c.n);
        const std::string a = Bytes(Text(c.from != nullptr ? from : 0));
        EXPECT_EQ(bcddatediff(c.unit, a.data(), Bytes(Text(to)).data()), c.n);
    }
}

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
