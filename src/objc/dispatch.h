// The method cache, as the message-send entries of entries.S read it.
#pragma once

#include <atomic>
#include <cstddef>

#include "abi/entry_layout.h"
#include "objc/object.h"

namespace vlm {

/// What one (class, selector address) pair runs. Immutable once it can be reached, and never freed.
struct CachedMethod {
  const ObjcClass* class_;
  Selector selector;
  const void* implementation;
  CachedMethod* next;  // an older one of the same slot
};
static_assert(offsetof(CachedMethod, class_) == CACHED_METHOD_CLASS &&
                  offsetof(CachedMethod, selector) == CACHED_METHOD_SELECTOR &&
                  offsetof(CachedMethod, implementation) == CACHED_METHOD_IMPLEMENTATION,
              "message_send reads a cached method");

/// As message_send computes it.
inline std::size_t method_cache_slot(const ObjcClass* class_, Selector selector) {
  const auto sum = reinterpret_cast<std::uint64_t>(class_) + 9 * reinterpret_cast<std::uint64_t>(selector);
  return static_cast<std::uint32_t>(sum * METHOD_CACHE_MULTIPLIER) >> METHOD_CACHE_SHIFT;
}

/// Makes every slot of the cache readable. Part of building the classes.
void empty_method_cache();

}  // namespace vlm

/// What the entries look at: for each slot the method that was sent last. Never null once the classes are built. A
/// change is the change of one pointer, so no reader sees half of it.
extern "C" std::atomic<const vlm::CachedMethod*> objc_method_cache[METHOD_CACHE_SLOTS];
