#include "mavkit/diag/MavTrace.h"

#include "mavkit/diag/IsTraced.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/diag/TraceText.h"
#include "mavkit/encoding/HexDigits.h"
#include "mavkit/sys/OpenReported.h"
#include "mavkit/time/BcdTime.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace {

constexpr std::size_t kPathSize = 100;
constexpr std::size_t kBackupSize = 1000500;
constexpr std::size_t kRoom = 4096; // for a message on the stack
constexpr int kAppend = O_RDWR | O_CREAT | O_APPEND;
constexpr int kStdout = -2; // in the place of a descriptor

// The channels by number: how their files' names begin, and where their way is set.
constexpr struct {
    char word[6];
    unsigned char TraceSetting::*way;
} kChannels[] = {{"trace", &TraceSetting::traceWay},
                 {"data", &TraceSetting::dataWay},
                 {"sche", &TraceSetting::scheWay}};
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

// Those of the channels `takers` whose way opens something.
unsigned int Routed(const TraceSetting& setting, unsigned int takers) {
    for (unsigned char channel = 0; channel < kChannelCount; ++channel) {
        const unsigned char way = setting.*kChannels[channel].way;
        if (way == WAY_NONE || way > WAY_TTYP5)
            takers &= ~(1U << channel);
    }
    return takers;
}

// Formats a text that has only the conversions %s, %d and %u, as most have: on the target libc
// needs several times the instructions. Returns the end of the text, where there is still room for
// a terminator; null for another conversion, a null string, or a text without room before `end`.
char* FormatPlain(char* to, const char* end, const char* format, std::va_list args) {
    for (; *format != '\0'; ++format) {
        if (*format != '%') {
            *to++ = *format;
            if (to == end)
                return nullptr;
            continue;
        }
        ++format;
        const char* piece;
        std::size_t length;
        char digits[11]; // of a number and its sign
        if (*format == 's') {
            piece = va_arg(args, const char*);
            if (piece == nullptr)
                return nullptr;
            length = std::strlen(piece);
        } else if (*format == 'd' || *format == 'u') {
            const bool isSigned = *format == 'd';
            unsigned int rest = isSigned ? static_cast<unsigned int>(va_arg(args, int))
                                         : va_arg(args, unsigned int);
            const bool negative = isSigned && rest > INT_MAX;
            if (negative)
                rest = 0 - rest;
            char* first = digits + sizeof digits;
            do
                *--first = static_cast<char>('0' + rest % 10);
            while ((rest /= 10) != 0);
            if (negative)
                *--first = '-';
            piece = first;
            length = static_cast<std::size_t>(digits + sizeof digits - first);
        } else {
            return nullptr;
        }
        if (length >= static_cast<std::size_t>(end - to))
            return nullptr;
        std::memcpy(to, piece, length);
        to += length;
    }
    return to;
}

// Makes a path; returns false when it is too long: a shortened one would name another file.
__attribute__((format(printf, 3, 4))) bool MakePath(char* path, std::size_t size,
                                                    const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    char* const end = FormatPlain(path, path + size, format, args);
    va_end(args);
    if (end != nullptr)
        *end = '\0';
    return end != nullptr;
}

// Moves the content of the export file `path`, open as `fd`, into its backup and returns the
// emptied file; -1 when that cannot be opened. `fd` is closed, or returned when there is no memory.
int Rotate(int fd, const char* path) {
    // A megabyte, allocated only while a rotation runs.
    char* const content = static_cast<char*>(std::calloc(1, kBackupSize));
    if (content == nullptr)
        return fd;
    ssize_t count = 0;
    for (std::size_t at = 0; at < kBackupSize; at += static_cast<std::size_t>(count)) {
        count = pread(fd, content + at, kBackupSize - at, static_cast<off_t>(at));
        if (count <= 0)
            break;
    }
    close(fd);
    fd = mavkit::OpenReported(path, kAppend | O_TRUNC);
    char backupPath[kPathSize + 4];
    MakePath(backupPath, sizeof backupPath, "%s_bak", path);
    const int backup = mavkit::OpenReported(backupPath, O_RDWR | O_CREAT | O_TRUNC);
    if (backup != -1) {
        const bool whole = mavkit::WriteAll(backup, content, kBackupSize);
        // An incomplete backup would leave no room on a full card for later messages.
        if (close(backup) != 0 || !whole)
            std::remove(backupPath);
    }
    std::free(content);
    return fd;
}

// Opens what a message of a channel goes to: returns a descriptor, kStdout, or -1 for nothing.
int Open(unsigned char channel, unsigned char way, const char* name, long maxSize) {
    char path[kPathSize];
    if (way == WAY_STDOUT)
        return kStdout;
    if (way >= WAY_TTYP0 && way <= WAY_TTYP5) {
        MakePath(path, sizeof path, "/dev/pts/%d", way - WAY_TTYP0);
        // It never becomes the controlling terminal, whose end would kill the process, and a write
        // never waits for a reader: text that the terminal has no room for is dropped.
        return mavkit::OpenReported(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
    }
    const bool own = way == WAY_PRIVATE;
    if ((way != WAY_PUBLIC && !own) || channel >= kChannelCount ||
        !MakePath(path, sizeof path, "/mnt/sd/term/common/trace/%s%s%s.log",
                  kChannels[channel].word, own ? "_" : "", own ? name : ""))
        return -1;
    const int fd = mavkit::OpenReported(path, kAppend);
    if (fd == -1)
        return -1;
    const off_t size = lseek(fd, 0, SEEK_END);
    return size != static_cast<off_t>(-1) && size > maxSize ? Rotate(fd, path) : fd;
}

void Put(int fd, std::string_view text) {
    if (fd == kStdout)
        std::fwrite(text.data(), 1, text.size(), stdout);
    else
        mavkit::WriteAll(fd, text.data(), text.size());
}

// Appends a text to the `*length` characters with which `room` begins. Returns all of them in one
// piece, in `room` or in allocated memory; null when there is no memory for it.
char* Append(char (&room)[kRoom], std::size_t* length, std::string_view text) {
    const std::size_t whole = *length + text.size();
    char* const joined = whole <= kRoom ? room : static_cast<char*>(std::malloc(whole));
    if (joined != nullptr) {
        if (joined != room)
            std::memcpy(joined, room, *length);
        std::memcpy(joined + *length, text.data(), text.size());
        *length = whole;
    }
    return joined;
}

// The same for `format` with its arguments.
char* AppendFormatted(char (&room)[kRoom], std::size_t* length, const char* format,
                      std::va_list args) {
    std::va_list copy;
    va_copy(copy, args);
    const char* const end = FormatPlain(room + *length, room + kRoom, format, copy);
    va_end(copy);
    if (end == nullptr)
        return mavkit::FormatBehind(room, kRoom, length, format, args);
    *length = static_cast<std::size_t>(end - room);
    return room;
}

// Writes a text that was not made in one piece, by pieces: `format` with `args`, or `text` when
// `args` is null.
void PutPieces(int fd, std::string_view text, const char* format, std::va_list* args) {
    if (args == nullptr) {
        Put(fd, text);
        return;
    }
    std::va_list copy; // one message may go to all three channels
    va_copy(copy, *args);
    if (fd == kStdout)
        std::vprintf(format, copy);
    else
        vdprintf(fd, format, copy);
    va_end(copy);
}

// Writes a message to the channels that take it: `format` with `args`, or `text` when `args` is
// null.
void Write(MavTrace& trace, const TraceSetting& setting, std::string_view text, const char* format,
           std::va_list* args) {
    const int error = errno; // for "%m"
    RestoreBuiltIn();
    const unsigned int takers = Routed(setting, Takers(setting, trace.level, trace.flags));
    if (takers == 0)
        return;
    char name[sizeof setting.name + 1]; // the record's may lack its terminator
    std::memcpy(name, setting.name, sizeof setting.name);
    name[sizeof setting.name] = '\0';
    char room[kRoom];
    std::size_t prefix = 0;
    if (setting.prefixOn != 0 && !trace.printed) {
        char now[7];
        Get_CurBCDTime7(now);
        prefix = std::strlen(MavTrace::Prefix);
        std::memcpy(room, MavTrace::Prefix, prefix);
        mavkit::FillHex("(#-# #:#:#):", now + 2, room + prefix);
        prefix += sizeof "(03-05 06:07:08):" - 1;
    }
    std::size_t length = prefix;
    char* message;
    if (args == nullptr) {
        message = Append(room, &length, text);
    } else {
        std::va_list copy;
        va_copy(copy, *args);
        errno = error;
        message = AppendFormatted(room, &length, format, copy);
        va_end(copy);
    }
    for (unsigned char channel = 0; channel < kChannelCount; ++channel) {
        if ((takers >> channel & 1U) == 0)
            continue;
        const int fd = Open(channel, setting.*kChannels[channel].way, name, setting.maxSize);
        errno = error;
        if (fd == -1)
            continue;
        // The prefix is for the first channel only.
        const std::size_t from = trace.printed ? prefix : 0;
        if (message != nullptr) {
            Put(fd, {message + from, length - from});
        } else {
            Put(fd, {room + from, prefix - from});
            PutPieces(fd, text, format, args);
        }
        if (prefix != 0)
            trace.printed = true;
        if (fd != kStdout)
            close(fd);
    }
    if (message != room)
        std::free(message);
}

} // namespace

bool mavkit::IsTraced(int level, unsigned int flags) {
    RestoreBuiltIn();
    const TraceSetting& setting = ActiveSetting();
    return Routed(setting, Takers(setting, level, flags)) != 0;
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
    const int fd = Open(channel, way, name != nullptr ? name : "", maxSize);
    if (fd == -1)
        return nullptr;
    if (fd == kStdout)
        return stdout;
    std::FILE* file = fdopen(fd, "r+");
    if (file == nullptr)
        close(fd);
    return file;
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
