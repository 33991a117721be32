// A plugin for QEMU's user mode: counts the instructions that a program for 64-bit Arm executes,
// and how many of them work on vectors. Prints both whenever the program makes a mark, which is a
// call of a system call that does not exist (countMark.h).
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "countMark.h"

// The few functions that are needed of the interface, version 1; Debian has no header for it.
extern "C" {
using PluginId = std::uint64_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
constexpr int addToCounter = 0;
using Argument = std::uint64_t;

std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* block);
qemu_plugin_insn* qemu_plugin_tb_get_insn(const qemu_plugin_tb* block, std::size_t index);
const void* qemu_plugin_insn_data(const qemu_plugin_insn* instruction);
void qemu_plugin_register_vcpu_tb_trans_cb(PluginId id,
                                           void (*callback)(PluginId, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(qemu_plugin_tb* block, int operation, void* counter,
                                              std::uint64_t amount);
void qemu_plugin_register_vcpu_syscall_cb(PluginId id,
                                          void (*callback)(PluginId, unsigned processor,
                                                           std::int64_t number, Argument, Argument,
                                                           Argument, Argument, Argument, Argument,
                                                           Argument, Argument));
void qemu_plugin_outs(const char* text);

[[gnu::visibility("default")]] int qemu_plugin_version = 1;
[[gnu::visibility("default")]] int qemu_plugin_install(PluginId id, const void* info, int count,
                                                       char** options);
}

namespace {

std::uint64_t executed = 0;
std::uint64_t executedOnVectors = 0;

// The group of the instruction set in which every operation on whole vector registers lies; scalar
// floating point, loads and stores do not.
bool isVectorOperation(std::uint32_t instruction) {
    return (instruction & 0x9E000000U) == 0x0E000000U;
}

void countBlock(PluginId /*id*/, qemu_plugin_tb* block) {
    const std::size_t size = qemu_plugin_tb_n_insns(block);
    std::uint64_t onVectors = 0;
    for (std::size_t i = 0; i < size; ++i) {
        std::uint32_t instruction;
        std::memcpy(&instruction, qemu_plugin_insn_data(qemu_plugin_tb_get_insn(block, i)),
                    sizeof instruction);
        onVectors += isVectorOperation(instruction) ? 1 : 0;
    }
    qemu_plugin_register_vcpu_tb_exec_inline(block, addToCounter, &executed, size);
    qemu_plugin_register_vcpu_tb_exec_inline(block, addToCounter, &executedOnVectors, onVectors);
}

void onSystemCall(PluginId /*id*/, unsigned /*processor*/, std::int64_t number, Argument row,
                  Argument way, Argument repetitions, Argument /*3*/, Argument /*4*/,
                  Argument /*5*/, Argument /*6*/, Argument /*7*/) {
    if (number == calcut::bench::markCall) {
        char line[128];
        static_cast<void>(std::snprintf(
            line, sizeof line, "mark %" PRIu64 " %" PRIu64 " %" PRIu64 " %" PRIu64 " %" PRIu64 "\n",
            row, way, repetitions, executed, executedOnVectors));
        qemu_plugin_outs(line);
    }
}

}  // namespace

int qemu_plugin_install(PluginId id, const void* /*info*/, int /*count*/, char** /*options*/) {
    qemu_plugin_register_vcpu_tb_trans_cb(id, countBlock);
    qemu_plugin_register_vcpu_syscall_cb(id, onSystemCall);
    return 0;
}
