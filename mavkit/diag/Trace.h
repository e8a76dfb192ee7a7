/// \file
/// The general log: one file to which every process of the terminal appends its errors, a line
/// each, with the time but without levels, settings or rotation. What is informational goes through
/// MavTrace instead.
///
/// An entry is the stamp, a tab and the caller's text, which carries its own line end:
///
///     03-05 06:07:08<TAB>ShareMem: open file error No such file or directory,file name is ...
///
/// (month-day hour:minute:second in local time, no year). The file is opened for each entry and
/// closed after it, and an entry of up to 4 KiB reaches it in one write at its end, so
/// processes that log at once never mix their lines.
#ifndef MAVKIT_DIAG_TRACE_H
#define MAVKIT_DIAG_TRACE_H

#include <cstdarg>
#include <cstdio>
#include <ctime>

/// Where the general log stands.
#define GENERAL_LOG_PATH "/mnt/sdcard/log/general.log"

/// One message for a log file, built on the stack where it is written. Use GENERAL_LOG() unless the
/// file is another one: `Trace{"/mnt/sdcard/log/mine.log", __LINE__, 0}("started\n")`.
struct Trace {
    const char* path;  ///< the file to append to
    int line;          ///< source line of the call; carried, not printed
    unsigned int flag; ///< 0; carried, not printed

    /// Appends one entry: the stamp and the printf-style \p format with its arguments.
    ///
    /// A file that cannot be opened (no card, no descriptors) sends the text alone, without stamp,
    /// to standard output. Write errors, a full card among them, are ignored: the entry is lost,
    /// the process goes on. Returns nothing and throws nothing.
    void operator()(const char* format, ...) const __attribute__((format(printf, 2, 3)));
};

/// Appends an entry to the general log: `GENERAL_LOG("Meter: no answer from %s\n", name);`
#define GENERAL_LOG(...) (Trace{GENERAL_LOG_PATH, __LINE__, 0}(__VA_ARGS__))

inline void Trace::operator()(const char* format, ...) const {
    va_list args;
    va_start(args, format);
    if (std::FILE* file = std::fopen(path, "a+")) {
        // A buffer of our own: no allocation, and one write for the whole entry.
        char buffer[4096];
        std::setvbuf(file, buffer, _IOFBF, sizeof buffer);
        const std::time_t now = std::time(nullptr);
        std::tm none = {};
        none.tm_mon = -1; // a clock that cannot be broken down stamps all zeros
        const std::tm* t = std::localtime(&now);
        if (t == nullptr)
            t = &none;
        std::fprintf(file, "%02d-%02d %02d:%02d:%02d\t", t->tm_mon + 1, t->tm_mday, t->tm_hour,
                     t->tm_min, t->tm_sec);
        std::vfprintf(file, format, args);
        std::fclose(file);
    } else {
        std::vprintf(format, args);
    }
    va_end(args);
}

#endif
