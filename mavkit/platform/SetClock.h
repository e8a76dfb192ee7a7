/// \file
/// The kernel's clock, set to a whole second. `stime` is what the terminal's libc has for it;
/// glibc gave it up in 2.31 for `clock_settime`, the call of POSIX.
#ifndef MAVKIT_PLATFORM_SETCLOCK_H
#define MAVKIT_PLATFORM_SETCLOCK_H

#include <ctime>

namespace mavkit {

/// Sets the system clock to `t`; 0, or -1 with the error number set.
inline int SetClock(time_t t) {
#ifdef MAVKIT_HAVE_STIME
    return stime(&t);
#else
    const timespec now = {t, 0};
    return clock_settime(CLOCK_REALTIME, &now);
#endif
}

} // namespace mavkit

#endif
