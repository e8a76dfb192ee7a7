// Times as a person writes them.
#ifndef MAVKIT_TOOLS_MAVUTIL_VALUES_H
#define MAVKIT_TOOLS_MAVUTIL_VALUES_H

namespace mavutil {

// Reads a time: 2024-03-05[T06:07[:08]], 06:07[:08] today, @SECONDS since 1970, or now (also for a
// null text). Ends the program when the text is not a time.
long TimeOf(const char* text);

} // namespace mavutil

#endif
