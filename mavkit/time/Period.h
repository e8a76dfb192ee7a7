/// \file
/// Timer points: the grid of times at which a periodic timer fires, and whether two times fall
/// into the same period.
///
/// A grid is given by a base time and a step of `n` calendar units (see Calendar.h). Its points lie
/// a multiple of `n` units from the base, counted as `datediff` counts, and have the base's local
/// fields in all that is finer than the unit:
///
/// | unit     | taken from the base                     |
/// |----------|-----------------------------------------|
/// | `Second` | nothing                                 |
/// | `Minute` | second                                  |
/// | `Hour`   | minute, second                          |
/// | `Day`    | hour, minute, second                    |
/// | `Month`  | day of the month, hour, minute, second  |
/// | `Year`   | month, day of the month, hour to second |
///
/// A step of 2 `Hour` from a base of 00:30:00 in a zone without daylight saving, at a whole number
/// of hours from UTC, has its points at 00:30:00, 02:30:00, ... every day. A day that its month
/// does not have continues into the next month.
///
/// Points are times that a clock on the wall shows: "every day at 08:00" stays at 08:00 when
/// daylight saving begins or ends. Where the clock changes, each point comes once, on every libc:
///
/// - A point in an hour that the clock skips comes later by the gap: where the clock goes from
///   02:00 to 03:00, "every day at 02:30" comes at 03:30 that day, and at 02:30 on the next. Where
///   a shorter step has another point before that, the skipped one does not come.
/// - A point in an hour that the clock shows twice comes in the first of the two. In the second
///   there is none, for steps of seconds as well: the next point is the first one after it.
///
/// A timer asks for its next point with `gettimerpoint(now + 1, ...)` after each one that has come.
/// Minutes and hours are counted on the time itself. A step that does not divide the hour or the
/// day, like 7 `Minute` or 5 `Hour`, therefore has its points at other clock times after a change,
/// and the first of them may be closer to the last point before the change, or farther from it.
///
/// Times are `long` seconds since 1970-01-01 00:00:00 UTC in the process's local zone. The
/// operations use the static result area of `localtime`: callers on several threads must serialise
/// their calls.
#ifndef MAVKIT_TIME_PERIOD_H
#define MAVKIT_TIME_PERIOD_H

/// The first point at or after `t` on the grid of base `base` and step `n` `unit`. A unit of 0 is
/// counted as seconds and one above 6 as years, but neither moves a time.
/// \return the point, never before `t`; -1 when `n` is 0, `t` is 0 or less, there is no point, or a
/// time on the way does not fit
long upboundtime(long t, long base, unsigned char unit, unsigned long n);

/// The last point at or before `t` on the same grid: `t` itself where it is a point, else `n` units
/// before the point after it, or, where that is still after `t`, as many times `n` as needed.
/// \return the point, never after `t`; -1 as `upboundtime`
long downboundtime(long t, long base, unsigned char unit, unsigned long n);

/// The point at or after `t` (`down` false), or at or before it (`down` true), on the grid of step
/// `n` `unit` whose base is the timer origin, 2000-01-01 00:00:00 local time, plus `offsetN`
/// `offsetUnit`. `gettimerpoint(t, Day, 1, Hour, 8, false)` is the next 08:00:00;
/// `gettimerpoint(t, Minute, 15, Minute, 0, true)` is the quarter hour that has begun. `offsetN` is
/// read as `dateadd` reads a count: `(unsigned long)-1` is one unit back.
/// \return the point; -1 as `upboundtime`. An offset beyond the range of times makes the base -1,
/// the result of `dateadd`.
long gettimerpoint(long t, unsigned char unit, unsigned long n, unsigned char offsetUnit,
                   unsigned long offsetN, bool down);

/// Reports whether the `Bcd7Time` records at `a` and `b` lie in the same period of `n` `unit`.
///
/// A step up to 60 `Second`, 60 `Minute`, 24 `Hour`, 28 `Day`, 12 `Month` or 255 `Year` is tested
/// within the next larger unit: all fields above the unit's own are equal, and the unit's own field
/// is equal after division by `n`. Fields are used as stored, so days and months count from 1: the
/// periods of 3 `Month` are the months 1 to 2, 3 to 5, 6 to 8, 9 to 11, and 12. `Year` uses the
/// year within the century.
///
/// A larger step is tested on the grid from the timer origin: fewer than `n` units are counted from
/// the point at or before `a` to `b`, or the same point is the last one before both. So a record
/// that stands for a time above 0 is always in its own period.
///
/// A record whose first byte is 0xFF is an unset time: when `a` alone is unset, any `b` belongs to
/// its period.
/// \return true when they do; false when `b` alone is unset, when `unit` is not 1 to 6 or `n` is 0,
/// and for a larger step when a record is no time above 0
bool issameperiod(unsigned char* a, unsigned char* b, unsigned char unit, unsigned long n);

#endif
