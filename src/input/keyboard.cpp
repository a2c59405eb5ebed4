#include "input/keyboard.h"

#include <windows.h>

#include "support/text.h"

namespace vlm {
namespace {

bool enabled = false;  // written by static start-up, then read-only

constexpr struct {
  int key;
  float ControllerState::* field;
} button_keys[] = {
    {VK_ESCAPE, &ControllerState::buttonMenu},
    {VK_TAB, &ControllerState::buttonOptions},
    {VK_SPACE, &ControllerState::buttonA},
    {VK_RETURN, &ControllerState::buttonA},
    {VK_LSHIFT, &ControllerState::buttonB},
    {VK_BACK, &ControllerState::buttonB},
    {'Q', &ControllerState::buttonY},
    {'E', &ControllerState::buttonX},
    {'3', &ControllerState::rightShoulder},
    {'C', &ControllerState::rightTrigger},
    {'1', &ControllerState::leftShoulder},
    {'Z', &ControllerState::leftTrigger},
    {VK_LCONTROL, &ControllerState::leftThumbstickButton},
    {'R', &ControllerState::rightThumbstickButton},
};

constexpr struct {
  int positive, negative;
  float ControllerState::* field;
} axis_keys[] = {
    {VK_RIGHT, VK_LEFT, &ControllerState::dpadX},   {VK_UP, VK_DOWN, &ControllerState::dpadY},
    {'D', 'A', &ControllerState::leftThumbstickX},  {'W', 'S', &ControllerState::leftThumbstickY},
    {'L', 'J', &ControllerState::rightThumbstickX}, {'I', 'K', &ControllerState::rightThumbstickY},
};

bool is_down(int key) { return (GetAsyncKeyState(key) & 0x8000) != 0; }

bool game_has_focus() {
  DWORD process = 0;
  GetWindowThreadProcessId(GetForegroundWindow(), &process);
  return process == GetCurrentProcessId();
}

}  // namespace

void read_keyboard_setting() { enabled = read_environment(L"VLM_KEYBOARD").text.starts_with('1'); }

bool keyboard_is_enabled() { return enabled; }

void read_keyboard(ControllerState& state) {
  if (!game_has_focus()) return;
  for (const auto& button : button_keys) {
    if (is_down(button.key)) state.*button.field = 1.0f;
  }
  for (const auto& axis : axis_keys) {
    state.*axis.field = static_cast<float>(is_down(axis.positive) - is_down(axis.negative));
  }
}

}  // namespace vlm
