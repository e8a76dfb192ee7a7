// Any bytes from any layout to any other, against layouts spelled as words of letters.
#include "../time/LayoutFields.h"
#include "Civil.h"
#include "mavkit/time/TimeLayout.h"

#include <map>

void LayoutExchange(fuzz::Input in) {
    const unsigned char from = in.Byte();
    const unsigned char to = in.Byte();
    const std::string source = LayoutFields(from);
    const std::string target = LayoutFields(to);
    const bool valid = !source.empty() && !target.empty();
    fuzz::Bytes bytes = in.Take(source.size());
    bytes.resize(source.size());
    setenv("TZ", "UTC0", 1);
    tzset();

    fuzz::Bytes out;
    time_t now;
    do { // until the clock stands still in between
        now = time(nullptr);
        out.assign(target.size(), 0xEE);
        CHECK(ExchangeBCDTime(from, bytes.data(), to, out.data()) == (valid ? 0 : -1));
    } while (now != time(nullptr));

    char text[15];
    strftime(text, sizeof text, "%S%M%H%d%m%y%C", gmtime(&now));
    std::map<char, int> work = {{'w', (now / fuzz::kDay + 4) % 7}};
    for (size_t i = 0; i < 7; ++i)
        work["smhDMYC"[i]] = std::stoi(std::string(text + 2 * i, 2), nullptr, 16);
    for (size_t i = 0; i < source.size(); ++i)
        work[source[i]] = bytes[i];
    if (source.find('w') == std::string::npos && source.find('D') != std::string::npos) {
        const auto value = [&](char field) { return work[field] - work[field] / 16 * 6; };
        const long long days = fuzz::Days(value('C') * 100 + value('Y'), value('M'), value('D'));
        long long t = days * fuzz::kDay + value('h') * 3600 + value('m') * 60 + value('s');
        t = t < LONG_MIN || t > LONG_MAX ? -1 : t;
        const long long week = fuzz::FloorDiv(t, fuzz::kDay) + 4;
        work['w'] = static_cast<int>(week - fuzz::FloorDiv(week, 7) * 7);
    }
    for (size_t i = 0; i < target.size(); ++i)
        CHECK(out[i] == (!valid ? 0xEE : from == to ? bytes[i] : work[target[i]]));
}
