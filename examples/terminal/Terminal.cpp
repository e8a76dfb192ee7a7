#include "Terminal.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <strings.h>
#include <unistd.h>

namespace {

constexpr unsigned char kFrameStart = 0x68;
constexpr unsigned char kFrameTime = 0x61; // ExchangeBCDTime: from second (1) up to year (6)
constexpr unsigned char kBcd7Time = 0x17;  // from century (7) down to second (1)

bool IsBcd(const unsigned char* bytes, unsigned int length) {
    for (unsigned int i = 0; i < length; ++i)
        if (bytes[i] > 0x99 || (bytes[i] & 0x0F) > 9)
            return false;
    return true;
}

// The callback of DirScan: adds the files of the folder to the Terminal.
bool AddFile(int, bool isDirectory, const char* directory, const char* name, void* context) {
    auto* terminal = static_cast<Terminal*>(context);
    const std::string file = name;
    if (isDirectory)
        return true;
    if (file == "terminal.conf")
        terminal->conf = std::string(directory) + "/" + file;
    else if (file.size() > 7 && file.compare(file.size() - 7, 7, ".frames") == 0)
        terminal->frames.insert(std::string(directory) + "/" + file);
    return true;
}

// Reads terminal.conf. It reports the first thing that is wrong, and no more after it.
class ConfReader {
public:
    explicit ConfReader(const std::string& path) : path_(path) {
        if (!CheckReadable(path_))
            good_ = false;
    }
    bool Good() const { return good_; }

    std::string Text(const std::string& key, std::size_t maxLength) {
        std::string name = key;
        char value[512];
        if (MavFile::SetFileRead(path_.data(), name.data(), value) != 0)
            Fail(key, "is missing (one line, " + key + "=VALUE)");
        else if (value[0] == '\0' || std::strlen(value) > maxLength)
            Fail(key + "=" + value, "must have 1 to " + std::to_string(maxLength) + " characters");
        return value;
    }

    int Number(const char* key, int min, int max) {
        const std::string value = Text(key, 10);
        char* end;
        errno = 0;
        const long number = std::strtol(value.c_str(), &end, 10);
        if (*end != '\0' || errno != 0 || number < min || number > max)
            Fail(std::string(key) + "=" + value,
                 "is no number from " + std::to_string(min) + " to " + std::to_string(max));
        return static_cast<int>(number);
    }

    // A level or a way. The conversions take any text as a number, so the name of the code must be
    // the text that was read.
    unsigned char Code(const char* key, unsigned char (*codeOf)(const char*),
                       int (*nameOf)(unsigned char, char*)) {
        const std::string value = Text(key, 16);
        const unsigned char code = codeOf(value.c_str());
        char name[TRACE_LEVEL_NAME_SIZE];
        nameOf(code, name);
        if (strcasecmp(name, value.c_str()) != 0) {
            std::string names;
            for (unsigned char i = 0; nameOf(i, name), std::strcmp(name, "invalid") != 0; ++i)
                names += std::string(" ") + name;
            Fail(std::string(key) + "=" + value, "is none of:" + names);
        }
        return code;
    }

    void Fail(const std::string& what, const std::string& why) {
        if (good_)
            std::fprintf(stderr, "%s: %s %s\n", path_.c_str(), what.c_str(), why.c_str());
        good_ = false;
    }

private:
    std::string path_;
    bool good_ = true;
};

// Replaces ways that cannot be opened on this machine: the trace channel then uses standard output,
// the other channels are off.
void UseWaysThatOpen(TraceSetting* setting) {
    unsigned char* const ways[3] = {&setting->traceWay, &setting->dataWay, &setting->scheWay};
    for (unsigned char channel = 0; channel < 3; ++channel) {
        std::FILE* file =
            MavTrace(LEVEL_ERROR, 0)
                .GetExportFile(channel, *ways[channel], setting->name, setting->maxSize);
        if (file == nullptr && *ways[channel] != WAY_NONE)
            *ways[channel] = channel == 0 ? WAY_STDOUT : WAY_NONE;
        if (file != nullptr && file != stdout)
            std::fclose(file);
    }
}

} // namespace

volatile std::sig_atomic_t gStop = 0;

double EnergyOf(const unsigned char* energy) { return BCDToDouble(energy, 6, 2); }

const char* DecodeFrame(const std::string& text, ByteString* frame, Reading* reading) {
    // ParseHexStr() skips what is no digit, so other characters are looked for first.
    for (const char c : text)
        if (!isbcdchar(c) && c != ' ')
            return "not hex";
    ParseHexStr(text.c_str(), *frame);
    unsigned char* const bytes = frame->data();
    if (frame->size() != kFrameLength || bytes[1] != kFrameLength)
        return "wrong length";
    if (bytes[0] != kFrameStart)
        return "no start byte";
    unsigned short crc = 0xFFFF;
    for (unsigned int i = 0; i < 16; ++i)
        crc = Add_CRC(crc, bytes[i]);
    if (crc != char_ushort(static_cast<char>(bytes[16]), static_cast<char>(bytes[17])))
        return "wrong CRC";
    if (!IsBcd(bytes + 2, 14))
        return "a digit that is no BCD";
    // The century, which the frame lacks, comes from the clock.
    ExchangeBCDTime(kFrameTime, bytes + 4, kBcd7Time, reading->time);
    if (!IsBcd7Time(reading->time))
        return "no such time";
    reading->meter = static_cast<unsigned int>(BcdToDec(2, bytes + 2));
    if (reading->meter == 0)
        return "no meter number";
    std::memcpy(reading->energy, bytes + 10, sizeof reading->energy);
    reading->waited = static_cast<unsigned int>(BcdToDec(2, bytes + 14));
    return nullptr;
}

bool CheckReadable(const std::string& path) {
    if (access(path.c_str(), R_OK) == 0)
        return true;
    std::fprintf(stderr, "%s: cannot be read: %s\n", path.c_str(), std::strerror(errno));
    return false;
}

bool LoadTerminal(const char* folder, const char* program, Terminal* terminal) {
    // For a path that is not a directory DirScan would scan another one, so this is checked first.
    const std::string path = std::string(folder) + "/.";
    if (!CheckReadable(path))
        return false;
    if (!DirScan::IsDir(path.c_str()) || !DirScan(path.c_str()).Scan(AddFile, terminal, 0) ||
        terminal->conf.empty() || terminal->frames.empty()) {
        std::fprintf(stderr, "%s: no folder with a terminal.conf and a *.frames file\n", folder);
        return false;
    }
    ConfReader conf(terminal->conf);
    TraceSetting* const trace = &terminal->trace;
    trace->prefixOn = static_cast<unsigned char>(conf.Number("prefix", 0, 1));
    trace->level = conf.Code("level", MAKE_TRACE_LEVEL_VAL, MAKE_TRACE_LEVEL_KEY);
    trace->traceWay = conf.Code("traceWay", MAKE_TRACE_WAY_VAL, MAKE_TRACE_WAY_KEY);
    trace->dataWay = conf.Code("dataWay", MAKE_TRACE_WAY_VAL, MAKE_TRACE_WAY_KEY);
    trace->scheWay = conf.Code("scheWay", MAKE_TRACE_WAY_VAL, MAKE_TRACE_WAY_KEY);
    trace->maxSize = conf.Number("limit", -1, INT_MAX);
    const std::string name = conf.Text(std::string("name.") + program, sizeof trace->name - 1);
    if (name.find('/') != std::string::npos)
        conf.Fail("name=" + name, "must not hold a /: it becomes part of a file name");
    name.copy(trace->name, sizeof trace->name - 1); // the rest is zero already
    terminal->queue = static_cast<unsigned char>(conf.Text("queue", 1)[0]);
    terminal->lifetime = static_cast<unsigned int>(conf.Number("lifetime", 0, INT_MAX));
    const std::string meters = conf.Text("meters", 500);
    terminal->meters.ParseFrom(meters.c_str(), true, 0);
    if (terminal->meters.EnableCount() == 0)
        conf.Fail("meters=" + meters, "names no meter");
    if (!conf.Good())
        return false;
    UseWaysThatOpen(trace);
    MavTrace::Setting = trace;
    return true;
}

void FinishOnSignals() {
    struct sigaction action = {};
    action.sa_handler = [](int) { gStop = 1; };
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        sigaction(signal, &action, nullptr);
}

void Nap(long milliseconds) {
    const timespec time = {0, milliseconds * 1000000};
    nanosleep(&time, nullptr);
}
