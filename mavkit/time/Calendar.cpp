#include "mavkit/time/Calendar.h"

#include "mavkit/encoding/Divide.h"
#include "mavkit/time/BcdTime.h"
#include "mavkit/time/CalendarUnits.h"
#include "mavkit/time/LocalTime.h"

#include <cstring>

namespace {

using mavkit::LocalTime;

constexpr long kSecondsADay = 86400;

// The seconds of a unit that is trimmed and counted without a calendar; 0 for all other codes.
int FixedLength(unsigned char unit) {
    return mavkit::IsCalendarUnit(unit) ? mavkit::UnitOf(unit).seconds : 0;
}

// datetrim() of a time above 0 and a unit without a fixed length; works in `f`.
long TrimToMidnight(unsigned char unit, std::tm* f) {
    f->tm_sec = 0;
    f->tm_min = 0;
    f->tm_hour = 0;
    if (unit >= Month)
        f->tm_mday = 1;
    if (unit >= Year)
        f->tm_mon = 0;
    return mavkit::ToTime(f);
}

// datetrim() of `x`, for a unit without a fixed length.
long Trimmed(unsigned char unit, const LocalTime& x) {
    std::tm f = x.fields;
    return x.t > 0 ? TrimToMidnight(unit, &f) : 0;
}

// The date of `f`, a year from 1969 on, as a count of days from some day long before.
long DayNumber(const std::tm& f) {
    const long past = f.tm_year + 1899L; // years, for the leap days in them
    return 365 * past + past / 4 - past / 100 + past / 400 + f.tm_yday;
}

// The months before the month of `x`, or of time 0 when `x` is no time; 0 is January 1900.
long MonthNumber(const LocalTime& x) {
    std::tm zero = {};
    if (x.t <= 0)
        mavkit::ToFields(0, &zero);
    const std::tm& f = x.t > 0 ? x.fields : zero;
    return f.tm_year * 12L + f.tm_mon;
}

// Sets `x` to `t`, to be counted by `unit`, and its fields where they are needed. A time without
// fields is no time.
void SetToCount(unsigned char unit, long t, LocalTime* x) {
    x->t = t;
    if (t > 0 && FixedLength(unit) == 0 && !mavkit::SetTime(t, x))
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
    // From 1901 to 2038 there are more seconds than a 32-bit long holds: the difference is
    // unsigned.
    return start < end ? (static_cast<unsigned int>(end) - static_cast<unsigned int>(start)) / step
                       : 0;
}

} // namespace

namespace mavkit {

// Most sums fit the field, and mktime carries them. A sum that does not fit is split: the rest
// stays in the field, and what it carries is added to a coarser unit in the same way. Seconds are
// always split, as libcs differ on those beyond a minute: glibc adds them as time that passes,
// others move the clock on the wall.
bool AddToFields(unsigned char unit, long long n, std::tm* f) {
    if (!IsCalendarUnit(unit))
        return true;
    for (;;) {
        const CalendarUnit& u = UnitOf(unit);
        int& field = f->*u.field;
        int sum = 0;
        if (unit != Second && !__builtin_add_overflow(field, n, &sum)) {
            field = sum;
            return true;
        }
        if (unit == Year)
            return false;
        unsigned long long size =
            n < 0 ? 0ULL - static_cast<unsigned long long>(n) : static_cast<unsigned long long>(n);
        const int rest = static_cast<int>(Divide(size, static_cast<unsigned int>(u.carryAt)));
        long long carry = static_cast<long long>(n < 0 ? 0ULL - size : size);
        field += n < 0 ? -rest : rest;
        if (field < 0 || field >= u.carryAt) {
            carry += field < 0 ? -1 : 1;
            field += field < 0 ? u.carryAt : -u.carryAt;
        }
        n = carry * u.carried;
        unit = u.carriedTo;
    }
}

// Minutes and hours are counted by division. Days, months and years are counted by the fields of
// the times themselves, which are of the same day, month and year as those of the trimmed times
// wherever local midnight exists. Where the clock skips midnight, mktime gives a moment before or
// after the gap, depending on the libc, which must not change the count.
long UnitsBetween(const LocalTime& from, const LocalTime& to, unsigned char unit) {
    if (const int length = FixedLength(unit))
        return (to.t > 0 ? to.t / length : 0) - (from.t > 0 ? from.t / length : 0);
    const bool real = from.t > 0 && to.t > 0;
    if (unit == Day && real)
        return DayNumber(to.fields) - DayNumber(from.fields);
    if (unit <= Day) {
        const long start = Trimmed(unit, from);
        long seconds = 0;
        __builtin_sub_overflow(Trimmed(unit, to), start, &seconds); // may exceed the range by a day
        return unit == Day ? seconds / kSecondsADay : seconds;
    }
    const long a = MonthNumber(from);
    const long b = MonthNumber(to);
    return unit == Month ? b - a : b / 12 - a / 12;
}

} // namespace mavkit

long dateadd(unsigned char unit, long n, long t) {
    LocalTime x;
    if (t <= 0 || n == 0 || !mavkit::IsCalendarUnit(unit))
        return t;
    if (!mavkit::SetTime(t, &x) || !mavkit::AddToFields(unit, n, &x.fields))
        return -1;
    return mavkit::SetFromFields(&x);
}

long datetrim(unsigned char unit, long t) {
    if (t <= 0)
        return 0;
    if (const int length = FixedLength(unit))
        return t - t % length;
    std::tm f;
    return mavkit::ToFields(t, &f) ? TrimToMidnight(unit, &f) : -1;
}

long datediff(unsigned char unit, long t1, long t2) {
    LocalTime from;
    LocalTime to;
    SetToCount(unit, t1, &from);
    SetToCount(unit, t2, &to);
    return mavkit::UnitsBetween(from, to, unit);
}

long bcddatediff(unsigned char unit, const char* a, const char* b) {
    LocalTime from;
    LocalTime to;
    mavkit::SetFromBcd7(a, &from);
    mavkit::SetFromBcd7(b, &to);
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
    std::memcpy(start + 1, from, 5);
    std::memcpy(end + 1, to, 5);
    return DotsBetween(start, end, radix);
}
