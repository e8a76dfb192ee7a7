// What all verbs share: the output of results and errors, the reading of arguments, and the
// printing of bytes.
#ifndef MAVKIT_TOOLS_MAVUTIL_CONSOLE_H
#define MAVKIT_TOOLS_MAVUTIL_CONSOLE_H

#include "mavkit/encoding/ByteString.h"

#include <cstddef>
#include <cstdio>
#include <string>

namespace mavutil {

enum Status : int {
    kDone = 0,
    kFailed = 1, // nothing was found, or the operation failed
    kBad = 2     // bad arguments
};

// The stream of the results. The process's `stdout` is standard error, so that text of the library
// itself (assertion reports, log lines without a card) never mixes with the results.
extern std::FILE* out;

// The texts that switch bold on and off: empty unless results go to a terminal that shows colours.
extern const char* bold;
extern const char* plain;

// Opens `out`; false when standard output is closed.
bool OpenConsole();

// Whether all results so far were written. It checks the stream's error flag, because not every
// libc reports a full card at the flush. When they were not, it reports that on standard error.
bool FlushResults();

// Whether results can still be written: for loops that may print without end.
inline bool CanPrint() { return std::ferror(out) == 0; }

// Prints one line on standard error, after the results so far. Returns kFailed.
__attribute__((format(printf, 1, 2))) Status Complain(const char* format, ...);

// The same, and ends the program with the status `why`.
[[noreturn]] __attribute__((format(printf, 2, 3))) void Quit(Status why, const char* format, ...);

// Reports that `path` (null: standard input) failed, with the reason in errno.
Status ComplainOf(const char* path);

// Waits for `milliseconds`, or until `descriptor` (unless -1) can be read. Returns false when the
// program must end: after SIGINT or SIGTERM, or when results cannot be written.
bool Wait(int milliseconds, int descriptor = -1);

// Reads a number between two limits, decimal or with 0x in hex; `none` for a null text.
long Number(const char* text, const char* what, long least, long most, long none = 0);
// Reads a size or a place in a file, `none` for a null text.
long long SizeOf(const char* text, const char* what, long long none);

// Reads the bytes of words of hex digits, up to a null pointer.
ByteString BytesOf(char** words);
// Appends the bytes of one text; returns false when it has characters other than hex digits and
// blanks.
bool AppendBytes(const char* text, ByteString& bytes);

// Prints bytes as hex: "0A 1B", and no more.
void PrintHex(const void* bytes, std::size_t length);
// Prints up to 16 bytes as the rest of a line, as hex and as text: "0A 41 ...  |.A|".
void PrintRow(const void* bytes, std::size_t length);
// A text from a file or a name, fit for a terminal: control characters and bytes that are not UTF-8
// are dots.
std::string PrintableOf(const std::string& text);

// One object of JSON on a line of its own.
class JsonLine {
public:
    JsonLine();
    ~JsonLine();
    JsonLine(const JsonLine&) = delete;
    JsonLine& operator=(const JsonLine&) = delete;

    void Add(const char* name, long long value);
    void AddBool(const char* name, bool value);
    // A text; bytes that are not UTF-8 become U+FFFD, and then NAMEHex has the exact bytes.
    void AddText(const char* name, const std::string& text);
    // Bytes as a text of hex digits.
    void AddBytes(const char* name, const void* bytes, std::size_t length);

private:
    void Name(const char* name, const char* suffix = "");

    bool first_ = true;
};

} // namespace mavutil

#endif
