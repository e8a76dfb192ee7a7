#include "mavkit/ipc/IpcInfo.h"

#include "device/Device.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

ByteString Bytes(const std::string& text) { return ByteString(text.begin(), text.end()); }

// A record of `length` bytes in a heap block of its own, so that a sanitizer sees a read beyond it.
struct Flat {
    explicit Flat(unsigned int size) : bytes(new unsigned char[size]()), length(size) {}
    void Put(unsigned int slot, unsigned int value) const {
        for (unsigned int i = 0; i < 4; ++i)
            bytes[slot * 4 + i] = static_cast<unsigned char>(value >> (8 * i));
    }
    std::unique_ptr<unsigned char[]> bytes;
    unsigned int length;
};

TEST(IpcInfoTest, WritesTheFlatRecordAsLaidOut) {
    IpcInfo info;
    info.first = 1;
    info.second = -2;
    info.type = INT_MIN;
    info.createTime = 0x65E6B3D8;
    info.lifetime = 0xFFFFFFFF;
    info.bytes1 = Bytes(std::string("ab\0c", 4)); // text: cut at its zero byte, at full length
    info.bytes3 = Bytes("xyz");
    const unsigned char expected[] = {1, 0,    0,    0,    0xFE, 0xFF, 0xFF, 0xFF, 0,    0,
                                      0, 0x80, 0xD8, 0xB3, 0xE6, 0x65, 0xFF, 0xFF, 0xFF, 0xFF,
                                      4, 0,    0,    0,    0,    0,    0,    0,    3,    0,
                                      0, 0,    'a',  'b',  0,    0,    'x',  'y',  'z'};
    Flat flat(sizeof expected);
    EXPECT_EQ(0U, info.Serialize(flat.bytes.get(), flat.length - 1));
    EXPECT_EQ(0U, info.Serialize(nullptr, 1000));
    EXPECT_EQ(std::string(flat.length, '\0'), std::string(flat.bytes.get(), &flat.bytes[39]));
    ASSERT_EQ(39U, info.Serialize(flat.bytes.get(), flat.length));
    EXPECT_EQ(0, std::memcmp(expected, flat.bytes.get(), sizeof expected));
    Flat head(32);
    EXPECT_EQ(32U, IpcInfo().Serialize(head.bytes.get(), 32));
    EXPECT_EQ(0U, IpcInfo().Serialize(head.bytes.get(), 31));
}

TEST(IpcInfoTest, ReadsBackWhatWasWritten) {
    for (int number : {0, 1, -1, 999, 1000, 0x7F80FF00, INT_MAX, INT_MIN}) {
        IpcInfo sent;
        sent.first = sent.type = number;
        sent.second = sent.createTime = -(number / 2) - 1;
        sent.lifetime = static_cast<unsigned int>(number);
        sent.bytes1 = Bytes(std::string(70000, 'l'));
        sent.bytes2 = Bytes("\xFF\x80 z");
        Flat flat(32 + 70004 + 3);
        const unsigned int length = sent.Serialize(flat.bytes.get(), flat.length);
        IpcInfo got;
        // Further bytes behind the record are not its own.
        EXPECT_EQ(length, got.Deserialize(flat.bytes.get(), flat.length));
        EXPECT_EQ(number, got.first);
        EXPECT_EQ(sent.second, got.second);
        EXPECT_EQ(number, got.type);
        EXPECT_EQ(sent.createTime, got.createTime);
        EXPECT_EQ(sent.lifetime, got.lifetime);
        EXPECT_TRUE(got.bytes1 == sent.bytes1 && got.bytes2 == sent.bytes2 && got.bytes3.empty());
    }
}

TEST(IpcInfoTest, AppendsStringsWithTheirZeroBytes) {
    Flat flat(32 + 6);
    for (unsigned int slot : {5U, 6U, 7U})
        flat.Put(slot, 2);
    std::memcpy(&flat.bytes[32], "a\0b\0cd", 6);
    IpcInfo info;
    EXPECT_EQ(38U, info.Deserialize(flat.bytes.get(), flat.length));
    EXPECT_EQ(44U, info.Deserialize(flat.bytes.get(), flat.length));
    EXPECT_TRUE(info.bytes1 == Bytes(std::string("a\0a\0", 4)));
    EXPECT_TRUE(info.bytes2 == Bytes(std::string("b\0b\0", 4)) && info.bytes3 == Bytes("cdcd"));
}

TEST(IpcInfoTest, RefusesWhatIsShorterThanItSays) {
    IpcInfo info;
    info.first = 5;
    info.bytes1 = Bytes("kept");
    EXPECT_EQ(0U, info.Deserialize(nullptr, 100));
    for (unsigned int length : {0U, 20U, 31U})
        EXPECT_EQ(0U, info.Deserialize(Flat(length).bytes.get(), length));
    EXPECT_EQ(5, info.first); // not even the head was there
    const unsigned int hostile[][3] = {{9, 0, 0},
                                       {3, 3, 3},
                                       {0, 0, 0xFFFFFFFF},
                                       {0xFFFFFFFF, 1, 0}, // sums that are small in 32 bits
                                       {0x80000000, 0x80000000, 8},
                                       {0xFFFFFFFF, 0xFFFFFFFF, 2}};
    for (const auto& lengths : hostile) {
        Flat flat(32 + 8);
        flat.Put(0, 77);
        for (unsigned int i = 0; i < 3; ++i)
            flat.Put(5 + i, lengths[i]);
        info.first = 5;
        EXPECT_EQ(0U, info.Deserialize(flat.bytes.get(), flat.length)) << lengths[0];
        EXPECT_EQ(77, info.first);
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
        {7, now - 10, 10, true},   {7, now - 11, 10, false},
        {7, now + 5, 1, true},     {7, now, 1, true},
        {7, 1, 0xFFFFFFFF, true},  {7, 1, 0x7FFFFFFF, true},
        {7, 1, now - 2, false},    {7, 1, now - 1, true},
        {7, 1, 0, true},           {7, 0, 1, true},
        {7, -1, 1, true},          {7, INT_MIN, 1, true},
        {0, now, 100, false},      {0, now - 11, 10, false},
        {-3, now - 11, 10, false}, {INT_MAX, INT_MAX, 1, true},
    };
    Device device;
    Zone zone("UTC0");
    Device::HoldClock(now);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.type << ' ' << c.createTime << ' ' << c.lifetime);
        device.Remove(Device::kGeneralLog);
        IpcInfo info;
        info.type = c.type;
        info.createTime = c.createTime;
        info.lifetime = c.lifetime;
        EXPECT_EQ(c.valid, info.IsValid());
        EXPECT_EQ(c.valid || c.type == 0
                      ? ""
                      : "03-05 06:08:08\tIpcInfo: Rpc info was expired.Type is " +
                            std::to_string(c.type) + "\n",
                  device.GeneralLog());
    }
}

} // namespace
