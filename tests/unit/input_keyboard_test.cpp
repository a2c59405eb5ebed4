// Keys that are pressed for the window in front.
#include <windows.h>
#include <doctest/doctest.h>

#include <cstring>
#include <vector>

#include "input/keyboard.h"

using namespace vlm;

namespace {

ControllerState keyboard() {
  ControllerState state{};
  read_keyboard(state);
  return state;
}
bool released(const ControllerState& state) {
  const ControllerState cleared{};
  return std::memcmp(&state, &cleared, sizeof state) == 0;
}

void handle_messages() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}

class Keys {
 public:
  Keys(std::initializer_list<int> keys) : keys_(keys) { send(0); }
  ~Keys() { send(KEYEVENTF_KEYUP); }

 private:
  void send(DWORD flags) {
    for (const int key : keys_) keybd_event(static_cast<BYTE>(key), 0, flags, 0);
    handle_messages();
  }
  std::vector<int> keys_;
};

/// What the keyboard says with these keys held. Pressed again until the field has the value or patience ends: a screen
/// that has just given a window the focus lets go of keys that nobody's finger is on.
ControllerState keyboard_with(std::initializer_list<int> keys, float ControllerState::* field, float value) {
  ControllerState state{};
  for (int tries = 0; tries < 100 && state.*field != value; ++tries) {
    if (tries > 0) Sleep(10);
    const Keys held = keys;
    state = keyboard();
  }
  return state;
}

}  // namespace

TEST_CASE("keys count while the game has the focus") {
  {
    const Keys held = {VK_SPACE};
    CHECK(released(keyboard()));  // no window of this process is in front
  }
  const HWND window = CreateWindowExW(0, L"STATIC", L"keys", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 100, 100,
                                      nullptr, nullptr, nullptr, nullptr);
  SetForegroundWindow(window);
  handle_messages();
  REQUIRE_EQ(GetForegroundWindow(), window);
  CHECK(released(keyboard()));

  static constexpr struct {
    int key;
    float ControllerState::* field;
    float value;
  } cases[] = {
      {VK_ESCAPE, &ControllerState::buttonMenu, 1},
      {VK_TAB, &ControllerState::buttonOptions, 1},
      {VK_SPACE, &ControllerState::buttonA, 1},
      {VK_RETURN, &ControllerState::buttonA, 1},
      {VK_LSHIFT, &ControllerState::buttonB, 1},
      {VK_BACK, &ControllerState::buttonB, 1},
      {'Q', &ControllerState::buttonY, 1},
      {'E', &ControllerState::buttonX, 1},
      {'3', &ControllerState::rightShoulder, 1},
      {'C', &ControllerState::rightTrigger, 1},
      {'1', &ControllerState::leftShoulder, 1},
      {'Z', &ControllerState::leftTrigger, 1},
      {VK_RIGHT, &ControllerState::dpadX, 1},
      {VK_LEFT, &ControllerState::dpadX, -1},
      {VK_UP, &ControllerState::dpadY, 1},
      {VK_DOWN, &ControllerState::dpadY, -1},
      {'D', &ControllerState::leftThumbstickX, 1},
      {'A', &ControllerState::leftThumbstickX, -1},
      {'W', &ControllerState::leftThumbstickY, 1},
      {'S', &ControllerState::leftThumbstickY, -1},
      {VK_LCONTROL, &ControllerState::leftThumbstickButton, 1},
      {'L', &ControllerState::rightThumbstickX, 1},
      {'J', &ControllerState::rightThumbstickX, -1},
      {'I', &ControllerState::rightThumbstickY, 1},
      {'K', &ControllerState::rightThumbstickY, -1},
      {'R', &ControllerState::rightThumbstickButton, 1},
  };
  for (const auto& c : cases) {
    CAPTURE(c.key);
    ControllerState state = keyboard_with({c.key}, c.field, c.value);
    CHECK_EQ(state.*c.field, c.value);
    state.*c.field = 0;
    CHECK(released(state));
  }
  {
    const ControllerState state = keyboard_with({VK_SPACE, VK_RETURN, 'W', 'S'}, &ControllerState::buttonA, 1);
    CHECK_EQ(state.buttonA, 1);
    CHECK_EQ(state.leftThumbstickY, 0);
  }
  CHECK(released(keyboard()));
  DestroyWindow(window);
}
