// Any bytes from any layout to any other, over themselves too, against layouts spelled as words.
#include "Civil.h"
#include "mavkit/time/TimeLayout.h"

#include <map>

namespace {

// The fields of a layout, a letter each, by the rules of the code; empty for an invalid one.
std::string Fields(int code) {
    const int start = code % 8;
    const int end = code / 16 % 8;
    std::string run;
    for (int f = std::min(start, end); f <= std::max(start, end); ++f)
        run += "?smhDMYC"[f];
    if (code >= 0x80) { // the weekday, between the hour and the day: one of them must be there
        if (run.find_first_of("hD") == run.npos)
            return "";
        run.insert(run.find('h') + 1, 1, 'w'); // without the hour the day is the first
    }
    if (end < start)
        std::reverse(run.begin(), run.end());
    return start == 0 || end == 0 ? "" : run;
}

} // namespace

void LayoutExchange(fuzz::Input in) {
    const unsigned char from = in.Byte();
    const unsigned char to = in.Byte();
    const std::string source = Fields(from);
    const std::string target = Fields(to);
    const bool valid = !source.empty() && !target.empty();
    fuzz::Bytes bytes = in.Take(source.size());
    bytes.resize(source.size());
    setenv("TZ", "UTC0", 1);
    tzset();

    fuzz::Bytes out, inPlace, wanted = bytes;
    wanted.resize(std::max(source.size(), target.size()), 0xEE);
    time_t now;
    do { // until the clock stands still in between
        now = time(nullptr);
        out.assign(target.size(), 0xEE);
        inPlace = wanted;
        CHECK(ExchangeBCDTime(from, bytes.data(), to, out.data()) == (valid ? 0 : -1));
        CHECK(ExchangeBCDTime(from, inPlace.data(), to, inPlace.data()) == (valid ? 0 : -1));
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
    for (size_t i = 0; i < target.size(); ++i) {
        CHECK(out[i] == (!valid ? 0xEE : from == to ? bytes[i] : work[target[i]]));
        wanted[i] = valid ? out[i] : wanted[i];
    }
    CHECK(inPlace == wanted);
}
