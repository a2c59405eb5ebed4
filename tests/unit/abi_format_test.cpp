// Digits of the printf engine against the host's to_chars, and extended values against the processor. What game code
// sees of formats is in tests/guest: c_library_guest.cpp, differ.cpp.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "abi/format.h"
#include "abi/format_float.h"

using namespace vlm;

TEST_CASE("an extended value becomes the nearest double") {
  constexpr double inf = std::numeric_limits<double>::infinity();
  const auto converted = [](std::uint64_t significand, unsigned exponent) {
    std::byte bytes[10];
    std::memcpy(bytes, &significand, 8);
    std::memcpy(bytes + 8, &exponent, 2);
    return double_from_extended(bytes);
  };
  const std::uint64_t top = std::uint64_t{1} << 63;
  CHECK_EQ(converted(UINT64_MAX, 0x3FFF + 1023), inf);
  CHECK_EQ(converted(top, 0x7FFE), inf);
  CHECK_EQ(converted(top, 0xFFFF), -inf);
  CHECK_EQ(converted(0, 0x7FFF), inf);
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
    double value = std::abs(std::bit_cast<double>(random()));
    if (i % 2 || !std::isfinite(value)) value = static_cast<double>(random() % 2'000'001) / (1 << random() % 12);
    CAPTURE(value);
    const std::uint64_t precision = random() % (i % 30 == 0 ? 190 : 24);
    const auto check = [&](const char* format, std::chars_format kind) {
      RegisterSaveArea area = {};
      area.gp[0] = precision;
      area.xmm[0].low = std::bit_cast<std::uint64_t>(value);
      SysvVaList list = {0, SAVE_AREA_XMM, nullptr, reinterpret_cast<const std::byte*>(&area)};
      char text[600], expected[600];
      const std::string_view digits(text, format_text(text, sizeof text, format, list));
      const auto end = std::to_chars(expected, std::end(expected), value, kind, static_cast<int>(precision)).ptr;
      REQUIRE_EQ(digits, std::string_view(expected, end));
    };
    check("%.*f", std::chars_format::fixed);
    check("%.*e", std::chars_format::scientific);
  }
}
