#include "mavkit/ipc/ShareMem.h"

#include "device/Device.h"
#include "mavkit/diag/MavTrace.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const unsigned int kPage = static_cast<unsigned int>(getpagesize());

// The owner's callbacks note in a text, their context, that they were called.
bool Validate(std::FILE* file, void* context) {
    *static_cast<std::string*>(context) += 'v';
    return std::fgetc(file) == 'g'; // as in "good"
}

bool Fill(std::FILE* file, void* context) {
    *static_cast<std::string*>(context) += 'i';
    const std::string content(2 * kPage, 'n');
    return std::fwrite(content.data(), 1, content.size(), file) == content.size() &&
           std::fflush(file) == 0;
}

bool Refuse(std::FILE*, void*) { return false; }

bool Throw(std::FILE*, void*) { throw 1; }

class ShareMemTest : public testing::Test {
protected:
    ShareMemTest() {
        setting_.prefixOn = 0;
        MavTrace::Setting = &setting_;
        Device::HoldClock(0);
    }
    ~ShareMemTest() override {
        MavTrace::Setting = nullptr;
        EXPECT_EQ(free_, Device::LowestFreeDescriptor());
    }

    // What was told since the last call: on standard output, with # for a line number, and then,
    // each line after a "!", in the general log.
    std::string Told() {
        std::string text = std::regex_replace(out_.Take(), std::regex("line=[0-9]+"), "line=#");
        text += std::regex_replace(device.GeneralLog(), std::regex("01-01 00:00:00\t"), "!");
        device.Remove(Device::kGeneralLog);
        return text;
    }

    // Whether this process maps the region's file.
    bool IsMapped() const {
        std::ostringstream maps;
        maps << std::ifstream("/proc/self/maps").rdbuf();
        return maps.str().find(path) != std::string::npos;
    }

    Device device;
    const std::string path = device.Path("/mnt/sdcard/region");
    std::string calls;
    ShareMem region;

private:
    Zone zone_{"UTC0"};
    TraceSetting setting_;
    StdoutCapture out_;
    const int free_ = Device::LowestFreeDescriptor();
};

TEST_F(ShareMemTest, InitTellsEveryOutcome) {
    const std::string create = "ShareMem: Will create new file @ for sharemem\n",
                      invalid = "ShareMem: ShareMem File @ is not valid\n",
                      unfilled = "ShareMem: Init sharemem file @ failed\n",
                      noFile = "!ShareMem: Share file @ not exist or create failed\n",
                      report = "***********Assert failed.file=ShareMem,line=#,exp=";
    const struct {
        const char* before; // content of the file; null: there is none
        bool (*initialiser)(std::FILE*, void*);
        bool (*validator)(std::FILE*, void*);
        const char* fault; // the call that fails
        int skip;
        std::string told;
        const char* calls; // v: validator, i: initialiser, m: mapped
        const char* after; // how the file begins
    } cases[] = {
        {"good", Fill, Validate, nullptr, 0, "", "vm", "good"},
        {"bad", Fill, Validate, nullptr, 0, invalid + create, "vim", "nnnn"},
        {nullptr, Fill, Validate, nullptr, 0, create, "im", "nnnn"},
        {"good", Fill, Validate, "fopen", 0, create, "im", "nnnn"},
        {"good", Fill, nullptr, nullptr, 0, unfilled + noFile, "i", "good"}, // open for reading
        {"good", nullptr, nullptr, nullptr, 0, "", "m", "good"},
        {nullptr, nullptr, nullptr, nullptr, 0, create, "m", ""},
        {nullptr, Refuse, Validate, nullptr, 0, create + unfilled + noFile, "", ""},
        {nullptr, Fill, Validate, "fopen", 1, create + report + "fp!=NULL\n" + noFile, "", ""},
        {"good", Fill, Validate, "open", 0,
         report + "false\n!ShareMem: open file error Too many open files,file name is @\n", "v",
         "good"},
        {"good", Fill, Validate, "mmap", 0,
         "!ShareMem: ShareMem shmat error Too many open files 24\n", "v", "good"},
        {"good", Fill, Validate, "strdup", 0,
         "ShareMem: Will create new file  for sharemem\n" + report +
             "fp!=NULL\n!ShareMem: Share file  not exist or create failed\n",
         "", "good"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.told);
        device.Remove("/mnt/sdcard/region");
        if (c.before != nullptr)
            device.Write("/mnt/sdcard/region", c.before);
        if (c.fault != nullptr)
            Device::Fail(c.fault, EMFILE, 1, c.skip);
        calls.clear();
        ShareMem fresh;
        fresh.Init(path.c_str(), kPage, c.initialiser, c.validator, &calls);
        EXPECT_EQ(c.calls, calls + (fresh.base != nullptr ? "m" : ""));
        EXPECT_EQ(std::regex_replace(c.told, std::regex("@"), path), Told());
        EXPECT_TRUE(fresh.initialised && fresh.size == kPage);
        EXPECT_EQ(c.after, device.Read("/mnt/sdcard/region").substr(0, 4));
        if (fresh.base != nullptr && *c.after != '\0') {
            EXPECT_EQ(0, std::memcmp(fresh.base, c.after, 4));
        }
    }
    region.Init(path.c_str(), 0, nullptr, nullptr, nullptr);
    EXPECT_EQ("!ShareMem: ShareMem shmat error Invalid argument 22\n", Told());
    region.Init(nullptr, kPage, Fill, Validate, &calls);
    EXPECT_EQ(nullptr, region.base);
}

TEST_F(ShareMemTest, InitAgainKeepsTheObjectWhole) {
    Device::Fail("mmap", EAGAIN);
    region.Init(path.c_str(), kPage, Fill, Validate, &calls);
    ASSERT_EQ(nullptr, region.base);
    ASSERT_TRUE(region.Init(Fill, Validate, &calls)); // with the path and size that it has
    unsigned char* const first = region.base;
    Device::Fail("open", EMFILE);
    EXPECT_FALSE(region.Init(Fill, Validate, &calls));
    EXPECT_EQ(first, region.base); // it did not come to a mapping
    Device::Fail("mmap", ENOMEM);
    EXPECT_FALSE(region.Init(Fill, Validate, &calls));
    EXPECT_EQ(nullptr, region.base);

    // Another path and a longer size: the old region is not unmapped, and surely not at that size.
    ASSERT_TRUE(region.Init(Fill, Validate, &calls));
    unsigned char* const second = region.base;
    region.Init((path + "/none").c_str(), 64 * kPage, Fill, Validate, &calls);
    EXPECT_EQ(nullptr, region.base);
    EXPECT_EQ(first[0], second[0]);
    EXPECT_EQ(0, munmap(first, kPage) | munmap(second, kPage));
    EXPECT_FALSE(IsMapped());
    region.Init(path.c_str(), 0, Fill, Validate, &calls);
    region.Init(region.path, 2 * kPage, nullptr, nullptr, nullptr); // its own text
    EXPECT_EQ(path, region.path);

    EXPECT_THROW(region.EnsureShareFile(Throw, nullptr, nullptr), int); // the stream is closed
    EXPECT_THROW(region.EnsureShareFile(Throw, Throw, nullptr), int);

    EXPECT_TRUE(IsMapped());
    region.~ShareMem();
    EXPECT_FALSE(IsMapped());
    new (&region) ShareMem;
}

TEST_F(ShareMemTest, ProcessesShareTheRegion) {
    region.Init(path.c_str(), 2 * kPage, Fill, nullptr, &calls);
    ASSERT_NE(nullptr, region.base);
    region.base[0] = 'g';
    const pid_t child = fork();
    if (child == 0) { // knows the file by its name, and dies without a Save
        ShareMem other;
        other.Init(path.c_str(), 2 * kPage, Fill, Validate, &calls);
        if (other.base != nullptr && other.base != region.base && other.base[0] == 'g')
            other.base[kPage] = 'c';
        raise(SIGKILL);
    }
    ASSERT_EQ(child, waitpid(child, nullptr, 0));
    EXPECT_EQ('c', region.base[kPage]);
    EXPECT_EQ('c', device.Read("/mnt/sdcard/region")[kPage]); // what a later start finds
}

TEST_F(ShareMemTest, SaveFlushesPagesAndTellsFailures) {
    // An emulator may keep its whole address space mapped, and then knows no range without memory.
    void* const gone = mmap(nullptr, kPage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(gone, kPage);
    const bool emulated = msync(gone, kPage, MS_ASYNC) == 0;
    region.size = kPage;
    EXPECT_TRUE(!region.Save(false, false) || emulated); // nothing is mapped
    region.Init(path.c_str(), 2 * kPage, Fill, nullptr, &calls);
    ASSERT_NE(nullptr, region.base);

    device.msyncFlags.clear();
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(region.Save((i & 2) != 0, (i & 1) != 0));
    EXPECT_EQ((std::vector<int>{MS_SYNC | MS_INVALIDATE, MS_ASYNC | MS_INVALIDATE, MS_INVALIDATE,
                                MS_INVALIDATE}),
              device.msyncFlags);
    // From the middle of the last page: no valid start itself, and nothing mapped to round up to.
    EXPECT_TRUE(region.Save(region.base + kPage + 5, kPage - 5, false, true));
    // Far beyond the mapping, and in 32 bits a length that wraps.
    EXPECT_TRUE(!region.Save(region.base + 1, 0xFFFFFFFFU, false, false) || emulated);
    Told();

    char ipData[32];
    std::snprintf(ipData, sizeof ipData, "%p", static_cast<void*>(region.base + 7));
    Device::Fail("msync", EIO);
    EXPECT_FALSE(region.Save(region.base + 7, 0xFFFFFFFFU, true, false));
    const std::string report = "***********Assert failed.file=ShareMem,line=#,exp=false\n!";
    EXPECT_EQ(report + "ShareMem: msync error Input/output error,ipData=" + ipData + ",iiLen=-1\n",
              Told());
    device.msyncFlags.clear();
    EXPECT_FALSE(region.Save(region.base - 1, 1, false, false));
    EXPECT_EQ(report + "ShareMem: Save to sharefile " + path + " para ipData error\n", Told());
    EXPECT_TRUE(device.msyncFlags.empty());
}

} // namespace
