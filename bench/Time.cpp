// Records and times, units of the calendar, timer points. The floor makes only the localtime and
// mktime calls that the rule of each needs in any case, on the same times.
#include "Samples.h"

#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/Period.h"

long bench::times[kCount];
bench::Record bench::records[kCount];
std::tm bench::fields[kCount];

std::size_t bench::Pick() {
    static std::size_t next = 0;
    return next = (next + 1) % kCount;
}

namespace {

using bench::fields;
using bench::kCount;
using bench::Pick;
using bench::Record;
using bench::records;
using bench::times;

char Bcd(long value) { return static_cast<char>(value / 10 * 16 + value % 10); }

// The fields of a time, ready for mktime.
std::tm Break(long t) {
    const std::time_t time = t;
    std::tm f = *std::localtime(&time);
    f.tm_isdst = -1;
    return f;
}

template <typename Ours, typename Floor>
void AddJob(const char* job, const char* size, Ours ours, Floor floor) {
    bench::Targets()[job] = "floor 1.1";
    bench::AddHand(job, size, "ours", ours, ours);
    bench::Add(job, {size, 0}, "floor", [floor] { bench::Use(floor(Pick())); });
}

void AddConversions() {
    AddJob(
        "record to time_t", "a record",
        [](std::size_t i) {
            long t;
            return Time_BCDTime7TotTime(records[i].data(), &t);
        },
        [](std::size_t i) {
            std::tm f = fields[i];
            return std::mktime(&f);
        });
    AddJob(
        "time_t to record", "a record",
        [](std::size_t i) -> const Record& {
            static Record r; // stays in memory, as a caller's does
            Time_tTimeToBCDTime7(times[i], r.data());
            return r;
        },
        [](std::size_t i) {
            const std::time_t t = times[i];
            return std::localtime(&t);
        });
}

void AddUnits() {
    AddJob(
        "dateadd", "40 days", [](std::size_t i) { return dateadd(Day, 40, times[i]); },
        [](std::size_t i) {
            std::tm f = Break(times[i]);
            f.tm_mday += 40;
            return std::mktime(&f);
        });
    AddJob(
        "dateadd", "5 months", [](std::size_t i) { return dateadd(Month, 5, times[i]); },
        [](std::size_t i) {
            std::tm f = Break(times[i]);
            f.tm_mon += 5;
            return std::mktime(&f);
        });
    const auto midnight = [](std::size_t i) {
        std::tm f = Break(times[i]);
        f.tm_hour = f.tm_min = f.tm_sec = 0;
        return std::mktime(&f);
    };
    AddJob(
        "datetrim", "Day", [](std::size_t i) { return datetrim(Day, times[i]); }, midnight);
    AddJob(
        "datetrim", "Month", [](std::size_t i) { return datetrim(Month, times[i]); },
        [](std::size_t i) {
            std::tm f = Break(times[i]);
            f.tm_hour = f.tm_min = f.tm_sec = 0;
            f.tm_mday = 1;
            return std::mktime(&f);
        });
    const auto twice = [](std::size_t i) {
        const std::time_t a = times[i];
        const std::time_t b = times[(i + 7) % kCount];
        const std::tm f = *std::localtime(&a);
        return f.tm_year - std::localtime(&b)->tm_year;
    };
    AddJob(
        "datediff", "Day",
        [](std::size_t i) { return datediff(Day, times[i], times[(i + 7) % kCount]); }, twice);
    AddJob(
        "datediff", "Month",
        [](std::size_t i) { return datediff(Month, times[i], times[(i + 7) % kCount]); }, twice);
}

// The next 08:00 and what leads to it: all times lie after 08:00.
void AddPoints() {
    static const long base = 946710000; // 2000-01-01 08:00:00
    const auto nextDay = [](std::tm f, long t) {
        f.tm_hour = 8;
        f.tm_min = f.tm_sec = 0;
        std::time_t point = std::mktime(&f);
        if (point < t) {
            ++f.tm_mday;
            f.tm_isdst = -1;
            point = std::mktime(&f);
        }
        return point;
    };
    AddJob(
        "upboundtime", "every day",
        [](std::size_t i) { return upboundtime(times[i], base, Day, 1); },
        [nextDay](std::size_t i) {
            bench::Use(std::localtime(&base));
            return nextDay(Break(times[i]), times[i]);
        });
    const char* job = "upboundtime";
    bench::Add(job, {"every 2 hours", 0}, "ours",
               [] { bench::Use(upboundtime(times[Pick()], base, Hour, 2)); });
    bench::Add(job, {"every 2 hours", 0}, "floor", [] {
        const long t = times[Pick()];
        bench::Use(std::localtime(&base));
        std::tm f = Break(t);
        for (const int add : {t / 3600 % 2 != 0 ? 1 : 0, 2}) {
            // Up to a multiple, if it is not one; to the base's minute and second; past t.
            if (add != 0 && (add == 1 || std::mktime(&f) < t)) {
                f.tm_hour += add;
                f.tm_isdst = -1;
                bench::Use(std::mktime(&f));
            }
            f.tm_min = f.tm_sec = 0;
            f.tm_isdst = -1;
        }
    });
    static const std::tm origin = [] {
        std::tm f = {};
        f.tm_year = 100;
        f.tm_mday = 1;
        f.tm_isdst = -1;
        return f;
    }();
    AddJob(
        "gettimerpoint", "every day",
        [](std::size_t i) { return gettimerpoint(times[i], Day, 1, Hour, 8, false); },
        [nextDay](std::size_t i) {
            std::tm f = origin;
            bench::Use(std::mktime(&f));
            f.tm_hour += 8;
            f.tm_isdst = -1;
            bench::Use(std::mktime(&f));
            return nextDay(Break(times[i]), times[i]);
        });
    job = "issameperiod";
    bench::Targets()[job] = "floor 1.1";
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
        for (const std::tm* one : {static_cast<const std::tm*>(&fields[i]),
                                   static_cast<const std::tm*>(&fields[i]), &origin}) {
            std::tm f = *one;
            bench::Use(std::mktime(&f));
        }
        std::tm f = fields[i];
        f.tm_sec += 60;
        for (const int add : {0, 0, -90}) {
            f.tm_sec += add;
            f.tm_isdst = -1;
            bench::Use(std::mktime(&f));
        }
    });
    bench::Add(job, {"15 minutes", 0}, "ours", [] {
        const std::size_t i = Pick();
        bench::Use(issameperiod(record(i), record(i), Minute, 15));
    });
}

} // namespace

bench::Record bench::Pack(long year, long month, long day, long hour, long minute, long second) {
    return {Bcd(year / 100), Bcd(year % 100), Bcd(month), Bcd(day),
            Bcd(hour),       Bcd(minute),     Bcd(second)};
}

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
    AddConversions();
    AddUnits();
    AddPoints();
}
