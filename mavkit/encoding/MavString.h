/// \file
/// A list of texts with a splitter, and the reading of bytes written as hex digits in a text
/// or file.

#ifndef MAVKIT_ENCODING_MAVSTRING_H
#define MAVKIT_ENCODING_MAVSTRING_H

#include "mavkit/encoding/ByteString.h"

#include <string>
#include <vector>

/// An ordered list of texts: a standard vector of strings that can also split a text into itself.
class strings : public std::vector<std::string> {
public:
    /// Splits a text at every occurrence of the delimiter, taken as a whole and searched from left
    /// to right, and appends the fields; the list is never cleared. An empty field (between two
    /// delimiters, before the first, after the last, or the empty text itself) is appended as an
    /// empty string when `keepEmpty` is true and left out otherwise. A null or empty delimiter does
    /// not split: the whole text is appended, even an empty one. Both texts may be part of the list
    /// itself. Memory for all new fields is reserved at once.
    ///
    /// | text, delimiter | `keepEmpty` false | `keepEmpty` true     |
    /// |-----------------|-------------------|----------------------|
    /// | "a,b,,c", ","   | "a" "b" "c"       | "a" "b" "" "c"       |
    /// | "a,", ","       | "a"               | "a" ""               |
    /// | "", ","         | nothing           | ""                   |
    /// | "a-b", "--"     | "a-b"             | "a-b"                |
    ///
    /// \return the number of strings appended; 0 for a null text. When memory runs out the standard
    /// exception is passed on, with some of the fields appended.
    int addfrom(const char* text, const char* delimiter, bool keepEmpty);
};

/// Reads hex digits written in pairs, with anything between the pairs, and appends the bytes.
///
/// A digit is 0-9, a-f or A-F. Other characters are skipped where a byte could begin. A digit
/// begins a byte and consumes the next character too: if that is a digit, the byte is made of the
/// two; if not, the character is dropped and the byte is the first digit alone. A digit at the end
/// of the text is a byte alone, too.
///
/// | text      | bytes     |
/// |-----------|-----------|
/// | "0A 1B"   | 0A 1B     |
/// | "ABC"     | AB 0C     |
/// | "12:34:5" | 12 34 05  |
/// | "123 4"   | 12 03 04  |
///
/// A null text reads as an empty one.
/// \return 0. When memory runs out the standard exception is passed on and nothing is appended.
int ParseHexStr(const char* text, ByteString& bytes);

/// Reads a text file of hex digits as `ParseHexStr` reads a text, and appends the bytes. Line ends
/// are ordinary characters that are not digits. The file is read by lines, in pieces of at most
/// 1022 characters; what follows a zero byte in a piece is ignored. The pieces pass through one
/// buffer of the process, so two threads must not read at once.
/// \return 0 after reading; -1, with nothing appended, when the file cannot be opened or a read
/// fails.
int ParseHexFromFile(const char* path, ByteString& bytes);

#endif
