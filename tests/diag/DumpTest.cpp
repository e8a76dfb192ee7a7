// Renderings of bytes and times, and the dump stream in both its modes.
#include "device/Device.h"
#include "mavkit/diag/MavDump.h"
#include "mavkit/diag/PrintString.h"
#include "mavkit/encoding/MavString.h"

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <vector>

namespace {

TEST(PrintString, RendersBytes) {
    const auto render = [](const std::string& data, bool asHex, unsigned maxLen) {
        std::string out = "head ";
        GetPrintString(out, data.data(), static_cast<unsigned>(data.size()), asHex, maxLen);
        return out;
    };
    const unsigned cases[][2] = {{0, 0},  {0, 4},  {4, 4},  {10, 4},
                                 {36, 0}, {72, 0}, {40, 0}, {37, 36}};
    for (const auto& [length, most] : cases) {
        std::string expected = "head ";
        for (unsigned i = 1; i <= (most != 0 ? std::min(most, length) : length); ++i)
            expected += i % 36 == 0 ? "AB \n" : "AB ";
        expected += most != 0 && most < length ? "......" : "";
        EXPECT_EQ(expected, render(std::string(length, '\xAB'), true, most));
    }
    const std::string text("ab\0\xFF", 4);
    EXPECT_EQ("head 01 02 CD ", render("\x01\x02\xCD", true, 0));
    EXPECT_EQ("head " + text, render(text, false, 0));
    EXPECT_EQ("head ab......", render(text, false, 2));
    std::string out;
    GetPrintString(out, nullptr, 5, true, 0);
    GetBcdTimeString(out, nullptr);
    EXPECT_EQ("", out);
    GetBcdTimeString(out, reinterpret_cast<const unsigned char*>("\x19\x99\x12\x31\x23\xF9\x1A"));
    EXPECT_EQ("1999-12-31 23:F9:1A", out);
}

// What `write` puts into a stream.
template <typename Write>
std::string Dumped(Write write) {
    std::FILE* file = std::tmpfile();
    MavDump dump(file);
    write(dump);
    std::rewind(file);
    char text[512];
    const std::size_t length = std::fread(text, 1, sizeof text, file);
    std::fclose(file);
    return {text, length};
}

TEST(MavDump, FormatsEveryValue) {
    const Zone zone("UTC0");
    const char* null = nullptr;
    const unsigned char byte = 10;
    const unsigned short word = 0x1F;
    strings none, list;
    list.addfrom("a,,b", ",", true);
    EXPECT_EQ("text %s|NULL||ab|1.500000|"
              "-2147483648|4294967295|-9223372036854775808|18446744073709551615",
              Dumped([&](MavDump& dump) {
                  dump << "text %s|" << null << "|" << none << "|" << list << "|" << 1.5 << "|";
                  dump << INT_MIN << "|" << UINT_MAX << "|" << LLONG_MIN << "|" << ULLONG_MAX;
              }));
    EXPECT_EQ("InfoinvalidWarn|ttyp5invalid|NullTime|1970-01-02 00:00:00|1969-12-31 23:59:59"
              "0A001F0000001F1F|",
              Dumped([&](MavDump& dump) {
                  dump << LEVEL_INFO << _TRACE_LEVEL(7) << _TRACE_LEVEL(0x102) << "|";
                  dump << WAY_TTYP5 << _EXPORT_WAY(-1) << "|" << 0L << "|" << 86400L << "|" << -1L;
                  dump.DumpAsHex(byte).DumpAsHex(word).DumpAsHex(0x1FU).DumpAsHex(0x1FULL) << "|";
              }));
    const std::vector<unsigned char> block(100); // rendered whole, with two line feeds
    EXPECT_EQ(302U, Dumped([&](MavDump& dump) { dump.DumpAsHex(block.data(), 100); }).size());
    Device::Fail("localtime", EOVERFLOW);
    EXPECT_EQ("invalid time -5", Dumped([](MavDump& dump) { dump << -5L; }));
    EXPECT_EQ(317U, Dumped([](MavDump& dump) { dump << -DBL_MAX; }).size());

    TraceSetting setting;
    setting.traceWay = 77;
    setting.dataWay = WAY_PUBLIC;
    setting.maxSize = -5;
    std::fill(std::begin(setting.name), std::end(setting.name), 'n'); // no terminator
    EXPECT_EQ("prefixOn=1 level=Verbose traceWay=invalid dataWay=Public scheWay=None "
              "name=nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn maxSize=-5",
              Dumped([&](MavDump& dump) { dump << setting; }));
    // What a caller does to the built-in setting is undone by the next call.
    const MavTrace trace(LEVEL_INFO, 0);
    const_cast<TraceSetting&>(trace.GetSetting()) = setting;
    EXPECT_EQ("prefixOn=1 level=Verbose traceWay=Stdout dataWay=None scheWay=None "
              "name=Command maxSize=50000",
              Dumped([&](MavDump& dump) { dump << trace.GetSetting(); }));
}

TEST(MavDump, PiecesRunOnInOneLineWithOnePrefix) {
    const unsigned char bytes[] = {0x20, 0x24, 0x03, 0x05, 0x06, 0x07, 0x08};
    const auto dump = [&](MavDump& d) {
        d.OutputString(nullptr);
        d << "%d " << 12; // a text, not a format
        d.DumpChar(' ').DumpAsHex(bytes, 2).DumpBcd7Time(bytes) << "\n";
    };
    const std::string expected = "%d 12 20 24 2024-03-05 06:07:08\n";
    EXPECT_EQ(expected, Dumped(dump));

    Terminal terminal;
    MavTrace::Setting = nullptr;
    MavDump traced(LEVEL_VERBOSE, 0), silent(LEVEL_VERBOSE + 1, 0);
    dump(silent);
    dump(traced);
    EXPECT_EQ("kor(03-05 06:07:08):" + expected, terminal.out.Take());
    MavTrace::Setting = &terminal.setting;
    terminal.setting.dataWay = WAY_PUBLIC;
    MavDump flagged(LEVEL_VERBOSE + 1, 1);
    dump(flagged);
    EXPECT_EQ(expected, terminal.device.TraceFile("data.log"));
}

} // namespace
