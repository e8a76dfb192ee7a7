// The calendar's jobs done by cctz and date.
#include "Samples.h"
#include "peers/Peers.h"

#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/Period.h"

#include <cctz/civil_time.h>
#include <cctz/time_zone.h>
#include <chrono>
#include <date/tz.h>

namespace {

using bench::kCount;
using bench::Pack;
using bench::Record;
using bench::records;
using bench::times;

constexpr char kZone[] = "Europe/Berlin";

// cctz, with the interface of our functions.
cctz::time_zone zone;
cctz::civil_second Civil(long t) {
    return cctz::convert(std::chrono::system_clock::from_time_t(t), zone);
}
long FromCivil(const cctz::civil_second& c) {
    return std::chrono::system_clock::to_time_t(cctz::convert(c, zone));
}

// The same for date.
const date::time_zone* dateZone = nullptr;
date::local_seconds Local(long t) {
    return dateZone->to_local(date::sys_seconds(std::chrono::seconds(t)));
}
long FromLocal(date::local_seconds l) {
    return dateZone->to_sys(l, date::choose::earliest).time_since_epoch().count();
}

int Two(char byte) { return (byte >> 4 & 15) * 10 + (byte & 15); }

date::local_days DayOf(date::local_seconds l) { return date::floor<date::days>(l); }

template <typename Ours, typename Cctz, typename Date>
void AddPeers(const char* job, const char* size, Ours ours, Cctz cctz, Date date) {
    bench::AddHand(job, size, "cctz", cctz, ours);
    bench::AddHand(job, size, "date", date, ours);
}

void AddConversions() {
    AddPeers(
        "record to time_t", "a record",
        [](std::size_t i) {
            long t;
            return Time_BCDTime7TotTime(records[i].data(), &t);
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
    AddPeers(
        "time_t to record", "a record",
        [](std::size_t i) -> const Record& {
            static Record r; // stays in memory, as a caller's does
            Time_tTimeToBCDTime7(times[i], r.data());
            return r;
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
    AddPeers(
        "dateadd", "40 days", [](std::size_t i) { return dateadd(Day, 40, times[i]); },
        [](std::size_t i) {
            const cctz::civil_second c = Civil(times[i]);
            return FromCivil(cctz::civil_second(c.year(), c.month(), c.day() + 40, c.hour(),
                                                c.minute(), c.second()));
        },
        [](std::size_t i) { return FromLocal(Local(times[i]) + date::days(40)); });
    AddPeers(
        "dateadd", "5 months", [](std::size_t i) { return dateadd(Month, 5, times[i]); },
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
    AddPeers(
        "datetrim", "Day", [](std::size_t i) { return datetrim(Day, times[i]); },
        [](std::size_t i) {
            return FromCivil(cctz::civil_second(cctz::civil_day(Civil(times[i]))));
        },
        [](std::size_t i) { return FromLocal(DayOf(Local(times[i]))); });
    AddPeers(
        "datetrim", "Month", [](std::size_t i) { return datetrim(Month, times[i]); },
        [](std::size_t i) {
            return FromCivil(cctz::civil_second(cctz::civil_month(Civil(times[i]))));
        },
        [](std::size_t i) {
            const date::year_month_day day(DayOf(Local(times[i])));
            return FromLocal(date::local_days(day.year() / day.month() / 1));
        });
    AddPeers(
        "datediff", "Day",
        [](std::size_t i) { return datediff(Day, times[i], times[(i + 7) % kCount]); },
        [](std::size_t i) {
            return static_cast<long>(cctz::civil_day(Civil(times[(i + 7) % kCount])) -
                                     cctz::civil_day(Civil(times[i])));
        },
        [](std::size_t i) {
            return static_cast<long>(
                (DayOf(Local(times[(i + 7) % kCount])) - DayOf(Local(times[i]))).count());
        });
    AddPeers(
        "datediff", "Month",
        [](std::size_t i) { return datediff(Month, times[i], times[(i + 7) % kCount]); },
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
    AddPeers(
        "upboundtime", "every day",
        [](std::size_t i) { return upboundtime(times[i], base, Day, 1); }, cctz, date);
    AddPeers(
        "gettimerpoint", "every day",
        [](std::size_t i) { return gettimerpoint(times[i], Day, 1, Hour, 8, false); }, cctz, date);
}

} // namespace

void bench::AddTimePeers() {
    if (!cctz::load_time_zone(kZone, &zone)) {
        Differ("time", "cctz, without its zone,");
    }
    dateZone = date::locate_zone(kZone);
    AddConversions();
    AddUnits();
    AddPoints();
}
