#include "mavkit/sys/MavFile.h"

#include "mavkit/diag/Assert.h"
#include "mavkit/diag/MavTrace.h"
#include "mavkit/encoding/HexText.h"
#include "mavkit/sys/OpenReported.h"
#include "mavkit/sys/Stream.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kWarnAbove = 8;
constexpr std::size_t kBlockSize = 2048;
constexpr std::size_t kSmallSize = 3072;
constexpr std::size_t kBufferSize = 8192;
constexpr std::size_t kLineSize = 512;

// Whether a warning is being written. Its export file is opened by OpenReported() too and could
// cause another warning, and so on: a warning that is raised meanwhile is dropped.
std::atomic<bool> warning{false};

// Reports the result of an open: a descriptor, or -1 and errno. Does not change errno.
void ReportDescriptor(const char* path, int fd) {
    const int error = errno;
    const bool tableFull = fd == -1 && error == ENFILE;
    if (tableFull)
        ASSERT_REPORT(false);
    if ((tableFull || fd > kWarnAbove) && !warning.load(std::memory_order_relaxed)) {
        warning.store(true, std::memory_order_relaxed);
        MavTrace trace(LEVEL_WARN, 0);
        if (tableFull)
            trace("ZEPFile: open file %s failure. errno==ENFILE\n", path);
        else
            trace("ZEPFile: open file %s success. WARNING fd(%d) is greater than %d\n", path, fd,
                  kWarnAbove);
        warning.store(false, std::memory_order_relaxed);
    }
    // clang-format off
    ASSERT_REPORT(fd<64);
    // clang-format on
    errno = error;
}

// Opens a stream whose blocks gather in `buffer`, which must outlive it. The buffer is larger than
// the blocks: a card writes a few large pieces much faster than many small ones.
mavkit::Stream OpenBuffered(const char* path, const char* mode, char (&buffer)[kBufferSize]) {
    mavkit::Stream file(MavFile::OpenFile(path, mode));
    if (file != nullptr)
        std::setvbuf(file.get(), buffer, _IOFBF, sizeof buffer);
    return file;
}

// Writes out the buffer of `file`. Returns false when a write has failed since the last clearerr().
// The error flag is needed too: uClibc's fflush() drops data that a full card refuses, and returns
// 0.
bool Flush(std::FILE* file) { return std::fflush(file) == 0 && std::ferror(file) == 0; }

} // namespace

int mavkit::OpenReported(const char* path, int flags) {
    const int fd = open(path, flags, 0666);
    ReportDescriptor(path, fd);
    return fd;
}

std::FILE* MavFile::OpenFile(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    std::FILE* file = std::fopen(path, mode);
    ReportDescriptor(path, file != nullptr ? fileno(file) : -1);
    return file;
}

int MavFile::OpenFile(const char* path, bool /*unused*/) {
    return mavkit::OpenReported(path, O_RDWR | O_CREAT | O_TRUNC | O_SYNC);
}

int MavFile::CreateFile(const char* path, long size, unsigned char fill) {
    if (path == nullptr || size < 1)
        return -1;
    char buffer[kBufferSize];
    const mavkit::Stream file = OpenBuffered(path, "wb+", buffer);
    if (file == nullptr)
        return -1;
    char block[kSmallSize];
    std::memset(block, fill, sizeof block);
    std::size_t last = static_cast<std::size_t>(size);
    if (last > sizeof block)
        for (; last > kBlockSize; last -= kBlockSize)
            std::fwrite(block, kBlockSize, 1, file.get());
    // Only the last block decides the result. It is still in the buffer: whether the card has room
    // for it is known only after the flush.
    std::clearerr(file.get());
    return std::fwrite(block, last, 1, file.get()) == 1 && Flush(file.get()) ? 0 : -1;
}

int MavFile::CopyFile(char* source, char* destination) {
    if (source == nullptr || destination == nullptr)
        return -1;
    char fromBuffer[kBufferSize];
    char toBuffer[kBufferSize];
    const mavkit::Stream from = OpenBuffered(source, "rb+", fromBuffer);
    if (from == nullptr)
        return -1;
    std::remove(destination);
    const mavkit::Stream to = OpenBuffered(destination, "wb+", toBuffer);
    if (to == nullptr)
        return -1;
    char block[kBlockSize];
    std::size_t length;
    do {
        length = std::fread(block, 1, sizeof block, from.get());
        if (std::fwrite(block, 1, length, to.get()) != length)
            return -1;
    } while (length == sizeof block);
    return Flush(to.get()) ? 0 : -1;
}

int MavFile::SetFileRead(char* path, char* key, char* value) {
    if (value == nullptr)
        return -1;
    const mavkit::Stream file(key != nullptr ? OpenFile(path, "rt") : nullptr);
    char line[kLineSize];
    while (file != nullptr && std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::strlen(line) < 4)
            continue;
        line[std::strcspn(line, "\r\n")] = '\0';
        char keyPart[kLineSize];
        char valuePart[kLineSize];
        String_CutLine(keyPart, valuePart, line, '=');
        if (std::strncmp(keyPart, key, kLineSize) == 0) {
            std::memcpy(value, valuePart, std::strlen(valuePart) + 1);
            return 0;
        }
    }
    *value = '\0'; // not before: `key` may be in the same buffer
    return -1;
}
