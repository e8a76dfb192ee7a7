#include "MeterRegion.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <unistd.h>

namespace {

constexpr char kMagic[4] = {'M', 'T', 'R', '2'};
constexpr std::size_t kSlotSize = 4096; // a page: the kernel writes the two slots separately
constexpr std::size_t kRegionSize = 2 * kSlotSize;

struct Slot {
    char magic[4];
    unsigned short crc; // of all that follows
    unsigned short spare;
    unsigned int number; // of the update
    MeterTable table;
};
static_assert(sizeof(Slot) <= kSlotSize, "a slot fits into its page");
static_assert(sizeof(MeterTable) == 2 + MeterTable::kRoom * 14, "no byte that no field owns");

unsigned short CrcOf(const Slot& slot) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&slot);
    unsigned short crc = 0xFFFF;
    for (std::size_t i = offsetof(Slot, spare); i < offsetof(Slot, table) + sizeof slot.table; ++i)
        crc = Add_CRC(crc, bytes[i]);
    return crc;
}

Slot NewSlot(unsigned int number, const MeterTable& table) {
    Slot slot = {};
    std::memcpy(slot.magic, kMagic, sizeof kMagic);
    slot.number = number;
    slot.table = table;
    slot.crc = CrcOf(slot);
    return slot;
}

// Copies the latest whole slot of a region. Only the copy is checked and used, because the writer
// may overwrite the slot at any moment. Returns its index, -1 when no slot is whole.
int CopyLatest(const unsigned char* region, Slot* latest) {
    int found = -1;
    for (int i = 0; i < 2; ++i, region += kSlotSize) {
        Slot slot;
        std::memcpy(static_cast<void*>(&slot), region, sizeof slot);
        const bool whole = std::memcmp(slot.magic, kMagic, sizeof kMagic) == 0 &&
                           slot.crc == CrcOf(slot) && slot.table.count <= MeterTable::kRoom;
        if (whole && (found < 0 || slot.number > latest->number)) {
            *latest = slot;
            found = i;
        }
    }
    return found;
}

enum class State { kMissing, kUnreadable, kNotOurs, kBeingWritten, kFull };

State StateOf(std::FILE* file) {
    static char bytes[kRegionSize + 1];
    const std::size_t length = std::fread(bytes, 1, sizeof bytes, file);
    if (std::ferror(file) != 0)
        return State::kUnreadable;
    bool ours = std::all_of(bytes, bytes + length, [](char byte) { return byte == 0; });
    for (const std::size_t slot : {std::size_t{0}, kSlotSize})
        ours = ours || (length >= slot + sizeof kMagic &&
                        std::memcmp(bytes + slot, kMagic, sizeof kMagic) == 0);
    if (!ours || length > kRegionSize)
        return State::kNotOurs;
    return length < kRegionSize ? State::kBeingWritten : State::kFull;
}

// The state of the file at `path`. Waits while another process seems to be creating it.
State WaitForState(const char* path) {
    State state = State::kBeingWritten;
    for (int tries = 0; state == State::kBeingWritten && tries < 20; ++tries) {
        if (tries > 0)
            Nap(50);
        std::FILE* file = std::fopen(path, "rb");
        if (file == nullptr)
            return errno == ENOENT ? State::kMissing : State::kUnreadable;
        state = StateOf(file);
        std::fclose(file);
    }
    return state;
}

bool Refuse(const char* path, State state) {
    const char* reason = "it is not finished";
    if (state == State::kMissing || state == State::kUnreadable)
        reason = std::strerror(errno);
    else if (state == State::kNotOurs)
        reason = "it is something else and stays as it is";
    std::fprintf(stderr, "%s: no region with a table of meters: %s\n", path, reason);
    return false;
}

// The two callbacks of ShareMem.
bool IsFull(std::FILE* file, void*) { return StateOf(file) == State::kFull; }

bool Fill(std::FILE* file, void*) {
    unsigned char bytes[kRegionSize] = {};
    const Slot first = NewSlot(1, MeterTable());
    std::memcpy(bytes, &first, sizeof first);
    // Not every libc reports a full card by fflush: after a failed write it has nothing left to
    // write.
    return std::fwrite(bytes, sizeof bytes, 1, file) == 1 && std::fflush(file) == 0 &&
           std::ferror(file) == 0 && fsync(fileno(file)) == 0;
}

} // namespace

bool MeterTable::Put(const Reading& reading) {
    unsigned short i = 0;
    while (i < count && meters[i].meter != reading.meter)
        ++i;
    if (i == kRoom)
        return false;
    if (i == count)
        ++count;
    meters[i].meter = static_cast<unsigned short>(reading.meter);
    std::memcpy(meters[i].time, reading.time, sizeof meters[i].time);
    std::memcpy(meters[i].energy, reading.energy, sizeof meters[i].energy);
    return true;
}

bool MeterRegion::OpenToWrite(const char* path) {
    const State state = WaitForState(path);
    if (state == State::kNotOurs || state == State::kUnreadable)
        return Refuse(path, state);
    // What IsFull() rejects now has never had its full length, so nobody has mapped it.
    region_.Init(path, kRegionSize, Fill, IsFull, nullptr);
    if (region_.base == nullptr)
        std::fprintf(stderr, "%s: the region cannot be created\n", path);
    return region_.base != nullptr;
}

bool MeterRegion::OpenToRead(const char* path) {
    const State state = WaitForState(path);
    if (state != State::kFull)
        return Refuse(path, state);
    // The check is given as the initialiser: without a validator a file that can be opened stays as
    // it is, and comes to the initialiser open for reading only.
    region_.Init(path, kRegionSize, IsFull, nullptr, nullptr);
    return region_.base != nullptr || Refuse(path, State::kBeingWritten);
}

bool MeterRegion::Read(MeterTable* table) const {
    Slot latest = {};
    for (int tries = 0; tries < 100; ++tries, Nap(1))
        if (CopyLatest(region_.base, &latest) >= 0) {
            *table = latest.table;
            return true;
        }
    return false;
}

bool MeterRegion::Write(const MeterTable& table) {
    Slot latest = {};
    const bool isFirst = CopyLatest(region_.base, &latest) == 0;
    const Slot slot = NewSlot(latest.number + 1, table);
    unsigned char* const at = region_.base + (isFirst ? kSlotSize : 0);
    std::memcpy(at, &slot, sizeof slot);
    return region_.Save(at, sizeof slot, false, false); // on the card before this returns
}
