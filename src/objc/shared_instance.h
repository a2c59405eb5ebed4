// Objects that there is one of: the main bundle, the current locale, ...
#pragma once

#include <atomic>
#include <cstdlib>

#include "objc/object.h"

namespace vlm {

/// The one instance of a class, made when it is first asked for. Threads that ask at the same time get the same one.
template <ObjcClass& class_>
ObjcObject* shared_instance() {
  static constinit std::atomic<ObjcObject*> shared = nullptr;
  ObjcObject* instance = shared.load(std::memory_order_acquire);
  if (instance != nullptr) return instance;
  ObjcObject* const made = objc_alloc_instance(&class_);
  if (shared.compare_exchange_strong(instance, made, std::memory_order_acq_rel)) return made;
  std::free(made);  // nobody has seen it
  return instance;
}

/// The class method that hands it out.
template <ObjcClass& class_>
SYSV ObjcObject* shared_instance_method(ObjcClass*, Selector) {
  return shared_instance<class_>();
}

}  // namespace vlm
