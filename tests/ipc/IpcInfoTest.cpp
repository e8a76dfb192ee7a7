// The end of a record's life. Any bytes as a record are tried in fuzz/IpcInfoBytes.cpp; how one is laid out
// is shown, and checked, in docs/formats.md.
#include "mavkit/ipc/IpcInfo.h"
#include "device/Device.h"

#include <climits>

namespace {

TEST(IpcInfoTest, NeedsABuffer) {
    EXPECT_EQ(0U, IpcInfo().Serialize(nullptr, 1000));
    EXPECT_EQ(0U, IpcInfo().Deserialize(nullptr, 100));
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
