// The log file, each time in a process of its own: a process has one log.
#include "diag/log.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <string>

#include "run_alone.h"
#include "support/game_process.h"

using namespace vlm;
using namespace vlm::test;

namespace {

std::wstring log_path() { return program_folder() + L"PCSaveData\\loader.log"; }

DWORD WINAPI write_lines(void* tag) {
  for (int i = 0; i < 500; ++i) log_line(std::string(200, *static_cast<char*>(tag)).c_str());
  return 0;
}

}  // namespace

TEST_CASE("alone: log lines" * doctest::skip()) {
  write_file(log_path(), "an older log\r\n");
  log_message(1, "above the threshold");
  log_message(0, "first %d", 1);
  log_line("% is no format here");
  log_message(0, "%s", std::string(3000, 'x').c_str());

  char tags[] = {'a', 'b', 'c', 'd'};
  HANDLE threads[4];
  for (int i = 0; i < 4; ++i) threads[i] = CreateThread(nullptr, 0, write_lines, &tags[i], 0, nullptr);
  WaitForMultipleObjects(4, threads, TRUE, INFINITE);

  const std::string log = read_file(log_path());
  char head[64];
  std::snprintf(head, sizeof head, "] [%5lu] first 1\r\n[", GetCurrentThreadId());
  REQUIRE(log.starts_with("[    0."));  // the clock starts with the first line
  REQUIRE_EQ(log.find(head), std::string_view("[    0.000").size());
  REQUIRE(log.find("] % is no format here\r\n") != std::string::npos);
  REQUIRE(log.find("] " + std::string(2047, 'x') + "\r\n") != std::string::npos);
  int whole = 0;
  for (const char tag : tags) {
    const std::string line = "] " + std::string(200, tag) + "\r\n[";
    for (std::size_t at = 0; (at = log.find(line, at)) != std::string::npos; ++at) ++whole;
  }
  REQUIRE_GE(whole, 4 * 500 - 1);  // the very last line has no "[" behind it
  REQUIRE_EQ(read_file(program_folder() + L"PCSaveData\\loader.previous.log"), "an older log\r\n");
  write_file(log_path(), "");  // a second start empties it
  log_line("the next");
  REQUIRE(read_file(log_path()).starts_with("[    "));
  passed_alone();
}

TEST_CASE("the log is made anew, the last one kept; lines are whole, long messages are cut") {
  CHECK(run_alone("alone: log lines"));
}
