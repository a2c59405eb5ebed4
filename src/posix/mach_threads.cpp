// Mach's view of threads: stopping one, reading its registers, letting it go. The game's garbage collector stands on
// it.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "diag/log.h"
#include "posix/descriptors.h"
#include "posix/mapping.h"
#include "posix/shims.h"
#include "support/locks.h"
#include "support/sysv.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

constexpr std::int32_t KERN_SUCCESS = 0;
constexpr std::int32_t KERN_INVALID_ARGUMENT = 4;
constexpr std::int32_t KERN_FAILURE = 5;

constexpr std::int32_t x86_THREAD_STATE64 = 4;

/// `x86_thread_state64_t`, <mach/i386/_structs.h>.
struct ThreadState64 {
  std::uint64_t rax, rbx, rcx, rdx, rdi, rsi, rbp, rsp, r8, r9, r10, r11, r12, r13, r14, r15, rip, rflags, cs, fs, gs;
};
constexpr std::uint32_t x86_THREAD_STATE64_COUNT = sizeof(ThreadState64) / sizeof(std::uint32_t);
static_assert(x86_THREAD_STATE64_COUNT == 42 && offsetof(ThreadState64, rsp) == 56 &&
              offsetof(ThreadState64, rip) == 128 && offsetof(ThreadState64, gs) == 160);

/// What Mach calls a task: this process.
const std::uint32_t task_self = 0x103;

SYSV std::uint32_t mach_thread_self_() {
  const ThreadRecord* self = register_current_thread();
  return self != nullptr ? self->port : 0;
}

SYSV std::int32_t mach_port_deallocate_(std::uint32_t, std::uint32_t) { return KERN_SUCCESS; }

/// Held around a stop: every lock that may be wanted while others stand still, so that none of them stands with one.
class StandstillGuard {
  const std::lock_guard<StandstillLock> mappings_{mapping_lock}, registry_{registry_lock}, appends_{append_lock},
      log_{log_lock};
};

// Registers of threads that game code has stopped, by place. A collector stops a thread and then asks for its
// registers, and each look at another thread is a long way through the system: the look that makes a suspension take
// effect also answers the question. Guarded by registry_lock.
struct StoppedState {
  std::uint32_t life;  // of the place when it was stopped; 0 when it runs
  ThreadState64 state;
};
StoppedState stopped_states[max_threads];

StoppedState& stopped_state(const ThreadRecord& thread) { return stopped_states[thread.port - first_thread_port]; }

bool read_state(const ThreadRecord& thread, ThreadState64& state) {
  CONTEXT context;
  context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_SEGMENTS;
  if (!GetThreadContext(thread.handle, &context)) return false;
  state = {context.Rax, context.Rbx, context.Rcx, context.Rdx,    context.Rdi,   context.Rsi,   context.Rbp,
           context.Rsp, context.R8,  context.R9,  context.R10,    context.R11,   context.R12,   context.R13,
           context.R14, context.R15, context.Rip, context.EFlags, context.SegCs, context.SegFs, context.SegGs};
  return true;
}

/// Windows lets a thread that is ending not be stopped any more; it is gone in a moment.
bool ends_soon(const ThreadRecord& thread, DWORD error) {
  constexpr DWORD patience_ms = 100;
  const bool is_stopped_too_often = error == ERROR_SIGNAL_REFUSED;
  return WaitForSingleObject(thread.handle, is_stopped_too_often ? 0 : patience_ms) == WAIT_OBJECT_0;
}

SYSV std::int32_t thread_suspend_(std::uint32_t port) {
  if (const ThreadRecord* self = register_current_thread(); self != nullptr && self->port == port && port != 0) {
    return SuspendThread(GetCurrentThread()) != ~DWORD{0} ? KERN_SUCCESS : KERN_FAILURE;  // when it runs again
  }
  DWORD thread_id, error;
  {
    const StandstillGuard guard;
    const ThreadRecord* const thread = thread_record_of_port_locked(port);
    if (thread == nullptr) return KERN_INVALID_ARGUMENT;
    if (SuspendThread(thread->handle) != ~DWORD{0}) {
      // Windows suspends in its own time; reading the registers waits until it has.
      StoppedState& stopped = stopped_state(*thread);
      stopped.life = read_state(*thread, stopped.state) ? thread->life : 0;
      return KERN_SUCCESS;
    }
    error = GetLastError();
    if (ends_soon(*thread, error)) return KERN_SUCCESS;
    thread_id = thread->thread_id;
  }
  log_message(0, "[mach] thread_suspend(tid %lu) failed: %lu", static_cast<unsigned long>(thread_id), error);
  return KERN_FAILURE;
}

/// A thread that is not stopped is refused.
SYSV std::int32_t thread_resume_(std::uint32_t port) {
  const std::lock_guard guard(registry_lock);
  const ThreadRecord* const thread = thread_record_of_port_locked(port);
  if (thread == nullptr) return KERN_INVALID_ARGUMENT;
  stopped_state(*thread).life = 0;
  const DWORD stops = ResumeThread(thread->handle);
  return (stops != 0 && stops != ~DWORD{0}) || has_ended(*thread) ? KERN_SUCCESS : KERN_FAILURE;
}

std::int32_t state_of(std::uint32_t port, ThreadState64& state) {
  const std::lock_guard guard(registry_lock);
  const ThreadRecord* const thread = thread_record_of_port_locked(port);
  if (thread == nullptr) return KERN_INVALID_ARGUMENT;
  const StoppedState& stopped = stopped_state(*thread);
  if (has_ended(*thread)) {
    state = {};  // to a collector, a stack without any frame
    state.rsp = thread->stack_high;
  } else if (stopped.life == thread->life) {
    state = stopped.state;
  } else if (!read_state(*thread, state)) {
    return KERN_FAILURE;
  }
  return KERN_SUCCESS;
}

SYSV std::int32_t thread_get_state_(std::uint32_t port, std::int32_t flavor, ThreadState64* state,
                                    std::uint32_t* count) {
  if (flavor != x86_THREAD_STATE64 || *count < x86_THREAD_STATE64_COUNT) {
    static constinit MessageLimit limit;
    if (limit.take()) log_message(0, "[mach] thread_get_state flavor %d count %u unsupported", flavor, *count);
    return KERN_INVALID_ARGUMENT;
  }
  const std::int32_t result = state_of(port, *state);
  if (result == KERN_SUCCESS) *count = x86_THREAD_STATE64_COUNT;
  return result;
}

}  // namespace

const ShimEntry mach_rows[] = {
    {"_mach_thread_self", shim(mach_thread_self_)}, {"_mach_port_deallocate", shim(mach_port_deallocate_)},
    {"_thread_suspend", shim(thread_suspend_)},     {"_thread_resume", shim(thread_resume_)},
    {"_thread_get_state", shim(thread_get_state_)}, {"_mach_task_self_", shim(&task_self)},
};
constinit const ShimRows mach_shims = mach_rows;

}  // namespace vlm
