// Which exceptions are reported, how often, and how addresses are named.
#include "diag/log.h"
#include "reports/crash_report.h"
#include "reports/symbolize.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "run_alone.h"
#include "support/game_process.h"

using namespace vlm;

namespace {

LONG CALLBACK go_on(EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_EXECUTION; }

std::size_t reports() {
  const std::string log = test::read_file(test::program_folder() + L"PCSaveData\\loader.log");
  std::size_t count = 0;
  for (std::size_t at = log.find("EXCEPTION 0x"); at != log.npos; at = log.find("EXCEPTION 0x", at + 1)) ++count;
  return count;
}

}  // namespace

TEST_CASE("alone: eight errors are reported" * doctest::skip()) {
  log_line("a new log");
  install_crash_handler();
  void* const handler = AddVectoredExceptionHandler(0, go_on);
  for (const DWORD code : {0x80000003ul, 0x80000004ul, 0xE06D7363ul, 0xE0000001ul, 0x40010006ul, 0x1ul}) {
    RaiseException(code, 0, 0, nullptr);
  }
  const std::size_t before = reports();
  std::size_t after[11] = {};
  for (int i = 1; i <= 10; ++i) {
    RaiseException(i % 2 == 0 ? EXCEPTION_ACCESS_VIOLATION : EXCEPTION_ILLEGAL_INSTRUCTION, 0, 0, nullptr);
    after[i] = reports();
  }
  RemoveVectoredExceptionHandler(handler);
  REQUIRE_EQ(before, 0);
  for (int i = 1; i <= 10; ++i) REQUIRE_EQ(after[i], std::min(i, 8));
  passed_alone();
}

TEST_CASE("eight errors are reported; breakpoints and a program's own codes are not, and do not count") {
  CHECK(run_alone("alone: eight errors are reported"));
}
