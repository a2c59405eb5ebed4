// What the log says when game code crashes, each time in a process of its own.
#include <string>

#include <doctest/doctest.h>
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm::test;

HOST_SUITE(crashes)

TEST_CASE("a crash in game code is reported once, with the function's name") {
  static constexpr struct {
    const char* probe;
    DWORD code;
    const char *start, *place, *access;
    bool stack_is_readable = true;  // so the function that the probe was called from is on it
  } cases[] = {
      {"game_reads_null", 0xC0000005, "EXCEPTION 0xc0000005 at 0x", "!_game_reads_null+0x", "  read address 0x0\r\n"},
      {"game_writes_nowhere", 0xC0000005, "EXCEPTION 0xc0000005 at 0x", "!_game_writes_nowhere+0x",
       "  write address 0x1234\r\n"},
      {"game_executes_data", 0xC0000005, "EXCEPTION 0xc0000005 at 0x", " unknown code", "  execute address 0x"},
      {"game_divides", 0xC0000094, "EXCEPTION 0xc0000094 at 0x", "!_game_divides+0x", "\r\n"},
      {"game_breaks_its_stack", 0xC0000005, "EXCEPTION 0xc0000005 at 0x", "!_game_breaks_its_stack+0x",
       "  read address 0x0\r\n", false},
  };
  for (const auto& c : cases) {
    const std::string probe = c.probe;
    CAPTURE(probe);
    const Ending ending = run_host(L"guests\\crash_guest.dylib " + std::wstring(probe.begin(), probe.end()));
    CAPTURE(ending.log);
    CHECK_FALSE(ending.timed_out);
    CHECK_EQ(ending.exit_code, c.code);
    CHECK_EQ(missing_part(ending.log, {c.start, c.place, c.access, "  rax=", "  r8="}), "");
    CHECK_EQ(ending.log.find("EXCEPTION 0x"), ending.log.rfind("EXCEPTION 0x"));
    CHECK_EQ(ending.log.contains("  stack rsp+0x"), c.stack_is_readable);
  }
}
