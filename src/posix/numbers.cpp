// Conversions from text to numbers, and integer division.
//
// The text is read here and not by the host: its conversions leave the end pointer at the start of "0x" (C: behind the
// zero), let strtoul of "-99999999999999999999" wrap where C asks for the largest value, and may end the process over
// a base that they do not know.
#include <cstdint>

#include "posix/shims.h"
#include "support/characters.h"
#include "support/darwin_errno.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// Reads the subject of a C conversion: blanks, a sign, a prefix of the base, digits. Returns what is behind the last
/// digit, or the start of the text when there is no digit.
///   base  0 (told by the prefix) or 2 to 36
const char* read_integer(const char* text, std::uint32_t base, IntegerText& integer) {
  const char* end = text;
  while (is_space(*text)) ++text;
  if (*text == '+' || *text == '-') integer.negative = *text++ == '-';
  // A prefix without a digit behind it is the number zero and an 'x'.
  const bool has_prefix = text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && digit_value(text[2]) < 16;
  if ((base == 0 || base == 16) && has_prefix) {
    base = 16;
    text += 2;
  } else if (base == 0) {
    base = *text == '0' ? 8 : 10;
  }
  for (std::uint32_t digit; (digit = digit_value(*text)) < base; end = ++text) integer.append(digit, base);
  return end;
}

/// What both conversions have in common. A text without a number is an error on macOS, as is a base that there is not.
IntegerText convert(const char* text, const char** end, std::int32_t base) {
  IntegerText integer;
  const char* read_to = text;
  if (base == 0 || (base >= 2 && base <= 36)) read_to = read_integer(text, static_cast<std::uint32_t>(base), integer);
  if (read_to == text) shim_errno = DARWIN_EINVAL;
  if (end != nullptr) *end = read_to;
  return integer;
}

SYSV std::int64_t strtol_(const char* text, const char** end, std::int32_t base) {
  const IntegerText integer = convert(text, end, base);
  if (!integer.fits_signed()) shim_errno = DARWIN_ERANGE;
  return integer.clamped_signed();
}

SYSV std::uint64_t strtoul_(const char* text, const char** end, std::int32_t base) {
  const IntegerText integer = convert(text, end, base);
  if (integer.too_large) shim_errno = DARWIN_ERANGE;
  return integer.clamped_unsigned();
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
