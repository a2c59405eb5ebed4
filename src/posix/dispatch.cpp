// Dispatch once functions, semaphores and times, and the one block helper that game code imports.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "diag/log.h"
#include "posix/shims.h"
#include "posix/time.h"
#include "support/running_once.h"
#include "support/sysv.h"

namespace vlm {
namespace {

// ---- Once -----------------------------------------------------------------------------------------------------------

constexpr std::int64_t once_done = -1;

using OnceFunction = SYSV void (*)(void* context);

bool is_done(std::int64_t* predicate) {
  return std::atomic_ref(*predicate).load(std::memory_order_acquire) == once_done;
}

/// An exception that would leave the function ends the process: see raise_exception().
[[gnu::noinline]] void run_once(std::int64_t* predicate, void* context, OnceFunction function) {
  const auto frame = reinterpret_cast<std::uint64_t>(__builtin_frame_address(0));
  switch (running_once.begin(predicate, frame, [&] { return is_done(predicate); }, [] {})) {
    case RunningOnce::Turn::done: return;
    case RunningOnce::Turn::waits_for_itself: fatal_error("a dispatch_once function waits for itself");
    case RunningOnce::Turn::run: break;
  }
  function(context);
  running_once.end(predicate, [&] { std::atomic_ref(*predicate).store(once_done, std::memory_order_seq_cst); });
}

SYSV void dispatch_once_f_(std::int64_t* predicate, void* context, OnceFunction function) {
  if (is_done(predicate)) [[likely]]
    return;
  run_once(predicate, context, function);
}

// ---- Time and semaphores --------------------------------------------------------------------------------------------

constexpr std::uint64_t DISPATCH_TIME_NOW = 0;
constexpr std::uint64_t DISPATCH_TIME_FOREVER = ~std::uint64_t{0};
constexpr std::int64_t KERN_OPERATION_TIMED_OUT = 49;
constexpr std::uint64_t semaphore_signature = 0x53454D41;

struct Semaphore {
  std::uint64_t signature;
  HANDLE handle;
};

/// A time before the clock's start is the clock's start, and not the far future.
SYSV std::uint64_t dispatch_time_(std::uint64_t base, std::int64_t delta) {
  if (base == DISPATCH_TIME_FOREVER) return base;
  const std::uint64_t from = base == DISPATCH_TIME_NOW ? monotonic_nanoseconds() : base;
  if (delta < 0 && from <= 0 - static_cast<std::uint64_t>(delta)) return DISPATCH_TIME_NOW + 1;
  return from + static_cast<std::uint64_t>(delta);
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
  const auto wait = [semaphore](DWORD milliseconds) {
    if (WaitForSingleObject(semaphore->handle, milliseconds) == WAIT_OBJECT_0) return true;
    if (milliseconds == 0) SwitchToThread();
    return false;
  };
  const bool taken = deadline == DISPATCH_TIME_FOREVER ? wait(INFINITE) : wait_until(deadline, wait);
  return taken ? 0 : KERN_OPERATION_TIMED_OUT;
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
