// mavutil trace, hex, crc, scan and shm: what files hold, how large they are, and how they change.
#include "mavutil.h"

#include <algorithm>
#include <climits>
#include <map>
#include <sys/stat.h>

namespace {

struct Log {
    long seen;             // bytes of the file that follow has dealt with
    std::time_t rotatedAt; // when its backup was last written
};
typedef std::map<std::string, Log> Logs; // by the path of the file

bool Note(int, bool, const char* directory, const char* name, void* logs) {
    const std::string path = std::string(directory) + "/" + name;
    const std::size_t dot = path.rfind(".log");
    if (dot != path.npos && (dot + 4 == path.size() || path.substr(dot + 4) == "_bak"))
        static_cast<Logs*>(logs)->emplace(path.substr(0, dot + 4), Log{0, 0});
    return true;
}

void FindLogs(char** paths, Logs& logs) {
    for (; *paths != nullptr; ++paths)
        if (const std::string inside = *paths + std::string("/."); DirScan::IsDir(inside.c_str()))
            DirScan(inside.c_str()).Scan(Note, &logs, 0);
        else
            logs.emplace(*paths, Log{0, 0});
}

// How long the file is now, and when its backup was written.
Log StateOf(const std::string& path) {
    struct stat file = {};
    struct stat backup = {};
    stat(path.c_str(), &file);
    stat((path + "_bak").c_str(), &backup);
    return Log{static_cast<long>(file.st_size), backup.st_mtime};
}

struct Printer {
    const char* wanted; // lines that hold this
    const Logs& logs;   // when there are several, their names come in front
    bool any;           // was one printed?

    void Print(const std::string& path, const std::string& line) {
        if (line.find(wanted) == line.npos)
            return;
        const std::string name = path.substr(path.rfind('/') + 1) + ": ";
        std::fprintf(out, "%s%s\n", logs.size() > 1 ? name.c_str() : "", line.c_str());
        any = true;
    }

    // Prints a file from an offset on, without the zero bytes that fill up a backup. A line without
    // an end is left for later, unless this is the last look. Returns the offset behind the others.
    long PrintFrom(const std::string& path, long offset, bool last) {
        std::FILE* file =
            StateOf(path).seen > offset ? MavFile::OpenFile(path.c_str(), "rb") : nullptr;
        if (file == nullptr || std::fseek(file, offset, SEEK_SET) != 0)
            return offset;
        std::string line;
        int c;
        for (long at = offset + 1; (c = std::getc(file)) != EOF; ++at) {
            if (c >= ' ' || c == '\t')
                line += static_cast<char>(c);
            if (c == '\n' || line.size() == 8192) { // what is longer counts as several
                Print(path, line);
                line.clear();
                offset = at;
            }
        }
        if (last && !line.empty())
            Print(path, line);
        std::fclose(file);
        return offset;
    }
};

bool PrintEntry(int, bool isDirectory, const char* directory, const char* name, void* total) {
    struct stat status = {};
    if (!isDirectory)
        lstat(name, &status);
    const std::string parent = directory;
    const std::string path = (parent == "/" ? "" : parent) + "/" + name + (isDirectory ? "/" : "");
    std::fprintf(out, "%12lld %s\n", static_cast<long long>(status.st_size),
                 Readable(path.data(), path.size()).c_str());
    *static_cast<long long*>(total) += status.st_size;
    return true;
}

} // namespace

int RunTrace(const std::string& operation, char** args) {
    const bool filter = args[0] != nullptr && args[0] == std::string("-g");
    if (filter && args[1] == nullptr)
        Quit(kBad, "a text is missing after -g");
    char general[] = GENERAL_LOG_PATH;
    char traces[] = "/mnt/sd/term/common/trace";
    char* everything[] = {general, traces, nullptr};
    char** paths = filter ? args + 2 : args;
    paths = *paths != nullptr ? paths : everything;
    Logs logs;
    FindLogs(paths, logs);
    Printer printer = {filter ? args[1] : "", logs, false};
    for (auto& log : logs)
        if (operation == "follow") {
            log.second = StateOf(log.first);
        } else {
            printer.PrintFrom(log.first + "_bak", 0, true);
            printer.PrintFrom(log.first, 0, true);
        }
    for (; operation == "follow" && Wait(nullptr); FindLogs(paths, logs))
        for (auto& item : logs) {
            Log& log = item.second;
            const Log now = StateOf(item.first);
            if (now.rotatedAt > log.rotatedAt || now.seen < log.seen) {
                Wait(nullptr); // the file is emptied before its backup is whole
                printer.PrintFrom(item.first + "_bak", log.seen, true);
                log = {0, StateOf(item.first).rotatedAt};
            }
            log.seen = printer.PrintFrom(item.first, log.seen, false);
        }
    return printer.any || operation == "follow" ? kDone : kFailed;
}

int RunHex(const std::string&, char** args) {
    std::string bytes = ReadAll(args[0]);
    auto at = static_cast<std::size_t>(Number(args[1], "OFFSET", 0, LONG_MAX));
    const auto length = static_cast<std::size_t>(Number(args[2], "LENGTH", 0, LONG_MAX, LONG_MAX));
    at = std::min(at, bytes.size());
    bytes.resize(at + std::min(length, bytes.size() - at));
    bool again = false; // a row like the one before
    for (std::string before; at < bytes.size(); at += before.size()) {
        const std::string row = bytes.substr(at, 16);
        if (row != before)
            std::fprintf(out, "%08zX  %-47s  |%s|\n", at, HexLine(row.data(), row.size()).c_str(),
                         Readable(row.data(), row.size()).c_str());
        else if (!again)
            std::fputs("*\n", out);
        again = row == before;
        before = row;
    }
    std::fprintf(out, "%08zX\n", at);
    return kDone;
}

int RunCrc(const std::string&, char** args) {
    do {
        const std::string bytes = ReadAll(*args);
        for (const bool xmodem : {false, true}) {
            unsigned short crc = xmodem ? 0x0000 : 0xFFFF;
            for (const char byte : bytes)
                crc = Add_CRC(crc, static_cast<unsigned char>(byte));
            std::fprintf(out, "%s %04X %zu %s\n", xmodem ? "CRC-16/XMODEM" : "CRC-16/IBM-3740", crc,
                         bytes.size(), *args != nullptr ? *args : "-");
        }
    } while (*args != nullptr && *++args != nullptr);
    return kDone;
}

int RunScan(const std::string&, char** args) {
    const std::string path = std::string(args[0] != nullptr ? args[0] : ".") + "/.";
    const int depth = static_cast<int>(Number(args[1], "DEPTH", 0, INT_MAX, -1));
    long long total = 0;
    if (!DirScan::IsDir(path.c_str()) || !DirScan(path.c_str()).Scan(PrintEntry, &total, depth))
        Quit(kFailed, "%s is no directory that can be entered", path.c_str());
    std::fprintf(out, "%12lld total\n", total);
    return kDone;
}

int RunShm(const std::string& operation, char** args) {
    if (operation == "show")
        return RunHex(operation, args);
    for (std::string now, was = ReadAll(args[0]); Wait(args[1]); was.swap(now)) {
        now = ReadAll(args[0]);
        const char* time = shorttimestr(nullptr);
        if (was.size() != now.size())
            std::fprintf(out, "%s size %zu -> %zu\n", time, was.size(), now.size());
        const std::size_t both = std::min(was.size(), now.size());
        for (std::size_t at = 0, end; at < both; at = std::max(end, at + 1)) {
            for (end = at; end < both && end - at < 16 && was[end] != now[end];)
                ++end;
            if (end > at)
                std::fprintf(out, "%s %08zX %s -> %s%s%s\n", time, at,
                             HexLine(&was[at], end - at).c_str(), bold,
                             HexLine(&now[at], end - at).c_str(), plain);
        }
    }
    return kDone;
}
