// Running one skipped test case of this program in a process of its own: for tests that use up what a process has
// only once. Such a case checks with REQUIRE and ends with passed_alone(), so that a name that matches no case shows.
#pragma once

#include <windows.h>
#include <process.h>

#include <string>

inline constexpr int passed_alone_code = 42;

[[noreturn]] inline void passed_alone() { ExitProcess(passed_alone_code); }

/// True when the test case of exactly this name ran to its end in the other process.
inline bool run_alone(const char* test_case) {
  char program[MAX_PATH];
  GetModuleFileNameA(nullptr, program, sizeof program);
  const std::string filter = std::string("\"--test-case=") + test_case + "\"";
  return _spawnl(_P_WAIT, program, "unit_tests", filter.c_str(), "--no-skip", nullptr) == passed_alone_code;
}
