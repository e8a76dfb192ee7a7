// The one form of a date and time as a text.
#ifndef MAVKIT_TIME_DATETEXT_H
#define MAVKIT_TIME_DATETEXT_H

#include <cstddef>

namespace mavkit {

// For FillHex(), with a `Bcd7Time`; the time of day and what follows the year are parts of it.
inline constexpr char kDateAndTime[] = "##-#-# #:#:#";
inline constexpr const char* kAfterYear = kDateAndTime + 2;
inline constexpr const char* kTimeOfDay = kDateAndTime + 7;

inline constexpr std::size_t kDateAndTimeSize = sizeof "2024-03-05 06:07:08";
inline constexpr std::size_t kTimeOfDaySize = sizeof "06:07:08";

} // namespace mavkit

#endif
