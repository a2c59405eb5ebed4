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

/// For a handler behind the library's own. How a system goes on is left out: it may take long to look for handlers in
/// frames of game code, which it cannot unwind, and to call a debugger.
inline LONG CALLBACK end_when_crashed(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code >= 0xC0000000) TerminateProcess(GetCurrentProcess(), code);  // others are debug output and the like
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace vlm::test
