#include <mavkit/mavkit.h>

unsigned short Wrapped(unsigned char byte);

unsigned short Wrapped(unsigned char byte) {
    GENERAL_LOG("mavkit %s\n", mavkit_version()); // to standard output: there is no card
    return Add_CRC(0xFFFF, byte);
}
