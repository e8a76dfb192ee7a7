/// \file
/// What the two programs of the example agree on: the frame that a meter sends, the messages that
/// they exchange, and the configuration in terminal.conf.
///
/// A frame is 18 bytes. All numbers are packed BCD, least significant byte first:
///
/// | offset | bytes | content                                                            |
/// |--------|-------|--------------------------------------------------------------------|
/// | 0      | 1     | 0x68, the start                                                    |
/// | 1      | 1     | 0x12, the length of the whole frame                                |
/// | 2      | 2     | meter number, 1 to 9999                                            |
/// | 4      | 6     | time of the reading: second minute hour day month year, local time |
/// | 10     | 4     | energy in kWh, six integer digits and two decimals                 |
/// | 14     | 2     | minutes that the frame has waited to be fetched                    |
/// | 16     | 2     | CRC-16/IBM-3740 of bytes 0 to 15, as a binary number, low byte first |
///
/// Frames reach the collector as text, one frame a line, each byte two hex digits; empty lines and
/// lines that begin with "#" are skipped. They go on to the uplink as messages on a queue, each an
/// IpcInfo whose `type` is also the type of the message:
///
/// | type          | `first`         | `second`              | `bytes1`                   |
/// |---------------|-----------------|-----------------------|----------------------------|
/// | `kReading`    | number of meter | 0                     | the frame as 36 hex digits |
/// | `kEndOfInput` | readings sent   | frames found damaged  | nothing                    |
///
/// (The strings of an IpcInfo are sent as text, which a zero byte would end. So the frame is sent
/// as digits.)
#ifndef EXAMPLES_TERMINAL_TERMINAL_H
#define EXAMPLES_TERMINAL_TERMINAL_H

#include "mavkit/mavkit.h"

#include <csignal>
#include <set>
#include <string>

constexpr unsigned int kFrameLength = 18;
enum MessageType : int { kReading = 1, kEndOfInput = 2 };

/// The content of a good frame.
struct Reading {
    unsigned int meter;
    unsigned char time[7];   ///< a Bcd7Time
    unsigned char energy[4]; ///< as in the frame
    unsigned int waited;     ///< minutes
};

/// \return the kWh of an energy field
double EnergyOf(const unsigned char* energy);

/// Decodes `text`, a frame in hex digits, after a check of everything from its length to the ranges
/// of its fields: the bytes go to `frame`, which must be empty, and the content to `reading`.
/// \return null; or what is wrong with the frame
const char* DecodeFrame(const std::string& text, ByteString* frame, Reading* reading);

/// A terminal's folder, as configured.
struct Terminal {
    std::string conf;             ///< path of terminal.conf
    std::set<std::string> frames; ///< paths of the *.frames files, sorted
    TraceSetting trace;           ///< how this process traces
    int queue = 0;                ///< flag of the message queue
    unsigned int lifetime = 0;    ///< seconds until a reading has expired; 0: never
    BitMask meters;               ///< those that are expected to report
};

/// \return whether the file or folder at `path` can be read; if not, the reason is on standard
///         error
bool CheckReadable(const std::string& path);

/// Finds the files of `folder`, reads the configuration for the program called `program` and makes
/// its trace setting the one in force.
/// \return false, with the reason on standard error, when something is missing or wrong
bool LoadTerminal(const char* folder, const char* program, Terminal* terminal);

/// Set by SIGHUP, SIGINT, SIGQUIT and SIGTERM after FinishOnSignals(): the program must end soon.
extern volatile std::sig_atomic_t gStop;
void FinishOnSignals();
void Nap(long milliseconds);

#endif
