// A card that is full, read-only or gone, and a process that has used up its descriptors: for real where
// this machine lets a process mount a file system of its own, with the nearest stand-in elsewhere.
#include "device/Device.h"
#include "mavkit/mavkit.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// Runs `check` in a process of its own, which may change what it likes about its surroundings.
void InChild(const std::function<void()>& check) {
    const pid_t child = fork();
    if (child == 0) {
        check();
        std::fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : testing::Test::IsSkipped() ? 2 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_NE(WEXITSTATUS(status), 1);
    if (WEXITSTATUS(status) == 2)
        GTEST_SKIP() << "no file system can be mounted here";
}

// Mounts a tmpfs of 64 KiB as the terminal's /mnt, with its directories; false where that is not allowed.
bool MountCard(const Device& device) {
    const std::string card = device.Path("/mnt");
    if (unshare(CLONE_NEWNS) != 0) {
        const std::string user = "0 " + std::to_string(getuid()) + " 1";
        const std::string group = "0 " + std::to_string(getgid()) + " 1";
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        std::ofstream("/proc/self/uid_map") << user;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/gid_map") << group;
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("card", card.c_str(), "tmpfs", 0, "size=64k") != 0)
        return false;
    for (const char* directory : {"/mnt/sdcard", "/mnt/sdcard/log", "/mnt/sd", "/mnt/sd/term",
                                  "/mnt/sd/term/common", "/mnt/sd/term/common/trace"})
        mkdir(device.Path(directory).c_str(), 0755);
    return true;
}

class CardTest : public testing::Test {
protected:
    CardTest() {
        setting.prefixOn = 0;
        setting.traceWay = WAY_PUBLIC;
        MavTrace::Setting = &setting;
    }
    ~CardTest() override { MavTrace::Setting = nullptr; }

    std::string TraceFile() const { return device.Read("/mnt/sd/term/common/trace/trace.log"); }

    Zone zone{"UTC0"};
    Device device;
    StdoutCapture out;
    TraceSetting setting;
};

TEST_F(CardTest, FullCardDropsMessagesAndRecovers) {
    InChild([this] {
        std::string source = "/mnt/source";
        std::string copy = "/mnt/copy";
        std::string filler = "/mnt/filler";
        rlimit room;
        getrlimit(RLIMIT_FSIZE, &room);
        const rlimit none = {0, room.rlim_max};
        const bool mounted = MountCard(device);
        device.Write(source, std::string(9000, 's'));
        GENERAL_LOG("before\n");
        MavTrace(0, 0)("before\n");
        // Pages that hold the two files have room for more: fill those as well.
        GENERAL_LOG("%s\n", std::string(4096 - 2 * 15 - 8, 'f').c_str());
        MavTrace(0, 0)("%s\n", std::string(4096 - 8, 'f').c_str());
        const std::string log = device.GeneralLog();
        const std::string trace = TraceFile();
        if (mounted) {
            EXPECT_EQ(MavFile::CreateFile(filler.c_str(), 1000000, 0), -1);
            EXPECT_GT(device.Read(filler).size(), 40000U); // all that there was
        } else {
            std::signal(SIGXFSZ, SIG_IGN);
            setrlimit(RLIMIT_FSIZE, &none);
        }
        EXPECT_EQ(MavFile::CreateFile("/mnt/one", 1, 0), -1);
        EXPECT_EQ(MavFile::CreateFile("/mnt/many", 5000, 0), -1);
        EXPECT_EQ(MavFile::CopyFile(&source[0], &copy[0]), -1);
        GENERAL_LOG("dropped\n");
        MavTrace(0, 0)("dropped\n");
        EXPECT_EQ(device.GeneralLog(), log);
        EXPECT_EQ(TraceFile(), trace);

        if (mounted)
            device.Remove(filler);
        else
            setrlimit(RLIMIT_FSIZE, &room);
        GENERAL_LOG("after\n");
        MavTrace(0, 0)("after\n");
        EXPECT_EQ(device.GeneralLog().size(), log.size() + 15 + 6);
        EXPECT_EQ(TraceFile(), trace + "after\n");
        EXPECT_EQ(MavFile::CopyFile(&source[0], &copy[0]), 0);
    });
}

TEST_F(CardTest, ReadOnlyCard) {
    InChild([this] {
        if (!MountCard(device))
            GTEST_SKIP();
        device.Write("/mnt/source", "s");
        ASSERT_EQ(
            mount(nullptr, device.Path("/mnt").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
            0);
        std::string source = "/mnt/source";
        std::string copy = "/mnt/copy";
        EXPECT_EQ(MavFile::CreateFile("/mnt/f", 1, 0), -1);
        EXPECT_EQ(MavFile::CopyFile(&source[0], &copy[0]), -1); // it is opened for writing too
        EXPECT_EQ(MavFile::OpenFile("/mnt/f", false), -1);
        EXPECT_EQ(errno, EROFS);
        MavTrace(0, 0)("dropped\n");
        GENERAL_LOG("to the console\n");
        EXPECT_EQ(out.Take(), "to the console\n");
        ShareMem region;
        region.Init(device.Path("/mnt/region").c_str(), 8, nullptr, nullptr, nullptr);
        EXPECT_EQ(region.base, nullptr);
    });
}

TEST_F(CardTest, DescriptorsUsedUp) {
    device.Write("/mnt/key", "speed=9\n");
    std::string path = "/mnt/key";
    char key[] = "speed";
    char value[511];
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {static_cast<rlim_t>(Device::LowestFreeDescriptor()), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(MavFile::OpenFile("/mnt/key", "rb"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(MavFile::SetFileRead(&path[0], key, value), -1);
    EXPECT_EQ(MavFile::CreateFile("/mnt/f", 1, 0), -1);
    MavTrace(0, 0)("dropped\n");
    EXPECT_EQ(out.Take(), "");
    GENERAL_LOG("to the console\n");
    DirScan scan(device.Path("/mnt").c_str());
    EXPECT_TRUE(
        scan.Scan([](int, bool, const char*, const char*, void*) { return true; }, nullptr, -1));
    char address[16] = "unset";
    EXPECT_EQ(GetNetIP("lo", address), -1);
    EXPECT_FALSE(IsProcessRunning(getpid(), nullptr));
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(out.Take(), "to the console\nDirScan: Error!Can not open directory:" +
                              device.Path("/mnt") + "\n");
    EXPECT_EQ(MavFile::SetFileRead(&path[0], key, value), 0);
    MavTrace(0, 0)("back\n");
    EXPECT_EQ(TraceFile(), "back\n");
}

} // namespace
