/// \file
/// Single bits of a byte, bytes packed into 16- and 32-bit values, and one step of a CRC-16.
///
/// Bits count from the least significant one here: bit 0 has the value 0x01 and bit 7 the value
/// 0x80. (`BitMask` numbers its bits in the opposite order.) Nothing keeps state, and no function
/// changes its argument: the bit functions return the new byte.

#ifndef MAVKIT_ENCODING_BITS_H
#define MAVKIT_ENCODING_BITS_H

/// \return 1 if bit `number` (0 to 7) of the byte is set, 0 if it is clear or `number` is outside
/// 0 to 7.
int Get_BitValue(unsigned char byte, int number);

/// \return the byte with bit `number` (0 to 7) set; the byte unchanged when `number` is 8 or more.
unsigned char Set_BitValue(unsigned char byte, unsigned char number);

/// \return the byte with bit `number` (0 to 7) cleared; the byte unchanged when `number` is 8 or
/// more.
unsigned char Clear_BitValue(unsigned char byte, unsigned char number);

/// \return the byte with bit `number` (0 to 7) inverted; the byte unchanged when `number` is 8 or
/// more.
unsigned char Reverse_BitValue(unsigned char byte, unsigned char number);

/// Packs two bytes, taken as 8-bit patterns: a negative char adds no sign.
/// \return `hi` x 256 + `lo`.
unsigned short char_ushort(char lo, char hi);

/// Packs four bytes, `b0` the least significant, each taken as its 8-bit pattern.
/// \return the 32-bit value b3 b2 b1 b0.
unsigned int char_ulong(char b0, char b1, char b2, char b3);

/// The table of the CRC-16 step, for the polynomial 0x1021 (x^16 + x^12 + x^5 + 1), most
/// significant bit first: entry i is the register after i, placed in the upper half of a zero
/// register, has been shifted out to the left.
extern const unsigned short crc_tbl[256];

/// One step of the CRC-16: takes the register so far and the next data byte. The caller chooses the
/// initial register, adds every byte in order, and uses the last register unchanged:
///
/// | initial register | CRC catalogue                                   | over "123456789" |
/// |------------------|-------------------------------------------------|------------------|
/// | 0xFFFF           | CRC-16/IBM-3740, also known as CCITT-FALSE      | 0x29B1           |
/// | 0x0000           | CRC-16/XMODEM                                   | 0x31C3           |
///
/// \return the new register.
inline unsigned short Add_CRC(unsigned short crc, unsigned char byte) {
    return static_cast<unsigned short>(crc << 8 ^ crc_tbl[crc >> 8 ^ byte]);
}

#endif
