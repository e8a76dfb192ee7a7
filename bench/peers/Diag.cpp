// Log lines by spdlog; hex text by fmt and Abseil.
#include "Lines.h"
#include "peers/Peers.h"

#include "mavkit/diag/PrintString.h"

#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>
#include <absl/strings/string_view.h>
#include <fmt/format.h>
#include <memory>
#include <spdlog/details/file_helper.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

namespace {

using bench::kMeter;
using bench::Size;
using bench::watts;

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

void AddLine(const bench::Line& line) {
    const char* pattern = line.stamp[0] == 'k' ? "kor(%m-%d %H:%M:%S):%v" : "%m-%d %H:%M:%S\t%v";
    const std::string path = line.path;
    const auto logger =
        std::make_shared<spdlog::logger>(path, std::make_shared<ReopeningSink>(path));
    logger->set_formatter(
        std::make_unique<spdlog::pattern_formatter>(pattern, spdlog::pattern_time_type::local, ""));
    const std::string text = line.text;
    const auto logged = [logger, text] {
        logger->info("meter {}: {} W{}\n", kMeter, int{watts}, text);
    };
    bench::SameLine(line, "spdlog", logged);
    bench::Add(line.job, line.size, "spdlog", logged, [path] { bench::Empty(path); });
}

constexpr std::size_t kLine = 36;

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

template <typename Render>
void AddHex(Size size, const char* who, Render render) {
    const std::vector<unsigned char> data = bench::Noise(static_cast<std::size_t>(size.units));
    std::string expected;
    GetPrintString(expected, data.data(), static_cast<unsigned>(data.size()), true, 0);
    std::string text;
    render(text, data);
    bench::Same("hex rendering", who, text, expected);
    bench::Add("hex rendering", size, who, [text, data, render]() mutable {
        text.clear();
        render(text, data);
        bench::Use(text.data());
    });
}

} // namespace

void bench::AddDiagPeers() {
    const char* job = "trace message under the threshold";
    spdlog::set_default_logger(
        std::make_shared<spdlog::logger>("", std::make_shared<spdlog::sinks::null_sink_st>()));
    spdlog::set_level(spdlog::level::err);
    Add(job, {"3 arguments", 0}, "spdlog",
        [] { spdlog::info("meter {}: {} W\n", kMeter, int{watts}); });
    static const std::shared_ptr<spdlog::logger> logger = spdlog::default_logger();
    Add(job, {"3 arguments", 0}, "spdlog, logger at hand",
        [] { logger->info("meter {}: {} W\n", kMeter, int{watts}); });
    for (const Line& line : Lines()) {
        AddLine(line);
    }
    for (const Size size : {Size{"64 B", 64}, Size{"4 KiB", 4096}}) {
        AddHex(size, "fmt", HexByFmt);
        AddHex(size, "absl", HexByAbsl);
    }
}
