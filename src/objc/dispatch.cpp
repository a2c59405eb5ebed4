// How a message finds its code.
//
//   objc_method_cache[slot] --> one CachedMethod, the slot's latest        read by the entries, without a lock
//   chains[slot]            --> CachedMethod --> CachedMethod --> ...      all that the slot ever held
//
// A message looks at the cache first. When the slot holds another pair, the chain is searched. A pair that is not in
// the chain was never sent before; only then are the class's method lists searched. So no pair is searched twice, and
// the cache has at most as many entries as the game has pairs of a class and a selector address.
#include "objc/dispatch.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "abi/entries.h"
#include "diag/log.h"
#include "objc/categories.h"
#include "objc/shims.h"
#include "support/locks.h"
#include "support/record_counts.h"

extern "C" constinit std::atomic<const vlm::CachedMethod*> objc_method_cache[METHOD_CACHE_SLOTS] = {};

namespace vlm {
namespace {

/// In every slot that was not used yet: no message has a null class.
constinit const CachedMethod empty_slot{nullptr, nullptr, nullptr, nullptr};

constinit SrwLock chains_lock;  // guards insertion; chains are read without it
constinit std::atomic<CachedMethod*> chains[METHOD_CACHE_SLOTS] = {};

const CachedMethod* find_in_chain(std::size_t slot, const ObjcClass* class_, Selector selector) {
  const CachedMethod* method = chains[slot].load(std::memory_order_acquire);
  while (method != nullptr && (method->class_ != class_ || method->selector != selector)) method = method->next;
  return method;
}

const CachedMethod* add_to_chain(std::size_t slot, const ObjcClass* class_, Selector selector, const void* code) {
  const std::lock_guard guard(chains_lock);
  if (const CachedMethod* const other = find_in_chain(slot, class_, selector)) return other;  // another thread's
  auto* const method = static_cast<CachedMethod*>(std::malloc(sizeof(CachedMethod)));
  if (method == nullptr) fatal_error("no memory for the method cache");
  ++record_counts.methods;
  *method = {class_, selector, code, chains[slot].load(std::memory_order_relaxed)};
  chains[slot].store(method, std::memory_order_release);
  return method;
}

bool same_text(Selector left, Selector right) { return left == right || std::strcmp(left, right) == 0; }

const void* find_in_list(const ObjcMethodList& list, Selector selector) {
  const auto* entry = reinterpret_cast<const std::byte*>(&list + 1);
  const std::uint32_t stride = list.entry_size_and_flags & method_entry_size_mask;
  const bool relative = (list.entry_size_and_flags & relative_method_list) != 0;
  for (std::uint32_t i = 0; i < list.count; ++i, entry += stride) {
    if (relative) {
      const auto& method = *reinterpret_cast<const ObjcRelativeMethod*>(entry);
      if (same_text(*reinterpret_cast<const Selector*>(entry + method.name), selector)) {
        return entry + offsetof(ObjcRelativeMethod, implementation) + method.implementation;
      }
    } else {
      const auto& method = *reinterpret_cast<const ObjcMethod*>(entry);
      if (same_text(method.name, selector)) return method.implementation;  // null: go on in the superclass
    }
  }
  return nullptr;
}

}  // namespace

void empty_method_cache() {
  for (auto& slot : objc_method_cache) slot.store(&empty_slot, std::memory_order_relaxed);
}

const void* objc_find_method(const ObjcClass* class_, Selector selector) {
  for (; class_ != nullptr; class_ = class_->superclass) {
    for (const AttachedMethods& category : attached_methods()) {
      if (category.class_ != class_) continue;
      if (const void* const implementation = find_in_list(*category.methods, selector)) return implementation;
    }
    const ObjcClassInfo* const info = class_->info();
    if (info == nullptr || info->methods == nullptr) continue;
    if (const void* const implementation = find_in_list(*info->methods, selector)) return implementation;
  }
  return nullptr;
}

const ShimEntry message_send_rows[] = {
    {"_objc_msgSend", shim(objc_msgSend_entry)},
    {"_objc_msgSend_stret", shim(objc_msgSend_stret_entry)},
};
constinit const ShimRows message_send_shims = message_send_rows;

}  // namespace vlm

extern "C" const void* objc_lookup(void* receiver, vlm::Selector selector) {
  using namespace vlm;
  const ObjcClass* const class_ = static_cast<const ObjcObject*>(receiver)->isa;
  const std::size_t slot = method_cache_slot(class_, selector);
  const CachedMethod* method = find_in_chain(slot, class_, selector);
  if (method == nullptr) {
    const void* implementation = objc_find_method(class_, selector);
    if (implementation == nullptr) implementation = shim(objc_null_method);
    method = add_to_chain(slot, class_, selector, implementation);
  }
  // objc_send comes here for every message. Other processors read this cache line, so it is written only when it
  // changes.
  if (objc_method_cache[slot].load(std::memory_order_relaxed) != method) {
    objc_method_cache[slot].store(method, std::memory_order_release);
  }
  return method->implementation;
}
