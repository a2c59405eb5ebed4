// Characters of numbers and blanks in the C locale, the only one there is.
#pragma once

#include <cstdint>

namespace vlm {

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// The value of a digit in any base up to 36; 36 for what is none.
constexpr std::uint32_t digit_value(char c) {
  if (is_digit(c)) return static_cast<std::uint32_t>(c - '0');
  if (c >= 'A' && c <= 'Z') return static_cast<std::uint32_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'z') return static_cast<std::uint32_t>(c - 'a' + 10);
  return 36;
}

}  // namespace vlm
