// POSIX mutexes and condition variables inside the game's own memory, on slim locks and Windows condition variables.
//
// Both Windows objects are one pointer and valid when zero, so they live in the macOS structures themselves and the
// macOS static initializers (a signature and zeros) work without any set-up.
#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "posix/shims.h"
#include "support/sysv.h"
#include "tls/game_tls.h"

namespace vlm {
namespace {

constexpr std::uint64_t initialized_signature = 0x4D555458;
constexpr std::uint64_t static_recursive_signature = 0x32AAABA1;  // PTHREAD_RECURSIVE_MUTEX_INITIALIZER
constexpr std::uint32_t PTHREAD_MUTEX_RECURSIVE = 2;

/// The start of macOS's pthread_mutex_t, 64 bytes.
struct Mutex {
  std::uint64_t signature;
  SRWLOCK lock;
  std::uint32_t owner;  // thread id, 0 when free; written by the owner only, read by anybody
  std::uint32_t count;  // the owner's
  std::uint32_t type;
  std::uint32_t unused;
};
static_assert(offsetof(Mutex, lock) == 8 && offsetof(Mutex, owner) == 16 && offsetof(Mutex, count) == 20 &&
              offsetof(Mutex, type) == 24 && sizeof(Mutex) == 32);

/// The start of macOS's pthread_mutexattr_t.
struct MutexAttribute {
  std::uint64_t signature;
  std::uint32_t type;
};

/// The start of macOS's pthread_cond_t, 48 bytes.
struct Condition {
  std::uint64_t initialized;
  CONDITION_VARIABLE variable;
};
static_assert(offsetof(Condition, variable) == 8);

void own(Mutex* mutex, std::uint32_t thread, std::uint32_t count) {
  std::atomic_ref(mutex->owner).store(thread, std::memory_order_relaxed);
  mutex->count = count;
}

SYSV std::int32_t mutexattr_init(MutexAttribute* attribute) {
  *attribute = {initialized_signature, 0};
  return 0;
}

SYSV std::int32_t mutexattr_settype(MutexAttribute* attribute, std::int32_t type) {
  attribute->type = static_cast<std::uint32_t>(type);
  return 0;
}

SYSV std::int32_t destroy(void*) { return 0; }

SYSV std::int32_t mutex_init(Mutex* mutex, const MutexAttribute* attribute) {
  *mutex = {initialized_signature, SRWLOCK_INIT, 0, 0, attribute != nullptr ? attribute->type : 0, 0};
  return 0;
}

SYSV std::int32_t mutex_lock(Mutex* mutex) {
  const std::uint32_t self = current_thread_id();
  if (mutex->signature == static_recursive_signature) mutex->type = PTHREAD_MUTEX_RECURSIVE;
  // Only the owner can find its own id there, so no lock is needed to ask.
  if (mutex->type == PTHREAD_MUTEX_RECURSIVE && std::atomic_ref(mutex->owner).load(std::memory_order_relaxed) == self) {
    ++mutex->count;
    return 0;
  }
  AcquireSRWLockExclusive(&mutex->lock);
  own(mutex, self, 1);
  return 0;
}

SYSV std::int32_t mutex_unlock(Mutex* mutex) {
  if (mutex->type == PTHREAD_MUTEX_RECURSIVE && --mutex->count != 0) return 0;
  own(mutex, 0, 0);
  ReleaseSRWLockExclusive(&mutex->lock);
  return 0;
}

SYSV std::int32_t cond_init(Condition* condition, const void*) {
  InitializeConditionVariable(&condition->variable);
  condition->initialized = 1;
  return 0;
}

/// A recursive mutex is released completely and comes back at the same depth.
SYSV std::int32_t cond_wait(Condition* condition, Mutex* mutex) {
  const std::uint32_t count = mutex->count;
  own(mutex, 0, 0);
  SleepConditionVariableSRW(&condition->variable, &mutex->lock, INFINITE, 0);
  own(mutex, current_thread_id(), count);
  return 0;
}

SYSV std::int32_t cond_signal(Condition* condition) {
  WakeConditionVariable(&condition->variable);
  return 0;
}

SYSV std::int32_t cond_broadcast(Condition* condition) {
  WakeAllConditionVariable(&condition->variable);
  return 0;
}

}  // namespace

const ShimEntry mutex_rows[] = {
    {"_pthread_mutexattr_init", shim(mutexattr_init)},
    {"_pthread_mutexattr_destroy", shim(destroy)},
    {"_pthread_mutexattr_settype", shim(mutexattr_settype)},
    {"_pthread_mutex_init", shim(mutex_init)},
    {"_pthread_mutex_destroy", shim(destroy)},
    {"_pthread_mutex_lock", shim(mutex_lock)},
    {"_pthread_mutex_unlock", shim(mutex_unlock)},
    {"_pthread_cond_init", shim(cond_init)},
    {"_pthread_cond_wait", shim(cond_wait)},
    {"_pthread_cond_broadcast", shim(cond_broadcast)},
    {"_pthread_cond_signal", shim(cond_signal)},
};
constinit const ShimRows mutex_shims = mutex_rows;

}  // namespace vlm
