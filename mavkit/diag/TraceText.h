// A text that is finished already, for the trace channel.
#ifndef MAVKIT_DIAG_TRACETEXT_H
#define MAVKIT_DIAG_TRACETEXT_H

#include "mavkit/diag/MavTrace.h"

#include <string_view>

namespace mavkit {

// Does what `trace("%s", text)` does, without reading the text as often as a format makes libc do.
void TraceText(MavTrace& trace, std::string_view text);

} // namespace mavkit

#endif
