// A time together with its local calendar fields: what the time functions work on internally.
//
// `localtime` and `mktime` take most of the time of every operation of this family. A `LocalTime`
// carries the fields along with the time, so that no operation asks libc for fields that it
// already has: after `mktime` the fields are those that `localtime` would give for its result.
#ifndef MAVKIT_TIME_LOCALTIME_H
#define MAVKIT_TIME_LOCALTIME_H

#include <ctime>

namespace mavkit {

struct LocalTime {
    long t = 0;          // seconds since 1970-01-01 00:00:00 UTC
    std::tm fields = {}; // the same moment in local time, where something has filled it in
};

// Writes the fields of `f` as a `Bcd7Time`; of the year, its last four digits.
void ToBcd7(const std::tm& f, char* out);

// Fills in all fields that `mktime` reads, except the flag of daylight saving, from a `Bcd7Time`.
void FromBcd7(const char* in, std::tm* f);

// The local fields of `t`. Returns false, with `f` unchanged, when the year of `t` does not fit a
// `tm`.
bool ToFields(std::time_t t, std::tm* f);

// The time of the local fields `f`, which are normalised; -1 when it fits no `long`.
long ToTime(std::tm* f);

// Sets `x` to the time `t` and its local fields; returns false when it has none.
inline bool SetTime(long t, LocalTime* x) {
    x->t = t;
    return ToFields(t, &x->fields);
}

// Sets the time of `x` from its fields, which are normalised, and returns it; -1 as `ToTime`.
inline long SetFromFields(LocalTime* x) { return x->t = ToTime(&x->fields); }

// Sets `x` to the time of the `Bcd7Time` at `in` and returns it; -1 as `ToTime`.
inline long SetFromBcd7(const char* in, LocalTime* x) {
    FromBcd7(in, &x->fields);
    return SetFromFields(x);
}

// Adds `n` units to the fields `f`, which may then be outside their calendar ranges; a code outside
// 1 to 6 adds nothing. Returns false when the year overflows.
bool AddToFields(unsigned char unit, long long n, std::tm* f);

// The number of unit boundaries between two times: the core of `datediff`. Fields are read for
// units from `Day` up, and of times above 0 only.
long UnitsBetween(const LocalTime& from, const LocalTime& to, unsigned char unit);

} // namespace mavkit

#endif
