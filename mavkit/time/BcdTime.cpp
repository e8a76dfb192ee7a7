#include "mavkit/time/BcdTime.h"

#include "mavkit/encoding/BcdByte.h"
#include "mavkit/encoding/HexDigits.h"
#include "mavkit/time/DateText.h"
#include "mavkit/time/LocalTime.h"

#include <cstring>

namespace {

constexpr int kRecord = 7;

char dateText[mavkit::kDateAndTimeSize];
char clockText[mavkit::kTimeOfDaySize];

// The `Bcd7Time` of `t`: zero bytes, and false, where `t` has no local fields.
bool Record(std::time_t t, char* out) {
    const std::tm* const f = std::localtime(&t);
    if (f == nullptr) {
        std::memset(out, 0, kRecord);
        return false;
    }
    mavkit::ToBcd7(*f, out);
    return true;
}

char ToBcd(int value) {
    return static_cast<char>(mavkit::ToBcdByte(static_cast<unsigned int>(value)));
}

int FromBcd(char byte) {
    return static_cast<int>(mavkit::FromBcdByte(static_cast<unsigned char>(byte)));
}

int TwoDigits(const char* from) { return (from[0] - '0') * 10 + (from[1] - '0'); }

std::time_t TimeOrNow(const long* t) {
    return t != nullptr ? static_cast<std::time_t>(*t) : std::time(nullptr);
}

} // namespace

namespace mavkit {

void ToBcd7(const std::tm& f, char* out) {
    unsigned int year = static_cast<unsigned int>(f.tm_year) - 100;
    if (year < 100) {
        out[0] = 0x20; // this century needs no division
    } else {
        year += 2000;
        if (year > 9999) // or below 0
            year = static_cast<unsigned int>(f.tm_year % 10000 + 11900) % 10000;
        out[0] = static_cast<char>(mavkit::ToBcdByte(year / 100));
        year %= 100;
    }
    out[1] = static_cast<char>(mavkit::ToBcdByte(year));
    out[2] = ToBcd(f.tm_mon + 1);
    out[3] = ToBcd(f.tm_mday);
    out[4] = ToBcd(f.tm_hour);
    out[5] = ToBcd(f.tm_min);
    out[6] = ToBcd(f.tm_sec);
}

void FromBcd7(const char* in, std::tm* f) {
    f->tm_year = FromBcd(in[0]) * 100 + FromBcd(in[1]) - 1900;
    f->tm_mon = FromBcd(in[2]) - 1;
    f->tm_mday = FromBcd(in[3]);
    f->tm_hour = FromBcd(in[4]);
    f->tm_min = FromBcd(in[5]);
    f->tm_sec = FromBcd(in[6]);
}

bool ToFields(std::time_t t, std::tm* f) {
    const std::tm* const shared = std::localtime(&t);
    if (shared == nullptr)
        return false;
    *f = *shared;
    return true;
}

long ToTime(std::tm* f) {
    f->tm_wday = 0;
    f->tm_yday = 0;
    f->tm_isdst = -1;
    const std::time_t t = std::mktime(f);
    return static_cast<long>(t) == t ? static_cast<long>(t) : -1;
}

} // namespace mavkit

void Get_CurBCDTime7(char* out) { Record(std::time(nullptr), out); }

void Time_tTimeToBCDTime7(long t, char* out) { Record(t, out); }

void Get_BCDTime7(long t, char* out) { Record(t, out); }

long Time_BCDTime7TotTime(const char* in, long* out) {
    std::tm f;
    mavkit::FromBcd7(in, &f);
    return *out = mavkit::ToTime(&f);
}

long Time_BCDTime7ToTm(char* in, std::tm* out) {
    mavkit::FromBcd7(in, out);
    return mavkit::ToTime(out);
}

unsigned char GetWeek(char* in) {
    std::tm f;
    Time_BCDTime7ToTm(in, &f);
    return static_cast<unsigned char>(f.tm_wday);
}

void Get_CurtmTime(std::tm* out) {
    std::tm f = {};
    mavkit::ToFields(std::time(nullptr), &f);
    out->tm_sec = f.tm_sec;
    out->tm_min = f.tm_min;
    out->tm_hour = f.tm_hour;
    out->tm_mday = f.tm_mday;
    out->tm_mon = f.tm_mon;
    out->tm_year = f.tm_year;
}

void Time_tTimeToAscTime14(long t, char* out) {
    char record[kRecord];
    *out = '\0';
    if (Record(t, record))
        mavkit::FillHex("#######", record, out);
}

void Time_Asc14TimeTotmTime(char* in, std::tm* out) {
    out->tm_year = TwoDigits(in) * 100 + TwoDigits(in + 2) - 1900;
    out->tm_mon = TwoDigits(in + 4) - 1;
    out->tm_mday = TwoDigits(in + 6);
    out->tm_hour = TwoDigits(in + 8);
    out->tm_min = TwoDigits(in + 10);
    out->tm_sec = TwoDigits(in + 12);
}

void CopyTime7(char* src, char* dst) { std::memmove(dst, src, kRecord); }

void CopyTime(char* src, char* dst, int n) {
    if (n > 0)
        std::memmove(dst, src, static_cast<std::size_t>(n));
}

int CompTime(char* a, char* b, int n) {
    const int order = n > 0 ? std::memcmp(a, b, static_cast<std::size_t>(n)) : 0;
    return (order > 0) - (order < 0);
}

bool IsBcd7Time(const unsigned char* t) {
    static const unsigned char kLowest[kRecord] = {0x01, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00};
    static const unsigned char kHighest[kRecord] = {0x99, 0x99, 0x12, 0x31, 0x23, 0x59, 0x59};
    for (int i = 0; i < kRecord; ++i)
        if (t[i] < kLowest[i] || t[i] > kHighest[i])
            return false;
    return true;
}

char* bcdtimestr(char* t) { return mavkit::FillHex(mavkit::kDateAndTime, t, dateText); }

char* timestr(long* t) {
    char record[kRecord];
    if (!Record(TimeOrNow(t), record)) {
        dateText[0] = '\0';
        return dateText;
    }
    return bcdtimestr(record);
}

char* shorttimestr(long* t) {
    char record[kRecord];
    if (!Record(TimeOrNow(t), record)) {
        clockText[0] = '\0';
        return clockText;
    }
    return mavkit::FillHex(mavkit::kTimeOfDay, record + 4, clockText);
}
