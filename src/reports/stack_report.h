// The callers of a place in the code, in order: game frames by their compact unwind information, Windows frames by
// Windows' unwinder, through every bridge.
#pragma once

#include <windows.h>

#include <cstdint>

namespace vlm {

/// Logs where a thread has stopped and its callers, the innermost first. Nothing about a damaged stack is trusted.
///   context     of the thread; its rip is an instruction that has not been executed
///   stack_base  where the thread's own stack ends
void log_stack(const CONTEXT& context, DWORD thread, std::uint64_t stack_base);

/// Logs who called the library, when that is game code: the caller of this function and its callers.
void log_game_callers();

}  // namespace vlm
