/// \file
/// Shared memory that survives restarts: a file on the card, mapped into every process that wants
/// it. A write by one process is seen by the others at once; `ShareMem::Save()` pushes it to the
/// file itself, where the next start of any process finds it again.
///
///     ShareMem region;
///     region.Init("/mnt/sdcard/meters.shm", kRegionSize, FillTable, CheckTable, nullptr);
///     if (region.base != nullptr) {
///         WriteSlot(region.base + kSlotSize * (update % 2));
///         region.Save(region.base + kSlotSize * (update % 2), kSlotSize, false, false);
///     }
///
/// Nothing is locked, and the class does not know the content of a region. Its owners agree on
/// these points (docs/examples/region.cpp is a whole program that does):
///
/// - Who creates the file. Others wait until it is there with its full length, and then map it
///   without a validator; their initialiser, if any, only checks it. Such an `Init()` does not
///   change a file that it can open for reading. But it creates a missing file, and empties one
///   that it cannot open at that moment because the system has no descriptor left.
/// - Who writes. A reader, and the next start after a power cut, may find an update that is half
///   done. Two slots with a number and a CRC, written in turn and saved each time, always keep one
///   whole.
/// - What happens to a file of somebody else. When a validator returns false the file is cut to
///   length 0, so check the file before `Init()`, and assume that another process is still creating
///   a short file of your own kind.
///
/// The owner brings two callbacks:
///
/// | callback    | is called with                        | returns true when              |
/// |-------------|---------------------------------------|--------------------------------|
/// | validator   | an existing file, open in mode "rb"   | it is good as it is            |
/// | initialiser | a new, empty file, open in mode "wb+" | it now contains a region       |
///
/// (Without a validator the initialiser also gets an existing file, in mode "rb".) Both get the
/// owner's context pointer, either may be null, and neither closes the stream. The class never sets
/// the length of the file: the initialiser must leave at least as many bytes as the region has,
/// because the kernel kills (SIGBUS) a process that touches a page beyond the end of the file. An
/// initialiser that must know whether its bytes fit on the card flushes the stream and checks
/// `ferror` too.
#ifndef MAVKIT_IPC_SHAREMEM_H
#define MAVKIT_IPC_SHAREMEM_H

#include <cstdio>

/// One region as one process sees it. Its destructor unmaps the region and does not change the
/// file.
class ShareMem {
public:
    /// The validator and the initialiser: a stream on the backing file and the owner's pointer.
    typedef bool (*Callback)(std::FILE* stream, void* context);

    unsigned char* base; ///< start of the mapping; null while nothing is mapped
    char* path;          ///< the backing file, on the heap and owned; null before `Init()`
    unsigned int size;   ///< length of the region in bytes
    bool initialised;    ///< `Init()` with a path has run, whatever its result

    /// Nothing mapped, no path, size 0.
    ShareMem() : base(nullptr), path(nullptr), size(0), initialised(false) {}
    /// Unmaps the region and frees the path. Nothing is flushed: the kernel keeps what was written.
    ~ShareMem();
    ShareMem(const ShareMem&) = delete;
    ShareMem& operator=(const ShareMem&) = delete;

    /// Names the backing file `filePath` and the region's length `length` in bytes (from 1), makes
    /// sure that the file is good and maps it. The region is usable exactly when `base` is non-null
    /// afterwards. A null path, or no memory to copy it, is reported like a file that cannot be
    /// created. Called on an object that has a region it starts afresh: the earlier mapping is
    /// neither unmapped nor remembered, so pointers into it stay valid.
    void Init(const char* filePath, unsigned int length, Callback initialiser, Callback validator,
              void* context);

    /// Makes sure that the file is good and maps it, with the path and size that the object has:
    /// the way to try again after an `Init()` that failed. An earlier mapping is replaced in
    /// `base`, but not unmapped. Failures go to the general log.
    /// \return true when the file is ready and mapped; otherwise false; then `base` is null if the
    ///         mapping failed (for instance with a size of 0), and unchanged if something else did
    bool Init(Callback initialiser, Callback validator, void* context);

    /// Makes sure that the backing file exists and is good, without mapping it. A file that the
    /// validator accepts is left as it is. One that the validator rejects, or that cannot be opened
    /// for reading, is created anew, empty, and passed to the initialiser. (This also happens to an
    /// existing file: one that cannot be opened for a moment, because the system has no descriptor
    /// left, is created anew too if the second try opens it.) Without a validator an existing file
    /// goes to the initialiser as it is, for reading. Without an initialiser any file is accepted.
    /// \return true when the file is good; false when it cannot be created or the initialiser
    ///         returns false
    bool EnsureShareFile(Callback initialiser, Callback validator, void* context);

    /// Flushes every page that contains one of the `iiLen` bytes from `ipData` on, which should lie
    /// inside the region: its end is not checked here. With `invalidateOnly` other mappings of the
    /// file are refreshed (MS_INVALIDATE) and nothing else; otherwise the pages are also written to
    /// the file: with `asynchronous` soon (MS_ASYNC), without it before this returns (MS_SYNC).
    /// \return true when flushed; false, with a general-log line, when `ipData` lies below the
    ///         region or the kernel refuses, as for a range that runs beyond the mapping
    bool Save(void* ipData, unsigned int iiLen, bool invalidateOnly, bool asynchronous);

    /// Flushes the whole region as the other `Save()` does.
    /// \return true when flushed; false when it fails and when a region with a size is not mapped
    bool Save(bool invalidateOnly, bool asynchronous);
};

#endif
