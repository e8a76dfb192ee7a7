// Lists of numbers and ranges: what they set and clear, and the text form read back.
#include "Fuzz.h"
#include "mavkit/encoding/BitMask.h"

#include <sstream>

namespace {

long long Value(const std::string& text) {
    const long long far = 1LL << 40;
    return std::clamp(std::strtoll(text.c_str(), nullptr, 10), -far, far);
}

// Does to a row of '0' and '1' what ParseFrom does to a mask.
void Parse(const std::string& text, char mark, int base, std::string& bits) {
    std::istringstream items(text);
    for (std::string item; std::getline(items, item, ',');) {
        const bool leading = item[0] == '-';
        const size_t dash = leading ? std::string::npos : item.find('-');
        const std::string first = leading ? item.substr(1) : item.substr(0, dash);
        const long long last = dash == std::string::npos ? 0 : Value(item.substr(dash + 1));
        const long long from = Value(first) + base;
        const long long to = last == 0 ? from : last + base;
        const bool counts = Value(first) != 0 || first.find('0') != std::string::npos;
        if (!counts || from < 0 || from > to || to > 8388607)
            continue;
        const size_t start = static_cast<size_t>(from);
        const size_t count = static_cast<size_t>(to - from) + 1;
        if (mark == '1')
            bits.resize(std::max(bits.size(), start + count), '0');
        if (start < bits.size())
            std::fill_n(&bits[start], std::min(count, bits.size() - start), mark);
    }
}

} // namespace

FUZZ_TARGET(BitMaskText) {
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
    size_t count = 0;
    bool readable = true; // no number below 0, no item cut
    for (size_t at = 0; (at = bits.find('1', at)) != std::string::npos;) {
        const size_t end = std::min(bits.find('0', at), bits.size());
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
    CHECK(text == wanted && mask.EnableCount() == count);
    BitMask copy;
    copy.ParseFrom(text.c_str(), true, printBase);
    copy.ToString(text, printBase);
    CHECK(!readable || text == wanted);
}
