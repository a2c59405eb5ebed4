// Extended values against the processor. What game code sees of formats is in tests/guest: c_library_guest.cpp has what
// macOS does its own way, differ.cpp all the rest.
#include <doctest/doctest.h>

#include <bit>
#include <cstring>
#include <random>

#include "abi/format_float.h"

using namespace vlm;

TEST_CASE("an extended value becomes the nearest double") {
  constexpr std::uint64_t top = std::uint64_t{1} << 63;
  std::mt19937_64 random(11);
  for (int i = 0; i < 20'000; ++i) {
    const auto exponent = static_cast<unsigned>(0x3FFF - 1090 + random() % 2130);
    const std::uint64_t significand = top | random() << (random() % 64);
    std::byte bytes[sizeof(long double)] = {};
    std::memcpy(bytes, &significand, 8);
    std::memcpy(bytes + 8, &exponent, 2);
    REQUIRE_EQ(double_from_extended(bytes), static_cast<double>(std::bit_cast<long double>(bytes)));  // the processor's
  }
}
