#include "cxx/unwinder.h"

#include <windows.h>

#include <algorithm>

#include "binding/shim_table.h"
#include "cxx/frames.h"
#include "cxx/stack_walk.h"
#include "cxx/type_matching.h"
#include "diag/log.h"
#include "support/running_once.h"

extern "C" [[noreturn]] void resume_context(const vlm::UnwindContext* context);  // throw_entries.S

namespace vlm {

constinit thread_local std::uint64_t highest_landing = 0;

namespace {

constexpr int max_frames = 4096;

/// The type's name, "?" when it has none.
const char* type_of(const ExceptionHeader& exception) {
  const char* const name = type_name(exception.exception_type);
  return name != nullptr ? name : "?";
}

[[noreturn]] void report_too_deep(const ExceptionHeader& exception) {
  fatal_error("uncaught C++ exception of type %s: the search for a handler stopped after %d frames", type_of(exception),
              max_frames);
}

[[noreturn]] void report_uncaught(const ExceptionHeader& exception) {
  const char* name = type_name(exception.exception_type);
  if (name == nullptr) {
    const char* symbol = missing_symbol_name(reinterpret_cast<const void*>(exception.exception_type));
    if (symbol != nullptr) log_message(0, "[eh] the exception's type is the import %s", symbol);
  }
  fatal_error("uncaught C++ exception of type %s", type_of(exception));
}

/// Where the memory of the stack that `rsp` is on ends: the thread's own stack, or one that the game has made.
std::uint64_t end_of_stack(std::uint64_t rsp) {
  const auto& thread = *reinterpret_cast<const NT_TIB*>(NtCurrentTeb());
  const auto low = reinterpret_cast<std::uint64_t>(thread.StackLimit);
  const auto end = reinterpret_cast<std::uint64_t>(thread.StackBase);
  if (rsp >= low && rsp < end) return end;
  MEMORY_BASIC_INFORMATION region;
  if (VirtualQuery(reinterpret_cast<const void*>(rsp), &region, sizeof region) == 0) return rsp;
  return reinterpret_cast<std::uint64_t>(region.BaseAddress) + region.RegionSize;
}

/// Goes to the caller of a game frame; tells which encoding says nothing about its frame.
bool leave(StackWalk& walk, const Frame& frame) {
  if (!frame.shape.supported) {
    log_message(0, "[eh] unsupported unwind encoding 0x%08x at %p", frame.shape.encoding,
                reinterpret_cast<void*>(frame.shape.function));
  }
  return walk.step(frame.shape);
}

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
  highest_landing = std::max(highest_landing, context[in_rsp]);
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
  StackWalk walk(thrower, end_of_stack(thrower[in_rsp]));
  for (int frames = 0; frames < max_frames; ++frames) {
    const Frame* frame = find_frame(walk.rip());
    if (!(frame != nullptr ? leave(walk, *frame) : walk.step_windows())) report_uncaught(exception);
    if (frame != nullptr && frame->clause_count != 0 && find_handler(*frame, exception)) {
      exception.handler_cfa = walk.rsp();
      if (running_once.has_frame_between(thrower[in_rsp], walk.rsp())) {
        fatal_error("a C++ exception of type %s leaves a dispatch_once function", type_of(exception));
      }
      unwind_to_handler(thrower, exception);
    }
  }
  report_too_deep(exception);
}

void unwind_to_handler(const UnwindContext& from, ExceptionHeader& exception) {
  StackWalk walk(from, end_of_stack(from[in_rsp]));
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
    if (!leave(walk, *frame)) report_uncaught(exception);
    const bool handles = walk.rsp() == exception.handler_cfa;
    if (handles) {
      if (const auto handler = find_handler(*frame, exception)) enter_handler(*frame, context, exception, *handler);
    }
    if (frame->has_cleanup) enter(*frame, context, exception, 0);
    if (handles) fatal_error("[eh] handler frame reached without a landing pad");
  }
  report_too_deep(exception);
}

}  // namespace vlm
