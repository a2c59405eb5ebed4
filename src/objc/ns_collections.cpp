// How collections keep, find and compare their entries. Their methods are in ns_collection_methods.cpp.
#include "objc/ns_collections.h"

#include <cstdlib>
#include <cstring>

#include "diag/log.h"
#include "objc/ns_number.h"
#include "objc/ns_string.h"

namespace vlm {
namespace {

template <class Word>
bool same_word(const char* left, const char* right) {
  Word left_word, right_word;
  std::memcpy(&left_word, left, sizeof(Word));
  std::memcpy(&right_word, right, sizeof(Word));
  return left_word == right_word;
}

/// Compares the last word first, since keys often begin alike.
template <class Word>
bool same_from_the_end(std::string_view left, std::string_view right) {
  const std::size_t rest = left.size() - sizeof(Word);
  if (!same_word<Word>(left.data() + rest, right.data() + rest)) return false;
  if (rest <= sizeof(Word)) return same_word<Word>(left.data(), right.data());
  return std::memcmp(left.data(), right.data(), rest) == 0;
}

bool same_text(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return false;
  if (left.size() >= 8) return same_from_the_end<std::uint64_t>(left, right);
  if (left.size() >= 4) return same_from_the_end<std::uint32_t>(left, right);
  return std::memcmp(left.data(), right.data(), left.size()) == 0;
}

/// Inline, as the convention passes a string_view through memory.
[[gnu::always_inline]] inline bool is_text(ObjcObject* object, std::string_view text) {
  const std::string_view other = ns_string_text(object);
  return other.data() != nullptr && same_text(other, text);
}

bool is_number(ObjcObject* object, const NSNumber& number) {
  return objc_is_kind_of(object, &objc_class_NSNumber) && ns_numbers_equal(*static_cast<NSNumber*>(object), number);
}

/// Calls `look` with the test that tells whether an object, not null, is equal to this one but is not this one.
template <class Look>
auto with_test_for(ObjcObject* object, Look look) {
  if (const std::string_view text = ns_string_text(object); text.data() != nullptr) {
    return look([text](ObjcObject* other) { return is_text(other, text); });
  }
  if (object != nullptr && objc_is_kind_of(object, &objc_class_NSNumber)) {
    return look([object](ObjcObject* other) { return is_number(other, *static_cast<NSNumber*>(object)); });
  }
  return look([](ObjcObject*) { return false; });
}

ObjcObject** resize(ObjcObject** entries, std::uint64_t count, std::uint64_t capacity) {
  auto* const resized = static_cast<ObjcObject**>(std::realloc(entries, capacity * sizeof *entries));
  if (resized == nullptr) fatal_error("no memory for a collection of %llu objects", capacity);
  std::memset(resized + count, 0, (capacity - count) * sizeof *entries);
  return resized;
}

void append(NSCollection& collection, ObjcObject* item, ObjcObject* value) {
  if (collection.count == collection.capacity) {
    const std::uint64_t capacity = collection.capacity == 0 ? 8 : 2 * collection.capacity;
    collection.items = resize(collection.items, collection.count, capacity);
    collection.values = resize(collection.values, collection.count, capacity);
    collection.capacity = capacity;
  }
  collection.items[collection.count] = item;
  collection.values[collection.count] = value;
  ++collection.count;
  ++collection.mutations;
}

/// Later entries move down by one.
void remove(NSCollection& collection, std::uint64_t index) {
  const std::uint64_t behind = --collection.count - index;
  std::memmove(collection.items + index, collection.items + index + 1, behind * sizeof(ObjcObject*));
  std::memmove(collection.values + index, collection.values + index + 1, behind * sizeof(ObjcObject*));
  ++collection.mutations;
}

}  // namespace

bool ns_objects_equal(ObjcObject* left, ObjcObject* right) {
  return left == right || (left != nullptr && with_test_for(right, [left](auto is_equal) { return is_equal(left); }));
}

std::int64_t ns_collection_find(const NSCollection& collection, ObjcObject* object) {
  return with_test_for(object, [&](auto is_equal) -> std::int64_t {
    for (std::uint64_t i = 0; i < collection.count; ++i) {
      ObjcObject* const item = collection.items[i];
      if (item == object || (item != nullptr && is_equal(item))) return static_cast<std::int64_t>(i);
    }
    return -1;
  });
}

void ns_array_append(NSCollection& array, ObjcObject* object) { append(array, object, nullptr); }

void ns_array_remove(NSCollection& array, ObjcObject* object) {
  with_test_for(object, [&](auto is_equal) {
    std::uint64_t kept = 0;
    for (std::uint64_t i = 0; i < array.count; ++i) {
      ObjcObject* const item = array.items[i];
      if (item != object && (item == nullptr || !is_equal(item))) array.items[kept++] = item;
    }
    array.mutations += array.count - kept;
    array.count = kept;
  });
}

void ns_dictionary_set(NSCollection& dictionary, ObjcObject* key, ObjcObject* value) {
  const std::int64_t index = ns_collection_find(dictionary, key);
  if (value == nullptr) {
    if (index >= 0) remove(dictionary, static_cast<std::uint64_t>(index));
  } else if (index >= 0) {
    dictionary.values[index] = value;
    ++dictionary.mutations;
  } else {
    append(dictionary, key, value);
  }
}

}  // namespace vlm
