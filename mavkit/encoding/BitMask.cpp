#include "mavkit/encoding/BitMask.h"

#include "mavkit/diag/MavDump.h"
#include "mavkit/encoding/Word.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

// The mask is worked on a machine word at a time.
using mavkit::kWordBytes;
using mavkit::LoadWord;
using mavkit::LooseWord;
using mavkit::Word;
constexpr unsigned int kWordBits = CHAR_BIT * sizeof(Word);
constexpr Word kAllBits = ~Word{0};

// Positions are 64 bits wide: a mask may come with more than 2^32 bits from a buffer.
using Position = unsigned long long;

// A number in a text from which on more digits make no difference, and the last bit that it may name.
constexpr long long kHuge = 1LL << 40;
constexpr long long kLastTextBit = 8388607;

constexpr size_t kItemLength = 19;

// Two words in a step: one vector where the processor has them.
constexpr size_t kPairBytes = 2 * kWordBytes;
void UnitePair(unsigned char* to, const unsigned char* from) {
    LooseWord* const pair = reinterpret_cast<LooseWord*>(to);
    const Word first = pair[0].value | LoadWord(from);
    const Word second = pair[1].value | LoadWord(from + kWordBytes);
    pair[0].value = first;
    pair[1].value = second;
}

// The number of set bits in each byte of a word, side by side.
Word CountInBytes(Word word) {
    word -= word >> 1 & kAllBits / 3;
    word = (word & kAllBits / 5) + (word >> 2 & kAllBits / 5);
    return (word + (word >> 4)) & kAllBits / 17;
}

// The bits of up to one word, the first as the most significant one, zeros beyond the end.
Word LoadBits(const unsigned char* bytes, size_t count) {
    Word word = 0;
    if (count >= kWordBytes)
        word = LoadWord(bytes);
    else
        memcpy(&word, bytes, count);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    word = static_cast<Word>(kWordBytes == 8 ? __builtin_bswap64(word)
                                             : __builtin_bswap32(static_cast<unsigned int>(word)));
#endif
    return word;
}

// The first set bit (flip 0) or clear bit (flip kAllBits) at or after `from`, or the mask's end.
Position FindBit(const ByteString& bits, Position from, Word flip) {
    const size_t size = bits.size();
    Word wanted = kAllBits >> from % kWordBits;
    for (size_t at = static_cast<size_t>(from / kWordBits) * kWordBytes; at < size;
         at += kWordBytes) {
        const Word word = (LoadBits(bits.data() + at, size - at) ^ flip) & wanted;
        if (word != 0) {
            // The zeros that follow the mask count as clear bits, so a clear one is the end at most.
            return static_cast<Position>(at) * CHAR_BIT +
                   static_cast<unsigned int>(__builtin_clzl(word));
        }
        wanted = kAllBits;
    }
    return static_cast<Position>(size) * CHAR_BIT;
}

// Writes a number so that it ends before `end`, and gives its first character.
char* PutNumber(char* end, long long number) {
    Position rest = static_cast<Position>(number);
    if (number < 0)
        rest = 0 - rest;
    for (; rest > UINT_MAX; rest /= 10)
        *--end = static_cast<char>('0' + rest % 10);
    // Nearly all numbers are here at once: the target divides 32 bits by itself, but not 64. Digits go
    // in pairs, so that each long division is followed by two short ones that do not wait in line.
    unsigned int low = static_cast<unsigned int>(rest);
    while (low >= 10) {
        const unsigned int pair = low % 100;
        low /= 100;
        *--end = static_cast<char>('0' + pair % 10);
        *--end = static_cast<char>('0' + pair / 10);
    }
    if (low != 0 || number == 0)
        *--end = static_cast<char>('0' + low);
    if (number < 0)
        *--end = '-';
    return end;
}

// What atoi reads at `text`, not beyond `end`; a number that an int may not hold is read on to kHuge.
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

} // namespace

void BitMask::Enable(unsigned int from, unsigned int to) {
    if (to < from)
        return;
    const size_t first = from / CHAR_BIT;
    const size_t last = to / CHAR_BIT;
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
    memset(data + first + 1, 0xFF, last - first - 1);
    data[last] = static_cast<unsigned char>(data[last] | tail);
}

void BitMask::Disable(unsigned int from, unsigned int to) {
    const Position end = static_cast<Position>(bits.size()) * CHAR_BIT;
    if (to < from || from >= end)
        return;
    const size_t first = from / CHAR_BIT;
    const size_t last = std::min<size_t>(to / CHAR_BIT, bits.size() - 1);
    // The bits that stay; beyond the end of the mask none of the last byte's do.
    const unsigned int head = 0xFF00U >> from % CHAR_BIT & 0xFFU;
    const unsigned int tail = to < end ? 0xFFU >> (to % CHAR_BIT + 1) : 0;
    unsigned char* const data = &bits[0];
    if (first == last) {
        data[first] = static_cast<unsigned char>(data[first] & (head | tail));
        return;
    }
    data[first] = static_cast<unsigned char>(data[first] & head);
    memset(data + first + 1, 0x00, last - first - 1);
    data[last] = static_cast<unsigned char>(data[last] & tail);
}

void BitMask::Enable(const BitMask& other) {
    // The other mask may be this one: its length is read before, its bytes after this one grows.
    const size_t size = other.bits.size();
    if (bits.size() <= size)
        bits.resize(size + 1);
    unsigned char* const data = &bits[0];
    const unsigned char* const source = other.bits.data();
    if (size < kPairBytes) {
        for (size_t at = 0; at < size; ++at)
            data[at] = static_cast<unsigned char>(data[at] | source[at]);
        return;
    }
    // The last pair may take bits again, which changes nothing in a union.
    const size_t last = size - kPairBytes;
    UnitePair(data + last, source + last);
    for (size_t at = 0; at < last; at += kPairBytes)
        UnitePair(data + at, source + at);
}

bool BitMask::IsEnabled(unsigned int bit) const {
    const size_t at = bit / CHAR_BIT;
    return at < bits.size() && (bits[at] & 0x80U >> bit % CHAR_BIT) != 0;
}

unsigned int BitMask::EnableCount() const {
    // The bytes of one word hold the counts of 31 words, 31 x 8 = 248: a batch and the mask's rest.
    constexpr size_t kBatch = 30;
    constexpr Word kPairs = kAllBits / 0xFFFF * 0xFF;
    const unsigned char* next = bits.data();
    size_t left = bits.size();
    Position total = 0;
    while (left != 0) {
        Word counts = 0;
        for (size_t words = std::min(left / kWordBytes, kBatch); words != 0; --words) {
            counts += CountInBytes(LoadWord(next));
            next += kWordBytes;
            left -= kWordBytes;
        }
        if (left < kWordBytes) {
            Word rest = 0;
            memcpy(&rest, next, left);
            counts += CountInBytes(rest);
            left = 0;
        }
        // The multiplication gathers the sums of all pairs of bytes in the top 16 bits.
        counts = (counts & kPairs) + (counts >> 8 & kPairs);
        total += counts * (kAllBits / 0xFFFF) >> (kWordBits - 16);
    }
    return static_cast<unsigned int>(std::min<Position>(total, UINT_MAX));
}

void BitMask::Trim() {
    const unsigned char* const data = bits.data();
    size_t size = bits.size();
    while (size >= kWordBytes && LoadWord(data + size - kWordBytes) == 0)
        size -= kWordBytes;
    while (size > 0 && data[size - 1] == 0)
        --size;
    const size_t kept = size == 0 ? 1 : size + (data[size - 1] & 1U);
    if (kept < bits.size())
        bits.resize(kept);
}

unsigned int BitMask::Serialize(unsigned char* buffer, unsigned int size) const {
    if (buffer == nullptr || static_cast<Position>(bits.size()) + 4 > size)
        return 0;
    const unsigned int count = static_cast<unsigned int>(bits.size());
    for (unsigned int i = 0; i < 4; ++i)
        buffer[i] = static_cast<unsigned char>(count >> CHAR_BIT * i);
    memcpy(buffer + 4, bits.data(), count);
    return count + 4;
}

unsigned int BitMask::Deserialize(const unsigned char* buffer, unsigned int size) {
    if (buffer == nullptr || size < 4)
        return 0;
    unsigned int count = 0;
    for (unsigned int i = 0; i < 4; ++i)
        count |= static_cast<unsigned int>(buffer[i]) << CHAR_BIT * i;
    if (size - 4 < count)
        return 0;
    bits.assign(buffer + 4, count);
    return count + 4;
}

void BitMask::ToString(std::string& out, int base) const {
    out.clear();
    const Position end = static_cast<Position>(bits.size()) * CHAR_BIT;
    Position first = FindBit(bits, 0, 0);
    while (first < end) {
        const Position next = FindBit(bits, first, kAllBits);
        // Room for a comma, a dash and two numbers of 64 bits; filled from its end.
        char field[48];
        char* item = field + sizeof field;
        if (next - first > 1) {
            item = PutNumber(item, static_cast<long long>(next - 1) - base);
            *--item = '-';
        }
        item = PutNumber(item, static_cast<long long>(first) - base);
        size_t length = std::min(static_cast<size_t>(field + sizeof field - item), kItemLength);
        if (!out.empty()) {
            *--item = ',';
            ++length;
        }
        out.append(item, length);
        first = FindBit(bits, next, 0);
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
        // A zero counts where its digit stands, and as the end of a range it stands for the start.
        const bool counts = from != 0 || std::find(part, partEnd, '0') != partEnd;
        from += base;
        to = to == 0 ? from : to + base;
        if (counts && std::min(from, to) >= 0 && std::max(from, to) <= kLastTextBit) {
            const unsigned int first = static_cast<unsigned int>(from);
            const unsigned int last = static_cast<unsigned int>(to);
            if (enable)
                Enable(first, last);
            else
                Disable(first, last);
        }
        text = *end == '\0' ? nullptr : end + 1;
    }
}

MavDump& BitMask::Dump(MavDump& dump) const {
    std::string text;
    ToString(text, 0);
    return dump << text.c_str();
}
