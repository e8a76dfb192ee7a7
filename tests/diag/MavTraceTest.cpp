// The trace channel: routing, prefix, export files and their rotation, nested warnings.
#include "mavkit/diag/MavTrace.h"
#include "device/Device.h"
#include "mavkit/sys/MavFile.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::time_t kMarch = 1709618828; // 2024-03-05 06:07:08 UTC
constexpr const char* kPrefix = "kor(03-05 06:07:08):";
constexpr std::size_t kBackup = 1000500;

class MavTraceTest : public testing::Test {
protected:
    MavTraceTest() : zone("UTC0") {
        Device::HoldClock(kMarch);
        std::strcpy(setting.name, "meterd");
        MavTrace::Setting = &setting;
    }
    ~MavTraceTest() override { MavTrace::Setting = nullptr; }

    std::string Trace(const char* file) const {
        return device.Read(Device::kTraceDir + std::string(file));
    }
    void Put(const char* file, const std::string& content) const {
        device.Write(Device::kTraceDir + std::string(file), content);
    }

    Zone zone;
    Device device;
    StdoutCapture out;
    TraceSetting setting;
};

TEST_F(MavTraceTest, RoutesByLevelAndFlags) {
    const struct {
        int threshold;
        int level;
        unsigned flags;
        const char* takers; // of trace, data, sche
    } cases[] = {
        {4, 4, 0, "t"},     {4, 5, 0, ""},       {0, 0, 0, "t"},   {0, 1, 3, "ds"},
        {2, 2, 1, "td"},    {2, 3, 2, "s"},      {4, 1, 3, "tds"}, {1, -1, 0, "t"},
        {255, 255, 0, "t"}, {4, INT_MAX, 0, ""}, {4, 5, ~3U, ""},  {3, INT_MIN, 0, "t"},
    };
    setting.traceWay = WAY_PUBLIC;
    setting.dataWay = WAY_PRIVATE;
    setting.scheWay = WAY_PUBLIC;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.threshold << ' ' << c.level << ' ' << c.flags);
        setting.level = static_cast<unsigned char>(c.threshold);
        Device::ForgetCalls();
        MavTrace(c.level, c.flags)("m%d\n", 1);
        const std::string takers = c.takers;
        const auto expected = [&](char channel) {
            if (takers.find(channel) == std::string::npos)
                return std::string();
            // The object's first output carries the prefix, the others do not.
            return (channel == takers[0] ? kPrefix : "") + std::string("m1\n");
        };
        EXPECT_EQ(Trace("trace.log"), expected('t'));
        EXPECT_EQ(Trace("data_meterd.log"), expected('d'));
        EXPECT_EQ(Trace("sche.log"), expected('s'));
        EXPECT_EQ(Device::Calls("time"), takers.empty() ? 0 : 1);
        for (const char* file : {"trace.log", "data_meterd.log", "sche.log"})
            device.Remove(Device::kTraceDir + std::string(file));
    }
}

TEST_F(MavTraceTest, PrefixBelongsToTheObject) {
    MavTrace dump(LEVEL_INFO, 0);
    dump("a");
    dump("b%s", "\n");
    EXPECT_EQ(out.Take(), std::string(kPrefix) + "ab\n");
    EXPECT_TRUE(dump.printed);

    // A channel that gives no stream leaves the prefix to the next one.
    setting.traceWay = 10;
    setting.dataWay = WAY_STDOUT;
    MavTrace(LEVEL_INFO, 1)("c\n");
    EXPECT_EQ(out.Take(), std::string(kPrefix) + "c\n");

    setting.prefixOn = 0;
    MavTrace plain(LEVEL_INFO, 1);
    plain("%s\n", "100%");
    EXPECT_EQ(out.Take(), "100%\n");
    EXPECT_FALSE(plain.printed);
}

TEST_F(MavTraceTest, BuiltInSettingIsRestoredAtEveryCall) {
    MavTrace::Setting = nullptr;
    const MavTrace trace(LEVEL_INFO, 0);
    auto& builtIn = const_cast<TraceSetting&>(trace.GetSetting());
    builtIn.level = 0;
    builtIn.traceWay = WAY_NONE;
    builtIn.maxSize = 1;
    builtIn.name[0] = 'X';
    MavTrace(LEVEL_VERBOSE, 3)("built in\n");
    EXPECT_EQ(out.Take(), std::string(kPrefix) + "built in\n");
    const TraceSetting& s = trace.GetSetting();
    EXPECT_EQ(s.prefixOn, 1);
    EXPECT_EQ(s.level, 4);
    EXPECT_EQ(s.traceWay, 1);
    EXPECT_EQ(s.dataWay, 0);
    EXPECT_EQ(s.scheWay, 0);
    EXPECT_STREQ(s.name, "Command");
    EXPECT_EQ(s.maxSize, 50000);
    EXPECT_STREQ(TraceSetting().name, "");
}

TEST_F(MavTraceTest, ExportFiles) {
    // The longest name whose path fits its 100 bytes: 30 + 1 + 64 + 4 characters, and one more.
    const std::string fits(64, 'n');
    const std::string tooLong(65, 'n');
    const std::string fitsPath = "/mnt/sd/term/common/trace/data_" + fits + ".log";
    const struct {
        int channel;
        int way;
        const char* name;
        const char* path; // null: no stream
    } cases[] = {
        {0, 2, "p", "/mnt/sd/term/common/trace/trace.log"},
        {1, 2, "p", "/mnt/sd/term/common/trace/data.log"},
        {2, 2, "p", "/mnt/sd/term/common/trace/sche.log"},
        {0, 3, "p", "/mnt/sd/term/common/trace/trace_p.log"},
        {2, 3, "", "/mnt/sd/term/common/trace/sche_.log"},
        {1, 3, nullptr, "/mnt/sd/term/common/trace/data_.log"},
        {1, 3, fits.c_str(), fitsPath.c_str()},
        {1, 3, tooLong.c_str(), nullptr},
        {3, 2, "p", nullptr},
        {3, 3, "p", nullptr},
        {200, 9, "p", "/dev/pts/5"},
        {0, 4, "p", "/dev/pts/0"},
        {0, 0, "p", nullptr},
        {0, 10, "p", nullptr},
        {0, 255, "p", nullptr},
    };
    device.Write("/dev/pts/5", "");
    device.Write("/dev/pts/0", "");
    const MavTrace trace(0, 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.channel << ' ' << c.way);
        std::FILE* file = trace.GetExportFile(static_cast<unsigned char>(c.channel),
                                              static_cast<unsigned char>(c.way), c.name, 50000);
        ASSERT_EQ(file != nullptr, c.path != nullptr);
        if (file != nullptr) {
            std::fputs("x", file);
            std::fclose(file);
            EXPECT_EQ(device.Read(c.path), "x");
        }
    }
    EXPECT_EQ(trace.GetExportFile(7, WAY_STDOUT, "p", 0), stdout);

    // A record filled without a terminator names a file of 31 characters and reads no further.
    std::memset(setting.name, 'u', sizeof setting.name);
    setting.traceWay = WAY_PRIVATE;
    setting.prefixOn = 0;
    MavTrace(0, 0)("whole");
    EXPECT_EQ(Trace(("trace_" + std::string(31, 'u') + ".log").c_str()), "whole");
}

TEST_F(MavTraceTest, RealTerminal) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0)
        GTEST_SKIP() << "no pseudo-terminals here: " << std::strerror(errno);
    ASSERT_EQ(symlink(ptsname(master), device.Path("/dev/pts/2").c_str()), 0);
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    setting.traceWay = WAY_TTYP2;
    MavTrace(1, 0)("on the wire\n");
    char text[64] = {};
    EXPECT_GT(read(master, text, sizeof text - 1), 0);
    EXPECT_EQ(std::string(text), std::string(kPrefix) + "on the wire\r\n");
    close(slave);
    close(master);
}

TEST_F(MavTraceTest, Rotation) {
    setting.traceWay = WAY_PUBLIC;
    setting.prefixOn = 0;
    const std::string backupHead(50001, 'o');
    const struct {
        int limit;
        std::size_t before;
        bool rotates;
    } cases[] = {
        {50000, 50000, false},
        {50000, 50001, true},
        {0, 0, false},
        {0, 1, true},
        {-1, 0, true},
        {INT_MIN, 5, true},
        {2000000, kBackup + 9, false},
        {1000600, kBackup + 101, true}, // only the first 1,000,500 bytes survive
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.limit << ' ' << c.before);
        const std::string old(c.before, 'o');
        Put("trace.log", old);
        setting.maxSize = c.limit;
        MavTrace(0, 0)("new");
        EXPECT_EQ(Trace("trace.log"), c.rotates ? "new" : old + "new");
        std::string backup = old.substr(0, kBackup);
        backup.resize(kBackup);
        EXPECT_EQ(Trace("trace.log_bak"), c.rotates ? backup : "");
        device.Remove(Device::kTraceDir + std::string("trace.log_bak"));
    }
}

TEST_F(MavTraceTest, RotationThatFails) {
    setting.traceWay = WAY_PUBLIC;
    setting.prefixOn = 0;
    setting.maxSize = 2;
    const auto rotate = [&] {
        Put("trace.log", "old");
        Put("trace.log_bak", "gone");
        MavTrace(0, 0)("new");
    };
    std::string backup = "old";
    backup.resize(kBackup);

    Device::Fail("lseek", ESPIPE); // no size, no test
    rotate();
    EXPECT_EQ(Trace("trace.log"), "oldnew");
    EXPECT_EQ(Trace("trace.log_bak"), "gone");

    Device::Fail("calloc", ENOMEM); // appended; the next one tries again
    rotate();
    EXPECT_EQ(Trace("trace.log"), "oldnew");

    Device::Fail("fopen", EMFILE, 1, 1); // not reopened: the message is lost, the backup is not
    rotate();
    EXPECT_EQ(Trace("trace.log"), "old");
    EXPECT_EQ(Trace("trace.log_bak"), backup);

    Device::Fail("fopen", EMFILE, 1, 2); // no backup: the limit wins
    rotate();
    EXPECT_EQ(Trace("trace.log"), "new");
    EXPECT_EQ(Trace("trace.log_bak"), "gone");
}

TEST_F(MavTraceTest, DropsWhatCannotBeOpenedAndRecovers) {
    setting.traceWay = WAY_PUBLIC;
    setting.dataWay = WAY_STDOUT;
    setting.prefixOn = 0;
    device.Remove("/mnt/sd/term/common/trace");
    MavTrace(0, 1)("lost\n");
    EXPECT_EQ(out.Take(), "lost\n"); // the other channel is served
    device.Write("/mnt/sd/term/common/x", "");
    ASSERT_EQ(mkdir(device.Path("/mnt/sd/term/common/trace").c_str(), 0755), 0);
    MavTrace(0, 0)("back\n");
    EXPECT_EQ(Trace("trace.log"), "back\n");
}

// With many descriptors open, the warning about an export file is traced into an export file, whose
// own warning would be traced, and so on.
TEST_F(MavTraceTest, DescriptorWarningsDoNotNest) {
    const struct {
        int way;
        const char* path;
    } ways[] = {{WAY_PUBLIC, "/mnt/sd/term/common/trace/trace.log"},
                {WAY_PRIVATE, "/mnt/sd/term/common/trace/trace_meterd.log"},
                {WAY_TTYP1, "/dev/pts/1"}};
    setting.prefixOn = 0;
    for (const int level : {9, 64}) {
        std::vector<int> taken;
        while (taken.empty() || taken.back() < level - 1)
            taken.push_back(dup(0));
        for (const auto& way : ways) {
            SCOPED_TRACE(testing::Message() << level << ' ' << way.path);
            device.Write(way.path, "");
            setting.traceWay = static_cast<unsigned char>(way.way);
            Device::ForgetCalls();
            MavTrace(LEVEL_ERROR, 0)("message\n");
            // One open for the message, one for the warning about it.
            EXPECT_EQ(Device::Calls("fopen"), 2);
            const std::string content = device.Read(way.path);
            const std::string warning = "ZEPFile: open file " + std::string(way.path) +
                                        " success. WARNING fd(" + std::to_string(level) +
                                        ") is greater than 8\n";
            // A terminal's stream writes where it stands, a file's at the end.
            if (way.way == WAY_TTYP1) {
                EXPECT_EQ(content.substr(0, 8), "message\n");
            } else {
                EXPECT_EQ(content, warning + "message\n");
            }
            const std::string reports = out.Take();
            EXPECT_EQ(reports.find("***********Assert failed.file=MavFile,line=") == 0,
                      level == 64);
            EXPECT_EQ(reports.empty(), level == 9);
        }
        for (const int fd : taken)
            close(fd);
    }
}

} // namespace
