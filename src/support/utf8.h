// Reading UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vlm {

/// Bytes of the well-formed UTF-8 sequence that `text` begins with, and its character; 0 when there is none.
constexpr std::size_t decode_utf8(std::string_view text, std::uint32_t& character) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (text.empty()) return 0;
  const unsigned first = byte(0);
  character = first;
  if (first < 0x80) return 1;
  const std::size_t size = first < 0xC0 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF8 ? 4 : 0;
  if (size == 0 || size > text.size()) return 0;
  character &= 0x7Fu >> size;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    character = character << 6 | (byte(i) & 0x3F);
  }
  constexpr std::uint32_t least[] = {0x80, 0x800, 0x10000};
  const bool surrogate = character >= 0xD800 && character < 0xE000;
  return character < least[size - 2] || character > 0x10FFFF || surrogate ? 0 : size;
}

}  // namespace vlm
