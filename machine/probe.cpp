// Uses the library on the emulated terminal, one subject a verb, and reports what came of it:
//
//   probe systime YYMMDDhhmmss   sets the clock by Set_SysTime, hwclock by Set_SYS_HWClock
//   probe work                   every way to the card: which of them work now
//   probe trace SECONDS          traces and logs ten times a second
//   probe ttys                   the six pseudo-terminals
//   probe month FOLDER           thirty days in half a minute; beside it, the demonstration
#include "Contains.h"
#include "mavkit/mavkit.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kTraceFile[] = "/mnt/sd/term/common/trace/trace_probe.log";
constexpr char kRegion[] = "/mnt/sd/term/common/probe.shm";

void Say(const char* what, long value) { std::printf("%s %ld\n", what, value); }

// Sets the clock: the digits of a time, two for each byte.
int SetClock(int (*set)(char*), const char* digits) {
    char bytes[6] = {};
    for (std::size_t i = 0; i < sizeof bytes && digits[2 * i] != '\0'; ++i)
        bytes[i] = static_cast<char>((digits[2 * i] - '0') << 4 | (digits[2 * i + 1] - '0'));
    Say("result", set(bytes));
    long now = static_cast<long>(std::time(nullptr));
    std::printf("now %s\n", timestr(&now));
    return 0;
}

bool FillRegion(std::FILE* file, void*) {
    const std::string zeros(4096, '\0');
    // uClibc's fflush gives 0 on a full card: only the error flag remembers.
    return std::fwrite(zeros.data(), zeros.size(), 1, file) == 1 && std::fflush(file) == 0 &&
           std::ferror(file) == 0;
}

// Without a validator, what a full card has left of the file would stay for ever.
bool IsWhole(std::FILE* file, void*) {
    char content[4096];
    return std::fread(content, sizeof content, 1, file) == 1;
}

// Each line is what one way to the card gives now: 1 when it works, or the function's result.
int Work() {
    const std::string mark = "mark " + std::to_string(std::time(nullptr)) + "." +
                             std::to_string(getpid()) + " " + std::string(600, '.') + "\n";
    MavTrace(LEVEL_ERROR, 0)("%s", mark.c_str());
    GENERAL_LOG("%s", mark.c_str());
    Say("trace", Contains(kTraceFile, mark) ? 1 : 0);
    Say("log", Contains(GENERAL_LOG_PATH, mark) ? 1 : 0);
    ShareMem region;
    region.Init(kRegion, 4096, FillRegion, IsWhole, nullptr);
    Say("region", region.base != nullptr ? 1 : 0);
    if (region.base != nullptr)
        Say("save", region.Save(false, false) ? 1 : 0);
    char made[] = "/mnt/sd/term/common/probe.made";
    char source[] = "/init";
    char copy[] = "/mnt/sd/term/common/probe.copy";
    Say("create", MavFile::CreateFile(made, 6000, 0x55));
    Say("copy", MavFile::CopyFile(source, copy));
    std::remove(made);
    std::remove(copy);
    return 0;
}

int TraceFor(int seconds) {
    const timespec pause = {0, 100000000};
    for (int i = 1; i <= 10 * seconds; ++i) {
        MavTrace(LEVEL_ERROR, 0)("line %d\n", i);
        GENERAL_LOG("line %d\n", i);
        nanosleep(&pause, nullptr);
    }
    Say("alive", 1);
    return 0;
}

long long Now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

// What can be read from `master` at once.
std::string Drain(int master) {
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(n));
    return text;
}

int Ttys() {
    int masters[6];
    int arrived = 0;
    long long slowest = 0;
    for (int i = 0; i < 6; ++i) {
        masters[i] = open("/dev/ptmx", O_RDWR | O_NOCTTY | O_NONBLOCK);
        int unlock = 0;
        if (masters[i] < 0 || ioctl(masters[i], TIOCSPTLCK, &unlock) != 0)
            return 1;
    }
    // With a reader: what is written arrives, and nothing else.
    for (int i = 0; i < 6; ++i) {
        MavTrace::Setting->traceWay = static_cast<unsigned char>(WAY_TTYP0 + i);
        MavTrace(LEVEL_ERROR, 0)("terminal %d\n", i);
        arrived += Drain(masters[i]) == "terminal " + std::to_string(i) + "\r\n" ? 1 : 0;
    }
    Say("arrived", arrived);
    // Without one: more than the terminal takes. No message may wait.
    const std::string line(200, 'x');
    for (int i = 0; i < 1000; ++i) {
        const long long before = Now();
        MavTrace(LEVEL_ERROR, 0)("%d %s\n", i, line.c_str());
        slowest = std::max(slowest, Now() - before);
    }
    Say("slowest-ms", static_cast<long>(slowest));
    const std::string kept = Drain(masters[5]);
    Say("kept-bytes", static_cast<long>(kept.size()));
    MavTrace(LEVEL_ERROR, 0)("again\n");
    Say("again", Drain(masters[5]).find("again\r\n") != std::string::npos ? 1 : 0);
    // With one that has gone: the message is dropped, the process stays.
    for (const int master : masters)
        close(master);
    for (int i = 0; i < 6; ++i) {
        MavTrace::Setting->traceWay = static_cast<unsigned char>(WAY_TTYP0 + i);
        MavTrace(LEVEL_ERROR, 0)("nobody\n");
    }
    Say("alive", 1);
    const int tty = open("/dev/tty", O_RDWR);
    Say("controlling", tty >= 0 ? 1 : 0);
    return 0;
}

long Descriptors(const std::string& process) {
    long count = 0;
    DIR* directory = opendir(("/proc/" + process + "/fd").c_str());
    while (directory != nullptr && readdir(directory) != nullptr)
        ++count;
    if (directory != nullptr)
        closedir(directory);
    return count;
}

// The address space of this process: what is allocated or mapped and never freed makes it larger.
long PagesMapped() {
    char first[32] = "";
    if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
        std::fgets(first, sizeof first, file);
        std::fclose(file);
    }
    return std::strtol(first, nullptr, 10);
}

// A timer as a process of the terminal has it: it fires for each point that the clock has reached,
// and not again when the clock is set back.
struct Timer {
    const char* name;
    unsigned char unit;
    unsigned long step;
    unsigned long minutes; // of the first point after the begin of a day
    long next = 0;
    long fired = 0;
    std::string last = {};

    long After(long t) const { return gettimerpoint(t + 1, unit, step, Minute, minutes, false); }

    // Returns how many points came at a time of the wall clock that was not after the last one.
    int Fire(long now) {
        int repeated = 0;
        for (; next != -1 && next <= now; next = After(next)) {
            const std::string shown = timestr(&next);
            repeated += shown > last ? 0 : 1;
            last = shown;
            ++fired;
        }
        return repeated;
    }
};

// The two programs of the demonstration, started and killed as a watchdog does it.
class Demonstration {
public:
    explicit Demonstration(const char* folder) : folder_(folder) {}

    void Start() {
        Wait(Run("uplink", "remove"), 0);
        receiver_ = Run("uplink", "receive");
        sender_ = Run("collector", nullptr);
    }
    void Kill() {
        for (const pid_t process : {receiver_, sender_}) {
            descriptors_ = std::max(descriptors_, Descriptors(std::to_string(process)));
            kill(process, SIGKILL);
        }
        killed_ += Wait(receiver_, SIGKILL) + Wait(sender_, SIGKILL);
    }
    void Finish() { finished_ += Wait(receiver_, 0) + Wait(sender_, 0); }
    void Report() {
        Wait(Run("uplink", "remove"), 0);
        Say("killed", killed_);
        Say("finished", finished_);
        Say("most-descriptors", descriptors_);
        Say("children", waitpid(-1, nullptr, WNOHANG) == -1 ? 0 : 1);
    }

private:
    pid_t Run(const char* program, const char* verb) const {
        const pid_t process = fork();
        if (process != 0)
            return process;
        if (std::freopen("/tmp/demonstration", "a", stdout) == nullptr ||
            std::freopen("/tmp/demonstration", "a", stderr) == nullptr)
            _exit(126);
        if (verb == nullptr)
            execlp(program, program, folder_, nullptr);
        else if (std::strcmp(verb, "remove") == 0)
            execlp(program, program, verb, folder_, nullptr);
        else
            execlp(program, program, verb, folder_, "/mnt/sd/term/common/meters.shm", nullptr);
        _exit(127);
    }
    // Returns 1 when the process has ended as wanted: by itself with success, or by the signal.
    static int Wait(pid_t process, int wanted) {
        int status = -1;
        return waitpid(process, &status, 0) == process && status == wanted ? 1 : 0;
    }

    const char* folder_;
    pid_t receiver_ = 0;
    pid_t sender_ = 0;
    int killed_ = 0;
    int finished_ = 0;
    long descriptors_ = 0;
};

// What a process does at each look at the clock: a message to itself, a trace, now and then a
// region. Returns the number of failures.
int Poll(Message& queue, int look) {
    unsigned char bytes[64];
    IpcInfo info;
    info.type = 1;
    info.createTime = static_cast<int>(std::time(nullptr));
    unsigned int length = info.Serialize(bytes, sizeof bytes);
    bool good = queue.SendData(bytes, length, 1) && queue.RecvData(bytes, length, 1);
    MavTrace(LEVEL_ERROR, 0)("look %d: a line of the usual length for a trace\n", look);
    if (look % 4 == 0) {
        ShareMem region;
        region.Init(kRegion, 4096, FillRegion, IsWhole, nullptr);
        good = region.base != nullptr && region.Save(false, false) && good;
    }
    return good ? 0 : 1;
}

// The clock moves a quarter of an hour from look to look. Every fifth day it is set back two hours,
// and on the day after it jumps three hours forward. On the fourteenth day daylight saving ends.
int CompressedMonth(const char* folder) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    constexpr int kDay = 96;            // looks
    constexpr long kStart = 1760306400; // 2025-10-13 00:00:00
    constexpr long kEnd = kStart + 30 * 86400L + 3600;
    Timer timers[] = {
        {"quarter", Minute, 15, 0}, {"daily", Day, 1, 150}, {"monthly", Month, 1, 120}};
    for (Timer& timer : timers)
        timer.next = timer.After(kStart);
    MavTrace::Setting->maxSize = 50000;
    Message queue('P');
    Demonstration demonstration(folder);
    const long descriptors = Descriptors("self");
    long pages = 0;
    long failures = 0;
    long repeated = 0;
    long latest = kStart;
    int killLook = 0;
    int look = 0;
    for (long now = kStart; latest < kEnd;) {
        if (look % kDay == 0) {
            demonstration.Start();
            killLook = look / kDay % 2 == 0 ? look + 2 + look / kDay * 11 % 28 : 0;
        }
        ++look;
        now += look % (5 * kDay) == 0 ? -7200 : look % (5 * kDay) == kDay ? 10800 : 900;
        now = std::min(now, kEnd);
        latest = std::max(latest, now);
        const timeval clock = {static_cast<std::time_t>(now), 0};
        failures += settimeofday(&clock, nullptr) == 0 ? 0 : 1;
        for (Timer& timer : timers)
            repeated += timer.Fire(static_cast<long>(std::time(nullptr)));
        failures += Poll(queue, look);
        if (look == kDay) // by now it has all that it needs
            pages = PagesMapped();
        if (look == killLook)
            demonstration.Kill();
        else if (killLook == 0 && (look % kDay == 0 || latest == kEnd))
            demonstration.Finish();
    }
    for (const Timer& timer : timers)
        Say(timer.name, timer.fired);
    Say("repeated", repeated);
    Say("looks", look);
    Say("failures", failures);
    demonstration.Report();
    Say("descriptors", Descriptors("self") - descriptors);
    Say("pages", PagesMapped() - pages);
    queue.Destroy();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 1 ? argv[1] : "";
    static TraceSetting setting;
    setting.prefixOn = 0;
    setting.level = LEVEL_ERROR;
    setting.traceWay = WAY_PRIVATE;
    std::snprintf(setting.name, sizeof setting.name, "probe");
    MavTrace::Setting = &setting;
    if (verb == "systime" && argc == 3)
        return SetClock(Set_SysTime, argv[2]);
    if (verb == "hwclock" && argc == 3)
        return SetClock(Set_SYS_HWClock, argv[2]);
    if (verb == "work")
        return Work();
    if (verb == "trace" && argc == 3)
        return TraceFor(static_cast<int>(std::strtol(argv[2], nullptr, 10)));
    if (verb == "month" && argc == 3)
        return CompressedMonth(argv[2]);
    return verb == "ttys" ? Ttys() : 2;
}
