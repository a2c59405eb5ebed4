// Guards of function-local statics, operators new and delete, and the ends of C++ code that cannot go on.
#include "darwin_threads.h"
#include "guest_test.h"

extern "C" {
int32 __cxa_guard_acquire(uint64*);
void __cxa_guard_release(uint64*);
void __cxa_guard_abort(uint64*);
int32 posix_memalign(void**, uint64, uint64);
void* malloc(uint64);
void free(void*);
}
void* operator new(unsigned long);
void* operator new[](unsigned long);
void operator delete(void*) noexcept;
void operator delete[](void*) noexcept;
void destroy_mutex(Mutex*) __asm("__ZNSt3__15mutexD1Ev");
void destroy_condition(Condition*) __asm("__ZNSt3__118condition_variableD1Ev");
namespace std {
[[noreturn]] void terminate() noexcept;
}

namespace {

constexpr int racers = 8;
constexpr int guards = 400;
constexpr uint64 untouched = 0xABCDEF123456'0000;  // of a guard, only bytes 0 and 1 are used

uint64 raced[guards];
int32 attempts[guards];   // written by the thread that has the guard
uint64 results[guards];   // written before the guard is released
int32 wrong;              // results that a thread saw too early
volatile int64 sink;

void* race(void*) {
  for (int i = 0; i < guards; ++i) {
    if (__cxa_guard_acquire(&raced[i])) {
      const bool first = ++attempts[i] == 1;
      for (int spin = 0; spin < 200; ++spin) sink = spin;
      if (first && i % 2 == 0) {
        __cxa_guard_abort(&raced[i]);
        --i;  // and again, as one of all
      } else {
        results[i] = static_cast<uint64>(i) + 1;
        __cxa_guard_release(&raced[i]);
      }
    } else if (results[i] != static_cast<uint64>(i) + 1) {
      __atomic_add_fetch(&wrong, 1, __ATOMIC_RELAXED);
    }
  }
  return nullptr;
}

Signal started, done;

template <void* (*Run)(void*)>
void on_threads(int count) {
  for (int i = 0; i < count; ++i) {
    Thread* thread;
    pthread_create(&thread, nullptr, [](void*) -> void* {
      Run(nullptr);
      done.raise();
      return nullptr;
    }, nullptr);
  }
  for (int i = 0; i < count; ++i) done.wait();
}

struct Counted {
  static inline int made = 0;
  int number = ++made;
};
Counted& counted() {
  static Counted one;
  return one;
}

uint64 handed_over = untouched;
int32 second_answer = -1;

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
  for (uint64& guard : raced) guard = untouched;
  on_threads<race>(racers);
  bool right = wrong == 0;
  for (int i = 0; i < guards; ++i) {
    right = right && attempts[i] == 2 - i % 2 && raced[i] == (untouched | 1);
  }
  CHECK(right);
  CHECK(&counted() == &counted() && counted().number == 1 && Counted::made == 1);
}

GUEST_TEST(an_initializer_may_come_to_other_guards) {
  static int32 inner_runs = 0;
  static const int32 outer = [] {
    static const int32 inner = ++inner_runs;
    return inner + 10;
  }();
  CHECK(outer == 11 && inner_runs == 1);
}

GUEST_TEST(a_waiting_thread_takes_over_an_aborted_guard) {
  CHECK(__cxa_guard_acquire(&handed_over) == 1);
  CHECK(handed_over == (untouched | 0x100));
  Thread* thread;
  pthread_create(&thread, nullptr, [](void*) -> void* {
    started.raise();
    second_answer = __cxa_guard_acquire(&handed_over);
    done.raise();
    return nullptr;
  }, nullptr);
  started.wait();
  CHECK(second_answer == -1);
  __cxa_guard_abort(&handed_over);
  done.wait();
  CHECK(second_answer == 1);
  __cxa_guard_release(&handed_over);  // by a thread that did not acquire it: the owner is remembered, not asked
  CHECK(handed_over == (untouched | 1) && __cxa_guard_acquire(&handed_over) == 0);
}

GUEST_TEST(new_and_malloc_share_a_heap) {
  auto* const block = static_cast<uint8*>(operator new(0));
  CHECK(block != nullptr && reinterpret_cast<uint64>(block) % 16 == 0);
  free(block);
  operator delete(malloc(100));
  void* aligned = nullptr;
  CHECK(posix_memalign(&aligned, 4096, 100) == 0);
  operator delete[](aligned);
  free(operator new[](100));
  operator delete(nullptr);
}

GUEST_TEST(locks_of_libcxx_have_nothing_to_destroy) {
  Mutex mutex = static_mutex;
  Condition condition = static_condition;
  pthread_mutex_lock(&mutex);
  destroy_condition(&condition);
  pthread_mutex_unlock(&mutex);
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
