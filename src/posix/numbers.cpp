// Conversions from text to numbers, and integer division.
//
// The text is read here and not by the host: its conversions leave the end pointer at the start of "0x" (C: behind the
// zero), let strtoul of "-99999999999999999999" wrap where C asks for the largest value, and may end the process over
// a base that they do not know.
#include <cstdint>
#include <limits>

#include "posix/shims.h"
#include "support/characters.h"
#include "support/darwin_errno.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// The subject of a C conversion: blanks, a sign, a prefix of the base, digits.
struct Number {
  const char* end;          // behind the last digit; the start of the text when there is no digit
  std::uint64_t magnitude;  // meaningless when too_large
  bool negative;
  bool too_large;  // for 64 bits without a sign
};

/// `base` is 0 (told by the prefix) or 2 to 36.
Number read_number(const char* text, std::uint32_t base) {
  Number number = {text, 0, false, false};
  while (is_space(*text)) ++text;
  if (*text == '+' || *text == '-') number.negative = *text++ == '-';
  // A prefix without a digit behind it is the number zero and an 'x'.
  const bool has_prefix = text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && digit_value(text[2]) < 16;
  if ((base == 0 || base == 16) && has_prefix) {
    base = 16;
    text += 2;
  } else if (base == 0) {
    base = *text == '0' ? 8 : 10;
  }
  for (std::uint32_t digit; (digit = digit_value(*text)) < base; number.end = ++text) {
    number.too_large |= __builtin_mul_overflow(number.magnitude, std::uint64_t{base}, &number.magnitude);
    number.too_large |= __builtin_add_overflow(number.magnitude, std::uint64_t{digit}, &number.magnitude);
  }
  return number;
}

/// What both conversions have in common. A text without a number is an error on macOS, as is a base that there is not.
Number convert(const char* text, const char** end, std::int32_t base) {
  Number number = {text, 0, false, false};
  if (base == 0 || (base >= 2 && base <= 36)) number = read_number(text, static_cast<std::uint32_t>(base));
  if (number.end == text) shim_errno = DARWIN_EINVAL;
  if (end != nullptr) *end = number.end;
  return number;
}

SYSV std::int64_t strtol_(const char* text, const char** end, std::int32_t base) {
  Number number = convert(text, end, base);
  constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
  if (number.too_large || number.magnitude > largest + number.negative) {
    shim_errno = DARWIN_ERANGE;
    number.magnitude = largest + number.negative;
  }
  return static_cast<std::int64_t>(number.negative ? -number.magnitude : number.magnitude);
}

/// A sign negates in unsigned arithmetic: "-1" is the largest value, without an error.
SYSV std::uint64_t strtoul_(const char* text, const char** end, std::int32_t base) {
  const Number number = convert(text, end, base);
  if (number.too_large) {
    shim_errno = DARWIN_ERANGE;
    return std::numeric_limits<std::uint64_t>::max();
  }
  return number.negative ? -number.magnitude : number.magnitude;
}

SYSV std::int64_t atol_(const char* text) { return strtol_(text, nullptr, 10); }
SYSV std::int32_t atoi_(const char* text) { return static_cast<std::int32_t>(strtol_(text, nullptr, 10)); }

/// Travels in rax, the quotient in its low half.
struct DarwinDiv {
  std::int32_t quot, rem;
};
SYSV DarwinDiv div_(std::int32_t numerator, std::int32_t denominator) {
  return {numerator / denominator, numerator % denominator};
}

}  // namespace

const ShimEntry number_rows[] = {
    {"_strtol", shim(strtol_)}, {"_strtoul", shim(strtoul_)}, {"_atoi", shim(atoi_)},
    {"_atol", shim(atol_)},     {"_div", shim(div_)},
};
constinit const ShimRows number_shims = number_rows;

}  // namespace vlm
