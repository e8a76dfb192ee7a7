#include "mavkit/time/SystemClock.h"

#include "device/Device.h"
#include "time/TimeText.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(SystemClock, IsSetFromTwoSecondsOff) {
    Device device;
    const Zone zone(kBerlin);
    std::string time = Bytes("24-07-05 06:07:08");
    const time_t target = At("2024-07-05 06:07:08");
    for (const int off : {-86400, -2, -1, 0, 1, 2, 86400}) {
        device.clockSets.clear();
        Device::HoldClock(target + off);
        EXPECT_EQ(Set_SysTime(time.data()), 0);
        const std::vector<time_t> set(off < -1 || off > 1 ? 1 : 0, target);
        EXPECT_EQ(device.clockSets, set) << off;
    }
}

TEST(SystemClock, FailuresAreSilent) {
    Device device;
    const Zone zone(kUtc);
    Device::HoldClock(1000000000);
    std::string time = Bytes("24-07-05 06:07:08");
    Device::Fail("settime", EPERM);
    EXPECT_EQ(Set_SysTime(time.data()), 0);
    device.clockSets.clear();
    Device::Fail("mktime", EOVERFLOW);
    EXPECT_EQ(Set_SysTime(time.data()), 0);
    EXPECT_TRUE(device.clockSets.empty()); // no time to set it to
}

TEST(SystemClock, CommandRunsUpTo20380110) {
    Device device;
    device.commandResult = 256;
    static const struct {
        const char* time;
        const char* command; // null: refused
    } kTimes[] = {
        {"24-03-05 06:07:08", "date -s 030506072024.08"},
        {"00-01-01 00:00:00", "date -s 010100002000.00"},
        {"37-12-31 23:59:59", "date -s 123123592037.59"},
        {"38-01-10 23:59:59", "date -s 011023592038.59"},
        {"0A-FB-CD EF:AB:CD", "date -s fbcdefab200a.CD"}, // untested bytes stay two digits each
        {"38-01-11 00:00:00", nullptr},
        {"38-02-01 00:00:00", nullptr},
        {"38-FF-01 00:00:00", nullptr},
        {"39-01-01 00:00:00", nullptr},
        {"FF-01-01 00:00:00", nullptr},
    };
    for (const auto& c : kTimes) {
        device.commands.clear();
        std::string time = Bytes(c.time);
        EXPECT_EQ(Set_SYS_HWClock(time.data()), c.command != nullptr ? 0 : -1) << c.time;
        EXPECT_EQ(device.commands.size(), c.command != nullptr ? 1U : 0U) << c.time;
        for (const std::string& command : device.commands) {
            EXPECT_EQ(command, c.command);
        }
    }
    EXPECT_TRUE(device.clockSets.empty());
}

} // namespace
