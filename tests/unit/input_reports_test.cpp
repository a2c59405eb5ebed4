// What a controller's report or XInput's record becomes in the fields that the game reads.
#include <doctest/doctest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "input/pad_mapping.h"

using namespace vlm;

namespace {

/// Byte i of a report is 0x80 + i, so that each field names its place.
std::vector<std::byte> numbered_report(std::uint8_t id, std::size_t size) {
  std::vector<std::byte> report(size);
  for (std::size_t i = 0; i < size; ++i) report[i] = static_cast<std::byte>(0x80 + i);
  if (size > 0) report[0] = static_cast<std::byte>(id);
  return report;
}

PadInput at_rest() { return {128, 128, 128, 128, 0, 0, 8, 0, 0}; }

ControllerState sony(const PadInput& input) {
  ControllerState state{};
  map_sony_pad(input, state);
  return state;
}
ControllerState xinput(const XInputGamepad& pad) {
  ControllerState state{};
  map_xinput_pad(pad, state);
  return state;
}

bool released(const ControllerState& state) {
  const ControllerState cleared{};
  return std::memcmp(&state, &cleared, sizeof state) == 0;
}

}  // namespace

TEST_CASE("a report is read by the layout of its device, ID and size, or not at all") {
  using enum PadKind;
  static constexpr struct {
    PadKind kind;
    std::uint8_t id;
    std::size_t size;
    std::uint8_t start;     // of the left stick's X; 0: the report is none with input
    std::uint8_t triggers;  // from there
    std::uint8_t buttons;   //
  } cases[] = {
      {dualshock4, 0x01, 9, 0, 0, 0},   {dualshock4, 0x01, 10, 1, 7, 4}, {dualshock4, 0x01, 64, 1, 7, 4},
      {dualshock4, 0x01, 600, 1, 7, 4}, {dualshock4, 0x11, 11, 0, 0, 0}, {dualshock4, 0x11, 12, 3, 7, 4},
      {dualshock4, 0x11, 78, 3, 7, 4},  {dualshock4, 0x31, 78, 0, 0, 0}, {dualshock4, 0x00, 64, 0, 0, 0},
      {dualsense, 0x01, 9, 0, 0, 0},    {dualsense, 0x01, 10, 1, 7, 4},  {dualsense, 0x01, 63, 1, 7, 4},
      {dualsense, 0x01, 64, 1, 4, 7},   {dualsense, 0x01, 600, 1, 4, 7}, {dualsense, 0x31, 63, 0, 0, 0},
      {dualsense, 0x31, 64, 2, 4, 7},   {dualsense, 0x31, 78, 2, 4, 7},  {dualsense, 0x11, 78, 0, 0, 0},
      {dualsense, 0x01, 0, 0, 0, 0},    {none, 0x01, 64, 0, 0, 0},
  };
  for (const auto& c : cases) {
    CAPTURE(static_cast<int>(c.kind));
    CAPTURE(c.id);
    CAPTURE(c.size);
    const auto input = read_hid_report(c.kind, numbered_report(c.id, c.size));
    REQUIRE_EQ(input.has_value(), c.start != 0);
    if (!input) continue;
    const auto at = [&](int offset) { return static_cast<std::uint8_t>(0x80 + c.start + offset); };
    const PadInput expected = {at(0),
                               at(1),
                               at(2),
                               at(3),
                               at(c.triggers),
                               at(c.triggers + 1),
                               at(c.buttons),
                               at(c.buttons + 1),
                               at(c.buttons + 2)};
    CHECK((*input == expected));
  }
}

TEST_CASE("each input of a Sony controller has its field") {
  static constexpr struct {
    std::uint8_t PadInput::* byte;
    std::uint8_t value;
    float ControllerState::* field;
    float expected;
  } cases[] = {
      {&PadInput::buttons0, 0x18, &ControllerState::buttonX, 1},
      {&PadInput::buttons0, 0x28, &ControllerState::buttonA, 1},
      {&PadInput::buttons0, 0x48, &ControllerState::buttonB, 1},
      {&PadInput::buttons0, 0x88, &ControllerState::buttonY, 1},
      {&PadInput::buttons0, 0x00, &ControllerState::dpadY, 1},
      {&PadInput::buttons0, 0x02, &ControllerState::dpadX, 1},
      {&PadInput::buttons0, 0x04, &ControllerState::dpadY, -1},
      {&PadInput::buttons0, 0x06, &ControllerState::dpadX, -1},
      {&PadInput::buttons1, 0x01, &ControllerState::leftShoulder, 1},
      {&PadInput::buttons1, 0x02, &ControllerState::rightShoulder, 1},
      {&PadInput::buttons1, 0x10, &ControllerState::buttonOptions, 1},
      {&PadInput::buttons1, 0x20, &ControllerState::buttonMenu, 1},
      {&PadInput::buttons1, 0x40, &ControllerState::leftThumbstickButton, 1},
      {&PadInput::buttons1, 0x80, &ControllerState::rightThumbstickButton, 1},
      {&PadInput::buttons2, 0x01, &ControllerState::buttonHome, 1},
      {&PadInput::buttons2, 0x02, &ControllerState::touchpadButton, 1},
      {&PadInput::leftTrigger, 21, &ControllerState::leftTrigger, 21 / 255.0f},
      {&PadInput::rightTrigger, 255, &ControllerState::rightTrigger, 1},
      {&PadInput::leftX, 0, &ControllerState::leftThumbstickX, -1},
      {&PadInput::leftY, 0, &ControllerState::leftThumbstickY, 1},
      {&PadInput::leftY, 255, &ControllerState::leftThumbstickY, -1},
      {&PadInput::rightX, 143, &ControllerState::rightThumbstickX, 15.5f / 127.5f},
      {&PadInput::rightY, 112, &ControllerState::rightThumbstickY, 15.5f / 127.5f},
      // Nothing: the edges of the dead zones and the bits that stand for no input.
      {&PadInput::leftX, 142, nullptr, 0},
      {&PadInput::rightX, 113, nullptr, 0},
      {&PadInput::leftY, 142, nullptr, 0},
      {&PadInput::leftTrigger, 20, nullptr, 0},
      {&PadInput::buttons0, 0x0F, nullptr, 0},
      {&PadInput::buttons1, 0x0C, nullptr, 0},  // the triggers' own bits
      {&PadInput::buttons2, 0xFC, nullptr, 0},
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    PadInput input = at_rest();
    input.*c.byte = c.value;
    ControllerState state = sony(input);
    if (c.field != nullptr) {
      CHECK_EQ(state.*c.field, c.expected);
      state.*c.field = 0;
    }
    CHECK(released(state));
  }
  PadInput diagonal = at_rest();
  static constexpr struct {
    std::uint8_t hat;
    float x, y;
  } diagonals[] = {{1, 1, 1}, {3, 1, -1}, {5, -1, -1}, {7, -1, 1}};
  for (const auto& c : diagonals) {
    diagonal.buttons0 = c.hat;
    CHECK_EQ(sony(diagonal).dpadX, c.x);
    CHECK_EQ(sony(diagonal).dpadY, c.y);
  }
}

TEST_CASE("XInput's sticks begin at the edge of a round dead zone") {
  static constexpr struct {
    std::int16_t x, y;
    float left_x, left_y, right_x, right_y;
  } cases[] = {
      {7848, 0, 0, 0, 0, 0},
      {7849, 0, 0, 0, 0, 0},
      {7850, 0, 1 / 24918.0f, 0, 0, 0},
      {0, -8689, 0, -840 / 24918.0f, 0, 0},
      {0, -8690, 0, -841 / 24918.0f, 0, -1 / 24078.0f},
      {5550, 5550, 0, 0, 0, 0},  // each axis and both together below
      {20000, 0, 12151 / 24918.0f, 0, 11311 / 24078.0f, 0},
      {32767, 0, 1, 0, 1, 0},
      {0, -32768, 0, -1, 0, -1},
  };
  for (const auto& c : cases) {
    CAPTURE(c.x);
    CAPTURE(c.y);
    const ControllerState state = xinput({0, 30, 31, c.x, c.y, c.x, c.y});
    CHECK_EQ(state.leftThumbstickX, c.left_x);
    CHECK_EQ(state.leftThumbstickY, c.left_y);
    CHECK_EQ(state.rightThumbstickX, c.right_x);
    CHECK_EQ(state.rightThumbstickY, c.right_y);
    CHECK_EQ(state.leftTrigger, 0);
    CHECK_EQ(state.rightTrigger, 31 / 255.0f);
  }
  // Beyond the reach of an axis the length stays 1 and the direction as it is.
  const ControllerState corner = xinput({0, 0, 0, -32768, 32767, 0, 0});
  CHECK_EQ(corner.leftThumbstickX, doctest::Approx(-std::sqrt(0.5)).epsilon(1e-4));
  CHECK_EQ(corner.leftThumbstickY, doctest::Approx(std::sqrt(0.5)).epsilon(1e-4));
}
