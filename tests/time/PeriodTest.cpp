// Points of timers, at any change of the clock. What happens at the ends of time is in
// target/AbiTest.cpp.
#include "mavkit/time/Period.h"
#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "models/CivilTime.h"
#include "time/TimeText.h"

#include <map>
#include <set>

namespace {

constexpr const char* kOrigin = "2000-01-01";
constexpr const char* kHavana = "CST5CDT,M4.1.0/0,M11.1.0/1"; // skips midnight
constexpr int kUnitSeconds[] = {0, 1, 60, 3600};

// A grid as it is defined, point by point. Its steps below a day are seconds.
std::vector<long> Walk(long base, int unit, int n, int back, int forth) {
    std::vector<long> points;
    for (int steps = -back * n; steps <= forth * n; steps += n) {
        std::tm f = FieldsOf(base);
        (unit == Day ? f.tm_mday : unit == Month ? f.tm_mon : f.tm_year) += steps;
        f.tm_isdst = -1;
        points.push_back(unit < Day ? base + steps * kUnitSeconds[unit]
                                    : static_cast<long>(std::mktime(&f)));
    }
    return points;
}

// Whether the grid and the rule must agree. Steps below a day are taken on the wall clock, so near
// a change of the clock they have another length; and a step of months from a day that the new
// month does not have continues into the month after it.
bool Agree(long t, int unit, int n) {
    const int reach = unit < Day ? n * kUnitSeconds[unit] + 7200 : 0;
    return FieldsOf(t - reach).tm_isdst == FieldsOf(t + reach).tm_isdst &&
           (unit != Month || n == 1 || FieldsOf(t).tm_mday <= 28);
}

bool Same(const std::string& a, const std::string& b, unsigned char unit, unsigned long n) {
    return issameperiod(Unsigned(Bytes(a, 7)), Unsigned(Bytes(b, 7)), unit, n);
}

// Zones by what their clocks do.
const char* const kClocks[] = {
    kUtc,
    kKolkata,
    kBerlin,
    kNewYork,
    kSydney,
    "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",    // half an hour, in the south
    "BRT3BRST,M10.3.0/0,M2.3.0/0",             // at midnight, which is skipped
    "<-03>3<-02>,M3.5.0/0,M10.5.0/0",          // the same in the north
    "IST-1GMT0,M10.5.0,M3.5.0/1",              // summer is the standard, winter is moved
    "<+00>0<+02>-2,M3.5.0/1,M10.5.0/3",        // by two hours
    "ONE-8TWO-9:20,M5.2.3/11,M9.3.4/13:10",    // by 80 minutes, in the middle of the day
    "ONE5TWO1:40,M4.2.3/11:50,M8.3.4/14:15:30" // by more than three hours
};

struct Timer {
    unsigned char unit, n, offsetUnit;
    unsigned long offset;
};

// clang-format off
// Steps that divide an hour, a day, ...: their points are the same readings on each side of a
// change.
const Timer kTimers[] = {
    {Minute, 10, Second, 0}, {Minute, 10, Second, 125}, {Hour, 1, Minute, 0}, {Hour, 1, Minute, 20},
    {Day, 1, Hour, 8},     {Day, 1, Minute, 0},  {Day, 1, Minute, 130}, {Day, 1, Minute, 60},
    {Day, 1, Hour, 12}, {Day, 3, Minute, 150},   {Month, 1, Minute, 90}, {Year, 1, Month, 5}};

const struct { unsigned char unit, n; } kAnySteps[] = {
    {Second, 7}, {Second, 90}, {Minute, 7}, {Minute, 15}, {Minute, 90}, {Hour, 2}, {Hour, 5},
    {Day, 2}};

const struct { unsigned char unit, n; const char* base; int back, forth; } kGrids[] = {
    {Second, 7, "03-30 20:00:03", 50, 50},  {Second, 90, kOrigin, 50, 100},
    {Minute, 15, "11-02 12:00:30", 60, 120}, {Minute, 90, kOrigin, 50, 100},
    {Hour, 5, "10-01 07:59:59", 60, 180},   {Hour, 36, kOrigin, 30, 220},
    {Day, 1, "02-28 08:00", 120, 260},      {Day, 30, kOrigin, 15, 150},
    {Month, 3, "02-28 12:30:15", 20, 20},   {Month, 18, kOrigin, 15, 20},
    {Year, 1, "2000-12-31 23:00", 20, 30},  {Year, 4, "03-01 06:00", 5, 3}};

// Cases in which the rule decides, because the points are not those of a simple calendar.
const struct {
    const char *zone, *base; unsigned char unit, n; const char *t, *up, *down;
    unsigned char offsetUnit = 0; unsigned long offset = 0; // of a timer with that base
} kBounds[] = {
    // A base on the 31st: in a shorter month its day continues into the next month.
    {kUtc, "01-31", Month, 1, "02-10", "03-02", "02-02"},
    // A month on from March 31 there is no such day: what follows is a month off the grid.
    {kUtc, "01-01", Month, 3, "03-31", "05-01", "02-01"},
    // Half past two is skipped on March 31 and comes an hour later, on that day only.
    {kBerlin, "01-01 02:30", Day, 1, "03-31", "03-31 03:30", "03-30 02:30"},
    {kBerlin, "01-01 02:30", Day, 1, "03-31 04", "04-01 02:30", "03-31 03:30"},
    // The first of March is before the day that a month before the 31st runs on to.
    {kUtc, "01-31", Month, 1, "03-01", "03-31", "01-31"},
    // An offset is signed, as it is in dateadd.
    {kUtc, "1999-12-31", Month, 1, "03-05", "03-31", "03-02", Day, ULONG_MAX},
    {kUtc, "1999-12-31 23:45", Hour, 1, "03-05 06", "03-05 06:45", "03-05 05:45", Minute, -15UL},
    // Hours are counted from half past there, so that a step of two can lead past a point.
    {kKolkata, "03-05 01", Hour, 2, "03-05 10:45", "03-05 12", "03-05 10"},
    // Midnight is skipped, on the first of a month.
    {kHavana, "2000-01-01", Month, 1, "2012-04-01 11", "2012-05-01", "2012-04-01 01"},
    {kHavana, "2000-01-01", Month, 1, "2012-03-31 14", "2012-04-01 01", "2012-03-01"},
    // A code above 6 counts years, but does not move: there is no point before.
    {kUtc, "2020-06-01", 7, 1, "03-05", "06-01", ""},
    {kBerlin, "2000-01-01 08", Day, 1, "03-31 01", "03-31 08", "03-30 08", Hour, 8},
    {kBerlin, "2000-01-01 00:30", Hour, 2, "12-05 11:15", "12-05 12:30", "12-05 10:30", Minute, 30},
    {kBerlin, "2000-01-15", Month, 1, "02-16", "03-15", "02-15", Day, 14},
    {kBerlin, "2000-06-01", Year, 1, "03-05", "06-01", "2023-06-01", Month, 5}};

const struct { unsigned char unit; unsigned short n; const char *a, *b; bool same; } kPairs[] = {
    {Minute, 15, "2024-03-05 10:14:59", "2024-03-05 10:00", true},
    {Minute, 15, "2024-03-05 10:14:59", "2024-03-05 10:15", false},
    // By fields: days and months count from 1, and summer time moves nothing.
    {Hour, 24, "2024-07-05 00:30", "2024-07-05 12", true},
    {Day, 28, "2024-03-27", "2024-03-01", true},     {Day, 28, "2024-03-28", "2024-03-27", false},
    {Month, 3, "2024-03-10", "2024-05-31", true},    {Month, 12, "2024-11-30", "2024-12-01", false},
    {Year, 255, "2000-01-01", "2099-12-31", true},   {Year, 255, "1999-12-31", "2000-01-01", false},
    // Larger steps are tested on the grid from the origin.
    {Second, 61, "2000-01-01 00:00:59", "2000-01-01 00:01", true},
    {Minute, 61, "2000-01-01 00:59", "2000-01-01 01", true},
    {Hour, 25, "2000-01-01 23", "2000-01-02", true}, {Day, 29, "2000-01-29", "2000-01-01", true},
    {Month, 13, "2000-12-01", "2001-01-31", true},   {Year, 256, "2001-01-01", "2037-12-31", true},
    // In Berlin the clock showed 01:00 at time 0, which means no time.
    {Day, 30, "1970-01-02", "1970-01-01 01", false},
    {Day, 30, "1970-01-01 01", "1970-01-02", false},
    // The first byte 0xFF marks an unset time.
    {Minute, 15, "FF24-03-05", "1999-03-05", true},  {9, 15, "FF24-03-05", "1999-03-05", true},
    {Minute, 15, "2024-03-05", "FF24-03-05", false}, {Hour, 9, "FF24-03-05", "FF24-03-05 08", true},
    {Hour, 9, "FF24-03-05", "FF24-03-05 09", false}, {0, 15, "2024-03-05", "2024-03-05", false},
    {7, 15, "2024-03-05", "2024-03-05", false},      {Hour, 0, "2024-03-05", "2024-03-05", false}};
// clang-format on

// When the clock changes in 2024, to the hour before.
std::vector<long> ChangesOfTheYear() {
    std::vector<long> changes;
    for (long t = At("01-02"); t < At("12-30"); t += 3600)
        if (model::Wall(t + 3600) - model::Wall(t) != 3600)
            changes.push_back(t);
    return changes;
}

TEST(Period, BoundsAreThoseOfTheGridWalkedPointByPoint) {
    for (const char* const name : {kUtc, kShanghai, kKolkata, kBerlin, kNewYork, kSydney}) {
        const Zone zone(name);
        for (const auto& g : kGrids) {
            if (name == kKolkata && g.unit == Hour && g.n > 1)
                continue; // counted hours begin at half past there, so the two cannot agree
            SCOPED_TRACE(std::string(name) + " " + g.base);
            const long base = At(g.base);
            const std::vector<long> points = Walk(base, g.unit, g.n, g.back, g.forth);
            int compared = 0;
            for (std::size_t i = 1; i + 1 < points.size(); ++i) {
                const long point = points[i];
                const long next = points[i + 1];
                const long inside = point + 1 + static_cast<long>(i) * 7919 % (next - point - 1);
                for (const long t : {point, point + 1, inside, next - 1}) {
                    if (!Agree(t, g.unit, g.n))
                        continue;
                    const long up = t == point ? point : next;
                    ASSERT_EQ(up, upboundtime(t, base, g.unit, g.n)) << Text(t);
                    ASSERT_EQ(point, downboundtime(t, base, g.unit, g.n)) << Text(t);
                    ++compared;
                    if (g.base != kOrigin || t != inside)
                        continue;
                    ASSERT_EQ(up, gettimerpoint(t, g.unit, g.n, Hour, 0, false)) << Text(t);
                    ASSERT_EQ(point, gettimerpoint(t, g.unit, g.n, Year, 0, true)) << Text(t);
                    for (const long u : {points[i - 1], point - 1, point, inside, next - 1, next})
                        ASSERT_EQ(u >= point && u < next, Same(Text(t), Text(u), g.unit, g.n))
                            << t << " " << u;
                }
            }
            EXPECT_GT(compared, 3 * (g.back + g.forth) / 2);
        }
    }
}

// Calls `test` with libc's `mktime`, which makes some skipped clock times later and others earlier,
// and with one that makes all of them earlier.
template <class Test>
void WithBothGaps(const Test& test) {
    test();
    const GapsGoBack back;
    SCOPED_TRACE("skipped times come earlier");
    test();
}

void CheckPeculiarBounds() {
    for (const auto& c : kBounds) {
        const Zone zone(c.zone);
        const long t = At(c.t);
        for (const bool down : {false, true}) {
            SCOPED_TRACE(std::string(c.zone) + " " + c.t + (down ? " down" : " up"));
            const std::string text = down ? c.down : c.up;
            const std::string want = Text(text.empty() ? -1 : At(text));
            const auto bound = down ? downboundtime : upboundtime;
            EXPECT_EQ(want, Text(bound(t, At(c.base), c.unit, c.n)));
            if (c.offset != 0) {
                EXPECT_EQ(want, Text(gettimerpoint(t, c.unit, c.n, c.offsetUnit, c.offset, down)));
            }
        }
    }
}

TEST(Period, BoundsWhereTheRuleIsPeculiar) { WithBothGaps(CheckPeculiarBounds); }

TEST(Period, PointsOfAnHourShownTwiceAreInItsFirstPass) {
    const Zone zone(kBerlin);
    const long first = At("10-27 01:00") + 3600;
    const long second = first + 3600;
    for (const char* const converted : {"01-01", "07-01"}) { // glibc reads the hour by that
        At(converted);
        EXPECT_EQ(first + 900, upboundtime(first + 1, first - 86400, Minute, 15));
        EXPECT_EQ(second + 3600, upboundtime(second + 1, first - 86400, Minute, 15));
        EXPECT_EQ(second - 900, downboundtime(second + 1, first - 86400, Minute, 15));
        EXPECT_EQ(first + 1800, gettimerpoint(first, Day, 1, Minute, 150, false));
        EXPECT_EQ(first + 1800, gettimerpoint(second + 7, Day, 1, Minute, 150, true));
    }
    // Faults that were found: 45 minutes ago, and an hour late.
    const Zone brazil("BRT3BRST,M10.3.0/0,M2.3.0/0");
    EXPECT_EQ(1708225200, gettimerpoint(1708221605, Minute, 15, Minute, 0, false));
    const Zone berlin(kBerlin);
    EXPECT_EQ(1711843200, gettimerpoint(1711843212, Hour, 1, Minute, 0, true));
}

TEST(Period, SamePeriodByFieldsAndByGrid) {
    const Zone zone(kBerlin);
    for (const auto& c : kPairs)
        EXPECT_EQ(c.same, Same(c.a, c.b, c.unit, c.n)) << c.a << " and " << c.b;
}

TEST(Period, APeriodMayStartAtASkippedTime) {
    const Zone zone(kHavana);
    WithBothGaps([] {
        EXPECT_FALSE(Same("2012-04-01 10", "2012-03-15 10", Month, 21));
        EXPECT_FALSE(Same("2012-03-15 10", "2012-04-01 10", Month, 21));
        EXPECT_TRUE(Same("2012-04-01 10", "2012-04-01 00:30", Month, 21));
        EXPECT_TRUE(Same("2012-04-01 00:30", "2012-04-01 10", Month, 21));
    });
}

TEST(Period, StepsAsLongAsTimeDoNotWrap) {
    const Zone zone(kUtc);
    const long t = At("03-05 06:07:08");
    const long later = At("2025-04-09 06:07:08");
    for (unsigned char unit = Second; unit <= Year; ++unit) {
        EXPECT_EQ(-1, upboundtime(t, At(kOrigin), unit, ULONG_MAX)) << int(unit);
        EXPECT_EQ(-1, downboundtime(t, later, unit, ULONG_MAX)) << int(unit);
        // Before its base a grid of that step has no point, and the base is the next.
        EXPECT_EQ(later, upboundtime(t, later, unit, ULONG_MAX)) << int(unit);
    }
}

// The points of a stretch of time as the model has them, each with the seconds that it is late for
// a gap.
std::map<long, long> PointsOf(const Timer& timer, long from, long to) {
    const long long base = model::Moved(model::Days(2000, 1, 1) * model::kDay, timer.offsetUnit,
                                        static_cast<long long>(timer.offset));
    const long long length = timer.unit < Month ? timer.n * model::kLengths[timer.unit] : 0;
    std::map<long, long> points;
    for (long long i = length != 0 ? (model::Wall(from) - base) / length - 1 : 0;; ++i) {
        const long long wall = model::Moved(base, timer.unit, i * timer.n);
        const long long t = model::FirstTime(wall);
        if (t >= to + model::kDay)
            return points;
        if (t >= from && t < to)
            points.emplace(static_cast<long>(t), static_cast<long>(model::Wall(t) - wall));
    }
}

// Each point of a year fires exactly once, for every change of the clock. A loop asks for the next
// point after each that has come; one that asks again in between gets the same point.
void CheckEachPointOfAYear() {
    for (const char* const name : kClocks) {
        const Zone zone(name);
        for (const Timer& timer : kTimers) {
            SCOPED_TRACE(std::string(name) + ", every " + std::to_string(timer.n) + " of unit " +
                         std::to_string(timer.unit) + " from " + std::to_string(timer.offset) +
                         " of " + std::to_string(timer.offsetUnit));
            const auto point = [&](long t, bool down) {
                return gettimerpoint(t, timer.unit, timer.n, timer.offsetUnit, timer.offset, down);
            };
            const auto walk = [&](long from, long to) {
                std::map<long, long> points = PointsOf(timer, from, to);
                for (long due, now = from - 1; (due = point(now + 1, false)) < to; now = due) {
                    ASSERT_EQ(1U, points.count(due)) << Text(due) << " after " << Text(now);
                    const long between = now + 1 + (due - now - 1) / 3;
                    ASSERT_EQ(Text(due), Text(point(between, false))) << "at " << Text(between);
                    if (points[due] == 0) {
                        ASSERT_EQ(due, point(due, false)) << Text(due);
                        ASSERT_EQ(due, point(due, true)) << Text(due);
                    }
                    points.erase(due);
                }
                // A skipped point may fall on the same time as another point.
                for (const auto& [missed, late] : points)
                    ASSERT_TRUE(timer.unit < Day && late != 0) << Text(missed);
            };
            if (timer.unit >= Day)
                walk(At("01-01"), At("2025-01-01"));
            else // on all other days these steps behave in the same way
                for (const long change : ChangesOfTheYear())
                    walk(change - 2 * 86400, change + 2 * 86400);
        }
    }
}

TEST(Period, EachPointOfAYearFiresOnce) { WithBothGaps(CheckEachPointOfAYear); }

// Any step: where the count of units and the clock run apart no two points are the same, no
// reading of the clock comes twice, and none is on the wrong side. The loop is that of the year
// around each change of the clock.
void CheckSidesOfPoints() {
    for (const char* const name : kClocks) {
        const Zone zone(name);
        for (const long change : ChangesOfTheYear())
            for (const auto& [unit, n] : kAnySteps) {
                SCOPED_TRACE(std::string(name) + ", every " + std::to_string(n) + " of unit " +
                             std::to_string(unit) + " at " + std::to_string(change));
                std::set<long long> shown;
                for (long now = change - 9000; now < change + 18000;) {
                    const long next = gettimerpoint(now, unit, n, Second, 0, false);
                    ASSERT_GE(next, now);
                    ASSERT_TRUE(shown.insert(model::Wall(next)).second) << Text(next);
                    now = next + 1;
                }
                for (long t = change - 9000; t < change + 18000; t += 599) {
                    std::string record = Bytes(Text(t));
                    ASSERT_GE(upboundtime(t, change - 5000, unit, n), t);
                    ASSERT_LE(downboundtime(t, change - 5000, unit, n), t);
                    ASSERT_LE(gettimerpoint(t, unit, n, Second, 0, true), t);
                    ASSERT_TRUE(issameperiod(Unsigned(record), Unsigned(record), unit, n)) << t;
                    ASSERT_TRUE(issameperiod(Unsigned(record), Unsigned(record), unit, n + 60U))
                        << t;
                    // A record stands for the first of two times that the clock shows alike.
                    const long once = static_cast<long>(model::FirstTime(model::Wall(t)));
                    const long first = gettimerpoint(once, unit, n + 60U, Second, 0, true);
                    const long before = gettimerpoint(first - 1, unit, n + 60U, Second, 0, true);
                    ASSERT_TRUE(Same(Text(t), Text(first), unit, n + 60U)) << t;
                    ASSERT_FALSE(Same(Text(t), Text(before), unit, n + 60U)) << t;
                }
            }
    }
}

TEST(Period, NoPointIsOnTheWrongSide) { WithBothGaps(CheckSidesOfPoints); }

} // namespace
