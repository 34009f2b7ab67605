// A plug-in for qemu's user-mode emulators: counts the instructions that a program executes, by the
// address of the basic block that they are in, between the marks of lockstep.h.
// Usage: qemu-ARCHITECTURE -plugin count_instructions.so,out=FILE PROGRAM ...
// Writes a line "ADDRESS INSTRUCTIONS INSTRUCTIONS-AT-FRAME-ENDS" for each block when counting ends.
// Blocks that other threads execute meanwhile are counted too.
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "lockstep.h"

// The little of the emulator's plug-in interface, version 1, that is used here.
extern "C" {
struct qemu_plugin_tb;  // a basic block that is being translated
void qemu_plugin_register_vcpu_tb_trans_cb(std::uint64_t id, void (*call)(std::uint64_t, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(qemu_plugin_tb* block, int operation, void* counter,
                                              std::uint64_t addend);
std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* block);
std::uint64_t qemu_plugin_tb_vaddr(const qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_syscall_cb(std::uint64_t id,
                                          void (*call)(std::uint64_t, unsigned, std::int64_t, std::uint64_t,
                                                       std::uint64_t, std::uint64_t, std::uint64_t,
                                                       std::uint64_t, std::uint64_t, std::uint64_t,
                                                       std::uint64_t));
__attribute__((visibility("default"))) int qemu_plugin_version = 1;
}

namespace {

constexpr int inline_add_64 = 0;

struct Block {
    std::uint64_t count;  // from the program's start
    std::uint64_t before, total, at_frame_end_before, at_frame_ends;
};

std::mutex mutex;                                        // translation happens in the emulated threads
std::map<std::uint64_t, std::unique_ptr<Block>> blocks;  // by address
std::string file;

void on_translation(std::uint64_t, qemu_plugin_tb* block) {
    const std::lock_guard<std::mutex> lock(mutex);
    auto& known = blocks[qemu_plugin_tb_vaddr(block)];
    if (!known) known = std::make_unique<Block>();
    qemu_plugin_register_vcpu_tb_exec_inline(block, inline_add_64, &known->count,
                                             qemu_plugin_tb_n_insns(block));
}

void write_counts() {
    std::FILE* const out = std::fopen(file.c_str(), "w");
    if (out == nullptr) return std::perror(file.c_str());
    for (const auto& [address, block] : blocks)
        if (block->total != 0)
            std::fprintf(out, "%llx %llu %llu\n", static_cast<unsigned long long>(address),
                         static_cast<unsigned long long>(block->total),
                         static_cast<unsigned long long>(block->at_frame_ends));
    std::fclose(out);
}

void on_mark(std::uint32_t mark) {
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto& [address, block] : blocks) {
        if (mark == lockstep::counting_begins) {
            block->before = block->count;
            block->at_frame_ends = 0;
        }
        if (mark == lockstep::counting_ends) block->total = block->count - block->before;
        if (mark == lockstep::frame_end_begins) block->at_frame_end_before = block->count;
        if (mark == lockstep::frame_end_ends)
            block->at_frame_ends += block->count - block->at_frame_end_before;
    }
    if (mark == lockstep::counting_ends) write_counts();
}

void on_system_call(std::uint64_t, unsigned, std::int64_t, std::uint64_t first, std::uint64_t, std::uint64_t,
                    std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t) {
    const auto mark = static_cast<std::uint32_t>(first);
    if (first <= UINT32_MAX && mark >= lockstep::counting_begins && mark <= lockstep::frame_end_ends)
        on_mark(mark);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int qemu_plugin_install(std::uint64_t id, const void*,
                                                                          int count, char** values) {
    if (count != 1 || std::strncmp(values[0], "out=", 4) != 0) return 1;
    file = values[0] + 4;
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translation);
    qemu_plugin_register_vcpu_syscall_cb(id, on_system_call);
    return 0;
}
