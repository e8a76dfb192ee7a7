// The logs that `trace show` and `trace follow` read.
#ifndef MAVKIT_TOOLS_MAVUTIL_LOGS_H
#define MAVKIT_TOOLS_MAVUTIL_LOGS_H

#include "Verbs.h"

#include <string>
#include <vector>

namespace mavutil {

// The paths of the logs that the arguments name, in order and each once: logs, and directories of
// them; without arguments those of the terminal. A rotated log has its backup beside it, at
// BackupOf(path). What is missing or cannot be read is reported unless `quietly`; `*status` is
// kFailed then.
std::vector<std::string> FindLogs(const Arguments& arguments, bool quietly, Status* status);

std::string BackupOf(const std::string& path);

// The name of a log in front of its lines; "" when it is the only one.
std::string LabelOf(const std::string& path, bool only);

// The characters of a log that are part of its lines: all except zero bytes, which fill up a
// backup, and carriage returns.
inline bool IsShown(int c) { return c != '\0' && c != '\r'; }

constexpr std::size_t kLongestLine = 8192; // what is longer counts as several

Status Follow(const Arguments& arguments); // Follow.cpp

} // namespace mavutil

#endif
