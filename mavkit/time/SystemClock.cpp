#include "mavkit/time/SystemClock.h"

#include "mavkit/platform/SetClock.h"
#include "mavkit/time/LocalTime.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int Set_SysTime(char* t) {
    char bcd7[7] = {0x20};
    memcpy(bcd7 + 1, t, 6);
    tm f = {};
    mavkit::FromBcd7(bcd7, &f);
    f.tm_isdst = -1;
    const time_t target = mktime(&f);
    if (target == -1) // no time: 2000 to 2165 is far from the one second that is -1
        return 0;
    const time_t now = time(nullptr);
    if (now < target - 1LL || now > target + 1LL)
        mavkit::SetClock(target);
    return 0;
}

int Set_SYS_HWClock(char* t) {
    unsigned char b[6];
    memcpy(b, t, sizeof b);
    if (b[0] >= 0x39 || (b[0] == 0x38 && (b[1] >= 0x02 || b[2] >= 0x11)))
        return -1;
    char command[sizeof "date -s 030506072024.08"];
    snprintf(command, sizeof command, "date -s %02x%02x%02x%02x20%02x.%02X", b[1], b[2], b[3], b[4],
             b[0], b[5]);
    const int status = system(command);
    static_cast<void>(status); // the command speaks for itself
    return 0;
}
