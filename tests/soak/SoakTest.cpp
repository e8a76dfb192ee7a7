// Several processes at once, some of them killed: no message or line is lost, torn or repeated more
// than the headers allow. A run takes a second or two; MAVKIT_SOAK=N in the environment makes it N
// times as long.
#include "device/Device.h"
#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/encoding/Bits.h"
#include "mavkit/ipc/Message.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <new>
#include <set>
#include <sstream>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned kSenders = 8;

unsigned Rounds() {
    const char* text = std::getenv("MAVKIT_SOAK");
    return text != nullptr ? static_cast<unsigned>(std::max(std::atoi(text), 1)) : 1;
}

// One message: its sender, its number, some bytes, and the CRC over all of it.
struct Letter {
    unsigned sender;
    unsigned number;
    unsigned char text[40];
    unsigned short crc;
};

unsigned short CrcOf(const Letter& letter) {
    unsigned short crc = 0xFFFF;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&letter);
    for (std::size_t i = 0; i < offsetof(Letter, crc); ++i)
        crc = Add_CRC(crc, bytes[i]);
    return crc;
}

// The state that the processes share.
struct Post {
    std::atomic<unsigned> claimed[kSenders]; // letters begun
    std::atomic<unsigned> received, torn, twice;
    std::atomic<bool> mayEnd; // senders may send their last letters
    std::atomic<bool> closed; // all has been sent
};

class PostTest : public TerminalTest {
protected:
    PostTest() : TerminalTest(WAY_NONE) {}
    ~PostTest() override {
        channel.Destroy();
        if (post != nullptr)
            munmap(post, size);
    }

    // Starts the receivers, and all senders with `letters` each.
    void Open(unsigned letters, bool mayEnd) {
        ASSERT_NE(-1, id) << "this system has no message queues";
        each = letters * Rounds();
        size = sizeof(Post) + std::size_t{each} * kSenders;
        void* memory =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        post = new (memory) Post;
        post->mayEnd = mayEnd;
        seen = reinterpret_cast<std::atomic<unsigned char>*>(post + 1);
        for (pid_t& receiver : receivers)
            receiver = Start([this] { return Collect(); });
        for (unsigned s = 0; s < kSenders; ++s)
            StartSender(s);
    }

    void StartSender(unsigned sender) {
        senders[sender] = Start([this, sender] { return Deliver(sender); });
    }

    // Whether the queue has as many letters as it should: a full one is drained.
    bool IsBusy() const {
        msqid_ds state;
        return msgctl(id, IPC_STAT, &state) == 0 && state.msg_qnum >= 100;
    }

    bool MustWait(unsigned number) const {
        return IsBusy() || (number == each - 1 && !post->mayEnd);
    }

    bool Deliver(unsigned sender) {
        for (unsigned number; (number = post->claimed[sender]) < each;) {
            while (MustWait(number))
                usleep(200);
            ++post->claimed[sender];
            Letter letter = {sender, number, {}, 0};
            std::memset(letter.text, static_cast<int>(number), sizeof letter.text);
            letter.crc = CrcOf(letter);
            if (!channel.SendData(reinterpret_cast<unsigned char*>(&letter), sizeof letter,
                                  static_cast<long>(sender) + 1))
                return false;
        }
        return true;
    }

    bool Collect() {
        for (;;) {
            const bool closed = post->closed;
            Letter letter;
            unsigned length = sizeof letter;
            if (!channel.RecvData(reinterpret_cast<unsigned char*>(&letter), length, 0)) {
                if (closed)
                    return true;
                usleep(20);
                continue;
            }
            ++post->received;
            if (length != sizeof letter || letter.crc != CrcOf(letter) ||
                letter.sender >= kSenders || letter.number >= each)
                ++post->torn;
            else if (seen[letter.sender * each + letter.number]++ != 0)
                ++post->twice;
        }
    }

    // Waits for the end of all, and checks that no more than `mayMiss` letters never came.
    void Close(unsigned mayMiss) {
        for (const pid_t sender : senders)
            EXPECT_TRUE(Succeeded(sender));
        post->closed = true;
        for (const pid_t receiver : receivers)
            EXPECT_TRUE(Succeeded(receiver));
        unsigned missing = 0;
        for (unsigned i = 0; i < each * kSenders; ++i)
            missing += seen[i] == 0;
        EXPECT_GE(mayMiss, missing);
        EXPECT_EQ(each * kSenders - missing, post->received);
        EXPECT_EQ(0U, post->torn);
        EXPECT_EQ(0U, post->twice);
        EXPECT_EQ("", device.GeneralLog());
    }

    Message channel{'s'};
    const int id = msgget(ftok("/root", 's'), 0);
    unsigned each = 0; // letters from each sender
    std::size_t size = 0;
    Post* post = nullptr;
    std::atomic<unsigned char>* seen = nullptr; // how often each letter came, by sender and number
    pid_t senders[kSenders], receivers[2];
};

TEST_F(PostTest, NothingIsLostTornOrTwice) {
    ASSERT_NO_FATAL_FAILURE(Open(12500, true));
    Close(0);
}

// No sender ends by itself before the last kill. The sender that is started after a kill continues
// where the killed one was.
TEST_F(PostTest, KilledSenderLosesAtMostTheMessageInItsHands) {
    ASSERT_NO_FATAL_FAILURE(Open(3000, false));
    unsigned begun[kSenders] = {}; // where each one started its work
    const unsigned kills = 3 * kSenders * Rounds();
    for (unsigned i = 0; i < kills; ++i) {
        const unsigned s = i % kSenders;
        usleep(20000);
        while (post->claimed[s] < std::min(begun[s] + 50, each - 1)) // longer on a slow machine
            usleep(1000);
        kill(senders[s], SIGKILL);
        int status = 0;
        waitpid(senders[s], &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        begun[s] = post->claimed[s];
        StartSender(s);
    }
    post->mayEnd = true;
    Close(kills);
}

// The lines of `text`, without their stamps. Each has the form "p<process> <number> xxxx...\n"; any
// other is a failure.
std::multiset<std::string> WholeLines(const std::string& text, const char* stamp) {
    std::multiset<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        unsigned process = 0, number = 0;
        int end = -1;
        const std::string body = line.substr(std::min(line.size(), std::strlen(stamp)));
        if (std::sscanf(body.c_str(), "p%u %u %n", &process, &number, &end) != 2 || end < 0 ||
            body.substr(static_cast<std::size_t>(end)) != std::string(30 + number % 50, 'x'))
            ADD_FAILURE() << "torn: " << line.substr(0, 200);
        lines.insert(body);
    }
    EXPECT_EQ('\n', text.empty() ? '\n' : text.back());
    return lines;
}

using Logs = TerminalTest;

// Eight processes write into both kinds of file; the trace file is rotated again and again. The
// content of the backup after two rotations at once is not specified, so only its size is checked.
TEST_F(Logs, HoldWholeLines) {
    const unsigned each = 1000 * Rounds();
    setting.prefixOn = 1;
    setting.traceWay = WAY_PUBLIC;
    setting.maxSize = 20000;
    pid_t writers[8];
    for (unsigned p = 0; p < 8; ++p)
        writers[p] = Start([&, p] {
            for (unsigned i = 0; i < each; ++i) {
                const std::string x(30 + i % 50, 'x');
                GENERAL_LOG("p%u %u %s\n", p, i, x.c_str());
                MavTrace(1, 0)("p%u %u %s\n", p, i, x.c_str());
            }
            return true;
        });
    for (const pid_t writer : writers)
        EXPECT_TRUE(Succeeded(writer));
    const auto found = WholeLines(device.GeneralLog(), "03-05 06:07:08\t");
    EXPECT_EQ(each * 8, found.size());
    EXPECT_EQ(each * 8, std::set<std::string>(found.begin(), found.end()).size());
    EXPECT_LT(0U, WholeLines(device.TraceFile(), "kor(03-05 06:07:08):").size());
    EXPECT_EQ(1000500U, device.TraceFile("trace.log_bak").size());
}

} // namespace
