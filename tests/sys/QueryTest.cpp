// Processes by id and name, and the address of an interface.
#include "mavkit/sys/Query.h"
#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <fstream>
#include <unistd.h>

namespace {

TEST(QueryTest, FindsAProcessByIdAndWholeName) {
    Device device;
    std::string self;
    std::getline(std::ifstream("/proc/self/comm") >> std::ws, self);
    EXPECT_TRUE(IsProcessRunning(getpid(), nullptr));
    EXPECT_TRUE(IsProcessRunning(getpid(), self.c_str()));
    for (const std::string& name : {std::string(), self.substr(0, self.size() - 1), self + "x",
                                    self + "\n", "x" + self, std::string(100000, 'n')})
        EXPECT_FALSE(IsProcessRunning(getpid(), name.c_str())) << name.substr(0, 20);
    Device::Fail("fgets", EIO);
    EXPECT_TRUE(IsProcessRunning(getpid(), "another")); // it exists; its name is not to be had

    const pid_t gone = Start([] { return true; });
    EXPECT_TRUE(Succeeded(gone));
    for (const int pid : {gone, 0, -1, INT_MIN, INT_MAX})
        EXPECT_FALSE(IsProcessRunning(pid, nullptr)) << pid;
}

TEST(QueryTest, ReadsAnInterfacesAddress) {
    Device device;
    char out[16] = "untouched";
    for (const char* name : {"", "none0", "lo0123456789012345678"})
        EXPECT_EQ(-1, GetNetIP(name, out)) << name;
    EXPECT_EQ(-1, GetNetIP(nullptr, out));
    EXPECT_STREQ("untouched", out);
    if (GetNetIP("lo", nullptr) != 0)
        GTEST_SKIP() << "the loopback interface has no address here";
    EXPECT_EQ(0, GetNetIP("lo", out));
    EXPECT_STREQ("127.0.0.1", out);
}

} // namespace
