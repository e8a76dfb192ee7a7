// The flat record as it is laid out, and the end of a record's life. Any bytes as a record are tried
// in fuzz/IpcInfoBytes.cpp.
#include "mavkit/ipc/IpcInfo.h"
#include "device/Device.h"

#include <climits>

namespace {

using Flat = std::vector<unsigned char>;

ByteString Bytes(const std::string& text) { return ByteString(text.begin(), text.end()); }

TEST(IpcInfoTest, WritesAndReadsTheFlatRecord) {
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
    Flat flat(41, '\t');
    EXPECT_EQ(0U, info.Serialize(flat.data(), 38));
    EXPECT_EQ(Flat(41, '\t'), flat);
    EXPECT_EQ(39U, info.Serialize(flat.data(), 41));
    EXPECT_EQ(Flat(text.begin(), text.end()), flat);
    EXPECT_EQ(32U, IpcInfo().Serialize(flat.data(), 32));
    EXPECT_EQ(0U, info.Serialize(nullptr, 1000));

    IpcInfo got;
    EXPECT_EQ(0U, got.Deserialize(nullptr, 100));
    flat.assign(text.begin(), text.end());
    EXPECT_EQ(39U, got.Deserialize(flat.data(), 41));
    EXPECT_TRUE(got.first == 1 && got.second == -2 && got.type == INT_MIN);
}

TEST(IpcInfoTest, ExpiresAfterItsLifetime) {
    Terminal terminal;
    const int now = static_cast<int>(Terminal::kNow);
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
    std::string log;
    IpcInfo info;
    for (const auto& c : cases) {
        info.type = c.type;
        info.createTime = c.createTime;
        info.lifetime = c.lifetime;
        EXPECT_EQ(c.valid, info.IsValid()) << c.type << ' ' << c.createTime << ' ' << c.lifetime;
        if (!c.valid && c.type != 0)
            log += "03-05 06:07:08\tIpcInfo: Rpc info was expired.Type is " +
                   std::to_string(c.type) + "\n";
        EXPECT_EQ(log, terminal.device.GeneralLog());
    }
    info.createTime = 1; // past 2106, where time_t can tell
    Device::HoldClock(static_cast<std::time_t>(0x100000001LL));
    EXPECT_EQ(sizeof(std::time_t) == 4, info.IsValid());
}

} // namespace
