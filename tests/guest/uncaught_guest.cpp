// Probes: exceptions that end the game. Each is called in a process of its own; more are in uncaught_frames.S.
#include "darwin_threads.h"

extern "C" int __gxx_personality_v0();

struct Escaped {};

extern "C" {
void uncaught_class() { throw Escaped(); }
void uncaught_number() { throw 1; }
int uncaught_in_thread() {
  Thread* thread;
  pthread_create(&thread, nullptr, [](void*) -> void* { throw Escaped(); }, nullptr);
  for (;;) asm volatile("pause");
}
void leave_once() {
  static int64 predicate;
  try {
    dispatch_once_f(&predicate, nullptr, [](void*) { throw Escaped(); });
  } catch (Escaped&) {  // which does not get here
  }
}
void escape_noexcept() noexcept { uncaught_class(); }
void rethrow_nothing() { throw; }
void call_personality() { __gxx_personality_v0(); }
}
