/// \file
/// Setting the system clock to a time that the terminal has received.
///
/// The new time is a `Bcd6Time` in local time: year within the century (2000 to 2099), month, day,
/// hour, minute, second, a packed-BCD byte each; 2024-03-05 06:07:08 is 24 03 05 06 07 08. Callers
/// check it beforehand: `IsBcd7Time` does, with a century byte of 0x20 in front. Both operations
/// need the right to set the clock; they do not report when it is missing.
#ifndef MAVKIT_TIME_SYSTEMCLOCK_H
#define MAVKIT_TIME_SYSTEMCLOCK_H

/// Sets the system clock to the `Bcd6Time` at `t` by the kernel call. The clock is left alone
/// when it is less than 2 seconds off, or when `mktime` cannot make a time of `t`.
/// \return 0 in every case
int Set_SysTime(char* t);

/// Sets the system clock to the `Bcd6Time` at `t` by the shell command `date -s`, for 2024-03-05
/// 06:07:08 "date -s 030506072024.08", and waits for it to end. The latest date taken is
/// 2038-01-10; the bytes of year, month and day are compared as they are.
///
/// The `date` of BusyBox 1.35 and of GNU coreutils 9.1 refuses this text after `-s`, and that is
/// not reported; the one of toybox 0.8.9 takes it. Call `Set_SysTime` unless the terminal's own
/// `date` was tried.
/// \return 0 once the command was run, whatever its result; -1 when the date is refused and nothing
/// was run
int Set_SYS_HWClock(char* t);

#endif
