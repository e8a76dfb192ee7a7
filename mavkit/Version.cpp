#include "mavkit/Version.h"

#define TEXT_OF(number) #number
#define DOTTED(major, minor, patch) TEXT_OF(major) "." TEXT_OF(minor) "." TEXT_OF(patch)

const char* mavkit_version() {
    return DOTTED(MAVKIT_VERSION_MAJOR, MAVKIT_VERSION_MINOR, MAVKIT_VERSION_PATCH);
}
