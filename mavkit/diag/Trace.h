/// \file
/// The general log: one file to which every process of the terminal appends its errors, a line
/// each, with the time but without levels, settings or rotation. Informational messages go through
/// `MavTrace` instead.
///
/// An entry is the stamp, a tab and the caller's text, which carries its own line end:
///
///     03-05 06:07:08<TAB>ShareMem: open file error No such file or directory,file name is ...
///
/// (month-day hour:minute:second in local time, no year). The file is opened for each entry and
/// closed after it. An entry of any length is appended in one write, so processes that log at once
/// never mix their lines; only when there is no memory for an entry above 4 KiB is it written in
/// pieces.
#ifndef MAVKIT_DIAG_TRACE_H
#define MAVKIT_DIAG_TRACE_H

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

/// Where the general log is.
#define GENERAL_LOG_PATH "/mnt/sdcard/log/general.log"

/// One message for a log file, built on the stack where it is written. Use `GENERAL_LOG` unless the
/// file is another one: `Trace{"/mnt/sdcard/log/mine.log", __LINE__, 0}("started\n")`.
struct Trace {
    const char* path;  ///< the file to append to
    int line;          ///< source line of the call; stored, not printed
    unsigned int flag; ///< 0; stored, not printed

    /// Appends one entry: the stamp and the printf-style `format` with its arguments.
    ///
    /// Where the file cannot be opened (no card, no directory, no descriptors) the text alone,
    /// without stamp, goes to standard output. Write errors are ignored: text that does not fit on
    /// a full card is lost, and the beginning of the entry may stay in the file without its end.
    /// Returns nothing and throws nothing.
    void operator()(const char* format, ...) const __attribute__((format(printf, 2, 3)));
};

/// Appends an entry to the general log: `GENERAL_LOG("Meter: no answer from %s\n", name);`
#define GENERAL_LOG(...) (Trace{GENERAL_LOG_PATH, __LINE__, 0}(__VA_ARGS__))

namespace mavkit {

/// Writes `length` characters to the descriptor `fd`, in one write unless the system takes fewer at
/// once. For `Trace` and `MavTrace` only.
/// \return false when a write has failed; what follows is lost
inline bool WriteAll(int fd, const char* text, std::size_t length) {
    while (length != 0) {
        const ssize_t written = write(fd, text, length);
        if (written <= 0)
            return false;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

/// Formats a printf-style text behind the `*length` characters with which `room` begins. For
/// `Trace` and `MavTrace` only.
/// \return head and text, `*length` characters: in `room`, or in allocated memory when `size`
/// characters are too few. Null when there is no memory or the text cannot be formatted.
__attribute__((format(printf, 4, 0))) inline char*
FormatBehind(char* room, std::size_t size, std::size_t* length, const char* format, va_list args) {
    const int error = errno; // what "%m" prints, also when the text is formatted again
    const std::size_t head = *length;
    va_list again;
    va_copy(again, args);
    int count = std::vsnprintf(room + head, size - head, format, args);
    char* text = count < 0 ? nullptr : room;
    if (text != nullptr && static_cast<std::size_t>(count) >= size - head) {
        const std::size_t longer = static_cast<std::size_t>(count) + 1;
        text = static_cast<char*>(std::malloc(head + longer));
        if (text != nullptr) {
            std::memcpy(text, room, head);
            errno = error;
            // Shorter now where the text behind an argument has changed meanwhile.
            const int copied = std::vsnprintf(text + head, longer, format, again);
            count = copied < 0 ? 0 : copied < count ? copied : count;
        }
    }
    va_end(again);
    if (text != nullptr)
        *length = head + static_cast<std::size_t>(count);
    return text;
}

} // namespace mavkit

inline void Trace::operator()(const char* format, ...) const {
    const int error = errno; // for "%m"
    const int fd = open(path, O_RDWR | O_CREAT | O_APPEND, 0666);
    va_list args;
    va_start(args, format);
    if (fd == -1) {
        errno = error;
        std::vprintf(format, args);
        va_end(args);
        return;
    }
    constexpr char kStamp[] = "00-00 00:00:00\t"; // left so when the time has no calendar fields
    char room[4096];
    std::memcpy(room, kStamp, sizeof kStamp);
    const std::time_t now = std::time(nullptr);
    if (const std::tm* t = std::localtime(&now)) {
        const int fields[] = {t->tm_mon + 1, t->tm_mday, t->tm_hour, t->tm_min, t->tm_sec};
        char* to = room;
        for (const int field : fields) {
            to[0] = static_cast<char>('0' + field / 10);
            to[1] = static_cast<char>('0' + field % 10);
            to += 3;
        }
    }
    errno = error;
    std::size_t length = sizeof kStamp - 1;
    char* entry = mavkit::FormatBehind(room, sizeof room, &length, format, args);
    va_end(args);
    if (entry != nullptr) {
        mavkit::WriteAll(fd, entry, length);
    } else {
        mavkit::WriteAll(fd, room, length);
        errno = error;
        va_start(args, format);
        vdprintf(fd, format, args);
        va_end(args);
    }
    if (entry != room)
        std::free(entry);
    close(fd);
}

#endif
