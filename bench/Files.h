// The trees that are walked and the files that are written. The peers use the same ones.
#ifndef MAVKIT_BENCH_FILES_H
#define MAVKIT_BENCH_FILES_H

#include "Bench.h"

namespace bench {

// A tree: so many directories, two deep and ten in one, of 99 files each.
struct TreeRow {
    Size size;
    int directories;
};

std::vector<TreeRow> TreeRows(bool large);

// The lengths of files.
std::vector<Size> FileSizes(bool large);

// Where the tree of a row is; made by the first call.
std::string TreeAt(const TreeRow& row);

// Adds one way to walk a tree; `walk` adds the entries below the root to `found`.
extern long found;
void AddWalk(const TreeRow& row, const char* who, const std::function<void()>& walk);

// The file that is copied; made anew, of random bytes, when it has another length.
const std::string& Source(long bytes);

// The file that is written.
const std::string& Written();

// Adds one way to copy Source() to Written(), or to fill Written() with zeros.
void AddCopy(Size size, const char* who, const std::function<void()>& once);
void AddFill(Size size, const char* who, const std::function<void()>& once);

} // namespace bench

#endif
