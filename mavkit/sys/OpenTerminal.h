// Opens a pseudo-terminal for output that must never block the process.
#ifndef MAVKIT_SYS_OPENTERMINAL_H
#define MAVKIT_SYS_OPENTERMINAL_H

#include <cstdio>

namespace mavkit {

// Opens the terminal `path` as `MavFile::OpenFile(path, "r+")` does, with the same warnings. But it
// never becomes the controlling terminal, whose end would kill the process, and a write never waits
// for a reader: text that the terminal has no room for is dropped.
std::FILE* OpenTerminal(const char* path);

} // namespace mavkit

#endif
