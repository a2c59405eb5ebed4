// The control word of the x87, whose precision the two systems set differently: `long double` computes with all of its
// 64 bits on macOS, with 53 on Windows.
#pragma once

#include <cstdint>

#include "tls/game_tls.h"

namespace vlm {

inline constexpr std::uint16_t macos_x87_control_word = 0x037F;
inline constexpr std::uint16_t windows_x87_control_word = 0x027F;

inline std::uint16_t x87_control_word() {
  std::uint16_t word;
  asm volatile("fnstcw %0" : "=m"(word));
  return word;
}
inline void set_x87_control_word(std::uint16_t word) { asm volatile("fldcw %0" : : "m"(word)); }

/// While it lives, Windows code runs on this thread: on one that the game made, it finds Windows' control word.
class WindowsX87 {
 public:
  WindowsX87() : before_(x87_control_word()) {
    if (before_ == windows_x87_control_word) [[likely]]
      return;
    const ThreadRecord* const record = game_tls_get();
    changed_ = record != nullptr && record->running == 0;
    if (changed_) set_x87_control_word(windows_x87_control_word);
  }
  ~WindowsX87() {
    if (changed_) set_x87_control_word(before_);
  }
  WindowsX87(const WindowsX87&) = delete;
  WindowsX87& operator=(const WindowsX87&) = delete;

 private:
  std::uint16_t before_;
  bool changed_ = false;
};

}  // namespace vlm
