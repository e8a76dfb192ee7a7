/// \file
/// The vocabulary of the trace channel: levels, export ways, and the record that sets how a process
/// routes its trace output. The channel itself is in `MavTrace.h`.
#ifndef MAVKIT_DIAG_TRACESETTING_H
#define MAVKIT_DIAG_TRACESETTING_H

/// Level of a message, and threshold of the trace channel: a message passes when its level is less
/// than or equal to the threshold. Any int may be cast to it.
enum _TRACE_LEVEL : int {
    LEVEL_DISABLED = 0, ///< "Disabled"
    LEVEL_ERROR = 1,    ///< "Error"
    LEVEL_WARN = 2,     ///< "Warn"
    LEVEL_INFO = 3,     ///< "Info"
    LEVEL_VERBOSE = 4   ///< "Verbose"
};

/// Where the output of one channel goes. Any int may be cast to it.
enum _EXPORT_WAY : int {
    WAY_NONE = 0,    ///< "None": nothing is written
    WAY_STDOUT = 1,  ///< "Stdout": the process's standard output
    WAY_PUBLIC = 2,  ///< "Public": one file a channel, shared by all processes
    WAY_PRIVATE = 3, ///< "Private": the channel's file of this process, with its name
    WAY_TTYP0 = 4,   ///< "ttyp0": pseudo-terminal /dev/pts/0
    WAY_TTYP1 = 5,   ///< "ttyp1": /dev/pts/1
    WAY_TTYP2 = 6,   ///< "ttyp2": /dev/pts/2
    WAY_TTYP3 = 7,   ///< "ttyp3": /dev/pts/3
    WAY_TTYP4 = 8,   ///< "ttyp4": /dev/pts/4
    WAY_TTYP5 = 9    ///< "ttyp5": /dev/pts/5
};

/// How a process routes its trace output. Fill one of your own and point `MavTrace::Setting` at it:
///
///     static TraceSetting setting;
///     setting.level = LEVEL_INFO;
///     setting.traceWay = WAY_PRIVATE;
///     std::snprintf(setting.name, sizeof setting.name, "%s", "meterd"); // trace_meterd.log
///     MavTrace::Setting = &setting;
///
/// A fresh record has the prefix on, threshold Verbose, the trace channel on standard output, the
/// data and sche channels off, no name and a limit of 50000 bytes.
struct TraceSetting {
    /// 0 or 1: begin the first output of each trace object with tag and time.
    unsigned char prefixOn;
    unsigned char level;    ///< `_TRACE_LEVEL`: threshold of the trace channel
    unsigned char traceWay; ///< `_EXPORT_WAY` of the trace channel (channel 0)
    unsigned char dataWay;  ///< `_EXPORT_WAY` of the data channel (channel 1)
    unsigned char scheWay;  ///< `_EXPORT_WAY` of the sche channel (channel 2)
    /// The process's name in the file names of way "Private": up to 30 characters and a NUL. It is
    /// used as it is, so keep "/" out of it. A name that fills all 31 bytes without a NUL is read
    /// to its end and no further.
    char name[31];
    /// In bytes: an export file longer than this is rotated before the next message. Keep it below
    /// 1,000,500: a backup has no room for more, so the newest lines of a longer file are lost.
    int maxSize;

    constexpr TraceSetting()
        : prefixOn(1), level(LEVEL_VERBOSE), traceWay(WAY_STDOUT), dataWay(WAY_NONE),
          scheWay(WAY_NONE), name(), maxSize(50000) {}
};

/// The size of a buffer for the name of any level, its NUL included.
constexpr unsigned int TRACE_LEVEL_NAME_SIZE = sizeof "Disabled";
/// The size of a buffer for the name of any export way, its NUL included.
constexpr unsigned int TRACE_WAY_NAME_SIZE = sizeof "Private";

/// Code of the level called `name` (case ignored). A text that is not a name is read as a decimal
/// number, like `atoi` does, and gives its low 8 bits, so "3" is 3, "300" is 44, "-1" is 255 and
/// "Fatal" is 0; a null pointer is 0.
/// \return the code, 0 to 255: not checked against the table
unsigned char MAKE_TRACE_LEVEL_VAL(const char* name);

/// Copies the name of level `code` to `name` (`TRACE_LEVEL_NAME_SIZE` bytes): "Disabled" to
/// "Verbose", or "invalid" for a code above 4.
/// \return 0
int MAKE_TRACE_LEVEL_KEY(unsigned char code, char* name);

/// Code of the export way called `name`, by the rules of `MAKE_TRACE_LEVEL_VAL`.
/// \return the code, 0 to 255: not checked against the table
unsigned char MAKE_TRACE_WAY_VAL(const char* name);

/// Copies the name of export way `code` to `name` (`TRACE_WAY_NAME_SIZE` bytes): "None" to "ttyp5",
/// or "invalid" for a code above 9.
/// \return 0
int MAKE_TRACE_WAY_KEY(unsigned char code, char* name);

#endif
