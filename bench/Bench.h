// How a job enters the benchmark. A job is measured at one size or more, done in several ways on
// the same data: "ours" (mavkit), "floor" (the bare system or libc calls that the job cannot do
// without) and peers, called by their names. Their results are compared before anything is
// measured.
//
// The same jobs run on the host, timed and beside the peers (Main.cpp, peers/), and on the target,
// where instructions are counted (target/).
#ifndef MAVKIT_BENCH_BENCH_H
#define MAVKIT_BENCH_BENCH_H

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace bench {

// A size: what the table prints, and the number of bytes, bits or entries that the cost is
// compared with to see how it grows (0: nothing grows).
struct Size {
    const char* label;
    double units;
};

// One way to do a job, at one size.
struct Case {
    std::string name; // its number, job, size, units and way, joined by "|"
    double units;     // of its size
    bool heavy;       // a single time is long
    std::function<void()> prepare;
    std::function<void(long)> repeat; // does the job so many times
};

std::vector<Case>& Cases();

// What each job is to reach on the host, as the table understands it: "floor 1.25", "peer 1.0",
// several joined by a blank; "ns 10" is an upper limit in nanoseconds.
std::map<std::string, std::string>& Targets();

// A fresh directory, in memory where there is such a place, removed when the program ends.
const std::string& Directory();

// Ends the program: the ways to do `job` give different results.
[[noreturn]] void Differ(const char* job, const char* who);

template <typename A, typename B>
void Same(const char* job, const char* who, const A& a, const B& b) {
    if (!(a == b)) {
        Differ(job, who);
    }
}

// Adds a case: `once` does the job, `prepare` (not measured) comes before a series of them. A
// `heavy` one is long: it is measured by the clock on the wall, and counted once.
template <typename Once, typename Prepare>
void Add(const char* job, Size size, const char* who, Once once, Prepare prepare,
         bool heavy = false) {
    char name[160];
    std::snprintf(name, sizeof name, "%03zu|%s|%s|%.0f|%s", Cases().size(), job, size.label,
                  size.units, who);
    Cases().push_back({name, size.units, heavy, prepare, [once](long times) mutable {
                           while (times-- > 0) {
                               once();
                           }
                       }});
}

template <typename Once>
void Add(const char* job, Size size, const char* who, Once once) {
    Add(job, size, who, once, [] {});
}

// Hands `value` to a reader that the compiler cannot see through.
template <typename T>
void Use(const T& value) {
    if constexpr (std::is_scalar_v<T>) {
        asm volatile("" : : "r,m"(value) : "memory");
    } else {
        asm volatile("" : : "m"(value) : "memory");
    }
}

// Bytes that look like data, always the same ones.
std::vector<unsigned char> Noise(std::size_t size);

// Adds all jobs of ours and their floors; with `large`, those sizes as well that take an emulated
// processor too long.
void AddAll(bool large);

// The families, a source file each.
void AddDiag();
void AddIpc(bool large);
void AddEncoding(bool large);
void AddBitMask(bool large);
void AddTime();
void AddSys(bool large);

} // namespace bench

#endif
