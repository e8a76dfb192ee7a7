// Processes by id and name, and the address of an interface.
#include "mavkit/sys/Query.h"
#include "device/Device.h"

#include <cctype>
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
    std::string otherCase = self;
    for (char& c : otherCase)
        c = static_cast<char>(std::isupper(c) != 0 ? std::tolower(c) : std::toupper(c));
    for (const std::string& name : {otherCase, std::string(), self.substr(0, self.size() - 1),
                                    self + "x", self + "\n", "x" + self, std::string(100000, 'n')})
        EXPECT_FALSE(IsProcessRunning(getpid(), name.c_str())) << name.substr(0, 20);
    Device::Fail("fgets", EIO);
    EXPECT_TRUE(IsProcessRunning(getpid(), "another")); // it exists; its name cannot be read

    const pid_t gone = Start([] { return true; });
    EXPECT_TRUE(Succeeded(gone));
    for (const int pid : {gone, 0, -1, INT_MIN, INT_MAX})
        EXPECT_FALSE(IsProcessRunning(pid, nullptr)) << pid;
}

TEST(QueryTest, ReadsAnInterfacesAddress) {
    Device device;
    device.interfaces = {{"lo", "127.0.0.1"}, {"eth0.1234567890", "192.168.100.254"}};
    const struct {
        const char *name, *address; // null: none
    } cases[] = {{"lo", "127.0.0.1"},
                 {"eth0.1234567890", "192.168.100.254"},
                 {"eth0.1234567890and more", "192.168.100.254"}, // 15 characters count
                 {"LO", nullptr},
                 {"", nullptr},
                 {nullptr, nullptr}};
    for (const auto& c : cases) {
        const std::string name = c.name != nullptr ? c.name : "(null)";
        char out[16] = "untouched";
        EXPECT_EQ(c.address != nullptr ? 0 : -1, GetNetIP(c.name, out)) << name;
        EXPECT_STREQ(c.address != nullptr ? c.address : "untouched", out) << name;
        EXPECT_EQ(c.address != nullptr ? 0 : -1, GetNetIP(c.name, nullptr)) << name;
    }
    device.interfaces.clear(); // the kernel's own
    char out[16] = "127.0.0.1";
    EXPECT_EQ(-1, GetNetIP("none0", out));
    GetNetIP("lo", out); // may have no address, but never another one
    EXPECT_STREQ("127.0.0.1", out);
}

} // namespace
