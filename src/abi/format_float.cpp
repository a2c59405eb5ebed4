#include "abi/format_float.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace vlm {
namespace {

// The lowest bit of a double is 2^-1074: all digits further behind the point are zero.
constexpr std::int64_t last_digit = 1074;

void put(FloatText& text, char c) { text.body[text.size++] = c; }
void put(FloatText& text, const char* from, std::size_t size) {
  std::memcpy(text.body + text.size, from, size);
  text.size += size;
}
void put_zeros(FloatText& text, std::size_t count) {
  std::memset(text.body + text.size, '0', count);
  text.size += count;
}

/// `letter`, the sign and at least `least` digits.
void put_exponent(FloatText& text, char letter, int exponent, int least) {
  char* to = text.exponent;
  *to++ = letter;
  *to++ = exponent < 0 ? '-' : '+';
  if (least == 2 && std::abs(exponent) < 10) *to++ = '0';
  text.exponent_size =
      static_cast<std::size_t>(std::to_chars(to, std::end(text.exponent), std::abs(exponent)).ptr - text.exponent);
}

/// Significant decimal digits of a value: d.ddd... * 10^exponent.
struct Decimal {
  char digits[last_digit + 2];
  std::size_t size;
  int exponent;
};

/// `precision` digits after the first one, at most last_digit.
void find_digits(Decimal& decimal, double value, std::int64_t precision) {
  char scientific[last_digit + 16];  // d.ddd...e-324
  const auto end =
      std::to_chars(scientific, std::end(scientific), value, std::chars_format::scientific, static_cast<int>(precision))
          .ptr;
  decimal.digits[0] = scientific[0];
  if (precision > 0) std::memcpy(decimal.digits + 1, scientific + 2, static_cast<std::size_t>(precision));
  decimal.size = static_cast<std::size_t>(precision) + 1;
  const char* exponent = scientific + decimal.size + (precision > 0) + 1;  // behind the 'e'
  if (*exponent == '+') ++exponent;
  std::from_chars(exponent, end, decimal.exponent);
}

void render_scientific(FloatText& text, const Decimal& decimal, std::uint64_t zeros, bool alternate) {
  put(text, decimal.digits[0]);
  if (decimal.size > 1 || zeros > 0 || alternate) put(text, '.');
  put(text, decimal.digits + 1, decimal.size - 1);
  text.zeros = zeros;
  put_exponent(text, 'e', decimal.exponent, 2);
}

void render_general(FloatText& text, double value, std::int64_t precision, bool alternate) {
  if (precision == 0) precision = 1;
  Decimal decimal;
  find_digits(decimal, value, std::min(precision - 1, last_digit));
  std::uint64_t zeros = static_cast<std::uint64_t>(precision) - decimal.size;
  if (!alternate) {
    zeros = 0;
    while (decimal.size > 1 && decimal.digits[decimal.size - 1] == '0') --decimal.size;
  }
  const int exponent = decimal.exponent;
  if (exponent < -4 || exponent >= precision) return render_scientific(text, decimal, zeros, alternate);
  if (exponent < 0) {
    put(text, '0');
    put(text, '.');
    put_zeros(text, static_cast<std::size_t>(-exponent - 1));
    put(text, decimal.digits, decimal.size);
  } else {
    const auto whole = static_cast<std::size_t>(exponent) + 1;
    const std::size_t there = std::min(whole, decimal.size);
    put(text, decimal.digits, there);
    put_zeros(text, whole - there);  // zeros that were dropped above, before the point
    if (decimal.size > whole || alternate) put(text, '.');
    put(text, decimal.digits + there, decimal.size - there);
  }
  text.zeros = zeros;
}

constexpr auto powers_of_ten = [] {
  std::array<std::uint64_t, 20> powers = {1};
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = 10 * powers[i - 1];
  return powers;
}();

/// The common case, %.3f: value * 10^precision as an exact fraction of 2^shift that fits into 128 bits. False when the
/// value or the precision is beyond that; then nothing is rendered.
bool render_short_fixed(FloatText& text, double value, std::int64_t precision) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const int shift = 1075 - static_cast<int>(bits >> 52);
  if (shift <= 0 || shift >= 128 || precision >= static_cast<std::int64_t>(powers_of_ten.size())) return false;
  using Wide = unsigned __int128;
  const std::uint64_t significand = (bits & ((std::uint64_t{1} << 52) - 1)) | std::uint64_t{1} << 52;
  const Wide scaled = static_cast<Wide>(significand) * powers_of_ten[static_cast<std::size_t>(precision)];
  const Wide half = static_cast<Wide>(1) << (shift - 1);
  const Wide rest = scaled & (2 * half - 1);
  const Wide whole = scaled >> shift;
  if (whole >= UINT64_MAX) return false;
  const std::uint64_t rounded = static_cast<std::uint64_t>(whole) + (rest > half || (rest == half && (whole & 1)));

  char digits[20];
  const auto size = std::to_chars(digits, std::end(digits), rounded).ptr - digits;
  const auto zeros = std::max<std::int64_t>(precision + 1 - size, 0);  // 0.001 is 0001 with a point in it
  put_zeros(text, static_cast<std::size_t>(zeros));
  put(text, digits, static_cast<std::size_t>(size));
  if (precision > 0) {
    char* const point = text.body + text.size - precision;
    std::memmove(point + 1, point, static_cast<std::size_t>(precision));
    *point = '.';
    ++text.size;
  }
  return true;
}

void render_fixed(FloatText& text, double value, std::int64_t precision, bool alternate) {
  if (!alternate && render_short_fixed(text, value, precision)) return;
  const std::int64_t digits = std::min(precision, last_digit);
  text.size = static_cast<std::size_t>(
      std::to_chars(text.body, std::end(text.body), value, std::chars_format::fixed, static_cast<int>(digits)).ptr -
      text.body);
  if (precision == 0 && alternate) put(text, '.');
  text.zeros = static_cast<std::uint64_t>(precision - digits);
}

/// One digit, not 0 unless the value is, before the point; subnormal values too. As few digits as are exact when no
/// precision is given.
void render_hexadecimal(FloatText& text, double value, std::int64_t precision, bool alternate) {
  constexpr int fraction_bits = 52;
  constexpr std::int64_t fraction_digits = fraction_bits / 4;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  std::uint64_t significand = bits & ((std::uint64_t{1} << fraction_bits) - 1);
  int exponent = static_cast<int>(bits >> fraction_bits) - 1023;
  if (exponent > -1023) {
    significand |= std::uint64_t{1} << fraction_bits;
  } else if (significand != 0) {
    const int shift = std::countl_zero(significand) - (63 - fraction_bits);
    significand <<= shift;
    exponent = -1022 - shift;
  } else {
    exponent = 0;
  }

  std::int64_t digits = fraction_digits;
  if (precision < 0) {
    while (digits > 0 && (significand >> (fraction_bits - 4 * digits) & 15) == 0) --digits;
    precision = digits;
  } else if (precision < fraction_digits) {
    digits = precision;
    const int dropped = static_cast<int>(fraction_bits - 4 * digits);
    const std::uint64_t half = std::uint64_t{1} << (dropped - 1);
    const std::uint64_t rest = significand & (2 * half - 1);
    significand -= rest;
    // The digit before the point may become 2: still a correct text.
    if (rest > half || (rest == half && (significand & 2 * half))) significand += 2 * half;
  }
  const auto hexadecimal = [&](std::int64_t place) {
    return "0123456789abcdef"[significand >> (fraction_bits - 4 * place) & 15];
  };
  put(text, hexadecimal(0));
  if (precision > 0 || alternate) put(text, '.');
  for (std::int64_t place = 1; place <= digits; ++place) put(text, hexadecimal(place));
  text.zeros = static_cast<std::uint64_t>(precision - digits);
  put_exponent(text, 'p', exponent, 1);
}

}  // namespace

void render_float(FloatText& text, double value, char conversion, std::int64_t precision, bool alternate) {
  if (conversion == 'a') return render_hexadecimal(text, value, precision, alternate);
  if (precision < 0) precision = 6;
  if (conversion == 'f') return render_fixed(text, value, precision, alternate);
  if (conversion == 'g') return render_general(text, value, precision, alternate);
  Decimal decimal;
  const std::int64_t digits = std::min(precision, last_digit);
  find_digits(decimal, value, digits);
  render_scientific(text, decimal, static_cast<std::uint64_t>(precision - digits), alternate);
}

double double_from_extended(const std::byte* extended) {
  std::uint64_t significand;
  std::uint16_t sign_and_exponent;
  std::memcpy(&significand, extended, sizeof significand);
  std::memcpy(&sign_and_exponent, extended + sizeof significand, sizeof sign_and_exponent);
  const std::uint64_t sign = std::uint64_t{sign_and_exponent} >> 15 << 63;
  const int exponent = sign_and_exponent & 0x7FFF;
  constexpr std::uint64_t infinity = std::uint64_t{2047} << 52;

  if (exponent == 0x7FFF) {
    const bool is_infinity = significand << 1 == 0;  // the integer bit says nothing here
    return std::bit_cast<double>(sign | infinity | (is_infinity ? 0 : std::uint64_t{1} << 51));
  }
  if (significand == 0) return std::bit_cast<double>(sign);
  // value = significand * 2^(exponent - 16446), with the significand's top bit set: biased is what a double would have
  const int shift = std::countl_zero(significand);
  significand <<= shift;
  const int biased = exponent - shift - 16446 + 63 + 1023;
  if (biased >= 2047) return std::bit_cast<double>(sign | infinity);
  const int dropped = biased > 0 ? 11 : 12 - biased;  // of the 64 bits; a subnormal keeps fewer than 53
  if (dropped > 64) return std::bit_cast<double>(sign);
  const std::uint64_t half = std::uint64_t{1} << (dropped - 1);
  const std::uint64_t rest = significand & (2 * half - 1);
  std::uint64_t magnitude = dropped == 64 ? 0 : significand >> dropped;
  if (rest > half || (rest == half && (magnitude & 1))) ++magnitude;
  // Added, not or'ed: the significand's top bit and a carry out of the rounding both raise the exponent.
  if (biased > 0) magnitude += static_cast<std::uint64_t>(biased - 1) << 52;
  return std::bit_cast<double>(sign | magnitude);
}

}  // namespace vlm
