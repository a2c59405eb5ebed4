// Calls that have to keep the registers which their convention says.
#pragma once

#include <doctest/doctest.h>

#include <cstring>
#include <string>

#include "support/machine.h"

namespace vlm::test {

inline constexpr Register sysv_arguments[] = {rdi, rsi, rdx, rcx, r8, r9};
inline constexpr Register win64_arguments[] = {rcx, rdx, r8, r9};

/// Calls machine code of one of the two conventions, with chosen registers; what they are afterwards.
template <class Code>
Machine call_code(Code* code, const Machine& before, bool win64) {
  Machine machine = before;
  run_machine(&machine, reinterpret_cast<const void*>(code));
  std::string lost;  // "rbx xmm7 "
  for (const Register each : {rbx, rbp, r12, r13, r14, r15, rsi, rdi}) {
    const bool kept = win64 || (each != rsi && each != rdi);
    if (kept && before.registers[each] != machine.registers[each]) lost += register_names[each] + std::string(" ");
  }
  for (unsigned i = 6; win64 && i < 16; ++i) {
    if (std::memcmp(before.vectors[i], machine.vectors[i], 16) != 0) lost += "xmm" + std::to_string(i) + " ";
  }
  CHECK_EQ(lost, "");
  return machine;
}
template <class Code>
Machine call_sysv_code(Code* code, const Machine& before = patterned_machine()) {
  return call_code(code, before, false);
}
template <class Code>
Machine call_win64_code(Code* code, const Machine& before = patterned_machine()) {
  return call_code(code, before, true);
}

}  // namespace vlm::test
