#include "mavkit/time/TimeLayout.h"
#include "time/LayoutFields.h"
#include "time/TimeText.h"

namespace {

TEST(TimeLayout, EveryPairOfCodes) {
    Device device;
    const Zone zone(kShanghai);
    Device::HoldClock(At("2025-07-14 15:16:17"));
    const std::string letters = "smhwDMYC";
    const std::string now = Bytes("17 16 15 01 14 07 25 20");
    const std::string given = Bytes("08 07 06 F9 05 03 24 19");
    for (int codes = 0; codes <= 0xFFFF; ++codes) {
        const auto fmtIn = static_cast<unsigned char>(codes >> 8);
        const auto fmtOut = static_cast<unsigned char>(codes);
        const std::string in = LayoutFields(fmtIn);
        const std::string out = LayoutFields(fmtOut);
        const bool valid = !in.empty() && !out.empty();
        std::string merged = now;
        std::string source;
        for (const char f : in)
            source += merged[letters.find(f)] = given[letters.find(f)];
        if (in.find('D') != in.npos && in.find('w') == in.npos) {
            char date[16];
            snprintf(date, sizeof date, "%02x%02x-%02x-%02x", merged[7], merged[6], merged[5],
                     merged[4]);
            merged[3] = static_cast<char>(FieldsOf(At(date)).tm_wday);
        }
        std::string want;
        for (const char f : valid ? out : "")
            want += merged[letters.find(f)];
        for (const bool inPlace : {false, true}) {
            std::string from = source + std::string(9 - source.size(), '\x5A');
            std::string other(9, '\x5A');
            std::string& to = inPlace ? from : other;
            const std::string whole = want + to.substr(want.size());
            Device::ForgetCalls();
            ASSERT_EQ(ExchangeBCDTime(fmtIn, Unsigned(from), fmtOut, Unsigned(to)), valid ? 0 : -1)
                << std::hex << codes;
            ASSERT_EQ(to, whole) << std::hex << codes;
            ASSERT_EQ(Device::Calls("time"), valid && fmtIn != fmtOut ? 1 : 0);
        }
    }
}

TEST(TimeLayout, PeculiarValues) {
    Device device;
    const Zone zone(kShanghai);
    Device::HoldClock(At("2025-07-14"));
    Device::Fail("mktime", EOVERFLOW, 1, 1);
    // A code and its bytes, in and out.
    static const char* const kPairs[][2] = {
        {"46 23 02 29", "E4 03 29 02 23"}, // weekday of what mktime makes of it, March 1
        {"64 05 03 24", "C4 04 05"},       // mktime fails: the weekday of the time -1
        {"13 FF EE DD", "31 DD EE FF"}};   // not tested, not touched
    for (const auto& [given, wanted] : kPairs) {
        const std::string in = Bytes(given);
        const std::string want = Bytes(wanted);
        std::string out = want.substr(0, 1) + std::string(want.size() - 1, '\0');
        unsigned char* const to = Unsigned(out);
        EXPECT_EQ(ExchangeBCDTime(Unsigned(in)[0], Unsigned(in) + 1, to[0], to + 1), 0);
        EXPECT_EQ(out, want) << given;
    }
}

} // namespace
