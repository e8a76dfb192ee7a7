// Uses the library on the emulated terminal, one subject a verb, and reports what came of it:
//
//   probe systime YYMMDDhhmmss   sets the clock by Set_SysTime, hwclock by Set_SYS_HWClock
//   probe work                   every way to the card: which of them work now
//   probe trace SECONDS          traces and logs ten times a second
//   probe ttys                   the six pseudo-terminals
#include "Contains.h"
#include "mavkit/mavkit.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr char kTraceFile[] = "/mnt/sd/term/common/trace/trace_probe.log";
constexpr char kRegion[] = "/mnt/sd/term/common/probe.shm";

TraceSetting setting;

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
        setting.traceWay = static_cast<unsigned char>(WAY_TTYP0 + i);
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
        setting.traceWay = static_cast<unsigned char>(WAY_TTYP0 + i);
        MavTrace(LEVEL_ERROR, 0)("nobody\n");
    }
    Say("alive", 1);
    const int tty = open("/dev/tty", O_RDWR);
    Say("controlling", tty >= 0 ? 1 : 0);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 1 ? argv[1] : "";
    setting.prefixOn = 0;
    setting.level = LEVEL_ERROR;
    setting.traceWay = WAY_PRIVATE;
    std::strcpy(setting.name, "probe");
    MavTrace::Setting = &setting;
    if (verb == "systime" && argc == 3)
        return SetClock(Set_SysTime, argv[2]);
    if (verb == "hwclock" && argc == 3)
        return SetClock(Set_SYS_HWClock, argv[2]);
    if (verb == "work")
        return Work();
    if (verb == "trace" && argc == 3)
        return TraceFor(std::atoi(argv[2]));
    return verb == "ttys" ? Ttys() : 2;
}
