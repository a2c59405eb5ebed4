// Threads of macOS as the guests use them: <pthread.h>, the parts of <mach/mach.h> and <dispatch/dispatch.h> that they
// call, and many threads at a time.
#pragma once

#include "darwin.h"
#include "sdk/darwin/dispatch/dispatch.h"
#include "sdk/darwin/pthread.h"

using Thread = _opaque_pthread_t;
using Mutex = pthread_mutex_t;
using Condition = pthread_cond_t;

extern "C" {
struct ThreadState {
  uint64 rax, rbx, rcx, rdx, rdi, rsi, rbp, rsp, r8, r9, r10, r11, r12, r13, r14, r15, rip, rflags, cs, fs, gs;
};
uint32 mach_thread_self();
int32 thread_suspend(uint32);
int32 thread_resume(uint32);
int32 thread_get_state(uint32, int32, ThreadState*, uint32*);
}

inline constexpr Mutex static_mutex = {0x32AAABA7, {}};
inline constexpr Condition static_condition = {0x3CB0B1BB, {}};
inline constexpr int32 x86_thread_state64 = 4;

/// A counting signal between threads: waits have no limit, so a lost wake-up shows as a test that does not end.
class Signal {
 public:
  ~Signal() { dispatch_release(semaphore_); }
  void raise() { dispatch_semaphore_signal(semaphore_); }
  void wait() { dispatch_semaphore_wait(semaphore_, DISPATCH_TIME_FOREVER); }

 private:
  void* semaphore_ = dispatch_semaphore_create(0);
};

/// Threads that call `body` with the numbers from 0 on; it ends when all of them have returned.
template <class Body>
class Crew {
 public:
  Crew(int64 count, Body body) : body_(body), running_(count), alone_(count == 1) {
    while (count-- > 0) CHECK(pthread_create(&thread_, nullptr, run, this) == 0);
  }
  ~Crew() { join(); }
  void join() {
    for (; running_ > 0; --running_) returned_.wait();
  }
  Thread* thread() const { return thread_; }  // the one that was made last

 private:
  static void* run(void* argument) {
    auto* const crew = static_cast<Crew*>(argument);
    if (crew->alone_) CHECK(crew->thread_ == pthread_self());  // its creator was told before it runs
    crew->body_(__atomic_fetch_add(&crew->next_, 1, __ATOMIC_SEQ_CST));
    crew->returned_.raise();
    return nullptr;
  }

  Body body_;
  int64 running_, next_ = 0;
  const bool alone_;
  Thread* thread_ = nullptr;
  Signal returned_;
};

template <class Body>
void run_on_threads(int64 count, Body body) {
  Crew crew(count, body);
}
