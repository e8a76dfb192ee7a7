// A plugin of qemu-user that counts the instructions and system calls of a program between its
// marks, and writes a line with both at the end of each pair of marks. The parts of the plugins'
// header that Debian's package does not have are declared here.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

struct qemu_plugin_tb;
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id,
                                           void (*call)(uint64_t id, struct qemu_plugin_tb* tb));
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* tb,
                                          void (*call)(unsigned int cpu, void* data), int flags,
                                          void* data);
void qemu_plugin_register_vcpu_syscall_cb(uint64_t id,
                                          void (*call)(uint64_t id, unsigned int cpu,
                                                       int64_t number, uint64_t a1, uint64_t a2,
                                                       uint64_t a3, uint64_t a4, uint64_t a5,
                                                       uint64_t a6, uint64_t a7, uint64_t a8));

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static const uint64_t kMark = 0x4D61726B;
static uint64_t instructions;
static uint64_t calls;
static int between;

// A block of code runs to its end once it has begun: interrupts are checked before it.
static void Executed(unsigned int cpu, void* data) {
    (void)cpu;
    instructions += (uintptr_t)data;
}

static void Translated(uint64_t id, struct qemu_plugin_tb* tb) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(tb, Executed, 0, (void*)qemu_plugin_tb_n_insns(tb));
}

static void Called(uint64_t id, unsigned int cpu, int64_t number, uint64_t a1, uint64_t a2,
                   uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8) {
    (void)id, (void)cpu, (void)number, (void)a2, (void)a3, (void)a4, (void)a5, (void)a6, (void)a7,
        (void)a8;
    if (a1 != kMark) {
        ++calls;
        return;
    }
    if (between)
        fprintf(stderr, "%llu %llu\n", (unsigned long long)instructions, (unsigned long long)calls);
    between = !between;
    instructions = calls = 0;
}

__attribute__((visibility("default"))) int qemu_plugin_install(uint64_t id, const void* info,
                                                               int argc, char** argv) {
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, Translated);
    qemu_plugin_register_vcpu_syscall_cb(id, Called);
    return 0;
}
