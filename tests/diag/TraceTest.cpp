// The general log, assertion reports, and the vocabulary of the trace channel.
#include "mavkit/diag/Trace.h"
#include "device/Device.h"
#include "mavkit/diag/Assert.h"

#include <cerrno>
#include <string>

namespace {

using TraceTest = TerminalTest;

TEST_F(TraceTest, AppendsStampedEntriesAndFallsBackToStdout) {
    GENERAL_LOG("Meter: %s answered %d\n", "a", 7);
    GENERAL_LOG("no end,");
    Device::HoldClock(kNow + 1);
    GENERAL_LOG(" then%s\n", "");
    EXPECT_EQ("03-05 06:07:08\tMeter: a answered 7\n"
              "03-05 06:07:08\tno end,03-05 06:07:09\t then\n",
              device.GeneralLog());
    Device::Fail("localtime", EOVERFLOW);
    Trace{"/mnt/sdcard/log/own.log", 1, 0}("lost clock\n");
    EXPECT_EQ("00-00 00:00:00\tlost clock\n", device.Read("/mnt/sdcard/log/own.log"));
    EXPECT_EQ("", out.Take());

    device.Remove("/mnt/sdcard/log");
    Device::ForgetCalls();
    GENERAL_LOG("Meter: %d%%\n", 5);
    EXPECT_EQ("Meter: 5%\n", out.Take());
    EXPECT_EQ(0, Device::Calls("time"));
}

TEST_F(TraceTest, AssertionReportsTheSourceTextAndGoesOn) {
    int evaluated = 0;
    const int fd = 64;
    const std::string head = "***********Assert failed.file=", line = std::to_string(__LINE__ + 2);
    // clang-format off
    ASSERT_REPORT(fd<64);
    // clang-format on
    ASSERT_REPORT(++evaluated == 1);
    EXPECT_EQ(head + "TraceTest,line=" + line + ",exp=fd<64\n", out.Take());
    EXPECT_EQ(1, evaluated);
    // The stem is found in every path that a build system may pass.
    for (const char* path : {"s.t", "s.t.cpp", "/a.b/s.t.cpp", "../x/s.t.x", "p/plain"}) {
        ReportFailedAssertion(path, 1, "false");
        const char* stem = path[3] == '\0' ? "s" : *path == 'p' ? "plain" : "s.t";
        EXPECT_EQ(head + stem + ",line=1,exp=false\n", out.Take()) << path;
    }
}

// Any text as a name, and any code, are tried in fuzz/Texts.cpp.
TEST(TraceSetting, CodesOfNames) {
    const struct {
        const char* name;
        int level, way;
    } cases[] = {{"VERBOSE", 4, 0}, {"ttyP5", 0, 9}, {"Warning", 0, 0}, {" +12x", 12, 12},
                 {"010", 10, 10},   {"0x1F", 0, 0},  {"300", 44, 44},   {"-1", 255, 255},
                 {"", 0, 0},        {nullptr, 0, 0}, {"None ", 0, 0},   {"7", 7, 7},
                 {"Error", 1, 0},   {"Public", 0, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name != nullptr ? c.name : "null");
        EXPECT_EQ(c.level, MAKE_TRACE_LEVEL_VAL(c.name));
        EXPECT_EQ(c.way, MAKE_TRACE_WAY_VAL(c.name));
    }
}

} // namespace
