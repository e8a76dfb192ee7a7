#include "mavkit/encoding/MavString.h"

#include "mavkit/encoding/Word.h"
#include "mavkit/sys/MavFile.h"
#include "mavkit/sys/Stream.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace {

// The value of every character as the high and as the low digit of a byte; negative for characters
// that are not digits.
struct HexValues {
    short high[256];
    signed char low[256];
};

constexpr HexValues MakeHexValues() {
    HexValues values = {};
    for (int c = 0; c < 256; ++c) {
        const bool letter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        const bool decimal = c >= '0' && c <= '9';
        const int value = decimal ? c - '0' : letter ? (c | 0x20) - 'a' + 10 : -1;
        values.high[c] = static_cast<short>(value * 16);
        values.low[c] = static_cast<signed char>(value);
    }
    return values;
}

constexpr HexValues kHexValues = MakeHexValues();

// The byte of two hex digits; negative when one of the characters is not a digit. Inline where the
// target is built for size too.
inline __attribute__((always_inline)) int ReadPair(const unsigned char* text) {
    return kHexValues.high[text[0]] | kHexValues.low[text[1]];
}

// How often a character occurs in a text, a machine word at a time.
std::size_t CountCharacter(const char* text, const char* end, char wanted) {
    using mavkit::kWordBytes;
    using mavkit::Word;
    constexpr Word kOnes = ~Word{0} / 0xFF; // 1 in every byte
    constexpr Word kLow = kOnes * 0x7F;     // all but the top bit of every byte
    const Word pattern = kOnes * static_cast<unsigned char>(wanted);
    std::size_t count = 0;
    for (; static_cast<std::size_t>(end - text) >= kWordBytes; text += kWordBytes) {
        const Word word = mavkit::LoadWord(text) ^ pattern;
        // The top bit of each byte becomes 1 where the byte is 0. No sum carries into the next one.
        const Word zeros = ~((((word & kLow) + kLow) | word) | kLow);
        count += (zeros >> 7) * kOnes >> (kWordBytes - 1) * CHAR_BIT;
    }
    for (; text != end; ++text)
        if (*text == wanted)
            ++count;
    return count;
}

// Finds the next occurrence of a delimiter of `step` characters; null when there is none.
const char* FindDelimiter(const char* next, const char* end, const char* delimiter,
                          std::size_t step) {
    if (step == 0)
        return nullptr;
    if (step > 1)
        return std::strstr(next, delimiter);
    return static_cast<const char*>(
        std::memchr(next, *delimiter, static_cast<std::size_t>(end - next)));
}

// The number of fields that splitting appends, so that the list grows once, and by no more than
// that.
std::size_t CountFields(const char* text, const char* end, const char* delimiter, std::size_t step,
                        bool keepEmpty) {
    if (step == 0)
        return 1;
    if (step == 1 && keepEmpty)
        return CountCharacter(text, end, *delimiter) + 1;
    std::size_t fields = 0;
    if (step == 1) {
        // Without branches: each delimiter ends a field, unless that field is empty.
        char before = *delimiter;
        for (; text != end; ++text) {
            fields += *text == *delimiter && before != *delimiter ? 1U : 0U;
            before = *text;
        }
        return fields + (before != *delimiter ? 1U : 0U);
    }
    while (const char* const cut = FindDelimiter(text, end, delimiter, step)) {
        fields += keepEmpty || cut != text ? 1U : 0U;
        text = cut + step;
    }
    return fields + (keepEmpty || text != end ? 1U : 0U);
}

bool ReadText(const char* path, std::string& text) {
    static char line[1024];
    const mavkit::Stream file(MavFile::OpenFile(path, "rt")); // growing the text may throw
    if (file == nullptr)
        return false;
    while (std::fgets(line, sizeof line - 1, file.get()) != nullptr)
        text += line;
    return std::feof(file.get()) != 0 && std::ferror(file.get()) == 0;
}

} // namespace

int strings::addfrom(const char* text, const char* delimiter, bool keepEmpty) {
    if (text == nullptr)
        return 0;
    const std::size_t step = delimiter == nullptr ? 0 : std::strlen(delimiter);
    const char* end = text + std::strlen(text);
    const std::size_t fields = CountFields(text, end, delimiter, step, keepEmpty);
    std::string ownText;
    std::string ownDelimiter;
    if (fields > capacity() - size() && !empty()) {
        // Growing moves the strings, and the arguments may be among them.
        text = ownText.assign(text, end).c_str();
        end = text + ownText.size();
        if (step != 0)
            delimiter = ownDelimiter.assign(delimiter, step).c_str();
    }
    const std::size_t old = size();
    std::size_t filled = old;
    resize(old + fields);
    try {
        // Another process may change the text meanwhile: no more fields are filled than there are.
        while (text != nullptr && filled < size()) {
            const char* const cut = FindDelimiter(text, end, delimiter, step);
            const char* const stop = cut == nullptr ? end : cut;
            if (stop != text || keepEmpty || step == 0) {
                (*this)[filled].assign(text, static_cast<std::size_t>(stop - text));
                ++filled;
            }
            text = cut == nullptr ? nullptr : cut + step;
        }
    } catch (...) {
        resize(filled);
        throw;
    }
    resize(filled);
    return static_cast<int>(filled - old);
}

int ParseHexStr(const char* text, ByteString& bytes) {
    if (text == nullptr)
        return 0;
    // The terminator is not a digit, so a pair may be read at the last character too.
    const unsigned char* next = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = next + std::strlen(text);
    const std::size_t old = bytes.size();
    // Every byte but the last takes two characters.
    bytes.resize(old + (static_cast<std::size_t>(end - next) + 1) / 2);
    unsigned char* const first = &bytes[0] + old;
    unsigned char* out = first;
    while (next < end) {
        // Four pairs in a round, as long as all characters are digits.
        for (std::ptrdiff_t rounds = (end - next) / 8; rounds != 0; --rounds) {
            const int a = ReadPair(next);
            const int b = ReadPair(next + 2);
            const int c = ReadPair(next + 4);
            const int d = ReadPair(next + 6);
            if ((a | b | c | d) < 0)
                break;
            out[0] = static_cast<unsigned char>(a);
            out[1] = static_cast<unsigned char>(b);
            out[2] = static_cast<unsigned char>(c);
            out[3] = static_cast<unsigned char>(d);
            next += 8;
            out += 4;
        }
        // One character that is not a digit is likely to be followed by more: the next 64 are read
        // one by one. A digit consumes the next character, digit or not; others are skipped.
        const unsigned char* const pause = end - next > 64 ? next + 64 : end;
        while (next < pause) {
            const signed char alone = kHexValues.low[*next];
            if (alone < 0) {
                ++next;
                continue;
            }
            const int pair = ReadPair(next);
            *out++ = static_cast<unsigned char>(pair < 0 ? alone : pair);
            next += 2;
        }
    }
    bytes.resize(old + static_cast<std::size_t>(out - first));
    return 0;
}

int ParseHexFromFile(const char* path, ByteString& bytes) {
    std::string text;
    return ReadText(path, text) ? ParseHexStr(text.c_str(), bytes) : -1;
}
