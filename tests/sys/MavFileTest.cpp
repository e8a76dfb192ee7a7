// File helpers: descriptor warnings, filling, copying, key=value lines.
#include "mavkit/sys/MavFile.h"
#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class MavFileTest : public TerminalTest {
protected:
    // What went to standard output, the lines of assertions without their numbers.
    std::string Reported() {
        return std::regex_replace(out.Take(), std::regex("line=[0-9]+"), "line=#");
    }

    const std::string report = "***********Assert failed.file=MavFile,line=#,exp=";
};

TEST_F(MavFileTest, DescriptorOpenEmptiesSynchronisesAndWarns) {
    const std::string path = device.Path("/mnt/f");
    for (const int expected : {8, 9, 63, 64}) {
        const TakenUpTo taken(expected);
        std::string reported;
        if (expected > 8)
            reported = "ZEPFile: open file " + path + " success. WARNING fd(" +
                       std::to_string(expected) + ") is greater than 8\n";
        if (expected > 63)
            reported += report + "fd<64\n";
        device.Write("/mnt/f", "old");
        EXPECT_EQ(expected, MavFile::OpenFile(path.c_str(), false));
        EXPECT_EQ(reported, Reported());
        EXPECT_EQ("", device.Read("/mnt/f"));
        EXPECT_EQ(O_RDWR | O_SYNC, fcntl(expected, F_GETFL) & (O_ACCMODE | O_SYNC));
        close(expected);
    }
    const mode_t mask = umask(0);
    close(MavFile::OpenFile("/mnt/new", false));
    umask(mask);
    struct stat status;
    ASSERT_EQ(0, stat(device.Path("/mnt/new").c_str(), &status));
    EXPECT_EQ(0666U, status.st_mode & 07777U);
}

TEST_F(MavFileTest, ReportsAFullTableOfFiles) {
    const std::string warning = "ZEPFile: open file /mnt/f failure. errno==ENFILE\n";
    Device::Fail("open", ENFILE);
    EXPECT_EQ(-1, MavFile::OpenFile("/mnt/f", false));
    EXPECT_EQ(report + "false\n" + warning, Reported());
    setting.level = LEVEL_WARN; // the level of the warnings
    Device::Fail("fopen", ENFILE);
    EXPECT_EQ(nullptr, MavFile::OpenFile("/mnt/f", "r"));
    EXPECT_EQ(report + "false\n" + warning, Reported());
    setting.level = LEVEL_ERROR;
    Device::Fail("fopen", ENFILE);
    EXPECT_EQ(nullptr, MavFile::OpenFile("/mnt/f", "r"));
    EXPECT_EQ(report + "false\n", Reported());
    EXPECT_EQ(nullptr, MavFile::OpenFile("/mnt/missing", "r"));
    EXPECT_EQ(nullptr, MavFile::OpenFile("/mnt/f", nullptr));
    EXPECT_EQ(nullptr, MavFile::OpenFile(nullptr, "r"));
    EXPECT_EQ("", Reported());
    // A failure of the warning itself does not hide the reason.
    setting.level = LEVEL_WARN;
    setting.traceWay = WAY_PUBLIC;
    device.Remove(Device::kTraceDir);
    Device::Fail("open", ENFILE);
    EXPECT_EQ(-1, MavFile::OpenFile("/mnt/f", false));
    EXPECT_EQ(ENFILE, errno);
}

TEST_F(MavFileTest, CreatesFilledFiles) {
    const struct {
        long size;
        int writes; // items that reach the file
    } cases[] = {{0, 0},    {-1, 0},   {LONG_MIN, 0}, {1, 1},   {3072, 1},
                 {3073, 2}, {4096, 2}, {4097, 3},     {6144, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.size);
        device.Remove("/mnt/f");
        Device::ForgetCalls();
        EXPECT_EQ(c.size > 0 ? 0 : -1, MavFile::CreateFile("/mnt/f", c.size, 0xA5));
        EXPECT_EQ(c.writes, Device::Calls("fwrite"));
        EXPECT_EQ(c.size > 0, device.Exists("/mnt/f"));
        EXPECT_EQ(std::string(c.size > 0 ? static_cast<std::size_t>(c.size) : 0, '\xA5'),
                  device.Read("/mnt/f"));
    }
    EXPECT_EQ(0, MavFile::CreateFile("/mnt/f", 2, 'z'));
    EXPECT_EQ("zz", device.Read("/mnt/f")); // nothing of the old content
    EXPECT_EQ(-1, MavFile::CreateFile(nullptr, 5, 0));
    EXPECT_EQ(-1, MavFile::CreateFile("/mnt/missing/f", 5, 0));
    const Limit full(RLIMIT_FSIZE, 3000);
    for (const long size : {3001L, 5000L, 20000L})
        EXPECT_EQ(-1, MavFile::CreateFile("/mnt/f", size, 0)) << size;
    // Only the last block counts: here there is room again after an earlier one was refused.
    std::signal(SIGXFSZ, [](int) {
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_FSIZE, &limit);
    });
    EXPECT_EQ(0, MavFile::CreateFile("/mnt/f", 20000, 0));
}

TEST_F(MavFileTest, CopiesFiles) {
    std::string from = "/mnt/from", to = "/mnt/to", nowhere = "/mnt/missing/f", folder = "/mnt";
    std::string content;
    for (const std::size_t size : {0U, 1U, 2047U, 2048U, 2049U, 4096U, 100000U}) {
        while (content.size() < size)
            content += static_cast<char>(content.size() * 7 % 251);
        device.Write(from, content);
        device.Write(to, std::string(5000, 'x'));
        EXPECT_EQ(0, MavFile::CopyFile(&from[0], &to[0])) << size;
        EXPECT_TRUE(content == device.Read(to)) << size;
    }
    EXPECT_EQ(-1, MavFile::CopyFile(nullptr, &to[0]));
    EXPECT_EQ(-1, MavFile::CopyFile(&from[0], nullptr));
    EXPECT_EQ(-1, MavFile::CopyFile(&nowhere[0], &to[0]));
    EXPECT_EQ(-1, MavFile::CopyFile(&folder[0], &to[0])); // it can be read, but not written
    EXPECT_TRUE(device.Exists(to)); // still there when the source cannot be opened
    Device::Fail("fopen", ENOSPC, 1, 1);
    EXPECT_EQ(-1, MavFile::CopyFile(&from[0], &to[0]));
    EXPECT_FALSE(device.Exists(to));                 // it was removed before the open failed
    for (const std::size_t size : {5000U, 20000U}) { // smaller and larger than a buffer
        device.Write(from, content.substr(0, size));
        const Limit full(RLIMIT_FSIZE, 3000);
        EXPECT_EQ(-1, MavFile::CopyFile(&from[0], &to[0])) << size;
    }
}

// Any key in any file is tried in fuzz/Texts.cpp.
TEST_F(MavFileTest, FindsAValueOrNone) {
    char path[] = "/mnt/conf", missing[] = "/mnt/missing", key[] = "ab", value[511] = "x";
    device.Write(path, "ab=value\n");
    EXPECT_EQ(-1, MavFile::SetFileRead(path, key, nullptr));
    EXPECT_EQ(0, MavFile::SetFileRead(path, key, value));
    EXPECT_STREQ("value", value);
    EXPECT_EQ(-1, MavFile::SetFileRead(path, nullptr, value));
    EXPECT_STREQ("", value);
    char* shared = value; // the key may be where the value goes
    std::strcpy(shared, "ab");
    EXPECT_EQ(0, MavFile::SetFileRead(path, shared, shared));
    EXPECT_STREQ("value", value);
    EXPECT_EQ(-1, MavFile::SetFileRead(missing, key, value));
    EXPECT_STREQ("", value);
    EXPECT_EQ(-1, MavFile::SetFileRead(nullptr, key, value));
}

} // namespace
