// Message queues: the real kernel's, full for real, removed for real. What becomes of a message when
// memory or a call fails is in faults/outcomes.txt.
#include "mavkit/ipc/Message.h"
#include "device/Device.h"

#include <cerrno>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace {

constexpr int kFlag = 'm';

class MessageTest : public TerminalTest {
protected:
    MessageTest() : TerminalTest(WAY_NONE) {}
    ~MessageTest() override { channel.Destroy(); }

    bool Send(long type, const std::string& text) {
        return channel.SendData(reinterpret_cast<const unsigned char*>(text.data()),
                                static_cast<unsigned>(text.size()), type);
    }
    // What a receive hands over; "-" when it says no.
    std::string Receive(long selector, unsigned capacity = 8192) {
        std::string text(capacity, '\0');
        auto* const bytes = reinterpret_cast<unsigned char*>(&text[0]);
        return channel.RecvData(bytes, capacity, selector) ? text.substr(0, capacity) : "-";
    }
    // Everything that is queued, in the queue's order, as types.
    std::string Types() {
        std::string types;
        while (msgrcv(id, &message, sizeof message.payload, 0, IPC_NOWAIT) != -1)
            types += std::to_string(message.type);
        return types;
    }

    struct {
        long type;
        char payload[8192];
    } message = {};
    Message channel{kFlag};
    int id = msgget(ftok("/root", kFlag), 0);
    const std::string stamp = "03-05 06:07:08\tMessage: ",
                      tag = "Message(queueid=" + std::to_string(id) + ",type=";
};

TEST_F(MessageTest, SendsReceivesAndSelects) {
    EXPECT_FALSE(channel.HasMsg(0));
    for (const char* text : {"5a", "2a", "5b", "7a"})
        EXPECT_TRUE(Send(text[0] - '0', text));
    const struct {
        long selector;
        const char* received;
    } cases[] = {{9, "-"}, {5, "5a"}, {-6, "2a"}, {-6, "5b"}, {-6, "-"}, {0, "7a"}, {0, "-"}};
    for (const auto& c : cases) {
        EXPECT_EQ(channel.HasMsg(c.selector), *c.received != '-') << c.selector;
        EXPECT_EQ(Receive(c.selector), c.received) << c.selector;
    }
    ASSERT_EQ(msgsnd(id, &(message = {5, {}}), 0, IPC_NOWAIT), 0);
    EXPECT_FALSE(channel.HasMsg(0)); // an empty one fits where there is no room

    // The raw form: type and payload in one buffer, at any address.
    const long type = 0x01020304;
    std::string raw = "-" + std::string(reinterpret_cast<const char*>(&type), sizeof type) + "a\nb";
    const std::string sent = raw;
    EXPECT_TRUE(channel.SendMsg(&raw[1], 3));
    std::fill(raw.begin() + 1, raw.end(), '\0');
    unsigned length = 3;
    EXPECT_TRUE(channel.RecvMsg(&raw[1], length, 0));
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(raw, sent);

    // Nothing to send, or nowhere to put it.
    EXPECT_TRUE(channel.SendMsg(&raw[1], 0));
    EXPECT_TRUE(Send(5, ""));
    EXPECT_FALSE(channel.SendMsg(nullptr, 0) || channel.SendData(nullptr, 0, 5));
    EXPECT_FALSE(channel.RecvMsg(nullptr, length, 0));
    EXPECT_FALSE(Send(0, "x") || Send(-1, "x"));
    EXPECT_EQ(Types(), "");
}

TEST_F(MessageTest, ReceiveThatIsTooBigDropsTheMessage) {
    for (const char* text : {"too long", "next", "gone"})
        Send(3, text);
    unsigned length = 4;
    EXPECT_FALSE(channel.RecvMsg(&message, length, -4));
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(device.GeneralLog(),
              stamp + tag + "-4) receive failed because ipMsgBuff is too small.\n");
    EXPECT_EQ(Receive(0, 4), "next");
    length = 10;
    EXPECT_TRUE(channel.RecvData(nullptr, length, 0));
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(Types(), "");
}

TEST_F(MessageTest, FullQueueMakesRoomInThreeSteps) {
    const struct {
        std::string types; // fill the queue, over and over
        std::vector<const char*> drains;
        std::string left; // kinds of messages in the end
    } cases[] = {{"329", {"3"}, "293"}, {"29", {"3", "-3"}, "93"}, {"98", {"3", "-3", "0"}, "3"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.types);
        std::size_t size = 1000; // halved for the rest, down to the last byte
        for (std::size_t i = 0; size != 0; ++i) {
            message.type = c.types[i % c.types.size()] - '0';
            if (msgsnd(id, &message, size, IPC_NOWAIT) == -1)
                size /= 2;
        }
        ASSERT_EQ(errno, EAGAIN);
        setting.traceWay = WAY_STDOUT;
        Device::ForgetCalls();
        EXPECT_TRUE(Send(3, "new"));
        EXPECT_EQ(Device::Calls("msgsnd"), static_cast<int>(c.drains.size()) + 1);
        std::string told;
        for (const char* drain : c.drains)
            told += "Message: " + tag + drain + ") finished clear.\n";
        EXPECT_EQ(out.Take(), told + tag + "3) send succeed(3 bytes):6E 65 77 \n");
        const std::string types = Types();
        EXPECT_EQ(types.find('3'), types.size() - 1); // the new one, and no other
        EXPECT_EQ(types.find_first_not_of(c.left), std::string::npos);
        for (const char type : c.left)
            EXPECT_NE(types.find(type), std::string::npos) << type;
    }
    Send(1, "will be dropped");
    Device::ForgetCalls();
    EXPECT_FALSE(Send(7, std::string(100000, 'x'))); // above what the kernel takes in one message
    EXPECT_EQ(Device::Calls("msgsnd"), 4);
    EXPECT_EQ(Types(), "");
    EXPECT_EQ(device.GeneralLog(), stamp + tag + "7) send ERROR(Invalid argument)!\n");
}

TEST_F(MessageTest, RemovedQueue) {
    setting.traceWay = WAY_STDOUT;
    channel.Destroy();
    EXPECT_EQ(out.Take(), "");
    channel.Destroy();
    EXPECT_EQ(out.Take(), "Message: Remove message(queueid=" + std::to_string(id) +
                              ") queue ERROR(Invalid argument)!\n");
    EXPECT_EQ(Receive(4), "-");
    EXPECT_FALSE(channel.HasMsg(0));
    EXPECT_EQ(device.GeneralLog(), stamp + tag + "4) receive ERROR(Invalid argument).\n");
    channel.InitMsg(kFlag);
    EXPECT_TRUE(Send(1, "anew"));
}

TEST_F(MessageTest, OtherFlagIsAnotherQueue) {
    setting.traceWay = WAY_STDOUT;
    Message others('o');
    const int otherId = msgget(ftok("/root", 'o'), 0);
    char line[80];
    std::snprintf(line, sizeof line, "Message: Message queue(flag=%d) id is %d 0x%x.\n", 'o',
                  otherId, static_cast<unsigned>(ftok("/root", 'o')));
    EXPECT_EQ(out.Take(), line);
    EXPECT_NE(otherId, id);
    others.Destroy();
    Device::Fail("msgget", ENOSPC);
    Message none('Q');
    const std::string log = device.GeneralLog();
    unsigned length = 4; // without a queue everything is silent
    EXPECT_FALSE(none.RecvMsg(&message, length, 0) || none.SendMsg(&message, 0));
    none.ClearMsg(0);
    none.Destroy();
    EXPECT_EQ(device.GeneralLog() + out.Take(), log);
}

} // namespace
