// The general log, assertion reports, and the vocabulary of the trace channel.
#include "mavkit/diag/Trace.h"
#include "device/Device.h"
#include "mavkit/diag/Assert.h"
#include "mavkit/diag/TraceSetting.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

constexpr std::time_t kMarch = 1709618828; // 2024-03-05 06:07:08 UTC

TEST(Trace, AppendsStampedEntriesAndFallsBackToStdout) {
    const Zone zone("UTC0");
    Device device;
    StdoutCapture out;
    Device::HoldClock(kMarch);
    GENERAL_LOG("Meter: %s answered %d\n", "a", 7);
    GENERAL_LOG("no end,");
    Device::HoldClock(kMarch + 1);
    GENERAL_LOG(" then%s\n", "");
    EXPECT_EQ(device.GeneralLog(), "03-05 06:07:08\tMeter: a answered 7\n"
                                   "03-05 06:07:08\tno end,03-05 06:07:09\t then\n");
    EXPECT_EQ(out.Take(), "");

    Device::Fail("localtime", EOVERFLOW);
    Trace{"/mnt/sdcard/log/own.log", 1, 0}("lost clock\n");
    EXPECT_EQ(device.Read("/mnt/sdcard/log/own.log"), "00-00 00:00:00\tlost clock\n");

    device.Remove("/mnt/sdcard/log");
    Device::ForgetCalls();
    GENERAL_LOG("Meter: %d%%\n", 5);
    EXPECT_EQ(out.Take(), "Meter: 5%\n");
    EXPECT_EQ(Device::Calls("time"), 0);
}

TEST(Assert, ReportsTheSourceTextAndGoesOn) {
    StdoutCapture out;
    int evaluated = 0;
    int fd = 64;
    // clang-format off
    ASSERT_REPORT(fd<64);
    const int line = __LINE__ - 1;
    // clang-format on
    ASSERT_REPORT(++evaluated == 1);
    EXPECT_EQ(out.Take(), "***********Assert failed.file=TraceTest,line=" + std::to_string(line) +
                              ",exp=fd<64\n");
    EXPECT_EQ(evaluated, 1);

    // The stem is found in any path that a build system may give.
    for (const char* path : {"stem", "stem.cpp", "/a.b/stem.cpp", "../x/stem"}) {
        ReportFailedAssertion(path, 1, "false");
        EXPECT_EQ(out.Take(), "***********Assert failed.file=stem,line=1,exp=false\n") << path;
    }
    ReportFailedAssertion("a/stem.test.cpp", 1, "false");
    EXPECT_EQ(out.Take(), "***********Assert failed.file=stem.test,line=1,exp=false\n");
}

TEST(TraceSetting, NamesAndCodes) {
    const struct {
        const char* name;
        int level;
        int way;
    } values[] = {
        {"Disabled", 0, 0}, {"verbose", 4, 0}, {"WARN", 2, 0},    {"Fatal", 0, 0}, {"None", 0, 0},
        {"stdout", 0, 1},   {"TTYP3", 0, 7},   {"private", 0, 3}, {"ttyp5", 0, 9}, {"ttyp6", 0, 0},
        {"3", 3, 3},        {"7", 7, 7},       {" +12x", 12, 12}, {"300", 44, 44}, {"-1", 255, 255},
        {"", 0, 0},         {"Warn ", 0, 0},   {nullptr, 0, 0},
    };
    for (const auto& v : values) {
        EXPECT_EQ(MAKE_TRACE_LEVEL_VAL(v.name), v.level) << v.name;
        EXPECT_EQ(MAKE_TRACE_WAY_VAL(v.name), v.way) << v.name;
    }
    const char* levels[] = {"Disabled", "Error", "Warn", "Info", "Verbose", "invalid"};
    const char* ways[] = {"None",  "Stdout", "Public", "Private", "ttyp0",  "ttyp1",
                          "ttyp2", "ttyp3",  "ttyp4",  "ttyp5",   "invalid"};
    for (unsigned code = 0; code < 256; ++code) {
        char level[9];
        char way[8];
        EXPECT_EQ(MAKE_TRACE_LEVEL_KEY(static_cast<unsigned char>(code), level), 0);
        EXPECT_EQ(MAKE_TRACE_WAY_KEY(static_cast<unsigned char>(code), way), 0);
        EXPECT_STREQ(level, levels[code < 5 ? code : 5]);
        EXPECT_STREQ(way, ways[code < 10 ? code : 10]);
    }
}

} // namespace
