#include "device/Device.h"

#include "mavkit/diag/MavTrace.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
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
#include <linux/capability.h>
#include <net/if.h>
#include <new>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A wrapped call, and the fault that it is to have. A plain array: malloc and operator new are
// among the calls, so nothing here may allocate.
struct Call {
    const char* name;
    int calls = 0;
    int error = 0;
    int times = 0;
    int skip = 0;
};
Call table[] = {{"fopen"},  {"fdopen"},  {"open"},   {"openat"},    {"fdopendir"}, {"readdir"},
                {"lstat"},  {"fstatat"}, {"remove"}, {"chdir"},     {"fchdir"},    {"getcwd"},
                {"fread"},  {"fwrite"},  {"fgets"},  {"fflush"},    {"fclose"},    {"vfprintf"},
                {"lseek"},  {"mmap"},    {"munmap"}, {"msync"},     {"ftok"},      {"msgget"},
                {"msgsnd"}, {"msgrcv"},  {"msgctl"}, {"malloc"},    {"calloc"},    {"strdup"},
                {"new"},    {"time"},    {"mktime"}, {"localtime"}, {"settime"},   {"system"},
                {"socket"}, {"ioctl"},   {"pread"},  {"write"},     {"close"},     {"vdprintf"}};

Device* device = nullptr;
int paused = 0;
bool held = false;
std::time_t heldTime = 0;
bool gapsGoBack = false;
std::size_t mappedBytes = 0;
// Message queues that this test or one of its child processes asked for, by flag; shared by all.
unsigned char* const queueFlags = static_cast<unsigned char*>(
    mmap(nullptr, 256, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

[[noreturn]] void Die(const char* what, const char* name) {
    std::fprintf(stderr, "Device: %s: %s\n", what, name);
    std::abort();
}

// No test sets the machine's clock, even as root and by a call that is not wrapped: the process
// gives up the right to do so before the first test starts.
bool GiveUpClock() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2] = {};
    constexpr unsigned bit = 1U << CAP_SYS_TIME;
    if (syscall(SYS_capget, &header, sets) != 0)
        Die("cannot read the capabilities", std::strerror(errno));
    for (unsigned* set : {&sets[0].effective, &sets[0].permitted, &sets[0].inheritable})
        *set &= ~bit;
    if (syscall(SYS_capset, &header, sets) != 0)
        Die("cannot give up the right to set the clock", std::strerror(errno));
    return true;
}
[[maybe_unused]] const bool clockIsSafe = GiveUpClock();

Call& Find(const char* name) {
    for (Call& call : table)
        if (std::strcmp(call.name, name) == 0)
            return call;
    Die("no such call", name);
}

// Counts the call, and reports whether it is to fail; then errno is set.
bool Fails(Call& call) {
    if (paused > 0)
        return false;
    ++call.calls;
    if (call.times == 0 || call.skip-- > 0)
        return false;
    --call.times;
    call.skip = 0;
    errno = call.error;
    return true;
}

// The same for the call of this name; the table is searched once for each place in the source.
#define FAILS(name)                                                                                \
    ([] {                                                                                          \
        static Call& call = Find(name);                                                            \
        return Fails(call);                                                                        \
    }())

bool StartsWith(const char* path, const std::string& directory) {
    return std::strncmp(path, directory.c_str(), directory.size()) == 0 &&
           (path[directory.size()] == '/' || path[directory.size()] == '\0');
}

// Whether the test may change a file at `path`.
bool IsOwn(const char* path) {
    char current[PATH_MAX] = "";
    if (*path == '/')
        return StartsWith(path, device->Path("")) || std::strcmp(path, "/dev/null") == 0;
    return getcwd(current, sizeof current) != nullptr && StartsWith(current, device->Path(""));
}

// The path to use in place of `path`; `buffer` gives it room. A path of the terminal without a
// stand-in, or a change outside of it, ends the test before it changes anything on the machine.
const char* Mapped(const char* path, std::string& buffer, bool changes = false) {
    const FaultsPaused pause;
    if (path == nullptr)
        return path;
    for (const char* directory : {"/mnt", "/dev/pts", "/root"})
        if (StartsWith(path, directory)) {
            if (device == nullptr)
                Die("no stand-in for", path);
            path = (buffer = device->Path(path)).c_str();
            break;
        }
    if (changes && device != nullptr && !IsOwn(path))
        Die("not below the stand-in", path);
    return path;
}

bool Changes(int flags) { return (flags & (O_ACCMODE | O_CREAT | O_TRUNC)) != O_RDONLY; }

// Never the machine's own clock.
int SetClock(std::time_t time) {
    if (device != nullptr) {
        const FaultsPaused pause;
        device->clockSets.push_back(time);
    }
    return FAILS("settime") ? -1 : 0;
}

long CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Bytes that a mapping of `length` takes.
std::size_t Pages(std::size_t length) {
    const auto page = static_cast<std::size_t>(getpagesize());
    return (length + page - 1) / page * page;
}

} // namespace

// The symbol behind a call where file offsets, times, or file states with their times are 64 bits
// wide and long is not. Each libc has names of its own.
#if __SIZEOF_LONG__ == 8
#define FILE64(name) name
#define TIME64(name, wide) name
#define STAT64(name) name
#elif defined(__GLIBC__) || defined(__UCLIBC__)
#define FILE64(name) name "64"
#if defined(_TIME_BITS) && _TIME_BITS == 64
#define TIME64(name, wide) wide
#define STAT64(name) "__" name "64_time64"
#else
#define TIME64(name, wide) name
#define STAT64(name) name "64"
#endif
#define IOCTL_MSGCTL(name, wide) TIME64(name, wide)
#else // musl: offsets always have 64 bits
#define FILE64(name) name
#define TIME64(name, wide) wide
#define STAT64(name) "__" name "_time64"
#define IOCTL_MSGCTL(name, wide) name
#endif
#ifndef IOCTL_MSGCTL
#define IOCTL_MSGCTL(name, wide) name
#endif

#define WRAPPED(result, name, symbol, parameters)                                                  \
    extern "C" result Real_##name parameters __asm__("__real_" symbol);                            \
    extern "C" result Wrap_##name parameters __asm__("__wrap_" symbol);                            \
    result Wrap_##name parameters

// A wrapper that only counts and fails.
#define WRAP_FAULT(result, name, symbol, failure, parameters, arguments)                           \
    WRAPPED(result, name, symbol, parameters) {                                                    \
        return FAILS(#name) ? failure : Real_##name arguments;                                     \
    }

// The same for a call on a path: `changes` says whether it changes the file there.
#define WRAP_PATH(result, name, symbol, failure, parameters, changes, arguments)                   \
    WRAPPED(result, name, symbol, parameters) {                                                    \
        std::string buffer;                                                                        \
        path = Mapped(path, buffer, changes);                                                      \
        return FAILS(#name) ? failure : Real_##name arguments;                                     \
    }

WRAP_PATH(std::FILE*, fopen, FILE64("fopen"), nullptr, (const char* path, const char* mode),
          std::strpbrk(mode, "wa+") != nullptr, (path, mode))
WRAP_PATH(int, remove, "remove", -1, (const char* path), true, (path))
WRAP_PATH(int, lstat, STAT64("lstat"), -1, (const char* path, struct stat* s), false, (path, s))
WRAP_PATH(int, fstatat, STAT64("fstatat"), -1,
          (int dir, const char* path, struct stat* s, int flags), false, (dir, path, s, flags))
WRAP_PATH(int, chdir, "chdir", -1, (const char* path), false, (path))

WRAPPED(int, open, FILE64("open"), (const char* path, int flags, ...)) {
    std::va_list args;
    va_start(args, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    std::string buffer;
    path = Mapped(path, buffer, Changes(flags));
    return FAILS("open") ? -1 : Real_open(path, flags, mode);
}

WRAPPED(int, openat, FILE64("openat"), (int dir, const char* path, int flags, ...)) {
    std::string buffer;
    if (Changes(flags))
        Die("a file changed by openat", path);
    path = Mapped(path, buffer);
    return FAILS("openat") ? -1 : Real_openat(dir, path, flags);
}

WRAPPED(key_t, ftok, "ftok", (const char* path, int id)) {
    std::string buffer;
    path = Mapped(path, buffer);
    queueFlags[id & 0xFF] = 1;
    return FAILS("ftok") ? -1 : Real_ftok(path, id);
}

WRAPPED(std::time_t, time, TIME64("time", "__time64"), (std::time_t * out)) {
    if (FAILS("time"))
        return -1;
    const std::time_t now = held ? heldTime : Real_time(nullptr);
    if (out != nullptr)
        *out = now;
    return now;
}

WRAPPED(int, system, "system", (const char* command)) {
    if (device == nullptr)
        Die("no stand-in to run", command);
    if (FAILS("system"))
        return -1;
    const FaultsPaused pause;
    device->commands.emplace_back(command);
    return device->commandResult;
}

WRAPPED(int, clock_settime, TIME64("clock_settime", "__clock_settime64"),
        (clockid_t, const struct timespec* time)) {
    return SetClock(time->tv_sec);
}

#ifdef MAVKIT_HAVE_STIME
WRAPPED(int, stime, TIME64("stime", "__stime64"), (const std::time_t* time)) {
    return SetClock(*time);
}
#endif

WRAPPED(void*, mmap, FILE64("mmap"),
        (void* at, std::size_t length, int access, int flags, int fd, off_t from)) {
    void* base = FAILS("mmap") ? MAP_FAILED : Real_mmap(at, length, access, flags, fd, from);
    if (base != MAP_FAILED)
        mappedBytes += Pages(length);
    return base;
}

// A call that releases something releases it even when it reports a failure.
WRAPPED(int, munmap, "munmap", (void* base, std::size_t length)) {
    mappedBytes -= Pages(length);
    const int result = Real_munmap(base, length);
    return FAILS("munmap") ? -1 : result;
}

WRAPPED(int, fclose, "fclose", (std::FILE * file)) {
    const int result = Real_fclose(file);
    return FAILS("fclose") ? EOF : result;
}

WRAPPED(int, close, "close", (int fd)) {
    const int result = Real_close(fd);
    return FAILS("close") ? -1 : result;
}

WRAPPED(int, msync, "msync", (void* address, std::size_t length, int flags)) {
    if (device != nullptr) {
        const FaultsPaused pause;
        device->syncs.emplace_back(address, length, flags);
    }
    return FAILS("msync") ? -1 : Real_msync(address, length, flags);
}

WRAPPED(std::time_t, mktime, TIME64("mktime", "__mktime64"), (std::tm * t)) {
    if (FAILS("mktime"))
        return -1;
    std::tm asked = *t;
    std::time_t result = Real_mktime(t);
    if (!gapsGoBack || result == -1)
        return result;
    std::tm shown = *t;
    const std::time_t gap = timegm(&shown) - timegm(&asked);
    if (gap > 0) {
        result -= gap;
        localtime_r(&result, t);
    }
    return result;
}

WRAP_FAULT(std::tm*, localtime, TIME64("localtime", "__localtime64"), nullptr,
           (const std::time_t* t), (t))
WRAP_FAULT(void*, malloc, "malloc", nullptr, (size_t size), (size))
WRAP_FAULT(void*, calloc, "calloc", nullptr, (size_t count, size_t size), (count, size))
WRAP_FAULT(char*, strdup, "strdup", nullptr, (const char* text), (text))
WRAP_FAULT(std::FILE*, fdopen, "fdopen", nullptr, (int fd, const char* mode), (fd, mode))
WRAP_FAULT(off_t, lseek, FILE64("lseek"), -1, (int fd, off_t to, int whence), (fd, to, whence))
WRAP_FAULT(ssize_t, pread, FILE64("pread"), -1, (int fd, void* p, size_t n, off_t at),
           (fd, p, n, at))
WRAP_FAULT(ssize_t, write, "write", -1, (int fd, const void* p, size_t n), (fd, p, n))
WRAP_FAULT(int, vdprintf, "vdprintf", -1, (int fd, const char* format, va_list args),
           (fd, format, args))
WRAP_FAULT(int, fflush, "fflush", EOF, (std::FILE * f), (f))
WRAP_FAULT(size_t, fread, "fread", 0, (void* p, size_t n, size_t m, FILE* f), (p, n, m, f))
WRAP_FAULT(size_t, fwrite, "fwrite", 0, (const void* p, size_t n, size_t m, FILE* f), (p, n, m, f))
WRAP_FAULT(int, vfprintf, "vfprintf", -1, (FILE * f, const char* format, va_list args),
           (f, format, args))
// Some compilers and libcs turn it into the call above, others do not.
WRAPPED(int, vprintf, "vprintf", (const char* format, va_list args)) {
    return FAILS("vfprintf") ? -1 : Real_vfprintf(stdout, format, args);
}

WRAP_FAULT(char*, fgets, "fgets", nullptr, (char* text, int n, FILE* f), (text, n, f))
WRAP_FAULT(int, msgget, "msgget", -1, (key_t key, int flags), (key, flags))
WRAP_FAULT(int, msgsnd, "msgsnd", -1, (int id, const void* p, size_t n, int flags),
           (id, p, n, flags))
WRAP_FAULT(ssize_t, msgrcv, "msgrcv", -1, (int id, void* p, size_t n, long type, int flags),
           (id, p, n, type, flags))
WRAP_FAULT(int, msgctl, IOCTL_MSGCTL("msgctl", "__msgctl64"), -1,
           (int id, int command, msqid_ds* p), (id, command, p))
WRAP_FAULT(DIR*, fdopendir, "fdopendir", nullptr, (int fd), (fd))
WRAP_FAULT(int, fchdir, "fchdir", -1, (int fd), (fd))
WRAP_FAULT(char*, getcwd, "getcwd", nullptr, (char* p, size_t n), (p, n))
WRAP_FAULT(int, socket, "socket", -1, (int domain, int type, int protocol),
           (domain, type, protocol))

WRAP_FAULT(dirent*, readdir, FILE64("readdir"), nullptr, (DIR * dir), (dir))

WRAPPED(int, ioctl, IOCTL_MSGCTL("ioctl", "__ioctl_time64"), (int fd, unsigned long request, ...)) {
    std::va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    if (FAILS("ioctl"))
        return -1;
    if (device == nullptr || request != SIOCGIFADDR || device->interfaces.empty())
        return Real_ioctl(fd, request, argument);
    auto* const asked = static_cast<ifreq*>(argument);
    const auto found = device->interfaces.find(asked->ifr_name);
    if (found == device->interfaces.end())
        return errno = ENODEV, -1;
    sockaddr_in address = {};
    address.sin_addr.s_addr = inet_addr(found->second.c_str());
    std::memcpy(&asked->ifr_addr, &address, sizeof address);
    return 0;
}

// All allocations of C++, those inside the standard library included. Not inlined: the compiler
// would see free() without its malloc().
#define NOT_INLINED __attribute__((noinline))
NOT_INLINED void* operator new(std::size_t size) {
    void* memory = FAILS("new") ? nullptr : Real_malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
NOT_INLINED void operator delete(void* memory) noexcept { std::free(memory); }
NOT_INLINED void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

FaultsPaused::FaultsPaused() { ++paused; }
FaultsPaused::~FaultsPaused() { --paused; }

GapsGoBack::GapsGoBack() { gapsGoBack = true; }
GapsGoBack::~GapsGoBack() { gapsGoBack = false; }

Device::Device() : descriptors_(CountDescriptors()), mappedBytes_(mappedBytes) {
    // In memory where there is such a place: no card or disk is worn by tests, or slows them.
    std::string name = access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
    name = std::filesystem::canonical(name).string() + "/mavkit-device-XXXXXX";
    if (device != nullptr || mkdtemp(&name[0]) == nullptr)
        Die("no directory for the terminal", name.c_str());
    dir_ = name;
    device = this;
    for (const char* sub : {"/mnt/sdcard/log", "/mnt/sd/term/common/trace", "/dev/pts", "/root"})
        std::filesystem::create_directories(dir_ + sub);
}

Device::~Device() {
    ForgetFaults();
    for (int flag = 0; flag <= 0xFF; ++flag)
        if (queueFlags[flag] != 0) {
            msgctl(msgget(ftok("/root", flag), 0), IPC_RMID, nullptr);
            queueFlags[flag] = 0;
        }
    ForgetCalls();
    device = nullptr;
    held = false;
    std::filesystem::remove_all(dir_);
    EXPECT_EQ(descriptors_, CountDescriptors()) << "descriptors leak";
    EXPECT_EQ(mappedBytes_, mappedBytes) << "mappings leak";
}

std::string Device::Path(const std::string& path) const {
    const FaultsPaused pause;
    return dir_ + path;
}

std::string Device::Read(const std::string& path) const {
    const FaultsPaused pause;
    std::ifstream file(Path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string Device::GeneralLog() const {
    const FaultsPaused pause;
    return Read(kGeneralLog);
}

std::string Device::TraceFile(const std::string& file) const {
    const FaultsPaused pause;
    return Read(kTraceDir + file);
}

void Device::Write(const std::string& path, const std::string& content) const {
    const FaultsPaused pause;
    std::ofstream(Path(path), std::ios::binary) << content;
}

bool Device::Exists(const std::string& path) const {
    const FaultsPaused pause;
    return std::filesystem::exists(Path(path));
}

void Device::Remove(const std::string& path) const {
    const FaultsPaused pause;
    std::filesystem::remove_all(Path(path));
}

void Device::HoldClock(std::time_t now) {
    held = true;
    heldTime = now;
}

void Device::Fail(const char* name, int error, int times, int skip) {
    Call& call = Find(name);
    call = {call.name, call.calls, error, times, skip};
}

bool Device::HasFault(const char* name) { return Find(name).times > 0; }

void Device::ForgetFaults() {
    for (Call& call : table)
        call.times = 0;
}

int Device::Calls(const char* name) { return Find(name).calls; }

std::map<std::string, int> Device::Calls() {
    const FaultsPaused pause;
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

// The call by its number: not every libc declares it.
StdoutCapture::StdoutCapture()
    : saved_(dup(1)), file_(static_cast<int>(syscall(SYS_memfd_create, "stdout", 0))) {
    if (file_ == -1)
        Die("no file for standard output", std::strerror(errno));
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
    const FaultsPaused pause;
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
    if (pread(file_, &text[0], text.size(), 0) == -1 || ftruncate(file_, 0) != 0)
        Die("standard output", std::strerror(errno));
    lseek(file_, 0, SEEK_SET);
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
    const bool failedBefore = testing::Test::HasFailure();
    const bool well = work() && testing::Test::HasFailure() == failedBefore;
    std::fflush(stdout);
    _exit(well ? 0 : 1);
}

bool Succeeded(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
