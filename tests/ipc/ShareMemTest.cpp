// Regions: which files they use, create and report. The result when a call fails is in
// faults/outcomes.txt.
#include "mavkit/ipc/ShareMem.h"
#include "device/Device.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sys/mman.h>
#include <unistd.h>

namespace {

const unsigned int kPage = static_cast<unsigned int>(getpagesize());

// The owner's callbacks add a letter to a text, their context, when they are called.
bool Validate(std::FILE* file, void* context) {
    *static_cast<std::string*>(context) += 'v';
    return std::fgetc(file) == 'g'; // as in "good"
}

bool Fill(std::FILE* file, void* context) {
    *static_cast<std::string*>(context) += 'i';
    const std::string content(std::size_t{2} * kPage, 'n');
    return std::fwrite(content.data(), 1, content.size(), file) == content.size() &&
           std::fseek(file, 0, SEEK_SET) == 0 && std::fgetc(file) == 'n'; // it may be read, too
}

class ShareMemTest : public TerminalTest {
protected:
    // The lines since the last call: on standard output, with # for a line number, and then, each
    // after a "!", in the general log.
    std::string Lines() {
        std::string text = std::regex_replace(out.Take(), std::regex("line=[0-9]+"), "line=#");
        text += std::regex_replace(device.GeneralLog(), std::regex("03-05 06:07:08\t"), "!");
        device.Remove(Device::kGeneralLog);
        return text;
    }

    // Whether this process maps the region's file.
    bool IsMapped() const {
        std::ifstream file("/proc/self/maps");
        const std::string maps{std::istreambuf_iterator<char>(file), {}};
        return maps.find(device.Path(path)) != std::string::npos;
    }

    bool Init(unsigned int size) {
        region.Init(path.c_str(), size, Fill, Validate, &calls);
        return region.base != nullptr;
    }

    const std::string path = "/mnt/region";
    std::string calls;
    ShareMem region;
};

TEST_F(ShareMemTest, InitReportsEveryOutcome) {
    const std::string create = "ShareMem: Will create new file /mnt/region for sharemem\n",
                      invalid = "ShareMem: ShareMem File /mnt/region is not valid\n",
                      failed = "ShareMem: Init sharemem file /mnt/region failed\n",
                      noFile = "!ShareMem: Share file /mnt/region not exist or create failed\n",
                      report = "***********Assert failed.file=ShareMem,line=#,exp=false\n"
                               "!ShareMem: open file error ",
                      gone = report + std::strerror(ENOENT) + ",file name is /mnt/region\n";
    const auto remove = [](std::FILE*, void*) { return std::remove("/mnt/region") == 0; };
    const auto refuse = [](std::FILE*, void*) { return false; };
    const struct {
        const char* before; // content of the file; null: there is none
        bool (*initialiser)(std::FILE*, void*);
        bool (*validator)(std::FILE*, void*);
        std::string lines;
        const char* calls; // v: validator, i: initialiser, m: mapped
        const char* after; // how the file begins
    } cases[] = {
        {"good", Fill, Validate, "", "vm", "good"},
        {"bad", Fill, Validate, invalid + create, "vim", "nnnn"},
        {nullptr, Fill, Validate, create, "im", "nnnn"},
        {"good", Fill, nullptr, failed + noFile, "i", "good"}, // it is open for reading
        {"good", nullptr, nullptr, "", "m", "good"},
        {nullptr, nullptr, nullptr, create, "m", ""},
        {nullptr, refuse, Validate, create + failed + noFile, "", ""},
        {"good", Fill, remove, gone, "", ""}, // it is not created to be mapped
    };
    // Each line at the threshold of its own level, and not below it.
    const auto without = [](std::string lines, const std::string& line) {
        const std::size_t at = lines.find(line);
        return at == std::string::npos ? lines : lines.erase(at, line.size());
    };
    for (const auto& c : cases)
        for (const int level : {LEVEL_DISABLED, LEVEL_ERROR, LEVEL_WARN, LEVEL_INFO}) {
            SCOPED_TRACE(testing::Message() << level << ' ' << c.lines);
            device.Remove(path);
            if (c.before != nullptr)
                device.Write(path, c.before);
            calls.clear();
            setting.level = static_cast<unsigned char>(level);
            std::string lines = level < LEVEL_INFO ? without(c.lines, create) : c.lines;
            if (level < LEVEL_ERROR)
                lines = without(without(lines, invalid), failed);
            ShareMem fresh;
            fresh.Init(path.c_str(), kPage, c.initialiser, c.validator, &calls);
            EXPECT_EQ(c.calls, calls + (fresh.base != nullptr ? "m" : ""));
            ASSERT_EQ(lines, Lines()); // its message goes to the same place
            EXPECT_TRUE(fresh.initialised);
            EXPECT_EQ(kPage, fresh.size);
            EXPECT_EQ(c.after, device.Read(path).substr(0, 4));
            if (fresh.base != nullptr && *c.after != '\0') {
                EXPECT_EQ(0, std::memcmp(fresh.base, c.after, 4));
            }
        }
    setting.level = LEVEL_DISABLED;
    EXPECT_FALSE(Init(0));
    EXPECT_EQ(std::string("!ShareMem: ShareMem shmat error ") + std::strerror(EINVAL) + " 22\n",
              Lines());
    const std::filesystem::path home = std::filesystem::current_path();
    std::filesystem::current_path(device.Path("/mnt")); // a missing path is an empty one
    region.Init(nullptr, kPage, Fill, Validate, &calls);
    std::filesystem::current_path(home);
    EXPECT_EQ(nullptr, region.base);
    EXPECT_EQ("***********Assert failed.file=ShareMem,line=#,exp=fp!=NULL\n"
              "!ShareMem: Share file  not exist or create failed\n",
              Lines());
}

TEST_F(ShareMemTest, ReportsTheErrorOfTheCallThatFailed) {
    // In a process without standard input and output: the report in between fails, too.
    const pid_t child = Start([this] {
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        close(0);
        close(1);
        Device::Fail("open", EACCES);
        EXPECT_FALSE(Init(kPage));
        EXPECT_TRUE(region.Init(Fill, Validate, &calls)); // descriptor 0 is as good as any
        Device::Fail("msync", EIO);
        EXPECT_FALSE(region.Save(region.base + 5, 7, false, false));
        char saved[80];
        std::snprintf(saved, sizeof saved, ",ipData=%p,iiLen=7\n",
                      static_cast<void*>(region.base + 5));
        const std::string head = "03-05 06:07:08\tShareMem: ";
        EXPECT_EQ(head + "open file error " + std::strerror(EACCES) +
                      ",file name is /mnt/region\n" + head + "msync error " + std::strerror(EIO) +
                      saved,
                  device.GeneralLog());
        return true;
    });
    EXPECT_TRUE(Succeeded(child));
}

TEST_F(ShareMemTest, InitAgainKeepsTheObjectWhole) {
    Device::Fail("mmap", EAGAIN);
    ASSERT_FALSE(Init(kPage));
    ASSERT_TRUE(region.Init(Fill, Validate, &calls)); // with the path and size that it has
    unsigned char* const first = region.base;
    Device::Fail("open", EMFILE);
    EXPECT_FALSE(region.Init(Fill, Validate, &calls));
    EXPECT_EQ(first, region.base); // it ended before a mapping
    Device::Fail("mmap", ENOMEM);
    EXPECT_FALSE(region.Init(Fill, Validate, &calls));
    EXPECT_EQ(nullptr, region.base);
    region.Init(region.path, kPage, Fill, Validate, &calls); // its own text
    EXPECT_EQ(path, region.path);
    unsigned char* const second = region.base;
    ASSERT_NE(nullptr, second);
    // Another path and a longer size: the old region is not unmapped, least of all at that size.
    region.Init((path + "/none").c_str(), 64 * kPage, Fill, Validate, &calls);
    EXPECT_EQ(nullptr, region.base);
    EXPECT_EQ(first[0], second[0]);
    EXPECT_EQ(0, munmap(first, kPage));
    EXPECT_EQ(0, munmap(second, kPage));
    EXPECT_FALSE(IsMapped());
    ShareMem().Init(path.c_str(), 2 * kPage, nullptr, nullptr, nullptr);
    EXPECT_FALSE(IsMapped()); // the destructor unmaps all of it
    // A callback may throw an exception: no stream stays open.
    const auto leave = [](std::FILE*, void*) -> bool { throw 1; };
    EXPECT_THROW(region.Init(path.c_str(), kPage, leave, nullptr, nullptr), int);
}

TEST_F(ShareMemTest, ProcessesShareTheRegion) {
    ASSERT_TRUE(Init(2 * kPage));
    region.base[0] = 'g';
    // The other process finds the file by its name, and ends without a Save.
    const pid_t child = Start([this] {
        ShareMem other;
        other.Init(path.c_str(), 2 * kPage, Fill, Validate, &calls);
        if (other.base != nullptr && other.base != region.base && other.base[0] == 'g')
            other.base[kPage] = 'c';
        return raise(SIGKILL) == 0;
    });
    EXPECT_FALSE(Succeeded(child));
    EXPECT_EQ('c', region.base[kPage]);
    EXPECT_EQ('c', device.Read(path)[kPage]); // this is what a later start finds

    // Two processes start at once on a missing file: either may create it, and both then have a
    // region.
    const auto isWhole = [](std::FILE* file, void*) {
        return std::fseek(file, 0, SEEK_END) == 0 &&
               static_cast<unsigned long>(std::ftell(file)) == 2UL * kPage;
    };
    // It only writes: what it would read back the other one may have emptied meanwhile.
    const auto write = [](std::FILE* file, void*) {
        const std::string content(std::size_t{2} * kPage, 'n');
        return std::fwrite(content.data(), 1, content.size(), file) == content.size();
    };
    for (int round = 0; round < 50; ++round) {
        device.Remove(path);
        pid_t starters[2];
        for (pid_t& starter : starters)
            starter = Start([&] {
                ShareMem mine;
                mine.Init(path.c_str(), 2 * kPage, write, isWhole, nullptr);
                return mine.base != nullptr && mine.Save(false, false);
            });
        for (const pid_t starter : starters)
            EXPECT_TRUE(Succeeded(starter));
        EXPECT_EQ(std::size_t{2} * kPage, device.Read(path).size());
    }
}

TEST_F(ShareMemTest, SaveFlushesPagesAndReportsFailures) {
    ASSERT_TRUE(Init(2 * kPage));

    const void* const pages[2] = {region.base, region.base + kPage};
    device.syncs.clear();
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(region.Save((i & 2) != 0, (i & 1) != 0));
    EXPECT_TRUE(region.Save(region.base + kPage / 2 + 5, kPage, false, true));
    EXPECT_TRUE(region.Save(region.base + kPage + 5, kPage - 5, false, true));
    const std::size_t all = std::size_t{2} * kPage;
    const decltype(device.syncs) syncs{
        {pages[0], all, MS_SYNC | MS_INVALIDATE},
        {pages[0], all, MS_ASYNC | MS_INVALIDATE},
        {pages[0], all, MS_INVALIDATE},
        {pages[0], all, MS_INVALIDATE},
        // From the start of the first page with one of the bytes up to the last byte.
        {pages[0], kPage + kPage / 2 + 5, MS_ASYNC | MS_INVALIDATE},
        {pages[1], kPage, MS_ASYNC | MS_INVALIDATE}};
    EXPECT_EQ(syncs, device.syncs);
    Lines();

    const std::string report =
        "***********Assert failed.file=ShareMem,line=#,exp=false\n!ShareMem: ";
    device.syncs.clear();
    EXPECT_FALSE(region.Save(region.base - 1, 1, false, false));
    EXPECT_EQ(report + "Save to sharefile /mnt/region para ipData error\n", Lines());
    EXPECT_TRUE(device.syncs.empty());
}

} // namespace
