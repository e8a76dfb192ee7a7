#include "mavkit/time/TimeLayout.h"

#include "device/Device.h"
#include "time/TimeText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>

namespace {

/// The fields of a layout, a letter each, written out from the rules of the code; empty for an
/// invalid one.
std::string Fields(int code) {
    static const char kLetters[] = "?smhDMYC";
    const int start = code % 8;
    const int end = code / 16 % 8;
    if (start == 0 || end == 0) {
        return "";
    }
    std::string run;
    const int step = end < start ? -1 : 1;
    for (int f = start; f != end + step; f += step) {
        run += kLetters[f];
    }
    if (code >= 0x80) {
        const size_t hour = run.find('h');
        const size_t day = run.find('D');
        if (hour == run.npos && day == run.npos) {
            return "";
        }
        // The weekday follows the hour on the way up and the day on the way down.
        const size_t first = step > 0 ? hour : day;
        run.insert(first != run.npos ? first + 1 : (step > 0 ? day : hour), 1, 'w');
    }
    return run;
}

/// Sunday is 0; the date in decimal digits as BCD shows them.
int WeekdayOf(std::map<char, int>& bcd) {
    const auto number = [&](char f) { return bcd[f] / 16 * 10 + bcd[f] % 16; };
    int y = number('C') * 100 + number('Y');
    static const int kMonths[] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
    y -= number('M') < 3 ? 1 : 0;
    return (y + y / 4 - y / 100 + y / 400 + kMonths[number('M') - 1] + number('D')) % 7;
}

TEST(TimeLayout, EveryPairOfCodes) {
    Device device;
    const Zone zone(kShanghai);
    Device::HoldClock(At("2025-07-14 15:16:17"));
    const std::map<char, int> now = {{'s', 0x17}, {'m', 0x16}, {'h', 0x15}, {'w', 0x01},
                                     {'D', 0x14}, {'M', 0x07}, {'Y', 0x25}, {'C', 0x20}};
    const std::map<char, int> given = {{'s', 0x08}, {'m', 0x07}, {'h', 0x06}, {'w', 0xF9},
                                       {'D', 0x05}, {'M', 0x03}, {'Y', 0x24}, {'C', 0x19}};
    for (int fmtIn = 0; fmtIn <= 0xFF; ++fmtIn) {
        const std::string in = Fields(fmtIn);
        std::map<char, int> merged = now;
        std::string source;
        for (const char f : in) {
            merged[f] = given.at(f);
            source += static_cast<char>(given.at(f));
        }
        if (in.find('D') != in.npos && in.find('w') == in.npos) {
            merged['w'] = WeekdayOf(merged);
        }
        for (int fmtOut = 0; fmtOut <= 0xFF; ++fmtOut) {
            const std::string out = Fields(fmtOut);
            const bool valid = !in.empty() && !out.empty();
            std::string want;
            for (const char f : valid ? out : "") {
                want += static_cast<char>(merged.at(f));
            }
            std::string from = source;
            std::string to(9, '\x5A');
            ASSERT_EQ(ExchangeBCDTime(static_cast<unsigned char>(fmtIn), Unsigned(from),
                                      static_cast<unsigned char>(fmtOut), Unsigned(to)),
                      valid ? 0 : -1)
                << std::hex << fmtIn << " to " << fmtOut;
            ASSERT_EQ(to, want + std::string(9 - want.size(), '\x5A'))
                << std::hex << fmtIn << " to " << fmtOut;
            if (fmtOut % 16 < 8) { // the same in place
                std::string both = source + std::string(9 - source.size(), '\x5A');
                ExchangeBCDTime(static_cast<unsigned char>(fmtIn), Unsigned(both),
                                static_cast<unsigned char>(fmtOut), Unsigned(both));
                ASSERT_EQ(both.substr(0, want.size()), want) << std::hex << fmtIn << " " << fmtOut;
            }
        }
    }
}

TEST(TimeLayout, KnownLayouts) {
    Device device;
    const Zone zone(kShanghai);
    Device::HoldClock(At("2025-07-14 15:16:17"));
    static const struct {
        int fmtIn;
        const char* in;
        int fmtOut;
        const char* out;
    } kPairs[] = {
        {0x17, "20 24 03 05 06 07 08", 0x97, "20 24 03 05 02 06 07 08"},
        {0x45, "03 05", 0x97, "20 25 03 05 03 15 16 17"},
        {0x11, "08", 0xC4, "01 14"},             // no day given: today's weekday
        {0x46, "23 02 29", 0xE4, "03 29 02 23"}, // weekday of what mktime makes of it, March 1
        {0x13, "FF EE DD", 0x31, "DD EE FF"},    // not tested, not touched
    };
    for (const auto& c : kPairs) {
        std::string in = Bytes(c.in);
        std::string out(Bytes(c.out).size(), '\0');
        EXPECT_EQ(ExchangeBCDTime(static_cast<unsigned char>(c.fmtIn), Unsigned(in),
                                  static_cast<unsigned char>(c.fmtOut), Unsigned(out)),
                  0);
        EXPECT_EQ(out, Bytes(c.out)) << c.in << " as " << c.out;
    }
    std::string date = Bytes("05 03 24");
    std::string weekday(2, '\0');
    Device::Fail("mktime", EOVERFLOW); // the weekday of the time -1
    EXPECT_EQ(ExchangeBCDTime(0x64, Unsigned(date), 0xC4, Unsigned(weekday)), 0);
    EXPECT_EQ(weekday, Bytes("04 05"));
    Device::ForgetCalls();
    std::string same = "\x01\x02\x03\x04\x05\x06\x07";
    std::string copy(7, '\0');
    EXPECT_EQ(ExchangeBCDTime(0xE1, Unsigned(same), 0xE1, Unsigned(copy)), 0);
    EXPECT_EQ(copy, same);
    EXPECT_EQ(Device::Calls("time"), 0);
}

} // namespace
