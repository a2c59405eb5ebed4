// Strings, their conversion to numbers, character classes, error numbers.
#include "darwin.h"

extern "C" {
uint64 strlcpy(char*, const char*, uint64);
int32 __maskrune(int32, uint64);
int32 __tolower(int32);
const char* setlocale(int32, const char*);
void* newlocale(int32, const char*, void*);
int32 freelocale(void*);
extern const uint8 _DefaultRuneLocale[3208];
}

GUEST_TEST(strings) {
  char buffer[16];
  CHECK(strcpy(buffer, "velmora") == buffer && strlen(buffer) == 7);
  CHECK(strcmp(buffer, "velmora") == 0 && strcmp(buffer, "velmor\xC3\xA5") < 0);  // bytes compare unsigned
  CHECK(strncmp("abcX", "abcY", 3) == 0);
  CHECK(strncmp("abcX", "abcY", 4) < 0);
  CHECK(strncpy(buffer, "ab", 6) == buffer && memcmp(buffer, "ab\0\0\0\0a\0", 8) == 0);
  CHECK(strchr(buffer, 'b') == buffer + 1);
  CHECK(strchr(buffer, 'z') == nullptr);
  CHECK(strchr(buffer, 0) == buffer + 2);
  const char path[] = "a/b/c";
  CHECK(strrchr(path, '/') == path + 3 && strrchr(path, 'x') == nullptr);
  CHECK(strstr(path, "b/") == path + 2 && strstr(path, "") == path && strstr(path, "/b/d") == nullptr);
  char* copy = strdup("日本語");
  CHECK(strcmp(copy, "日本語") == 0);
  free(copy);
}

GUEST_TEST(a_copy_that_is_cut) {
  static const struct {
    uint64 size;
    const char* expected;  // of a buffer of "........"
  } rows[] = {{0, "........"}, {1, "\0......."}, {4, "abc\0...."}, {7, "abcdef\0."}, {8, "abcdef\0."}};
  for (const auto& row : rows) {
    char buffer[9] = "........";
    CHECK(strlcpy(buffer, "abcdef", row.size) == 6);
    CHECK(memcmp(buffer, row.expected, 8) == 0);
  }
}

GUEST_TEST(texts_become_numbers) {
  constexpr uint64 low = 0x8000000000000000;  // the least signed number, as bits
  static const struct {
    const char* text;
    int32 base;
    uint64 as_long, as_ulong;  // bits
    int64 length;              // what the conversion takes
    int32 long_error, ulong_error;
  } rows[] = {
      {"42", 10, 42, 42, 2, 0, 0},
      {" \t\n\v\f\r+7x", 10, 7, 7, 8, 0, 0},
      {"-1", 10, ~uint64{0}, ~uint64{0}, 2, 0, 0},
      {"  -0x1Fg", 16, -uint64{31}, -uint64{31}, 7, 0, 0},
      {"0x1f", 0, 31, 31, 4, 0, 0},
      {"0x", 0, 0, 0, 1, 0, 0},
      {"0xg", 16, 0, 0, 1, 0, 0},
      {"0x1", 10, 0, 0, 1, 0, 0},
      {"0779", 0, 63, 63, 3, 0, 0},
      {"zZ!", 36, 35 * 37, 35 * 37, 2, 0, 0},
      {"12", 2, 1, 1, 1, 0, 0},
      {"", 10, 0, 0, 0, 0, 0},
      {"  -", 10, 0, 0, 0, 0, 0},
      {"+-3", 10, 0, 0, 0, 0, 0},
      {"\xA0"
       "1",
       10, 0, 0, 0, 0, 0},
      {"9223372036854775807", 10, ~low, ~low, 19, 0, 0},
      {"9223372036854775808", 10, ~low, low, 19, ERANGE, 0},
      {"-9223372036854775808", 10, low, low, 20, 0, 0},
      {"-9223372036854775809", 10, low, ~low, 20, ERANGE, 0},
      {"18446744073709551615", 10, ~low, ~uint64{0}, 20, ERANGE, 0},
      {"18446744073709551616", 10, ~low, ~uint64{0}, 20, ERANGE, ERANGE},
      {"-99999999999999999999", 10, low, ~uint64{0}, 21, ERANGE, ERANGE},
      {"1", 1, 0, 0, 0, EINVAL, EINVAL},
      {"1", 37, 0, 0, 0, EINVAL, EINVAL},
      {"1", -10, 0, 0, 0, EINVAL, EINVAL},
  };
  for (const auto& row : rows) {
    constexpr int32 untouched = 99;  // success leaves the error number as it was
    char* end = nullptr;
    const auto check = [&](bool passed) { guest_test::check(passed, __FILE_NAME__, __LINE__, row.text); };
    *__error() = untouched;
    check(static_cast<uint64>(strtol(row.text, &end, row.base)) == row.as_long && end - row.text == row.length);
    check(*__error() == (row.long_error ? row.long_error : untouched));
    *__error() = untouched;
    check(strtoul(row.text, &end, row.base) == row.as_ulong && end - row.text == row.length);
    check(*__error() == (row.ulong_error ? row.ulong_error : untouched));
  }
  CHECK(strtol("12", nullptr, 10) == 12 && strtoul("12", nullptr, 10) == 12);
  CHECK(atol(" -5000000000z") == -5000000000 && atol("0x10") == 0);
  CHECK(atoi("-2147483648") == -2147483647 - 1 && atoi("x") == 0);
}

GUEST_TEST(character_classes_as_the_macros_of_macos_read_them) {
  static const struct {
    int32 c;
    uint32 classes;
    int32 lower, upper;
  } rows[] = {
      {' ', 0x40064000, ' ', ' '}, {'0', 0x40050C00, '0', '0'},
      {'9', 0x40050C09, '9', '9'}, {'A', 0x4005890A, 'a', 'A'},
      {'F', 0x4005890F, 'f', 'F'}, {'G', 0x40048900, 'g', 'G'},
      {'Z', 0x40048900, 'z', 'Z'}, {'a', 0x4005190A, 'a', 'A'},
      {'z', 0x40041900, 'z', 'Z'}, {'!', 0x40042800, '!', '!'},
      {'~', 0x40042800, '~', '~'}, {'@', 0x40042800, '@', '@'},
      {'[', 0x40042800, '[', '['}, {'\t', 0x24200, '\t', '\t'},
      {'\n', 0x4200, '\n', '\n'},  {0, 0x200, 0, 0},
      {127, 0x200, 127, 127},      {128, 0, 128, 128},
      {255, 0, 255, 255},
  };
  for (const auto& row : rows) {
    const auto entry = [&](int64 table) {
      return *reinterpret_cast<const uint32*>(_DefaultRuneLocale + table + 4 * row.c);
    };
    CHECK(entry(60) == row.classes);
    CHECK(static_cast<int32>(entry(1084)) == row.lower && __tolower(row.c) == row.lower);
    CHECK(static_cast<int32>(entry(2108)) == row.upper);
    CHECK(static_cast<uint32>(__maskrune(row.c, 0xFFFFFFFF)) == row.classes);
  }
  CHECK(__maskrune('a', 0x1000) == 0x1000 && __maskrune('a', 0x8000) == 0);
  static const int32 outside[] = {-1, 256, 0x3042, -128};
  for (const int32 c : outside) CHECK(__maskrune(c, 0xFFFFFFFF) == 0);
  CHECK(__tolower(-1) == -1 && __tolower(0xC4) == 0xC4);

  CHECK(memcmp(_DefaultRuneLocale, "RuneMagANONE", 13) == 0);
  CHECK(*reinterpret_cast<const int32*>(_DefaultRuneLocale + 56) == 0xFFFD);
  uint64 behind = 0;  // no ranges, no variable part
  for (uint64 i = 3132; i < sizeof _DefaultRuneLocale; ++i) behind += _DefaultRuneLocale[i];
  CHECK(behind == 0);
}

GUEST_TEST(there_is_one_locale) {
  CHECK(strcmp(setlocale(0, nullptr), "C") == 0 && strcmp(setlocale(1, "de_DE.UTF-8"), "C") == 0);
  void* const locale = newlocale(0x3F, "C", nullptr);
  CHECK(locale != nullptr && newlocale(0x3F, "fr_FR", locale) == locale);
  freelocale(locale);
}

GUEST_TEST(error_numbers_and_their_texts) {
  int32* const place = __error();
  *place = 35;
  CHECK(place == __error() && *__error() == 35);
  static const struct {
    int32 error;
    uint64 size;
    const char* expected;
  } rows[] = {{2, 64, "No such file or directory"},
              {2, 5, "No s"},
              {0, 64, "Undefined error: 0"},
              {35, 64, "Resource temporarily unavailable"},
              {78, 64, "Function not implemented"},
              {60, 64, "Unknown error"},
              {-1, 64, "Unknown error"},
              {13, 1, ""},
              {13, 18, "Permission denied"}};
  for (const auto& row : rows) {
    char buffer[64];
    memset(buffer, '.', sizeof buffer);
    CHECK(strerror_r(row.error, buffer, row.size) == 0 && strcmp(buffer, row.expected) == 0);
  }
  char none = '.';
  CHECK(strerror_r(2, &none, 0) == 0 && none == '.');
}
