// Times and records as texts, so that the tables of the time tests are easy to read.
#ifndef MAVKIT_TESTS_TIMETEXT_H
#define MAVKIT_TESTS_TIMETEXT_H

#include "device/Device.h"

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>

// Zones by their rules, which need no zone files.
constexpr const char* kUtc = "UTC0";
constexpr const char* kShanghai = "CST-8";
constexpr const char* kKolkata = "IST-5:30";
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kSydney = "AEST-10AEDT,M10.1.0,M4.1.0/3";

// The time of "2024-03-05 06:07:08" in the zone that is set. The year may be left out, and so may
// all from the hour, the minute or the second on.
inline long At(const std::string& text) {
    std::tm f = {};
    std::sscanf((text[2] == '-' ? "2024-" + text : text).c_str(), "%d-%d-%d %d:%d:%d", &f.tm_year,
                &f.tm_mon, &f.tm_mday, &f.tm_hour, &f.tm_min, &f.tm_sec);
    f.tm_year -= 1900;
    f.tm_mon -= 1;
    f.tm_isdst = -1;
    return static_cast<long>(std::mktime(&f));
}

inline std::tm FieldsOf(std::time_t t) { return *std::localtime(&t); }

inline std::string Text(const std::tm& f) {
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &f));
}

inline std::string Text(long t) { return Text(FieldsOf(t)); }

// The bytes of the pairs of hexadecimal digits in a text, then zeros up to `size`.
inline std::string Bytes(const std::string& text, size_t size = 0) {
    std::string bytes;
    for (size_t at = 0; (at = text.find_first_of("0123456789ABCDEF", at)) != text.npos; at += 2)
        bytes += static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16));
    bytes.resize(std::max(size, bytes.size()));
    return bytes;
}

inline unsigned char* Unsigned(const std::string& bytes) {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
}

#endif
