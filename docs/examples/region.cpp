// A counter that survives restarts: a file, mapped into every process that wants it.
#include <mavkit/diag/MavTrace.h>
#include <mavkit/ipc/ShareMem.h>

#include <cstdio>
#include <cstring>

struct Table {
    char magic[8];
    unsigned int starts;
};

// The file is missing or was rejected: fill the new one, with all the bytes that the region has.
static bool Fill(std::FILE* file, void*) {
    const Table fresh = {"starts1", 0};
    return std::fwrite(&fresh, sizeof fresh, 1, file) == 1 && std::fflush(file) == 0;
}

// Is what stands in the file ours?
static bool Check(std::FILE* file, void*) {
    Table table;
    return std::fread(&table, sizeof table, 1, file) == 1 &&
           std::strcmp(table.magic, "starts1") == 0;
}

static void Start() {
    ShareMem region;
    region.Init("starts.shm", sizeof(Table), Fill, Check, nullptr);
    if (region.base == nullptr)
        return; // the general log tells why
    Table* table = reinterpret_cast<Table*>(region.base);
    std::printf("start %u\n", ++table->starts);
    region.Save(false, false); // in the file before this returns
}

int main() {
    static TraceSetting setting;
    setting.prefixOn =
        0; // the region tells on the trace channel what it does; without tag and time
    MavTrace::Setting = &setting;

    Start();
    Start();
    if (std::FILE* file = std::fopen("starts.shm", "w")) {
        std::fputs("someone else's", file); // Check() will not take this
        std::fclose(file);
    }
    Start();
}
