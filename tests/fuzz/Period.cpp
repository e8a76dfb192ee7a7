// Timer points: any time, base, unit and step in any zone, against the grid counted out.
#include "mavkit/time/Period.h"
#include "Civil.h"
#include "mavkit/time/Calendar.h"

namespace {

// The first at or after `at` of the steps to both sides of `base`.
long long Ceil(long long at, long long base, long long step) {
    return base - fuzz::FloorDiv(base - at, step) * step;
}

// The first point; `down`: the one before. 0 where the clock is changed on the way or a month lacks a
// day: there it is the steps of mktime that tell.
long long Point(const fuzz::Zone& zone, long long t, long long base, int unit, long long n,
                bool down) {
    const long long wall = zone.Wall(t);
    const long long baseWall = zone.Wall(base);
    if (unit < Second || unit > Year || n < 1 || n > 1 << 24 || base <= 0 || zone.Only(wall) != t ||
        zone.Only(baseWall) != base)
        return 0;
    if (unit <= Hour) {
        const long long length = fuzz::kLengths[unit];
        const long long up = Ceil(t, base, n * length);
        const long long point = down && up != t ? up - n * length : up;
        // Between equal offsets a month apart there is no change; hours are counted from UTC.
        const auto sure = [&](long long x) { return zone.Only(x + wall - t) == x; };
        const bool near = zone.Fixed() || n * length < 30 * fuzz::kDay;
        const bool whole = (wall - t) % length == 0 && (baseWall - base) % length == 0;
        const bool known = near && whole && t > length;
        return known && sure(up + length) && sure(up - n * length) ? point : 0;
    }
    const fuzz::Civil at(wall);
    const fuzz::Civil from(baseWall);
    const long long years = at.year - from.year;
    const long long count =
        unit == Day     ? fuzz::FloorDiv(wall, fuzz::kDay) - fuzz::FloorDiv(baseWall, fuzz::kDay)
        : unit == Month ? years * 12 + at.month - from.month
                        : years;
    const long long next = Ceil(count, 0, n);
    long long up = fuzz::Moved(baseWall, unit, next);
    up = up < wall ? fuzz::Moved(up, unit, n) : up;
    const bool late = unit != Day && (from.day > 28 || at.day > 28);
    // On its way mktime passes the point of t's own unit, and t moved to the unit of its point.
    const bool own = zone.Only(fuzz::Moved(baseWall, unit, count)) > 0;
    if (late || !own || zone.Only(fuzz::Moved(wall, unit, next - count)) <= 0)
        return 0;
    return std::max(zone.Only(down && up != wall ? fuzz::Moved(up, unit, -n) : up), 0LL);
}

} // namespace

void Period(fuzz::Input in) {
    const fuzz::Zone zone(in);
    const unsigned char unit = in.Byte() % 8;
    const long t = static_cast<long>(in.Number());
    const long base = static_cast<long>(in.Number());
    const unsigned long n = static_cast<unsigned long>(in.Number());
    const long step = static_cast<long>(n);

    const long up = upboundtime(t, base, unit, n);
    const long down = downboundtime(t, base, unit, n);
    CHECK((t > 0 && n != 0) || (up == -1 && down == -1));
    const long long wantedUp = t > 0 ? Point(zone, t, base, unit, step, false) : 0;
    const long long wantedDown = t > 0 ? Point(zone, t, base, unit, step, true) : 0;
    CHECK(wantedUp == 0 || (up == wantedUp && t <= up));
    CHECK(wantedDown == 0 || wantedUp == 0 || (down == wantedDown && down <= t));
    // An hour that is skipped or shown twice is read by what libc has read before.
    if (zone.Fixed() && t > 0 && step > 0) {
        CHECK(unit > Year || up <= 0 || up >= t);
        CHECK(down == (up == t ? up : dateadd(unit, -step, up)));
        const long origin = 946684800 + static_cast<long>(946684800 - zone.Wall(946684800));
        CHECK(gettimerpoint(t, unit, n, Hour, 0, true) == downboundtime(t, origin, unit, n));
    }
}
