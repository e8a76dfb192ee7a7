// The only form of a date and time as text.
#ifndef MAVKIT_TIME_DATETEXT_H
#define MAVKIT_TIME_DATETEXT_H

#include <cstddef>

namespace mavkit {

// For FillHex(), with a `Bcd7Time`: all of it, what follows the year, and the time of day.
inline constexpr char kDateAndTime[] = "##-#-# #:#:#";
inline constexpr char kAfterYear[] = "-#-# #:#:#";
inline constexpr char kTimeOfDay[] = "#:#:#";

inline constexpr std::size_t kDateAndTimeSize = sizeof "2024-03-05 06:07:08";
inline constexpr std::size_t kTimeOfDaySize = sizeof "06:07:08";

} // namespace mavkit

#endif
