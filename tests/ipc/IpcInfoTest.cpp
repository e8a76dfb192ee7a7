#include "mavkit/ipc/IpcInfo.h"

#include "device/Device.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Flat = std::vector<unsigned char>; // on the heap, at its exact length: a sanitizer guards it

ByteString Bytes(const std::string& text) { return ByteString(text.begin(), text.end()); }

unsigned int Write(const IpcInfo& info, Flat& flat) {
    return info.Serialize(flat.data(), static_cast<unsigned int>(flat.size()));
}

unsigned int Read(IpcInfo& info, Flat flat) {
    return info.Deserialize(flat.data(), static_cast<unsigned int>(flat.size()));
}

TEST(IpcInfoTest, WritesTheFlatRecordAsLaidOut) {
    IpcInfo info;
    info.first = 1;
    info.second = -2;
    info.type = INT_MIN;
    info.createTime = 0x65E6B3D8;
    info.lifetime = 0xFFFFFFFF;
    info.bytes1 = Bytes(std::string("ab\0c", 4)); // text: cut at its zero byte, at full length
    info.bytes3 = Bytes("xyz");
    const std::string text("\1\0\0\0\xFE\xFF\xFF\xFF\0\0\0\x80\xD8\xB3\xE6\x65\xFF\xFF\xFF\xFF"
                           "\4\0\0\0\0\0\0\0\3\0\0\0ab\0\0xyz\t\t",
                           41);
    Flat small(38, '\t'), large(41, '\t'), head(32);
    EXPECT_EQ(0U, Write(info, small));
    EXPECT_EQ(Flat(38, '\t'), small);
    EXPECT_EQ(39U, Write(info, large));
    EXPECT_EQ(Flat(text.begin(), text.end()), large);
    EXPECT_EQ(32U, Write(IpcInfo(), head));
    EXPECT_EQ(0U, info.Serialize(nullptr, 1000));
}

TEST(IpcInfoTest, ReadsBackWhatWasWritten) {
    for (int number : {0, 1, -1, 1000, 0x7F80FF00, INT_MAX, INT_MIN}) {
        IpcInfo sent, got;
        sent.first = sent.type = number;
        sent.second = sent.createTime = ~number;
        sent.lifetime = static_cast<unsigned int>(number);
        sent.bytes1 = Bytes(std::string(70000, 'l'));
        sent.bytes2 = Bytes("\xFF\x80 z");
        Flat flat(32 + 70004);
        const unsigned int length = Write(sent, flat);
        flat.push_back('+'); // behind the record: left alone
        EXPECT_EQ(length, Read(got, flat));
        EXPECT_TRUE(got.first == number && got.second == ~number && got.type == number);
        EXPECT_TRUE(got.createTime == ~number && got.lifetime == sent.lifetime);
        EXPECT_TRUE(got.bytes1 == sent.bytes1 && got.bytes2 == sent.bytes2 && got.bytes3.empty());
    }
    Flat flat(32 + 6, 0); // "\0\0", "ab" and "\0\0"
    flat[20] = flat[24] = flat[28] = 2;
    flat[34] = 'a', flat[35] = 'b';
    IpcInfo twice;
    EXPECT_EQ(38U, Read(twice, flat));
    EXPECT_EQ(44U, Read(twice, flat)); // the strings are appended to
    EXPECT_TRUE(twice.bytes1 == ByteString(4, 0) && twice.bytes2 == Bytes("abab"));
}

TEST(IpcInfoTest, RefusesWhatIsShorterThanItSays) {
    IpcInfo info;
    info.first = 5;
    info.bytes1 = Bytes("kept");
    EXPECT_EQ(0U, info.Deserialize(nullptr, 100));
    for (std::size_t length : {0U, 20U, 31U})
        EXPECT_EQ(0U, Read(info, Flat(length)));
    EXPECT_EQ(5, info.first);
    for (const std::vector<unsigned int>& lengths : std::vector<std::vector<unsigned int>>{
             {3, 3, 3}, {0, 0, 9}, {~0U, 1, 0}, {1U << 31, 1U << 31, 8}, {~0U, ~0U, 2}}) {
        Flat flat(32 + 8); // the last three come to a small sum in 32 bits
        for (unsigned int i = 0; i < 12; ++i)
            flat[20 + i] = static_cast<unsigned char>(lengths[i / 4] >> (i % 4 * 8));
        info.first = 5;
        EXPECT_EQ(0U, Read(info, flat)) << lengths[0];
        EXPECT_EQ(0, info.first); // the numbers come before the check
        EXPECT_TRUE(info.bytes1 == Bytes("kept") && info.bytes2.empty() && info.bytes3.empty());
    }
}

TEST(IpcInfoTest, ExpiresAfterItsLifetime) {
    const int now = 1709618888;
    const struct {
        int type, createTime;
        unsigned int lifetime;
        bool valid;
    } cases[] = {
        {7, now - 10, 10, true},  {7, now - 11, 10, false},  {7, now + 5, 1, true},
        {7, 1, 0xFFFFFFFF, true}, {7, 1, now - 2, false},    {7, 1, 0, true},
        {7, 0, 1, true},          {7, INT_MIN, 1, true},     {0, now, 100, false},
        {0, now - 11, 10, false}, {-3, now - 11, 10, false},
    };
    Device device;
    Zone zone("UTC0");
    Device::HoldClock(now);
    std::string log;
    for (const auto& c : cases) {
        IpcInfo info;
        info.type = c.type;
        info.createTime = c.createTime;
        info.lifetime = c.lifetime;
        EXPECT_EQ(c.valid, info.IsValid()) << c.type << ' ' << c.createTime << ' ' << c.lifetime;
        if (!c.valid && c.type != 0)
            log += "03-05 06:08:08\tIpcInfo: Rpc info was expired.Type is " +
                   std::to_string(c.type) + "\n";
        EXPECT_EQ(log, device.GeneralLog());
    }
    IpcInfo old; // past 2106, where time_t can tell
    old.type = old.createTime = 1;
    old.lifetime = 10;
    Device::HoldClock(static_cast<std::time_t>(0x100000001LL));
    EXPECT_EQ(sizeof(std::time_t) == 4, old.IsValid());
}

} // namespace
