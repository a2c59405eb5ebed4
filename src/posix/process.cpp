// How the process ends at game code's wish: exit handlers, exit, and the two fatal ends. Also what the game asks about
// its own stack and the system's versions.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "diag/log.h"
#include "posix/shims.h"
#include "support/locks.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// Compared by game code with the copy in each protected frame. Its zero byte stops a text that runs over the frame.
const std::uint64_t stack_canary = 0x9d3f'a1c7'52e6'4b00;

struct ExitHandler {
  SYSV void (*function)(void*);
  void* argument;
};

constexpr std::size_t max_exit_handlers = 512;

constinit SrwLock handler_lock;  // a leaf; guards the two below, not held while a handler runs
ExitHandler exit_handlers[max_exit_handlers];
std::size_t exit_handler_count = 0;

/// One too many is dropped.
void add_exit_handler(ExitHandler handler) {
  const std::lock_guard guard(handler_lock);
  if (exit_handler_count < max_exit_handlers) exit_handlers[exit_handler_count++] = handler;
}

/// Takes the newest handler out of the table, so that none runs twice, even when a handler or another thread exits.
std::optional<ExitHandler> take_exit_handler() {
  const std::lock_guard guard(handler_lock);
  if (exit_handler_count == 0) return std::nullopt;
  return exit_handlers[--exit_handler_count];
}

/// The module is for unloading, which images never are.
SYSV std::int32_t cxa_atexit_(SYSV void (*function)(void*), void* argument, void* module) {
  add_exit_handler({function, argument});
  return 0;
}

/// A function without parameters can be called with an argument that it does not look at.
SYSV std::int32_t atexit_(SYSV void (*function)(void*)) {
  add_exit_handler({function, nullptr});
  return 0;
}

SYSV void exit_(std::int32_t code) {
  while (const auto handler = take_exit_handler()) handler->function(handler->argument);
  flush_streams();
  ExitProcess(static_cast<UINT>(code));
}

SYSV void abort_() { fatal_error("abort() called by game code"); }
SYSV void stack_chk_fail_() { fatal_error("stack smashing detected in game code"); }

/// No frames: game code only prints them.
SYSV std::int32_t backtrace_(void** frames, std::int32_t size) { return 0; }

/// One block for the receiver to free, as on macOS; a null for each frame.
SYSV void* backtrace_symbols_(void* const* frames, std::int32_t count) {
  return std::calloc(static_cast<std::size_t>(std::max(count, 0)) + 1, sizeof(char*));
}

/// Every system version that game code asks for is there.
SYSV std::int32_t availability_version_check_(std::uint32_t count, const void* versions) { return 1; }

/// Whether a descriptor fits an fd_set (1024 bits), or a set that the program has made larger.
SYSV std::int32_t check_fd_set_overflow_(std::int32_t descriptor, const void* set, std::int32_t unlimited) {
  return descriptor >= 0 && (descriptor < 1024 || unlimited != 0);
}

}  // namespace

const ShimEntry process_rows[] = {
    {"___cxa_atexit", shim(cxa_atexit_)},
    {"_atexit", shim(atexit_)},
    {"_exit", shim(exit_)},
    {"_abort", shim(abort_)},
    {"___stack_chk_fail", shim(stack_chk_fail_)},
    {"___stack_chk_guard", shim(&stack_canary)},
    {"_backtrace", shim(backtrace_)},
    {"_backtrace_symbols", shim(backtrace_symbols_)},
    {"__availability_version_check", shim(availability_version_check_)},
    {"___darwin_check_fd_set_overflow", shim(check_fd_set_overflow_)},
};
constinit const ShimRows process_shims = process_rows;

}  // namespace vlm
