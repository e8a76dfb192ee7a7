// mavutil VERB ...: a look into a running terminal. The texts of help tell all that it does.
#include "mavkit/mavkit.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <new>
#include <poll.h>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

enum Status : int { kDone = 0, kFailed = 1, kBad = 2 };
Status status = kDone;        // what the program ends with
constexpr int kCopy = 040000; // MSG_COPY: Linux 3.8 and later, but not every libc

// Where results go. The process's `stdout` is standard error, so that what the library itself
// prints (assertion reports, log lines without a card) never mixes with them.
std::FILE* out = nullptr;
const char *bold = "", *plain = ""; // around what is to catch the eye; empty but on a terminal
volatile std::sig_atomic_t stopped = 0;

// Ends the program with one line on standard error.
[[noreturn]] __attribute__((format(printf, 2, 3))) void Quit(Status why, const char* format, ...) {
    std::fflush(out);
    std::fputs("mavutil: ", stderr);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args); // NOLINT(clang-analyzer-valist.Uninitialized): it is not
    std::fputc('\n', stderr);
    va_end(args);
    std::exit(why);
}

// A number, decimal or with 0x in hex; `none` for null.
long Number(const char* text, const char* what, long min, long max, long none = 0) {
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

std::string Readable(const void* bytes, std::size_t length) { // steers no terminal
    std::string text(static_cast<const char*>(bytes), length);
    for (char& c : text)
        c = c < ' ' || c > '~' ? '.' : c;
    return text;
}

// A file of up to 16 MiB, or standard input for null and "-".
std::string ReadAll(const char* path) {
    const bool input = path == nullptr || std::strcmp(path, "-") == 0;
    std::FILE* file = input ? stdin : MavFile::OpenFile(path, "rb");
    const std::size_t most = 16U << 20;
    std::string all;
    char block[4096];
    for (std::size_t got = 1; file != nullptr && got > 0 && all.size() <= most;) {
        all.append(block, got = std::fread(block, 1, sizeof block, file));
        if (*bold != '\0' && all.size() % (64 * sizeof block) == 0) // on a terminal
            std::fprintf(stderr, "\r\033[K%zu bytes\r", all.size());
    }
    if (file == nullptr || std::ferror(file) != 0 || all.size() > most)
        Quit(kFailed, "%s: %s", input ? "-" : path,
             std::strerror(all.size() > most ? EFBIG : errno));
    if (!input)
        std::fclose(file);
    return all;
}

// The pause between two looks; false when it is time to end: at Ctrl-C.
bool Wait(const char* milliseconds) {
    const long wait = Number(milliseconds, "MS", 10, 3600000, 500);
    std::signal(SIGINT, [](int) { stopped = 1; });
    std::signal(SIGTERM, [](int) { stopped = 1; });
    return std::fflush(out) == 0 && stopped == 0 && poll(nullptr, 0, static_cast<int>(wait)) == 0;
}

// The id of a flag's queue and what the kernel tells of it; -1: there is none, or none to be read.
int Find(int flag, msqid_ds* state) {
    const key_t key = ftok("/root", flag); // as a Message derives it
    if (key == -1)
        Quit(kFailed, "no keys of queues without /root: %s", std::strerror(errno));
    const int id = msgget(key, 0);
    return id != -1 && msgctl(id, IPC_STAT, state) != -1 ? id : -1;
}

int FlagOf(const char* flag) {
    if (std::strlen(flag) == 1)
        return static_cast<unsigned char>(*flag);
    return static_cast<int>(Number(flag, "a flag is one character or a number;", 0, 255));
}

// The line of a queue; "" when there is none.
std::string LineOf(int flag) {
    msqid_ds s;
    if (Find(flag, &s) == -1)
        return "";
    char line[100];
    std::snprintf(line, sizeof line, "%5d %c %5lu %6lu %6lu %5d %5d", flag,
                  flag > ' ' && flag <= '~' ? flag : '-', s.msg_qnum, s.msg_cbytes, s.msg_qbytes,
                  s.msg_lspid, s.msg_lrpid);
    std::string text = line;
    for (long t : {static_cast<long>(s.msg_stime), static_cast<long>(s.msg_rtime)})
        text.append(" ").append(t != 0 ? timestr(&t) : "- -");
    return text;
}

// All queues, or that of one flag; when watching, again what has changed since the last look.
void Look(char** args, bool watch) {
    const bool all = args[0] == nullptr || std::strcmp(args[0], "all") == 0;
    const int first = all ? 0 : FlagOf(args[0]);
    std::string seen[256];
    status = watch ? kDone : kFailed; // unless there is one
    std::fputs("#flag c  msgs  bytes  limit  sndr  rcvr last-sent           last-received\n", out);
    do
        for (int flag = first; flag < (all ? 256 : first + 1); ++flag) {
            const std::string was = seen[flag];
            const std::string line = seen[flag] = LineOf(flag);
            if (!line.empty())
                status = kDone;
            if (line != was)
                std::fprintf(out, "%s%s%s\n", watch ? bold : "",
                             line.empty() ? (was.substr(0, 7) + " removed").c_str() : line.c_str(),
                             watch ? plain : "");
        }
    while (watch && Wait(args[1]));
}

void Send(int flag, char** args) {
    const long type = Number(args[0], "TYPE", 1, LONG_MAX);
    const ByteString bytes = HexOf(args + 1);
    // A message that can never be queued would empty the queue before the library gave up.
    msginfo limits = {};
    msgctl(0, IPC_INFO, reinterpret_cast<msqid_ds*>(&limits));
    const int most = std::min(limits.msgmax, limits.msgmnb);
    if (bytes.empty() || bytes.size() > static_cast<std::size_t>(most))
        Quit(kBad, "a message has 1 to %d bytes, not %zu", most, bytes.size());
    if (!Message(flag).SendData(bytes.data(), static_cast<unsigned int>(bytes.size()), type))
        Quit(kFailed, "not sent; the general log says why");
}

void PrintMessage(const std::vector<long>& message, std::size_t length) {
    std::fprintf(out, "%ld %zu %s\n", message[0], length, HexLine(&message[1], length).c_str());
    status = kDone;
}

// Whether the kernel knows MSG_COPY. An old one would overlook it, and so take the message: hence a queue
// of our own is asked, with two flags that exclude each other only where both are known.
bool CanCopy() {
    const int own = msgget(IPC_PRIVATE, 0600);
    long message[2];
    msgrcv(own, message, 0, 0, IPC_NOWAIT | kCopy | MSG_EXCEPT);
    const bool known = errno == EINVAL;
    msgrcv(own, message, 0, 0, IPC_NOWAIT | kCopy);
    const bool built = errno == ENOMSG;
    return msgctl(own, IPC_RMID, nullptr) == 0 && known && built;
}

void RunQueue(const std::string& operation, char** args) {
    if (operation == "list" || operation == "watch")
        return Look(args, operation == "watch");
    const int flag = FlagOf(args[0]);
    if (operation == "send")
        return Send(flag, args + 1);
    msqid_ds state;
    const int id = Find(flag, &state);
    if (id == -1)
        Quit(kFailed, "flag %d has no queue", flag);
    if (operation == "peek" && !CanCopy())
        Quit(kFailed, "this kernel shows no message without taking it (it lacks MSG_COPY)");
    // Room for the longest message that waits or may come, its type in front.
    const std::size_t room = std::max(state.msg_qbytes, state.msg_cbytes);
    std::vector<long> buffer(room / sizeof(long) + 2);
    status = kFailed; // until there is a message
    for (long index = 0; operation == "peek"; ++index) {
        const ssize_t got = msgrcv(id, buffer.data(), room, index, IPC_NOWAIT | kCopy);
        if (got == -1)
            return;
        PrintMessage(buffer, static_cast<std::size_t>(got));
    }
    const long selector = Number(args[1], "SELECTOR", -LONG_MAX, LONG_MAX);
    Message message(flag);
    auto length = static_cast<unsigned int>(room);
    if (operation == "clear")
        message.ClearMsg(selector);
    if (operation == "remove")
        message.Destroy();
    if (operation == "clear" || (operation == "remove" && Find(flag, &state) == -1))
        status = kDone;
    if (operation == "recv" && message.RecvMsg(buffer.data(), length, selector))
        PrintMessage(buffer, length);
}

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

void FindLogs(const char* const* paths, Logs& logs) {
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

    // Prints a file from an offset on, without the zero bytes that fill up a backup. A line without
    // an end is left for later, unless this is the last look. Returns the offset behind the others.
    long PrintFrom(const std::string& path, long offset, bool last) {
        std::FILE* file = MavFile::OpenFile(path.c_str(), "rb");
        if (file == nullptr)
            return offset;
        const std::string name = path.substr(path.rfind('/') + 1) + ": ";
        std::string line;
        int c = std::fseek(file, offset, SEEK_SET);
        for (long at = offset + 1; c != EOF; ++at) {
            c = std::getc(file);
            if (c >= ' ' || c == '\t')
                line += static_cast<char>(c);
            if (c != '\n' && line.size() < 8192 && (c != EOF || !last || line.empty()))
                continue; // what is longer counts as several
            if (line.find(wanted) != line.npos) {
                std::fprintf(out, "%s%s\n", logs.size() > 1 ? name.c_str() : "", line.c_str());
                status = kDone;
            }
            line.clear();
            offset = at;
        }
        std::fclose(file);
        return offset;
    }
};

bool PrintEntry(int, bool isDirectory, const char* directory, const char* name, void* total) {
    struct stat entry = {};
    if (!isDirectory)
        lstat(name, &entry);
    const std::string parent = directory;
    const std::string path = (parent == "/" ? "" : parent) + "/" + name + (isDirectory ? "/" : "");
    std::fprintf(out, "%12lld %s\n", static_cast<long long>(entry.st_size),
                 Readable(path.data(), path.size()).c_str());
    *static_cast<long long*>(total) += entry.st_size;
    return true;
}

void RunTrace(const std::string& operation, char** args) {
    const bool filter = args[0] != nullptr && args[0] == std::string("-g");
    if (filter && args[1] == nullptr)
        Quit(kBad, "a text is missing after -g");
    const char* const everything[] = {GENERAL_LOG_PATH, "/mnt/sd/term/common/trace", nullptr};
    const char* const* paths = filter ? args + 2 : args;
    paths = *paths != nullptr ? paths : everything;
    Logs logs;
    FindLogs(paths, logs);
    const bool follow = operation == "follow";
    status = follow ? kDone : kFailed; // unless a line is printed
    for (auto& [path, log] : logs)
        log = follow ? StateOf(path) : Log{0, 0};
    Printer printer = {filter ? args[1] : "", logs};
    do {
        for (auto& [path, log] : logs) {
            const Log now = StateOf(path);
            if (now.rotatedAt > log.rotatedAt || now.seen < log.seen) {
                if (follow)
                    Wait(nullptr); // the file is emptied before its backup is whole
                printer.PrintFrom(path + "_bak", log.seen, true);
                log = {0, StateOf(path).rotatedAt};
            }
            log.seen = printer.PrintFrom(path, log.seen, !follow);
        }
        FindLogs(paths, logs);
    } while (follow && Wait(nullptr));
}

void RunHex(const std::string&, char** args) {
    std::string bytes = ReadAll(args[0]);
    const auto size = static_cast<long>(bytes.size());
    auto at = static_cast<std::size_t>(Number(args[1], "OFFSET", 0, size));
    const auto length = static_cast<std::size_t>(Number(args[2], "LENGTH", 0, LONG_MAX, size));
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
}

void RunCrc(const std::string&, char** args) {
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
}

void RunScan(const std::string&, char** args) {
    const std::string path = std::string(args[0] != nullptr ? args[0] : ".") + "/.";
    const int depth = static_cast<int>(Number(args[1], "DEPTH", 0, INT_MAX, -1));
    long long total = 0;
    if (!DirScan::IsDir(path.c_str()) || !DirScan(path.c_str()).Scan(PrintEntry, &total, depth))
        Quit(kFailed, "%s is no directory that can be entered", path.c_str());
    std::fprintf(out, "%12lld total\n", total);
}

void RunShm(const std::string& operation, char** args) {
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
}

// A Bcd7Time (layout 0x17) in a layout: as many bytes as the library writes.
ByteString InLayout(ByteString bcd7, const char* layout) {
    ByteString bytes(9, 0xFF); // no byte of a BCD time
    const auto code = static_cast<unsigned char>(Number(layout, "LAYOUT", 0, 0xFF));
    if (ExchangeBCDTime(0x17, &bcd7[0], code, &bytes[0]) != 0)
        Quit(kBad, "'%s' is no layout: mavutil help time tells how it is made", layout);
    return bytes.substr(0, bytes.find(0xFF));
}

ByteString RecordOf(long t) {
    ByteString record(7, 0);
    Get_BCDTime7(t, reinterpret_cast<char*>(&record[0]));
    return record;
}

// The time of a Bcd7Time; false when there is none with these digits.
bool IsTime(const ByteString& record, long* t) {
    return RecordOf(Time_BCDTime7TotTime(reinterpret_cast<const char*>(record.data()), t)) ==
           record;
}

long TimeOf(const char* text) {
    if (text == nullptr || text == std::string("now"))
        return static_cast<long>(std::time(nullptr));
    if (*text == '@')
        return Number(text + 1, "SECONDS", LONG_MIN + 1, LONG_MAX);
    ByteString record;
    ParseHexStr(text, record); // the digits of a date and time are its BCD record
    const bool whole = record.size() == 4 || record.size() == 6 || record.size() == 7;
    record.resize(7);
    long t = 0;
    if (!whole || !IsTime(record, &t))
        Quit(kBad, "'%s' is no time: write 2024-03-05, 2024-03-05T06:07:08, now or @SECONDS", text);
    return t;
}

unsigned char UnitOf(const char* unit) {
    const char* const names[] = {"second", "minute", "hour", "day", "month", "year"};
    for (unsigned char i = 0; i < 6; ++i)
        if (unit == std::string(names[i]) || unit == std::string(names[i]) + "s")
            return static_cast<unsigned char>(Second + i);
    Quit(kBad, "'%s' is no unit: second, minute, hour, day, month or year", unit);
}

void PrintTime(long t) {
    const char* const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    if (t == -1)
        Quit(kFailed, "there is no such time");
    ByteString record = RecordOf(t);
    auto* const bcd = reinterpret_cast<char*>(&record[0]);
    std::fprintf(out, "%s %s %ld\n", bcdtimestr(bcd), days[GetWeek(bcd)], t);
}

void Decode(char** args) {
    const std::size_t length = InLayout(ByteString(7, 0x01), args[0]).size();
    const auto layout = static_cast<unsigned char>(Number(args[0], "LAYOUT", 0, 0xFF));
    ByteString record = HexOf(args + 1);
    if (record.size() != length)
        Quit(kBad, "layout %s has %zu bytes, not %zu", args[0], length, record.size());
    ByteString bcd7(7, 0);
    ExchangeBCDTime(layout, &record[0], 0x17, &bcd7[0]);
    long t = 0;
    // A weekday in the record must be that of its date, too, for the same bytes to come back.
    if (IsTime(bcd7, &t) && InLayout(bcd7, args[0]) == record)
        return PrintTime(t);
    std::fprintf(out, "%s invalid\n", bcdtimestr(reinterpret_cast<char*>(&bcd7[0])));
    status = kFailed;
}

void Next(char** args) {
    const auto n = static_cast<unsigned long>(Number(args[0], "N", 1, LONG_MAX));
    const auto offset = static_cast<unsigned long>(Number(args[2], "OFFSET", 0, LONG_MAX));
    const unsigned char unit = UnitOf(args[3] != nullptr ? args[3] : "second");
    long t = TimeOf(args[5]);
    for (long count = Number(args[4], "COUNT", 1, LONG_MAX, 5); count > 0; --count) {
        const long point = gettimerpoint(t, UnitOf(args[1]), n, unit, offset, false);
        PrintTime(point >= t ? point : -1);
        t = point + (point < LONG_MAX ? 1 : 0);
    }
}

// The bits of all lists like 0-2,5, every item of which must name at least one.
BitMask MaskOf(char** lists) {
    BitMask mask;
    strings items;
    while (*lists != nullptr)
        items.addfrom(*lists++, ",", true);
    for (const std::string& item : items) {
        BitMask named;
        named.ParseFrom(item.c_str(), true, 0);
        if (named.EnableCount() == 0 || item.find_first_not_of("0123456789-") != item.npos)
            Quit(kBad, "'%s' names no bit: write numbers and ranges like 0-2,5", item.c_str());
        mask.Enable(named);
    }
    mask.Trim();
    return mask;
}

void RunTime(const std::string& operation, char** args) {
    if (operation == "decode")
        return Decode(args);
    if (operation == "next")
        return Next(args);
    if (operation == "encode") {
        const ByteString record = InLayout(RecordOf(TimeOf(args[1])), args[0]);
        std::fprintf(out, "%s\n", HexLine(record.data(), record.size()).c_str());
        return;
    }
    const long t = TimeOf(args[0]);
    if (operation == "trim")
        return PrintTime(datetrim(UnitOf(args[1]), t));
    if (operation == "add")
        return PrintTime(dateadd(UnitOf(args[2]), Number(args[1], "N", -LONG_MAX, LONG_MAX), t));
    std::fprintf(out, "%ld\n", datediff(UnitOf(args[2]), t, TimeOf(args[1])));
}

void RunMask(const std::string& operation, char** args) {
    BitMask mask;
    ByteString bytes = operation == "text" ? HexOf(args) : ByteString((1U << 20) + 16, 0);
    auto length = static_cast<unsigned int>(bytes.size());
    if (operation != "text")
        mask = MaskOf(args);
    else if (length == 0 || mask.Deserialize(bytes.data(), length) != length)
        Quit(kFailed, "%u bytes are no mask: 4 that count the others, lowest first", length);
    MavDump dump(out);
    if (operation == "count")
        dump << mask.EnableCount() << "\n";
    else if (operation != "bytes")
        mask.Dump(dump) << "\n";
    else
        dump << HexLine(bytes.data(), mask.Serialize(&bytes[0], length)).c_str() << "\n";
}

void RunRecord(const std::string&, char** args) {
    ByteString bytes = HexOf(args);
    if (*args == nullptr)
        ParseHexStr(ReadAll(nullptr).c_str(), bytes);
    status = bytes.empty() ? kFailed : kDone;
    unsigned int used = 0;
    for (std::size_t at = 0; at < bytes.size(); at += used) {
        IpcInfo info;
        used = info.Deserialize(&bytes[at], static_cast<unsigned int>(bytes.size() - at));
        if (used == 0)
            Quit(kFailed, "no record in the last %zu bytes", bytes.size() - at);
        const bool inForce = info.IsValid();
        const long created = info.createTime;
        MavDump(out) << (at > 0 ? "\n" : "") << "type      " << info.type << "\nfirst     "
                     << info.first << "\nsecond    " << info.second << "\ncreated   "
                     << info.createTime << " " << created << "\nage       "
                     << (created > 0 ? static_cast<long long>(std::time(nullptr)) - created : 0)
                     << "\nlifetime  " << info.lifetime << "\nin-force  "
                     << (inForce ? "yes" : "no") << "\n";
        int number = 0;
        for (const ByteString* field : {&info.bytes1, &info.bytes2, &info.bytes3})
            std::fprintf(out, "bytes%d    %zu %s |%s|\n", ++number, field->size(),
                         HexLine(field->data(), field->size()).c_str(),
                         Readable(field->data(), field->size()).c_str());
        status = inForce ? status : kFailed;
    }
}

// A text begins with a line for every operation; it also tells which arguments there may be.
constexpr struct {
    const char* name;
    void (*run)(const std::string& operation, char** args);
    const char* help;
} kVerbs[] = {
    {"help", nullptr, R"(
mavutil looks into a running terminal; mavutil help VERB teaches a verb:
  queue   message queues between processes: list, look, send, take
  trace   the general log and the trace files: show them, follow them
  time    BCD time records, calendar arithmetic, timer points
  mask    bit masks: text to bytes and back, union, count
  record  IPC records from hex: fields, age, whether in force
  hex     a file or standard input in hex
  crc     both CRC-16 of files or standard input
  scan    a directory tree with sizes
  shm     the file behind a shared region: show it, watch it change
Exit status: 0 done, 1 nothing found or failed, 2 bad arguments.
)"},
    {"queue", RunQueue, R"(
  mavutil queue list                    a line for every flag with a queue
  mavutil queue peek FLAG               the messages, none taken: TYPE BYTES HEX
  mavutil queue recv FLAG [SELECTOR]    takes a message, prints it like peek
  mavutil queue send FLAG TYPE HEX...   sends one; a full queue drops older ones
  mavutil queue clear FLAG [SELECTOR]   drops the messages it selects
  mavutil queue remove FLAG             removes the queue, for all processes
  mavutil queue watch [FLAG|all [MS]]   lines of list that change, until Ctrl-C
FLAG is one character (M) or a number (77, 0x4D, 0x07). SELECTOR: 0 all of them,
T type T, -T types 1 to T, lowest first. sndr, rcvr: who sent, received last.
  mavutil queue peek M | cut -d' ' -f3- | mavutil record
)"},
    {"trace", RunTrace, R"(
  mavutil trace show [-g TEXT] [LOG...]    the lines: of the backup, the file
  mavutil trace follow [-g TEXT] [LOG...]  lines as they come, until Ctrl-C
LOG is a log, or a directory of *.log; without any, the general log and all of
/mnt/sd/term/common/trace. -g keeps the lines that hold TEXT, as it stands.
  mavutil trace show -g 'send succeed' | wc -l
)"},
    {"time", RunTime, R"(
  mavutil time decode LAYOUT HEX...  the time of a record, or it is invalid
  mavutil time encode LAYOUT [TIME]  the record of a time
  mavutil time add TIME N UNIT       N units later; earlier when N is below 0
  mavutil time trim TIME UNIT        where the unit that holds the time began
  mavutil time diff FROM TO UNIT     how many units begin between the two
  mavutil time next N UNIT [OFFSET UNIT [COUNT [TIME]]]  points of a timer
TIME is 2024-03-05[T06:07[:08]], @SECONDS since 1970 or now; UNIT is second,
minute, hour, day, month or year. The points of a timer lie N units apart,
counted from 2000-01-01 00:00:00 plus OFFSET; COUNT (5) of them.
LAYOUT is 0xEF: E the last field, F the first, of 1 second, 2 minute, 3 hour,
4 day, 5 month, 6 year, 7 century; 0x80 more with a weekday, 00 Sunday, between
hour and day: 0xE1 08 07 06 02 05 03 24. The clock tells what a record lacks.
  mavutil time next 1 day 8 hours 3       08:00:00 on the next three days
)"},
    {"mask", RunMask, R"(
  mavutil mask bytes LIST...  what the lists name, as a mask is stored
  mavutil mask text HEX...    the list of such a mask
  mavutil mask union LIST...  one list of all that the lists name
  mavutil mask count LIST...  how many bits that is
LIST is numbers and ranges. Stored: 4 bytes of length, then bits, highest first.
  mavutil mask bytes 0-2,5,9-10           02 00 00 00 E4 60
)"},
    {"record", RunRecord, R"(
  mavutil record [HEX...]  what records hold; else those on standard input
A record is 8 numbers of 4 bytes, lowest first (first, second, type, creation,
lifetime, lengths of three byte strings), and these. Status 0: all in force.
  mavutil queue peek M | cut -d' ' -f3- | mavutil record | grep in-force
)"},
    {"hex", RunHex, R"(
  mavutil hex [FILE [OFFSET [LENGTH]]]  rows of 16 bytes: where, hex, as text
Rows like the one before are left out behind a *. A file may have 16 MiB.
  mavutil hex /mnt/sdcard/meters.shm 0x40 32
)"},
    {"crc", RunCrc, R"(
  mavutil crc [FILE...]  two lines for each: NAME CRC BYTES FILE
  mavutil crc /mnt/sdcard/*.shm | awk '/3740/ { print $2, $4 }'
)"},
    {"scan", RunScan, R"(
  mavutil scan [PATH [DEPTH]]  a line for every entry, BYTES PATH, and the total
All below PATH, down to DEPTH levels: 0 its own entries alone.
  mavutil scan /mnt/sdcard | sort -rn | head
)"},
    {"shm", RunShm, R"(
  mavutil shm show FILE [OFFSET [LENGTH]]  rows of 16 bytes, as hex shows them
  mavutil shm watch FILE [MS]  every MS (500): TIME WHERE OLD -> NEW, to Ctrl-C
  mavutil shm watch /mnt/sdcard/meters.shm 100
)"},
};

const auto& VerbOf(const char* name) {
    for (const auto& verb : kVerbs)
        if (std::strcmp(verb.name, name) == 0)
            return verb;
    Quit(kBad, "no verb '%s': mavutil help lists them", name);
}

void Run(char** words) {
    const auto& verb = VerbOf(*words != nullptr ? *words++ : "");
    if (verb.run == nullptr) // "help"
        return MavDump(out).OutputString(VerbOf(*words != nullptr ? *words : "help").help + 1);
    // A line like "  mavutil queue peek FLAG [COUNT]  what it does".
    const std::string help = verb.help;
    std::string call = std::string("\n  mavutil ") + verb.name + " ";
    const bool several = help[call.size()] >= 'a'; // operations
    const std::string operation = several && *words != nullptr ? *words++ : "";
    call += several ? operation + " " : "";
    const std::size_t line = help.find(call);
    if (line == help.npos || operation.find(' ') != operation.npos)
        Quit(kBad, "no %s '%s': see mavutil help %s", verb.name, operation.c_str(), verb.name);
    const std::string usage = help.substr(line + 3, help.find("  ", line + 3) - line - 3);
    strings known, needed;
    known.addfrom(usage.c_str() + call.size() - 4, " ", false);
    needed.addfrom(usage.substr(0, usage.find('[')).c_str() + call.size() - 4, " ", false);
    const bool few = !needed.empty() && words[needed.size() - 1] == nullptr;
    if (few || (words[known.size()] != nullptr && usage.find("...") == usage.npos))
        Quit(kBad, "too %s arguments: write %s", few ? "few" : "many", usage.c_str());
    verb.run(operation, words);
}

} // namespace

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
    std::set_new_handler([]() { Quit(kFailed, "out of memory"); });
    std::vector<char*> words(argv + std::min(argc, 1), argv + argc);
    words.resize(words.size() + 8); // for the arguments that are left out
    Run(words.data());
    if (std::fflush(out) != 0 || std::ferror(out) != 0)
        Quit(kFailed, "writing: %s", std::strerror(errno));
    return status;
}
