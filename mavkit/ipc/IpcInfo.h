/// \file
/// The record that describes a request from one process to another: five numbers and three byte
/// strings, and how long the request stays in force. It writes itself as a flat record into a
/// buffer, which then travels by message queue, shared region or file, and reads itself from there.
///
/// The flat record, every number 4 bytes, least significant first, two's complement:
///
/// | offset       | bytes | content                                |
/// |--------------|-------|----------------------------------------|
/// | 0            | 4     | `first`                                |
/// | 4            | 4     | `second`                               |
/// | 8            | 4     | `type`                                 |
/// | 12           | 4     | `createTime`                           |
/// | 16           | 4     | `lifetime`                             |
/// | 20           | 4     | L1, the length of `bytes1`             |
/// | 24           | 4     | L2, the length of `bytes2`             |
/// | 28           | 4     | L3, the length of `bytes3`             |
/// | 32           | L1    | `bytes1`                               |
/// | 32 + L1      | L2    | `bytes2`                               |
/// | 32 + L1 + L2 | L3    | `bytes3`; the record ends here         |
#ifndef MAVKIT_IPC_IPCINFO_H
#define MAVKIT_IPC_IPCINFO_H

#include "mavkit/encoding/ByteString.h"

/// One request record. A fresh one is all zero and empty, and so not valid.
class IpcInfo {
public:
    int first;             ///< carried unchanged
    int second;            ///< carried unchanged
    int type;              ///< kind of the request; 0: not a valid record
    int createTime;        ///< when it was made, seconds since 1970 UTC; 0 or less: never expires
    unsigned int lifetime; ///< seconds that it stays in force after `createTime`; 0: for ever
    ByteString bytes1;     ///< first byte string
    ByteString bytes2;     ///< second byte string
    ByteString bytes3;     ///< third byte string

    /// A record of zeros and empty strings.
    IpcInfo() : first(0), second(0), type(0), createTime(0), lifetime(0) {}

    /// Writes the flat record to `buffer`, which has room for `capacity` bytes. The byte strings
    /// are written as text: all bytes of a string after its first zero byte are written as zero
    /// bytes, and its length stays.
    /// \return the bytes written, 32 + L1 + L2 + L3; 0, and nothing written, for a null buffer or
    ///         when the capacity is smaller (also when a length does not fit into its slot)
    unsigned int Serialize(unsigned char* buffer, unsigned int capacity) const;

    /// Reads a flat record from the `length` bytes at `buffer`; more bytes after the record are
    /// ignored. The numbers replace the present ones. The byte strings, zero bytes included, are
    /// appended to the present ones: read into a fresh record, or clear the strings first. The
    /// buffer is not part of one of them, as their bytes move when they grow. When memory for the
    /// strings runs out (`std::bad_alloc`), the numbers have been replaced and no string has been
    /// changed.
    /// \return 32 plus the lengths of the three strings as they are then: for a fresh record the
    ///         bytes consumed (at most 4294967295, which stands for any larger sum); 0, and nothing
    ///         changed, when the buffer is null or shorter than 32 bytes; 0, the numbers replaced
    ///         and the strings unchanged, when it is shorter than the lengths in it require
    unsigned int Deserialize(unsigned char* buffer, unsigned int length);

    /// Reports whether the record is in force now: a record made at second t with a lifetime of d
    /// is in force up to and including second t + d. A record that has expired is reported in the
    /// general log.
    /// \return false for type 0 or an expired record; true otherwise, also without a lifetime,
    ///         without a creation time, and when the creation time is in the future
    bool IsValid() const;
};

#endif
