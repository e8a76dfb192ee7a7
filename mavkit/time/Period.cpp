#include "mavkit/time/Period.h"

#include "mavkit/encoding/BcdByte.h"
#include "mavkit/time/CalendarUnits.h"
#include "mavkit/time/LocalTime.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

using mavkit::LocalTime;

constexpr unsigned char kUnset = 0xFF;
constexpr int kSecondsADay = 86400;
constexpr long long kLongStep = 1LL << 40; // longer than any change of a clock, in any unit

// A step as a signed number. One that does not fit is limited: it leads out of every range anyway.
long long Signed(unsigned long n) {
    return static_cast<long long>(std::min<unsigned long long>(n, LLONG_MAX));
}

// What the clock shows, in seconds; fields that mktime has not normalised yet may be out of range.
int SecondOfDay(const std::tm& f) {
    return f.tm_hour % 24 * 3600 + f.tm_min % 1440 * 60 + f.tm_sec;
}

// What the clock shows at `t`; below 0 when `t` has no local time.
int ClockAt(std::time_t t) {
    const std::tm* const f = std::localtime(&t);
    return f != nullptr ? SecondOfDay(*f) : -1;
}

// How far the clock at `to` is ahead of the clock at `from`, the shorter way round.
int Ahead(int from, int to) {
    const int ahead = (to - from) % kSecondsADay;
    return ahead > kSecondsADay / 2    ? ahead - kSecondsADay
           : ahead < -kSecondsADay / 2 ? ahead + kSecondsADay
                                       : ahead;
}

// A time that was made from fields. Where the clock skips those, time and fields are later by the
// gap, and `skipped` is the gap in seconds, as a number below 0; otherwise it is 0.
struct Point : LocalTime {
    int skipped = 0;
};

// Sets the time of `x` to the point that its fields ask for, by one rule for all libcs: a clock
// time that is skipped comes later by the gap, and one that is shown twice comes in its first pass.
// It is in its second pass when the clock was further ahead a day before. The time is -1 when it
// does not fit. A time that is before `notBefore` even in its second pass may stay there.
void SetPoint(long notBefore, Point* x) {
    const int asked = SecondOfDay(x->fields);
    x->skipped = 0;
    if (mavkit::SetFromFields(x) == -1)
        return;
    const int shown = SecondOfDay(x->fields);
    x->skipped = Ahead(shown, asked);
    if (x->skipped > 0) { // libc moved it back by the gap
        mavkit::SetTime(x->t + x->skipped, x);
        x->skipped = -x->skipped;
    } else if (x->skipped == 0 && x->t >= notBefore && x->t > kSecondsADay) {
        const int before = ClockAt(x->t - kSecondsADay);
        const int setBack = before < 0 ? 0 : Ahead(shown, before);
        if (setBack > 0 && ClockAt(x->t - setBack) == shown)
            x->t -= setBack;
    }
}

bool OnWrongSide(const LocalTime& x, long t, bool down) {
    return x.t != -1 && (down ? x.t > t : x.t < t);
}

// Moves `x` by `n` units (back when `n` is below 0), as many times as needed to be on the right
// side of `t` and, with `shownOnly`, not skipped. More than once is rare: all times of an hour that
// the clock skips or shows twice can be wrong, and so can a day that its month does not have. Then
// the number of times is found bit by bit, so that no step is too small for it.
void MoveOn(unsigned char unit, long long n, long t, bool shownOnly, Point* x) {
    const bool down = n < 0;
    std::tm from = x->fields;
    if (x->skipped != 0)
        mavkit::AddToFields(Second, x->skipped, &from);
    const auto isWrongAfter = [&](int times) {
        x->fields = from;
        x->t = -1;
        if (mavkit::AddToFields(unit, n * times, &x->fields))
            SetPoint(down ? LONG_MIN : t, x);
        return OnWrongSide(*x, t, down) || (shownOnly && x->t != -1 && x->skipped != 0);
    };
    if (!isWrongAfter(1))
        return;
    int wrong = 1;
    if (n / kLongStep == 0)
        for (int more = 1 << 17; more != 0; more >>= 1) // in all, the seconds of three days
            wrong += isWrongAfter(wrong + more) ? more : 0;
    if (n / kLongStep != 0 || isWrongAfter(wrong + 1))
        x->t = -1; // a unit outside 1 to 6 does not move
}

// The units from `x` up to the next multiple of `n` units from the base, 0 to `n` - 1.
unsigned long UnitsUp(const LocalTime& base, unsigned char unit, unsigned long n,
                      const LocalTime& x) {
    if (n == 1)
        return 0;
    const long d = mavkit::UnitsBetween(base, x, unit);
    const unsigned long rest =
        (d < 0 ? 0UL - static_cast<unsigned long>(d) : static_cast<unsigned long>(d)) % n;
    return d < 0 || rest == 0 ? rest : n - rest;
}

// Copies to `f` the base's fields that are finer than the unit.
void TakeFinerFields(const LocalTime& base, unsigned char unit, std::tm* f) {
    for (unsigned char finer = Second; finer < std::min<unsigned char>(unit, Year); ++finer)
        f->*mavkit::UnitOf(finer).field = base.fields.*mavkit::UnitOf(finer).field;
}

// upboundtime() of `x`, which is above 0; leaves the point in `x`, or -1 as its time.
//
// The point is first looked for in the unit that `x` is in, or in the next one that is a multiple
// of `n` units from the base: with the finer fields of the base. Where that is before `x` the
// point is a step further. A point that the clock skips may come so late that, with a short step,
// another one comes before it.
void MoveUp(const LocalTime& base, unsigned char unit, unsigned long n, Point* x) {
    const long t = x->t;
    if (const unsigned long units = UnitsUp(base, unit, n, *x)) {
        x->t = -1;
        // A day that the new month does not have continues into the next one.
        if (!mavkit::AddToFields(unit, Signed(units), &x->fields) ||
            (unit >= Month && x->fields.tm_mday > 28 && mavkit::SetFromFields(x) == -1))
            return;
    }
    TakeFinerFields(base, unit, &x->fields);
    SetPoint(t, x);
    if (OnWrongSide(*x, t, false))
        MoveOn(unit, Signed(n), t, false, x);
    if (x->t == -1 || x->skipped == 0 || unit >= Day)
        return;
    const long late = x->t;
    MoveOn(unit, Signed(n), t, true, x);
    if (x->t == -1 || x->t > late)
        x->t = late;
}

// downboundtime() of `x`, like MoveUp().
void MoveDown(const LocalTime& base, unsigned char unit, unsigned long n, Point* x) {
    const long t = x->t;
    MoveUp(base, unit, n, x);
    if (x->t > t)
        MoveOn(unit, -Signed(n), t, false, x);
}

// The usual case of both, which needs no `mktime`: a step of a day at most, and no change of the
// clock from a day before the point below to the point above. The clock and the seconds run side by
// side then. Returns false, with `x` unchanged, in any other case.
bool MoveAlongClock(const LocalTime& base, unsigned char unit, unsigned long n, bool down,
                    LocalTime* x) {
    if (unit < Second || unit > Day)
        return false;
    const int length = unit == Day ? kSecondsADay : mavkit::UnitOf(unit).seconds;
    if (n > static_cast<unsigned long>(kSecondsADay / length) || x->t <= 3L * kSecondsADay ||
        x->t > LONG_MAX - kSecondsADay)
        return false;
    const int shown = SecondOfDay(x->fields);
    const auto unchanged = [&](std::time_t t) {
        return (t - x->t + shown - ClockAt(t)) % kSecondsADay == 0;
    };
    const int step = static_cast<int>(n) * length;
    int up = static_cast<int>(UnitsUp(base, unit, n, *x)) * length +
             SecondOfDay(base.fields) % length - shown % length;
    up += up < 0 ? step : 0;
    const int move = down && up > 0 ? up - step : up;
    if (!unchanged(x->t + std::min(move, 0) - kSecondsADay) || (up > 0 && !unchanged(x->t + up)))
        return false;
    x->t += move;
    return true;
}

// Moves `x` to the point at or after it, or at or before it, and returns its time.
long MoveToPoint(const LocalTime& base, unsigned char unit, unsigned long n, bool down, Point* x) {
    if (!MoveAlongClock(base, unit, n, down, x))
        (down ? MoveDown : MoveUp)(base, unit, n, x);
    return x->t;
}

// Sets `x` to the timer origin.
void SetToOrigin(LocalTime* x) {
    static const char kOrigin[] = {0x20, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00};
    mavkit::SetFromBcd7(kOrigin, x);
}

long Bound(long t, long base, unsigned char unit, unsigned long n, bool down) {
    LocalTime from;
    Point x;
    if (n == 0 || t <= 0 || !mavkit::SetTime(t, &x))
        return -1;
    // A grid of seconds uses no field of its base.
    from.t = base;
    if (unit != Second && !mavkit::SetTime(base, &from))
        return -1;
    return MoveToPoint(from, unit, n, down, &x);
}

// Sets `x` to the time of a record; returns false when the record is not a time.
bool SetFromRecord(const unsigned char* record, Point* x) {
    mavkit::FromBcd7(reinterpret_cast<const char*>(record), &x->fields);
    SetPoint(0, x);
    return x->t > 0;
}

} // namespace

long upboundtime(long t, long base, unsigned char unit, unsigned long n) {
    return Bound(t, base, unit, n, false);
}

long downboundtime(long t, long base, unsigned char unit, unsigned long n) {
    return Bound(t, base, unit, n, true);
}

long gettimerpoint(long t, unsigned char unit, unsigned long n, unsigned char offsetUnit,
                   unsigned long offsetN, bool down) {
    Point x;
    if (n == 0 || t <= 0 || !mavkit::SetTime(t, &x))
        return -1;
    LocalTime base;
    SetToOrigin(&base);
    const long offset = static_cast<long>(offsetN);
    if (offset != 0 && mavkit::IsCalendarUnit(offsetUnit) && // as dateadd() moves it
        (!mavkit::AddToFields(offsetUnit, offset, &base.fields) ||
         mavkit::SetFromFields(&base) == -1))
        mavkit::SetTime(-1, &base);
    return MoveToPoint(base, unit, n, down, &x);
}

bool issameperiod(unsigned char* a, unsigned char* b, unsigned char unit, unsigned long n) {
    if (n == 0)
        return false;
    if ((a[0] == kUnset) != (b[0] == kUnset))
        return a[0] == kUnset;
    if (!mavkit::IsCalendarUnit(unit))
        return false;
    if (n <= mavkit::UnitOf(unit).splitLimit) {
        const unsigned int own = 7U - unit;
        return std::memcmp(a, b, own) == 0 &&
               mavkit::FromBcdByte(a[own]) / n == mavkit::FromBcdByte(b[own]) / n;
    }
    Point start;
    Point other;
    if (!SetFromRecord(a, &start) || !SetFromRecord(b, &other))
        return false;
    LocalTime origin;
    SetToOrigin(&origin);
    MoveToPoint(origin, unit, n, true, &start);
    const long d = mavkit::UnitsBetween(start, other, unit);
    if (d >= 0 && static_cast<unsigned long>(d) < n)
        return true;
    // Where the clock was set back the period has more units than `n`: no point lies between.
    MoveToPoint(origin, unit, n, true, &other);
    return start.t == other.t;
}
