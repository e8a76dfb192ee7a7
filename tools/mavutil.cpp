// mavutil VERB ...: a look into a running terminal. verbs.inc tells all that it does.
#include "mavutil.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <unistd.h>
#include <vector>

std::FILE* out = nullptr;
const char *bold = "", *plain = "";

namespace {

constexpr struct {
    const char* name;
    Verb* run;
    const char* help;
} kVerbs[] = {
#include "verbs.inc"
};

constexpr std::size_t kMost = 16U << 20; // bytes that ReadAll() takes
volatile std::sig_atomic_t stopped = 0;

const auto& VerbOf(const char* name) {
    for (const auto& verb : kVerbs)
        if (std::strcmp(verb.name, name) == 0)
            return verb;
    Quit(kBad, "no verb '%s': mavutil help lists them", name);
}

int Run(char** words) {
    const auto& verb = VerbOf(*words != nullptr ? *words++ : "");
    if (verb.run == nullptr) // "help"
        return std::fputs(VerbOf(*words != nullptr ? *words : "help").help, out) < 0;
    // A line like "  mavutil queue peek FLAG [COUNT]  what it does".
    const std::string help = verb.help;
    std::string call = std::string("  mavutil ") + verb.name + " ";
    const bool several = help[call.size()] >= 'a'; // operations
    const std::string operation = several && *words != nullptr ? *words++ : "";
    call += several ? operation + " " : "";
    const std::size_t line = help.find(call);
    if (line == help.npos || operation.find(' ') != operation.npos)
        Quit(kBad, "no %s '%s': see mavutil help %s", verb.name, operation.c_str(), verb.name);
    const std::string usage = help.substr(line, help.find("  ", line + 2) - line);
    strings known;
    strings needed;
    known.addfrom(usage.c_str() + call.size() - 1, " ", false);
    needed.addfrom(usage.substr(0, usage.find('[')).c_str() + call.size() - 1, " ", false);
    std::size_t count = 0;
    while (words[count] != nullptr)
        ++count;
    if (count < needed.size() || (count > known.size() && usage.find("...") == usage.npos))
        Quit(kBad, "%zu arguments do not fit: write%s", count, usage.c_str() + 1);
    return verb.run(operation, words);
}

} // namespace

void Quit(Status status, const char* format, ...) {
    std::fflush(out);
    std::fputs("mavutil: ", stderr);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args); // NOLINT(clang-analyzer-valist.Uninitialized): it is not
    std::fputc('\n', stderr);
    va_end(args);
    std::exit(status);
}

long Number(const char* text, const char* what, long min, long max, long none) {
    if (text == nullptr)
        return none;
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, std::strncmp(text, "0x", 2) == 0 ? 16 : 10);
    if (end == text || *end != '\0' || errno != 0 || number < min || number > max)
        Quit(kBad, "%s '%s' is no number from %ld to %ld", what, text, min, max);
    return number;
}

ByteString HexOf(char** args) {
    ByteString bytes;
    for (; *args != nullptr; ++args) {
        if ((*args)[std::strspn(*args, "0123456789ABCDEFabcdef ")] != '\0')
            Quit(kBad, "'%s' is no hex: write digits in pairs, 20 24 03 05 or 20240305", *args);
        ParseHexStr(*args, bytes);
    }
    return bytes;
}

std::string HexLine(const void* bytes, std::size_t length) {
    std::string line;
    GetPrintString(line, bytes, static_cast<unsigned int>(length), true, 0);
    line.erase(std::remove(line.begin(), line.end(), '\n'), line.end());
    return line.substr(0, line.size() - (line.empty() ? 0 : 1)); // without the last blank
}

std::string Readable(const void* bytes, std::size_t length) {
    std::string text(static_cast<const char*>(bytes), length);
    for (char& c : text)
        c = c < ' ' || c > '~' ? '.' : c;
    return text;
}

std::string ReadAll(const char* path) {
    const bool input = path == nullptr || std::strcmp(path, "-") == 0;
    std::FILE* file = input ? stdin : MavFile::OpenFile(path, "rb");
    std::string all;
    char block[4096];
    for (std::size_t got = 1; file != nullptr && got > 0 && all.size() <= kMost;) {
        all.append(block, got = std::fread(block, 1, sizeof block, file));
        if (*bold != '\0' && all.size() % (64 * sizeof block) == 0) // on a terminal
            std::fprintf(stderr, "\r\033[K%zu bytes\r", all.size());
    }
    if (file == nullptr || std::ferror(file) != 0 || all.size() > kMost)
        Quit(kFailed, "%s: %s", input ? "-" : path,
             std::strerror(all.size() > kMost ? EFBIG : errno));
    if (!input)
        std::fclose(file);
    return all;
}

bool Wait(const char* milliseconds) {
    const long wait = Number(milliseconds, "MS", 10, 3600000, 500);
    std::signal(SIGINT, [](int) { stopped = 1; });
    std::signal(SIGTERM, [](int) { stopped = 1; });
    return std::fflush(out) == 0 && stopped == 0 && poll(nullptr, 0, static_cast<int>(wait)) == 0;
}

int main(int argc, char** argv) {
    out = fdopen(dup(STDOUT_FILENO), "w");
    if (out == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return kFailed;
    const bool terminal = isatty(fileno(out)) != 0 && isatty(STDERR_FILENO) != 0;
    bold = terminal ? "\033[1m" : "";
    plain = terminal ? "\033[0m" : "";
    static TraceSetting quiet;
    quiet.traceWay = WAY_NONE;
    MavTrace::Setting = &quiet;
    try {
        std::vector<char*> words(argv + std::min(argc, 1), argv + argc);
        words.resize(words.size() + 8); // for the arguments that are left out
        const int status = Run(words.data());
        if (std::fflush(out) != 0 || std::ferror(out) != 0)
            Quit(kFailed, "writing: %s", std::strerror(errno));
        return status;
    } catch (const std::bad_alloc&) {
        Quit(kFailed, "out of memory");
    }
}
