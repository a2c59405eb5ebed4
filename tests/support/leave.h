// How a program that has loaded the library ends.
#pragma once

#include <windows.h>

#include <cstdio>

namespace vlm::test {

/// Ends the process at once with this code, as il2cpp_shutdown ends a game: threads of the game and of the library
/// still run. Programs that left through ExitProcess under Wine were seen, rarely, to hang there or to be killed after
/// their tests had passed.
[[noreturn]] inline void leave(int code) {
  std::fflush(nullptr);
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  for (;;) Sleep(INFINITE);
}

}  // namespace vlm::test
