#include "cxx/stack_walk.h"

#include <windows.h>

namespace vlm {
namespace {

/// The registers that a Windows frame keeps for its caller, as far as game code keeps them too.
constexpr struct {
  UnwindRegister ours;
  DWORD64 CONTEXT::* windows;
} registers_of_windows[] = {{in_rip, &CONTEXT::Rip}, {in_rsp, &CONTEXT::Rsp}, {in_rbp, &CONTEXT::Rbp},
                            {in_rbx, &CONTEXT::Rbx}, {in_r12, &CONTEXT::R12}, {in_r13, &CONTEXT::R13},
                            {in_r14, &CONTEXT::R14}, {in_r15, &CONTEXT::R15}};

}  // namespace

bool StackWalk::step_over(std::uint64_t size) {
  if (rsp() > stack_end_ || stack_end_ - rsp() < size + 8) return false;
  at_[in_rip] = word_at(rsp() + size);
  at_[in_rsp] = rsp() + size + 8;
  return true;
}

bool StackWalk::step_windows() {
  CONTEXT context{};
  for (const auto& [ours, windows] : registers_of_windows) context.*windows = at_[ours];
  DWORD64 image_base;
  HMODULE module;
  if (PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &image_base, nullptr)) {
    void* handler_data;
    DWORD64 establisher;
    RtlVirtualUnwind(UNW_FLAG_NHANDLER, image_base, context.Rip, function, &context, &handler_data, &establisher,
                     nullptr);
  } else if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                reinterpret_cast<const wchar_t*>(context.Rip), &module) &&
             stack_end_ - context.Rsp >= 8) {
    context.Rip = word_at(context.Rsp);  // a leaf function: Windows has no entry for it
    context.Rsp += 8;
  } else {
    return false;
  }
  if (context.Rip == 0 || context.Rsp <= rsp() || context.Rsp > stack_end_) return false;
  for (const auto& [ours, windows] : registers_of_windows) at_[ours] = context.*windows;
  return true;
}

}  // namespace vlm
