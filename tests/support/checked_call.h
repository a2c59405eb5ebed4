// Calls that have to keep the registers which their convention says.
#pragma once

#include <doctest/doctest.h>

#include <string>

#include "support/machine.h"

namespace vlm::test {

inline constexpr Register sysv_arguments[] = {rdi, rsi, rdx, rcx, r8, r9};
inline constexpr Register win64_arguments[] = {rcx, rdx, r8, r9};

/// Names of the registers that a callee had to keep and did not: "rbx xmm7 ".
inline std::string lost_registers(const Machine& before, const Machine& after, bool win64) {
  std::string lost;
  for (const Register each : {rbx, rbp, r12, r13, r14, r15, rsi, rdi}) {
    const bool kept = win64 || (each != rsi && each != rdi);
    if (kept && before.registers[each] != after.registers[each]) lost += std::string(register_names[each]) + " ";
  }
  for (unsigned i = 6; win64 && i < 16; ++i) {
    const bool same = before.vectors[i][0] == after.vectors[i][0] && before.vectors[i][1] == after.vectors[i][1];
    if (!same) lost += "xmm" + std::to_string(i) + " ";
  }
  return lost;
}

/// Calls machine code of one of the two conventions, with chosen registers; what they are afterwards.
template <class Code>
Machine call_code(Code* code, const Machine& before, bool win64) {
  Machine machine = before;
  run_machine(&machine, reinterpret_cast<const void*>(code));
  CHECK_EQ(lost_registers(before, machine, win64), "");
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
