// When a record expires, and a record without memory. fuzz/IpcInfoBytes.cpp tries any bytes as a
// record; docs/formats.md shows, and checks, its layout.
#include "mavkit/ipc/IpcInfo.h"
#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <new>

namespace {

TEST(IpcInfoTest, NeedsABuffer) {
    EXPECT_EQ(0U, IpcInfo().Serialize(nullptr, 1000));
    EXPECT_EQ(0U, IpcInfo().Deserialize(nullptr, 100));
}

TEST(IpcInfoTest, WithoutMemoryNoStringChanges) {
    const Device device;
    IpcInfo sent;
    sent.type = 7;
    for (ByteString* bytes : {&sent.bytes1, &sent.bytes2, &sent.bytes3})
        bytes->assign(100, 'x');
    unsigned char flat[332];
    ASSERT_EQ(sizeof flat, sent.Serialize(flat, sizeof flat));
    for (int skip = 0; skip < 3; ++skip) {
        IpcInfo info;
        Device::Fail("new", ENOMEM, 1, skip);
        EXPECT_THROW(info.Deserialize(flat, sizeof flat), std::bad_alloc) << skip;
        EXPECT_EQ(7, info.type);
        EXPECT_EQ(0U, info.bytes1.size() + info.bytes2.size() + info.bytes3.size()) << skip;
    }
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
    info.createTime = 1; // after 2106, when time_t is wide enough
    Device::HoldClock(static_cast<std::time_t>(0x100000001LL));
    EXPECT_EQ(sizeof(std::time_t) == 4, info.IsValid());
}

} // namespace
