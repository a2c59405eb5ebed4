// Slim reader/writer locks behind the standard's lock vocabulary (std::lock_guard, std::shared_lock).
#pragma once

#include <windows.h>

namespace vlm {

/// Not recursive. Constant-initialised, so the thread-attach callback may take one before any constructor ran.
class SrwLock {
 public:
  constexpr SrwLock() = default;
  SrwLock(const SrwLock&) = delete;
  SrwLock& operator=(const SrwLock&) = delete;

  void lock() { AcquireSRWLockExclusive(&srw_); }
  bool try_lock() { return TryAcquireSRWLockExclusive(&srw_) != 0; }
  void unlock() { ReleaseSRWLockExclusive(&srw_); }
  void lock_shared() { AcquireSRWLockShared(&srw_); }
  void unlock_shared() { ReleaseSRWLockShared(&srw_); }

  /// Lets the lock, held exclusively, go until the condition is signalled; may return for no reason.
  void wait(CONDITION_VARIABLE& condition) { SleepConditionVariableSRW(&condition, &srw_, INFINITE, 0); }

 private:
  SRWLOCK srw_ = SRWLOCK_INIT;
};

}  // namespace vlm
