// What a controller's report or XInput's record becomes in the fields that the game reads.
#include <doctest/doctest.h>

#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "input/pad_mapping.h"

using namespace vlm;
using State = ControllerState;

TEST_CASE("a report is read by the layout of its device, ID and size, or not at all") {
  using enum PadKind;
  static constexpr struct {
    PadKind kind;
    std::uint8_t id;
    std::size_t size;
    std::uint8_t start;     // of the left stick's X; 0: the report is none with input
    std::uint8_t triggers;  // from there
    std::uint8_t buttons;   //
  } cases[] = {{dualshock4, 0x01, 9, 0, 0, 0},  {dualshock4, 0x01, 10, 1, 7, 4}, {dualshock4, 0x01, 600, 1, 7, 4},
               {dualshock4, 0x11, 11, 0, 0, 0}, {dualshock4, 0x11, 12, 3, 7, 4}, {dualshock4, 0x11, 78, 3, 7, 4},
               {dualshock4, 0x31, 78, 0, 0, 0}, {dualsense, 0x01, 9, 0, 0, 0},   {dualsense, 0x01, 10, 1, 7, 4},
               {dualsense, 0x01, 63, 1, 7, 4},  {dualsense, 0x01, 64, 1, 4, 7},  {dualsense, 0x01, 65, 1, 7, 4},
               {dualsense, 0x01, 78, 1, 7, 4},  {dualsense, 0x31, 63, 0, 0, 0},  {dualsense, 0x31, 64, 2, 4, 7},
               {dualsense, 0x31, 78, 2, 4, 7},  {dualsense, 0x11, 78, 0, 0, 0},  {dualsense, 0x01, 0, 0, 0, 0},
               {none, 0x01, 64, 0, 0, 0}};
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    // Byte i is 0x80 + i, so that each field names its place.
    std::vector<std::byte> report(c.size);
    for (std::size_t i = 0; i < c.size; ++i) report[i] = static_cast<std::byte>(0x80 + i);
    if (c.size > 0) report[0] = static_cast<std::byte>(c.id);
    const auto at = [&](int offset) { return static_cast<std::uint8_t>(0x80 + c.start + offset); };
    const PadInput expected{at(0),
                            at(1),
                            at(2),
                            at(3),
                            at(c.triggers),
                            at(c.triggers + 1),
                            at(c.buttons),
                            at(c.buttons + 1),
                            at(c.buttons + 2)};
    const auto input = read_hid_report(c.kind, report);
    REQUIRE_EQ(input.has_value(), c.start != 0);
    CHECK((!input || *input == expected));
  }
}

TEST_CASE("each input of a Sony controller has its field") {
  const auto mapped = [](std::uint8_t PadInput::* byte, int value) {
    PadInput input{128, 128, 128, 128, 0, 0, 8, 0, 0};
    input.*byte = static_cast<std::uint8_t>(value);
    State state{};
    map_sony_pad(input, state);
    return state;
  };
  const auto is_cleared = [](const State& state) {
    const State cleared{};
    return std::memcmp(&state, &cleared, sizeof state) == 0;
  };
  static constexpr std::uint8_t PadInput::* bytes[] = {&PadInput::buttons0, &PadInput::buttons1, &PadInput::buttons2};
  static constexpr float State::* fields[][8] = {
      // by bit; of the first byte the low four are the hat
      {nullptr, nullptr, nullptr, nullptr, &State::buttonX, &State::buttonA, &State::buttonB, &State::buttonY},
      {&State::leftShoulder, &State::rightShoulder, nullptr, nullptr, &State::buttonOptions, &State::buttonMenu,
       &State::leftThumbstickButton, &State::rightThumbstickButton},
      {&State::buttonHome, &State::touchpadButton}};
  for (int i = 0; i < 24; ++i) {
    State state = mapped(bytes[i / 8], (i < 8 ? 8 : 0) | 1 << i % 8);
    if (const auto field = fields[i / 8][i % 8]) CHECK_EQ(std::exchange(state.*field, 0), 1);
    CHECK(is_cleared(state));
  }
  static constexpr int directions[][2] = {{0, 1}, {1, 1}, {1, 0}, {1, -1}, {0, -1}, {-1, -1}, {-1, 0}, {-1, 1}};
  for (int hat = 0; hat < 16; ++hat) {
    const State state = mapped(&PadInput::buttons0, hat);
    CHECK((hat < 8 ? state.dpadX == directions[hat][0] && state.dpadY == directions[hat][1] : is_cleared(state)));
  }
  CHECK_EQ(mapped(&PadInput::leftTrigger, 21).leftTrigger, 21 / 255.0f);
  CHECK_EQ(mapped(&PadInput::rightTrigger, 255).rightTrigger, 1);
  CHECK_EQ(mapped(&PadInput::leftX, 0).leftThumbstickX, -1);
  CHECK_EQ(mapped(&PadInput::leftY, 255).leftThumbstickY, -1);
  CHECK_EQ(mapped(&PadInput::rightX, 143).rightThumbstickX, 15.5f / 127.5f);
  CHECK_EQ(mapped(&PadInput::rightY, 112).rightThumbstickY, 15.5f / 127.5f);
  CHECK((is_cleared(mapped(&PadInput::leftX, 142)) && is_cleared(mapped(&PadInput::rightX, 113))));
  CHECK(is_cleared(mapped(&PadInput::leftTrigger, 20)));
}

TEST_CASE("XInput's sticks begin at the edge of a round dead zone") {
  static constexpr struct {
    std::int16_t x, y;
    float left_x, left_y, right_x, right_y;
  } cases[] = {{7849, 0, 0, 0, 0, 0},
               {7850, 0, 1 / 24918.0f, 0, 0, 0},
               {0, -8690, 0, -841 / 24918.0f, 0, -1 / 24078.0f},
               {5550, 5550, 0, 0, 0, 0},  // each axis and both together below
               {20000, 0, 12151 / 24918.0f, 0, 11311 / 24078.0f, 0},
               {0, -32768, 0, -1, 0, -1}};
  const auto mapped = [](std::int16_t x, std::int16_t y) {
    State state{};
    map_xinput_pad({0, 30, 31, x, y, x, y}, state);
    return state;
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    const State state = mapped(c.x, c.y);
    CHECK((state.leftThumbstickX == c.left_x && state.leftThumbstickY == c.left_y));
    CHECK((state.rightThumbstickX == c.right_x && state.rightThumbstickY == c.right_y));
    CHECK((state.leftTrigger == 0 && state.rightTrigger == 31 / 255.0f));
  }
  // Beyond the reach of an axis the length stays 1 and the direction as it is.
  CHECK_EQ(mapped(-32768, 32767).leftThumbstickX, doctest::Approx(-std::sqrt(0.5)).epsilon(1e-4));
  CHECK_EQ(mapped(-32768, 32767).leftThumbstickY, doctest::Approx(std::sqrt(0.5)).epsilon(1e-4));
}
