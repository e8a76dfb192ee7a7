// The trace channel: routing, prefix, export files and their rotation, nested warnings. What a
// failing call does to a rotation is in faults/outcomes.txt.
#include "mavkit/diag/MavTrace.h"
#include "device/Device.h"
#include "mavkit/diag/IsTraced.h"
#include "mavkit/diag/MavDump.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/diag/TraceText.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <termios.h>
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
        EXPECT_EQ(*c.takers == '\0' ? 0 : 1, Device::Calls("time"));
        for (const std::string file : {"trace.log", "data_meterd.log", "sche.log"}) {
            // The object's first output carries the prefix, the others do not.
            const std::string line = std::strchr(c.takers, file[0]) != nullptr ? "m1\n" : "";
            EXPECT_EQ(file[0] == *c.takers ? prefix + line : line, device.TraceFile(file));
            device.Remove(dir + file);
        }
    }
    // When a channel has no stream, the next one gets the prefix.
    Way(10);
    setting.dataWay = WAY_NONE;
    EXPECT_FALSE(mavkit::IsTraced(LEVEL_ERROR, 1));
    setting.dataWay = WAY_STDOUT;
    EXPECT_TRUE(mavkit::IsTraced(LEVEL_ERROR, 1));
    MavTrace(LEVEL_ERROR, 1)("c\n");
    EXPECT_EQ(prefix + "c\n", out.Take());
}

// What a caller does to the built-in setting is undone by the next call, whether it writes or not.
TEST_F(MavTraceTest, RestoresTheBuiltInSetting) {
    MavTrace::Setting = nullptr;
    MavTrace trace(LEVEL_VERBOSE, 0);
    TraceSetting& builtIn = const_cast<TraceSetting&>(trace.GetSetting());
    const auto spoil = [&] {
        builtIn = setting;
        builtIn.level = LEVEL_DISABLED;
    };
    const auto expectRestored = [&] {
        EXPECT_EQ(LEVEL_VERBOSE, builtIn.level);
        EXPECT_STREQ("Command", builtIn.name);
    };
    spoil();
    trace("m\n");
    EXPECT_EQ(prefix + "m\n", out.Take());
    expectRestored();
    spoil();
    EXPECT_TRUE(mavkit::IsTraced(LEVEL_VERBOSE, 0));
    expectRestored();
    spoil();
    MavTrace::Setting = &setting; // makes no difference
    MavTrace(INT_MAX, 0)("m\n");
    expectRestored();
    spoil();
    EXPECT_EQ(&setting, &trace.GetSetting());
    expectRestored();
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
        {0, 255, "p", ""},         {0, 7, "p", ""}, // a terminal that does not exist
    };
    device.Write("/dev/pts/5", "");
    device.Write("/dev/pts/0", "");
    const MavTrace trace(0, 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.channel << ' ' << c.way);
        std::FILE* file = trace.GetExportFile(static_cast<unsigned char>(c.channel),
                                              static_cast<unsigned char>(c.way), c.name, -1);
        ASSERT_EQ(c.file.empty(), file == nullptr);
        if (file != nullptr) {
            std::fputs("x", file);
            std::fclose(file);
            EXPECT_EQ("x", device.TraceFile(c.file));
        }
    }
    EXPECT_FALSE(device.Exists("/dev/pts/3"));
    Device::Fail("fdopen", ENOMEM);
    EXPECT_EQ(nullptr, trace.GetExportFile(0, WAY_TTYP0, "p", 0));
    EXPECT_TRUE(device.Exists(dir + dataFits + "_bak"));
    EXPECT_EQ(stdout, trace.GetExportFile(7, WAY_STDOUT, "p", 0));

    // A record filled without a terminator names a file of 31 characters and reads no further.
    std::memset(setting.name, 'u', sizeof setting.name);
    Way(WAY_PRIVATE);
    MavTrace(0, 0)("whole");
    EXPECT_EQ("whole", device.TraceFile("trace_" + std::string(31, 'u') + ".log"));
}

// The system's count of this process's writes.
int Writes() {
    std::ifstream file("/proc/self/io");
    int writes = -1;
    for (std::string word; file >> word;)
        if (word == "syscw:")
            file >> writes;
    return writes;
}

// Frequent conversions are not left to libc.
TEST_F(MavTraceTest, TextsAreThoseOfPrintf) {
    Way(WAY_PUBLIC);
    const auto same = [this](const char* format, auto... values) {
        char expected[100];
        std::snprintf(expected, sizeof expected, format, values...);
        MavTrace(0, 0)(format, values...);
        EXPECT_EQ(expected, device.TraceFile());
        device.Remove(dir + "trace.log");
    };
    const char* volatile none = nullptr; // unknown to the compiler
    for (const int number : {0, 7, 10, -1, 99999, INT_MAX, INT_MIN})
        for (const char* format : {"%d", "<%u>", "%i", "%5d", "%-3dx", "%x", "%%%d"})
            same(format, number);
    same("%s%s|%d%%", "", "text", 5);
    same("%d %s %c", 1, static_cast<const char*>(none), 'c');
    same("%.2s %ld %d", "abc", -5L, 6);
    same("%s", "100% %d");
}

TEST_F(MavTraceTest, AnyLengthIsOneWrite) {
    if (Writes() < 0)
        GTEST_SKIP() << "this system does not count writes";
    Way(WAY_PUBLIC);
    setting.prefixOn = 1;
    setting.maxSize = INT_MAX;
    const std::string stamp = "03-05 06:07:08\t";
    // 4096 bytes are formatted without memory from the heap: before, at and beyond that.
    for (const std::size_t length : {1U, 4075U, 4076U, 4080U, 4081U, 6000U, 100000U}) {
        SCOPED_TRACE(length);
        const std::string text(length, 't'), file = device.TraceFile(), log = device.GeneralLog();
        const int before = Writes();
        Device::ForgetCalls();
        MavTrace(0, 0)("%s", text.c_str());
        EXPECT_EQ(1, Writes() - before);
        EXPECT_EQ(length < 4076 ? 0 : 1, Device::Calls("malloc"));
        MavTrace trace(0, 0);
        mavkit::TraceText(trace, text); // with the prefix
        mavkit::TraceText(trace, text); // without it
        EXPECT_EQ(3, Writes() - before);
        GENERAL_LOG("%s", text.c_str());
        EXPECT_EQ(4, Writes() - before);
        EXPECT_EQ(file + prefix + text + prefix + text + text, device.TraceFile());
        EXPECT_EQ(log + stamp + text, device.GeneralLog());
        device.Remove(dir + "trace.log");
        device.Remove(Device::kGeneralLog);
    }
    // Without memory a long message is written in pieces, with the caller's errno.
    const std::string text(6000, 't');
    Device::Fail("malloc", ENOMEM);
    MavDump(0, 0) << text.c_str();
    EXPECT_EQ(prefix + text, device.TraceFile());
    device.Remove(dir + "trace.log");
    const char* format = "%m %s";
    for (const bool log : {false, true}) {
        Device::Fail("malloc", ENOMEM);
        errno = ENOENT;
        log ? GENERAL_LOG(format, text.c_str()) : MavTrace(0, 0)(format, text.c_str());
        EXPECT_EQ((log ? stamp : prefix) + std::strerror(ENOENT) + " " + text,
                  log ? device.GeneralLog() : device.TraceFile());
    }
    Way(WAY_STDOUT);
    Device::Fail("malloc", ENOMEM);
    MavTrace(0, 0)("%5d%s", 1, text.c_str());
    EXPECT_EQ(prefix + "    1" + text, out.Take());
}

// A pseudo-terminal of this machine as the terminal's /dev/pts/2.
class PseudoTerminalTest : public MavTraceTest {
protected:
    void SetUp() override {
        if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0)
            GTEST_SKIP() << "no pseudo-terminals here: " << std::strerror(errno);
        ASSERT_EQ(0, symlink(ptsname(master), device.Path("/dev/pts/2").c_str()));
        slave = open("/dev/pts/2", O_RDWR | O_NOCTTY);
        ASSERT_NE(-1, slave);
        Way(WAY_TTYP2);
    }
    void TearDown() override {
        close(slave);
        close(master);
    }
    // What a person sees: the next characters up to `end`. The system may need some time to pass
    // them on.
    std::string Seen(const std::string& end) const {
        pollfd readable = {master, POLLIN, 0};
        std::string text;
        char c;
        while ((text.size() < end.size() ||
                text.compare(text.size() - end.size(), end.size(), end) != 0) &&
               poll(&readable, 1, 10000) == 1 && read(master, &c, 1) == 1)
            text += c;
        return text;
    }

    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    int slave = -1;
};

TEST_F(PseudoTerminalTest, ShowsMessages) {
    MavTrace(1, 0)("on the wire\n");
    EXPECT_EQ("on the wire\r\n", Seen("\n"));
}

TEST_F(PseudoTerminalTest, NeitherStopsNorKillsTheProcess) {
    const pid_t child = Start([this] {
        alarm(20);
        setsid(); // as a resident process does
        MavTrace(1, 0)("line\n");
        EXPECT_EQ(-1, tcgetsid(slave)) << "it has become the controlling terminal";
        // Nobody reads: what does not fit is dropped.
        MavTrace(1, 0)("%s\n", std::string(100000, 'x').c_str());
        for (int i = 0; i < 1000; ++i)
            MavTrace(1, 0)("%s\n", std::string(100, 'y').c_str());
        EXPECT_EQ("line\r\nxxx", Seen("xxx"));
        // Reading makes room for new messages: one arrives, or the alarm ends the process.
        for (std::string text; text.find("again") == text.npos;) {
            MavTrace(1, 0)("again\n");
            char some[4096];
            const ssize_t count = read(master, some, sizeof some);
            text.append(some, count > 0 ? static_cast<std::size_t>(count) : 0);
        }
        return true;
    });
    EXPECT_TRUE(Succeeded(child));
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
        EXPECT_EQ(c.rotates ? "new" : old + "new", device.TraceFile());
        std::string backup = old.substr(0, kBackup);
        backup.resize(kBackup);
        EXPECT_EQ(c.rotates ? backup : "", device.TraceFile("trace.log_bak"));
    }
}

TEST_F(MavTraceTest, RotationThatFails) {
    Way(WAY_PUBLIC);
    setting.maxSize = -2; // below what a failed lseek gives
    const auto trace = [this] {
        device.Write(dir + "trace.log", "old ");
        device.Write(dir + "trace.log_bak", "older ");
        MavTrace(0, 0)("new");
        return device.TraceFile() + "+" + device.TraceFile("trace.log_bak").c_str();
    };
    Device::Fail("lseek", ESPIPE);
    EXPECT_EQ("old new+older ", trace());
    Device::Fail("open", EACCES, 1, 1); // the file, to empty it
    EXPECT_EQ("old +old ", trace());
    const Limit full(RLIMIT_FSIZE, 500000); // an incomplete backup is removed
    EXPECT_EQ("new+", trace());
    EXPECT_FALSE(device.Exists(dir + "trace.log_bak"));
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
            const int opened = Device::Calls("fopen") + Device::Calls("open");
            const std::string reports = out.Take();
            EXPECT_EQ(2, opened); // for the message, and for the warning about it
            const std::string warning = "ZEPFile: open file " + path + " success. WARNING fd(" +
                                        std::to_string(level) + ") is greater than 8\n";
            // A terminal's stream writes at its position, a file's stream at the end.
            EXPECT_EQ(way == WAY_TTYP1 ? "message\n" + warning.substr(8) : warning + "message\n",
                      device.Read(path));
            EXPECT_EQ(level == 64,
                      reports.find("***********Assert failed.file=MavFile,line=") == 0);
            EXPECT_EQ(level == 9, reports.empty());
        }
    }
}

} // namespace
