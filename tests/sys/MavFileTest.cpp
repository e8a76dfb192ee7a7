// File helpers: descriptor accounting, filling, copying, key=value lines.
#include "mavkit/sys/MavFile.h"
#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class MavFileTest : public TerminalTest {
protected:
    // What was told since the last call, with # for the number of a line.
    std::string Told() {
        std::string text = out.Take();
        const std::size_t at = text.find(",line=") + 6, end = text.find(",exp=");
        return end == std::string::npos ? text : text.replace(at, end - at, "#");
    }
};

TEST_F(MavFileTest, TellsAboutHighDescriptors) {
    const std::string path = device.Path("/mnt/f");
    for (const int expected : {8, 9, 63, 64}) {
        const TakenUpTo taken(expected);
        std::string told;
        if (expected > 8)
            told = "ZEPFile: open file " + path + " success. WARNING fd(" +
                   std::to_string(expected) + ") is greater than 8\n";
        if (expected > 63)
            told += "***********Assert failed.file=MavFile,line=#,exp=fd<64\n";
        EXPECT_EQ(MavFile::OpenFile(path.c_str(), false), expected);
        EXPECT_EQ(Told(), told);
        close(expected);
    }
}

TEST_F(MavFileTest, DescriptorOpenEmptiesAndSynchronises) {
    device.Write("/mnt/f", "old");
    const int fd = MavFile::OpenFile("/mnt/f", false);
    EXPECT_EQ(device.Read("/mnt/f"), "");
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_SYNC), O_RDWR | O_SYNC);
    close(fd);
}

TEST_F(MavFileTest, CreatesFilledFiles) {
    const struct {
        long size;
        int writes; // items that reach the file
    } cases[] = {{1, 1},    {3072, 1}, {3073, 2}, {4096, 2},    {4097, 3},
                 {6144, 3}, {0, 0},    {-1, 0},   {LONG_MIN, 0}};
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
    EXPECT_EQ(MavFile::CopyFile(&from[0], &nowhere[0]), -1);
    device.Write(from, content.substr(0, 5000));
    const Limit full(RLIMIT_FSIZE, 3000); // seen when the last of it is written
    EXPECT_EQ(MavFile::CopyFile(&from[0], &to[0]), -1);
}

// Any key in any file is tried in fuzz/FileValue.cpp.
TEST_F(MavFileTest, ReadsNoValueFromNothing) {
    char path[] = "/mnt/conf", missing[] = "/mnt/missing", key[] = "ab", value[511] = "x";
    device.Write(path, "ab=c=d\r\n");
    EXPECT_EQ(MavFile::SetFileRead(path, key, value), 0);
    EXPECT_STREQ(value, "c=d");
    EXPECT_EQ(MavFile::SetFileRead(missing, key, value), -1);
    EXPECT_STREQ(value, "");
    EXPECT_TRUE(MavFile::SetFileRead(nullptr, key, value) == -1 &&
                MavFile::SetFileRead(path, nullptr, value) == -1 &&
                MavFile::SetFileRead(path, key, nullptr) == -1);
}

} // namespace
