// mavutil time, mask and record: decode bytes and encode values.
#include "Values.h"

#include "Verbs.h"

#include "mavkit/encoding/BitMask.h"
#include "mavkit/encoding/MavString.h"
#include "mavkit/ipc/IpcInfo.h"
#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/Period.h"
#include "mavkit/time/TimeLayout.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>

namespace mavutil {
namespace {

constexpr unsigned char kBcd7 = 0x17; // the layout of a `Bcd7Time`

// A BCD time: a `Bcd7Time` or one in another layout.
struct Record {
    unsigned char bytes[9] = {};
    std::size_t size = 0;

    char* Text() { return reinterpret_cast<char*>(bytes); }
};

Record RecordOf(long t) {
    Record record;
    Get_BCDTime7(t, record.Text());
    record.size = 7;
    return record;
}

// The time of a `Bcd7Time`; returns false when its digits are not a time.
bool IsTime(Record record, long* t) {
    Record same = RecordOf(Time_BCDTime7TotTime(record.Text(), t));
    return std::memcmp(record.bytes, same.bytes, same.size) == 0;
}

unsigned char LayoutOf(const char* text) {
    return static_cast<unsigned char>(Number(text, "LAYOUT", 0, 0xFF));
}

// A `Bcd7Time` in the layout `text`: as many bytes as the library writes.
Record InLayout(Record bcd7, const char* text) {
    Record record;
    std::memset(record.bytes, 0xFF, sizeof record.bytes); // no byte of a BCD time
    if (ExchangeBCDTime(kBcd7, bcd7.bytes, LayoutOf(text), record.bytes) != 0)
        Quit(kBad, "'%s' is no layout: mavutil help time describes how it is made", text);
    while (record.bytes[record.size] != 0xFF)
        ++record.size;
    return record;
}

unsigned char UnitOf(const char* unit) {
    static constexpr char kNames[6][7] = {"second", "minute", "hour", "day", "month", "year"};
    for (unsigned char i = 0; i < 6; ++i) {
        const std::size_t length = std::strlen(kNames[i]);
        if (std::strncmp(unit, kNames[i], length) == 0 &&
            (unit[length] == '\0' || std::strcmp(unit + length, "s") == 0))
            return static_cast<unsigned char>(Second + i);
    }
    Quit(kBad, "'%s' is no unit: second, minute, hour, day, month or year", unit);
}

Status PrintTime(long t, bool json) {
    static constexpr char kDays[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    if (t == -1)
        return Complain("there is no such time");
    Record record = RecordOf(t);
    const char* const day = kDays[GetWeek(record.Text())];
    const char* const text = bcdtimestr(record.Text());
    if (!json) {
        std::fprintf(out, "%s %s %ld\n", text, day, t);
        return kDone;
    }
    JsonLine line;
    line.AddText("time", text);
    line.AddText("weekday", day);
    line.Add("seconds", t);
    return kDone;
}

Status Decode(const Arguments& arguments) {
    const std::size_t length = InLayout(RecordOf(86400), arguments[0]).size;
    ByteString bytes = BytesOf(arguments.words + 1);
    if (bytes.size() != length)
        Quit(kBad, "layout %s has %zu bytes, not %zu", arguments[0], length, bytes.size());
    Record bcd7 = RecordOf(0);
    ExchangeBCDTime(LayoutOf(arguments[0]), &bytes[0], kBcd7, bcd7.bytes);
    long t = 0;
    // The bytes must be the same after conversion back, so a weekday must fit the date, too.
    if (IsTime(bcd7, &t) &&
        std::memcmp(InLayout(bcd7, arguments[0]).bytes, bytes.data(), length) == 0)
        return PrintTime(t, arguments.json);
    const char* const text = bcdtimestr(bcd7.Text());
    if (arguments.json)
        JsonLine().AddText("invalid", text);
    else
        std::fprintf(out, "%s invalid\n", text);
    return kFailed;
}

Status PrintBytes(const void* bytes, std::size_t length) {
    PrintHex(bytes, length);
    std::fputc('\n', out);
    return kDone;
}

Status Encode(const Arguments& arguments) {
    const Record record = InLayout(RecordOf(TimeOf(arguments[1])), arguments[0]);
    if (!arguments.json)
        return PrintBytes(record.bytes, record.size);
    JsonLine().AddBytes("record", record.bytes, record.size);
    return kDone;
}

Status Add(const Arguments& arguments) {
    const auto n = Number(arguments[1], "N", -LONG_MAX, LONG_MAX);
    return PrintTime(dateadd(UnitOf(arguments[2]), n, TimeOf(arguments[0])), arguments.json);
}

Status Trim(const Arguments& arguments) {
    return PrintTime(datetrim(UnitOf(arguments[1]), TimeOf(arguments[0])), arguments.json);
}

Status Diff(const Arguments& arguments) {
    const long count = datediff(UnitOf(arguments[2]), TimeOf(arguments[0]), TimeOf(arguments[1]));
    if (arguments.json)
        JsonLine().Add("count", count);
    else
        std::fprintf(out, "%ld\n", count);
    return kDone;
}

Status Next(const Arguments& arguments) {
    const auto n = static_cast<unsigned long>(Number(arguments[0], "N", 1, LONG_MAX));
    const unsigned char unit = UnitOf(arguments[1]);
    const auto offset = static_cast<unsigned long>(Number(arguments[2], "OFFSET", 0, LONG_MAX));
    const unsigned char offsetUnit = UnitOf(arguments[3] != nullptr ? arguments[3] : "second");
    long t = TimeOf(arguments[5]);
    Status status = kDone;
    for (long left = Number(arguments[4], "COUNT", 1, LONG_MAX, 5);
         left > 0 && status == kDone && CanPrint(); --left) {
        const long point = gettimerpoint(t, unit, n, offsetUnit, offset, false);
        status = PrintTime(point >= t ? point : -1, arguments.json);
        t = point + (point < LONG_MAX ? 1 : 0);
    }
    return status;
}

// The bits of all lists like 0-2,5. Every item must name at least one.
BitMask MaskOf(char** lists) {
    BitMask mask;
    for (; *lists != nullptr; ++lists)
        for (const char* at = *lists;; ++at) {
            const std::string item(at, std::strcspn(at, ","));
            BitMask named;
            named.ParseFrom(item.c_str(), true, 0);
            if (named.EnableCount() == 0 || item[std::strspn(item.c_str(), "0123456789-")] != '\0')
                Quit(kBad, "'%s' names no bit: write numbers and ranges like 0-2,5", item.c_str());
            mask.Enable(named);
            at += item.size();
            if (*at == '\0')
                break;
        }
    mask.Trim();
    return mask;
}

Status PrintList(const BitMask& mask) {
    std::string list;
    mask.ToString(list, 0);
    std::fprintf(out, "%s\n", list.c_str());
    return kDone;
}

Status MaskBytes(const Arguments& arguments) {
    const BitMask mask = MaskOf(arguments.words);
    ByteString bytes((1U << 20) + 16, 0); // a mask from a text has at most 1 MiB
    const unsigned length = mask.Serialize(&bytes[0], static_cast<unsigned>(bytes.size()));
    return PrintBytes(bytes.data(), length);
}

Status MaskText(const Arguments& arguments) {
    const ByteString bytes = BytesOf(arguments.words);
    const auto length = static_cast<unsigned>(bytes.size());
    BitMask mask;
    if (length == 0 || mask.Deserialize(bytes.data(), length) != length)
        return Complain("%u bytes are no mask: 4 that count the others, lowest first", length);
    return PrintList(mask);
}

Status MaskUnion(const Arguments& arguments) { return PrintList(MaskOf(arguments.words)); }

Status MaskCount(const Arguments& arguments) {
    std::fprintf(out, "%u\n", MaskOf(arguments.words).EnableCount());
    return kDone;
}

// A byte string of a record: its length, then rows of 16 bytes.
void PrintField(const char* name, const ByteString& field) {
    std::fprintf(out, "%-9s %zu\n", name, field.size());
    for (std::size_t at = 0; at < field.size(); at += 16) {
        const std::size_t length = std::min<std::size_t>(16, field.size() - at);
        std::fprintf(out, "%10s", "");
        PrintRow(&field[at], length);
    }
}

Status PrintRecord(const IpcInfo& info, bool json) {
    const bool inForce = info.IsValid();
    long created = info.createTime;
    const long long age = created > 0 ? static_cast<long long>(std::time(nullptr)) - created : 0;
    const struct {
        const char* name;
        long long value;
    } numbers[] = {
        {"type", info.type},          {"first", info.first}, {"second", info.second},
        {"created", info.createTime}, {"age", age},          {"lifetime", info.lifetime}};
    const ByteString* const fields[] = {&info.bytes1, &info.bytes2, &info.bytes3};
    char field[] = "bytes1";
    if (json) {
        JsonLine line;
        for (const auto& number : numbers)
            line.Add(number.name, number.value);
        line.AddBool("inForce", inForce);
        for (const ByteString* bytes : fields) {
            line.AddBytes(field, bytes->data(), bytes->size());
            ++field[5];
        }
    } else {
        static bool first = true;
        if (!first)
            std::fputc('\n', out);
        first = false;
        for (const auto& number : numbers) {
            std::fprintf(out, "%-9s %lld", number.name, number.value);
            if (&number == &numbers[3])
                std::fprintf(out, " %s", created != 0 ? timestr(&created) : "-");
            std::fputc('\n', out);
        }
        std::fprintf(out, "in-force  %s\n", inForce ? "yes" : "no");
        for (const ByteString* bytes : fields) {
            PrintField(field, *bytes);
            ++field[5];
        }
    }
    return inForce ? kDone : kFailed;
}

// Prints the records that follow one another in `bytes`.
Status PrintRecords(ByteString bytes, bool json) {
    Status status = kDone;
    unsigned used = 0;
    for (std::size_t at = 0; at < bytes.size(); at += used) {
        IpcInfo info;
        used = info.Deserialize(&bytes[at], static_cast<unsigned>(bytes.size() - at));
        if (used == 0)
            return Complain("no record in the last %zu bytes", bytes.size() - at);
        status = std::max(status, PrintRecord(info, json));
    }
    return status;
}

Status Records(const Arguments& arguments) {
    if (arguments[0] != nullptr)
        return PrintRecords(BytesOf(arguments.words), arguments.json);
    Status status = kDone;
    bool any = false;
    std::string text;
    for (int c = 0, line = 1; c != EOF && CanPrint(); ++line, text.clear()) {
        while ((c = std::getc(stdin)) != EOF && c != '\n')
            text += c != '\0' ? static_cast<char>(c) : '?';
        ByteString bytes;
        if (!AppendBytes(text.c_str(), bytes))
            status = Complain("line %d of standard input is no hex", line);
        any = any || !text.empty();
        status = std::max(status, PrintRecords(bytes, arguments.json));
    }
    if (std::ferror(stdin) != 0)
        return ComplainOf(nullptr);
    return any ? status : Complain("no record on standard input");
}

constexpr Operation kTimeOperations[] = {
    {"decode", "j", "LAYOUT HEX...", 2, kAnyNumber, "the time of a record, or it is invalid",
     Decode},
    {"encode", "j", "LAYOUT [TIME]", 1, 2, "the record of a time", Encode},
    {"add", "j", "TIME N UNIT", 3, 3, "N units later, or earlier if N < 0", Add},
    {"trim", "j", "TIME UNIT", 2, 2, "the start of the unit that TIME is in", Trim},
    {"diff", "j", "FROM TO UNIT", 3, 3, "how many units begin between the times", Diff},
    {"next", "j", "N UNIT [OFFSET UNIT [COUNT [TIME]]]", 2, 6, "the next points of a timer", Next},
};
constexpr Operation kMaskOperations[] = {
    {"bytes", "", "LIST...", 1, kAnyNumber, "the numbers of all lists, as a mask", MaskBytes},
    {"text", "", "HEX...", 1, kAnyNumber, "the list of a stored mask", MaskText},
    {"union", "", "LIST...", 1, kAnyNumber, "one list of the numbers of all lists", MaskUnion},
    {"count", "", "LIST...", 1, kAnyNumber, "how many numbers the lists have", MaskCount},
};
constexpr Operation kRecordOperations[] = {
    {"", "j", "[HEX...]", 0, kAnyNumber, "shows records, from HEX or the input", Records},
};

} // namespace

long TimeOf(const char* text) {
    if (text == nullptr || std::strcmp(text, "now") == 0)
        return static_cast<long>(std::time(nullptr));
    if (*text == '@')
        return Number(text + 1, "SECONDS", LONG_MIN + 1, LONG_MAX);
    // The digits of a date and time are its BCD record; those of a time alone have a colon first.
    ByteString digits;
    if (text[std::strspn(text, "0123456789-:T ")] == '\0')
        ParseHexStr(text, digits);
    const bool today = text[std::strcspn(text, ":-")] == ':' && digits.size() <= 3;
    const std::size_t start = today ? 4 : 0;
    const std::size_t size = start + digits.size();
    Record record = RecordOf(today ? static_cast<long>(std::time(nullptr)) : 0);
    std::memset(record.bytes + start, 0, record.size - start);
    std::memcpy(record.bytes + start, digits.data(), std::min(digits.size(), record.size - start));
    long t = 0;
    if ((size != 4 && size != 6 && size != 7) || (today && size == 4) || !IsTime(record, &t))
        Quit(kBad, "'%s' is no time: write 2024-03-05, 2024-03-05T06:07:08, 06:07, now or @SECONDS",
             text);
    return t;
}

const Verb kTime = {
    "time", "BCD time records, calendar arithmetic, timer points", kTimeOperations,
    R"(TIME is 2024-03-05[T06:07[:08]], 06:07[:08] today, @SECONDS since 1970, or now.
UNIT is second, minute, hour, day, month or year. The points of a timer lie N
units apart, from 2000-01-01 00:00:00 plus OFFSET on; COUNT (5) of them.
LAYOUT is 0xEF: F is the first field, E the last: 1 second, 2 minute, 3 hour,
4 day, 5 month, 6 year, 7 century. Add 0x80 for a weekday (00 is Sunday) between
hour and day: 0xE1 08 07 06 02 05 03 24. Missing fields are those of now.
  mavutil time next 1 day 8 hours 3
)"};

const Verb kMask = {
    "mask", "bit masks: text to bytes and back, union, count", kMaskOperations,
    R"(LIST is numbers and ranges. A stored mask has 4 bytes of length, then the bits,
the highest bit of each byte first.
  mavutil mask bytes 0-2,5,9-10
)"};

const Verb kRecord = {"record", "IPC records from hex: fields, age, whether in force",
                      kRecordOperations,
                      R"(A record has 8 numbers of 4 bytes, lowest byte first (first, second, type,
creation, lifetime, lengths of three byte strings), then the strings. A line of
standard input has one or more records. Status 0: all are in force.
  mavutil queue peek M | cut -d' ' -f3- | mavutil record | grep in-force
)"};

} // namespace mavutil
