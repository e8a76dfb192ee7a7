// Several processes at once, some of them killed: nothing lost, torn or twice beyond what is told.
// A run takes a second or two; MAVKIT_SOAK=N in the environment makes it N times as long.
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

// One message: who sent it, its number, some bytes, and the CRC over all of it.
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

// What the processes share about the post.
struct Post {
    std::atomic<unsigned> claimed[kSenders]; // letters begun
    std::atomic<unsigned> received, torn, twice;
    std::atomic<bool> closed;
};

class PostTest : public TerminalTest {
protected:
    PostTest() : TerminalTest(WAY_NONE) {}
    ~PostTest() override {
        channel.Destroy();
        munmap(post, size);
    }

    // Starts the receivers, and a sender of `letters` for each place.
    void Open(unsigned letters) {
        each = letters * Rounds();
        size = sizeof(Post) + std::size_t{each} * kSenders;
        void* memory =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        post = new (memory) Post;
        seen = reinterpret_cast<std::atomic<unsigned char>*>(post + 1);
        for (pid_t& receiver : receivers)
            receiver = Start([this] { return Collect(); });
        for (unsigned s = 0; s < kSenders; ++s)
            StartSender(s);
    }

    void StartSender(unsigned sender) {
        senders[sender] = Start([this, sender] { return Deliver(sender); });
    }

    // Whether enough letters are under way for the receivers to keep up: a full queue is drained.
    bool IsBusy() const {
        msqid_ds state;
        return msgctl(id, IPC_STAT, &state) == 0 && state.msg_qnum >= 100;
    }

    bool Deliver(unsigned sender) {
        for (unsigned number; (number = post->claimed[sender]) < each;) {
            while (IsBusy())
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
        EXPECT_LE(missing, mayMiss);
        EXPECT_EQ(post->received, each * kSenders - missing);
        EXPECT_EQ(post->torn + post->twice, 0U);
        EXPECT_EQ(device.GeneralLog(), "");
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
    Open(12500);
    Close(0);
}

TEST_F(PostTest, KilledSenderLosesAtMostTheMessageInItsHands) {
    Open(3000);
    unsigned kills = 0, begun[kSenders] = {}; // where each one took up the work
    for (unsigned s = 0, idle = 0; idle < kSenders; s = (s + 1) % kSenders) {
        if (post->claimed[s] >= each) {
            ++idle; // done by itself; when all are, so is this
            continue;
        }
        idle = 0;
        usleep(50000);
        while (post->claimed[s] < std::min(begun[s] + 200, each)) // longer on a slow machine
            usleep(1000);
        kill(senders[s], SIGKILL);
        int status = 0;
        waitpid(senders[s], &status, 0);
        kills += WIFSIGNALED(status);
        begun[s] = post->claimed[s];
        StartSender(s); // goes on where the dead one was
    }
    EXPECT_GT(kills, 0U);
    Close(kills);
}

// The lines of `text`, without their stamps: each of the form "p<process> <number> xxxx...\n". What is
// not of the form is a failure.
std::multiset<std::string> WholeLines(const std::string& text, const char* stamp) {
    std::multiset<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        unsigned process = 0, number = 0;
        int end = -1;
        const std::string body = line.substr(std::min(line.size(), std::strlen(stamp)));
        if (std::sscanf(body.c_str(), "p%u %u %n", &process, &number, &end) != 2 || end < 0 ||
            body.substr(static_cast<std::size_t>(end)) != std::string(30 + number % 50, 'x'))
            ADD_FAILURE() << "torn: " << line;
        lines.insert(body);
    }
    EXPECT_TRUE(text.empty() || text.back() == '\n');
    return lines;
}

using Logs = TerminalTest;

// Eight processes write into both kinds of file, one of which is rotated now and then.
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
    EXPECT_EQ(found.size(), each * 8);
    EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), each * 8);
    EXPECT_GT(WholeLines(device.TraceFile(), "kor(03-05 06:07:08):").size(), 0U);
    const std::string backup = device.TraceFile("trace.log_bak");
    EXPECT_EQ(backup.size(), 1000500U);
    WholeLines(backup.substr(0, backup.find('\0')), "kor(03-05 06:07:08):");
}

} // namespace
