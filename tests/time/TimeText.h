/// \file
/// Times and records as texts, so that a table of a time test reads as what it says.
#ifndef MAVKIT_TESTS_TIMETEXT_H
#define MAVKIT_TESTS_TIMETEXT_H

#include <cctype>
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

inline std::string Text(const std::tm& f) {
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &f));
}

inline std::string Text(long t) {
    const std::time_t time = t;
    return t == -1 ? "none" : Text(*std::localtime(&time));
}

/// The bytes that the hexadecimal digits of a text stand for; what is between them does not count.
inline std::string Bytes(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        digits += std::isxdigit(static_cast<unsigned char>(c)) ? std::string(1, c) : "";
    }
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

inline unsigned char* Unsigned(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

#endif
