// Attached threads. The player attaches each thread on which it calls managed code; the thread's record hangs in its
// thread storage.
#include "runtime/threads.h"

#include "runtime/thread_storage.h"

static constexpr size_t max_threads = 64;
static SpinLock threads_lock;
static Il2CppThread* attached[max_threads];  // dense
static size_t attached_count;
static uint64_t last_id;

Il2CppThread* il2cpp_thread_current() { return current_thread(); }

/// The calling thread's record, as often as it is asked for; null when there are too many threads.
Il2CppThread* il2cpp_thread_attach(Il2CppDomain*) {
  if (thread_is_attached()) return current_thread();
  auto* thread = reinterpret_cast<Il2CppThread*>(new_object(&thread_class, sizeof(Il2CppThread)));
  {
    const Locked locked(threads_lock);
    if (attached_count == max_threads) return nullptr;
    attached[attached_count++] = thread;
    thread->id = ++last_id;
  }
  set_thread_slot(SLOT_CURRENT_THREAD, thread);
  return thread;
}

/// Only a thread itself can let go of its storage, so another one's record is merely taken off the list.
void il2cpp_thread_detach(Il2CppThread* thread) {
  {
    const Locked locked(threads_lock);
    for (size_t i = 0; i < attached_count; ++i) {
      if (attached[i] == thread) {
        attached[i] = attached[--attached_count];
        break;
      }
    }
  }
  if (thread == current_thread()) forget_current_thread();
}

Il2CppThread** il2cpp_thread_get_all_attached_threads(size_t* count) {
  *count = attached_count;
  return attached;
}
