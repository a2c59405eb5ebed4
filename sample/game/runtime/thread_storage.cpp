#include "runtime/thread_storage.h"

// Every gs access of the game is in this file. Each instruction is at least as long as a 5-byte jump, so it can be
// replaced where it stands.
#define OFFSET(slot) ((slot) * 8)

void* thread_slot(ThreadSlot slot) {
  void* value;
  asm volatile("movq %%gs:(,%1,8), %0" : "=a"(value) : "a"(slot));
  return value;
}

void set_thread_slot(ThreadSlot slot, void* value) {
  asm volatile("movq %0, %%gs:(,%1,8)" : : "c"(value), "a"(slot) : "memory");
}

Il2CppThread* current_thread() {
  Il2CppThread* thread;
  asm volatile("movq %%gs:%c1, %0" : "=r"(thread) : "i"(OFFSET(SLOT_CURRENT_THREAD)));
  return thread;
}

bool thread_is_attached() {
  bool attached;  // from the zero flag: whoever replaces the instruction must leave the flags alone behind it
  asm volatile("cmpq $0, %%gs:%c1\n\tsetne %0" : "=r"(attached) : "i"(OFFSET(SLOT_CURRENT_THREAD)) : "cc");
  return attached;
}

void forget_current_thread() { asm volatile("movq $0, %%gs:%c0" : : "i"(OFFSET(SLOT_CURRENT_THREAD)) : "memory"); }

void enter_invocation() { asm volatile("incl %%gs:%c0" : : "i"(OFFSET(SLOT_INVOKE_DEPTH)) : "cc", "memory"); }
void leave_invocation() { asm volatile("decl %%gs:%c0" : : "i"(OFFSET(SLOT_INVOKE_DEPTH)) : "cc", "memory"); }

uint32_t invocation_depth() {
  uint32_t depth;
  asm volatile("movl %%gs:%c1, %0" : "=r"(depth) : "i"(OFFSET(SLOT_INVOKE_DEPTH)));
  return depth;
}

void count_allocation(uint64_t bytes) {
  asm volatile(
      "addq $1, %%gs:(%1)\n\t"
      "addq %0, %%gs:8(%1)"
      :
      : "c"(bytes), "a"(OFFSET(SLOT_ALLOCATIONS))
      : "cc", "memory");
}

uint64_t allocations_of_thread() { return reinterpret_cast<uint64_t>(thread_slot(SLOT_ALLOCATIONS)); }

uint64_t allocated_bytes_of_thread() {
  uint64_t bytes;
  asm volatile("movq %%gs:8(%1), %0" : "=a"(bytes) : "a"(OFFSET(SLOT_ALLOCATIONS)));
  return bytes;
}

void count_event(ThreadEvent event) {
  asm volatile("incq %%gs:%c0(,%1,8)" : : "i"(OFFSET(SLOT_EVENT_COUNTERS)), "r"(event) : "cc", "memory");
}

uint64_t event_count(ThreadEvent event) {
  uint64_t count;
  asm volatile("movq %%gs:(%1,%2,8), %0" : "=a"(count) : "a"(OFFSET(SLOT_EVENT_COUNTERS)), "c"(event));
  return count;
}
