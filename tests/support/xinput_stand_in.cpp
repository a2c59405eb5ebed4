#include "support/xinput_stand_in.h"

#include <windows.h>

#include <cstring>

extern "C" {

__declspec(dllexport) StandInPad stand_in_pads[4];
__declspec(dllexport) DWORD stand_in_game_thread;

__declspec(dllexport) DWORD WINAPI XInputGetState(DWORD index, void* state) {
  if (index >= 4) return ERROR_BAD_ARGUMENTS;
  StandInPad& pad = stand_in_pads[index];
  pad.calls += GetCurrentThreadId() == stand_in_game_thread;
  if (!pad.connected) return ERROR_DEVICE_NOT_CONNECTED;
  std::memcpy(state, &pad.calls, sizeof pad.calls);  // a packet number
  std::memcpy(static_cast<char*>(state) + 4, &pad.buttons, 12);
  return ERROR_SUCCESS;
}
}
