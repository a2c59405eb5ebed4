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

}  // namespace

GUEST_TEST(initializers_run_once_and_in_order) {
  CHECK(initializers_run == 3);
  for (int i = 0; i < 3; ++i) CHECK(initializer_order[i] == i + 1);
}

GUEST_TEST(data_without_an_implementation_reads_as_zeros_or_is_null) {
  for (int i = 0; i < 64; ++i) CHECK((&missing_class)[i] == 0 && (&missing_facet)[i] == 0);
  CHECK(&missing_class != &missing_facet && &absent_weak == nullptr);
}

GUEST_TEST(a_long_jump_comes_back_to_its_set_jump) {
  jmp_buf buffer;
  volatile bool jumped = false;
  const int32 came = _setjmp(buffer);
  if (!jumped) jumped = true, _longjmp(buffer, 42);
  CHECK(came == 42);
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
