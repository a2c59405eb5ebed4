// Searches look at 16 bytes at once, aligned: that may read beyond the ends of what is searched, but never into another
// page, which need not be there.
#include "support/bytes.h"

#include <emmintrin.h>

#include <bit>
#include <cstring>

namespace vlm {
namespace {

/// Copies `size` bytes, from one to two times those of Part, as its first and its last ones; both are read before
/// anything is written, so the places may overlap.
template <class Part>
[[gnu::always_inline]] inline void copy_ends(std::byte* to, const std::byte* from, std::uint64_t size) {
  Part first, last;
  std::memcpy(&first, from, sizeof(Part));
  std::memcpy(&last, from + size - sizeof(Part), sizeof(Part));
  std::memcpy(to, &first, sizeof(Part));
  std::memcpy(to + size - sizeof(Part), &last, sizeof(Part));
}

/// So many bytes in vector registers; all sixteen are free to use here, two parts of 128 bytes fill them.
template <std::size_t Bytes>
using Vector = unsigned char __attribute__((vector_size(Bytes)));

constexpr std::size_t block_size = sizeof(__m128i);

/// Bit i is set when byte i of both is the same.
std::uint32_t equal_bytes(__m128i a, __m128i b) { return _mm_movemask_epi8(_mm_cmpeq_epi8(a, b)); }

}  // namespace

SYSV void* copy_bytes(void* to_, const void* from_, std::uint64_t size) {
  auto* const to = static_cast<std::byte*>(to_);
  const auto* const from = static_cast<const std::byte*>(from_);
  if (size > 256) {
    std::memmove(to, from, size);
  } else if (size > 128) {
    copy_ends<Vector<128>>(to, from, size);
  } else if (size > 64) {
    copy_ends<Vector<64>>(to, from, size);
  } else if (size > 32) {
    copy_ends<Vector<32>>(to, from, size);
  } else if (size >= 16) {
    copy_ends<Vector<16>>(to, from, size);
  } else if (size >= 8) {
    copy_ends<std::uint64_t>(to, from, size);
  } else if (size >= 4) {
    copy_ends<std::uint32_t>(to, from, size);
  } else if (size >= 2) {
    copy_ends<std::uint16_t>(to, from, size);
  } else if (size == 1) {
    *to = *from;
  }
  return to;
}

SYSV std::uint64_t text_length(const char* text) {
  // What stands before the text in the first block is shifted out.
  const auto misalignment = reinterpret_cast<std::uintptr_t>(text) % block_size;
  const auto* block = reinterpret_cast<const __m128i*>(text - misalignment);
  if (const std::uint32_t ends = equal_bytes(*block, __m128i{}) >> misalignment) return std::countr_zero(ends);
  for (;;) {
    if (const std::uint32_t ends = equal_bytes(*++block, __m128i{})) {
      return reinterpret_cast<const char*>(block) - text + std::countr_zero(ends);
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
  for (++block; reinterpret_cast<const char*>(block) < end; ++block) {
    if (const std::uint32_t found = equal_bytes(*block, wanted)) {
      return in_range(reinterpret_cast<const char*>(block) + std::countr_zero(found));
    }
  }
  return nullptr;
}

}  // namespace vlm
