/// \file
/// Fixed-width hexadecimal text, two-digit decimal text, and the cutting of a "key=value" line.
///
/// These functions work on plain zero-terminated texts in buffers of the caller, keep no state and
/// allocate nothing. The readers never fail: they share one digit rule that gives every character a
/// value from 0 to 15. Check text from outside with `isbcdchar` first. The writers use the
/// upper-case letters A to F, most significant digit first, and always write leading zeros and the
/// terminator.
///
/// The digit rule, for a character c taken as a signed 8-bit value:
///
/// | c                | value            | so                                   |
/// |------------------|------------------|--------------------------------------|
/// | below 'A' (0x41) | (c - 0x30) & 0x0F | '0'..'9' give 0..9                   |
/// | others           | (c - 0x37) & 0x0F | 'A'..'F' and 'a'..'f' give 10..15    |

#ifndef MAVKIT_ENCODING_HEXTEXT_H
#define MAVKIT_ENCODING_HEXTEXT_H

/// Reads one hex digit by the digit rule above.
/// \return 0 to 15, for every character.
unsigned char Char_No1Hex(char c);

/// Reads the first two characters of `text` as a byte, the first as its high nibble. Both are
/// always read, so `text` must have at least two characters, the terminator included: "A" reads as
/// 0xA0. The text is not changed.
/// \return the byte; 0 for a null text.
unsigned char String_Asc2TouChar(char* text);

/// Reads up to four hex digits. A longer text is read to its fourth character; a shorter one as if
/// zeros were in front of it: "12345" reads as 0x1234, "1A" as 0x001A.
/// \return the 16-bit value; 0 for an empty or null text.
unsigned short String_Asc4TouShort(const char* text);

/// Reads up to eight hex digits in the same way as `String_Asc4TouShort`: "123456789" reads as
/// 0x12345678, "FF" as 0xFF. The text is not changed.
/// \return the 32-bit value; 0 for an empty or null text.
unsigned int String_Asc8TouLong(char* text);

/// \return the hex character, '0' to '9' or 'A' to 'F', of the byte's low nibble.
char Get_Low4ofChar(unsigned char byte);

/// Writes a byte as 2 hex characters and the terminator: 0x0A gives "0A". `text` has room for 3
/// characters.
void String_uCharToAsc2(unsigned char value, char* text);

/// Writes a 16-bit value as 4 hex characters and the terminator: 0xBEEF gives "BEEF". `text` has
/// room for 5 characters.
void String_uShortToAsc4(unsigned short value, char* text);

/// Writes the low 32 bits of `value` as 8 hex characters and the terminator: 1 gives "00000001".
/// `text` has room for 9 characters.
void String_uLongToAsc8(unsigned long value, char* text);

/// Reads a decimal number of two digits from its tens and its units character.
/// \return 0 to 99, or -2 when either is not a character '0' to '9'.
int No2Char_Dec1(char tens, char units);

/// Reports whether a character is a hex digit. Despite the name, the letters are included.
/// \return 1 for '0' to '9', 'a' to 'f' and 'A' to 'F', otherwise 0.
int isbcdchar(char c);

/// Cuts `line` at the first separator: `key` receives the text before it, `value` all the text
/// after it, further separators included. Nothing is trimmed: blanks and a trailing line feed are
/// copied unchanged. Each of the two buffers has room for the whole line with its terminator, and
/// neither overlaps the line or the other. The line itself is not changed. A zero separator is
/// never found.
/// \return 0 when the separator was found; -2 when it was not or `line` is null, with both buffers
/// made empty texts.
int String_CutLine(char* key, char* value, char* line, char separator);

#endif
