// The log file and what is reported in it, each time in a process of its own: a process has one log.
#include "diag/log.h"

#include <doctest/doctest.h>

#include <windows.h>

#include <algorithm>
#include <string>

#include "reports/crash_report.h"
#include "run_alone.h"
#include "support/game_process.h"

using namespace vlm;
using namespace vlm::test;

namespace {

const std::wstring folder = program_folder() + L"PCSaveData\\";
const std::wstring path = folder + L"loader.log";

int count(const std::string& what) {
  const std::string log = read_file(path);
  int found = 0;
  for (std::size_t at = 0; (at = log.find(what, at)) != std::string::npos; ++at) ++found;
  return found;
}

DWORD WINAPI write_lines(void* tag) {
  for (int i = 0; i < 500; ++i) log_line(std::string(200, *static_cast<char*>(tag)).c_str());
  return 0;
}

}  // namespace

TEST_CASE("alone: log lines" * doctest::skip()) {
  CreateDirectoryW(folder.c_str(), nullptr);
  write_file(path, "an older log\r\n");
  log_message(1, "above the threshold");
  log_message(0, "first %d", 1);
  log_line("% is no format here");
  log_message(0, "%s", std::string(3000, 'x').c_str());
  char tags[] = "abcd", head[64];
  HANDLE threads[4];
  for (int i = 0; i < 4; ++i) threads[i] = CreateThread(nullptr, 0, write_lines, &tags[i], 0, nullptr);
  WaitForMultipleObjects(4, threads, TRUE, INFINITE);
  log_line("the last");

  std::snprintf(head, sizeof head, "] [%5lu] first 1\r\n[", GetCurrentThreadId());
  REQUIRE(read_file(path).starts_with("[    0."));  // the clock starts with the first line
  REQUIRE_EQ(read_file(path).find(head), 10);
  REQUIRE_EQ(count("] % is no format here\r\n"), 1);
  REQUIRE_EQ(count("] " + std::string(2047, 'x') + "\r\n"), 1);
  for (int i = 0; i < 4; ++i) REQUIRE_EQ(count("] " + std::string(200, tags[i]) + "\r\n["), 500);
  REQUIRE_EQ(read_file(folder + L"loader.previous.log"), "an older log\r\n");

  // Breakpoints and a program's own codes are no errors, and do not count.
  install_crash_handler();
  AddVectoredExceptionHandler(0, [](EXCEPTION_POINTERS*) -> LONG { return EXCEPTION_CONTINUE_EXECUTION; });
  for (const DWORD code : {0x80000003ul, 0xE06D7363ul, 0x40010006ul}) RaiseException(code, 0, 0, nullptr);
  for (int i = 0; i <= 10; ++i) {
    REQUIRE_EQ(count("EXCEPTION 0x"), std::min(i, 8));
    RaiseException(i % 2 == 0 ? EXCEPTION_ACCESS_VIOLATION : EXCEPTION_ILLEGAL_INSTRUCTION, 0, 0, nullptr);
  }
  passed_alone();
}

TEST_CASE("the log is made anew, the last one kept; lines are whole, long messages cut, eight errors reported") {
  CHECK(run_alone(L"alone: log lines"));
}
