// What a controller's report, XInput's record or a key that is pressed becomes in the fields that the game reads.
#include <windows.h>
#include <doctest/doctest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "input/keyboard.h"
#include "input/pad_mapping.h"

using namespace vlm;
using State = ControllerState;

TEST_CASE("a report is read by the layout of its device, ID and size, or not at all") {
  using enum PadKind;
  static constexpr struct {
    PadKind kind;
    std::uint8_t id;
    std::size_t size;
    std::uint8_t start;              // of the left stick's X; 0: the report is none with input
    std::uint8_t triggers, buttons;  // from there
  } cases[] = {{dualshock4, 0x01, 9, 0, 0, 0},  {dualshock4, 0x01, 10, 1, 7, 4}, {dualshock4, 0x11, 11, 0, 0, 0},
               {dualshock4, 0x11, 12, 3, 7, 4}, {dualshock4, 0x31, 78, 0, 0, 0}, {dualsense, 0x01, 9, 0, 0, 0},
               {dualsense, 0x01, 63, 1, 7, 4},  {dualsense, 0x01, 64, 1, 4, 7},  {dualsense, 0x01, 65, 1, 7, 4},
               {dualsense, 0x31, 63, 0, 0, 0},  {dualsense, 0x31, 64, 2, 4, 7},  {dualsense, 0x31, 600, 2, 4, 7},
               {dualsense, 0x11, 78, 0, 0, 0},  {none, 0x01, 64, 0, 0, 0}};
  for (const auto& [kind, id, size, start, triggers, buttons] : cases) {
    CAPTURE(size);
    // Byte i is 0x80 + i, so that each field names its place.
    std::vector<std::byte> report(size);
    for (std::size_t i = 0; i < size; ++i) report[i] = static_cast<std::byte>(0x80 + i);
    report[0] = static_cast<std::byte>(id);
    std::array<std::uint8_t, 9> places{0, 1, 2, 3, triggers, triggers, buttons, buttons, buttons};
    ++places[5], ++places[7], places[8] += 2;
    for (auto& place : places) place += 0x80 + start;
    const auto input = read_hid_report(kind, report);
    REQUIRE_EQ(input.has_value(), start != 0);
    CHECK((!input || *input == std::bit_cast<PadInput>(places)));
  }
}

TEST_CASE("each input of a Sony controller has its field, and no other changes") {
  // By place: a byte of PadInput, its value, an input of ControllerState, what it becomes in 255ths.
  static constexpr int cases[][4] = {{6, 0x18, 6, 255},  {6, 0x28, 3, 255},  {6, 0x48, 4, 255},  {6, 0x88, 5, 255},
                                     {7, 0x01, 9, 255},  {7, 0x02, 7, 255},  {7, 0x0C, 0, 0},    {7, 0x10, 2, 255},
                                     {7, 0x20, 1, 255},  {7, 0x40, 15, 255}, {7, 0x80, 18, 255}, {8, 0x01, 0, 255},
                                     {8, 0x02, 19, 255}, {8, 0xFC, 0, 0},    {4, 20, 10, 0},     {4, 21, 10, 21},
                                     {5, 255, 8, 255},   {0, 0, 13, -255},   {0, 142, 13, 0},    {1, 255, 14, -255},
                                     {2, 143, 16, 31},   {3, 112, 17, 31},   {6, 0, 12, 255},    {6, 2, 11, 255},
                                     {6, 4, 12, -255},   {6, 6, 11, -255},   {6, 8, 0, 0},       {6, 15, 0, 0}};
  using Inputs = std::array<float, 20>;
  const auto inputs_with = [](int byte, int value) {
    std::array<std::uint8_t, 9> bytes{128, 128, 128, 128, 0, 0, 8, 0, 0};
    bytes[static_cast<std::size_t>(byte)] = static_cast<std::uint8_t>(value);
    State state{};
    map_sony_pad(std::bit_cast<PadInput>(bytes), state);
    Inputs inputs;
    std::copy_n(&state.buttonHome, inputs.size(), inputs.begin());
    return inputs;
  };
  for (const auto& [byte, value, input, expected] : cases) {
    CAPTURE(byte * 1000 + value);
    Inputs all{};
    all[static_cast<std::size_t>(input)] = static_cast<float>(expected) / 255;
    CHECK((inputs_with(byte, value) == all));
  }
  for (const int hat : {1, 3, 5, 7}) {  // between two directions
    const Inputs all = inputs_with(6, hat), next = inputs_with(6, (hat + 1) % 8), before = inputs_with(6, hat - 1);
    CHECK((all[11] == next[11] + before[11] && all[12] == next[12] + before[12]));
  }
}

TEST_CASE("XInput's sticks begin at the edge of a round dead zone and end with it") {
  using Axes = std::array<float, 4>;
  const auto axes = [](std::int16_t left_x, std::int16_t left_y, std::int16_t right_x, std::int16_t right_y) {
    State state{};
    map_xinput_pad({0, 0, 0, left_x, left_y, right_x, right_y}, state);
    return Axes{state.leftThumbstickX, state.leftThumbstickY, state.rightThumbstickX, state.rightThumbstickY};
  };
  CHECK((axes(7850, 0, 0, -8690) == Axes{1 / 24918.0f, 0, 0, -1 / 24078.0f}));
  CHECK((axes(5550, 5550, 6144, 6144) == Axes{}));  // each axis and both together below
  for (const float axis : axes(32767, 32767, 32767, 32767)) CHECK_EQ(axis, doctest::Approx(0.70711).epsilon(1e-5));
}

namespace {

constexpr int input_count = 20;  // of a state, buttonHome the first of them

void press(const std::vector<BYTE>& keys, DWORD flags) {
  for (const BYTE key : keys) keybd_event(key, 0, flags, 0);
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}

/// Whether this is all that the keyboard says with these keys held. Pressed again until it is or patience ends: a
/// screen that has just given a window the focus lets go of keys that nobody's finger is on.
bool says_with(const std::vector<BYTE>& keys, int input, float value) {
  for (int tries = 0; tries < 100; ++tries, Sleep(10)) {
    ControllerState state{};
    press(keys, 0);
    read_keyboard(state);
    press(keys, KEYEVENTF_KEYUP);
    bool only = true;
    for (int i = 0; i < input_count; ++i) only = only && (&state.buttonHome)[i] == (i == input ? value : 0);
    if (only) return true;
  }
  return false;
}

constexpr BYTE keys[input_count] = {0,   VK_ESCAPE, VK_TAB, VK_SPACE, VK_LSHIFT, 'Q',         'E', '3', 'C', '1',
                                    'Z', VK_RIGHT,  VK_UP,  'D',      'W',       VK_LCONTROL, 'L', 'I', 'R'};
constexpr BYTE others[input_count] = {0, 0, 0,       VK_RETURN, VK_BACK, 0,   0, 0,   0,
                                      0, 0, VK_LEFT, VK_DOWN,   'A',     'S', 0, 'J', 'K'};

}  // namespace

TEST_CASE("keys count while the game has the focus") {
  ControllerState without_focus{};
  press({VK_SPACE}, 0);
  read_keyboard(without_focus);
  press({VK_SPACE}, KEYEVENTF_KEYUP);
  CHECK_EQ(without_focus.buttonA, 0);  // no window of this process is in front
  const HWND window = CreateWindowExW(0, L"STATIC", L"keys", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 100, 100,
                                      nullptr, nullptr, nullptr, nullptr);
  SetForegroundWindow(window);
  press({}, 0);
  REQUIRE_EQ(GetForegroundWindow(), window);
  CHECK(says_with({}, 0, 0));
  for (int i = 0; i < input_count; ++i) {
    CAPTURE(i);
    if (keys[i] != 0) CHECK(says_with({keys[i]}, i, 1));
    if (others[i] != 0) CHECK(says_with({others[i]}, i, i > 10 ? -1 : 1));  // an axis is pulled back
  }
  CHECK(says_with({VK_SPACE, VK_RETURN, 'W', 'S'}, 3, 1));
  DestroyWindow(window);
}
