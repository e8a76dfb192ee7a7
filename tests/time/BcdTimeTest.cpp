#include "mavkit/time/BcdTime.h"

#include "device/Device.h"
#include "time/TimeText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

namespace {

std::string Record(long t) {
    std::string record(7, '\x55');
    Time_tTimeToBCDTime7(t, record.data());
    return record;
}

TEST(BcdTime, RecordsAndTimesConvertBothWays) {
    static const struct {
        const char* zone;
        long t;
        const char* record;
    } kTimes[] = {
        {kUtc, 0, "1970-01-01 00:00:00"},
        {kShanghai, 0, "1970-01-01 08:00:00"},
        {kKolkata, 0, "1970-01-01 05:30:00"},
        {kNewYork, 0, "1969-12-31 19:00:00"},
        {kUtc, -1, "1969-12-31 23:59:59"},
        {kUtc, 951782399, "2000-02-28 23:59:59"},
        {kUtc, 951782400, "2000-02-29 00:00:00"},
        {kBerlin, 1711846799, "2024-03-31 01:59:59"},
        {kBerlin, 1711846800, "2024-03-31 03:00:00"},
        {kUtc, INT_MAX, "2038-01-19 03:14:07"},
        {kUtc, INT_MIN, "1901-12-13 20:45:52"},
    };
    for (const auto& c : kTimes) {
        const Zone zone(c.zone);
        std::string record = Record(c.t);
        EXPECT_EQ(record, Bytes(c.record)) << c.record;
        EXPECT_STREQ(bcdtimestr(record.data()), c.record);
        long t = 77;
        EXPECT_EQ(Time_BCDTime7TotTime(record.data(), &t), c.t) << c.record;
        EXPECT_EQ(t, c.t);
        std::string same(7, '\0');
        Get_BCDTime7(c.t, same.data());
        EXPECT_EQ(same, record);
    }
}

TEST(BcdTime, FieldsOutOfRangeAreCarried) {
    const Zone zone(kShanghai);
    static const struct {
        const char* given;
        const char* meant;
        int weekday;
    } kRecords[] = {
        {"2024-03-05 00:00:00", "2024-03-05 00:00:00", 2},
        {"2024-02-29 12:00:00", "2024-02-29 12:00:00", 4},
        {"2023-02-29 12:00:00", "2023-03-01 12:00:00", 3},
        {"2024-13-01 00:00:00", "2025-01-01 00:00:00", 3},
        {"2024-00-00 00:00:00", "2023-11-30 00:00:00", 4},
        {"2024-02-31 24:60:60", "2024-03-03 01:01:00", 0},
        {"2024-0A-1F 00:00:00", "2024-10-25 00:00:00", 5}, // nibbles above 9 keep their value
        {"2F24-01-01 00:00:00", "3524-01-01 00:00:00", 2},
    };
    for (const auto& c : kRecords) {
        if (c.given[1] == 'F' && sizeof(time_t) == sizeof(int)) {
            continue; // no such year on a terminal
        }
        std::string given = Bytes(c.given);
        long t = 0;
        EXPECT_EQ(Text(Time_BCDTime7TotTime(given.data(), &t)), c.meant);
        tm f = {};
        f.tm_isdst = 1; // what is there before does not count
        EXPECT_EQ(Time_BCDTime7ToTm(given.data(), &f), t);
        char text[32];
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &f);
        EXPECT_STREQ(text, c.meant);
        EXPECT_EQ(f.tm_wday, c.weekday) << c.given;
        EXPECT_EQ(GetWeek(given.data()), c.weekday) << c.given;
    }
}

TEST(BcdTime, AscTimesAreDigitsForDigits) {
    const Zone zone(kShanghai);
    char text[16] = "###############";
    Time_tTimeToAscTime14(At("2024-03-05 06:07:08"), text);
    EXPECT_EQ(std::string(text, 16), std::string("20240305060708\0#", 16).replace(15, 1, 1, '\0'));
    tm f = {};
    f.tm_wday = f.tm_yday = f.tm_isdst = 99;
    Time_Asc14TimeTotmTime(text, &f);
    EXPECT_EQ(f.tm_year, 124);
    EXPECT_EQ(f.tm_mon, 2);
    EXPECT_EQ(f.tm_mday, 5);
    EXPECT_EQ(f.tm_hour, 6);
    EXPECT_EQ(f.tm_min, 7);
    EXPECT_EQ(f.tm_sec, 8);
    EXPECT_TRUE(f.tm_wday == 99 && f.tm_yday == 99 && f.tm_isdst == 99);
    char odd[] = "99991399246199"; // read as it stands
    Time_Asc14TimeTotmTime(odd, &f);
    EXPECT_EQ(f.tm_year, 8099);
    EXPECT_EQ(f.tm_mon, 12);
    EXPECT_EQ(f.tm_mday, 99);
    EXPECT_EQ(f.tm_sec, 99);
}

TEST(BcdTime, TheClockIsReadInTheZoneOfTheCall) {
    Device device;
    Device::HoldClock(1709589628); // 2024-03-04 22:00:28 UTC
    const Zone zone(kUtc);
    std::string record(7, '\0');
    Get_CurBCDTime7(record.data());
    EXPECT_EQ(record, Bytes("2024-03-04 22:00:28"));
    EXPECT_STREQ(timestr(nullptr), "2024-03-04 22:00:28");
    EXPECT_STREQ(shorttimestr(nullptr), "22:00:28");
    {
        const Zone moved(kKolkata);
        EXPECT_STREQ(timestr(nullptr), "2024-03-05 03:30:28");
        EXPECT_STREQ(shorttimestr(nullptr), "03:30:28");
    }
    tm f = {};
    f.tm_wday = f.tm_yday = f.tm_isdst = 99;
    Get_CurtmTime(&f);
    EXPECT_EQ(f.tm_year, 124);
    EXPECT_EQ(f.tm_mon, 2);
    EXPECT_EQ(f.tm_mday, 4);
    EXPECT_EQ(f.tm_hour, 22);
    EXPECT_EQ(f.tm_min, 0);
    EXPECT_EQ(f.tm_sec, 28);
    EXPECT_TRUE(f.tm_wday == 99 && f.tm_yday == 99 && f.tm_isdst == 99);
}

TEST(BcdTime, TextsHaveTwoBuffers) {
    const Zone zone(kUtc);
    long t = 951782400;
    char* const date = timestr(&t);
    char* const clock = shorttimestr(&t);
    EXPECT_STREQ(date, "2000-02-29 00:00:00");
    EXPECT_STREQ(clock, "00:00:00");
    std::string bytes = Bytes("FF0A-80-9B C0:01:7F");
    EXPECT_EQ(bcdtimestr(bytes.data()), date);
    EXPECT_STREQ(date, "FF0A-80-9B C0:01:7F");
    EXPECT_STREQ(clock, "00:00:00");
}

// Both ways a conversion can fail: localtime without an answer, mktime without one.
TEST(BcdTime, ATimeThatCannotBeConvertedFollowsNoNullPointer) {
    Device device;
    const Zone zone(kUtc);
    long t = 951782400;
    Device::Fail("localtime", EOVERFLOW, 6);
    EXPECT_EQ(Record(t), std::string(7, '\0'));
    EXPECT_STREQ(timestr(&t), "");
    EXPECT_STREQ(shorttimestr(nullptr), "");
    char text[16] = "###############";
    Time_tTimeToAscTime14(t, text);
    EXPECT_STREQ(text, "");
    tm f = {};
    Get_CurtmTime(&f);
    std::string now(7, '\x55');
    Get_CurBCDTime7(now.data());
    EXPECT_EQ(now, std::string(7, '\0'));
    std::string record = Bytes("2024-03-05 06:07:08");
    Device::Fail("mktime", EOVERFLOW, 3);
    EXPECT_EQ(Time_BCDTime7TotTime(record.data(), &t), -1);
    EXPECT_EQ(t, -1);
    EXPECT_EQ(Time_BCDTime7ToTm(record.data(), &f), -1);
    EXPECT_EQ(GetWeek(record.data()), 0);
    if (LONG_MAX > INT_MAX) { // years that no tm holds
        EXPECT_EQ(Record(LONG_MAX), std::string(7, '\0'));
        EXPECT_EQ(Record(LONG_MIN), std::string(7, '\0'));
    }
}

TEST(BcdTime, RecordsAreCopiedAndCompared) {
    std::string a = Bytes("1999-12-31 23:59:59");
    std::string b = Bytes("1980-01-01 00:00:00");
    EXPECT_EQ(CompTime(a.data(), b.data(), 7), 1); // 0x99 is above 0x80, and 0x80 above 0x79
    EXPECT_EQ(CompTime(b.data(), a.data(), 7), -1);
    std::string c = Bytes("1979-12-31 23:59:59");
    EXPECT_EQ(CompTime(b.data(), c.data(), 7), 1);
    EXPECT_EQ(CompTime(a.data(), b.data(), 1), 0);
    EXPECT_EQ(CompTime(a.data(), b.data(), 0), 0);
    EXPECT_EQ(CompTime(a.data(), b.data(), -1), 0);
    EXPECT_EQ(CompTime(a.data(), a.data(), 7), 0);

    std::string to = "........";
    CopyTime(a.data(), to.data(), 0);
    CopyTime(a.data(), to.data(), INT_MIN);
    EXPECT_EQ(to, "........");
    CopyTime(a.data(), to.data(), 2);
    EXPECT_EQ(to, "\x19\x99......");
    CopyTime7(a.data(), to.data());
    EXPECT_EQ(to, a + ".");
}

TEST(BcdTime, EveryByteHasItsRange) {
    const std::string valid = Bytes("2024-03-05 06:07:08");
    static const struct {
        size_t byte;
        int low, high;
    } kRanges[] = {{0, 0x01, 0x99}, {1, 0x00, 0x99}, {2, 0x01, 0x12}, {3, 0x01, 0x31},
                   {4, 0x00, 0x23}, {5, 0x00, 0x59}, {6, 0x00, 0x59}};
    for (const auto& c : kRanges) {
        for (int v = 0; v <= 0xFF; ++v) {
            std::string record = valid;
            record[c.byte] = static_cast<char>(v);
            EXPECT_EQ(IsBcd7Time(Unsigned(record)), v >= c.low && v <= c.high)
                << c.byte << " " << v;
        }
    }
}

} // namespace
