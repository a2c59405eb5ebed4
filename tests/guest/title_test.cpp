// The thread that keeps the game window's title, with real windows of a process of its own.
#include <windows.h>
#include <doctest/doctest.h>

#include <cstdlib>
#include <string>

#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm::test;

HOST_SUITE(title)

namespace {

const std::wstring closing_time_path = program_folder() + L"title_test_closed.txt";

HWND open_window(const wchar_t* title, DWORD style, HWND owner = nullptr) {
  return CreateWindowExW(0, L"Static", title, style, 10, 10, 200, 100, owner, nullptr, nullptr, nullptr);
}

std::wstring title_of(HWND window) {
  wchar_t title[256] = L"";
  return {title, static_cast<std::size_t>(GetWindowTextW(window, title, 256))};
}

/// Answers messages, as every program with windows has to: the title is set by one.
void pump_for(DWORD milliseconds) {
  for (const ULONGLONG end = GetTickCount64() + milliseconds; GetTickCount64() < end; Sleep(10)) {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
  }
}

}  // namespace

/// Ended with 0 by the library; every other end is a failure.
HOST_PROGRAM(windows) {
  const HWND hidden = open_window(L"hidden", WS_OVERLAPPEDWINDOW);
  const HWND owned = open_window(L"owned", WS_POPUP | WS_CAPTION | WS_VISIBLE, hidden);
  const HWND splash = open_window(L"splash", WS_POPUP | WS_VISIBLE);
  if (LoadLibraryW((program_folder() + L"GameAssembly.dll").c_str()) == nullptr) return 1;
  pump_for(300);  // several looks at the windows
  HWND player = open_window(L"first", WS_OVERLAPPEDWINDOW | WS_VISIBLE);
  pump_for(300);
  DestroyWindow(player), pump_for(500);
  player = open_window(L"made anew", WS_OVERLAPPEDWINDOW | WS_VISIBLE);
  for (const wchar_t* title : {L"Player", L"", L"Velmora 2"}) {
    SetWindowTextW(player, title);
    for (int tries = 0; title_of(player) != L"Velmora"; ++tries) {
      if (tries == 100) return 3;
      pump_for(50);
    }
  }
  if (title_of(hidden) + title_of(owned) + title_of(splash) != L"hiddenownedsplash") return 2;
  write_file(closing_time_path, std::to_string(GetTickCount64()));
  DestroyWindow(player);
  Sleep(15'000);
  return 4;
}

TEST_CASE("the visible window without an owner has the game's title, and the process ends soon after it") {
  const Ending ending = run_host(L"windows");
  const ULONGLONG ended = GetTickCount64();
  REQUIRE_EQ(ending.exit_code, 0);
  const ULONGLONG closed = std::strtoull(read_file(closing_time_path).c_str(), nullptr, 10);
  CHECK_GE(ended - closed, 3900);  // 4 s for the player's own way out, less a tick of Windows' clock
}
