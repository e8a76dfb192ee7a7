#include "mavkit/time/Calendar.h"

#include "mavkit/time/BcdTime.h"
#include "mavkit/time/LocalTime.h"

#include <cstring>

namespace {

constexpr int kSecondsADay = 86400;

/// Seconds in a unit that is trimmed without a calendar, `Second` to `Hour`; 0 for all others.
int FixedLength(unsigned char unit) {
    return unit == Second ? 1 : unit == Minute ? 60 : unit == Hour ? 3600 : 0;
}

/// Adds `n` units to `field`, theirs in `f`, where the sum does not fit an int: what is too much is
/// carried upwards, in exact arithmetic. False when the year overflows.
bool AddFar(unsigned char unit, long long n, int* field, tm* f) {
    static const int kUnitsADay[] = {kSecondsADay, 1440, 24, 1};
    constexpr int kDays400Years = 146097;
    if (unit == Year)
        return false;
    const int carryAt = unit == Month ? 12 : kUnitsADay[unit - Second];
    const long long carried = n / carryAt; // years or, from the finer units, days
    long long years = carried;
    *field += static_cast<int>(n % carryAt);
    if (unit != Month) {
        f->tm_mday += static_cast<int>(carried % kDays400Years);
        years = carried / kDays400Years * 400;
    }
    return !__builtin_add_overflow(f->tm_year, years, &f->tm_year);
}

/// `datetrim` of a time above 0 and a unit without a fixed length; works in `f`.
long TrimToMidnight(unsigned char unit, tm* f) {
    f->tm_sec = 0;
    f->tm_min = 0;
    f->tm_hour = 0;
    if (unit >= Month)
        f->tm_mday = 1;
    if (unit >= Year)
        f->tm_mon = 0;
    return mavkit::ToTime(f);
}

/// The date of `f`, a year from 1969 on, as a count of days from some day long before.
long DayNumber(const tm& f) {
    const long past = f.tm_year + 1899L; // years, for the leap days in them
    return 365 * past + past / 4 - past / 100 + past / 400 + f.tm_yday;
}

/// The fields that `x` is counted by: its own or, when it stands for no time, those of time 0,
/// which are put into `zero`.
const tm& CountedFields(const mavkit::LocalTime& x, tm* zero) {
    if (x.t > 0)
        return x.fields;
    mavkit::ToFields(0, zero);
    return *zero;
}

/// The seconds of its day that count: none, as times are trimmed, but time 0 is not.
long CountedSeconds(const mavkit::LocalTime& x, const tm& f) {
    return x.t > 0 ? 0 : (f.tm_hour * 60L + f.tm_min) * 60 + f.tm_sec;
}

/// `datetrim` of `x`.
long Trimmed(unsigned char unit, const mavkit::LocalTime& x) {
    tm f = x.fields;
    return x.t > 0 ? TrimToMidnight(unit, &f) : 0;
}

/// Fills `x` with `t` to be counted by `unit`, and its fields where they are asked for. A time
/// without fields is no time.
void BreakToCount(unsigned char unit, long t, mavkit::LocalTime* x) {
    x->t = t;
    if (t > 0 && FixedLength(unit) == 0 && !mavkit::Break(t, x))
        x->t = 0;
}

unsigned int DotsBetween(const char* from, const char* to, unsigned int radix) {
    const unsigned int step = radix * 60;
    if (step == 0)
        return 0;
    long start = 0;
    long end = 0;
    Time_BCDTime7TotTime(from, &start);
    Time_BCDTime7TotTime(to, &end);
    // From 1901 to 2038 there are more seconds than a 32-bit long holds: the difference is unsigned.
    return start < end ? (static_cast<unsigned int>(end) - static_cast<unsigned int>(start)) / step
                       : 0;
}

} // namespace

namespace mavkit {

long AddUnits(LocalTime* x, unsigned char unit, long long n) {
    static constexpr int tm::*kFields[] = {&tm::tm_sec,  &tm::tm_min, &tm::tm_hour,
                                           &tm::tm_mday, &tm::tm_mon, &tm::tm_year};
    if (unit >= Second && unit <= Year) {
        int& field = x->fields.*kFields[unit - Second];
        int sum = 0;
        if (!__builtin_add_overflow(field, n, &sum))
            field = sum;
        else if (!AddFar(unit, n, &field, &x->fields))
            return x->t = -1;
    }
    return Make(x);
}

long UnitsBetween(const LocalTime& from, const LocalTime& to, unsigned char unit) {
    if (const int length = FixedLength(unit))
        return (to.t > 0 ? to.t / length : 0) - (from.t > 0 ? from.t / length : 0);
    if (unit < Second) {
        const long start = Trimmed(unit, from);
        long seconds = 0;
        __builtin_sub_overflow(Trimmed(unit, to), start, &seconds); // a day more than fits, at most
        return seconds;
    }
    tm zero = {};
    const tm& a = CountedFields(from, &zero);
    const tm& b = CountedFields(to, &zero);
    if (unit == Day) { // on the wall clock, truncated toward 0
        const long days = DayNumber(b) - DayNumber(a);
        const long seconds = CountedSeconds(to, b) - CountedSeconds(from, a);
        return days > 0 && seconds < 0 ? days - 1 : days < 0 && seconds > 0 ? days + 1 : days;
    }
    // The fields of the times themselves count, not those of the trimmed times: they are of the
    // same month wherever local midnight of its first day exists, and where daylight saving skips
    // that midnight, mktime gives the first moment after the gap. Where a zone has moved its
    // standard time then, mktime may step back a month, or not, by what it converted before.
    const long years = static_cast<long>(b.tm_year) - a.tm_year;
    return unit == Month ? years * 12 + (b.tm_mon - a.tm_mon) : years;
}

} // namespace mavkit

long dateadd(unsigned char unit, long n, long t) {
    mavkit::LocalTime x;
    if (t <= 0 || n == 0)
        return t;
    return mavkit::Break(t, &x) ? mavkit::AddUnits(&x, unit, n) : -1;
}

long datetrim(unsigned char unit, long t) {
    if (t <= 0)
        return 0;
    if (const int length = FixedLength(unit))
        return t - t % length;
    tm f;
    return mavkit::ToFields(t, &f) ? TrimToMidnight(unit, &f) : -1;
}

long datediff(unsigned char unit, long t1, long t2) {
    mavkit::LocalTime from;
    mavkit::LocalTime to;
    BreakToCount(unit, t1, &from);
    BreakToCount(unit, t2, &to);
    return mavkit::UnitsBetween(from, to, unit);
}

long bcddatediff(unsigned char unit, char const* a, char const* b) {
    mavkit::LocalTime from;
    mavkit::LocalTime to;
    mavkit::MakeBcd7(a, &from);
    mavkit::MakeBcd7(b, &to);
    return mavkit::UnitsBetween(from, to, unit);
}

void Add_nRadixOnBCDTime7(char* in, unsigned int radix, int n, char* out) {
    const int seconds = static_cast<int>(radix * 60 * static_cast<unsigned int>(n));
    long t = 0;
    Time_BCDTime7TotTime(in, &t);
    __builtin_add_overflow(t, seconds, &t); // wraps around with a 32-bit long
    Time_tTimeToBCDTime7(t, out);
}

unsigned int Time_BCDTime7ToDots(char* from, char* to, unsigned int radix) {
    return DotsBetween(from, to, radix);
}

unsigned int Time_BCDTime5ToDots(char* from, char* to, unsigned int radix) {
    char start[7] = {0x20};
    char end[7] = {0x20};
    memcpy(start + 1, from, 5);
    memcpy(end + 1, to, 5);
    return DotsBetween(start, end, radix);
}
