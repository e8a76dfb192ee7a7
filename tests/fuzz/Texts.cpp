// Texts read and written: hex digits, lists split, the names of levels and ways.
#include "Fuzz.h"
#include "mavkit/diag/TraceSetting.h"
#include "mavkit/encoding/HexText.h"
#include "mavkit/encoding/MavString.h"

#include <strings.h>

// Hex digits in any text.
void HexText(fuzz::Input in) {
    const std::string text = in.Text(in.left);
    const std::string digits = "0123456789abcdefABCDEF";
    ByteString wanted(1, 'w');
    ByteString bytes = wanted;
    for (size_t at = 0; (at = text.find_first_of(digits, at)) != std::string::npos; at += 2) {
        const std::string pair = text.substr(at, 2);
        const std::string byte = pair.substr(0, pair.find_first_not_of(digits));
        wanted += static_cast<unsigned char>(std::stoul(byte, nullptr, 16));
    }
    CHECK(ParseHexStr(text.c_str(), bytes) == 0 && bytes == wanted);
}

// Split at any delimiter: joined again it is the text, and no field holds the delimiter.
void SplitText(fuzz::Input in) {
    const std::string delimiter = in.Text(in.Byte() % 4);
    const std::string text = in.Text(in.left);
    strings all, filled;
    const int count = all.addfrom(text.c_str(), delimiter.c_str(), true);
    const int more = filled.addfrom(text.c_str(), delimiter.c_str(), false);
    std::string joined;
    strings wanted;
    for (const std::string& field : all) {
        CHECK(delimiter.empty() || field.find(delimiter) == std::string::npos);
        joined += field + delimiter;
        if (!field.empty() || delimiter.empty())
            wanted.push_back(field);
    }
    CHECK(count == static_cast<int>(all.size()) && more == static_cast<int>(filled.size()));
    CHECK(joined == text + delimiter && filled == wanted);
}

// Any text as the name of a level or way, any code back to its name.
void TraceNames(fuzz::Input in) {
    const std::string text = in.Text(in.left);
    const std::string names[][10] = {{"Disabled", "Error", "Warn", "Info", "Verbose"},
                                     {"None", "Stdout", "Public", "Private", "ttyp0", "ttyp1",
                                      "ttyp2", "ttyp3", "ttyp4", "ttyp5"}};
    for (const bool way : {false, true}) {
        long wanted = std::atol(text.c_str());
        for (long i = 0; i < (way ? 10 : 5); ++i)
            wanted = strcasecmp(text.c_str(), names[way][i].c_str()) == 0 ? i : wanted;
        const int code = (way ? MAKE_TRACE_WAY_VAL : MAKE_TRACE_LEVEL_VAL)(text.c_str());
        CHECK(code == (wanted & 0xFF));
        std::vector<char> name(way ? 8 : 9);
        const auto toName = way ? MAKE_TRACE_WAY_KEY : MAKE_TRACE_LEVEL_KEY;
        CHECK(toName(static_cast<unsigned char>(code), name.data()) == 0);
        CHECK((code < (way ? 10 : 5) ? names[way][code] : "invalid") == name.data());
    }
}
