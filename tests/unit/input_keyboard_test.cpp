// Keys that are pressed for the window in front.
#include <windows.h>
#include <doctest/doctest.h>

#include <vector>

#include "input/keyboard.h"

using namespace vlm;

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
