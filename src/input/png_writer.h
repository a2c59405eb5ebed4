// Writes small pictures as PNG files (ISO/IEC 15948), uncompressed: a few dozen glyphs, each handed over once, do not
// pay for a compressor.
//
//   signature
//   IHDR    width, height, 8 bits per channel, RGBA, not interlaced
//   IDAT    a zlib stream (RFC 1950) of one stored deflate block (RFC 1951): the rows, each after a filter byte of 0
//   IEND
//
// A chunk is its data's length, its type, its data and the CRC-32 of the latter two; numbers are big-endian but for the
// two of the deflate block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vlm {

struct Rgba {
  std::uint8_t red, green, blue, alpha;
};

/// Of the rows in the file, filter bytes included.
constexpr std::size_t png_rows_size(std::size_t width, std::size_t height) {
  return height * (1 + width * sizeof(Rgba));
}

/// The most that one stored deflate block holds.
inline constexpr std::size_t png_max_rows_size = 0xFFFF;

/// Bytes of the file of a picture of that many pixels.
constexpr std::size_t png_size(std::size_t width, std::size_t height) {
  constexpr std::size_t signature = 8, chunks = 3 * 12, header = 13, zlib = 2 + 5 + 4;
  return signature + chunks + header + zlib + png_rows_size(width, height);
}

/// Writes the file of a picture into `out`, which has room for it. Its rows must fit into png_max_rows_size bytes.
///   pixels  width * height, row by row from the top left
void write_png(std::uint32_t width, std::uint32_t height, std::span<const Rgba> pixels, std::span<std::byte> out);

}  // namespace vlm
