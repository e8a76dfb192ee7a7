// Timer points: any time, base, unit and step in any zone. That they are the grid's is tested point by
// point in time/PeriodTest.cpp.
#include "mavkit/time/Period.h"
#include "Civil.h"
#include "mavkit/time/Calendar.h"

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
    // An hour that is skipped or shown twice is read by what libc has read before.
    if (zone.Fixed() && t > 0 && step > 0) {
        CHECK(unit > Year || up <= 0 || up >= t);
        CHECK(down == (up == t ? up : dateadd(unit, -step, up)));
        const long origin = 946684800 + static_cast<long>(946684800 - zone.Wall(946684800));
        CHECK(gettimerpoint(t, unit, n, Hour, 0, true) == downboundtime(t, origin, unit, n));
    }
}
