// mavutil time, mask and record: bytes made readable, and made from what is.
#include "mavutil.h"

#include <climits>
#include <ctime>

namespace {

// A Bcd7Time (layout 0x17) in a layout: as many bytes as the library writes.
ByteString InLayout(ByteString bcd7, const char* layout) {
    ByteString bytes(9, 0xFF); // no byte of a BCD time
    const auto code = static_cast<unsigned char>(Number(layout, "LAYOUT", 0, 0xFF));
    if (ExchangeBCDTime(0x17, &bcd7[0], code, &bytes[0]) != 0)
        Quit(kBad, "'%s' is no layout: mavutil help time tells how it is made", layout);
    return bytes.substr(0, bytes.find(0xFF));
}

ByteString RecordOf(long t) {
    ByteString record(7, 0);
    Get_BCDTime7(t, reinterpret_cast<char*>(&record[0]));
    return record;
}

// The time of a Bcd7Time; false when there is none with these digits.
bool IsTime(const ByteString& record, long* t) {
    return RecordOf(Time_BCDTime7TotTime(reinterpret_cast<const char*>(record.data()), t)) ==
           record;
}

long TimeOf(const char* text) {
    if (text == nullptr || text == std::string("now"))
        return static_cast<long>(std::time(nullptr));
    if (*text == '@')
        return Number(text + 1, "SECONDS", LONG_MIN + 1, LONG_MAX);
    ByteString record;
    ParseHexStr(text, record); // the digits of a date and time are its BCD record
    const bool whole = record.size() == 4 || record.size() == 6 || record.size() == 7;
    record.resize(7);
    long t = 0;
    if (!whole || !IsTime(record, &t))
        Quit(kBad, "'%s' is no time: write 2024-03-05, 2024-03-05T06:07:08, now or @SECONDS", text);
    return t;
}

unsigned char UnitOf(const char* unit) {
    const char* const names[] = {"second", "minute", "hour", "day", "month", "year"};
    for (unsigned char i = 0; i < 6; ++i)
        if (unit == std::string(names[i]) || unit == std::string(names[i]) + "s")
            return static_cast<unsigned char>(Second + i);
    Quit(kBad, "'%s' is no unit: second, minute, hour, day, month or year", unit);
}

int Print(long t) {
    const char* const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    if (t == -1)
        Quit(kFailed, "there is no such time");
    ByteString record = RecordOf(t);
    auto* const bcd = reinterpret_cast<char*>(&record[0]);
    std::fprintf(out, "%s %s %ld\n", bcdtimestr(bcd), days[GetWeek(bcd)], t);
    return kDone;
}

int Decode(char** args) {
    const std::size_t length = InLayout(ByteString(7, 0x01), args[0]).size();
    const auto layout = static_cast<unsigned char>(Number(args[0], "LAYOUT", 0, 0xFF));
    ByteString record = HexOf(args + 1);
    if (record.size() != length)
        Quit(kBad, "layout %s has %zu bytes, not %zu", args[0], length, record.size());
    ByteString bcd7(7, 0);
    ExchangeBCDTime(layout, &record[0], 0x17, &bcd7[0]);
    long t = 0;
    // A weekday in the record must be that of its date, too, for the same bytes to come back.
    if (IsTime(bcd7, &t) && InLayout(bcd7, args[0]) == record)
        return Print(t);
    std::fprintf(out, "%s invalid\n", bcdtimestr(reinterpret_cast<char*>(&bcd7[0])));
    return kFailed;
}

int Next(char** args) {
    const auto n = static_cast<unsigned long>(Number(args[0], "N", 1, LONG_MAX));
    const auto offset = static_cast<unsigned long>(Number(args[2], "OFFSET", 0, LONG_MAX));
    const unsigned char unit = UnitOf(args[3] != nullptr ? args[3] : "second");
    long t = TimeOf(args[5]);
    for (long count = Number(args[4], "COUNT", 1, LONG_MAX, 5); count > 0; --count) {
        const long point = gettimerpoint(t, UnitOf(args[1]), n, unit, offset, false);
        Print(point >= t ? point : -1);
        t = point + (point < LONG_MAX ? 1 : 0);
    }
    return kDone;
}

// The bits of all lists like 0-2,5, every item of which must name at least one.
BitMask MaskOf(char** lists) {
    BitMask mask;
    strings items;
    while (*lists != nullptr)
        items.addfrom(*lists++, ",", true);
    for (const std::string& item : items) {
        BitMask named;
        named.ParseFrom(item.c_str(), true, 0);
        if (named.EnableCount() == 0 || item.find_first_not_of("0123456789-") != item.npos)
            Quit(kBad, "'%s' names no bit: write numbers and ranges like 0-2,5", item.c_str());
        mask.Enable(named);
    }
    mask.Trim();
    return mask;
}

} // namespace

int RunTime(const std::string& operation, char** args) {
    if (operation == "decode")
        return Decode(args);
    if (operation == "next")
        return Next(args);
    if (operation == "encode") {
        const ByteString record = InLayout(RecordOf(TimeOf(args[1])), args[0]);
        std::fprintf(out, "%s\n", HexLine(record.data(), record.size()).c_str());
        return kDone;
    }
    const long t = TimeOf(args[0]);
    if (operation == "trim")
        return Print(datetrim(UnitOf(args[1]), t));
    if (operation == "add")
        return Print(dateadd(UnitOf(args[2]), Number(args[1], "N", -LONG_MAX, LONG_MAX), t));
    std::fprintf(out, "%ld\n", datediff(UnitOf(args[2]), t, TimeOf(args[1])));
    return kDone;
}

int RunMask(const std::string& operation, char** args) {
    BitMask mask;
    ByteString bytes = operation == "text" ? HexOf(args) : ByteString((1U << 20) + 16, 0);
    auto length = static_cast<unsigned int>(bytes.size());
    if (operation != "text")
        mask = MaskOf(args);
    else if (length == 0 || mask.Deserialize(bytes.data(), length) != length)
        Quit(kFailed, "%u bytes are no mask: 4 that count the others, lowest first", length);
    MavDump dump(out);
    if (operation == "count")
        dump << mask.EnableCount() << "\n";
    else if (operation != "bytes")
        mask.Dump(dump) << "\n";
    else
        dump << HexLine(bytes.data(), mask.Serialize(&bytes[0], length)).c_str() << "\n";
    return kDone;
}

int RunRecord(const std::string&, char** args) {
    ByteString bytes = HexOf(args);
    if (*args == nullptr)
        ParseHexStr(ReadAll(nullptr).c_str(), bytes);
    int status = bytes.empty() ? kFailed : kDone;
    unsigned int used = 0;
    for (std::size_t at = 0; at < bytes.size(); at += used) {
        IpcInfo info;
        used = info.Deserialize(&bytes[at], static_cast<unsigned int>(bytes.size() - at));
        if (used == 0)
            Quit(kFailed, "no record in the last %zu bytes", bytes.size() - at);
        const bool inForce = info.IsValid();
        const long created = info.createTime;
        MavDump(out) << (at > 0 ? "\n" : "") << "type      " << info.type << "\nfirst     "
                     << info.first << "\nsecond    " << info.second << "\ncreated   "
                     << info.createTime << " " << created << "\nage       "
                     << (created > 0 ? static_cast<long long>(std::time(nullptr)) - created : 0)
                     << "\nlifetime  " << info.lifetime << "\nin-force  "
                     << (inForce ? "yes" : "no") << "\n";
        int number = 0;
        for (const ByteString* field : {&info.bytes1, &info.bytes2, &info.bytes3})
            std::fprintf(out, "bytes%d    %zu %s |%s|\n", ++number, field->size(),
                         HexLine(field->data(), field->size()).c_str(),
                         Readable(field->data(), field->size()).c_str());
        status = inForce ? status : kFailed;
    }
    return status;
}
