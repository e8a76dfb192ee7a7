/// \file
/// Shared memory that survives restarts: a file on the card, mapped into every process that wants
/// it. A write by one process is seen by the others at once; ShareMem::Save() pushes it to the file
/// itself, where the next start of any process finds it again.
///
///     ShareMem meters;
///     meters.Init("/mnt/sdcard/meters.shm", sizeof(Table), FillTable, CheckTable, nullptr);
///     if (meters.base != nullptr) {
///         reinterpret_cast<Table*>(meters.base)->count += 1;
///         meters.Save(false, false);
///     }
///
/// The class knows nothing of what stands in the region. Its owner brings two callbacks:
///
/// | callback    | is called with                        | returns true when              |
/// |-------------|---------------------------------------|--------------------------------|
/// | validator   | an existing file, open in mode "rb"   | it is good as it stands        |
/// | initialiser | a new, empty file, open in mode "wb+" | it now holds a region          |
///
/// (Without a validator the initialiser gets an existing file as well, in mode "rb".)
/// Both get the owner's context pointer, either may be null, and neither closes the stream. The
/// class never sets the file's length: the initialiser must leave at least as many bytes as the
/// region has, for the kernel kills (SIGBUS) who touches a page beyond the end of the file. An
/// initialiser that wants to know whether its bytes fit on the card flushes the stream itself.
///
/// Nothing is locked. Who writes what, and when, is agreed on by the owners; so is who starts first
/// when a file may be missing.
#ifndef MAVKIT_IPC_SHAREMEM_H
#define MAVKIT_IPC_SHAREMEM_H

#include <cstdio>

/// One region as one process sees it. Its end unmaps the region and leaves the file alone.
class ShareMem {
public:
    unsigned char* base; ///< start of the mapping; null while nothing is mapped
    char* path;          ///< the backing file, on the heap and owned; null before Init()
    unsigned int size;   ///< length of the region in bytes
    bool initialised;    ///< Init() with a path has run, whatever came of it

    /// Nothing mapped, no path, size 0.
    ShareMem() : base(nullptr), path(nullptr), size(0), initialised(false) {}
    /// Unmaps the region and frees the path. Nothing is flushed: the kernel keeps what was written.
    ~ShareMem();
    ShareMem(const ShareMem&) = delete;
    ShareMem& operator=(const ShareMem&) = delete;

    /// Names the backing file \p filePath and the region's length \p length in bytes (from 1),
    /// makes sure of the file and maps it. The region is usable exactly when `base` is non-null
    /// afterwards. A null path, or no memory to copy it, is told like a file that cannot be
    /// created. Called on an object that has a region it starts afresh: the earlier mapping is
    /// neither unmapped nor remembered, so pointers into it stay good.
    void Init(const char* filePath, unsigned int length, bool (*initialiser)(std::FILE*, void*),
              bool (*validator)(std::FILE*, void*), void* context);

    /// Makes sure of the file and maps it, with the path and size that the object has; the way to
    /// try again after an Init() that failed. An earlier mapping is replaced in `base`, but not
    /// unmapped. Failures are told in the general log.
    /// \return true when the file is ready and mapped. On false `base` is null if it was the
    ///         mapping that failed (a size of 0 among the reasons), and unchanged otherwise
    bool Init(bool (*initialiser)(std::FILE*, void*), bool (*validator)(std::FILE*, void*),
              void* context);

    /// Makes sure that the backing file exists and is good, without mapping it. A file that the
    /// validator accepts is left as it is. One that is missing or that it rejects is created anew,
    /// empty, and handed to the initialiser; without a validator an existing file goes to the
    /// initialiser as it is, for reading. Without an initialiser any file will do.
    /// \return true when the file is good; false when it cannot be created or the initialiser says
    ///         false
    bool EnsureShareFile(bool (*initialiser)(std::FILE*, void*),
                         bool (*validator)(std::FILE*, void*), void* context);

    /// Flushes every page that holds one of the \p iiLen bytes from \p ipData on, which should lie
    /// inside the region: its end is not checked here. With \p invalidateOnly other mappings of the
    /// file are refreshed (MS_INVALIDATE) and nothing else; otherwise the pages are written to the
    /// file too: with \p asynchronous soon (MS_ASYNC), without it before this returns (MS_SYNC).
    /// \return true when flushed; false, with a general-log line, when \p ipData lies below the
    ///         region or the kernel refuses, as for a range that runs beyond the mapping
    bool Save(void* ipData, unsigned int iiLen, bool invalidateOnly, bool asynchronous);

    /// Flushes the whole region, in the manner of the other Save() and with its results; false when
    /// a region with a size is not mapped.
    /// \return true when flushed
    bool Save(bool invalidateOnly, bool asynchronous);
};

#endif
