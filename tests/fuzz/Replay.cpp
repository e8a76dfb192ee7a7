// Each input of the corpus runs through its target, so that a fault that the search has found once
// is found again, and then with bytes changed at random, the same ones in each run.
#include "Fuzz.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>

#define REPLAY(target)                                                                             \
    void target(fuzz::Input);                                                                      \
    TEST(Corpus, target) { Replay(#target, target); }

namespace {

void Replay(const char* name, void (*target)(fuzz::Input)) {
    const std::filesystem::path folder = std::filesystem::path(MAVKIT_CORPUS) / name;
    int inputs = 0;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
        // A broken property ends the program, so the name comes first.
        std::cerr << "replay " << entry.path() << std::endl;
        std::ifstream file(entry.path(), std::ios::binary);
        const fuzz::Bytes bytes((std::istreambuf_iterator<char>(file)), {});
        ASSERT_TRUE(file.good() || file.eof());
        fuzz::Run(target, bytes.data(), bytes.size());
        std::mt19937 random(1);
        for (int variant = 0; variant < 500 && !bytes.empty(); ++variant) {
            fuzz::Bytes changed = bytes;
            for (int changes = variant % 4; changes >= 0; --changes)
                changed[random() % changed.size()] = static_cast<unsigned char>(random());
            fuzz::Run(target, changed.data(), changed.size());
        }
        ++inputs;
    }
    EXPECT_GT(inputs, 0) << "no corpus in " << folder;
}

} // namespace

FUZZ_TARGETS

TEST(Corpus, EveryPairOfLayouts) {
    fuzz::Bytes bytes = {0, 0, 0x08, 0x07, 0x06, 0x05, 0x03, 0x24, 0x19, 0x01};
    for (int codes = 0; codes <= 0xFFFF; ++codes) {
        bytes[0] = static_cast<unsigned char>(codes >> 8);
        bytes[1] = static_cast<unsigned char>(codes);
        fuzz::Run(LayoutExchange, bytes.data(), bytes.size());
    }
}
