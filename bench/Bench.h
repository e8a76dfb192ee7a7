// How a job enters the benchmark. A job is measured at one size or more, done in several ways on
// the same data: "ours" (mavkit), "floor" (only the system or libc calls that the job needs in any
// case) and peers, called by their names. Their results are compared before anything is measured.
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

// A size: the text in the table, and the number of bytes, bits or entries with which the growth of
// the cost is compared (0: nothing grows).
struct Size {
    const char* label;
    double units;
};

// One way to do a job, at one size.
struct Case {
    std::string name; // its number, job, size, units and way, joined by "|"
    double units;     // of its size
    bool heavy;       // a single repetition takes long
    std::function<void()> prepare;
    std::function<void(long)> repeat; // does the job so many times
};

std::vector<Case>& Cases();

// The target of each job on the host, in the form that the table reads: "floor 1.25", "peer 1.0",
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
// `heavy` one takes long: it is measured in real time, and its instructions are counted in a single
// run.
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

// Passes `value` to a reader that the compiler cannot optimise away.
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

// Adds all jobs of ours and their floors; with `large`, also the sizes that take too long on an
// emulated processor.
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
