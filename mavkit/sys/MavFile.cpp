#include "mavkit/sys/MavFile.h"

#include "mavkit/diag/Assert.h"
#include "mavkit/diag/MavTrace.h"
#include "mavkit/encoding/HexText.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kWarnAbove = 8;
constexpr std::size_t kBlockSize = 2048;
constexpr std::size_t kSmallSize = 3072;
constexpr std::size_t kBufferSize = 8192;
constexpr std::size_t kLineSize = 512;

// True while a warning is on its way. Its export file is opened by MavFile too, which would warn about
// that one, and so on: what is raised meanwhile is dropped.
bool warning = false;

class Warning {
public:
    Warning() : dropped_(warning) { warning = true; }
    ~Warning() { warning = dropped_; }
    Warning(const Warning&) = delete;
    Warning& operator=(const Warning&) = delete;
    bool Dropped() const { return dropped_; }

private:
    bool dropped_;
};

// What both opens tell about the descriptor that they got, -1 for none; errno stays as the open left
// it.
void Account(const char* path, int fd) {
    const int error = errno;
    if (fd > kWarnAbove) {
        const Warning one;
        if (!one.Dropped())
            MavTrace(LEVEL_WARN,
                     0)("ZEPFile: open file %s success. WARNING fd(%d) is greater than %d\n", path,
                        fd, kWarnAbove);
        // clang-format off
        ASSERT_REPORT(fd<64);
        // clang-format on
    } else if (fd == -1 && error == ENFILE) {
        const Warning one;
        ASSERT_REPORT(false);
        if (!one.Dropped())
            MavTrace(LEVEL_WARN, 0)("ZEPFile: open file %s failure. errno==ENFILE\n", path);
    }
    errno = error;
}

} // namespace

std::FILE* MavFile::OpenFile(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    std::FILE* file = std::fopen(path, mode);
    Account(path, file != nullptr ? fileno(file) : -1);
    return file;
}

int MavFile::OpenFile(const char* path, bool /*unused*/) {
    const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_SYNC, 0666);
    Account(path, fd);
    return fd;
}

int MavFile::CreateFile(const char* path, long size, unsigned char fill) {
    if (path == nullptr || size < 1)
        return -1;
    std::FILE* file = OpenFile(path, "wb+");
    if (file == nullptr)
        return -1;
    // Blocks gather in a buffer larger than themselves: a card takes few large pieces much sooner than
    // many small ones.
    char buffer[kBufferSize];
    std::setvbuf(file, buffer, _IOFBF, sizeof buffer);
    char block[kSmallSize];
    std::memset(block, fill, sizeof block);
    unsigned long left = static_cast<unsigned long>(size);
    if (left > kSmallSize) {
        // An earlier block's failure shows again in the last one.
        for (; left > kBlockSize; left -= kBlockSize)
            std::fwrite(block, kBlockSize, 1, file);
    }
    // The last block is still in the buffer: what the card says to it is known after the flush.
    const bool written = std::fwrite(block, left, 1, file) == 1 && std::fflush(file) == 0;
    std::fclose(file);
    return written ? 0 : -1;
}

int MavFile::CopyFile(char* source, char* destination) {
    if (source == nullptr || destination == nullptr)
        return -1;
    std::FILE* from = OpenFile(source, "rb+");
    if (from == nullptr)
        return -1;
    std::remove(destination);
    std::FILE* to = OpenFile(destination, "wb+");
    if (to == nullptr) {
        std::fclose(from);
        return -1;
    }
    // Through larger buffers, as in CreateFile().
    char fromBuffer[kBufferSize];
    char toBuffer[kBufferSize];
    std::setvbuf(from, fromBuffer, _IOFBF, sizeof fromBuffer);
    std::setvbuf(to, toBuffer, _IOFBF, sizeof toBuffer);
    char block[kBlockSize];
    int result = 0;
    std::size_t length;
    do {
        length = std::fread(block, 1, sizeof block, from);
        if (std::fwrite(block, 1, length, to) != length)
            result = -1;
    } while (result == 0 && length == sizeof block);
    // What still is in the buffer may be what the card has no room for.
    if (std::fflush(to) != 0)
        result = -1;
    std::fclose(to);
    std::fclose(from);
    return result;
}

int MavFile::SetFileRead(char* path, char* key, char* value) {
    if (value == nullptr)
        return -1;
    *value = '\0';
    if (key == nullptr)
        return -1;
    std::FILE* file = OpenFile(path, "rt");
    if (file == nullptr)
        return -1;
    int result = -1;
    char line[kLineSize];
    while (result == -1 && std::fgets(line, sizeof line, file) != nullptr) {
        if (std::strlen(line) < 4)
            continue;
        line[std::strcspn(line, "\r\n")] = '\0';
        char keyPart[kLineSize];
        char valuePart[kLineSize];
        String_CutLine(keyPart, valuePart, line, '=');
        if (std::strncmp(keyPart, key, kLineSize) == 0) {
            std::memcpy(value, valuePart, std::strlen(valuePart) + 1);
            result = 0;
        }
    }
    std::fclose(file);
    return result;
}
