// The one way to take frames off a stack: exceptions and reports walk with it.
#pragma once

#include <cstdint>

#include "cxx/frames.h"
#include "cxx/unwind_context.h"

namespace vlm {

/// A walk from callee to caller, over one stack. It reads the words between rsp and the stack's end only, but for what
/// Windows' own unwinder reads.
class StackWalk {
 public:
  StackWalk(const UnwindContext& start, std::uint64_t stack_end) : at_(start), stack_end_(stack_end) {}

  const UnwindContext& at() const { return at_; }
  std::uint64_t rsp() const { return at_[in_rsp]; }
  std::uint64_t rip() const { return at_[in_rip]; }

  /// Goes to the caller of a game frame. False when its registers do not lie on the stack. The caller's rsp is the
  /// frame's CFA. In the header for the sake of throwing.
  bool step(const FrameLayout& layout) {
    const std::uint64_t low = rsp();
    const std::uint64_t from = layout.from_rbp ? at_[in_rbp] : low;
    if (from < low || from > stack_end_ || layout.cfa_offset > stack_end_ - from) return false;
    // Frames of rbp are chained by constants, so that the processor takes them off while it waits for the cache.
    const std::uint64_t cfa = layout.from_rbp ? from + 16 : from + layout.cfa_offset;
    if (cfa - low < layout.deepest) return false;
    const auto restore = [&](UnwindRegister where) {
      if (layout.below_cfa[where] != 0) at_[where] = word_at(cfa - layout.below_cfa[where]);
    };
    restore(in_rbx);
    restore(in_r12);
    restore(in_r13);
    restore(in_r14);
    restore(in_r15);
    if (layout.from_rbp) {
      at_[in_rbp] = word_at(from);
    } else {
      restore(in_rbp);
    }
    at_[in_rip] = word_at(cfa - 8);
    at_[in_rsp] = cfa;
    return true;
  }

  /// Goes to the caller of a Windows frame. False at the end of the stack.
  bool step_windows();

  /// Goes to the caller of a function that has put `size` bytes on the stack since it was called, and has changed no
  /// register.
  bool step_over(std::uint64_t size);

 private:
  static std::uint64_t word_at(std::uint64_t address) { return *reinterpret_cast<const std::uint64_t*>(address); }

  UnwindContext at_;
  std::uint64_t stack_end_;
};

}  // namespace vlm
