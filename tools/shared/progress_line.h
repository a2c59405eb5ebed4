// A line of progress on the terminal, once something turns out to take a while; nothing in scripts.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

#include "shared/console.h"

namespace vlm::tools {

class ProgressLine {
 public:
  explicit ProgressLine(const char* program) : program_(program) {}
  ~ProgressLine() {
    if (shown_) std::fputs("\r\x1b[K", stderr);
  }
  /// So many bytes of code are done, of so many.
  void operator()(std::uint64_t done, std::uint64_t total) {
    const auto now = std::chrono::steady_clock::now();
    if (!on_terminal_ || now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    shown_ = true;
    std::fprintf(stderr, "\r%s: %llu of %llu MB of code", program_, static_cast<unsigned long long>(done / 1'000'000),
                 static_cast<unsigned long long>(total / 1'000'000));
  }

 private:
  const char* program_;
  bool on_terminal_ = is_terminal(stderr);
  bool shown_ = false;
  std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + std::chrono::seconds(1);
};

}  // namespace vlm::tools
