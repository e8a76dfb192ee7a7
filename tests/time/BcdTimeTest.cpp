#include "mavkit/time/BcdTime.h"
#include "time/TimeText.h"

namespace {

// clang-format off
const struct { const char* zone; long t; const char* text; } kTimes[] = {
    {kShanghai, 0, "1970-01-01 08:00:00"},        {kNewYork, 0, "1969-12-31 19:00:00"},
    {kKolkata, 951782399, "2000-02-29 05:29:59"}, {kUtc, -1, "1969-12-31 23:59:59"},
    {kBerlin, 1711846799, "2024-03-31 01:59:59"}, {kBerlin, 1711846800, "2024-03-31 03:00:00"},
    {kUtc, INT_MAX, "2038-01-19 03:14:07"},       {kUtc, INT_MIN, "1901-12-13 20:45:52"}};

const struct { const char *given, *meant; int weekday; } kCarried[] = {
    {"2024-03-05", "03-05", 2}, {"2023-02-29 12", "2023-03-01 12", 3},
    {"2024-00-00", "2023-11-30", 4},
    {"2024-02-31 24:60:60", "03-03 01:01", 0}, {"1A24-0A-1F", "10-25", 5}}; // A counts as 10
// clang-format on

TEST(BcdTime, EveryFormOfATimeIsOfTheZoneOfTheCall) {
    Device device;
    for (const auto& c : kTimes) {
        SCOPED_TRACE(c.text);
        const Zone zone(c.zone);
        Device::HoldClock(c.t);
        std::string records[] = {"#######", "#######", "#######"};
        Time_tTimeToBCDTime7(c.t, records[0].data());
        Get_BCDTime7(c.t, records[1].data());
        Get_CurBCDTime7(records[2].data());
        for (std::string& record : records) {
            long t = 77;
            EXPECT_EQ(record, Bytes(c.text));
            EXPECT_TRUE(Time_BCDTime7TotTime(record.data(), &t) == c.t && t == c.t) << t;
        }
        char* const date = timestr(nullptr);
        char* const clock = shorttimestr(nullptr);
        EXPECT_STREQ(date, c.text);
        // Another record's text shares the one buffer, not the other.
        EXPECT_EQ(bcdtimestr(Bytes("FF0A-80-9B C0:01:7F").data()), date);
        EXPECT_STREQ(date, "FF0A-80-9B C0:01:7F");
        EXPECT_STREQ(clock, c.text + 11);

        std::string ascii = "###############";
        Time_tTimeToAscTime14(c.t, ascii.data());
        EXPECT_EQ(Bytes(ascii), records[0]);
        EXPECT_EQ(ascii.substr(14), std::string("\0", 1));
        ascii[14] = '#'; // it needs no end
        tm now = {};
        now.tm_wday = now.tm_yday = now.tm_isdst = 99;
        tm read = now;
        Get_CurtmTime(&now);
        Time_Asc14TimeTotmTime(ascii.data(), &read);
        for (const tm& f : {now, read}) {
            EXPECT_EQ(Text(f), c.text);
            EXPECT_TRUE(f.tm_wday == 99 && f.tm_yday == 99 && f.tm_isdst == 99);
        }
    }
}

TEST(BcdTime, FieldsOutOfRangeAreCarried) {
    const Zone zone(kShanghai);
    for (const auto& c : kCarried) {
        std::string given = Bytes(c.given, 7);
        long t = 0;
        tm f = {};
        f.tm_isdst = 1; // what is there before does not count
        EXPECT_EQ(Time_BCDTime7TotTime(given.data(), &t), At(c.meant)) << c.given;
        EXPECT_EQ(Time_BCDTime7ToTm(given.data(), &f), t);
        EXPECT_EQ(Text(f), Text(t)) << c.given;
        EXPECT_TRUE(f.tm_wday == c.weekday && GetWeek(given.data()) == c.weekday) << c.given;
    }
}

TEST(BcdTime, OfALongerYearTheLastFourDigitsCount) {
    if (LONG_MAX == INT_MAX)
        GTEST_SKIP() << "no such years in 32 bits";
    const Zone zone(kUtc);
    std::string record = "#######";
    Time_tTimeToBCDTime7(At("12345-06-07 08:09:10"), record.data());
    EXPECT_EQ(record, Bytes("2345-06-07 08:09:10"));
}

TEST(BcdTime, RecordsAreCopiedComparedAndTested) {
    std::string a = Bytes("1999-12-31 23:59:59");
    std::string b = Bytes("1979-12-31 23:59:59");
    for (const int n : {INT_MIN, 0, 1, 6}) { // bytes from 0x80 up are the greater
        EXPECT_EQ(CompTime(a.data() + 1, b.data() + 1, n), n > 0 ? 1 : 0);
        EXPECT_EQ(CompTime(b.data() + 1, a.data() + 1, n), n > 0 ? -1 : 0);
    }
    EXPECT_EQ(CompTime(a.data(), a.data(), 7), 0);
    std::string to = "........";
    CopyTime(a.data(), to.data(), INT_MIN);
    CopyTime(a.data(), to.data(), 1);
    EXPECT_EQ(to, "\x19.......");
    CopyTime7(a.data(), to.data());
    EXPECT_EQ(to, a + ".");

    std::string lowest = Bytes("0100-01-01 00:00:00");
    std::string highest = Bytes("9999-12-31 23:59:59");
    for (size_t i = 0; i < 7; ++i) {
        for (int v = 0; v <= 0xFF; ++v) {
            std::string record = a;
            record[i] = static_cast<char>(v);
            const bool valid = v >= Unsigned(lowest)[i] && v <= Unsigned(highest)[i];
            EXPECT_EQ(IsBcd7Time(Unsigned(record)), valid) << i << " " << v;
        }
    }
}

} // namespace
