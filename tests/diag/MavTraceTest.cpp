// The trace channel: routing, prefix, export files and their rotation, nested warnings. What becomes
// of a rotation whose calls fail is in faults/outcomes.txt.
#include "mavkit/diag/MavTrace.h"
#include "device/Device.h"
#include "mavkit/diag/IsTraced.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kBackup = 1000500;

class MavTraceTest : public TerminalTest {
protected:
    MavTraceTest() { std::strcpy(setting.name, "meterd"); }

    void Way(int way) { setting.traceWay = static_cast<unsigned char>(way); }

    const std::string prefix = "kor(03-05 06:07:08):", dir = Device::kTraceDir;
};

TEST_F(MavTraceTest, RoutesByLevelAndFlags) {
    const struct {
        int threshold, level;
        unsigned flags;
        const char* takers; // of trace, data, sche
    } cases[] = {
        {4, 4, 0, "t"},      {4, 5, 0, ""},   {0, 0, 0, "t"},   {0, 1, 3, "ds"},
        {2, 2, 1, "td"},     {2, 3, 2, "s"},  {4, 1, 3, "tds"}, {255, 255, 0, "t"},
        {4, INT_MAX, 0, ""}, {4, 5, ~3U, ""}, {2, 3, 1, "d"},   {3, INT_MIN, 0, "t"},
    };
    setting.prefixOn = 1;
    setting.traceWay = setting.scheWay = WAY_PUBLIC;
    setting.dataWay = WAY_PRIVATE;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.threshold << ' ' << c.level << ' ' << c.flags);
        setting.level = static_cast<unsigned char>(c.threshold);
        EXPECT_EQ(*c.takers != '\0', mavkit::IsTraced(c.level, c.flags));
        Device::ForgetCalls();
        MavTrace(c.level, c.flags)("m%d\n", 1);
        EXPECT_EQ(Device::Calls("time"), *c.takers == '\0' ? 0 : 1);
        for (const std::string file : {"trace.log", "data_meterd.log", "sche.log"}) {
            // The object's first output carries the prefix, the others do not.
            const std::string line = std::strchr(c.takers, file[0]) != nullptr ? "m1\n" : "";
            EXPECT_EQ(device.TraceFile(file), file[0] == *c.takers ? prefix + line : line);
            device.Remove(dir + file);
        }
    }
    // A channel that gives no stream leaves the prefix to the next one.
    Way(10);
    setting.dataWay = WAY_NONE;
    EXPECT_FALSE(mavkit::IsTraced(LEVEL_ERROR, 1));
    setting.dataWay = WAY_STDOUT;
    EXPECT_TRUE(mavkit::IsTraced(LEVEL_ERROR, 1));
    MavTrace(LEVEL_ERROR, 1)("c\n");
    EXPECT_EQ(out.Take(), prefix + "c\n");
}

TEST_F(MavTraceTest, ExportFiles) {
    // The longest name whose path fits its 100 bytes: 30 + 1 + 64 + 4 characters, and one more.
    const std::string fits(64, 'n'), tooLong(65, 'n'), dataFits = "data_" + fits + ".log";
    const std::string pts0 = "../../../../../dev/pts/0", pts5 = "../../../../../dev/pts/5";
    const char *longest = fits.c_str(), *longer = tooLong.c_str();
    const struct {
        int channel, way;
        const char* name;
        std::string file; // below dir; empty: no stream
    } cases[] = {
        {0, 2, "p", "trace.log"},  {1, 2, "p", "data.log"},
        {2, 2, "p", "sche.log"},   {0, 3, "p", "trace_p.log"},
        {2, 3, "", "sche_.log"},   {1, 3, nullptr, "data_.log"},
        {1, 3, longest, dataFits}, {1, 3, longer, ""},
        {3, 2, "p", ""},           {3, 3, "p", ""},
        {200, 9, "p", pts5},       {0, 4, "p", pts0},
        {0, 0, "p", ""},           {0, 10, "p", ""},
        {0, 255, "p", ""},
    };
    device.Write("/dev/pts/5", "");
    device.Write("/dev/pts/0", "");
    const MavTrace trace(0, 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.channel << ' ' << c.way);
        std::FILE* file = trace.GetExportFile(static_cast<unsigned char>(c.channel),
                                              static_cast<unsigned char>(c.way), c.name, 50000);
        ASSERT_EQ(file == nullptr, c.file.empty());
        if (file != nullptr) {
            std::fputs("x", file);
            std::fclose(file);
            EXPECT_EQ(device.TraceFile(c.file), "x");
        }
    }
    EXPECT_EQ(trace.GetExportFile(7, WAY_STDOUT, "p", 0), stdout);

    // A record filled without a terminator names a file of 31 characters and reads no further.
    std::memset(setting.name, 'u', sizeof setting.name);
    Way(WAY_PRIVATE);
    MavTrace(0, 0)("whole");
    EXPECT_EQ(device.TraceFile("trace_" + std::string(31, 'u') + ".log"), "whole");
}

TEST_F(MavTraceTest, RealTerminal) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0)
        GTEST_SKIP() << "no pseudo-terminals here: " << std::strerror(errno);
    ASSERT_EQ(symlink(ptsname(master), device.Path("/dev/pts/2").c_str()), 0);
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    Way(WAY_TTYP2);
    MavTrace(1, 0)("on the wire\n");
    char text[64] = {};
    EXPECT_GT(read(master, text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "on the wire\r\n");
    close(slave);
    close(master);
}

TEST_F(MavTraceTest, Rotation) {
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
        {1000600, kBackup + 101, true}, // only the first 1,000,500 bytes survive
        {2000000, kBackup + 9, false},
    };
    Way(WAY_PUBLIC);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.limit << ' ' << c.before);
        const std::string old(c.before, 'o');
        device.Write(dir + "trace.log", old);
        device.Remove(dir + "trace.log_bak");
        setting.maxSize = c.limit;
        MavTrace(0, 0)("new");
        EXPECT_EQ(device.TraceFile(), c.rotates ? "new" : old + "new");
        std::string backup = old.substr(0, kBackup);
        backup.resize(kBackup);
        EXPECT_EQ(device.TraceFile("trace.log_bak"), c.rotates ? backup : "");
    }
}

// With many descriptors open, the warning about an export file is traced into an export file, whose
// own warning would be traced, and so on.
TEST_F(MavTraceTest, DescriptorWarningsDoNotNest) {
    const std::pair<int, std::string> ways[] = {{WAY_PUBLIC, dir + "trace.log"},
                                                {WAY_PRIVATE, dir + "trace_meterd.log"},
                                                {WAY_TTYP1, "/dev/pts/1"}};
    for (const int level : {9, 64}) {
        const TakenUpTo taken(level);
        for (const auto& [way, path] : ways) {
            SCOPED_TRACE(testing::Message() << level << ' ' << path);
            device.Write(path, "");
            Way(way);
            Device::ForgetCalls();
            MavTrace(LEVEL_ERROR, 0)("message\n");
            EXPECT_EQ(Device::Calls("fopen"), 2); // for the message, and for the warning about it
            const std::string warning = "ZEPFile: open file " + path + " success. WARNING fd(" +
                                        std::to_string(level) + ") is greater than 8\n";
            // A terminal's stream writes where it stands, a file's at the end.
            EXPECT_EQ(device.Read(path),
                      way == WAY_TTYP1 ? "message\n" + warning.substr(8) : warning + "message\n");
            const std::string reports = out.Take();
            EXPECT_EQ(reports.find("***********Assert failed.file=MavFile,line=") == 0,
                      level == 64);
            EXPECT_EQ(reports.empty(), level == 9);
        }
    }
}

} // namespace
