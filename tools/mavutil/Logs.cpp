// mavutil trace: the general log and the trace files.
#include "Logs.h"

#include "Values.h"

#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/Trace.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace mavutil {
namespace {

constexpr char kBackup[] = "_bak";

// Inserts a path in sorted order, unless it is there already.
void Insert(std::vector<std::string>& logs, const std::string& path) {
    auto at = logs.begin();
    while (at != logs.end() && *at < path)
        ++at;
    if (at == logs.end() || *at != path)
        logs.insert(at, path);
}

// Inserts the logs of a directory: all NAME.log, and those of which only the backup is left.
// Returns how many entries belong to logs, -1 when the directory cannot be read.
int ListLogs(const char* directory, std::vector<std::string>& logs) {
    DIR* const listing = opendir(directory);
    if (listing == nullptr)
        return -1;
    int found = 0;
    while (const dirent* entry = readdir(listing)) {
        const std::size_t length = std::strlen(entry->d_name);
        for (const char* suffix : {".log", ".log_bak"}) {
            const std::size_t tail = std::strlen(suffix);
            if (length < tail || std::strcmp(entry->d_name + length - tail, suffix) != 0)
                continue;
            std::string path = directory;
            if (path.back() != '/')
                path += '/';
            Insert(logs, path.append(entry->d_name, length - tail + 4));
            ++found;
        }
    }
    closedir(listing);
    return found;
}

// A time of day in a year as one number, so that later is greater: MMDDhhmmss, and the year in
// front.
constexpr long long kYear = 10000000000;

long long StampOf(std::time_t time) {
    const std::tm* const t = std::localtime(&time);
    if (t == nullptr)
        return 0;
    return (t->tm_year + 1900LL) * kYear +
           ((((t->tm_mon + 1) * 100LL + t->tm_mday) * 100 + t->tm_hour) * 100 + t->tm_min) * 100 +
           t->tm_sec;
}

// Reads the stamp of a line, "03-05 06:07:08", which the general log has in front and the trace
// files in "kor(...):". Returns -1 when it has none.
long long StampOf(const std::string& line) {
    const std::size_t tag = std::strlen(MavTrace::Prefix);
    std::size_t at = 0;
    if (line.compare(0, tag, MavTrace::Prefix) == 0 && line[tag] == '(')
        at = tag + 1;
    long long stamp = 0;
    for (const char* form = "00-00 00:00:00"; *form != '\0'; ++form, ++at) {
        const char c = at < line.size() ? line[at] : '\0';
        if (*form != '0' ? c != *form : c < '0' || c > '9')
            return -1;
        if (*form == '0')
            stamp = stamp * 10 + (c - '0');
    }
    // A damaged line may have any digits, which must not look like a turn of the year.
    const long long month = stamp / (kYear / 100);
    return month >= 1 && month <= 12 ? stamp : -1;
}

// Finds the years of stamps that come one after the other: the year turns where the stamps go back
// by more than half a year. Processes that log at the same moment may write their lines in either
// order, so a line of December after one of January belongs to the old year again.
class Years {
public:
    int turns = 0; // so far

    void Add(long long stamp) {
        const auto month = static_cast<int>(stamp / (kYear / 100));
        if (month_ - month > 6)
            ++turns;
        else if (month_ == 1 && month == 12)
            --turns;
        month_ = month;
    }

private:
    int month_ = 0;
};

// The lines of a log, one after the other: first those of its backup, then its own. Each has the
// time of its stamp, or without one that of the line before it.
class Reader {
public:
    explicit Reader(const std::string& logPath) : path(logPath) {}
    ~Reader() { Close(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const std::string path;
    std::unique_ptr<Reader> next;
    std::string line;
    long long time = 0; // year and stamp of `line`
    bool ended = false; // no line is left

    // Reads all lines once, to find the year of the first: the last one was written in the year in
    // which the file was changed last, and from there the years are counted back. Then goes to the
    // first line. Returns false, after an error message, when something cannot be read.
    bool Open() {
        Years years;
        long long first = -1;
        long long last = -1;
        bool good = Rewind();
        while (good && ReadLine()) {
            const long long stamp = StampOf(line);
            if (stamp == -1)
                continue;
            years.Add(stamp);
            first = first == -1 ? stamp : first;
            last = stamp;
        }
        // Up to a day in the future: the clock and the zone need not be those of the writer.
        const long long changed = StampOf(changed_ + 86400);
        year_ = changed / kYear - (last > changed % kYear ? 1 : 0) - years.turns;
        // Lines before the first stamp have its time; a log without stamps has the time of its
        // file.
        time = first != -1 ? year_ * kYear + first : StampOf(changed_);
        return good && !failed_ && Rewind();
    }
    // Goes to the next line; returns false after the last.
    bool Next() {
        if (!ReadLine())
            return false;
        const long long stamp = StampOf(line);
        if (stamp != -1) {
            years_.Add(stamp);
            time = (year_ + years_.turns) * kYear + stamp;
        }
        return true;
    }
    bool Failed() const { return failed_; }

private:
    void Close() {
        if (fd_ != -1)
            close(fd_);
        fd_ = -1;
    }
    // Opens the file, or its backup; true also when there is none.
    bool OpenPart(bool backup) {
        Close();
        fd_ = open((backup ? BackupOf(path) : path).c_str(), O_RDONLY | O_CLOEXEC);
        struct stat file;
        if (fd_ != -1 && fstat(fd_, &file) == 0 && (backup || file.st_size > 0))
            changed_ = file.st_mtime; // of the part that has the last line
        if (fd_ != -1 || errno == ENOENT)
            return true;
        Fail(backup);
        return false;
    }
    bool Rewind() {
        at_ = size_ = 0;
        inBackup_ = true;
        return OpenPart(true);
    }
    void Fail(bool backup) {
        ComplainOf((backup ? BackupOf(path) : path).c_str());
        failed_ = true;
    }
    // The next byte; -1 at the end of the part.
    int Get() {
        if (at_ == size_) {
            const ssize_t got = fd_ != -1 ? read(fd_, block_, sizeof block_) : 0;
            if (got == -1)
                Fail(inBackup_);
            at_ = 0;
            size_ = got > 0 ? static_cast<std::size_t>(got) : 0;
        }
        return at_ < size_ ? static_cast<unsigned char>(block_[at_++]) : -1;
    }
    bool ReadLine() {
        line.clear();
        for (;;) {
            const int c = Get();
            if (c == '\n')
                return true;
            if (c != -1) {
                if (IsShown(c))
                    line += static_cast<char>(c);
                if (line.size() < kLongestLine)
                    continue;
            }
            if (!line.empty())
                return true; // a long line, or one without an end
            if (!inBackup_ || failed_)
                return false;
            inBackup_ = false;
            OpenPart(false);
        }
    }

    int fd_ = -1;
    bool inBackup_ = true;
    bool failed_ = false;
    std::time_t changed_ = 0;
    long long year_ = 0; // of the first line
    Years years_;
    std::size_t at_ = 0;
    std::size_t size_ = 0;
    char block_[4096] = {};
};

// Prints each line that is added, or at the end the last `most` of them.
class Lines {
public:
    explicit Lines(std::size_t most) : most_(most), last_(new std::string[most]) {}

    void Add(std::string text) {
        if (most_ == 0)
            Print(text);
        else
            last_[count_ % most_].swap(text);
        ++count_;
    }
    // Returns whether there was a line.
    bool End() {
        if (most_ > 0)
            for (std::size_t i = count_ - std::min(count_, most_); i < count_; ++i)
                Print(last_[i % most_]);
        return count_ > 0;
    }

private:
    static void Print(const std::string& text) { std::fprintf(out, "%s\n", text.c_str()); }

    const std::size_t most_; // 0: all
    std::size_t count_ = 0;
    const std::unique_ptr<std::string[]> last_;
};

// Merges the logs by the times of their lines. The lines of one log keep their order.
Status Show(const Arguments& arguments) {
    Status status = kDone;
    Lines lines(static_cast<std::size_t>(Number(arguments.last, "N", 1, 1000000)));
    const long long since = arguments.since != nullptr ? StampOf(TimeOf(arguments.since)) : 0;
    const char* const wanted = arguments.text != nullptr ? arguments.text : "";
    std::unique_ptr<Reader> readers;
    std::unique_ptr<Reader>* end = &readers;
    const std::vector<std::string> paths = FindLogs(arguments, false, &status);
    for (const std::string& path : paths) {
        *end = std::make_unique<Reader>(path);
        Reader& reader = **end;
        end = &reader.next;
        reader.ended = !reader.Open() || !reader.Next();
        status = reader.Failed() ? kFailed : status;
    }
    for (;;) {
        Reader* first = nullptr;
        for (Reader* reader = readers.get(); reader != nullptr; reader = reader->next.get())
            if (!reader->ended && (first == nullptr || reader->time < first->time))
                first = reader;
        if (first == nullptr || !CanPrint())
            break;
        if (first->time >= since && first->line.find(wanted) != std::string::npos)
            lines.Add(LabelOf(first->path, paths.size() == 1) + PrintableOf(first->line));
        first->ended = !first->Next();
        status = first->Failed() ? kFailed : status;
    }
    return lines.End() || status != kDone ? status : Complain("no such line");
}

constexpr Operation kOperations[] = {
    {"show", "nsg", "[LOG...]", 0, kAnyNumber, "the lines of all logs, ordered by time", Show},
    {"follow", "g", "[LOG...]", 0, kAnyNumber, "new lines as they arrive, until Ctrl-C", Follow},
};

} // namespace

std::string BackupOf(const std::string& path) { return path + kBackup; }

std::string LabelOf(const std::string& path, bool only) {
    return only ? "" : PrintableOf(path.substr(path.rfind('/') + 1)) + ": ";
}

std::vector<std::string> FindLogs(const Arguments& arguments, bool quietly, Status* status) {
    const char* const everything[] = {GENERAL_LOG_PATH, "/mnt/sd/term/common/trace", nullptr};
    std::vector<std::string> logs;
    const char* const* path = arguments[0] != nullptr ? arguments.words : everything;
    for (; *path != nullptr; ++path) {
        struct stat file;
        int found = 1;
        if (stat(*path, &file) == 0 && S_ISDIR(file.st_mode))
            found = ListLogs(*path, logs);
        else if (quietly || access(BackupOf(*path).c_str(), R_OK) == 0 || access(*path, R_OK) == 0)
            Insert(logs, *path);
        else
            found = -1;
        if (found > 0)
            continue;
        *status = kFailed;
        if (!quietly && found == -1)
            ComplainOf(*path);
        else if (!quietly)
            Complain("%s: no logs in it", PrintableOf(*path).c_str());
    }
    return logs;
}

const Verb kTrace = {
    "trace", "the general log and the trace files: show them, follow them", kOperations,
    R"(LOG is a log, or a directory of *.log; without any, the general log and all of
/mnt/sd/term/common/trace. A backup, NAME.log_bak, is shown before its log.
-g keeps the lines that contain exactly TEXT, --since those from TIME on (see
mavutil help time), -n the last N of all. A line without a time belongs to the
one before it. follow reports what a rotation removed before it was read.
  mavutil trace show -n 20 -g 'send succeed'
)"};

} // namespace mavutil
