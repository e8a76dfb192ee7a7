#include "mavkit/time/Period.h"

#include "device/Device.h"
#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "time/TimeText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <vector>

namespace {

constexpr const char* kOrigin = "2000-01-01 00:00:00";
constexpr long kLengths[] = {0, 1, 60, 3600, 86400};

tm FieldsOf(long t) {
    const time_t time = t;
    return *localtime(&time);
}

/// Seconds that the wall clock is ahead of UTC at `t`.
long AheadAt(long t) {
    tm f = FieldsOf(t);
    return static_cast<long>(timegm(&f)) - t;
}

/// The moment at which the wall clock shows `f`, found by trying what the zone is ahead in winter
/// and in summer. 0 where the clock skips it or shows it twice.
long MomentOf(tm f) {
    const long wall = static_cast<long>(timegm(&f));
    const long winter = AheadAt(At("2024-01-01"));
    const long summer = AheadAt(At("2024-07-01"));
    const bool first = AheadAt(wall - winter) == winter;
    const bool second = AheadAt(wall - summer) == summer;
    if (winter != summer && first == second) {
        return 0;
    }
    return wall - (first ? winter : summer);
}

/// A grid as its definition has it, walked point by point on a calendar of its own (UTC's).
std::vector<long> Walk(long base, unsigned char unit, unsigned long n, int back, int forth) {
    std::vector<long> points;
    for (int i = -back; i <= forth; ++i) {
        const int steps = i * static_cast<int>(n);
        tm f = FieldsOf(base);
        f.tm_mday += unit == Day ? steps : 0;
        f.tm_mon += unit == Month ? steps : 0;
        f.tm_year += unit == Year ? steps : 0;
        points.push_back(unit < Day ? base + steps * kLengths[unit] : MomentOf(f));
    }
    return points;
}

/// Where the grid and the rule are meant to agree. Steps below a day are taken on the wall clock,
/// so close to a change of the clock they are not as long as they are elsewhere; and a step of
/// months from a day that the new month lacks runs on into the one after it.
bool Agree(long t, unsigned char unit, unsigned long n) {
    if (unit < Day) {
        const long reach = static_cast<long>(n) * kLengths[unit] + 7200;
        return AheadAt(t - reach) == AheadAt(t + reach);
    }
    return unit != Month || n == 1 || FieldsOf(t).tm_mday <= 28;
}

TEST(Period, BoundsAreThoseOfTheGridWalkedPointByPoint) {
    static const struct {
        unsigned char unit;
        unsigned long n;
        const char* base;
        int back, forth;
    } kGrids[] = {
        {Second, 7, "2024-03-30 20:00:03", 50, 50},
        {Second, 90, kOrigin, 50, 100},
        {Minute, 15, "2024-11-02 12:00:30", 60, 120},
        {Minute, 90, kOrigin, 50, 100},
        {Hour, 1, "2024-03-30 00:20:10", 60, 60},
        {Hour, 5, "2024-10-01 07:59:59", 60, 180},
        {Hour, 36, kOrigin, 30, 220},
        {Day, 1, "2024-02-28 08:00:00", 120, 260},
        {Day, 3, "2023-12-31 23:59:59", 60, 120},
        {Day, 30, kOrigin, 15, 150},
        {Month, 1, "2024-01-01 00:00:00", 40, 40},
        {Month, 3, "2024-02-28 12:30:15", 20, 20},
        {Month, 18, kOrigin, 15, 20},
        {Year, 1, "2000-12-31 23:00:00", 20, 30},
        {Year, 4, "2024-03-01 06:00:00", 5, 3},
    };
    for (const char* const name : {kUtc, kShanghai, kKolkata, kBerlin, kNewYork, kSydney}) {
        const Zone zone(name);
        for (const auto& g : kGrids) {
            if (name == kKolkata && g.unit == Hour && g.n > 1) {
                continue; // counted hours begin at half past there, so the two cannot agree
            }
            const long base = At(g.base);
            const bool onOrigin = g.base == kOrigin;
            const std::vector<long> points = Walk(base, g.unit, g.n, g.back, g.forth);
            int compared = 0;
            for (size_t i = 1; i + 1 < points.size(); ++i) {
                const long point = points[i];
                const long next = points[i + 1];
                ASSERT_LT(point, next) << name << " " << g.base;
                const long inside = point + 1 + static_cast<long>(i) * 7919 % (next - point - 1);
                for (const long t : {point, point + 1, inside, next - 1}) {
                    if (!Agree(t, g.unit, g.n)) {
                        continue;
                    }
                    const long up = t == point ? point : next;
                    ASSERT_EQ(upboundtime(t, base, g.unit, g.n), up)
                        << name << " " << int(g.unit) << " " << Text(t) << " " << Text(up);
                    ASSERT_EQ(downboundtime(t, base, g.unit, g.n), point)
                        << name << " " << int(g.unit) << " " << Text(t) << " " << Text(point);
                    ++compared;
                    if (!onOrigin || t != inside) {
                        continue;
                    }
                    ASSERT_EQ(gettimerpoint(t, g.unit, g.n, Hour, 0, false), up) << Text(t);
                    ASSERT_EQ(gettimerpoint(t, g.unit, g.n, Year, 0, true), point) << Text(t);
                    std::string a = Bytes(Text(t));
                    for (const long u : {points[i - 1], point - 1, point, inside, next - 1, next}) {
                        std::string b = Bytes(Text(u));
                        ASSERT_EQ(issameperiod(Unsigned(a), Unsigned(b), g.unit, g.n),
                                  u >= point && u < next)
                            << name << " " << Text(t) << " " << Text(u);
                    }
                }
            }
            EXPECT_GT(compared, 3 * (g.back + g.forth) / 2) << name << " " << g.base;
        }
    }
}

// Where the points are not those that a calendar would have, the rule decides.
TEST(Period, BoundsWhereTheRuleIsPeculiar) {
    static const struct {
        const char *zone, *base;
        int unit;
        unsigned long n;
        const char *t, *up, *down;
    } kBounds[] = {
        // A base on the 31st: its day runs on where the month is shorter.
        {kUtc, "2024-01-31", Month, 1, "2024-02-10", "2024-03-02", "2024-02-02"},
        // A month on from March 31 there is no such day: what follows is a month off the grid.
        {kUtc, "2024-01-01", Month, 3, "2024-03-31", "2024-05-01", "2024-02-01"},
        {kUtc, "2024-02-29", Year, 1, "2025-02-01", "2025-03-01", "2024-03-01"},
        // Half past two is skipped on March 31 and comes an hour later.
        {kBerlin, "2024-01-01 02:30", Day, 1, "2024-03-31", "2024-03-31 03:30", "2024-03-30 03:30"},
        // Hours are counted from half past there, so that a step of two can lead past a point.
        {kKolkata, "2024-03-05 01:00", Hour, 2, "2024-03-05 10:45", "2024-03-05 12:00",
         "2024-03-05 10:00"},
        // A code above 6 counts years and one of 0 seconds of days, but neither moves.
        {kUtc, "2020-06-01", 7, 1, "2024-03-05", "2024-06-01", "2024-06-01"},
        {kUtc, "2020-06-01 12:00", 0, 7, "2024-03-05 10:00", "2024-03-05 10:00",
         "2024-03-05 10:00"},
    };
    for (const auto& c : kBounds) {
        const Zone zone(c.zone);
        const auto unit = static_cast<unsigned char>(c.unit);
        EXPECT_EQ(upboundtime(At(c.t), At(c.base), unit, c.n), At(c.up)) << c.t;
        EXPECT_EQ(downboundtime(At(c.t), At(c.base), unit, c.n), At(c.down)) << c.t;
    }
}

TEST(Period, TimerPointsStandOnTheOriginAndTheOffset) {
    static const struct {
        unsigned char unit, offsetUnit;
        unsigned long n, offset;
        const char *t, *up, *down;
    } kPoints[] = {
        {Day, Hour, 1, 8, "2024-03-05 07:59", "2024-03-05 08:00", "2024-03-04 08:00"},
        {Day, Hour, 1, 8, "2024-03-31 01:00", "2024-03-31 08:00", "2024-03-30 08:00"},
        {Hour, Minute, 2, 30, "2024-12-05 11:15", "2024-12-05 12:30", "2024-12-05 10:30"},
        {Month, Day, 1, 14, "2024-02-16", "2024-03-15", "2024-02-15"},
        {Year, Month, 1, 5, "2024-03-05", "2024-06-01", "2023-06-01"},
    };
    const Zone zone(kBerlin);
    for (const auto& c : kPoints) {
        const long t = At(c.t);
        EXPECT_EQ(gettimerpoint(t, c.unit, c.n, c.offsetUnit, c.offset, false), At(c.up)) << c.t;
        EXPECT_EQ(gettimerpoint(t, c.unit, c.n, c.offsetUnit, c.offset, true), At(c.down)) << c.t;
    }
}

TEST(Period, ExtremesGiveNoTimeAndNeverWrap) {
    const Zone zone(kUtc);
    const long t = At("2024-03-05 06:07:08");
    const long base = At(kOrigin);
    const long later = At("2025-04-09 06:07:08");
    for (unsigned char unit = Second; unit <= Year; ++unit) {
        for (const bool down : {false, true}) {
            const auto bound = down ? downboundtime : upboundtime;
            EXPECT_EQ(bound(t, base, unit, 0), -1);
            EXPECT_EQ(bound(0, base, unit, 1), -1);
            EXPECT_EQ(bound(LONG_MIN, base, unit, 1), -1);
            EXPECT_EQ(bound(t, base, unit, ULONG_MAX), -1) << int(unit);
            // Before its base a grid of that step has no point, and the base is the next.
            EXPECT_EQ(bound(t, later, unit, ULONG_MAX), down ? -1 : later) << int(unit);
            EXPECT_EQ(gettimerpoint(0, unit, 1, Day, 0, down), -1);
            EXPECT_EQ(gettimerpoint(t, unit, 0, Day, 0, down), -1);
            // Without an origin that far the base is -1, the last second before 1970.
            EXPECT_EQ(gettimerpoint(t, unit, 1, Year, ULONG_MAX, down), bound(t, -1, unit, 1));
        }
    }
    Device device;
    for (int made = 0; made < 3; ++made) { // each of the conversions can fail
        Device::Fail("mktime", EOVERFLOW, 1, made);
        EXPECT_EQ(downboundtime(t, base, Month, 7), -1) << made;
    }
    for (int broken = 0; broken < 2; ++broken) {
        Device::Fail("localtime", EOVERFLOW, 1, broken);
        EXPECT_EQ(upboundtime(t, base, Minute, 7), -1) << broken;
    }
}

TEST(Period, SamePeriodByFieldsAndByGrid) {
    static const struct {
        const char *a, *b;
        int unit;
        unsigned long n;
        bool same;
    } kPairs[] = {
        {"2024-03-05 10:14:59", "2024-03-05 10:00:00", Minute, 15, true},
        {"2024-03-05 10:14:59", "2024-03-05 10:15:00", Minute, 15, false},
        {"2024-03-05 10:00:59", "2024-03-05 10:00:00", Second, 60, true},
        {"2024-03-05 23:00:00", "2024-03-05 00:00:00", Hour, 24, true},
        {"2024-03-05 11:59:59", "2024-03-05 12:00:00", Hour, 12, false},
        {"2024-03-28 00:00:00", "2024-03-01 00:00:00", Day, 28, false}, // days count from 1
        {"2024-02-10 00:00:00", "2024-03-01 00:00:00", Month, 3, false},
        {"2024-03-10 00:00:00", "2024-05-31 00:00:00", Month, 3, true},
        {"2024-11-30 00:00:00", "2024-12-01 00:00:00", Month, 12, false},
        {"2000-01-01 00:00:00", "2099-12-31 00:00:00", Year, 255, true},
        {"1999-12-31 00:00:00", "2000-01-01 00:00:00", Year, 255, false}, // another century
        // Larger steps are tested on the grid from the origin.
        {"2000-01-01 00:01:29", "2000-01-01 00:01:31", Second, 90, false},
        {"2000-01-01 00:00:59", "2000-01-01 00:01:00", Second, 61, true},
        {"2000-01-01 00:59:59", "2000-01-01 01:00:00", Minute, 61, true},
        {"2000-01-01 23:59:59", "2000-01-02 00:00:00", Hour, 25, true},
        {"2000-01-29 00:00:00", "2000-01-01 00:00:00", Day, 29, true},
        {"2000-12-01 00:00:00", "2001-01-31 00:00:00", Month, 13, true},
        {"2001-01-01 00:00:00", "2037-12-31 00:00:00", Year, 256, true},
        {"1970-01-02 00:00:00", "1970-01-01 00:00:00", Day, 30, false}, // no time above 0
        {"1970-01-01 00:00:00", "1970-01-02 00:00:00", Day, 30, false},
        // The first byte 0xFF marks an unset time.
        {"FF24-03-05 10:14:59", "1999-03-05 10:00:00", Minute, 15, true},
        {"FF24-03-05 10:14:59", "1999-03-05 10:00:00", 9, 15, true},
        {"2024-03-05 10:14:59", "FF24-03-05 10:14:59", Minute, 15, false},
        {"FF24-03-05 10:14:59", "FF24-03-05 10:00:00", Minute, 15, true},
        {"FF24-03-05 10:14:59", "FF24-03-05 10:15:00", Minute, 15, false},
        {"2024-03-05 10:14:59", "2024-03-05 10:14:59", 0, 15, false},
        {"2024-03-05 10:14:59", "2024-03-05 10:14:59", 7, 15, false},
        {"2024-03-05 10:14:59", "2024-03-05 10:14:59", Minute, 0, false},
    };
    const Zone zone(kUtc);
    for (const auto& c : kPairs) {
        std::string a = Bytes(c.a);
        std::string b = Bytes(c.b);
        EXPECT_EQ(issameperiod(Unsigned(a), Unsigned(b), static_cast<unsigned char>(c.unit), c.n),
                  c.same)
            << c.a << " and " << c.b;
    }
}

// Conversions are what these operations cost; none is made that the result does not hang on.
TEST(Period, NoConversionTwice) {
    Device device;
    const Zone zone(kBerlin);
    static long t = At("2024-03-05 10:07:23");
    static long base = At(kOrigin);
    static std::string a = Bytes(Text(t));
    static std::string b = Bytes(Text(base));
    static const struct {
        const char* name;
        void (*call)();
        int broken, made;
    } kCosts[] = {
        {"record", [] { Time_tTimeToBCDTime7(t, a.data()); }, 1, 0},
        {"add", [] { dateadd(Day, 1, t); }, 1, 1},
        {"trim an hour", [] { datetrim(Hour, t); }, 0, 0},
        {"trim a month", [] { datetrim(Month, t); }, 1, 1},
        {"count hours", [] { datediff(Hour, base, t); }, 0, 0},
        {"count days", [] { datediff(Day, base, t); }, 2, 0},
        {"count months", [] { datediff(Month, base, t); }, 2, 0},
        {"count days of records", [] { bcddatediff(Day, b.data(), a.data()); }, 0, 2},
        {"up from between", [] { upboundtime(t, base, Minute, 15); }, 2, 2},
        {"up from a day of the grid", [] { upboundtime(t, base, Day, 1); }, 2, 2},
        {"up by seconds", [] { upboundtime(t, base, Second, 90); }, 1, 2},
        {"up from a point", [] { upboundtime(base, base, Day, 1); }, 2, 1},
        {"down from a point", [] { downboundtime(base, base, Day, 1); }, 2, 1},
        {"down from between", [] { downboundtime(t, base, Minute, 15); }, 2, 3},
        {"timer point", [] { gettimerpoint(t, Minute, 15, Hour, 0, true); }, 1, 4},
        {"timer point, offset", [] { gettimerpoint(t, Minute, 15, Hour, 8, true); }, 1, 5},
        {"period by fields", [] { issameperiod(Unsigned(a), Unsigned(b), Hour, 24); }, 0, 0},
        {"period by grid", [] { issameperiod(Unsigned(a), Unsigned(b), Minute, 90); }, 0, 6},
    };
    for (const auto& c : kCosts) {
        Device::ForgetCalls();
        c.call();
        EXPECT_EQ(Device::Calls("localtime"), c.broken) << c.name;
        EXPECT_EQ(Device::Calls("mktime"), c.made) << c.name;
    }
}

} // namespace
