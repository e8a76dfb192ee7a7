/// \file
/// A stream for diagnostic dumps. Values are pushed into it piece by piece; each piece is turned
/// into text at once and given to an open stdio stream, or, when there is none, to a trace object,
/// so that a dump of many pieces becomes one line with one prefix:
///
///     MavDump dump(LEVEL_INFO, 0);
///     dump << "meter " << 7 << ": ";
///     dump.DumpAsHex(bytes, length) << "\n";
///
/// No operation adds a blank, a separator or a line end of its own. A dump is used by one thread at
/// a time.
///
/// Each traced piece is a message of its own: its file is opened, written and closed again. Where
/// two processes dump into the same public file their pieces may mix. A dump that must stay in one
/// piece goes to a private file, or is built as one text and traced by one call.
#ifndef MAVKIT_DIAG_MAVDUMP_H
#define MAVKIT_DIAG_MAVDUMP_H

#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/TraceSetting.h"

#include <cstdio>

class strings;

/// The dump stream. Every operation but `OutputString` returns the dump, so that calls chain.
struct MavDump {
    std::FILE* stream; ///< where the pieces go; null: through `trace`. Never opened or closed here
    MavTrace trace;    ///< level, flags and prefix state of a dump without a stream

    /// A dump into `output`, which the caller opened and closes.
    explicit MavDump(std::FILE* output) : stream(output), trace(LEVEL_DISABLED, 0) {}
    /// A dump of level `level` with the channel flags `flags`, as for `MavTrace`.
    MavDump(int level, unsigned int flags) : stream(nullptr), trace(level, flags) {}

    /// Writes `text` unchanged; a null pointer writes nothing, not even the prefix.
    void OutputString(const char* text);

    MavDump& operator<<(const char* text);         ///< the text; "NULL" for a null pointer
    MavDump& operator<<(int value);                ///< "%d"
    MavDump& operator<<(unsigned int value);       ///< "%u"
    MavDump& operator<<(long long value);          ///< "%lld"
    MavDump& operator<<(unsigned long long value); ///< "%llu"
    MavDump& operator<<(double value);             ///< "%f": six decimals, however long the text
    MavDump& operator<<(const strings& list);      ///< all texts of the list, one after the other
    MavDump& operator<<(_TRACE_LEVEL level);       ///< its name, by the low 8 bits: "Info"
    MavDump& operator<<(_EXPORT_WAY way);          ///< its name, by the low 8 bits: "Public"

    /// A calendar time (the seconds of a `time_t`) in local time, `2024-03-05 06:07:08`; 0 writes
    /// "NullTime", and a time that has no calendar fields writes "invalid time " and its seconds. A
    /// `time_t` that is wider than `long` is printed as a number, like a `long long`: cast it to
    /// `long`.
    MavDump& operator<<(const long& seconds);

    /// All fields of a setting by name, separated by blanks: `prefixOn=1 level=Verbose
    /// traceWay=Stdout dataWay=None scheWay=None name=Command maxSize=50000`.
    MavDump& operator<<(const TraceSetting& setting);

    MavDump& DumpChar(char c);                    ///< the character itself
    MavDump& DumpAsHex(unsigned char value);      ///< "%02X"
    MavDump& DumpAsHex(unsigned short value);     ///< "%04X"
    MavDump& DumpAsHex(unsigned int value);       ///< "%08X"
    MavDump& DumpAsHex(unsigned long long value); ///< "%llX"

    /// `length` bytes at `data` by `GetPrintString`: "01 02 AB ", a line feed after each 36.
    MavDump& DumpAsHex(const unsigned char* data, unsigned int length);
    /// The 7-byte BCD record at `time` by `GetBcdTimeString`: `2024-03-05 06:07:08`.
    MavDump& DumpBcd7Time(const unsigned char* time);
};

#endif
