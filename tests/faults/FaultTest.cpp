// Every libc call of the stand-in's table, and operator new, fails in turn. For each operation the
// walk first runs it without a fault and notes which calls it makes; then it runs it again and
// again, each time with another one of them failing, and compares the outcome with the row of
// outcomes.txt. Nothing may leak, and the next run, without a fault, must be clean again.
//
// With MAVKIT_UPDATE in the environment the walk writes outcomes.txt anew instead. Read what
// changed before you commit it: each row states what a caller sees after that fault.
#include "device/Device.h"
#include "mavkit/mavkit.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <set>
#include <sstream>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace {

// The errors of the walk. Their texts are each libc's own; the table has their names.
const std::pair<int, const char*> kErrors[] = {
    {EAGAIN, "EAGAIN"}, {EIDRM, "EIDRM"},   {EIO, "EIO"},      {ENFILE, "ENFILE"},
    {ENOENT, "ENOENT"}, {ENOMEM, "ENOMEM"}, {ENOSPC, "ENOSPC"}};

// The error that each call fails with, where another error than ENOMEM is more likely.
int ErrorOf(const std::string& call) {
    static const std::map<std::string, int> errors = {
        {"fopen", ENFILE},    {"open", ENFILE},    {"fread", EIO},       {"fwrite", ENOSPC},
        {"vfprintf", ENOSPC}, {"fflush", ENOSPC},  {"fclose", ENOSPC},   {"write", ENOSPC},
        {"pread", EIO},       {"close", EIO},      {"vdprintf", ENOSPC}, {"ftok", ENOENT},
        {"lstat", ENOENT},    {"fstatat", ENOENT}, {"readdir", EIO},     {"msgget", ENOSPC},
        {"msgsnd", EAGAIN},   {"msgrcv", EIDRM},   {"msync", EIO}};
    const auto found = errors.find(call);
    return found != errors.end() ? found->second : ENOMEM;
}

template <typename... Values>
std::string Text(const Values&... values) {
    const FaultsPaused pause;
    std::ostringstream text;
    (text << ... << values);
    return text.str();
}

std::string Digits(const void* bcd) {
    const FaultsPaused pause;
    std::string text;
    GetBcdTimeString(text, static_cast<const unsigned char*>(bcd));
    return text;
}

// A fresh terminal for one run of an operation.
class Trial : public Terminal {
public:
    // Of the calls with this name, the one after `skip` others must fail.
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
        EXPECT_EQ(device.Path("/mnt/home"), std::filesystem::current_path());
        std::filesystem::current_path(before_);
    }

    // `result` and what was logged, on one line, without what differs from run to run.
    std::string Outcome(std::string result) {
        const FaultsPaused pause;
        const std::string logged = device.GeneralLog() + out.Take(), root = device.Path("");
        result += logged.empty() ? "" : " | " + logged;
        Replace(result, root, "");
        for (const auto& [error, name] : kErrors)
            Replace(result, std::strerror(error), name);
        for (const std::string tag : {"queueid=", ",line=", ",ipData=0x"})
            for (std::size_t at = 0; (at = result.find(tag, at)) != std::string::npos;) {
                at += tag.size();
                result.replace(at, result.find_first_not_of("0123456789abcdef", at) - at, "N");
            }
        Replace(result, "\t", " > ");
        Replace(result, "\n", ";");
        if (result.size() > 500)
            result = Text(result.substr(0, 100), "... ", result.size(), " bytes");
        return result;
    }

    static void Replace(std::string& text, const std::string& what, const std::string& with) {
        for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos;)
            text.replace(at, what.size(), with);
    }

private:
    const std::filesystem::path before_ = std::filesystem::current_path();
};

class Faults : public testing::Test {
protected:
    Faults() {
        std::ifstream file(MAVKIT_FAULT_OUTCOMES);
        for (std::string row; std::getline(file, row);) {
            const std::size_t colon = row.find(": ");
            rows_[row.substr(0, colon)] = row.substr(colon + 2);
        }
    }
    ~Faults() override {
        std::printf("%d faults\n", faults_);
        for (const auto& [call, count] : made_)
            EXPECT_NE(0, count) << "no operation makes this call: " << call;
        if (std::getenv("MAVKIT_UPDATE") != nullptr) {
            std::ofstream(MAVKIT_FAULT_OUTCOMES) << seen_;
            return;
        }
        for (const auto& [name, outcome] : rows_)
            ADD_FAILURE() << "in the table, but never seen: " << name << ": " << outcome;
    }

    void Compare(const std::string& name, const std::string& outcome) {
        seen_ += Text(name, ": ", outcome, '\n');
        if (std::getenv("MAVKIT_UPDATE") != nullptr)
            return;
        const auto row = rows_.find(name);
        EXPECT_EQ(row != rows_.end() ? row->second : "not in the table", outcome) << name;
        rows_.erase(name);
    }

    // `operation` does something on a terminal and returns its result as a text.
    template <typename Operation>
    static std::string Run(Trial& trial, Operation operation) {
        try {
            return operation(trial);
        } catch (const std::bad_alloc&) {
            return "std::bad_alloc";
        }
    }

    template <typename Operation>
    void Walk(const std::string& name, Operation operation) {
        std::string clean;
        std::map<std::string, int> calls;
        {
            Trial trial;
            clean = Run(trial, operation);
            calls = Device::Calls();
            clean = trial.Outcome(clean);
        }
        Compare(name, clean);
        for (const auto& [call, count] : calls) {
            made_[call] += count;
            // The standard library decides how often a string grows, and the kernel in which order
            // a directory is listed: such calls are not numbered, only their outcomes are compared.
            const bool numbered = call != "new" && call != "readdir";
            std::set<std::string> outcomes;
            for (int skip = 0; skip < count; ++skip, ++faults_) {
                const std::string fault = Text(name, ", ", call, ' ', skip + 1);
                SCOPED_TRACE(fault);
                std::string outcome;
                {
                    Trial trial(call, skip);
                    outcome = Run(trial, operation);
                    EXPECT_FALSE(Device::HasFault(call.c_str())) << "never happened";
                    outcome = trial.Outcome(outcome);
                }
                outcome = outcome == clean ? "as if nothing had failed" : outcome;
                if (numbered)
                    Compare(fault, outcome);
                else
                    outcomes.insert(outcome);
            }
            int number = 0;
            for (const std::string& outcome : outcomes)
                Compare(Text(name, ", ", call, ", ", static_cast<char>('a' + number++)), outcome);
        }
        Trial again;
        EXPECT_EQ(clean, again.Outcome(Run(again, operation)))
            << "a fault has left something behind";
    }

private:
    std::map<std::string, std::string> rows_; // of the table, that have not been seen yet
    std::map<std::string, int> made_;         // calls, and how often the operations made them
    std::string seen_;
    int faults_ = 0;
};

const unsigned char kBytes[] = "more bytes than a string holds inside itself";

bool Fill(std::FILE* file, void*) { return std::fwrite("region", 6, 1, file) == 1; }

bool Check(std::FILE* file, void*) {
    char text[6];
    return std::fread(text, 6, 1, file) == 1 && std::memcmp(text, "region", 6) == 0;
}

using Entries = std::multiset<std::string>; // the kernel decides their order

bool Record(int depth, bool, const char* directory, const char* name, void* context) {
    const FaultsPaused pause;
    static_cast<Entries*>(context)->insert(
        Text(' ', depth, std::strrchr(directory, '/'), '/', name));
    return true;
}

std::string Scan(const Trial& t) {
    Entries entries;
    const bool ended = DirScan(t.device.Path("/mnt/tree").c_str()).Scan(Record, &entries, -1);
    const FaultsPaused pause;
    std::string text = ended ? "true" : "false";
    for (const std::string& entry : entries)
        text += entry;
    return text;
}

TEST_F(Faults, EveryCallFailsInTurn) {
    constexpr long kNow = Terminal::kNow;
    const std::string trace = std::string(Device::kTraceDir) + "trace.log",
                      backupPath = trace + "_bak", content(5000, 'x');
    Walk("general log", [](Trial&) { return GENERAL_LOG("entry\n"), ""; });
    Walk("trace line", [&](const Trial& t) {
        MavTrace(LEVEL_ERROR, 0)("line\n");
        return t.device.Read(trace);
    });
    Walk("long entry", [&](const Trial& t) {
        Trace{"/mnt/long.log", __LINE__, 0}("%s", content.c_str());
        const std::string log = t.device.Read("/mnt/long.log");
        return Text(std::string_view(log).substr(0, 15), log.size());
    });
    Walk("long entry without memory", [&](const Trial& t) {
        Device::Fail("malloc", ENOMEM);
        Trace{"/mnt/long.log", __LINE__, 0}("%s", content.c_str());
        return std::to_string(t.device.Read("/mnt/long.log").size());
    });
    Walk("entry without a card", [](const Trial& t) {
        t.device.Remove("/mnt/sdcard");
        GENERAL_LOG("entry %d\n", 1);
        return "";
    });
    Walk("terminal line", [](Trial& t) {
        t.device.Write("/dev/pts/0", "");
        t.setting.traceWay = WAY_TTYP0;
        MavTrace(LEVEL_ERROR, 0)("line\n");
        return t.device.Read("/dev/pts/0");
    });
    Walk("export file", [&](const Trial&) {
        std::FILE* file = MavTrace(0, 0).GetExportFile(0, WAY_PUBLIC, "", 9);
        return file == nullptr ? "none" : std::fclose(file) == 0 ? "closed" : "lost";
    });
    Walk("rotation", [&](Trial& t) {
        t.setting.maxSize = 2;
        t.device.Write(trace, "old ");
        t.device.Write(backupPath, "older ");
        MavTrace(LEVEL_ERROR, 0)("new");
        const std::string backup = t.device.Read(backupPath);
        return Text(t.device.Read(trace), '+', backup.c_str(), backup.size());
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
    Walk("copy", [&](const Trial& t) {
        char from[] = "/mnt/from", to[] = "/mnt/to";
        t.device.Write(from, content);
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
    Walk("scan", Scan);
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
    Walk("dump", [](const Trial&) {
        MavDump(LEVEL_ERROR, 0).DumpAsHex(kBytes, sizeof kBytes);
        return "";
    });
    Walk("mask", [](const Trial&) {
        BitMask mask;
        mask.Enable(3, 4);
        std::size_t count = 0;
        try {
            mask.ParseFrom("900-999", true, 0);
        } catch (const std::bad_alloc&) {
            count = 1000000; // the bits that were set are still set
        }
        return Text(count + mask.EnableCount());
    });
    Walk("split", [](const Trial&) {
        strings fields;
        const int count = fields.addfrom("a long field of the text,another long field", ",", true);
        return Text(count, ' ', fields.size());
    });
    Walk("request", [](const Trial&) {
        IpcInfo out, in;
        unsigned char form[200];
        out.bytes1.assign(kBytes, sizeof kBytes);
        out.bytes3 = out.bytes1;
        const unsigned int size = out.Serialize(form, sizeof form);
        const unsigned int read = in.Deserialize(form, size);
        return Text(size, ' ', read, ' ', in.bytes3.size());
    });
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
        char date[20];
        std::strcpy(date, timestr(nullptr));
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
