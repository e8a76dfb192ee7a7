// Times checked against the model calendar, which gives what `mktime` must return.
#include "Fuzz.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/Period.h"
#include "mavkit/time/TimeLayout.h"
#include "models/CivilTime.h"

#include <climits>
#include <ctime>
#include <map>

namespace {

using model::kDay;
using model::kFar;

// The zone of the process: half of them with daylight saving, one that skips midnight, and one of
// half an hour.
struct Zone {
    const int index;

    explicit Zone(fuzz::Input& in) : index(in.Byte() % 8) {
        // clang-format off
        static const char* const kZones[] = {
            "UTC0", "CST-8", "IST-5:30", "<-12>12", "CET-1CEST,M3.5.0,M10.5.0/3",
            "EST5EDT,M3.2.0,M11.1.0", "<-03>3<-02>,M10.3.0/0,M2.3.0/0",
            "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"};
        // clang-format on
        setenv("TZ", kZones[index], 1);
        tzset();
    }

    bool Fixed() const { return index < 4; }

    // Whether `t` is right for the wall. A wall that the clock skips or shows twice has two such
    // times.
    static bool Reads(long long t, long long wall) {
        const bool either = t == model::Reading(wall, -1) || t == model::Reading(wall, 1);
        return model::OnlyTime(wall) == -1 ? either : t == model::OnlyTime(wall);
    }
};

// The start of the unit on the wall; of no time, the wall of time 0, untrimmed.
long long TrimmedWall(int unit, long long t) {
    if (t <= 0 || model::Wall(t) == kFar)
        return model::Wall(0);
    const model::Civil c(model::Wall(t));
    return model::Days(c.year, unit > 5 ? 1 : c.month, unit > 4 ? 1 : c.day) * kDay;
}

} // namespace

// Adding, trimming and counting units: any times, unit and count, in any zone.
void Calendar(fuzz::Input in) {
    const Zone zone(in);
    const unsigned char unit = in.Byte() % 9;
    const long t = static_cast<long>(in.Number());
    const long u = static_cast<long>(in.Number());
    const long n = static_cast<long>(in.Number());
    const bool fits = t > 0 && model::Wall(t) != kFar;

    const long sum = dateadd(unit, n, t);
    if (t <= 0 || n == 0 || unit < Second || unit > Year)
        CHECK(sum == t);
    else if (!fits)
        CHECK(sum == -1);
    else
        CHECK(zone.Reads(sum, model::Moved(model::Wall(t), unit, n)));

    const long start = datetrim(unit, t);
    const long count = datediff(unit, t, u);
    const long long from = TrimmedWall(unit, t);
    const long long to = TrimmedWall(unit, u);
    if (unit >= Second && unit <= Hour) {
        const long long length = model::kLengths[unit];
        CHECK(start == std::max(t, 0L) / length * length);
        CHECK(count == std::max(u, 0L) / length - std::max(t, 0L) / length);
        return;
    }
    CHECK(t <= 0 ? start == 0 : fits ? zone.Reads(start, from) : start == -1);
    const model::Civil first(from);
    const model::Civil last(to);
    const long long years = last.year - first.year;
    const bool bothReal = fits && u > 0 && model::Wall(u) != kFar;
    if (unit == Day && !bothReal) { // the seconds from time 0, or to it
        const long long a = fits ? model::OnlyTime(from) : 0;
        const long long b = u > 0 && model::Wall(u) != kFar ? model::OnlyTime(to) : 0;
        CHECK(a == -1 || b == -1 || count == (b - a) / kDay);
    } else if (unit != 0)
        CHECK(count == (unit == Day     ? (to - from) / kDay
                        : unit == Month ? years * 12 + last.month - first.month
                                        : years));
    else if (t > 0 && u > 0 && model::OnlyTime(from) != -1 && model::OnlyTime(to) != -1)
        CHECK(count == model::OnlyTime(to) - model::OnlyTime(from));
}

// Timer points: any time, base, unit and step in any zone. That they are the grid's is tested point
// by point in time/PeriodTest.cpp.
void Period(fuzz::Input in) {
    const Zone zone(in);
    const unsigned char unit = in.Byte() % 8;
    const long t = static_cast<long>(in.Number());
    const long base = static_cast<long>(in.Number());
    const unsigned long n = static_cast<unsigned long>(in.Number());
    const long step = static_cast<long>(n);

    const long up = upboundtime(t, base, unit, n);
    const long down = downboundtime(t, base, unit, n);
    CHECK((t > 0 && n != 0) || (up == -1 && down == -1));
    CHECK((t > 0 && n != 0) || gettimerpoint(t, unit, n, Day, n, t % 2 != 0) == -1);
    CHECK(up == -1 || up >= t);
    CHECK(down == -1 || down <= t);
    if (zone.Fixed() && t > 0 && step > 0) {
        const long below = up == t ? up : dateadd(unit, -step, up);
        CHECK(below > t || down == below); // in March a month before the 31st is after the 1st
        const long origin = 946684800 + static_cast<long>(946684800 - model::Wall(946684800));
        CHECK(gettimerpoint(t, unit, n, Hour, 0, true) == downboundtime(t, origin, unit, n));
    }
}

// Any bytes from any layout to any other, over themselves too, against layouts spelled as words.
void LayoutExchange(fuzz::Input in) {
    const unsigned char from = in.Byte();
    const unsigned char to = in.Byte();
    const std::string source = model::LayoutFields(from);
    const std::string target = model::LayoutFields(to);
    const bool valid = !source.empty() && !target.empty();
    fuzz::Bytes bytes = in.Take(source.size());
    setenv("TZ", "UTC0", 1);
    tzset();

    fuzz::Bytes out, inPlace, wanted = bytes;
    wanted.resize(std::max(source.size(), target.size()), 0xEE);
    time_t now;
    do { // until the clock does not change in between
        now = time(nullptr);
        out.assign(target.size(), 0xEE);
        inPlace = wanted;
        CHECK(ExchangeBCDTime(from, bytes.data(), to, out.data()) == (valid ? 0 : -1));
        CHECK(ExchangeBCDTime(from, inPlace.data(), to, inPlace.data()) == (valid ? 0 : -1));
    } while (now != time(nullptr));

    char text[15];
    strftime(text, sizeof text, "%S%M%H%d%m%y%C", gmtime(&now));
    std::map<char, int> work = {{'w', (now / kDay + 4) % 7}};
    for (size_t i = 0; i < 7; ++i)
        work["smhDMYC"[i]] = std::stoi(std::string(text + 2 * i, 2), nullptr, 16);
    for (size_t i = 0; i < source.size(); ++i)
        work[source[i]] = bytes[i];
    if (source.find('w') == std::string::npos && source.find('D') != std::string::npos) {
        const auto value = [&](char field) { return work[field] - work[field] / 16 * 6; };
        const long long days = model::Days(value('C') * 100 + value('Y'), value('M'), value('D'));
        long long t = days * kDay + value('h') * 3600 + value('m') * 60 + value('s');
        t = t < LONG_MIN || t > LONG_MAX ? -1 : t;
        const long long week = model::FloorDiv(t, kDay) + 4;
        work['w'] = static_cast<int>(week - model::FloorDiv(week, 7) * 7);
    }
    for (size_t i = 0; i < target.size(); ++i) {
        CHECK(out[i] == (!valid ? 0xEE : from == to ? bytes[i] : work[target[i]]));
        wanted[i] = valid ? out[i] : wanted[i];
    }
    CHECK(inPlace == wanted);
}
