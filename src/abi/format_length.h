// Length modifiers, which the printf and the sscanf engine share.
#pragma once

#include <cstdint>
#include <cstring>

namespace vlm {

/// What a length modifier says; `wide` is l, ll, j, z, t or q, all of them 64 bits on macOS.
enum class Length : std::uint8_t { none, hh, h, wide, L };

/// Reads a length modifier, if there is one, and moves behind it.
inline Length read_length(const char*& format) {
  switch (*format) {
    case 'h':
      if (*++format != 'h') return Length::h;
      ++format;
      return Length::hh;
    case 'l':
      if (*++format == 'l') ++format;
      return Length::wide;
    case 'j':
    case 'z':
    case 't':
    case 'q': ++format; return Length::wide;
    case 'L': ++format; return Length::L;
    default: return Length::none;
  }
}

/// Stores as many low bytes as an integer of this length has; L says nothing about integers.
inline void store_integer(void* to, std::uint64_t bits, Length length) {
  const std::size_t size = length == Length::wide ? 8 : length == Length::h ? 2 : length == Length::hh ? 1 : 4;
  std::memcpy(to, &bits, size);
}

}  // namespace vlm
