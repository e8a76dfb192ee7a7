/// \file
/// The last reading of every meter, in a shared region. One process writes it, any number of others
/// read it. No reader ever gets half an update, and neither does the next start after a power cut.
///
/// The file has two slots of 4096 bytes. Each holds a whole table, with the number of its update
/// and a CRC. An update goes into the slot that does not hold the latest table, and is on the card
/// before the next update touches the other slot. So at any moment one of the two is whole: a
/// reader takes the one with the higher number among those whose CRC is right.
///
/// | file                                            | to the writer         | to a reader |
/// |-------------------------------------------------|-----------------------|-------------|
/// | missing                                         | is created            | refused     |
/// | of full length, ours                            | is used               | is used     |
/// | shorter, ours or all zero bytes: being written, | waited for, then made | waited for, |
/// | or left so by a power cut                       | anew                  | refused     |
/// | anything else                                   | refused               | refused     |
///
/// A file that another process may have mapped is never cut: a process that touches a page beyond
/// the end of the file is killed (SIGBUS). Only one that has never had its full length is made
/// anew.
#ifndef EXAMPLES_TERMINAL_METERREGION_H
#define EXAMPLES_TERMINAL_METERREGION_H

#include "Terminal.h"

struct MeterTable {
    static constexpr unsigned short kRoom = 64;
    unsigned short count = 0;
    struct Record {
        unsigned short meter;
        unsigned char time[7]; // Bcd7Time
        unsigned char energy[4];
        unsigned char spare; // always 0
    } meters[kRoom] = {};

    /// Replaces the record of the reading's meter, or adds one. \return false when there is no room
    bool Put(const Reading& reading);
};

class MeterRegion {
public:
    /// Maps the region at `path` for its one writer, and creates it where it is missing.
    /// \return false, with the reason on standard error, when that cannot be done
    bool OpenToWrite(const char* path);
    /// Maps the region at `path` for a reader, which never creates or changes it.
    /// \return as `OpenToWrite()`
    bool OpenToRead(const char* path);

    /// Copies the latest table to `table`. \return false when neither slot is whole
    bool Read(MeterTable* table) const;
    /// Makes `table` the latest one. \return whether it is on the card
    bool Write(const MeterTable& table);

private:
    ShareMem region_;
};

#endif
