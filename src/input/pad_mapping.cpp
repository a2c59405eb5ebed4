#include "input/pad_mapping.h"

#include <algorithm>
#include <cmath>

namespace vlm {
namespace {

/// Which bit of a button byte or mask is which field.
template <class Mask>
struct ButtonBit {
  Mask bit;
  float ControllerState::* field;
};

template <class Mask, std::size_t Count>
void map_buttons(Mask mask, const ButtonBit<Mask> (&buttons)[Count], ControllerState& state) {
  for (const auto& button : buttons) state.*button.field = (mask & button.bit) != 0 ? 1.0f : 0.0f;
}

/// Released below a threshold.
float trigger(std::uint8_t value, std::uint8_t threshold) {
  return value >= threshold ? static_cast<float>(value) / 255.0f : 0.0f;
}

// ---- Sony -----------------------------------------------------------------------------------------------------------

constexpr ButtonBit<std::uint8_t> sony_buttons0[] = {{PadInput::square, &ControllerState::buttonX},
                                                     {PadInput::cross, &ControllerState::buttonA},
                                                     {PadInput::circle, &ControllerState::buttonB},
                                                     {PadInput::triangle, &ControllerState::buttonY}};
constexpr ButtonBit<std::uint8_t> sony_buttons1[] = {
    {PadInput::l1, &ControllerState::leftShoulder},         {PadInput::r1, &ControllerState::rightShoulder},
    {PadInput::share, &ControllerState::buttonOptions},     {PadInput::options, &ControllerState::buttonMenu},
    {PadInput::l3, &ControllerState::leftThumbstickButton}, {PadInput::r3, &ControllerState::rightThumbstickButton}};
constexpr ButtonBit<std::uint8_t> sony_buttons2[] = {{PadInput::ps, &ControllerState::buttonHome},
                                                     {PadInput::touchpad, &ControllerState::touchpadButton}};

constexpr std::uint8_t sony_trigger_threshold = 21;

/// Each axis has a dead zone of its own.
float sony_axis(float from_center) {
  constexpr float dead_zone = 0.12f;
  const float value = from_center / 127.5f;
  return std::fabs(value) < dead_zone ? 0.0f : value;
}
float sony_right(std::uint8_t x) { return sony_axis(static_cast<float>(x) - 127.5f); }
float sony_up(std::uint8_t y) { return sony_axis(127.5f - static_cast<float>(y)); }

/// Clockwise from north.
constexpr struct {
  float x, y;
} hat_directions[] = {{0, 1}, {1, 1}, {1, 0}, {1, -1}, {0, -1}, {-1, -1}, {-1, 0}, {-1, 1}};

// ---- XInput ---------------------------------------------------------------------------------------------------------

constexpr ButtonBit<std::uint16_t> xinput_buttons[] = {{0x0010, &ControllerState::buttonMenu},     // start
                                                       {0x0020, &ControllerState::buttonOptions},  // back
                                                       {0x0040, &ControllerState::leftThumbstickButton},
                                                       {0x0080, &ControllerState::rightThumbstickButton},
                                                       {0x0100, &ControllerState::leftShoulder},
                                                       {0x0200, &ControllerState::rightShoulder},
                                                       {0x1000, &ControllerState::buttonA},
                                                       {0x2000, &ControllerState::buttonB},
                                                       {0x4000, &ControllerState::buttonX},
                                                       {0x8000, &ControllerState::buttonY}};
constexpr std::uint16_t dpad_up = 0x0001, dpad_down = 0x0002, dpad_left = 0x0004, dpad_right = 0x0008;

constexpr std::uint8_t xinput_trigger_threshold = 31;
constexpr float left_dead_zone = 7849, right_dead_zone = 8689;  // radii

/// The direction as it is; the length grows from 0 at the dead zone's edge to 1 at the end of an axis.
void map_stick(std::int16_t raw_x, std::int16_t raw_y, float dead_zone, float& x, float& y) {
  const float across = raw_x, upward = raw_y;
  const float length = std::sqrt(across * across + upward * upward);
  if (length < dead_zone) return;
  const float wanted = std::min(1.0f, (length - dead_zone) / (32767.0f - dead_zone));
  x = across / length * wanted;
  y = upward / length * wanted;
}

}  // namespace

void map_sony_pad(const PadInput& input, ControllerState& state) {
  map_buttons(input.buttons0, sony_buttons0, state);
  map_buttons(input.buttons1, sony_buttons1, state);
  map_buttons(input.buttons2, sony_buttons2, state);
  state.leftTrigger = trigger(input.leftTrigger, sony_trigger_threshold);
  state.rightTrigger = trigger(input.rightTrigger, sony_trigger_threshold);
  state.leftThumbstickX = sony_right(input.leftX);
  state.leftThumbstickY = sony_up(input.leftY);
  state.rightThumbstickX = sony_right(input.rightX);
  state.rightThumbstickY = sony_up(input.rightY);
  if (const unsigned hat = input.buttons0 & 0x0F; hat < std::size(hat_directions)) {
    state.dpadX = hat_directions[hat].x;
    state.dpadY = hat_directions[hat].y;
  }
}

void map_xinput_pad(const XInputGamepad& pad, ControllerState& state) {
  map_buttons(pad.wButtons, xinput_buttons, state);
  state.leftTrigger = trigger(pad.bLeftTrigger, xinput_trigger_threshold);
  state.rightTrigger = trigger(pad.bRightTrigger, xinput_trigger_threshold);
  const auto axis = [&](std::uint16_t positive, std::uint16_t negative) {
    return static_cast<float>(((pad.wButtons & positive) != 0) - ((pad.wButtons & negative) != 0));
  };
  state.dpadX = axis(dpad_right, dpad_left);
  state.dpadY = axis(dpad_up, dpad_down);
  map_stick(pad.sThumbLX, pad.sThumbLY, left_dead_zone, state.leftThumbstickX, state.leftThumbstickY);
  map_stick(pad.sThumbRX, pad.sThumbRY, right_dead_zone, state.rightThumbstickX, state.rightThumbstickY);
}

}  // namespace vlm
