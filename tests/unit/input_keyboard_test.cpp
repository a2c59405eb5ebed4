// Keys that are pressed for the window in front.
#include <windows.h>
#include <doctest/doctest.h>

#include <cstring>

#include "input/keyboard.h"

using namespace vlm;

namespace {

using State = ControllerState;

State keyboard() {
  State state{};
  read_keyboard(state);
  return state;
}
bool released(const State& state) {
  const State cleared{};
  return std::memcmp(&state, &cleared, sizeof state) == 0;
}

void press(std::initializer_list<int> keys, DWORD flags) {
  for (const int key : keys) keybd_event(static_cast<BYTE>(key), 0, flags, 0);
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}

/// What the keyboard says with these keys held. Pressed again until the field has the value or patience ends: a screen
/// that has just given a window the focus lets go of keys that nobody's finger is on.
State keyboard_with(std::initializer_list<int> keys, float State::* field, float value) {
  State state{};
  for (int tries = 0; tries < 100 && state.*field != value; ++tries) {
    if (tries > 0) Sleep(10);
    press(keys, 0);
    state = keyboard();
    press(keys, KEYEVENTF_KEYUP);
  }
  return state;
}

}  // namespace

TEST_CASE("keys count while the game has the focus") {
  press({VK_SPACE}, 0);
  CHECK(released(keyboard()));  // no window of this process is in front
  press({VK_SPACE}, KEYEVENTF_KEYUP);
  const HWND window = CreateWindowExW(0, L"STATIC", L"keys", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 100, 100,
                                      nullptr, nullptr, nullptr, nullptr);
  SetForegroundWindow(window);
  press({}, 0);
  REQUIRE_EQ(GetForegroundWindow(), window);
  CHECK(released(keyboard()));

  static constexpr struct {
    int key;
    float State::* field;
    float value;
  } cases[] = {{VK_ESCAPE, &State::buttonMenu, 1},
               {VK_TAB, &State::buttonOptions, 1},
               {VK_SPACE, &State::buttonA, 1},
               {VK_RETURN, &State::buttonA, 1},
               {VK_LSHIFT, &State::buttonB, 1},
               {VK_BACK, &State::buttonB, 1},
               {'Q', &State::buttonY, 1},
               {'E', &State::buttonX, 1},
               {'3', &State::rightShoulder, 1},
               {'C', &State::rightTrigger, 1},
               {'1', &State::leftShoulder, 1},
               {'Z', &State::leftTrigger, 1},
               {VK_RIGHT, &State::dpadX, 1},
               {VK_LEFT, &State::dpadX, -1},
               {VK_UP, &State::dpadY, 1},
               {VK_DOWN, &State::dpadY, -1},
               {'D', &State::leftThumbstickX, 1},
               {'A', &State::leftThumbstickX, -1},
               {'W', &State::leftThumbstickY, 1},
               {'S', &State::leftThumbstickY, -1},
               {VK_LCONTROL, &State::leftThumbstickButton, 1},
               {'L', &State::rightThumbstickX, 1},
               {'J', &State::rightThumbstickX, -1},
               {'I', &State::rightThumbstickY, 1},
               {'K', &State::rightThumbstickY, -1},
               {'R', &State::rightThumbstickButton, 1}};
  for (const auto& c : cases) {
    CAPTURE(c.key);
    State state = keyboard_with({c.key}, c.field, c.value);
    CHECK_EQ(state.*c.field, c.value);
    state.*c.field = 0;
    CHECK(released(state));
  }
  CHECK_EQ(keyboard_with({VK_SPACE, VK_RETURN, 'W', 'S'}, &State::buttonA, 1).leftThumbstickY, 0);
  CHECK(released(keyboard()));
  DestroyWindow(window);
}
