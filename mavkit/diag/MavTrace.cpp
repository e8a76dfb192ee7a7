#include "mavkit/diag/MavTrace.h"

#include "mavkit/diag/ExportWay.h"
#include "mavkit/diag/IsTraced.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/diag/TraceText.h"
#include "mavkit/encoding/HexDigits.h"
#include "mavkit/sys/MavFile.h"
#include "mavkit/sys/OpenTerminal.h"
#include "mavkit/time/BcdTime.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <string_view>
#include <unistd.h>

namespace {

using mavkit::ExportWay;

constexpr std::size_t kPathSize = 100;
constexpr std::size_t kBackupSize = 1000500;

// The channels by number: the beginning of their files' paths, and where their way is set.
constexpr struct {
    char path[32];
    unsigned char TraceSetting::*way;
} kChannels[] = {{"/mnt/sd/term/common/trace/trace", &TraceSetting::traceWay},
                 {"/mnt/sd/term/common/trace/data", &TraceSetting::dataWay},
                 {"/mnt/sd/term/common/trace/sche", &TraceSetting::scheWay}};
constexpr unsigned char kChannelCount = sizeof kChannels / sizeof kChannels[0];

constexpr TraceSetting BuiltIn() {
    TraceSetting setting;
    constexpr char kName[] = "Command";
    for (std::size_t i = 0; i < sizeof kName; ++i)
        setting.name[i] = kName[i];
    return setting;
}
constexpr TraceSetting kBuiltIn = BuiltIn();

// The built-in setting as callers get it. Once GetSetting() has returned it a caller may have
// changed it, so it is restored before each use; before that there is nothing to restore.
TraceSetting builtIn = kBuiltIn;
std::atomic<bool> handedOut{false};

bool IsHandedOut() { return handedOut.load(std::memory_order_relaxed); }

void RestoreBuiltIn() {
    if (IsHandedOut())
        builtIn = kBuiltIn;
}

const TraceSetting& ActiveSetting() {
    const TraceSetting* setting = MavTrace::Setting;
    return setting != nullptr ? *setting : builtIn;
}

// The channels that take a message, a bit each.
unsigned int Takers(const TraceSetting& setting, int level, unsigned int flags) {
    return (level <= setting.level ? 1U : 0U) | (flags & 3U) << 1;
}

// Joins `parts` to a path of less than `size` characters; returns false when they are longer: a
// shortened path would name another file.
bool Join(char* path, std::size_t size, std::initializer_list<std::string_view> parts) {
    for (const std::string_view part : parts) {
        if (part.size() >= size)
            return false;
        std::memcpy(path, part.data(), part.size());
        path += part.size();
        size -= part.size();
    }
    *path = '\0';
    return true;
}

// Moves the content of the export file `path`, open as `file`, into its backup and returns the
// emptied file; null when that cannot be opened. `file` is closed, or returned when there is no
// memory.
std::FILE* Rotate(std::FILE* file, const char* path) {
    // A megabyte, allocated only while a rotation runs.
    void* content = std::calloc(1, kBackupSize);
    if (content == nullptr)
        return file;
    std::rewind(file);
    [[maybe_unused]] const std::size_t length = std::fread(content, 1, kBackupSize, file);
    std::fclose(file);
    file = MavFile::OpenFile(path, "w+");
    // Other processes append to the emptied file at once; a stream that wrote at its own offset
    // would write over their lines.
    if (file != nullptr)
        fcntl(fileno(file), F_SETFL, O_APPEND);
    char backupPath[kPathSize + 4];
    Join(backupPath, sizeof backupPath, {path, "_bak"});
    if (std::FILE* backup = MavFile::OpenFile(backupPath, "w+")) {
        std::setvbuf(backup, nullptr, _IONBF, 0); // so that a failed write is seen at once
        const bool whole = std::fwrite(content, kBackupSize, 1, backup) == 1;
        // An incomplete backup would leave no room on a full card for later messages.
        if (std::fclose(backup) != 0 || !whole)
            std::remove(backupPath);
    }
    std::free(content);
    return file;
}

std::FILE* Open(unsigned char channel, unsigned char way, std::string_view name, long maxSize) {
    const ExportWay& exportWay = mavkit::FindWay(way);
    switch (exportWay.kind) {
    case ExportWay::None:
        return nullptr;
    case ExportWay::Stdout:
        return stdout;
    case ExportWay::Terminal:
        return mavkit::OpenTerminal(exportWay.terminal);
    case ExportWay::SharedFile:
    case ExportWay::OwnFile:
        break;
    }
    const bool own = exportWay.kind == ExportWay::OwnFile;
    char path[kPathSize];
    if (channel >= kChannelCount ||
        !Join(path, sizeof path,
              {kChannels[channel].path, own ? "_" : "", own ? name : "", ".log"}))
        return nullptr;
    std::FILE* file = MavFile::OpenFile(path, "a+");
    if (file == nullptr)
        return nullptr;
    // lseek reports the size in one call; on an untouched stream it is the same as fseek and ftell.
    const off_t size = lseek(fileno(file), 0, SEEK_END);
    return size != static_cast<off_t>(-1) && size > maxSize ? Rotate(file, path) : file;
}

// Writes a prefix and a text to `file`: in one write, unless there is no memory for a long text.
void WritePlain(std::FILE* file, std::string_view prefix, std::string_view text) {
    if (!prefix.empty()) {
        const std::size_t length = prefix.size() + text.size();
        char room[4096];
        char* joined = length <= sizeof room ? room : static_cast<char*>(std::malloc(length));
        if (joined != nullptr) {
            std::memcpy(joined, prefix.data(), prefix.size());
            std::memcpy(joined + prefix.size(), text.data(), text.size());
            std::fwrite(joined, 1, length, file);
            if (joined != room)
                std::free(joined);
            return;
        }
        std::fwrite(prefix.data(), 1, prefix.size(), file);
    }
    std::fwrite(text.data(), 1, text.size(), file);
}

// Writes a message to the channels that take it: `format` with `args`, or `text` when `args` is
// null.
void Write(MavTrace& trace, const TraceSetting& setting, std::string_view text, const char* format,
           std::va_list* args) {
    const int error = errno; // for "%m"
    RestoreBuiltIn();
    const unsigned int takers = Takers(setting, trace.level, trace.flags);
    if (takers == 0)
        return;
    // The record's name may lack its terminator.
    const std::string_view name(setting.name, strnlen(setting.name, sizeof setting.name));
    char prefix[sizeof "kor(03-05 06:07:08):"];
    *prefix = '\0';
    if (setting.prefixOn != 0 && !trace.printed) {
        char now[7];
        Get_CurBCDTime7(now);
        const std::size_t tag = std::strlen(MavTrace::Prefix);
        std::memcpy(prefix, MavTrace::Prefix, tag);
        mavkit::FillHex("(#-# #:#:#):", now + 2, prefix + tag);
    }
    for (unsigned char channel = 0; channel < kChannelCount; ++channel) {
        if ((takers >> channel & 1U) == 0)
            continue;
        std::FILE* file = Open(channel, setting.*kChannels[channel].way, name, setting.maxSize);
        errno = error;
        if (file == nullptr)
            continue;
        if (file != stdout)
            std::setvbuf(file, nullptr, _IONBF, 0);
        if (args == nullptr) {
            WritePlain(file, prefix, text);
        } else {
            std::va_list copy; // one message may go to all three
            va_copy(copy, *args);
            WriteLogEntry(file, prefix, std::strlen(prefix), format, copy);
            va_end(copy);
        }
        if (*prefix != '\0')
            trace.printed = true;
        *prefix = '\0'; // for the first channel only
        if (file != stdout)
            std::fclose(file);
    }
}

} // namespace

bool mavkit::IsTraced(int level, unsigned int flags) {
    RestoreBuiltIn();
    const TraceSetting& setting = ActiveSetting();
    const unsigned int takers = Takers(setting, level, flags);
    for (unsigned char channel = 0; channel < kChannelCount; ++channel)
        if ((takers >> channel & 1U) != 0 &&
            FindWay(setting.*kChannels[channel].way).kind != ExportWay::None)
            return true;
    return false;
}

void mavkit::TraceText(MavTrace& trace, std::string_view text) {
    Write(trace, ActiveSetting(), text, nullptr, nullptr);
}

const char MavTrace::Prefix[] = "kor";
TraceSetting* MavTrace::Setting = nullptr;

const TraceSetting& MavTrace::GetSetting() const {
    RestoreBuiltIn();
    const TraceSetting& setting = ActiveSetting();
    if (&setting == &builtIn)
        handedOut.store(true, std::memory_order_relaxed);
    return setting;
}

std::FILE* MavTrace::GetExportFile(unsigned char channel, unsigned char way, const char* name,
                                   long maxSize) const {
    return Open(channel, way, name != nullptr ? name : "", maxSize);
}

// Kept short: most messages of a program are not written and end at the first test.
void MavTrace::operator()(const char* format, ...) {
    const TraceSetting& setting = ActiveSetting();
    if (Takers(setting, level, flags) == 0 && !IsHandedOut())
        return;
    std::va_list args;
    va_start(args, format);
    Write(*this, setting, {}, format, &args);
    va_end(args);
}
