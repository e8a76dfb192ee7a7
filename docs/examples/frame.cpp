// A meter's frame in hex text: to bytes, through the CRC, and out of its BCD fields.
#include <mavkit/encoding/BcdNumber.h>
#include <mavkit/encoding/Bits.h>
#include <mavkit/encoding/HexText.h>
#include <mavkit/encoding/MavString.h>

#include <cstdio>

static unsigned short Crc(const ByteString& bytes, std::size_t length) {
    unsigned short crc = 0xFFFF; // CRC-16/IBM-3740
    for (std::size_t i = 0; i < length; ++i)
        crc = Add_CRC(crc, bytes[i]);
    return crc;
}

int main() {
    strings fields;
    fields.addfrom("meter=107;frame=07 01 53 26 00 B2 AB", ";", false);

    char key[80], value[80]; // each with room for the whole line
    if (String_CutLine(key, value, &fields[1][0], '=') != 0)
        return 1;
    ByteString frame;
    ParseHexStr(value, frame);
    std::printf("%s: %zu bytes\n", key, frame.size());

    char text[5];
    String_uShortToAsc4(Crc(frame, 5), text);
    const unsigned short sent =
        char_ushort(static_cast<char>(frame[5]), static_cast<char>(frame[6]));
    std::printf("CRC %s: %s\n", text, Crc(frame, 5) == sent ? "good" : "damaged");

    // Low-first BCD: four integer digits and two decimals in three bytes.
    std::printf("meter %d reads %.2f kWh\n", BcdToDec(2, &frame[0]), BCDToDouble(&frame[2], 4, 2));

    unsigned char integers = 4, decimals = 2, bcd[3];
    DoubleToBCD(26.54, integers, decimals, bcd);
    std::printf("the next one will say %02X %02X %02X\n", bcd[0], bcd[1], bcd[2]);
}
