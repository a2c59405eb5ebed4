// The length of a string, which is counted without converting most of it.
#include "objc/ns_string.h"

#include <windows.h>

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <random>
#include <string>

TEST_CASE("a text has as many UTF-16 units as Windows makes of it, whatever its bytes are") {
  // What random texts are put together from: whole characters, cut ones, overlong ones, surrogates, beyond U+10FFFF.
  // clang-format off
  static constexpr std::string_view pieces[] = {
      "a", "zz", "é", "ボ", "😀", "\x80", "\xbf\xbf", "\xc3", "\xe3\x83", "\xf0\x9f", "\xf0\x9f\x98", "\xc0\xaf",
      "\xc1", "\xe0\x80\xaf", "\xed\xa0\xbd\xed\xb8\x80", "\xf4\x90\x80\x80", "\xf5", "\xfe", "\xff",
      "\xf8\x88\x80\x80\x80"};
  // clang-format on
  std::mt19937 random(8);
  for (int i = 0; i < 20'000; ++i) {
    std::string text;
    for (unsigned left = random() % 12; left > 0; --left) text += pieces[random() % std::size(pieces)];
    const int converted = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    if (vlm::ns_string_utf16_length(text) == static_cast<std::uint64_t>(converted - 1)) continue;
    CAPTURE(text);
    FAIL_CHECK("counted " << vlm::ns_string_utf16_length(text) << ", Windows " << converted - 1);
  }
}
