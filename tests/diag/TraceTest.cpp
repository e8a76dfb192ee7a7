// The general log, assertion reports, and the vocabulary of the trace channel.
#include "mavkit/diag/Trace.h"
#include "device/Device.h"
#include "mavkit/diag/Assert.h"

#include <cerrno>

namespace {

using TraceTest = TerminalTest;

TEST_F(TraceTest, AppendsStampedEntriesAndFallsBackToStdout) {
    GENERAL_LOG("Meter: %s answered %d\n", "a", 7);
    GENERAL_LOG("no end,");
    Device::HoldClock(kNow + 1);
    GENERAL_LOG(" then%s\n", "");
    EXPECT_EQ(device.GeneralLog(), "03-05 06:07:08\tMeter: a answered 7\n"
                                   "03-05 06:07:08\tno end,03-05 06:07:09\t then\n");
    Device::Fail("localtime", EOVERFLOW);
    Trace{"/mnt/sdcard/log/own.log", 1, 0}("lost clock\n");
    EXPECT_EQ(device.Read("/mnt/sdcard/log/own.log"), "00-00 00:00:00\tlost clock\n");
    EXPECT_EQ(out.Take(), "");

    device.Remove("/mnt/sdcard/log");
    Device::ForgetCalls();
    GENERAL_LOG("Meter: %d%%\n", 5);
    EXPECT_EQ(out.Take(), "Meter: 5%\n");
    EXPECT_EQ(Device::Calls("time"), 0);
}

TEST_F(TraceTest, AssertionReportsTheSourceTextAndGoesOn) {
    int evaluated = 0;
    const int fd = 64;
    const std::string head = "***********Assert failed.file=", line = std::to_string(__LINE__ + 2);
    // clang-format off
    ASSERT_REPORT(fd<64);
    // clang-format on
    ASSERT_REPORT(++evaluated == 1);
    EXPECT_EQ(out.Take(), head + "TraceTest,line=" + line + ",exp=fd<64\n");
    EXPECT_EQ(evaluated, 1);
    // The stem is found in any path that a build system may give.
    for (const char* path : {"s.t", "s.t.cpp", "/a.b/s.t.cpp", "../x/s.t.x", "p/plain"}) {
        ReportFailedAssertion(path, 1, "false");
        const char* stem = path[3] == '\0' ? "s" : *path == 'p' ? "plain" : "s.t";
        EXPECT_EQ(out.Take(), head + stem + ",line=1,exp=false\n") << path;
    }
}

// Any text as a name, and any code, are tried in fuzz/Texts.cpp.
TEST(TraceSetting, NamesAndCodes) {
    EXPECT_EQ(MAKE_TRACE_LEVEL_VAL(nullptr) + MAKE_TRACE_WAY_VAL(nullptr), 0);
}

} // namespace
