// collector FOLDER: reads the captured frames of the meters, checks each, and sends the good ones
// to the uplink. Exit status 0 when all of them were sent.
#include "Terminal.h"

#include <ctime>

namespace {

constexpr long kPace = 10; // milliseconds from frame to frame, so that a person sees them arrive

struct Counts {
    int sent = 0;
    int damaged = 0;
};

bool Send(Message& queue, const IpcInfo& info) {
    unsigned char bytes[128];
    const unsigned int length = info.Serialize(bytes, sizeof bytes);
    return length > 0 && queue.SendData(bytes, length, info.type);
}

bool SendReading(Message& queue, const Reading& reading, const ByteString& frame,
                 unsigned int lifetime) {
    IpcInfo info;
    info.type = kReading;
    info.first = static_cast<int>(reading.meter);
    // It has aged while it waited, so it counts from the moment of reading.
    info.createTime = static_cast<int>(std::time(nullptr) - 60L * reading.waited);
    info.lifetime = lifetime;
    for (const unsigned char byte : frame) {
        char digits[3];
        String_uCharToAsc2(byte, digits);
        info.bytes1.append(digits, digits + 2);
    }
    return Send(queue, info);
}

// Reads a line without its end. Only the beginning of a very long one is kept: it is not a frame
// anyway.
bool ReadLine(std::FILE* file, std::string* line) {
    line->clear();
    int c;
    while ((c = std::getc(file)) != EOF && c != '\n')
        if (c != '\r' && line->size() < 200)
            line->push_back(static_cast<char>(c));
    return c != EOF || !line->empty();
}

// Returns false when the file cannot be read, the queue takes no reading or the program must end.
bool SendFile(Message& queue, const std::string& path, unsigned int lifetime, Counts* counts) {
    std::FILE* file = CheckReadable(path) ? MavFile::OpenFile(path.c_str(), "r") : nullptr;
    if (file == nullptr)
        return false;
    bool good = true;
    std::string line;
    for (int number = 1; good && ReadLine(file, &line); ++number) {
        if (line.empty() || line[0] == '#')
            continue;
        ByteString frame;
        Reading reading;
        if (const char* reason = DecodeFrame(line, &frame, &reading)) {
            GENERAL_LOG("collector: %s:%d: %s\n", path.c_str() + path.rfind('/') + 1, number,
                        reason);
            ++counts->damaged;
            continue;
        }
        good = SendReading(queue, reading, frame, lifetime) && gStop == 0;
        if (good)
            ++counts->sent;
        Nap(kPace);
    }
    std::fclose(file);
    return good;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: collector FOLDER\n", stderr);
        return 2;
    }
    FinishOnSignals();
    Terminal terminal;
    if (!LoadTerminal(argv[1], "collector", &terminal))
        return 1;
    MavDump(LEVEL_INFO, 0) << "collector: " << terminal.trace << "\n";

    Message queue(terminal.queue);
    Counts counts;
    for (const std::string& path : terminal.frames)
        if (!SendFile(queue, path, terminal.lifetime, &counts)) {
            std::fputs(gStop != 0 ? "collector: stopped\n" : "collector: could not send\n", stderr);
            return 1;
        }
    IpcInfo end;
    end.type = kEndOfInput;
    end.first = counts.sent;
    end.second = counts.damaged;
    return Send(queue, end) ? 0 : 1;
}
