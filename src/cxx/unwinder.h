// The two-phase unwinder of the Itanium C++ ABI. The search (raise_exception) walks the stack until a clause takes the
// exception, and changes nothing but its note of where the second phase will stop. That (unwind_to_handler) enters the
// landing pad of every frame with something to clean up, which comes back through __Unwind_Resume, until the handler's;
// where the note does not tell the next one, it walks.
//
// Game frames are taken off by their compact unwind information; frames of Windows code between them by Windows' own
// unwinder, without running anything in them.
#pragma once

#include "cxx/exception_object.h"
#include "cxx/unwind_context.h"

namespace vlm {

/// The highest stack pointer that an exception of this thread went on with since this was set to 0: frames below are
/// gone.
extern constinit thread_local std::uint64_t highest_landing;

/// Finds the handler of an exception whose type, object and thrown value are set, and unwinds to it.
[[noreturn]] void raise_exception(const UnwindContext& thrower, ExceptionHeader& exception);

/// Goes on with the second phase from a frame.
[[noreturn]] void unwind_to_handler(const UnwindContext& from, ExceptionHeader& exception);

}  // namespace vlm
