// The times for the jobs of the calendar. The peers use the same ones.
#ifndef MAVKIT_BENCH_SAMPLES_H
#define MAVKIT_BENCH_SAMPLES_H

#include "Bench.h"

#include <array>
#include <ctime>

namespace bench {

using Record = std::array<char, 7>;

constexpr std::size_t kCount = 64;

extern long times[kCount];     // from 09:00 to 20:59, 1st to 28th of a month, 2001 to 2030
extern Record records[kCount]; // the same
extern std::tm fields[kCount]; // the same

// The next sample's number.
std::size_t Pick();

Record Pack(long year, long month, long day, long hour, long minute, long second);

// Adds one way to do a job; `value(i)` gives its result for sample i, to be equal to
// `expected(i)`.
template <typename Value, typename Expected>
void AddHand(const char* job, const char* size, const char* who, Value value, Expected expected) {
    for (std::size_t i = 0; i < kCount; ++i) {
        Same(job, who, value(i), expected(i));
    }
    Add(job, {size, 0}, who, [value] { Use(value(Pick())); });
}

} // namespace bench

#endif
