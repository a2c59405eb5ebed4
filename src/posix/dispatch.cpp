// Dispatch once functions, semaphores and times, and the one block helper that game code imports.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "diag/log.h"
#include "posix/shims.h"
#include "posix/time.h"
#include "support/locks.h"
#include "support/sysv.h"
#include "tls/game_tls.h"

namespace vlm {
namespace {

// ---- Once -----------------------------------------------------------------------------------------------------------

constexpr std::int64_t once_done = -1;

using OnceFunction = SYSV void (*)(void* context);

/// A once function that runs now, on its thread's stack.
struct RunningOnce {
  const std::int64_t* predicate;
  std::uint32_t thread;
  RunningOnce* next;
};

// Not held while a once function runs: a function may come to another predicate, on its own thread or by waiting for
// a thread that does.
SrwLock once_lock;                                           // guards the list; a leaf
CONDITION_VARIABLE once_finished = CONDITION_VARIABLE_INIT;  // signalled whenever an entry leaves the list
RunningOnce* running_onces = nullptr;

const RunningOnce* running_locked(const std::int64_t* predicate) {
  const RunningOnce* entry = running_onces;
  while (entry != nullptr && entry->predicate != predicate) entry = entry->next;
  return entry;
}

bool is_done(std::int64_t* predicate) {
  return std::atomic_ref(*predicate).load(std::memory_order_acquire) == once_done;
}

/// Enters the function into the list; false when another thread has completed it meanwhile.
bool begin_once(std::int64_t* predicate, RunningOnce& mine) {
  const std::lock_guard guard(once_lock);
  while (const RunningOnce* running = running_locked(predicate)) {
    if (running->thread == mine.thread) fatal_error("a dispatch_once function waits for itself");
    once_lock.wait(once_finished);
  }
  if (is_done(predicate)) return false;
  mine.next = running_onces;
  running_onces = &mine;
  return true;
}

void end_once(std::int64_t* predicate, RunningOnce& mine) {
  const std::lock_guard guard(once_lock);
  std::atomic_ref(*predicate).store(once_done, std::memory_order_seq_cst);
  RunningOnce** link = &running_onces;
  while (*link != &mine) link = &(*link)->next;
  *link = mine.next;
  WakeAllConditionVariable(&once_finished);
}

SYSV void dispatch_once_f_(std::int64_t* predicate, void* context, OnceFunction function) {
  if (is_done(predicate)) [[likely]]
    return;
  RunningOnce mine{predicate, current_thread_id(), nullptr};
  if (!begin_once(predicate, mine)) return;
  function(context);
  end_once(predicate, mine);
}

// ---- Time and semaphores --------------------------------------------------------------------------------------------

constexpr std::uint64_t DISPATCH_TIME_NOW = 0;
constexpr std::uint64_t DISPATCH_TIME_FOREVER = ~std::uint64_t{0};
constexpr std::uint64_t nanoseconds_per_millisecond = 1'000'000;
constexpr std::int64_t KERN_OPERATION_TIMED_OUT = 49;
constexpr std::uint64_t semaphore_signature = 0x53454D41;

struct Semaphore {
  std::uint64_t signature;
  HANDLE handle;
};

SYSV std::uint64_t dispatch_time_(std::uint64_t base, std::int64_t delta) {
  if (base == DISPATCH_TIME_FOREVER) return base;
  return (base == DISPATCH_TIME_NOW ? monotonic_nanoseconds() : base) + static_cast<std::uint64_t>(delta);
}

DWORD wait_until(std::uint64_t deadline) {
  if (deadline == DISPATCH_TIME_FOREVER) return INFINITE;
  if (deadline == DISPATCH_TIME_NOW) return 0;
  const std::uint64_t now = monotonic_nanoseconds();
  if (deadline <= now) return 0;
  const std::uint64_t milliseconds = (deadline - now) / nanoseconds_per_millisecond;
  return milliseconds < INFINITE ? static_cast<DWORD>(milliseconds) : INFINITE - 1;
}

SYSV Semaphore* dispatch_semaphore_create_(std::int64_t value) {
  if (value < 0 || value > 0x7FFFFFFF) return nullptr;
  auto* semaphore = static_cast<Semaphore*>(std::malloc(sizeof(Semaphore)));
  if (semaphore == nullptr) return nullptr;
  *semaphore = {semaphore_signature, CreateSemaphoreW(nullptr, static_cast<LONG>(value), 0x7FFFFFFF, nullptr)};
  if (semaphore->handle != nullptr) return semaphore;
  std::free(semaphore);
  return nullptr;
}

SYSV std::int64_t dispatch_semaphore_wait_(Semaphore* semaphore, std::uint64_t deadline) {
  return WaitForSingleObject(semaphore->handle, wait_until(deadline)) == WAIT_OBJECT_0 ? 0 : KERN_OPERATION_TIMED_OUT;
}

SYSV std::int64_t dispatch_semaphore_signal_(Semaphore* semaphore) {
  ReleaseSemaphore(semaphore->handle, 1, nullptr);
  return 0;
}

SYSV void dispatch_release_(Semaphore* object) {
  if (object == nullptr || object->signature != semaphore_signature) return;
  CloseHandle(object->handle);
  std::free(object);
}

// ---- Blocks ---------------------------------------------------------------------------------------------------------

/// Objects live until the process ends, so a captured one is neither copied nor retained.
SYSV void block_object_assign(const void** destination, const void* source, std::int32_t) { *destination = source; }

}  // namespace

const ShimEntry dispatch_rows[] = {
    {"_dispatch_once_f", shim(dispatch_once_f_)},
    {"_dispatch_semaphore_create", shim(dispatch_semaphore_create_)},
    {"_dispatch_semaphore_wait", shim(dispatch_semaphore_wait_)},
    {"_dispatch_semaphore_signal", shim(dispatch_semaphore_signal_)},
    {"_dispatch_time", shim(dispatch_time_)},
    {"_dispatch_release", shim(dispatch_release_)},
    {"__Block_object_assign", shim(block_object_assign)},
};
constinit const ShimRows dispatch_shims = dispatch_rows;

}  // namespace vlm
