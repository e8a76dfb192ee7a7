#include "mavkit/ipc/ShareMem.h"

#include "mavkit/diag/Assert.h"
#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/sys/MavFile.h"
#include "mavkit/sys/Stream.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// A null path becomes an empty one, which cannot be opened but can be printed.
const char* Name(const char* path) { return path != nullptr ? path : ""; }

} // namespace

ShareMem::~ShareMem() {
    if (base != nullptr)
        munmap(base, size);
    std::free(path);
}

void ShareMem::Init(const char* filePath, unsigned int length, Callback initialiser,
                    Callback validator, void* context) {
    char* copy = filePath != nullptr ? strdup(filePath) : nullptr; // filePath may be our own path
    std::free(path);
    path = copy;
    // The object gives up an earlier region: neither the destructor nor Save() may apply the new
    // size to it.
    base = nullptr;
    size = length;
    Init(initialiser, validator, context);
    initialised = true;
}

bool ShareMem::Init(Callback initialiser, Callback validator, void* context) {
    if (!EnsureShareFile(initialiser, validator, context)) {
        GENERAL_LOG("ShareMem: Share file %s not exist or create failed\n", Name(path));
        return false;
    }
    const int fd = open(Name(path), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        ASSERT_REPORT(false);
        GENERAL_LOG("ShareMem: open file error %s,file name is %s\n", std::strerror(error),
                    Name(path));
        return false;
    }
    void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    const int error = errno;
    close(fd);
    if (mapping == MAP_FAILED) {
        GENERAL_LOG("ShareMem: ShareMem shmat error %s %d\n", std::strerror(error), error);
        base = nullptr;
        return false;
    }
    base = static_cast<unsigned char*>(mapping);
    return true;
}

bool ShareMem::EnsureShareFile(Callback initialiser, Callback validator, void* context) {
    mavkit::Stream fp(MavFile::OpenFile(Name(path), "rb")); // a callback may throw
    if (fp == nullptr || validator != nullptr) {
        if (fp != nullptr) {
            const bool valid = validator(fp.get(), context);
            fp.reset();
            if (valid)
                return true;
            MavTrace(LEVEL_ERROR, 0)("ShareMem: ShareMem File %s is not valid\n", Name(path));
        }
        MavTrace(LEVEL_INFO, 0)("ShareMem: Will create new file %s for sharemem\n", Name(path));
        fp.reset(MavFile::OpenFile(Name(path), "wb+"));
        // clang-format off
        ASSERT_REPORT(fp!=NULL);
        // clang-format on
        if (fp == nullptr)
            return false;
    }
    const bool filled = initialiser == nullptr || initialiser(fp.get(), context);
    if (!filled)
        MavTrace(LEVEL_ERROR, 0)("ShareMem: Init sharemem file %s failed\n", Name(path));
    return filled;
}

bool ShareMem::Save(void* ipData, unsigned int iiLen, bool invalidateOnly, bool asynchronous) {
    const std::uintptr_t data = reinterpret_cast<std::uintptr_t>(ipData);
    if (data < reinterpret_cast<std::uintptr_t>(base)) {
        ASSERT_REPORT(false);
        GENERAL_LOG("ShareMem: Save to sharefile %s para ipData error\n", Name(path));
        return false;
    }
    // The kernel rounds a length up to whole pages and does not check for an overflow. A length
    // that would become 0 is cut to the longest one that does not; no mapping is that long either.
    const std::size_t page = static_cast<std::size_t>(getpagesize());
    const std::size_t offset = data & (page - 1);
    const std::size_t longest = SIZE_MAX & ~(page - 1);
    const std::uint64_t length = std::uint64_t{offset} + iiLen;
    int flags = MS_INVALIDATE;
    if (!invalidateOnly)
        flags |= asynchronous ? MS_ASYNC : MS_SYNC;
    void* start = reinterpret_cast<void*>(data - offset); // NOLINT(performance-no-int-to-ptr)
    if (msync(start, length < longest ? static_cast<std::size_t>(length) : longest, flags) != 0) {
        const int error = errno;
        ASSERT_REPORT(false);
        GENERAL_LOG("ShareMem: msync error %s,ipData=%p,iiLen=%d\n", std::strerror(error), ipData,
                    static_cast<int>(iiLen));
        return false;
    }
    return true;
}

bool ShareMem::Save(bool invalidateOnly, bool asynchronous) {
    return Save(base, size, invalidateOnly, asynchronous);
}
