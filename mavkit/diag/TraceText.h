// Writes a text that needs no formatting to the trace channel.
#ifndef MAVKIT_DIAG_TRACETEXT_H
#define MAVKIT_DIAG_TRACETEXT_H

#include "mavkit/diag/MavTrace.h"

#include <string_view>

namespace mavkit {

// Does what `trace("%s", text)` does, but reads the text fewer times than libc does for a format.
void TraceText(MavTrace& trace, std::string_view text);

} // namespace mavkit

#endif
