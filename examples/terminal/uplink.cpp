// uplink receive FOLDER REGION   takes the readings off the queue, prints them, and keeps the last
//                                of every meter in the file REGION; exit status 0 when all arrived,
//                                3 when there was none to send
// uplink show FOLDER REGION      prints what another process keeps in REGION, or kept there
// uplink remove FOLDER           removes the queue
#include "MeterRegion.h"

#include <cstring>
#include <ctime>

namespace {

constexpr int kPoll = 5;        // milliseconds between two looks at an empty queue
constexpr int kPatience = 5000; // and how long it may stay empty

void PrintRow(const unsigned char* time, unsigned int meter, const unsigned char* energy) {
    std::string text;
    GetBcdTimeString(text, time);
    std::printf("  %s  %5u  %10.2f\n", text.c_str(), meter, EnergyOf(energy));
}

// What has been received, and where the last readings are kept.
struct Intake {
    MeterRegion& region;
    MeterTable table = {};
    BitMask heard = {};
    int taken = 0;
    int stale = 0;
    int refused = 0;
};

// One message of type kReading. Any process may have sent it, so everything in it is checked first.
void TakeReading(IpcInfo& info, Intake* intake) {
    if (!info.IsValid()) { // logs the reason itself
        std::puts("  (a reading that has expired: refused)");
        ++intake->stale;
        return;
    }
    ByteString frame;
    Reading reading;
    const std::string text(info.bytes1.begin(), info.bytes1.end());
    const char* reason = DecodeFrame(text, &frame, &reading);
    if (reason == nullptr && !intake->table.Put(reading))
        reason = "no room for another meter";
    if (reason == nullptr && !intake->region.Write(intake->table))
        reason = "the region cannot be saved";
    if (reason != nullptr) {
        GENERAL_LOG("uplink: reading of meter %d refused: %s\n", info.first, reason);
        ++intake->refused;
        return;
    }
    // One line made of pieces, with one prefix: to the trace channel and (flag 1) the data channel.
    MavDump dump(LEVEL_VERBOSE, 1);
    dump << "uplink: meter " << reading.meter << ": ";
    dump.DumpAsHex(frame.data(), kFrameLength) << "\n";
    PrintRow(reading.time, reading.meter, reading.energy);
    std::fflush(stdout);
    intake->heard.Enable(reading.meter, reading.meter);
    ++intake->taken;
}

// Receives until the collector has reported its end. Returns the program's exit status.
int ReceiveAll(Message& queue, Intake* intake) {
    std::printf("  time                 meter         kWh\n");
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
            TakeReading(info, intake);
        } else if (ours && info.type == kEndOfInput) {
            std::printf("\n  sent %d, taken %d, expired %d; %d frames were damaged\n", info.first,
                        intake->taken, intake->stale, info.second);
            if (info.first == 0)
                return 3;
            return intake->refused == 0 && intake->taken + intake->stale == info.first ? 0 : 1;
        } else {
            GENERAL_LOG("uplink: a message of an unknown kind\n");
            ++intake->refused;
        }
    }
    std::fputs(gStop != 0 ? "uplink: stopped\n" : "uplink: the collector is silent\n", stderr);
    return 1;
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

int Receive(const Terminal& terminal, const char* path) {
    MeterRegion region;
    if (!region.OpenToWrite(path))
        return 1;
    Intake intake{region};
    // What an earlier start has kept; nothing when neither slot is whole.
    region.Read(&intake.table);
    Message queue(terminal.queue);
    const int status = ReceiveAll(queue, &intake);
    queue.Destroy();
    if (gStop == 0 && status != 3) {
        PrintMeters(terminal.meters, intake.heard);
        PrintTimerPoints(static_cast<long>(std::time(nullptr)));
    }
    return status;
}

int Show(const char* path) {
    MeterRegion region;
    if (!region.OpenToRead(path))
        return 1;
    MeterTable table;
    if (!region.Read(&table) || table.count == 0) {
        std::fprintf(stderr, "%s: no reading in it\n", path);
        return 1;
    }
    for (unsigned short i = 0; i < table.count; ++i)
        PrintRow(table.meters[i].time, table.meters[i].meter, table.meters[i].energy);
    const MeterTable::Record& last = table.meters[table.count - 1];
    MavDump dump(stdout);
    dump << "\nThe last record, dumped\n  meter " << static_cast<unsigned int>(last.meter) << ", ";
    dump.DumpBcd7Time(last.time) << ", " << EnergyOf(last.energy) << " kWh from ";
    dump.DumpAsHex(last.energy, sizeof last.energy) << "\n";
    return 0;
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
    return verb == "receive" ? Receive(terminal, argv[3]) : Show(argv[3]);
}
