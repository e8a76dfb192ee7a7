/// \file
/// mavutil, the command for a person at a terminal's console: what its verbs share.
#ifndef TOOLS_MAVUTIL_H
#define TOOLS_MAVUTIL_H

#include "mavkit/mavkit.h"

#include <cstdio>
#include <string>

enum Status : int { kDone = 0, kFailed = 1, kBad = 2 }; ///< exit statuses: 2 for bad arguments

/// A verb, called with the word after it when it has several operations, the arguments of that one,
/// which are as many as verbs.inc says, and null for each that was left out.
typedef int Verb(const std::string& operation, char** args);
Verb RunQueue, RunTrace, RunTime, RunMask, RunRecord, RunHex, RunCrc, RunScan, RunShm;

/// Where results go. The process's `stdout` is standard error, so that what the library itself
/// prints (assertion reports, log lines without a card) never mixes with them.
extern std::FILE* out;
extern const char *bold, *plain; ///< around what is to catch the eye; empty but on a terminal

/// Ends the program with one line on standard error.
[[noreturn]] void Quit(Status status, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
/// A number, decimal or with 0x in hex; `none` for null; anything else is a bad argument.
long Number(const char* text, const char* what, long min, long max, long none = 0);
ByteString HexOf(char** args);                               ///< hex digits of all of them
std::string HexLine(const void* bytes, std::size_t length);  ///< bytes as hex digits, on one line
std::string Readable(const void* bytes, std::size_t length); ///< as text that steers no terminal
/// A file of up to 16 MiB, or standard input for null and "-"; or Quit().
std::string ReadAll(const char* path);
/// The pause between two looks, 500 ms for null. \return false when it is time to end: at Ctrl-C
bool Wait(const char* milliseconds);

#endif
