#include "mavkit/time/SystemClock.h"

#include "mavkit/platform/SetClock.h"
#include "mavkit/time/LocalTime.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int Set_SysTime(char* t) {
    char bcd7[7] = {0x20};
    std::memcpy(bcd7 + 1, t, 6);
    std::tm f = {};
    mavkit::FromBcd7(bcd7, &f);
    f.tm_isdst = -1;
    const std::time_t target = std::mktime(&f);
    if (target == -1) // failed: -1 is a second of 1969, and the years here are 2000 to 2165
        return 0;
    const std::time_t now = std::time(nullptr);
    if (now < target - 1LL || now > target + 1LL)
        mavkit::SetClock(target);
    return 0;
}

int Set_SYS_HWClock(char* t) {
    unsigned char b[6];
    std::memcpy(b, t, sizeof b);
    if (b[0] >= 0x39 || (b[0] == 0x38 && (b[1] >= 0x02 || b[2] >= 0x11)))
        return -1;
    char command[sizeof "date -s 030506072024.08"];
    std::snprintf(command, sizeof command, "date -s %02x%02x%02x%02x20%02x.%02X", b[1], b[2], b[3],
                  b[4], b[0], b[5]);
    [[maybe_unused]] const int ignored = std::system(command);
    return 0;
}
