// Masks read from any bytes and from any lists, each looked at and written back.
#include "Fuzz.h"
#include "mavkit/encoding/BitMask.h"

#include <sstream>

namespace {

long long Value(const std::string& text) {
    return std::clamp(std::strtoll(text.c_str(), nullptr, 10), -(1LL << 40), 1LL << 40);
}

// Does to a row of '0' and '1' what ParseFrom does to a mask.
void Parse(const std::string& text, char mark, int base, std::string& bits) {
    std::istringstream items(text);
    for (std::string item; std::getline(items, item, ',');) {
        const bool leading = item[0] == '-';
        const std::size_t dash = leading ? std::string::npos : item.find('-');
        const std::string first = leading ? item.substr(1) : item.substr(0, dash);
        const long long last = dash == std::string::npos ? 0 : Value(item.substr(dash + 1));
        const long long from = Value(first) + base;
        const long long to = last == 0 ? from : last + base;
        const bool counts = Value(first) != 0 || first.find('0') != std::string::npos;
        if (!counts || from < 0 || from > to || (mark == '1' && to > 8388607))
            continue;
        if (mark == '1')
            bits.resize(std::max(bits.size(), static_cast<std::size_t>(to) + 1), '0');
        for (long long bit = from; bit <= std::min(to, static_cast<long long>(bits.size()) - 1);
             ++bit)
            bits[static_cast<std::size_t>(bit)] = mark;
    }
}

} // namespace

// Lists of numbers and ranges: what they set and clear, and the text form read back.
void BitMaskText(fuzz::Input in) {
    const int base = static_cast<int>(in.Number());
    const int printBase = static_cast<int>(in.Number());
    BitMask mask;
    std::string bits;
    while (in.left > 0) {
        const unsigned char head = in.Byte();
        const std::string text = in.Text(head / 2);
        mask.ParseFrom(text.c_str(), head % 2 != 0, base);
        Parse(text, head % 2 != 0 ? '1' : '0', base, bits);
    }

    std::string wanted;
    std::size_t count = 0;
    bool readable = true; // no number below 0, no item cut
    for (std::size_t at = 0; (at = bits.find('1', at)) != std::string::npos;) {
        const std::size_t end = std::min(bits.find('0', at), bits.size());
        std::string item = std::to_string(static_cast<long long>(at) - printBase);
        if (end - at > 1)
            item += "-" + std::to_string(static_cast<long long>(end) - 1 - printBase);
        readable = readable && item[0] != '-' && item.size() <= 19;
        wanted += (wanted.empty() ? "" : ",") + item.substr(0, 19);
        count += end - at;
        at = end;
    }
    std::string text;
    mask.ToString(text, printBase);
    CHECK(text == wanted);
    CHECK(mask.EnableCount() == count);
    BitMask copy;
    copy.ParseFrom(text.c_str(), true, printBase);
    copy.ToString(text, printBase);
    CHECK(!readable || text == wanted);
}

// A mask read from any bytes: refused whole, or compared bit by bit and written back.
void BitMaskBytes(fuzz::Input in) {
    fuzz::Bytes form = in.Take(in.left);
    const unsigned int size = static_cast<unsigned int>(form.size());
    unsigned long long announced = 4;
    for (std::size_t i = 0; i < 4 && size >= 4; ++i)
        announced += static_cast<unsigned long long>(form[i]) << 8 * i;

    BitMask mask;
    mask.Enable(3, 3);
    const unsigned int read = mask.Deserialize(form.data(), size);
    CHECK(read == (size >= 4 && announced <= size ? announced : 0));
    form.resize(read);
    if (read == 0)
        form = {1, 0, 0, 0, 0x10};
    const unsigned int whole = static_cast<unsigned int>(form.size());
    fuzz::Bytes written(whole, 0xEE);
    CHECK(mask.Serialize(written.data(), whole - 1) == 0);
    CHECK(written.back() == 0xEE);
    CHECK(mask.Serialize(written.data(), whole) == whole);
    CHECK(written == form);

    BitMask trimmed;
    trimmed.Enable(mask);
    trimmed.Trim();
    unsigned int count = 0;
    for (unsigned int bit = 0; bit < (whole - 3) * 8; ++bit) {
        const bool set = 4 + bit / 8 < whole && (form[4 + bit / 8] << bit % 8 & 0x80) != 0;
        CHECK(mask.IsEnabled(bit) == set);
        CHECK(trimmed.IsEnabled(bit) == set);
        count += set ? 1 : 0;
    }
    CHECK(mask.EnableCount() == count);
}
