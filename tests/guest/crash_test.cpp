// What the log says when game code crashes, each time in a process of its own.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>

#include <doctest/doctest.h>
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm::test;

HOST_SUITE(crashes)

namespace {

std::size_t count_of(const std::string& text, const std::string& wanted) {
  std::size_t count = 0;
  for (std::size_t at = text.find(wanted); at != text.npos; at = text.find(wanted, at + 1)) ++count;
  return count;
}

}  // namespace

TEST_CASE("a crash in game code is reported with the function's name") {
  static constexpr struct {
    const wchar_t* probe;
    DWORD code;
    const char* first_line;
    const char* access;      // null: not an access violation
    bool stack_is_readable;  // so the function that the probe was called from is on it
  } cases[] = {
      {L"game_reads_null", 0xC0000005, "GameAssembly.dylib!_game_reads_null+0x", "  read address 0x0\r\n", true},
      {L"game_writes_nowhere", 0xC0000005, "GameAssembly.dylib!_game_writes_nowhere+0x", "  write address 0x1234\r\n",
       true},
      {L"game_executes_data", 0xC0000005, " unknown code", "  execute address 0x", true},
      {L"game_divides", 0xC0000094, "GameAssembly.dylib!_game_divides+0x", nullptr, true},
      {L"game_overflows_its_stack", 0xC00000FD, "GameAssembly.dylib!_game_overflows_its_stack+0x", nullptr, true},
      {L"game_breaks_its_stack", 0xC0000005, "GameAssembly.dylib!_game_breaks_its_stack+0x", "  read address 0x0\r\n",
       false},
  };
  for (const auto& c : cases) {
    CAPTURE(std::string(c.probe, c.probe + std::char_traits<wchar_t>::length(c.probe)));
    const Ending ending = run_host(std::wstring(L"guests\\crash_guest.dylib ") + c.probe);
    CAPTURE(ending.log.substr(std::min(ending.log.find("il2cpp_init returned"), ending.log.size())));
    CHECK_FALSE(ending.timed_out);
    CHECK_EQ(ending.exit_code, c.code);
    char start[32];
    std::snprintf(start, sizeof start, "EXCEPTION 0x%08lx at 0x", c.code);
    const std::size_t report = ending.log.find(start);
    REQUIRE(report != std::string::npos);
    CHECK_EQ(count_of(ending.log, "EXCEPTION 0x"), 1);
    const std::string first_line = ending.log.substr(report, ending.log.find("\r\n", report) - report);
    CHECK(first_line.find(c.first_line) != std::string::npos);
    if (c.access != nullptr) CHECK(ending.log.find(c.access, report) != std::string::npos);
    CHECK(ending.log.find("  rax=", report) != std::string::npos);
    CHECK(ending.log.find("  r8=", report) != std::string::npos);
    CHECK_EQ(ending.log.find("  stack rsp+0x", report) != std::string::npos, c.stack_is_readable);
    CHECK_LE(count_of(ending.log, "  stack rsp+0x"), 32);
  }
}
