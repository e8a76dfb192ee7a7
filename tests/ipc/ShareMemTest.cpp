#include "mavkit/ipc/ShareMem.h"

#include "device/Device.h"
#include "mavkit/diag/MavTrace.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const unsigned int kPage = static_cast<unsigned int>(getpagesize());

// The owner's side: what its callbacks saw and did.
struct Owner {
    bool valid = true; // what the validator answers
    int validated = 0;
    int initialised = 0;
};

bool Validate(std::FILE* file, void* context) {
    Owner* owner = static_cast<Owner*>(context);
    ++owner->validated;
    return owner->valid && std::fgetc(file) != EOF;
}

bool Fill(std::FILE* file, void* context) {
    ++static_cast<Owner*>(context)->initialised;
    const std::string content(2 * kPage, 'i');
    return std::fwrite(content.data(), 1, content.size(), file) == content.size() &&
           std::fflush(file) == 0;
}

bool Refuse(std::FILE*, void*) { return false; }

bool Throw(std::FILE*, void*) { throw 1; }

int LowestFreeDescriptor() {
    const int fd = dup(0);
    close(fd);
    return fd;
}

class ShareMemTest : public testing::Test {
protected:
    ShareMemTest() {
        setting_.prefixOn = 0;
        MavTrace::Setting = &setting_;
        Device::HoldClock(0);
        device.Remove(Device::kGeneralLog);
    }
    ~ShareMemTest() override {
        MavTrace::Setting = nullptr;
        EXPECT_EQ(free_, LowestFreeDescriptor()) << "a descriptor was left open";
    }

    // What the region told since the last call: its lines on standard output, with # for a line
    // number, then, each after a "!", its lines in the general log.
    std::string Told() {
        const std::regex number("line=[0-9]+"), other("(^|\n)(?!.*ShareMem)[^\n]*(?=\n)");
        std::string text = std::regex_replace(out_.Take(), number, "line=#");
        text = std::regex_replace(text, other, ""); // a busy test process draws descriptor warnings
        text += std::regex_replace(device.GeneralLog(), std::regex("01-01 00:00:00\t"), "!");
        device.Remove(Device::kGeneralLog);
        return text;
    }

    Device device;
    const std::string path = device.Path("/mnt/sdcard/region");

private:
    Zone zone_{"UTC0"};
    TraceSetting setting_;
    StdoutCapture out_;
    const int free_ = LowestFreeDescriptor();
};

TEST_F(ShareMemTest, InitTellsEveryOutcome) {
    const std::string create = "ShareMem: Will create new file @ for sharemem\n",
                      notValid = "ShareMem: ShareMem File @ is not valid\n",
                      initFailed = "ShareMem: Init sharemem file @ failed\n",
                      noFile = "!ShareMem: Share file @ not exist or create failed\n",
                      report = "***********Assert failed.file=ShareMem,line=#,exp=";
    using Callback = bool (*)(std::FILE*, void*);
    const struct {
        const char* name;
        const char* existing; // content before; null: missing
        bool valid;
        Callback initialiser, validator;
        const char* fault;
        int error, skip;
        unsigned int size;
        std::string told;
        bool mapped;
        int validated, initialised;
        const char* start; // how the file begins afterwards
    } cases[] = {
        {"accepted", "good", true, Fill, Validate, "", 0, 0, kPage, "", true, 1, 0, "good"},
        {"rejected", "bad", false, Fill, Validate, "", 0, 0, kPage, notValid + create, true, 1, 1,
         "iii"},
        {"missing", nullptr, true, Fill, Validate, "", 0, 0, kPage, create, true, 0, 1, "iii"},
        {"unreadable", "good", true, Fill, Validate, "fopen", EACCES, 0, kPage, create, true, 0, 1,
         "iii"},
        {"no validator: read only", "good", true, Fill, nullptr, "", 0, 0, kPage,
         initFailed + noFile, false, 0, 1, "good"},
        {"no callbacks, existing", "good", true, nullptr, nullptr, "", 0, 0, kPage, "", true, 0, 0,
         "good"},
        {"no callbacks, missing", nullptr, true, nullptr, nullptr, "", 0, 0, kPage, create, true, 0,
         0, ""},
        {"not to be created", nullptr, true, Fill, Validate, "fopen", ENOSPC, 1, kPage,
         create + report + "fp!=NULL\n" + noFile, false, 0, 0, ""},
        {"initialiser refuses", nullptr, true, Refuse, Validate, "", 0, 0, kPage,
         create + initFailed + noFile, false, 0, 0, ""},
        {"not writable", "good", true, Fill, Validate, "open", EACCES, 0, kPage,
         report + "false\n!ShareMem: open file error Permission denied,file name is @\n", false, 1,
         0, "good"},
        {"no mapping", "good", true, Fill, Validate, "mmap", ENOMEM, 0, kPage,
         "!ShareMem: ShareMem shmat error Cannot allocate memory 12\n", false, 1, 0, "good"},
        {"size 0", "good", true, Fill, Validate, "", 0, 0, 0,
         "!ShareMem: ShareMem shmat error Invalid argument 22\n", false, 1, 0, "good"},
        {"no memory for the path", "good", true, Fill, Validate, "strdup", ENOMEM, 0, kPage,
         "ShareMem: Will create new file  for sharemem\n" + report +
             "fp!=NULL\n!ShareMem: Share file  not exist or create failed\n",
         false, 0, 0, "good"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        device.Remove("/mnt/sdcard/region");
        if (c.existing != nullptr)
            device.Write("/mnt/sdcard/region", c.existing);
        Owner owner;
        owner.valid = c.valid;
        if (*c.fault != '\0')
            Device::Fail(c.fault, c.error, 1, c.skip);
        ShareMem region;
        region.Init(path.c_str(), c.size, c.initialiser, c.validator, &owner);
        EXPECT_EQ(std::regex_replace(c.told, std::regex("@"), path), Told());
        EXPECT_EQ(c.mapped, region.base != nullptr);
        EXPECT_TRUE(region.initialised);
        EXPECT_EQ(c.size, region.size);
        EXPECT_EQ(c.validated, owner.validated);
        EXPECT_EQ(c.initialised, owner.initialised);
        EXPECT_EQ(c.start, device.Read("/mnt/sdcard/region").substr(0, std::strlen(c.start)));
        if (c.mapped && *c.start != '\0') {
            EXPECT_EQ(0, std::memcmp(region.base, c.start, std::strlen(c.start)));
        }
    }
    ShareMem nameless;
    nameless.Init(nullptr, kPage, Fill, Validate, nullptr);
    EXPECT_EQ(nullptr, nameless.base);
}

TEST_F(ShareMemTest, InitAgainKeepsTheObjectWhole) {
    Owner owner;
    ShareMem region;
    Device::Fail("mmap", EAGAIN);
    region.Init(path.c_str(), kPage, Fill, Validate, &owner);
    ASSERT_EQ(nullptr, region.base);
    ASSERT_TRUE(region.Init(Fill, Validate, &owner)); // a retry with what is stored
    unsigned char* const first = region.base;
    Device::Fail("open", EMFILE);
    EXPECT_FALSE(region.Init(Fill, Validate, &owner));
    EXPECT_EQ(first, region.base); // not reached the mapping
    ASSERT_TRUE(region.Init(Fill, Validate, &owner));
    unsigned char* const second = region.base;
    EXPECT_NE(first, second);
    Device::Fail("mmap", ENOMEM);
    EXPECT_FALSE(region.Init(Fill, Validate, &owner));
    EXPECT_EQ(nullptr, region.base);
    first[0] = 'x'; // neither was unmapped
    EXPECT_EQ('x', second[0]);
    EXPECT_EQ(0, munmap(first, kPage) | munmap(second, kPage));

    // Another path and a longer size: nothing of the old region is left to be unmapped with it.
    ASSERT_TRUE(region.Init(Fill, Validate, &owner));
    unsigned char* const third = region.base;
    region.Init((path + "/none").c_str(), 64 * kPage, Fill, Validate, &owner);
    EXPECT_EQ(nullptr, region.base);
    region.Init(path.c_str(), 2 * kPage, Fill, Validate, &owner);
    region.Init(region.path, 2 * kPage, Fill, Validate, &owner); // its own text
    EXPECT_EQ(path, region.path);
    ASSERT_NE(nullptr, region.base);
    EXPECT_EQ('x', region.base[0]);
    EXPECT_EQ(0, munmap(third, kPage));

    EXPECT_THROW(region.EnsureShareFile(Throw, nullptr, nullptr), int); // the stream is closed
    EXPECT_THROW(region.EnsureShareFile(Throw, Throw, nullptr), int);
}

TEST_F(ShareMemTest, ProcessesShareTheRegion) {
    Owner owner;
    ShareMem region;
    region.Init(path.c_str(), 2 * kPage, Fill, Validate, &owner);
    ASSERT_NE(nullptr, region.base);
    region.base[1] = 'p';
    const pid_t child = fork();
    if (child == 0) { // has the file by its name alone, and dies without a Save
        ShareMem other;
        other.Init(path.c_str(), 2 * kPage, Fill, Validate, &owner);
        if (other.base != nullptr && other.base != region.base && other.base[1] == 'p')
            other.base[kPage] = 'c';
        raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ('c', region.base[kPage]);
    ShareMem next; // a later start
    next.Init(path.c_str(), 2 * kPage, Fill, Validate, &owner);
    ASSERT_NE(nullptr, next.base);
    EXPECT_EQ("ip", std::string(next.base, next.base + 2));
    EXPECT_EQ('c', next.base[kPage]);
}

TEST_F(ShareMemTest, SaveFlushesPagesAndTellsFailures) {
    Owner owner;
    ShareMem region;
    EXPECT_TRUE(region.Save(false, false)); // nothing at all
    region.size = kPage;
    EXPECT_FALSE(region.Save(false, false)); // a region that is not there
    region.Init(path.c_str(), 2 * kPage, Fill, Validate, &owner);
    ASSERT_NE(nullptr, region.base);

    device.msyncFlags.clear();
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(region.Save((i & 2) != 0, (i & 1) != 0));
    // From the middle of the last page: not a valid start, and nothing mapped behind it.
    EXPECT_TRUE(region.Save(region.base + kPage + 5, kPage - 5, false, true));
    EXPECT_EQ((std::vector<int>{MS_SYNC | MS_INVALIDATE, MS_ASYNC | MS_INVALIDATE, MS_INVALIDATE,
                                MS_INVALIDATE, MS_ASYNC | MS_INVALIDATE}),
              device.msyncFlags);
    EXPECT_FALSE(region.Save(region.base + 1, 0xFFFFFFFFU, false, false)); // beyond the mapping
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
