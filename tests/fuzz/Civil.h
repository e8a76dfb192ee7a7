/// \file
/// A calendar of the fuzz targets' own, by plain counting of days: it tells what `mktime` must come to.
/// A "wall" is what a clock on the wall shows, as the seconds from 1970-01-01 00:00:00 by that clock.
#ifndef MAVKIT_TESTS_FUZZ_CIVIL_H
#define MAVKIT_TESTS_FUZZ_CIVIL_H

#include "Fuzz.h"

#include <climits>
#include <ctime>

namespace fuzz {

constexpr long long kDay = 86400;
constexpr long long kFar = 1LL << 60;                    // beyond all times
constexpr long long kLengths[] = {0, 1, 60, 3600, kDay}; // by unit

inline long long FloorDiv(long long a, long long b) { return a / b - (a % b < 0 ? 1 : 0); }

/// Days from 1970-01-01 to a date; months and days out of their range run on.
inline long long Days(long long year, long long month, long long day) {
    static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    year += FloorDiv(month - 1, 12);
    month -= FloorDiv(month - 1, 12) * 12;
    const long long y = month > 2 ? year : year - 1; // February 29 counts from March on
    const long long leapDays = FloorDiv(y, 4) - FloorDiv(y, 100) + FloorDiv(y, 400) - 477;
    return (year - 1970) * 365 + leapDays + kBefore[month - 1] + day - 1;
}

struct Civil {
    long long year, month, day, second; // the second of the day

    explicit Civil(long long wall) : month(12), second(wall - FloorDiv(wall, kDay) * kDay) {
        const long long days = FloorDiv(wall, kDay);
        year = 1971 + FloorDiv(days * 400, 146097);
        while (Days(year, 1, 1) > days)
            --year;
        while (Days(year, month, 1) > days)
            --month;
        day = days - Days(year, month, 1) + 1;
    }
};

/// A wall moved by units of the calendar; kFar where the sum would not fit.
inline long long Moved(long long wall, int unit, long long n) {
    if (unit < 1 || unit > 6)
        return wall;
    if (n / (unit < 5 ? kFar / kLengths[unit] : 1LL << 36) != 0)
        return kFar;
    if (unit < 5)
        return wall + n * kLengths[unit];
    const Civil c(wall);
    return Days(c.year + (unit == 6 ? n : 0), c.month + (unit == 5 ? n : 0), c.day) * kDay +
           c.second;
}

/// The zone that the process lives in: half of them with daylight saving, one that skips midnight, and
/// one of half an hour.
class Zone {
public:
    explicit Zone(Input& in) : index_(in.Byte() % 8) {
        // clang-format off
        static const char* const kZones[] = {
            "UTC0", "CST-8", "IST-5:30", "<-12>12", "CET-1CEST,M3.5.0,M10.5.0/3",
            "EST5EDT,M3.2.0,M11.1.0", "<-03>3<-02>,M10.3.0/0,M2.3.0/0",
            "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"};
        // clang-format on
        setenv("TZ", kZones[index_], 1);
        tzset();
    }

    bool Fixed() const { return index_ < 4; }

    /// What the wall shows; kFar where there is no such time.
    static long long Wall(long long time) {
        const time_t t = static_cast<time_t>(time);
        const tm* const f =
            t == time && time >= LONG_MIN && time <= LONG_MAX ? localtime(&t) : nullptr;
        return f == nullptr ? kFar
                            : Days(f->tm_year + 1900LL, f->tm_mon + 1, f->tm_mday) * kDay +
                                  f->tm_hour * 3600 + f->tm_min * 60 + f->tm_sec;
    }

    /// The times that may show this, by what the clock is set to a day before and a day after.
    static long long Reading(long long wall, int days) {
        const long long there = wall + days * kDay;
        const long long t = wall - (Wall(there) - there);
        return Wall(there) == kFar || Wall(t) == kFar ? -1 : t;
    }

    /// The one time at which the wall shows this; -1 where there is none or two.
    static long long Only(long long wall) {
        const long long a = Reading(wall, -1);
        const long long b = Reading(wall, 1);
        if (a != b && (Wall(a) == wall) == (Wall(b) == wall))
            return -1;
        return Wall(a) == wall ? a : b;
    }

    /// Whether `t` is right for the wall. One that the clock skips or shows twice has two readings.
    static bool Reads(long long t, long long wall) {
        const bool either = t == Reading(wall, -1) || t == Reading(wall, 1);
        return Only(wall) == -1 ? either : t == Only(wall);
    }

private:
    int index_;
};

} // namespace fuzz

#endif
