// Google Benchmark times the cases; with --count, under callgrind, each is run a few times between two
// dumps of the instruction counts.
#include "Bench.h"

#include <cstring>
#include <filesystem>
#include <set>
#include <unistd.h>
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif

namespace bench {

std::vector<Case>& Cases() {
    static std::vector<Case> cases;
    return cases;
}

const std::string& Directory() {
    static const struct Place {
        std::string path;
        pid_t owner = getpid();
        Place() {
            const char* memory = "/dev/shm";
            const char* above = std::getenv("MAVKIT_BENCH_DIR");
            path = std::string(above != nullptr            ? above
                               : access(memory, W_OK) == 0 ? memory
                                                           : "/tmp") +
                   "/mavkit-bench-XXXXXX";
            if (mkdtemp(&path[0]) == nullptr) {
                std::perror(path.c_str());
                std::exit(1);
            }
        }
        ~Place() {
            std::error_code ignored;
            if (owner == getpid()) {
                std::filesystem::remove_all(path, ignored);
            }
        }
    } place;
    return place.path;
}

void Differ(const char* job, const char* who) {
    std::fprintf(stderr, "bench: %s: %s gives something else\n", job, who);
    std::exit(1);
}

void Target(const char* job, const char* target) {
    static std::set<std::string> told; // a job of several sizes tells its target each time
    if (told.insert(job).second) {
        benchmark::AddCustomContext(std::string("target|") + job, target);
    }
}

std::vector<unsigned char> Noise(std::size_t size) {
    std::vector<unsigned char> bytes(size);
    unsigned int state = 12345;
    for (unsigned char& byte : bytes) {
        state = state * 1103515245 + 12345;
        byte = static_cast<unsigned char>(state >> 16);
    }
    return bytes;
}

} // namespace bench

int main(int argc, char** argv) {
    // A fixed zone, and one with daylight saving, by its name: libc then looks for no file at each call.
    setenv("TZ", "Europe/Berlin", 1);
    bench::Directory();
    const char* counting =
        argc > 1 && std::strncmp(argv[1], "--count", 7) == 0 ? argv[1] + 7 : nullptr;
    benchmark::Initialize(&argc, argv);
    bench::AddDiag();
    bench::AddIpc();
    bench::AddEncoding();
    bench::AddBitMask();
    bench::AddTime();
    bench::AddSys();
    const char* only = counting != nullptr && *counting == '=' ? counting + 1 : "";
    for (const bench::Case& one : bench::Cases()) {
        if (counting == nullptr) {
            benchmark::internal::Benchmark* added =
                benchmark::RegisterBenchmark(one.name.c_str(), one.timed);
            if (one.heavy) {
                added->UseRealTime();
            }
        } else if (one.name.find(only) != std::string::npos) {
            const int times = one.heavy ? 1 : 64;
            one.counted(one.heavy ? 0 : times);
            const std::string title = one.name + '|' + std::to_string(times);
            CALLGRIND_ZERO_STATS;
            one.counted(times);
            CALLGRIND_DUMP_STATS_AT(title.c_str());
        }
    }
    if (counting == nullptr) {
        benchmark::RunSpecifiedBenchmarks();
    }
    return 0;
}
