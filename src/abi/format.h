// The printf engine: macOS formats and System V argument lists in, text out.
//
// The host's printf cannot serve: its arguments lie elsewhere, its `long` has 32 bits, its `wchar_t` 16, and it knows
// neither hh nor %a everywhere. So every conversion is rendered here, as C and POSIX define it, with these particulars:
//
//   %d ... %c, %e ... %a   a piece (one conversion with its padding) ends after 511 characters
//   %f of a NaN            "nan", whatever its sign bit and the flags
//   %p                     "0x" and hexadecimal digits; flags, width and precision do not matter
//   %s %ls                 null is "(null)"; %ls takes 32-bit characters and gives UTF-8, never half a character
//   %@                     an object's text, whole
//   %'d                    the grouping flag means nothing: no locale is asked
//   %y                     an unknown conversion prints itself and takes no argument
//
// Text goes straight into its destination; nothing here allocates.
#pragma once

#include <cstdint>
#include <cstring>

#include "abi/va_list.h"

namespace vlm {

/// Where text goes: a buffer. When it is full, it is either drained, or the rest of the text is dropped and only
/// counted.
class TextSink {
 public:
  /// Takes the `size` bytes that the buffer holds; the buffer is then filled anew.
  using Drain = void (*)(void* context, const char* text, std::uint64_t size);

  TextSink(char* buffer, std::uint64_t size) : buffer_(buffer), size_(size) {}
  TextSink(char* buffer, std::uint64_t size, Drain drain, void* context)
      : buffer_(buffer), size_(size), drain_(drain), context_(context) {}

  void append(const char* text, std::uint64_t size) {
    put(size, [&](char* to, std::uint64_t part) {
      copy(to, text, part);
      text += part;
    });
  }
  void fill(char c, std::uint64_t size) {
    put(size, [c](char* to, std::uint64_t part) { std::memset(to, c, part); });
  }

  /// A place in the buffer for `size` characters, or null when it has less room; keep() counts what was written there.
  char* place(std::uint64_t size) { return size <= size_ - held_ ? buffer_ + held_ : nullptr; }
  void keep(std::uint64_t size) {
    count_ += size;
    held_ += size;
  }

  /// Characters so far, dropped and drained ones included.
  std::uint64_t count() const { return count_; }
  /// Characters that lie in the buffer now.
  std::uint64_t held() const { return held_; }

 private:
  template <class Write>
  [[gnu::always_inline]] void put(std::uint64_t size, Write write) {
    count_ += size;
    while (size > size_ - held_) [[unlikely]] {
      const std::uint64_t part = size_ - held_;
      if (part > 0) write(buffer_ + held_, part);
      held_ = size_;
      if (drain_ == nullptr) return;
      size -= part;
      drain_(context_, buffer_, held_);
      held_ = 0;
    }
    if (size == 0) return;
    write(buffer_ + held_, size);
    held_ += size;
  }

  /// memcpy that does not call for the few bytes of a number or a word: two copies that may overlap.
  static void copy(char* to, const char* from, std::uint64_t size) {
    const auto both_ends = [&]<class Word>(Word) {
      Word first, last;
      std::memcpy(&first, from, sizeof first);
      std::memcpy(&last, from + size - sizeof last, sizeof last);
      std::memcpy(to, &first, sizeof first);
      std::memcpy(to + size - sizeof last, &last, sizeof last);
    };
    if (size > 16) {
      std::memcpy(to, from, size);
    } else if (size >= 8) {
      both_ends(std::uint64_t{});
    } else if (size >= 4) {
      both_ends(std::uint32_t{});
    } else if (size >= 2) {
      both_ends(std::uint16_t{});
    } else {
      *to = *from;
    }
  }

  char* buffer_;
  std::uint64_t size_;
  std::uint64_t held_ = 0;
  std::uint64_t count_ = 0;
  Drain drain_ = nullptr;
  void* context_ = nullptr;
};

/// Formats into a sink. The list is advanced past the arguments that the format takes.
void format_text(TextSink& out, const char* format, SysvVaList& arguments);

/// Formats into `size` bytes: at most size - 1 characters and a NUL, nothing when size is 0 (buffer may then be null).
/// Returns the length of the complete text, which may exceed an int.
std::uint64_t format_text(char* buffer, std::uint64_t size, const char* format, SysvVaList& arguments);

/// The text of an object for %@: "(null)" for null. Valid until the next call on the same thread. The Objective-C
/// runtime defines it.
const char* objc_object_cstring(void* object);

}  // namespace vlm
