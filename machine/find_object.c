// _dl_find_object, which the unwinder of a GCC built for glibc calls, for a libc that has only
// dl_iterate_phdr: which loaded object contains `pc`, and where is its table of exception frames?
#define _GNU_SOURCE
#include <link.h>
#include <stddef.h>

// As glibc declares it.
struct dl_find_object {
    unsigned long long flags;
    void *start, *end;
    struct link_map* map;
    void* eh_frame;
    unsigned long long reserved[7];
};

struct query {
    ElfW(Addr) pc;
    struct dl_find_object* result;
};

// Called for each object. Returns 1 when found, -1 when found without a table, 0 to go on.
static int look(struct dl_phdr_info* info, size_t size, void* context) {
    const struct query* query = context;
    ElfW(Addr) start = 0, end = 0, eh_frame = 0;
    (void)size;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)* header = &info->dlpi_phdr[i];
        const ElfW(Addr) at = info->dlpi_addr + header->p_vaddr;
        if (header->p_type == PT_LOAD && query->pc >= at && query->pc - at < header->p_memsz)
            start = at, end = at + header->p_memsz;
        else if (header->p_type == PT_GNU_EH_FRAME)
            eh_frame = at;
    }
    if (end == 0)
        return 0;
    if (eh_frame == 0)
        return -1;
    *query->result =
        (struct dl_find_object){0, (void*)start, (void*)end, NULL, (void*)eh_frame, {0}};
    return 1;
}

__attribute__((visibility("hidden"))) int _dl_find_object(void* pc, struct dl_find_object* result) {
    struct query query = {(ElfW(Addr))pc, result};
    return dl_iterate_phdr(look, &query) == 1 ? 0 : -1;
}
