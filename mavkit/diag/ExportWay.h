// The export ways: the name of each and what it opens.
#ifndef MAVKIT_DIAG_EXPORTWAY_H
#define MAVKIT_DIAG_EXPORTWAY_H

#include "mavkit/diag/TraceSetting.h"

namespace mavkit {

struct ExportWay {
    enum Kind : unsigned char { None, Stdout, SharedFile, OwnFile, Terminal };

    char name[TRACE_WAY_NAME_SIZE];
    Kind kind;
    char terminal[sizeof "/dev/pts/0"];
};

// A row for each code of `_EXPORT_WAY`, in their order.
inline constexpr ExportWay kExportWays[] = {
    {"None", ExportWay::None, ""},
    {"Stdout", ExportWay::Stdout, ""},
    {"Public", ExportWay::SharedFile, ""},
    {"Private", ExportWay::OwnFile, ""},
    {"ttyp0", ExportWay::Terminal, "/dev/pts/0"},
    {"ttyp1", ExportWay::Terminal, "/dev/pts/1"},
    {"ttyp2", ExportWay::Terminal, "/dev/pts/2"},
    {"ttyp3", ExportWay::Terminal, "/dev/pts/3"},
    {"ttyp4", ExportWay::Terminal, "/dev/pts/4"},
    {"ttyp5", ExportWay::Terminal, "/dev/pts/5"},
};

// Returns the way of a code; for a code outside the table, the way that opens nothing.
inline const ExportWay& FindWay(unsigned char code) {
    return kExportWays[code < sizeof kExportWays / sizeof kExportWays[0] ? code : 0];
}

} // namespace mavkit

#endif
