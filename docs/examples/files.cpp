// A configuration file, a copy of it, and a look at the directory.
#include <mavkit/sys/DirScan.h>
#include <mavkit/sys/MavFile.h>
#include <mavkit/sys/Query.h>

#include <cstdio>
#include <set>
#include <string>
#include <unistd.h>

// Directories are listed in no particular order, so the names are collected first.
static bool AddName(int, bool isDirectory, const char*, const char* name, void* context) {
    if (!isDirectory)
        static_cast<std::set<std::string>*>(context)->insert(name);
    return true; // go on
}

int main() {
    std::FILE* file = MavFile::OpenFile("terminal.conf", "w"); // warns when descriptors run high
    if (file == nullptr)
        return 1;
    std::fputs("level=Info\nqueue=M\n", file);
    std::fclose(file);

    char conf[] = "terminal.conf", copy[] = "terminal.old", key[] = "queue", value[511];
    if (MavFile::SetFileRead(conf, key, value) == 0)
        std::printf("queue is %s\n", value);
    std::printf("copied: %d\n", MavFile::CopyFile(conf, copy));
    std::printf("a card's worth of zeros: %d\n", MavFile::CreateFile("empty.bin", 4096, 0));

    std::set<std::string> names;
    DirScan(".").Scan(AddName, &names, 0); // 0: this directory only
    for (const std::string& name : names)
        std::printf("  %s\n", name.c_str());

    std::printf("am I running: %d\n", IsProcessRunning(getpid(), nullptr));
}
