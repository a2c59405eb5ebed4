// NSUbiquitousKeyValueStore: the game's progress, in a file of the save directory instead of Apple's cloud.
//
// The file is read once and written anew, whole, with every change. What cannot be saved stays in memory, and the next
// change tries again. How it is kept on the disk: cloud_disk.h; its format: cloud_file.h.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "objc/cloud_disk.h"
#include "objc/ns_collections.h"
#include "objc/ns_number.h"
#include "objc/ns_string.h"
#include "objc/shared_instance.h"
#include "support/locks.h"
#include "support/save_directory.h"

namespace vlm {
namespace {

/// Read and changed under store_lock.
struct CloudStore {
  CloudDisk disk;
  NSCollection* entries;                // an NSMutableDictionary whose keys are strings made here
  std::vector<std::uint32_t> hashes{};  // of the entries' keys: most of a search is done in these
};

/// Held exclusively while the store is read from its file and from a change to the end of its save, so that the file is
/// never older than what another thread was told. The log's lock is taken under it.
constinit SrwLock store_lock;
constinit std::atomic<CloudStore*> loaded_store = nullptr;  // set once; lives until the process ends

// ---- Keys -----------------------------------------------------------------------------------------------------------

/// What is looked for. A key ends at its first NUL, as the file holds no more of it.
struct StoreKey {
  const char* text;  // null for what is no string, which no key is equal to
  std::uint32_t hash;
};

StoreKey key_of(const char* text) { return {text, static_cast<std::uint32_t>(std::hash<std::string_view>()(text))}; }

/// Called before the lock is taken, as a constant's UTF-16 is converted here.
StoreKey key_of(ObjcObject* key) {
  const char* const text = ns_string_utf8(key);
  return text != nullptr ? key_of(text) : StoreKey{};
}

/// Index of the entry, or -1.
std::int64_t find_locked(const CloudStore& store, const StoreKey& key) {
  if (key.text == nullptr) return -1;
  for (auto at = store.hashes.begin(); (at = std::find(at, store.hashes.end(), key.hash)) != store.hashes.end(); ++at) {
    const std::int64_t index = at - store.hashes.begin();
    if (std::strcmp(ns_string_utf8(store.entries->items[index]), key.text) == 0) return index;
  }
  return -1;
}

ObjcObject* value_at_locked(const CloudStore& store, std::int64_t index) {
  return index >= 0 ? store.entries->values[index] : nullptr;
}

/// Adds an entry whose key the dictionary does not have.
void append_entry(NSCollection& dictionary, ObjcObject* key, ObjcObject* value) {
  ns_array_append(dictionary, key);
  dictionary.values[dictionary.count - 1] = value;
}
void append_entry_locked(CloudStore& store, const StoreKey& key, ObjcObject* value) {
  append_entry(*store.entries, ns_string_new(key.text), value);
  store.hashes.push_back(key.hash);
}

// ---- Loading --------------------------------------------------------------------------------------------------------

ObjcObject* object_of(const std::string& text) { return ns_string_new(text.c_str()); }
ObjcObject* object_of(std::int64_t value) { return ns_number_from_int64(value); }
ObjcObject* object_of(double value) { return ns_number_from_double(value); }

CloudStore* load_store_locked() {
  auto* const store =
      new CloudStore{CloudDisk(save_directory()), objc_new<NSCollection>(objc_class_NSMutableDictionary)};
  for (const CloudEntry& entry : store->disk.load()) {
    append_entry_locked(*store, key_of(entry.key.c_str()),
                        std::visit([](const auto& value) { return object_of(value); }, entry.value));
  }
  return store;
}

/// Loads on the first call, whichever message of whichever object comes first.
CloudStore& cloud_store() {
  CloudStore* store = loaded_store.load(std::memory_order_acquire);
  if (store != nullptr) return *store;
  const std::lock_guard guard(store_lock);
  store = loaded_store.load(std::memory_order_relaxed);
  if (store == nullptr) {
    store = load_store_locked();
    loaded_store.store(store, std::memory_order_release);
  }
  return *store;
}

// ---- Saving ---------------------------------------------------------------------------------------------------------

/// A text is read as far as its NUL, wherever its object says it ends: a mutable string in the store may be changed by
/// another thread meanwhile, and the old text stays where it is.
void save_locked(CloudStore& store) {
  CloudFileWriter writer;
  for (std::uint64_t i = 0; i < store.entries->count; ++i) {
    const char* const key = ns_string_utf8(store.entries->items[i]);
    ObjcObject* const value = store.entries->values[i];
    if (const char* const text = ns_string_utf8(value)) {
      writer.add_text(key, text);
    } else if (objc_is_kind_of(value, &objc_class_NSNumber)) {
      const auto& number = *static_cast<NSNumber*>(value);
      if (number.kind == NumberKind::floating_point) {
        writer.add_double(key, number.floating_point);
      } else {
        writer.add_integer(key, number.integer);
      }
    }  // anything else lives in memory alone
  }
  store.disk.save(writer);
}

// ---- Looking up and changing ----------------------------------------------------------------------------------------

ObjcObject* value_for_key(ObjcObject* key_object) {
  const CloudStore& store = cloud_store();
  const StoreKey key = key_of(key_object);
  const std::shared_lock guard(store_lock);
  return value_at_locked(store, find_locked(store, key));
}

const NSNumber* number_for_key(ObjcObject* key) {
  ObjcObject* const value = value_for_key(key);
  return objc_is_kind_of(value, &objc_class_NSNumber) ? static_cast<NSNumber*>(value) : nullptr;
}

/// Whether storing the value would change nothing. A mutable string always does: it may be the one that is stored, with
/// another text than the file has.
bool is_unchanged(ObjcObject* current, ObjcObject* value) {
  if (objc_is_kind_of(value, &objc_class_NSMutableString)) return false;
  if (current == value) return true;
  if (const char* const text = ns_string_utf8(value)) {
    const char* const current_text = ns_string_utf8(current);
    return current_text != nullptr && std::strcmp(current_text, text) == 0;
  }
  if (!objc_is_kind_of(value, &objc_class_NSNumber) || !objc_is_kind_of(current, &objc_class_NSNumber)) return false;
  const auto& number = *static_cast<NSNumber*>(value);
  const auto& current_number = *static_cast<NSNumber*>(current);
  if (number.kind != current_number.kind) return false;
  return number.kind == NumberKind::floating_point ? number.floating_point == current_number.floating_point
                                                   : number.integer == current_number.integer;
}

/// The one way in which the store changes; a null value removes the key. False when nothing changed.
bool kvs_store_set(ObjcObject* key_object, ObjcObject* value) {
  CloudStore& store = cloud_store();
  StoreKey key = key_of(key_object);
  ns_string_utf8(value);  // UTF-16 is converted before the lock is taken
  const std::lock_guard guard(store_lock);
  std::int64_t index = find_locked(store, key);
  if (is_unchanged(value_at_locked(store, index), value)) return false;
  if (key.text == nullptr) {  // is not found, but stored under the empty text
    key = key_of("");
    index = find_locked(store, key);
  }
  if (index < 0) {
    append_entry_locked(store, key, value);
  } else {
    ns_dictionary_set(*store.entries, store.entries->items[index], value);
    if (value == nullptr) store.hashes.erase(store.hashes.begin() + index);
  }
  save_locked(store);
  return true;
}

/// For a number that nobody else has seen: periodic saving of the same values takes no memory.
void set_number(ObjcObject* key, NSNumber* number) {
  if (!kvs_store_set(key, number)) std::free(number);
}

// ---- Methods --------------------------------------------------------------------------------------------------------

SYSV ObjcObject* default_store(ObjcClass*, Selector) {
  cloud_store();
  return shared_instance<objc_class_NSUbiquitousKeyValueStore>();
}

/// Every change is on disk already.
SYSV ObjcBool synchronize(ObjcObject*, Selector) { return 1; }

SYSV ObjcObject* object_for_key(ObjcObject*, Selector, ObjcObject* key) { return value_for_key(key); }

SYSV ObjcObject* string_for_key(ObjcObject*, Selector, ObjcObject* key) {
  ObjcObject* const value = value_for_key(key);
  return objc_is_kind_of(value, &objc_class_NSString) ? value : nullptr;
}

SYSV double double_for_key(ObjcObject*, Selector, ObjcObject* key) {
  const NSNumber* const number = number_for_key(key);
  return number != nullptr ? number->floating_point : 0;
}

SYSV std::int64_t long_long_for_key(ObjcObject*, Selector, ObjcObject* key) {
  const NSNumber* const number = number_for_key(key);
  return number != nullptr ? number->integer : 0;
}

SYSV ObjcBool bool_for_key(ObjcObject* receiver, Selector selector, ObjcObject* key) {
  return long_long_for_key(receiver, selector, key) != 0;
}

SYSV void set_object(ObjcObject*, Selector, ObjcObject* value, ObjcObject* key) { kvs_store_set(key, value); }

SYSV void set_double(ObjcObject*, Selector, double value, ObjcObject* key) {
  set_number(key, ns_number_from_double(value));
}

SYSV void set_long_long(ObjcObject*, Selector, std::int64_t value, ObjcObject* key) {
  set_number(key, ns_number_from_int64(value));
}

SYSV void set_bool(ObjcObject*, Selector, std::int32_t value, ObjcObject* key) {
  set_number(key, ns_number_from_int64(value != 0));
}

SYSV void remove_object(ObjcObject*, Selector, ObjcObject* key) { kvs_store_set(key, nullptr); }

SYSV ObjcObject* dictionary_representation(ObjcObject*, Selector) {
  const CloudStore& store = cloud_store();
  auto* const copy = objc_new<NSCollection>(objc_class_NSDictionary);
  const std::shared_lock guard(store_lock);
  for (std::uint64_t i = 0; i < store.entries->count; ++i) {
    append_entry(*copy, store.entries->items[i], store.entries->values[i]);
  }
  return copy;
}

}  // namespace

const MethodRow NSUbiquitousKeyValueStore_class_methods[] = {
    {"defaultStore", shim(default_store)},
    {},
};

const MethodRow NSUbiquitousKeyValueStore_methods[] = {
    {"synchronize", shim(synchronize)},
    {"objectForKey:", shim(object_for_key)},
    {"stringForKey:", shim(string_for_key)},
    {"doubleForKey:", shim(double_for_key)},
    {"longLongForKey:", shim(long_long_for_key)},
    {"boolForKey:", shim(bool_for_key)},
    {"setObject:forKey:", shim(set_object)},
    {"setString:forKey:", shim(set_object)},
    {"setDouble:forKey:", shim(set_double)},
    {"setLongLong:forKey:", shim(set_long_long)},
    {"setBool:forKey:", shim(set_bool)},
    {"removeObjectForKey:", shim(remove_object)},
    {"dictionaryRepresentation", shim(dictionary_representation)},
    {},
};

}  // namespace vlm
