// Keys that are pressed for the window in front.
#include <windows.h>
#include <doctest/doctest.h>

#include <cstdlib>
#include <initializer_list>

#include "input/keyboard.h"

using namespace vlm;

namespace {

constexpr int input_count = 20;  // of a state, buttonHome the first of them
struct Inputs {
  ControllerState state{};
  float operator[](int input) const { return (&state.buttonHome)[input]; }
  bool only(int input, float value) const {
    for (int i = 0; i < input_count; ++i) {
      if ((*this)[i] != (i == input ? value : 0)) return false;
    }
    return true;
  }
};

void press(std::initializer_list<int> keys, DWORD flags) {
  for (const int key : keys) keybd_event(static_cast<BYTE>(key), 0, flags, 0);
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}

/// Whether this is all that the keyboard says with these keys held. Pressed again until it is or patience ends: a
/// screen that has just given a window the focus lets go of keys that nobody's finger is on.
bool says_with(std::initializer_list<int> keys, int input, float value) {
  for (int tries = 0; tries < 100; ++tries, Sleep(10)) {
    Inputs inputs;
    press(keys, 0);
    read_keyboard(inputs.state);
    press(keys, KEYEVENTF_KEYUP);
    if (inputs.only(input, value)) return true;
  }
  return false;
}

/// By input; a second key that is negative pulls an axis back.
constexpr int keys[input_count][2] = {{},
                                      {VK_ESCAPE},
                                      {VK_TAB},
                                      {VK_SPACE, VK_RETURN},
                                      {VK_LSHIFT, VK_BACK},
                                      {'Q'},
                                      {'E'},
                                      {'3'},
                                      {'C'},
                                      {'1'},
                                      {'Z'},
                                      {VK_RIGHT, -VK_LEFT},
                                      {VK_UP, -VK_DOWN},
                                      {'D', -'A'},
                                      {'W', -'S'},
                                      {VK_LCONTROL},
                                      {'L', -'J'},
                                      {'I', -'K'},
                                      {'R'},
                                      {}};

}  // namespace

TEST_CASE("keys count while the game has the focus") {
  Inputs without_focus;
  press({VK_SPACE}, 0);
  read_keyboard(without_focus.state);
  CHECK(without_focus.only(0, 0));  // no window of this process is in front
  press({VK_SPACE}, KEYEVENTF_KEYUP);
  const HWND window = CreateWindowExW(0, L"STATIC", L"keys", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 100, 100,
                                      nullptr, nullptr, nullptr, nullptr);
  SetForegroundWindow(window);
  press({}, 0);
  REQUIRE_EQ(GetForegroundWindow(), window);
  CHECK(says_with({}, 0, 0));
  for (int input = 0; input < input_count; ++input) {
    for (const int key : keys[input]) {
      CAPTURE(input);
      if (key != 0) CHECK(says_with({std::abs(key)}, input, key > 0 ? 1.0f : -1.0f));
    }
  }
  CHECK(says_with({VK_SPACE, VK_RETURN, 'W', 'S'}, 3, 1));
  DestroyWindow(window);
}
