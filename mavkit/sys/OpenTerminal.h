// How a pseudo-terminal is opened for output that must never hold the process up.
#ifndef MAVKIT_SYS_OPENTERMINAL_H
#define MAVKIT_SYS_OPENTERMINAL_H

#include <cstdio>

namespace mavkit {

// Opens the terminal `path` as `MavFile::OpenFile(path, "r+")` does, with the same warnings. But it
// never becomes the controlling terminal, whose end would kill the process, and a write never waits
// for a reader: what the terminal has no room for is not written.
std::FILE* OpenTerminal(const char* path);

} // namespace mavkit

#endif
