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

// Walks the fields of a text that a delimiter of `step` characters splits, or does not when step is 0.
struct FieldWalk {
    const char* next; // null at the end
    const char* delimiter;
    size_t step;
    bool keepEmpty;

    bool Next(const char*& field, size_t& length) {
        while (next != nullptr) {
            field = next;
            const char* end = nullptr;
            if (step != 0) {
                end = step == 1 ? strchr(next, *delimiter) : strstr(next, delimiter);
            }
            length = end == nullptr ? strlen(field) : static_cast<size_t>(end - field);
            next = end == nullptr ? nullptr : end + step;
            if (length != 0 || keepEmpty || step == 0) {
                return true;
            }
        }
        return false;
    }
};

// Closes the file whatever way the scope is left: growing a string may throw.
struct OpenStream {
    FILE* file;
    ~OpenStream() {
        if (file != nullptr) {
            fclose(file);
        }
    }
};

bool ReadText(const char* path, std::string& text) {
    static char line[1024];
    const OpenStream stream = {path == nullptr ? nullptr : MavFile::OpenFile(path, "rt")};
    if (stream.file == nullptr) {
        return false;
    }
    fseek(stream.file, 0, SEEK_SET);
    while (fgets(line, sizeof line - 1, stream.file) != nullptr) {
        text += line;
    }
    return feof(stream.file) != 0 && ferror(stream.file) == 0;
}

} // namespace

int strings::addfrom(const char* text, const char* delimiter, bool keepEmpty) {
    if (text == nullptr) {
        return 0;
    }
    const size_t step = delimiter == nullptr ? 0 : strlen(delimiter);
    FieldWalk whole = {text, delimiter, step, keepEmpty};
    const char* field;
    size_t length;
    // A walk more costs less than growing a vector of strings step by step.
    size_t count = 0;
    for (FieldWalk walk = whole; walk.Next(field, length);) {
        ++count;
    }
    std::string ownText;
    std::string ownDelimiter;
    if (count > capacity() - size()) {
        if (!empty()) {
            // Growing moves the strings of the list, and both texts may be among them.
            whole.next = ownText.assign(text).c_str();
            whole.delimiter = ownDelimiter.assign(step == 0 ? "" : delimiter).c_str();
        }
        reserve(std::max(size() + count, 2 * size()));
    }
    for (FieldWalk walk = whole; walk.Next(field, length);) {
        emplace_back(field, length);
    }
    return static_cast<int>(count);
}

int ParseHexStr(const char* text, ByteString& bytes) {
    if (text == nullptr) {
        return 0;
    }
    // Read as unsigned characters with the terminator, which is no digit, in reach of the last one.
    const unsigned char* next = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = next + strlen(text);
    const size_t old = bytes.size();
    // Every byte but the last takes two characters.
    bytes.resize(old + (static_cast<size_t>(end - next) + 1) / 2);
    unsigned char* const first = &bytes[0] + old;
    unsigned char* out = first;
    while (next < end) {
        const unsigned int high = kHexDigits.value[*next++];
        if (high < 16) {
            const unsigned int low = kHexDigits.value[*next++];
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
