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
/// Frames reach the collector as text, one frame a line, each byte two hex digits; an empty line
/// and one that begins with "#" say nothing. They go on to the uplink as messages on a queue, each
/// an IpcInfo whose `type` is also the type of the message:
///
/// | type          | `first`         | `second`              | `bytes1`                   |
/// |---------------|-----------------|-----------------------|----------------------------|
/// | `kReading`    | number of meter | 0                     | the frame as 36 hex digits |
/// | `kEndOfInput` | readings sent   | frames found damaged  | nothing                    |
///
/// (The strings of an IpcInfo travel as text: a zero byte would end them. Hence the digits.)
#ifndef EXAMPLES_TERMINAL_TERMINAL_H
#define EXAMPLES_TERMINAL_TERMINAL_H

#include "mavkit/mavkit.h"

#include <csignal>
#include <set>
#include <string>

constexpr unsigned int kFrameLength = 18;
enum MessageType : int { kReading = 1, kEndOfInput = 2 };

/// What a good frame says.
struct Reading {
    unsigned int meter;
    unsigned char time[7];   ///< a Bcd7Time
    unsigned char energy[4]; ///< as in the frame
    unsigned int waited;     ///< minutes
};

/// \return the kWh of an energy field
double EnergyOf(const unsigned char* energy);

/// Checks \p text, a frame in hex digits, from its length to the ranges of its fields, and only
/// then believes it. \return null with the bytes in \p frame, which was empty, and the content in
/// \p reading; or what is wrong with the frame
const char* DecodeFrame(const std::string& text, ByteString* frame, Reading* reading);

/// A terminal's folder, as configured.
struct Terminal {
    std::string conf;             ///< path of terminal.conf
    std::set<std::string> frames; ///< paths of the *.frames files, sorted
    TraceSetting trace;           ///< how this process traces
    int queue = 0;                ///< flag of the message queue
    unsigned int lifetime = 0;    ///< seconds that a reading is worth something
    BitMask meters;               ///< those that ought to be heard from
};

/// Finds the files of \p folder, reads the configuration for the program called \p program and
/// makes its trace setting the one in force. \return false, with the reason on standard error,
/// when something is missing or not as it should be
bool LoadTerminal(const char* folder, const char* program, Terminal* terminal);

/// Set by SIGINT and SIGTERM once FinishOnSignals() has run: the program comes to its end.
extern volatile std::sig_atomic_t gStop;
void FinishOnSignals();
void Nap(long milliseconds);

#endif
