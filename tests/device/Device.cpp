#include "device/Device.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Fault {
    int error;
    int times;
    int skip;
};

// Plain arrays: malloc is among the wrapped calls, so this table must not allocate.
constexpr const char* kNames[] = {"fopen",  "open",      "openat", "time",   "system",  "settime",
                                  "mktime", "localtime", "malloc", "calloc", "strdup",  "lseek",
                                  "fread",  "fwrite",    "fgets",  "ftok",   "msgget",  "msgsnd",
                                  "msgrcv", "msgctl",    "mmap",   "msync",  "opendir", "fdopendir",
                                  "chdir",  "fchdir",    "getcwd", "socket", "ioctl"};
constexpr int kCount = sizeof kNames / sizeof kNames[0];
Fault faults[kCount];
int calls[kCount];

Device* device = nullptr;
bool held = false;
std::time_t heldTime = 0;

int IndexOf(const char* name) {
    for (int i = 0; i < kCount; ++i)
        if (std::strcmp(kNames[i], name) == 0)
            return i;
    std::fprintf(stderr, "Device: no call named %s\n", name);
    std::abort();
}

// Counts the call, and tells whether it is to fail; then errno is set.
bool Fails(const char* name) {
    const int i = IndexOf(name);
    ++calls[i];
    Fault& fault = faults[i];
    if (fault.times == 0 || fault.skip-- > 0)
        return false;
    --fault.times;
    fault.skip = 0;
    errno = fault.error;
    return true;
}

bool IsTerminalPath(const char* path) {
    return device != nullptr &&
           (std::strncmp(path, "/mnt/", 5) == 0 || std::strncmp(path, "/dev/pts/", 9) == 0 ||
            std::strcmp(path, "/root") == 0);
}

// The path to use in place of `path`; `buffer` gives it room.
const char* Mapped(const char* path, std::string& buffer) {
    if (path == nullptr || !IsTerminalPath(path))
        return path;
    buffer = device->Path(path);
    return buffer.c_str();
}

} // namespace

// A call and its 64-bit name are one wrapper: which symbol the libc's headers choose is asked here.
#if defined(_FILE_OFFSET_BITS) && _FILE_OFFSET_BITS == 64 && __SIZEOF_LONG__ == 4
#define FILE64(name) #name "64"
#else
#define FILE64(name) #name
#endif
#if defined(_TIME_BITS) && _TIME_BITS == 64 && __SIZEOF_LONG__ == 4
#define TIME64(name, wide) wide
#else
#define TIME64(name, wide) name
#endif

#define WRAPPED(result, name, symbol, parameters)                                                  \
    extern "C" result Real_##name parameters __asm__("__real_" symbol);                            \
    extern "C" result Wrap_##name parameters __asm__("__wrap_" symbol);                            \
    result Wrap_##name parameters

// A wrapper that only counts and fails.
#define WRAP_FAULT(result, name, symbol, failure, parameters, arguments)                           \
    WRAPPED(result, name, symbol, parameters) {                                                    \
        return Fails(#name) ? failure : Real_##name arguments;                                     \
    }

WRAPPED(std::FILE*, fopen, FILE64(fopen), (const char* path, const char* mode)) {
    std::string buffer;
    return Fails("fopen") ? nullptr : Real_fopen(Mapped(path, buffer), mode);
}

WRAPPED(int, open, FILE64(open), (const char* path, int flags, ...)) {
    std::va_list args;
    va_start(args, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    std::string buffer;
    return Fails("open") ? -1 : Real_open(Mapped(path, buffer), flags, mode);
}

WRAPPED(int, openat, FILE64(openat), (int dir, const char* path, int flags, ...)) {
    std::va_list args;
    va_start(args, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    return Fails("openat") ? -1 : Real_openat(dir, path, flags, mode);
}

WRAPPED(std::time_t, time, TIME64("time", "__time64"), (std::time_t * out)) {
    if (Fails("time"))
        return -1;
    const std::time_t now = held ? heldTime : Real_time(nullptr);
    if (out != nullptr)
        *out = now;
    return now;
}

WRAPPED(int, system, "system", (const char* command)) {
    if (device == nullptr)
        return Real_system(command);
    if (Fails("system"))
        return -1;
    device->commands.emplace_back(command);
    return device->commandResult;
}

WRAPPED(int, clock_settime, TIME64("clock_settime", "__clock_settime64"),
        (clockid_t, const struct timespec* time)) {
    if (device != nullptr)
        device->clockSets.push_back(time->tv_sec);
    return Fails("settime") ? -1 : 0; // never the machine's own clock
}

#ifdef MAVKIT_HAVE_STIME
extern "C" int Wrap_stime(const std::time_t* time) __asm__("__wrap_stime");
int Wrap_stime(const std::time_t* time) {
    if (device != nullptr)
        device->clockSets.push_back(*time);
    return Fails("settime") ? -1 : 0;
}
#endif

WRAPPED(int, msync, "msync", (void* address, std::size_t length, int flags)) {
    if (device != nullptr)
        device->msyncFlags.push_back(flags);
    return Fails("msync") ? -1 : Real_msync(address, length, flags);
}

WRAPPED(key_t, ftok, "ftok", (const char* path, int id)) {
    std::string buffer;
    return Fails("ftok") ? -1 : Real_ftok(Mapped(path, buffer), id);
}

WRAP_FAULT(std::time_t, mktime, TIME64("mktime", "__mktime64"), -1, (std::tm * t), (t))
WRAP_FAULT(std::tm*, localtime, TIME64("localtime", "__localtime64"), nullptr,
           (const std::time_t* t), (t))
WRAP_FAULT(void*, malloc, "malloc", nullptr, (std::size_t size), (size))
WRAP_FAULT(void*, calloc, "calloc", nullptr, (std::size_t count, std::size_t size), (count, size))
WRAP_FAULT(char*, strdup, "strdup", nullptr, (const char* text), (text))
WRAP_FAULT(off_t, lseek, FILE64(lseek), -1, (int fd, off_t offset, int whence),
           (fd, offset, whence))
WRAP_FAULT(std::size_t, fread, "fread", 0,
           (void* data, std::size_t size, std::size_t count, std::FILE* file),
           (data, size, count, file))
WRAP_FAULT(std::size_t, fwrite, "fwrite", 0,
           (const void* data, std::size_t size, std::size_t count, std::FILE* file),
           (data, size, count, file))
WRAP_FAULT(char*, fgets, "fgets", nullptr, (char* text, int size, std::FILE* file),
           (text, size, file))
WRAP_FAULT(int, msgget, "msgget", -1, (key_t key, int flags), (key, flags))
WRAP_FAULT(int, msgsnd, "msgsnd", -1, (int id, const void* msg, std::size_t size, int flags),
           (id, msg, size, flags))
WRAP_FAULT(ssize_t, msgrcv, "msgrcv", -1,
           (int id, void* msg, std::size_t size, long type, int flags),
           (id, msg, size, type, flags))
WRAP_FAULT(int, msgctl, TIME64("msgctl", "__msgctl64"), -1, (int id, int command, msqid_ds* buffer),
           (id, command, buffer))
WRAP_FAULT(void*, mmap, FILE64(mmap), MAP_FAILED,
           (void* address, std::size_t length, int protection, int flags, int fd, off_t offset),
           (address, length, protection, flags, fd, offset))
WRAP_FAULT(DIR*, opendir, "opendir", nullptr, (const char* path), (path))
WRAP_FAULT(DIR*, fdopendir, "fdopendir", nullptr, (int fd), (fd))
WRAPPED(dirent*, readdir, FILE64(readdir), (DIR * dir)) {
    dirent* entry = Real_readdir(dir);
    if (entry != nullptr && device != nullptr && device->hideTypes)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

WRAP_FAULT(int, chdir, "chdir", -1, (const char* path), (path))
WRAP_FAULT(int, fchdir, "fchdir", -1, (int fd), (fd))
WRAP_FAULT(char*, getcwd, "getcwd", nullptr, (char* buffer, std::size_t size), (buffer, size))
WRAP_FAULT(int, socket, "socket", -1, (int domain, int type, int protocol),
           (domain, type, protocol))

WRAPPED(int, ioctl, TIME64("ioctl", "__ioctl_time64"), (int fd, unsigned long request, ...)) {
    std::va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    return Fails("ioctl") ? -1 : Real_ioctl(fd, request, argument);
}

Device::Device() {
    // In memory where there is such a place: no card or disk is worn by tests, or slows them.
    dir_ = access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
    dir_ += "/mavkit-device-XXXXXX";
    if (device != nullptr || mkdtemp(&dir_[0]) == nullptr) {
        std::perror("Device");
        std::abort();
    }
    device = this;
    for (const char* sub : {"/mnt/sdcard/log", "/mnt/sd/term/common/trace", "/dev/pts", "/root"})
        std::filesystem::create_directories(dir_ + sub);
}

Device::~Device() {
    device = nullptr;
    held = false;
    std::memset(faults, 0, sizeof faults);
    ForgetCalls();
    std::filesystem::remove_all(dir_);
}

std::string Device::Path(const std::string& path) const { return dir_ + path; }

std::string Device::Read(const std::string& path) const {
    std::ifstream file(Path(path), std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void Device::Write(const std::string& path, const std::string& content) const {
    std::ofstream(Path(path), std::ios::binary) << content;
}

bool Device::Exists(const std::string& path) const { return std::filesystem::exists(Path(path)); }

void Device::Remove(const std::string& path) const { std::filesystem::remove_all(Path(path)); }

void Device::HoldClock(std::time_t now) {
    held = true;
    heldTime = now;
}

void Device::Fail(const char* name, int error, int times, int skip) {
    faults[IndexOf(name)] = Fault{error, times, skip};
}

int Device::Calls(const char* name) { return calls[IndexOf(name)]; }

std::vector<const char*> Device::Names() { return {kNames, kNames + kCount}; }

void Device::ForgetCalls() { std::memset(calls, 0, sizeof calls); }

int Device::LowestFreeDescriptor() {
    const int fd = dup(0);
    close(fd);
    return fd;
}

StdoutCapture::StdoutCapture() : saved_(dup(1)) {
    char name[] = "/tmp/mavkit-stdout-XXXXXX";
    file_ = mkstemp(name);
    unlink(name);
    std::fflush(stdout);
    dup2(file_, 1);
}

StdoutCapture::~StdoutCapture() {
    const std::string rest = Take();
    dup2(saved_, 1);
    if (testing::Test::HasFailure())
        std::fputs(rest.c_str(), stdout); // what GoogleTest told was taken as well
    close(saved_);
    close(file_);
}

std::string StdoutCapture::Take() {
    std::fflush(stdout);
    std::string text;
    char block[4096];
    lseek(file_, 0, SEEK_SET);
    for (ssize_t n; (n = read(file_, block, sizeof block)) > 0;)
        text.append(block, static_cast<std::size_t>(n));
    if (ftruncate(file_, 0) != 0)
        std::abort();
    lseek(file_, 0, SEEK_SET);
    return text;
}

Zone::Zone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

Zone::~Zone() {
    unsetenv("TZ");
    tzset();
}
