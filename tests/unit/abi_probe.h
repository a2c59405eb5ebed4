// Calls with every register under control, for the tests of generated stubs and hand-written entries (abi_probe.S).
// Each register gets a pattern of its own, so a wrong value names its source.
#pragma once

#include <cstddef>
#include <cstdint>

#include "abi/entries.h"

/// A System V call: what goes in, what comes out, and the registers a System V callee must keep.
struct SysvProbe {
  std::uint64_t gp[6];     // rdi, rsi, rdx, rcx, r8, r9
  std::uint64_t stack[4];  // the words above the return address
  std::uint64_t rax;       // al carries the variadic count
  std::uint64_t padding;
  std::uint64_t xmm[8][2];
  std::uint64_t out_rax, out_rdx;
  std::uint64_t out_xmm0[2], out_xmm1[2];
  std::uint64_t kept[6];  // rbx, rbp, r12 .. r15 after the call
};
static_assert(offsetof(SysvProbe, stack) == 48 && offsetof(SysvProbe, rax) == 80 && offsetof(SysvProbe, xmm) == 96 &&
              offsetof(SysvProbe, out_rax) == 224 && offsetof(SysvProbe, out_xmm0) == 240 &&
              offsetof(SysvProbe, kept) == 272);

/// A Windows x64 call likewise.
struct Win64Probe {
  std::uint64_t arguments[8];  // rcx, rdx, r8, r9, then stack words
  std::uint64_t xmm[4];        // low halves of xmm0 .. xmm3
  std::uint64_t out_rax, out_xmm0;
  std::uint64_t kept[8];  // rbx, rbp, rsi, rdi, r12 .. r15 after the call
  std::uint64_t kept_xmm[10][2];
};
static_assert(offsetof(Win64Probe, xmm) == 64 && offsetof(Win64Probe, out_rax) == 96 &&
              offsetof(Win64Probe, kept) == 112 && offsetof(Win64Probe, kept_xmm) == 176);

extern "C" {

/// Windows x64 functions that make the call. Their frames have unwind data and hold the patterns below meanwhile.
void sysv_probe(const void* function, SysvProbe* probe);
void win64_probe(const void* function, Win64Probe* probe);

/// What the probes put into kept registers: rbx, rbp, r12 .. r15, rsi, rdi; and xmm6 .. xmm15.
extern const std::uint64_t probe_kept[8];
extern const std::uint64_t probe_kept_xmm[10][2];

/// A game function: writes its argument registers and stack words to recorded_call, returns recorded_results in rax,
/// rdx and both halves of xmm0, and destroys every other register that System V lets it.
void record_sysv_call();
extern SysvProbe recorded_call;
extern const std::uint64_t recorded_results[4];  // rax, rdx, xmm0 low, xmm0 high

/// System V: setjmp_entry, then from a deeper frame with other register contents longjmp_entry(value). Stores rbx, rbp
/// and r12 .. r15 as they are after the second return; returns what that return gave.
SYSV std::uint64_t jump_probe(vlm::JumpBuffer* buffer, std::uint32_t value, std::uint64_t kept[6]);

}  // extern "C"
