#include "mavkit/time/SystemClock.h"
#include "time/TimeText.h"

namespace {

TEST(SystemClock, IsSetFromTwoSecondsOff) {
    Device device;
    const Zone zone(kBerlin);
    std::string time = Bytes("24-07-05 06:07:08");
    const std::time_t target = At("2024-07-05 06:07:08");
    for (const int off : {-86400, -2, -1, 0, 1, 2, 86400}) {
        device.clockSets.clear();
        Device::HoldClock(target + off);
        EXPECT_EQ(0, Set_SysTime(time.data()));
        EXPECT_EQ(std::vector<std::time_t>(off < -1 || off > 1 ? 1 : 0, target), device.clockSets);
    }
}

TEST(SystemClock, CommandRunsUpTo20380110) {
    Device device;
    device.commandResult = 256;
    // clang-format off
    static const char* const kStamps[][2] = { // the command's argument; none: refused
        {"24-03-05 06:07:08", "030506072024.08"}, {"00-01-01 00:00:00", "010100002000.00"},
        {"37-12-31 23:59:59", "123123592037.59"}, {"38-01-10 23:59:59", "011023592038.59"},
        {"0A-FB-CD EF:AB:CD", "fbcdefab200a.CD"}, // bytes that nobody checked stay two digits each
        {"38-01-11", ""}, {"38-02-01", ""}, {"39-01-01", ""}, {"FF-01-01", ""}};
    // clang-format on
    for (const auto& [time, stamp] : kStamps) {
        const std::string command = std::string("date -s ") + stamp;
        device.commands.clear();
        EXPECT_EQ(*stamp != '\0' ? 0 : -1, Set_SYS_HWClock(Bytes(time, 6).data())) << time;
        EXPECT_EQ(std::vector<std::string>(*stamp != '\0' ? 1 : 0, command), device.commands);
    }
    EXPECT_TRUE(device.clockSets.empty());
}

} // namespace
