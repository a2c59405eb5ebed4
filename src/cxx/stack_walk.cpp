#include "cxx/stack_walk.h"

#include <windows.h>

namespace vlm {
namespace {

std::uint64_t word_at(std::uint64_t address) { return *reinterpret_cast<const std::uint64_t*>(address); }

}  // namespace

bool StackWalk::step(const FrameShape& frame) {
  if (!frame.supported) return false;
  const FrameLayout& layout = frame.layout;
  const std::uint64_t from = at_[layout.from_rbp ? in_rbp : in_rsp];
  if (from < rsp() || from > stack_end_ || layout.cfa_offset > stack_end_ - from) return false;
  const std::uint64_t cfa = from + layout.cfa_offset;
  const std::uint64_t low = rsp();
  for (unsigned i = 0; i < layout.saved_count; ++i) {
    const auto [where, below_cfa] = layout.saved[i];
    const std::uint64_t place = cfa - below_cfa;
    if (place < low) return false;
    at_[where] = word_at(place);
  }
  at_[in_rip] = word_at(cfa - 8);
  at_[in_rsp] = cfa;
  return true;
}

bool StackWalk::step_over(std::uint64_t size) {
  if (rsp() > stack_end_ || stack_end_ - rsp() < size + 8) return false;
  at_[in_rip] = word_at(rsp() + size);
  at_[in_rsp] = rsp() + size + 8;
  return true;
}

bool StackWalk::step_windows() {
  CONTEXT context{};
  context.Rip = rip();
  context.Rsp = rsp();
  context.Rbp = at_[in_rbp];
  context.Rbx = at_[in_rbx];
  context.R12 = at_[in_r12];
  context.R13 = at_[in_r13];
  context.R14 = at_[in_r14];
  context.R15 = at_[in_r15];
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
  at_[in_rip] = context.Rip;
  at_[in_rsp] = context.Rsp;
  at_[in_rbp] = context.Rbp;
  at_[in_rbx] = context.Rbx;
  at_[in_r12] = context.R12;
  at_[in_r13] = context.R13;
  at_[in_r14] = context.R14;
  at_[in_r15] = context.R15;
  return true;
}

}  // namespace vlm
