#include "mavkit/encoding/MavString.h"

#include "mavkit/sys/MavFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

// The value of every hex digit; 16 or more for the other characters.
struct HexDigits {
    unsigned char value[256];
};

constexpr HexDigits MakeHexDigits() {
    HexDigits digits = {};
    for (unsigned int c = 0; c < 256; ++c) {
        const bool letter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        const bool decimal = c >= '0' && c <= '9';
        digits.value[c] = static_cast<unsigned char>(decimal  ? c - '0'
                                                     : letter ? (c | 0x20) - 'a' + 10
                                                              : 0xFF);
    }
    return digits;
}

constexpr HexDigits kHexDigits = MakeHexDigits();

// A field of a text that is being split.
struct Field {
    size_t start;
    size_t length;
};

// Closes the file whatever way the scope is left: growing a string may throw.
struct OpenStream {
    FILE* file;
    ~OpenStream() {
        if (file != nullptr)
            fclose(file);
    }
};

bool ReadText(const char* path, std::string& text) {
    static char line[1024];
    const OpenStream stream = {path == nullptr ? nullptr : MavFile::OpenFile(path, "rt")};
    if (stream.file == nullptr)
        return false;
    fseek(stream.file, 0, SEEK_SET);
    while (fgets(line, sizeof line - 1, stream.file) != nullptr)
        text += line;
    return feof(stream.file) != 0 && ferror(stream.file) == 0;
}

} // namespace

int strings::addfrom(const char* text, const char* delimiter, bool keepEmpty) {
    if (text == nullptr)
        return 0;
    const size_t step = delimiter == nullptr ? 0 : strlen(delimiter);
    // Where the fields are is gathered first: the list then grows once, and nothing is searched twice.
    std::vector<Field> fields;
    for (const char* next = text; next != nullptr;) {
        const char* end = nullptr;
        if (step != 0)
            end = step == 1 ? strchr(next, *delimiter) : strstr(next, delimiter);
        const size_t length = end == nullptr ? strlen(next) : static_cast<size_t>(end - next);
        if (length != 0 || keepEmpty || step == 0)
            fields.push_back({static_cast<size_t>(next - text), length});
        next = end == nullptr ? nullptr : end + step;
    }
    std::string ownText;
    if (fields.size() > capacity() - size()) {
        if (!empty()) {
            text =
                ownText.assign(text).c_str(); // growing moves the strings, one of which it may be
        }
        reserve(std::max(size() + fields.size(), 2 * size()));
    }
    for (const Field& field : fields)
        emplace_back(text + field.start, field.length);
    return static_cast<int>(fields.size());
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
    const auto value = [](unsigned char c) {
        return static_cast<unsigned int>(kHexDigits.value[c]);
    };
    while (next < end) {
        // Two pairs at once, where the text is nothing but pairs: that costs one test for both.
        while (end - next >= 4) {
            const unsigned int a = value(next[0]);
            const unsigned int b = value(next[1]);
            const unsigned int c = value(next[2]);
            const unsigned int d = value(next[3]);
            if ((a | b | c | d) >= 16)
                break;
            out[0] = static_cast<unsigned char>(a << 4 | b);
            out[1] = static_cast<unsigned char>(c << 4 | d);
            out += 2;
            next += 4;
        }
        const unsigned int high = value(*next++);
        if (high < 16) {
            const unsigned int low = value(*next++);
            *out++ = static_cast<unsigned char>(low < 16 ? high << 4 | low : high);
        }
    }
    bytes.resize(old + static_cast<size_t>(out - first));
    return 0;
}

int ParseHexFromFile(const char* path, ByteString& bytes) {
    std::string text;
    return ReadText(path, text) ? ParseHexStr(text.c_str(), bytes) : -1;
}
