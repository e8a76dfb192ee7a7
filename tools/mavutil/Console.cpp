#include "Console.h"

#include "mavkit/encoding/MavString.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace mavutil {

std::FILE* out = nullptr;
const char* bold = "";
const char* plain = "";

namespace {

void VComplain(const char* format, std::va_list args) {
    std::fflush(out);
    std::fputs("mavutil: ", stderr);
    std::vfprintf(stderr, format, args);
    std::fputc('\n', stderr);
}

constexpr char kDigits[] = "0123456789ABCDEF";

int stopPipe[2] = {-1, -1}; // the signal handler writes to it to wake Wait()

void Stop(int) {
    const int error = errno;
    [[maybe_unused]] const ssize_t ignored = write(stopPipe[1], "", 1);
    errno = error;
}

// The number that a text is; errno is not 0 when the text is not a number.
long long NumberOf(const char* text) {
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text, &end, std::strncmp(text, "0x", 2) == 0 ? 16 : 10);
    if (end == text || *end != '\0')
        errno = EINVAL;
    return number;
}

// Length of the UTF-8 sequence that `text` begins with, and the character that it stands for; 0
// when it is not valid, also for a form that is longer than needed, a surrogate and a value above
// U+10FFFF.
std::size_t Utf8Length(const char* text, std::size_t left, unsigned* character) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    *character = lead;
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead < 0xC2   ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length == 0 || length > left)
        return 0;
    *character &= 0x7FU >> length;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80)
            return 0;
        *character = *character << 6 | (byte(i) & 0x3FU);
    }
    constexpr unsigned kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = *character >= 0xD800 && *character < 0xE000;
    return *character < kLeast[length] || surrogate || *character > 0x10FFFF ? 0 : length;
}

void PrintQuotedHex(const void* bytes, std::size_t length) {
    std::fputc('"', out);
    PrintHex(bytes, length);
    std::fputc('"', out);
}

// The control characters of a terminal: C0, DEL and C1.
bool IsControl(unsigned character) {
    return character < ' ' || (character >= 0x7F && character < 0xA0);
}

} // namespace

bool OpenConsole() {
    const int copy = dup(STDOUT_FILENO);
    out = copy >= 0 ? fdopen(copy, "w") : nullptr; // musl's opens a closed one as well
    if (out == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return false;
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // keeps the order of results and errors
    const char* const kind = std::getenv("TERM");
    if (isatty(fileno(out)) != 0 && kind != nullptr && std::strcmp(kind, "dumb") != 0 &&
        std::getenv("NO_COLOR") == nullptr) {
        bold = "\033[1m";
        plain = "\033[0m";
    }
    return true;
}

bool FlushResults() {
    const bool flushed = std::fflush(out) == 0;
    const int error = errno;
    if (flushed && CanPrint())
        return true;
    Complain("the results could not be written%s%s", flushed ? "" : ": ",
             flushed ? "" : std::strerror(error));
    return false;
}

Status Complain(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    VComplain(format, args);
    va_end(args);
    return kFailed;
}

void Quit(Status why, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    VComplain(format, args);
    va_end(args);
    std::exit(why);
}

Status ComplainOf(const char* path) {
    const char* const reason = std::strerror(errno);
    return Complain("%s: %s", path != nullptr ? PrintableOf(path).c_str() : "standard input",
                    reason);
}

bool Wait(int milliseconds, int descriptor) {
    if (stopPipe[0] == -1) {
        if (pipe(stopPipe) != 0)
            Quit(kFailed, "no pipe: %s", std::strerror(errno));
        fcntl(stopPipe[1], F_SETFL, O_NONBLOCK);
        struct sigaction action = {};
        action.sa_handler = Stop;
        // A second Ctrl-C ends the program at once; a write that waits for a reader is interrupted.
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
    }
    std::fflush(out);
    pollfd watched[2] = {{stopPipe[0], POLLIN, 0}, {descriptor, POLLIN, 0}};
    poll(watched, 2, milliseconds);
    return CanPrint() && watched[0].revents == 0;
}

long Number(const char* text, const char* what, long least, long most, long none) {
    if (text == nullptr)
        return none;
    const long long number = NumberOf(text);
    if (errno != 0 || number < least || number > most)
        Quit(kBad, "%s '%s' is no number from %ld to %ld", what, text, least, most);
    return static_cast<long>(number);
}

long long SizeOf(const char* text, const char* what, long long none) {
    if (text == nullptr)
        return none;
    const long long number = NumberOf(text);
    if (errno != 0 || number < 0)
        Quit(kBad, "%s '%s' is no number from 0 on", what, text);
    return number;
}

bool AppendBytes(const char* text, ByteString& bytes) {
    if (text[std::strspn(text, "0123456789ABCDEFabcdef \t\r\n")] != '\0')
        return false;
    ParseHexStr(text, bytes);
    return true;
}

ByteString BytesOf(char** words) {
    ByteString bytes;
    for (; *words != nullptr; ++words)
        if (!AppendBytes(*words, bytes))
            Quit(kBad, "'%s' is no hex: write digits in pairs, 20 24 03 05 or 20240305", *words);
    return bytes;
}

void PrintHex(const void* bytes, std::size_t length) {
    const auto* const byte = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < length; ++i) {
        if (i > 0)
            std::fputc(' ', out);
        std::fputc(kDigits[byte[i] >> 4], out);
        std::fputc(kDigits[byte[i] & 0x0F], out);
    }
}

void PrintRow(const void* bytes, std::size_t length) {
    char text[17] = {};
    std::memcpy(text, bytes, length);
    for (std::size_t i = 0; i < length; ++i)
        if (text[i] < ' ' || text[i] > '~')
            text[i] = '.';
    PrintHex(bytes, length);
    std::fprintf(out, "%*s  |%s|\n", static_cast<int>((16 - length) * 3), "", text);
}

std::string PrintableOf(const std::string& text) {
    std::string printable;
    for (std::size_t at = 0, length; at < text.size(); at += length) {
        unsigned character;
        length = Utf8Length(&text[at], text.size() - at, &character);
        if (length == 0 || (IsControl(character) && character != '\t')) {
            printable += '.';
            length += length == 0 ? 1 : 0;
        } else {
            printable.append(text, at, length);
        }
    }
    return printable;
}

JsonLine::JsonLine() { std::fputc('{', out); }

JsonLine::~JsonLine() { std::fputs("}\n", out); }

void JsonLine::Name(const char* name, const char* suffix) {
    std::fprintf(out, "%s\"%s%s\":", first_ ? "" : ",", name, suffix);
    first_ = false;
}

void JsonLine::Add(const char* name, long long value) {
    Name(name);
    std::fprintf(out, "%lld", value);
}

void JsonLine::AddBool(const char* name, bool value) {
    Name(name);
    std::fputs(value ? "true" : "false", out);
}

void JsonLine::AddText(const char* name, const std::string& text) {
    Name(name);
    std::fputc('"', out);
    bool exact = true;
    for (std::size_t at = 0, length; at < text.size(); at += length) {
        unsigned character;
        length = Utf8Length(&text[at], text.size() - at, &character);
        if (length == 0) {
            exact = false;
            character = 0xFFFD;
            length = 1;
        }
        if (character == '"' || character == '\\')
            std::fprintf(out, "\\%c", static_cast<char>(character));
        else if (IsControl(character) || character == 0xFFFD)
            std::fprintf(out, "\\u%04x", character);
        else
            std::fwrite(&text[at], 1, length, out);
    }
    std::fputc('"', out);
    if (!exact) {
        Name(name, "Hex");
        PrintQuotedHex(text.data(), text.size());
    }
}

void JsonLine::AddBytes(const char* name, const void* bytes, std::size_t length) {
    Name(name);
    PrintQuotedHex(bytes, length);
}

} // namespace mavutil
