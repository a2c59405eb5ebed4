// The printf and sscanf engines against what C and POSIX say.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "abi/entries.h"
#include "abi/format.h"
#include "abi/format_float.h"
#include "abi/scan.h"
#include "posix/error_numbers.h"

using namespace vlm;
using namespace std::string_literals;

namespace {

/// One variable argument: where the System V ABI has it travel, and its bits.
struct Argument {
  enum { integer, vector, memory } way;
  std::uint64_t words[2] = {};

  Argument(std::integral auto value) : way(integer), words{static_cast<std::uint64_t>(value), 0} {}
  Argument(double value) : way(vector), words{std::bit_cast<std::uint64_t>(value), 0} {}
  Argument(long double value) : way(memory) { std::memcpy(words, &value, 10); }
  Argument(const void* value) : way(integer), words{reinterpret_cast<std::uint64_t>(value), 0} {}
};

/// A call's variable arguments in their registers and on its stack.
class ArgumentBlock {
 public:
  explicit ArgumentBlock(const std::vector<Argument>& arguments, std::uint32_t named = 3) {
    list_ = {8 * named, SAVE_AREA_XMM, reinterpret_cast<const std::byte*>(stack_),
             reinterpret_cast<const std::byte*>(&area_)};
    std::size_t integers = named, vectors = 0, words = 0;
    for (const Argument& argument : arguments) {
      if (argument.way == Argument::integer && integers < 6) {
        area_.gp[integers++] = argument.words[0];
      } else if (argument.way == Argument::vector && vectors < 8) {
        area_.xmm[vectors++].low = argument.words[0];
      } else if (argument.way == Argument::memory) {
        words += words & 1;
        std::memcpy(&stack_[words], argument.words, 16);
        words += 2;
      } else {
        stack_[words++] = argument.words[0];
      }
    }
  }
  SysvVaList list() const { return list_; }

 private:
  RegisterSaveArea area_;
  alignas(16) std::uint64_t stack_[64];
  SysvVaList list_;
};

using Arguments = std::vector<Argument>;

/// The whole text, told by a call without a buffer and one with just enough room.
std::string formatted(const char* format, const Arguments& arguments) {
  const ArgumentBlock block(arguments);
  SysvVaList list = block.list();
  const std::uint64_t length = format_text(nullptr, 0, format, list);
  std::string text(length + 1, '?');
  list = block.list();
  CHECK_EQ(format_text(text.data(), text.size(), format, list), length);
  CHECK_EQ(text[length], '\0');
  text.resize(length);
  return text;
}

struct FormatRow {
  const char* format;
  Arguments arguments;
  std::string expected;
};
void check_rows(std::initializer_list<FormatRow> rows) {
  for (const FormatRow& row : rows) {
    CAPTURE(row.format);
    CHECK_EQ(formatted(row.format, row.arguments), row.expected);
  }
}

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr auto int64_min = std::numeric_limits<std::int64_t>::min();
const std::string blanks(1000, ' '), zeros(1000, '0');

}  // namespace

TEST_CASE("integers") {
  check_rows({
      {"%i|%d", {-7, 0}, "-7|0"},
      {"%d", {0x1234567'FFFFFFFF}, "-1"},
      {"%u %x %X %o", {0xFFFFFFFFu, 0xBEEFu, 0xBEEFu, 8}, "4294967295 beef BEEF 10"},
      {"%ld %lld %qd", {int64_min, 1'234'567'890'123, -1}, "-9223372036854775808 1234567890123 -1"},
      {"%jd %zu %td %lu", {-1, -1, -2, -3}, "-1 18446744073709551615 -2 18446744073709551613"},
      {"%llo", {-1}, "1777777777777777777777"},
      {"%hhd %hhd %hhu %hhx", {300, 200, 300, -1}, "44 -56 44 ff"},
      {"%hd %hd %hu %ho", {70000, 40000, 70000, -1}, "4464 -25536 4464 177777"},
      {"%Ld", {0x1'00000005}, "5"},
      {"%5d|%-5d|%05d|%+d|% d|%+ d", {42, 42, 42, 42, 42, 42}, "   42|42   |00042|+42| 42|+42"},
      {"%05d|%-05d|%+05d|% 05d", {-42, -42, 42, 42}, "-0042|-42  |+0042| 0042"},
      {"%.3d|%.3d|%6.3d|%-6.3d|%06.3d", {5, -5, 5, 5, 5}, "005|-005|   005|005   |   005"},
      {"%.0d|%.d|%.0d|%5.0d|%+.0d", {0, 0, 1, 0, 0}, "||1|     |+"},
      {"%#x|%#X|%#o|%#x|%#o|%#.0o|%#.0x", {255, 255, 8, 0, 0, 0, 0}, "0xff|0XFF|010|0|0|0|"},
      {"%#8x|%-#8x|%#08x|%#.4x|%#.4o|%#.1o", {255, 255, 255, 255, 8, 8}, "    0xff|0xff    |0x0000ff|0x00ff|0010|010"},
      {"%+u|% x|%+o", {1, 1, 1}, "1|1|1"},
      {"%'d", {1234567}, "1234567"},
      {"%-+-5d|%00005d|%#'+ -0d", {3, 3, 3}, "+3   |00003|+3"},
      {"%*d|%-*d|%*d|%0*d", {6, 42, 6, 42, -6, 42, 6, 42}, "    42|42    |42    |000042"},
      {"%.*d|%.*d|%.*d|%*.*d", {3, 5, -3, 5, 0, 0, 6, 3, -5}, "005|5||  -005"},
      {"%0.*d", {-1, 5}, "5"},
      {"%05.*d", {-1, 5}, "00005"},
  });
}

TEST_CASE("floating point") {
  check_rows({
      {"%5.2f", {3.14159}, " 3.14"},
      {"%e|%.0e", {0.0, 0.0}, "0.000000e+00|0e+00"},
      {"%F %E %G", {1e-7, 1e-7, 1e-7}, "0.000000 1.000000E-07 1E-07"},
      {"%Lf|%Lg|%d", {1.5L, -2.25L, 7}, "1.500000|-2.25|7"},
      {"%lf %llf %hf", {0.5, 0.5, 0.5}, "0.500000 0.500000 0.500000"},
      {"%.0f|%.0f|%.0f|%.0f|%.f", {0.5, 1.5, 2.5, 3.5, 1e15}, "0|2|2|4|1000000000000000"},
      {"%f|%.0f|%g", {-0.0, -0.4, -0.0}, "-0.000000|-0|-0"},
      {"%.15g %.17g %.16g", {0.1, 0.1, 0.3}, "0.1 0.10000000000000001 0.3"},
      {"%g|%g|%g|%g", {100000.0, 1e6, 0.0001, 0.00001}, "100000|1e+06|0.0001|1e-05"},
      {"%g|%g|%.0g|%.3g|%.10g", {999999.5, 99999.95, 0.5, 1234.5, 1e10}, "1e+06|99999.9|0.5|1.23e+03|1e+10"},
      {"%.0g|%.1g|%g|%g", {15.0, 0.00015, 1e100, 123456789.0}, "2e+01|0.0001|1e+100|1.23457e+08"},
      {"%#g|%#.0f|%#.0e|%#g|%#.3g", {1.0, 1.0, 1.0, 1e-5, 100.0}, "1.00000|1.|1.e+00|1.00000e-05|100."},
      {"%#g|%#G", {-999999.5, 0.0}, "-1.00000e+06|0.00000"},
      {"%+.1f|% .1f|%08.2f|%-8.2f|%+08.2f", {1.0, 1.0, -1.5, 1.5, 1.5}, "+1.0| 1.0|-0001.50|1.50    |+0001.50"},
      {"%f|%F|%e|%G|%a", {infinity, -infinity, infinity, infinity, -infinity}, "inf|-INF|inf|INF|-inf"},
      {"%f|%E|%+5f", {not_a_number, not_a_number, not_a_number}, "nan|NAN| +nan"},
      {"%f|%05f|%-5f|", {-not_a_number, infinity, infinity}, "-nan|  inf|inf  |"},
      {"%.25f", {1.0 / 3}, "0.3333333333333333148296163"},
      {"%.17g", {1.7976931348623157e308}, "1.7976931348623157e+308"},
      {"%.17g", {2.2250738585072014e-308}, "2.2250738585072014e-308"},
      {"%.17g", {5e-324}, "4.9406564584124654e-324"},
      {"%.*f|%*.*f|%.*f", {2, 1.239, 8, 1, 2.25, -1, 0.5}, "1.24|     2.2|0.500000"},
      {"%a|%A|%a|%a", {1.5, 0.1, 0.0, -2.0}, "0x1.8p+0|0X1.999999999999AP-4|0x0p+0|-0x1p+1"},
      {"%.0a|%.0a|%.1a|%.2a", {1.5, 2.5, 1.96875, 1.0}, "0x2p+0|0x1p+1|0x2.0p+0|0x1.00p+0"},
      {"%.15a", {1.5}, "0x1.800000000000000p+0"},
      {"%a|%a|%#.0a", {5e-324, 1.5e-310, 1.0}, "0x1p-1074|0x1.b9cd1295941p-1030|0x1.p+0"},
      {"%12a|%-12a|%012a|%+a", {1.5, 1.5, -1.5, 1.5}, "    0x1.8p+0|0x1.8p+0    |-0x0001.8p+0|+0x1.8p+0"},
  });
}

TEST_CASE("texts, characters, pointers, percent signs") {
  const char* const null = nullptr;
  const char32_t* const wide = U"\u00E9\u4E2D";
  const std::string long_text(600, 'x');
  check_rows({
      {"", {}, ""},
      {"100%%|%%%d%%", {5}, "100%|%5%"},
      {"%-8s|%8s|%.1s|%.0s|%.s", {"ab", "ab", "ab", "ab", "ab"}, "ab      |      ab|a||"},
      {"%5.1s|%-5.1s|", {"ab", "ab"}, "    a|a    |"},
      {"%*s|%-*s|%.*s|%.*s", {4, "ab", 4, "ab", 1, "ab", -1, "ab"}, "  ab|ab  |a|ab"},
      {"%s|%.3s|%8s|%ls|%.9ls", {null, null, null, null, null}, "(null)|(nu|  (null)|(null)|(null)"},
      {"%hs|%Ls|%04s", {"ab", "cd", "ef"}, "ab|cd|00ef"},  // macOS pads texts with zeros
      {"%ls", {wide}, "\xC3\xA9\xE4\xB8\xAD"},
      {"%7ls|%-7ls|", {wide, wide}, "  \xC3\xA9\xE4\xB8\xAD|\xC3\xA9\xE4\xB8\xAD  |"},
      {"%.1ls|%.2ls|%.4ls|%.5ls", {wide, wide, wide, wide}, "|\xC3\xA9|\xC3\xA9|\xC3\xA9\xE4\xB8\xAD"},
      {"%ls", {U"\x7F\u0080\u07FF\u0800"}, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80"},
      {"%ls", {U"\uFFFF\U00010000"}, "\xEF\xBF\xBF\xF0\x90\x80\x80"},
      {"%c%c|%3c|%-3c|%lc", {'a', 0x162, 'c', 'd', 'e'}, "ab|  c|d  |e"},
      {"a%cb", {0}, "a\0b"s},
      {"%p|%p|%20p|%-+#.3p", {0x1000, 0, 0xABCDEF0123456789, 16}, "0x1000|0x0|0xabcdef0123456789|0x10"},
      {"%@|%5.1@", {null, null}, "(null)|(null)"},
      {"%y|%5.2y|%-lld|%ky%d", {7, 8}, "%y|%y|7|%ky8"},
      {"%*y%d", {99, 5}, "%y5"},  // the star has taken its argument
      {"%1$d|%D|%5%|%.-5d", {1}, "%$d|%D|%%|%-5d"},
      {"%", {}, "%"},
      {"%-08.3ll", {}, "%"},
      {"caf\xC3\xA9%\xC3\xA9", {}, "caf\xC3\xA9%\xC3\xA9"},
      {"%s", {long_text.c_str()}, long_text},
      {"%700s", {"ab"}, blanks.substr(0, 698) + "ab"},
  });
  // Neither reads what its precision keeps from it.
  const char unterminated[] = {'a', 'b'};
  const char32_t wide_unterminated[] = {U'\u00E9'};
  check_rows({{"%.2s|%.2ls", {unterminated, wide_unterminated}, "ab|\xC3\xA9"}});
}

TEST_CASE("a piece ends after 511 characters, however wide it would be") {
  check_rows({
      {"%0600d|", {7}, zeros.substr(0, 511) + "|"},
      {"%511d|", {7}, blanks.substr(0, 510) + "7|"},
      {"%512d|", {7}, blanks.substr(0, 511) + "|"},
      {"%-600d|", {7}, "7" + blanks.substr(0, 510) + "|"},
      {"%.600d|%.600x", {-7, 7}, "-" + zeros.substr(0, 510) + "|" + zeros.substr(0, 511)},
      {"%600c|", {'c'}, blanks.substr(0, 511) + "|"},
      {"%.600f|", {1.0}, "1." + zeros.substr(0, 509) + "|"},
      {"%.505f", {1e5}, "100000." + zeros.substr(0, 504)},
      {"%.505e|%.503e", {1.0, 1.0}, "1." + zeros.substr(0, 505) + "e+00|1." + zeros.substr(0, 503) + "e+00"},
      {"%.5000e|%#.5000g|%.5000g|%.5000a",
       {1.0, 1.0, 1.0, 1.0},
       "1." + zeros.substr(0, 509) + "|1." + zeros.substr(0, 509) + "|1|0x1." + zeros.substr(0, 507)},
      {"%2100.2000f|", {1.0}, blanks.substr(0, 98) + "1." + zeros.substr(0, 411) + "|"},
      {"%99999999999999999999d|%.99999999999999999999d", {7, 7}, blanks.substr(0, 511) + "|" + zeros.substr(0, 511)},
      {"%*d|", {std::numeric_limits<std::int32_t>::min(), 7}, "7" + blanks.substr(0, 510) + "|"},
      {"%.2147483648f|%2147483647e", {1.0, 1.0}, "1." + zeros.substr(0, 509) + "|" + blanks.substr(0, 511)},
      {"%.99999999999s", {"ab"}, "ab"},
  });
}

TEST_CASE("%n stores the count so far in the width that its length says") {
  struct {
    const char* format;
    std::size_t size;
  } static constexpr cases[] = {{"abc%nd", 4}, {"abc%lnd", 8}, {"abc%lln", 8}, {"abc%zn", 8},
                                {"%3d%hn", 2}, {"%3d%hhn", 1}, {"abc%Ln", 4}};
  for (const auto& c : cases) {
    CAPTURE(c.format);
    std::uint64_t place = ~std::uint64_t{0};
    const bool number = c.format[0] == '%';
    formatted(c.format, number ? Arguments{7, &place} : Arguments{&place});
    CHECK_EQ(place, c.size == 8 ? 3 : (~std::uint64_t{0} << (8 * c.size)) + 3);
  }
  std::int32_t count = 0;
  char small[4];
  const ArgumentBlock block({"0123456789", &count, nullptr});
  SysvVaList list = block.list();
  CHECK_EQ(format_text(small, sizeof small, "%s%n%n.", list), 11);
  CHECK_EQ(count, 10);  // what did not fit counts too
  CHECK_EQ(small, "012"s);
}

TEST_CASE("a text is cut anywhere and nothing is written behind its buffer") {
  const Arguments arguments = {-12345, "velmora", 3.14159, 'c', 255, U"\u00E9", nullptr};
  const char* const format = "<%8d|%-10s|%9.3f|%c|%#x|%ls|%@|%y%%>";
  const std::string whole = formatted(format, arguments);
  const ArgumentBlock block(arguments);
  for (std::uint64_t size = 0; size <= whole.size() + 2; ++size) {
    std::string buffer(whole.size() + 10, '?');
    SysvVaList list = block.list();
    CHECK_EQ(vsnprintf_body(buffer.data(), size, format, &list), static_cast<std::int32_t>(whole.size()));
    CHECK_EQ(list.gp_offset, 24);  // the caller's position stays
    const std::uint64_t written = std::min<std::uint64_t>(size, whole.size() + 1);
    const std::string expected = size == 0 ? "" : whole.substr(0, written - 1) + '\0';
    CHECK_EQ(buffer, expected + std::string(buffer.size() - written, '?'));
  }
  SysvVaList list = block.list();
  char text[64];
  CHECK_EQ(vsnprintf_body(text, UINT64_MAX, "%d", &list), 6);
  CHECK_EQ(vsnprintf_body(text, sizeof text, nullptr, &list), 0);
}

TEST_CASE("a text longer than an int counts is an error, and its start is there") {
  const ArgumentBlock block({"ab"});
  char text[8];
  for (const char* format : {"%-2147483646s+", "%-2147483647s+", "%-9999999999s"}) {
    SysvVaList list = block.list();
    const bool fits = format[11] == '6';
    shim_errno = 0;
    CHECK_EQ(vsnprintf_body(text, sizeof text, format, &list), fits ? 2147483647 : -1);
    CHECK_EQ(shim_errno, fits ? 0 : 84);
    CHECK_EQ(text, "ab     "s);
  }
}

TEST_CASE("an extended value becomes the nearest double") {
  const auto converted = [](std::uint64_t significand, unsigned exponent) {
    std::byte bytes[10];
    std::memcpy(bytes, &significand, 8);
    std::memcpy(bytes + 8, &exponent, 2);
    return double_from_extended(bytes);
  };
  const std::uint64_t top = std::uint64_t{1} << 63;
  CHECK_EQ(converted(UINT64_MAX, 0x3FFF + 1023), infinity);
  CHECK_EQ(converted(top, 0x7FFE), infinity);
  CHECK_EQ(converted(top, 0xFFFF), -infinity);
  CHECK_EQ(converted(0, 0x7FFF), infinity);
  CHECK(std::isnan(converted(top | 1, 0x7FFF)));
  CHECK_EQ(converted(top, 0x3FFF - 1075), 0.0);  // half way
  CHECK_EQ(converted(top | 1, 0x3FFF - 1075), 5e-324);
  CHECK_EQ(converted(UINT64_MAX, 0x3FFF - 1023), std::numeric_limits<double>::min());
  CHECK_EQ(converted(top, 0), 0.0);              // pseudo-denormal
  CHECK(std::signbit(converted(0, 0x8000)));     // minus zero
  CHECK_EQ(converted(top >> 3, 0x3FFF), 0.125);  // unnormal
  std::mt19937_64 random(11);
  for (int i = 0; i < 20'000; ++i) {
    const auto exponent = static_cast<unsigned>(0x3FFF - 1090 + random() % 2130);
    const std::uint64_t significand = top | random() << (random() % 64);
    long double value = 0;
    std::memcpy(&value, &significand, 8);
    std::memcpy(reinterpret_cast<std::byte*>(&value) + 8, &exponent, 2);
    REQUIRE_EQ(converted(significand, exponent), static_cast<double>(value));  // the processor's own rounding
  }
}

TEST_CASE("digits are those of the exact value, rounded half to even") {
  std::mt19937_64 random(1);
  for (int i = 0; i < 6'000; ++i) {
    double value;
    if (i % 3 == 0) {
      do value = std::abs(std::bit_cast<double>(random()));
      while (!std::isfinite(value));
    } else if (i % 3 == 1) {
      value = static_cast<double>(random() % 2'000'001) / static_cast<double>(1 << random() % 12);  // many exact halves
    } else {
      value = static_cast<double>(random() % 10'000'000) * std::pow(10.0, static_cast<double>(random() % 30) - 20);
    }
    CAPTURE(value);
    const int precision = static_cast<int>(random() % (i % 30 == 0 ? 190 : 24));
    const auto expected = [&](std::chars_format format) {
      char text[600];
      return std::string(text, std::to_chars(text, std::end(text), value, format, precision).ptr);
    };
    REQUIRE_EQ(formatted("%.*f", {precision, value}), expected(std::chars_format::fixed));
    REQUIRE_EQ(formatted("%.*e", {precision, value}), expected(std::chars_format::scientific));
  }
}

TEST_CASE("fprintf writes all of a long text, in one stretch") {
  std::FILE* const file = std::fopen("format_test.txt", "w+b");
  REQUIRE(file != nullptr);
  std::string expected;
  for (const std::size_t size : {0, 1, 1022, 1023, 1024, 1025, 3000, 5000}) {
    std::string text(size, 'x');
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i % 26);
    expected += text + "|42\n";
    const ArgumentBlock block({text.c_str(), 42}, 2);
    SysvVaList list = block.list();
    CHECK_EQ(fprintf_body(file, "%s|%d\n", &list), static_cast<std::int32_t>(size) + 4);
    CHECK_EQ(list.gp_offset, 16);
  }
  std::string read(expected.size() + 10, '?');
  std::rewind(file);
  read.resize(std::fread(read.data(), 1, read.size(), file));
  CHECK(read == expected);
  std::fclose(file);

  std::FILE* const read_only = std::fopen("format_test.txt", "rb");
  REQUIRE(read_only != nullptr);
  const ArgumentBlock block({}, 2);
  SysvVaList list = block.list();
  CHECK_EQ(fprintf_body(read_only, "text", &list), -1);
  std::fclose(read_only);
  std::remove("format_test.txt");
}

namespace {

template <class T>
std::string bytes_of(T value, std::size_t size = sizeof(T)) {
  return std::string(reinterpret_cast<const char*>(&value), size);
}
std::string i8(int value) { return bytes_of(static_cast<std::int8_t>(value)); }
std::string i16(int value) { return bytes_of(static_cast<std::int16_t>(value)); }
std::string i32(std::int64_t value) { return bytes_of(static_cast<std::int32_t>(value)); }
std::string i64(std::uint64_t value) { return bytes_of(value); }
std::string f32(float value) { return bytes_of(value); }
std::string f64(double value) { return bytes_of(value); }
std::string f80(long double value) { return bytes_of(value, 10); }
std::string text(const char* value) { return value + "\0"s; }
std::string wide(const std::u32string& value) {
  return std::string(reinterpret_cast<const char*>(value.c_str()), 4 * value.size() + 4);
}

struct ScanRow {
  const char* input;
  const char* format;
  std::int32_t result;
  std::vector<std::string> stored;  // the bytes at each place; behind them nothing may have changed
};
void check_rows(std::initializer_list<ScanRow> rows) {
  for (const ScanRow& row : rows) {
    CAPTURE(row.input);
    CAPTURE(row.format);
    std::vector<std::string> places(row.stored.size() + 2, std::string(64, '?'));
    Arguments arguments;
    for (std::string& place : places) arguments.emplace_back(place.data());
    const ArgumentBlock block(arguments, 2);
    SysvVaList list = block.list();
    CHECK_EQ(sscanf_body(row.input, row.format, &list), row.result);
    for (std::size_t i = 0; i < places.size(); ++i) {
      const std::string stored = i < row.stored.size() ? row.stored[i] : "";
      CHECK_EQ(places[i], stored + std::string(64 - stored.size(), '?'));
    }
  }
}

}  // namespace

TEST_CASE("scanning integers") {
  check_rows({
      {"12 34", "%*d %d", 1, {i32(34)}},
      {"-1 +2 -3 4", "%hhd %hd %lld %qd", 4, {i8(-1), i16(2), i64(-3ull), i64(4)}},
      {"1 2 3", "%jd%zu%td", 3, {i64(1), i64(2), i64(3)}},
      {"300 70000", "%hhu%hu", 2, {i8(44), i16(4464)}},
      {"1f 1F 0x1f 0X1F 17", "%x%X%x%x%o", 5, {i32(31), i32(31), i32(31), i32(31), i32(15)}},
      {"31 0x1F 017 0 -0x10", "%i%i%i%i%i", 5, {i32(31), i32(31), i32(15), i32(0), i32(-16)}},
      {"08", "%i%d", 2, {i32(0), i32(8)}},
      {"0x10", "%d%s", 2, {i32(0), text("x10")}},
      {"0x1000 0xabcdef0123456789", "%p%p", 2, {i64(0x1000), i64(0xABCDEF0123456789)}},
      {"0xg", "%x", 0, {}},
      {"-", "%d", 0, {}},
      {"+-5", "%d", 0, {}},
      {"12345", "%2d%1d%d", 3, {i32(12), i32(3), i32(45)}},
      {"-12", "%2d%d", 2, {i32(-1), i32(2)}},
      {"-1", "%1d", 0, {}},
      {"0x1f", "%3x%d", 1, {i32(1)}},
      {"0x1f", "%2x", 0, {}},
      {"123456789", "%4294967301d", 1, {i32(123456789)}},
      {"-1 -1", "%u%llu", 2, {i32(-1), i64(-1ull)}},
      {"9223372036854775807 -9223372036854775808", "%lld%lld", 2, {i64(INT64_MAX), i64(1ull << 63)}},
      {"9223372036854775808 -9223372036854775809", "%lld%lld", 2, {i64(INT64_MAX), i64(1ull << 63)}},
      {"18446744073709551615 18446744073709551616", "%llu%llu", 2, {i64(-1ull), i64(-1ull)}},
      {"99999999999999999999999 ffffffffffffffffff", "%lld%llx", 2, {i64(INT64_MAX), i64(-1ull)}},
      {"1:2", "%d,%d", 1, {i32(1)}},
  });
}

TEST_CASE("scanning floating point") {
  check_rows({
      {"1.5 -2.25 3e2", "%f%lf%g", 3, {f32(1.5f), f64(-2.25), f32(300)}},
      {".5 5. 1.e1 +.5E-1", "%lf%le%lg%la", 4, {f64(.5), f64(5), f64(10), f64(.05)}},
      {"0.1 0.1 0.1", "%f%lf%Lf", 3, {f32(0.1f), f64(0.1), f80(0.1L)}},
      {"1.0000000596046448 1.000000059604644775390625", "%f%f", 2, {f32(1.0000001f), f32(1)}},
      {"9007199254740993 9007199254740993.00000000000000000000000000000001",
       "%lf%lf",
       2,
       {f64(9007199254740992), f64(9007199254740994)}},
      {"2.2250738585072011e-308 4.9406564584124654e-324 2.47e-324",
       "%lf%lf%lf",
       3,
       {f64(2.2250738585072011e-308), f64(5e-324), f64(0)}},
      {"1e400 -1e400 1e-400", "%lf%lf%lf", 3, {f64(infinity), f64(-infinity), f64(0)}},
      {"1e39 -1e-50", "%f%f", 2, {f32(INFINITY), f32(-0.0f)}},
      {"1e4000 1e-4000", "%Lf%Lf", 2, {f80(1e4000L), f80(1e-4000L)}},
      {"inf -INFINITY nan", "%lf%lf%lf", 3, {f64(infinity), f64(-infinity), f64(not_a_number)}},
      {"nan(12_a)x infx -inf", "%lfx%fx%Lf", 3, {f64(not_a_number), f32(INFINITY), f80(-INFINITY)}},
      {"infin", "%f", 0, {}},
      {"nan(", "%f", 0, {}},
      {"0x1.8p3 -0X.8 0xAp-1 0x1.8p1", "%lf%lf%f%Lf", 4, {f64(12), f64(-.5), f32(5), f80(3)}},
      {"0x1p-1074 0x1.fffffffffffff8p1023 0x1p-16445", "%lf%lf%Lf", 3, {f64(5e-324), f64(infinity), f80(0x1p-16445L)}},
      {"0x", "%f", 0, {}},
      {"0x1p", "%f", 0, {}},
      {"100ergs", "%f", 0, {}},  // the standard's own example
      {"-12.8degrees", "%f%s", 2, {f32(-12.8f), text("degrees")}},
      {"1.2.3", "%f%f", 2, {f32(1.2f), f32(.3f)}},
      {".", "%f", 0, {}},
      {"12345.75", "%4lf%lf", 2, {f64(1234), f64(5.75)}},
      {"12345.75", "%7Lf%d", 2, {f80(12345.7L), i32(5)}},
      {"infinity", "%3lf%s", 2, {f64(infinity), text("inity")}},
      {"1e5", "%2f", 0, {}},
      {"-0", "%lf", 1, {f64(-0.0)}},
  });
}

TEST_CASE("scanning texts and sets") {
  check_rows({
      {"  hello world", "%s%s", 2, {text("hello"), text("world")}},
      {"hello", "%3s%s", 2, {text("hel"), text("lo")}},
      {" abc", "%c%2c", 2, {" ", "ab"}},
      {"abc", "%5c", 0, {"abc"}},  // exactly five, or none
      {"abc", "%*c%c", 1, {"b"}},
      {"abc]d", "%[abc]%[]d]", 2, {text("abc"), text("]d")}},
      {"x=1", "%[^=]=%d", 2, {text("x"), i32(1)}},
      {"a]b", "%[^]]%c", 2, {text("a"), "]"}},
      {"abcdef-", "%[a-c]%[d-f-]", 2, {text("abc"), text("def-")}},
      {"abcde", "%[a-c-e]", 1, {text("abcde")}},
      {"-09", "%[9-0]", 1, {text("-09")}},
      {"-a", "%[-a]", 1, {text("-a")}},
      {"a-", "%[a-]", 1, {text("a-")}},
      {"  x", "%[ ]%[x]", 2, {text("  "), text("x")}},
      {"xyz", "%[abc]", 0, {}},
      {"\xE9z", "%[\xE0-\xEF]%c", 2, {text("\xE9"), "z"}},
      {"abcabc", "%4[abc]%*2[abc]%n", 1, {text("abca"), i32(6)}},
      {"abc", "%[abc", 1, {text("abc")}},
      {"h\xC3\xA9llo \xE4\xB8\xAD", "%ls%ls", 2, {wide(U"h\u00E9llo"), wide(U"\u4E2D")}},
      {"\xC3\xA9\xE4\xB8\xADz", "%2lc%S", 2, {wide(U"\u00E9\u4E2D").substr(0, 8), wide(U"z")}},
      {"\xC3\xA9z", "%l[^z]", 1, {wide(U"\u00E9")}},
      {"\xC3", "%lc", -1, {}},
      {"\xE4\xB8\xADz", "%1ls%c", 2, {wide(U"\u4E2D"), "z"}},
  });
}

TEST_CASE("what scanning returns, counts and skips") {
  check_rows({
      {"", "%d", -1, {}},
      {"   ", "%d", -1, {}},
      {"   ", "%c", 1, {" "}},
      {"", "%c", -1, {}},
      {"", "%[a]", -1, {}},
      {"", "", 0, {}},
      {"abc", "", 0, {}},
      {"", " ", 0, {}},
      {"", "abc", -1, {}},
      {"ab", "abc", -1, {}},
      {"x", "abc%d", 0, {}},
      {"12", "%d%d", 1, {i32(12)}},
      {"12", "%*d%d", 0, {}},
      {"12 ab", "%d%d", 1, {i32(12)}},
      {"12ab34", "%dab%d", 2, {i32(12), i32(34)}},
      {"12  %34", "%d%%%d", 2, {i32(12), i32(34)}},
      {"12 x", "%d%%", 1, {i32(12)}},
      {" \t\n1", "\n%d", 1, {i32(1)}},
      {"1 2", "%*d%n%d", 1, {i32(1), i32(2)}},
      {"123", "%d%hhn%hn%n%ln%lln", 1, {i32(123), i8(3), i16(3), i32(3), i64(3), i64(3)}},
      {"", "%n%d", -1, {i32(0)}},
      {"ab", "%*n%s", 1, {text("ab")}},
      {"1", "%d%y%d", 1, {i32(1)}},
      {"1", "%d%", 1, {i32(1)}},
      {"1 2 3 4 5 6 7 8", "%d%d%d%d%d%d%d%d", 8, {i32(1), i32(2), i32(3), i32(4), i32(5), i32(6), i32(7), i32(8)}},
  });
  SysvVaList list = {};
  CHECK_EQ(scan_text(nullptr, "%d", list), -1);
}
