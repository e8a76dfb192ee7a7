// What depends on the widths of long and time_t. On the terminal both have 32 bits; newer
// toolchains pair a 32-bit long with a 64-bit time_t. Every expectation is computed from the
// build's own widths.
#include "device/Device.h"
#include "mavkit/mavkit.h"
#include "time/TimeText.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace {

constexpr long long kEnd = 0x7FFFFFFF; // 2038-01-19 03:14:07 UTC, the last second in 32 bits
constexpr bool kWideTime = sizeof(std::time_t) > 4;

// A time as the library returns it: -1 when it does not fit a `long`.
long Fit(long long t) { return t < LONG_MIN || t > LONG_MAX ? -1 : static_cast<long>(t); }

#ifdef MAVKIT_ABI // what the build asked for
TEST(Abi, IsTheOneThatWasAskedFor) {
    const auto bits = [](std::size_t bytes) { return std::to_string(CHAR_BIT * bytes); };
    EXPECT_EQ(MAVKIT_ABI, "long " + bits(sizeof(long)) + ", time_t " + bits(sizeof(std::time_t)) +
                              ", off_t " + bits(sizeof(off_t)));
}
#endif

TEST(Abi, TheLibraryHasTheVersionOfItsHeaders) {
    int parts[3] = {};
    EXPECT_EQ(3, std::sscanf(mavkit_version(), "%d.%d.%d", &parts[0], &parts[1], &parts[2]));
    EXPECT_EQ(MAVKIT_VERSION, parts[0] * 10000 + parts[1] * 100 + parts[2]);
}

TEST(Abi, RecordsReachTheEndsOfLong) {
    // clang-format off
    static const struct { const char* zone; long long t; const char* text; } kMoments[] = {
        {kUtc, kEnd, "2038-01-19 03:14:07"},         {kUtc, kEnd + 1, "2038-01-19 03:14:08"},
        {kUtc, -kEnd - 2, "1901-12-13 20:45:51"},
        {kNewYork, kEnd + 1, "2038-01-18 22:14:08"},
        {kUtc, 253402300799, "9999-12-31 23:59:59"}};
    // clang-format on
    for (const auto& c : kMoments) {
        const Zone zone(c.zone);
        std::string record = Bytes(c.text);
        long out = 0;
        std::tm fields = {};
        EXPECT_EQ(Fit(c.t), Time_BCDTime7TotTime(record.data(), &out)) << c.text;
        EXPECT_EQ(Fit(c.t), Time_BCDTime7ToTm(record.data(), &fields)) << c.text;
        if (out != -1) {
            EXPECT_STREQ(c.text, timestr(&out));
        }
    }
}

TEST(Abi, SumsAndBoundsEndWithLong) {
    const Zone zone(kUtc);
    static const char* const kBefore[] = {// one unit before the end
                                          "2038-01-19 03:14:06", "2038-01-19 03:13:07",
                                          "2038-01-19 02:14:07", "2038-01-18 03:14:07",
                                          "2037-12-19 03:14:07", "2037-01-19 03:14:07"};
    const long past = Fit(kEnd + 1);
    for (unsigned char unit = Second; unit <= Year; ++unit) {
        SCOPED_TRACE(kBefore[unit - Second]);
        const long t = At(kBefore[unit - Second]);
        EXPECT_EQ(kEnd, dateadd(unit, 1, t));
        EXPECT_EQ(t, dateadd(unit, -1, kEnd));
        EXPECT_EQ(past, dateadd(unit, 1, t + 1));
        EXPECT_EQ(1, datediff(unit, t, kEnd));
        // A grid with a point at the end, and one whose next point is a second after it.
        EXPECT_EQ(kEnd, upboundtime(t + 1, t, unit, 1));
        EXPECT_EQ(kEnd, downboundtime(kEnd, t, unit, 1));
        if (unit != Second) {
            EXPECT_EQ(past, upboundtime(kEnd, t + 1, unit, 1));
            EXPECT_EQ(past == -1 ? -1 : t + 1, downboundtime(kEnd, t + 1, unit, 1));
        }
    }
    // A step is unsigned: beyond half its range it must not count as negative.
    for (const unsigned long n : {0x7FFFFFFFUL, 0x80000000UL, 0xFFFFFFFEUL, 0xFFFFFFFFUL}) {
        const long point = Fit(1LL + static_cast<long long>(n));
        EXPECT_EQ(1, upboundtime(1, 1, Second, n)) << n;
        EXPECT_EQ(point, upboundtime(2, 1, Second, n)) << n;
        EXPECT_EQ(point == -1 ? -1 : 1, downboundtime(2, 1, Second, n)) << n;
    }
}

TEST(Abi, IntervalsSpanAllOfLong) {
    const Zone zone(kUtc);
    std::string first = Bytes("1902-01-01 00:00:00"), end = Bytes("2038-01-19 03:14:07"),
                later = Bytes("2039-01-01 00:00:00"), out(7, '\0');
    // A time that does not fit counts as time 0.
    EXPECT_EQ(Fit(kEnd + 1) == -1 ? -24855 : 347, bcddatediff(Day, end.data(), later.data()));
    EXPECT_EQ(59, bcddatediff(Second, Bytes("2024-03-05 06:07:09").data(),
                              Bytes("2024-03-05 06:08:08").data()));
    EXPECT_EQ(4293400447U / 60, Time_BCDTime7ToDots(first.data(), end.data(), 1));
    Add_nRadixOnBCDTime7(end.data(), 1, 1, out.data());
    EXPECT_EQ(Bytes(Fit(kEnd + 1) == -1 ? "1901-12-13 20:46:51" : "2038-01-19 03:15:07"), out);
}

TEST(Abi, ClockRunsOnAfter2038WhereItCan) {
    const Terminal terminal;
    const Device& device = terminal.device;
    const std::string now = kWideTime ? "2038-01-19 03:14:18" : "1901-12-13 20:46:02";
    Device::HoldClock(static_cast<std::time_t>(kEnd + 11));
    char record[7];
    Get_CurBCDTime7(record);
    EXPECT_EQ(Bytes(now), std::string(record, 7));
    EXPECT_EQ(now, timestr(nullptr));
    GENERAL_LOG("entry\n");
    EXPECT_EQ(now.substr(5) + "\tentry\n", device.GeneralLog());

    IpcInfo info;
    info.type = 1;
    info.createTime = INT_MAX;
    info.lifetime = 10;
    EXPECT_EQ(!kWideTime, info.IsValid());

    char set[] = "\x38\x01\x19\x03\x14\x08";
    EXPECT_EQ(0, Set_SysTime(set));
    const auto second = static_cast<std::time_t>(kEnd + 1); // not set where there is no such time
    EXPECT_EQ(std::vector<std::time_t>(kWideTime ? 1 : 0, second), device.clockSets);
}

TEST(Abi, MessageTypesFillALong) {
    const Terminal terminal(WAY_NONE);
    const Device& device = terminal.device;
    Message queue('t');
    const unsigned char payload[] = "abc";
    unsigned char raw[sizeof(long) + 4];
    unsigned int length = 4;
    for (const long type : {LONG_MAX, 2L, 0x01020304L}) {
        EXPECT_TRUE(queue.SendData(payload, 4, type));
        EXPECT_FALSE(queue.HasMsg(type - 1));
        EXPECT_FALSE(queue.HasMsg(1 - type));
        EXPECT_TRUE(queue.HasMsg(type));
        EXPECT_TRUE(queue.HasMsg(LONG_MIN)); // any type up to the highest
        ASSERT_TRUE(queue.RecvMsg(raw, length, -type));
        for (std::size_t i = 0; i < sizeof type; ++i) // little-endian, as wide as a long
            EXPECT_EQ(static_cast<unsigned char>(type >> 8 * i), raw[i]) << type;
        EXPECT_EQ(0, std::memcmp(raw + sizeof type, payload, 4));
    }
    EXPECT_EQ("", device.GeneralLog());
    EXPECT_FALSE(queue.SendData(payload, 4, LONG_MIN)); // not a type, and it has no opposite
    EXPECT_NE(std::string::npos, device.GeneralLog().find(",type=" + std::to_string(LONG_MIN) +
                                                          ") send ERROR(Invalid argument)!\n"));
    queue.Destroy();
}

// Offsets of files have 64 bits everywhere.
#if SIZE_MAX == UINT32_MAX
TEST(Abi, TextsOfMoreThan32BitsAreRefused) {
    // As hex these are 2^32 characters and 4,477,148 more.
    std::string text = "kept";
    EXPECT_THROW(GetPrintString(text, "", 1420000000, true, 0), std::length_error);
    EXPECT_EQ("kept", text);
}
#endif

TEST(Abi, LogsGrowPastTwoGigabytes) {
    const Terminal terminal(WAY_PUBLIC);
    const Device& device = terminal.device;
    const std::uintmax_t size = 0x80000005ULL;
    const std::string trace = std::string(Device::kTraceDir) + "trace.log";
    for (const std::string& path : {std::string(Device::kGeneralLog), trace}) {
        device.Write(path, "");
        std::filesystem::resize_file(device.Path(path), size); // sparse: it takes no room
    }
    GENERAL_LOG("entry\n");
    EXPECT_EQ(size + std::strlen("01-01 00:00:00\tentry\n"),
              std::filesystem::file_size(device.Path(Device::kGeneralLog)));
    MavTrace(LEVEL_ERROR, 0)("line\n");
    EXPECT_EQ("line\n", device.Read(trace));
    EXPECT_TRUE(device.Exists(trace + "_bak"));
}

} // namespace
