// Instances, and NSObject: what every object can do.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "abi/format.h"
#include "diag/log.h"
#include "objc/ns_string.h"
#include "objc/object.h"
#include "objc/plain_methods.h"

namespace vlm {

/// Bytes of an instance: the largest size of the class and its superclasses. A game class with a superclass of the
/// library was compiled without knowing how large that one is.
static std::uint64_t instance_size(const ObjcClass* class_) {
  std::uint64_t size = sizeof(ObjcObject);
  for (; class_ != nullptr; class_ = class_->superclass) {
    if (const ObjcClassInfo* const info = class_->info()) size = std::max<std::uint64_t>(size, info->instance_size);
  }
  return size;
}

ObjcObject* objc_alloc_instance(ObjcClass* class_, std::uint64_t extra) {
  const std::uint64_t bytes = std::max<std::uint64_t>(instance_size(class_) + extra, 16);
  auto* const object = static_cast<ObjcObject*>(std::calloc(1, bytes));
  if (object == nullptr) fatal_error("no memory for an Objective-C object of %llu bytes", bytes);
  object->isa = class_;
  return object;
}

bool objc_is_kind_of(const ObjcObject* object, const ObjcClass* class_) {
  if (object == nullptr) return false;
  const ObjcClass* candidate = object->isa;
  while (candidate != nullptr && candidate != class_) candidate = candidate->superclass;
  return candidate != nullptr;
}

const char* objc_class_name(const ObjcObject* object) {
  if (object->isa == nullptr) return "nil";
  const ObjcClassInfo* const info = object->isa->info();
  return info != nullptr && info->name != nullptr ? info->name : "?";
}

/// "<class: 0x1234>", with the address as macOS prints one; a long name is cut.
template <std::size_t Size>
static void describe(const ObjcObject* object, char (&buffer)[Size]) {
  std::snprintf(buffer, Size, "<%s: 0x%llx>", objc_class_name(object), reinterpret_cast<unsigned long long>(object));
}

const char* objc_object_cstring(void* object) {
  if (object == nullptr) return "(null)";
  if (const char* const text = ns_string_utf8(static_cast<ObjcObject*>(object))) return text;
  static thread_local char buffer[96];
  describe(static_cast<ObjcObject*>(object), buffer);
  return buffer;
}

namespace {

SYSV ObjcObject* alloc(ObjcClass* receiver, Selector) { return objc_alloc_instance(receiver); }

SYSV ObjcObject* new_(ObjcClass* receiver, Selector) {
  return objc_send<ObjcObject*>(objc_alloc_instance(receiver), "init");
}

SYSV ObjcClass* class_(ObjcObject* receiver, Selector) { return receiver->isa; }

SYSV ObjcBool is_equal(ObjcObject* receiver, Selector, ObjcObject* other) { return receiver == other; }

SYSV std::uint64_t hash(ObjcObject* receiver, Selector) { return reinterpret_cast<std::uint64_t>(receiver) >> 4; }

SYSV ObjcBool responds_to_selector(ObjcObject* receiver, Selector, Selector asked) {
  return objc_find_method(receiver->isa, asked) != nullptr;
}

SYSV ObjcBool is_kind_of_class(ObjcObject* receiver, Selector, ObjcClass* asked) {
  return objc_is_kind_of(receiver, asked);
}

SYSV ObjcObject* description(ObjcObject* receiver, Selector) {
  char buffer[128];
  describe(receiver, buffer);
  return ns_string_new(buffer);
}

}  // namespace

const MethodRow NSObject_methods[] = {
    {"init", shim(return_self)},
    {"retain", shim(return_self)},
    {"autorelease", shim(return_self)},
    {"self", shim(return_self)},
    {"copy", shim(return_self)},
    {"mutableCopy", shim(return_self)},
    {"release", shim(do_nothing)},
    {"dealloc", shim(do_nothing)},
    {".cxx_destruct", shim(do_nothing)},
    {"class", shim(class_)},
    {"isEqual:", shim(is_equal)},
    {"hash", shim(hash)},
    {"respondsToSelector:", shim(responds_to_selector)},
    {"isKindOfClass:", shim(is_kind_of_class)},
    {"description", shim(description)},
    {},
};

const MethodRow NSObject_class_methods[] = {
    {"alloc", shim(alloc)},
    {"allocWithZone:", shim(alloc)},
    {"new", shim(new_)},
    {"class", shim(return_self)},
    {"initialize", shim(do_nothing)},
    {"load", shim(do_nothing)},
    {},
};

}  // namespace vlm
