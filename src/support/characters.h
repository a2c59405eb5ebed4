// Characters of numbers and blanks in the C locale, the only one there is.
#pragma once

#include <cstdint>
#include <limits>

namespace vlm {

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// The value of a digit in any base up to 36; 36 for a character that is no digit.
constexpr std::uint32_t digit_value(char c) {
  if (is_digit(c)) return static_cast<std::uint32_t>(c - '0');
  if (c >= 'A' && c <= 'Z') return static_cast<std::uint32_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'z') return static_cast<std::uint32_t>(c - 'a' + 10);
  return 36;
}

/// An integer while its digits are read, the highest first.
struct IntegerText {
  bool negative = false;
  bool too_large = false;       // for 64 bits without a sign
  std::uint64_t magnitude = 0;  // meaningless when too_large

  constexpr void append(std::uint32_t digit, std::uint32_t base) {
    too_large |= __builtin_mul_overflow(magnitude, std::uint64_t{base}, &magnitude);
    too_large |= __builtin_add_overflow(magnitude, std::uint64_t{digit}, &magnitude);
  }

  constexpr bool fits_signed() const { return !too_large && magnitude <= most_signed(); }

  /// The value, or the nearest that a type has.
  constexpr std::int64_t clamped_signed() const {
    const std::uint64_t nearest = fits_signed() ? magnitude : most_signed();
    return static_cast<std::int64_t>(negative ? 0 - nearest : nearest);
  }
  /// A sign negates in unsigned arithmetic: "-1" is the largest value.
  constexpr std::uint64_t clamped_unsigned() const {
    if (too_large) return std::numeric_limits<std::uint64_t>::max();
    return negative ? 0 - magnitude : magnitude;
  }

 private:
  constexpr std::uint64_t most_signed() const { return (std::uint64_t{1} << 63) - !negative; }
};

}  // namespace vlm
