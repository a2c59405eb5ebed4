// What is run once and runs now: initializers of static variables (guards), dispatch_once functions. Other threads wait
// for it here. One that comes to itself again on its own thread would wait for ever, which is told to the caller.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "support/locks.h"

namespace vlm {

class RunningOnce {
 public:
  enum class Turn { run, done, waits_for_itself };

  /// Waits while another thread runs it; `run`: the caller is to run it, and to call end().
  ///   what     names it: its guard or predicate
  ///   frame    the frame of ours that calls it, which calls end(); 0 when game code does so by itself
  ///   is_done  is asked, and `begun` called before a run, under the lock
  template <class IsDone, class Begun>
  Turn begin(const void* what, std::uint64_t frame, IsDone is_done, Begun begun) {
    const std::lock_guard guard(lock_);
    while (const Entry* const entry = find_locked(what)) {
      if (entry->thread == GetCurrentThreadId()) return Turn::waits_for_itself;
      lock_.wait(finished_);
    }
    if (is_done()) return Turn::done;
    begun();
    entries_.push_back({what, GetCurrentThreadId(), frame});
    if (frame != 0) ++frames_;
    return Turn::run;
  }

  /// It has run, or was given up: `publish` says so to all, under the lock.
  template <class Publish>
  void end(const void* what, Publish publish) {
    {
      const std::lock_guard guard(lock_);
      publish();
      std::erase_if(entries_, [&](const Entry& entry) {
        if (entry.what != what) return false;
        if (entry.frame != 0) --frames_;
        return true;
      });
    }
    WakeAllConditionVariable(&finished_);
  }

  /// Whether the calling thread has a frame between these addresses that waits for what it runs.
  bool has_frame_between(std::uint64_t low, std::uint64_t high) {
    if (frames_.load(std::memory_order_relaxed) == 0) return false;
    const std::lock_guard guard(lock_);
    for (const Entry& entry : entries_) {
      if (entry.thread == GetCurrentThreadId() && entry.frame >= low && entry.frame < high) return true;
    }
    return false;
  }

 private:
  struct Entry {
    const void* what;
    DWORD thread;
    std::uint64_t frame;
  };

  const Entry* find_locked(const void* what) const {
    for (const Entry& entry : entries_) {
      if (entry.what == what) return &entry;
    }
    return nullptr;
  }

  SrwLock lock_;                                           // not held while something runs; a leaf
  CONDITION_VARIABLE finished_ = CONDITION_VARIABLE_INIT;  // signalled whenever an entry leaves the list
  std::vector<Entry> entries_;                             // a few: as many as run at once
  std::atomic<int> frames_ = 0;                            // entries with a frame; written under the lock
};

/// The one list, of all that runs once. Never destroyed: threads of the game run until the process is gone.
[[clang::no_destroy]] inline constinit RunningOnce running_once;

}  // namespace vlm
