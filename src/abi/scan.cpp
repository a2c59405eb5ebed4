#include "abi/scan.h"

#include <bitset>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "abi/format_length.h"
#include "support/characters.h"
#include "support/utf8.h"

namespace vlm {
namespace {

char to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// The input of one conversion: it ends at the NUL, or where the width of the field ends.
struct Field {
  const char* at;
  std::uint64_t width;  // characters left

  char peek() const { return width > 0 ? *at : '\0'; }
  void skip() {
    ++at;
    --width;
  }
  /// Takes the next character when it is `c`, in upper or lower case. `c` itself is no upper-case letter.
  bool take(char c) {
    if (to_lower(peek()) != c) return false;
    skip();
    return true;
  }
  bool take_sign() {
    const bool negative = take('-');
    if (!negative) take('+');
    return negative;
  }
};

/// What stands between '%' and the end of the conversion.
struct Specification {
  bool suppressed = false;
  std::uint64_t width = 0;  // 0: not given
  Length length = Length::none;
  char conversion = 0;   // 0: the format ends before it
  std::bitset<256> set;  // of '['
};

/// Reads a set from behind its '[' to behind its ']'. A '-' between two characters in their order is a range.
std::bitset<256> read_set(const char*& format) {
  std::bitset<256> set;
  const bool inverted = *format == '^';
  if (inverted) ++format;
  for (bool first = true; *format != 0 && (first || *format != ']'); first = false) {
    const auto from = static_cast<unsigned char>(*format++);
    set.set(from);
    while (format[0] == '-' && format[1] != 0 && format[1] != ']' && static_cast<unsigned char>(format[1]) >= from) {
      for (unsigned c = from; c <= static_cast<unsigned char>(format[1]); ++c) set.set(c);
      format += 2;  // [a-c-e] goes on: a to e
    }
  }
  if (*format != 0) ++format;
  return inverted ? ~set : set;
}

Specification read_specification(const char*& format) {
  Specification specification;
  if (*format == '*') {
    specification.suppressed = true;
    ++format;
  }
  for (; is_digit(*format); ++format) {
    if (specification.width < std::numeric_limits<std::uint32_t>::max()) {
      specification.width = 10 * specification.width + static_cast<std::uint64_t>(*format - '0');
    }
  }
  specification.length = read_length(format);
  if (*format == 0) return specification;
  specification.conversion = *format++;
  if (specification.conversion == '[') specification.set = read_set(format);
  if (specification.conversion == 'S' || specification.conversion == 'C') {
    specification.conversion = to_lower(specification.conversion);
    specification.length = Length::wide;
  }
  return specification;
}

/// An integer of the base (0: by its prefix) as its 64 bits, clamped where it has more. False when there is none. Of a
/// prefix without digits the zero is the number, and the 'x' stays.
bool match_integer(Field& field, std::uint32_t base, bool is_signed, std::uint64_t& bits) {
  const bool negative = field.take_sign();
  bool any = false;
  if ((base == 0 || base == 16) && field.take('0')) {
    any = true;
    Field behind = field;
    if (behind.take('x') && digit_value(behind.peek()) < 16) {
      field = behind;
      base = 16;
    } else if (base == 0) {
      base = 8;
    }
  }
  if (base == 0) base = 10;
  IntegerText integer{.negative = negative};
  for (std::uint32_t digit; (digit = digit_value(field.peek())) < base; field.skip()) {
    any = true;
    integer.append(digit, base);
  }
  bits = is_signed ? static_cast<std::uint64_t>(integer.clamped_signed()) : integer.clamped_unsigned();
  return any;
}

/// A floating-point number as it stands in the input.
struct FloatItem {
  enum { number, infinity, nan } kind = number;
  bool negative = false;
  bool hexadecimal = false;
  const char* first = nullptr;  // the digits: behind sign and "0x"
  const char* last = nullptr;
};

/// Takes all of the word, or nothing.
bool take_word(Field& field, std::string_view word) {
  Field behind = field;
  for (const char c : word) {
    if (!behind.take(c)) return false;
  }
  field = behind;
  return true;
}

/// Takes digits of the base and says whether there were any.
bool take_digits(Field& field, std::uint32_t base) {
  const char* const start = field.at;
  while (digit_value(field.peek()) < base) field.skip();
  return field.at != start;
}

/// The digits of a number, and its exponent if it is whole.
bool take_number(Field& field, bool hexadecimal) {
  const std::uint32_t base = hexadecimal ? 16 : 10;
  bool any = take_digits(field, base);
  Field behind = field;
  if (behind.take('.') && (take_digits(behind, base) || any)) {
    any = true;
    field = behind;
  }
  behind = field;
  if (any && behind.take(hexadecimal ? 'p' : 'e')) {
    behind.take_sign();
    if (take_digits(behind, 10)) field = behind;
  }
  return any;
}

/// Takes the longest text that is a number; an unfinished tail ("1.5em", "infin", "nan(") stays. False without one.
bool match_float(Field& field, FloatItem& item) {
  item.negative = field.take_sign();
  if (take_word(field, "inf")) {
    item.kind = FloatItem::infinity;
    take_word(field, "inity");
    return true;
  }
  if (take_word(field, "nan")) {
    item.kind = FloatItem::nan;
    Field behind = field;
    if (behind.take('(')) {
      while (digit_value(behind.peek()) < 36 || behind.peek() == '_') behind.skip();
      if (behind.take(')')) field = behind;
    }
    return true;
  }
  Field behind = field;
  item.hexadecimal = take_word(behind, "0x");
  item.first = behind.at;
  if (item.hexadecimal && take_number(behind, true)) {
    field = behind;
  } else {  // "0x" alone is a zero
    item.hexadecimal = false;
    item.first = field.at;
    if (!take_number(field, false)) return false;
  }
  item.last = field.at;
  return true;
}

/// The 80-bit value of a finite number, without its sign.
long double extended_value(const FloatItem& item) {
  std::string text = item.hexadecimal ? "0x" : "";  // a copy: the number may end before its digits do
  text.append(item.first, item.last);
  return std::strtold(text.c_str(), nullptr);
}

template <class T>
T float_value(const FloatItem& item) {
  T value = 0;
  if (item.kind == FloatItem::infinity) {
    value = std::numeric_limits<T>::infinity();
  } else if (item.kind == FloatItem::nan) {
    value = std::numeric_limits<T>::quiet_NaN();
  } else if constexpr (sizeof(T) > sizeof(double)) {
    value = extended_value(item);
  } else {
    const auto format = item.hexadecimal ? std::chars_format::hex : std::chars_format::general;
    const auto result = std::from_chars(item.first, item.last, value, format);
    // from_chars does not say whether the number is too large or too small; the wider range of 80 bits does.
    if (result.ec != std::errc()) value = static_cast<T>(extended_value(item));
  }
  return item.negative ? -value : value;
}

void store_float(void* to, const FloatItem& item, Length length) {
  if (length == Length::L) {
    const auto value = float_value<long double>(item);
    std::memcpy(to, &value, 10);  // the rest of its 16 bytes is padding
  } else if (length == Length::wide) {
    const auto value = float_value<double>(item);
    std::memcpy(to, &value, sizeof value);
  } else {
    const auto value = float_value<float>(item);
    std::memcpy(to, &value, sizeof value);
  }
}

enum class Match { done, mismatch, end_of_input };

/// %s, %c and %[: characters of the set, as many as the field allows.
///   to     where they go; null when suppressed
///   ends   a NUL is stored behind them
///   wide   the input is UTF-8, 32-bit characters are stored, and the width counts characters
Match match_text(Field& field, const std::bitset<256>& set, bool ends, bool wide, char* to) {
  const auto belongs = [&set](char c) { return c != 0 && set.test(static_cast<unsigned char>(c)); };
  std::uint64_t taken = 0;
  const std::size_t unit = wide ? sizeof(std::uint32_t) : 1;
  for (; belongs(field.peek()); ++taken) {
    std::uint32_t c = static_cast<unsigned char>(*field.at);
    if (wide) {
      const std::size_t size = decode_utf8({field.at, strnlen(field.at, 4)}, c);
      if (size == 0) return Match::end_of_input;  // an encoding error ends the input
      field.at += size - 1;
    }
    field.skip();
    if (to != nullptr) std::memcpy(to + unit * taken, &c, unit);
  }
  if (taken == 0) return Match::mismatch;
  if (ends && to != nullptr) std::memset(to + unit * taken, 0, unit);
  return Match::done;
}

std::bitset<256> set_of_words() {
  std::bitset<256> set;
  set.set();
  for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) set.reset(static_cast<unsigned char>(c));
  return set;
}

/// Matches one conversion that takes input and stores its value.
Match match_conversion(const char*& input, const Specification& specification, SysvVaList& arguments) {
  const char conversion = specification.conversion;
  if (conversion != 'c' && conversion != '[') {
    while (is_space(*input)) ++input;
  }
  if (*input == 0) return Match::end_of_input;
  // The argument is taken only when there is something to store: a list may be shorter than its format.
  const auto place = [&] { return specification.suppressed ? nullptr : arguments.next<char*>(); };
  Field field{input, specification.width > 0 ? specification.width : UINT64_MAX};
  const bool wide = specification.length == Length::wide;
  Match match = Match::done;
  switch (conversion) {
    case 'c':
      if (specification.width == 0) field.width = 1;
      match = match_text(field, std::bitset<256>().set(), false, wide, place());
      break;
    case 's': match = match_text(field, set_of_words(), true, wide, place()); break;
    case '[': match = match_text(field, specification.set, true, wide, place()); break;
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
    case 'p': {
      const bool is_signed = conversion == 'd' || conversion == 'i';
      const std::uint32_t base = conversion == 'i'                ? 0
                                 : conversion == 'o'              ? 8
                                 : is_signed || conversion == 'u' ? 10
                                                                  : 16;
      std::uint64_t bits;
      if (!match_integer(field, base, is_signed, bits)) return Match::mismatch;
      if (char* const to = place()) store_integer(to, bits, conversion == 'p' ? Length::wide : specification.length);
      break;
    }
    default: {  // floating point, all of them alike
      FloatItem item;
      if (!match_float(field, item)) return Match::mismatch;
      if (char* const to = place()) store_float(to, item, specification.length);
    }
  }
  input = field.at;
  return match;
}

}  // namespace

std::int32_t scan_text(const char* input, const char* format, SysvVaList& arguments) {
  if (input == nullptr || format == nullptr) return -1;
  const char* const start = input;
  std::int32_t stored = 0;
  const auto at_end_of_input = [&] { return stored > 0 ? stored : -1; };
  while (*format != 0) {
    if (is_space(*format)) {
      while (is_space(*input)) ++input;
      ++format;
      continue;
    }
    if (*format != '%' || format[1] == '%') {
      if (*format == '%') {
        while (is_space(*input)) ++input;  // "%%" is a conversion in this respect
        ++format;
      }
      if (*input == 0) return at_end_of_input();
      if (*input++ != *format++) return stored;
      continue;
    }
    ++format;
    const Specification specification = read_specification(format);
    if (specification.conversion == 'n') {
      const auto count = static_cast<std::uint64_t>(input - start);
      if (!specification.suppressed) store_integer(arguments.next<void*>(), count, specification.length);
      continue;
    }
    const char conversion = specification.conversion;
    if (conversion == 0) return -1;  // macOS's answer to a format that ends early
    if (std::strchr("diouxXpaAeEfFgGsc[", conversion) == nullptr) return stored;
    const Match match = match_conversion(input, specification, arguments);
    if (match == Match::end_of_input) return at_end_of_input();
    if (match == Match::mismatch) return stored;
    stored += !specification.suppressed;
  }
  return stored;
}

}  // namespace vlm
