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

  /// Goes to the caller of a game frame. False when the frame cannot be taken off: an encoding that does not say how,
  /// or registers that do not lie on the stack. The caller's rsp is the frame's CFA.
  bool step(const FrameShape& frame);

  /// Goes to the caller of a Windows frame. False at the end of the stack.
  bool step_windows();

  /// Goes to the caller of a function that has put `size` bytes on the stack since it was called, and has changed no
  /// register.
  bool step_over(std::uint64_t size);

 private:
  UnwindContext at_;
  std::uint64_t stack_end_;
};

}  // namespace vlm
