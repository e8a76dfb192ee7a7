// The properties of each calendar unit, one row for each.
#ifndef MAVKIT_TIME_CALENDARUNITS_H
#define MAVKIT_TIME_CALENDARUNITS_H

#include "mavkit/time/Calendar.h"

#include <ctime>

namespace mavkit {

struct CalendarUnit {
    int std::tm::*field;      // the one that counts it
    int seconds;              // its length when it is counted without a calendar; otherwise 0
    int carryAt;              // so many of them make
    int carried;              // so many
    unsigned char carriedTo;  // of this unit
    unsigned char splitLimit; // the longest step that issameperiod() tests by the fields
};

// By code, from `Second` on. Days carry by 400 years, which always have the same number of days.
inline constexpr CalendarUnit kCalendarUnits[] = {
    {&std::tm::tm_sec, 1, 60, 1, Minute, 60},  {&std::tm::tm_min, 60, 60, 1, Hour, 60},
    {&std::tm::tm_hour, 3600, 24, 1, Day, 24}, {&std::tm::tm_mday, 0, 146097, 400, Year, 28},
    {&std::tm::tm_mon, 0, 12, 1, Year, 12},    {&std::tm::tm_year, 0, 0, 0, Year, 255},
};

constexpr bool IsCalendarUnit(unsigned char code) { return code >= Second && code <= Year; }

constexpr const CalendarUnit& UnitOf(unsigned char code) { return kCalendarUnits[code - Second]; }

} // namespace mavkit

#endif
