// Every input of the corpus through its target: what the search has found stays found.
#include "Fuzz.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

#define REPLAY(target)                                                                             \
    void target(fuzz::Input);                                                                      \
    TEST(Corpus, target) { Replay(#target, target); }

namespace {

void Replay(const char* name, void (*target)(fuzz::Input)) {
    const std::filesystem::path folder = std::filesystem::path(MAVKIT_CORPUS) / name;
    int inputs = 0;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
        // A property that does not hold ends the program: the name stands before.
        std::cerr << "replay " << entry.path() << std::endl;
        std::ifstream file(entry.path(), std::ios::binary);
        const fuzz::Bytes bytes((std::istreambuf_iterator<char>(file)), {});
        ASSERT_TRUE(file.good() || file.eof());
        target({bytes.data(), bytes.size()});
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
        LayoutExchange({bytes.data(), bytes.size()});
    }
}
