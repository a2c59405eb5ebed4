#include "cxx/unwinder.h"

#include <windows.h>

#include <algorithm>

#include "binding/shim_table.h"
#include "cxx/frames.h"
#include "cxx/type_matching.h"
#include "diag/log.h"
#include "support/pages.h"

extern "C" [[noreturn]] void resume_context(const vlm::UnwindContext* context);  // throw_entries.S

namespace vlm {
namespace {

constexpr int max_frames = 4096;

/// The registers that a Windows frame keeps for its caller, as far as game code keeps them too.
constexpr struct {
  UnwindRegister ours;
  DWORD64 CONTEXT::* windows;
} registers_of_windows[] = {{in_rip, &CONTEXT::Rip}, {in_rsp, &CONTEXT::Rsp}, {in_rbp, &CONTEXT::Rbp},
                            {in_rbx, &CONTEXT::Rbx}, {in_r12, &CONTEXT::R12}, {in_r13, &CONTEXT::R13},
                            {in_r14, &CONTEXT::R14}, {in_r15, &CONTEXT::R15}};

[[noreturn]] void report_uncaught(const ExceptionHeader& exception) {
  const char* name = type_name(exception.exception_type);
  if (name == nullptr) {
    const char* symbol = missing_symbol_name(reinterpret_cast<const void*>(exception.exception_type));
    if (symbol != nullptr) log_message(0, "[eh] the exception's type is the import %s", symbol);
  }
  fatal_error("uncaught C++ exception of type %s", name != nullptr ? name : "?");
}

std::uint64_t word_at(std::uint64_t address) { return *reinterpret_cast<const std::uint64_t*>(address); }

/// Where the memory of the stack that `rsp` is on ends: the thread's own stack, or one that the game has made.
std::uint64_t end_of_stack(std::uint64_t rsp) {
  const auto& thread = *reinterpret_cast<const NT_TIB*>(NtCurrentTeb());
  const auto low = reinterpret_cast<std::uint64_t>(thread.StackLimit);
  const auto end = reinterpret_cast<std::uint64_t>(thread.StackBase);
  if (rsp >= low && rsp < end) return end;
  return std::max(rsp, end_of(region_at(rsp)));
}

/// A walk from callee to caller, over one stack.
class StackWalk {
 public:
  explicit StackWalk(const UnwindContext& start) : at_(start), stack_end_(end_of_stack(start[in_rsp])) {}

  const UnwindContext& at() const { return at_; }
  std::uint64_t rsp() const { return at_[in_rsp]; }
  std::uint64_t rip() const { return at_[in_rip]; }

  /// Goes to the caller of a game frame. False when the frame cannot be taken off: an encoding that does not say how,
  /// which is logged, or registers that do not lie on the stack. The caller's rsp is the frame's CFA.
  bool step(const Frame& frame) {
    if (!frame.supported) {
      log_message(0, "[eh] unsupported unwind encoding 0x%08x at %p", frame.encoding,
                  reinterpret_cast<void*>(frame.function));
      return false;
    }
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

  /// Goes to the caller of a Windows frame. False at the end of the stack.
  bool step_windows() {
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

 private:
  UnwindContext at_;
  std::uint64_t stack_end_;
};

struct Handler {
  std::int64_t selector;
  std::uint64_t value;  // what it receives
};

std::optional<Handler> find_handler(const Frame& frame, const ExceptionHeader& exception) {
  for (std::uint32_t i = 0; i < frame.clause_count; ++i) {
    const CatchClause& clause = frame.clauses[i];
    if (const auto value = match_type(clause.type, exception.exception_type, exception.unwind_header.thrown_value)) {
      return Handler{clause.selector, *value};
    }
  }
  return std::nullopt;
}

[[noreturn]] void enter(const Frame& frame, UnwindContext context, ExceptionHeader& exception, std::int64_t selector) {
  context[in_rax] = reinterpret_cast<std::uint64_t>(&exception.unwind_header);
  context[in_rdx] = static_cast<std::uint64_t>(selector);
  context[in_rip] = frame.landing_pad;
  resume_context(&context);
}

[[noreturn]] void enter_handler(const Frame& frame, const UnwindContext& context, ExceptionHeader& exception,
                                const Handler& handler) {
  exception.handler_switch_value = handler.selector;
  exception.unwind_header.handler_value = handler.value;
  if (handler.value != exception.unwind_header.thrown_value && is_pointer_type(exception.exception_type)) {
    exception.pointer_in_object() = handler.value;
  }
  enter(frame, context, exception, handler.selector);
}

}  // namespace

void raise_exception(const UnwindContext& thrower, ExceptionHeader& exception) {
  StackWalk walk(thrower);
  for (int frames = 0; frames < max_frames; ++frames) {
    const Frame* frame = find_frame(walk.rip());
    if (!(frame != nullptr ? walk.step(*frame) : walk.step_windows())) report_uncaught(exception);
    if (frame != nullptr && frame->clause_count != 0 && find_handler(*frame, exception)) {
      exception.handler_cfa = walk.rsp();
      unwind_to_handler(thrower, exception);
    }
  }
  report_uncaught(exception);
}

void unwind_to_handler(const UnwindContext& from, ExceptionHeader& exception) {
  StackWalk walk(from);
  for (int frames = 0; frames < max_frames; ++frames) {
    const UnwindContext context = walk.at();
    const Frame* frame = find_frame(context[in_rip]);
    if (frame == nullptr) {
      if (!walk.step_windows()) {
        log_message(0, "[eh] phase 2 cannot unwind rip=%p", reinterpret_cast<void*>(context[in_rip]));
        report_uncaught(exception);
      }
      if (walk.rsp() == exception.handler_cfa) fatal_error("[eh] handler frame is a Windows frame");
      continue;
    }
    if (!walk.step(*frame)) report_uncaught(exception);
    const bool handles = walk.rsp() == exception.handler_cfa;
    if (handles) {
      if (const auto handler = find_handler(*frame, exception)) enter_handler(*frame, context, exception, *handler);
    }
    if (frame->has_cleanup) enter(*frame, context, exception, 0);
    if (handles) fatal_error("[eh] handler frame reached without a landing pad");
  }
  report_uncaught(exception);
}

}  // namespace vlm
