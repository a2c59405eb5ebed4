// The game's side of the thread benchmarks: loops as compiled macOS code has them.
#include "darwin_threads.h"

namespace {
Mutex mutex = static_mutex;
uint32 ports[64];
int32 port_count = 0;
volatile bool spinning = true;
}  // namespace

extern "C" {

void lock_loop(uint64 rounds) {
  for (uint64 i = 0; i < rounds; ++i) {
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
  }
}

// In these two each access waits for the value of the one before, as code that uses what it reads does.

uint64 getspecific_loop(uint64 rounds) {
  uint64 key = 300;
  for (uint64 i = 0; i < rounds; ++i) {
    auto value = reinterpret_cast<uint64>(pthread_getspecific(key));
    asm volatile("andq $0, %0" : "+r"(value));
    key = 300 + value;
  }
  return key;
}

/// The instruction that the patch replaces: macOS's inlined pthread_getspecific.
uint64 gs_loop(uint64 rounds) {
  uint64 key = 300;
  for (uint64 i = 0; i < rounds; ++i) {
    uint64 value;
    asm volatile("movq %%gs:(,%1,8), %0\n\tandq $0, %0" : "=r"(value) : "r"(key));
    key = 300 + value;
  }
  return key;
}

/// Where the calling thread's storage lies: behind the 48 bytes of its record's header.
uint64 storage_address(uint64) { return reinterpret_cast<uint64>(pthread_self()) + 48; }

void start_spinners(uint64 count) {
  for (uint64 i = 0; i < count; ++i) {
    Thread* thread;
    pthread_create(
        &thread, nullptr,
        [](void*) -> void* {
          ports[__atomic_fetch_add(&port_count, 1, __ATOMIC_SEQ_CST)] = mach_thread_self();
          while (spinning) asm volatile("pause");
          return nullptr;
        },
        nullptr);
  }
  while (__atomic_load_n(&port_count, __ATOMIC_SEQ_CST) < static_cast<int32>(count)) asm volatile("pause");
}

void stop_the_world(uint64 rounds) {
  ThreadState state;
  for (uint64 round = 0; round < rounds; ++round) {
    for (int32 i = 0; i < port_count; ++i) thread_suspend(ports[i]);
    for (int32 i = 0; i < port_count; ++i) {
      uint32 count = 42;
      thread_get_state(ports[i], x86_thread_state64, &state, &count);
    }
    for (int32 i = 0; i < port_count; ++i) thread_resume(ports[i]);
  }
}

int il2cpp_init(const char*) { return 0; }
}
