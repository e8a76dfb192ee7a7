// A tree walked by fts and std::filesystem; files written by cp and dd.
#include "Files.h"
#include "peers/Peers.h"

#include <filesystem>
#include <fts.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

bool Run(std::vector<const char*> arguments) {
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = -1;
    return posix_spawnp(&child, arguments[0], nullptr, nullptr,
                        const_cast<char**>(arguments.data()), environ) == 0 &&
           waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

void bench::AddSysPeers() {
    for (const TreeRow& row : TreeRows(true)) {
        const std::string root = TreeAt(row);
        AddWalk(row, "fts", [root] {
            char* const paths[] = {const_cast<char*>(root.c_str()), nullptr};
            FTS* const walk = fts_open(paths, FTS_PHYSICAL, nullptr);
            while (const FTSENT* entry = fts_read(walk)) {
                found += entry->fts_level > 0 && entry->fts_info != FTS_DP;
            }
            fts_close(walk);
        });
        AddWalk(row, "std::filesystem", [root] {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
                Use(entry.symlink_status());
                ++found;
            }
        });
    }
    for (const Size size : FileSizes(true)) {
        const long bytes = static_cast<long>(size.units);
        const std::string count = "count=" + std::to_string(bytes / 2048);
        const std::string out = "of=" + Written();
        AddCopy(size, "cp", [bytes] {
            unlink(Written().c_str());
            Run({"cp", Source(bytes).c_str(), Written().c_str()});
        });
        AddCopy(size, "dd", [bytes, out] {
            const std::string in = "if=" + Source(bytes);
            unlink(Written().c_str());
            Run({"dd", in.c_str(), out.c_str(), "bs=2048", "status=none"});
        });
        AddFill(size, "dd", [count, out] {
            unlink(Written().c_str());
            Run({"dd", "if=/dev/zero", out.c_str(), "bs=2048", count.c_str(), "status=none"});
        });
    }
}
