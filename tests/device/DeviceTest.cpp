// Tests of the stand-in itself: no test may change anything on the machine.
#include "device/Device.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Whether a child process that does `work` is ended by the stand-in.
bool Ends(const std::function<void()>& work) {
    const pid_t child = Start([&work] {
        const Limit noCore(RLIMIT_CORE, 0);
        close(STDERR_FILENO);
        work();
        return true;
    });
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGABRT;
}

TEST(DeviceTest, EndsAProgramThatWouldChangeTheMachine) {
    const char own[] = "/mnt/sdcard/file", others[] = "/nowhere/file";
    const auto removeOwn = [&] { std::remove(own); };
    EXPECT_TRUE(Ends(removeOwn));
    EXPECT_TRUE(Ends([&] { std::fopen(own, "r"); }));
    {
        const Device device;
        EXPECT_FALSE(Ends(removeOwn));
        EXPECT_TRUE(Ends([&] { std::remove(others); }));
        EXPECT_TRUE(Ends([] {
            if (chdir("/") == 0)
                std::remove("nowhere/file");
        }));
        for (const char* mode : {"w", "a", "r+"})
            EXPECT_TRUE(Ends([&] { std::fopen(others, mode); })) << mode;
        for (const int flags : {O_WRONLY, O_RDWR, O_RDONLY | O_CREAT, O_RDONLY | O_TRUNC})
            EXPECT_TRUE(Ends([&] { open(others, flags, 0); })) << flags;
        EXPECT_FALSE(Ends([&] { std::fopen(others, "r"); }));
        EXPECT_EQ(nullptr, std::fopen(own, "r"));
        EXPECT_EQ(0, close(open(own, O_RDWR | O_CREAT, 0600)));
        EXPECT_TRUE(device.Exists(own));
    }
    EXPECT_TRUE(Ends(removeOwn));
}

TEST(DeviceTest, MayNotSetTheClock) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2] = {};
    ASSERT_EQ(0, syscall(SYS_capget, &header, sets));
    EXPECT_EQ(0U, sets[0].effective & 1U << CAP_SYS_TIME);
}

} // namespace
