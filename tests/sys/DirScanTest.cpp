// Trees as they are, as they change, and as they resist. What becomes of a scan when a call fails is
// in faults/outcomes.txt.
#include "mavkit/sys/DirScan.h"
#include "device/Device.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Entries = std::multiset<std::string>;

ino_t Inode(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 ? status.st_ino : 0;
}

// A tree of its own, and a callback that checks at every call that the working directory is the one
// being listed. Its end checks that the working directory is as before.
class DirScanTest : public TerminalTest {
protected:
    DirScanTest() { fs::create_directories(root); }
    ~DirScanTest() override {
        EXPECT_EQ(start_, Inode("."));
        fs::current_path(home);
    }

    // Makes each of `paths` below the root: a directory when it ends in "/", else a file.
    void Make(std::initializer_list<const char*> paths) const {
        for (const std::string path : paths) {
            fs::create_directories(fs::path(root + "/" + path).parent_path());
            if (path.back() != '/')
                std::ofstream(root + "/" + path) << "content";
        }
    }

    // Scans the tree; then `seen` has its entries as "depth kind path-below-the-root", kind d or f.
    bool Scan(int limit = -1) {
        seen.clear();
        return DirScan(root.c_str()).Scan(Record, this, limit);
    }

    static bool Record(int depth, bool isDirectory, const char* directory, const char* name,
                       void* context) {
        DirScanTest* test = static_cast<DirScanTest*>(context);
        std::error_code error;
        const fs::path current = fs::current_path(error); // an error: it has been deleted
        EXPECT_TRUE(error || current == directory) << current << " is not " << directory;
        test->seen.insert(std::to_string(depth) + (isDirectory ? " d " : " f ") +
                          (directory + std::min(std::strlen(directory), test->root.size())) + "/" +
                          name);
        if (test->act != nullptr)
            test->act(isDirectory, name);
        const bool stop = test->stopAt == test->seen.size();
        if (stop && test->throws)
            throw std::string(name);
        return !stop;
    }

    // The "Can not open" lines since the last call, as paths below the root.
    Entries Unopened() {
        const std::string text = device.GeneralLog();
        const std::regex line("\tDirScan: Error!Can not open directory:" + root + "(.*)\n");
        device.Remove(Device::kGeneralLog);
        return {std::sregex_token_iterator(text.begin(), text.end(), line, 1), {}};
    }

    const std::string root = fs::canonical(device.Path("/root")).string() + "/tree";
    const fs::path home = fs::current_path();
    Entries seen;
    std::size_t stopAt = 0; // the call that returns false, or throws
    bool throws = false;
    void (*act)(bool isDirectory, const char* name) = nullptr;

private:
    const ino_t start_ = Inode(".");
};

TEST_F(DirScanTest, ReportsEveryEntryDownToTheLimit) {
    Make({"x", "b/y", "b/c/z", "e/", "...", "..d/h", " \n\x01\xFF\xC3/%s\\"});
    fs::create_directory_symlink(root + "/b", root + "/link");
    fs::create_symlink("nowhere", root + "/b/dangling");
    mkfifo((root + "/fifo").c_str(), 0600);
    const Entries all{"0 f /x",          "0 d /b",
                      "1 f /b/y",        "1 d /b/c",
                      "2 f /b/c/z",      "0 d /e",
                      "0 f /...",        "0 d /..d",
                      "1 f /..d/h",      "0 f /link",
                      "0 f /fifo",       "0 d / \n\x01\xFF\xC3",
                      "1 f /b/dangling", "1 f / \n\x01\xFF\xC3/%s\\"};
    for (const int limit : {INT_MIN, -1, 0, 1, 2, INT_MAX}) {
        device.hideTypes = limit == -1;
        Entries expected;
        for (const std::string& entry : all)
            if (limit < 0 || entry[0] - '0' <= limit)
                expected.insert(entry);
        EXPECT_TRUE(Scan(limit));
        EXPECT_EQ(expected, seen) << limit;
    }
    // Stopped or left by an exception at any call, it goes no further and puts everything back.
    for (stopAt = 1; stopAt <= all.size(); ++stopAt)
        for (const bool thrown : {false, true}) {
            if ((throws = thrown)) {
                EXPECT_THROW(Scan(), std::string);
            } else {
                EXPECT_FALSE(Scan());
            }
            EXPECT_EQ(stopAt, seen.size());
            EXPECT_EQ(home, fs::current_path());
        }
    EXPECT_EQ(Entries{}, Unopened());
    EXPECT_FALSE(DirScan(nullptr).Scan(Record, this, -1) || DirScan("/").Scan(nullptr, this, -1));
}

TEST_F(DirScanTest, TheTreeMayChangeUnderTheScan) {
    // Each directory is deleted, or becomes a link, before it can be entered.
    Make({"a/x", "link/x", "c/x"});
    act = [](bool isDirectory, const char* name) {
        if (isDirectory && fs::remove_all(name) > 0 && *name == 'l')
            fs::create_directory_symlink("..", name);
    };
    EXPECT_TRUE(Scan());
    EXPECT_EQ((Entries{"0 d /a", "0 d /c", "0 d /link"}), seen);
    EXPECT_EQ((Entries{"/a", "/c", "/link"}), Unopened());

    // One that cannot be entered again: what else it holds is not reported.
    Make({"a/s1/z", "a/s2/z"});
    act = nullptr;
    Device::Fail("fchdir", EACCES, 1, 4);
    EXPECT_TRUE(Scan());
    EXPECT_EQ((Entries{"/a"}), Unopened());
    EXPECT_EQ(4U, seen.size()); // the link, a, one of two below it, and its file
}

TEST_F(DirScanTest, GoesDeeperThanPathsReach) {
    const std::string name(200, 'n');
    const std::size_t levels = 3 * PATH_MAX / 200;
    fs::current_path(root);
    for (std::size_t i = 0; i < levels; ++i)
        ASSERT_TRUE(mkdir(name.c_str(), 0700) == 0 && chdir(name.c_str()) == 0);
    const ino_t deepest = Inode(".");
    EXPECT_TRUE(Scan()); // from, and back to, a directory without a usable path
    EXPECT_EQ(deepest, Inode("."));
    EXPECT_EQ(levels, seen.size());
    fs::current_path(home);
    EXPECT_EQ("", out.Take());
}

TEST_F(DirScanTest, ScanDirAloneEndsInTheParent) {
    Make({"a/b/x"});
    for (const auto& [depth, limit, calls] :
         {std::tuple{0, -1, 2U}, {5, 5, 1U}, {INT_MAX, -1, 2U}}) {
        seen.clear();
        EXPECT_TRUE(DirScan::ScanDir((root + "/a").c_str(), depth, Record, this, limit));
        EXPECT_EQ(calls, seen.size());
        EXPECT_EQ(root, fs::current_path());
        EXPECT_TRUE(DirScan::ScanDir((root + "/none").c_str(), depth, Record, this, -1));
        EXPECT_TRUE(DirScan::ScanDir((root + "/a").c_str(), 1, Record, this, 0));
        EXPECT_EQ(calls, seen.size());
        EXPECT_EQ(root, fs::current_path()); // not moved
        fs::current_path("/");
    }
    EXPECT_FALSE(DirScan::ScanDir(nullptr, 0, Record, this, -1) ||
                 DirScan::ScanDir("/", 0, nullptr, nullptr, -1));
    // Below "/" no slash is doubled.
    const auto look = [](int depth, bool, const char* directory, const char*, void*) {
        EXPECT_NE('/', directory[1]);
        return depth == 0;
    };
    EXPECT_FALSE(DirScan::ScanDir("/", 0, look, nullptr, 1));
    fs::current_path(home);
}

TEST_F(DirScanTest, SplitsAPath) {
    Make({"x", "d/"});
    fs::create_directory_symlink("d", root + "/l");
    const std::string d = root + "/d", full = root + "/x";
    const char* const none = nullptr;
    // A link is not a directory, what it leads to is. Where there is no directory to enter, the
    // working one is the root.
    const struct {
        std::string path, root;
        const char* file;
    } cases[] = {
        {root, root, none}, {"../", root, none}, {"..", root, none},   {"../l", root, "l"},
        {"../l/", d, none}, {"../x", root, "x"}, {full, root, "x"},    {"x", d, "x"},
        {"../x/", d, ""},   {"../n/y", d, "y"},  {"", d, ""},          {"/", "/", none},
        {"/no", "/", "no"}, {"//no", "/", "no"}, {"../n/no", d, "no"},
    };
    fs::current_path(d);
    DirScan scan(nullptr);
    EXPECT_TRUE(scan.root == nullptr && scan.filePart == nullptr);
    for (const auto& c : cases) {
        scan.ParsePath(c.path.c_str());
        scan.ParsePath(nullptr); // changes nothing
        EXPECT_STREQ(c.root.c_str(), scan.root) << c.path;
        EXPECT_STREQ(c.file, scan.filePart) << c.path;
        EXPECT_EQ(d, fs::current_path());
    }
    scan.ParsePath(scan.filePart); // its own text
    EXPECT_STREQ("no", scan.filePart);
    scan.ParsePath(scan.root);
    EXPECT_STREQ(d.c_str(), scan.root);
    EXPECT_TRUE(DirScan::IsDir(scan.root));
    EXPECT_FALSE(DirScan::IsDir(nullptr) || DirScan::IsDir("") || DirScan::IsDir("../l"));
    Device::Fail("getcwd", ENOENT);
    Device::Fail("open", EMFILE);
    EXPECT_EQ(nullptr, DirScan("..").root); // there would be no way back
    fs::current_path(home);
}

} // namespace
