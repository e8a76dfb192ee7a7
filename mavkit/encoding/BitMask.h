/// \file
/// A growable set of small unsigned numbers, kept as bits.
///
/// A process marks in it which meters answered, which tasks are due, which points are wired. The
/// set can be written to a buffer, printed as a compact list of numbers and ranges ("0-2,5,9-10"),
/// and built from such a list.
///
/// Bits are numbered from the most significant one of the first byte: bit n is `0x80 >> (n mod 8)`
/// of byte n / 8. (The functions of Bits.h number the bits of a byte in the opposite order.) A mask
/// always has 8 x (its length in bytes) bits; a bit beyond reads as clear. Only setting bits, a
/// union, `Trim` and `Deserialize` change the length.
///
/// A mask is a value: it starts empty, and copies are independent. Growing fails only for lack of
/// memory: the standard exception passes through, and the mask is as it was.
///
/// The serialised form:
///
/// | offset | size | field                                                            |
/// |--------|------|------------------------------------------------------------------|
/// | 0      | 4    | N, the length of the mask in bytes, least significant byte first |
/// | 4      | N    | the bytes of the mask, byte 0 first                              |
///
/// The text form is a list of items joined by "," without blanks, in rising order: a number, or the
/// first and last number of a range joined by "-". The number t in a text stands for the bit t +
/// base. A text with negative numbers (the result of a base above the lowest set bit) can be
/// printed but not read back: `ParseFrom` drops a dash in front of a number.

#ifndef MAVKIT_ENCODING_BITMASK_H
#define MAVKIT_ENCODING_BITMASK_H

#include "mavkit/encoding/ByteString.h"

#include <string>

struct MavDump;

/// A growable set of numbered bits.
class BitMask {
public:
    /// Sets the bits `from` to `to`, both included, and grows the mask so that it has bit `to` (512
    /// MiB for the last one, 0xFFFFFFFF). Does nothing when `to` < `from`.
    void Enable(unsigned int from, unsigned int to);

    /// Clears those of the bits `from` to `to`, both included, that lie inside the mask. Does
    /// nothing when `to` < `from`.
    void Disable(unsigned int from, unsigned int to);

    /// The union: sets every bit that is set in `other`, which is only read. Afterwards the mask is
    /// at least one byte longer than `other` was; an empty `other` makes an empty mask one zero
    /// byte.
    void Enable(const BitMask& other);

    /// \return whether the bit is set; false for a bit beyond the mask.
    bool IsEnabled(unsigned int bit) const;

    /// \return the number of set bits; 0xFFFFFFFF also for more, which only a mask of 512 MiB can
    /// have.
    unsigned int EnableCount() const;

    /// Shortens the mask at its end without changing a bit. The last byte kept is that of the
    /// highest set bit; when this bit is the last one of its byte and more bytes followed, one zero
    /// byte more is kept. A mask without a set bit becomes one zero byte; an empty one stays empty.
    void Trim();

    /// Writes the serialised form into a buffer of `size` bytes.
    /// \return the bytes written, N + 4; 0, with nothing written, when `size` is smaller than that
    /// or `buffer` is null.
    unsigned int Serialize(unsigned char* buffer, unsigned int size) const;

    /// Replaces the mask by the serialised form at `buffer`, of which `size` bytes are readable.
    /// What follows the form is ignored.
    /// \return the bytes consumed, N + 4; 0, with the mask unchanged, when `size` is smaller than
    /// that or `buffer` is null.
    unsigned int Deserialize(const unsigned char* buffer, unsigned int size);

    /// Replaces `out` by the text form: bit s is printed as s - `base`. An item has at most 19
    /// characters: a range whose two numbers, signs included, have 19 or more characters together
    /// is cut there. No set bit gives "".
    void ToString(std::string& out, int base) const;

    /// Sets (`enable` true) or clears (`enable` false) the bits that a list names; the others stay
    /// as they are. The text is split at every ",":
    ///
    /// | item         | stands for                                                              |
    /// |--------------|-------------------------------------------------------------------------|
    /// | "6"          | the number 6; numbers are read as atoi reads them, so "12ab" is 12      |
    /// | "5-9"        | 5 to 9, cut at the first "-"                                            |
    /// | "5-", "5-0"  | 5                                                                       |
    /// | "5-3"        | nothing                                                                 |
    /// | "-4", "-4-6" | 4: a dash in front is dropped, and the number ends at the next one      |
    /// | "1--5"       | nothing: the range ends at -5                                           |
    /// | "", " ", "x" | nothing: 0 counts only if its digit is there ("0", "00", "a0", "0-7")   |
    ///
    /// An item with an end that is negative after the base is added is skipped as a whole. When
    /// bits are set, an item with an end above 8388607 (a mask of 1 MiB) is skipped too: no text
    /// can make a mask of hundreds of megabytes. Clearing has no upper bound: "9-99999999999"
    /// clears all from bit 9 on. A null text does nothing.
    void ParseFrom(const char* text, bool enable, int base);

    /// Writes the text form with base 0 into a dump stream, in one piece.
    /// \return the dump stream.
    MavDump& Dump(MavDump& dump) const;

private:
    ByteString bits;
};

#endif
