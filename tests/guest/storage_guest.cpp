// Thread storage as compiled macOS code reaches it: through gs. The image is patched by a list that Tessera wrote.
#include "guest_test.h"

namespace {

/// What macOS's inlined pthread_getspecific compiles to.
uint64 read_slot(uint64 key) {
  uint64 value;
  asm volatile("movq %%gs:(,%1,8), %0" : "=r"(value) : "r"(key));
  return value;
}
void write_slot_300(uint64 value) { asm volatile("movq %0, %%gs:2400" : : "r"(value) : "memory"); }
uint64 read_slot_300() {
  uint64 value;
  asm volatile("movq %%gs:2400, %0" : "=r"(value));
  return value;
}

/// An access must leave the flags, the red zone and every other register as they were.
bool access_disturbs_nothing() {
  uint64 bad;
  asm volatile(R"(
      movq $0x1111, -8(%%rsp)
      movq $0x2222, -128(%%rsp)
      movq $0x3333, %%rcx
      movq $0x4444, %%rdx
      movq $300, %%rax
      stc
      movq %%gs:(,%%rax,8), %%rax
      sbbq %%rax, %%rax
      notq %%rax
      movq $0, %0
      orq %%rax, %0
      subq $0x1111, -8(%%rsp)
      orq -8(%%rsp), %0
      subq $0x2222, -128(%%rsp)
      orq -128(%%rsp), %0
      subq $0x3333, %%rcx
      orq %%rcx, %0
      subq $0x4444, %%rdx
      orq %%rdx, %0
    )"
               : "=&r"(bad)
               :
               : "rax", "rcx", "rdx", "cc", "memory");
  return bad == 0;
}

}  // namespace

GUEST_TEST(a_slot_keeps_what_was_written_and_its_neighbours_stay) {
  CHECK(read_slot(300) == 0);
  write_slot_300(0x1234567812345678);
  CHECK(read_slot(300) == 0x1234567812345678);
  CHECK(read_slot(299) == 0 && read_slot(301) == 0 && read_slot(511) == 0);
}

GUEST_TEST(an_access_leaves_flags_red_zone_and_registers_alone) { CHECK(access_disturbs_nothing()); }

extern "C" {
/// For the driver's threads: stores a value, lets others run, and tells whether it is still there.
uint64 exchange_slot(uint64 value) {
  const uint64 before = read_slot_300();
  write_slot_300(value);
  return before;
}
}
