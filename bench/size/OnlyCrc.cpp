// A program that uses only the CRC of mavkit.
#include "mavkit/encoding/Bits.h"

int main(int argc, char** argv) {
    unsigned short crc = 0xFFFF;
    while (argc > 1 && *argv[1] != '\0') {
        crc = Add_CRC(crc, static_cast<unsigned char>(*argv[1]++));
    }
    return crc & 0x7F;
}
