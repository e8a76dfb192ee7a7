#include "mavkit/sys/DirScan.h"

#include "mavkit/diag/Trace.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <forward_list>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The working directory, to which the process returns at the end of the scope: by its descriptor,
// which also works when the directory was renamed or its path is too long, or else by its path.
// Call HasWayBack() before leaving it.
class WorkingDirectory {
public:
    WorkingDirectory() : fd_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        errno = 0;
        path_ = getcwd(nullptr, 0);
        // No kernel reports a path longer than PATH_MAX, and not every libc tries to build one. A
        // directory that has been deleted has no name at all.
        exists_ = path_ != nullptr || errno == ENAMETOOLONG || errno == ERANGE;
        // A process that has given up privileges may be in a directory that it could not enter
        // again. A process that can look up "." may enter it: by the descriptor, or by a path that
        // leads here.
        hasWayBack_ = fd_ >= 0 || (path_ != nullptr && IsSame(path_, "."));
    }
    ~WorkingDirectory() {
        if (hasWayBack_ && (fd_ < 0 || fchdir(fd_) != 0) && path_ != nullptr) [[maybe_unused]]
            const int ignored = chdir(path_);
        if (fd_ >= 0)
            close(fd_);
        std::free(path_);
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool Exists() const { return exists_; }
    bool HasWayBack() const { return hasWayBack_; }
    // Its path, for the caller to free.
    char* TakePath() {
        char* path = path_;
        path_ = nullptr;
        return path;
    }

private:
    static bool IsSame(const char* a, const char* b) {
        struct stat first;
        struct stat second;
        return fstatat(AT_FDCWD, a, &first, 0) == 0 && fstatat(AT_FDCWD, b, &second, 0) == 0 &&
               first.st_dev == second.st_dev && first.st_ino == second.st_ino;
    }

    int fd_;
    char* path_;
    bool exists_;
    bool hasWayBack_;
};

// One walk of a tree. The directories from the scanned one down to the one being listed are open,
// and are found and entered by descriptor only. It is a loop over a list of levels and not a
// recursion: a deep hostile tree uses descriptors, which run out with an error, but no stack.
class Walk {
public:
    Walk(DirScan::Callback callback, void* context, int limit)
        : callback_(callback), context_(context), limit_(limit) {}
    ~Walk() {
        while (!levels_.empty())
            Leave();
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    bool Run(const char* directory, int depth) {
        path_ = directory;
        Enter(AT_FDCWD, directory, 0, depth);
        while (!levels_.empty()) {
            const Level& level = levels_.front();
            errno = 0;
            const dirent* entry = readdir(level.dir);
            if (entry == nullptr) {
                // Not every libc treats ENOENT (the directory has been removed) as the end.
                if (errno == 0 || errno == ENOENT)
                    Leave();
                else
                    BreakOff();
                continue;
            }
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            if (!inside_ && !Return())
                continue;
            // Checked now, as the entry may have been read before the last subdirectory was walked.
            const bool isDirectory = IsDirectory(level.dir, name);
            if (!callback_(level.depth, isDirectory, path_.c_str(), name, context_))
                return false;
            if (isDirectory && (limit_ < 0 || level.depth < limit_))
                Descend(level, name);
        }
        return complete_;
    }

private:
    struct Level {
        DIR* dir;
        std::size_t pathLength; // the length of its part of path_
        int depth;
    };

    static bool IsDirectory(DIR* dir, const char* name) {
        struct stat status;
        return fstatat(dirfd(dir), name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
               S_ISDIR(status.st_mode);
    }

    void Descend(const Level& level, const char* name) {
        if (path_ != "/")
            path_ += '/';
        path_ += name;
        const int depth = level.depth < INT_MAX ? level.depth + 1 : INT_MAX;
        if (!Enter(dirfd(level.dir), name, O_NOFOLLOW, depth))
            path_.resize(levels_.front().pathLength);
    }

    // Opens and enters the directory `name` (its path is path_) in the directory `parent`.
    bool Enter(int parent, const char* name, int flags, int depth) {
        levels_.push_front(Level{nullptr, path_.size(), depth}); // done first, as it may throw
        const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
        DIR* dir = fd >= 0 ? fdopendir(fd) : nullptr;
        if (dir != nullptr && fchdir(fd) == 0) {
            levels_.front().dir = dir;
            inside_ = true;
            return true;
        }
        levels_.pop_front();
        if (dir != nullptr)
            closedir(dir);
        else if (fd >= 0)
            close(fd);
        ReportUnopened();
        return false;
    }

    // Goes back into the directory being listed, after a visit below it. When that fails, its other
    // entries are not reported: in another directory their bare names might name other files.
    bool Return() {
        inside_ = fchdir(dirfd(levels_.front().dir)) == 0;
        if (!inside_)
            BreakOff();
        return inside_;
    }

    // Leaves the directory being listed before its end.
    void BreakOff() {
        ReportUnopened();
        Leave();
        complete_ = false;
    }

    // Closes the directory being listed. The process enters the one above only when it has to
    // report an entry of it.
    void Leave() {
        DIR* dir = levels_.front().dir;
        levels_.pop_front();
        inside_ = false;
        if (!levels_.empty())
            path_.resize(levels_.front().pathLength);
        else [[maybe_unused]]
            const bool ignored = fchdir(dirfd(dir)) == 0 && chdir("..") == 0;
        closedir(dir);
    }

    void ReportUnopened() const {
        GENERAL_LOG("DirScan: Error!Can not open directory:%s\n", path_.c_str());
    }

    const DirScan::Callback callback_;
    void* const context_;
    const int limit_;
    std::forward_list<Level> levels_; // of the last directory entered, of the one above, and so on
    std::string path_;                // of the first of them
    bool inside_ = false;             // the working directory is the first of them
    bool complete_ = true;            // every listing came to its end
};

} // namespace

DirScan::DirScan(const char* path) : root(nullptr), filePart(nullptr) { ParsePath(path); }

DirScan::~DirScan() {
    std::free(root);
    std::free(filePart);
}

void DirScan::ParsePath(const char* path) {
    if (path == nullptr)
        return;
    const char* slash = std::strrchr(path, '/');
    const bool isDirectory = IsDir(path);
    char* directory = strdup(isDirectory || slash != nullptr ? path : ".");
    char* file = nullptr;
    if (!isDirectory) {
        if (slash != nullptr && directory != nullptr)
            directory[slash == path ? 1 : slash - path] = '\0'; // "/" itself stays
        file = strdup(slash != nullptr ? slash + 1 : path);
    }

    char* found = nullptr;
    if (directory != nullptr) {
        WorkingDirectory home;
        if (home.HasWayBack())
            found = chdir(directory) == 0 ? getcwd(nullptr, 0) : home.TakePath();
        std::free(directory);
    }
    std::free(root); // not before: path may be one of these
    std::free(filePart);
    root = found;
    filePart = file;
}

bool DirScan::Scan(Callback callback, void* context, int limit) {
    if (root == nullptr || callback == nullptr)
        return false;
    const WorkingDirectory home;
    return home.Exists() && home.HasWayBack() && ScanDir(root, 0, callback, context, limit);
}

bool DirScan::ScanDir(const char* directory, int depth, Callback callback, void* context,
                      int limit) {
    if (limit >= 0 && depth > limit)
        return true;
    if (directory == nullptr || callback == nullptr)
        return false;
    return Walk(callback, context, limit).Run(directory, depth);
}

bool DirScan::IsDir(const char* path) {
    struct stat status;
    return path != nullptr && lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}
