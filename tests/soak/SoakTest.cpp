// Several processes at once, some of them killed: nothing lost, torn or twice beyond what is told.
// A run takes a second or two; MAVKIT_SOAK=N in the environment makes it N times as long.
#include "device/Device.h"
#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/encoding/Bits.h"
#include "mavkit/ipc/Message.h"
#include "mavkit/ipc/ShareMem.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <set>
#include <sstream>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kSenders = 8;
constexpr int kReceivers = 2;

int Rounds() {
    const char* text = std::getenv("MAVKIT_SOAK");
    const int rounds = text != nullptr ? std::atoi(text) : 1;
    return rounds > 0 ? rounds : 1;
}

// Traces nothing while it lives.
class Quiet {
public:
    Quiet() {
        setting_.traceWay = WAY_NONE;
        MavTrace::Setting = &setting_;
    }
    ~Quiet() { MavTrace::Setting = nullptr; }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

private:
    TraceSetting setting_;
};

pid_t Start(const std::function<bool()>& work) {
    const pid_t child = fork();
    if (child == 0)
        _exit(work() ? 0 : 1);
    return child;
}

// Whether the process ended by itself, content.
bool Succeeded(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
    std::atomic<unsigned> received;
    std::atomic<unsigned> torn;
    std::atomic<unsigned> twice;
    std::atomic<bool> closed;
};

class PostTest : public testing::Test {
protected:
    // Letters from each sender.
    explicit PostTest(unsigned total)
        : each(total / kSenders * static_cast<unsigned>(Rounds())),
          size(sizeof(Post) + std::size_t{each} * kSenders), channel('s') {
        void* memory =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        post = new (memory) Post;
        seen = reinterpret_cast<std::atomic<unsigned char>*>(post + 1);
    }
    ~PostTest() override {
        channel.Destroy();
        munmap(post, size);
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

    void StartReceivers() {
        for (int i = 0; i < kReceivers; ++i)
            receivers.push_back(Start([this] { return Collect(); }));
    }

    // Ends the run and gives the number of letters that never came.
    unsigned Missing() {
        post->closed = true;
        for (const pid_t receiver : receivers)
            EXPECT_TRUE(Succeeded(receiver));
        unsigned missing = 0;
        for (unsigned i = 0; i < each * kSenders; ++i)
            missing += seen[i] == 0;
        return missing;
    }

    Device device;
    Quiet quiet;
    unsigned each;
    std::size_t size;
    Message channel;
    const int id = msgget(ftok("/root", 's'), 0);
    Post* post;
    std::atomic<unsigned char>* seen; // how often each letter came, by sender and number
    std::vector<pid_t> receivers;
};

class QuietPost : public PostTest {
protected:
    QuietPost() : PostTest(100000) {}
};

TEST_F(QuietPost, NothingIsLostTornOrTwice) {
    StartReceivers();
    std::vector<pid_t> senders;
    for (unsigned s = 0; s < kSenders; ++s)
        senders.push_back(Start([this, s] { return Deliver(s); }));
    for (const pid_t sender : senders)
        EXPECT_TRUE(Succeeded(sender));
    EXPECT_EQ(Missing(), 0U);
    EXPECT_EQ(post->received, each * kSenders);
    EXPECT_EQ(post->torn, 0U);
    EXPECT_EQ(post->twice, 0U);
    EXPECT_EQ(device.GeneralLog(), "");
}

class DeadlyPost : public PostTest {
protected:
    DeadlyPost() : PostTest(24000) {}
};

TEST_F(DeadlyPost, KilledSenderLosesAtMostTheMessageInItsHands) {
    StartReceivers();
    std::vector<pid_t> senders;
    for (unsigned s = 0; s < kSenders; ++s)
        senders.push_back(Start([this, s] { return Deliver(s); }));
    unsigned kills = 0;
    unsigned begun[kSenders] = {}; // where each one took up the work
    for (unsigned s = 0, idle = 0; idle < kSenders; s = (s + 1) % kSenders) {
        if (post->claimed[s] >= each) {
            ++idle; // done by itself; when all are, so is this
            continue;
        }
        idle = 0;
        usleep(50000);
        while (post->claimed[s] <
               std::min(begun[s] + 200, each)) // on a slow machine it lives longer
            usleep(1000);
        kill(senders[s], SIGKILL);
        int status = 0;
        waitpid(senders[s], &status, 0);
        kills += WIFSIGNALED(status);
        begun[s] = post->claimed[s];
        senders[s] = Start([this, s] { return Deliver(s); }); // goes on where the dead one was
    }
    for (const pid_t sender : senders)
        EXPECT_TRUE(Succeeded(sender));
    EXPECT_GT(kills, 0U);
    EXPECT_LE(Missing(), kills);
    EXPECT_EQ(post->torn, 0U);
    EXPECT_EQ(post->twice, 0U);
    EXPECT_EQ(device.GeneralLog(), "");
}

// The lines `text` is made of, each of the form "<anything>p<process> <number> xxxx...\n"; what is not
// of the form is a failure.
std::multiset<std::string> WholeLines(const std::string& text, std::size_t stamp) {
    std::multiset<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        unsigned process = 0;
        unsigned number = 0;
        int end = -1;
        const std::string body = line.size() > stamp ? line.substr(stamp) : "";
        if (std::sscanf(body.c_str(), "p%u %u %n", &process, &number, &end) != 2 || end < 0 ||
            body.substr(static_cast<std::size_t>(end)) != std::string(30 + number % 50, 'x'))
            ADD_FAILURE() << "torn: " << line;
        lines.insert(body);
    }
    EXPECT_TRUE(text.empty() || text.back() == '\n');
    return lines;
}

void WriteLines(const std::function<void(unsigned, unsigned, const char*)>& write, unsigned lines) {
    std::vector<pid_t> writers;
    for (unsigned p = 0; p < 8; ++p)
        writers.push_back(Start([&, p] {
            for (unsigned i = 0; i < lines; ++i)
                write(p, i, std::string(30 + i % 50, 'x').c_str());
            return true;
        }));
    for (const pid_t writer : writers)
        EXPECT_TRUE(Succeeded(writer));
}

TEST(Logs, EightProcessesAppendWholeLines) {
    Device device;
    const unsigned lines = 1000U * static_cast<unsigned>(Rounds());
    WriteLines([](unsigned p, unsigned i, const char* x) { GENERAL_LOG("p%u %u %s\n", p, i, x); },
               lines);
    const auto found = WholeLines(device.GeneralLog(), std::strlen("03-05 06:07:08\t"));
    EXPECT_EQ(found.size(), lines * 8);
    EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), lines * 8);
}

TEST(Logs, RotatingFileHoldsWholeLines) {
    Device device;
    TraceSetting setting;
    setting.traceWay = WAY_PUBLIC;
    setting.maxSize = 20000;
    MavTrace::Setting = &setting;
    const unsigned lines = 1000U * static_cast<unsigned>(Rounds());
    WriteLines(
        [](unsigned p, unsigned i, const char* x) { MavTrace(1, 0)("p%u %u %s\n", p, i, x); },
        lines);
    MavTrace::Setting = nullptr;
    const std::string path = std::string(Device::kTraceDir) + "trace.log";
    const std::size_t stamp = std::strlen("kor(03-05 06:07:08):");
    EXPECT_GT(WholeLines(device.Read(path), stamp).size(), 0U);
    std::string backup = device.Read(path + "_bak");
    EXPECT_EQ(backup.size(), 1000500U);
    backup.resize(std::strlen(backup.c_str()));
    WholeLines(backup, stamp);
}

bool FillZeros(std::FILE* file, void*) {
    const char zeros[64] = {};
    return std::fwrite(zeros, sizeof zeros, 1, file) == 1;
}

bool Accept(std::FILE* file, void*) {
    return std::fseek(file, 0, SEEK_END) == 0 && std::ftell(file) == 64;
}

TEST(Region, OutlivesAProcessThatIsKilledBeforeItSaves) {
    Device device;
    const Quiet quiet;
    const std::string path = device.Path("/mnt/region");
    const pid_t writer = Start([&] {
        ShareMem mine;
        mine.Init(path.c_str(), 64, FillZeros, Accept, nullptr);
        std::strcpy(reinterpret_cast<char*>(mine.base), "unsaved");
        return raise(SIGKILL) == 0;
    });
    EXPECT_FALSE(Succeeded(writer));
    {
        ShareMem next;
        next.Init(path.c_str(), 64, FillZeros, Accept, nullptr);
        ASSERT_NE(next.base, nullptr);
        EXPECT_STREQ(reinterpret_cast<char*>(next.base), "unsaved");
    }

    // Two that start on a missing region at once: either may create it, both end up with one.
    for (int round = 0; round < 50 * Rounds(); ++round) {
        device.Remove("/mnt/region");
        std::vector<pid_t> starters;
        for (int i = 0; i < 2; ++i)
            starters.push_back(Start([&] {
                ShareMem mine;
                mine.Init(path.c_str(), 64, FillZeros, Accept, nullptr);
                return mine.base != nullptr && mine.Save(false, false);
            }));
        for (const pid_t starter : starters)
            EXPECT_TRUE(Succeeded(starter));
        EXPECT_EQ(device.Read("/mnt/region").size(), 64U);
    }
}

} // namespace
