// Controllers without hardware: a library in the place of Windows' XInput whose controllers a test sets. It exports
// `stand_in_pads`, four of these.
#pragma once

#include <stdint.h>

struct StandInPad {
  uint32_t connected;
  uint32_t calls;  // of XInputGetState on the game's thread
  // XINPUT_GAMEPAD
  uint16_t buttons;
  uint8_t left_trigger, right_trigger;
  int16_t left_x, left_y, right_x, right_y;
};
