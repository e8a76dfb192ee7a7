// Message queues: the real kernel's, full for real, removed for real.
#include "mavkit/ipc/Message.h"
#include "device/Device.h"
#include "mavkit/diag/MavTrace.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::time_t kMarch = 1709618828; // 2024-03-05 06:07:08 UTC
constexpr int kFlag = 'm';

class MessageTest : public testing::Test {
protected:
    MessageTest() : channel(kFlag), id(msgget(ftok("/root", kFlag), 0)) {
        Device::HoldClock(kMarch);
        quiet.traceWay = WAY_NONE;
        MavTrace::Setting = &quiet;
        out.Take();
    }
    ~MessageTest() override {
        msgctl(id, IPC_RMID, nullptr);
        MavTrace::Setting = nullptr;
    }

    bool Send(long type, const std::string& text) {
        return channel.SendData(reinterpret_cast<const unsigned char*>(text.data()),
                                static_cast<unsigned>(text.size()), type);
    }
    // What a receive hands over; "-" when it says no.
    std::string Receive(long selector, unsigned capacity = 8192) {
        std::string text(capacity, '\0');
        unsigned length = capacity;
        const bool got =
            channel.RecvData(reinterpret_cast<unsigned char*>(&text[0]), length, selector);
        return got ? text.substr(0, length) : "-";
    }
    // Everything that is queued, in the queue's order, as types.
    std::string Types() {
        std::string types;
        struct {
            long type;
            char payload[8192];
        } message;
        while (msgrcv(id, &message, sizeof message.payload, 0, IPC_NOWAIT) != -1)
            types += std::to_string(message.type);
        return types;
    }
    // Fills the queue to the last byte with messages of these types, over and over.
    void Fill(std::initializer_list<long> types, std::size_t size) const {
        struct {
            long type;
            char payload[8192];
        } message = {};
        for (std::size_t i = 0; size != 0; ++i) {
            message.type = types.begin()[i % types.size()];
            if (msgsnd(id, &message, size, IPC_NOWAIT) == -1)
                size /= 2; // the rest, down to the last byte
        }
        ASSERT_EQ(errno, EAGAIN);
    }
    std::string Id() const { return std::to_string(id); }

    Zone zone{"UTC0"};
    Device device;
    StdoutCapture out;
    TraceSetting quiet;
    Message channel;
    int id;
};

TEST_F(MessageTest, SendsReceivesAndSelects) {
    for (const char* text : {"5a", "2a", "5b", "7a"})
        EXPECT_TRUE(Send(text[0] - '0', text));
    EXPECT_EQ(Receive(9), "-");
    EXPECT_EQ(Receive(5), "5a");
    EXPECT_EQ(Receive(-6), "2a");
    EXPECT_EQ(Receive(-6), "5b");
    EXPECT_EQ(Receive(-6), "-");
    EXPECT_EQ(Receive(0), "7a");
    EXPECT_EQ(Receive(0), "-");
    EXPECT_EQ(device.GeneralLog(), "");

    // The raw form: type and payload in one buffer, at any address.
    unsigned char raw[1 + sizeof(long) + 3];
    const long type = 0x01020304;
    std::memcpy(raw + 1, &type, sizeof type);
    std::memcpy(raw + 1 + sizeof type, "a\0b", 3);
    EXPECT_TRUE(channel.SendMsg(raw + 1, 3));
    std::memset(raw, 0, sizeof raw);
    unsigned length = 3;
    EXPECT_TRUE(channel.RecvMsg(raw + 1, length, 0));
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(std::memcmp(raw + 1, &type, sizeof type), 0);
    EXPECT_EQ(std::memcmp(raw + 1 + sizeof type, "a\0b", 3), 0);
}

TEST_F(MessageTest, NothingToSend) {
    unsigned char byte = 0;
    unsigned length = 1;
    EXPECT_TRUE(channel.SendMsg(&byte, 0));
    EXPECT_TRUE(channel.SendData(&byte, 0, 5));
    EXPECT_FALSE(channel.SendMsg(nullptr, 0));
    EXPECT_FALSE(channel.SendData(nullptr, 0, 5));
    EXPECT_FALSE(channel.RecvMsg(nullptr, length, 0));
    EXPECT_EQ(Types(), "");
    EXPECT_EQ(device.GeneralLog() + out.Take(), "");
}

TEST_F(MessageTest, ReceiveThatIsTooBigDropsTheMessage) {
    Send(3, "too long");
    Send(3, "next");
    unsigned char bytes[4] = {};
    unsigned length = 4;
    EXPECT_FALSE(channel.RecvData(bytes, length, -4));
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(device.GeneralLog(),
              "03-05 06:07:08\tMessage: Message(queueid=" + Id() +
                  ",type=-4) receive failed because ipMsgBuff is too small.\n");
    EXPECT_TRUE(channel.RecvData(bytes, length, 0));
    EXPECT_EQ(std::memcmp(bytes, "next", 4), 0);

    Send(3, "gone");
    length = 10;
    EXPECT_TRUE(channel.RecvData(nullptr, length, 0));
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(Types(), "");
}

TEST_F(MessageTest, ProbesWithoutTaking) {
    EXPECT_FALSE(channel.HasMsg(0));
    Send(5, "x");
    EXPECT_TRUE(channel.HasMsg(5));
    EXPECT_TRUE(channel.HasMsg(0));
    EXPECT_TRUE(channel.HasMsg(-5));
    EXPECT_FALSE(channel.HasMsg(-4));
    EXPECT_FALSE(channel.HasMsg(6));
    EXPECT_EQ(Receive(0), "x");
    const long empty[2] = {5, 0};
    ASSERT_EQ(msgsnd(id, empty, 0, IPC_NOWAIT), 0);
    EXPECT_FALSE(channel.HasMsg(0));
    EXPECT_EQ(device.GeneralLog(), "");
}

TEST_F(MessageTest, ClearsWhatIsSelected) {
    const struct {
        long selector;
        const char* left;
    } cases[] = {{5, "126"}, {-5, "6"}, {0, ""}, {9, "15265"}, {-1, "5265"}};
    for (const auto& c : cases) {
        for (const long type : {1L, 5L, 2L, 6L, 5L})
            Send(type, "payload");
        channel.ClearMsg(c.selector);
        EXPECT_EQ(Types(), c.left) << c.selector;
    }
}

TEST_F(MessageTest, FullQueueMakesRoomInThreeSteps) {
    const struct {
        std::initializer_list<long> types; // what fills the queue
        int tries;
        const char* drains;
        char stays; // a type that must still be there afterwards, 0 for none
    } cases[] = {
        {{3, 2, 9}, 2, "3", '2'},
        {{2, 9}, 3, "3 -3", '9'},
        {{9, 8}, 4, "3 -3 0", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.drains);
        quiet.traceWay = WAY_NONE;
        Types();
        Fill(c.types, 1000);
        quiet.traceWay = WAY_STDOUT;
        quiet.prefixOn = 0;
        Device::ForgetCalls();
        EXPECT_TRUE(Send(3, "new"));
        EXPECT_EQ(Device::Calls("msgsnd"), c.tries);
        const std::string told = out.Take();
        std::string expected;
        std::string selector;
        for (const char* p = c.drains;; ++p) {
            if (*p != ' ' && *p != '\0') {
                selector += *p;
                continue;
            }
            expected +=
                "Message: Message(queueid=" + Id() + ",type=" + selector + ") finished clear.\n";
            selector.clear();
            if (*p == '\0')
                break;
        }
        expected += "Message(queueid=" + Id() + ",type=3) send succeed(3 bytes):6E 65 77 \n";
        EXPECT_EQ(told, expected);
        const std::string types = Types();
        EXPECT_EQ(types.back(), '3');
        EXPECT_EQ(types.find('3'), types.size() - 1);
        EXPECT_EQ(types.size() == 1, c.stays == 0);
        EXPECT_EQ(types.find(c.stays) != std::string::npos, c.stays != 0);
    }
    EXPECT_EQ(device.GeneralLog(), "");
}

TEST_F(MessageTest, SendThatFailsForGood) {
    Send(1, "will be dropped");
    Device::ForgetCalls();
    EXPECT_FALSE(Send(7, std::string(100000, 'x'))); // above what the kernel takes in one message
    EXPECT_EQ(Device::Calls("msgsnd"), 4);
    EXPECT_EQ(device.GeneralLog(), "03-05 06:07:08\tMessage: Message(queueid=" + Id() +
                                       ",type=7) send ERROR(Invalid argument)!\n");
    EXPECT_EQ(Types(), "");
    EXPECT_FALSE(Send(0, "x"));
    EXPECT_FALSE(Send(-1, "x"));
}

TEST_F(MessageTest, WithoutMemory) {
    Send(1, "stays");
    unsigned char bytes[8];
    unsigned length = 8;
    Device::Fail("malloc", ENOMEM);
    EXPECT_FALSE(channel.RecvData(bytes, length, 1));
    Device::Fail("malloc", ENOMEM);
    EXPECT_FALSE(channel.SendData(bytes, 8, 2));
    EXPECT_EQ(device.GeneralLog(),
              "03-05 06:07:08\tMessage: RecvData of message(queueid=" + Id() +
                  ",type=1) malloc memory failed!\n03-05 06:07:08\tMessage: SendData of "
                  "message(queueid=" +
                  Id() + ",type=2) malloc memory failed!\n");
    EXPECT_EQ(Types(), "1");
}

TEST_F(MessageTest, RemovedQueue) {
    quiet.traceWay = WAY_STDOUT;
    quiet.prefixOn = 0;
    Message other(kFlag);
    out.Take();
    channel.Destroy();
    EXPECT_EQ(out.Take(), "");
    other.Destroy();
    EXPECT_EQ(out.Take(),
              "Message: Remove message(queueid=" + Id() + ") queue ERROR(Invalid argument)!\n");
    EXPECT_EQ(Receive(4), "-");
    EXPECT_FALSE(channel.HasMsg(0));
    EXPECT_EQ(device.GeneralLog(), "03-05 06:07:08\tMessage: Message(queueid=" + Id() +
                                       ",type=4) receive ERROR(Invalid argument).\n");
    channel.InitMsg(kFlag);
    id = msgget(ftok("/root", kFlag), 0);
    EXPECT_TRUE(Send(1, "anew"));
}

TEST_F(MessageTest, WithoutAQueueEverythingIsSilent) {
    quiet.traceWay = WAY_STDOUT;
    Device::Fail("msgget", ENOSPC);
    Message unmade('Q');
    device.Remove("/root");
    Message unnamed('R');
    EXPECT_EQ(device.GeneralLog(),
              "03-05 06:07:08\tMessage: Create message queue(flag=Q) ERROR(No space left on "
              "device)\n03-05 06:07:08\tMessage: Get key from /root ERROR(No such file or "
              "directory)\n");
    device.Remove(Device::kGeneralLog);
    for (Message* m : {&unmade, &unnamed}) {
        unsigned char bytes[16] = {1};
        unsigned length = 4;
        EXPECT_FALSE(m->RecvMsg(bytes, length, 0));
        EXPECT_FALSE(m->RecvData(bytes, length, 0));
        EXPECT_FALSE(m->HasMsg(0));
        EXPECT_FALSE(m->SendMsg(bytes, 4));
        EXPECT_FALSE(m->SendMsg(bytes, 0));
        EXPECT_FALSE(m->SendData(bytes, 4, 1));
        EXPECT_FALSE(m->SendData(bytes, 0, 1));
        m->ClearMsg(0);
        m->Destroy();
    }
    EXPECT_EQ(device.GeneralLog() + out.Take(), "");
}

TEST_F(MessageTest, TwoProcesses) {
    quiet.traceWay = WAY_STDOUT;
    quiet.prefixOn = 0;
    const Message mine(kFlag);
    const Message others('o');
    const std::string told = out.Take();
    const key_t key = ftok("/root", kFlag);
    char line[80];
    std::snprintf(line, sizeof line, "Message: Message queue(flag=%d) id is %d 0x%x.\n", kFlag, id,
                  static_cast<unsigned>(key));
    EXPECT_EQ(told.substr(0, std::strlen(line)), line);
    const int otherId = msgget(ftok("/root", 'o'), 0);
    EXPECT_NE(otherId, id); // another flag, another queue
    msgctl(otherId, IPC_RMID, nullptr);

    quiet.traceWay = WAY_NONE;
    const pid_t child = fork();
    if (child == 0) {
        Message theirs(kFlag);
        const unsigned char text[] = "from the child";
        _exit(theirs.SendData(text, sizeof text - 1, 4) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Receive(4), "from the child");
}

} // namespace
