// The program that power cuts of the emulated terminal interrupt, and that checks what they leave:
//
// `cuts write NAME` works like a process of the terminal, for ever. It reports "NAME done STEP
// NUMBER" after each step and "NAME start STEP NUMBER" before a long one.
//
// `cuts look TRACE GENERAL REGION COPY` runs after the cut. It reports which of the steps up to
// those numbers are there, then starts and works like a process again.
//
// Every line and every region has its number in each of its parts, so that half a line, an old line
// and bytes of another file can be recognised.
#include "Contains.h"
#include "mavkit/mavkit.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <sys/stat.h>

namespace {

constexpr char kTraceFile[] = "/mnt/sd/term/common/trace/trace_cuts.log";
constexpr char kBackup[] = "/mnt/sd/term/common/trace/trace_cuts.log_bak";
constexpr char kRegion[] = "/mnt/sd/term/common/cuts.shm";
constexpr char kCopy[] = "/mnt/sd/term/common/cuts.copy";
constexpr int kRotateAbove = 4000; // bytes: 60 lines, so that cuts also hit rotations
constexpr int kKept = 40;          // lines that the file and its backup have for certain

int Number(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

// The text of line `number`; every part of it depends on the number.
std::string Line(const char* step, int number) {
    char head[32];
    std::snprintf(head, sizeof head, "%s %06d ", step, number);
    std::string line = head;
    for (int i = 0; i < 50; ++i)
        line += static_cast<char>('a' + (number * 7 + i) % 26);
    return line;
}

struct Region {
    unsigned int number;
    unsigned int words[1023];

    void Fill(unsigned int value) {
        number = value;
        for (unsigned int i = 0; i < 1023; ++i)
            words[i] = value * 2654435761U + i;
    }
    bool Good() const {
        Region good;
        good.Fill(number);
        return std::memcmp(this, &good, sizeof good) == 0;
    }
};

// Reads the region in a file; returns false when it is short or damaged.
bool ReadRegion(std::FILE* file, Region* region) {
    return std::fread(region, sizeof *region, 1, file) == 1 && region->Good();
}

bool IsValid(std::FILE* file, void* rejected) {
    Region region;
    const bool valid = ReadRegion(file, &region);
    *static_cast<bool*>(rejected) = !valid;
    return valid;
}

bool FillNew(std::FILE* file, void*) {
    Region region;
    region.Fill(0);
    return std::fwrite(&region, sizeof region, 1, file) == 1 && std::fflush(file) == 0 &&
           std::ferror(file) == 0;
}

// One write for a line: several of these programs may share the console.
void Report(const char* name, const char* step, int number) {
    std::printf("%s %s %d\n", name, step, number);
    std::fflush(stdout);
}

bool WillRotate() {
    struct stat status;
    return stat(kTraceFile, &status) == 0 && status.st_size > kRotateAbove;
}

void TraceLine(int number) { MavTrace(LEVEL_ERROR, 0)("%s\n", Line("trace", number).c_str()); }
void GeneralLine(int number) { GENERAL_LOG("%s\n", Line("general", number).c_str()); }

int Write(const char* name, ShareMem& region) {
    auto* shared = reinterpret_cast<Region*>(region.base);
    for (int i = 1;; ++i) {
        if (WillRotate())
            Report(name, "start rotation", i);
        TraceLine(i);
        Report(name, "done trace", i);
        GeneralLine(i);
        Report(name, "done general", i);
        shared->Fill(static_cast<unsigned int>(i));
        if (!region.Save(false, false))
            return 1;
        Report(name, "done region", i);
        if (i % 8 == 0) {
            Report(name, "start copy", i);
            std::string from = kRegion;
            std::string to = kCopy;
            if (MavFile::CopyFile(from.data(), to.data()) != 0)
                return 1;
            Report(name, "done copy", i);
        }
    }
}

// The content of the log files for one kind of line.
struct Found {
    std::set<int> numbers;
    int torn = 0;
    int foreign = 0;

    // The lines of `path` after their first `skip` characters.
    void Read(const char* path, const char* step, std::size_t skip) {
        std::FILE* file = std::fopen(path, "r");
        if (file == nullptr)
            return;
        std::string line;
        int c;
        int last = 0;
        while ((c = std::getc(file)) != EOF) {
            if (c != '\n') {
                line += static_cast<char>(c);
                continue;
            }
            Take(line, step, skip, &last);
            line.clear();
        }
        // After the last line of a backup there are zero bytes, up to its full length.
        if (line.find_first_not_of('\0') != std::string::npos)
            Take(line, step, skip, &last);
        std::fclose(file);
    }

    void Take(const std::string& line, const char* step, std::size_t skip, int* last) {
        const std::string text = line.size() > skip ? line.substr(skip) : "";
        const int number = Number(text.c_str() + std::min(text.size(), std::strlen(step)));
        if (text == Line(step, number) && number > *last) {
            numbers.insert(number);
            *last = number;
        } else if (text.empty() || Line(step, number).compare(0, text.size(), text) == 0 ||
                   line.find('\0') != std::string::npos) {
            ++torn;
        } else {
            ++foreign;
        }
    }

    // How many of the lines after `from` up to `to` are missing.
    int Lost(int from, int to) const {
        int lost = 0;
        for (int i = std::max(from, 0) + 1; i <= to; ++i)
            lost += numbers.count(i) == 0 ? 1 : 0;
        return lost;
    }
};

void Look(int trace, int general, int region, int copy) {
    Found traces;
    traces.Read(kBackup, "trace", 0);
    traces.Read(kTraceFile, "trace", 0);
    std::printf("trace-lost %d\ntrace-torn %d\ntrace-foreign %d\n",
                traces.Lost(trace - kKept, trace), traces.torn, traces.foreign);
    Found entries;
    entries.Read(GENERAL_LOG_PATH, "general", std::strlen("MM-DD hh:mm:ss\t"));
    std::printf("general-lost %d\ngeneral-torn %d\ngeneral-foreign %d\n", entries.Lost(0, general),
                entries.torn, entries.foreign);
    for (const char* path : {kRegion, kCopy}) {
        const int reported = path == kRegion ? region : copy;
        const char* state = "missing";
        Region content;
        if (std::FILE* file = std::fopen(path, "r")) {
            if (!ReadRegion(file, &content))
                state = "damaged";
            else
                state = static_cast<int>(content.number) < reported ? "old" : "good";
            std::fclose(file);
        }
        std::printf("%s %s\n", path == kRegion ? "region" : "copy", state);
    }
    std::fflush(stdout);
}

// Works once more, and checks that it can read back what it wrote. The first new line may follow
// half an old one.
void WorkAgain(ShareMem& region, int number) {
    TraceLine(number);
    GeneralLine(number);
    std::printf("again-trace %d\n", Contains(kTraceFile, Line("trace", number)) ? 1 : 0);
    std::printf("again-general %d\n", Contains(GENERAL_LOG_PATH, Line("general", number)) ? 1 : 0);
    std::printf("again-region %d\n", region.base != nullptr && region.Save(false, false) ? 1 : 0);
}

} // namespace

int main(int argc, char** argv) {
    static TraceSetting setting;
    setting.prefixOn = 0;
    setting.level = LEVEL_ERROR; // without the library's own reports
    setting.traceWay = WAY_PRIVATE;
    setting.maxSize = kRotateAbove;
    std::snprintf(setting.name, sizeof setting.name, "cuts");
    MavTrace::Setting = &setting;
    const bool looks = argc == 6;
    if (!looks && argc != 3)
        return 2;
    if (looks)
        Look(Number(argv[2]), Number(argv[3]), Number(argv[4]), Number(argv[5]));
    ShareMem region;
    bool rejected = false;
    region.Init(kRegion, sizeof(Region), FillNew, IsValid, &rejected);
    if (looks) {
        std::printf("region-rejected %d\n", rejected ? 1 : 0);
        WorkAgain(region, Number(argv[2]) + 1000);
        return 0;
    }
    return region.base != nullptr ? Write(argv[2], region) : 1;
}
