// A card that is full, read-only or gone, and a process that has used up its descriptors: for real where
// this machine lets a process mount a file system of its own, with the nearest stand-in elsewhere.
#include "device/Device.h"
#include "mavkit/mavkit.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

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
    for (const char* directory : {"/mnt/sdcard/log", Device::kTraceDir})
        std::filesystem::create_directories(device.Path(directory));
    return true;
}

class CardTest : public TerminalTest {
protected:
    CardTest() : TerminalTest(WAY_PUBLIC) {}

    std::string source = "/mnt/source", copy = "/mnt/copy", filler = "/mnt/filler";
};

TEST_F(CardTest, FullCardDropsMessagesAndRecovers) {
    EXPECT_TRUE(Succeeded(Start([this] {
        const bool mounted = MountCard(device);
        device.Write(source, std::string(9000, 's'));
        GENERAL_LOG("before\n");
        MavTrace(0, 0)("before\n");
        // Pages that hold the two files have room for more: fill those as well.
        GENERAL_LOG("%s\n", std::string(4096 - 2 * 15 - 8, 'f').c_str());
        MavTrace(0, 0)("%s\n", std::string(4096 - 8, 'f').c_str());
        const std::string log = device.GeneralLog(), trace = device.TraceFile();
        std::optional<Limit> noRoom;
        if (!mounted)
            noRoom.emplace(RLIMIT_FSIZE, 0U);
        EXPECT_EQ(MavFile::CreateFile(filler.c_str(), 1000000, 0), -1);
        EXPECT_EQ(device.Read(filler).size() > 40000, mounted); // all that there was
        EXPECT_EQ(MavFile::CreateFile("/mnt/one", 1, 0), -1);
        EXPECT_EQ(MavFile::CreateFile("/mnt/many", 5000, 0), -1);
        EXPECT_EQ(MavFile::CopyFile(&source[0], &copy[0]), -1);
        GENERAL_LOG("dropped\n");
        MavTrace(0, 0)("dropped\n");
        EXPECT_EQ(device.GeneralLog(), log);
        EXPECT_EQ(device.TraceFile(), trace);

        noRoom.reset();
        device.Remove(filler);
        GENERAL_LOG("after\n");
        MavTrace(0, 0)("after\n");
        EXPECT_EQ(device.GeneralLog().size(), log.size() + 15 + 6);
        EXPECT_EQ(device.TraceFile(), trace + "after\n");
        EXPECT_EQ(MavFile::CopyFile(&source[0], &copy[0]), 0);
        return true;
    })));
}

TEST_F(CardTest, ReadOnlyCard) {
    if (!Succeeded(Start([this] { return MountCard(device); })))
        GTEST_SKIP() << "no file system can be mounted here";
    EXPECT_TRUE(Succeeded(Start([this] {
        const std::string card = device.Path("/mnt");
        EXPECT_TRUE(MountCard(device));
        device.Write(source, "s");
        EXPECT_EQ(mount(nullptr, card.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        EXPECT_EQ(MavFile::CreateFile("/mnt/f", 1, 0), -1);
        EXPECT_EQ(MavFile::CopyFile(&source[0], &copy[0]), -1); // it is opened for writing too
        EXPECT_EQ(MavFile::OpenFile("/mnt/f", false), -1);
        EXPECT_EQ(errno, EROFS);
        MavTrace(0, 0)("dropped\n");
        GENERAL_LOG("to the console\n");
        EXPECT_EQ(out.Take(), "to the console\n");
        ShareMem region;
        region.Init("/mnt/region", 8, nullptr, nullptr, nullptr);
        return region.base == nullptr;
    })));
}

TEST_F(CardTest, DescriptorsUsedUp) {
    char key[] = "speed", value[511], address[16] = "unset";
    const std::string card = device.Path("/mnt");
    device.Write(source, "speed=9\n");
    {
        const Limit none(RLIMIT_NOFILE, static_cast<rlim_t>(Device::LowestFreeDescriptor()));
        EXPECT_EQ(MavFile::OpenFile("/mnt/source", "rb"), nullptr);
        EXPECT_EQ(errno, EMFILE);
        EXPECT_EQ(MavFile::SetFileRead(&source[0], key, value), -1);
        EXPECT_EQ(MavFile::CreateFile("/mnt/f", 1, 0), -1);
        MavTrace(0, 0)("dropped\n");
        GENERAL_LOG("to the console\n");
        DirScan scan(card.c_str());
        EXPECT_TRUE(scan.Scan([](int, bool, const char*, const char*, void*) { return false; },
                              nullptr, -1));
        EXPECT_EQ(GetNetIP("lo", address), -1);
        EXPECT_FALSE(IsProcessRunning(getpid(), nullptr));
    }
    EXPECT_EQ(out.Take(), "to the console\nDirScan: Error!Can not open directory:" + card + "\n");
    EXPECT_EQ(MavFile::SetFileRead(&source[0], key, value), 0);
    MavTrace(0, 0)("back\n");
    EXPECT_EQ(device.TraceFile(), "back\n");
}

} // namespace
