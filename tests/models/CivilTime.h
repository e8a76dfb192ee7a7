// A second calendar and time layouts for the tests, slow and simple.
//
// It can be trusted because it shares nothing with what it checks: days are counted from the rule
// of leap years alone, in 64 bits, and what a clock shows comes from `localtime`; `mktime`, which
// the library uses, is never called. CalendarTest.cpp checks its days one by one.
//
// A "wall" is what a clock on the wall shows, in seconds from 1970 by that clock.
#ifndef MAVKIT_TESTS_CIVILTIME_H
#define MAVKIT_TESTS_CIVILTIME_H

#include <algorithm>
#include <climits>
#include <ctime>
#include <string>

namespace model {

constexpr long long kDay = 86400;
constexpr long long kFar = 1LL << 60;                    // after all times
constexpr long long kLengths[] = {0, 1, 60, 3600, kDay}; // by unit

inline long long FloorDiv(long long a, long long b) { return a / b - (a % b < 0 ? 1 : 0); }

// Days from 1970-01-01 to a date; months and days out of their range are carried on.
inline long long Days(long long year, long long month, long long day) {
    static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    year += FloorDiv(month - 1, 12);
    month -= FloorDiv(month - 1, 12) * 12;
    const long long y = month > 2 ? year : year - 1; // February 29 counts from March on
    const long long leapDays = FloorDiv(y, 4) - FloorDiv(y, 100) + FloorDiv(y, 400) - 477;
    return (year - 1970) * 365 + leapDays + kBefore[month - 1] + day - 1;
}

// The date of a wall.
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

// A wall moved by units of the calendar; kFar where the sum would not fit.
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

// What the wall shows in the current zone; kFar when there is no such time.
inline long long Wall(long long time) {
    const auto t = static_cast<std::time_t>(time);
    const bool fits = t == time && time >= LONG_MIN && time <= LONG_MAX;
    const std::tm* const f = fits ? std::localtime(&t) : nullptr;
    return f == nullptr ? kFar
                        : Days(f->tm_year + 1900LL, f->tm_mon + 1, f->tm_mday) * kDay +
                              f->tm_hour * 3600 + f->tm_min * 60 + f->tm_sec;
}

// The time that shows a wall if the clock runs as it does `days` days later, which may be below 0;
// -1 where there is none.
inline long long Reading(long long wall, int days) {
    const long long there = wall + days * kDay;
    const long long t = wall - (Wall(there) - there);
    return Wall(there) == kFar || Wall(t) == kFar ? -1 : t;
}

// The first time that shows a wall; for a wall that the clock skips, the time later by the gap.
inline long long FirstTime(long long wall) {
    const long long before = Reading(wall, -1);
    return Wall(before) == wall || Wall(Reading(wall, 1)) != wall ? before : Reading(wall, 1);
}

// The one time that shows a wall; -1 where there is none, or two.
inline long long OnlyTime(long long wall) {
    const long long a = Reading(wall, -1);
    const long long b = Reading(wall, 1);
    if (a != b && (Wall(a) == wall) == (Wall(b) == wall))
        return -1;
    return Wall(a) == wall ? a : b;
}

// The fields of a layout, a letter each, by the rules of the code; empty for an invalid one.
inline std::string LayoutFields(int code) {
    const int start = code % 8;
    const int end = code / 16 % 8;
    std::string run;
    for (int f = std::min(start, end); f <= std::max(start, end); ++f)
        run += "?smhDMYC"[f];
    if (code >= 0x80) { // the weekday, between the hour and the day: one of them must be there
        if (run.find_first_of("hD") == run.npos)
            return "";
        run.insert(run.find('h') + 1, 1, 'w'); // without the hour the day is the first
    }
    if (end < start)
        std::reverse(run.begin(), run.end());
    return start == 0 || end == 0 ? "" : run;
}

} // namespace model

#endif
