// Threads, keys, locks, dispatch, Mach thread control and signals, called as compiled macOS code calls them.
#include "darwin_threads.h"

namespace {

void* const never = dispatch_semaphore_create(0);
void wait_milliseconds(int64 milliseconds) {
  dispatch_semaphore_wait(never, dispatch_time(0, milliseconds * 1'000'000));
}

int32 destroyed[4];
Key keys[4];

}  // namespace

GUEST_TEST(a_new_thread_is_the_one_that_its_creator_got) {
  struct Inside {
    Thread* self;
    uint32 port;
    bool on_its_stack;
  } inside[2];
  Thread* created[2];
  for (int32 i = 0; i < 2; ++i) {
    Crew crew(1, [&](int64) {
      uint8 local = 0;
      const uint8* const stack = pthread_get_stackaddr_np(pthread_self());
      inside[i] = {pthread_self(), mach_thread_self(), &local < stack && stack - &local < 0x800000};
      CHECK(inside[i].self == pthread_self() && inside[i].port == mach_thread_self());
    });
    created[i] = crew.thread();
  }
  for (int32 i = 0; i < 2; ++i) {
    CHECK(inside[i].self == created[i] && created[i] != pthread_self() && inside[i].on_its_stack);
    CHECK(inside[i].port >= 4096 && inside[i].port != mach_thread_self());
  }
  CHECK(created[0] != created[1] && inside[0].port != inside[1].port);
}

GUEST_TEST(a_thread_has_eight_mebibytes_of_stack_to_touch_in_any_order) {
  run_on_threads(1, [](int64) {
    volatile uint8 block[0x600000];
    block[0] = 1;  // the far end first: no guard page is met on the way
    block[0x300000] = 2;
    block[sizeof block - 1] = 3;
    CHECK(block[0] + block[0x300000] + block[sizeof block - 1] == 6);
  });
}

GUEST_TEST(keys_hold_a_value_per_thread) {
  Key key = 0;
  CHECK(pthread_key_create(&key, nullptr) == 0);
  CHECK(key >= 1 && key < 512);
  CHECK(pthread_getspecific(key) == nullptr);
  CHECK(pthread_setspecific(key, &key) == 0);
  run_on_threads(1, [&](int64) {
    CHECK(pthread_getspecific(key) == nullptr);
    pthread_setspecific(key, &key + 1);
    pthread_setspecific(key, nullptr);  // a value outlives its key, and would meet the next key's destructor
  });
  CHECK(pthread_getspecific(key) == &key);
  CHECK(pthread_key_delete(key) == 0);
  CHECK(pthread_getspecific(512) == nullptr && pthread_getspecific(~uint64{0}) == nullptr);
  CHECK(pthread_setspecific(512, &key) == 22);
  CHECK(pthread_key_delete(512) == 0);
}

GUEST_TEST(keys_run_out_and_come_back) {
  Key taken[512];
  int32 count = 0;
  int32 result = 0;
  while (count < 512 && (result = pthread_key_create(&taken[count], nullptr)) == 0) ++count;
  CHECK(result == 35 && count <= 511 && count > 400);
  Key untouched = 77;
  CHECK(pthread_key_create(&untouched, nullptr) == 35 && untouched == 77);
  pthread_key_delete(taken[4]);
  Key again = 0;
  CHECK(pthread_key_create(&again, nullptr) == 0 && again == taken[4]);
  for (int32 i = 0; i < count; ++i) pthread_key_delete(taken[i]);
}

GUEST_TEST(destructors_run_in_passes_when_a_thread_ends) {
  // 0: plain; 1: stores itself again each time; 2: none; 3: deleted before the thread ends.
  pthread_key_create(&keys[0], [](void* value) { destroyed[0] += *static_cast<int32*>(value); });
  pthread_key_create(&keys[1], [](void* value) {
    CHECK(pthread_getspecific(keys[1]) == nullptr);
    ++destroyed[1];
    pthread_setspecific(keys[1], value);
  });
  pthread_key_create(&keys[2], nullptr);
  pthread_key_create(&keys[3], [](void*) { ++destroyed[3]; });
  static int32 value = 5;
  run_on_threads(1, [&](int64) {
    for (const Key key : keys) pthread_setspecific(key, &value);
    pthread_key_delete(keys[3]);
  });
  for (int32 i = 0; i < 500 && __atomic_load_n(&destroyed[1], __ATOMIC_ACQUIRE) < 4; ++i) wait_milliseconds(10);
  wait_milliseconds(20);
  CHECK(destroyed[0] == 5 && destroyed[1] == 4 && destroyed[3] == 0);
  for (int32 i = 0; i < 3; ++i) pthread_key_delete(keys[i]);
}

GUEST_TEST(mutexes_exclude_whichever_way_they_were_made) {
  Mutex normal = static_mutex, recursive = static_recursive_mutex, made, made_recursive;
  CHECK(pthread_mutex_init(&made, nullptr) == 0);
  pthread_mutexattr_t attribute;
  CHECK(pthread_mutexattr_init(&attribute) == 0 && pthread_mutexattr_settype(&attribute, 2) == 0);
  CHECK(pthread_mutex_init(&made_recursive, &attribute) == 0 && pthread_mutexattr_destroy(&attribute) == 0);
  Mutex* const mutexes[] = {&normal, &recursive, &made, &made_recursive};
  for (Mutex* mutex : mutexes) {
    constexpr int64 threads = 4, rounds = 20'000;
    volatile int64 counter = 0;
    run_on_threads(threads, [&](int64) {
      for (int64 round = 0; round < rounds; ++round) {
        pthread_mutex_lock(mutex);
        counter = counter + 1;
        pthread_mutex_unlock(mutex);
      }
    });
    CHECK(counter == threads * rounds);
    CHECK(pthread_mutex_destroy(mutex) == 0);
  }
}

GUEST_TEST(a_recursive_mutex_is_free_after_as_many_unlocks_as_locks) {
  Mutex mutex = static_recursive_mutex;
  CHECK(pthread_mutex_lock(&mutex) == 0 && pthread_mutex_lock(&mutex) == 0);
  bool entered = false;
  Signal started;
  Crew other(1, [&](int64) {
    started.raise();
    pthread_mutex_lock(&mutex);
    __atomic_store_n(&entered, true, __ATOMIC_RELEASE);
    pthread_mutex_unlock(&mutex);
  });
  started.wait();
  pthread_mutex_unlock(&mutex);
  wait_milliseconds(30);
  CHECK(!__atomic_load_n(&entered, __ATOMIC_ACQUIRE));  // one lock is left
  pthread_mutex_unlock(&mutex);
  other.join();
  CHECK(entered);
}

GUEST_TEST(a_condition_wait_gives_up_all_of_a_recursive_mutex_and_takes_it_back_as_deep) {
  Mutex mutex = static_recursive_mutex;
  Condition condition = static_condition;
  bool ready = false, seen = false;
  Signal taken_back;
  pthread_mutex_lock(&mutex);
  pthread_mutex_lock(&mutex);
  Crew other(1, [&](int64) {
    pthread_mutex_lock(&mutex);  // only free because the other thread waits
    ready = true;
    pthread_cond_signal(&condition);
    pthread_mutex_unlock(&mutex);
    taken_back.wait();
    pthread_mutex_lock(&mutex);  // only free after two unlocks
    __atomic_store_n(&seen, true, __ATOMIC_RELEASE);
    pthread_mutex_unlock(&mutex);
  });
  while (!ready) CHECK(pthread_cond_wait(&condition, &mutex) == 0);
  taken_back.raise();
  pthread_mutex_unlock(&mutex);
  wait_milliseconds(30);
  CHECK(!__atomic_load_n(&seen, __ATOMIC_ACQUIRE));
  pthread_mutex_unlock(&mutex);
  other.join();
  CHECK(seen);
}

GUEST_TEST(a_broadcast_wakes_all_and_a_signal_one) {
  Mutex mutex = static_mutex;
  Condition condition;
  int32 waiting = 0, tickets = 0, woken = 0;
  Signal awake;
  CHECK(pthread_cond_init(&condition, nullptr) == 0);
  constexpr int32 threads = 5;
  Crew crew(threads, [&](int64) {
    pthread_mutex_lock(&mutex);
    __atomic_fetch_add(&waiting, 1, __ATOMIC_RELEASE);
    while (tickets == 0) pthread_cond_wait(&condition, &mutex);
    --tickets;
    ++woken;
    pthread_mutex_unlock(&mutex);
    awake.raise();
  });
  const auto give = [&](int32 count, int32 (*wake)(Condition*)) {
    pthread_mutex_lock(&mutex);
    tickets = count;
    wake(&condition);
    pthread_mutex_unlock(&mutex);
    for (int32 i = 0; i < count; ++i) awake.wait();
  };
  while (__atomic_load_n(&waiting, __ATOMIC_ACQUIRE) < threads) wait_milliseconds(1);
  give(1, pthread_cond_signal);
  CHECK(woken == 1);
  give(threads - 1, pthread_cond_broadcast);
  CHECK(woken == threads);
}

GUEST_TEST(a_once_function_runs_once_and_may_nest) {
  struct Shared {
    int64 predicate = 0, inner = 0;
    int32 runs = 0, inner_runs = 0, seen_early = 0;
  } shared;
  Signal go;
  constexpr int64 threads = 8;
  Crew crew(threads, [&](int64) {
    go.wait();
    dispatch_once_f(&shared.predicate, &shared, [](void* context) {
      auto* shared = static_cast<Shared*>(context);
      wait_milliseconds(20);
      dispatch_once_f(&shared->inner, shared, [](void* context) { ++static_cast<Shared*>(context)->inner_runs; });
      ++shared->runs;
    });
    if (shared.runs != 1) ++shared.seen_early;
  });
  for (int64 i = 0; i < threads; ++i) go.raise();
  crew.join();
  CHECK(shared.runs == 1 && shared.inner_runs == 1 && shared.seen_early == 0);
  CHECK(shared.predicate == -1 && shared.inner == -1);
}

GUEST_TEST(semaphores_count_and_time_out) {
  void* semaphore = dispatch_semaphore_create(1);
  CHECK(dispatch_semaphore_wait(semaphore, 0) == 0);
  CHECK(dispatch_semaphore_wait(semaphore, 0) == 49);
  CHECK(dispatch_semaphore_wait(semaphore, dispatch_time(0, 20'000'000)) == 49);
  CHECK(dispatch_semaphore_wait(semaphore, 1) == 49);  // a deadline long past
  CHECK(dispatch_semaphore_signal(semaphore) == 0);
  CHECK(dispatch_semaphore_wait(semaphore, forever) == 0);
  dispatch_release(semaphore);
  dispatch_release(nullptr);
  uint64 foreign[2] = {1, 2};
  dispatch_release(foreign);

  const uint64 now = dispatch_time(0, 0);
  wait_milliseconds(30);
  CHECK(dispatch_time(0, 0) - now >= 20'000'000);
  CHECK(dispatch_time(forever, 5) == forever);
  CHECK(dispatch_time(1000, 5) == 1005 && dispatch_time(1000, -5) == 995);
}

namespace {

/// Stays in one loop with known register contents.
[[gnu::naked]] void spin_with_registers() {
  asm(R"(
    pushq %rbx
    pushq %r12
    movq $0x1b, %rbx
    movq $0x112, %r12
    movq $0x1110, %r10
    movq $1, _spinning_flag(%rip)
  1:
    cmpb $0, _spin_flag(%rip)
    jne 1b
    popq %r12
    popq %rbx
    retq
  )");
}
extern "C" {
uint64 spinning_flag = 0, spin_flag = 1;
}

}  // namespace

GUEST_TEST(a_stopped_thread_stands_still_and_shows_its_registers) {
  uint32 port = 0;
  Crew crew(1, [&](int64) {
    port = mach_thread_self();
    spin_with_registers();
  });
  while (__atomic_load_n(&spinning_flag, __ATOMIC_ACQUIRE) == 0) wait_milliseconds(1);

  CHECK(thread_suspend(port) == 0);
  ThreadState state;
  uint32 count = 42;
  CHECK(thread_get_state(port, x86_thread_state64, &state, &count) == 0 && count == 42);
  CHECK(state.rbx == 0x1b && state.r12 == 0x112 && state.r10 == 0x1110);
  const auto code = reinterpret_cast<uint64>(&spin_with_registers);
  CHECK(state.rip >= code && state.rip < code + 96);
  const auto stack = reinterpret_cast<uint64>(pthread_get_stackaddr_np(crew.thread()));
  CHECK(state.rsp < stack && stack - state.rsp < 0x10000 && state.rsp % 8 == 0);
  CHECK(state.cs != 0 && state.rflags != 0);

  CHECK(thread_suspend(port) == 0);  // twice stopped, twice let go
  CHECK(thread_resume(port) == 0);
  spin_flag = 0;
  wait_milliseconds(30);
  CHECK(thread_get_state(port, x86_thread_state64, &state, &count) == 0);
  CHECK(state.rip >= code && state.rip < code + 96);
  CHECK(thread_resume(port) == 0);
  crew.join();

  wait_milliseconds(50);  // it has ended
  CHECK(thread_suspend(port) == 0);
  memset(&state, 0xFF, sizeof state);
  CHECK(thread_get_state(port, x86_thread_state64, &state, &count) == 0 && count == 42);
  CHECK(state.rsp == stack && state.rax == 0 && state.rip == 0 && state.gs == 0);
  CHECK(thread_resume(port) == 0);
}

GUEST_TEST(mach_calls_refuse_what_they_do_not_know) {
  ThreadState state;
  uint32 count = 42;
  const uint32 unknown[] = {0, 4095, 4096 + 4095, 0xFFFFFFFF};
  for (const uint32 port : unknown) {
    CHECK(thread_suspend(port) == 4 && thread_resume(port) == 4);
    CHECK(thread_get_state(port, x86_thread_state64, &state, &count) == 4);
  }
  CHECK(thread_get_state(mach_thread_self(), 7, &state, &count) == 4);
  count = 41;
  CHECK(thread_get_state(mach_thread_self(), x86_thread_state64, &state, &count) == 4);
  CHECK(mach_task_self_ == 259);
  CHECK(mach_port_deallocate(mach_task_self_, mach_thread_self()) == 0);
}

GUEST_TEST(signal_actions_are_remembered) {
  const Handler first = [](int32) {}, second = [](int32) {};
  SignalAction action{first, 0x1234, 2}, old{second, 9, 9};
  CHECK(sigaction(30, &action, &old) == 0 && old.handler == nullptr && old.mask == 0 && old.flags == 0);
  CHECK(sigaction(30, nullptr, &old) == 0 && old.handler == first && old.mask == 0x1234 && old.flags == 2);
  CHECK(signal(30, second) == first);
  CHECK(sigaction(30, nullptr, &old) == 0 && old.handler == second && old.mask == 0x1234);
  const int32 wrong_signals[] = {0, 32, -1};
  for (const int32 wrong : wrong_signals) {
    *__error() = 0;
    CHECK(sigaction(wrong, &action, nullptr) == -1 && *__error() == 22);
    CHECK(signal(wrong, first) == reinterpret_cast<Handler>(-1));
  }
}

GUEST_TEST(calls_that_have_little_to_do) {
  uint8 attribute[72];
  memset(attribute, 0xEE, sizeof attribute);
  CHECK(pthread_attr_init(attribute) == 0);
  CHECK(attribute[0] == 0 && attribute[63] == 0 && attribute[64] == 0xEE);
  CHECK(pthread_attr_destroy(attribute) == 0);
  int32 state = 7;
  CHECK(pthread_setcancelstate(1, &state) == 0 && state == 0);
  CHECK(pthread_setcancelstate(1, nullptr) == 0);
  CHECK(pthread_atfork(nullptr, nullptr, nullptr) == 0);
  CHECK(pthread_detach(pthread_self()) == 0);
  CHECK(pthread_setname_np("描画/main") == 0);
  const void* destination = nullptr;
  _Block_object_assign(&destination, attribute, 3);
  CHECK(destination == attribute);
}

// The last test: it uses up the places of the thread registry.
GUEST_TEST(threads_run_out_with_an_error_and_those_that_run_go_on) {
  const uint32 port = mach_thread_self();
  Key key = 0;
  CHECK(pthread_key_create(&key, nullptr) == 0 && pthread_setspecific(key, &key) == 0);
  Signal done;
  int32 result = 0, started = 0;
  *__error() = 0;
  const auto raise = [](void* signal) -> void* { return static_cast<Signal*>(signal)->raise(), nullptr; };
  for (Thread* thread; started < 5000; ++started) {
    result = pthread_create(&thread, nullptr, raise, &done);
    if (result != 0) break;
    done.wait();
  }
  CHECK(result == 35 && *__error() == 35);
  CHECK(started > 1500 && started < 4096);
  CHECK(mach_thread_self() == port && pthread_getspecific(key) == &key);
  CHECK(thread_resume(4096 + 4095) == 0);  // the last place is taken
}
