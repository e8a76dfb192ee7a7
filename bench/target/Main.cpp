// The target's program: runs each case between two marks, calls of a system call that fails at
// once. The emulator's plugin counts what is between them, and standard output names the cases in
// the same order. With --clock the program prints nanoseconds instead, for a machine whose clock
// advances by instructions. An argument TEXT chooses the cases with TEXT in their names.
#include "Bench.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// getpriority has no such kind of process: so the plugin recognises a mark.
constexpr int kMark = 0x4D61726B;

long long Now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// The time of the job, the least of several rounds: some of them are interrupted by ticks of the
// kernel's timer.
void Time(const bench::Case& one, long times) {
    constexpr std::size_t kRounds = 16;
    const long each = times < long{kRounds} ? 1 : times / long{kRounds};
    std::vector<long long> rounds;
    while (rounds.size() < (one.heavy ? 1 : kRounds)) {
        const long long start = Now();
        one.repeat(each);
        rounds.push_back(Now() - start);
    }
    std::sort(rounds.begin(), rounds.end());
    std::printf("%s|%ld|%lld\n", one.name.c_str(), each, rounds.front());
}

void Run(const bench::Case& one, bool clock) {
    // Long jobs run a few times, the others once for each of their 64 samples.
    const long times = one.heavy ? 1 : one.units > 4096 ? 4 : 64;
    one.prepare();
    one.repeat(times);
    one.prepare();
    if (clock) {
        Time(one, times);
        return;
    }
    syscall(SYS_getpriority, kMark, 0);
    one.repeat(times);
    syscall(SYS_getpriority, kMark, 0);
    std::printf("%s|%ld\n", one.name.c_str(), times);
}

} // namespace

int main(int argc, char** argv) {
    // The terminal's libc knows zones only by their rules.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    const bool clock = argc > 1 && std::strcmp(argv[1], "--clock") == 0;
    const char* only = argc > (clock ? 2 : 1) ? argv[argc - 1] : "";
    // The cost of the loop and the marks alone, and the time of one instruction.
    bench::Add("nothing", {"", 0}, "ours", [] { bench::Use(0); });
    bench::Add("1,000,000 instructions", {"", 0}, "ours", [] {
        int left = 250000;
        asm volatile(".set push; .set noreorder\n"
                     "1: addiu %0, %0, -1\n nop\n bnez %0, 1b\n nop\n"
                     ".set pop"
                     : "+r"(left));
    });
    bench::AddAll(false);
    for (std::size_t i = 0; i < bench::Cases().size(); ++i) {
        const bench::Case& one = bench::Cases()[i];
        if (i < 2 || one.name.find(only) != std::string::npos) {
            Run(one, clock);
        }
    }
    if (clock) {
        std::puts("done");
    }
    return 0;
}
