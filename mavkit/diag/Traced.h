// Whether a message would be traced, asked before its text is built. Private to the library.
#ifndef MAVKIT_DIAG_TRACED_H
#define MAVKIT_DIAG_TRACED_H

#include "mavkit/diag/MavTrace.h"

namespace mavkit {

// Returns whether a message of this level without channel flags has somewhere to go.
inline bool IsTraced(int level) {
    const TraceSetting& setting = MavTrace(level, 0).GetSetting();
    return level <= setting.level && setting.traceWay != WAY_NONE;
}

} // namespace mavkit

#endif
