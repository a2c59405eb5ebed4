// The heap, and handles to its objects.
//
// The "collector" of this runtime never takes an object back: a game of this size ends before it could matter. What
// the interface asks about the heap is answered truly for such a collector.
//
//   newest cell -> ... -> oldest cell        cell: { next, size } and right behind it the object
#include "runtime/runtime.h"

#include "runtime/thread_storage.h"

namespace {

struct Cell {
  Cell* next;
  size_t size;  // of the object
};

SpinLock heap_lock;
Cell* cells;
int64_t used_bytes;

int disabled;
int64_t max_time_slice_ns = 3000000;
void (*allocation_tracker)(void* object, size_t size, int kind);
void (*barrier_tracker)(void** place);

}  // namespace

Il2CppObject* new_object(const Il2CppClass* klass, size_t size) {
  auto* cell = static_cast<Cell*>(calloc(1, sizeof(Cell) + size));
  auto* object = reinterpret_cast<Il2CppObject*>(cell + 1);
  object->klass = const_cast<Il2CppClass*>(klass);
  {
    const Locked locked(heap_lock);
    *cell = {cells, size};
    cells = cell;
    used_bytes += static_cast<int64_t>(size);
  }
  count_allocation(size);
  if (allocation_tracker != nullptr) allocation_tracker(object, size, 0);
  return object;
}

int64_t il2cpp_gc_get_used_size() { return used_bytes; }
int64_t il2cpp_gc_get_heap_size() { return used_bytes; }

void il2cpp_gc_foreach_heap(Il2CppCallback callback, void* user_data) {
  const auto report = reinterpret_cast<void (*)(void* object, void* user_data)>(callback);
  const Cell* newest;
  {
    const Locked locked(heap_lock);
    newest = cells;
  }
  // Without the lock: cells never go away, and the callback may make new ones, which come before `newest`.
  for (const Cell* cell = newest; cell != nullptr; cell = cell->next) report(const_cast<Cell*>(cell) + 1, user_data);
}

// Collections: there is nothing to do in them.
void il2cpp_gc_collect(int) {}
int32_t il2cpp_gc_collect_a_little() { return 0; }  // no work is left
void il2cpp_gc_start_incremental_collection() {}
void il2cpp_stop_gc_world() {}
void il2cpp_start_gc_world() {}

void il2cpp_gc_disable() { __atomic_add_fetch(&disabled, 1, __ATOMIC_RELAXED); }
void il2cpp_gc_enable() { __atomic_sub_fetch(&disabled, 1, __ATOMIC_RELAXED); }
bool il2cpp_gc_is_disabled() { return disabled > 0; }
void il2cpp_gc_set_mode(int mode) { disabled = mode == 0 ? 1 : 0; }  // 0 disabled, 1 enabled, 2 manual
bool il2cpp_gc_is_incremental() { return false; }
int64_t il2cpp_gc_get_max_time_slice_ns() { return max_time_slice_ns; }
void il2cpp_gc_set_max_time_slice_ns(int64_t slice) { max_time_slice_ns = slice; }
uint32_t il2cpp_allocation_granularity() { return 16; }

bool il2cpp_gc_has_strict_wbarriers() { return false; }
void il2cpp_gc_wbarrier_set_field(Il2CppObject*, void** place, void* object) {
  *place = object;
  if (barrier_tracker != nullptr) barrier_tracker(place);
}

void il2cpp_gc_set_external_allocation_tracker(Il2CppCallback callback) {
  allocation_tracker = reinterpret_cast<decltype(allocation_tracker)>(callback);
}
void il2cpp_gc_set_external_wbarrier_tracker(Il2CppCallback callback) {
  barrier_tracker = reinterpret_cast<decltype(barrier_tracker)>(callback);
}

void* il2cpp_gc_alloc_fixed(size_t size) { return calloc(1, size); }
void il2cpp_gc_free_fixed(void* block) { free(block); }

// Handles: an object's number for those who cannot keep its address. Objects neither move nor vanish here, so
// pinned and weak handles are like all others.

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

Il2CppGCHandle il2cpp_gchandle_new_weakref(Il2CppObject* object, bool) { return il2cpp_gchandle_new(object, false); }

Il2CppObject* il2cpp_gchandle_get_target(Il2CppGCHandle handle) {
  return handle - 1 < max_handles ? handles[handle - 1] : nullptr;
}

void il2cpp_gchandle_foreach_get_target(Il2CppCallback callback, void* user_data) {
  const auto report = reinterpret_cast<void (*)(void* object, void* user_data)>(callback);
  for (Il2CppObject* object : handles) {
    if (object != nullptr) report(object, user_data);
  }
}

void il2cpp_gchandle_free(Il2CppGCHandle handle) {
  const Locked locked(handles_lock);
  if (handle - 1 < max_handles) handles[handle - 1] = nullptr;
}
