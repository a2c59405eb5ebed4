// Slim reader/writer locks behind the standard's lock vocabulary (std::lock_guard, std::shared_lock).
#pragma once

#include <windows.h>
#include <immintrin.h>

#include <atomic>

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

  /// Releases the lock, which is held exclusively, until the condition is signalled. May return for no reason.
  void wait(CONDITION_VARIABLE& condition) { SleepConditionVariableSRW(&condition, &srw_, INFINITE, 0); }

 private:
  SRWLOCK srw_ = SRWLOCK_INIT;
};

/// For what may run while game code has stopped other threads (see docs/architecture.md). Those who wait for it stand
/// in no queue: a thread that is stopped while it waits is nobody's concern. Held for a moment only; not recursive.
class StandstillLock {
 public:
  constexpr StandstillLock() = default;
  StandstillLock(const StandstillLock&) = delete;
  StandstillLock& operator=(const StandstillLock&) = delete;

  void lock() {
    for (unsigned tries = 0; taken_.exchange(true, std::memory_order_acquire); ++tries) {
      if (tries < 100) {
        _mm_pause();
      } else if (tries < 200) {
        SwitchToThread();
      } else {
        Sleep(1);  // the holder may have a lower priority
      }
    }
  }
  void unlock() { taken_.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> taken_ = false;
};

}  // namespace vlm
