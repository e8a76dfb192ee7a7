// Times against a calendar of the targets' own, by plain counting of days: it tells what `mktime`
// must come to. A "wall" is what a clock on the wall shows, as seconds from 1970 by it.
#include "Fuzz.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/Period.h"
#include "mavkit/time/TimeLayout.h"

#include <climits>
#include <ctime>
#include <map>

namespace {

constexpr long long kDay = 86400;
constexpr long long kFar = 1LL << 60;                    // beyond all times
constexpr long long kLengths[] = {0, 1, 60, 3600, kDay}; // by unit

long long FloorDiv(long long a, long long b) { return a / b - (a % b < 0 ? 1 : 0); }

// Days from 1970-01-01 to a date; months and days out of their range run on.
long long Days(long long year, long long month, long long day) {
    static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    year += FloorDiv(month - 1, 12);
    month -= FloorDiv(month - 1, 12) * 12;
    const long long y = month > 2 ? year : year - 1; // February 29 counts from March on
    const long long leapDays = FloorDiv(y, 4) - FloorDiv(y, 100) + FloorDiv(y, 400) - 477;
    return (year - 1970) * 365 + leapDays + kBefore[month - 1] + day - 1;
}

struct Civil {
    long long year, month, day, second; // the second of the day

    explicit Civil(long long wall) : month(12), second(wall - FloorDiv(wall, kDay) * kDay) {
        const long long days = FloorDiv(wall, kDay);
        year = 1971 + FloorDiv(days * 400, 146097);
        while (Days(year, 1, 1) > days)
            --year;
        while (Days(year, month, 1) > days)
            --month;
        day = days - Days(year, month, 1) + 1;
    }
};

// A wall moved by units of the calendar; kFar where the sum would not fit.
long long Moved(long long wall, int unit, long long n) {
    if (unit < 1 || unit > 6)
        return wall;
    if (n / (unit < 5 ? kFar / kLengths[unit] : 1LL << 36) != 0)
        return kFar;
    if (unit < 5)
        return wall + n * kLengths[unit];
    const Civil c(wall);
    return Days(c.year + (unit == 6 ? n : 0), c.month + (unit == 5 ? n : 0), c.day) * kDay +
           c.second;
}

// The zone that the process lives in: half of them with daylight saving, one that skips midnight,
// and one of half an hour.
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

    // What the wall shows; kFar where there is no such time.
    static long long Wall(long long time) {
        const time_t t = static_cast<time_t>(time);
        const tm* const f =
            t == time && time >= LONG_MIN && time <= LONG_MAX ? localtime(&t) : nullptr;
        return f == nullptr ? kFar
                            : Days(f->tm_year + 1900LL, f->tm_mon + 1, f->tm_mday) * kDay +
                                  f->tm_hour * 3600 + f->tm_min * 60 + f->tm_sec;
    }

    // The times that may show this, by what the clock is set to a day before and a day after.
    static long long Reading(long long wall, int days) {
        const long long there = wall + days * kDay;
        const long long t = wall - (Wall(there) - there);
        return Wall(there) == kFar || Wall(t) == kFar ? -1 : t;
    }

    // The one time at which the wall shows this; -1 where there is none or two.
    static long long Only(long long wall) {
        const long long a = Reading(wall, -1);
        const long long b = Reading(wall, 1);
        if (a != b && (Wall(a) == wall) == (Wall(b) == wall))
            return -1;
        return Wall(a) == wall ? a : b;
    }

    // Whether `t` is right for the wall. One that the clock skips or shows twice has two readings.
    static bool Reads(long long t, long long wall) {
        const bool either = t == Reading(wall, -1) || t == Reading(wall, 1);
        return Only(wall) == -1 ? either : t == Only(wall);
    }
};

// The start of the unit on the wall; of no time, the wall of time 0, untrimmed.
long long TrimmedWall(const Zone& zone, int unit, long long t) {
    if (t <= 0 || zone.Wall(t) == kFar)
        return zone.Wall(0);
    const Civil c(zone.Wall(t));
    return Days(c.year, unit > 5 ? 1 : c.month, unit > 4 ? 1 : c.day) * kDay;
}

// The fields of a layout, a letter each, by the rules of the code; empty for an invalid one.
std::string Fields(int code) {
    const int start = code % 8;
    const int end = code / 16 % 8;
    std::string run;
    for (int f = std::min(start, end); f <= std::max(start, end); ++f)
        run += "?smhDMYC"[f];
    if (code >= 0x80) { // the weekday, between the hour and the day: one of them must be there
        if (run.find_first_of("hD") == run.npos)
            return "";
        run.insert(run.find('h') + 1, 1, 'w'); // without the hour the day is the first
    }
    if (end < start)
        std::reverse(run.begin(), run.end());
    return start == 0 || end == 0 ? "" : run;
}

} // namespace

// Adding, trimming and counting units: any times, unit and count, in any zone.
void Calendar(fuzz::Input in) {
    const Zone zone(in);
    const unsigned char unit = in.Byte() % 9;
    const long t = static_cast<long>(in.Number());
    const long u = static_cast<long>(in.Number());
    const long n = static_cast<long>(in.Number());
    const bool fits = t > 0 && zone.Wall(t) != kFar;

    const long sum = dateadd(unit, n, t);
    if (t <= 0 || n == 0)
        CHECK(sum == t);
    else if (!fits)
        CHECK(sum == -1);
    else // libc adds seconds beyond a minute as time that passes, not on the wall
        CHECK(zone.Reads(sum, Moved(zone.Wall(t), unit, n)) ||
              (unit == Second && !zone.Fixed() && std::llabs(sum - t - n) <= 3600));

    const long start = datetrim(unit, t);
    const long count = datediff(unit, t, u);
    const long long from = TrimmedWall(zone, unit, t);
    const long long to = TrimmedWall(zone, unit, u);
    if (unit >= Second && unit <= Hour) {
        const long long length = kLengths[unit];
        CHECK(start == std::max(t, 0L) / length * length);
        CHECK(count == std::max(u, 0L) / length - std::max(t, 0L) / length);
        return;
    }
    CHECK(t <= 0 ? start == 0 : fits ? zone.Reads(start, from) : start == -1);
    const Civil a(from);
    const Civil b(to);
    const long long months = (b.year - a.year) * 12 + b.month - a.month;
    if (unit != 0)
        CHECK(count == (unit == Day     ? (to - from) / kDay
                        : unit == Month ? months
                                        : b.year - a.year));
    else if (t > 0 && u > 0 && zone.Only(from) != -1 && zone.Only(to) != -1)
        CHECK(count == zone.Only(to) - zone.Only(from));
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
    // An hour that is skipped or shown twice is read by what libc has read before.
    if (zone.Fixed() && t > 0 && step > 0) {
        CHECK(unit > Year || up <= 0 || up >= t);
        CHECK(down == (up == t ? up : dateadd(unit, -step, up)));
        const long origin = 946684800 + static_cast<long>(946684800 - zone.Wall(946684800));
        CHECK(gettimerpoint(t, unit, n, Hour, 0, true) == downboundtime(t, origin, unit, n));
    }
}

// Any bytes from any layout to any other, over themselves too, against layouts spelled as words.
void LayoutExchange(fuzz::Input in) {
    const unsigned char from = in.Byte();
    const unsigned char to = in.Byte();
    const std::string source = Fields(from);
    const std::string target = Fields(to);
    const bool valid = !source.empty() && !target.empty();
    fuzz::Bytes bytes = in.Take(source.size());
    setenv("TZ", "UTC0", 1);
    tzset();

    fuzz::Bytes out, inPlace, wanted = bytes;
    wanted.resize(std::max(source.size(), target.size()), 0xEE);
    time_t now;
    do { // until the clock stands still in between
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
        const long long days = Days(value('C') * 100 + value('Y'), value('M'), value('D'));
        long long t = days * kDay + value('h') * 3600 + value('m') * 60 + value('s');
        t = t < LONG_MIN || t > LONG_MAX ? -1 : t;
        const long long week = FloorDiv(t, kDay) + 4;
        work['w'] = static_cast<int>(week - FloorDiv(week, 7) * 7);
    }
    for (size_t i = 0; i < target.size(); ++i) {
        CHECK(out[i] == (!valid ? 0xEE : from == to ? bytes[i] : work[target[i]]));
        wanted[i] = valid ? out[i] : wanted[i];
    }
    CHECK(inPlace == wanted);
}
