// Objective-C objects, classes and messages, in the layouts of the Objective-C 2.0 ABI for x86-64 (<objc/runtime.h>):
// what the compiler emits for the game's own classes and what the library builds for its own look the same.
//
// No object is ever freed: retain, release and autorelease pools do nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "abi/entries.h"
#include "binding/shim_table.h"
#include "support/sysv.h"

namespace vlm {

/// A selector: its text. Two selectors are the same when their texts are equal.
using Selector = const char*;

/// Objective-C's BOOL, a signed char on x86-64. YES is 1.
using ObjcBool = std::int8_t;

/// `method_list_t`. Two kinds of entries follow; bit 31 of the first word tells which.
struct ObjcMethodList {
  std::uint32_t entry_size_and_flags;
  std::uint32_t count;
};
static_assert(sizeof(ObjcMethodList) == 8);

/// Bit 31 clear: pointers, as in the library's own lists.
struct ObjcMethod {
  Selector name;
  const char* types;
  const void* implementation;
};
static_assert(sizeof(ObjcMethod) == 24);

/// Bit 31 set: distances in bytes, each from its own field, as linkers write for game classes.
struct ObjcRelativeMethod {
  std::int32_t name;  // to a slot that holds the selector
  std::int32_t types;
  std::int32_t implementation;
};
static_assert(sizeof(ObjcRelativeMethod) == 12);

constexpr std::uint32_t relative_method_list = 0x8000'0000;
constexpr std::uint32_t method_entry_size_mask = 0xfffc;

/// `class_ro_t`: the read-only part of a class.
struct ObjcClassInfo {
  std::uint32_t flags;           // 0 for a class, 1 for a metaclass
  std::uint32_t instance_start;  // of the class's own variables
  std::uint32_t instance_size;   // bytes
  std::uint32_t reserved;
  const void* ivar_layout;
  const char* name;
  const ObjcMethodList* methods;  // or null
  const void* protocols;
  const void* ivars;
  const void* weak_ivar_layout;
  const void* properties;
};
static_assert(offsetof(ObjcClassInfo, name) == 24 && offsetof(ObjcClassInfo, methods) == 32 &&
              sizeof(ObjcClassInfo) == 72);

struct ObjcClass;

/// Any object; its class decides what follows.
struct ObjcObject {
  ObjcClass* isa;
};

/// A class or a metaclass object.
struct ObjcClass : ObjcObject {
  ObjcClass* superclass;
  void* cache;   // of no use here
  void* vtable;  // of no use here
  std::uint64_t data;

  /// Null for a class without; the low three bits of the word are flags of compiler and runtime.
  const ObjcClassInfo* info() const { return reinterpret_cast<const ObjcClassInfo*>(data & ~std::uint64_t{7}); }
};
static_assert(sizeof(ObjcClass) == 40);

/// The start of a block literal (the Apple block ABI). Captured variables follow.
struct ObjcBlock {
  const void* isa;
  std::int32_t flags;
  std::int32_t reserved;
  const void* invoke;  // System V; the block itself is its first argument
  const void* descriptor;
};
static_assert(offsetof(ObjcBlock, invoke) == 16);

/// Calls a block; nothing for a null one or one without code.
template <class... Arguments>
void call_block(const ObjcBlock* block, Arguments... arguments) {
  if (block == nullptr || block->invoke == nullptr) return;
  using Invoke = SYSV void (*)(const ObjcBlock*, Arguments...);
  reinterpret_cast<Invoke>(reinterpret_cast<std::uintptr_t>(block->invoke))(block, arguments...);
}

// ---- Classes --------------------------------------------------------------------------------------------------------

/// A method of a library class. A row without a selector ends a list.
struct MethodRow {
  Selector selector;
  const void* implementation;  // System V: receiver, selector, arguments
};

#define CLASS(name, superclass, size)        \
  extern ObjcClass objc_class_##name;        \
  extern ObjcClass objc_metaclass_##name;    \
  extern const MethodRow name##_methods[];   \
  extern const MethodRow name##_class_methods[];
CLASS(NSObject, none, 8)
#include "objc/class_list.def"
#undef CLASS

/// Builds the library's classes. Part of static start-up, before anything here is used; class data never changes
/// afterwards.
void build_objc_classes();

/// Whether this is one of the library's own classes.
bool is_library_class(const ObjcClass* class_);

// ---- Messages -------------------------------------------------------------------------------------------------------

/// The implementation of a selector in a class or one of its superclasses, categories first, or null. Does not look
/// into the cache.
const void* objc_find_method(const ObjcClass* class_, Selector selector);

/// Sends a message as game code does. A null receiver gives zero.
template <class Result, class... Arguments>
Result objc_send(void* receiver, Selector selector, Arguments... arguments) {
  if (receiver == nullptr) return Result();
  using Method = SYSV Result (*)(void*, Selector, Arguments...);
  const void* const implementation = objc_lookup(receiver, selector);
  return reinterpret_cast<Method>(reinterpret_cast<std::uintptr_t>(implementation))(receiver, selector, arguments...);
}

// ---- Objects --------------------------------------------------------------------------------------------------------

/// A zero-filled instance with `extra` bytes behind the instance size, at least 16 bytes. Ends the process when there
/// is no memory.
ObjcObject* objc_alloc_instance(ObjcClass* class_, std::uint64_t extra = 0);

template <class Instance>
Instance* objc_new(ObjcClass& class_) {
  return static_cast<Instance*>(objc_alloc_instance(&class_));
}

/// Whether the object's class is `class_` or descends from it. False for a null object.
bool objc_is_kind_of(const ObjcObject* object, const ObjcClass* class_);

/// The name of an object's class: "nil" without a class, "?" for a class without a name.
const char* objc_class_name(const ObjcObject* object);

}  // namespace vlm
