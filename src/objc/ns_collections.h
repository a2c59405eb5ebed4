// Arrays, sets and dictionaries: one layout, entries in the order in which they were added. Objects have no locks: a
// game that shares a mutable one between threads must lock it itself.
//
// Entries are compared one after the other, because keys are compared by their texts, and those may change. A search
// takes time in proportion to the number of entries, filling a dictionary in proportion to its square.
#pragma once

#include <cstdint>

#include "objc/object.h"

namespace vlm {

/// An instance of any of the five collection classes.
struct NSCollection : ObjcObject {
  std::uint64_t count;
  std::uint64_t capacity;   // entries that both arrays have room for: 0, 8, 16, 32, ...
  ObjcObject** items;       // elements, or the keys of a dictionary
  ObjcObject** values;      // of a dictionary; zeros otherwise
  std::uint64_t mutations;  // counts changes; fast enumeration hands out its address
};
static_assert(sizeof(NSCollection) == 48);

/// Equal texts, or equal numbers (both values). The same object is equal to itself whatever it is.
bool ns_objects_equal(ObjcObject* left, ObjcObject* right);

/// Index of the first entry whose item is equal to the object, or -1.
std::int64_t ns_collection_find(const NSCollection& collection, ObjcObject* object);

/// Appends an element to an array.
void ns_array_append(NSCollection& array, ObjcObject* object);

/// Removes every element that is equal to the object.
void ns_array_remove(NSCollection& array, ObjcObject* object);

/// Sets the value of a key; a null value removes the entry.
void ns_dictionary_set(NSCollection& dictionary, ObjcObject* key, ObjcObject* value);

}  // namespace vlm
