// Times as a person writes them.
#ifndef MAVKIT_TOOLS_MAVUTIL_VALUES_H
#define MAVKIT_TOOLS_MAVUTIL_VALUES_H

namespace mavutil {

// Reads a time: 2024-03-05[T06:07[:08]], 06:07[:08] today, @SECONDS since 1970, or now, which a
// null text stands for too. Ends the program where it is none.
long TimeOf(const char* text);

} // namespace mavutil

#endif
