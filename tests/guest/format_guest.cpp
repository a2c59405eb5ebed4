// printf and sscanf called as compiled macOS code calls them: variable arguments in registers and on the stack.
#include "darwin.h"

namespace {

uint64 state = 0x9E3779B97F4A7C15;
uint64 random_bits() {
  state ^= state << 13;
  state ^= state >> 7;
  state ^= state << 17;
  return state;
}

uint64 bits_of(double value) {
  uint64 bits;
  __builtin_memcpy(&bits, &value, sizeof bits);
  return bits;
}

/// Formats the same list twice: vsnprintf leaves its caller's position alone.
int32 format_twice(char* first, char* second, const char* format, ...) {
  __builtin_va_list list;
  __builtin_va_start(list, format);
  const int32 length = vsnprintf(first, 100, format, list);
  const int32 again = vsnprintf(second, 100, format, list);
  __builtin_va_end(list);
  return length == again ? length : -1;
}

}  // namespace

GUEST_TEST(arguments_arrive_from_registers_and_from_the_stack) {
  char text[200];
  CHECK(snprintf(text, sizeof text, "%d %s %.2f", 42, "text", 3.14159) == 12);
  CHECK(same(text, "42 text 3.14"));
  snprintf(text, sizeof text, "%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8);
  CHECK(same(text, "12345678"));
  snprintf(text, sizeof text, "%g %g %g %g %g %g %g %g %g %g", 1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5, 8.5, 9.5, 10.5);
  CHECK(same(text, "1.5 2.5 3.5 4.5 5.5 6.5 7.5 8.5 9.5 10.5"));
  snprintf(text, sizeof text, "%d %d %d %d %Lg %d %.1Lf %s", 1, 2, 3, 4, 5.5L, 6, -7.25L, "end");
  CHECK(same(text, "1 2 3 4 5.5 6 -7.2 end"));
  CHECK(snprintf(text, sizeof text, "%f", 1.0f) == 8);
}

GUEST_TEST(a_short_buffer_gets_what_fits) {
  char text[8] = "???????";
  CHECK(snprintf(text, 4, "%d", 12345) == 5);
  CHECK(same(text, "123") && text[4] == '?');
  CHECK(snprintf(nullptr, 0, "%s", "velmora") == 7);
}

GUEST_TEST(the_widths_are_those_of_macos) {
  char text[100];
  int32 count = -1;
  int64 wide_count = -1;
  snprintf(text, sizeof text, "%ld%n %lx%ln", 0x7FFFFFFFFFFFFFFF, &count, ~0ul, &wide_count);
  CHECK(same(text, "9223372036854775807 ffffffffffffffff"));
  CHECK(count == 19 && wide_count == 36);
  snprintf(text, sizeof text, "%ls %p", L"\u00E9\u4E2D", reinterpret_cast<void*>(0x1000));
  CHECK(same(text, "\xC3\xA9\xE4\xB8\xAD 0x1000"));
}

GUEST_TEST(a_list_can_be_formatted_twice) {
  char first[100], second[100];
  CHECK(format_twice(first, second, "%s %d %d %d %d %g", "a", 1, 2, 3, 4, 0.5) == 13);
  CHECK(same(first, "a 1 2 3 4 0.5"));
  CHECK(same(second, first));
}

GUEST_TEST(values_survive_being_printed_and_scanned) {
  bool integers = true, unsigned_integers = true, decimals = true, hexadecimals = true, floats = true;
  for (int i = 0; i < 5000; ++i) {
    char text[200];
    const uint64 bits = random_bits() >> (random_bits() & 63);
    const int64 integer = static_cast<int64>(bits);
    int64 integer_back = 0;
    uint64 hexadecimal_back = 0, octal_back = 0;
    snprintf(text, sizeof text, "%ld %lx %lo", integer, bits, bits);
    integers &= sscanf(text, "%ld %lx %lo", &integer_back, &hexadecimal_back, &octal_back) == 3;
    integers &= integer_back == integer;
    unsigned_integers &= hexadecimal_back == bits && octal_back == bits;

    double value;
    const uint64 any_bits = random_bits();
    __builtin_memcpy(&value, &any_bits, sizeof value);
    if (value != value || value - value != 0) continue;
    double back = 0, back_exact = 0;
    snprintf(text, sizeof text, "%.17g|%a", value, value);
    decimals &= sscanf(text, "%lf|%lf", &back, &back_exact) == 2 && bits_of(back) == any_bits;
    hexadecimals &= bits_of(back_exact) == any_bits;

    const float small = static_cast<float>(static_cast<int32>(any_bits)) / 1024;
    float small_back = 0;
    long double long_back = 0;
    snprintf(text, sizeof text, "%.9g %.17Lg", static_cast<double>(small), static_cast<long double>(small));
    floats &= sscanf(text, "%f %Lf", &small_back, &long_back) == 2;
    floats &= small_back == small && static_cast<float>(long_back) == small;
  }
  CHECK(integers);
  CHECK(unsigned_integers);
  CHECK(decimals);
  CHECK(hexadecimals);
  CHECK(floats);
}

GUEST_TEST(scanning_stores_to_places_in_registers_and_on_the_stack) {
  int32 a = 0, b = 0, c = 0, d = 0, e = 0;
  int64 f = 0;
  char word[16] = "";
  CHECK(sscanf("1 2 3 4 5 -6 seven", "%d %d %d %*d %d %ld %15s%n", &a, &b, &c, &d, &f, word, &e) == 6);
  CHECK(a == 1 && b == 2 && c == 3 && d == 5 && f == -6 && e == 18);
  CHECK(same(word, "seven"));
  CHECK(sscanf("", "%d", &a) == -1);
}

GUEST_TEST(a_long_text_reaches_standard_error) {
  char part[601];
  for (int i = 0; i < 600; ++i) part[i] = static_cast<char>(i % 60 == 59 ? '\n' : 'a' + i % 26);
  part[600] = 0;
  CHECK(fprintf(stderr, "%s%s%s%s%s", part, part, part, part, part) == 3000);
  CHECK(fprintf(stderr, "%d: %s\n", 1, "short") == 9);
}
