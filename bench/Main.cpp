// The host's program: Google Benchmark times the cases; with --count, under callgrind, each case
// runs a few times between two dumps of the instruction counts.
#include "Bench.h"
#include "peers/Peers.h"

#include <benchmark/benchmark.h>
#include <cstring>
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif

namespace {

void Time(const bench::Case& one) {
    benchmark::internal::Benchmark* added =
        benchmark::RegisterBenchmark(one.name.c_str(), [&one](benchmark::State& state) {
            one.prepare();
            const benchmark::IterationCount all = state.max_iterations;
            while (state.KeepRunningBatch(all)) {
                one.repeat(static_cast<long>(all));
            }
        });
    if (one.heavy) {
        added->UseRealTime();
    }
}

void Count(const bench::Case& one) {
    const long times = one.heavy ? 1 : 64;
    one.prepare();
    one.repeat(one.heavy ? 0 : times);
    const std::string title = one.name + '|' + std::to_string(times);
    one.prepare();
    CALLGRIND_ZERO_STATS;
    one.repeat(times);
    CALLGRIND_DUMP_STATS_AT(title.c_str());
}

} // namespace

int main(int argc, char** argv) {
    // A zone with daylight saving, given by its name, so that libc does not look for a file at each
    // call.
    setenv("TZ", "Europe/Berlin", 1);
    const char* counting =
        argc > 1 && std::strncmp(argv[1], "--count", 7) == 0 ? argv[1] + 7 : nullptr;
    benchmark::Initialize(&argc, argv);
    bench::AddAll(true);
    bench::AddDiagPeers();
    bench::AddIpcPeers();
    bench::AddEncodingPeers();
    bench::AddBitMaskPeers();
    bench::AddTimePeers();
    bench::AddSysPeers();
    for (const auto& [job, target] : bench::Targets()) {
        benchmark::AddCustomContext("target|" + job, target);
    }
    const char* only = counting != nullptr && *counting == '=' ? counting + 1 : "";
    for (const bench::Case& one : bench::Cases()) {
        if (counting == nullptr) {
            Time(one);
        } else if (one.name.find(only) != std::string::npos) {
            Count(one);
        }
    }
    if (counting == nullptr) {
        benchmark::RunSpecifiedBenchmarks();
    }
    return 0;
}
