// Probes: exceptions that end the game. Each is called in a process of its own; more are in uncaught_frames.S.
#include "darwin_threads.h"

extern "C" int __gxx_personality_v0();

struct Escaped {};

namespace {

/// A handler that none of the exceptions reaches.
int beneath_a_handler(void (*function)()) {
  try {
    function();
  } catch (Escaped&) {
  }
  return 0;
}

[[gnu::noinline]] int descend(int depth) {
  if (depth == 0) throw Escaped();
  const int result = descend(depth - 1);
  asm volatile("" ::: "memory");
  return result;
}

}  // namespace

extern "C" {
void uncaught_class() { throw Escaped(); }
void uncaught_number() { throw 1; }
int uncaught_in_thread() {
  Thread* thread;
  pthread_create(&thread, nullptr, [](void*) -> void* { throw Escaped(); }, nullptr);
  for (;;) asm volatile("pause");
}
int uncaught_in_depth() {
  return beneath_a_handler([] { descend(5000); });
}
int leave_once() {
  static int64 predicate;
  return beneath_a_handler([] { dispatch_once_f(&predicate, nullptr, [](void*) { throw Escaped(); }); });
}
void escape_noexcept() noexcept { uncaught_class(); }
void rethrow_nothing() { throw; }
void call_personality() { __gxx_personality_v0(); }
}
