// Threads, keys, locks, dispatch, Mach thread control and signals, called as compiled macOS code calls them.
#include "darwin_threads.h"

extern "C" {
struct SignalAction {
  void (*handler)(int32);
  uint32 mask;
  int32 flags;
};
uint8* pthread_get_stackaddr_np(Thread*);
int32 pthread_setname_np(const char*);
int32 pthread_atfork(void (*)(), void (*)(), void (*)());
extern uint32 mach_task_self_;
int32 mach_port_deallocate(uint32, uint32);
void _Block_object_assign(void*, const void*, int32);
int32 sigaction(int32, const SignalAction*, SignalAction*);
using Handler = void (*)(int32);
Handler signal(int32, Handler);

int64 (*open_handles)() = nullptr;  // both given by the driver
void* (*windows_symbol)(const char* module, const char* name) = nullptr;
}

namespace {

void* const never = dispatch_semaphore_create(0);
void wait_milliseconds(int64 milliseconds) {
  dispatch_semaphore_wait(never, dispatch_time(DISPATCH_TIME_NOW, milliseconds * 1'000'000));
}

int32 destroyed[3];
pthread_key_t keys[3];

}  // namespace

GUEST_TEST(a_thread_has_an_identity_and_a_large_stack_of_its_own) {
  const uint32 port = mach_thread_self();
  Thread* const self = pthread_self();
  run_on_threads(2, [&](int64) {
    volatile uint8 block[0x600000];
    block[0] = 1;  // the far end of its stack first: no guard page is met on the way
    const uint8* const stack = pthread_get_stackaddr_np(pthread_self());
    CHECK(&block[0] < stack && stack - &block[0] < 0x800000);
    CHECK(mach_thread_self() >= 4096 && mach_thread_self() != port && pthread_self() != self);
  });
}

GUEST_TEST(keys_hold_a_value_per_thread_run_out_and_come_back) {
  pthread_key_t taken[512], key = 77;
  int32 count = 0;
  while (count < 512 && pthread_key_create(&taken[count], nullptr) == 0) ++count;
  CHECK(count <= 511 && count > 400 && pthread_key_create(&key, nullptr) == 35 && key == 77);
  CHECK(pthread_key_delete(taken[4]) == 0 && pthread_key_create(&key, nullptr) == 0 && key == taken[4]);
  CHECK(key >= 1 && key < 512 && pthread_getspecific(key) == nullptr && pthread_setspecific(key, &key) == 0);
  run_on_threads(1, [&](int64) {
    CHECK(pthread_getspecific(key) == nullptr);
    pthread_setspecific(key, &key + 1);
    pthread_setspecific(key, nullptr);  // a value outlives its key, and would meet the next key's destructor
  });
  CHECK(pthread_getspecific(key) == &key);
  while (count-- > 0) pthread_key_delete(taken[count]);
  CHECK(pthread_getspecific(512) == nullptr && pthread_setspecific(512, &key) == 22 && pthread_key_delete(512) == 0);
}

GUEST_TEST(destructors_run_in_passes_when_a_thread_ends) {
  // 0: plain; 1: stores itself again each time; 2: deleted before the thread ends.
  pthread_key_create(&keys[0], [](void* value) { destroyed[0] += *static_cast<int32*>(value); });
  pthread_key_create(&keys[1], [](void* value) {
    CHECK(pthread_getspecific(keys[1]) == nullptr && ++destroyed[1] > 0);
    pthread_setspecific(keys[1], value);
  });
  pthread_key_create(&keys[2], [](void*) { ++destroyed[2]; });
  static int32 value = 5;
  run_on_threads(1, [&](int64) {
    for (const pthread_key_t key : keys) pthread_setspecific(key, &value);
    pthread_key_delete(keys[2]);
  });
  for (int32 i = 0; i < 500 && __atomic_load_n(&destroyed[1], __ATOMIC_ACQUIRE) < 4; ++i) wait_milliseconds(10);
  wait_milliseconds(20);
  CHECK(destroyed[0] == 5 && destroyed[1] == 4 && destroyed[2] == 0);
}

GUEST_TEST(mutexes_exclude_whichever_way_they_were_made) {
  Mutex mutexes[] = {static_mutex, {0x32AAABA1, {}}, {}, {}};  // the second one recursive
  pthread_mutexattr_t attribute;
  CHECK(pthread_mutexattr_init(&attribute) == 0 && pthread_mutexattr_settype(&attribute, 2) == 0);
  CHECK(pthread_mutex_init(&mutexes[2], nullptr) == 0 && pthread_mutex_init(&mutexes[3], &attribute) == 0 &&
        pthread_mutexattr_destroy(&attribute) == 0);
  for (Mutex& mutex : mutexes) {
    volatile int64 counter = 0;
    run_on_threads(4, [&](int64) {
      for (int64 round = 0; round < 20'000; ++round) {
        pthread_mutex_lock(&mutex);
        counter = counter + 1;
        pthread_mutex_unlock(&mutex);
      }
    });
    CHECK(counter == 80'000 && pthread_mutex_destroy(&mutex) == 0);
  }
}

GUEST_TEST(a_condition_wait_gives_up_all_of_a_recursive_mutex_and_takes_it_back_as_deep) {
  Mutex mutex = {0x32AAABA1, {}};
  Condition condition;
  CHECK(pthread_cond_init(&condition, nullptr) == 0);
  bool ready = false, seen = false;
  Signal taken_back;
  pthread_mutex_lock(&mutex);
  pthread_mutex_lock(&mutex);
  Crew other(1, [&](int64) {
    pthread_mutex_lock(&mutex);  // only free because the other thread waits
    ready = true;
    CHECK(pthread_cond_signal(&condition) == 0 && pthread_cond_broadcast(&condition) == 0);
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
}

GUEST_TEST(semaphores_count_and_time_out) {
  void* const semaphore = dispatch_semaphore_create(1);
  const uint64 soon = dispatch_time(DISPATCH_TIME_NOW, 20'000'000);
  CHECK(dispatch_semaphore_wait(semaphore, 0) == 0 && dispatch_semaphore_wait(semaphore, 0) == 49);
  CHECK(dispatch_semaphore_wait(semaphore, 1) == 49 && dispatch_semaphore_wait(semaphore, soon) == 49);  // 1: long past
  CHECK(dispatch_time(DISPATCH_TIME_NOW, 0) >= soon && dispatch_semaphore_signal(semaphore) == 0);
  CHECK(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_FOREVER) == 0);
  dispatch_release(semaphore);
  CHECK(dispatch_time(DISPATCH_TIME_FOREVER, 5) == DISPATCH_TIME_FOREVER && dispatch_time(1000, -5) == 995);
  int64 once = 0, runs = 0;
  for (int32 i = 0; i < 2; ++i) dispatch_once_f(&once, &runs, [](void* counter) { ++*static_cast<int64*>(counter); });
  CHECK(runs == 1 && once == -1);
}

namespace {

/// Stays in one loop with known register contents.
[[gnu::naked]] void spin_with_registers() {
  asm(R"(
    pushq %rbx
    movq $0x1b, %rbx
    movq $0x1110, %r10
    movq $1, _spinning_flag(%rip)
  1:
    cmpb $0, _spin_flag(%rip)
    jne 1b
    popq %rbx
    retq
  )");
}
extern "C" {
uint64 spinning_flag = 0, spin_flag = 1;
}

}  // namespace

GUEST_TEST(a_stopped_thread_stands_still_and_shows_its_registers) {
  uint32 port = 0, count = 42;
  ThreadState state;
  Crew crew(1, [&](int64) {
    port = mach_thread_self();
    spin_with_registers();
  });
  while (__atomic_load_n(&spinning_flag, __ATOMIC_ACQUIRE) == 0) wait_milliseconds(1);
  const auto code = reinterpret_cast<uint64>(&spin_with_registers);
  const auto stack = reinterpret_cast<uint64>(pthread_get_stackaddr_np(crew.thread()));
  const auto stands_there = [&] {
    CHECK(thread_get_state(port, x86_thread_state64, &state, &count) == 0 && count == 42);
    CHECK(state.rip >= code && state.rip < code + 96 && state.cs != 0 && state.rflags != 0);
    CHECK(state.rbx == 0x1b && state.r10 == 0x1110 && state.rsp < stack && stack - state.rsp < 0x10000);
  };
  CHECK(thread_suspend(port) == 0);
  stands_there();
  CHECK(thread_suspend(port) == 0 && thread_resume(port) == 0);  // twice stopped, twice let go
  spin_flag = 0;
  wait_milliseconds(30);
  stands_there();
  CHECK(thread_resume(port) == 0 && thread_resume(port) == 5);  // once too often
  crew.join();
}

GUEST_TEST(mach_calls_refuse_what_they_do_not_know) {
  ThreadState state;
  uint32 count = 42, less = 41;
  static constexpr uint32 unknown[] = {0, 4095, 4096 + 4095, 0xFFFFFFFF};
  for (const uint32 port : unknown) {
    CHECK(thread_suspend(port) == 4 && thread_resume(port) == 4);
    CHECK(thread_get_state(port, x86_thread_state64, &state, &count) == 4);
  }
  const uint32 self = mach_thread_self();
  CHECK(thread_get_state(self, 7, &state, &count) == 4 && thread_get_state(self, 4, &state, &less) == 4);
  CHECK(mach_task_self_ == 259 && mach_port_deallocate(mach_task_self_, self) == 0);
}

GUEST_TEST(calls_that_have_little_to_do) {
  pthread_attr_t attribute = {1, {}};
  int32 state = 7;
  CHECK(pthread_attr_init(&attribute) == 0 && pthread_attr_destroy(&attribute) == 0 && attribute.signature == 0);
  CHECK(pthread_setcancelstate(1, &state) == 0 && state == 0 && pthread_setname_np("描画/main") == 0);
  CHECK(pthread_atfork(nullptr, nullptr, nullptr) == 0 && pthread_detach(pthread_self()) == 0);
  const void* destination = nullptr;
  _Block_object_assign(&destination, &state, 3);
  const Handler first = [](int32) {}, second = [](int32) {};
  SignalAction action{first, 0x1234, 2}, old{};
  CHECK(sigaction(30, &action, &old) == 0 && signal(30, second) == first && sigaction(30, nullptr, &old) == 0);
  CHECK(destination == &state && old.handler == second);
  CHECK(sigaction(32, &action, nullptr) == -1 && *__error() == 22 && signal(0, first) == Handler(-1));
}

// ---- Threads that come and go, and a world that stands still --------------------------------------------------------

namespace {

constexpr int32 places = 8;

pthread_key_t own_key;
uint32 living_ports[places];  // 0: nobody

/// Uses the heap and mappings, where it may be stopped, and looks whether it is a new thread to the library.
void live_shortly(int64 place) {
  CHECK(pthread_getspecific(own_key) == nullptr && pthread_setspecific(own_key, &own_key) == 0);
  const uint32 port = mach_thread_self();
  CHECK(port >= 4096 && port < 8192);
  __atomic_store_n(&living_ports[place], port, __ATOMIC_RELEASE);
  for (int32 i = 0; i < 3; ++i) {
    free(malloc(port));
    CHECK(munmap(mmap(nullptr, 65536, 3, MAP_ANON | MAP_PRIVATE, -1, 0), 65536) == 0);
  }
  CHECK(mach_thread_self() == port && pthread_getspecific(own_key) == &own_key);
  __atomic_store_n(&living_ports[place], 0, __ATOMIC_RELEASE);
}
[[gnu::ms_abi]] uint32 live_on_windows(void* place) { return live_shortly(reinterpret_cast<int64>(place)), 0; }

template <class... Arguments>
uint64 call_kernel(const char* name, Arguments... arguments) {
  using Function = __attribute__((ms_abi)) uint64(Arguments...);
  return reinterpret_cast<Function*>(windows_symbol("kernel32.dll", name))(arguments...);
}

void make_one_after_another(bool of_windows, int64 place, int64 count) {
  for (; !of_windows && count > 0; --count) run_on_threads(1, [=](int64) { live_shortly(place); });
  for (; count > 0; --count) {
    const uint64 thread = call_kernel("CreateThread", nullptr, uint64{0}, live_on_windows, place, 0, nullptr);
    CHECK(thread != 0 && static_cast<uint32>(call_kernel("WaitForSingleObject", thread, 100'000)) == 0);
    call_kernel("CloseHandle", thread);
  }
}

/// Stops all that live, again and again. While they stand it maps memory and writes, as a collector does that needs
/// room.
void stop_the_world(const bool& done, int64& stops) {
  while (!__atomic_load_n(&done, __ATOMIC_RELAXED)) {
    uint32 stopped[places], size = 42;
    int32 count = 0;
    for (uint32& living : living_ports) {
      stopped[count] = __atomic_load_n(&living, __ATOMIC_ACQUIRE);
      if (stopped[count] != 0) CHECK(thread_suspend(stopped[count++]) == 0);
    }
    auto* const room = static_cast<uint8*>(mmap(nullptr, 1 << 20, 3, MAP_ANON | MAP_PRIVATE, -1, 0));
    room[count] = 1;
    CHECK(mprotect(room, 4096, 1) == 0 && munmap(room, 1 << 20) == 0);
    ThreadState state;
    thread_get_state(4096, 7, &state, &size);  // which is logged
    for (int32 i = 0; i < count; ++i) {
      CHECK(thread_get_state(stopped[i], x86_thread_state64, &state, &size) == 0 && state.rsp != 0);
    }
    for (int32 i = 0; i < count; ++i) CHECK(thread_resume(stopped[i]) == 0);
    stops += count;
    wait_milliseconds(1);
  }
}

/// So many threads of the game and of Windows, one after another and as many eight at a time.
void come_and_go(int64 count) {
  CHECK(pthread_key_create(&own_key, nullptr) == 0);
  bool done = false;
  int64 stops = 0, handles = 0;
  Crew collector(1, [&](int64) { stop_the_world(done, stops); });
  for (int32 round = 0; round < 4; ++round) {
    const bool of_windows = round % 2 != 0;
    if (round == 2) handles = open_handles();  // some ended threads are remembered
    make_one_after_another(of_windows, 0, count / 4);
    run_on_threads(places, [=](int64 place) { make_one_after_another(of_windows, place, count / 4 / places); });
  }
  const int64 more = open_handles() - handles;
  __atomic_store_n(&done, true, __ATOMIC_RELAXED);
  collector.join();
  CHECK(stops > 0 && more < 20);
}

}  // namespace

GUEST_TEST(threads_come_and_go_without_end_while_a_collector_stops_them) { come_and_go(400); }
/// Hours of play: a probe.
extern "C" int64 come_and_go_for_long() { return come_and_go(20'000), 0; }

GUEST_TEST(a_list_that_is_shifted_holds_every_reference_at_every_moment) {
  static uint64 list[1'001];
  for (uint64 i = 0; i <= 1'000; ++i) list[i] = i;
  uint32 port = 0, count = 42, done = 0;
  Crew crew(1, [&](int64) {
    __atomic_store_n(&port, mach_thread_self(), __ATOMIC_RELEASE);
    for (uint64 size = 8; !__atomic_load_n(&done, __ATOMIC_RELAXED); size = size == 600 ? 8'000 : size % 8'000 + 8) {
      memmove(list + 1, memmove(list, list + 1, size), size);  // a place to the left, and back
    }
  });
  while (__atomic_load_n(&port, __ATOMIC_ACQUIRE) == 0) wait_milliseconds(1);
  for (int32 look = 0; look < 2'000; ++look) {
    bool seen[1'001] = {};
    ThreadState state;
    CHECK(thread_suspend(port) == 0 && thread_get_state(port, x86_thread_state64, &state, &count) == 0);
    for (const uint64 word : list) seen[word] = true;
    for (int32 i = 0; i < 16; ++i) seen[(&state.rax)[i] <= 1'000 ? (&state.rax)[i] : 0] = true;
    CHECK(thread_resume(port) == 0);
    for (int32 i = 1; i <= 1'000; ++i) CHECK(seen[i]);
  }
  __atomic_store_n(&done, 1, __ATOMIC_RELAXED);
}
