// Schedules and intervals. Adding, trimming and counting units of any times is held against a model
// in fuzz/Times.cpp, by exact values in target/AbiTest.cpp and faults/outcomes.txt.
#include "mavkit/time/Period.h"
#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "time/TimeText.h"

namespace {

constexpr const char* kOrigin = "2000-01-01";

/// A grid as its definition has it, walked point by point. Its steps below a day are seconds.
std::vector<long> Walk(long base, int unit, int n, int back, int forth) {
    std::vector<long> points;
    for (int steps = -back * n; steps <= forth * n; steps += n) {
        tm f = FieldsOf(base);
        (unit == Day ? f.tm_mday : unit == Month ? f.tm_mon : f.tm_year) += steps;
        f.tm_isdst = -1;
        points.push_back(unit < Day ? base + steps * kLengths[unit]
                                    : static_cast<long>(mktime(&f)));
    }
    return points;
}

/// Where the grid and the rule are meant to agree. Steps below a day are taken on the wall clock,
/// so close to a change of the clock they are not as long as they are elsewhere; and a step of
/// months from a day that the new month lacks runs on into the one after it.
bool Agree(long t, int unit, int n) {
    const int reach = unit < Day ? n * kLengths[unit] + 7200 : 0;
    return FieldsOf(t - reach).tm_isdst == FieldsOf(t + reach).tm_isdst &&
           (unit != Month || n == 1 || FieldsOf(t).tm_mday <= 28);
}

bool Same(const std::string& a, const std::string& b, unsigned char unit, unsigned long n) {
    return issameperiod(Unsigned(Bytes(a, 7)), Unsigned(Bytes(b, 7)), unit, n);
}

// clang-format off
const struct { unsigned char unit, n; const char* base; int back, forth; } kGrids[] = {
    {Second, 7, "03-30 20:00:03", 50, 50},  {Second, 90, kOrigin, 50, 100},
    {Minute, 15, "11-02 12:00:30", 60, 120}, {Minute, 90, kOrigin, 50, 100},
    {Hour, 5, "10-01 07:59:59", 60, 180},   {Hour, 36, kOrigin, 30, 220},
    {Day, 1, "02-28 08:00", 120, 260},      {Day, 30, kOrigin, 15, 150},
    {Month, 3, "02-28 12:30:15", 20, 20},   {Month, 18, kOrigin, 15, 20},
    {Year, 1, "2000-12-31 23:00", 20, 30},  {Year, 4, "03-01 06:00", 5, 3}};

// Where the points are not those that a calendar would have the rule decides.
const struct {
    const char *zone, *base; unsigned char unit, n; const char *t, *up, *down;
    unsigned char offsetUnit = 0, offset = 0; // of a timer with that base
} kBounds[] = {
    // A base on the 31st: its day runs on where the month is shorter.
    {kUtc, "01-31", Month, 1, "02-10", "03-02", "02-02"},
    // A month on from March 31 there is no such day: what follows is a month off the grid.
    {kUtc, "01-01", Month, 3, "03-31", "05-01", "02-01"},
    // Half past two is skipped on March 31 and comes an hour later.
    {kBerlin, "01-01 02:30", Day, 1, "03-31", "03-31 03:30", "03-30 03:30"},
    // Hours are counted from half past there, so that a step of two can lead past a point.
    {kKolkata, "03-05 01", Hour, 2, "03-05 10:45", "03-05 12", "03-05 10"},
    // A code above 6 counts years, but does not move.
    {kUtc, "2020-06-01", 7, 1, "03-05", "06-01", "06-01"},
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
    // In Berlin time 0, which is none, was at 1.
    {Day, 30, "1970-01-02", "1970-01-01 01", false},
    {Day, 30, "1970-01-01 01", "1970-01-02", false},
    // The first byte 0xFF marks an unset time.
    {Minute, 15, "FF24-03-05", "1999-03-05", true},  {9, 15, "FF24-03-05", "1999-03-05", true},
    {Minute, 15, "2024-03-05", "FF24-03-05", false}, {Hour, 9, "FF24-03-05", "FF24-03-05 08", true},
    {Hour, 9, "FF24-03-05", "FF24-03-05 09", false}, {0, 15, "2024-03-05", "2024-03-05", false},
    {7, 15, "2024-03-05", "2024-03-05", false},      {Hour, 0, "2024-03-05", "2024-03-05", false}};

const struct { int minutes; unsigned int radix, dots; } kDots[] = { // radix x 60 in 32 bits
    {60, 15, 4}, {60, 7, 8}, {59, 15, 3}, {1455, 1440, 1}, {7279214, 1, 7279214}, {0, 1, 0},
    {-1, 1, 0},  {1455, 0, 0}, {1455, 71582788, 0}, {1455, 71582789, 1984}, {1455, 1U << 30, 0}};

const struct { unsigned int radix; int n, seconds; } kSteps[] = {
    {15, 2, 1800}, {15, -4, -3600}, {1440, 0, 0}, {1440, -100, -8640000}, {1U << 30, 3, 0},
    {71582788, 1, -16}}; // seconds in 32 bits
// clang-format on

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
            for (size_t i = 1; i + 1 < points.size(); ++i) {
                const long point = points[i];
                const long next = points[i + 1];
                const long inside = point + 1 + static_cast<long>(i) * 7919 % (next - point - 1);
                for (const long t : {point, point + 1, inside, next - 1}) {
                    if (!Agree(t, g.unit, g.n))
                        continue;
                    const long up = t == point ? point : next;
                    ASSERT_EQ(upboundtime(t, base, g.unit, g.n), up) << Text(t);
                    ASSERT_EQ(downboundtime(t, base, g.unit, g.n), point) << Text(t);
                    ++compared;
                    if (g.base != kOrigin || t != inside)
                        continue;
                    ASSERT_EQ(gettimerpoint(t, g.unit, g.n, Hour, 0, false), up) << Text(t);
                    ASSERT_EQ(gettimerpoint(t, g.unit, g.n, Year, 0, true), point) << Text(t);
                    for (const long u : {points[i - 1], point - 1, point, inside, next - 1, next})
                        ASSERT_EQ(Same(Text(t), Text(u), g.unit, g.n), u >= point && u < next)
                            << t << " " << u;
                }
            }
            EXPECT_GT(compared, 3 * (g.back + g.forth) / 2);
        }
    }
}

TEST(Period, BoundsWhereTheRuleIsPeculiar) {
    for (const auto& c : kBounds) {
        const Zone zone(c.zone);
        const long t = At(c.t);
        for (const bool down : {false, true}) {
            const long want = At(down ? c.down : c.up);
            const long timer = gettimerpoint(t, c.unit, c.n, c.offsetUnit, c.offset, down);
            EXPECT_EQ((down ? downboundtime : upboundtime)(t, At(c.base), c.unit, c.n), want)
                << c.t;
            EXPECT_EQ(c.offset != 0 ? timer : want, want) << c.t;
        }
    }
}

TEST(Period, SamePeriodByFieldsAndByGrid) {
    const Zone zone(kBerlin);
    for (const auto& c : kPairs)
        EXPECT_EQ(Same(c.a, c.b, c.unit, c.n), c.same) << c.a << " and " << c.b;
}

TEST(Period, StepsAsLongAsTimeDoNotWrap) {
    const Zone zone(kUtc);
    const long t = At("03-05 06:07:08");
    const long later = At("2025-04-09 06:07:08");
    for (unsigned char unit = Second; unit <= Year; ++unit) {
        EXPECT_EQ(upboundtime(t, At(kOrigin), unit, ULONG_MAX), -1) << int(unit);
        EXPECT_EQ(downboundtime(t, later, unit, ULONG_MAX), -1) << int(unit);
        // Before its base a grid of that step has no point, and the base is the next.
        EXPECT_EQ(upboundtime(t, later, unit, ULONG_MAX), later) << int(unit);
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
