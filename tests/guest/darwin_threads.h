// The part of macOS's <pthread.h>, <mach/mach.h> and <dispatch/dispatch.h> that the thread guests call.
#pragma once

#include "guest_test.h"

extern "C" {
struct Thread;  // what a pthread_t points to
using Key = uint64;
struct Mutex {
  uint64 signature;
  uint8 opaque[56];
};
struct MutexAttribute {
  uint64 signature;
  uint8 opaque[8];
};
struct Condition {
  uint64 signature;
  uint8 opaque[40];
};
struct ThreadState {
  uint64 rax, rbx, rcx, rdx, rdi, rsi, rbp, rsp, r8, r9, r10, r11, r12, r13, r14, r15, rip, rflags, cs, fs, gs;
};
struct SignalAction {
  void (*handler)(int32);
  uint32 mask;
  int32 flags;
};

int32 pthread_create(Thread**, const void*, void* (*)(void*), void*);
Thread* pthread_self();
int32 pthread_detach(Thread*);
uint8* pthread_get_stackaddr_np(Thread*);
int32 pthread_setname_np(const char*);
int32 pthread_setcancelstate(int32, int32*);
int32 pthread_atfork(void (*)(), void (*)(), void (*)());
int32 pthread_attr_init(void*);
int32 pthread_attr_destroy(void*);
int32 pthread_key_create(Key*, void (*)(void*));
int32 pthread_key_delete(Key);
void* pthread_getspecific(Key);
int32 pthread_setspecific(Key, const void*);
int32 pthread_mutexattr_init(MutexAttribute*);
int32 pthread_mutexattr_destroy(MutexAttribute*);
int32 pthread_mutexattr_settype(MutexAttribute*, int32);
int32 pthread_mutex_init(Mutex*, const MutexAttribute*);
int32 pthread_mutex_destroy(Mutex*);
int32 pthread_mutex_lock(Mutex*);
int32 pthread_mutex_unlock(Mutex*);
int32 pthread_cond_init(Condition*, const void*);
int32 pthread_cond_wait(Condition*, Mutex*);
int32 pthread_cond_broadcast(Condition*);
int32 pthread_cond_signal(Condition*);
uint32 mach_thread_self();
extern uint32 mach_task_self_;
int32 mach_port_deallocate(uint32, uint32);
int32 thread_suspend(uint32);
int32 thread_resume(uint32);
int32 thread_get_state(uint32, int32, ThreadState*, uint32*);
void dispatch_once_f(int64*, void*, void (*)(void*));
void* dispatch_semaphore_create(int64);
int64 dispatch_semaphore_wait(void*, uint64);
int64 dispatch_semaphore_signal(void*);
uint64 dispatch_time(uint64, int64);
void dispatch_release(void*);
void _Block_object_assign(void*, const void*, int32);
int32 sigaction(int32, const SignalAction*, SignalAction*);
using Handler = void (*)(int32);
Handler signal(int32, Handler);

int32* __error();
void* memset(void*, int32, uint64);
}

inline constexpr Mutex static_mutex = {0x32AAABA7, {}};
inline constexpr Mutex static_recursive_mutex = {0x32AAABA1, {}};
inline constexpr Condition static_condition = {0x3CB0B1BB, {}};
inline constexpr uint64 forever = ~uint64{0};
inline constexpr int32 x86_thread_state64 = 4;

/// A counting signal between threads: waits have no limit, so a lost wake-up shows as a test that does not end.
class Signal {
 public:
  void raise() { dispatch_semaphore_signal(semaphore_); }
  void wait() { dispatch_semaphore_wait(semaphore_, forever); }

 private:
  void* semaphore_ = dispatch_semaphore_create(0);
};
