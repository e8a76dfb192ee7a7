#include "Bench.h"

#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace bench {

std::vector<Case>& Cases() {
    static std::vector<Case> cases;
    return cases;
}

std::map<std::string, std::string>& Targets() {
    static std::map<std::string, std::string> targets;
    return targets;
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
    std::fprintf(stderr, "bench: %s: %s gives another result\n", job, who);
    std::exit(1);
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

void AddAll(bool large) {
    Directory(); // made first, so that it is removed last
    AddDiag();
    AddIpc(large);
    AddEncoding(large);
    AddBitMask(large);
    AddTime();
    AddSys(large);
}

} // namespace bench
