// Message queues of the real kernel, really full and really removed. The result when memory or a
// call fails is in faults/outcomes.txt.
#include "mavkit/ipc/Message.h"
#include "device/Device.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

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
    // What a receive returns; "-" when it returns false.
    std::string Receive(long selector, unsigned capacity = 8192) {
        std::string text(capacity, '\0');
        auto* const bytes = reinterpret_cast<unsigned char*>(&text[0]);
        return channel.RecvData(bytes, capacity, selector) ? text.substr(0, capacity) : "-";
    }
    // Takes all messages out of the queue. Returns their types in the queue's order.
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
        EXPECT_EQ(*c.received != '-', channel.HasMsg(c.selector)) << c.selector;
        EXPECT_EQ(c.received, Receive(c.selector)) << c.selector;
    }
    EXPECT_TRUE(Send(5, "x")); // the shortest one that is reported stays in the queue
    EXPECT_TRUE(channel.HasMsg(5));
    EXPECT_EQ("x", Receive(5));
    ASSERT_EQ(0, msgsnd(id, &(message = {5, {}}), 0, IPC_NOWAIT));
    EXPECT_FALSE(channel.HasMsg(0)); // an empty one is taken
    EXPECT_EQ("", Types());
    msqid_ds status;
    ASSERT_EQ(0, msgctl(id, IPC_STAT, &status));
    EXPECT_EQ(0666U, status.msg_perm.mode & 0777U); // every user may send and receive
}

TEST_F(MessageTest, TakesAndGivesRawBuffers) {
    // Type and payload in one buffer, at any address.
    const long type = 0x01020304;
    std::string raw = "-" + std::string(reinterpret_cast<const char*>(&type), sizeof type) + "a\nb";
    const std::string sent = raw;
    EXPECT_TRUE(channel.SendMsg(&raw[1], 3));
    std::fill(raw.begin() + 1, raw.end(), '\0');
    unsigned length = 3;
    EXPECT_FALSE(channel.RecvMsg(nullptr, length, 0)); // and the message is still there
    EXPECT_TRUE(channel.RecvMsg(&raw[1], length, 0));
    EXPECT_EQ(3U, length);
    EXPECT_EQ(sent, raw);

    // An empty message is no failure, but is not sent; a null buffer is a failure for any length.
    EXPECT_TRUE(channel.SendMsg(&raw[1], 0));
    EXPECT_TRUE(Send(5, ""));
    for (const unsigned none : {0U, 3U}) {
        EXPECT_FALSE(channel.SendMsg(nullptr, none));
        EXPECT_FALSE(channel.SendData(nullptr, none, 5));
    }
    EXPECT_EQ("", Types());
    EXPECT_EQ("", device.GeneralLog());
    // A type that the kernel never takes empties the queue.
    for (const long never : {0L, -1L, LONG_MIN}) {
        EXPECT_TRUE(Send(7, "dropped"));
        EXPECT_FALSE(Send(never, "x")) << never;
        EXPECT_EQ("", Types()) << never;
    }
}

TEST_F(MessageTest, ReceiveThatIsTooBigDropsTheMessage) {
    for (const char* text : {"9 stays", "3 too long", "3 ok", "3 gone"})
        Send(text[0] - '0', text);
    unsigned length = 4;
    EXPECT_FALSE(channel.RecvMsg(&message, length, -4));
    EXPECT_EQ(4U, length);
    EXPECT_EQ(3, message.type); // the buffer has its beginning
    EXPECT_STREQ("3 to", message.payload);
    EXPECT_EQ(stamp + tag + "-4) receive failed because ipMsgBuff is too small.\n",
              device.GeneralLog());
    EXPECT_EQ("3 ok", Receive(3, 4));
    length = 10;
    EXPECT_TRUE(channel.RecvData(nullptr, length, 3));
    EXPECT_EQ(6U, length);
    EXPECT_EQ("9", Types());
    // Another process takes it first: there is no message to wait for.
    Device::Fail("msgrcv", E2BIG);
    alarm(10);
    EXPECT_FALSE(channel.RecvMsg(&message, length, 0));
    alarm(0);
}

TEST_F(MessageTest, ReportsWhatItDoesAtLevelVerbose) {
    std::string hex;
    for (int i = 0; i < 40; ++i)
        hex += i == 36 ? "\n61 " : "61 ";
    for (const int level : {LEVEL_INFO, LEVEL_VERBOSE}) {
        setting.traceWay = WAY_STDOUT;
        setting.level = static_cast<unsigned char>(level);
        channel.InitMsg(kFlag);
        EXPECT_TRUE(Send(3, std::string(40, 'a')));
        channel.ClearMsg(-3);
        Device::Fail("msgctl", EPERM);
        channel.Destroy();
        char opened[80];
        std::snprintf(opened, sizeof opened, "Message: Message queue(flag=%d) id is %d 0x%x.\n",
                      kFlag, id, static_cast<unsigned>(ftok("/root", kFlag)));
        const std::string lines =
            opened + tag + "3) send succeed(40 bytes):" + hex + "\nMessage: " + tag +
            "-3) finished clear.\nMessage: Remove message(queueid=" + std::to_string(id) +
            ") queue ERROR(" + std::strerror(EPERM) + ")!\n";
        ASSERT_EQ(level == LEVEL_VERBOSE ? lines : "", out.Take());
    }
    // Without memory for the line the message is sent all the same.
    Device::Fail("new", ENOMEM);
    EXPECT_TRUE(Send(3, "sent"));
    EXPECT_EQ("", out.Take());
    EXPECT_EQ("sent", Receive(3));
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
        ASSERT_EQ(EAGAIN, errno);
        setting.traceWay = WAY_STDOUT;
        Device::ForgetCalls();
        EXPECT_TRUE(Send(3, "new"));
        EXPECT_EQ(static_cast<int>(c.drains.size()) + 1, Device::Calls("msgsnd"));
        std::string lines;
        for (const char* drain : c.drains)
            lines += "Message: " + tag + drain + ") finished clear.\n";
        ASSERT_EQ(lines + tag + "3) send succeed(3 bytes):6E 65 77 \n", out.Take());
        const std::string types = Types();
        EXPECT_EQ(types.size() - 1, types.find('3')); // the new one, and no other
        EXPECT_EQ(std::string::npos, types.find_first_not_of(c.left));
        for (const char type : c.left)
            EXPECT_NE(std::string::npos, types.find(type)) << type;
    }
    Send(1, "will be dropped");
    Device::ForgetCalls();
    EXPECT_FALSE(Send(7, std::string(100000, 'x'))); // above what the kernel takes in one message
    EXPECT_EQ(4, Device::Calls("msgsnd"));
    EXPECT_EQ("", Types());
    EXPECT_EQ(stamp + tag + "7) send ERROR(" + std::strerror(EINVAL) + ")!\n", device.GeneralLog());
}

TEST_F(MessageTest, RemovedQueue) {
    setting.traceWay = WAY_STDOUT;
    channel.Destroy();
    EXPECT_EQ("", out.Take());
    channel.Destroy();
    EXPECT_EQ("Message: Remove message(queueid=" + std::to_string(id) + ") queue ERROR(" +
                  std::strerror(EINVAL) + ")!\n",
              out.Take());
    EXPECT_EQ("-", Receive(4));
    EXPECT_FALSE(channel.HasMsg(0));
    EXPECT_EQ(stamp + tag + "4) receive ERROR(" + std::strerror(EINVAL) + ").\n",
              device.GeneralLog());
    channel.InitMsg(kFlag);
    EXPECT_TRUE(Send(1, "anew"));
}

TEST_F(MessageTest, OtherFlagIsAnotherQueue) {
    Message others('o');
    const int otherId = msgget(ftok("/root", 'o'), 0);
    EXPECT_NE(-1, otherId);
    EXPECT_NE(id, otherId);
    others.Destroy();
    Device::Fail("msgget", ENOSPC);
    Message none('Q');
    EXPECT_EQ(stamp + "Create message queue(flag=Q) ERROR(" + std::strerror(ENOSPC) + ")\n",
              device.GeneralLog());
    // Without a queue everything is silent, and nothing succeeds.
    setting.traceWay = WAY_STDOUT;
    device.Remove(Device::kGeneralLog);
    unsigned length = 4;
    unsigned char bytes[4] = {};
    EXPECT_FALSE(none.RecvMsg(&message, length, 0));
    EXPECT_FALSE(none.RecvData(bytes, length, 0));
    EXPECT_FALSE(none.HasMsg(0));
    EXPECT_FALSE(none.SendMsg(&message, 0));
    EXPECT_FALSE(none.SendData(bytes, 0, 1));
    none.ClearMsg(0);
    none.Destroy();
    EXPECT_EQ("", device.GeneralLog() + out.Take());
}

} // namespace
