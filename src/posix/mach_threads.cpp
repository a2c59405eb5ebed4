// Mach's view of threads: stopping one, reading its registers, letting it go. The game's garbage collector stands on
// it.
#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "diag/log.h"
#include "posix/shims.h"
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

bool has_ended(const ThreadRecord& thread) { return WaitForSingleObject(thread.handle, 0) == WAIT_OBJECT_0; }

SYSV std::uint32_t mach_thread_self_() {
  const ThreadRecord* self = register_current_thread();
  return self != nullptr ? self->port : 0;
}

SYSV std::int32_t mach_port_deallocate_(std::uint32_t, std::uint32_t) { return KERN_SUCCESS; }

// Registers of threads that game code has stopped, by port. A collector stops a thread and then asks for its registers,
// and each look at another thread is a long way through the system: the look that makes a suspension take effect also
// answers the question. Written by thread_suspend, valid until the next thread_resume.
struct StoppedState {
  std::atomic<bool> valid;
  ThreadState64 state;
};
StoppedState stopped_states[max_threads];

StoppedState& stopped_state(std::uint32_t port) { return stopped_states[port - first_thread_port]; }

bool read_state(const ThreadRecord& thread, ThreadState64& state) {
  CONTEXT context;
  context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_SEGMENTS;
  if (!GetThreadContext(thread.handle, &context)) return false;
  state = {context.Rax, context.Rbx, context.Rcx, context.Rdx,    context.Rdi,   context.Rsi,   context.Rbp,
           context.Rsp, context.R8,  context.R9,  context.R10,    context.R11,   context.R12,   context.R13,
           context.R14, context.R15, context.Rip, context.EFlags, context.SegCs, context.SegFs, context.SegGs};
  return true;
}

SYSV std::int32_t thread_suspend_(std::uint32_t port) {
  const ThreadRecord* thread = thread_record_of_port(port);
  if (thread == nullptr) return KERN_INVALID_ARGUMENT;
  // A thread that has ended cannot be suspended; asking only then spares every other call a wait.
  if (SuspendThread(thread->handle) == ~DWORD{0}) {
    const DWORD error = GetLastError();
    if (has_ended(*thread)) return KERN_SUCCESS;
    log_message(0, "[mach] thread_suspend(tid %lu) failed: %lu", static_cast<unsigned long>(thread->thread_id), error);
    return KERN_FAILURE;
  }
  // Windows suspends in its own time; reading the registers waits until it has. A thread that suspends itself comes
  // here when it runs again.
  StoppedState& stopped = stopped_state(port);
  if (thread->thread_id != GetCurrentThreadId() && read_state(*thread, stopped.state)) {
    stopped.valid.store(true, std::memory_order_release);
  }
  return KERN_SUCCESS;
}

SYSV std::int32_t thread_resume_(std::uint32_t port) {
  const ThreadRecord* thread = thread_record_of_port(port);
  if (thread == nullptr) return KERN_INVALID_ARGUMENT;
  stopped_state(port).valid.store(false, std::memory_order_relaxed);
  if (ResumeThread(thread->handle) != ~DWORD{0} || has_ended(*thread)) return KERN_SUCCESS;
  return KERN_FAILURE;
}

SYSV std::int32_t thread_get_state_(std::uint32_t port, std::int32_t flavor, ThreadState64* state,
                                    std::uint32_t* count) {
  const ThreadRecord* thread = thread_record_of_port(port);
  if (thread == nullptr) return KERN_INVALID_ARGUMENT;
  if (flavor != x86_THREAD_STATE64 || *count < x86_THREAD_STATE64_COUNT) {
    log_message(0, "[mach] thread_get_state flavor %d count %u unsupported", flavor, *count);
    return KERN_INVALID_ARGUMENT;
  }
  const StoppedState& stopped = stopped_state(port);
  if (stopped.valid.load(std::memory_order_acquire)) {
    *state = stopped.state;
  } else if (has_ended(*thread)) {
    *state = {};  // to a collector, a stack without any frame
    state->rsp = thread->stack_high;
  } else if (!read_state(*thread, *state)) {
    return KERN_FAILURE;
  }
  *count = x86_THREAD_STATE64_COUNT;
  return KERN_SUCCESS;
}

}  // namespace

const ShimEntry mach_rows[] = {
    {"_mach_thread_self", shim(mach_thread_self_)}, {"_mach_port_deallocate", shim(mach_port_deallocate_)},
    {"_thread_suspend", shim(thread_suspend_)},     {"_thread_resume", shim(thread_resume_)},
    {"_thread_get_state", shim(thread_get_state_)}, {"_mach_task_self_", shim(&task_self)},
};
constinit const ShimRows mach_shims = mach_rows;

}  // namespace vlm
