#include "mavkit/diag/MavTrace.h"

#include "mavkit/diag/IsTraced.h"
#include "mavkit/sys/MavFile.h"
#include "mavkit/time/BcdTime.h"

#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPathSize = 100;
constexpr std::size_t kBackupSize = 1000500;

constexpr const char* kDirectories[3] = {"/mnt/sd/term/common/trace/trace",
                                         "/mnt/sd/term/common/trace/data",
                                         "/mnt/sd/term/common/trace/sche"};

constexpr TraceSetting BuiltIn() {
    TraceSetting setting;
    constexpr char kName[] = "Command";
    for (std::size_t i = 0; i < sizeof kName; ++i)
        setting.name[i] = kName[i];
    return setting;
}
constexpr TraceSetting kBuiltIn = BuiltIn();

// Moves the content of the export file `path`, open as `file`, into its backup and returns the emptied
// file; null when that cannot be opened. `file` is closed, or returned when there is no memory.
std::FILE* Rotate(std::FILE* file, const char* path) {
    // A megabyte for a moment: held while a rotation runs and at no other time.
    void* content = std::calloc(1, kBackupSize);
    if (content == nullptr)
        return file;
    std::rewind(file);
    [[maybe_unused]] const std::size_t length = std::fread(content, 1, kBackupSize, file);
    std::fclose(file);
    file = MavFile::OpenFile(path, "w+");
    // Other processes append to the emptied file at once; a stream that wrote at its own offset would
    // write over their lines.
    if (file != nullptr)
        fcntl(fileno(file), F_SETFL, O_APPEND);
    char backupPath[kPathSize + 4];
    std::snprintf(backupPath, sizeof backupPath, "%s_bak", path);
    if (std::FILE* backup = MavFile::OpenFile(backupPath, "w+")) {
        std::fwrite(content, kBackupSize, 1, backup);
        std::fclose(backup);
    }
    std::free(content);
    return file;
}

// The channels that take a message, a bit each.
unsigned int Takers(const TraceSetting& setting, int level, unsigned int flags) {
    return (level <= setting.level ? 1U : 0U) | (flags & 3U) << 1;
}

} // namespace

bool mavkit::IsTraced(int level, unsigned int flags) {
    const TraceSetting& setting = MavTrace(level, flags).GetSetting();
    const unsigned int takers = Takers(setting, level, flags);
    const unsigned char ways[3] = {setting.traceWay, setting.dataWay, setting.scheWay};
    for (unsigned int channel = 0; channel < 3; ++channel)
        if ((takers >> channel & 1U) != 0 && ways[channel] > WAY_NONE && ways[channel] <= WAY_TTYP5)
            return true;
    return false;
}

const char MavTrace::Prefix[] = "kor";
TraceSetting* MavTrace::Setting = nullptr;

const TraceSetting& MavTrace::GetSetting() const {
    static TraceSetting sDefaultSetting;
    sDefaultSetting = kBuiltIn;
    const TraceSetting* setting = Setting;
    return setting != nullptr ? *setting : sDefaultSetting;
}

std::FILE* MavTrace::GetExportFile(unsigned char channel, unsigned char way, const char* name,
                                   long maxSize) const {
    char path[kPathSize];
    int length;
    switch (way) {
    case WAY_STDOUT:
        return stdout;
    case WAY_PUBLIC:
    case WAY_PRIVATE:
        if (channel >= sizeof kDirectories / sizeof kDirectories[0])
            return nullptr;
        length = way == WAY_PUBLIC
                     ? std::snprintf(path, sizeof path, "%s.log", kDirectories[channel])
                     : std::snprintf(path, sizeof path, "%s_%s.log", kDirectories[channel],
                                     name != nullptr ? name : "");
        break;
    default:
        if (way < WAY_TTYP0 || way > WAY_TTYP5)
            return nullptr;
        std::snprintf(path, sizeof path, "%s%d", "/dev/pts/", way - WAY_TTYP0);
        return MavFile::OpenFile(path, "r+");
    }
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof path)
        return nullptr; // the name is too long: a cut path would be another file's
    std::FILE* file = MavFile::OpenFile(path, "a+");
    if (file == nullptr)
        return nullptr;
    // lseek tells the size in one call; on the untouched stream it is the same as fseek and ftell.
    const off_t size = lseek(fileno(file), 0, SEEK_END);
    return size != static_cast<off_t>(-1) && size > maxSize ? Rotate(file, path) : file;
}

void MavTrace::operator()(const char* format, ...) {
    const TraceSetting& setting = GetSetting();
    const unsigned int takers = Takers(setting, level, flags);
    if (takers == 0)
        return;
    const unsigned char ways[3] = {setting.traceWay, setting.dataWay, setting.scheWay};
    char name[sizeof setting.name + 1]; // the record's may lack its terminator
    std::memcpy(name, setting.name, sizeof setting.name);
    name[sizeof setting.name] = '\0';

    char now[7];
    Get_CurBCDTime7(now);
    std::va_list args;
    va_start(args, format);
    for (unsigned char channel = 0; channel < 3; ++channel) {
        if ((takers >> channel & 1U) == 0)
            continue;
        std::FILE* file = GetExportFile(channel, ways[channel], name, setting.maxSize);
        if (file == nullptr)
            continue;
        // A buffer of our own: no allocation, and one write for prefix and message together, so that
        // processes that share a file do not mix their lines.
        char buffer[4096];
        if (file != stdout)
            std::setvbuf(file, buffer, _IOFBF, sizeof buffer);
        if (setting.prefixOn != 0 && !printed) {
            printed = true;
            const auto* t = reinterpret_cast<const unsigned char*>(now);
            std::fprintf(file, "%s(%02X-%02X %02X:%02X:%02X):", Prefix, unsigned{t[2]},
                         unsigned{t[3]}, unsigned{t[4]}, unsigned{t[5]}, unsigned{t[6]});
        }
        std::va_list copy; // one message may go to all three
        va_copy(copy, args);
        std::vfprintf(file, format, copy);
        va_end(copy);
        if (file != stdout)
            std::fclose(file);
    }
    va_end(args);
}
