#include "mavkit/diag/TraceSetting.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

// Fixed-width rows: constant data without a pointer to relocate.
constexpr struct {
    char name[TRACE_LEVEL_NAME_SIZE];
} kLevels[] = {{"Disabled"}, {"Error"}, {"Warn"}, {"Info"}, {"Verbose"}};

constexpr struct {
    char name[TRACE_WAY_NAME_SIZE];
} kWays[] = {{"None"},  {"Stdout"}, {"Public"}, {"Private"}, {"ttyp0"},
             {"ttyp1"}, {"ttyp2"},  {"ttyp3"},  {"ttyp4"},   {"ttyp5"}};

template <typename Row, unsigned Count>
unsigned char CodeOf(const Row (&rows)[Count], const char* name) {
    if (name == nullptr)
        return 0;
    for (unsigned code = 0; code < Count; ++code)
        if (strcasecmp(name, rows[code].name) == 0)
            return static_cast<unsigned char>(code);
    // strtol rather than atoi: a number too long for it saturates instead of being undefined.
    return static_cast<unsigned char>(std::strtol(name, nullptr, 10));
}

template <typename Row, unsigned Count>
int NameOf(const Row (&rows)[Count], unsigned char code, char* name) {
    const char* found = code < Count ? rows[code].name : "invalid";
    std::memcpy(name, found, std::strlen(found) + 1);
    return 0;
}

} // namespace

unsigned char MAKE_TRACE_LEVEL_VAL(const char* name) { return CodeOf(kLevels, name); }

int MAKE_TRACE_LEVEL_KEY(unsigned char code, char* name) { return NameOf(kLevels, code, name); }

unsigned char MAKE_TRACE_WAY_VAL(const char* name) { return CodeOf(kWays, name); }

int MAKE_TRACE_WAY_KEY(unsigned char code, char* name) { return NameOf(kWays, code, name); }
