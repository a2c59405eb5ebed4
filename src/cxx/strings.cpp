// The members of std::string that game code imports; all others are compiled into it.
//
// The source of what is appended, assigned or inserted may lie in the string itself. Where the string moves to a new
// block, its old one is released only after the last character was read; where it stays, characters are copied as if
// all were read before any is written.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "cxx/shims.h"
#include "cxx/string_layout.h"
#include "diag/log.h"
#include "support/bytes.h"
#include "support/sysv.h"

namespace vlm {
namespace {

constexpr std::uint64_t npos = ~std::uint64_t{0};

// ---- Growing at the end ---------------------------------------------------------------------------------------------

/// Appends what does not fit: storage is at least doubled. Apart, so that the way of what fits saves no registers.
template <class Write>
[[gnu::noinline, gnu::cold]] SYSV void append_growing(GameString& string, std::uint64_t count, Write write) {
  const StringStorage old = storage_of(string);
  const std::uint64_t size = add_sizes(old.size, count);
  const StringBlock block = allocate_characters(std::max(size, 2 * old.capacity));
  copy_bytes(block.characters, old.characters, old.size);
  write(block.characters + old.size);
  move_to(string, block);
  set_size(string, block.characters, size);
}

/// Appends `count` characters, which `write` puts where it is told.
template <class Write>
[[gnu::always_inline]] inline void append_with(GameString& string, std::uint64_t count, Write write) {
  const StringStorage old = storage_of(string);
  if (count > old.capacity - old.size) [[unlikely]]
    return append_growing(string, count, write);
  set_size(string, old.characters,
           old.size + count);  // behind all that may be the source; so nothing is kept for later
  write(old.characters + old.size);
}

SYSV GameString* append_text(GameString* string, const char* text, std::uint64_t count) {
  append_with(*string, count, [=](char* to) { copy_bytes(to, text, count); });
  return string;
}

SYSV GameString* append_terminated(GameString* string, const char* text) {
  return append_text(string, text, text_length(text));
}

SYSV GameString* append_fill(GameString* string, std::uint64_t count, char c) {
  append_with(*string, count, [=](char* to) { std::memset(to, c, count); });
  return string;
}

/// As append_with would, but each form by itself: game code builds texts character by character.
SYSV void push_back(GameString* string, char c) {
  const auto grow = [&] { append_growing(*string, 1, [c](char* to) { *to = c; }); };
  if (string->is_long()) {
    const std::uint64_t size = string->on_heap.size;
    char* const characters = string->on_heap.characters;
    if (size + 2 >= string->on_heap.allocation) [[unlikely]]
      return grow();  // the block's size and 1; one is the NUL's
    string->on_heap.size = size + 1;
    characters[size] = c;
    characters[size + 1] = '\0';
  } else {
    const unsigned size = string->in_place.twice_the_size / 2u;
    if (size == short_capacity) [[unlikely]]
      return grow();
    string->in_place.twice_the_size = static_cast<std::uint8_t>(2 * (size + 1));
    string->in_place.characters[size] = c;
    string->in_place.characters[size + 1] = '\0';
  }
}

SYSV void resize(GameString* string, std::uint64_t size, char c) {
  const StringStorage old = storage_of(*string);
  if (size > old.size) {
    append_fill(string, size - old.size, c);
  } else {
    set_size(*string, old.characters, size);
  }
}

// ---- Storage of exactly the size that is asked for ------------------------------------------------------------------

[[gnu::noinline, gnu::cold]] SYSV void assign_growing(GameString& string, const char* text, std::uint64_t size) {
  const StringBlock block = allocate_characters(size);
  copy_bytes(block.characters, text, size);
  move_to(string, block);
  set_size(string, block.characters, size);
}

SYSV void assign(GameString& string, const char* text, std::uint64_t size) {
  const StringStorage old = storage_of(string);
  if (size > old.capacity) [[unlikely]]
    return assign_growing(string, text, size);
  copy_bytes(old.characters, text, size);
  set_size(string, old.characters, size);
}

SYSV GameString* assign_terminated(GameString* string, const char* text) {
  assign(*string, text, text_length(text));
  return string;
}

SYSV GameString* assign_string(GameString* string, const GameString* other) {
  if (string == other) return string;
  const StringText text = text_of(*other);
  const StringStorage old = storage_of(*string);
  if (text.size > old.capacity) [[unlikely]] {
    assign_growing(*string, text.characters, text.size);
  } else {
    set_size(*string, old.characters, text.size);  // the text is another string's, so nothing is kept for later
    copy_bytes(old.characters, text.characters, text.size);
  }
  return string;
}

SYSV void reserve(GameString* string, std::uint64_t capacity) {
  const StringStorage old = storage_of(*string);
  if (capacity <= old.capacity) return;
  const StringBlock block = allocate_characters(capacity);
  copy_bytes(block.characters, old.characters, old.size);
  move_to(*string, block);
  set_size(*string, block.characters, old.size);
}

/// The first inserted character.
SYSV char* insert(GameString& string, std::uint64_t position, const char* text, std::uint64_t count) {
  const StringStorage old = storage_of(string);
  if (position > old.size) fatal_error("basic_string::insert out of range");
  const std::uint64_t size = add_sizes(old.size, count);
  const std::uint64_t behind = old.size - position;
  char* at;
  if (size <= old.capacity && old.holds(text)) {
    // Making room would move the source, or part of it.
    const StringBlock copy = allocate_characters(count);
    copy_bytes(copy.characters, text, count);
    insert(string, position, copy.characters, count);
    heap_free(copy.characters);
    return old.characters + position;
  }
  if (size <= old.capacity) {
    at = old.characters + position;
    copy_bytes(at + count, at, behind);
    copy_bytes(at, text, count);
  } else {
    const StringBlock block = allocate_characters(size);
    at = block.characters + position;
    copy_bytes(block.characters, old.characters, position);
    copy_bytes(at, text, count);
    copy_bytes(at + count, old.characters + position, behind);
    move_to(string, block);
  }
  set_size(string, at - position, size);
  return at;
}

SYSV GameString* insert_terminated(GameString* string, std::uint64_t position, const char* text) {
  insert(*string, position, text, text_length(text));
  return string;
}

/// Iterators are pointers.
SYSV char* insert_character(GameString* string, const char* before, char c) {
  return insert(*string, static_cast<std::uint64_t>(before - text_of(*string).characters), &c, 1);
}

// ---- Members that inlined code relies on ----------------------------------------------------------------------------

/// Moves the string to storage at least twice as large, with a gap of `added` characters in place of `removed` ones
/// behind the first `kept`. The caller fills the gap and writes the size.
SYSV void grow_by(GameString* string, std::uint64_t old_capacity, std::uint64_t extra, std::uint64_t old_size,
                  std::uint64_t kept, std::uint64_t removed, std::uint64_t added) {
  const char* const old = text_of(*string).characters;
  const StringBlock block = allocate_characters(std::max(add_sizes(old_capacity, extra), 2 * old_capacity));
  copy_bytes(block.characters, old, kept);
  copy_bytes(block.characters + kept + added, old + kept + removed, old_size - kept - removed);
  move_to(*string, block);
}

SYSV void destroy(GameString* string) {
  if (string->is_long()) heap_free(string->on_heap.characters);
}

// ---- Reading --------------------------------------------------------------------------------------------------------

SYSV std::uint64_t find_character(const GameString* string, char c, std::uint64_t position) {
  const StringText text = text_of(*string);
  if (position >= text.size) return npos;
  const char* const found = find_byte(text.characters + position, text.characters + text.size, c);
  return found == nullptr ? npos : static_cast<std::uint64_t>(found - text.characters);
}

SYSV std::uint64_t rfind_character(const GameString* string, char c, std::uint64_t position) {
  const StringText text = text_of(*string);
  for (std::uint64_t i = position < text.size ? position + 1 : text.size; i-- > 0;) {
    if (text.characters[i] == c) return i;
  }
  return npos;
}

SYSV std::int32_t compare_terminated(const GameString* string, const char* other) {
  const StringText text = text_of(*string);
  const std::uint64_t length = text_length(other);
  const std::int32_t order = compare_bytes(text.characters, other, std::min(text.size, length));
  if (order != 0) return order;
  return text.size < length ? -1 : text.size > length;
}

// ---- New strings, in the caller's result slot -----------------------------------------------------------------------

SYSV GameString* concatenate(GameString* result, const char* left, const GameString* right) {
  const std::uint64_t length = text_length(left);
  const StringText text = text_of(*right);
  const std::uint64_t size = add_sizes(length, text.size);
  result->in_place = {};
  if (size > short_capacity) move_to(*result, allocate_characters(size));
  char* const to = storage_of(*result).characters;
  copy_bytes(to, left, length);
  copy_bytes(to + length, text.characters, text.size);
  set_size(*result, to, size);
  return result;
}

SYSV GameString* int_to_string(GameString* result, std::int32_t value) {
  result->in_place = {};
  char* const to = result->in_place.characters;
  set_size(*result, to, static_cast<std::uint64_t>(std::snprintf(to, short_capacity + 1, "%d", value)));
  return result;
}

}  // namespace

// basic_string<char, char_traits<char>, allocator<char>>, as the mangled names begin
#define STRING "St3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEE"

const ShimEntry cxx_string_rows[] = {
    {"__ZN" STRING "6assignEPKc", shim(assign_terminated)},
    {"__ZN" STRING "aSERKS5_", shim(assign_string)},
    {"__ZN" STRING "6appendEPKc", shim(append_terminated)},
    {"__ZN" STRING "6appendEPKcm", shim(append_text)},
    {"__ZN" STRING "6appendEmc", shim(append_fill)},
    {"__ZN" STRING "9push_backEc", shim(push_back)},
    {"__ZN" STRING "6insertEmPKc", shim(insert_terminated)},
    {"__ZN" STRING "6insertENS_11__wrap_iterIPKcEEc", shim(insert_character)},
    {"__ZN" STRING "6resizeEmc", shim(resize)},
    {"__ZN" STRING "7reserveEm", shim(reserve)},
    {"__ZN" STRING "D1Ev", shim(destroy)},
    {"__ZN" STRING "9__grow_byEmmmmmm", shim(grow_by)},
    {"__ZNK" STRING "4findEcm", shim(find_character)},
    {"__ZNK" STRING "5rfindEcm", shim(rfind_character)},
    {"__ZNK" STRING "7compareEPKc", shim(compare_terminated)},
    {"__ZNSt3__1plIcNS_11char_traitsIcEENS_9allocatorIcEEEENS_12basic_stringIT_T0_T1_EEPKS6_RKS9_", shim(concatenate)},
    {"__ZNSt3__19to_stringEi", shim(int_to_string)},
};
constinit const ShimRows cxx_string_shims = cxx_string_rows;

#undef STRING

}  // namespace vlm
