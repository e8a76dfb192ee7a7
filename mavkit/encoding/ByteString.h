/// \file
/// The byte string: a growable, contiguous string of unsigned bytes. BitMask keeps its bits in one,
/// IpcInfo its payload fields, and the hex parsers append to one. Zero bytes are ordinary content.

#ifndef MAVKIT_ENCODING_BYTESTRING_H
#define MAVKIT_ENCODING_BYTESTRING_H

#include <string>

/// A growable string of unsigned bytes; any byte value may stand anywhere in it.
typedef std::basic_string<unsigned char> ByteString;

#endif
