// What the runtime keeps per thread. On macOS the gs register points at an array of 8-byte slots of the calling
// thread; the first 256 belong to the system, and compilers inline the access to the rest. These functions do the
// same, each with another form of instruction, since it is instructions like these that have to be redirected
// before the image can run on Windows.
#pragma once

#include <stdint.h>

struct Il2CppThread;

/// Slots of the runtime. High ones: those from 256 up are handed out as pthread keys from the low end.
enum ThreadSlot : uint64_t {
  SLOT_CURRENT_THREAD = 480,   // Il2CppThread*, null on a thread that is not attached
  SLOT_INVOKE_DEPTH = 481,     // invocations that are on the thread's stack now
  SLOT_ALLOCATIONS = 482,      // objects made by the thread
  SLOT_ALLOCATED_BYTES = 483,  // right behind: the two are read as one record
  SLOT_EVENT_COUNTERS = 484,   // four counters, by ThreadEvent
};

enum ThreadEvent : uint64_t { EVENT_INVOKE, EVENT_INTERNAL_CALL, EVENT_EXCEPTION, EVENT_LOG };

void* thread_slot(ThreadSlot slot);
void set_thread_slot(ThreadSlot slot, void* value);

Il2CppThread* current_thread();
bool thread_is_attached();
void forget_current_thread();

void enter_invocation();
void leave_invocation();
uint32_t invocation_depth();

void count_allocation(uint64_t bytes);
uint64_t allocations_of_thread();
uint64_t allocated_bytes_of_thread();

void count_event(ThreadEvent event);
uint64_t event_count(ThreadEvent event);
