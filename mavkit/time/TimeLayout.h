/// \file
/// Exchange between layouts of a packed-BCD date and time.
///
/// Every protocol lays out a time in its own way: with or without century, seconds or weekday,
/// most or least significant field first. A one-byte layout code names each of them, and
/// one operation converts any layout into any other.
///
/// The fields in their full order, from the second to the century; the weekday has no number:
///
/// | number | field                   | byte                       |
/// |--------|-------------------------|----------------------------|
/// | 1      | second                  | BCD 00 - 59                |
/// | 2      | minute                  | BCD 00 - 59                |
/// | 3      | hour                    | BCD 00 - 23                |
/// | -      | weekday                 | 0x00 Sunday - 0x06 Saturday |
/// | 4      | day of the month        | BCD 01 - 31                |
/// | 5      | month                   | BCD 01 - 12                |
/// | 6      | year within the century | BCD 00 - 99                |
/// | 7      | century                 | BCD, 0x20                  |
///
/// The layout code:
///
/// | bits   | meaning                                            |
/// |--------|----------------------------------------------------|
/// | 0 to 2 | start: the number of the field in the first byte   |
/// | 3      | not used, either value means the same              |
/// | 4 to 6 | end: the number of the field in the last byte      |
/// | 7      | the layout has a weekday byte                      |
///
/// A layout is the run of fields from start to end, upward or downward. The weekday byte, if any,
/// is between the hour and the day. When the run contains only one of the two, it is next to that
/// one, on the side of the missing one. The length is |end - start| + 1 bytes, and one more with a
/// weekday. A code is valid when start and end are both 1 to 7 and, with bit 7, the run contains
/// the hour or the day.
///
/// | code | bytes in order                                              |
/// |------|-------------------------------------------------------------|
/// | 0x17 | century year month day hour minute second (`Bcd7Time`)      |
/// | 0x16 | year month day hour minute second (`Bcd6Time`)              |
/// | 0x26 | year month day hour minute (`Bcd5Time`)                     |
/// | 0x61 | second minute hour day month year                           |
/// | 0x13 | hour minute second                                          |
/// | 0x97 | century year month day weekday hour minute second           |
/// | 0xE1 | second minute hour weekday day month year                   |
/// | 0x93 | weekday hour minute second                                  |
/// | 0xE4 | weekday day month year                                      |
#ifndef MAVKIT_TIME_TIMELAYOUT_H
#define MAVKIT_TIME_TIMELAYOUT_H

/// Reads a time in the layout `fmtIn` at `in` and writes it in the layout `fmtOut` at `out`.
///
/// Fields that the source does not have come from the current local time. A missing weekday is
/// computed when the source has the day of the month; otherwise it is today's. Bytes are copied
/// unchanged, valid or not. With `fmtIn` and `fmtOut` equal the bytes are copied and the clock is
/// not read. `in` and `out` may be the same buffer, or overlap: all is read before anything is
/// written. Uses the static result area of `localtime`.
/// \return 0; -1 when a code is invalid, with nothing written
int ExchangeBCDTime(unsigned char fmtIn, unsigned char* in, unsigned char fmtOut,
                    unsigned char* out);

#endif
