// Signals: nothing is ever delivered. What game code installs is remembered, so that it reads back what it wrote.
#include <cstdint>
#include <mutex>

#include "posix/shims.h"
#include "support/darwin_errno.h"
#include "support/locks.h"
#include "support/sysv.h"

namespace vlm {
namespace {

constexpr std::int32_t signal_count = 32;

/// macOS's `struct sigaction`.
struct SignalAction {
  std::uint64_t handler;
  std::uint32_t mask;
  std::int32_t flags;
};
static_assert(sizeof(SignalAction) == 16);

SrwLock action_lock;                      // guards the table
SignalAction actions[signal_count] = {};  // entry 0 is unused

bool is_signal(std::int32_t signal) { return signal > 0 && signal < signal_count; }

SYSV std::int32_t sigaction_(std::int32_t signal, const SignalAction* action, SignalAction* old) {
  if (!is_signal(signal)) return fail(DARWIN_EINVAL);
  const std::lock_guard guard(action_lock);
  const SignalAction before = actions[signal];
  if (action != nullptr) actions[signal] = *action;
  if (old != nullptr) *old = before;
  return 0;
}

/// The previous handler, or -1 in its place.
SYSV std::uint64_t signal_(std::int32_t signal, std::uint64_t handler) {
  if (!is_signal(signal)) return ~std::uint64_t{0};
  const std::lock_guard guard(action_lock);
  const std::uint64_t before = actions[signal].handler;
  actions[signal].handler = handler;
  return before;
}

}  // namespace

const ShimEntry signal_rows[] = {
    {"_sigaction", shim(sigaction_)},
    {"_signal", shim(signal_)},
};
constinit const ShimRows signal_shims = signal_rows;

}  // namespace vlm
