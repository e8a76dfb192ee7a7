/// \file
/// Files: opened with a check of how many descriptors the process has open, created at a given
/// size, copied, and searched for a key=value line.
///
/// A terminal that leaks descriptors dies weeks later, far from the cause. So both forms of
/// `OpenFile` warn on the trace channel (level Warn) from descriptor 9 on, add an assertion report
/// "fd<64" from 64 on, and report when the system-wide table of open files is full. They only
/// report: nothing is refused. A warning that is raised while another one is being written is
/// dropped.
///
/// The library opens its trace files, terminals, shared-memory files and hex files with these
/// checks. The general log, the files below /proc, the directories of a scan and, for its mapping,
/// a shared-memory file that was checked just before are opened without them.
#ifndef MAVKIT_SYS_MAVFILE_H
#define MAVKIT_SYS_MAVFILE_H

#include <cstdio>

/// File helpers; no state, no instances. They close whatever they open, except for what `OpenFile`
/// returns.
class MavFile {
public:
    MavFile() = delete;

    /// Opens `path` like `fopen` in mode `mode`.
    /// \return the stream, which the caller closes; null (and errno) when it cannot be opened
    static std::FILE* OpenFile(const char* path, const char* mode);

    /// Opens `path` with `open` for reading and writing with synchronous writes (O_SYNC); creates
    /// it with permissions 0666 less the umask, or empties it. The flag `unused` has no effect.
    /// \return the descriptor, which the caller closes; -1 (and errno) when it cannot be opened
    static int OpenFile(const char* path, bool unused);

    /// Creates the file `path`, `size` bytes long, every byte `fill`; an old file is replaced. When
    /// this fails the file may remain with less content.
    /// \return 0; -1 for a null path, a size below 1, a file that cannot be opened, or when the
    /// last block could not be written, as on a full card
    static int CreateFile(const char* path, long size, unsigned char fill);

    /// Copies the file `source` (which must be readable and writable) to `destination`, which is
    /// removed first. A read that fails ends the copy like the end of the file.
    /// \return 0; -1 for a null path, a file that cannot be opened, or a block that could not be
    /// written whole, as on a full card; then a part of the copy may remain
    static int CopyFile(char* source, char* destination);

    /// Looks in the text file `path` for the first line `KEY=VALUE` with `key` before the first "="
    /// (exactly, with case and blanks) and copies what follows it, up to the line's end (LF or CR),
    /// to `value`, a buffer of at least 511 bytes (`key` may be in the same buffer). Lines of less
    /// than 4 characters, their line end counted, are skipped; a line longer than 511 characters
    /// counts as several. A line without "=" matches only the empty key.
    /// \return 0 when found; -1, and an empty `value`, when not or when the file cannot be opened
    static int SetFileRead(char* path, char* key, char* value);
};

#endif
