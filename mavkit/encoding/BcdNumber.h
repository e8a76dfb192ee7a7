/// \file
/// Numbers in packed BCD: conversion, comparison, subtraction, and re-scaling between digit
/// layouts.
///
/// A packed BCD byte holds two decimal digits, the more significant one in the high nibble: 0x59 is
/// 59. Two byte orders are used, and no function mixes them:
///
/// | order      | first byte             | used by                                             |
/// |------------|------------------------|-----------------------------------------------------|
/// | high-first | most significant pair  | `Comp_BCD`, `Sub_84BCD` (and the time records)      |
/// | low-first  | least significant pair | all others                                          |
///
/// A low-first number is described by two counts: I integer digits and D decimal digits, I + D
/// digits in (I + D + 1) / 2 bytes. Digit k (k = 0 is the last decimal) is the low nibble of byte k
/// / 2 when k is even and its high nibble when k is odd. When I + D is odd, the last high nibble
/// carries no digit. 123.45 with I = 4 and D = 2:
///
/// | byte | value | digits                            |
/// |------|-------|-----------------------------------|
/// | 0    | 0x45  | tenths and hundredths             |
/// | 1    | 0x23  | tens and units                    |
/// | 2    | 0x01  | thousands and hundreds            |
///
/// No function validates its digits: a nibble above 9 counts with its value 10 to 15 unless an
/// operation says otherwise. Nothing keeps state, nothing allocates, and no result depends on the
/// locale. Pointers must be valid for as many bytes as the counts say, unless an operation says
/// otherwise.
///
/// The conversions from a double go through libc's "%f". On a tie (0.125 to two decimals) glibc and
/// musl round to even, uClibc rounds up; and uClibc has at most 17 significant digits and writes
/// zeros for the others. A number of at most 15 digits gives the same bytes on every libc when it
/// is written to a layout of at most 15 digits that has all its decimals.

#ifndef MAVKIT_ENCODING_BCDNUMBER_H
#define MAVKIT_ENCODING_BCDNUMBER_H

/// Packs a binary value from 0 to 99 into a BCD byte; of a value from 100 to 127 the last two
/// digits are packed (120 gives 0x20). A negative value has no meaningful result.
/// \return the BCD byte.
unsigned char cbcd(char value);

/// Unpacks a BCD byte: high nibble x 10 + low nibble, so 0x99 gives 99.
/// \return the value, truncated to 8 bits when nibbles above 9 make it larger.
char bcdc(char bcd);

/// Compares two high-first numbers of `count` bytes. Bytes compare as unsigned, which is the
/// numeric order of BCD. Nothing is read when `count` is 0.
/// \return 1 if `a` > `b`, -1 if `a` < `b`, 0 if they are equal or `count` is 0.
int Comp_BCD(char* a, char* b, unsigned char count);

/// Subtracts two 8.4 amounts: 6 bytes, high-first, eight integer and four decimal digits (0x00 0x12
/// 0x34 0x56 0x78 0x90 is 00123456.7890). `out` may be the same buffer as `a` or `b`.
/// \return 0 and `out` = `a` - `b`; -2 and six zero bytes in `out` when `b` is larger than `a`.
int Sub_84BCD(char* out, char* a, char* b);

/// Converts the magnitude of `value` to a low-first number; the sign is not stored.
///
/// The digit count is made even first, and the counts that were used are written back: when I + D
/// is odd and below 16, I grows by one; otherwise I (or D, when I is 0) shrinks by one. `out` has
/// room for (I + D) / 2 bytes of the written-back counts. The value is rounded to D decimals as
/// printf's %f rounds. Integer digits that do not fit are dropped without a report (123.45 with I =
/// 2, D = 2 gives 0x45 0x23). A magnitude below 0.0001, an infinity or a NaN gives all zeros.
/// \return 0.
int DoubleToBCD(double value, unsigned char& integerDigits, unsigned char& decimalDigits,
                unsigned char* out);

/// Reads a low-first number of `integerDigits` + `decimalDigits` digits, any counts from 0 to 255.
/// A nibble above 9 ends the number, which is then made of the digits before it (0xA5 0x01 with I =
/// 2, D = 2 gives 1.0); no digits give 0.0.
/// \return the double nearest to the number. For a number above 9,007,199,254,740,992 (read without
/// its point) or with more than 22 decimals it is the result of libc's `strtod`, which on uClibc
/// may be wrong in the last bits.
double BCDToDouble(const unsigned char* data, unsigned char integerDigits,
                   unsigned char decimalDigits);

/// Re-scales a low-first number from one layout to another, by `BCDToDouble` and `DoubleToBCD`:
/// decimals are rounded, integer digits that do not fit are dropped. An odd target layout is made
/// even as `DoubleToBCD` does (with 16 and 15 digits, to 15 and 15), but the counts used are not
/// returned. `target` has room for (targetInteger + targetDecimal + 1) / 2 bytes.
/// \return 0; -1 when any of the four counts is above 16, `target` untouched.
int BCDExchange(unsigned char* source, unsigned char sourceInteger, unsigned char sourceDecimal,
                unsigned char* target, unsigned char targetInteger, unsigned char targetDecimal);

/// Reads an integer of `count` low-first BCD bytes: 0x78 0x56 0x34 0x12 gives 12345678.
/// \return the value; 0 when `count` is 0 or negative; -1 when `count` is above 4 (the value might
/// not fit the result) or `data` is null.
int BcdToDec(int count, unsigned char* data);

/// \return 10 to the power of `exponent`: infinity above 308, 0 below -308.
double mypow(int exponent);

/// Reads a low-first number of `count` digits, the least significant of which has the weight 10 to
/// the power of `exponent`: `basechange(-2, 6, data)` of 0x45 0x23 0x01 is 123.45. The digits are
/// summed as doubles from the least significant up; a zero digit adds nothing, whatever its power.
/// \return the value; 0.0 when `count` is 0.
double basechange(int exponent, unsigned int count, const unsigned char* data);

/// Converts a value to a low-first number of I + D digits. The counts are not changed. The text of
/// the value in printf's "%I.Df" is packed from its last character, a minus sign as the nibble 0xD
/// and a blank as 0 (-1.5 with D = 2, I = 6 and `size` 3 gives 0x50 0xD1 0x00). What does not fit
/// is dropped: the first digits, and the minus sign before them. -12.5 with D = 1, I = 2 gives 0x25
/// 0x01, the same as 12.5. For negative numbers, ask for one more integer digit than they have.
///
/// `size` is the number of bytes of `out` that are cleared first. Up to (I + D + 1) / 2 bytes are
/// written whatever `size` is, and `out` has room for them. An infinity or a NaN gives all zeros.
/// \return 0; -1 when I is 0, with nothing written.
int basechange_reverse(double value, unsigned char decimalDigits, unsigned char integerDigits,
                       unsigned char size, unsigned char* out);

#endif
