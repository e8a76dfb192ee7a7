// File helpers: descriptor accounting, filling, copying, key=value lines.
#include "mavkit/sys/MavFile.h"
#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

class MavFileTest : public testing::Test {
protected:
    std::string At(const char* name) const { return device.Path(std::string("/mnt/") + name); }
    std::string Read(const char* name) const { return device.Read(std::string("/mnt/") + name); }
    void Write(const char* name, const std::string& content) const {
        device.Write(std::string("/mnt/") + name, content);
    }

    Zone zone{"UTC0"};
    Device device;
    StdoutCapture out;
};

// Takes descriptors until the next one that the system hands out is `next`.
class TakenUpTo {
public:
    explicit TakenUpTo(int next) {
        for (int fd = dup(0); fd < next; fd = dup(0))
            taken_.push_back(fd);
        close(taken_.back() + 1 == next ? next : -1);
    }
    ~TakenUpTo() {
        for (const int fd : taken_)
            close(fd);
    }
    TakenUpTo(const TakenUpTo&) = delete;
    TakenUpTo& operator=(const TakenUpTo&) = delete;

private:
    std::vector<int> taken_;
};

TEST_F(MavFileTest, TellsAboutHighDescriptors) {
    Device::HoldClock(1709618828);
    const std::string path = At("f");
    const auto warning = [&](int fd) {
        return "kor(03-05 06:07:08):ZEPFile: open file " + path + " success. WARNING fd(" +
               std::to_string(fd) + ") is greater than 8\n";
    };
    for (const int expected : {8, 9, 63, 64}) {
        const TakenUpTo taken(expected);
        std::FILE* file = MavFile::OpenFile(path.c_str(), "wb");
        ASSERT_NE(file, nullptr);
        ASSERT_EQ(fileno(file), expected);
        const std::string told = out.Take();
        std::fclose(file);
        const int fd = MavFile::OpenFile(path.c_str(), false);
        EXPECT_EQ(fd, expected);
        EXPECT_EQ(out.Take().substr(0, 60), told.substr(0, 60)); // the report's line differs
        close(fd);
        const std::string report = told.substr(expected > 8 ? warning(expected).size() : 0);
        EXPECT_EQ(told.substr(0, told.size() - report.size()),
                  expected > 8 ? warning(expected) : "");
        if (expected == 64) {
            EXPECT_EQ(report.find("***********Assert failed.file=MavFile,line="), 0U);
        }
        EXPECT_EQ(report.find(",exp=fd<64\n") != std::string::npos, expected == 64);
    }
}

TEST_F(MavFileTest, TellsAFullSystemTableAndNothingElse) {
    Device::HoldClock(1709618828);
    for (const int error : {ENFILE, EMFILE, ENOENT, EACCES}) {
        for (const bool asStream : {true, false}) {
            Device::Fail(asStream ? "fopen" : "open", error);
            errno = 0;
            if (asStream) {
                EXPECT_EQ(MavFile::OpenFile("/mnt/x", "rb"), nullptr);
            } else {
                EXPECT_EQ(MavFile::OpenFile("/mnt/x", true), -1);
            }
            EXPECT_EQ(errno, error);
            const std::string told = out.Take();
            if (error != ENFILE) {
                EXPECT_EQ(told, "");
                continue;
            }
            EXPECT_EQ(told.find("***********Assert failed.file=MavFile,line="), 0U);
            EXPECT_NE(
                told.find(",exp=false\nkor(03-05 06:07:08):ZEPFile: open file /mnt/x failure. "
                          "errno==ENFILE\n"),
                std::string::npos);
        }
    }
    EXPECT_EQ(MavFile::OpenFile(nullptr, "rb"), nullptr);
}

TEST_F(MavFileTest, DescriptorOpenEmptiesAndSynchronises) {
    Write("f", "old");
    const int fd = MavFile::OpenFile("/mnt/f", false);
    ASSERT_NE(fd, -1);
    EXPECT_EQ(Read("f"), "");
    const int flags = fcntl(fd, F_GETFL);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_EQ(flags & O_SYNC, O_SYNC);
    close(fd);
    const mode_t mask = umask(027);
    close(MavFile::OpenFile("/mnt/g", false));
    umask(mask);
    struct stat info;
    ASSERT_EQ(stat(At("g").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0640U);
}

// Lets no file grow beyond `size` while it lives: a card that is full part way through a block.
class FullCard {
public:
    explicit FullCard(rlim_t size) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{size, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullCard() { setrlimit(RLIMIT_FSIZE, &before_); }
    FullCard(const FullCard&) = delete;
    FullCard& operator=(const FullCard&) = delete;

private:
    rlimit before_;
};

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
        EXPECT_EQ(Read("f"),
                  std::string(c.size > 0 ? static_cast<std::size_t>(c.size) : 0, '\xA5'));
    }
    EXPECT_EQ(MavFile::CreateFile(nullptr, 5, 0), -1);
    EXPECT_EQ(MavFile::CreateFile("/mnt/missing/f", 5, 0), -1);
    EXPECT_EQ(MavFile::CreateFile("/mnt/f", 2, 'z'), 0);
    EXPECT_EQ(Read("f"), "zz");

    const FullCard full(5000);
    EXPECT_EQ(MavFile::CreateFile("/mnt/f", 5000, 1), 0);
    EXPECT_EQ(MavFile::CreateFile("/mnt/f", 5001, 1), -1);
    EXPECT_EQ(MavFile::CreateFile("/mnt/f", 1000000, 1), -1);
}

TEST_F(MavFileTest, CopiesFiles) {
    std::string from = "/mnt/from";
    std::string to = "/mnt/to";
    for (const std::size_t size : {0U, 1U, 2047U, 2048U, 2049U, 4096U, 100000U}) {
        std::string content;
        while (content.size() < size)
            content += static_cast<char>(content.size() * 7 % 251);
        Write("from", content);
        Write("to", std::string(5000, 'x'));
        EXPECT_EQ(MavFile::CopyFile(&from[0], &to[0]), 0) << size;
        EXPECT_EQ(Read("to"), content) << size;
    }
    EXPECT_EQ(MavFile::CopyFile(nullptr, &to[0]), -1);
    EXPECT_EQ(MavFile::CopyFile(&from[0], nullptr), -1);

    std::string nowhere = "/mnt/missing/f";
    EXPECT_EQ(MavFile::CopyFile(&nowhere[0], &to[0]), -1);
    EXPECT_TRUE(device.Exists("/mnt/to")); // still there when the source cannot be opened
    EXPECT_EQ(MavFile::CopyFile(&from[0], &nowhere[0]), -1);
    Device::Fail("fopen", ENOSPC, 1, 1);
    std::string mapped = At("to");
    EXPECT_EQ(MavFile::CopyFile(&from[0], &mapped[0]), -1);
    EXPECT_FALSE(device.Exists("/mnt/to"));

    for (const rlim_t room : {3000U, 4096U}) { // within a block, and at its edge
        const FullCard full(room);
        EXPECT_EQ(MavFile::CopyFile(&from[0], &to[0]), -1);
        EXPECT_EQ(Read("to").size(), room);
    }
    EXPECT_EQ(MavFile::CopyFile(&from[0], &to[0]), 0); // there is room again
}

TEST_F(MavFileTest, ReadsOneValue) {
    const std::string longLine = "long=" + std::string(600, 'v') + "\n";
    const std::string content = "speed = 9\r\nx\n\na=1\r\nab=\n=empty key\nno separator\nkey=a=b\n"
                                "key=second\nKey=case\nnul=" +
                                std::string("ab\0cd\n", 6) + longLine + "tail=9\nz=1";
    const struct {
        const char* key;
        int result;
        std::string value;
    } cases[] = {
        {"speed", -1, ""},  {"speed ", 0, " 9"},  {"a", 0, "1"},
        {"ab", 0, ""},      {"", 0, "empty key"}, {"key", 0, "a=b"},
        {"Key", 0, "case"}, {"nul", 0, "ab"},     {"long", 0, std::string(506, 'v')},
        {"tail", 0, "9"},   {"z", -1, ""},        {"no separator", -1, ""},
    };
    Write("conf", content);
    std::string path = "/mnt/conf";
    for (const auto& c : cases) {
        std::string key = c.key;
        char value[511] = "unset";
        EXPECT_EQ(MavFile::SetFileRead(&path[0], &key[0], value), c.result) << key;
        EXPECT_EQ(value, c.value) << key;
    }
    // A piece of 511 characters without a line end: the longest value there can be.
    Write("conf", "=" + std::string(600, 'v'));
    char key[] = "";
    char value[511];
    EXPECT_EQ(MavFile::SetFileRead(&path[0], key, value), 0);
    EXPECT_EQ(value, std::string(510, 'v'));
    // A line without "=" is what the empty key finds first.
    Write("conf", "plain\n=x\n");
    EXPECT_EQ(MavFile::SetFileRead(&path[0], key, value), 0);
    EXPECT_STREQ(value, "");

    value[0] = 'x';
    char missing[] = "/mnt/missing";
    EXPECT_EQ(MavFile::SetFileRead(missing, key, value), -1);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(MavFile::SetFileRead(nullptr, key, value), -1);
    EXPECT_EQ(MavFile::SetFileRead(&path[0], nullptr, value), -1);
    EXPECT_EQ(MavFile::SetFileRead(&path[0], key, nullptr), -1);
}

} // namespace
