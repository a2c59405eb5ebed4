// The heap, and handles to its objects. No object is ever taken back: a game of this size ends before it could matter.
#include "runtime/runtime.h"

#include "runtime/thread_storage.h"

static int64_t used_bytes;

Il2CppObject* new_object(const Il2CppClass* klass, size_t size) {
  auto* object = static_cast<Il2CppObject*>(calloc(1, size));
  object->klass = const_cast<Il2CppClass*>(klass);
  __atomic_fetch_add(&used_bytes, static_cast<int64_t>(size), __ATOMIC_RELAXED);
  count_allocation(size);
  return object;
}

int64_t il2cpp_gc_get_used_size() { return __atomic_load_n(&used_bytes, __ATOMIC_RELAXED); }

// Handles: an object's number for those who cannot keep its address. Objects neither move nor vanish here, so a pinned
// handle is like all others.

static constexpr size_t max_handles = 4096;
static SpinLock handles_lock;
static Il2CppObject* handles[max_handles];  // handle - 1 is the index; 0 is no handle

Il2CppGCHandle il2cpp_gchandle_new(Il2CppObject* object, bool) {
  const Locked locked(handles_lock);
  for (size_t i = 0; i < max_handles; ++i) {
    if (handles[i] == nullptr) {
      handles[i] = object;
      return i + 1;
    }
  }
  return 0;
}

Il2CppObject* il2cpp_gchandle_get_target(Il2CppGCHandle handle) {
  return handle - 1 < max_handles ? handles[handle - 1] : nullptr;
}

void il2cpp_gchandle_free(Il2CppGCHandle handle) {
  const Locked locked(handles_lock);
  if (handle - 1 < max_handles) handles[handle - 1] = nullptr;
}
