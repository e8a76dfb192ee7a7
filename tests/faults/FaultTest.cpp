// Every libc call that the library makes fails in turn. For each operation the walk first runs it
// clean and notes which calls it makes; then it runs it again and again, each time with another one
// of them failing, and holds what came of it against outcomes.txt, which people have read. Nothing
// may leak, and the next run, without a fault, must be clean again.
#include "device/Device.h"
#include "mavkit/mavkit.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <unistd.h>

namespace {

// The error that each call fails with, where another one than ENOMEM is likelier.
int ErrorOf(const std::string& call) {
    static const std::map<std::string, int> errors = {
        {"fopen", ENFILE},  {"open", ENFILE},  {"fread", EIO},
        {"fwrite", ENOSPC}, {"ftok", ENOENT},  {"msgget", ENOSPC},
        {"msgsnd", EAGAIN}, {"msgrcv", EIDRM}, {"msync", EIO}};
    const auto found = errors.find(call);
    return found != errors.end() ? found->second : ENOMEM;
}

template <typename... Values>
std::string Text(const Values&... values) {
    std::ostringstream text;
    (text << ... << values);
    return text.str();
}

std::string Digits(const void* bcd) {
    std::string text;
    GetBcdTimeString(text, static_cast<const unsigned char*>(bcd));
    return text;
}

// A fresh terminal for one run of an operation.
class Trial : public Terminal {
public:
    // Of the calls that are named so, the one after `skip` others is to fail.
    explicit Trial(const std::string& call = "time", int skip = -1) : Terminal(WAY_PUBLIC) {
        setting.level = LEVEL_INFO;
        for (const char* directory : {"/mnt/tree/a/b", "/mnt/home"})
            std::filesystem::create_directories(device.Path(directory));
        device.Write("/mnt/tree/a/b/x", "");
        device.Write("/mnt/home/y", "");
        std::filesystem::current_path(device.Path("/mnt/home"));
        Device::Fail(call.c_str(), ErrorOf(call), skip < 0 ? 0 : 1, skip);
        Device::ForgetCalls();
    }
    ~Trial() {
        EXPECT_EQ(std::filesystem::current_path(), device.Path("/mnt/home"));
        std::filesystem::current_path(before_);
    }

    // What `result` says and what was told, on one line, without what differs from run to run.
    std::string Outcome(std::string result) {
        const std::string told = device.GeneralLog() + out.Take(), root = device.Path("");
        result += told.empty() ? "" : " | " + told;
        for (std::size_t at; (at = result.find(root)) != std::string::npos;)
            result.erase(at, root.size());
        for (const std::string tag : {"queueid=", ",line=", ",ipData=0x"})
            for (std::size_t at = 0; (at = result.find(tag, at)) != std::string::npos;) {
                at += tag.size();
                result.replace(at, result.find_first_not_of("0123456789abcdef", at) - at, "N");
            }
        for (std::size_t at; (at = result.find_first_of("\t\n")) != std::string::npos;)
            result.replace(at, 1, result[at] == '\t' ? " > " : ";");
        return result;
    }

private:
    const std::filesystem::path before_ = std::filesystem::current_path();
};

class Faults : public testing::Test {
protected:
    Faults() {
        std::ifstream file(MAVKIT_FAULT_OUTCOMES);
        for (std::string row; std::getline(file, row);)
            rows_.insert(row);
    }
    ~Faults() override {
        for (const std::string& row : rows_)
            ADD_FAILURE() << "in the table, but never seen: " << row;
        std::printf("%d faults\n", faults_);
    }

    void Compare(const std::string& row) {
        EXPECT_EQ(rows_.erase(row), 1U) << "not in the table: " << row;
    }

    // `operation` does something on a terminal and tells its result.
    template <typename Operation>
    void Walk(const std::string& name, Operation operation) {
        std::string clean;
        std::map<std::string, int> calls;
        {
            Trial trial;
            clean = operation(trial);
            calls = Device::Calls();
            clean = trial.Outcome(clean);
        }
        Compare(name + ": " + clean);
        for (const auto& [call, count] : calls)
            for (int skip = 0; skip < count; ++skip, ++faults_) {
                const std::string fault = Text(name, ", ", call, ' ', skip + 1);
                SCOPED_TRACE(fault);
                std::string outcome;
                {
                    Trial trial(call, skip);
                    outcome = trial.Outcome(operation(trial));
                }
                Compare(fault + ": " + (outcome == clean ? "as if nothing had failed" : outcome));
            }
        Trial again;
        EXPECT_EQ(again.Outcome(operation(again)), clean) << "a fault has left something behind";
    }

private:
    std::set<std::string> rows_; // of the table, that have not been seen yet
    int faults_ = 0;
};

bool Fill(std::FILE* file, void*) { return std::fwrite("region", 6, 1, file) == 1; }

bool Check(std::FILE* file, void*) {
    char text[6];
    return std::fread(text, 6, 1, file) == 1 && std::memcmp(text, "region", 6) == 0;
}

bool Note(int depth, bool, const char* directory, const char* name, void* context) {
    *static_cast<std::string*>(context) +=
        Text(' ', depth, std::strrchr(directory, '/'), '/', name);
    return true;
}

TEST_F(Faults, EveryCallFailsInTurn) {
    constexpr long kNow = Terminal::kNow;
    const std::string trace = std::string(Device::kTraceDir) + "trace.log";
    Walk("general log", [](Trial&) { return GENERAL_LOG("entry\n"), ""; });
    Walk("trace line", [](const Trial& t) {
        MavTrace(LEVEL_ERROR, 0)("line\n");
        return t.device.TraceFile();
    });
    Walk("rotation", [&](Trial& t) {
        t.setting.maxSize = 2;
        t.device.Write(trace, "old ");
        t.device.Write(trace + "_bak", "older ");
        MavTrace(LEVEL_ERROR, 0)("new");
        const std::string backup = t.device.Read(trace + "_bak");
        return Text(t.device.TraceFile(), '+', backup.c_str(), backup.size());
    });
    Walk("open", [](const Trial&) {
        const int fd = MavFile::OpenFile("/mnt/file", true);
        close(fd);
        return Text(fd < 0 ? -1 : 0);
    });
    Walk("create", [](const Trial& t) {
        const int result = MavFile::CreateFile("/mnt/file", 5000, 1);
        return Text(result, ' ', t.device.Read("/mnt/file").size());
    });
    Walk("copy", [](const Trial& t) {
        char from[] = "/mnt/from", to[] = "/mnt/to";
        t.device.Write(from, std::string(3000, 'x'));
        const int result = MavFile::CopyFile(from, to);
        return Text(result, ' ', t.device.Read(to).size());
    });
    Walk("key", [](const Trial& t) {
        char path[] = "/mnt/conf", key[] = "speed", value[511] = "unset";
        t.device.Write(path, "speed=9\n");
        const int result = MavFile::SetFileRead(path, key, value);
        return Text(result, " '", value, "'");
    });
    Walk("hex file", [](const Trial& t) {
        t.device.Write("/mnt/hex", "0A\n0B\n");
        ByteString bytes;
        const int result = ParseHexFromFile("/mnt/hex", bytes);
        return Text(result, ' ', bytes.size());
    });
    Walk("region", [](const Trial& t) {
        ShareMem region;
        region.Init("/mnt/region", 6, Fill, Check, nullptr);
        const bool again = region.base == nullptr && region.Init(Fill, Check, nullptr);
        const bool mapped = region.base != nullptr;
        return Text(again    ? "again"
                    : mapped ? "mapped"
                             : "no region",
                    mapped && region.Save(false, false) ? " saved '" : " '",
                    t.device.Read("/mnt/region"), "'");
    });
    Walk("queue", [](const Trial&) {
        Message queue('f');
        unsigned char text[] = "abc";
        unsigned length = 3;
        const bool sent = queue.SendData(text, 3, 5), has = queue.HasMsg(0);
        const bool received = queue.RecvData(text, length, 5), left = queue.HasMsg(0);
        queue.Destroy();
        return Text(sent ? "sent" : "not sent", has ? " has" : "", received ? " received" : "",
                    left ? " left" : "");
    });
    Walk("scan", [](const Trial& t) {
        std::string seen; // one entry a directory: the kernel's order is its own
        const bool ended = DirScan(t.device.Path("/mnt/tree").c_str()).Scan(Note, &seen, -1);
        return (ended ? "true" : "false") + seen;
    });
    Walk("path", [](const Trial&) {
        const DirScan scan("../tree/x.log");
        return Text(scan.root != nullptr ? scan.root : "-", ' ',
                    scan.filePart != nullptr ? scan.filePart : "-");
    });
    Walk("address", [](const Trial&) {
        char text[16] = "unset";
        const int result = GetNetIP("lo", text);
        return Text(result, ' ', text);
    });
    Walk("process", [](const Trial&) { return Text(IsProcessRunning(getpid(), nullptr)); });
    Walk("record to time", [](const Trial&) {
        long t = 0;
        Time_BCDTime7TotTime("\x20\x24\x03\x05\x06\x07\x08", &t);
        return Text(t);
    });
    Walk("time to record", [](const Trial&) {
        char bcd[7], digits[15];
        Get_BCDTime7(kNow, bcd);
        Time_tTimeToAscTime14(kNow, digits);
        return Text(Digits(bcd), " '", digits, "'");
    });
    Walk("now", [](const Trial&) {
        char bcd[7];
        Get_CurBCDTime7(bcd);
        tm fields = {};
        Get_CurtmTime(&fields);
        const std::string date = timestr(nullptr);
        return Text(Digits(bcd), ' ', fields.tm_hour, " '", date, "' '", shorttimestr(nullptr),
                    "'");
    });
    Walk("add", [](const Trial&) { return Text(dateadd(Month, 1, kNow)); });
    Walk("trim", [](const Trial&) { return Text(datetrim(Day, kNow)); });
    Walk("difference",
         [](const Trial&) { return Text(datediff(Month, kNow, kNow + 86400L * 40)); });
    Walk("difference of records", [](const Trial&) { // in months, to March 1
        return Text(bcddatediff(Month, "\x20\x23\x12\x31\0\0", "\x20\x24\x02\x30\0\0"));
    });
    Walk("bound above", [](const Trial&) { return Text(upboundtime(kNow, 1, Day, 1)); });
    Walk("bound below", [](const Trial&) { return Text(downboundtime(kNow, 1, Day, 1)); });
    Walk("bound of seconds", [](const Trial&) { return Text(upboundtime(kNow, 1, Second, 90)); });
    Walk("timer point",
         [](const Trial&) { return Text(gettimerpoint(kNow, Month, 1, Hour, 2, false)); });
    Walk("same period", [](const Trial&) {
        unsigned char a[] = "\x20\x24\x03\x05\x06\x07", b[] = "\x20\x24\x03\x05\x07\x29\x59";
        return Text(issameperiod(a, b, Minute, 90), issameperiod(a, b, Hour, 7));
    });
    Walk("layout", [](const Trial&) {
        unsigned char in[] = {0x20, 0x24, 0x03, 0x05}, out[8] = {};
        const int result = ExchangeBCDTime(0x47, in, 0x97, out);
        return Text(result, ' ', Digits(out), ' ', int{out[7]});
    });
    Walk("clock", [](const Trial& t) {
        char time[] = "\x24\x03\x05\x07\x07\x08";
        const int set = Set_SysTime(time), run = Set_SYS_HWClock(time);
        return Text(set, ' ', run, " set ", t.device.clockSets.size(), " ran ",
                    t.device.commands.size());
    });
}

} // namespace
