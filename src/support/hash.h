// Hashes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vlm {

inline constexpr std::uint64_t fnv1a_basis = 0xCBF29CE484222325;

/// 64-bit FNV-1a. Another basis gives another hash of the same quality.
constexpr std::uint64_t fnv1a(std::string_view bytes, std::uint64_t basis = fnv1a_basis) {
  std::uint64_t hash = basis;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return hash;
}

/// An address as a number of `bits` bits. Fibonacci hashing: the upper bits of the product depend on every bit of the
/// address.
constexpr std::size_t hash_address(std::uint64_t address, unsigned bits) {
  return address * 0x9E3779B97F4A7C15 >> (64 - bits);
}

}  // namespace vlm
