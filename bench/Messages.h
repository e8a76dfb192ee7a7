// The messages that are sent through all queues. The peers use the same ones.
#ifndef MAVKIT_BENCH_MESSAGES_H
#define MAVKIT_BENCH_MESSAGES_H

#include "Bench.h"

namespace bench {

constexpr unsigned int kLargest = 8192;

struct MessageBuffer {
    long type;
    unsigned char payload[kLargest];
};

extern MessageBuffer sent;
extern MessageBuffer received;

struct MessageRow {
    const char* job;
    Size size;
};

// The sizes that are sent; the largest is the kernel's limit, on the target a little below.
std::vector<MessageRow> MessageRows(bool large);

// Checks that `once` moves `length` bytes from `sent` to `received`.
void SameMessage(const char* job, const char* who, std::size_t length,
                 const std::function<void()>& once);

} // namespace bench

#endif
