/// \file
/// Walks a directory tree, depth first, and passes every entry to a callback: to find the files of
/// some kind, or to delete old ones.
///
///     bool Prune(int, bool isDirectory, const char*, const char* name, void*) {
///         if (!isDirectory && IsStale(name))
///             std::remove(name); // the bare name: the working directory is the one being listed
///         return true;           // go on
///     }
///     const char* const logs = "/mnt/sdcard/log";
///     if (DirScan::IsDir(logs)) // else the root would be another directory: see `ParsePath()`
///         DirScan(logs).Scan(Prune, nullptr, -1);
///
/// While the callback runs, the process's working directory is the directory being listed. Symbolic
/// links are reported and never followed, not even one that takes a directory's place during the
/// scan. The tree may change during the scan, also by the callback: a directory is kept open and
/// not found again by its name, so the scan always lists what it entered and returns to where it
/// was. Paths below the root may grow longer than PATH_MAX. Each level of depth takes a descriptor.
#ifndef MAVKIT_SYS_DIRSCAN_H
#define MAVKIT_SYS_DIRSCAN_H

/// A path prepared for scanning. Not for two threads at once: a scan moves the working directory of
/// the whole process.
class DirScan {
public:
    /// The callback, with its arguments in this order:
    ///
    /// | argument      | meaning                                                                  |
    /// |---------------|--------------------------------------------------------------------------|
    /// | `depth`       | 0 for the entries of the directory scanned, 1 for those below, and so on |
    /// | `isDirectory` | whether the entry is a directory at this moment; a link to one is not    |
    /// | `directory`   | path of the directory being listed, valid during the call                |
    /// | `name`        | bare name of the entry, valid during the call; never "." or ".."         |
    /// | `context`     | the caller's pointer                                                     |
    ///
    /// It may remove or rename anything, scan on its own or throw. If it changes the working
    /// directory and does not return to it, only the calls for further entries of the same
    /// directory are affected.
    /// \return true to go on; false to end the whole scan
    typedef bool (*Callback)(int depth, bool isDirectory, const char* directory, const char* name,
                             void* context);

    char* root;     ///< absolute path of the directory to scan, on the heap and owned; null: none
    char* filePart; ///< the part of the path after the directory; null when there is none

    /// Prepares `path` as `ParsePath()` does.
    explicit DirScan(const char* path);
    ~DirScan();
    DirScan(const DirScan&) = delete;
    DirScan& operator=(const DirScan&) = delete;

    /// Replaces root and file part by those of `path`. A null path changes nothing.
    ///
    /// | path                                       | directory        | file part |
    /// |--------------------------------------------|------------------|-----------|
    /// | a directory (and not a symbolic link)      | the whole path   | null      |
    /// | `/mnt/a/b.log`, not a directory            | `/mnt/a`         | `b.log`   |
    /// | `/b.log`                                   | `/`              | `b.log`   |
    /// | `b.log`                                    | `.`              | `b.log`   |
    ///
    /// The root becomes the directory's absolute path as the system reports it, without symbolic
    /// links. When the directory cannot be entered, it becomes the path of the working directory.
    /// So a missing path gives another root than the one that was meant: before a callback deletes
    /// anything, ask `IsDir()`, or compare `root`.
    ///
    /// The working directory stays as it is. The root is null when there is no memory, when the
    /// system cannot name the directory (a path longer than PATH_MAX, which not every libc can
    /// name), and when it is not certain that the process can return to the working directory: then
    /// it is not left.
    void ParsePath(const char* path);

    /// Scans the root and what is below it, directories down to depth `limit` (0: the root's own
    /// entries only; negative: all). The entries come in the order in which the system lists them.
    /// A directory that cannot be opened or entered is reported in the general log and skipped. One
    /// whose listing stops before its end, because of an error or because it cannot be entered
    /// again after a visit below it, is reported in the same way; the scan goes on with the rest of
    /// the tree and returns false.
    ///
    /// Afterwards the working directory is the same as before. When it is not certain that the
    /// process can return to it (a process that gave up its privileges in a directory that it may
    /// not enter), the scan does not start.
    /// \return true when every directory was listed to its end or skipped; false when a listing
    ///         stopped before its end, when the callback ended the scan, or when nothing was
    ///         scanned: without a root, a callback or a certain way back, and in a working
    ///         directory that was deleted
    bool Scan(Callback callback, void* context, int limit);

    /// Scans `directory` (absolute, or relative to the working directory) as `Scan()` does, with
    /// `depth` as the depth of its entries. A directory deeper than `limit` is not read. Afterwards
    /// the working directory is the parent of `directory`, or unchanged when `directory` could not
    /// be opened or entered. Unlike `Scan()`, it starts although no way back to the working
    /// directory is certain.
    /// \return true when every directory was listed to its end, skipped, or deeper than `limit`;
    ///         false when a listing stopped before its end, when the callback ended the scan, and
    ///         for a null directory or callback
    static bool ScanDir(const char* directory, int depth, Callback callback, void* context,
                        int limit);

    /// Reports whether `path` names a directory itself.
    /// \return true when it does; false for anything else, also for a symbolic link to a directory,
    ///         a path that cannot be examined and a null one
    static bool IsDir(const char* path);
};

#endif
