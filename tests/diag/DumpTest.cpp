// Renderings of bytes and times, and the dump stream in both its modes.
#include "device/Device.h"
#include "mavkit/diag/MavDump.h"
#include "mavkit/diag/PrintString.h"
#include "mavkit/encoding/MavString.h"

#include <climits>
#include <regex>

namespace {

TEST(PrintString, RendersBytes) {
    const struct {
        unsigned length, maxLen;
        std::string expected; // = is a line of 36 bytes, - a byte
    } cases[] = {{0, 0, ""},   {0, 4, ""},    {4, 4, "----"},   {10, 4, "----......"},
                 {36, 0, "="}, {72, 0, "=="}, {40, 0, "=----"}, {37, 36, "=......"}};
    const auto render = [](const std::string& data, bool asHex, unsigned maxLen) {
        std::string out = "head ";
        GetPrintString(out, data.data(), static_cast<unsigned>(data.size()), asHex, maxLen);
        return out;
    };
    for (const auto& c : cases) {
        std::string expected =
            std::regex_replace(c.expected, std::regex("="), std::string(36, '-') + "\n");
        expected = "head " + std::regex_replace(expected, std::regex("-"), "AB ");
        EXPECT_EQ(render(std::string(c.length, '\xAB'), true, c.maxLen), expected);
    }
    const std::string text("ab\0\xFF", 4);
    EXPECT_EQ(render("\x01\x02\xCD", true, 0), "head 01 02 CD ");
    EXPECT_EQ(render(text, false, 0), "head " + text);
    EXPECT_EQ(render(text, false, 2), "head ab......");
    std::string out;
    GetPrintString(out, nullptr, 5, true, 0);
    GetBcdTimeString(out, nullptr);
    EXPECT_EQ(out, "");
    GetBcdTimeString(out, reinterpret_cast<const unsigned char*>("\x19\x99\x12\x31\x23\x59\x1A"));
    EXPECT_EQ(out, "1999-12-31 23:59:1A");
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
    EXPECT_EQ(Dumped([&](MavDump& dump) {
                  dump << "text %s|" << null << "|" << none << "|" << list << "|" << 1.5 << "|";
                  dump << INT_MIN << "|" << UINT_MAX << "|" << LLONG_MIN << "|" << ULLONG_MAX;
              }),
              "text %s|NULL||ab|1.500000|"
              "-2147483648|4294967295|-9223372036854775808|18446744073709551615");
    EXPECT_EQ(Dumped([&](MavDump& dump) {
                  dump << LEVEL_INFO << _TRACE_LEVEL(7) << _TRACE_LEVEL(0x102) << "|";
                  dump << WAY_TTYP5 << _EXPORT_WAY(-1) << "|" << 0L << "|" << 86400L << "|" << -1L;
                  dump.DumpAsHex(byte).DumpAsHex(word).DumpAsHex(0x1FU).DumpAsHex(0x1FULL) << "|";
              }),
              "InfoinvalidWarn|ttyp5invalid|NullTime|1970-01-02 00:00:00|1969-12-31 23:59:59"
              "0A001F0000001F1F|");
    if (sizeof(long) == 8) {
        EXPECT_EQ(Dumped([](MavDump& dump) { dump << LONG_MAX; }),
                  "invalid time 9223372036854775807");
    }

    TraceSetting setting;
    setting.traceWay = 77;
    setting.dataWay = WAY_PUBLIC;
    setting.maxSize = -5;
    std::fill(std::begin(setting.name), std::end(setting.name), 'n'); // no terminator
    EXPECT_EQ(Dumped([&](MavDump& dump) { dump << setting; }),
              "prefixOn=1 level=Verbose traceWay=invalid dataWay=Public scheWay=None "
              "name=nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn maxSize=-5");
}

TEST(MavDump, PiecesRunOnInOneLineWithOnePrefix) {
    const unsigned char bytes[] = {0x20, 0x24, 0x03, 0x05, 0x06, 0x07, 0x08};
    const auto dump = [&](MavDump& d) {
        d.OutputString(nullptr);
        d << "m " << 12;
        d.DumpChar(' ').DumpAsHex(bytes, 2).DumpBcd7Time(bytes) << "\n";
    };
    const std::string expected = "m 12 20 24 2024-03-05 06:07:08\n";
    EXPECT_EQ(Dumped(dump), expected);

    Terminal terminal;
    MavTrace::Setting = nullptr;
    MavDump traced(LEVEL_VERBOSE, 0), silent(LEVEL_VERBOSE + 1, 0);
    dump(silent);
    dump(traced);
    EXPECT_EQ(terminal.out.Take(), "kor(03-05 06:07:08):" + expected);
}

} // namespace
