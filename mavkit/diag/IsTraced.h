// A check to make before formatting a message whose text is expensive to build.
#ifndef MAVKIT_DIAG_ISTRACED_H
#define MAVKIT_DIAG_ISTRACED_H

namespace mavkit {

// Whether MavTrace(level, flags) would write a message now: false when no channel takes it, or when
// every channel that takes it has a way that writes nothing. Nothing is opened for this check.
bool IsTraced(int level, unsigned int flags);

} // namespace mavkit

#endif
