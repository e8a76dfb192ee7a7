/// \file
/// Files: opened with an eye on how many descriptors the process holds, created at a given size,
/// copied, and searched for a key=value line.
///
/// A terminal that leaks descriptors dies weeks later, far from the cause. So every file that the
/// library opens goes through MavFile::OpenFile, which warns on the trace channel (level Warn) from
/// descriptor 9 on, adds an assertion report "fd<64" from 64 on, and tells when the system-wide
/// table of open files is full. It only tells: nothing is refused.
#ifndef MAVKIT_SYS_MAVFILE_H
#define MAVKIT_SYS_MAVFILE_H

#include <cstdio>

/// File helpers; no state, no instances. Whatever they open they close again, except for what
/// OpenFile() returns.
class MavFile {
public:
    MavFile() = delete;

    /// Opens \p path like `fopen` in mode \p mode.
    /// \return the stream, which the caller closes; null (and errno) when it cannot be opened
    static std::FILE* OpenFile(const char* path, const char* mode);

    /// Opens \p path with `open` for reading and writing with synchronous writes (O_SYNC); creates
    /// it with permissions 0666 less the umask, or empties it. The flag \p unused takes no part.
    /// \return the descriptor, which the caller closes; -1 (and errno) when it cannot be opened
    static int OpenFile(const char* path, bool unused);

    /// Creates the file \p path, \p size bytes long, every byte \p fill; an old file is replaced.
    /// \return 0; -1 for a null path, a size below 1, a file that cannot be opened, or
    ///         when the last block could not be written, as on a full card
    static int CreateFile(const char* path, long size, unsigned char fill);

    /// Copies the file \p source (which must be readable and writable) to \p destination, which is
    /// removed first. A read that fails ends the copy like the end of the file.
    /// \return 0; -1 for a null path, a file that cannot be opened, or a block that could not be
    ///         written whole, as on a full card
    static int CopyFile(char* source, char* destination);

    /// Looks in the text file \p path for the first line `KEY=VALUE` with \p key before the first
    /// "=" (exactly, with case and blanks) and copies what follows it, up to the line's end (LF or
    /// CR), to \p value, a buffer of at least 511 bytes. Lines of less than 4 characters, their
    /// line end counted, are skipped; a line longer than 511 characters counts as several. A line
    /// without "=" matches only the empty key. \return 0 when found; -1, and an empty \p value,
    /// when not or when the file cannot be opened
    static int SetFileRead(char* path, char* key, char* value);
};

#endif
