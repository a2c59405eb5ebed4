#include "cxx/unwinder.h"

#include <windows.h>

#include <algorithm>

#include "binding/shim_table.h"
#include "cxx/frames.h"
#include "cxx/stack_walk.h"
#include "cxx/type_matching.h"
#include "diag/log.h"
#include "support/pages.h"
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
  return std::max(rsp, end_of(region_at(rsp)));
}

/// Goes to the caller of a game frame; tells which encoding says nothing about its frame.
bool leave(StackWalk& walk, const Frame& frame) {
  if (frame.supported) [[likely]]
    return walk.step(frame.layout);
  log_message(0, "[eh] unsupported unwind encoding 0x%08x at %p", frame.encoding,
              reinterpret_cast<void*>(frame.function));
  return false;
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

/// What a landing pad is handed.
void prepare_entry(UnwindContext& context, const Frame& frame, ExceptionHeader& exception, std::int64_t selector) {
  context[in_rax] = reinterpret_cast<std::uint64_t>(&exception.unwind_header);
  context[in_rdx] = static_cast<std::uint64_t>(selector);
  context[in_rip] = frame.landing_pad;
}

[[noreturn]] void enter(const UnwindContext& landing_pad) {
  highest_landing = std::max(highest_landing, landing_pad[in_rsp]);
  resume_context(&landing_pad);
}

void give_to_handler(ExceptionHeader& exception, const Handler& handler) {
  exception.handler_switch_value = handler.selector;
  exception.unwind_header.handler_value = handler.value;
  if (handler.value != exception.unwind_header.thrown_value && is_pointer_type(exception.exception_type)) {
    exception.pointer_in_object() = handler.value;
  }
}

/// Where the exception that this thread threw last stops on its way to the handler, as its search met the frames. What
/// they saved stays as it is until they are left, so the second phase enters one landing pad after the other without
/// another walk. An exception that is thrown and caught by what a landing pad calls takes the place of the first, which
/// then goes on by walking; so does one with more stops than there is room for.
class Stops {
 public:
  void begin(const ExceptionHeader& exception) {
    exception_ = &exception;
    count_ = next_ = 0;
    to_handler_ = false;
  }

  /// Where to write the registers of a frame that may turn out to be a stop; add() makes it one.
  UnwindContext& candidate() { return at_[count_]; }

  void add() {
    if (count_ < capacity) ++count_;
  }
  void add_handler(const Handler& handler) {
    if (count_ == capacity) return;
    at_[count_++][in_rdx] = static_cast<std::uint64_t>(handler.selector);
    handler_ = handler;
    to_handler_ = true;
  }

  /// Enters the next landing pad. Returns when the stops do not tell which it is.
  ///   from  a landing pad's registers as it goes on
  void go_on(const UnwindContext& from, ExceptionHeader& exception) {
    if (exception_ != &exception || next_ == 0 || next_ == count_ || at_[next_ - 1][in_rsp] != from[in_rsp]) return;
    enter_next(exception);
  }

  [[noreturn]] void enter_next(ExceptionHeader& exception) {
    const UnwindContext& stop = at_[next_++];
    if (to_handler_ && next_ == count_) {
      exception_ = nullptr;
      give_to_handler(exception, handler_);
    }
    enter(stop);
  }

 private:
  static constexpr unsigned capacity = 128;

  const ExceptionHeader* exception_ = nullptr;  // null: of none
  unsigned count_ = 0, next_ = 0;
  bool to_handler_ = false;  // the last one is the handler's
  Handler handler_{};
  UnwindContext at_[capacity + 1] = {};  // as the landing pads are entered; the last one is never a stop
};
constinit thread_local Stops thread_stops;

}  // namespace

void raise_exception(const UnwindContext& thrower, ExceptionHeader& exception) {
  Stops& stops = thread_stops;
  stops.begin(exception);
  StackWalk walk(thrower, end_of_stack(thrower[in_rsp]));
  for (int frames = 0; frames < max_frames; ++frames) {
    const Frame* frame = find_frame(walk.rip());
    if (frame == nullptr) {
      if (!walk.step_windows()) report_uncaught(exception);
      continue;
    }
    const bool may_stop = frame->landing_pad != 0;
    if (may_stop) {
      stops.candidate() = walk.at();
      prepare_entry(stops.candidate(), *frame, exception, 0);
    }
    if (!leave(walk, *frame)) report_uncaught(exception);
    if (!may_stop) continue;
    if (frame->clause_count != 0) {
      if (const auto handler = find_handler(*frame, exception)) {
        exception.handler_cfa = walk.rsp();
        if (running_once.has_frame_between(thrower[in_rsp], walk.rsp())) {
          fatal_error("a C++ exception of type %s leaves a dispatch_once function", type_of(exception));
        }
        stops.add_handler(*handler);
        stops.enter_next(exception);
      }
    }
    if (frame->has_cleanup) stops.add();
  }
  report_too_deep(exception);
}

void unwind_to_handler(const UnwindContext& from, ExceptionHeader& exception) {
  thread_stops.go_on(from, exception);
  StackWalk walk(from, end_of_stack(from[in_rsp]));
  for (int frames = 0; frames < max_frames; ++frames) {
    UnwindContext context = walk.at();
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
      if (const auto handler = find_handler(*frame, exception)) {
        give_to_handler(exception, *handler);
        prepare_entry(context, *frame, exception, handler->selector);
        enter(context);
      }
    }
    if (frame->has_cleanup) {
      prepare_entry(context, *frame, exception, 0);
      enter(context);
    }
    if (handles) fatal_error("[eh] handler frame reached without a landing pad");
  }
  report_too_deep(exception);
}

}  // namespace vlm
