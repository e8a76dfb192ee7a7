// Any text as the name of a level or way, any code back to its name.
#include "Fuzz.h"
#include "mavkit/diag/TraceSetting.h"

#include <cctype>

namespace {

bool SameLetter(char a, char b) { return std::tolower(a) == std::tolower(b); }

void Try(const std::vector<std::string>& names, const std::string& text, size_t room,
         unsigned char (*toCode)(const char*), int (*toName)(unsigned char, char*)) {
    long wanted = std::atol(text.c_str());
    for (size_t i = 0; i < names.size(); ++i)
        if (std::equal(text.begin(), text.end(), names[i].begin(), names[i].end(), SameLetter))
            wanted = static_cast<long>(i);
    const unsigned char code = toCode(text.c_str());
    CHECK(code == (wanted & 0xFF));
    std::vector<char> name(room);
    CHECK(toName(code, name.data()) == 0);
    CHECK((code < names.size() ? names[code] : "invalid") == name.data());
}

} // namespace

FUZZ_TARGET(TraceNames) {
    const std::string text = in.Text(in.left);
    Try({"Disabled", "Error", "Warn", "Info", "Verbose"}, text, 9, MAKE_TRACE_LEVEL_VAL,
        MAKE_TRACE_LEVEL_KEY);
    Try({"None", "Stdout", "Public", "Private", "ttyp0", "ttyp1", "ttyp2", "ttyp3", "ttyp4",
         "ttyp5"},
        text, 8, MAKE_TRACE_WAY_VAL, MAKE_TRACE_WAY_KEY);
}
