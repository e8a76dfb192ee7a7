#include "mavkit/sys/Query.h"

#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <fstream>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(QueryTest, FindsAProcessByIdAndWholeName) {
    Device device;
    std::string self;
    std::getline(std::ifstream("/proc/self/comm") >> std::ws, self);
    ASSERT_FALSE(self.empty());
    const struct {
        std::string name;
        bool running;
    } cases[] = {{self, true},
                 {"", false},
                 {self.substr(0, self.size() - 1), false},
                 {self + "x", false},
                 {self + "\n", false},
                 {"x" + self.substr(1), false},
                 {std::string(120, 'n'), false},
                 {std::string(100000, 'n'), false}};
    EXPECT_TRUE(IsProcessRunning(getpid(), nullptr));
    for (const auto& c : cases)
        EXPECT_EQ(c.running, IsProcessRunning(getpid(), c.name.c_str())) << c.name.substr(0, 130);
    Device::Fail("fgets", EIO);
    EXPECT_TRUE(IsProcessRunning(getpid(), "another")); // it exists; its name is not to be had

    const pid_t gone = fork();
    if (gone == 0)
        _exit(0);
    waitpid(gone, nullptr, 0);
    for (int pid : {gone, 0, -1, INT_MIN, INT_MAX})
        EXPECT_FALSE(IsProcessRunning(pid, nullptr)) << pid;
}

TEST(QueryTest, ReadsAnInterfacesAddress) {
    Device device;
    bool loopback = false; // a container may have none
    ifaddrs* list = nullptr;
    ASSERT_EQ(0, getifaddrs(&list));
    for (const ifaddrs* i = list; i != nullptr; i = i->ifa_next)
        loopback |= i->ifa_addr != nullptr && i->ifa_addr->sa_family == AF_INET &&
                    std::string(i->ifa_name) == "lo";
    freeifaddrs(list);
    const int before = dup(0);
    close(before);

    char out[16] = "untouched";
    for (const char* call : {"socket", "ioctl"}) {
        Device::Fail(call, EACCES);
        EXPECT_EQ(-1, GetNetIP("lo", out)) << call;
    }
    for (const char* name : {"", "none0", "a name of 20 letters", "lo0123456789012345678"})
        EXPECT_EQ(-1, GetNetIP(name, out)) << name;
    EXPECT_EQ(-1, GetNetIP(nullptr, out));
    EXPECT_STREQ("untouched", out);
    EXPECT_EQ(loopback ? 0 : -1, GetNetIP("lo", nullptr));
    EXPECT_EQ(loopback ? 0 : -1, GetNetIP("lo", out));
    EXPECT_STREQ(loopback ? "127.0.0.1" : "untouched", out);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after) << "a socket was left open";
}

} // namespace
