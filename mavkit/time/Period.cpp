#include "mavkit/time/Period.h"

#include "mavkit/encoding/BcdByte.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/LocalTime.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

using mavkit::LocalTime;

constexpr unsigned char kUnset = 0xFF;

/// A step as a signed number. One that does not fit is cut: it leads out of every range anyway.
long long Signed(unsigned long n) {
    return static_cast<long long>(std::min<unsigned long long>(n, LLONG_MAX));
}

/// `upboundtime` of `x`, which is above 0; leaves the point in `x`, or -1 as its time.
void MoveUp(const LocalTime& base, unsigned char unit, unsigned long n, LocalTime* x) {
    const long t = x->t;
    const long d = mavkit::UnitsBetween(base, *x, unit);
    const unsigned long away =
        d < 0 ? 0UL - static_cast<unsigned long>(d) : static_cast<unsigned long>(d);
    if (const unsigned long rest = away % n) {
        if (mavkit::AddUnits(x, unit, Signed(d < 0 ? rest : n - rest)) == -1)
            return;
    }
    tm& f = x->fields;
    if (unit >= Minute)
        f.tm_sec = base.fields.tm_sec;
    if (unit >= Hour)
        f.tm_min = base.fields.tm_min;
    if (unit >= Day)
        f.tm_hour = base.fields.tm_hour;
    if (unit >= Month)
        f.tm_mday = base.fields.tm_mday;
    if (unit >= Year)
        f.tm_mon = base.fields.tm_mon;
    if (mavkit::Make(x) < t && x->t > 0)
        mavkit::AddUnits(x, unit, Signed(n));
}

/// `downboundtime` of `x`, like `MoveUp`.
void MoveDown(const LocalTime& base, unsigned char unit, unsigned long n, LocalTime* x) {
    const long t = x->t;
    MoveUp(base, unit, n, x);
    if (x->t != t && x->t > 0)
        mavkit::AddUnits(x, unit, -Signed(n));
}

/// The timer origin.
LocalTime Origin() {
    static const char kOrigin[] = {0x20, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00};
    LocalTime origin;
    mavkit::MakeBcd7(kOrigin, &origin);
    return origin;
}

long Bound(long t, long base, unsigned char unit, unsigned long n, bool down) {
    LocalTime from;
    LocalTime x;
    if (n == 0 || t <= 0 || !mavkit::Break(t, &x))
        return -1;
    // A grid of seconds takes nothing from the fields of its base.
    from.t = base;
    if (unit != Second && !mavkit::Break(base, &from))
        return -1;
    (down ? MoveDown : MoveUp)(from, unit, n, &x);
    return x.t;
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
    LocalTime x;
    if (n == 0 || t <= 0 || !mavkit::Break(t, &x))
        return -1;
    LocalTime base = Origin();
    if (offsetN != 0 && mavkit::AddUnits(&base, offsetUnit, Signed(offsetN)) == -1)
        mavkit::Break(-1, &base);
    (down ? MoveDown : MoveUp)(base, unit, n, &x);
    return x.t;
}

bool issameperiod(unsigned char* a, unsigned char* b, unsigned char unit, unsigned long n) {
    static const unsigned char kSplitLimits[] = {60, 60, 24, 28, 12, 255};
    if (n == 0)
        return false;
    if ((a[0] == kUnset) != (b[0] == kUnset))
        return a[0] == kUnset;
    if (unit < Second || unit > Year)
        return false;
    if (n <= kSplitLimits[unit - Second]) {
        const unsigned int own = 7U - unit;
        return memcmp(a, b, own) == 0 &&
               mavkit::FromBcdByte(a[own]) / n == mavkit::FromBcdByte(b[own]) / n;
    }
    LocalTime start;
    LocalTime other;
    if (mavkit::MakeBcd7(reinterpret_cast<const char*>(a), &start) <= 0 ||
        mavkit::MakeBcd7(reinterpret_cast<const char*>(b), &other) <= 0)
        return false;
    MoveDown(Origin(), unit, n, &start);
    const long d = mavkit::UnitsBetween(start, other, unit);
    return d >= 0 && static_cast<unsigned long>(d) < n;
}
