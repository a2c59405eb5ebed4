// Guards of function-local statics, operators new and delete, and the ends of C++ code that cannot go on.
#include "darwin_threads.h"

extern "C" int32 __cxa_guard_acquire(uint64*);
extern "C" void __cxa_guard_release(uint64*), __cxa_guard_abort(uint64*);
void* operator new(unsigned long), *operator new[](unsigned long);
void operator delete(void*) noexcept, operator delete[](void*) noexcept;
void destroy_mutex(Mutex*) __asm("__ZNSt3__15mutexD1Ev");
void destroy_condition(Condition*) __asm("__ZNSt3__118condition_variableD1Ev");
namespace std {
[[noreturn]] void terminate() noexcept;
}

namespace {

constexpr uint64 untouched = 0xABCDEF123456'0000;  // of a guard, only bytes 0 and 1 are used

struct Base {
  Base() { call(); }
  void call() { pure(); }
  virtual void pure() = 0;
};
struct Derived : Base {
  void pure() override {}
};

int32 value_of_itself();
int32 initialize_itself() { return value_of_itself() + 1; }
int32 value_of_itself() {
  static int32 value = initialize_itself();
  return value;
}

}  // namespace

GUEST_TEST(guards_let_one_of_many_threads_initialize) {
  struct Raced {
    uint64 guard = untouched;
    int32 attempts = 0;  // written by the thread that has the guard
    uint64 result = 0;   // written before the guard is released
  } raced[400];
  int32 wrong = 0;  // results that a thread saw too early
  run_on_threads(8, [&](int64) {
    for (Raced& one : raced) {
      while (__cxa_guard_acquire(&one.guard)) {
        for (volatile int spin = 0; spin < 200; spin = spin + 1) {
        }
        one.result = ++one.attempts == 2 || (&one - raced) % 2;  // else gives up, and takes part again
        one.result ? __cxa_guard_release(&one.guard) : __cxa_guard_abort(&one.guard);
      }
      if (one.result != 1) __atomic_add_fetch(&wrong, 1, __ATOMIC_RELAXED);
    }
  });
  CHECK(wrong == 0);
  for (const Raced& one : raced) CHECK(one.attempts == 2 - (&one - raced) % 2 && one.guard == (untouched | 1));
}

GUEST_TEST(new_and_malloc_share_a_heap_and_locks_have_nothing_to_destroy) {
  void* block = operator new(0);
  CHECK(block != nullptr && reinterpret_cast<uint64>(block) % 16 == 0);
  free(block);
  operator delete(malloc(100));
  CHECK(posix_memalign(&block, 4096, 100) == 0);
  operator delete[](block);
  free(operator new[](100));
  operator delete(nullptr);
  Mutex mutex = static_mutex;
  Condition condition = static_condition;
  destroy_condition(&condition);
  destroy_mutex(&mutex);
  CHECK(mutex.signature == static_mutex.signature && condition.signature == static_condition.signature);
}

// Probes for the driver: each runs in a process of its own.
extern "C" {
int64 new_without_memory() {
  operator delete(operator new(uint64{1} << 60));
  return 1;
}
int64 call_pure_virtual() {
  Derived derived;
  return 1;
}
int64 call_terminate() { std::terminate(); }
int64 initialize_within_itself() { return value_of_itself(); }
}
