/// \file
/// Bytes and times as text for people: a block of bytes as hex digits, a BCD time as date and time.
/// Both append to the caller's string.
#ifndef MAVKIT_DIAG_PRINTSTRING_H
#define MAVKIT_DIAG_PRINTSTRING_H

#include <string>

/// Appends `length` bytes at `data` to `out`. With `asHex` each byte is two upper-case hex digits
/// and a blank, with a line feed after every 36th byte; otherwise each byte is one character,
/// unchanged, zero bytes included. A `maxLen` other than 0 limits the rendering to that many bytes,
/// and "......" follows when this cut the block short. A length of 0, or null data, appends
/// nothing. The data is not part of `out`, whose characters move when it grows.
void GetPrintString(std::string& out, const void* data, unsigned int length, bool asHex,
                    unsigned int maxLen);

/// Appends the 7-byte BCD record at `time` (century, year, month, day, hour, minute, second) to
/// `out` as 19 characters, `2024-03-05 06:07:08`. Bytes that are not BCD print as their hex digits;
/// a null pointer appends nothing.
void GetBcdTimeString(std::string& out, const unsigned char* time);

#endif
