// Searches look at 16 or 32 bytes at once, either aligned or with no end of a page between them. Such a read may go
// beyond the bytes that are searched, but never into another page, which might not exist.
#include "support/bytes.h"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "support/pages.h"

namespace vlm {
namespace {

/// Every machine has vectors of 16 bytes; nearly every one has those of 32, which are twice as fast on long blocks.
bool has_avx2() { return __builtin_cpu_supports("avx2"); }

// ---- Copying --------------------------------------------------------------------------------------------------------
//
// A collector may stop a thread in the middle of a move and look for references; it sees memory and the general
// registers. So a word is never in a vector register alone: where the places overlap, stores come in the order of the
// move, each a single instruction, and nothing is overwritten before it has been stored where it goes to.

/// So many bytes in a vector register, and in memory at any address.
template <std::size_t Bytes>
using Vector = unsigned char __attribute__((vector_size(Bytes)));
template <std::size_t Bytes>
struct [[gnu::packed]] VectorAnywhere {
  Vector<Bytes> value;
};

/// Whether the first bytes go first, or the last ones: those that are overwritten first.
enum class Order { up, down };

Order order_of_move(const std::byte* to, const std::byte* from, std::uint64_t size) {
  return static_cast<std::uint64_t>(to - from) < size ? Order::down : Order::up;
}

/// Bytes in several vector registers.
template <std::size_t Bytes, std::size_t Count>
struct Group {
  static constexpr std::size_t size = Bytes * Count;

  [[gnu::always_inline]] void load(const std::byte* from) {
#pragma clang loop unroll(full)
    for (std::size_t i = 0; i < Count; ++i) std::memcpy(&parts[i], from + i * Bytes, Bytes);
  }

  template <Order order>
  [[gnu::always_inline]] void store(std::byte* to) const {
#pragma clang loop unroll(full)
    for (std::size_t i = 0; i < Count; ++i) {
      const std::size_t part = order == Order::up ? i : Count - 1 - i;
      // Volatile: the compiler keeps the order.
      reinterpret_cast<volatile VectorAnywhere<Bytes>*>(to + part * Bytes)->value = parts[part];
    }
  }

  Vector<Bytes> parts[Count];
};

/// Copies `size` bytes, from one to two times those of Part, as its first and its last ones.
template <class Part>
[[gnu::always_inline]] inline void copy_words(std::byte* to, const std::byte* from, std::uint64_t size) {
  Part first, last;  // general registers: their order is nobody's concern
  std::memcpy(&first, from, sizeof(Part));
  std::memcpy(&last, from + size - sizeof(Part), sizeof(Part));
  std::memcpy(to, &first, sizeof(Part));
  std::memcpy(to + size - sizeof(Part), &last, sizeof(Part));
}

template <Order order, class Part>
[[gnu::always_inline]] inline void copy_ends(std::byte* to, const std::byte* from, std::uint64_t size) {
  Part first, last;
  first.load(from);
  last.load(from + size - Part::size);
  if constexpr (order == Order::up) first.template store<order>(to);
  last.template store<order>(to + size - Part::size);
  if constexpr (order == Order::down) first.template store<order>(to);
}

/// More than two chunks. All but the ends lie aligned where they go to; the chunk beside the first end, which overlaps
/// it, is read before that end is written.
template <Order order, class Chunk, std::size_t Bytes>
[[gnu::always_inline]] inline void copy_chunks(std::byte* to, const std::byte* from, std::uint64_t size) {
  const std::uint64_t behind = size - Chunk::size;
  Chunk low, high, next;
  low.load(from);
  high.load(from + behind);
  if constexpr (order == Order::up) {
    std::uint64_t at = Chunk::size - reinterpret_cast<std::uintptr_t>(to) % Bytes;
    next.load(from + at);
    low.template store<order>(to);
    next.template store<order>(to + at);
    for (at += Chunk::size; at < behind; at += Chunk::size) {
      next.load(from + at);
      next.template store<order>(to + at);
    }
    high.template store<order>(to + behind);
  } else {
    std::uint64_t at = behind - Chunk::size + -reinterpret_cast<std::uintptr_t>(to + behind) % Bytes;
    next.load(from + at);
    high.template store<order>(to + behind);
    next.template store<order>(to + at);
    while (at > Chunk::size) {
      at -= Chunk::size;
      next.load(from + at);
      next.template store<order>(to + at);
    }
    low.template store<order>(to);
  }
}

/// A function of its own: with the call inside them, the other ways to copy would need a stack frame.
[[gnu::noinline]] SYSV void* copy_by_host(std::byte* to, const std::byte* from, std::uint64_t size) {
  return std::memmove(to, from, size);
}

/// More than 32 bytes, in vectors of so many.
template <Order order, std::size_t Bytes>
[[gnu::always_inline]] inline void copy_in_order(std::byte* to, const std::byte* from, std::uint64_t size) {
  if (size <= 64) {
    copy_ends<order, Group<Bytes, 32 / Bytes>>(to, from, size);
  } else if (size <= 128) {
    copy_ends<order, Group<Bytes, 64 / Bytes>>(to, from, size);
  } else if (size <= 192) {
    copy_ends<order, Group<Bytes, 96 / Bytes>>(to, from, size);
  } else if (size <= 256) {
    copy_ends<order, Group<Bytes, 128 / Bytes>>(to, from, size);
  } else {
    copy_chunks<order, Group<Bytes, 4>, Bytes>(to, from, size);
  }
}

template <std::size_t Bytes>
[[gnu::always_inline]] inline void* copy_vectors(std::byte* to, const std::byte* from, std::uint64_t size) {
  constexpr std::uint64_t left_to_the_host = 32768;  // where memory sets the pace, the host's way is as good
  if (order_of_move(to, from, size) == Order::down) {
    copy_in_order<Order::down, Bytes>(to, from, size);
  } else if (size < left_to_the_host || static_cast<std::uint64_t>(from - to) < size) {
    copy_in_order<Order::up, Bytes>(to, from, size);
  } else {
    return copy_by_host(to, from, size);  // nothing is overwritten that is still to be read
  }
  return to;
}

[[gnu::noinline]] SYSV void* copy_vectors_of_16(void* to, const void* from, std::uint64_t size) {
  return copy_vectors<16>(static_cast<std::byte*>(to), static_cast<const std::byte*>(from), size);
}
[[gnu::noinline, gnu::target("avx2")]] SYSV void* copy_vectors_of_32(void* to, const void* from, std::uint64_t size) {
  return copy_vectors<32>(static_cast<std::byte*>(to), static_cast<const std::byte*>(from), size);
}

// ---- Searching ------------------------------------------------------------------------------------------------------

constexpr std::size_t block_size = sizeof(__m128i);

/// Bit i is set when byte i of both is the same.
std::uint32_t equal_bytes(__m128i a, __m128i b) {
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
}

/// Index of the lowest bit that is set; the number of bits for none.
template <class Bits>
std::uint64_t lowest_set(Bits bits) {
  return static_cast<std::uint64_t>(std::countr_zero(bits));
}

std::uint32_t zero_bytes(__m128i block) { return equal_bytes(block, __m128i{}); }

[[gnu::target("avx2")]] inline std::uint32_t zero_bytes_of_32(__m256i block) {
  return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(block, __m256i{})));
}

/// The length of a text without a NUL before `at`, which is aligned to 16.
[[gnu::noinline, gnu::target("avx2")]] SYSV std::uint64_t length_from(const char* text, std::uintptr_t at) {
  constexpr std::size_t pair = 2 * sizeof(__m256i);
  // The first pair may begin before `at`: what stands there is shifted out.
  const auto before = at % pair;
  const auto* block = reinterpret_cast<const __m256i*>(at - before);
  const auto start = at - reinterpret_cast<std::uintptr_t>(text);
  std::uint64_t ends = (zero_bytes_of_32(block[0]) | std::uint64_t{zero_bytes_of_32(block[1])} << 32) >> before;
  if (ends != 0) return start + lowest_set(ends);
  do block += 2;
  while (zero_bytes_of_32(_mm256_min_epu8(block[0], block[1])) == 0);
  ends = zero_bytes_of_32(block[0]) | std::uint64_t{zero_bytes_of_32(block[1])} << 32;
  return static_cast<std::uint64_t>(reinterpret_cast<const char*>(block) - text) + lowest_set(ends);
}

/// Skips groups of 128 bytes without the value; returns where at most that much is left, or the value is near.
[[gnu::noinline, gnu::target("avx2")]] SYSV const __m128i* skip_without(const __m128i* from, const char* end,
                                                                        char value) {
  const __m256i wanted = _mm256_set1_epi8(value);
  const auto* block = reinterpret_cast<const __m256i*>(reinterpret_cast<std::uintptr_t>(from) & ~std::uintptr_t{31});
  for (; end - reinterpret_cast<const char*>(block) > 128; block += 4) {
    const __m256i first = _mm256_or_si256(_mm256_cmpeq_epi8(block[0], wanted), _mm256_cmpeq_epi8(block[1], wanted));
    const __m256i second = _mm256_or_si256(_mm256_cmpeq_epi8(block[2], wanted), _mm256_cmpeq_epi8(block[3], wanted));
    if (_mm256_movemask_epi8(_mm256_or_si256(first, second)) != 0) break;
  }
  return std::max(from, reinterpret_cast<const __m128i*>(block));  // the first group may begin before
}

bool block_is_in_page(const char* text) {
  return reinterpret_cast<std::uintptr_t>(text) % page_size <= page_size - block_size;
}

}  // namespace

SYSV void* copy_bytes(void* to_, const void* from_, std::uint64_t size) {
  auto* const to = static_cast<std::byte*>(to_);
  const auto* const from = static_cast<const std::byte*>(from_);
  if (size > 32) {
    if (has_avx2()) [[likely]]
      [[clang::musttail]] return copy_vectors_of_32(to_, from_, size);
    [[clang::musttail]] return copy_vectors_of_16(to_, from_, size);
  }
  if (size >= 16) {
    if (order_of_move(to, from, size) == Order::up) {
      copy_ends<Order::up, Group<16, 1>>(to, from, size);
    } else {
      copy_ends<Order::down, Group<16, 1>>(to, from, size);
    }
  } else if (size >= 8) {
    copy_words<std::uint64_t>(to, from, size);
  } else if (size >= 4) {
    copy_words<std::uint32_t>(to, from, size);
  } else if (size >= 2) {
    copy_words<std::uint16_t>(to, from, size);
  } else if (size == 1) {
    *to = *from;
  }
  return to;
}

SYSV std::int32_t compare_bytes(const void* a_, const void* b_, std::uint64_t size) {
  const auto* const a = static_cast<const std::uint8_t*>(a_);
  const auto* const b = static_cast<const std::uint8_t*>(b_);
  const auto same_block = [&](std::uint64_t at) {
    return equal_bytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + at)),
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + at)));
  };
  const auto difference = [&](std::uint64_t at) { return a[at] - b[at]; };
  std::uint64_t at = 0;
  for (; size - at >= block_size; at += block_size) {
    if (const std::uint32_t same = same_block(at); same != 0xFFFF) return difference(at + lowest_set(~same));
  }
  if (at != size && size >= block_size) {  // compares some bytes twice, which is cheaper than the rest one by one
    at = size - block_size;
    const std::uint32_t same = same_block(at);
    return same == 0xFFFF ? 0 : difference(at + lowest_set(~same));
  }
  while (at != size && a[at] == b[at]) ++at;
  return at == size ? 0 : difference(at);
}

SYSV std::int32_t compare_texts(const char* a, const char* b) {
  for (;;) {
    if (block_is_in_page(a) && block_is_in_page(b)) {
      const __m128i of_a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
      const __m128i of_b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
      const std::uint32_t stops = (~equal_bytes(of_a, of_b) & 0xFFFF) | zero_bytes(of_a);
      if (stops == 0) {
        a += block_size;
        b += block_size;
        continue;
      }
      a += lowest_set(stops);
      b += lowest_set(stops);
    }
    const auto difference = static_cast<std::uint8_t>(*a) - static_cast<std::uint8_t>(*b);
    if (difference != 0 || *a == '\0') return difference;
    ++a;
    ++b;
  }
}

SYSV std::uint64_t text_length(const char* text) {
  // What stands before the text in the first block is shifted out.
  const auto misalignment = reinterpret_cast<std::uintptr_t>(text) % block_size;
  const auto* block = reinterpret_cast<const __m128i*>(text - misalignment);
  if (const std::uint32_t ends = zero_bytes(*block) >> misalignment) return lowest_set(ends);
  if (has_avx2()) return length_from(text, reinterpret_cast<std::uintptr_t>(block + 1));
  for (;;) {
    if (const std::uint32_t ends = zero_bytes(*++block)) {
      return static_cast<std::uint64_t>(reinterpret_cast<const char*>(block) - text) + lowest_set(ends);
    }
  }
}

SYSV const char* find_byte(const char* from, const char* end, char value) {
  if (from >= end) return nullptr;
  const __m128i wanted = _mm_set1_epi8(value);
  const auto misalignment = reinterpret_cast<std::uintptr_t>(from) % block_size;
  const auto* block = reinterpret_cast<const __m128i*>(from - misalignment);
  const auto in_range = [end](const char* found) { return found < end ? found : nullptr; };
  if (const std::uint32_t found = equal_bytes(*block, wanted) >> misalignment) {
    return in_range(from + std::countr_zero(found));
  }
  ++block;
  if (end - reinterpret_cast<const char*>(block) > 256 && has_avx2()) block = skip_without(block, end, value);
  for (; reinterpret_cast<const char*>(block) < end; ++block) {
    if (const std::uint32_t found = equal_bytes(*block, wanted)) {
      return in_range(reinterpret_cast<const char*>(block) + std::countr_zero(found));
    }
  }
  return nullptr;
}

}  // namespace vlm
