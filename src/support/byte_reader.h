// The one way in which bytes of an input file are read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

namespace vlm {

/// True when `size` bytes at `offset` lie inside `total` bytes, whatever the numbers are.
constexpr bool range_fits(std::uint64_t offset, std::uint64_t size, std::uint64_t total) {
  return size <= total && offset <= total - size;
}

/// Little-endian cursor over untrusted bytes. A read past the end yields zero and clears ok() for good,
/// so a decoder checks once per record instead of once per field.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::byte> bytes, std::size_t offset = 0)
      : bytes_(bytes), offset_(offset), ok_(offset <= bytes.size()) {}

  /// memcpy, never a cast: file data need not be aligned.
  template <class T>
    requires std::is_trivially_copyable_v<T>
  T read() {
    T value{};
    if (!take(sizeof(T))) return value;
    std::memcpy(&value, bytes_.data() + offset_ - sizeof(T), sizeof(T));
    return value;
  }

  /// Unsigned LEB128; shifts are taken modulo 64. A value cut by the end of the bytes ends there and
  /// leaves ok() as it was, as dyld's streams are defined.
  std::uint64_t uleb128() { return leb128(false); }

  /// Signed LEB128, sign-extended from bit 6 of its last byte when fewer than 64 bits were read.
  std::int64_t sleb128() { return static_cast<std::int64_t>(leb128(true)); }

  /// The characters up to the next NUL, which is skipped. Fails when no NUL comes before the end.
  /// The view's data() is NUL-terminated when the call succeeds.
  std::string_view c_string() {
    if (!ok_) return {};
    const auto* start = reinterpret_cast<const char*>(bytes_.data()) + offset_;
    // An empty span may have a null address, which memchr() does not accept.
    const void* nul = at_end() ? nullptr : std::memchr(start, 0, bytes_.size() - offset_);
    if (nul == nullptr) {
      ok_ = false;
      return {};
    }
    const std::string_view text(start, static_cast<const char*>(nul));
    offset_ += text.size() + 1;
    return text;
  }

  bool skip(std::uint64_t size) { return take(size); }

  bool ok() const { return ok_; }
  bool at_end() const { return offset_ == bytes_.size(); }
  std::size_t offset() const { return offset_; }  ///< bytes from the start; after a failure, where it happened
  std::size_t left() const { return ok_ ? bytes_.size() - offset_ : 0; }

 private:
  bool take(std::uint64_t size) {
    if (!ok_ || size > bytes_.size() - offset_) {
      ok_ = false;
      return false;
    }
    offset_ += size;
    return true;
  }

  std::uint64_t leb128(bool is_signed) {
    std::uint64_t value = 0;
    unsigned shift = 0;
    std::uint8_t byte = 0;
    while (ok_ && offset_ < bytes_.size()) {
      byte = static_cast<std::uint8_t>(bytes_[offset_++]);
      value |= std::uint64_t{byte & 0x7Fu} << (shift % 64);
      shift += 7;
      if ((byte & 0x80) == 0) break;
    }
    if (is_signed && shift < 64 && (byte & 0x40) != 0) value |= ~std::uint64_t{0} << shift;
    return value;
  }

  std::span<const std::byte> bytes_;
  std::size_t offset_;
  bool ok_;
};

}  // namespace vlm
