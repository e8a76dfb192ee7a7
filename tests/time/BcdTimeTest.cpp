#include "mavkit/time/BcdTime.h"

#include "device/Device.h"
#include "time/TimeText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

namespace {

const std::string kZeros(7, '\0');

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
        {kShanghai, 0, "1970-01-01 08:00:00"},
        {kNewYork, 0, "1969-12-31 19:00:00"},
        {kUtc, -1, "1969-12-31 23:59:59"},
        {kKolkata, 951782399, "2000-02-29 05:29:59"},
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
        std::string same = kZeros;
        Get_BCDTime7(c.t, same.data());
        EXPECT_EQ(same, record);
    }
}

TEST(BcdTime, FieldsOutOfRangeAreCarried) {
    const Zone zone(kShanghai);
    static const struct {
        const char *given, *meant;
        int weekday;
    } kRecords[] = {
        {"2024-03-05 00:00:00", "2024-03-05 00:00:00", 2},
        {"2023-02-29 12:00:00", "2023-03-01 12:00:00", 3},
        {"2024-13-01 00:00:00", "2025-01-01 00:00:00", 3},
        {"2024-00-00 00:00:00", "2023-11-30 00:00:00", 4},
        {"2024-02-31 24:60:60", "2024-03-03 01:01:00", 0},
        {"1A24-0A-1F 00:00:00", "2024-10-25 00:00:00", 5}, // nibbles above 9 keep their value
    };
    for (const auto& c : kRecords) {
        std::string given = Bytes(c.given);
        long t = 0;
        EXPECT_EQ(Text(Time_BCDTime7TotTime(given.data(), &t)), c.meant);
        tm f = {};
        f.tm_isdst = 1; // what is there before does not count
        EXPECT_EQ(Time_BCDTime7ToTm(given.data(), &f), t);
        EXPECT_EQ(Text(f), c.meant);
        EXPECT_EQ(f.tm_wday, c.weekday) << c.given;
        EXPECT_EQ(GetWeek(given.data()), c.weekday) << c.given;
    }
}

TEST(BcdTime, TheClockAndTheTextsFollowTheZoneOfTheCall) {
    Device device;
    Device::HoldClock(1709589628);
    static const struct {
        const char *zone, *text, *digits;
    } kZones[] = {{kUtc, "2024-03-04 22:00:28", "20240304220028"},
                  {kKolkata, "2024-03-05 03:30:28", "20240305033028"}};
    for (const auto& c : kZones) {
        const Zone zone(c.zone);
        std::string record = kZeros;
        Get_CurBCDTime7(record.data());
        EXPECT_EQ(record, Bytes(c.text));
        char* const date = timestr(nullptr);
        char* const clock = shorttimestr(nullptr);
        EXPECT_STREQ(date, c.text);
        EXPECT_STREQ(clock, c.text + 11);
        std::string bytes = Bytes("FF0A-80-9B C0:01:7F"); // shares the one buffer, not the other
        EXPECT_EQ(bcdtimestr(bytes.data()), date);
        EXPECT_STREQ(date, "FF0A-80-9B C0:01:7F");
        EXPECT_STREQ(clock, c.text + 11);

        char text[16] = "###############";
        Time_tTimeToAscTime14(1709589628, text);
        EXPECT_STREQ(text, c.digits);
        text[14] = '#'; // it needs no end
        tm now = {};
        tm read = {};
        now.tm_wday = now.tm_yday = now.tm_isdst = 99;
        read.tm_wday = read.tm_yday = read.tm_isdst = 99;
        Get_CurtmTime(&now);
        Time_Asc14TimeTotmTime(text, &read);
        for (const tm& f : {now, read}) {
            EXPECT_EQ(Text(f), c.text);
            EXPECT_TRUE(f.tm_wday == 99 && f.tm_yday == 99 && f.tm_isdst == 99);
        }
    }
}

TEST(BcdTime, WhatLibcCannotConvertIsZerosNothingOrMinusOne) {
    Device device;
    const Zone zone(kUtc);
    long t = 951782400;
    tm f = {};
    char text[16] = "###############";
    std::string now(7, '\x55');
    Device::Fail("localtime", EOVERFLOW, 6);
    EXPECT_EQ(Record(t), kZeros);
    EXPECT_STREQ(timestr(&t), "");
    EXPECT_STREQ(shorttimestr(nullptr), "");
    Time_tTimeToAscTime14(t, text);
    EXPECT_STREQ(text, "");
    Get_CurtmTime(&f);
    Get_CurBCDTime7(now.data());
    EXPECT_EQ(now, kZeros);
    std::string record = Bytes("2024-03-05 06:07:08");
    Device::Fail("mktime", EOVERFLOW, 3);
    EXPECT_EQ(Time_BCDTime7TotTime(record.data(), &t), -1);
    EXPECT_EQ(t, -1);
    EXPECT_EQ(Time_BCDTime7ToTm(record.data(), &f), -1);
    EXPECT_EQ(GetWeek(record.data()), 0);
    if (LONG_MAX > INT_MAX) { // years that no tm holds
        EXPECT_EQ(Record(LONG_MAX), kZeros);
        EXPECT_EQ(Record(LONG_MIN), kZeros);
        EXPECT_EQ(Record(At("12345-06-07 08:09:10")), Bytes("2345-06-07 08:09:10"));
    }
}

TEST(BcdTime, RecordsAreCopiedComparedAndTested) {
    std::string a = Bytes("1999-12-31 23:59:59");
    std::string b = Bytes("1979-12-31 23:59:59");
    EXPECT_EQ(CompTime(a.data(), b.data(), 7), 1); // bytes from 0x80 up are the greater
    EXPECT_EQ(CompTime(b.data(), a.data(), 7), -1);
    EXPECT_EQ(CompTime(a.data(), a.data(), 7), 0);
    for (const int n : {INT_MIN, 0, 1}) {
        EXPECT_EQ(CompTime(a.data(), b.data(), n), 0);
    }
    std::string to = "........";
    CopyTime(a.data(), to.data(), INT_MIN);
    EXPECT_EQ(to, "........");
    CopyTime(a.data(), to.data(), 2);
    EXPECT_EQ(to, "\x19\x99......");
    CopyTime7(a.data(), to.data());
    EXPECT_EQ(to, a + ".");

    static const int kRanges[7][2] = {{0x01, 0x99}, {0x00, 0x99}, {0x01, 0x12}, {0x01, 0x31},
                                      {0x00, 0x23}, {0x00, 0x59}, {0x00, 0x59}};
    for (size_t i = 0; i < 7; ++i) {
        for (int v = 0; v <= 0xFF; ++v) {
            std::string record = Bytes("2024-03-05 06:07:08");
            record[i] = static_cast<char>(v);
            EXPECT_EQ(IsBcd7Time(Unsigned(record)), v >= kRanges[i][0] && v <= kRanges[i][1])
                << i << " " << v;
        }
    }
}

} // namespace
