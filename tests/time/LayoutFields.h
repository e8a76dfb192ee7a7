/// \file
/// A slow model of the layouts of time records.
#ifndef MAVKIT_TESTS_LAYOUTFIELDS_H
#define MAVKIT_TESTS_LAYOUTFIELDS_H

#include <algorithm>
#include <string>

/// The fields of a layout, a letter each, by the rules of the code; empty for an invalid one.
inline std::string LayoutFields(int code) {
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

#endif
