// Renderings of bytes and times, and the dump stream in both its modes.
#include "device/Device.h"
#include "mavkit/diag/MavDump.h"
#include "mavkit/diag/PrintString.h"
#include "mavkit/encoding/MavString.h"

#include <cfloat>
#include <climits>
#include <gtest/gtest.h>

namespace {

TEST(PrintString, RendersBytes) {
    std::string group;
    for (int i = 0; i < 36; ++i)
        group += "AB ";
    const std::string ab(80, '\xAB');
    const struct {
        std::string data;
        bool asHex;
        unsigned maxLen;
        std::string expected;
    } cases[] = {
        {std::string("\x01\x02\xAB"), true, 0, "01 02 AB "},
        {"", true, 0, ""},
        {"", true, 4, ""},
        {ab.substr(0, 36), true, 0, group + "\n"},
        {ab.substr(0, 40), true, 0, group + "\nAB AB AB AB "},
        {ab.substr(0, 72), true, 0, group + "\n" + group + "\n"},
        {ab.substr(0, 37), true, 36, group + "\n......"},
        {ab.substr(0, 10), true, 4, "AB AB AB AB ......"},
        {ab.substr(0, 4), true, 4, "AB AB AB AB "},
        {std::string("a\0\xFF", 3), false, 0, std::string("a\0\xFF", 3)},
        {"abcd", false, 3, "abc......"},
    };
    for (const auto& c : cases) {
        std::string out = "head ";
        GetPrintString(out, c.data.data(), static_cast<unsigned>(c.data.size()), c.asHex, c.maxLen);
        EXPECT_EQ(out, "head " + c.expected);
    }
    std::string out;
    GetPrintString(out, nullptr, 5, true, 0);
    GetBcdTimeString(out, nullptr);
    EXPECT_EQ(out, "");
    const unsigned char time[] = {0x19, 0x99, 0x12, 0x31, 0x23, 0x59, 0x1A};
    GetBcdTimeString(out, time);
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

template <typename Value>
std::string Piece(Value value) {
    return Dumped([&](MavDump& dump) { EXPECT_EQ(&(dump << value), &dump); });
}

template <typename Value>
std::string Hex(Value value) {
    return Dumped([&](MavDump& dump) { EXPECT_EQ(&dump.DumpAsHex(value), &dump); });
}

TEST(MavDump, FormatsEveryValue) {
    const Zone zone("UTC0");
    EXPECT_EQ(Piece("text %s"), "text %s");
    EXPECT_EQ(Piece(static_cast<const char*>(nullptr)), "NULL");
    EXPECT_EQ(Piece(INT_MIN), "-2147483648");
    EXPECT_EQ(Piece(UINT_MAX), "4294967295");
    EXPECT_EQ(Piece(LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(Piece(ULLONG_MAX), "18446744073709551615");
    EXPECT_EQ(Piece(1.5), "1.500000");
    EXPECT_EQ(Piece(-DBL_MAX).size(), 317U);
    EXPECT_EQ(Piece(0L), "NullTime");
    EXPECT_EQ(Piece(86400L), "1970-01-02 00:00:00");
    EXPECT_EQ(Piece(-1L), "1969-12-31 23:59:59");
    if (sizeof(long) == 8) {
        EXPECT_EQ(Piece(LONG_MAX), "invalid time 9223372036854775807");
    }
    EXPECT_EQ(Piece(LEVEL_INFO), "Info");
    EXPECT_EQ(Piece(static_cast<_TRACE_LEVEL>(7)), "invalid");
    EXPECT_EQ(Piece(static_cast<_TRACE_LEVEL>(0x102)), "Warn");
    EXPECT_EQ(Piece(WAY_TTYP5), "ttyp5");
    EXPECT_EQ(Piece(static_cast<_EXPORT_WAY>(-1)), "invalid");
    EXPECT_EQ(Hex(static_cast<unsigned char>(10)), "0A");
    EXPECT_EQ(Hex(static_cast<unsigned short>(0x1F)), "001F");
    EXPECT_EQ(Hex(0x1FU), "0000001F");
    EXPECT_EQ(Hex(0x1FULL), "1F");

    strings list;
    EXPECT_EQ(Piece(list), "");
    list.addfrom("a,,b", ",", true);
    EXPECT_EQ(Piece(list), "ab");

    TraceSetting setting;
    setting.traceWay = 77;
    setting.maxSize = -5;
    for (char& c : setting.name)
        c = 'n'; // no terminator
    EXPECT_EQ(Piece(setting), "prefixOn=1 level=Verbose traceWay=invalid dataWay=None scheWay=None "
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

    const Zone zone("UTC0");
    Device device;
    Device::HoldClock(1709618828);
    StdoutCapture out;
    MavDump traced(LEVEL_VERBOSE, 0);
    traced.OutputString(nullptr);
    EXPECT_EQ(out.Take(), "");
    dump(traced);
    EXPECT_EQ(out.Take(), "kor(03-05 06:07:08):" + expected);
    MavDump quiet(LEVEL_VERBOSE + 1, 0);
    dump(quiet);
    EXPECT_EQ(out.Take(), "");
}

} // namespace
