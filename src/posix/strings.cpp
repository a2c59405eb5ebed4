// String shims: NUL-terminated byte strings.
//
// strcmp looks at 16 bytes at once, as strlen (support/bytes.h) does. That may read behind the end of a string, but never
// into the next page, which need not be there.
#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "posix/shims.h"
#include "support/bytes.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// Bit i is set when byte i of both is the same.
std::uint32_t equal_bytes(__m128i a, __m128i b) {
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
}

bool next_16_bytes_are_in_page(const char* text) { return reinterpret_cast<std::uintptr_t>(text) % 4096 <= 4096 - 16; }

SYSV std::int32_t strcmp_(const char* a, const char* b) {
  for (;;) {
    if (next_16_bytes_are_in_page(a) && next_16_bytes_are_in_page(b)) {
      const __m128i of_a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
      const __m128i of_b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
      const std::uint32_t stops = (~equal_bytes(of_a, of_b) & 0xFFFF) | equal_bytes(of_a, __m128i{});
      if (stops == 0) {
        a += 16;
        b += 16;
        continue;
      }
      a += std::countr_zero(stops);
      b += std::countr_zero(stops);
    }
    const auto difference = static_cast<std::uint8_t>(*a) - static_cast<std::uint8_t>(*b);
    if (difference != 0 || *a == '\0') return difference;
    ++a;
    ++b;
  }
}

SYSV std::int32_t strncmp_(const char* a, const char* b, std::uint64_t size) { return std::strncmp(a, b, size); }
SYSV const char* strchr_(const char* text, std::int32_t c) { return std::strchr(text, c); }
SYSV const char* strrchr_(const char* text, std::int32_t c) { return std::strrchr(text, c); }
SYSV const char* strstr_(const char* text, const char* part) { return std::strstr(text, part); }
SYSV char* strcpy_(char* to, const char* from) { return std::strcpy(to, from); }
SYSV char* strncpy_(char* to, const char* from, std::uint64_t size) { return std::strncpy(to, from, size); }
SYSV char* strdup_(const char* text) { return strdup(text); }

/// Returns the length that the whole copy would have had.
SYSV std::uint64_t strlcpy_(char* to, const char* from, std::uint64_t size) {
  const std::uint64_t length = text_length(from);
  if (size == 0) return length;
  const std::uint64_t copied = std::min(length, size - 1);
  std::memcpy(to, from, copied);
  to[copied] = '\0';
  return length;
}

}  // namespace

const ShimEntry string_shims[10] = {
    {"_strlen", shim(text_length)}, {"_strcmp", shim(strcmp_)},   {"_strncmp", shim(strncmp_)},
    {"_strchr", shim(strchr_)},     {"_strrchr", shim(strrchr_)}, {"_strstr", shim(strstr_)},
    {"_strcpy", shim(strcpy_)},     {"_strncpy", shim(strncpy_)}, {"_strdup", shim(strdup_)},
    {"_strlcpy", shim(strlcpy_)},
};

}  // namespace vlm
