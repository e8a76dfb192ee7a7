// Random times, units and counts are checked against the model in fuzz/Times.cpp, the ends of time
// in target/AbiTest.cpp.
#include "mavkit/time/Calendar.h"
#include "mavkit/time/BcdTime.h"
#include "models/CivilTime.h"
#include "time/TimeText.h"

#include <initializer_list>

namespace {

// At time 0 the clock shows 01:00, in July UTC.
constexpr const char* kSouthern = "AAA0BBB,M10.1.0,M4.1.0";

// clang-format off
const struct { const char *zone, *t; unsigned char unit; long n; const char* sum; } kSums[] = {
    {kShanghai, "01-31", Month, 1, "03-02"},   {kShanghai, "2023-01-31", Month, 1, "2023-03-03"},
    {kShanghai, "02-29", Year, 1, "2025-03-01"}, {kShanghai, "03-31", Month, -1, "03-02"},
    {kShanghai, "03-01", Day, -1, "02-29"},    {kShanghai, "03-05", 0, 9, "03-05"},
    {kShanghai, "03-05", 7, 9, "03-05"},       {kShanghai, "03-05", 255, -9, "03-05"},
    // Across a change of the clock all units follow the clock on the wall.
    {kBerlin, "03-31 01", Second, 7200, "03-31 03"}, {kBerlin, "03-31 01", Minute, 120, "03-31 03"},
    {kBerlin, "03-31 01", Hour, 2, "03-31 03"},
    {kBerlin, "03-31 03", Second, -7260, "03-31 00:59"},
    {kBerlin, "10-27", Second, 36001, "10-27 10:00:01"}, {kBerlin, "03-30 12", Day, 1, "03-31 12"}};

const struct { unsigned char unit; const char *t, *start; } kStarts[] = {
    {Second, "03-15 10:20:30", "03-15 10:20:30"}, {Minute, "03-15 10:20:30", "03-15 10:20"},
    {Hour, "03-15 10:20:30", "03-15 09:30"},      {0, "03-15 10:20:30", "03-15"},
    {Day, "03-15 10:20:30", "03-15"},             {Month, "03-15 10:20:30", "03-01"},
    {Year, "03-15 10:20:30", "01-01"},            {7, "03-15 10:20:30", "01-01"}};

const struct {
    const char* zone; unsigned char unit; const char *from, *to; long count;
} kCounts[] = {
    {kShanghai, Hour, "03-05 10:59:59", "03-05 11", 1},
    {kShanghai, Month, "2023-11-30", "02-01", 3},
    {kShanghai, Year, "2024-12-31 23:59:59", "2025-01-01", 1},
    {kBerlin, Day, "03-31 23:59", "04-01", 1},      {kBerlin, Day, "03-31", "04-01 23:59", 1},
    {kBerlin, Day, "10-28", "10-27 23:59", -1},     {kBerlin, 0, "03-31", "04-01", 82800},
    // When one side has no time, seconds from time 0 are counted.
    {kSouthern, Day, "", "2024-07-15 12", 19919}, {kSouthern, Day, "2024-07-15 12", "", -19919},
    {kBerlin, Day, "", "2024-01-15 12", 19736},     {kBerlin, Day, "", "", 0},
    {kNewYork, Month, "", "1970-01-15", 1},         {kNewYork, Year, "1970-01-15", "", -1}};

const struct { int minutes; unsigned int radix, dots; } kDots[] = { // radix x 60 in 32 bits
    {60, 15, 4}, {60, 7, 8}, {59, 15, 3}, {1455, 1440, 1}, {7279214, 1, 7279214}, {0, 1, 0},
    {-1, 1, 0},  {1455, 0, 0}, {1455, 71582788, 0}, {1455, 71582789, 1984}, {1455, 1U << 30, 0}};

const struct { unsigned int radix; int n, seconds; } kSteps[] = {
    {15, 2, 1800}, {15, -4, -3600}, {1440, 0, 0}, {1440, -100, -8640000}, {1U << 30, 3, 0},
    {71582788, 1, -16}}; // seconds in 32 bits
// clang-format on

TEST(CivilTime, TurnsADayAtATime) {
    static const int kMonths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    long long year = 1900, month = 1, day = 1;
    for (long long wall = -25567 * model::kDay; year < 2101; wall += model::kDay) {
        const model::Civil c(wall);
        ASSERT_EQ(std::make_tuple(year, month, day), std::make_tuple(c.year, c.month, c.day));
        const bool leap = year % 4 == 0 && year != 1900 && year != 2100;
        if (++day > kMonths[month - 1] + (leap && month == 2 ? 1 : 0))
            day = 1, ++month;
        if (month > 12)
            month = 1, ++year;
    }
}

TEST(Calendar, UnitsAreAddedOnTheWall) {
    for (const auto& c : kSums) {
        const Zone zone(c.zone);
        EXPECT_EQ(Text(At(c.sum)), Text(dateadd(c.unit, c.n, At(c.t)))) << c.t << " " << c.n;
    }
    // For any distance: an hour in summer time is an hour before the same on the wall.
    const Zone zone(kBerlin);
    const long t = At("2024-01-15 12:00:07");
    for (const long n : {-40000000L, -1000000L, 300000L, INT_MAX / 60L, INT_MAX / 60L + 1}) {
        const long sum = dateadd(Minute, n, t);
        if (n <= LONG_MAX / 60 && n >= LONG_MIN / 60) {
            EXPECT_EQ(sum, dateadd(Second, n * 60, t)) << n;
        }
    }
}

TEST(Calendar, NothingIsAddedForAnUnknownUnit) {
    const Zone zone(kBerlin);
    for (const char* const converted : {"01-01", "07-01"}) // glibc reads the hour by that
        for (const long t : {At("10-27 01:30") + 3600, At("10-27 01:30") + 7200}) // 02:30, twice
            for (const unsigned char unit : std::initializer_list<unsigned char>{0, 7, 0x7F}) {
                At(converted);
                EXPECT_EQ(t, dateadd(unit, 1, t)) << int(unit) << " after " << converted;
            }
}

TEST(Calendar, NoTimeIsPassedThrough) {
    const Zone zone(kBerlin);
    for (unsigned char unit = 0; unit <= 7; ++unit)
        for (const long none : {0L, -1L, LONG_MIN}) {
            EXPECT_EQ(none, dateadd(unit, 5, none)) << int(unit);
            EXPECT_EQ(0, datetrim(unit, none)) << int(unit);
        }
    EXPECT_EQ(77, dateadd(Day, 0, 77));
}

TEST(Calendar, StartsOfUnits) {
    const Zone zone(kKolkata); // where hours begin at half past
    for (const auto& c : kStarts)
        EXPECT_EQ(Text(At(c.start)), Text(datetrim(c.unit, At(c.t)))) << int(c.unit);
}

TEST(Calendar, BoundariesAreCounted) {
    for (const auto& c : kCounts) {
        SCOPED_TRACE(std::string(c.zone) + " " + c.from + " to " + c.to);
        const Zone zone(c.zone);
        const long from = *c.from != '\0' ? At(c.from) : 0;
        const long to = *c.to != '\0' ? At(c.to) : 0;
        EXPECT_EQ(c.count, datediff(c.unit, from, to));
        if (from > 0 && to > 0) {
            EXPECT_EQ(c.count,
                      bcddatediff(c.unit, Bytes(Text(from)).data(), Bytes(Text(to)).data()));
        }
    }
}

TEST(Calendar, IntervalsOfMinutes) {
    const Zone zone(kShanghai);
    const long start = At("02-28 23:45");
    std::string from = Bytes(Text(start));
    for (const auto& c : kDots) {
        std::string to = Bytes(Text(start + c.minutes * 60L));
        EXPECT_EQ(c.dots, Time_BCDTime7ToDots(from.data(), to.data(), c.radix)) << c.minutes;
        EXPECT_EQ(c.dots, Time_BCDTime5ToDots(from.data() + 1, to.data() + 1, c.radix));
    }
    from[6] = 7; // the second counts in a Bcd7Time
    EXPECT_EQ(0U, Time_BCDTime7ToDots(from.data(), Bytes("2024-02-29 00:00:06").data(), 15));
    for (const auto& c : kSteps) {
        std::string record = from;
        Add_nRadixOnBCDTime7(record.data(), c.radix, c.n, record.data());
        EXPECT_EQ(Bytes(Text(start + 7 + c.seconds)), record) << c.radix << " " << c.n;
    }
}

} // namespace
