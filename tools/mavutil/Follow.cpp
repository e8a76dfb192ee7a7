// mavutil trace follow: the lines of logs as they are written, also across rotations.
//
// A rotation empties the log, which stays the same file, and then writes its old content to the
// backup, filled up with zero bytes. Nothing reports this, and a log that has been emptied may have
// grown again beyond the place that we had read. So the last bytes that were read are kept: what is
// read next must follow them. When it does not, the log was rotated (a "turn"), and those bytes are
// searched in the backup as soon as it is whole. The kernel reports when a backup was written
// (inotify), which gives the number of turns; without that, a backup that has changed and has its
// full size counts as a turn.
#include "Logs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mavutil {
namespace {

// Looks at least every 100 ms, but a log that grows fast must not use the whole processor.
constexpr int kPause = 90;
constexpr int kShortPause = 10;
constexpr std::time_t kPatience = 3;   // seconds within which an emptied log must get its backup
constexpr int kWriting = 400;          // times 5 ms, within which a backup must be written
constexpr off_t kBackupSize = 1000500; // of every whole backup
constexpr std::size_t kKept = 256;     // bytes before the place of reading that are compared

// The data that shows whether a file is still the same one.
struct Face {
    dev_t device = 0;
    ino_t inode = 0; // 0: there is no file
    off_t size = 0;
    timespec changed = {};

    static Face Of(const std::string& path) {
        struct stat file;
        Face face;
        if (stat(path.c_str(), &file) == 0)
            face = {file.st_dev, file.st_ino, file.st_size, file.st_mtim};
        return face;
    }
    bool IsFile(const Face& other) const { return inode == other.inode && device == other.device; }
    bool operator==(const Face& other) const {
        return IsFile(other) && size == other.size && changed.tv_sec == other.changed.tv_sec &&
               changed.tv_nsec == other.changed.tv_nsec;
    }
};

struct Log {
    explicit Log(const std::string& logPath) : path(logPath) {}
    ~Log() {
        if (fd != -1)
            close(fd);
    }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    const std::string path;
    std::unique_ptr<Log> next;
    int watch = -1;        // of its directory
    int fd = -1;           // the log as it was opened, also when it has been renamed since
    Face file;             // of `fd`
    off_t at = 0;          // where the next line to be printed begins
    std::string kept;      // the bytes before `at`
    Face backup;           // as it was when its content was last handled
    int turns = 0;         // backups that were written since then
    bool unsure = false;   // whether there may have been more
    bool writing = false;  // whether the backup is being written
    bool touched = false;  // whether something happened to the backup since this was last reset
    std::time_t since = 0; // when it was found emptied, its backup not yet written; 0: it is not
    int error = 0;         // why it could not be opened, as reported last

    std::string Name() const { return PrintableOf(path.substr(path.rfind('/') + 1)); }
};

class Follower {
public:
    explicit Follower(const Arguments& arguments)
        : arguments_(arguments), wanted_(arguments.text != nullptr ? arguments.text : ""),
          events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}
    ~Follower() {
        if (events_ != -1)
            close(events_);
    }
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

    void Run() {
        Status ignored = kDone;
        Find(false, &ignored);
        for (bool more = true; more;) {
            more = Wait(kPause, events_) && Wait(kShortPause);
            Find(true, &ignored);
            ReadEvents();
            for (Log* log = logs_.get(); log != nullptr; log = log->next.get())
                Look(*log, !more);
        }
    }

private:
    // Adds the logs that are new. On the first call they are followed from their end on.
    void Find(bool again, Status* status) {
        const std::vector<std::string> paths = FindLogs(arguments_, again, status);
        only_ = paths.size() == 1;
        for (const std::string& path : paths) {
            std::unique_ptr<Log>* place = &logs_;
            while (*place != nullptr && (*place)->path != path)
                place = &(*place)->next;
            const bool isNew = *place == nullptr;
            if (isNew)
                *place = std::make_unique<Log>(path);
            Log* const log = place->get();
            Watch(*log); // before the first look, so that no change is missed
            if (isNew && !again) {
                log->backup = Face::Of(BackupOf(path));
                Open(*log);
                log->at = log->file.size;
                Keep(*log);
            }
        }
    }
    // A directory that is watched already gives the same number again.
    void Watch(Log& log) const {
        const std::size_t slash = log.path.rfind('/');
        const std::string directory =
            slash == std::string::npos ? "." : log.path.substr(0, slash + 1);
        if (events_ != -1)
            log.watch = inotify_add_watch(events_, directory.c_str(),
                                          IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_TO);
    }
    void ReadEvents() {
        alignas(inotify_event) char block[4096];
        for (ssize_t got; (got = read(events_, block, sizeof block)) > 0;)
            for (const char* at = block; at < block + got;) {
                inotify_event event;
                std::memcpy(&event, at, sizeof event);
                NoteEvent(event, event.len > 0 ? at + sizeof event : "");
                at += sizeof event + event.len;
            }
    }
    void NoteEvent(const inotify_event& event, const char* name) {
        for (Log* each = logs_.get(); each != nullptr; each = each->next.get()) {
            Log& log = *each;
            if ((event.mask & IN_Q_OVERFLOW) != 0)
                log.unsure = true;
            if (log.watch != event.wd || BackupOf(log.path.substr(log.path.rfind('/') + 1)) != name)
                continue;
            const bool closed = (event.mask & IN_CLOSE_WRITE) != 0;
            log.touched = true;
            log.turns += closed ? 1 : 0;
            log.writing = !closed && (event.mask & IN_MODIFY) != 0;
        }
    }

    // Opens the log of this name; one that is not there yet is waited for.
    void Open(Log& log) {
        log.fd = open(log.path.c_str(), O_RDONLY | O_CLOEXEC);
        const int error = log.fd == -1 ? errno : 0;
        if (error != 0 && error != ENOENT && error != log.error)
            ComplainOf(log.path.c_str());
        log.error = error;
        struct stat file;
        log.file = Face();
        if (log.fd != -1 && fstat(log.fd, &file) == 0)
            log.file = {file.st_dev, file.st_ino, file.st_size, file.st_mtim};
        Start(log);
    }
    static void Start(Log& log) {
        log.at = 0;
        log.kept.clear();
        log.since = 0;
    }
    // Reads the bytes before the place of reading, for a log that is not followed from 0.
    static void Keep(Log& log) {
        char bytes[kKept];
        const off_t from = std::max<off_t>(0, log.at - static_cast<off_t>(kKept));
        const ssize_t got = pread(log.fd, bytes, static_cast<std::size_t>(log.at - from), from);
        log.kept.assign(bytes, got > 0 ? static_cast<std::size_t>(got) : 0);
    }

    void Look(Log& log, bool last) {
        const Face now = Face::Of(log.path);
        if (log.fd != -1 && !now.IsFile(log.file)) {
            // Renamed or removed: the last lines of the old file can still be read.
            Read(log, true);
            close(log.fd);
            log.fd = -1;
            if (const Face backup = Face::Of(BackupOf(log.path)); log.file.IsFile(backup)) {
                log.backup = backup;
                log.turns = 0;
            }
        }
        if (log.fd == -1)
            Open(log);
        if (log.turns > 0 || ((log.watch == -1 || log.unsure) && HasNewBackup(log)))
            Turn(log);
        if (log.fd == -1 || Read(log, last)) {
            log.since = 0;
            return;
        }
        // It was emptied. Later lines can be shown only after those in its backup.
        const std::time_t clock = Clock();
        log.since = log.since == 0 ? clock : log.since;
        if (clock - log.since < kPatience && !last)
            return;
        if (HasNewBackup(log)) {
            Turn(log);
        } else {
            Complain("%s was emptied and has no backup: lines after its byte %lld are lost",
                     log.Name().c_str(), static_cast<long long>(log.at));
            Start(log);
        }
        Read(log, last);
    }
    static bool HasNewBackup(const Log& log) {
        const Face backup = Face::Of(BackupOf(log.path));
        return backup.size == kBackupSize && !(backup == log.backup);
    }
    static std::time_t Clock() {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        return now.tv_sec + 1; // never 0
    }

    // Handles the turns of a log since the last look: the backup has the content of the last one.
    void Turn(Log& log) {
        std::string content;
        for (int tries = 0; tries < kWriting; ++tries) {
            log.touched = false;
            log.backup = Face::Of(BackupOf(log.path));
            content = ReadBackup(BackupOf(log.path));
            ReadEvents();
            if (!log.writing && !log.touched)
                break;
            if (log.writing)
                poll(nullptr, 0, 5); // the next rotation has begun, so the content is not whole
        }
        const int turns = log.turns;
        log.turns = 0;
        const auto at = static_cast<std::size_t>(log.at);
        const std::size_t kept = log.kept.size();
        int lost = 0;
        if (turns <= 1 && at <= content.size() && content.compare(at - kept, kept, log.kept) == 0) {
            content.erase(0, at); // the turn that was being read
            Start(log);
        } else if (log.fd != -1 && Follows(log)) {
            lost = turns - 1; // the log is the one that was being read; these came before
        } else {
            lost = std::max(1, turns - 1); // the one being read, and those after it
            Start(log);
        }
        if (lost > 0)
            Complain("%s was rotated too fast: %s%d turn%s lost, of about %zu bytes",
                     log.Name().c_str(), turns == 0 || log.unsure ? "at least " : "up to ", lost,
                     lost == 1 ? " is" : "s are", content.size());
        log.unsure = false;
        for (std::size_t done = 0; done < content.size();)
            done += PrintLines(log, &content[done], content.size() - done, true);
    }
    // Whether the log still has the bytes that were read before.
    static bool Follows(const Log& log) {
        char bytes[kKept];
        const std::size_t kept = log.kept.size();
        return pread(log.fd, bytes, kept, log.at - static_cast<off_t>(kept)) ==
                   static_cast<ssize_t>(kept) &&
               std::memcmp(bytes, log.kept.data(), kept) == 0;
    }
    // The content of a backup, without the zero bytes that fill it up.
    static std::string ReadBackup(const std::string& path) {
        std::string content;
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        char block[4096];
        for (ssize_t got; fd != -1 && (got = read(fd, block, sizeof block)) > 0;) {
            content.append(block, static_cast<std::size_t>(got));
            if (block[0] == '\0' &&
                std::memcmp(block, block + 1, static_cast<std::size_t>(got) - 1) == 0)
                break; // a block of zero bytes
        }
        if (fd != -1)
            close(fd);
        content.resize(content.find_last_not_of('\0') + 1);
        return content;
    }

    // Prints the whole lines that have come, and with `last` what follows them. Returns false when
    // the log no longer has the bytes that were read before.
    bool Read(Log& log, bool last) {
        for (;;) {
            char block[kKept + kLongestLine];
            const std::size_t kept = log.kept.size();
            const ssize_t got =
                pread(log.fd, block, sizeof block, log.at - static_cast<off_t>(kept));
            if (got < static_cast<ssize_t>(kept) || std::memcmp(block, log.kept.data(), kept) != 0)
                return false;
            const std::size_t length = static_cast<std::size_t>(got) - kept;
            const std::size_t done =
                PrintLines(log, block + kept, length, last || got == sizeof block);
            if (done == 0)
                return true;
            log.at += static_cast<off_t>(done);
            const std::size_t keep = std::min(kKept, kept + done);
            log.kept.assign(block + kept + done - keep, keep);
        }
    }
    // Prints the complete lines of `text`. When there is none and with `whole`, prints all of it as
    // a line. Returns the length of what was printed.
    std::size_t PrintLines(const Log& log, const char* text, std::size_t length, bool whole) const {
        std::size_t done = 0;
        while (const void* end = std::memchr(text + done, '\n', length - done)) {
            const auto stop = static_cast<std::size_t>(static_cast<const char*>(end) - text);
            PrintLine(log, text + done, stop - done);
            done = stop + 1;
        }
        if (done > 0 || length == 0 || !whole)
            return done;
        PrintLine(log, text, length);
        return length;
    }
    void PrintLine(const Log& log, const char* text, std::size_t length) const {
        std::string line;
        for (std::size_t i = 0; i < length; ++i)
            if (IsShown(text[i]))
                line += text[i];
        if (line.find(wanted_) != std::string::npos)
            std::fprintf(out, "%s%s\n", LabelOf(log.path, only_).c_str(),
                         PrintableOf(line).c_str());
    }

    const Arguments& arguments_;
    const std::string wanted_;
    const int events_; // inotify; -1: this kernel has none
    bool only_ = false;
    std::unique_ptr<Log> logs_;
};

} // namespace

Status Follow(const Arguments& arguments) {
    Follower(arguments).Run();
    return kDone;
}

} // namespace mavutil
