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
  using In = PadInput;
  static constexpr struct {
    std::uint8_t In::* byte;
    std::uint8_t value;
    float State::* field;
    float expected;
  } cases[] = {{&In::buttons0, 0x18, &State::buttonX, 1},
               {&In::buttons0, 0x28, &State::buttonA, 1},
               {&In::buttons0, 0x48, &State::buttonB, 1},
               {&In::buttons0, 0x88, &State::buttonY, 1},
               {&In::buttons0, 0x00, &State::dpadY, 1},
               {&In::buttons0, 0x06, &State::dpadX, -1},
               {&In::buttons1, 0x01, &State::leftShoulder, 1},
               {&In::buttons1, 0x02, &State::rightShoulder, 1},
               {&In::buttons1, 0x10, &State::buttonOptions, 1},
               {&In::buttons1, 0x20, &State::buttonMenu, 1},
               {&In::buttons1, 0x40, &State::leftThumbstickButton, 1},
               {&In::buttons1, 0x80, &State::rightThumbstickButton, 1},
               {&In::buttons2, 0x01, &State::buttonHome, 1},
               {&In::buttons2, 0x02, &State::touchpadButton, 1},
               {&In::leftTrigger, 21, &State::leftTrigger, 21 / 255.0f},
               {&In::rightTrigger, 255, &State::rightTrigger, 1},
               {&In::leftX, 0, &State::leftThumbstickX, -1},
               {&In::leftY, 255, &State::leftThumbstickY, -1},
               {&In::rightX, 143, &State::rightThumbstickX, 15.5f / 127.5f},
               {&In::rightY, 112, &State::rightThumbstickY, 15.5f / 127.5f},
               // Nothing: the edges of the dead zones and the bits that stand for no input.
               {&In::leftX, 142, nullptr, 0},
               {&In::rightX, 113, nullptr, 0},
               {&In::leftTrigger, 20, nullptr, 0},
               {&In::buttons0, 0x0F, nullptr, 0},
               {&In::buttons1, 0x0C, nullptr, 0},  // the triggers' own bits
               {&In::buttons2, 0xFC, nullptr, 0}};
  const auto mapped = [](std::uint8_t In::* byte, std::uint8_t value) {
    PadInput input{128, 128, 128, 128, 0, 0, 8, 0, 0};
    input.*byte = value;
    State state{};
    map_sony_pad(input, state);
    return state;
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    State state = mapped(c.byte, c.value);
    if (c.field != nullptr) CHECK_EQ(std::exchange(state.*c.field, 0), c.expected);
    const State cleared{};
    CHECK_EQ(std::memcmp(&state, &cleared, sizeof state), 0);
  }
  static constexpr int directions[][2] = {{0, 1}, {1, 1}, {1, 0}, {1, -1}, {0, -1}, {-1, -1}, {-1, 0}, {-1, 1}};
  for (std::uint8_t hat = 0; hat < 8; ++hat) {
    CHECK_EQ(mapped(&In::buttons0, hat).dpadX, directions[hat][0]);
    CHECK_EQ(mapped(&In::buttons0, hat).dpadY, directions[hat][1]);
  }
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
