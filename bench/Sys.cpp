// A tree walked, a file filled, a file copied.
#include "Bench.h"

#include "mavkit/sys/DirScan.h"
#include "mavkit/sys/MavFile.h"

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <fts.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using bench::Size;

long found = 0;

// What a walk cannot do without: each directory opened and read to its end. Entries as getdents64
// lays them: inode and offset of 8 bytes each, length of 2, type of 1, name.
void ReadTree(int parent, const char* name) {
    const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    alignas(8) char buffer[32768];
    long length;
    while ((length = syscall(SYS_getdents64, fd, buffer, sizeof buffer)) > 0) {
        for (long at = 0; at < length;) {
            unsigned short size;
            std::memcpy(&size, buffer + at + 16, sizeof size);
            const char* entry = buffer + at + 19;
            if (std::strcmp(entry, ".") != 0 && std::strcmp(entry, "..") != 0) {
                ++found;
                if (buffer[at + 18] == DT_DIR) {
                    ReadTree(fd, entry);
                }
            }
            at += size;
        }
    }
    close(fd);
}

int Nothing(const char*, const struct stat*, int, FTW*) {
    ++found;
    return 0;
}

// `directories` directories, two deep and ten in one, of 99 files each.
std::string MakeTree(const char* name, int directories) {
    const std::string root = bench::Directory() + '/' + name;
    for (int i = 0; i < directories; ++i) {
        const std::string path =
            root + '/' + std::to_string(i / 10) + (i % 10 == 0 ? "" : '/' + std::to_string(i));
        std::filesystem::create_directories(path);
        for (int k = 0; k < 99; ++k) {
            close(open((path + "/meter" + std::to_string(k) + ".log").c_str(), O_WRONLY | O_CREAT,
                       0666));
        }
    }
    return root;
}

void AddWalk(Size size, const char* name, int directories) {
    const char* job = "tree walked";
    bench::Target(job, "peer 1.0");
    const std::string root = MakeTree(name, directories);
    const auto add = [&](const char* who, auto walk) {
        found = 0;
        walk();
        bench::Same(job, who, found, static_cast<long>(size.units));
        bench::Add(job, size, who, walk);
    };
    add("ours", [root] {
        DirScan scan(root.c_str());
        scan.Scan(
            [](int, bool, const char*, const char*, void*) {
                ++found;
                return true;
            },
            nullptr, -1);
    });
    add("floor", [root] { ReadTree(AT_FDCWD, root.c_str()); });
    add("fts", [root] {
        char* const paths[] = {const_cast<char*>(root.c_str()), nullptr};
        FTS* const walk = fts_open(paths, FTS_PHYSICAL | FTS_NOSTAT, nullptr);
        while (const FTSENT* entry = fts_read(walk)) {
            found += entry->fts_level > 0 && entry->fts_info != FTS_DP;
        }
        fts_close(walk);
    });
    add("nftw", [root] {
        --found; // it tells the root as well
        nftw(root.c_str(), Nothing, 32, FTW_PHYS);
    });
    add("std::filesystem", [root] {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            bench::Use(entry.is_directory());
            ++found;
        }
    });
}

bool Run(std::vector<const char*> arguments) {
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = -1;
    return posix_spawnp(&child, arguments[0], nullptr, nullptr,
                        const_cast<char**>(arguments.data()), environ) == 0 &&
           waitpid(child, &status, 0) == child && status == 0;
}

void AddFiles(Size size) {
    static const std::string source = bench::Directory() + "/source";
    static const std::string copy = bench::Directory() + "/copy";
    static const std::string filled = bench::Directory() + "/filled";
    const long bytes = static_cast<long>(size.units);
    const auto makeSource = [bytes] {
        if (!std::filesystem::exists(source) ||
            std::filesystem::file_size(source) != static_cast<std::uintmax_t>(bytes)) {
            const std::vector<unsigned char> data = bench::Noise(static_cast<std::size_t>(bytes));
            std::ofstream(source, std::ios::binary)
                .write(reinterpret_cast<const char*>(data.data()), bytes);
        }
    };
    const auto write2048 = [bytes](const std::string& path) {
        return [path, bytes] {
            unlink(path.c_str());
            const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
            static const char block[2048] = {};
            for (long left = bytes; left > 0; left -= 2048) {
                bench::Use(write(fd, block, sizeof block));
            }
            close(fd);
        };
    };
    const auto same = [](const char* job, const char* who, const std::string& a, long length,
                         auto expected) {
        std::ifstream file(a, std::ios::binary);
        std::string content(static_cast<std::size_t>(length) + 1, '\0');
        file.read(&content[0], length + 1);
        bench::Same(job, who, file.gcount(), static_cast<std::streamsize>(length));
        for (long i = 0; i < length; i += 97) {
            bench::Same(job, who, content[static_cast<std::size_t>(i)], expected(i));
        }
    };

    const char* job = "file copied";
    bench::Target(job, "floor 1.2");
    makeSource();
    const std::vector<unsigned char> data = bench::Noise(static_cast<std::size_t>(bytes));
    const auto addCopy = [&](const char* who, auto once) {
        unlink(copy.c_str());
        once();
        same(job, who, copy, bytes,
             [&](long i) { return static_cast<char>(data[static_cast<std::size_t>(i)]); });
        bench::Add(job, size, who, once, makeSource, true);
    };
    addCopy("ours", [] {
        bench::Use(
            MavFile::CopyFile(const_cast<char*>(source.c_str()), const_cast<char*>(copy.c_str())));
    });
    bench::Add(job, size, "floor", write2048(copy), makeSource, true);
    addCopy("cp", [] {
        unlink(copy.c_str());
        Run({"cp", source.c_str(), copy.c_str()});
    });
    static const std::string in = "if=" + source;
    static const std::string out = "of=" + copy;
    addCopy("dd", [] {
        unlink(copy.c_str());
        Run({"dd", in.c_str(), out.c_str(), "bs=2048", "status=none"});
    });

    job = "file filled";
    bench::Target(job, "floor 1.2");
    const auto addFill = [&](const char* who, auto once) {
        unlink(filled.c_str());
        once();
        same(job, who, filled, bytes, [](long) { return '\0'; });
        bench::Add(
            job, size, who, once, [] {}, true);
    };
    addFill("ours", [bytes] {
        unlink(filled.c_str());
        bench::Use(MavFile::CreateFile(filled.c_str(), bytes, 0));
    });
    addFill("floor", write2048(filled));
    static const std::string target = "of=" + filled;
    const std::string count = "count=" + std::to_string(bytes / 2048);
    addFill("dd", [count] {
        unlink(filled.c_str());
        Run({"dd", "if=/dev/zero", target.c_str(), "bs=2048", count.c_str(), "status=none"});
    });
}

} // namespace

void bench::AddSys() {
    AddWalk({"1,000 entries", 10 * 99 + 10}, "small", 10);
    AddWalk({"100,000 entries", 1000 * 100}, "large", 1000);
    AddFiles({"1 MiB", 1048576});
    AddFiles({"64 MiB", 67108864});
}
