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

/// Writes `headLength` characters at `head` (at most 100) and the printf-style text to `file` in
/// one write, if the stream has no buffer of its own. For `Trace` and `MavTrace` only.
__attribute__((format(printf, 4, 0))) inline void WriteLogEntry(std::FILE* file, const char* head,
                                                                std::size_t headLength,
                                                                const char* format, va_list args) {
    const int error = errno; // what "%m" prints, also when the text is formatted again
    va_list again;
    va_copy(again, args);
    char entry[4096];
    char* text = entry;
    const std::size_t room = sizeof entry - headLength;
    int length = std::vsnprintf(text + headLength, room, format, args);
    const std::size_t size = length < 0 ? 0 : static_cast<std::size_t>(length) + 1;
    if (size > room)
        text = static_cast<char*>(std::malloc(headLength + size));
    errno = error;
    if (text != nullptr && length >= 0) {
        if (text != entry) {
            // Shorter now where the text behind an argument has changed meanwhile.
            const int copied = std::vsnprintf(text + headLength, size, format, again);
            length = copied < 0 ? 0 : copied < length ? copied : length;
        }
        std::memcpy(text, head, headLength);
        std::fwrite(text, 1, headLength + static_cast<std::size_t>(length), file);
    } else { // there is no memory, or the text cannot be formatted to its end
        std::fwrite(head, 1, headLength, file);
        std::vfprintf(file, format, again);
    }
    va_end(again);
    if (text != entry)
        std::free(text);
}

inline void Trace::operator()(const char* format, ...) const {
    const int error = errno; // for "%m"
    va_list args;
    va_start(args, format);
    if (std::FILE* file = std::fopen(path, "a+")) {
        std::setvbuf(file, nullptr, _IONBF, 0);
        char stamp[] = "00-00 00:00:00\t"; // all zeros when the time has no calendar fields
        const std::time_t now = std::time(nullptr);
        if (const std::tm* t = std::localtime(&now)) {
            const int fields[] = {t->tm_mon + 1, t->tm_mday, t->tm_hour, t->tm_min, t->tm_sec};
            char* to = stamp;
            for (const int field : fields) {
                to[0] = static_cast<char>('0' + field / 10);
                to[1] = static_cast<char>('0' + field % 10);
                to += 3;
            }
        }
        errno = error;
        WriteLogEntry(file, stamp, sizeof stamp - 1, format, args);
        std::fclose(file);
    } else {
        errno = error;
        std::vprintf(format, args);
    }
    va_end(args);
}

#endif
