// uplink receive FOLDER REGION   takes the readings off the queue, prints them, and keeps the last of
//                                every meter in the file REGION; exit status 0 when all arrived
// uplink show FOLDER REGION      prints what an earlier start left in REGION
// uplink remove FOLDER           removes the queue
#include "Terminal.h"

#include <cstddef>
#include <cstring>
#include <ctime>

namespace {

constexpr int kPoll = 5;        // milliseconds between two looks at an empty queue
constexpr int kPatience = 5000; // and how long it may stay empty

// The shared region. Its CRC tells a table that is whole from one that was cut off in the middle.
struct MeterTable {
    char magic[4];
    unsigned short crc; // of all that follows
    unsigned short count;
    struct Record {
        unsigned short meter;
        unsigned char time[7]; // Bcd7Time
        unsigned char energy[4];
    } meters[64];
};
constexpr char kMagic[4] = {'M', 'T', 'R', '1'};
constexpr unsigned short kRoom = sizeof MeterTable::meters / sizeof MeterTable::meters[0];

unsigned short CrcOf(const MeterTable& table) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&table);
    unsigned short crc = 0xFFFF;
    for (std::size_t i = offsetof(MeterTable, count); i < sizeof table; ++i)
        crc = Add_CRC(crc, bytes[i]);
    return crc;
}

// ShareMem asks this of a file that exists.
bool CheckTable(std::FILE* file, void*) {
    MeterTable table;
    return std::fread(&table, sizeof table, 1, file) == 1 &&
           std::memcmp(table.magic, kMagic, sizeof kMagic) == 0 && table.crc == CrcOf(table) &&
           table.count <= kRoom;
}

// And this of a new one: to be filled. Only `receive` may start with an empty table.
bool FillTable(std::FILE* file, void* mayFill) {
    MeterTable table = {};
    std::memcpy(table.magic, kMagic, sizeof kMagic);
    table.crc = CrcOf(table);
    return *static_cast<bool*>(mayFill) && std::fwrite(&table, sizeof table, 1, file) == 1 &&
           std::fflush(file) == 0;
}

bool Keep(MeterTable* table, const Reading& reading) {
    unsigned short i = 0;
    while (i < table->count && table->meters[i].meter != reading.meter)
        ++i;
    if (i == kRoom)
        return false;
    if (i == table->count)
        ++table->count;
    MeterTable::Record& record = table->meters[i];
    record.meter = static_cast<unsigned short>(reading.meter);
    std::memcpy(record.time, reading.time, sizeof record.time);
    std::memcpy(record.energy, reading.energy, sizeof record.energy);
    table->crc = CrcOf(*table);
    return true;
}

void PrintRow(const unsigned char* time, unsigned int meter, const unsigned char* energy) {
    std::string text;
    GetBcdTimeString(text, time);
    std::printf("  %s  %5u  %10.2f\n", text.c_str(), meter, EnergyOf(energy));
}

struct Counts {
    int taken = 0;
    int stale = 0;
    int refused = 0;
};

// One message of type kReading. Whoever sent it: nothing in it is believed before it is checked.
void TakeReading(IpcInfo& info, MeterTable* table, BitMask* heard, Counts* counts) {
    if (!info.IsValid()) { // draws its own line in the general log
        std::puts("  (a reading that has expired: refused)");
        ++counts->stale;
        return;
    }
    ByteString frame;
    Reading reading;
    const std::string text(info.bytes1.begin(), info.bytes1.end());
    const char* reason = DecodeFrame(text, &frame, &reading);
    if (reason == nullptr && !Keep(table, reading))
        reason = "no room for another meter";
    if (reason != nullptr) {
        GENERAL_LOG("uplink: reading of meter %d refused: %s\n", info.first, reason);
        ++counts->refused;
        return;
    }
    // One line made of pieces, with one prefix: to the trace channel and (flag 1) the data channel.
    MavDump dump(LEVEL_VERBOSE, 1);
    dump << "uplink: meter " << reading.meter << ": ";
    dump.DumpAsHex(frame.data(), kFrameLength) << "\n";
    PrintRow(reading.time, reading.meter, reading.energy);
    std::fflush(stdout);
    heard->Enable(reading.meter, reading.meter);
    ++counts->taken;
}

// Receives until the collector has said that it is done. Returns whether all it sent has arrived.
bool ReceiveAll(Message& queue, MeterTable* table, BitMask* heard) {
    std::printf("  time                 meter         kWh\n");
    Counts counts;
    int silence = 0;
    while (gStop == 0 && silence < kPatience) {
        if (!queue.HasMsg(0)) {
            Nap(kPoll);
            silence += kPoll;
            continue;
        }
        silence = 0;
        struct {
            long type;
            unsigned char payload[128];
        } message;
        unsigned int length = sizeof message.payload;
        IpcInfo info;
        const bool ours = queue.RecvMsg(&message, length, 0) &&
                          info.Deserialize(message.payload, length) == length &&
                          info.type == message.type;
        if (ours && info.type == kReading) {
            TakeReading(info, table, heard, &counts);
        } else if (ours && info.type == kEndOfInput) {
            std::printf("\n  sent %d, taken %d, expired %d; %d frames were damaged\n", info.first,
                        counts.taken, counts.stale, info.second);
            return info.first > 0 && counts.refused == 0 &&
                   counts.taken + counts.stale == info.first;
        } else {
            GENERAL_LOG("uplink: a message that is none of ours\n");
            ++counts.refused;
        }
    }
    std::fputs(gStop != 0 ? "uplink: stopped\n" : "uplink: the collector is silent\n", stderr);
    return false;
}

void PrintMeters(const BitMask& expected, const BitMask& heard) {
    std::string all;
    std::string present;
    expected.ToString(all, 0);
    heard.ToString(present, 0);
    BitMask silent = expected;
    silent.ParseFrom(present.c_str(), false, 0);
    std::printf("\nMeters\n  expected    %s\n  heard from  %s\n", all.c_str(), present.c_str());
    MavDump dump(stdout);
    dump << "  silent      ";
    silent.Dump(dump) << "\n";
}

void PrintTimerPoints(long now) {
    const struct {
        const char* what;
        unsigned char unit;
        unsigned long step;
        unsigned char offsetUnit;
        unsigned long offset;
    } timers[] = {{"quarter of an hour", Minute, 15, Minute, 0},
                  {"day, at 00:05", Day, 1, Minute, 5},
                  {"month, on the 1st at 02:00", Month, 1, Hour, 2}};
    std::printf("\nTimers, from now on (%s)\n", timestr(&now));
    for (const auto& t : timers) {
        long next = gettimerpoint(now, t.unit, t.step, t.offsetUnit, t.offset, false);
        std::printf("  every %-28s%s\n", t.what, timestr(&next));
    }
}

bool Receive(const Terminal& terminal, ShareMem& region, MeterTable* table) {
    Message queue(terminal.queue);
    BitMask heard;
    const bool complete = ReceiveAll(queue, table, &heard);
    queue.Destroy();
    if (gStop == 0) {
        PrintMeters(terminal.meters, heard);
        PrintTimerPoints(static_cast<long>(std::time(nullptr)));
    }
    return region.Save(false, false) && complete; // to the file, before this returns
}

bool Show(const MeterTable& table) {
    for (unsigned short i = 0; i < table.count; ++i)
        PrintRow(table.meters[i].time, table.meters[i].meter, table.meters[i].energy);
    if (table.count == 0)
        return false;
    const MeterTable::Record& last = table.meters[table.count - 1];
    MavDump dump(stdout);
    dump << "\nThe last record, dumped\n  meter " << static_cast<unsigned int>(last.meter) << ", ";
    dump.DumpBcd7Time(last.time) << ", " << EnergyOf(last.energy) << " kWh from ";
    dump.DumpAsHex(last.energy, sizeof last.energy) << "\n";
    return true;
}

} // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 1 ? argv[1] : "";
    if (!(argc == 3 && verb == "remove") && !(argc == 4 && (verb == "receive" || verb == "show"))) {
        std::fputs("usage: uplink receive|show FOLDER REGION, or uplink remove FOLDER\n", stderr);
        return 2;
    }
    FinishOnSignals();
    Terminal terminal;
    if (!LoadTerminal(argv[2], "uplink", &terminal))
        return 1;
    if (verb == "remove") {
        Message(terminal.queue).Destroy();
        return 0;
    }
    ShareMem region;
    bool mayFill = verb == "receive";
    region.Init(argv[3], sizeof(MeterTable), FillTable, CheckTable, &mayFill);
    if (region.base == nullptr) {
        std::fprintf(stderr, "%s: no region with a table of meters\n", argv[3]);
        return 1;
    }
    auto* table = reinterpret_cast<MeterTable*>(region.base);
    return (mayFill ? Receive(terminal, region, table) : Show(*table)) ? 0 : 1;
}
