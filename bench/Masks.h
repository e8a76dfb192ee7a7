// The sets of bits for the jobs. The peers use the same ones.
#ifndef MAVKIT_BENCH_MASKS_H
#define MAVKIT_BENCH_MASKS_H

#include "Bench.h"

#include "mavkit/encoding/BitMask.h"

namespace bench {

struct MaskRow {
    Size size;
    std::size_t bits;
    bool dense;
};

// The sets of every job but the next.
std::vector<MaskRow> MaskRows(bool large);

// Those that have one range set.
std::vector<MaskRow> RangeRows(bool large);

// Calls `setRun(first, last)` for the runs of a set of `count` bits. Sparse: single bits and short
// runs, far apart. Dense: runs of about ten bits with gaps as long. The last bit is always set.
void ForRuns(std::size_t count, bool dense,
             const std::function<void(unsigned int, unsigned int)>& setRun);

// A set of ours.
BitMask MakeMask(const MaskRow& row);

} // namespace bench

#endif
