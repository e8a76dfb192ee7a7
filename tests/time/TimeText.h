/// \file
/// Times and records as texts, so that a table of a time test reads as what it says.
#ifndef MAVKIT_TESTS_TIMETEXT_H
#define MAVKIT_TESTS_TIMETEXT_H

#include <cstdio>
#include <ctime>
#include <string>

/// Zones by their rules, which need no zone files.
constexpr const char* kUtc = "UTC0";
constexpr const char* kShanghai = "CST-8";
constexpr const char* kKolkata = "IST-5:30";
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kSydney = "AEST-10AEDT,M10.1.0,M4.1.0/3";

/// The time of "2024-03-05 06:07:08" (or of the date alone) in the zone that is set.
inline long At(const char* text) {
    std::tm f = {};
    std::sscanf(text, "%d-%d-%d %d:%d:%d", &f.tm_year, &f.tm_mon, &f.tm_mday, &f.tm_hour, &f.tm_min,
                &f.tm_sec);
    f.tm_year -= 1900;
    f.tm_mon -= 1;
    f.tm_isdst = -1;
    return static_cast<long>(std::mktime(&f));
}

inline std::string Text(long t) {
    const std::time_t time = t;
    const std::tm* const f = std::localtime(&time);
    char text[64] = "none";
    if (t != -1 && f != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", f);
    }
    return text;
}

/// The bytes that a text of hexadecimal digits stands for; "-", ":" and blanks do not count.
inline std::string Bytes(const std::string& hex) {
    std::string digits;
    for (const char c : hex) {
        if (c != ' ' && c != '-' && c != ':') {
            digits += c;
        }
    }
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

/// The `Bcd7Time` record of `t`.
inline std::string RecordOf(long t) { return Bytes(Text(t)); }

inline unsigned char* Unsigned(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

#endif
