// A terminal to test on, anywhere: the linker wraps the libc calls that the library makes, and they
// are answered here. Calls that use the terminal's fixed paths, its clock and its shell never reach
// those of the machine; message queues, mappings and all others use the real kernel. Each of the
// wrapped calls can be made to fail.
#ifndef MAVKIT_TESTS_DEVICE_H
#define MAVKIT_TESTS_DEVICE_H

#include "mavkit/diag/TraceSetting.h"

#include <cstdlib>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <tuple>
#include <vector>

// Base of the classes below: each changes something while it exists, and its destructor undoes the
// change.
class NonCopyable {
public:
    NonCopyable() = default;
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;
};

// One terminal. While it lives, paths below /mnt, /dev/pts and /root are mapped to a temporary
// directory of its own, which has the terminal's directories; message queues of "/root" therefore
// get keys of their own. A call that would change a file elsewhere ends the test program. The
// destructor removes the directory and the queues, puts every call back to normal, and fails the
// test if descriptors or mappings have leaked. Only one may exist at a time.
class Device : NonCopyable {
public:
    Device();
    ~Device();

    static constexpr const char* kGeneralLog = "/mnt/sdcard/log/general.log";
    static constexpr const char* kTraceDir = "/mnt/sd/term/common/trace/";

    // Where the terminal's path `path` is on this machine.
    std::string Path(const std::string& path) const;
    // Content of the file `path` of the terminal; empty when it is missing.
    std::string Read(const std::string& path) const;
    void Write(const std::string& path, const std::string& content) const;
    bool Exists(const std::string& path) const;
    void Remove(const std::string& path) const; // a file or a whole directory
    std::string GeneralLog() const;
    std::string TraceFile(const std::string& file = "trace.log") const;

    // Stops the clock (`time`) at `now` until the device is destroyed.
    static void HoldClock(std::time_t now);

    // Makes the call `name` (as in the source: "fopen", "msgsnd"; "new" for operator new) fail
    // with `error`: `times` times, after `skip` more calls that succeed. Every name can have one
    // fault at a time.
    static void Fail(const char* name, int error, int times = 1, int skip = 0);
    // Whether a fault of `name` has not happened yet.
    static bool HasFault(const char* name);
    static void ForgetFaults();
    // How often the call `name` ran since the device started or ForgetCalls().
    static int Calls(const char* name);
    static std::map<std::string, int> Calls(); // of all names
    static void ForgetCalls();

    // The number that the next descriptor gets.
    static int LowestFreeDescriptor();

    std::vector<std::string> commands;  // what `system` would have run
    int commandResult = 0;              // what `system` returns
    std::vector<std::time_t> clockSets; // times to which the clock would have been set
    // Start, length and flags of every `msync`.
    std::vector<std::tuple<const void*, std::size_t, int>> syncs;
    // Names and IPv4 addresses of the network interfaces; while it is empty, the machine's own.
    std::map<std::string, std::string> interfaces;

private:
    std::string dir_;
    long descriptors_; // open at its start
    std::size_t mappedBytes_;
};

// While it exists no call fails and none is counted: for calls that the test itself makes.
class FaultsPaused : NonCopyable {
public:
    FaultsPaused();
    ~FaultsPaused();
};

// While it exists `mktime` makes a clock time that is skipped earlier by the gap. Each libc does so
// for some gaps, and makes the others later.
class GapsGoBack : NonCopyable {
public:
    GapsGoBack();
    ~GapsGoBack();
};

// Captures what the process writes to standard output while it exists. That includes the output of
// GoogleTest, so when a test has failed the destructor prints it.
class StdoutCapture : NonCopyable {
public:
    StdoutCapture();
    ~StdoutCapture();
    // What was written since the start or the last call.
    std::string Take();

private:
    int saved_;
    int file_;
};

// Sets the zone to the POSIX TZ text `zone` while it lives.
class Zone : NonCopyable {
public:
    explicit Zone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~Zone() {
        unsetenv("TZ");
        tzset();
    }
};

// What most tests run on: a terminal in UTC whose clock is stopped at kNow, with standard output
// captured and a trace setting of its own: no prefix, and `traceWay` as its only way.
class Terminal : NonCopyable {
public:
    static constexpr std::time_t kNow = 1709618828; // 2024-03-05 06:07:08 UTC

    explicit Terminal(_EXPORT_WAY traceWay = WAY_STDOUT);
    ~Terminal();

    Zone zone{"UTC0"};
    Device device;
    TraceSetting setting;
    StdoutCapture out;
};

class TerminalTest : public testing::Test, protected Terminal {
protected:
    using Terminal::Terminal;
};

// Lets the process have no more than `most` of a resource while it lives: RLIMIT_FSIZE acts like a
// card that becomes full during a write, RLIMIT_NOFILE like a lack of descriptors.
class Limit : NonCopyable {
public:
    Limit(decltype(RLIMIT_FSIZE) resource, rlim_t most);
    ~Limit() { setrlimit(resource_, &before_); }

private:
    decltype(RLIMIT_FSIZE) resource_;
    rlimit before_;
};

// Uses up descriptors while it exists, so that the next one that the system gives is `next`.
class TakenUpTo : NonCopyable {
public:
    explicit TakenUpTo(int next);
    ~TakenUpTo();

private:
    std::vector<int> taken_;
};

// Does `work` in a process of its own, which ends well when it returns true without a failure.
pid_t Start(const std::function<bool()>& work);
// Waits for the end of `child`, and reports whether it ended by itself, and well.
bool Succeeded(pid_t child);

#endif
