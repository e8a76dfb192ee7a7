// What the fuzz targets share. A target is a function, `void Name(fuzz::Input in)`, with its corpus
// in corpus/Name. It is built twice: as a libFuzzer program of its own, which searches, and into
// fuzz_test, which replays the corpus with the ordinary suite.
#ifndef MAVKIT_TESTS_FUZZ_FUZZ_H
#define MAVKIT_TESTS_FUZZ_FUZZ_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// Ends the program, with the expression and the whole input, when a property is broken.
#define CHECK(condition) ((condition) ? (void)0 : fuzz::Break(__FILE__, __LINE__, #condition))

namespace fuzz {

// In a heap block of exactly their size, so that the sanitizer sees every access beyond them.
using Bytes = std::vector<unsigned char>;

// The input, read from its front; beyond its end there are zeros.
struct Input {
    const unsigned char* next;
    std::size_t left;

    unsigned char Byte() {
        if (left == 0)
            return 0;
        --left;
        return *next++;
    }

    // A number in 0 to 8 bytes, so that small ones, negative ones and the limits of all widths come
    // up; the same on every machine.
    long long Number() {
        const unsigned char head = Byte();
        unsigned long long value = 0;
        for (int i = head % 9; i > 0; --i)
            value = value << 8 | Byte();
        return static_cast<long long>(head < 0x80 ? value : ~value);
    }

    // The next `count` bytes.
    Bytes Take(std::size_t count) {
        Bytes bytes(count);
        std::generate(bytes.begin(), bytes.end(), [this] { return Byte(); });
        return bytes;
    }

    // The same as a text: up to its first zero byte.
    std::string Text(std::size_t count) {
        const Bytes bytes = Take(count);
        return std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
    }
};

// The whole input of the run, for Break().
inline Input whole = {};

inline void Run(void (*target)(Input), const unsigned char* data, std::size_t size) {
    whole = {data, size};
    target(whole);
}

[[noreturn]] inline void Break(const char* file, int line, const char* condition) {
    std::fprintf(stderr, "%s:%d: %s\ninput of %zu bytes:", file, line, condition, whole.left);
    while (whole.left > 0)
        std::fprintf(stderr, " %02X", unsigned{whole.Byte()});
    std::fputc('\n', stderr);
    std::abort();
}

} // namespace fuzz

#ifdef MAVKIT_FUZZ_TARGET // the target that this program searches
void MAVKIT_FUZZ_TARGET(fuzz::Input in);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    fuzz::Run(MAVKIT_FUZZ_TARGET, data, size);
    return 0;
}
#endif

#endif
