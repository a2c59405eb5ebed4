// How a program that has loaded the library ends.
#pragma once

#include <windows.h>

#include <cstdio>

namespace vlm::test {

/// Ends the process at once with this code, as il2cpp_shutdown ends a game: threads of the game and of the library still
/// run. On the way out through ExitProcess, Wine takes them down one by one, and once in some thousand times the process
/// hangs there, or is killed after its test has passed.
[[noreturn]] inline void leave(int code) {
  std::fflush(nullptr);
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  for (;;) Sleep(INFINITE);
}

}  // namespace vlm::test
