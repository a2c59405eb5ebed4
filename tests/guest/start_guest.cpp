// What an image meets while it is started: initializers, imports without an implementation, non-local jumps.
#include "guest_test.h"
#include "sdk/darwin/setjmp.h"

extern "C" {
// Imports that nobody implements.
int64 missing_function(int64);
extern const uint64 missing_class __asm("_OBJC_CLASS_$_VLMUnknown");
extern const uint64 missing_facet __asm("__ZNSt3__15ctypeIwE2idE");
extern int64 absent_weak() __attribute__((weak_import));
}

namespace {

int initializer_order[3];
int initializers_run = 0;
struct Numbered {
  explicit Numbered(int number) { initializer_order[initializers_run++ % 3] = number; }
};
Numbered first(1), second(2), third(3);

[[gnu::noinline]] void jump_from_below(jmp_buf buffer, int32 value, int depth) {
  volatile char frame[64];
  frame[0] = static_cast<char>(depth);
  if (depth == 0) _longjmp(buffer, value);
  jump_from_below(buffer, value, depth - 1);
  frame[1] = frame[0];
}

int32 value_after_jump(int32 sent) {
  jmp_buf buffer;
  volatile int32 before = 7;
  const int32 came = _setjmp(buffer);
  if (came == 0) {
    before = 8;
    jump_from_below(buffer, sent, 5);
  }
  return before == 8 ? came : -1;
}

}  // namespace

GUEST_TEST(initializers_run_once_and_in_order) {
  CHECK(initializers_run == 3);
  CHECK(initializer_order[0] == 1 && initializer_order[1] == 2 && initializer_order[2] == 3);
}

GUEST_TEST(data_without_an_implementation_reads_as_zeros) {
  bool zero = true;
  for (int i = 0; i < 64; ++i) zero = zero && (&missing_class)[i] == 0 && (&missing_facet)[i] == 0;
  CHECK(zero);
  CHECK(&missing_class != &missing_facet);
}

GUEST_TEST(a_weak_import_without_an_implementation_is_null) { CHECK(&absent_weak == nullptr); }

GUEST_TEST(a_long_jump_comes_back_to_its_set_jump) {
  CHECK(value_after_jump(42) == 42);
  CHECK(value_after_jump(-1) == -1);
  CHECK(value_after_jump(0) == 1);
}

// Probes for the driver: each runs in a process of its own.
extern "C" {
/// With VLM_TRAP_CONTINUE=1 four calls return 0; without it the first one ends the process.
int64 call_missing_function() {
  int64 sum = 0;
  for (int i = 0; i < 4; ++i) sum += missing_function(i);
  return sum;
}
}
