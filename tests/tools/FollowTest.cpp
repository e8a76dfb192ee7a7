// mavutil trace follow beside a process whose trace file is rotated: what it shows, and what it
// reports as lost. MAVUTIL is the command line of mavutil, its words separated by "|".
#include "device/Device.h"
#include "mavkit/diag/MavTrace.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class FollowTest : public TerminalTest {
protected:
    FollowTest() : TerminalTest(WAY_PUBLIC) {
        setting.prefixOn = 1;
        MavTrace(LEVEL_INFO, 0)("before\n");
        follower = Start([this] { return Become(); });
        // The first look is over once a line is shown.
        for (int i = 0; i < 300 && Shown().empty(); ++i) {
            MavTrace(LEVEL_INFO, 0)("start\n");
            usleep(50000);
        }
        EXPECT_FALSE(Shown().empty()) << Reports();
    }
    ~FollowTest() override {
        if (follower > 0)
            kill(follower, SIGKILL);
    }

    bool Become() {
        std::istringstream words(MAVUTIL "|trace|follow");
        std::vector<std::string> arguments;
        for (std::string word; std::getline(words, word, '|');)
            if (!word.empty())
                arguments.push_back(word);
        arguments.push_back(device.Path(Device::kTraceDir));
        std::vector<char*> pointers;
        for (std::string& argument : arguments)
            pointers.push_back(&argument[0]);
        pointers.push_back(nullptr);
        const int flags = O_WRONLY | O_CREAT | O_APPEND;
        dup2(open(device.Path("/shown").c_str(), flags, 0600), STDOUT_FILENO);
        dup2(open(device.Path("/reports").c_str(), flags, 0600), STDERR_FILENO);
        execvp(pointers[0], pointers.data());
        return false;
    }

    void Write(int lines) {
        while (lines-- > 0)
            MavTrace(LEVEL_INFO, 0)("t%d\n", next++);
    }
    // Does what each letter means.
    void Do(const std::string& steps) {
        const std::string path = device.Path(kPath);
        for (const char step : steps)
            switch (step) {
            case 'w':
                Write(5);
                break;
            case 'W':
                Write(100);
                break;
            case '/': // rotates
                setting.maxSize = -1;
                Write(1);
                setting.maxSize = 50000;
                break;
            case 'e': // empties the log
                EXPECT_EQ(0, truncate(path.c_str(), 0));
                break;
            case 'm': // moves it away
                EXPECT_EQ(0, std::rename(path.c_str(), device.Path("/moved").c_str()));
                break;
            case 'b': // no backup can be written from now on
                device.Remove(kPath + std::string("_bak"));
                std::filesystem::create_directory(path + "_bak");
                break;
            }
    }
    // Waits until the line before `next` is shown.
    void WaitForAll() {
        const std::string last = ":t" + std::to_string(next - 1) + "\n";
        for (int i = 0; i < 400 && Shown().find(last) == std::string::npos; ++i)
            usleep(50000);
    }
    void Stop() {
        kill(follower, SIGINT);
        EXPECT_TRUE(Succeeded(follower)) << Reports();
        follower = 0;
    }
    // The numbers shown, as runs: "0-20,45-60".
    std::string Runs() {
        std::istringstream lines(Shown());
        std::string runs;
        int before = -2;
        for (std::string line; std::getline(lines, line);) {
            const std::size_t at = line.find(":t");
            const int number = at != line.npos ? std::atoi(line.c_str() + at + 2) : -2;
            if (number >= 0 && number != before + 1)
                runs += (before >= 0 ? "-" + std::to_string(before) + "," : "") +
                        std::to_string(number);
            before = number;
        }
        return runs + "-" + std::to_string(before);
    }
    // How many lines are shown after one with a greater number, or twice.
    int Twice() {
        std::istringstream lines(Shown());
        int before = -1;
        int twice = 0;
        for (std::string line; std::getline(lines, line);) {
            const std::size_t at = line.find(":t");
            const int number = at != line.npos ? std::atoi(line.c_str() + at + 2) : before + 1;
            twice += number <= before ? 1 : 0;
            before = at != line.npos ? number : before;
        }
        return twice;
    }
    std::string Shown() const { return device.Read("/shown"); }
    std::string Reports() const { return device.Read("/reports"); }

    static constexpr const char* kPath = "/mnt/sd/term/common/trace/trace.log";
    pid_t follower = 0;
    int next = 0; // number of the next line
};

TEST_F(FollowTest, ShowsAllThatABackupHoldsAndReportsTheRest) {
    // What happens while the follower is stopped; then one more line is written.
    const struct {
        const char* steps;
        const char* lost; // numbers from the first of `steps` on
        const char* report;
    } cases[] = {
        {"w", "", ""},
        {"w/w", "", ""}, // one turn: the backup has what was missed
        {"w/W", "", ""}, // it has grown again beyond the place of reading
        {"/", "", ""},   // nothing was missed
        {"w/w/w", "0-4",
         "trace.log was rotated too fast: up to 1 turn is lost, of about 150 bytes"},
        {"w/w/w/W", "0-10", "up to 2 turns are lost"},
        {"wmw", "", ""}, // renamed: the file that was open has the rest
        {"wew", "0-4", "trace.log was emptied and has no backup: lines after its byte "},
        {"bw/w", "0-4", "trace.log was emptied and has no backup: lines after its byte "},
    };
    std::string expected;
    std::size_t reported = 0;
    int first = 0; // of the run that is being shown
    for (const auto& c : cases) {
        kill(follower, SIGSTOP);
        const int start = next;
        Do(c.steps);
        kill(follower, SIGCONT);
        Write(1);
        WaitForAll();
        if (*c.lost != '\0') {
            if (start > first)
                expected += std::to_string(first) + "-" + std::to_string(start - 1) + ",";
            first = start + std::atoi(std::strchr(c.lost, '-') + 1) + 1;
        }
        const std::string reports = Reports().substr(reported);
        reported += reports.size();
        EXPECT_EQ(*c.report != '\0' ? 1 : 0, std::count(reports.begin(), reports.end(), '\n'))
            << c.steps << ": " << reports;
        EXPECT_NE(std::string::npos, reports.find(c.report)) << c.steps << ": " << reports;
    }
    Stop();
    EXPECT_EQ(expected + std::to_string(first) + "-" + std::to_string(next - 1), Runs());
}

// Lines at 0.1 ms, with a rotation every 100 ms: none twice, and none missing without a report.
TEST_F(FollowTest, KeepsUpWithAFastWriter) {
    for (int i = 0; i < 6000; ++i, usleep(100))
        Write(1);
    WaitForAll();
    Stop();
    if (Reports().empty())
        EXPECT_EQ("0-5999", Runs());
    else
        EXPECT_NE("0-5999", Runs()) << Reports();
    EXPECT_EQ(0, Twice());
}

} // namespace
