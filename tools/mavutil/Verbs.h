// The tables of the command line: a verb is one row, and each of its operations is one row. The
// help, the man page and the completion are made from them.
#ifndef MAVKIT_TOOLS_MAVUTIL_VERBS_H
#define MAVKIT_TOOLS_MAVUTIL_VERBS_H

#include "Console.h"

namespace mavutil {

// What follows an operation on the command line.
struct Arguments {
    char** words;      // up to a null pointer
    int count;         // of them
    bool json;         // --json
    const char* text;  // TEXT of -g, or null
    const char* last;  // N of -n, or null
    const char* since; // TIME of --since, or null

    // One of them; null when it is left out.
    char* operator[](int i) const { return i < count ? words[i] : nullptr; }
};

constexpr short kAnyNumber = 0x7FFF;

struct Operation {
    const char* name;      // "" when the verb has this one only
    const char* options;   // letters of those that it takes: j --json, n -n, s --since, g -g
    const char* arguments; // as the usage shows them
    short least, most;     // how many
    const char* text;      // what it does
    Status (*run)(const Arguments& arguments);
};

struct Verb {
    const char* name;
    const char* summary;
    const Operation* operations;
    unsigned count;
    const char* notes; // what the arguments mean, then examples, which are indented

    template <unsigned Count>
    constexpr Verb(const char* itsName, const char* itsSummary, const Operation (&rows)[Count],
                   const char* itsNotes)
        : name(itsName), summary(itsSummary), operations(rows), count(Count), notes(itsNotes) {}
    const Operation* begin() const { return operations; }
    const Operation* end() const { return operations + count; }
};

extern const Verb kQueue; // Queues.cpp
extern const Verb kTrace; // Logs.cpp
extern const Verb kTime;  // Values.cpp
extern const Verb kMask;
extern const Verb kRecord;
extern const Verb kHex; // Files.cpp
extern const Verb kCrc;
extern const Verb kScan;
extern const Verb kShm;

} // namespace mavutil

#endif
