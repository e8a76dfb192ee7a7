#include "mavkit/diag/MavDump.h"

#include "mavkit/diag/PrintString.h"
#include "mavkit/diag/TraceText.h"
#include "mavkit/encoding/HexDigits.h"
#include "mavkit/encoding/MavString.h"
#include "mavkit/time/DateText.h"
#include "mavkit/time/LocalTime.h"

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <string>

namespace {

// Formats one piece. The longest is a double of 309 digits with sign, point and six decimals.
__attribute__((format(printf, 2, 3))) MavDump& Print(MavDump& dump, const char* format, ...) {
    char text[320];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    dump.OutputString(text);
    return dump;
}

} // namespace

void MavDump::OutputString(const char* text) {
    if (text == nullptr)
        return;
    if (stream != nullptr)
        std::fwrite(text, std::strlen(text), 1, stream);
    else
        mavkit::TraceText(trace, text);
}

MavDump& MavDump::operator<<(const char* text) {
    OutputString(text != nullptr ? text : "NULL");
    return *this;
}

MavDump& MavDump::operator<<(int value) { return Print(*this, "%d", value); }

MavDump& MavDump::operator<<(unsigned int value) { return Print(*this, "%u", value); }

MavDump& MavDump::operator<<(long long value) { return Print(*this, "%lld", value); }

MavDump& MavDump::operator<<(unsigned long long value) { return Print(*this, "%llu", value); }

MavDump& MavDump::operator<<(double value) { return Print(*this, "%f", value); }

MavDump& MavDump::operator<<(const long& seconds) {
    if (seconds == 0)
        return *this << "NullTime";
    const std::time_t time = seconds;
    const std::tm* t = std::localtime(&time);
    if (t == nullptr)
        return Print(*this, "invalid time %lld", static_cast<long long>(seconds));
    // A year of any length, then the fields of a record.
    char record[7];
    char afterYear[mavkit::kDateAndTimeSize];
    mavkit::ToBcd7(*t, record);
    mavkit::FillHex(mavkit::kAfterYear, record + 2, afterYear);
    return Print(*this, "%04lld%s", t->tm_year + 1900LL, afterYear);
}

MavDump& MavDump::operator<<(const strings& list) {
    std::string joined;
    for (const std::string& text : list)
        joined += text;
    return *this << joined.c_str();
}

MavDump& MavDump::operator<<(const TraceSetting& setting) {
    char level[TRACE_LEVEL_NAME_SIZE];
    char ways[3][TRACE_WAY_NAME_SIZE];
    MAKE_TRACE_LEVEL_KEY(setting.level, level);
    MAKE_TRACE_WAY_KEY(setting.traceWay, ways[0]);
    MAKE_TRACE_WAY_KEY(setting.dataWay, ways[1]);
    MAKE_TRACE_WAY_KEY(setting.scheWay, ways[2]);
    // A name that fills the whole array has no terminator.
    return Print(*this,
                 "prefixOn=%d level=%s traceWay=%s dataWay=%s scheWay=%s name=%.*s maxSize=%d",
                 setting.prefixOn, level, ways[0], ways[1], ways[2],
                 static_cast<int>(sizeof setting.name), setting.name, setting.maxSize);
}

MavDump& MavDump::operator<<(_TRACE_LEVEL level) {
    char name[TRACE_LEVEL_NAME_SIZE];
    MAKE_TRACE_LEVEL_KEY(static_cast<unsigned char>(level), name);
    return *this << name;
}

MavDump& MavDump::operator<<(_EXPORT_WAY way) {
    char name[TRACE_WAY_NAME_SIZE];
    MAKE_TRACE_WAY_KEY(static_cast<unsigned char>(way), name);
    return *this << name;
}

MavDump& MavDump::DumpChar(char c) {
    const char text[2] = {c, '\0'};
    return *this << text;
}

MavDump& MavDump::DumpAsHex(unsigned char value) { return Print(*this, "%02X", unsigned{value}); }

MavDump& MavDump::DumpAsHex(unsigned short value) { return Print(*this, "%04X", unsigned{value}); }

MavDump& MavDump::DumpAsHex(unsigned int value) { return Print(*this, "%08X", value); }

MavDump& MavDump::DumpAsHex(unsigned long long value) { return Print(*this, "%llX", value); }

MavDump& MavDump::DumpAsHex(const unsigned char* data, unsigned int length) {
    std::string text;
    GetPrintString(text, data, length, true, 0);
    return *this << text.c_str();
}

MavDump& MavDump::DumpBcd7Time(const unsigned char* time) {
    char text[mavkit::kDateAndTimeSize] = "";
    if (time != nullptr)
        mavkit::FillHex(mavkit::kDateAndTime, time, text);
    return *this << text;
}
