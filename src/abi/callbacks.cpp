// The exports that let function pointers cross between the conventions, and pages near an image. See include/vlm.h.
//
// Wrapped callbacks are remembered in a registry of 1024 pairs, in creation order. Two hash indices over the pairs
// answer "the stub of this function" and "the function of this stub". Both are read without a lock: to wrap a known
// function or to unwrap a pointer costs a few loads, however many callbacks there are.
#include "abi/callbacks.h"

#include <windows.h>

#include <atomic>
#include <mutex>

#include "abi/stubs.h"
#include "macho/load.h"
#include "support/hash.h"
#include "support/locks.h"
#include "support/pages.h"
#include "support/record_counts.h"
#include "vlm.h"

namespace vlm {
namespace {

constexpr std::size_t max_callbacks = 1024;

struct CallbackPair {
  void* target;
  void* stub;
};

/// Finds pairs by one of their two addresses. Open addressing, at most half full. One writer at a time; readers take no
/// lock, because a place changes only once, from free to a complete pair.
template <void* CallbackPair::* Key>
class PairIndex {
 public:
  const CallbackPair* find(const CallbackPair* pairs, const void* key) const {
    for (std::size_t place = hash(key);; place = (place + 1) % std::size(places_)) {
      const unsigned number = places_[place].load(std::memory_order_acquire);
      if (number == 0) return nullptr;
      if (pairs[number - 1].*Key == key) return &pairs[number - 1];
    }
  }

  /// Makes a written pair visible. When two pairs have the same key, the first is found.
  void publish(const CallbackPair* pairs, std::size_t index) {
    const void* key = pairs[index].*Key;
    if (find(pairs, key) != nullptr) return;
    std::size_t place = hash(key);
    while (places_[place].load(std::memory_order_relaxed) != 0) place = (place + 1) % std::size(places_);
    places_[place].store(static_cast<std::uint16_t>(index + 1), std::memory_order_release);
  }

 private:
  static std::size_t hash(const void* key) { return hash_address(reinterpret_cast<std::uint64_t>(key), 11); }

  std::atomic<std::uint16_t> places_[2 * max_callbacks] = {};  // number of the pair, from 1; 0 is free
  static_assert(2 * max_callbacks == 1 << 11, "hash() yields a place");
};

constinit SrwLock registry_lock;  // held to append; nothing is taken under it
constinit CallbackPair registry[max_callbacks] = {};
constinit std::size_t registry_count = 0;  // guarded by registry_lock
constinit PairIndex<&CallbackPair::target> pairs_by_target;
constinit PairIndex<&CallbackPair::stub> pairs_by_stub;

void remember(void* target, void* stub) {
  ++record_counts.callbacks;
  const std::lock_guard guard(registry_lock);
  if (registry_count == max_callbacks) return;
  registry[registry_count] = {target, stub};
  // Stubs first: as soon as pairs_by_target has this one, another thread may be given it and ask what is behind it.
  pairs_by_stub.publish(registry, registry_count);
  pairs_by_target.publish(registry, registry_count);
  ++registry_count;
}

}  // namespace

void* function_of_callback_stub(void* pointer) {
  const CallbackPair* const known = pairs_by_stub.find(registry, pointer);
  return known != nullptr ? known->target : pointer;
}

}  // namespace vlm

extern "C" {

void* vlm_wrap_callback(void* function) {
  if (function == nullptr) return nullptr;
  if (const auto* known = vlm::pairs_by_target.find(vlm::registry, function)) return known->stub;
  // Two threads that get here with one function make two stubs. Both work, and the first one is found from then on.
  void* stub = vlm::make_callback_stub(function);
  vlm::remember(function, stub);
  return stub;
}

void* vlm_wrap_sysv_function(void* function, std::uint32_t argument_count) {
  if (function == nullptr || argument_count > vlm::max_stub_arguments) return nullptr;
  return vlm::make_sysv_function_stub(function, argument_count);
}

void* vlm_allocate_trampoline(void* address) {
  const auto place = reinterpret_cast<std::uint64_t>(address);
  const std::lock_guard guard(vlm::hook_arena_lock);
  for (int i = 0; i < vlm::hook_arena_count; ++i) {
    vlm::HookArena& arena = vlm::hook_arenas[i];
    if (place < arena.image_base || place - arena.image_base >= arena.image_size) continue;
    if (arena.used + vlm::page_size > vlm::hook_arena_size) return nullptr;
    void* page = VirtualAlloc(reinterpret_cast<void*>(arena.arena_start + arena.used), vlm::page_size, MEM_COMMIT,
                              PAGE_EXECUTE_READWRITE);
    if (page != nullptr) arena.used += vlm::page_size;
    return page;
  }
  return nullptr;
}

}  // extern "C"
