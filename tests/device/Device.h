/// \file
/// A terminal to test on, anywhere: the few libc calls that reach for the terminal's fixed paths,
/// its clock and its shell are wrapped by the linker and answered here. Message queues, mappings
/// and all other calls are the real kernel's; each of the wrapped ones can be made to fail.
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
#include <vector>

/// What the classes below share: each changes something while it lives, and puts it back.
class Single {
public:
    Single() = default;
    Single(const Single&) = delete;
    Single& operator=(const Single&) = delete;
};

/// One terminal. While it lives, paths below /mnt and /dev/pts stand in a temporary directory of
/// its own, which has the terminal's directories, and message queues of "/root" get keys of their
/// own. Its end removes all of it, puts every call back to normal, and fails the test when there
/// are other descriptors open than at its start. One at a time.
class Device : Single {
public:
    Device();
    ~Device();

    static constexpr const char* kGeneralLog = "/mnt/sdcard/log/general.log";
    static constexpr const char* kTraceDir = "/mnt/sd/term/common/trace/";

    /// Where the terminal's path \p path stands on this machine.
    std::string Path(const std::string& path) const { return dir_ + path; }
    /// Content of the file \p path of the terminal; empty when it is missing.
    std::string Read(const std::string& path) const;
    void Write(const std::string& path, const std::string& content) const;
    bool Exists(const std::string& path) const;
    void Remove(const std::string& path) const; ///< a file or a whole directory
    std::string GeneralLog() const { return Read(kGeneralLog); }
    std::string TraceFile(const std::string& file = "trace.log") const {
        return Read(kTraceDir + file);
    }

    /// Holds the clock (`time`) at \p now until the device ends.
    static void HoldClock(std::time_t now);

    /// Lets the call \p name (as in the source: "fopen", "msgsnd") fail with \p error: \p times
    /// times, after \p skip more calls that succeed. Every name can have one fault at a time.
    static void Fail(const char* name, int error, int times = 1, int skip = 0);
    /// How often the call \p name ran since the device started or ForgetCalls().
    static int Calls(const char* name);
    static std::map<std::string, int> Calls(); ///< of all names
    static void ForgetCalls();

    /// The number that the next descriptor gets.
    static int LowestFreeDescriptor();

    bool hideTypes = false;             ///< `readdir` tells no type, as on some file systems
    std::vector<std::string> commands;  ///< what `system` would have run
    int commandResult = 0;              ///< what `system` answers
    std::vector<std::time_t> clockSets; ///< times to which the clock would have been set
    std::vector<int> msyncFlags;        ///< flags of every `msync`

private:
    std::string dir_;
    long descriptors_; // open at its start
};

/// Takes what the process writes to standard output while it lives: what GoogleTest tells as well,
/// which is passed on at the end of a test that has failed.
class StdoutCapture : Single {
public:
    StdoutCapture();
    ~StdoutCapture();
    /// What was written since the start or the last call.
    std::string Take();

private:
    int saved_;
    int file_;
};

/// Sets the zone to the POSIX TZ text \p zone while it lives.
class Zone : Single {
public:
    explicit Zone(const char* zone) { setenv("TZ", zone, 1), tzset(); }
    ~Zone() { unsetenv("TZ"), tzset(); }
};

/// What most tests stand on: a terminal in UTC whose clock stands at kNow, with standard output
/// captured and a trace setting of its own: no prefix, on standard output unless told otherwise.
class Terminal : Single {
public:
    static constexpr std::time_t kNow = 1709618828; ///< 2024-03-05 06:07:08 UTC

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

/// Lets the process have no more than \p most of a resource while it lives: RLIMIT_FSIZE is a card
/// that is full part way through a write, RLIMIT_NOFILE the end of all descriptors.
class Limit : Single {
public:
    Limit(decltype(RLIMIT_FSIZE) resource, rlim_t most);
    ~Limit() { setrlimit(resource_, &before_); }

private:
    decltype(RLIMIT_FSIZE) resource_;
    rlimit before_;
};

/// Takes descriptors while it lives: the next one that the system hands out is \p next.
class TakenUpTo : Single {
public:
    explicit TakenUpTo(int next);
    ~TakenUpTo();

private:
    std::vector<int> taken_;
};

/// Does \p work in a process of its own, which ends well when it yields true without a failure.
pid_t Start(const std::function<bool()>& work);
/// Waits for the end of \p child. \return whether it ended by itself, and well
bool Succeeded(pid_t child);

#endif
