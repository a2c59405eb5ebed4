// Guards of function-local statics (Itanium C++ ABI, 3.3.2).
//
//   byte 0   initialized    game code looks at it before it calls anything here
//   byte 1   in progress    a thread runs the initializer
//   2..7     not touched
//
// A guard has no room for its owner, so the initializers that run stand in a list: one that comes back to its own guard
// would wait for itself for ever.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "cxx/shims.h"
#include "diag/log.h"
#include "support/locks.h"
#include "support/sysv.h"
#include "tls/game_tls.h"

namespace vlm {
namespace {

/// <cxxabi.h> calls it a 64-bit guard.
struct Guard {
  std::uint8_t initialized;
  std::uint8_t in_progress;
  std::uint8_t untouched[6];
};
static_assert(sizeof(Guard) == 8);

struct RunningInitializer {
  const Guard* guard;
  std::uint32_t thread;
};

// Not held while an initializer runs: it may come to other guards.
constinit SrwLock guard_lock;  // guards in_progress of every guard, writes of initialized, and the list; a leaf
constinit CONDITION_VARIABLE initializer_finished = CONDITION_VARIABLE_INIT;  // signalled by each release and abort
constinit std::vector<RunningInitializer> running_initializers;               // a few: as many as run at once

bool is_initialized(Guard* guard) { return std::atomic_ref(guard->initialized).load(std::memory_order_acquire) != 0; }

bool runs_here_locked(const Guard* guard) {
  for (const RunningInitializer& running : running_initializers) {
    if (running.guard == guard && running.thread == current_thread_id()) return true;
  }
  return false;
}

enum class Turn { run_initializer, initialized, waits_for_itself };

Turn wait_for_turn(Guard* guard) {
  const std::lock_guard lock(guard_lock);
  while (!is_initialized(guard) && guard->in_progress != 0) {
    if (runs_here_locked(guard)) return Turn::waits_for_itself;
    guard_lock.wait(initializer_finished);
  }
  if (is_initialized(guard)) return Turn::initialized;
  guard->in_progress = 1;
  running_initializers.push_back({guard, current_thread_id()});
  return Turn::run_initializer;
}

[[gnu::noinline]] std::int32_t acquire_uninitialized(Guard* guard) {
  const Turn turn = wait_for_turn(guard);
  // Not under the lock: the message box lets the player's windows run, which may come to other guards.
  if (turn == Turn::waits_for_itself) fatal_error("the initializer of a static variable waits for itself");
  return turn == Turn::run_initializer;
}

/// 1 when the caller is to run the initializer.
SYSV std::int32_t guard_acquire_(Guard* guard) {
  if (is_initialized(guard)) [[likely]]
    return 0;
  return acquire_uninitialized(guard);
}

void finish(Guard* guard, bool initialized) {
  {
    const std::lock_guard lock(guard_lock);
    if (initialized) std::atomic_ref(guard->initialized).store(1, std::memory_order_release);
    guard->in_progress = 0;
    std::erase_if(running_initializers, [guard](const RunningInitializer& running) { return running.guard == guard; });
  }
  WakeAllConditionVariable(&initializer_finished);
}

SYSV void guard_release_(Guard* guard) { finish(guard, true); }
SYSV void guard_abort_(Guard* guard) { finish(guard, false); }

}  // namespace

const ShimEntry guard_rows[] = {
    {"___cxa_guard_acquire", shim(guard_acquire_)},
    {"___cxa_guard_release", shim(guard_release_)},
    {"___cxa_guard_abort", shim(guard_abort_)},
};
constinit const ShimRows guard_shims = guard_rows;

}  // namespace vlm
