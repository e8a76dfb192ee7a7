// A message through a queue and back, in one process.
#include "Bench.h"

#include "mavkit/diag/MavTrace.h"
#include "mavkit/ipc/Message.h"

#include <boost/interprocess/ipc/message_queue.hpp>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mqueue.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

constexpr unsigned int kLargest = 8192;
// A queue that two benchmarks at once do not share.
const int kFlag = getpid() % 127 + 128;

struct Buffer {
    long type;
    unsigned char payload[kLargest];
};

Buffer sent;
Buffer received;

// A kernel queue without a key, removed at the end.
struct PlainQueue {
    int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
    ~PlainQueue() { msgctl(id, IPC_RMID, nullptr); }
};

struct OurQueue {
    Message message{kFlag};
    OurQueue() { message.ClearMsg(0); }
    ~OurQueue() { message.Destroy(); }
};

struct PosixQueue {
    std::string name = "/mavkit-bench-" + std::to_string(getpid());
    mqd_t queue;
    PosixQueue() {
        mq_attr attributes = {};
        attributes.mq_maxmsg = 8;
        attributes.mq_msgsize = kLargest;
        queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_NONBLOCK, 0600, &attributes);
        mq_unlink(name.c_str());
    }
    ~PosixQueue() { mq_close(queue); }
};

struct BoostQueue {
    std::string name = "mavkit-bench-" + std::to_string(getpid());
    boost::interprocess::message_queue queue{boost::interprocess::create_only, name.c_str(), 8,
                                             kLargest};
    ~BoostQueue() { boost::interprocess::message_queue::remove(name.c_str()); }
};

template <typename Once>
void AddQueue(const char* job, bench::Size size, const char* who, Once once) {
    const std::size_t length = static_cast<std::size_t>(size.units);
    static TraceSetting quiet;
    quiet.level = LEVEL_ERROR;
    MavTrace::Setting = &quiet;
    std::memset(received.payload, 0, sizeof received.payload);
    once();
    bench::Same(job, who, std::memcmp(received.payload, sent.payload, length), 0);
    bench::Add(job, size, who, once, [] { MavTrace::Setting = &quiet; });
}

} // namespace

void bench::AddIpc() {
    const char* job = "send and receive";
    const std::vector<unsigned char> data = Noise(kLargest);
    sent.type = 7;
    std::copy(data.begin(), data.end(), sent.payload);
    static const PlainQueue plain;
    static OurQueue ours;
    static const PosixQueue posix;
    static BoostQueue boosted;
    Target("send and receive 64 B", "floor 1.15");
    Target("send and receive 1 KiB", "floor 1.5");
    Target("send and receive 8 KiB", "floor 3.0");
    const struct {
        const char* job;
        Size size;
    } rows[] = {{"send and receive 64 B", {"64 B", 64}},
                {"send and receive 1 KiB", {"1 KiB", 1024}},
                {"send and receive 8 KiB", {"8 KiB", 8192}}};
    for (const auto& row : rows) {
        job = row.job;
        const unsigned int length = static_cast<unsigned int>(row.size.units);
        AddQueue(job, row.size, "ours", [length] {
            unsigned int got = kLargest;
            bench::Use(ours.message.SendMsg(&sent, length));
            bench::Use(ours.message.RecvMsg(&received, got, 7));
        });
        AddQueue(job, row.size, "floor", [length] {
            bench::Use(msgsnd(plain.id, &sent, length, IPC_NOWAIT));
            bench::Use(msgrcv(plain.id, &received, kLargest, 7, IPC_NOWAIT));
        });
        AddQueue(job, row.size, "POSIX mq", [length] {
            unsigned int priority = 0;
            bench::Use(
                mq_send(posix.queue, reinterpret_cast<const char*>(sent.payload), length, 7));
            bench::Use(mq_receive(posix.queue, reinterpret_cast<char*>(received.payload), kLargest,
                                  &priority));
        });
        AddQueue(job, row.size, "Boost", [length] {
            std::size_t got = 0;
            unsigned int priority = 0;
            bench::Use(boosted.queue.try_send(sent.payload, length, 7));
            bench::Use(boosted.queue.try_receive(received.payload, kLargest, got, priority));
        });
    }
}
