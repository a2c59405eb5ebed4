// The registers of one frame. Positions that throw_entries.S and C++ share, in bytes.
#pragma once

#define CONTEXT_RAX 0
#define CONTEXT_RDX 8
#define CONTEXT_RBX 16
#define CONTEXT_RBP 24
#define CONTEXT_RSP 32
#define CONTEXT_R12 40
#define CONTEXT_R13 48
#define CONTEXT_R14 56
#define CONTEXT_R15 64
#define CONTEXT_RIP 72
#define CONTEXT_SIZE 80

#ifndef __ASSEMBLER__
#include <cstdint>

#include "cxx/compact_unwind.h"

namespace vlm {

/// What System V callees preserve, and rax and rdx for what a landing pad is handed. rip is a return address, rsp what
/// it is after the return.
struct UnwindContext {
  std::uint64_t words[10];  // by UnwindRegister

  std::uint64_t& operator[](UnwindRegister which) { return words[which]; }
  std::uint64_t operator[](UnwindRegister which) const { return words[which]; }
};
static_assert(sizeof(UnwindContext) == CONTEXT_SIZE && 8 * in_rax == CONTEXT_RAX && 8 * in_rdx == CONTEXT_RDX &&
                  8 * in_rbx == CONTEXT_RBX && 8 * in_rbp == CONTEXT_RBP && 8 * in_rsp == CONTEXT_RSP &&
                  8 * in_r12 == CONTEXT_R12 && 8 * in_r13 == CONTEXT_R13 && 8 * in_r14 == CONTEXT_R14 &&
                  8 * in_r15 == CONTEXT_R15 && 8 * in_rip == CONTEXT_RIP,
              "throw_entries.S uses these positions");

}  // namespace vlm
#endif
