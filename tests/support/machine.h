// Calls with every register under control (machine.S): what goes in is chosen, what comes out is seen. Each register
// has a pattern of its own, so a wrong value names its source.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm::test {

enum Register : unsigned { rax, rcx, rdx, rbx, rbp, rsi, rdi, r8, r9, r10, r11, r12, r13, r14, r15 };
inline constexpr unsigned register_count = 15;
inline constexpr const char* register_names[] = {"rax", "rcx", "rdx", "rbx", "rbp", "rsi", "rdi", "r8",
                                                 "r9",  "r10", "r11", "r12", "r13", "r14", "r15", "flags"};

/// What a function starts with, then what it leaves behind.
struct Machine {
  std::uint64_t registers[register_count];
  std::uint64_t flags;
  std::uint64_t vectors[16][4];  // the upper two words of each only with AVX
  std::uint64_t red_zone[16];    // the last word is right below the return address
  std::uint64_t return_address;  // ignored at the start
  std::uint64_t stack[8];        // above the return address: four words of shadow space, then arguments, on Windows
};
static_assert(offsetof(Machine, flags) == 120 && offsetof(Machine, vectors) == 128 &&
                  offsetof(Machine, red_zone) == 640 && sizeof(Machine) == 640 + 8 * 25,
              "machine.S uses these positions");

inline Machine patterned_machine() {
  Machine machine = {};
  for (unsigned i = 0; i < register_count; ++i) machine.registers[i] = 0x6700'0000'0000'0000 + i;
  for (unsigned i = 0; i < 64; ++i) machine.vectors[i / 4][i % 4] = 0xF100'0000'0000'0000 + i;
  for (unsigned i = 0; i < 16; ++i) machine.red_zone[i] = 0xDEAD'0000'0000 + i;
  for (unsigned i = 0; i < 8; ++i) machine.stack[i] = 0xBEEF'0000'0000 + i;
  return machine;
}

extern "C" {

/// Calls a function with these registers, flags, red zone and stack. The frame has unwind data.
void run_machine(Machine* machine, const void* code, bool with_avx = false);

/// A System V function: notes in recorded_call what it was called with (registers, vectors, stack), returns
/// recorded_results in rax, rdx and both halves of xmm0, and destroys every other register that it may.
void record_sysv_call();
extern Machine recorded_call;
extern const std::uint64_t recorded_results[4];

}  // extern "C"

}  // namespace vlm::test
