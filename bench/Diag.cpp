// Trace lines, the general log, and bytes as hex text.
#include "Bench.h"

#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/PrintString.h"
#include "mavkit/diag/Trace.h"

#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>
#include <absl/strings/string_view.h>
#include <atomic>
#include <climits>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <memory>
#include <spdlog/details/file_helper.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Where trace.log of the trace channel goes.
std::string& TracePath() {
    static std::string path;
    return path;
}

} // namespace

extern "C" FILE* __real_fopen(const char* path, const char* mode);
extern "C" FILE* __wrap_fopen(const char* path, const char* mode);

FILE* __wrap_fopen(const char* path, const char* mode) {
    constexpr char kTrace[] = "/mnt/sd/term/common/trace/trace.log";
    return __real_fopen(std::strcmp(path, kTrace) == 0 ? TracePath().c_str() : path, mode);
}

namespace {

using bench::Size;

const char kName[] = "kitchen";
volatile int watts = 1234;

// spdlog's way to write a file that is opened for each line and closed after it.
class ReopeningSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    explicit ReopeningSink(std::string path) : path_(std::move(path)) {}

private:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        spdlog::details::file_helper file;
        file.open(path_);
        file.write(text);
    }
    void flush_() override {}

    const std::string path_;
};

std::shared_ptr<spdlog::logger> ReopeningLogger(const std::string& path, const char* pattern) {
    auto logger = std::make_shared<spdlog::logger>(path, std::make_shared<ReopeningSink>(path));
    logger->set_formatter(
        std::make_unique<spdlog::pattern_formatter>(pattern, spdlog::pattern_time_type::local, ""));
    return logger;
}

std::string Content(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void Empty(const std::string& path) {
    close(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666));
}

// What a line cannot be written without; only the trace channel has to know how long the file is.
void WriteLine(const std::string& path, const std::string& line, bool limited) {
    const time_t now = time(nullptr);
    bench::Use(localtime(&now));
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND, 0666);
    if (limited) {
        struct stat status;
        fstat(fd, &status);
    }
    bench::Use(write(fd, line.data(), line.size()));
    close(fd);
}

// A line of one of the logs, `ours`, beside the same line by other hands.
template <typename Ours>
void AddLine(const char* job, const char* size, const std::string& path, const std::string& message,
             const char* pattern, const char* stampFormat, Ours ours) {
    const Size at = {size, static_cast<double>(message.size())};
    const auto ready = [path] { Empty(path); };
    const auto printed = [path, message, stampFormat] {
        const time_t now = time(nullptr);
        const tm* t = localtime(&now);
        FILE* file = __real_fopen(path.c_str(), "a+");
        std::fprintf(file, stampFormat, t->tm_mon + 1, t->tm_mday, t->tm_hour, t->tm_min,
                     t->tm_sec);
        std::fprintf(file, "meter %s: %d W%s\n", kName, int{watts}, message.c_str());
        std::fclose(file);
    };
    const auto logger = ReopeningLogger(path, pattern);
    const auto logged = [logger, message] {
        logger->info("meter {}: {} W{}\n", kName, int{watts}, message);
    };
    // The second may change between the lines: then once more.
    std::string line;
    for (int tries = 0; tries < 3; ++tries) {
        const auto once = [&](auto&& hand) {
            Empty(path);
            hand();
            return Content(path);
        };
        line = once(ours);
        if (line == once(printed) && line == once(logged)) {
            break;
        }
        if (tries == 2) {
            bench::Differ(job, "a peer");
        }
    }
    const bool limited = path == TracePath();
    bench::Add(job, at, "ours", ours, ready);
    bench::Add(
        job, at, "floor", [path, line, limited] { WriteLine(path, line, limited); }, ready);
    bench::Add(job, at, "fopen, fprintf, fclose", printed, ready);
    bench::Add(job, at, "spdlog", logged, ready);
}

void AddTrace() {
    static TraceSetting quiet;
    quiet.level = LEVEL_ERROR;
    const auto silence = [] { MavTrace::Setting = &quiet; };

    const char* job = "trace message under the threshold";
    bench::Target(job, "peer 1.0 ns 10");
    static std::atomic<int> threshold{LEVEL_ERROR};
    bench::Add(
        job, {"3 arguments", 0}, "ours",
        [] { MavTrace(LEVEL_INFO, 0)("meter %s: %d W\n", kName, int{watts}); }, silence);
    bench::Add(job, {"3 arguments", 0}, "floor", [] {
        if (LEVEL_INFO <= threshold.load(std::memory_order_relaxed)) {
            std::abort();
        }
    });
    spdlog::set_default_logger(
        std::make_shared<spdlog::logger>("", std::make_shared<spdlog::sinks::null_sink_st>()));
    spdlog::set_level(spdlog::level::err);
    bench::Add(job, {"3 arguments", 0}, "spdlog",
               [] { spdlog::info("meter {}: {} W\n", kName, int{watts}); });
    static const std::shared_ptr<spdlog::logger> logger = spdlog::default_logger();
    bench::Add(job, {"3 arguments", 0}, "spdlog, logger at hand",
               [] { logger->info("meter {}: {} W\n", kName, int{watts}); });

    static TraceSetting open;
    open.traceWay = WAY_PUBLIC;
    open.maxSize = INT_MAX;
    TracePath() = bench::Directory() + "/trace.log";
    MavTrace::Setting = &open;
    const std::string texts[] = {"", std::string(1000, 'x')};
    const char* sizes[] = {"20 B", "1 KiB"};
    bench::Target("trace line to a public file", "floor 1.25");
    bench::Target("general-log line", "floor 1.25");
    const std::string general = bench::Directory() + "/general.log";
    for (int i = 0; i < 2; ++i) {
        const std::string& text = texts[i];
        AddLine("trace line to a public file", sizes[i], TracePath(), text,
                "kor(%m-%d %H:%M:%S):%v", "kor(%02d-%02d %02d:%02d:%02d):", [text] {
                    MavTrace::Setting = &open;
                    MavTrace(LEVEL_INFO, 0)("meter %s: %d W%s\n", kName, int{watts}, text.c_str());
                });
        AddLine("general-log line", sizes[i], general, text, "%m-%d %H:%M:%S\t%v",
                "%02d-%02d %02d:%02d:%02d\t", [text, general] {
                    Trace{general.c_str(), __LINE__, 0}("meter %s: %d W%s\n", kName, int{watts},
                                                        text.c_str());
                });
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

void HexByFmt(std::string& out, const std::vector<unsigned char>& data) {
    const auto to = std::back_inserter(out);
    for (std::size_t at = 0; at < data.size(); at += kLine) {
        const unsigned char* first = data.data() + at;
        const std::size_t length = std::min(kLine, data.size() - at);
        fmt::format_to(to, "{:02X} ", fmt::join(first, first + length, " "));
        if (length == kLine) {
            out += '\n';
        }
    }
}

void HexByAbsl(std::string& out, const std::vector<unsigned char>& data) {
    std::string digits = absl::BytesToHexString(
        absl::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
    absl::AsciiStrToUpper(&digits);
    for (std::size_t i = 0; i < data.size(); ++i) {
        const char group[] = {digits[2 * i], digits[2 * i + 1], ' '};
        out.append(group, sizeof group);
        if (i % kLine == kLine - 1) {
            out += '\n';
        }
    }
}

void AddHex() {
    const char* job = "hex rendering";
    bench::Target(job, "peer 1.0");
    for (const Size size : {Size{"64 B", 64}, Size{"4 KiB", 4096}}) {
        static const std::vector<unsigned char> all = bench::Noise(4096);
        const std::vector<unsigned char> data(all.begin(),
                                              all.begin() + static_cast<long>(size.units));
        std::string expected;
        GetPrintString(expected, data.data(), static_cast<unsigned>(data.size()), true, 0);
        // Each hand appends to a string that keeps its memory from time to time.
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
        add("fmt", HexByFmt);
        add("absl", HexByAbsl);
    }
}

} // namespace

void bench::AddDiag() {
    AddTrace();
    AddHex();
}
