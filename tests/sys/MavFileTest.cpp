// File helpers: descriptor accounting, filling, copying, key=value lines.
#include "mavkit/sys/MavFile.h"
#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <regex>
#include <unistd.h>

namespace {

using MavFileTest = TerminalTest;

TEST_F(MavFileTest, DescriptorOpenEmptiesSynchronisesAndTells) {
    const std::string path = device.Path("/mnt/f");
    for (const int expected : {8, 9, 63, 64}) {
        const TakenUpTo taken(expected);
        std::string told;
        if (expected > 8)
            told = "ZEPFile: open file " + path + " success. WARNING fd(" +
                   std::to_string(expected) + ") is greater than 8\n";
        if (expected > 63)
            told += "***********Assert failed.file=MavFile,line=#,exp=fd<64\n";
        device.Write("/mnt/f", "old");
        EXPECT_EQ(MavFile::OpenFile(path.c_str(), false), expected);
        EXPECT_EQ(std::regex_replace(out.Take(), std::regex("line=[0-9]+"), "line=#"), told);
        EXPECT_EQ(device.Read("/mnt/f"), "");
        EXPECT_EQ(fcntl(expected, F_GETFL) & (O_ACCMODE | O_SYNC), O_RDWR | O_SYNC);
        close(expected);
    }
    // What the telling itself may fail with does not hide why.
    setting.traceWay = WAY_PUBLIC;
    device.Remove(Device::kTraceDir);
    Device::Fail("open", ENFILE);
    EXPECT_EQ(MavFile::OpenFile("/mnt/f", false), -1);
    EXPECT_EQ(errno, ENFILE);
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
        EXPECT_EQ(MavFile::CreateFile("/mnt/f", c.size, 0xA5), c.size > 0 ? 0 : -1);
        EXPECT_EQ(Device::Calls("fwrite"), c.writes);
        EXPECT_EQ(device.Exists("/mnt/f"), c.size > 0);
        EXPECT_EQ(device.Read("/mnt/f"),
                  std::string(c.size > 0 ? static_cast<std::size_t>(c.size) : 0, '\xA5'));
    }
    EXPECT_EQ(MavFile::CreateFile("/mnt/f", 2, 'z'), 0);
    EXPECT_EQ(device.Read("/mnt/f"), "zz"); // the old content goes
    EXPECT_EQ(MavFile::CreateFile(nullptr, 5, 0), -1);
    EXPECT_EQ(MavFile::CreateFile("/mnt/missing/f", 5, 0), -1);
}

TEST_F(MavFileTest, CopiesFiles) {
    std::string from = "/mnt/from", to = "/mnt/to", nowhere = "/mnt/missing/f", content;
    for (const std::size_t size : {0U, 1U, 2047U, 2048U, 2049U, 4096U, 100000U}) {
        while (content.size() < size)
            content += static_cast<char>(content.size() * 7 % 251);
        device.Write(from, content);
        device.Write(to, std::string(5000, 'x'));
        EXPECT_EQ(MavFile::CopyFile(&from[0], &to[0]), 0) << size;
        EXPECT_EQ(device.Read(to), content) << size;
    }
    EXPECT_EQ(MavFile::CopyFile(nullptr, &to[0]) + MavFile::CopyFile(&from[0], nullptr), -2);
    EXPECT_EQ(MavFile::CopyFile(&nowhere[0], &to[0]), -1);
    EXPECT_TRUE(device.Exists(to)); // still there when the source cannot be opened
    Device::Fail("fopen", ENOSPC, 1, 1);
    std::string gone = device.Path(to); // by the time that the new one cannot be opened
    EXPECT_EQ(MavFile::CopyFile(&from[0], &gone[0]), -1);
    EXPECT_FALSE(device.Exists(to));
    device.Write(from, content.substr(0, 5000));
    const Limit full(RLIMIT_FSIZE, 3000); // seen when the last of it is written
    EXPECT_EQ(MavFile::CopyFile(&from[0], &to[0]), -1);
}

// Any key in any file is tried in fuzz/Texts.cpp.
TEST_F(MavFileTest, ReadsNoValueFromNothing) {
    char path[] = "/mnt/missing", key[] = "ab", value[511] = "x";
    EXPECT_EQ(MavFile::SetFileRead(path, key, value), -1);
    EXPECT_STREQ(value, "");
    EXPECT_TRUE(MavFile::SetFileRead(nullptr, key, value) == -1 &&
                MavFile::SetFileRead(path, nullptr, value) == -1 &&
                MavFile::SetFileRead(path, key, nullptr) == -1);
}

} // namespace
