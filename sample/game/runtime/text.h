// A line of text under construction: all the formatting that the game needs.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "macos.h"

/// At most 511 bytes; what does not fit is cut.
class Text {
 public:
  const char* c_str() const { return bytes_; }
  size_t size() const { return size_; }

  Text& append(const char* text, size_t size) {
    const size_t room = sizeof bytes_ - 1 - size_;
    if (size > room) size = room;
    memcpy(bytes_ + size_, text, size);
    size_ += size;
    bytes_[size_] = 0;
    return *this;
  }
  Text& operator<<(const char* text) { return append(text, strlen(text)); }
  Text& operator<<(uint64_t number) {
    char digits[20];
    size_t first = sizeof digits;
    do {
      digits[--first] = static_cast<char>('0' + number % 10);
      number /= 10;
    } while (number != 0);
    return append(digits + first, sizeof digits - first);
  }
  Text& operator<<(int64_t number) {
    if (number >= 0) return *this << static_cast<uint64_t>(number);
    return *this << "-" << -static_cast<uint64_t>(number);
  }
  Text& operator<<(int32_t number) { return *this << static_cast<int64_t>(number); }
  Text& operator<<(uint32_t number) { return *this << static_cast<uint64_t>(number); }
  /// One digit after the point, rounded; for numbers of a playing field's size.
  Text& operator<<(float number) {
    const auto tenths = static_cast<int64_t>(number * 10 + (number < 0 ? -0.5f : 0.5f));
    const int64_t size = tenths < 0 ? -tenths : tenths;
    return *this << (tenths < 0 ? "-" : "") << size / 10 << "." << size % 10;
  }

 private:
  char bytes_[512] = "";
  size_t size_ = 0;
};
