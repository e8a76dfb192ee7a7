#include "mavkit/sys/DirScan.h"

#include "device/Device.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Entries = std::multiset<std::string>;

int LowestFreeDescriptor() {
    const int fd = dup(0);
    close(fd);
    return fd;
}

bool SameDirectory(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A tree of its own, and a callback that checks at every call that the working directory is the one
// being listed. Its end checks that the working directory and the descriptors are as before.
class DirScanTest : public testing::Test {
protected:
    DirScanTest() {
        fs::create_directories(root);
        stat(".", &before_);
    }
    ~DirScanTest() override {
        struct stat after;
        stat(".", &after);
        EXPECT_TRUE(SameDirectory(before_, after)) << "the working directory moved";
        EXPECT_EQ(free_, LowestFreeDescriptor()) << "a descriptor was left open";
    }

    // Makes each of `paths` below the root: a directory when it ends in "/", else a file.
    void Make(std::initializer_list<const char*> paths) const {
        for (const std::string path : paths) {
            fs::create_directories(fs::path(root + "/" + path).parent_path());
            if (path.back() != '/')
                std::ofstream(root + "/" + path) << "content";
        }
    }

    // Entries as "depth kind path-below-the-root", kind d or f.
    static bool Record(int depth, bool isDirectory, const char* directory, const char* name,
                       void* context) {
        DirScanTest* test = static_cast<DirScanTest*>(context);
        std::error_code error;
        const fs::path here = fs::current_path(error); // an error: it has been deleted
        EXPECT_TRUE(error || here == directory) << here << " is not " << directory;
        const std::string below = std::string(directory).substr(test->root.size());
        test->seen.insert(std::to_string(depth) + (isDirectory ? " d " : " f ") + below + "/" +
                          name);
        if (test->throwAt != 0 && --test->throwAt == 0)
            throw std::string(name);
        if (test->stopAt != 0 && --test->stopAt == 0)
            return false;
        if (test->act != nullptr)
            test->act(isDirectory, name);
        return true;
    }

    bool Scan(int limit = -1) {
        seen.clear();
        return DirScan(root.c_str()).Scan(Record, this, limit);
    }

    // The "Can not open" lines since the last call, as paths below the root.
    Entries Unopened() {
        const std::string text = device.GeneralLog(),
                          tag = "DirScan: Error!Can not open directory:";
        device.Remove(Device::kGeneralLog);
        Entries paths;
        for (std::size_t at = 0; (at = text.find(tag, at)) != std::string::npos;) {
            at += tag.size() + root.size();
            paths.insert(text.substr(at, text.find('\n', at) - at));
        }
        return paths;
    }

    Device device;
    const std::string root = fs::canonical(device.Path("/root")).string() + "/tree";
    const fs::path home = fs::current_path();
    Entries seen;
    int stopAt = 0;  // the call that returns false
    int throwAt = 0; // the call that throws
    void (*act)(bool isDirectory, const char* name) = nullptr;

private:
    struct stat before_;
    const int free_ = LowestFreeDescriptor();
};

TEST_F(DirScanTest, ReportsEveryEntryDownToTheLimit) {
    Make({"x", "b/y", "b/c/z", "e/", "...", "..d/h", " \n\x01\xFF\xC3/%s\\"});
    fs::create_directory_symlink(root + "/b", root + "/link");
    fs::create_symlink("nowhere", root + "/b/dangling");
    mkfifo((root + "/fifo").c_str(), 0600);
    const Entries all{"0 f /x",
                      "0 d /b",
                      "1 f /b/y",
                      "1 d /b/c",
                      "2 f /b/c/z",
                      "0 d /e",
                      "0 f /...",
                      "0 d /..d",
                      "1 f /..d/h",
                      "0 f /link",
                      "0 f /fifo",
                      "1 f /b/dangling",
                      "0 d / \n\x01\xFF\xC3",
                      "1 f / \n\x01\xFF\xC3/%s\\"};
    for (int limit : {INT_MIN, -1, 0, 1, 2, INT_MAX}) {
        SCOPED_TRACE(limit);
        Entries expected;
        for (const std::string& entry : all)
            if (limit < 0 || entry[0] - '0' <= limit)
                expected.insert(entry);
        EXPECT_TRUE(Scan(limit));
        EXPECT_EQ(expected, seen);
    }
    // Stopped or left by an exception at any call, it goes no further and puts everything back.
    for (int call = 1; call <= static_cast<int>(all.size()); ++call) {
        stopAt = call;
        EXPECT_FALSE(Scan());
        EXPECT_EQ(static_cast<std::size_t>(call), seen.size());
        throwAt = call;
        EXPECT_THROW(Scan(), std::string);
        EXPECT_EQ(static_cast<std::size_t>(call), seen.size());
        EXPECT_EQ(fs::current_path(), home);
    }
    EXPECT_EQ(Entries{}, Unopened());
}

TEST_F(DirScanTest, EveryCallMayFail) {
    Make({"a/x", "a/p/y", "b/q/z", "b/w"});
    Scan();
    const Entries all = seen;
    const struct {
        const char* call;
        bool starts; // the scan takes place although the first of these fails
    } cases[] = {{"openat", true}, {"fdopendir", true}, {"fchdir", true},
                 {"chdir", true},  {"open", true},      {"getcwd", false}};
    for (const auto& c : cases) {
        DirScan scan(root.c_str());
        Device::ForgetCalls();
        seen.clear();
        ASSERT_TRUE(scan.Scan(Record, this, -1));
        const int calls = Device::Calls(c.call);
        ASSERT_LT(0, calls) << c.call;
        for (int skip = 0; skip < calls; ++skip) {
            SCOPED_TRACE(testing::Message() << c.call << " after " << skip);
            seen.clear();
            Device::Fail(c.call, EMFILE, 1, skip);
            EXPECT_EQ(c.starts, scan.Scan(Record, this, -1));
            EXPECT_TRUE(std::includes(all.begin(), all.end(), seen.begin(), seen.end()));
            const std::size_t lines = Unopened().size();
            EXPECT_EQ(c.starts && seen != all, lines == 1);
            EXPECT_EQ(fs::current_path(), home);
        }
    }
    EXPECT_FALSE(DirScan(nullptr).Scan(Record, this, -1));
    EXPECT_FALSE(DirScan(root.c_str()).Scan(nullptr, this, -1));
}

TEST_F(DirScanTest, TheTreeMayChangeUnderTheScan) {
    Make({"a/x", "b/x", "c/d/x", "c/e/x"});
    // Each directory goes before it can be entered.
    act = [](bool isDirectory, const char* name) {
        if (isDirectory)
            fs::remove_all(name);
    };
    EXPECT_TRUE(Scan());
    EXPECT_EQ((Entries{"0 d /a", "0 d /b", "0 d /c"}), seen);
    EXPECT_EQ((Entries{"/a", "/b", "/c"}), Unopened());

    // ... or becomes a link out of the tree.
    Make({"a/x"});
    act = [](bool isDirectory, const char* name) {
        if (isDirectory && fs::remove_all(name) > 0)
            fs::create_directory_symlink("..", name);
    };
    EXPECT_TRUE(Scan());
    EXPECT_EQ((Entries{"0 d /a"}), seen);
    EXPECT_EQ((Entries{"/a"}), Unopened());

    // ... or moves away while the scan is below it, with everything above.
    fs::remove(root + "/a");
    Make({"a/b/x", "a/b/y"});
    static std::string from, to;
    from = root, to = root + "-moved";
    static int calls;
    calls = 0;
    auto moveAll = [](int, bool, const char*, const char* name, void*) {
        ++calls;
        if (*name == 'x' || *name == 'y') {
            EXPECT_TRUE(fs::exists(name)); // found by its bare name, wherever it is now
            std::error_code error;
            fs::rename(from, to, error);
        }
        return chdir("/") == 0; // and a callback that goes astray by itself
    };
    Make({"c"});
    fs::remove(root + "/a/b/y");
    EXPECT_TRUE(DirScan(root.c_str()).Scan(moveAll, nullptr, -1));
    EXPECT_EQ(4, calls);

    // ... or is deleted as a whole.
    Make({"a/b/x", "a/c/x"});
    act = [](bool isDirectory, const char*) {
        if (!isDirectory)
            fs::remove_all(from);
    };
    EXPECT_TRUE(Scan());
    EXPECT_FALSE(fs::exists(root));
}

TEST_F(DirScanTest, SkipsWhatItMayNotEnter) {
    Make({"open/x", "locked/x", "listed/x", "a/s1/z", "a/s2/z"});
    // A superuser is refused nothing, so be somebody else.
    const bool superuser = geteuid() == 0;
    for (const char* path : {"", "/mnt", "/mnt/sdcard", "/root"})
        chmod(device.Path(path).c_str(), 0755);
    chmod(device.Path("/mnt/sdcard/log").c_str(), 0777);
    if (superuser) {
        for (const auto& entry : fs::recursive_directory_iterator(root))
            ASSERT_EQ(0, lchown(entry.path().c_str(), 65534, 65534));
        if (seteuid(65534) != 0)
            GTEST_SKIP() << "the superuser of a namespace with no other user";
    }
    const std::string locked = root + "/locked", listed = root + "/listed", a = root + "/a";
    chmod(locked.c_str(), 0);
    chmod(listed.c_str(), 0400);
    act = [](bool, const char* name) {
        if (*name == 'z') { // the parent is closed while the scan is below it
            EXPECT_EQ(0, chmod("..", 0400));
        }
    };
    EXPECT_TRUE(Scan());
    EXPECT_EQ(0, superuser ? seteuid(0) : 0);
    for (const std::string* path : {&locked, &listed, &a})
        chmod(path->c_str(), 0700);
    EXPECT_EQ((Entries{"/a", "/listed", "/locked"}), Unopened());
    const std::string first = seen.count("1 d /a/s1") != 0 ? "/a/s1" : "/a/s2"; // and not the other
    EXPECT_EQ((Entries{"0 d /a", "0 d /listed", "0 d /locked", "0 d /open", "1 f /open/x",
                       "1 d " + first, "2 f " + first + "/z"}),
              seen);
}

TEST_F(DirScanTest, GoesDeeperThanPathsReach) {
    const std::string name(200, 'n');
    const int levels = 3 * PATH_MAX / 200;
    const int start = open(".", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(0, chdir(root.c_str()));
    for (int i = 0; i < levels; ++i)
        ASSERT_TRUE(mkdir(name.c_str(), 0700) == 0 && chdir(name.c_str()) == 0);
    struct stat deepest, after;
    ASSERT_EQ(0, stat(".", &deepest));
    EXPECT_TRUE(Scan()); // from, and back to, a directory without a usable path
    ASSERT_EQ(0, stat(".", &after));
    EXPECT_TRUE(SameDirectory(deepest, after));
    EXPECT_EQ(static_cast<std::size_t>(levels), seen.size());
    ASSERT_EQ(0, fchdir(start));

    // Without descriptors it goes as deep as they reach, tells so once, and comes back.
    rlimit limit;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const rlimit few = {static_cast<rlim_t>(start) + 12, limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    StdoutCapture* const out = new StdoutCapture; // where the general log's lines go in such need
    EXPECT_TRUE(Scan());
    const std::string told = out->Take();
    delete out;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_EQ(0U, told.find("DirScan: Error!Can not open directory:" + root + "/" + name));
    EXPECT_EQ(1, std::count(told.begin(), told.end(), '\n'));
    EXPECT_LT(2U, seen.size());
    EXPECT_GT(12U, seen.size());
    close(start);
}

TEST_F(DirScanTest, ScanDirAloneEndsInTheParent) {
    Make({"a/b/x", "c"});
    const struct {
        std::string directory, from;
        int depth, limit, stopAt;
        bool result;
        std::size_t calls;
        std::string end;
    } cases[] = {{root + "/a", "/", 0, -1, 0, true, 2, root},
                 {root + "/a", "/", 0, -1, 2, false, 2, root},
                 {root + "/a", "/", 5, 5, 0, true, 1, root},
                 {root + "/a", "/", 6, 5, 0, true, 0, "/"},
                 {root + "/a", "/", INT_MAX, -1, 0, true, 2, root},
                 {root + "/c", "/", 0, -1, 0, true, 0, "/"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.directory << ' ' << c.depth << ' ' << c.limit);
        ASSERT_EQ(0, chdir(c.from.c_str()));
        seen.clear();
        stopAt = c.stopAt;
        EXPECT_EQ(c.result, DirScan::ScanDir(c.directory.c_str(), c.depth, Record, this, c.limit));
        EXPECT_EQ(c.calls, seen.size());
        EXPECT_EQ(c.end, fs::current_path());
    }
    // A relative directory gives relative paths, all the way down.
    ASSERT_EQ(0, chdir(root.c_str()));
    static Entries relative;
    relative.clear();
    auto note = [](int, bool, const char* directory, const char* name, void*) {
        relative.insert(std::string(directory) + " " + name);
        return true;
    };
    EXPECT_TRUE(DirScan::ScanDir("a", 0, note, nullptr, -1));
    EXPECT_EQ((Entries{"a b", "a/b x"}), relative);
    EXPECT_FALSE(DirScan::ScanDir(nullptr, 0, note, nullptr, -1));
    EXPECT_FALSE(DirScan::ScanDir("a", 0, nullptr, nullptr, -1));
    // No doubled "/" below "/" itself.
    auto top = [](int depth, bool, const char* directory, const char*, void*) {
        EXPECT_TRUE(depth == 0 ? std::strcmp(directory, "/") == 0
                               : directory[0] == '/' && directory[1] != '/');
        return depth == 0;
    };
    DirScan::ScanDir("/", 0, top, nullptr, 1);
    ASSERT_EQ(0, chdir(home.c_str()));
}

TEST_F(DirScanTest, SplitsAPath) {
    Make({"x.log", "d/"});
    fs::create_directory_symlink("d", root + "/link");
    const char* const none = nullptr;
    const struct {
        std::string path, root;
        const char* file;
    } cases[] = {{root, root, none},
                 {root + "/", root, none},
                 {root + "/x.log", root, "x.log"},
                 {root + "/missing", root, "missing"},
                 {root + "/link", root, "link"},       // a link is not a directory
                 {root + "/link/", root + "/d", none}, // what it leads to is
                 {root + "/x.log/", root + "/d", ""},  // no directory to enter: the working one
                 {root + "/none/y", root + "/d", "y"},
                 {"d.log", root + "/d", "d.log"},
                 {"", root + "/d", ""},
                 {"..", root, none},
                 {"../x.log", root, "x.log"},
                 {"/", "/", none},
                 {"/no-such.log", "/", "no-such.log"},
                 {"//no-such.log", "/", "no-such.log"}};
    ASSERT_EQ(0, chdir((root + "/d").c_str()));
    DirScan scan(nullptr);
    EXPECT_TRUE(scan.root == nullptr && scan.filePart == nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        scan.ParsePath(c.path.c_str());
        EXPECT_STREQ(c.root.c_str(), scan.root);
        EXPECT_STREQ(c.file, scan.filePart);
        scan.ParsePath(nullptr); // no change
        EXPECT_STREQ(c.root.c_str(), scan.root);
        EXPECT_EQ(root + "/d", fs::current_path());
    }
    scan.ParsePath((root + "/x.log").c_str());
    scan.ParsePath(scan.filePart); // its own text
    EXPECT_STREQ("x.log", scan.filePart);
    scan.ParsePath(scan.root);
    EXPECT_STREQ((root + "/d").c_str(), scan.root);
    EXPECT_TRUE(DirScan::IsDir(scan.root));
    EXPECT_FALSE(DirScan::IsDir(nullptr) || DirScan::IsDir("") || DirScan::IsDir("../link"));

    // Whatever runs out, the process stays where it was and the object is whole.
    for (const char* call : {"strdup", "getcwd", "open", "chdir", "fchdir"})
        for (int skip = 0; skip < 2; ++skip) {
            Device::Fail(call, ENOMEM, 1, skip);
            DirScan whole("../x.log");
            EXPECT_EQ(root + "/d", fs::current_path()) << call << skip;
            EXPECT_TRUE(whole.root == nullptr || *whole.root == '/');
        }
    Device::Fail("getcwd", ENOENT, 1);
    Device::Fail("open", EMFILE, 1);
    EXPECT_EQ(nullptr, DirScan("..").root); // there would be no way back
    ASSERT_EQ(0, chdir(home.c_str()));
}

} // namespace
