// POSIX message queues and Boost's.
#include "Messages.h"
#include "peers/Peers.h"

#include <boost/interprocess/ipc/message_queue.hpp>
#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

namespace {

using bench::kLargest;
using bench::received;
using bench::sent;

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

} // namespace

void bench::AddIpcPeers() {
    static const PosixQueue posix;
    static BoostQueue boosted;
    for (const MessageRow& row : MessageRows(true)) {
        const unsigned int length = static_cast<unsigned int>(row.size.units);
        const auto byPosix = [length] {
            unsigned int priority = 0;
            Use(mq_send(posix.queue, reinterpret_cast<const char*>(sent.payload), length, 7));
            Use(mq_receive(posix.queue, reinterpret_cast<char*>(received.payload), kLargest,
                           &priority));
        };
        const auto byBoost = [length] {
            std::size_t got = 0;
            unsigned int priority = 0;
            Use(boosted.queue.try_send(sent.payload, length, 7));
            Use(boosted.queue.try_receive(received.payload, kLargest, got, priority));
        };
        SameMessage(row.job, "POSIX mq", length, byPosix);
        Add(row.job, row.size, "POSIX mq", byPosix);
        SameMessage(row.job, "Boost", length, byBoost);
        Add(row.job, row.size, "Boost", byBoost);
    }
}
