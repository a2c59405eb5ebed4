#include "abi/format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <span>

#include "abi/format_float.h"
#include "abi/format_length.h"

namespace vlm {
namespace {

constexpr std::uint64_t piece_limit = 511;
/// The largest width or precision: one more than an int holds, so that the length of such a text cannot be returned.
constexpr std::int64_t number_limit = std::int64_t{1} << 31;

/// What stands between '%' and the conversion character.
struct Specification {
  bool blank = false;
  bool alternate = false;  // '#'
  bool plus = false;
  bool left = false;
  bool zero = false;
  Length length = Length::none;
  std::uint64_t width = 0;
  std::int64_t precision = -1;  // negative: not given
  char conversion = 0;          // 0: the format ends before it

  bool is_plain() const { return width == 0 && precision < 0 && !blank && !alternate && !plus; }
};

std::int64_t read_number(const char*& format) {
  std::int64_t number = 0;
  for (; *format >= '0' && *format <= '9'; ++format) number = std::min(number * 10 + (*format - '0'), number_limit);
  return number;
}

void read_flags(Specification& specification, const char*& format) {
  for (;; ++format) {
    switch (*format) {
      case ' ': specification.blank = true; break;
      case '#': specification.alternate = true; break;
      case '+': specification.plus = true; break;
      case '-': specification.left = true; break;
      case '0': specification.zero = true; break;
      case '\'': break;
      default: return;
    }
  }
}

/// Reads what follows a '%', up to and including the conversion character; '*' takes its value from the list.
Specification read_specification(const char*& format, SysvVaList& arguments) {
  Specification specification;
  read_flags(specification, format);
  if (*format == '*') {
    ++format;
    const std::int64_t width = arguments.next<std::int32_t>();
    specification.left |= width < 0;
    specification.width = static_cast<std::uint64_t>(std::abs(width));
  } else {
    specification.width = static_cast<std::uint64_t>(read_number(format));
  }
  if (*format == '.') {
    ++format;
    if (*format == '*') {
      ++format;
      specification.precision = arguments.next<std::int32_t>();
    } else {
      specification.precision = read_number(format);
    }
  }
  specification.length = read_length(format);
  if (*format != 0) specification.conversion = *format++;
  return specification;
}

/// Parts of a number in their order; everything that is not given is empty.
struct NumberText {
  char prefix[3];  // sign, 0x
  std::uint64_t prefix_size = 0;
  std::uint64_t leading_zeros = 0;
  const char* body = nullptr;
  std::uint64_t body_size = 0;
  std::uint64_t trailing_zeros = 0;
  const char* suffix = nullptr;
  std::uint64_t suffix_size = 0;

  void add_prefix(char c) { prefix[prefix_size++] = c; }
};

/// Adds the padding and writes one piece.
void put_number(TextSink& out, const Specification& specification, NumberText& number, bool pad_with_zeros) {
  const std::uint64_t size =
      number.prefix_size + number.leading_zeros + number.body_size + number.trailing_zeros + number.suffix_size;
  std::uint64_t padding = specification.width > size ? specification.width - size : 0;
  if (pad_with_zeros && specification.zero && !specification.left) {
    number.leading_zeros += padding;
    padding = 0;
  }
  std::uint64_t left = piece_limit;
  const auto cut = [&left](std::uint64_t part) {
    part = std::min(part, left);
    left -= part;
    return part;
  };
  if (padding > 0 && !specification.left) out.fill(' ', cut(padding));
  out.append(number.prefix, cut(number.prefix_size));
  out.fill('0', cut(number.leading_zeros));
  out.append(number.body, cut(number.body_size));
  out.fill('0', cut(number.trailing_zeros));
  out.append(number.suffix, cut(number.suffix_size));
  if (padding > 0 && specification.left) out.fill(' ', cut(padding));
}

void add_sign(NumberText& number, const Specification& specification, bool negative) {
  if (negative) {
    number.add_prefix('-');
  } else if (specification.plus) {
    number.add_prefix('+');
  } else if (specification.blank) {
    number.add_prefix(' ');
  }
}

void make_upper(char* text, std::uint64_t size) {
  for (char& c : std::span(text, size)) {
    if (c >= 'a' && c <= 'z') c -= 'a' - 'A';
  }
}

/// The argument, read as the type that the length modifier says and widened to 64 bits.
template <class Char, class Short, class Int>
std::uint64_t next_integer(Length length, SysvVaList& arguments) {
  const auto word = arguments.next<std::uint64_t>();
  switch (length) {
    case Length::hh: return static_cast<std::uint64_t>(static_cast<Char>(word));
    case Length::h: return static_cast<std::uint64_t>(static_cast<Short>(word));
    case Length::wide: return word;
    default: return static_cast<std::uint64_t>(static_cast<Int>(word));
  }
}

void put_integer(TextSink& out, const Specification& specification, SysvVaList& arguments) {
  const char conversion = specification.conversion;
  const bool is_signed = conversion == 'd' || conversion == 'i';
  std::uint64_t magnitude;
  bool negative = false;
  int base = 10;
  if (is_signed) {
    magnitude = next_integer<std::int8_t, std::int16_t, std::int32_t>(specification.length, arguments);
    negative = magnitude >> 63;
    if (negative) magnitude = 0 - magnitude;
  } else {
    magnitude = next_integer<std::uint8_t, std::uint16_t, std::uint32_t>(specification.length, arguments);
    if (conversion != 'u') base = conversion == 'o' ? 8 : 16;
  }
  constexpr std::uint64_t most_digits = 22;  // 64 bits in octal

  // The common %d is written straight to its place: copying digits that were just written stalls the processor.
  if (specification.is_plain() && conversion != 'X') {
    if (char* const place = out.place(1 + most_digits)) {
      *place = '-';
      char* const digits = place + negative;
      const auto end = std::to_chars(digits, digits + most_digits, magnitude, base).ptr;
      return out.keep(static_cast<std::uint64_t>(end - place));
    }
  }

  NumberText number;
  if (is_signed) add_sign(number, specification, negative);
  char digits[most_digits];
  if (magnitude != 0 || specification.precision != 0) {
    const auto end = std::to_chars(digits, std::end(digits), magnitude, base).ptr;
    number.body_size = static_cast<std::uint64_t>(end - digits);
  }
  number.body = digits;
  if (conversion == 'X') make_upper(digits, number.body_size);
  if (specification.alternate && base == 16 && magnitude != 0) {
    number.add_prefix('0');
    number.add_prefix(conversion);
  }
  if (specification.precision > static_cast<std::int64_t>(number.body_size)) {
    number.leading_zeros = static_cast<std::uint64_t>(specification.precision) - number.body_size;
  } else if (specification.alternate && base == 8 && (number.body_size == 0 || digits[0] != '0')) {
    number.leading_zeros = 1;
  }
  put_number(out, specification, number, specification.precision < 0);
}

void put_float(TextSink& out, const Specification& specification, SysvVaList& arguments) {
  const double value =
      specification.length == Length::L ? double_from_extended(arguments.next_long_double()) : arguments.next_double();
  const char lower = static_cast<char>(specification.conversion | 0x20);
  const bool upper = specification.conversion != lower;
  NumberText number;
  if (!std::isnan(value)) add_sign(number, specification, std::signbit(value));  // macOS's NaN has none
  if (!std::isfinite(value)) {
    number.body = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
    number.body_size = 3;
    return put_number(out, specification, number, false);
  }
  FloatText text;
  render_float(text, std::abs(value), lower, specification.precision, specification.alternate);
  if (lower == 'a') {
    number.add_prefix('0');
    number.add_prefix(upper ? 'X' : 'x');
  }
  if (upper) {
    make_upper(text.body, text.size);
    make_upper(text.exponent, text.exponent_size);
  }
  number.body = text.body;
  number.body_size = text.size;
  number.trailing_zeros = text.zeros;
  number.suffix = text.exponent;
  number.suffix_size = text.exponent_size;
  put_number(out, specification, number, true);
}

void put_character(TextSink& out, const Specification& specification, SysvVaList& arguments) {
  const char c = arguments.next<char>();
  NumberText number;
  number.body = &c;
  number.body_size = 1;
  put_number(out, specification, number, true);  // macOS pads characters and strings with zeros, too
}

void put_pointer(TextSink& out, SysvVaList& arguments) {
  char text[18] = {'0', 'x'};
  const auto end = std::to_chars(text + 2, std::end(text), arguments.next<std::uint64_t>(), 16).ptr;
  out.append(text, static_cast<std::uint64_t>(end - text));
}

/// Bytes of one 32-bit character in UTF-8, by its value alone.
std::uint64_t encode_utf8(std::uint32_t c, char to[4]) {
  if (c < 0x80) {
    to[0] = static_cast<char>(c);
    return 1;
  }
  const std::uint64_t size = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  for (std::uint64_t i = size - 1; i > 0; --i, c >>= 6) to[i] = static_cast<char>(0x80 | (c & 0x3F));
  to[0] = static_cast<char>(0xF00 >> size | c);
  return size;
}

/// Calls `put` with the UTF-8 bytes of each character while all of them fit into `limit` bytes; returns their number.
template <class Put>
std::uint64_t each_utf8(const char* text, std::uint64_t limit, Put put) {
  std::uint64_t total = 0;
  for (;; text += sizeof(std::uint32_t)) {
    if (total == limit) return total;  // nothing behind the last character may be read
    std::uint32_t c;
    std::memcpy(&c, text, sizeof c);
    if (c == 0) return total;
    char bytes[4];
    const std::uint64_t size = encode_utf8(c, bytes);
    if (size > limit - total) return total;
    put(bytes, size);
    total += size;
  }
}

void put_string(TextSink& out, const Specification& specification, SysvVaList& arguments) {
  const char* text = arguments.next<const char*>();
  const bool wide = specification.length == Length::wide && text != nullptr;
  if (text == nullptr) text = "(null)";
  const std::uint64_t limit =
      specification.precision < 0 ? UINT64_MAX : static_cast<std::uint64_t>(specification.precision);
  std::uint64_t size;
  if (wide) {
    size = each_utf8(text, limit, [](const char*, std::uint64_t) {});
  } else {
    size = specification.precision < 0 ? std::strlen(text) : strnlen(text, limit);
  }
  const std::uint64_t padding = specification.width > size ? specification.width - size : 0;
  if (!specification.left) out.fill(specification.zero ? '0' : ' ', padding);
  if (wide) {
    each_utf8(text, size, [&out](const char* bytes, std::uint64_t part) { out.append(bytes, part); });
  } else {
    out.append(text, size);
  }
  if (specification.left) out.fill(' ', padding);
}

void put_conversion(TextSink& out, const Specification& specification, SysvVaList& arguments) {
  switch (specification.conversion) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X': return put_integer(out, specification, arguments);
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A': return put_float(out, specification, arguments);
    case 'c': return put_character(out, specification, arguments);
    case 's': return put_string(out, specification, arguments);
    case 'p': return put_pointer(out, arguments);
    case 'n': {
      void* const to = arguments.next<void*>();
      if (to != nullptr) store_integer(to, out.count(), specification.length);
      return;
    }
    case '@': {
      const char* const text = objc_object_cstring(arguments.next<void*>());
      return out.append(text, std::strlen(text));
    }
    default: {
      const char unknown[2] = {'%', specification.conversion};
      return out.append(unknown, specification.conversion == 0 ? 1 : 2);
    }
  }
}

}  // namespace

void format_text(TextSink& out, const char* format, SysvVaList& arguments) {
  if (format == nullptr) return;
  for (;;) {
    const char* const start = format;
    while (*format != 0 && *format != '%') ++format;
    out.append(start, static_cast<std::uint64_t>(format - start));
    if (*format == 0) return;
    ++format;
    if (*format == '%') {
      out.append(format++, 1);
    } else {
      put_conversion(out, read_specification(format, arguments), arguments);
    }
  }
}

std::uint64_t format_text(char* buffer, std::uint64_t size, const char* format, SysvVaList& arguments) {
  TextSink out(buffer, size == 0 ? 0 : size - 1);
  format_text(out, format, arguments);
  if (size > 0) buffer[out.held()] = 0;
  return out.count();
}

}  // namespace vlm
