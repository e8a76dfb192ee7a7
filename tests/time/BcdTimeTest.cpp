#include "mavkit/time/BcdTime.h"
#include "time/TimeText.h"

#include <cerrno>
#include <cstring>

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
            EXPECT_EQ(Bytes(c.text), record);
            EXPECT_EQ(c.t, Time_BCDTime7TotTime(record.data(), &t));
            EXPECT_EQ(c.t, t);
        }
        char* const date = timestr(nullptr);
        char* const clock = shorttimestr(nullptr);
        EXPECT_STREQ(c.text, date);
        // Another record's text shares the one buffer, not the other.
        EXPECT_EQ(date, bcdtimestr(Bytes("FF0A-80-9B C0:01:7F").data()));
        EXPECT_STREQ("FF0A-80-9B C0:01:7F", date);
        EXPECT_STREQ(c.text + 11, clock);

        std::string ascii = "###############";
        Time_tTimeToAscTime14(c.t, ascii.data());
        EXPECT_EQ(records[0], Bytes(ascii));
        EXPECT_EQ(std::string("\0", 1), ascii.substr(14));
        ascii[14] = '#'; // it needs no terminator
        std::tm now = {};
        now.tm_wday = now.tm_yday = now.tm_isdst = 99;
        std::tm read = now;
        Get_CurtmTime(&now);
        Time_Asc14TimeTotmTime(ascii.data(), &read);
        for (const std::tm& f : {now, read}) {
            EXPECT_EQ(c.text, Text(f));
            EXPECT_EQ(99, f.tm_wday);
            EXPECT_EQ(99, f.tm_yday);
            EXPECT_EQ(99, f.tm_isdst);
        }
    }
}

TEST(BcdTime, FieldsOutOfRangeAreCarried) {
    const Zone zone(kShanghai);
    for (const auto& c : kCarried) {
        std::string given = Bytes(c.given, 7);
        long t = 0;
        std::tm f = {};
        f.tm_isdst = 1; // the old value does not matter
        EXPECT_EQ(At(c.meant), Time_BCDTime7TotTime(given.data(), &t)) << c.given;
        EXPECT_EQ(t, Time_BCDTime7ToTm(given.data(), &f)) << c.given;
        EXPECT_EQ(Text(t), Text(f)) << c.given;
        EXPECT_EQ(c.weekday, f.tm_wday) << c.given;
        EXPECT_EQ(c.weekday, GetWeek(given.data())) << c.given;
    }
}

TEST(BcdTime, AFailureLeavesNothingBehind) {
    Device device;
    const Zone zone(kUtc);
    std::string record = Bytes("2024-03-05 06:07:08");
    std::tm f = {};
    f.tm_wday = f.tm_yday = 99;
    Device::Fail("mktime", EOVERFLOW);
    EXPECT_EQ(-1, Time_BCDTime7ToTm(record.data(), &f));
    EXPECT_EQ(0, f.tm_wday);
    EXPECT_EQ(0, f.tm_yday);
    std::string ascii(15, '#');
    Device::Fail("localtime", EOVERFLOW);
    Time_tTimeToAscTime14(0, ascii.data());
    EXPECT_STREQ("", ascii.c_str());
    EXPECT_EQ("##############", ascii.substr(1));
}

TEST(BcdTime, TheLastFourDigitsOfAYearCount) {
    if (LONG_MAX == INT_MAX)
        GTEST_SKIP() << "no such years in 32 bits";
    const Zone zone(kUtc);
    std::string record = "#######";
    for (const char* const time : {"2100-06-07 08:09:10", "9999-12-31 23:59:59",
                                   "10000-01-01 00:00:00", "12345-06-07 08:09:10"}) {
        Time_tTimeToBCDTime7(At(time), record.data());
        EXPECT_EQ(Bytes(time + std::strlen(time) - 19), record);
    }
}

TEST(BcdTime, RecordsAreCopiedComparedAndTested) {
    std::string a = Bytes("1999-12-31 23:59:59");
    std::string b = Bytes("1979-12-31 23:59:59");
    for (const int n : {INT_MIN, 0, 1, 6}) { // bytes from 0x80 up are the greater
        EXPECT_EQ(n > 0 ? 1 : 0, CompTime(a.data() + 1, b.data() + 1, n));
        EXPECT_EQ(n > 0 ? -1 : 0, CompTime(b.data() + 1, a.data() + 1, n));
    }
    EXPECT_EQ(0, CompTime(a.data(), a.data(), 7));
    std::string to = "........";
    CopyTime(a.data(), to.data(), INT_MIN);
    CopyTime(a.data(), to.data(), 1);
    EXPECT_EQ("\x19.......", to);
    CopyTime7(a.data(), to.data());
    EXPECT_EQ(a + ".", to);

    std::string lowest = Bytes("0100-01-01 00:00:00");
    std::string highest = Bytes("9999-12-31 23:59:59");
    for (std::size_t i = 0; i < 7; ++i) {
        for (int v = 0; v <= 0xFF; ++v) {
            std::string record = a;
            record[i] = static_cast<char>(v);
            const bool valid = v >= Unsigned(lowest)[i] && v <= Unsigned(highest)[i];
            EXPECT_EQ(valid, IsBcd7Time(Unsigned(record))) << i << " " << v;
        }
    }
}

} // namespace
