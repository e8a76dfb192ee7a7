// mavutil hex, crc, scan and shm: files, directories and the files behind shared regions.
#include "Verbs.h"

#include "mavkit/encoding/Bits.h"
#include "mavkit/sys/DirScan.h"
#include "mavkit/time/BcdTime.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mavutil {
namespace {

// A part of a file that is read in blocks, or of standard input for null and "-".
class Input {
public:
    // The part from `start` on, of up to `most` bytes.
    Input(const char* path, long long start, long long most)
        : path_(path != nullptr && std::strcmp(path, "-") == 0 ? nullptr : path), left_(start),
          fd_(path_ != nullptr ? open(path_, O_RDONLY | O_CLOEXEC) : STDIN_FILENO) {
        if (fd_ == -1)
            Fail();
        // If the file can be positioned, reading begins at `start`; else the bytes before it are
        // read and dropped.
        struct stat file;
        if (start > 0 && fstat(fd_, &file) == 0 && S_ISREG(file.st_mode) &&
            lseek(fd_, static_cast<off_t>(std::min<long long>(start, file.st_size)), SEEK_SET) !=
                -1)
            left_ -= std::min<long long>(start, file.st_size);
        while (Next() > 0) {
        }
        missing = left_;
        left_ = missing > 0 ? 0 : most;
    }
    ~Input() {
        if (path_ != nullptr && fd_ != -1)
            close(fd_);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    char block[4096];
    long long missing; // how far `start` is beyond the end
    bool failed = false;

    // Reads the next block, which is shorter when no more data is there yet. Returns its length; 0
    // at the end, and also when the file cannot be read, which it reports.
    std::size_t Next() {
        const auto most = static_cast<std::size_t>(std::min<long long>(left_, sizeof block));
        if (most == 0 || failed)
            return 0;
        ssize_t got;
        do
            got = read(fd_, block, most);
        while (got == -1 && errno == EINTR);
        if (got == -1) {
            Fail();
            return 0;
        }
        left_ -= got;
        return static_cast<std::size_t>(got);
    }

private:
    void Fail() {
        ComplainOf(path_);
        failed = true;
    }

    const char* path_;
    long long left_;
    int fd_;
};

long long OffsetOf(const char* text) { return SizeOf(text, "OFFSET", 0); }

long long LengthOf(const char* text) { return SizeOf(text, "LENGTH", LLONG_MAX); }

// Rows of 16 bytes, a run of equal ones as "*".
class HexRows {
public:
    explicit HexRows(long long at) : at_(at) {}

    void Add(const char* bytes, std::size_t length) {
        while (length > 0) {
            const std::size_t part = std::min(length, sizeof row_ - size_);
            std::memcpy(row_ + size_, bytes, part);
            size_ += part;
            bytes += part;
            length -= part;
            if (size_ == sizeof row_)
                EndRow();
        }
    }
    void End() {
        if (size_ > 0)
            EndRow();
        std::fprintf(out, "%08llX\n", at_);
    }

private:
    void EndRow() {
        const bool again = any_ && size_ == sizeof row_ && std::memcmp(row_, before_, size_) == 0;
        if (!again) {
            std::fprintf(out, "%08llX  ", at_);
            PrintRow(row_, size_);
        } else if (!again_) {
            std::fputs("*\n", out);
        }
        again_ = again;
        any_ = true;
        std::memcpy(before_, row_, sizeof row_);
        at_ += static_cast<long long>(size_);
        size_ = 0;
    }

    long long at_;
    std::size_t size_ = 0; // of the row that is being filled
    bool any_ = false;     // whether there is a row before it
    bool again_ = false;   // whether that row was like the one before it
    char row_[16] = {};
    char before_[16] = {};
};

Status Hex(const Arguments& arguments) {
    const long long start = OffsetOf(arguments[1]);
    Input input(arguments[0], start, LengthOf(arguments[2]));
    if (input.missing > 0 && !input.failed)
        Quit(kBad, "OFFSET %s lies beyond the end, at %lld", arguments[1], start - input.missing);
    HexRows rows(start);
    while (const std::size_t length = CanPrint() ? input.Next() : 0) {
        rows.Add(input.block, length);
        if (length < sizeof input.block)
            std::fflush(out); // a pipe has no more data yet: show what has come
    }
    if (input.failed)
        return kFailed;
    rows.End();
    return kDone;
}

Status PrintCrc(const char* path) {
    Input input(path, 0, LLONG_MAX);
    unsigned short ibm = 0xFFFF;
    unsigned short xmodem = 0x0000;
    long long size = 0;
    while (const std::size_t length = input.Next()) {
        for (std::size_t i = 0; i < length; ++i) {
            const auto byte = static_cast<unsigned char>(input.block[i]);
            ibm = Add_CRC(ibm, byte);
            xmodem = Add_CRC(xmodem, byte);
        }
        size += static_cast<long long>(length);
    }
    if (input.failed)
        return kFailed;
    const std::string name = path != nullptr ? PrintableOf(path) : "-";
    std::fprintf(out, "CRC-16/IBM-3740 %04X %lld %s\n", ibm, size, name.c_str());
    std::fprintf(out, "CRC-16/XMODEM %04X %lld %s\n", xmodem, size, name.c_str());
    return kDone;
}

Status Crc(const Arguments& arguments) {
    Status status = PrintCrc(arguments[0]);
    for (int i = 1; arguments[i - 1] != nullptr && arguments[i] != nullptr; ++i)
        status = std::max(status, PrintCrc(arguments[i]));
    return status;
}

struct Found {
    int depth; // of the directories that are entered; -1: all
    bool json;
    long long total = 0;
    int missing = 0; // entries that could not be read
};

const char* KindOf(mode_t mode) {
    return S_ISDIR(mode) ? "directory" : S_ISREG(mode) ? "file" : S_ISLNK(mode) ? "link" : "other";
}

// Whether the scan can enter the directory `name`.
bool CanEnter(const char* name) {
    const int fd = open(name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd == -1)
        return false;
    close(fd);
    return access(name, X_OK) == 0;
}

bool PrintEntry(int depth, bool isDirectory, const char* directory, const char* name,
                void* context) {
    auto& found = *static_cast<Found*>(context);
    std::string path = directory;
    if (path != "/")
        path += '/';
    path += name;
    struct stat entry = {};
    const bool entered = isDirectory && (found.depth < 0 || depth < found.depth);
    if (lstat(name, &entry) == -1 || (entered && !CanEnter(name))) {
        ComplainOf(path.c_str());
        ++found.missing;
    }
    const long long size = isDirectory ? 0 : static_cast<long long>(entry.st_size);
    found.total += size;
    if (found.json) {
        JsonLine line;
        line.AddText("path", path);
        line.AddText("type", KindOf(entry.st_mode));
        line.Add("bytes", size);
    } else {
        std::fprintf(out, "%12lld %s%s\n", size, PrintableOf(path).c_str(), isDirectory ? "/" : "");
    }
    return CanPrint();
}

Status Scan(const Arguments& arguments) {
    const char* const path = arguments[0] != nullptr ? arguments[0] : ".";
    Found found;
    found.depth = static_cast<int>(Number(arguments[1], "DEPTH", 0, INT_MAX, -1));
    found.json = arguments.json;
    // The path of the directory itself may be a link. If it may not be entered, the library would
    // use the working directory in its place.
    const std::string inside = std::string(path) + "/.";
    const int fd = open(inside.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd == -1)
        return ComplainOf(path);
    close(fd);
    // Entries that cannot be read are reported here, as the library only logs them.
    [[maybe_unused]] const std::FILE* const ignored = std::freopen("/dev/null", "w", stdout);
    if (!DirScan(inside.c_str()).Scan(PrintEntry, &found, found.depth) && CanPrint()) {
        Complain("%s: the scan broke off", PrintableOf(path).c_str());
        ++found.missing;
    }
    if (found.json) {
        JsonLine line;
        line.Add("total", found.total);
        line.Add("missing", found.missing);
    } else {
        std::fprintf(out, "%12lld total\n", found.total);
    }
    return found.missing == 0 ? kDone
                              : Complain("the total lacks %d entr%s that could not be read",
                                         found.missing, found.missing == 1 ? "y" : "ies");
}

void PrintChanges(const std::string& was, const std::string& now, long long start) {
    constexpr std::size_t kRow = 8; // bytes in a line
    const char* const time = shorttimestr(nullptr);
    if (was.size() != now.size())
        std::fprintf(out, "%s size %zu -> %zu\n", time, was.size(), now.size());
    const std::size_t both = std::min(was.size(), now.size());
    for (std::size_t at = 0; at < both;) {
        std::size_t end = at;
        while (end < both && end - at < kRow && was[end] != now[end])
            ++end;
        if (end > at) {
            std::fprintf(out, "%s %08llX ", time, start + static_cast<long long>(at));
            PrintHex(&was[at], end - at);
            std::fprintf(out, " -> %s", bold);
            PrintHex(&now[at], end - at);
            std::fprintf(out, "%s\n", plain);
        }
        at = std::max(end, at + 1);
    }
}

Status Watch(const Arguments& arguments) {
    const auto pause = static_cast<int>(Number(arguments[1], "MS", 10, 3600000, 500));
    const long long start = OffsetOf(arguments[2]);
    const long long most = LengthOf(arguments[3]);
    std::string was;
    std::string now;
    for (bool first = true; first || Wait(pause); first = false) {
        Input input(arguments[0], start, most);
        now.clear();
        while (const std::size_t length = input.Next())
            now.append(input.block, length);
        if (input.failed)
            return kFailed;
        if (!first)
            PrintChanges(was, now, start);
        was.swap(now);
    }
    return kDone;
}

constexpr Operation kHexOperations[] = {
    {"", "", "[FILE [OFFSET [LENGTH]]]", 0, 3, "rows of 16 bytes: offset, hex, text", Hex},
};
constexpr Operation kCrcOperations[] = {
    {"", "", "[FILE...]", 0, kAnyNumber, "two lines per file: NAME CRC BYTES FILE", Crc},
};
constexpr Operation kScanOperations[] = {
    {"", "j", "[PATH [DEPTH]]", 0, 2, "BYTES PATH for each entry; the total", Scan},
};
constexpr Operation kShmOperations[] = {
    {"show", "", "FILE [OFFSET [LENGTH]]", 1, 3, "rows of 16 bytes, as hex shows them", Hex},
    {"watch", "", "FILE [MS [OFFSET [LENGTH]]]", 1, 4, "what changes: TIME OFFSET OLD -> NEW",
     Watch},
};

} // namespace

const Verb kHex = {"hex", "a file or standard input in hex", kHexOperations,
                   R"(A * stands for rows that are equal to the one before. Without FILE, or for -,
reads standard input as it arrives. OFFSET and LENGTH: bytes; 0x for hex.
  mavutil hex /mnt/sdcard/meters.shm 0x40 32
)"};

const Verb kCrc = {"crc", "both CRC-16 of files or standard input", kCrcOperations,
                   R"(A file that cannot be read is reported, and the others are still read.
  mavutil crc /mnt/sdcard/*.shm | awk '/3740/ { print $2, $4 }'
)"};

const Verb kScan = {"scan", "a directory tree with sizes", kScanOperations,
                    R"(Shows all below PATH, or down to DEPTH levels (0: its own entries). Links are
not followed. What cannot be read is reported on standard error and counted.
  mavutil scan /mnt/sdcard | sort -rn | head
)"};

const Verb kShm = {"shm", "the file behind a shared region: show it, watch it change",
                   kShmOperations,
                   R"(watch looks every MS (500) milliseconds, at all of the file or at LENGTH bytes
from OFFSET on, until Ctrl-C.
  mavutil shm watch /mnt/sdcard/meters.shm 100
)"};

} // namespace mavutil
