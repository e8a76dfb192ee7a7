#include "mavkit/encoding/HexText.h"

#include "mavkit/encoding/HexDigits.h"

#include <cstddef>
#include <cstring>

namespace {

// Zeros in front of a short text would not change its value, so none are added.
unsigned int ReadHex(const char* text, int width) {
    unsigned int value = 0;
    if (text != nullptr)
        for (int i = 0; i < width && text[i] != '\0'; ++i)
            value = value << 4 | Char_No1Hex(text[i]);
    return value;
}

void WriteHex(unsigned long value, char* text, int width) {
    text[width] = '\0';
    for (int i = width - 1; i >= 0; --i) {
        text[i] = Get_Low4ofChar(static_cast<unsigned char>(value & 0x0F));
        value >>= 4;
    }
}

bool IsDecimal(char c) { return c >= '0' && c <= '9'; }

} // namespace

unsigned char Char_No1Hex(char c) {
    // Modulo 16, subtracting 0x30 adds nothing and subtracting 0x37 adds 9.
    const unsigned int code = static_cast<unsigned char>(c);
    const unsigned int letter = code >= 'A' && code < 0x80 ? 9 : 0;
    return (code + letter) & 0x0F;
}

unsigned char String_Asc2TouChar(char* text) {
    if (text == nullptr)
        return 0;
    return static_cast<unsigned char>(Char_No1Hex(text[0]) << 4 | Char_No1Hex(text[1]));
}

unsigned short String_Asc4TouShort(const char* text) {
    return static_cast<unsigned short>(ReadHex(text, 4));
}

unsigned int String_Asc8TouLong(char* text) { return ReadHex(text, 8); }

char Get_Low4ofChar(unsigned char byte) { return mavkit::kUpperHexDigits[byte & 0x0F]; }

void String_uCharToAsc2(unsigned char value, char* text) { WriteHex(value, text, 2); }

void String_uShortToAsc4(unsigned short value, char* text) { WriteHex(value, text, 4); }

void String_uLongToAsc8(unsigned long value, char* text) { WriteHex(value, text, 8); }

int No2Char_Dec1(char tens, char units) {
    if (!IsDecimal(tens) || !IsDecimal(units))
        return -2;
    return (tens - '0') * 10 + (units - '0');
}

int isbcdchar(char c) {
    const bool letter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    return IsDecimal(c) || letter ? 1 : 0;
}

int String_CutLine(char* key, char* value, char* line, char separator) {
    const char* cut = nullptr;
    if (line != nullptr && separator != '\0')
        cut = std::strchr(line, separator);
    if (cut == nullptr) {
        key[0] = '\0';
        value[0] = '\0';
        return -2;
    }
    const std::size_t length = static_cast<std::size_t>(cut - line);
    std::memcpy(key, line, length);
    key[length] = '\0';
    std::memmove(value, cut + 1, std::strlen(cut + 1) + 1);
    return 0;
}
