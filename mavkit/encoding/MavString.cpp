#include "mavkit/encoding/MavString.h"

#include "mavkit/sys/MavFile.h"

#include <cstdio>
#include <cstring>
#include <iterator>

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
    // The fields are gathered aside: the list may hold the very texts that are being read.
    std::vector<std::string> fields;
    while (text != nullptr) {
        const char* end = nullptr;
        if (step != 0) {
            end = step == 1 ? strchr(text, *delimiter) : strstr(text, delimiter);
        }
        const size_t length = end == nullptr ? strlen(text) : static_cast<size_t>(end - text);
        if (length != 0 || keepEmpty || step == 0) {
            fields.emplace_back(text, length);
        }
        text = end == nullptr ? nullptr : end + step;
    }
    const int count = static_cast<int>(fields.size());
    if (empty()) {
        swap(fields);
    } else {
        insert(end(), std::make_move_iterator(fields.begin()),
               std::make_move_iterator(fields.end()));
    }
    return count;
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
