/// \file
/// The trace channel: levelled output of every resident process, routed while it runs to standard
/// output, to a size-limited file on the card or to a pseudo-terminal.
///
///     MavTrace(LEVEL_INFO, 0)("meter %s: %d W\n", name, watts);
///
/// A message may go to three channels, each by the export way that the active TraceSetting gives
/// it:
///
/// | channel | number | takes a message when       | way field  | public file | private file   |
/// |---------|--------|----------------------------|------------|-------------|----------------|
/// | trace   | 0      | its level <= setting level | `traceWay` | trace.log   | trace_NAME.log |
/// | data    | 1      | flags bit 0 is set         | `dataWay`  | data.log    | data_NAME.log  |
/// | sche    | 2      | flags bit 1 is set         | `scheWay`  | sche.log    | sche_NAME.log  |
///
/// The files are in the directory /mnt/sd/term/common/trace/, which must exist: the library creates
/// none. A file is opened for each message and closed after it, and a message of any length reaches
/// it in one write with its prefix, so the lines of several processes never mix. (Where there is no
/// memory for a message above 4 KiB it is written in pieces.)
///
/// With `prefixOn` the first output of each object begins with the tag and the local time, as in
/// `kor(03-05 06:07:08):`.
///
/// **Rotation.** A file longer than the setting's `maxSize` is rotated before the next message: its
/// first 1,000,500 bytes, filled up with zero bytes to exactly that length, become NAME.log_bak,
/// replacing the previous backup, and the message becomes the first one in the emptied file. When
/// the card has no room for the backup there is none afterwards: the previous one is lost too.
/// Processes do not wait for each other: when two find the same file too long at once, both rotate
/// it. Then the second may replace the backup by the few lines that the file has since the first
/// emptied it, and lines that another process wrote between the reading and the emptying are lost.
/// Processes that must not lose lines in this way use private files.
///
/// **Failures.** When a file or terminal cannot be opened, the message is dropped for that channel
/// and the process goes on. Text that a full card has no room for is lost; the beginning of a
/// message may stay in the file without its end.
///
/// **Terminals.** A pseudo-terminal never becomes the controlling terminal of the process, and a
/// write to it never waits: text that does not fit into a terminal that nobody reads is dropped.
#ifndef MAVKIT_DIAG_MAVTRACE_H
#define MAVKIT_DIAG_MAVTRACE_H

#include "mavkit/diag/TraceSetting.h"

#include <cstdio>

/// A trace object: built for one message, or for one dump of many pieces that share a prefix.
struct MavTrace {
    int level;          ///< `_TRACE_LEVEL` of the message
    unsigned int flags; ///< bit 0: also to the data channel; bit 1: also to the sche channel
    bool printed;       ///< whether this object has written its prefix

    /// A message of level `messageLevel` (a `_TRACE_LEVEL`) for the channels in `channelFlags`
    /// (bits 0 and 1).
    MavTrace(int messageLevel, unsigned int channelFlags)
        : level(messageLevel), flags(channelFlags), printed(false) {}

    /// Writes the printf-style `format` with its arguments to every channel that takes the
    /// message: trace, data, sche, in this order. No line end is added. The first channel that is
    /// written gets the prefix when this object has not written it yet. A message that no channel
    /// takes costs two comparisons; the clock is not read.
    void operator()(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// Opens the stream for one message of channel `channel` (0 to 2) on export way `way`. A file
    /// longer than `maxSize` bytes is rotated first (a negative limit: always). `name` is the
    /// process name of way "Private"; a null one counts as empty.
    /// \return the stream, which the caller closes unless it is `stdout`; null when the way is
    /// "None" or unknown, a file way is asked for a channel above 2, the path has 100 characters or
    /// more, or the file or terminal cannot be opened
    std::FILE* GetExportFile(unsigned char channel, unsigned char way, const char* name,
                             long maxSize) const;

    /// The record in use: `*Setting`, or the built-in default while `Setting` is null. The built-in
    /// one is reset to its own values at every call and every message: prefix on, level Verbose,
    /// trace channel to standard output, the others off, name "Command", limit 50000 bytes.
    /// \return the active record, valid until `Setting` changes
    const TraceSetting& GetSetting() const;

    static const char Prefix[];   ///< the tag at the head of the prefix: "kor"
    static TraceSetting* Setting; ///< the process's own record, or null for the built-in default;
                                  ///< it must outlive every trace call
};

#endif
