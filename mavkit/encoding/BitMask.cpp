#include "mavkit/encoding/BitMask.h"

#include "mavkit/diag/MavDump.h"
#include "mavkit/encoding/Divide.h"
#include "mavkit/encoding/LittleEndian.h"
#include "mavkit/encoding/Word.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

// Bits are handled a machine word at a time.
using mavkit::kWordBytes;
using mavkit::LoadWord;
using mavkit::LooseWord;
using mavkit::Word;
constexpr unsigned int kWordBits = CHAR_BIT * sizeof(Word);
constexpr unsigned int kIntBits = CHAR_BIT * sizeof(unsigned int);
constexpr Word kAllBits = ~Word{0};

// 64 bits wide: a mask read from a buffer may have more than 2^32 bits.
using Position = unsigned long long;

// More digits than this are skipped: the number is beyond every mask already, with any base.
constexpr long long kHuge = 1LL << 40;
// The last bit that a text may set.
constexpr long long kLastTextBit = 8388607;

constexpr std::size_t kItemLength = 19;

// A union works on two words at a time, which fit one vector register where the processor has them.
constexpr std::size_t kPairBytes = 2 * kWordBytes;
void UnitePair(unsigned char* to, const unsigned char* from) {
    LooseWord* const pair = reinterpret_cast<LooseWord*>(to);
    const Word first = pair[0].value | LoadWord(from);
    const Word second = pair[1].value | LoadWord(from + kWordBytes);
    pair[0].value = first;
    pair[1].value = second;
}

// The number of set bits in each half byte of a word, side by side. Inline where the target is
// built for size too: a call would cost as much as the count.
inline __attribute__((always_inline)) Word CountInHalves(Word word) {
    word -= word >> 1 & kAllBits / 3;
    return (word & kAllBits / 5) + (word >> 2 & kAllBits / 5);
}

// Adds the counts of half bytes to those of bytes.
Word SumOfHalves(Word halves) { return (halves & kAllBits / 17) + (halves >> 4 & kAllBits / 17); }

// Finds the first bit at or after `from` that differs from those of `other` (0x00: the first set
// bit, 0xFF: the first clear one), or the mask's end. It looks at the rest of the first byte, skips
// whole words in which all bytes are `other`, and then goes on byte by byte.
Position FindBit(const ByteString& bits, Position from, unsigned char other) {
    const unsigned char* const data = bits.data();
    const std::size_t size = bits.size();
    std::size_t at = static_cast<std::size_t>(from / CHAR_BIT);
    if (at >= size)
        return static_cast<Position>(size) * CHAR_BIT;
    unsigned int found = (data[at] ^ other) & 0xFFU >> from % CHAR_BIT;
    if (found == 0) {
        const Word others = kAllBits / 0xFF * other;
        ++at;
        while (size - at >= kWordBytes && LoadWord(data + at) == others)
            at += kWordBytes;
        while (at < size && data[at] == other)
            ++at;
        if (at == size)
            return static_cast<Position>(size) * CHAR_BIT;
        found = data[at] ^ other;
    }
    return static_cast<Position>(at) * CHAR_BIT +
           (static_cast<unsigned int>(__builtin_clz(found)) - (kIntBits - CHAR_BIT));
}

// Writes a number that ends just before `end`; returns where it begins.
char* PutNumber(char* end, long long number) {
    Position rest = static_cast<Position>(number);
    if (number < 0)
        rest = 0 - rest;
    while (rest > UINT_MAX)
        *--end = static_cast<char>('0' + mavkit::Divide(rest, 10));
    // The target has no instruction that divides 64 bits, so most of the work is done on 32.
    unsigned int low = static_cast<unsigned int>(rest);
    do
        *--end = static_cast<char>('0' + low % 10);
    while ((low /= 10) != 0);
    if (number < 0)
        *--end = '-';
    return end;
}

// Reads a number as atoi does, but not beyond `end`, and with a limit of about ten times kHuge.
long long ReadNumber(const char* text, const char* end) {
    while (text != end && (*text == ' ' || (*text >= '\t' && *text <= '\r')))
        ++text;
    const bool negative = text != end && *text == '-';
    if (text != end && (*text == '-' || *text == '+'))
        ++text;
    long long number = 0;
    for (; text != end && *text >= '0' && *text <= '9'; ++text)
        if (number < kHuge)
            number = number * 10 + (*text - '0');
    return negative ? -number : number;
}

// Clears those of the bits from..to that lie inside the mask.
void Clear(ByteString& bits, Position from, Position to) {
    const Position end = static_cast<Position>(bits.size()) * CHAR_BIT;
    if (to < from || from >= end)
        return;
    const std::size_t first = static_cast<std::size_t>(from / CHAR_BIT);
    const std::size_t last = static_cast<std::size_t>(std::min(to, end - 1) / CHAR_BIT);
    // The bits that are kept. When the range reaches beyond the mask, none of the last byte are.
    const unsigned int head = 0xFF00U >> from % CHAR_BIT & 0xFFU;
    const unsigned int tail = to < end ? 0xFFU >> (to % CHAR_BIT + 1) : 0;
    unsigned char* const data = &bits[0];
    if (first == last) {
        data[first] = static_cast<unsigned char>(data[first] & (head | tail));
        return;
    }
    data[first] = static_cast<unsigned char>(data[first] & head);
    std::memset(data + first + 1, 0x00, last - first - 1);
    data[last] = static_cast<unsigned char>(data[last] & tail);
}

} // namespace

void BitMask::Enable(unsigned int from, unsigned int to) {
    if (to < from)
        return;
    const std::size_t first = from / CHAR_BIT;
    const std::size_t last = to / CHAR_BIT;
    if (bits.size() <= last)
        bits.resize(last + 1);
    unsigned char* const data = &bits[0];
    const unsigned int head = 0xFFU >> from % CHAR_BIT;
    const unsigned int tail = 0xFF00U >> (to % CHAR_BIT + 1) & 0xFFU;
    if (first == last) {
        data[first] = static_cast<unsigned char>(data[first] | (head & tail));
        return;
    }
    data[first] = static_cast<unsigned char>(data[first] | head);
    std::memset(data + first + 1, 0xFF, last - first - 1);
    data[last] = static_cast<unsigned char>(data[last] | tail);
}

void BitMask::Disable(unsigned int from, unsigned int to) { Clear(bits, from, to); }

void BitMask::Enable(const BitMask& other) {
    // The other mask may be this one: its length is read before this one grows, its bytes after
    // that.
    const std::size_t size = other.bits.size();
    if (bits.size() <= size)
        bits.resize(size + 1);
    unsigned char* const data = &bits[0];
    const unsigned char* const source = other.bits.data();
    if (size < kPairBytes) {
        for (std::size_t at = 0; at < size; ++at)
            data[at] = static_cast<unsigned char>(data[at] | source[at]);
        return;
    }
    // The last two words first: they may overlap the others, which changes nothing in a union.
    const std::size_t last = size - kPairBytes;
    UnitePair(data + last, source + last);
    for (std::size_t at = 0; at < last; at += kPairBytes)
        UnitePair(data + at, source + at);
}

bool BitMask::IsEnabled(unsigned int bit) const {
    const std::size_t at = bit / CHAR_BIT;
    return at < bits.size() && (bits[at] & 0x80U >> bit % CHAR_BIT) != 0;
}

unsigned int BitMask::EnableCount() const {
    // Counts are kept side by side in one word as long as they fit: of three words in its half
    // bytes (3 x 4), of ten times three words in its bytes (30 x 8), together with an incomplete
    // word.
    constexpr std::size_t kRound = 3 * kWordBytes;
    constexpr Word kPairs = kAllBits / 0xFFFF * 0xFF;
    const unsigned char* next = bits.data();
    std::size_t left = bits.size();
    Position total = 0;
    while (left != 0) {
        Word counts = 0;
        const unsigned char* const end =
            next + (left >= 10 * kRound ? 10 * kRound : left / kRound * kRound);
        left -= static_cast<std::size_t>(end - next);
        for (; next != end; next += kRound)
            counts += SumOfHalves(CountInHalves(LoadWord(next)) +
                                  CountInHalves(LoadWord(next + kWordBytes)) +
                                  CountInHalves(LoadWord(next + 2 * kWordBytes)));
        if (left < kRound) {
            // At most two words and an incomplete one are left.
            const std::size_t most = std::min(left, kWordBytes);
            Word rest = 0;
            std::memcpy(&rest, next, most);
            counts += SumOfHalves(CountInHalves(rest));
            next += most;
            left -= most;
        }
        // Neighbours are added first, then the multiplication adds all pairs into the top 16 bits.
        counts = (counts & kPairs) + (counts >> 8 & kPairs);
        total += counts * (kAllBits / 0xFFFF) >> (kWordBits - 16);
    }
    return static_cast<unsigned int>(std::min<Position>(total, UINT_MAX));
}

void BitMask::Trim() {
    const unsigned char* const data = bits.data();
    std::size_t size = bits.size();
    while (size >= kWordBytes && LoadWord(data + size - kWordBytes) == 0)
        size -= kWordBytes;
    while (size > 0 && data[size - 1] == 0)
        --size;
    const std::size_t kept = size == 0 ? 1 : size + (data[size - 1] & 1U);
    if (kept < bits.size())
        bits.resize(kept);
}

unsigned int BitMask::Serialize(unsigned char* buffer, unsigned int size) const {
    if (buffer == nullptr || static_cast<Position>(bits.size()) + 4 > size)
        return 0;
    const unsigned int count = static_cast<unsigned int>(bits.size());
    mavkit::PutNumber32(buffer, count);
    std::memcpy(buffer + 4, bits.data(), count);
    return count + 4;
}

unsigned int BitMask::Deserialize(const unsigned char* buffer, unsigned int size) {
    if (buffer == nullptr || size < 4)
        return 0;
    const unsigned int count = mavkit::GetNumber32(buffer);
    if (size - 4 < count)
        return 0;
    // The buffer may be a part of this mask. Then the mask is longer than that, and not moved.
    if (bits.size() < count)
        bits.resize(count);
    std::memmove(&bits[0], buffer + 4, count);
    bits.resize(count);
    return count + 4;
}

void BitMask::ToString(std::string& out, int base) const {
    out.clear();
    const Position end = static_cast<Position>(bits.size()) * CHAR_BIT;
    Position first = FindBit(bits, 0, 0x00);
    while (first < end) {
        const Position next = FindBit(bits, first, 0xFF);
        // Room for a comma, a dash and two numbers of 64 bits; filled from its end.
        char field[48];
        char* item = field + sizeof field;
        if (next - first > 1) {
            item = PutNumber(item, static_cast<long long>(next - 1) - base);
            *--item = '-';
        }
        item = PutNumber(item, static_cast<long long>(first) - base);
        std::size_t length =
            std::min(static_cast<std::size_t>(field + sizeof field - item), kItemLength);
        if (!out.empty()) {
            *--item = ',';
            ++length;
        }
        out.append(item, length);
        first = FindBit(bits, next, 0x00);
    }
}

void BitMask::ParseFrom(const char* text, bool enable, int base) {
    while (text != nullptr) {
        const char* dash = nullptr;
        const char* end = text;
        for (; *end != ',' && *end != '\0'; ++end)
            if (*end == '-' && dash == nullptr)
                dash = end;
        const bool range = dash != nullptr && dash != text;
        const char* const part = dash == text ? text + 1 : text;
        const char* const partEnd = range ? dash : end;
        long long from = ReadNumber(part, partEnd);
        long long to = range ? ReadNumber(dash + 1, end) : from;
        // A zero counts only if its digit is there. As the end of a range, zero means the start.
        const bool counts = from != 0 || std::find(part, partEnd, '0') != partEnd;
        from += base;
        to = to == 0 ? from : to + base;
        if (counts && from >= 0 && to >= from) {
            if (!enable)
                Clear(bits, static_cast<Position>(from), static_cast<Position>(to));
            else if (to <= kLastTextBit)
                Enable(static_cast<unsigned int>(from), static_cast<unsigned int>(to));
        }
        text = *end == '\0' ? nullptr : end + 1;
    }
}

MavDump& BitMask::Dump(MavDump& dump) const {
    std::string text;
    ToString(text, 0);
    return dump << text.c_str();
}
