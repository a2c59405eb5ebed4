// A bar of progress on the terminal, once something turns out to take a while; nothing in scripts.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

#include "shared/console.h"

namespace vlm::tools {

class ProgressLine {
 public:
  /// `what` is being done.
  explicit ProgressLine(const char* what) : what_(what) {}
  ProgressLine(const ProgressLine& other) : what_(other.what_), next_(other.next_) {}
  ~ProgressLine() {
    if (shown_) std::fputs("\r\x1b[K", stderr);
  }
  /// So many bytes of code are done, of so many.
  void operator()(std::uint64_t done, std::uint64_t total) {
    const auto now = std::chrono::steady_clock::now();
    if (!on_terminal_ || now < next_ || total == 0) return;
    next_ = now + std::chrono::milliseconds(100);
    shown_ = true;
    constexpr int width = 30;
    char bar[width + 1] = {};
    for (int i = 0; i < width; ++i) bar[i] = done * width / total > static_cast<unsigned>(i) ? '#' : '.';
    std::fprintf(stderr, "\r%s: [%s] %llu of %llu MB of code", what_, bar,
                 static_cast<unsigned long long>(done / 1'000'000), static_cast<unsigned long long>(total / 1'000'000));
  }

 private:
  const char* what_;
  bool on_terminal_ = is_terminal(stderr);
  bool shown_ = false;
  std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
};

}  // namespace vlm::tools
