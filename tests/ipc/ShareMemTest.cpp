// Regions: what they find, make and tell. What becomes of one when a call fails is in
// faults/outcomes.txt.
#include "mavkit/ipc/ShareMem.h"
#include "device/Device.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <sys/mman.h>
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
    const std::string content(std::size_t{2} * kPage, 'n');
    return std::fwrite(content.data(), 1, content.size(), file) == content.size() &&
           std::fflush(file) == 0;
}

class ShareMemTest : public TerminalTest {
protected:
    // What was told since the last call: on standard output, with # for a line number, and then,
    // each line after a "!", in the general log.
    std::string Told() {
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

TEST_F(ShareMemTest, InitTellsEveryOutcome) {
    const std::string create = "ShareMem: Will create new file /mnt/region for sharemem\n",
                      invalid = "ShareMem: ShareMem File /mnt/region is not valid\n",
                      failed = "ShareMem: Init sharemem file /mnt/region failed\n"
                               "!ShareMem: Share file /mnt/region not exist or create failed\n";
    const struct {
        const char* before; // content of the file; null: there is none
        bool (*initialiser)(std::FILE*, void*);
        bool (*validator)(std::FILE*, void*);
        std::string told;
        const char* calls; // v: validator, i: initialiser, m: mapped
        const char* after; // how the file begins
    } cases[] = {
        {"good", Fill, Validate, "", "vm", "good"},
        {"bad", Fill, Validate, invalid + create, "vim", "nnnn"},
        {nullptr, Fill, Validate, create, "im", "nnnn"},
        {"good", Fill, nullptr, failed, "i", "good"}, // it is open for reading
        {"good", nullptr, nullptr, "", "m", "good"},
        {nullptr, nullptr, nullptr, create, "m", ""},
        {nullptr, [](std::FILE*, void*) { return false; }, Validate, create + failed, "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.told);
        device.Remove(path);
        if (c.before != nullptr)
            device.Write(path, c.before);
        calls.clear();
        ShareMem fresh;
        fresh.Init(path.c_str(), kPage, c.initialiser, c.validator, &calls);
        EXPECT_EQ(c.calls, calls + (fresh.base != nullptr ? "m" : ""));
        EXPECT_EQ(c.told, Told());
        EXPECT_TRUE(fresh.initialised && fresh.size == kPage);
        EXPECT_EQ(c.after, device.Read(path).substr(0, 4));
        if (fresh.base != nullptr && *c.after != '\0') {
            EXPECT_EQ(0, std::memcmp(fresh.base, c.after, 4));
        }
    }
    EXPECT_FALSE(Init(0));
    EXPECT_EQ("!ShareMem: ShareMem shmat error Invalid argument 22\n",
              std::regex_replace(Told(), std::regex(invalid + "|" + create), ""));
}

TEST_F(ShareMemTest, InitAgainKeepsTheObjectWhole) {
    Device::Fail("mmap", EAGAIN);
    ASSERT_FALSE(Init(kPage));
    ASSERT_TRUE(region.Init(Fill, Validate, &calls)); // with the path and size that it has
    unsigned char* const first = region.base;
    Device::Fail("open", EMFILE);
    EXPECT_FALSE(region.Init(Fill, Validate, &calls));
    EXPECT_EQ(first, region.base); // it did not come to a mapping
    Device::Fail("mmap", ENOMEM);
    EXPECT_FALSE(region.Init(Fill, Validate, &calls));
    EXPECT_EQ(nullptr, region.base);
    region.Init(region.path, kPage, Fill, Validate, &calls); // its own text
    EXPECT_EQ(path, region.path);
    unsigned char* const second = region.base;
    ASSERT_NE(nullptr, second);
    // Another path and a longer size: the old region is not unmapped, and surely not at that size.
    region.Init((path + "/none").c_str(), 64 * kPage, Fill, Validate, &calls);
    EXPECT_EQ(nullptr, region.base);
    EXPECT_EQ(first[0], second[0]);
    EXPECT_EQ(0, munmap(first, kPage) | munmap(second, kPage));
    EXPECT_FALSE(IsMapped());
    ShareMem().Init(path.c_str(), kPage, nullptr, nullptr, nullptr);
    EXPECT_FALSE(IsMapped()); // its end unmaps
    // A callback may leave by an exception: no stream stays open.
    const auto leave = [](std::FILE*, void*) -> bool { throw 1; };
    EXPECT_THROW(region.Init(path.c_str(), kPage, leave, nullptr, nullptr), int);
}

TEST_F(ShareMemTest, ProcessesShareTheRegion) {
    ASSERT_TRUE(Init(2 * kPage));
    region.base[0] = 'g';
    // The other one knows the file by its name, and dies without a Save.
    EXPECT_FALSE(Succeeded(Start([this] {
        ShareMem other;
        other.Init(path.c_str(), 2 * kPage, Fill, Validate, &calls);
        if (other.base != nullptr && other.base != region.base && other.base[0] == 'g')
            other.base[kPage] = 'c';
        return raise(SIGKILL) == 0;
    })));
    EXPECT_EQ('c', region.base[kPage]);
    EXPECT_EQ('c', device.Read(path)[kPage]); // what a later start finds

    // Two that start on a missing one at once: either may create it, both end up with one.
    const auto isWhole = [](std::FILE* file, void*) {
        return std::fseek(file, 0, SEEK_END) == 0 &&
               std::ftell(file) == static_cast<long>(2 * kPage);
    };
    for (int round = 0; round < 50; ++round) {
        device.Remove(path);
        pid_t starters[2];
        for (pid_t& starter : starters)
            starter = Start([&] {
                ShareMem mine;
                mine.Init(path.c_str(), 2 * kPage, Fill, isWhole, &calls);
                return mine.base != nullptr && mine.Save(false, false);
            });
        for (const pid_t starter : starters)
            EXPECT_TRUE(Succeeded(starter));
        EXPECT_EQ(device.Read(path).size(), std::size_t{2} * kPage);
    }
}

TEST_F(ShareMemTest, SaveFlushesPagesAndTellsFailures) {
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
    Told();

    const std::string report =
        "***********Assert failed.file=ShareMem,line=#,exp=false\n!ShareMem: ";
    device.syncs.clear();
    EXPECT_FALSE(region.Save(region.base - 1, 1, false, false));
    EXPECT_EQ(report + "Save to sharefile /mnt/region para ipData error\n", Told());
    EXPECT_TRUE(device.syncs.empty());
}

} // namespace
