/// \file
/// Walks a directory tree, depth first, and hands every entry to a callback: to find the files of
/// some kind, or to prune old ones.
///
///     bool Prune(int, bool isDirectory, const char*, const char* name, void*) {
///         if (!isDirectory && IsStale(name))
///             remove(name); // the bare name: the working directory is the one being listed
///         return true;      // go on
///     }
///     DirScan("/mnt/sdcard/log").Scan(Prune, nullptr, -1);
///
/// While the callback runs, the process's working directory is the directory being listed. Symbolic
/// links are reported, never followed, not even one that takes a directory's place while the scan
/// runs. The tree may change under the scan, by the callback's hand too: a directory is held by its
/// descriptor, not found again by its name, so the scan always lists what it entered and comes back
/// to where it was. Paths may grow longer than PATH_MAX. Each level of depth takes a descriptor.
#ifndef MAVKIT_SYS_DIRSCAN_H
#define MAVKIT_SYS_DIRSCAN_H

/// A path prepared for scanning. Not for two threads at once: a scan moves the working directory of
/// the whole process.
///
/// The callback is `bool callback(int depth, bool isDirectory, const char* directory, const char*
/// name, void* context)`:
///
/// | argument      | meaning                                                                  |
/// |---------------|--------------------------------------------------------------------------|
/// | `depth`       | 0 for the entries of the directory scanned, 1 for those below, and so on |
/// | `isDirectory` | whether the entry is a directory; a symbolic link to one is not          |
/// | `directory`   | path of the directory being listed, valid during the call                |
/// | `name`        | bare name of the entry, valid during the call; never "." or ".."         |
/// | `context`     | the caller's pointer                                                     |
///
/// It returns true to go on, false to end the whole scan. It may remove or rename anything, scan on
/// its own or throw. If it changes the working directory and does not come back, only the calls for
/// further entries of the same directory are affected.
class DirScan {
public:
    char* root;     ///< absolute path of the directory to scan, on the heap and owned; null: none
    char* filePart; ///< what stood after the directory in the path given; null when nothing did

    /// Prepares \p path in the manner of ParsePath().
    explicit DirScan(const char* path);
    ~DirScan();
    DirScan(const DirScan&) = delete;
    DirScan& operator=(const DirScan&) = delete;

    /// Replaces root and file part by those of \p path. A null path changes nothing.
    ///
    /// | path                                       | directory        | file part |
    /// |--------------------------------------------|------------------|-----------|
    /// | a directory (and not a symbolic link)      | the whole path   | null      |
    /// | `/mnt/a/b.log`, not a directory            | `/mnt/a`         | `b.log`   |
    /// | `/b.log`                                   | `/`              | `b.log`   |
    /// | `b.log`                                    | `.`              | `b.log`   |
    ///
    /// The root becomes the directory's absolute path as the system reports it, without symbolic
    /// links; when the directory cannot be entered, the working directory's. The working directory
    /// stays as it is. The root is null when the system cannot name the directory, when there is no
    /// memory, or when there would be no way back to the working directory.
    void ParsePath(const char* path);

    /// Scans the root and what is below it, directories down to depth \p limit (0: the root's own
    /// entries only; negative: all). The entries come in the order in which the system lists them.
    /// A directory that cannot be opened or entered draws a general-log line and is skipped.
    /// Afterwards the working directory is the one from before, whatever happened.
    /// \return true when the scan ran to its end; false when the callback ended it, or when nothing
    ///         was scanned: there is no root or no callback, or the working directory cannot be read
    bool Scan(bool (*callback)(int, bool, const char*, const char*, void*), void* context,
              int limit);

    /// Scans \p directory (absolute, or relative to the working directory) in the manner of Scan(),
    /// with \p depth as the depth of its entries. A directory deeper than \p limit is not looked
    /// at. Afterwards the working directory is the parent of \p directory, or the one from before
    /// when that could not be opened or entered.
    /// \return as Scan(); false for a null directory or callback
    static bool ScanDir(const char* directory, int depth,
                        bool (*callback)(int, bool, const char*, const char*, void*), void* context,
                        int limit);

    /// \return true when \p path names a directory itself; false for anything else, a symbolic link
    ///         to a directory, a path that cannot be examined and a null one included
    static bool IsDir(const char* path);
};

#endif
