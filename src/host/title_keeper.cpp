#include "host/title_keeper.h"

#include <windows.h>

#include <cstdio>
#include <cwchar>

#include "support/handles.h"

namespace vlm {
namespace {

constexpr const wchar_t* game_title = L"Velmora";

BOOL CALLBACK take_main_window(HWND window, LPARAM found) {
  DWORD process = 0;
  GetWindowThreadProcessId(window, &process);
  if (process != GetCurrentProcessId() || !IsWindowVisible(window) || GetWindow(window, GW_OWNER) != nullptr) {
    return TRUE;
  }
  *reinterpret_cast<HWND*>(found) = window;
  return FALSE;
}

DWORD WINAPI keep_title(void*) {
  HWND window = nullptr;
  while (window == nullptr) {
    Sleep(50);
    EnumWindows(take_main_window, reinterpret_cast<LPARAM>(&window));
  }
  while (IsWindow(window)) {
    wchar_t title[64];
    if (GetWindowTextW(window, title, 64) == 0 || std::wcscmp(title, game_title) != 0) {
      SetWindowTextW(window, game_title);
    }
    Sleep(250);
  }
  Sleep(4000);  // the player may need this time to end by itself
  std::fflush(nullptr);
  TerminateProcess(GetCurrentProcess(), 0);
  return 0;
}

}  // namespace

void start_title_keeper() { UniqueHandle(CreateThread(nullptr, 0, keep_title, nullptr, 0, nullptr)); }

}  // namespace vlm
