/// \file
/// Dates and times as short packed-BCD records, and the conversions between them, `time_t`, `tm`
/// and text.
///
/// A terminal exchanges dates as packed BCD: two decimal digits a byte, the tens digit in the
/// high nibble, so that a hex dump of a record reads as its date. The records have no time zone
/// of their own: they are local time, and so is all of this family. Calendar fields come from
/// `localtime` and go back through `mktime` with `tm_isdst` = -1, so that libc decides on
/// daylight saving, by the zone that TZ names at the time of the call. Nothing here works in UTC.
///
/// `Bcd7Time`, the record that everything else is built on, 7 bytes (2024-03-05 06:07:08 is
/// 20 24 03 05 06 07 08):
///
/// | byte | field                              | valid values |
/// |------|------------------------------------|--------------|
/// | 0    | century, the year divided by 100   | 0x01 - 0x99  |
/// | 1    | year within the century            | 0x00 - 0x99  |
/// | 2    | month                              | 0x01 - 0x12  |
/// | 3    | day of the month                   | 0x01 - 0x31  |
/// | 4    | hour                               | 0x00 - 0x23  |
/// | 5    | minute                             | 0x00 - 0x59  |
/// | 6    | second                             | 0x00 - 0x59  |
///
/// Related records: `Bcd5Time`, bytes 1 to 5 alone, for 2000 to 2099 by the minute; `Bcd6Time`,
/// bytes 1 to 6, for 2000 to 2099 by the second; `Asc14Time`, all seven fields as 14 ASCII digits
/// (20240305060708), followed by a NUL when this library writes it.
///
/// The decoders check nothing: a nibble A to F counts as 10 to 15, and a field out of range is
/// carried into the next larger unit (day 0x31 of February is early March). `IsBcd7Time` is the
/// only check; call it for every record that comes from outside. Records are passed by a pointer to
/// their first byte, which has to be valid for the whole record. Of a year above 9999, the last
/// four digits are written.
///
/// A time is a `long` of seconds since 1970-01-01 00:00:00 UTC. One whose year does not fit a
/// `tm` (possible with a 64-bit `long` only) gives a record of zero bytes or an empty text.
///
/// The operations use the static result area of `localtime`, and some a static text buffer: callers
/// on several threads must serialise their calls.
#ifndef MAVKIT_TIME_BCDTIME_H
#define MAVKIT_TIME_BCDTIME_H

struct tm;

/// Writes the current local time as a `Bcd7Time` into the 7 bytes at `out`.
void Get_CurBCDTime7(char* out);

/// Writes the local time of `t`, any time, as a `Bcd7Time` into the 7 bytes at `out`.
void Time_tTimeToBCDTime7(long t, char* out);

/// The same as `Time_tTimeToBCDTime7`.
void Get_BCDTime7(long t, char* out);

/// Converts the `Bcd7Time` at `in` to a time and stores it where `out` points.
/// \return the time; -1, which is stored too, when it does not fit (with 32 bits: before
/// 1901-12-13 or after 2038-01-19)
long Time_BCDTime7TotTime(const char* in, long* out);

/// Fills the `tm` at `out` from the `Bcd7Time` at `in` and normalises it with `mktime`, so that
/// day of the week, day of the year and daylight saving are set and every field is in its range.
/// \return the time; -1 when it does not fit
long Time_BCDTime7ToTm(char* in, tm* out);

/// The day of the week of the `Bcd7Time` at `in`.
/// \return 0 for Sunday to 6 for Saturday; 0 for a date that `mktime` cannot make
unsigned char GetWeek(char* in);

/// Writes the current local time into the six fields from `tm_sec` to `tm_year` of the `tm` at
/// `out`. The other fields stay as they are.
void Get_CurtmTime(tm* out);

/// Writes the local time of `t` as an `Asc14Time` with its NUL, 15 bytes, at `out`.
void Time_tTimeToAscTime14(long t, char* out);

/// Reads the 14 digits at `in`, which need no NUL, into the six fields from `tm_sec` to `tm_year`
/// of the `tm` at `out`. Nothing is checked or normalised, and the other fields stay as they are.
void Time_Asc14TimeTotmTime(char* in, tm* out);

/// Copies 7 bytes from `src` to `dst`. The source comes first, unlike in `memcpy`.
void CopyTime7(char* src, char* dst);

/// Copies `n` bytes from `src` to `dst`; nothing when `n` is 0 or less. The source comes first.
void CopyTime(char* src, char* dst, int n);

/// Compares the first `n` bytes of two records, the bytes as unsigned values. Two `Bcd7Time`
/// with `n` = 7 compare as their times do.
/// \return 1 when `a` is the greater, -1 when `b` is; 0 when they are equal or `n` is 0 or less
int CompTime(char* a, char* b, int n);

/// Reports whether every byte of the `Bcd7Time` at `t` lies in its range in the table above. It
/// looks at byte values alone: minute 0x1A passes, and so does February 31.
/// \return true when all seven do
bool IsBcd7Time(const unsigned char* t);

/// The `Bcd7Time` at `t` as a text of 19 characters, "2024-03-05 06:07:08". Every byte is printed
/// as its two hexadecimal digits, valid or not.
/// \return a static buffer, shared with `timestr`; the next call of either overwrites it
char* bcdtimestr(char* t);

/// The local time that `t` points to, or the current time when `t` is null, as `bcdtimestr`
/// writes it.
/// \return the static buffer of `bcdtimestr`
char* timestr(long* t);

/// The time of day, "06:07:08", of the local time that `t` points to, or of the current time when
/// `t` is null.
/// \return a static buffer of its own, which the next call overwrites
char* shorttimestr(long* t);

#endif
