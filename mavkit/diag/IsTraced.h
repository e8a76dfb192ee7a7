// Asked before a message is rendered whose text is expensive to make.
#ifndef MAVKIT_DIAG_ISTRACED_H
#define MAVKIT_DIAG_ISTRACED_H

namespace mavkit {

// Whether MavTrace(level, flags) would write a message now: false when no channel takes it, or when
// every channel that takes it has a way that leads nowhere. Nothing is opened to find out.
bool IsTraced(int level, unsigned int flags);

} // namespace mavkit

#endif
