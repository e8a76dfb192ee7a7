// Trace lines, the general log, and bytes as hex text.
#include "Lines.h"

#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/PrintString.h"
#include "mavkit/diag/Trace.h"

#include <atomic>
#include <climits>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* Here(const char* path) {
    constexpr char kTrace[] = "/mnt/sd/term/common/trace/trace.log";
    return std::strcmp(path, kTrace) == 0 ? bench::TracePath().c_str() : path;
}

} // namespace

// The channel's directory is fixed, so the linker sends its calls here.
extern "C" {
std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) {
    return __real_fopen(Here(path), mode);
}
std::FILE* __real_fopen64(const char* path, const char* mode);
std::FILE* __wrap_fopen64(const char* path, const char* mode) {
    return __real_fopen64(Here(path), mode);
}
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, mode_t mode) {
    return __real_open(Here(path), flags, mode);
}
#if defined(__mips__)
// The cost of converting a time depends on the time, so the clock does not advance when
// instructions are counted. The system call is made anyway.
std::time_t __real_time(std::time_t* out);
std::time_t __wrap_time(std::time_t* out) {
    __real_time(out);
    const std::time_t now = 1709593628;
    if (out != nullptr) {
        *out = now;
    }
    return now;
}
#endif
int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, mode_t mode) {
    return __real_open64(Here(path), flags, mode);
}
}

volatile int bench::watts = 1234;

const std::string& bench::TracePath() {
    static const std::string path = Directory() + "/trace.log";
    return path;
}

std::string bench::Content(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void bench::Empty(const std::string& path) {
    close(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666));
}

void bench::SameLine(const Line& line, const char* who, const std::function<void()>& other) {
    const auto once = [&](const std::function<void()>& write) {
        Empty(line.path);
        write();
        return Content(line.path);
    };
    // The second may change between the two lines: then it tries once more.
    for (int tries = 0; once(line.ours) != once(other); ++tries) {
        if (tries == 2) {
            Differ(line.job, who);
        }
    }
}

void bench::WriteLine(const std::string& path, const std::string& line, bool limited) {
    const std::time_t now = std::time(nullptr);
    Use(std::localtime(&now));
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND, 0666);
    if (limited) {
        Use(lseek(fd, 0, SEEK_END));
    }
    Use(write(fd, line.data(), line.size()));
    close(fd);
}

const std::vector<bench::Line>& bench::Lines() {
    static const std::vector<Line> lines = [] {
        static TraceSetting open;
        open.traceWay = WAY_PUBLIC;
        open.level = LEVEL_INFO;
        open.maxSize = INT_MAX;
        const std::string general = Directory() + "/general.log";
        std::vector<Line> all;
        for (const Size size : {Size{"20 B", 20}, Size{"1 KiB", 1020}}) {
            const std::string text(static_cast<std::size_t>(size.units) - 20, 'x');
            all.push_back({"trace line to a public file", size, TracePath(), text,
                           "kor(%02d-%02d %02d:%02d:%02d):", [text] {
                               MavTrace::Setting = &open;
                               MavTrace(LEVEL_INFO, 0)("meter %s: %d W%s\n", kMeter, int{watts},
                                                       text.c_str());
                           }});
            all.push_back({"general-log line", size, general, text, "%02d-%02d %02d:%02d:%02d\t",
                           [text, general] {
                               Trace{general.c_str(), __LINE__, 0}("meter %s: %d W%s\n", kMeter,
                                                                   int{watts}, text.c_str());
                           }});
        }
        return all;
    }();
    return lines;
}

namespace {

using bench::Size;
using bench::watts;

void AddTrace() {
    static TraceSetting quiet;
    quiet.level = LEVEL_ERROR;
    const auto silence = [] { MavTrace::Setting = &quiet; };

    const char* job = "trace message under the threshold";
    bench::Targets()[job] = "peer 1.0 ns 10";
    static std::atomic<int> threshold{LEVEL_ERROR};
    bench::Add(
        job, {"3 arguments", 0}, "ours",
        [] { MavTrace(LEVEL_INFO, 0)("meter %s: %d W\n", bench::kMeter, int{watts}); }, silence);
    bench::Add(job, {"3 arguments", 0}, "floor", [] {
        if (LEVEL_INFO <= threshold.load(std::memory_order_relaxed)) {
            std::abort();
        }
    });
    for (const bench::Line& line : bench::Lines()) {
        bench::Targets()[line.job] = "floor 1.25";
        const std::string path = line.path;
        const auto prepare = [path] { bench::Empty(path); };
        const auto printed = [&line] {
            const std::time_t now = std::time(nullptr);
            const std::tm* t = std::localtime(&now);
            std::FILE* file = std::fopen(line.path.c_str(), "a+");
            std::fprintf(file, line.stamp, t->tm_mon + 1, t->tm_mday, t->tm_hour, t->tm_min,
                         t->tm_sec);
            std::fprintf(file, "meter %s: %d W%s\n", bench::kMeter, int{watts}, line.text.c_str());
            std::fclose(file);
        };
        bench::SameLine(line, "fopen, fprintf, fclose", printed);
        const std::string content = bench::Content(path);
        const bool limited = path == bench::TracePath();
        bench::Add(line.job, line.size, "ours", line.ours, prepare);
        bench::Add(
            line.job, line.size, "floor",
            [path, content, limited] { bench::WriteLine(path, content, limited); }, prepare);
        bench::Add(line.job, line.size, "fopen, fprintf, fclose", printed, prepare);
    }
}

constexpr std::size_t kLine = 36;

void HexByPrintf(std::string& out, const std::vector<unsigned char>& data) {
    char digits[4];
    std::size_t inLine = 0;
    for (const unsigned char byte : data) {
        std::snprintf(digits, sizeof digits, "%02X ", unsigned{byte});
        out.append(digits, 3);
        if (++inLine == kLine) {
            inLine = 0;
            out += '\n';
        }
    }
}

void AddHex() {
    const char* job = "hex rendering";
    bench::Targets()[job] = "peer 1.0";
    for (const Size size : {Size{"64 B", 64}, Size{"4 KiB", 4096}}) {
        const std::vector<unsigned char> data = bench::Noise(static_cast<std::size_t>(size.units));
        std::string expected;
        GetPrintString(expected, data.data(), static_cast<unsigned>(data.size()), true, 0);
        // Each appends to a string that keeps its memory from one repetition to the next.
        const auto add = [&](const char* who, auto render) {
            std::string text;
            render(text, data);
            bench::Same(job, who, text, expected);
            bench::Add(job, size, who, [text, data, render]() mutable {
                text.clear();
                render(text, data);
                bench::Use(text.data());
            });
        };
        add("ours", [](std::string& out, const std::vector<unsigned char>& bytes) {
            GetPrintString(out, bytes.data(), static_cast<unsigned>(bytes.size()), true, 0);
        });
        add("floor", [expected](std::string& out, const std::vector<unsigned char>&) {
            out.append(expected);
        });
        add("snprintf", HexByPrintf);
    }
}

} // namespace

void bench::AddDiag() {
    AddTrace();
    AddHex();
}
