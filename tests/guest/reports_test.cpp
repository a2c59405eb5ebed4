// What reports say about a game that ended, and the trace of imports: against what the game's own code wrote down.
#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <doctest/doctest.h>
#include "support/game.h"
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm::test;

HOST_SUITE(reports)

namespace {

std::int64_t call_on_windows(void* function, std::int64_t argument) {
  return game_function<std::int64_t, std::int64_t>(function)(argument);
}
std::int64_t method_callback(int, const void*) { return call_game<std::int64_t>("bad_strlen"); }
int internal_call(int) { return *reinterpret_cast<volatile int*>(0x10); }

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

Ending run(const wchar_t* probe, const Environment& environment = {}) {
  return run_host(std::wstring(L"report_probe guests\\reports_guest.dylib ") + probe, environment);
}

/// The game's functions in the report's stack, innermost first; one that calls itself is told once.
std::vector<std::string> game_frames(const std::string& log) {
  const std::string mark = " GameAssembly.dylib!";
  std::vector<std::string> names;
  for (const std::string& line : lines_of(log)) {
    const std::size_t at = line.find(mark);
    if (line.find("   frame ") == std::string::npos || at == std::string::npos) continue;
    const std::string name = line.substr(at + mark.size(), line.find('+', at) - at - mark.size());
    if (names.empty() || names.back() != name) names.push_back(name);
  }
  return names;
}

std::string trace() { return read_file(program_folder() + L"PCSaveData\\trace.log"); }

}  // namespace

HOST_PROGRAM(report_probe) {
  load_library(argv[1]);
  AddVectoredExceptionHandler(0, end_when_crashed);
  start_game();
  game_variable<void*>("call_on_windows") = callback(&call_on_windows);
  game_variable<void*>("method_callback") = library_function<decltype(&vlm_wrap_method_callback)>(
      "vlm_wrap_method_callback")(call_game<void*>("call_method"), reinterpret_cast<void*>(&method_callback));
  library_function<void (*)(const char*, void*)>("il2cpp_add_internal_call")("Game.Outer::Call",
                                                                             reinterpret_cast<void*>(&internal_call));
  const int result = call_game<std::int64_t>(argv[2]) == 0 ? 0 : 2;
  Sleep(1000);  // the trace is written by a thread of its own
  leave(result);
}

TEST_CASE("a crash is reported once, with its callers in order, none missing") {
  const std::u8string program = std::filesystem::path(program_path()).filename().u8string();
  const struct {
    const wchar_t* probe;
    std::string report;
    std::string first = "";  // frame 0, when it is none of the game's own functions
    DWORD code = 0xC0000005;
  } cases[] = {{L"leaf_crash", "  read address 0x10\r\n"},
               {L"write_crash", "  write address 0x1234\r\n"},
               {L"execute_crash", "  execute address 0x", "unknown code"},
               {L"division_crash", "EXCEPTION 0xc0000094 at 0x", "", 0xC0000094},
               {L"stack_crash", "  read address 0x0\r\n"},
               {L"callback_crash", "  read address 0x10\r\n"},
               {L"shim_crash", "  read address 0x10\r\n", "GameAssembly.dll+0x"},
               {L"internal_call_crash", "  read address 0x10\r\n", std::string(program.begin(), program.end()) + "+0x"},
               {L"overflow_crash", "EXCEPTION 0xc00000fd at 0x", "", 0xC00000FD},
               {L"jump_crash", "  execute address 0x1230\r\n", "unknown code"},
               {L"fatal_end", "abort() called by game code", "GameAssembly.dll+0x", 3}};
  for (const auto& c : cases) {
    DeleteFileW(L"callers.tmp");
    const Ending ending = run(c.probe);
    const std::string log = ending.log.substr(std::min(ending.log.find("il2cpp_init returned"), ending.log.size()));
    CAPTURE(log);
    CHECK_EQ(ending.exit_code, c.code);
    std::vector<std::string> called = lines_of(read_file(L"callers.tmp"));
    std::ranges::reverse(called);
    CHECK_EQ(game_frames(log), called);
    CHECK_EQ(missing_part(log, {c.report, c.code == 3 ? "" : "  rax=", c.code == 3 ? "" : "  r8="}), "");
    CHECK_EQ(log.find(c.report), log.rfind(c.report));
    CHECK_EQ(log.contains("  stack rsp+0x"), c.probe != std::wstring(L"stack_crash") && c.code != 3);
    CHECK(log.contains("  frame 0 " + (c.first.empty() ? "GameAssembly.dylib!" + called.at(0) : c.first)));
  }
}

TEST_CASE("a trace tells calls in order, with their texts, and changes none") {
  const Ending ending =
      run(L"traced_calls", {{L"VLM_TRACE", L"_open, _rename,formatted text,-_sscanf,_none,__DefaultRuneLocale"}});
  CHECK_EQ(ending.exit_code, 0);
  CHECK_EQ(missing_part(ending.log, {"[trace] no import and no family of imports has the name _none\r\n",
                                     "[trace] __DefaultRuneLocale is data, which is read and not called\r\n"}),
           "");
  CHECK_EQ(missing_part(trace(),
                        {"_open(0x", " \"ordner/\xC3\xBC-\xE3\x83\x95\xE3\x82\xA1.txt\", 0x0, ", " _rename(0x",
                         " \"a \\\"b\\\"\", 0x", " \"c\\\\d\", ", " _snprintf(0x", ", 0x40, 0x",
                         " \"%s %d %.2f %s\", 0x", " \"one\", 0x2, ", ") from GameAssembly.dylib!_traced_calls+0x"}),
           "");
}

TEST_CASE("a full ring loses its oldest calls and says how many; a fatal end tells the last ones") {
  const Ending ending = run(L"many_traced_calls", {{L"VLM_TRACE", L"_rename,_abort"}});
  CHECK_EQ(ending.exit_code, 3);
  std::uint64_t written = 0, lost = 0;
  for (const std::string& line : lines_of(trace())) {
    written += line.contains(" _rename(0x0, 0x0, ");
    if (const std::size_t at = line.find("] ("); at != std::string::npos) lost += std::stoull(line.substr(at + 3));
  }
  CHECK_EQ(written + lost, 300'000);
  CHECK(lost > 0);
  const std::size_t report = ending.log.find("  last traced calls of this thread:\r\n");
  const auto lines = lines_of(ending.log.substr(std::min(report, ending.log.size())));
  REQUIRE_EQ(lines.size(), 65);
  CHECK(lines.back().contains(" _abort("));
}
