// A line of text under construction, on the C library's formatting.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <string.h>

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
  Text& operator<<(uint64_t number) { return print("%llu", number); }
  Text& operator<<(int64_t number) { return print("%lld", number); }
  Text& operator<<(int32_t number) { return print("%d", number); }
  Text& operator<<(uint32_t number) { return print("%u", number); }
  Text& operator<<(float number) { return print("%.1f", static_cast<double>(number)); }

 private:
  template <class T>
  Text& print(const char* format, T value) {
    const size_t room = sizeof bytes_ - size_;
    const auto length = static_cast<size_t>(snprintf(bytes_ + size_, room, format, value));
    size_ += length < room ? length : room - 1;
    return *this;
  }

  char bytes_[512] = "";
  size_t size_ = 0;
};
