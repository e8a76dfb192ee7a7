// The lines that the logs' jobs write: message texts, files and sizes. The peers use the same ones.
#ifndef MAVKIT_BENCH_LINES_H
#define MAVKIT_BENCH_LINES_H

#include "Bench.h"

namespace bench {

// A line of one of the logs, and the printf form of its time stamp.
struct Line {
    const char* job;
    Size size;
    std::string path;
    std::string text; // what follows the fixed part of the message
    const char* stamp;
    std::function<void()> ours;
};

// Where the file of the trace channel is in the benchmark; the path does not change while the
// program runs.
const std::string& TracePath();

// Writes a line with only the system calls that are needed in any case; only the trace channel has
// to know how long its file is (`limited`).
void WriteLine(const std::string& path, const std::string& line, bool limited);

// The jobs with lines, in the table's order.
const std::vector<Line>& Lines();

// An empty file at `path`, and what a file contains.
void Empty(const std::string& path);
std::string Content(const std::string& path);

// The arguments of every message.
constexpr char kMeter[] = "kitchen";
extern volatile int watts;

// Checks that `other` writes to the line's file what ours writes.
void SameLine(const Line& line, const char* who, const std::function<void()>& other);

} // namespace bench

#endif
