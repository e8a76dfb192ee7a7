#include "mavkit/ipc/IpcInfo.h"

#include "mavkit/diag/Trace.h"
#include "mavkit/encoding/LittleEndian.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace {

constexpr unsigned int kHead = 32;

// Bytes of a flat record with strings of these lengths.
std::uint64_t Total(std::uint64_t length1, std::uint64_t length2, std::uint64_t length3) {
    return kHead + length1 + length2 + length3;
}

// Copies `bytes` up to its first zero byte and fills the rest of its span with zero bytes.
unsigned char* PutText(unsigned char* span, const ByteString& bytes) {
    std::strncpy(reinterpret_cast<char*>(span), reinterpret_cast<const char*>(bytes.data()),
                 bytes.size());
    return span + bytes.size();
}

// Makes room for `more` bytes: a string that becomes shorter keeps its memory.
void ReserveMore(ByteString& bytes, unsigned int more) {
    const std::size_t size = bytes.size();
    bytes.resize(size + more);
    bytes.resize(size);
}

// Appends `count` bytes and returns their end.
const unsigned char* Append(ByteString& bytes, const unsigned char* from, unsigned int count) {
    const std::size_t size = bytes.size();
    bytes.resize(size + count);
    std::memcpy(&bytes[0] + size, from, count);
    return from + count;
}

} // namespace

unsigned int IpcInfo::Serialize(unsigned char* buffer, unsigned int capacity) const {
    const std::uint64_t total = Total(bytes1.size(), bytes2.size(), bytes3.size());
    if (buffer == nullptr || capacity < total)
        return 0;
    // Each length is below the total, which is not above the capacity: it fits.
    const unsigned int numbers[] = {static_cast<unsigned int>(first),
                                    static_cast<unsigned int>(second),
                                    static_cast<unsigned int>(type),
                                    static_cast<unsigned int>(createTime),
                                    lifetime,
                                    static_cast<unsigned int>(bytes1.size()),
                                    static_cast<unsigned int>(bytes2.size()),
                                    static_cast<unsigned int>(bytes3.size())};
    unsigned char* at = buffer;
    for (const unsigned int number : numbers) {
        mavkit::PutNumber32(at, number);
        at += 4;
    }
    at = PutText(at, bytes1);
    at = PutText(at, bytes2);
    PutText(at, bytes3);
    return static_cast<unsigned int>(total);
}

unsigned int IpcInfo::Deserialize(unsigned char* buffer, unsigned int length) {
    if (buffer == nullptr || length < kHead)
        return 0;
    unsigned int numbers[kHead / 4];
    const unsigned char* at = buffer;
    for (unsigned int& number : numbers) {
        number = mavkit::GetNumber32(at);
        at += 4;
    }
    first = static_cast<int>(numbers[0]);
    second = static_cast<int>(numbers[1]);
    type = static_cast<int>(numbers[2]);
    createTime = static_cast<int>(numbers[3]);
    lifetime = numbers[4];
    const unsigned int length1 = numbers[5];
    const unsigned int length2 = numbers[6];
    const unsigned int length3 = numbers[7];
    if (length < Total(length1, length2, length3))
        return 0;

    // Room for all three before the first is changed: growing may throw.
    ReserveMore(bytes1, length1);
    ReserveMore(bytes2, length2);
    ReserveMore(bytes3, length3);
    at = Append(bytes1, at, length1);
    at = Append(bytes2, at, length2);
    Append(bytes3, at, length3);
    const std::uint64_t total = Total(bytes1.size(), bytes2.size(), bytes3.size());
    return total < UINT_MAX ? static_cast<unsigned int>(total) : UINT_MAX;
}

bool IpcInfo::IsValid() const {
    if (type == 0)
        return false;
    if (lifetime == 0 || createTime <= 0)
        return true;
    const std::int64_t age = static_cast<std::int64_t>(std::time(nullptr)) - createTime;
    if (age <= 0 || lifetime >= age)
        return true;
    GENERAL_LOG("IpcInfo: Rpc info was expired.Type is %d\n", type);
    return false;
}
