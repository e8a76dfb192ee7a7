// A message through a queue and back, in one process: without a trace line, and with one in a
// public file.
#include "Lines.h"
#include "Messages.h"

#include "mavkit/diag/MavTrace.h"
#include "mavkit/ipc/Message.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

bench::MessageBuffer bench::sent;
bench::MessageBuffer bench::received;

std::vector<bench::MessageRow> bench::MessageRows(bool large) {
    return {{"send and receive 64 B", {"64 B", 64}},
            {"send and receive 1 KiB", {"1 KiB", 1024}},
            large ? MessageRow{"send and receive 8 KiB", {"8 KiB", 8192}}
                  : MessageRow{"send and receive 8000 B", {"8000 B", 8000}}};
}

void bench::SameMessage(const char* job, const char* who, std::size_t length,
                        const std::function<void()>& once) {
    std::memset(received.payload, 0, sizeof received.payload);
    once();
    Same(job, who, std::memcmp(received.payload, sent.payload, length), 0);
}

namespace {

using bench::kLargest;
using bench::received;
using bench::sent;

// A kernel queue without a key, removed at the end.
struct PlainQueue {
    int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
    ~PlainQueue() { msgctl(id, IPC_RMID, nullptr); }
};

// A queue that two benchmarks at the same time do not share.
struct OurQueue {
    Message message{static_cast<int>(getpid() % 127 + 128)};
    OurQueue() { message.ClearMsg(0); }
    ~OurQueue() { message.Destroy(); }
};

TraceSetting Setting(unsigned char level) {
    TraceSetting setting;
    setting.level = level;
    setting.traceWay = WAY_PUBLIC;
    setting.maxSize = INT_MAX;
    return setting;
}

void Bare(int queue, unsigned int length) {
    bench::Use(msgsnd(queue, &sent, length, IPC_NOWAIT));
    bench::Use(msgrcv(queue, &received, kLargest, 7, IPC_NOWAIT));
}

} // namespace

void bench::AddIpc(bool large) {
    const std::vector<unsigned char> data = Noise(kLargest);
    sent.type = 7;
    std::copy(data.begin(), data.end(), sent.payload);
    static TraceSetting quiet = Setting(LEVEL_INFO);
    static TraceSetting open = Setting(LEVEL_VERBOSE);
    MavTrace::Setting = &quiet;
    static const PlainQueue plain;
    static OurQueue ours;
    Targets()["send and receive 64 B"] = "floor 1.15";
    Targets()["send and receive 1 KiB"] = "floor 1.5";
    Targets()["send and receive 8 KiB"] = "floor 1.2";
    for (const MessageRow& row : MessageRows(large)) {
        const unsigned int length = static_cast<unsigned int>(row.size.units);
        const auto send = [length] {
            unsigned int got = kLargest;
            Use(ours.message.SendMsg(&sent, length));
            Use(ours.message.RecvMsg(&received, got, 7));
        };
        const auto bare = [length] { Bare(plain.id, length); };
        SameMessage(row.job, "ours", length, send);
        SameMessage(row.job, "floor", length, bare);
        Add(row.job, row.size, "ours", send, [] { MavTrace::Setting = &quiet; });
        Add(row.job, row.size, "floor", bare);
    }
    // The cost of a message with a trace line, compared with the same line already formatted.
    for (const MessageRow& row : MessageRows(large)) {
        const unsigned int length = static_cast<unsigned int>(row.size.units);
        const std::string path = TracePath();
        const auto prepare = [path] {
            Empty(path);
            MavTrace::Setting = &open;
        };
        const auto send = [length] {
            unsigned int got = kLargest;
            Use(ours.message.SendMsg(&sent, length));
            Use(ours.message.RecvMsg(&received, got, 7));
        };
        prepare();
        send();
        const std::string line = Content(path);
        if (line.size() < 3 * length) {
            Differ("message shown", "ours");
        }
        Add("message shown", row.size, "ours", send, prepare);
        Add(
            "message shown", row.size, "floor",
            [length, path, line] {
                Bare(plain.id, length);
                WriteLine(path, line, true);
            },
            prepare);
    }
    MavTrace::Setting = &quiet;
}
