// What arrays, sets and dictionaries do for game code.
#include <cstdio>

#include "abi/entries.h"
#include "diag/log.h"
#include "objc/ns_collections.h"
#include "objc/ns_string.h"
#include "objc/plain_methods.h"

namespace vlm {
namespace {

/// `NSFastEnumerationState`, <Foundation/NSEnumerator.h>.
struct FastEnumerationState {
  std::uint64_t state;  // 0 before the first batch
  ObjcObject** itemsPtr;
  std::uint64_t* mutationsPtr;
  std::uint64_t extra[5];
};
static_assert(sizeof(FastEnumerationState) == 64);

NSCollection* new_collection(ObjcClass* class_) { return objc_new<NSCollection>(*class_); }

// ---- All of them ----------------------------------------------------------------------------------------------------

SYSV std::uint64_t count(NSCollection* receiver, Selector) { return receiver->count; }

/// One batch holds everything, so the caller's buffer stays unused. The caller's code watches the mutations.
SYSV std::uint64_t count_by_enumerating(NSCollection* receiver, Selector, FastEnumerationState* state, ObjcObject**,
                                        std::uint64_t) {
  if (state->state != 0) return 0;
  state->state = 1;
  state->itemsPtr = receiver->items;
  state->mutationsPtr = &receiver->mutations;
  return receiver->count;
}

SYSV NSString* description(NSCollection* receiver, Selector) {
  char text[64];
  std::snprintf(text, sizeof text, "<%s count=%llu>", objc_class_name(receiver),
                static_cast<unsigned long long>(receiver->count));
  return ns_string_new(text);
}

SYSV NSCollection* new_empty(ObjcClass* receiver, Selector) { return new_collection(receiver); }

SYSV void remove_all_objects(NSCollection* receiver, Selector) {
  receiver->count = 0;
  ++receiver->mutations;
}

// ---- Arrays and sets ------------------------------------------------------------------------------------------------

SYSV ObjcObject* object_at_index(NSCollection* receiver, Selector, std::uint64_t index) {
  if (index >= receiver->count) {
    fatal_error("NSArray index %llu out of range (%llu)", static_cast<unsigned long long>(index),
                static_cast<unsigned long long>(receiver->count));
  }
  return receiver->items[index];
}

SYSV ObjcBool contains_object(NSCollection* receiver, Selector, ObjcObject* object) {
  return ns_collection_find(*receiver, object) >= 0;
}

SYSV NSCollection* array_with_object(ObjcClass* receiver, Selector, ObjcObject* object) {
  NSCollection* const array = new_collection(receiver);
  ns_array_append(*array, object);
  return array;
}

SYSV void add_object(NSCollection* receiver, Selector, ObjcObject* object) {
  if (object != nullptr) ns_array_append(*receiver, object);
}

SYSV void add_object_once(NSCollection* receiver, Selector, ObjcObject* object) {
  if (object != nullptr && ns_collection_find(*receiver, object) < 0) ns_array_append(*receiver, object);
}

SYSV void remove_object(NSCollection* receiver, Selector, ObjcObject* object) { ns_array_remove(*receiver, object); }

// ---- Dictionaries ---------------------------------------------------------------------------------------------------

SYSV ObjcObject* object_for_key(NSCollection* receiver, Selector, ObjcObject* key) {
  const std::int64_t index = ns_collection_find(*receiver, key);
  return index >= 0 ? receiver->values[index] : nullptr;
}

SYSV NSCollection* all_keys(NSCollection* receiver, Selector) {
  NSCollection* const keys = new_collection(&objc_class_NSMutableArray);
  for (std::uint64_t i = 0; i < receiver->count; ++i) ns_array_append(*keys, receiver->items[i]);
  return keys;
}

SYSV NSCollection* dictionary_with_objects(ObjcClass* receiver, Selector, ObjcObject* const* objects,
                                           ObjcObject* const* keys, std::uint64_t count) {
  NSCollection* const dictionary = new_collection(receiver);
  for (std::uint64_t i = 0; i < count; ++i) ns_dictionary_set(*dictionary, keys[i], objects[i]);
  return dictionary;
}

SYSV void set_object_for_key(NSCollection* receiver, Selector, ObjcObject* object, ObjcObject* key) {
  ns_dictionary_set(*receiver, key, object);
}

SYSV void remove_object_for_key(NSCollection* receiver, Selector, ObjcObject* key) {
  ns_dictionary_set(*receiver, key, nullptr);
}

}  // namespace

extern "C" SYSV void* initWithObjects_body(void* self, Selector, void* first, SysvVaList* arguments) {
  auto* const array = static_cast<NSCollection*>(self);
  for (auto* object = static_cast<ObjcObject*>(first); object != nullptr; object = arguments->next<ObjcObject*>()) {
    ns_array_append(*array, object);
  }
  return array;
}

const MethodRow NSArray_methods[] = {
    {"init", shim(return_self)},
    {"count", shim(count)},
    {"objectAtIndex:", shim(object_at_index)},
    {"objectAtIndexedSubscript:", shim(object_at_index)},
    {"containsObject:", shim(contains_object)},
    {"countByEnumeratingWithState:objects:count:", shim(count_by_enumerating)},
    {"initWithObjects:", shim(initWithObjects_entry)},
    {"description", shim(description)},
    {},
};

const MethodRow NSArray_class_methods[] = {
    {"arrayWithCapacity:", shim(new_empty)},
    {"array", shim(new_empty)},
    {"arrayWithObject:", shim(array_with_object)},
    {},
};

const MethodRow NSMutableArray_methods[] = {
    {"addObject:", shim(add_object)},
    {"removeObject:", shim(remove_object)},
    {"removeAllObjects", shim(remove_all_objects)},
    {},
};

const MethodRow NSMutableArray_class_methods[] = {{}};

const MethodRow NSMutableSet_methods[] = {
    {"addObject:", shim(add_object_once)},
    {},
};

const MethodRow NSMutableSet_class_methods[] = {{}};

const MethodRow NSDictionary_methods[] = {
    {"init", shim(return_self)},
    {"count", shim(count)},
    {"objectForKey:", shim(object_for_key)},
    {"objectForKeyedSubscript:", shim(object_for_key)},
    {"allKeys", shim(all_keys)},
    {"countByEnumeratingWithState:objects:count:", shim(count_by_enumerating)},
    {"description", shim(description)},
    {},
};

const MethodRow NSDictionary_class_methods[] = {
    {"dictionaryWithObjects:forKeys:count:", shim(dictionary_with_objects)},
    {"dictionary", shim(new_empty)},
    {},
};

const MethodRow NSMutableDictionary_methods[] = {
    {"setObject:forKey:", shim(set_object_for_key)}, {"setObject:forKeyedSubscript:", shim(set_object_for_key)},
    {"setValue:forKey:", shim(set_object_for_key)},  {"removeObjectForKey:", shim(remove_object_for_key)},
    {"removeAllObjects", shim(remove_all_objects)},  {},
};

const MethodRow NSMutableDictionary_class_methods[] = {{}};

}  // namespace vlm
