// Running one skipped test case of this program in a process of its own: for tests that use up what a process has
// only once. Such a case checks with REQUIRE and ends with passed_alone(), so that a name that matches no case shows.
#pragma once

#include "support/game_process.h"

inline constexpr DWORD passed_alone_code = 42;

[[noreturn]] inline void passed_alone() { ExitProcess(passed_alone_code); }

/// True when the test case of exactly this name ran to its end in the other process.
inline bool run_alone(const std::wstring& test_case) {
  const std::wstring program = L"\"" + vlm::test::program_path() + L"\" --no-skip ";
  const auto process =
      vlm::test::start_process(program + L"\"--test-case=" + test_case + L"\"", GetStdHandle(STD_OUTPUT_HANDLE));
  DWORD code = 0;
  WaitForSingleObject(process.get(), INFINITE);
  GetExitCodeProcess(process.get(), &code);
  return code == passed_alone_code;
}
