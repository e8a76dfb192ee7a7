// Any text split at any delimiter: joined again it is the text, and no field holds the delimiter.
#include "Fuzz.h"
#include "mavkit/encoding/MavString.h"

FUZZ_TARGET(SplitText) {
    const std::string delimiter = in.Text(in.Byte() % 4);
    const std::string text = in.Text(in.left);
    strings all;
    strings filled;
    const size_t count = static_cast<size_t>(all.addfrom(text.c_str(), delimiter.c_str(), true));
    filled.emplace_back("old");
    const int more = filled.addfrom(text.c_str(), delimiter.c_str(), false);

    std::string joined;
    strings wanted;
    wanted.emplace_back("old");
    for (const std::string& field : all) {
        CHECK(delimiter.empty() || field.find(delimiter) == std::string::npos);
        joined += field + delimiter;
        if (!field.empty() || delimiter.empty())
            wanted.push_back(field);
    }
    CHECK(more + 1 == static_cast<int>(filled.size()));
    CHECK(count == all.size() && joined == text + delimiter && filled == wanted);
}
