// Opens a descriptor with the warnings of `MavFile`.
#ifndef MAVKIT_SYS_OPENREPORTED_H
#define MAVKIT_SYS_OPENREPORTED_H

namespace mavkit {

// Opens `path` with the `flags` of open(); a new file gets mode 0666, less the umask. Warns as
// `MavFile::OpenFile` does. Returns the descriptor, or -1.
int OpenReported(const char* path, int flags);

} // namespace mavkit

#endif
