#include "mavkit/sys/DirScan.h"

#include "mavkit/diag/Trace.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

typedef bool (*Callback)(int, bool, const char*, const char*, void*);

// The working directory, to which the process returns when this goes: by its descriptor, which
// serves also when it was renamed or has a path of any length, else by its path.
class WorkingDirectory {
public:
    WorkingDirectory()
        : path_(getcwd(nullptr, 0)), fd_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~WorkingDirectory() {
        [[maybe_unused]] const bool back =
            (fd_ >= 0 && fchdir(fd_) == 0) || (path_ != nullptr && chdir(path_) == 0);
        if (fd_ >= 0)
            close(fd_);
        std::free(path_);
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool HasPath() const { return path_ != nullptr; }
    bool HasWayBack() const { return path_ != nullptr || fd_ >= 0; }
    // Its path, for the caller to free.
    char* TakePath() {
        char* path = path_;
        path_ = nullptr;
        return path;
    }

private:
    char* path_;
    int fd_;
};

// One walk of a tree. The directories from the scanned one down to the one being listed are open,
// and are found and entered by descriptor only. A loop over a heap of levels, not a recursion: the
// depth of a hostile tree costs descriptors, which run out with an error, and no stack.
class Walk {
public:
    Walk(Callback callback, void* context, int limit)
        : callback_(callback), context_(context), limit_(limit), inside_(false) {}
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
            const Level level = levels_.back();
            const dirent* entry = readdir(level.dir);
            if (entry == nullptr) {
                Leave();
                continue;
            }
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            if (!inside_ && !Return())
                continue;
            const bool isDirectory = IsDirectory(level.dir, entry);
            if (!callback_(level.depth, isDirectory, path_.c_str(), name, context_))
                return false;
            if (isDirectory && (limit_ < 0 || level.depth < limit_))
                Descend(level, name);
        }
        return true;
    }

private:
    struct Level {
        DIR* dir;
        std::size_t pathLength; // how much of path_ names it
        int depth;
    };

    static bool IsDirectory(DIR* dir, const dirent* entry) {
#ifdef _DIRENT_HAVE_D_TYPE
        if (entry->d_type != DT_UNKNOWN)
            return entry->d_type == DT_DIR;
#endif
        struct stat status;
        return fstatat(dirfd(dir), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
               S_ISDIR(status.st_mode);
    }

    void Descend(const Level& level, const char* name) {
        if (path_ != "/")
            path_ += '/';
        path_ += name;
        const int depth = level.depth < INT_MAX ? level.depth + 1 : INT_MAX;
        if (!Enter(dirfd(level.dir), name, O_NOFOLLOW, depth))
            path_.resize(levels_.back().pathLength);
    }

    // Opens and enters the directory `name` (its path is path_) in the directory `parent`.
    bool Enter(int parent, const char* name, int flags, int depth) {
        levels_.push_back(Level{nullptr, path_.size(), depth}); // first: it may throw
        const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
        DIR* dir = fd >= 0 ? fdopendir(fd) : nullptr;
        if (dir != nullptr && fchdir(fd) == 0) {
            levels_.back().dir = dir;
            inside_ = true;
            return true;
        }
        levels_.pop_back();
        if (dir != nullptr)
            closedir(dir);
        else if (fd >= 0)
            close(fd);
        ReportUnopened();
        return false;
    }

    // Goes back into the directory being listed, after a visit below it.
    bool Return() {
        inside_ = fchdir(dirfd(levels_.back().dir)) == 0;
        if (!inside_) {
            // It has lost its permissions meanwhile. Its other entries are not reported from a
            // working directory where their bare names may mean other files.
            ReportUnopened();
            Leave();
        }
        return inside_;
    }

    // Closes the directory being listed; the process goes back up when it next has to.
    void Leave() {
        DIR* dir = levels_.back().dir;
        levels_.pop_back();
        inside_ = false;
        if (!levels_.empty())
            path_.resize(levels_.back().pathLength);
        else [[maybe_unused]]
            const bool up = fchdir(dirfd(dir)) == 0 && chdir("..") == 0;
        closedir(dir);
    }

    void ReportUnopened() const {
        GENERAL_LOG("DirScan: Error!Can not open directory:%s\n", path_.c_str());
    }

    const Callback callback_;
    void* const context_;
    const int limit_;
    std::vector<Level> levels_; // of the directory scanned, of the one entered in it, and so on
    std::string path_;          // of the last of them
    bool inside_;               // the working directory is the last of them
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
    char* directory = nullptr;
    char* file = nullptr;
    const char* slash = std::strrchr(path, '/');
    if (IsDir(path)) {
        directory = strdup(path);
    } else if (slash == nullptr) {
        directory = strdup(".");
        file = strdup(path);
    } else {
        directory = strdup(path);
        if (directory != nullptr)
            directory[slash == path ? 1 : slash - path] = '\0'; // "/" itself stays
        file = strdup(slash + 1);
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

bool DirScan::Scan(bool (*callback)(int, bool, const char*, const char*, void*), void* context,
                   int limit) {
    if (root == nullptr || callback == nullptr)
        return false;
    WorkingDirectory home;
    return home.HasPath() && ScanDir(root, 0, callback, context, limit);
}

bool DirScan::ScanDir(const char* directory, int depth,
                      bool (*callback)(int, bool, const char*, const char*, void*), void* context,
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
