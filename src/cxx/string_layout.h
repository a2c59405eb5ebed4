// std::string of macOS's libc++ on x86-64, in the form that game code has compiled into itself. It lays out such
// objects, reads them and frees their characters without a call, so form and amount of memory are as it expects.
//
//            0          1                8              16             24
//   short    | size * 2 | 22 characters and their terminator            |
//   long     | allocation, bit 0 set     | size         | characters ---> heap block, terminated
//
// Bit 0 of the first byte tells the forms apart. A string never goes back from long to short.
#pragma once

#include <cstddef>
#include <cstdint>

#include "diag/log.h"
#include "posix/heap.h"
#include "support/bytes.h"

namespace vlm {

constexpr std::uint64_t short_capacity = 22;

union GameString {
  struct {
    std::uint8_t twice_the_size;
    char characters[short_capacity + 1];
  } in_place;
  struct {
    std::uint64_t allocation;  // bytes of the block, with bit 0 set
    std::uint64_t size;
    char* characters;
  } on_heap;

  bool is_long() const { return (in_place.twice_the_size & 1) != 0; }
};
static_assert(sizeof(GameString) == 24 && offsetof(GameString, on_heap.characters) == 16);

/// Where a string has its characters; of no use once the string's storage is another.
struct StringStorage {
  char* characters;
  std::uint64_t size;
  std::uint64_t capacity;  // characters that fit, without the terminator

  bool holds(const char* text) const { return text >= characters && text <= characters + capacity; }
};

inline StringStorage storage_of(GameString& string) {
  if (!string.is_long()) {
    return {string.in_place.characters, std::uint64_t{string.in_place.twice_the_size} / 2, short_capacity};
  }
  return {string.on_heap.characters, string.on_heap.size, (string.on_heap.allocation & ~std::uint64_t{1}) - 1};
}

/// What a const member reads.
struct StringText {
  const char* characters;
  std::uint64_t size;
};

inline StringText text_of(const GameString& string) {
  if (!string.is_long()) return {string.in_place.characters, std::uint64_t{string.in_place.twice_the_size} / 2};
  return {string.on_heap.characters, string.on_heap.size};
}

/// After a change of the characters, which the string has where the caller says: the new size, which fits the storage,
/// and the terminator. The string is not asked where they are: that would wait for what was just written, where both
/// look alike to the processor (the same place in two pages).
inline void set_size(GameString& string, char* characters, std::uint64_t size) {
  if (characters == string.in_place.characters) {
    string.in_place.twice_the_size = static_cast<std::uint8_t>(size * 2);
  } else {
    string.on_heap.size = size;
  }
  characters[size] = '\0';
}

/// A heap block for the characters of a string.
struct StringBlock {
  char* characters;
  std::uint64_t size;  // bytes, a multiple of 16
};

[[noreturn, gnu::noinline]] inline void no_memory_for_characters(std::uint64_t count) {
  fatal_error("std::string: no memory for %llu characters", static_cast<unsigned long long>(count));
}

/// A block for at least `capacity` characters and a terminator. Ends the game when there is no memory for it.
inline StringBlock allocate_characters(std::uint64_t capacity) {
  const std::uint64_t size = (capacity | 15) + 1;  // 0 when no block can be so large
  char* const characters = size == 0 ? nullptr : static_cast<char*>(heap_allocate(size));
  if (characters == nullptr) [[unlikely]]
    no_memory_for_characters(capacity);
  return {characters, size};
}

/// Makes the string a long one in another block, which holds its characters already. The old block is released.
inline void move_to(GameString& string, StringBlock block) {
  if (string.is_long()) heap_free(string.on_heap.characters);
  string.on_heap.allocation = block.size | 1;
  string.on_heap.characters = block.characters;
}

/// The sum of two sizes, or the largest size there is: no block holds that.
inline std::uint64_t add_sizes(std::uint64_t a, std::uint64_t b) {
  const std::uint64_t sum = a + b;
  return sum < a ? ~std::uint64_t{0} : sum;
}

}  // namespace vlm
