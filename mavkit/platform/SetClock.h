// Sets the kernel's clock to a whole second. The terminal's libc has `stime` for it; glibc removed
// that call in 2.31 in favour of POSIX's `clock_settime`.
#ifndef MAVKIT_PLATFORM_SETCLOCK_H
#define MAVKIT_PLATFORM_SETCLOCK_H

#include <ctime>

namespace mavkit {

// Sets the system clock to `t`. Returns 0, or -1 with errno set.
inline int SetClock(std::time_t t) {
#ifdef MAVKIT_HAVE_STIME
    return stime(&t);
#else
    const timespec now = {t, 0};
    return clock_settime(CLOCK_REALTIME, &now);
#endif
}

} // namespace mavkit

#endif
