// Digits of floating-point values for the printf engine. Decimal digits are those of the exact binary value, rounded
// half to even at the place that the precision says.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm {

/// A finite value without its sign: body, then `zeros` times '0', then the exponent.
struct FloatText {
  char body[1408];  // 309 digits before the point and 1074 behind it are the longest exact value
  std::size_t size = 0;
  std::uint64_t zeros = 0;
  char exponent[8];  // "e+308", "p-1074"
  std::size_t exponent_size = 0;
};

/// Renders `value`, finite and not negative, as e, f, g or a (lower-case) does.
///   precision   digits after the point (g: significant ones); negative means not given
///   alternate   the flag '#': a point always, and g keeps its zeros
/// For %a the caller writes the "0x", since zeros that pad go between it and the body.
void render_float(FloatText& text, double value, char conversion, std::int64_t precision, bool alternate);

/// An 80-bit extended value (10 bytes: significand, then exponent and sign) rounded once to the nearest double.
/// Encodings that the processor refuses ("unnormal" ones) have the value that their bits say.
double double_from_extended(const std::byte* extended);

}  // namespace vlm
