#include "input/png_writer.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vlm {
namespace {

/// CRC-32 of each byte, bits reflected.
constexpr auto crc_table = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    table[byte] = crc;
  }
  return table;
}();

std::uint32_t crc32(std::span<const std::byte> bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::byte byte : bytes) crc = crc_table[(crc ^ static_cast<std::uint8_t>(byte)) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

std::uint32_t adler32(std::span<const std::byte> bytes) {
  constexpr std::uint32_t modulus = 65521;
  constexpr std::size_t run = 5552;  // so many bytes cannot make the sums overflow
  std::uint32_t sum = 1, sum_of_sums = 0;
  while (!bytes.empty()) {
    const auto part = bytes.first(std::min(run, bytes.size()));
    for (const std::byte byte : part) {
      sum += static_cast<std::uint8_t>(byte);
      sum_of_sums += sum;
    }
    sum %= modulus;
    sum_of_sums %= modulus;
    bytes = bytes.subspan(part.size());
  }
  return sum_of_sums << 16 | sum;
}

class PngFile {
 public:
  explicit PngFile(std::span<std::byte> out) : out_(out) {}

  void put(const void* bytes, std::size_t size) {
    std::memcpy(out_.data() + used_, bytes, size);
    used_ += size;
  }
  void put8(std::uint8_t value) { put(&value, 1); }
  void put16_little_endian(std::uint16_t value) { put(&value, sizeof value); }
  void put32(std::uint32_t value) {
    value = __builtin_bswap32(value);
    put(&value, sizeof value);
  }

  /// What `write_data` puts becomes the data of a chunk.
  template <class WriteData>
  void put_chunk(const char (&type)[5], WriteData write_data) {
    const std::size_t start = used_;
    put32(0);  // its length, known at the end
    put(type, 4);
    write_data();
    const std::size_t end = used_;
    used_ = start;
    put32(static_cast<std::uint32_t>(end - start - 8));
    used_ = end;
    put32(crc32(written_since(start + 4)));
  }

  std::size_t used() const { return used_; }
  std::span<const std::byte> written_since(std::size_t start) const { return out_.subspan(start, used_ - start); }

 private:
  std::span<std::byte> out_;
  std::size_t used_ = 0;
};

}  // namespace

void write_png(std::uint32_t width, std::uint32_t height, std::span<const Rgba> pixels, std::span<std::byte> out) {
  PngFile file(out);
  file.put("\x89PNG\r\n\x1A\n", 8);
  file.put_chunk("IHDR", [&] {
    file.put32(width);
    file.put32(height);
    file.put8(8);  // bits per channel
    file.put8(6);  // colour type: RGBA
    file.put8(0);  // compression: deflate
    file.put8(0);  // filter: a method per row
    file.put8(0);  // not interlaced
  });
  file.put_chunk("IDAT", [&] {
    file.put("\x78\x01", 2);  // deflate with a window of 32 KiB, fastest
    file.put8(1);             // the last block, stored
    const auto rows_size = static_cast<std::uint16_t>(png_rows_size(width, height));
    file.put16_little_endian(rows_size);
    file.put16_little_endian(static_cast<std::uint16_t>(~rows_size));
    const std::size_t rows = file.used();
    for (std::uint32_t y = 0; y < height; ++y) {
      file.put8(0);  // its bytes are as they are
      file.put(&pixels[std::size_t{y} * width], width * sizeof(Rgba));
    }
    file.put32(adler32(file.written_since(rows)));
  });
  file.put_chunk("IEND", [] {});
}

}  // namespace vlm
