/// \file
/// How a job gets into the benchmark. A job is measured at one size or more, each time by several
/// hands on the same data: "ours" (mavkit), "floor" (the bare system or libc calls that the job cannot
/// do without) and peers, called by their names. What they give is compared before anything is timed.
#ifndef MAVKIT_BENCH_BENCH_H
#define MAVKIT_BENCH_BENCH_H

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// A size: what the table prints, and the number of bytes, bits or entries that the cost is set
/// against to see how it grows (0: nothing grows).
struct Size {
    const char* label;
    double units;
};

/// One way to do a job, at one size. `timed` is the loop of Google Benchmark; `counted` does the job
/// a number of times, for instruction counts.
struct Case {
    std::string name;
    bool heavy;
    std::function<void(benchmark::State&)> timed;
    std::function<void(int)> counted;
};

std::vector<Case>& Cases();

/// A fresh directory, in memory where there is such a place, that goes when the program ends.
const std::string& Directory();

/// Ends the program: the hands that do `job` do not give the same.
[[noreturn]] void Differ(const char* job, const char* who);

template <typename A, typename B>
void Same(const char* job, const char* who, const A& a, const B& b) {
    if (!(a == b)) {
        Differ(job, who);
    }
}

/// What `job` is to reach, as the table understands it: "floor 1.25", "peer 1.0", several joined by
/// a blank; "ns 10" is an upper limit in nanoseconds.
void Target(const char* job, const char* target);

/// Adds a case: `once` does the job, `ready` (not timed) makes ready for a row of times. With `heavy`
/// a single time is long: it is measured by the clock on the wall, and counted once.
template <typename Once, typename Ready>
void Add(const char* job, Size size, const char* who, Once once, Ready ready, bool heavy = false) {
    char name[160];
    std::snprintf(name, sizeof name, "%03zu|%s|%s|%.0f|%s", Cases().size(), job, size.label,
                  size.units, who);
    Cases().push_back({name, heavy,
                       [once, ready](benchmark::State& state) mutable {
                           ready();
                           for (auto _ : state) {
                               once();
                           }
                       },
                       [once, ready](int times) mutable {
                           ready();
                           while (times-- > 0) {
                               once();
                           }
                       }});
}

template <typename Once>
void Add(const char* job, Size size, const char* who, Once once) {
    Add(job, size, who, once, [] {});
}

/// Hands `value` to a reader that the compiler cannot see through.
template <typename T>
void Use(T&& value) {
    benchmark::DoNotOptimize(value);
}

/// Bytes that look like data, always the same ones.
std::vector<unsigned char> Noise(std::size_t size);

// The families, a source file each.
void AddDiag();
void AddIpc();
void AddEncoding();
void AddBitMask();
void AddTime();
void AddSys();

} // namespace bench

#endif
