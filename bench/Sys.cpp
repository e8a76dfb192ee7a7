// A tree walked, a file filled, a file copied.
#include "Files.h"

#include "mavkit/sys/DirScan.h"
#include "mavkit/sys/MavFile.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

long bench::found = 0;

std::vector<bench::TreeRow> bench::TreeRows(bool large) {
    std::vector<TreeRow> rows = {{{"1,000 entries", 10 * 99 + 10}, 10}};
    if (large) {
        rows.push_back({{"100,000 entries", 1000 * 100}, 1000});
    }
    return rows;
}

std::vector<bench::Size> bench::FileSizes(bool large) {
    std::vector<Size> sizes = {{"1 MiB", 1048576}};
    if (large) {
        sizes.push_back({"64 MiB", 67108864});
    }
    return sizes;
}

std::string bench::TreeAt(const TreeRow& row) {
    const std::string root = Directory() + "/tree" + std::to_string(row.directories);
    if (std::filesystem::exists(root)) {
        return root;
    }
    for (int i = 0; i < row.directories; ++i) {
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

void bench::AddWalk(const TreeRow& row, const char* who, const std::function<void()>& walk) {
    found = 0;
    walk();
    Same("tree walked", who, found, static_cast<long>(row.size.units));
    Add("tree walked", row.size, who, walk);
}

const std::string& bench::Source(long bytes) {
    static const std::string path = Directory() + "/source";
    if (!std::filesystem::exists(path) ||
        std::filesystem::file_size(path) != static_cast<std::uintmax_t>(bytes)) {
        const std::vector<unsigned char> data = Noise(static_cast<std::size_t>(bytes));
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(data.data()), bytes);
    }
    return path;
}

const std::string& bench::Written() {
    static const std::string path = Directory() + "/written";
    return path;
}

namespace {

using bench::Size;
using bench::Written;

// What every walk needs: each directory opened and read to its end, and each entry examined at the
// moment when it is reported. An entry of getdents64 is: inode and offset of 8 bytes each, length
// of 2, type of 1, name.
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
                struct stat status = {};
                fstatat(fd, entry, &status, AT_SYMLINK_NOFOLLOW);
                ++bench::found;
                if (S_ISDIR(status.st_mode)) {
                    ReadTree(fd, entry);
                }
            }
            at += size;
        }
    }
    close(fd);
}

int Nothing(const char*, const struct stat*, int, FTW*) {
    ++bench::found;
    return 0;
}

void AddTree(const bench::TreeRow& row) {
    bench::Targets()["tree walked"] = "peer 1.0";
    const std::string root = bench::TreeAt(row);
    bench::AddWalk(row, "ours", [root] {
        DirScan scan(root.c_str());
        scan.Scan(
            [](int, bool, const char*, const char*, void*) {
                ++bench::found;
                return true;
            },
            nullptr, -1);
    });
    bench::AddWalk(row, "floor", [root] { ReadTree(AT_FDCWD, root.c_str()); });
    bench::AddWalk(row, "nftw", [root] {
        --bench::found; // it reports the root as well
        nftw(root.c_str(), Nothing, 32, FTW_PHYS);
    });
}

void WriteBlocks(long bytes) {
    unlink(Written().c_str());
    const int fd = open(Written().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
    static const char block[2048] = {};
    for (long left = bytes; left > 0; left -= 2048) {
        bench::Use(write(fd, block, sizeof block));
    }
    close(fd);
}

// Adds a way to write a file; `once` is tried first, and every 97th byte of its file is compared.
void AddFile(const char* job, Size size, const char* who, const std::function<void()>& once,
             const std::vector<unsigned char>& expected) {
    unlink(Written().c_str());
    const long bytes = static_cast<long>(size.units);
    bench::Source(bytes);
    once();
    std::ifstream file(Written(), std::ios::binary);
    std::string content(expected.size() + 1, '\0');
    file.read(&content[0], bytes + 1);
    bench::Same(job, who, file.gcount(), static_cast<std::streamsize>(bytes));
    for (std::size_t i = 0; i < expected.size(); i += 97) {
        bench::Same(job, who, content[i], static_cast<char>(expected[i]));
    }
    bench::Add(
        job, size, who, once, [bytes] { bench::Source(bytes); }, true);
}

} // namespace

void bench::AddCopy(Size size, const char* who, const std::function<void()>& once) {
    AddFile("file copied", size, who, once, Noise(static_cast<std::size_t>(size.units)));
}

void bench::AddFill(Size size, const char* who, const std::function<void()>& once) {
    AddFile("file filled", size, who, once,
            std::vector<unsigned char>(static_cast<std::size_t>(size.units)));
}

void bench::AddSys(bool large) {
    for (const TreeRow& row : TreeRows(large)) {
        AddTree(row);
    }
    Targets()["file copied"] = "floor 1.2";
    Targets()["file filled"] = "floor 1.2";
    for (const Size size : FileSizes(large)) {
        const long bytes = static_cast<long>(size.units);
        AddCopy(size, "ours", [bytes] {
            Use(MavFile::CopyFile(const_cast<char*>(Source(bytes).c_str()),
                                  const_cast<char*>(Written().c_str())));
        });
        Add(
            "file copied", size, "floor", [bytes] { WriteBlocks(bytes); }, [] {}, true);
        AddFill(size, "ours", [bytes] {
            unlink(Written().c_str());
            Use(MavFile::CreateFile(Written().c_str(), bytes, 0));
        });
        AddFill(size, "floor", [bytes] { WriteBlocks(bytes); });
    }
}
