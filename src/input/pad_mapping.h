// One picture of all controllers: what an XInput or a Sony controller says, in the fields of ControllerState.
#pragma once

#include "input/controller_records.h"
#include "input/hid_reports.h"

namespace vlm {

/// XINPUT_GAMEPAD, <xinput.h>.
struct XInputGamepad {
  std::uint16_t wButtons;
  std::uint8_t bLeftTrigger;  // 0 to 255
  std::uint8_t bRightTrigger;
  std::int16_t sThumbLX;  // -32768 to 32767, up positive
  std::int16_t sThumbLY;
  std::int16_t sThumbRX;
  std::int16_t sThumbRY;
};
static_assert(sizeof(XInputGamepad) == 12);

/// Both fill the inputs of a cleared state.
void map_sony_pad(const PadInput& input, ControllerState& state);
void map_xinput_pad(const XInputGamepad& pad, ControllerState& state);

}  // namespace vlm
