#include "device/Device.h"

#include "mavkit/diag/MavTrace.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A wrapped call, and the fault that it is to have. Plain arrays: malloc is one of them, so that
// they must not allocate.
struct Call {
    const char* name;
    int calls = 0;
    int error = 0;
    int times = 0;
    int skip = 0;
};
Call table[] = {{"fopen"},  {"open"},      {"openat"}, {"time"},   {"system"},  {"settime"},
                {"mktime"}, {"localtime"}, {"malloc"}, {"calloc"}, {"strdup"},  {"lseek"},
                {"fread"},  {"fwrite"},    {"fgets"},  {"ftok"},   {"msgget"},  {"msgsnd"},
                {"msgrcv"}, {"msgctl"},    {"mmap"},   {"msync"},  {"opendir"}, {"fdopendir"},
                {"chdir"},  {"fchdir"},    {"getcwd"}, {"socket"}, {"ioctl"}};

Device* device = nullptr;
bool held = false;
std::time_t heldTime = 0;

Call& Find(const char* name) {
    for (Call& call : table)
        if (std::strcmp(call.name, name) == 0)
            return call;
    std::fprintf(stderr, "Device: no call named %s\n", name);
    std::abort();
}

// Counts the call, and tells whether it is to fail; then errno is set.
bool Fails(const char* name) {
    Call& call = Find(name);
    ++call.calls;
    if (call.times == 0 || call.skip-- > 0)
        return false;
    --call.times;
    call.skip = 0;
    errno = call.error;
    return true;
}

// The path to use in place of `path`; `buffer` gives it room.
const char* Mapped(const char* path, std::string& buffer) {
    if (device != nullptr && path != nullptr &&
        (std::strncmp(path, "/mnt/", 5) == 0 || std::strncmp(path, "/dev/pts/", 9) == 0 ||
         std::strcmp(path, "/root") == 0))
        path = (buffer = device->Path(path)).c_str();
    return path;
}

// Never the machine's own clock.
int SetClock(std::time_t time) {
    if (device != nullptr)
        device->clockSets.push_back(time);
    return Fails("settime") ? -1 : 0;
}

long CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
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
    return SetClock(time->tv_sec);
}

#ifdef MAVKIT_HAVE_STIME
extern "C" int Wrap_stime(const std::time_t* time) __asm__("__wrap_stime");
int Wrap_stime(const std::time_t* time) { return SetClock(*time); }
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
WRAP_FAULT(void*, malloc, "malloc", nullptr, (size_t size), (size))
WRAP_FAULT(void*, calloc, "calloc", nullptr, (size_t count, size_t size), (count, size))
WRAP_FAULT(char*, strdup, "strdup", nullptr, (const char* text), (text))
WRAP_FAULT(off_t, lseek, FILE64(lseek), -1, (int fd, off_t to, int whence), (fd, to, whence))
WRAP_FAULT(size_t, fread, "fread", 0, (void* p, size_t n, size_t m, FILE* f), (p, n, m, f))
WRAP_FAULT(size_t, fwrite, "fwrite", 0, (const void* p, size_t n, size_t m, FILE* f), (p, n, m, f))
WRAP_FAULT(char*, fgets, "fgets", nullptr, (char* text, int n, FILE* f), (text, n, f))
WRAP_FAULT(int, msgget, "msgget", -1, (key_t key, int flags), (key, flags))
WRAP_FAULT(int, msgsnd, "msgsnd", -1, (int id, const void* p, size_t n, int flags),
           (id, p, n, flags))
WRAP_FAULT(ssize_t, msgrcv, "msgrcv", -1, (int id, void* p, size_t n, long type, int flags),
           (id, p, n, type, flags))
WRAP_FAULT(int, msgctl, TIME64("msgctl", "__msgctl64"), -1, (int id, int command, msqid_ds* p),
           (id, command, p))
WRAP_FAULT(void*, mmap, FILE64(mmap), MAP_FAILED,
           (void* at, size_t n, int access, int flags, int fd, off_t from),
           (at, n, access, flags, fd, from))
WRAP_FAULT(int, openat, FILE64(openat), -1, (int dir, const char* path, int flags, ...),
           (dir, path, flags)) // nobody creates a file by it
WRAP_FAULT(DIR*, opendir, "opendir", nullptr, (const char* path), (path))
WRAP_FAULT(DIR*, fdopendir, "fdopendir", nullptr, (int fd), (fd))
WRAP_FAULT(int, chdir, "chdir", -1, (const char* path), (path))
WRAP_FAULT(int, fchdir, "fchdir", -1, (int fd), (fd))
WRAP_FAULT(char*, getcwd, "getcwd", nullptr, (char* p, size_t n), (p, n))
WRAP_FAULT(int, socket, "socket", -1, (int domain, int type, int protocol),
           (domain, type, protocol))

WRAPPED(dirent*, readdir, FILE64(readdir), (DIR * dir)) {
    dirent* entry = Real_readdir(dir);
    if (entry != nullptr && device != nullptr && device->hideTypes)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

WRAPPED(int, ioctl, TIME64("ioctl", "__ioctl_time64"), (int fd, unsigned long request, ...)) {
    std::va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    return Fails("ioctl") ? -1 : Real_ioctl(fd, request, argument);
}

Device::Device() : descriptors_(CountDescriptors()) {
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
    for (Call& call : table)
        call = {call.name};
    std::filesystem::remove_all(dir_);
    EXPECT_EQ(descriptors_, CountDescriptors()) << "descriptors leak";
}

std::string Device::Read(const std::string& path) const {
    std::ifstream file(Path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Device::Write(const std::string& path, const std::string& content) const {
    std::ofstream(Path(path), std::ios::binary) << content;
}

bool Device::Exists(const std::string& path) const { return std::filesystem::exists(Path(path)); }

void Device::Remove(const std::string& path) const { std::filesystem::remove_all(Path(path)); }

void Device::HoldClock(std::time_t now) { held = true, heldTime = now; }

void Device::Fail(const char* name, int error, int times, int skip) {
    Call& call = Find(name);
    call = {call.name, call.calls, error, times, skip};
}

int Device::Calls(const char* name) { return Find(name).calls; }

std::map<std::string, int> Device::Calls() {
    std::map<std::string, int> calls;
    for (const Call& call : table)
        calls[call.name] = call.calls;
    return calls;
}

void Device::ForgetCalls() {
    for (Call& call : table)
        call.calls = 0;
}

int Device::LowestFreeDescriptor() {
    const int fd = dup(0);
    close(fd);
    return fd;
}

StdoutCapture::StdoutCapture() : saved_(dup(1)), file_(memfd_create("stdout", 0)) {
    std::fflush(stdout);
    dup2(file_, 1);
}

StdoutCapture::~StdoutCapture() {
    const std::string rest = Take();
    dup2(saved_, 1);
    if (testing::Test::HasFailure())
        std::fputs(rest.c_str(), stdout);
    close(saved_);
    close(file_);
}

std::string StdoutCapture::Take() {
    std::fflush(stdout);
    std::string text(static_cast<size_t>(Real_lseek(file_, 0, SEEK_END)), '\0');
    if (pread(file_, &text[0], text.size(), 0) == -1 || ftruncate(file_, 0) != 0)
        std::abort();
    Real_lseek(file_, 0, SEEK_SET);
    return text;
}

Terminal::Terminal(_EXPORT_WAY traceWay) {
    Device::HoldClock(kNow);
    setting.prefixOn = 0;
    setting.traceWay = static_cast<unsigned char>(traceWay);
    MavTrace::Setting = &setting;
}

Terminal::~Terminal() { MavTrace::Setting = nullptr; }

Limit::Limit(decltype(RLIMIT_FSIZE) resource, rlim_t most) : resource_(resource) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(resource, &before_);
    const rlimit limit{most, before_.rlim_max};
    setrlimit(resource, &limit);
}

TakenUpTo::TakenUpTo(int next) {
    while (Device::LowestFreeDescriptor() < next)
        taken_.push_back(dup(0));
}

TakenUpTo::~TakenUpTo() { std::for_each(taken_.begin(), taken_.end(), close); }

pid_t Start(const std::function<bool()>& work) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child != 0)
        return child;
    const bool well = work() && !testing::Test::HasFailure();
    std::fflush(stdout);
    _exit(well ? 0 : 1);
}

bool Succeeded(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
