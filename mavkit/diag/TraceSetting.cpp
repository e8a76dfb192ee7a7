#include "mavkit/diag/TraceSetting.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

// Fixed-width rows: constant data without a pointer to relocate.
constexpr char kLevels[][9] = {"Disabled", "Error", "Warn", "Info", "Verbose"};
constexpr char kWays[][8] = {"None",  "Stdout", "Public", "Private", "ttyp0",
                             "ttyp1", "ttyp2",  "ttyp3",  "ttyp4",   "ttyp5"};

template <unsigned Count, unsigned Width>
unsigned char CodeOf(const char (&names)[Count][Width], const char* name) {
    if (name == nullptr)
        return 0;
    for (unsigned code = 0; code < Count; ++code)
        if (strcasecmp(name, names[code]) == 0)
            return static_cast<unsigned char>(code);
    // strtol rather than atoi: a number too long for it saturates instead of being undefined.
    return static_cast<unsigned char>(std::strtol(name, nullptr, 10));
}

template <unsigned Count, unsigned Width>
int NameOf(const char (&names)[Count][Width], unsigned char code, char* name) {
    const char* found = code < Count ? names[code] : "invalid";
    std::memcpy(name, found, std::strlen(found) + 1);
    return 0;
}

} // namespace

unsigned char MAKE_TRACE_LEVEL_VAL(const char* name) { return CodeOf(kLevels, name); }

int MAKE_TRACE_LEVEL_KEY(unsigned char code, char* name) { return NameOf(kLevels, code, name); }

unsigned char MAKE_TRACE_WAY_VAL(const char* name) { return CodeOf(kWays, name); }

int MAKE_TRACE_WAY_KEY(unsigned char code, char* name) { return NameOf(kWays, code, name); }
