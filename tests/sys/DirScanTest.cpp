// Scans of a tree: one that stays, one that changes meanwhile, and one that cannot be walked to its
// end. The result of a scan when a call fails is in faults/outcomes.txt.
#include "mavkit/sys/DirScan.h"
#include "device/Device.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

namespace fs = std::filesystem;
using Entries = std::multiset<std::string>;

ino_t Inode(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 ? status.st_ino : 0;
}

// A tree of its own, and a callback that checks at every call that the working directory is the one
// being listed. The destructor checks that the working directory is as before.
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
        Entries expected;
        for (const std::string& entry : all)
            if (limit < 0 || entry[0] - '0' <= limit)
                expected.insert(entry);
        EXPECT_TRUE(Scan(limit));
        EXPECT_EQ(expected, seen) << limit;
    }
    // Stopped at any call, also by an exception, a scan goes no further and restores everything.
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
    EXPECT_FALSE(DirScan(nullptr).Scan(Record, this, -1));
    EXPECT_FALSE(DirScan("/").Scan(nullptr, this, -1));
}

TEST_F(DirScanTest, TheTreeMayChangeUnderTheScan) {
    // Each directory is deleted, or becomes a link or a pipe, before it can be entered.
    Make({"a/x", "link/x", "pipe/x"});
    act = [](bool isDirectory, const char* name) {
        if (isDirectory && fs::remove_all(name) > 0 && *name == 'l')
            fs::create_directory_symlink("..", name);
        if (isDirectory && *name == 'p')
            mkfifo(name, 0600); // nobody writes to it: an open would wait for ever
    };
    EXPECT_TRUE(Scan());
    EXPECT_EQ((Entries{"0 d /a", "0 d /link", "0 d /pipe"}), seen);
    EXPECT_EQ((Entries{"/a", "/link", "/pipe"}), Unopened());
    fs::remove_all(root);

    // A directory becomes a file while its sibling is walked: it is reported as what it is at that
    // time.
    Make({"p/x", "q/x"});
    act = [](bool isDirectory, const char* name) {
        const char* const other = *name == 'p' ? "q" : "p";
        if (isDirectory && fs::remove_all(other) > 0)
            std::ofstream(other) << "content";
    };
    EXPECT_TRUE(Scan());
    EXPECT_TRUE((seen == Entries{"0 d /p", "1 f /p/x", "0 f /q"} ||
                 seen == Entries{"0 d /q", "1 f /q/x", "0 f /p"}))
        << testing::PrintToString(seen);
    fs::remove_all(root);

    // The directory being listed is deleted: its listing ends there.
    Make({"p/x", "q/x"});
    act = [](bool isDirectory, const char*) {
        if (!isDirectory)
            fs::remove_all(fs::current_path());
    };
    EXPECT_TRUE(Scan());
    EXPECT_EQ((Entries{"0 d /p", "1 f /p/x", "0 d /q", "1 f /q/x"}), seen);
    EXPECT_EQ(Entries{}, Unopened());
}

TEST_F(DirScanTest, AListingThatBreaksOffMakesTheScanFalse) {
    Make({"a/s1/z", "a/s2/z", "a/s3/z", "b/x"});
    Scan();
    const Entries all = seen;
    const auto isBelow = [](const std::string& path, const std::string& directory) {
        return path.compare(4, directory.size() + 1, directory + "/") == 0;
    };
    // At every entry, and after the last one of every directory.
    for (int skip = 0;; ++skip) {
        SCOPED_TRACE(skip);
        Device::Fail("readdir", EIO, 1, skip);
        const bool complete = Scan();
        const Entries unopened = Unopened();
        EXPECT_EQ(home, fs::current_path());
        if (Device::HasFault("readdir"))
            break; // there are no more calls
        EXPECT_FALSE(complete);
        ASSERT_EQ(1U, unopened.size());
        for (const std::string& entry : all)
            EXPECT_TRUE(isBelow(entry, *unopened.begin()) || seen.count(entry) == 1) << entry;
    }
    Device::ForgetFaults();
    // A directory that cannot be entered again after a visit below it.
    fs::remove_all(root + "/b");
    Device::Fail("fchdir", EACCES, 1, 4);
    EXPECT_FALSE(Scan());
    EXPECT_EQ((Entries{"/a"}), Unopened());
    EXPECT_EQ(3U, seen.size()); // a, one of the three below it, and its file
}

TEST_F(DirScanTest, GoesDeeperThanPathsReach) {
    const std::string name(200, 'n');
    const std::size_t levels = 3 * PATH_MAX / 200;
    fs::current_path(root);
    for (std::size_t i = 0; i < levels; ++i)
        ASSERT_TRUE(mkdir(name.c_str(), 0700) == 0 && chdir(name.c_str()) == 0);
    const ino_t deepest = Inode(".");
    // From, and back to, a directory whose path is too long: for most libcs, and then for all.
    // (Calls of getcwd: the working directory, the root, the working directory.)
    for (const int unnamed : {-1, 0, 2}) {
        Device::Fail("getcwd", ENAMETOOLONG, unnamed < 0 ? 0 : 1, unnamed);
        EXPECT_TRUE(Scan()) << unnamed;
        EXPECT_EQ(deepest, Inode("."));
        EXPECT_EQ(levels, seen.size());
    }
    fs::current_path(home);
    EXPECT_EQ("", out.Take());
}

TEST_F(DirScanTest, ScanDirAloneEndsInTheParent) {
    Make({"a/b/x"});
    const struct {
        int depth, limit;
        Entries seen;
    } cases[] = {
        {0, -1, {"0 d /a/b", "1 f /a/b/x"}},
        {5, 5, {"5 d /a/b"}},
        {INT_MAX, -1, {"2147483647 d /a/b", "2147483647 f /a/b/x"}},
    };
    for (const auto& c : cases) {
        seen.clear();
        EXPECT_TRUE(DirScan::ScanDir((root + "/a").c_str(), c.depth, Record, this, c.limit));
        EXPECT_EQ(c.seen, seen);
        EXPECT_EQ(root, fs::current_path());
        EXPECT_TRUE(DirScan::ScanDir((root + "/none").c_str(), c.depth, Record, this, -1));
        EXPECT_TRUE(DirScan::ScanDir((root + "/a").c_str(), 1, Record, this, 0));
        EXPECT_EQ(c.seen, seen);
        EXPECT_EQ(root, fs::current_path()); // not moved
        fs::current_path("/");
    }
    EXPECT_FALSE(DirScan::ScanDir(nullptr, 0, Record, this, -1));
    EXPECT_FALSE(DirScan::ScanDir("/", 0, nullptr, nullptr, -1));
    // Below "/" no slash is doubled.
    const auto look = [](int depth, bool, const char* directory, const char*, void*) {
        EXPECT_NE('/', directory[1]);
        return depth == 0;
    };
    EXPECT_FALSE(DirScan::ScanDir("/", 0, look, nullptr, 1));
    // The directory that was asked for may be a link to it.
    fs::create_directory_symlink("a", root + "/link");
    int depth = -1;
    const auto recordDepth = [](int at, bool, const char*, const char*, void* deepest) {
        *static_cast<int*>(deepest) = at;
        return true;
    };
    EXPECT_TRUE(DirScan::ScanDir((root + "/link").c_str(), 0, recordDepth, &depth, -1));
    EXPECT_EQ(1, depth);
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
    EXPECT_EQ(nullptr, scan.root);
    EXPECT_EQ(nullptr, scan.filePart);
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
    for (const char* path : {none, "", "../l"})
        EXPECT_FALSE(DirScan::IsDir(path)) << (path != nullptr ? path : "(null)");
    Device::Fail("getcwd", ENOENT);
    Device::Fail("open", EMFILE);
    EXPECT_EQ(nullptr, DirScan("..").root); // there would be no way back
    fs::current_path(home);
}

// Gives up all privileges, where there are any.
bool BecomeNobody() {
    constexpr unsigned nobody = 65534;
    return geteuid() != 0 ||
           (setgroups(0, nullptr) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0);
}

TEST_F(DirScanTest, StaysWhereNoWayBackIsSure) {
    if (!Succeeded(Start(BecomeNobody)))
        GTEST_SKIP() << "this user cannot give up privileges";
    const struct {
        mode_t above, here; // permissions of the working directory and the one above
        bool isSure;
    } cases[] = {
        {0000, 0555, true},  // by its descriptor
        {0755, 0111, true},  // by its path
        {0000, 0111, false}, // which cannot be followed
        {0755, 0444, false}, {0755, 0000, false},
    };
    // What is scanned is not "/", which an emulator maps elsewhere.
    const std::string above = root + "/above", here = above + "/here", other = device.Path("/dev");
    for (const std::string& directory : {device.Path(""), device.Path("/root"), other, root})
        chmod(directory.c_str(), 0755);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::oct << c.above << ' ' << c.here);
        fs::create_directories(here);
        const pid_t child = Start([&] {
            fs::current_path(here);
            EXPECT_EQ(0, chmod(here.c_str(), c.here));
            EXPECT_EQ(0, chmod(above.c_str(), c.above));
            EXPECT_TRUE(BecomeNobody());
            const DirScan scan(other.c_str());
            EXPECT_STREQ(c.isSure ? other.c_str() : nullptr, scan.root);
            DirScan withRoot(nullptr); // one whose root was found at a better time
            withRoot.root = strdup(other.c_str());
            EXPECT_EQ(c.isSure, withRoot.Scan(Record, this, 0));
            EXPECT_EQ(c.isSure, !seen.empty());
            EXPECT_EQ(here, fs::current_path());
            return true;
        });
        EXPECT_TRUE(Succeeded(child));
        chmod(above.c_str(), 0755);
        chmod(here.c_str(), 0755);
    }
    // A working directory that has been deleted cannot be read.
    const std::string gone = root + "/gone";
    fs::create_directory(gone);
    fs::current_path(gone);
    fs::remove(gone);
    EXPECT_FALSE(Scan());
    EXPECT_TRUE(seen.empty());
    fs::current_path(home);
}

} // namespace
