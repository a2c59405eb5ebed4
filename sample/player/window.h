// The player's window: the playing field with what the game drew in this frame.
#pragma once

#include <cstdint>
#include <string>

struct Box {
  int x, y, width, height;
  std::uint32_t color;  // 0xRRGGBB
  std::wstring label;
};

inline constexpr int field_width = 640, field_height = 360;

void open_window();

/// Begins a new picture.
void clear_picture();
void show_box(Box box);
/// Puts the picture on the screen.
void present();

/// Answers what Windows asks of the window until `milliseconds` have passed; false once the user has closed it.
bool pump_messages_for(unsigned milliseconds);

std::wstring window_title();

/// The space bar, pressed for whatever window has the focus while this lives. Not pressed when that is not ours.
class HeldSpaceBar {
 public:
  HeldSpaceBar();
  ~HeldSpaceBar();
  HeldSpaceBar(const HeldSpaceBar&) = delete;
  bool is_ours() const;  ///< pressed, and the focus is still ours

 private:
  bool pressed_;
};
