#include "mavkit/time/Calendar.h"

#include "device/Device.h"
#include "time/TimeText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

namespace {

constexpr bool kWide = LONG_MAX > INT_MAX; // times beyond 2038

TEST(Calendar, UnitsAreAddedOnTheWallClock) {
    static const struct {
        const char* zone;
        int unit;
        long n;
        const char *from, *to;
    } kSums[] = {
        {kShanghai, Month, 1, "2024-01-31 00:00:00", "2024-03-02 00:00:00"},
        {kShanghai, Month, -15, "2024-03-31 10:20:30", "2022-12-31 10:20:30"},
        {kShanghai, Year, 1, "2024-02-29 00:00:00", "2025-03-01 00:00:00"},
        {kShanghai, Year, -4, "2024-02-29 00:00:00", "2020-02-29 00:00:00"},
        {kShanghai, Day, -1, "2024-03-01 00:00:00", "2024-02-29 00:00:00"},
        {kShanghai, Hour, 25, "2024-12-31 23:30:00", "2025-01-02 00:30:00"},
        {kShanghai, Minute, -1, "2024-01-01 00:00:30", "2023-12-31 23:59:30"},
        {kShanghai, Second, 86401, "2024-02-28 23:59:59", "2024-03-01 00:00:00"},
        {kShanghai, 0, 5, "2024-03-05 06:07:08", "2024-03-05 06:07:08"},
        {kShanghai, 7, -5, "2024-03-05 06:07:08", "2024-03-05 06:07:08"},
        // Where the clock is changed a day has 23 or 25 hours; noon stays noon.
        {kBerlin, Day, 1, "2024-03-30 12:00:00", "2024-03-31 12:00:00"},
        {kNewYork, Day, -1, "2024-11-04 12:00:00", "2024-11-03 12:00:00"},
        {kSydney, Month, 1, "2024-03-15 12:00:00", "2024-04-15 12:00:00"},
        {kBerlin, Hour, 3, "2024-03-31 01:30:00", "2024-03-31 04:30:00"},
        {kNewYork, Minute, 180, "2024-11-03 00:30:00", "2024-11-03 03:30:00"},
    };
    for (const auto& c : kSums) {
        const Zone zone(c.zone);
        const auto unit = static_cast<unsigned char>(c.unit);
        EXPECT_EQ(Text(dateadd(unit, c.n, At(c.from))), c.to) << c.from << " + " << c.n;
        EXPECT_EQ(dateadd(unit, 0, At(c.from)), At(c.from));
        for (const long none : {0L, -1L, LONG_MIN}) {
            EXPECT_EQ(dateadd(unit, c.n, none), none);
            EXPECT_EQ(datetrim(unit, none), 0);
        }
    }
}

TEST(Calendar, SumsBeyondAnIntAreExactOrRefused) {
    const Zone zone(kUtc);
    const long t = At("2024-03-05 06:07:08");
    static const long long kLengths[] = {1, 60, 3600, 86400};
    for (unsigned char unit = Second; unit <= Day; ++unit) {
        for (const long long n : {INT_MAX - 5LL, INT_MAX + 0LL, INT_MAX + 7LL, 3000000000LL}) {
            for (const long long units : {n, -n}) {
                const long long moved = t + units * kLengths[unit - Second];
                if (units >= LONG_MIN && units <= LONG_MAX) {
                    const bool fits = moved >= LONG_MIN && moved <= LONG_MAX;
                    EXPECT_EQ(dateadd(unit, static_cast<long>(units), t), fits ? moved : -1)
                        << int(unit) << " " << units;
                }
            }
        }
    }
    for (unsigned char unit = Second; unit <= Year; ++unit) {
        EXPECT_EQ(dateadd(unit, LONG_MAX, t), -1) << int(unit);
        EXPECT_TRUE(dateadd(unit, LONG_MIN, t) == -1 || !kWide) << int(unit);
    }
    if (kWide) { // whole 400-year cycles
        const long cycles = static_cast<long>(146097LL * 1000000 * 86400);
        EXPECT_EQ(dateadd(Month, static_cast<long>(4800000001LL), t),
                  At("2024-04-05 06:07:08") + cycles);
        EXPECT_EQ(dateadd(Month, static_cast<long>(-4800000001LL), t),
                  At("2024-02-05 06:07:08") - cycles);
        EXPECT_EQ(dateadd(Year, INT_MAX, t), -1);
    }
}

TEST(Calendar, TimesAreTrimmedToTheirUnit) {
    static const struct {
        const char* zone;
        int unit;
        const char* start; // of the unit that holds 2024-10-06 10:20:30
    } kStarts[] = {
        {kShanghai, Second, "2024-10-06 10:20:30"}, {kShanghai, Minute, "2024-10-06 10:20:00"},
        {kShanghai, Hour, "2024-10-06 10:00:00"},   {kKolkata, Hour, "2024-10-06 09:30:00"},
        {kSydney, Day, "2024-10-06 00:00:00"},      {kShanghai, 0, "2024-10-06 00:00:00"},
        {kSydney, Month, "2024-10-01 00:00:00"},    {kBerlin, Year, "2024-01-01 00:00:00"},
        {kShanghai, 7, "2024-01-01 00:00:00"},
    };
    for (const auto& c : kStarts) {
        const Zone zone(c.zone);
        const long t = At("2024-10-06 10:20:30");
        EXPECT_EQ(Text(datetrim(static_cast<unsigned char>(c.unit), t)), c.start) << c.unit;
    }
}

TEST(Calendar, BoundariesAreCountedNotUnits) {
    static const char* const kGap = "XST-2XDT,J91/0,J274/0"; // no midnight on April 1
    static const struct {
        const char* zone;
        int unit;
        const char* from; // null: no time
        const char* to;
        long count;
    } kSpans[] = {
        {kShanghai, Second, "2024-02-28 23:59:59", "2024-02-29 00:00:01", 2},
        {kShanghai, Minute, "2024-03-05 10:59:59", "2024-03-05 11:00:00", 1},
        {kShanghai, Hour, "2024-03-05 10:59:59", "2024-03-05 11:00:00", 1},
        {kShanghai, Hour, "2024-03-05 10:00:00", "2024-03-05 10:59:59", 0},
        {kKolkata, Hour, "2024-03-05 10:00:00", "2024-03-05 10:59:59", 1},
        {kKolkata, Day, "2024-03-05 23:59:59", "2024-03-06 00:00:00", 1},
        {kShanghai, Day, "2023-12-31 23:59:59", "2024-12-31 00:00:00", 366},
        {kShanghai, Month, "2023-11-30 00:00:00", "2024-02-01 00:00:00", 3},
        {kShanghai, Month, "2024-02-01 00:00:00", "2024-02-29 23:59:59", 0},
        {kShanghai, Year, "2024-12-31 23:59:59", "2025-01-01 00:00:00", 1},
        {kShanghai, 9, "2020-12-31 23:59:59", "2025-01-01 00:00:00", 5},
        {kShanghai, 0, "2024-03-05 10:00:00", "2024-03-07 01:00:00", 2 * 86400},
        // Days of 23 and of 25 hours are days.
        {kBerlin, Day, "2024-03-31 00:00:00", "2024-04-01 00:00:00", 1},
        {kBerlin, Day, "2024-03-01 12:00:00", "2024-11-01 06:00:00", 245},
        {kNewYork, Day, "2024-11-03 23:59:59", "2024-11-04 00:00:00", 1},
        {kSydney, Day, "2000-01-01 00:00:00", "2024-10-06 12:00:00", 9045},
        {kGap, Month, "2023-03-31 12:00:00", "2023-04-15 00:00:00", 1},
        {kGap, Day, "2023-03-31 12:00:00", "2023-04-01 12:00:00", 1},
        // No time counts as time 0, which is 08:00 in Shanghai and the evening before in New York.
        {kUtc, Second, nullptr, "1970-01-02 00:00:01", 86401},
        {kShanghai, Day, nullptr, "1970-01-03 12:00:00", 1},
        {kNewYork, Day, nullptr, "1970-01-03 12:00:00", 2},
        {kShanghai, Month, nullptr, "1970-03-01 00:00:00", 2},
        {kNewYork, Month, nullptr, "1970-03-01 00:00:00", 3},
        {kNewYork, Year, nullptr, "1970-03-01 00:00:00", 1},
    };
    for (const auto& c : kSpans) {
        const Zone zone(c.zone);
        const auto unit = static_cast<unsigned char>(c.unit);
        const long from = c.from != nullptr ? At(c.from) : LONG_MIN;
        EXPECT_EQ(datediff(unit, from, At(c.to)), c.count) << c.unit << " to " << c.to;
        EXPECT_EQ(datediff(unit, At(c.to), from), -c.count) << c.unit << " from " << c.to;
        if (c.from != nullptr) {
            EXPECT_EQ(bcddatediff(unit, Bytes(c.from).data(), Bytes(c.to).data()), c.count);
        }
    }
    EXPECT_EQ(datediff(Second, 0, LONG_MAX), LONG_MAX);
}

TEST(Calendar, IntervalsOfMinutes) {
    const Zone zone(kShanghai);
    static const struct {
        const char* to; // from 2024-02-28 23:45:00
        unsigned int radix, dots;
    } kDots[] = {
        {"2024-02-29 00:45:00", 15, 4},       {"2024-02-29 00:45:00", 7, 8},
        {"2024-02-29 00:44:00", 15, 3},       {"2024-03-01 00:00:00", 1440, 1},
        {"2037-12-31 23:59:00", 1, 7279214},  {"2024-02-28 23:45:00", 1, 0},
        {"2024-02-28 23:44:00", 1, 0},        {"2024-03-01 00:00:00", 0, 0},
        {"2024-03-01 00:00:00", 71582788, 0}, {"2024-03-01 00:00:00", 1U << 30, 0}, // 0 in 32 bits
    };
    std::string from = Bytes("2024-02-28 23:45:00");
    for (const auto& c : kDots) {
        std::string to = Bytes(c.to);
        EXPECT_EQ(Time_BCDTime7ToDots(from.data(), to.data(), c.radix), c.dots) << c.to;
        EXPECT_EQ(Time_BCDTime5ToDots(from.data() + 1, to.data() + 1, c.radix), c.dots) << c.to;
    }
    static const struct {
        unsigned int radix;
        int n;
        const char* out; // from 2024-02-28 23:45:07
    } kSteps[] = {
        {15, 2, "2024-02-29 00:15:07"},       {15, -4, "2024-02-28 22:45:07"},
        {1440, 0, "2024-02-28 23:45:07"},     {1440, -100, "2023-11-20 23:45:07"},
        {1U << 30, 3, "2024-02-28 23:45:07"}, {71582788, 1, "2024-02-28 23:44:51"}, // 32 bits
    };
    for (const auto& c : kSteps) {
        std::string record = Bytes("2024-02-28 23:45:07");
        Add_nRadixOnBCDTime7(record.data(), c.radix, c.n, record.data());
        EXPECT_EQ(record, Bytes(c.out)) << c.radix << " " << c.n;
    }
    std::string to = Bytes("2024-02-29 00:00:06"); // the second counts in a Bcd7Time
    from[6] = 7;
    EXPECT_EQ(Time_BCDTime7ToDots(from.data(), to.data(), 15), 0U);
}

TEST(Calendar, WhatLibcCannotConvertIsMinusOne) {
    Device device;
    const Zone zone(kUtc);
    const long t = At("2024-03-05 06:07:08");
    for (const char* const call : {"localtime", "mktime"}) {
        Device::Fail(call, EOVERFLOW, 2);
        EXPECT_EQ(dateadd(Day, 1, t), -1) << call;
        EXPECT_EQ(datetrim(Month, t), -1) << call;
    }
    Device::Fail("localtime", EOVERFLOW); // then it counts as time 0
    EXPECT_EQ(datediff(Day, t, At("1970-01-03")), 2);
    if (kWide) {
        EXPECT_EQ(dateadd(Year, 1, LONG_MAX), -1);
        EXPECT_EQ(datetrim(Day, LONG_MAX), -1);
    }
}

} // namespace
