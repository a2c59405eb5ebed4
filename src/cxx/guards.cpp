// Guards of function-local statics (Itanium C++ ABI, 3.3.2).
//
//   byte 0   initialized    game code looks at it before it calls anything here
//   byte 1   in progress    a thread runs the initializer
//   2..7     not touched
//
// A guard has no room for its owner, so the initializers that run stand in a list.
#include <atomic>
#include <cstdint>

#include "cxx/shims.h"
#include "diag/log.h"
#include "support/running_once.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// <cxxabi.h> calls it a 64-bit guard.
struct Guard {
  std::uint8_t initialized;
  std::uint8_t in_progress;
  std::uint8_t untouched[6];
};
static_assert(sizeof(Guard) == 8);

bool is_initialized(Guard* guard) { return std::atomic_ref(guard->initialized).load(std::memory_order_acquire) != 0; }

[[gnu::noinline]] std::int32_t acquire_uninitialized(Guard* guard) {
  const auto turn =
      running_once.begin(guard, 0, [&] { return is_initialized(guard); }, [&] { guard->in_progress = 1; });
  // Not under the lock: the message box lets the player's windows run, which may come to other guards.
  if (turn == RunningOnce::Turn::waits_for_itself) fatal_error("the initializer of a static variable waits for itself");
  return turn == RunningOnce::Turn::run;
}

/// 1 when the caller is to run the initializer.
SYSV std::int32_t guard_acquire_(Guard* guard) {
  if (is_initialized(guard)) [[likely]]
    return 0;
  return acquire_uninitialized(guard);
}

void finish(Guard* guard, bool initialized) {
  running_once.end(guard, [&] {
    if (initialized) std::atomic_ref(guard->initialized).store(1, std::memory_order_release);
    guard->in_progress = 0;
  });
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
