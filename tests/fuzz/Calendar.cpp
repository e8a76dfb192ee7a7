// Adding, trimming and counting units: any times, unit and count, in any zone.
#include "mavkit/time/Calendar.h"
#include "Civil.h"

namespace {

// The start of the unit on the wall; of no time, the wall of time 0, untrimmed.
long long TrimmedWall(const fuzz::Zone& zone, int unit, long long t) {
    if (t <= 0 || zone.Wall(t) == fuzz::kFar)
        return zone.Wall(0);
    const fuzz::Civil c(zone.Wall(t));
    return fuzz::Days(c.year, unit > 5 ? 1 : c.month, unit > 4 ? 1 : c.day) * fuzz::kDay;
}

} // namespace

void Calendar(fuzz::Input in) {
    const fuzz::Zone zone(in);
    const unsigned char unit = in.Byte() % 9;
    const long t = static_cast<long>(in.Number());
    const long u = static_cast<long>(in.Number());
    const long n = static_cast<long>(in.Number());
    const bool fits = t > 0 && zone.Wall(t) != fuzz::kFar;

    const long sum = dateadd(unit, n, t);
    if (t <= 0 || n == 0)
        CHECK(sum == t);
    else if (!fits)
        CHECK(sum == -1);
    else // libc adds seconds beyond a minute as time that passes, not on the wall
        CHECK(zone.Reads(sum, fuzz::Moved(zone.Wall(t), unit, n)) ||
              (unit == Second && !zone.Fixed() && std::llabs(sum - t - n) <= 3600));

    const long start = datetrim(unit, t);
    const long count = datediff(unit, t, u);
    const long long from = TrimmedWall(zone, unit, t);
    const long long to = TrimmedWall(zone, unit, u);
    if (unit >= Second && unit <= Hour) {
        const long long length = fuzz::kLengths[unit];
        CHECK(start == std::max(t, 0L) / length * length);
        CHECK(count == std::max(u, 0L) / length - std::max(t, 0L) / length);
        return;
    }
    CHECK(t <= 0 ? start == 0 : fits ? zone.Reads(start, from) : start == -1);
    const fuzz::Civil a(from);
    const fuzz::Civil b(to);
    const long long months = (b.year - a.year) * 12 + b.month - a.month;
    if (unit != 0)
        CHECK(count == (unit == Day     ? (to - from) / fuzz::kDay
                        : unit == Month ? months
                                        : b.year - a.year));
    else if (t > 0 && u > 0 && zone.Only(from) != -1 && zone.Only(to) != -1)
        CHECK(count == zone.Only(to) - zone.Only(from));
}
