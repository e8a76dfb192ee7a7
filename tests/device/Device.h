/// \file
/// A terminal to test on, anywhere: the few libc calls that reach for the terminal's fixed paths,
/// its clock and its shell are wrapped by the linker and answered here. Message queues, mappings
/// and all other calls are the real kernel's; each of the wrapped ones can be made to fail.
#ifndef MAVKIT_TESTS_DEVICE_H
#define MAVKIT_TESTS_DEVICE_H

#include <ctime>
#include <string>
#include <vector>

/// One terminal. While it lives, paths below /mnt and /dev/pts stand in a temporary directory of
/// its own, which has the terminal's directories, and message queues of "/root" get keys of their
/// own. Its end removes all of it and puts every call back to normal. One at a time.
class Device {
public:
    Device();
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    static constexpr const char* kGeneralLog = "/mnt/sdcard/log/general.log";
    static constexpr const char* kTraceDir = "/mnt/sd/term/common/trace/";

    /// Where the terminal's path \p path stands on this machine.
    std::string Path(const std::string& path) const;
    /// Content of the file \p path of the terminal; empty when it is missing.
    std::string Read(const std::string& path) const;
    void Write(const std::string& path, const std::string& content) const;
    bool Exists(const std::string& path) const;
    void Remove(const std::string& path) const; ///< a file or a whole directory
    std::string GeneralLog() const { return Read(kGeneralLog); }

    /// Holds the clock (`time`) at \p now until the device ends.
    static void HoldClock(std::time_t now);

    /// Lets the call \p name (as in the source: "fopen", "msgsnd") fail with \p error: \p times
    /// times, after \p skip more calls that succeed. Every name can have one fault at a time.
    static void Fail(const char* name, int error, int times = 1, int skip = 0);
    /// How often the call \p name ran since the device started or ForgetCalls().
    static int Calls(const char* name);
    static void ForgetCalls();
    /// All names that Fail() and Calls() take.
    static std::vector<const char*> Names();

    /// The number that the next descriptor gets: one that has grown tells of a leak.
    static int LowestFreeDescriptor();

    bool hideTypes = false;             ///< `readdir` tells no type, as on some file systems
    std::vector<std::string> commands;  ///< what `system` would have run
    int commandResult = 0;              ///< what `system` answers
    std::vector<std::time_t> clockSets; ///< times to which the clock would have been set
    std::vector<int> msyncFlags;        ///< flags of every `msync`

private:
    std::string dir_;
};

/// Takes what the process writes to standard output while it lives.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;
    /// What was written since the start or the last call.
    std::string Take();

private:
    int saved_;
    int file_;
};

/// Sets the zone to the POSIX TZ text \p zone while it lives.
class Zone {
public:
    explicit Zone(const char* zone);
    ~Zone();
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
};

#endif
