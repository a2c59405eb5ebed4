// Extended values against the processor. What game code sees of formats is in tests/guest: c_library_guest.cpp has what
// macOS does its own way, differ.cpp all the rest.
#include <doctest/doctest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

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
