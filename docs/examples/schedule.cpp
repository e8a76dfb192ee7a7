// Times as BCD records, calendar arithmetic, and the next points of timers.
#include <mavkit/time/BcdTime.h>
#include <mavkit/time/Calendar.h>
#include <mavkit/time/Period.h>
#include <mavkit/time/TimeLayout.h>

#include <cstdio>
#include <cstdlib>

static void Show(const char* what, long t) { std::printf("%-28s%s\n", what, timestr(&t)); }

int main() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1); // all of mavkit's times are local

    // Second, minute, hour, day, month, year: the layout 0x61. A Bcd7Time is the layout 0x17. The
    // century comes from the clock.
    unsigned char fromMeter[] = {0x08, 0x07, 0x06, 0x30, 0x03, 0x24};
    unsigned char record[7];
    if (ExchangeBCDTime(0x61, fromMeter, 0x17, record) != 0 || !IsBcd7Time(record))
        return 1;
    long t;
    Time_BCDTime7TotTime(reinterpret_cast<char*>(record), &t);

    Show("the meter says", t);
    Show("a month later", dateadd(Month, 1, t));
    Show("a day later, in summer time", dateadd(Day, 1, t));
    Show("its month began", datetrim(Month, t));
    std::printf(
        "%-28s%ld\n", "hours of the next day",
        datediff(Hour, datetrim(Day, dateadd(Day, 1, t)), datetrim(Day, dateadd(Day, 2, t))));
    Show("next quarter of an hour", gettimerpoint(t, Minute, 15, Minute, 0, false));
    Show("next 8 o'clock", gettimerpoint(t, Day, 1, Hour, 8, false));
    Show("last 1st at 02:00", gettimerpoint(t, Month, 1, Hour, 2, true));
}
