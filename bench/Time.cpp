// Records and times, units of the calendar, timer points. The floor makes the localtime and mktime
// calls that the rule of each cannot do without, on the same times.
#include "Bench.h"

#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/Period.h"

#include <array>
#include <cctz/civil_time.h>
#include <cctz/time_zone.h>
#include <chrono>
#include <cstring>
#include <ctime>
#include <date/tz.h>

namespace {

using bench::Size;
using Record = std::array<char, 7>;

constexpr std::size_t kCount = 64;
constexpr char kZone[] = "Europe/Berlin";

long times[kCount];     // from 09:00 to 20:59, the first to 28th of a month, 2001 to 2030
Record records[kCount]; // the same
tm fields[kCount];      // the same
std::size_t next = 0;

std::size_t Pick() { return next = (next + 1) % kCount; }

// cctz, in the shape of our functions.
cctz::time_zone zone;
cctz::civil_second Civil(long t) {
    return cctz::convert(std::chrono::system_clock::from_time_t(t), zone);
}
long FromCivil(const cctz::civil_second& c) {
    return std::chrono::system_clock::to_time_t(cctz::convert(c, zone));
}

// date, likewise.
const date::time_zone* dateZone = nullptr;
date::local_seconds Local(long t) {
    return dateZone->to_local(date::sys_seconds(std::chrono::seconds(t)));
}
long FromLocal(date::local_seconds l) {
    return dateZone->to_sys(l, date::choose::earliest).time_since_epoch().count();
}

int Two(char byte) { return (byte >> 4 & 15) * 10 + (byte & 15); }
char Bcd(long value) { return static_cast<char>(value / 10 * 16 + value % 10); }

Record Pack(long year, long month, long day, long hour, long minute, long second) {
    return {Bcd(year / 100), Bcd(year % 100), Bcd(month), Bcd(day),
            Bcd(hour),       Bcd(minute),     Bcd(second)};
}

date::local_days DayOf(date::local_seconds l) { return date::floor<date::days>(l); }

// The fields of a time, ready for mktime.
tm Break(long t) {
    const time_t time = t;
    tm f = *localtime(&time);
    f.tm_isdst = -1;
    return f;
}

// Adds one way to do a job; `value(i)` gives its result for the time number i.
template <typename Value, typename Expected>
void AddHand(const char* job, Size size, const char* who, Value value, Expected expected) {
    for (std::size_t i = 0; i < kCount; ++i) {
        bench::Same(job, who, value(i), expected(i));
    }
    bench::Add(job, size, who, [value] { bench::Use(value(Pick())); });
}

template <typename Ours, typename Floor, typename Cctz, typename Date>
void AddJob(const char* job, const char* size, Ours ours, Floor floor, Cctz cctz, Date date) {
    bench::Target(job, "floor 1.1");
    AddHand(job, {size, 0}, "ours", ours, ours);
    bench::Add(job, {size, 0}, "floor", [floor] { bench::Use(floor(Pick())); });
    AddHand(job, {size, 0}, "cctz", cctz, ours);
    AddHand(job, {size, 0}, "date", date, ours);
}

void AddConversions() {
    AddJob(
        "record to time_t", "a record",
        [](std::size_t i) {
            long t;
            return Time_BCDTime7TotTime(records[i].data(), &t);
        },
        [](std::size_t i) {
            tm f = fields[i];
            return mktime(&f);
        },
        [](std::size_t i) {
            const Record& r = records[i];
            return FromCivil(cctz::civil_second(Two(r[0]) * 100 + Two(r[1]), Two(r[2]), Two(r[3]),
                                                Two(r[4]), Two(r[5]), Two(r[6])));
        },
        [](std::size_t i) {
            const Record& r = records[i];
            const auto day = date::year(Two(r[0]) * 100 + Two(r[1])) /
                             static_cast<unsigned>(Two(r[2])) / static_cast<unsigned>(Two(r[3]));
            return FromLocal(date::local_days(day) + std::chrono::hours(Two(r[4])) +
                             std::chrono::minutes(Two(r[5])) + std::chrono::seconds(Two(r[6])));
        });
    AddJob(
        "time_t to record", "a record",
        [](std::size_t i) -> const Record& {
            static Record r; // stays in memory, as a caller's does
            Time_tTimeToBCDTime7(times[i], r.data());
            return r;
        },
        [](std::size_t i) {
            const time_t t = times[i];
            return localtime(&t);
        },
        [](std::size_t i) {
            const cctz::civil_second c = Civil(times[i]);
            return Pack(c.year(), c.month(), c.day(), c.hour(), c.minute(), c.second());
        },
        [](std::size_t i) {
            const date::local_seconds l = Local(times[i]);
            const date::year_month_day day(DayOf(l));
            const date::hh_mm_ss<std::chrono::seconds> clock(l - DayOf(l));
            return Pack(int{day.year()}, unsigned{day.month()}, unsigned{day.day()},
                        clock.hours().count(), clock.minutes().count(), clock.seconds().count());
        });
}

void AddUnits() {
    AddJob(
        "dateadd", "40 days", [](std::size_t i) { return dateadd(Day, 40, times[i]); },
        [](std::size_t i) {
            tm f = Break(times[i]);
            f.tm_mday += 40;
            return mktime(&f);
        },
        [](std::size_t i) {
            const cctz::civil_second c = Civil(times[i]);
            return FromCivil(cctz::civil_second(c.year(), c.month(), c.day() + 40, c.hour(),
                                                c.minute(), c.second()));
        },
        [](std::size_t i) { return FromLocal(Local(times[i]) + date::days(40)); });
    AddJob(
        "dateadd", "5 months", [](std::size_t i) { return dateadd(Month, 5, times[i]); },
        [](std::size_t i) {
            tm f = Break(times[i]);
            f.tm_mon += 5;
            return mktime(&f);
        },
        [](std::size_t i) {
            const cctz::civil_second c = Civil(times[i]);
            return FromCivil(cctz::civil_second(c.year(), c.month() + 5, c.day(), c.hour(),
                                                c.minute(), c.second()));
        },
        [](std::size_t i) {
            const date::local_seconds l = Local(times[i]);
            const date::year_month_day day(DayOf(l));
            return FromLocal(date::local_days(day + date::months(5)) + (l - DayOf(l)));
        });
    const auto midnight = [](std::size_t i) {
        tm f = Break(times[i]);
        f.tm_hour = f.tm_min = f.tm_sec = 0;
        return mktime(&f);
    };
    AddJob(
        "datetrim", "Day", [](std::size_t i) { return datetrim(Day, times[i]); }, midnight,
        [](std::size_t i) {
            return FromCivil(cctz::civil_second(cctz::civil_day(Civil(times[i]))));
        },
        [](std::size_t i) { return FromLocal(DayOf(Local(times[i]))); });
    AddJob(
        "datetrim", "Month", [](std::size_t i) { return datetrim(Month, times[i]); },
        [](std::size_t i) {
            tm f = Break(times[i]);
            f.tm_hour = f.tm_min = f.tm_sec = 0;
            f.tm_mday = 1;
            return mktime(&f);
        },
        [](std::size_t i) {
            return FromCivil(cctz::civil_second(cctz::civil_month(Civil(times[i]))));
        },
        [](std::size_t i) {
            const date::year_month_day day(DayOf(Local(times[i])));
            return FromLocal(date::local_days(day.year() / day.month() / 1));
        });
    const auto twice = [](std::size_t i) {
        const time_t a = times[i];
        const time_t b = times[(i + 7) % kCount];
        const tm f = *localtime(&a);
        return f.tm_year - localtime(&b)->tm_year;
    };
    AddJob(
        "datediff", "Day",
        [](std::size_t i) { return datediff(Day, times[i], times[(i + 7) % kCount]); }, twice,
        [](std::size_t i) {
            return static_cast<long>(cctz::civil_day(Civil(times[(i + 7) % kCount])) -
                                     cctz::civil_day(Civil(times[i])));
        },
        [](std::size_t i) {
            return static_cast<long>(
                (DayOf(Local(times[(i + 7) % kCount])) - DayOf(Local(times[i]))).count());
        });
    AddJob(
        "datediff", "Month",
        [](std::size_t i) { return datediff(Month, times[i], times[(i + 7) % kCount]); }, twice,
        [](std::size_t i) {
            return static_cast<long>(cctz::civil_month(Civil(times[(i + 7) % kCount])) -
                                     cctz::civil_month(Civil(times[i])));
        },
        [](std::size_t i) {
            const date::year_month_day a(DayOf(Local(times[i])));
            const date::year_month_day b(DayOf(Local(times[(i + 7) % kCount])));
            return static_cast<long>((b.year() / b.month() - a.year() / a.month()).count());
        });
}

// The next 08:00 and what leads to it: all times lie after 08:00.
void AddPoints() {
    static const long base = 946710000; // 2000-01-01 08:00:00
    const auto cctz = [](std::size_t i) {
        const cctz::civil_day day(Civil(times[i]));
        const long point = FromCivil(cctz::civil_second(day) + 8 * 3600);
        return point >= times[i] ? point : FromCivil(cctz::civil_second(day + 1) + 8 * 3600);
    };
    const auto date = [](std::size_t i) {
        const date::local_days day = DayOf(Local(times[i]));
        const long point = FromLocal(day + std::chrono::hours(8));
        return point >= times[i] ? point : FromLocal(day + date::days(1) + std::chrono::hours(8));
    };
    const auto nextDay = [](tm f, long t) {
        f.tm_hour = 8;
        f.tm_min = f.tm_sec = 0;
        time_t point = mktime(&f);
        if (point < t) {
            ++f.tm_mday;
            f.tm_isdst = -1;
            point = mktime(&f);
        }
        return point;
    };
    AddJob(
        "upboundtime", "every day",
        [](std::size_t i) { return upboundtime(times[i], base, Day, 1); },
        [nextDay](std::size_t i) {
            bench::Use(localtime(&base));
            return nextDay(Break(times[i]), times[i]);
        },
        cctz, date);
    const char* job = "upboundtime";
    bench::Add(job, {"every 2 hours", 0}, "ours",
               [] { bench::Use(upboundtime(times[Pick()], base, Hour, 2)); });
    bench::Add(job, {"every 2 hours", 0}, "floor", [] {
        const long t = times[Pick()];
        bench::Use(localtime(&base));
        tm f = Break(t);
        for (const int add : {t / 3600 % 2 != 0 ? 1 : 0, 2}) {
            // Up to a multiple, where it is none; to the base's minute and second; past t.
            if (add != 0 && (add == 1 || mktime(&f) < t)) {
                f.tm_hour += add;
                f.tm_isdst = -1;
                bench::Use(mktime(&f));
            }
            f.tm_min = f.tm_sec = 0;
            f.tm_isdst = -1;
        }
    });
    static const tm origin = [] {
        tm f = {};
        f.tm_year = 100;
        f.tm_mday = 1;
        f.tm_isdst = -1;
        return f;
    }();
    AddJob(
        "gettimerpoint", "every day",
        [](std::size_t i) { return gettimerpoint(times[i], Day, 1, Hour, 8, false); },
        [nextDay](std::size_t i) {
            tm f = origin;
            bench::Use(mktime(&f));
            f.tm_hour += 8;
            f.tm_isdst = -1;
            bench::Use(mktime(&f));
            return nextDay(Break(times[i]), times[i]);
        },
        cctz, date);
    job = "issameperiod";
    bench::Target(job, "floor 1.1");
    static const auto record = [](std::size_t i) {
        return reinterpret_cast<unsigned char*>(records[i % kCount].data());
    };
    bench::Add(job, {"90 seconds", 0}, "ours", [] {
        const std::size_t i = Pick();
        bench::Use(issameperiod(record(i), record(i), Second, 90));
    });
    bench::Add(job, {"90 seconds", 0}, "floor", [] {
        // Both records, the origin, the point above the first one, and the one below it.
        const std::size_t i = Pick();
        for (const tm* one :
             {static_cast<const tm*>(&fields[i]), static_cast<const tm*>(&fields[i]), &origin}) {
            tm f = *one;
            bench::Use(mktime(&f));
        }
        tm f = fields[i];
        f.tm_sec += 60;
        for (const int add : {0, 0, -90}) {
            f.tm_sec += add;
            f.tm_isdst = -1;
            bench::Use(mktime(&f));
        }
    });
    bench::Add(job, {"15 minutes", 0}, "ours", [] {
        const std::size_t i = Pick();
        bench::Use(issameperiod(record(i), record(i), Minute, 15));
    });
}

} // namespace

void bench::AddTime() {
    tzset();
    const std::vector<unsigned char> noise = Noise(kCount * 6);
    for (std::size_t i = 0; i < kCount; ++i) {
        const unsigned char* n = &noise[i * 6];
        records[i] = Pack(2001 + n[0] % 30, 1 + n[1] % 12, 1 + n[2] % 28, 9 + n[3] % 12, n[4] % 60,
                          1 + n[5] % 59);
        Time_BCDTime7ToTm(records[i].data(), &fields[i]);
        fields[i].tm_isdst = -1;
        Time_BCDTime7TotTime(records[i].data(), &times[i]);
    }
    if (!cctz::load_time_zone(kZone, &zone)) {
        Differ("time", "cctz, without its zone,");
    }
    dateZone = date::locate_zone(kZone);
    AddConversions();
    AddUnits();
    AddPoints();
}
