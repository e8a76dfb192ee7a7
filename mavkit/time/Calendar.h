/// \file
/// Arithmetic by calendar unit: adding units to a time, trimming it to the start of its unit, and
/// counting units between two times.
///
/// Schedules are given in units of the calendar: every 15 minutes, every day, every month. A unit
/// is passed as an `unsigned char` with a code of `_DATE_UNIT`. Times are `long` seconds since
/// 1970-01-01 00:00:00 UTC, read in the process's local zone (see BcdTime.h); a time of 0 or less
/// means that there is no time.
///
/// | code | name     | `dateadd` adds to | `datetrim` goes to                | `datediff` counts |
/// |------|----------|-------------------|-----------------------------------|-------------------|
/// | 1    | `Second` | `tm_sec`          | the time itself                   | seconds           |
/// | 2    | `Minute` | `tm_min`          | the last multiple of 60 s         | minutes           |
/// | 3    | `Hour`   | `tm_hour`         | the last multiple of 3600 s       | hours             |
/// | 4    | `Day`    | `tm_mday`         | local midnight                    | calendar days     |
/// | 5    | `Month`  | `tm_mon`          | local midnight of the month's 1st | calendar months   |
/// | 6    | `Year`   | `tm_year`         | local midnight of January 1       | calendar years    |
///
/// Minutes and hours are trimmed and counted on the time itself, independent of the zone: in a zone
/// that is half an hour away from whole hours, the counted hours begin at half past.
///
/// The operations use the static result area of `localtime`: callers on several threads must
/// serialise their calls.
#ifndef MAVKIT_TIME_CALENDAR_H
#define MAVKIT_TIME_CALENDAR_H

/// The calendar units, from the finest to the coarsest.
enum _DATE_UNIT : unsigned char {
    Second = 1,
    Minute = 2,
    Hour = 3,
    Day = 4,
    Month = 5,
    Year = 6,
};

/// Moves `t` by `n` units, forward or (`n` below 0) back, along the local calendar. All units,
/// seconds too, follow the clock on the wall: in Berlin 2024-03-31 01:00:00 plus 2 hours, 120
/// minutes or 7200 seconds is 03:00:00, which is one hour away. A day that the new month does not
/// have continues into the next month: 2024-01-31 plus one month is 2024-03-02. A local time that
/// the clock skips or shows twice is resolved as libc resolves it. Any `n` is allowed; none
/// overflows.
/// \return the moved time; `t` itself when it is 0 or less, `n` is 0 or `unit` is not 1 to 6; -1
/// when the result does not fit
long dateadd(unsigned char unit, long n, long t);

/// The start of the unit that contains `t`. A unit of 0 trims like `Day`, one above 6 like `Year`.
/// \return the start; 0 when `t` is 0 or less; -1 when the result does not fit
long datetrim(unsigned char unit, long t);

/// The number of unit boundaries from `t1` to `t2`, not of full units: from 10:59:59 to 11:00:00 is
/// one hour, from December 31 to January 1 one year. Days are counted by the calendar, so a day of
/// 23 or 25 hours, where daylight saving begins or ends, is one day.
///
/// A time of 0 or less, or one without local fields, counts as time 0, which is not trimmed. Days
/// from or to it are the seconds between it and the midnight of the other time / 86400, truncated.
/// A unit of 0 gives the seconds between the two midnights, one above 6 counts years.
/// \return the count; negative when `t2` is the earlier
long datediff(unsigned char unit, long t1, long t2);

/// `datediff` of the two `Bcd7Time` records at `a` and `b`.
/// \return the count from `a` to `b`; a record that fits no time counts as one of 0 or less
long bcddatediff(unsigned char unit, const char* a, const char* b);

/// Writes into `out` the `Bcd7Time` that lies `n` intervals of `radix` minutes after (`n` below 0:
/// before) the one at `in`; the two may be the same record. The seconds added, `radix` x 60 x `n`,
/// are those of a signed 32-bit number.
void Add_nRadixOnBCDTime7(char* in, unsigned int radix, int n, char* out);

/// The number of whole intervals of `radix` minutes, below 71582789, from one `Bcd7Time` to
/// another.
/// \return the count, without a partial interval at the end; 0 when `radix` is 0 or `to` is not
/// after `from`
unsigned int Time_BCDTime7ToDots(char* from, char* to, unsigned int radix);

/// `Time_BCDTime7ToDots` of two `Bcd5Time` records: the years 2000 to 2099, by the minute.
/// \return the count, as above
unsigned int Time_BCDTime5ToDots(char* from, char* to, unsigned int radix);

#endif
