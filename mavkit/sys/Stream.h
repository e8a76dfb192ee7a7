// A stream that is closed at the end of its scope, also when an exception leaves it.
#ifndef MAVKIT_SYS_STREAM_H
#define MAVKIT_SYS_STREAM_H

#include <cstdio>
#include <memory>

namespace mavkit {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using Stream = std::unique_ptr<std::FILE, CloseFile>;

} // namespace mavkit

#endif
