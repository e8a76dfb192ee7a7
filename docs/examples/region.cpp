// A counter of starts that survives restarts and power cuts, and that others may read meanwhile.
#include <mavkit/diag/MavTrace.h>
#include <mavkit/encoding/Bits.h>
#include <mavkit/ipc/ShareMem.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <unistd.h>

// Two of these make the region, each on a page of its own. They are written in turn, so that one is
// always whole: the one with the higher number among those whose CRC is right.
struct Slot {
    char magic[8];
    unsigned int number; // of the update
    unsigned int starts; // what is kept
    unsigned int crc;    // of all before it
};
static const unsigned int kSlotSize = 4096, kSize = 2 * kSlotSize;
static const char kMagic[8] = "starts2";

static unsigned int CrcOf(const Slot& slot) {
    unsigned short crc = 0xFFFF;
    for (unsigned int i = 0; i < offsetof(Slot, crc); ++i)
        crc = Add_CRC(crc, reinterpret_cast<const unsigned char*>(&slot)[i]);
    return crc;
}

// Copies the newest whole slot; what is checked is the copy, for another process may write at any
// moment. Returns its index, or -1 with an empty slot.
static int Newest(const unsigned char* region, Slot* newest) {
    int found = -1;
    std::memset(newest, 0, sizeof *newest);
    for (int i = 0; i < 2; ++i, region += kSlotSize) {
        Slot slot;
        std::memcpy(&slot, region, sizeof slot);
        if (std::memcmp(slot.magic, kMagic, sizeof kMagic) == 0 && slot.crc == CrcOf(slot) &&
            slot.number > newest->number) {
            *newest = slot;
            found = i;
        }
    }
    return found;
}

enum State { kOurs, kUnfinished, kForeign };

static State Look(std::FILE* file) {
    unsigned char bytes[kSize + 1] = {};
    const std::size_t length = std::fread(bytes, 1, sizeof bytes, file);
    bool ours = length <= kSize;
    if (std::memcmp(bytes, kMagic, sizeof kMagic) != 0 &&
        std::memcmp(bytes + kSlotSize, kMagic, sizeof kMagic) != 0)
        for (std::size_t i = 0; i < length; ++i)
            ours = ours && bytes[i] == 0; // a new file whose bytes never reached the card
    if (!ours)
        return kForeign;
    return length < kSize ? kUnfinished : kOurs; // it is being created, or that was cut short
}

static bool Check(std::FILE* file, void*) { return Look(file) == kOurs; }

static bool Fill(std::FILE* file, void*) {
    static unsigned char bytes[kSize];
    std::memcpy(bytes, kMagic, sizeof kMagic); // the whole length, and no slot that counts yet
    return std::fwrite(bytes, sizeof bytes, 1, file) == 1 && std::fflush(file) == 0 &&
           std::ferror(file) == 0 && fsync(fileno(file)) == 0;
}

// The one writer. Call it once per start of the system's programs.
static void CountStart(const char* path) {
    if (std::FILE* file = std::fopen(path, "rb")) {
        const State state = Look(file);
        std::fclose(file);
        if (state == kForeign) { // ShareMem would cut it to nothing
            std::printf("%s is not ours\n", path);
            return;
        }
    }
    ShareMem region;
    region.Init(path, kSize, Fill, Check, nullptr);
    if (region.base == nullptr)
        return; // the general log has the reason
    Slot slot;
    const bool isFirst = Newest(region.base, &slot) == 0;
    std::memcpy(slot.magic, kMagic, sizeof kMagic);
    ++slot.number;
    ++slot.starts;
    slot.crc = CrcOf(slot);
    unsigned char* const at = region.base + (isFirst ? kSlotSize : 0);
    std::memcpy(at, &slot, sizeof slot);
    region.Save(at, sizeof slot, false, false); // in the file before the other slot is touched
}

// Any number of readers. Without a validator a file that can be opened stays as it is: it comes to
// the first callback open for reading only.
static void Show(const char* path) {
    if (std::FILE* file = std::fopen(path, "rb"))
        std::fclose(file);
    else
        return; // ShareMem would create it
    ShareMem region;
    region.Init(path, kSize, Check, nullptr, nullptr);
    Slot slot;
    if (region.base != nullptr && Newest(region.base, &slot) >= 0)
        std::printf("%u starts\n", slot.starts);
}

int main() {
    static TraceSetting setting;
    setting.prefixOn = 0; // the region reports on the trace channel, here without tag and time
    MavTrace::Setting = &setting;

    CountStart("starts.shm");
    CountStart("starts.shm");
    Show("starts.shm");
    if (std::FILE* file =
            std::fopen("starts.shm", "rb+")) { // the power fails in the middle of a write
        std::fseek(file, kSlotSize + 12, SEEK_SET);
        std::fputs("half", file);
        std::fclose(file);
    }
    Show("starts.shm");
    if (std::FILE* file = std::fopen("foreign.txt", "w")) {
        std::fputs("someone else's", file);
        std::fclose(file);
    }
    CountStart("foreign.txt");
}
