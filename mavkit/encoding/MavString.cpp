#include "mavkit/encoding/MavString.h"

#include "mavkit/encoding/Word.h"
#include "mavkit/sys/MavFile.h"
#include "mavkit/sys/Stream.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace {

// Every character as the high and as the low digit of a byte; kNoDigit for the others, which no byte is.
constexpr unsigned int kNoDigit = 0x100;
struct HexDigits {
    unsigned short high[256];
    unsigned short low[256];
};

constexpr HexDigits MakeHexDigits() {
    HexDigits digits = {};
    for (unsigned int c = 0; c < 256; ++c) {
        const bool letter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        const bool decimal = c >= '0' && c <= '9';
        const unsigned int value = decimal ? c - '0' : (c | 0x20) - 'a' + 10;
        digits.high[c] = static_cast<unsigned short>(decimal || letter ? value << 4 : kNoDigit);
        digits.low[c] = static_cast<unsigned short>(decimal || letter ? value : kNoDigit);
    }
    return digits;
}

constexpr HexDigits kHexDigits = MakeHexDigits();

// The byte of two hex digits; kNoDigit or more where one of them is none.
unsigned int ReadPair(const unsigned char* text) {
    return static_cast<unsigned int>(kHexDigits.high[text[0]] | kHexDigits.low[text[1]]);
}

// How often one character stands in a text, a machine word at a time.
size_t CountCharacter(const char* text, const char* end, char wanted) {
    using mavkit::kWordBytes;
    using mavkit::Word;
    constexpr Word kOnes = ~Word{0} / 0xFF; // 1 in every byte
    constexpr Word kLow = kOnes * 0x7F;     // all but the top bit of every byte
    const Word pattern = kOnes * static_cast<unsigned char>(wanted);
    size_t count = 0;
    for (; static_cast<size_t>(end - text) >= kWordBytes; text += kWordBytes) {
        const Word word = mavkit::LoadWord(text) ^ pattern;
        // The top bit of each byte becomes 1 where the byte is 0; no sum carries into the next byte.
        const Word zeros = ~((((word & kLow) + kLow) | word) | kLow);
        count += (zeros >> 7) * kOnes >> (kWordBytes - 1) * CHAR_BIT;
    }
    for (; text != end; ++text)
        if (*text == wanted)
            ++count;
    return count;
}

// The next occurrence of a delimiter of `step` characters, or null.
const char* FindDelimiter(const char* next, const char* end, const char* delimiter, size_t step) {
    if (step == 0)
        return nullptr;
    if (step > 1)
        return strstr(next, delimiter);
    return static_cast<const char*>(memchr(next, *delimiter, static_cast<size_t>(end - next)));
}

bool ReadText(const char* path, std::string& text) {
    static char line[1024];
    const mavkit::Stream file(MavFile::OpenFile(path, "rt")); // growing the text may throw
    if (file == nullptr)
        return false;
    fseek(file.get(), 0, SEEK_SET);
    while (fgets(line, sizeof line - 1, file.get()) != nullptr)
        text += line;
    return feof(file.get()) != 0 && ferror(file.get()) == 0;
}

} // namespace

int strings::addfrom(const char* text, const char* delimiter, bool keepEmpty) {
    if (text == nullptr)
        return 0;
    const size_t step = delimiter == nullptr ? 0 : strlen(delimiter);
    const char* end = text + strlen(text);
    // The list grows once, and by no more than the fields that the text has room for: where empty ones
    // are left out, each of the others has a character.
    size_t fields = 1;
    if (step == 1)
        fields += CountCharacter(text, end, *delimiter);
    else
        for (const char* at = text; (at = FindDelimiter(at, end, delimiter, step)) != nullptr;
             at += step)
            ++fields;
    if (!keepEmpty && step != 0)
        fields = std::min(fields, static_cast<size_t>(end - text) - (fields - 1) * step);
    std::string ownText;
    std::string ownDelimiter;
    if (fields > capacity() - size()) {
        if (!empty()) { // growing moves the strings, and either text may be one of them
            text = ownText.assign(text, end).c_str();
            end = text + ownText.size();
            if (step != 0)
                delimiter = ownDelimiter.assign(delimiter, step).c_str();
        }
        reserve(std::max(size() + fields, 2 * size()));
    }
    const size_t old = size();
    while (text != nullptr) {
        const char* const cut = FindDelimiter(text, end, delimiter, step);
        const char* const stop = cut == nullptr ? end : cut;
        if (stop != text || keepEmpty || step == 0)
            emplace_back(text, stop);
        text = cut == nullptr ? nullptr : cut + step;
    }
    return static_cast<int>(size() - old);
}

int ParseHexStr(const char* text, ByteString& bytes) {
    if (text == nullptr)
        return 0;
    // Read as unsigned characters with the terminator, which is no digit, in reach of the last one.
    const unsigned char* next = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = next + strlen(text);
    const size_t old = bytes.size();
    // Every byte but the last takes two characters.
    bytes.resize(old + (static_cast<size_t>(end - next) + 1) / 2);
    unsigned char* const first = &bytes[0] + old;
    unsigned char* out = first;
    while (next < end) {
        // Four pairs in a round, as long as there is nothing else.
        for (; end - next >= 8; next += 8, out += 4) {
            const unsigned int a = ReadPair(next);
            const unsigned int b = ReadPair(next + 2);
            const unsigned int c = ReadPair(next + 4);
            const unsigned int d = ReadPair(next + 6);
            if ((a | b | c | d) >= kNoDigit)
                break;
            out[0] = static_cast<unsigned char>(a);
            out[1] = static_cast<unsigned char>(b);
            out[2] = static_cast<unsigned char>(c);
            out[3] = static_cast<unsigned char>(d);
        }
        // Where there is something else more of it is likely: on by characters for a while. A digit
        // takes the next one along, digit or not; anything else is skipped.
        const unsigned char* const pause = end - next > 64 ? next + 64 : end;
        while (next < pause) {
            const unsigned int alone = kHexDigits.low[*next];
            if (alone < kNoDigit) {
                const unsigned int pair = ReadPair(next);
                *out++ = static_cast<unsigned char>(pair < kNoDigit ? pair : alone);
                ++next;
            }
            ++next;
        }
    }
    bytes.resize(old + static_cast<size_t>(out - first));
    return 0;
}

int ParseHexFromFile(const char* path, ByteString& bytes) {
    std::string text;
    return ReadText(path, text) ? ParseHexStr(text.c_str(), bytes) : -1;
}
