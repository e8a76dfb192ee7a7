// A card that is full or read-only, and a process that has used up its descriptors: with a real
// file system where this machine lets a process mount one, otherwise with the nearest stand-in.
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

// Mounts a tmpfs of 64 KiB as the terminal's /mnt, with its directories; false where that is not
// allowed.
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
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
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
    const pid_t child = Start([this] {
        const bool mounted = MountCard(device);
        device.Write(source, std::string(9000, 's'));
        GENERAL_LOG("before\n");
        MavTrace(0, 0)("before\n");
        // The pages of the two files have room for more: fill those as well.
        GENERAL_LOG("%s\n", std::string(4096 - 2 * 15 - 8, 'f').c_str());
        MavTrace(0, 0)("%s\n", std::string(4096 - 8, 'f').c_str());
        const std::string log = device.GeneralLog(), trace = device.TraceFile();
        std::optional<Limit> noRoom;
        if (!mounted)
            noRoom.emplace(RLIMIT_FSIZE, 0U);
        EXPECT_EQ(-1, MavFile::CreateFile(filler.c_str(), 1000000, 0));
        EXPECT_EQ(mounted, device.Read(filler).size() > 40000); // all that there was
        EXPECT_EQ(-1, MavFile::CreateFile("/mnt/one", 1, 0));
        EXPECT_EQ(-1, MavFile::CreateFile("/mnt/many", 5000, 0));
        EXPECT_EQ(-1, MavFile::CopyFile(&source[0], &copy[0]));
        GENERAL_LOG("dropped\n");
        MavTrace(0, 0)("dropped\n");
        EXPECT_EQ(log, device.GeneralLog());
        EXPECT_EQ(trace, device.TraceFile());

        noRoom.reset();
        device.Remove(filler);
        GENERAL_LOG("after\n");
        MavTrace(0, 0)("after\n");
        EXPECT_EQ(log.size() + 15 + 6, device.GeneralLog().size());
        EXPECT_EQ(trace + "after\n", device.TraceFile());
        EXPECT_EQ(0, MavFile::CopyFile(&source[0], &copy[0]));

        if (mounted) { // no room for a backup; an incomplete one would block the logs
            EXPECT_EQ(-1, MavFile::CreateFile(filler.c_str(), 1000000, 0));
            setting.maxSize = 100;
            MavTrace(0, 0)("rotated\n");
            EXPECT_EQ("rotated\n", device.TraceFile());
            EXPECT_FALSE(device.Exists(std::string(Device::kTraceDir) + "trace.log_bak"));
            const std::string entries = device.GeneralLog();
            GENERAL_LOG("room\n");
            EXPECT_EQ(entries + "03-05 06:07:08\troom\n", device.GeneralLog());
        }
        return true;
    });
    EXPECT_TRUE(Succeeded(child));
}

TEST_F(CardTest, ReadOnlyCard) {
    if (!Succeeded(Start([this] { return MountCard(device); })))
        GTEST_SKIP() << "no file system can be mounted here";
    const pid_t child = Start([this] {
        const std::string card = device.Path("/mnt");
        EXPECT_TRUE(MountCard(device));
        device.Write(source, "s");
        EXPECT_EQ(0, mount("none", card.c_str(), "none", MS_REMOUNT | MS_RDONLY, nullptr));
        EXPECT_EQ(-1, MavFile::CreateFile("/mnt/f", 1, 0));
        std::string elsewhere = "/dev/pts/copy";                     // which can be written
        EXPECT_EQ(-1, MavFile::CopyFile(&source[0], &elsewhere[0])); // the source cannot be written
        EXPECT_EQ(-1, MavFile::OpenFile("/mnt/f", false));
        EXPECT_EQ(EROFS, errno);
        MavTrace(0, 0)("dropped\n");
        GENERAL_LOG("to the console\n");
        EXPECT_EQ("to the console\n", out.Take());
        ShareMem region;
        region.Init("/mnt/region", 8, nullptr, nullptr, nullptr);
        return region.base == nullptr;
    });
    EXPECT_TRUE(Succeeded(child));
}

TEST_F(CardTest, DescriptorsUsedUp) {
    char key[] = "speed", value[511], address[16] = "unset";
    const std::string card = device.Path("/mnt");
    device.Write(source, "speed=9\n");
    {
        const Limit none(RLIMIT_NOFILE, static_cast<rlim_t>(Device::LowestFreeDescriptor()));
        EXPECT_EQ(nullptr, MavFile::OpenFile("/mnt/source", "rb"));
        EXPECT_EQ(EMFILE, errno);
        EXPECT_EQ(-1, MavFile::SetFileRead(&source[0], key, value));
        EXPECT_EQ(-1, MavFile::CreateFile("/mnt/f", 1, 0));
        MavTrace(0, 0)("dropped\n");
        GENERAL_LOG("to the console\n");
        DirScan scan(card.c_str());
        EXPECT_TRUE(scan.Scan([](int, bool, const char*, const char*, void*) { return false; },
                              nullptr, -1));
        EXPECT_EQ(-1, GetNetIP("lo", address));
        EXPECT_FALSE(IsProcessRunning(getpid(), nullptr));
    }
    EXPECT_EQ("to the console\nDirScan: Error!Can not open directory:" + card + "\n", out.Take());
    EXPECT_EQ(0, MavFile::SetFileRead(&source[0], key, value));
    MavTrace(0, 0)("back\n");
    EXPECT_EQ("back\n", device.TraceFile());
}

} // namespace
