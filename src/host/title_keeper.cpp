#include "host/title_keeper.h"

#include <windows.h>

#include <cwchar>

#include "diag/log.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

constexpr const wchar_t* game_title = L"Velmora";

/// A game's window has a title bar or fills its screen. A splash does neither; a console and a message box are known by
/// their classes.
bool may_be_the_game(HWND window) {
  if (!IsWindowVisible(window) || GetWindow(window, GW_OWNER) != nullptr) return false;
  wchar_t name[64] = L"";
  GetClassNameW(window, name, 64);
  if (std::wcscmp(name, L"#32770") == 0 || std::wcscmp(name, L"ConsoleWindowClass") == 0) return false;
  if ((GetWindowLongW(window, GWL_EXSTYLE) & WS_EX_TOOLWINDOW) != 0) return false;
  if ((GetWindowLongW(window, GWL_STYLE) & WS_CAPTION) == WS_CAPTION || IsIconic(window)) return true;
  MONITORINFO screen = {};
  screen.cbSize = sizeof screen;
  RECT place;
  return GetWindowRect(window, &place) &&
         GetMonitorInfoW(MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST), &screen) &&
         place.left <= screen.rcMonitor.left && place.top <= screen.rcMonitor.top &&
         place.right >= screen.rcMonitor.right && place.bottom >= screen.rcMonitor.bottom;
}

BOOL CALLBACK take_main_window(HWND window, LPARAM found) {
  DWORD process = 0;
  GetWindowThreadProcessId(window, &process);
  if (process != GetCurrentProcessId() || !may_be_the_game(window)) return TRUE;
  *reinterpret_cast<HWND*>(found) = window;
  return FALSE;
}

/// Looks for the game's window for so long; null when there is none.
HWND find_main_window(DWORD patience_ms) {
  constexpr DWORD interval_ms = 50;
  for (DWORD waited = 0;; waited += interval_ms) {
    Sleep(interval_ms);
    HWND window = nullptr;
    EnumWindows(take_main_window, reinterpret_cast<LPARAM>(&window));
    if (window != nullptr || waited >= patience_ms) return window;
  }
}

void hold_title(HWND window) {
  while (IsWindow(window)) {
    wchar_t title[64];
    if (GetWindowTextW(window, title, 64) == 0 || std::wcscmp(title, game_title) != 0) {
      SetWindowTextW(window, game_title);
    }
    Sleep(250);
  }
}

DWORD WINAPI keep_title(void*) {
  HWND window = nullptr;
  while (window == nullptr) window = find_main_window(INFINITE - 1);
  // A player may make its window anew; else this is the time for its own way out.
  for (; window != nullptr; window = find_main_window(4000)) hold_title(window);
  flush_streams();
  TerminateProcess(GetCurrentProcess(), 0);
  return 0;
}

}  // namespace

void start_title_keeper() { start_own_thread(keep_title, nullptr); }

}  // namespace vlm
