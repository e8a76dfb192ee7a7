// Every libc call that the library makes fails in turn. For each operation the walk first runs it
// clean and notes which calls it makes; then it runs it again and again, each time with another one of
// them failing, and holds what came of it against outcomes.txt, which people have read. Nothing may leak, and
// the next run, without a fault, must be clean again.
#include "device/Device.h"
#include "mavkit/mavkit.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The error that each call fails with, where another one than ENOMEM is likelier.
int ErrorOf(const std::string& call) {
    static const std::map<std::string, int> errors = {
        {"fopen", ENFILE},  {"open", EACCES},   {"openat", EMFILE},    {"fread", EIO},
        {"fwrite", ENOSPC}, {"ftok", ENOENT},   {"msgget", ENOSPC},    {"msgsnd", EAGAIN},
        {"msgrcv", EIDRM},  {"msgctl", EPERM},  {"msync", EIO},        {"opendir", EACCES},
        {"chdir", ENOENT},  {"fchdir", EACCES}, {"getcwd", ENOENT},    {"socket", EMFILE},
        {"ioctl", ENODEV},  {"lseek", ESPIPE},  {"mktime", EOVERFLOW},
    };
    const auto found = errors.find(call);
    return found != errors.end() ? found->second : ENOMEM;
}

struct Operation {
    const char* name;
    std::function<std::string(const Device&)> run; // its result as text
};

std::string Text(long long value) { return std::to_string(value); }

bool Fill(std::FILE* file, void*) { return std::fwrite("region", 6, 1, file) == 1; }
bool Check(std::FILE* file, void*) {
    char text[6];
    return std::fread(text, 6, 1, file) == 1 && std::memcmp(text, "region", 6) == 0;
}

bool Note(int depth, bool, const char* directory, const char* name, void* context) {
    const char* last = std::strrchr(directory, '/');
    static_cast<std::set<std::string>*>(context)->insert(Text(depth) + last + "/" + name);
    return true;
}

std::string Scan(const Device& device) {
    DirScan scan(device.Path("/mnt/tree").c_str());
    std::set<std::string> seen; // the kernel's order is its own
    const bool ended = scan.Scan(Note, &seen, -1);
    std::string text = ended ? "true" : "false";
    for (const std::string& entry : seen)
        text += " " + entry;
    return text;
}

std::string Dates(const char* bcd) {
    std::string text;
    for (int i = 0; i < 7; ++i) {
        char byte[3];
        String_uCharToAsc2(static_cast<unsigned char>(bcd[i]), byte);
        text += byte;
    }
    return text;
}

constexpr long kNow = 1709618828; // 2024-03-05 06:07:08 UTC

const std::vector<Operation>& Operations() {
    static const std::vector<Operation> operations = {
        {"general log", [](const Device&) { return GENERAL_LOG("entry\n"), ""; }},
        {"trace line",
         [](const Device& d) {
             MavTrace(LEVEL_ERROR, 0)("line\n");
             return d.Read("/mnt/sd/term/common/trace/trace.log");
         }},
        {"rotation",
         [](const Device& d) {
             MavTrace::Setting->maxSize = -1;
             MavTrace(LEVEL_ERROR, 0)("line\n");
             return d.Read("/mnt/sd/term/common/trace/trace.log") + "+" +
                    Text(static_cast<long long>(
                        d.Read("/mnt/sd/term/common/trace/trace.log_bak").size()));
         }},
        {"open",
         [](const Device&) {
             const int fd = MavFile::OpenFile("/mnt/file", true);
             close(fd);
             return Text(fd < 0 ? -1 : 0);
         }},
        {"create",
         [](const Device& d) {
             const int result = MavFile::CreateFile("/mnt/file", 5000, 1);
             return Text(result) + " " + Text(static_cast<long long>(d.Read("/mnt/file").size()));
         }},
        {"copy",
         [](const Device& d) {
             d.Write("/mnt/from", std::string(3000, 'x'));
             char from[] = "/mnt/from";
             char to[] = "/mnt/to";
             const int result = MavFile::CopyFile(from, to);
             return Text(result) + " " + Text(static_cast<long long>(d.Read("/mnt/to").size()));
         }},
        {"key",
         [](const Device& d) {
             d.Write("/mnt/conf", "speed=9\n");
             char path[] = "/mnt/conf";
             char key[] = "speed";
             char value[511] = "unset";
             const int result = MavFile::SetFileRead(path, key, value);
             return Text(result) + " '" + value + "'";
         }},
        {"hex file",
         [](const Device& d) {
             d.Write("/mnt/hex", "0A\n0B\n");
             ByteString bytes;
             const int result = ParseHexFromFile("/mnt/hex", bytes);
             return Text(result) + " " + Text(static_cast<long long>(bytes.size()));
         }},
        {"region",
         [](const Device& d) {
             ShareMem region;
             region.Init("/mnt/region", 6, Fill, Check, nullptr);
             const bool again = region.base == nullptr && region.Init(Fill, Check, nullptr);
             const bool mapped = region.base != nullptr;
             const std::string saved = mapped && region.Save(false, false) ? " saved" : "";
             return (again    ? "again"
                     : mapped ? "mapped"
                              : "no region") +
                    saved + " '" + d.Read("/mnt/region") + "'";
         }},
        {"queue",
         [](const Device&) {
             Message queue('f');
             const unsigned char text[] = "abc";
             const bool sent = queue.SendData(text, 3, 5);
             const bool has = queue.HasMsg(0);
             unsigned char got[8];
             unsigned length = sizeof got;
             const bool received = queue.RecvData(got, length, 5);
             queue.Destroy();
             return std::string(sent ? "sent" : "not sent") + (has ? " has" : "") +
                    (received ? " received" : "");
         }},
        {"scan", Scan},
        {"address",
         [](const Device&) {
             char text[16] = "unset";
             const int result = GetNetIP("lo", text);
             return Text(result) + " " + text;
         }},
        {"process", [](const Device&) { return Text(IsProcessRunning(getpid(), nullptr)); }},
        {"record to time",
         [](const Device&) {
             long t = 0;
             Time_BCDTime7TotTime("\x20\x24\x03\x05\x06\x07\x08", &t);
             return Text(t);
         }},
        {"time to record",
         [](const Device&) {
             char bcd[7];
             Get_BCDTime7(kNow, bcd);
             char digits[15];
             Time_tTimeToAscTime14(kNow, digits);
             return Dates(bcd) + " '" + digits + "'";
         }},
        {"now",
         [](const Device&) {
             char bcd[7];
             Get_CurBCDTime7(bcd);
             tm fields = {};
             Get_CurtmTime(&fields);
             const std::string date = timestr(nullptr);
             const std::string time = shorttimestr(nullptr);
             return Dates(bcd) + " " + Text(fields.tm_hour) + " '" + date + "' '" + time + "'";
         }},
        {"add", [](const Device&) { return Text(dateadd(Month, 1, kNow)); }},
        {"trim", [](const Device&) { return Text(datetrim(Day, kNow)); }},
        {"difference",
         [](const Device&) { return Text(datediff(Month, kNow, kNow + 86400 * 40)); }},
        {"bound above", [](const Device&) { return Text(upboundtime(kNow, 1, Day, 1)); }},
        {"bound below", [](const Device&) { return Text(downboundtime(kNow, 1, Day, 1)); }},
        {"timer point",
         [](const Device&) { return Text(gettimerpoint(kNow, Month, 1, Hour, 2, false)); }},
        {"layout",
         [](const Device&) {
             unsigned char in[] = {0x20, 0x24, 0x03, 0x05};
             unsigned char out[8] = {};
             const int result = ExchangeBCDTime(0x47, in, 0x97, out);
             return Text(result) + " " + Dates(reinterpret_cast<char*>(out)) + Text(out[7]);
         }},
        {"clock",
         [](const Device& d) {
             char t[] = "\x24\x03\x05\x07\x07\x08";
             const int set = Set_SysTime(t);
             const int run = Set_SYS_HWClock(t);
             return Text(set) + " " + Text(run) + " set " +
                    Text(static_cast<long long>(d.clockSets.size())) + " ran " +
                    Text(static_cast<long long>(d.commands.size()));
         }},
    };
    return operations;
}

// One run of an operation on a fresh terminal, with at most one fault: what came of it, on one line.
class Trial {
public:
    Trial() : home(std::filesystem::current_path()) {
        for (const char* directory : {"/mnt/tree", "/mnt/tree/a", "/mnt/home"})
            mkdir(device.Path(directory).c_str(), 0755);
        device.Write("/mnt/tree/a/x", "");
        device.Write("/mnt/home/y", "");
        std::filesystem::current_path(device.Path("/mnt/home"));
        Device::HoldClock(kNow);
        setting.prefixOn = 0;
        setting.traceWay = WAY_PUBLIC;
        setting.level = LEVEL_INFO;
        MavTrace::Setting = &setting;
    }
    ~Trial() {
        MavTrace::Setting = nullptr;
        std::filesystem::current_path(home);
    }

    std::string Of(const Operation& operation) {
        setting.maxSize = 50000;
        const int descriptors = Device::LowestFreeDescriptor();
        Device::ForgetCalls();
        std::string result = operation.run(device);
        calls.clear();
        for (const char* name : Device::Names())
            calls[name] = Device::Calls(name);
        EXPECT_EQ(Device::LowestFreeDescriptor(), descriptors) << "a descriptor leaks";
        EXPECT_EQ(std::filesystem::current_path(), device.Path("/mnt/home"))
            << "the process is elsewhere";
        const std::string told = device.GeneralLog() + out.Take();
        if (!told.empty())
            result += " | " + told;
        return Readable(result);
    }

    std::filesystem::path home;
    Device device;
    StdoutCapture out;
    TraceSetting setting;
    std::map<std::string, int> calls;

private:
    // On one line, without what differs from run to run.
    std::string Readable(std::string text) const {
        const std::string root = device.Path("");
        for (std::size_t at; (at = text.find(root)) != std::string::npos;)
            text.erase(at, root.size());
        for (const char* before : {"queueid=", ",line=", ",ipData=0x"}) {
            for (std::size_t at = 0; (at = text.find(before, at)) != std::string::npos;) {
                at += std::strlen(before);
                while (at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at])))
                    text.erase(at, 1);
                text.insert(at, "N");
            }
        }
        for (std::size_t at; (at = text.find('\t')) != std::string::npos;)
            text.replace(at, 1, " > ");
        for (char& c : text)
            c = c == '\n' ? ';' : c;
        return text;
    }
};

TEST(Faults, EveryCallFailsInTurn) {
    const Zone zone("UTC0");
    std::ifstream expected(MAVKIT_FAULT_OUTCOMES);
    std::set<std::string> rows;
    for (std::string row; std::getline(expected, row);)
        if (!row.empty())
            rows.insert(row);

    std::string unknown;
    const auto compare = [&](const std::string& row) {
        if (rows.erase(row) == 0)
            unknown += row + "\n";
    };
    int faults = 0;
    for (const Operation& operation : Operations()) {
        std::string clean;
        std::map<std::string, int> calls;
        {
            Trial trial;
            clean = trial.Of(operation);
            calls = trial.calls;
            compare(std::string(operation.name) + ": " + clean);
        }
        for (const auto& call : calls) {
            for (int nth = 0; nth < call.second; ++nth) {
                SCOPED_TRACE(testing::Message() << operation.name << ' ' << call.first << nth);
                std::string outcome;
                {
                    Trial trial;
                    Device::Fail(call.first.c_str(), ErrorOf(call.first), 1, nth);
                    outcome = trial.Of(operation);
                }
                compare(std::string(operation.name) + ", " + call.first + " " + Text(nth + 1) +
                        ": " + (outcome == clean ? "as if nothing had failed" : outcome));
                ++faults;
            }
        }
        Trial again;
        EXPECT_EQ(again.Of(operation), clean) << "a fault has left something behind";
    }
    if (!unknown.empty())
        ADD_FAILURE() << "outcomes that the table does not have:\n" << unknown;
    for (const std::string& row : rows)
        ADD_FAILURE() << "in the table, but never seen: " << row;
    RecordProperty("faults", faults);
    std::printf("%d faults in %zu operations\n", faults, Operations().size());
}

} // namespace
