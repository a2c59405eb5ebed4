#include "tls/thread_record.h"

#include <atomic>
#include <cstdlib>
#include <mutex>

#include "tls/game_tls.h"

namespace vlm {
namespace {

// Appended to under registry_lock, read without it: the count is raised before the record is in its place, so readers
// check both. Records are never removed. Constant-initialised: threads attach before any constructor ran.
constinit SrwLock registry_lock;  // a leaf
constinit std::atomic<ThreadRecord*> registry[max_threads] = {};
constinit std::atomic<std::uint32_t> registry_count{0};

}  // namespace

ThreadRecord* make_thread_record() { return static_cast<ThreadRecord*>(std::calloc(1, sizeof(ThreadRecord))); }

bool register_thread_record(ThreadRecord* record) {
  const std::lock_guard guard(registry_lock);
  const std::uint32_t index = registry_count.load(std::memory_order_relaxed);
  if (index == max_threads) return false;
  record->port = first_thread_port + index;
  registry_count.store(index + 1, std::memory_order_release);
  registry[index].store(record, std::memory_order_release);
  return true;
}

ThreadRecord* thread_record_of_port(std::uint32_t port) {
  if (port < first_thread_port) return nullptr;
  const std::uint32_t index = port - first_thread_port;
  if (index >= registry_count.load(std::memory_order_acquire)) return nullptr;
  return registry[index].load(std::memory_order_acquire);
}

void set_stack_limits(ThreadRecord* record, std::uint64_t teb) {
  record->stack_low = teb_field<std::uint64_t>(teb, TEB_DEALLOCATION_STACK);
  record->stack_high = teb_field<std::uint64_t>(teb, TEB_STACK_BASE);
}

ThreadRecord* register_current_thread() {
  if (ThreadRecord* record = game_tls_get()) return record;
  ThreadRecord* record = make_thread_record();
  if (record == nullptr) return nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &record->handle, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  record->thread_id = GetCurrentThreadId();
  set_stack_limits(record, current_teb());
  record->running = 1;
  // Without a port the thread cannot be suspended by game code, but it can run it.
  register_thread_record(record);
  game_tls_set(record);
  return record;
}

}  // namespace vlm
