#include "crash.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "managed.h"
#include "report.h"

namespace {

/// The log from the report's first line on.
void print_crash_report(const std::wstring& log) {
  std::FILE* file = _wfopen(log.c_str(), L"r");
  expect(file != nullptr, "there is no %s", utf8_of(log.c_str()).c_str());
  bool in_report = false;
  char line[4096];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    line[std::strcspn(line, "\n")] = 0;
    if (std::strstr(line, "] EXCEPTION ") != nullptr) in_report = true;
    if (in_report) print_line(line);
  }
  std::fclose(file);
  expect(in_report, "the log reports no crash");
}

/// The library's handler was there first, so its report is written. What a system does next is left out: it may take
/// long to look for handlers in frames of game code, which it cannot unwind, and to call a debugger.
LONG CALLBACK show_report_and_end(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code < 0xC0000000) return EXCEPTION_CONTINUE_SEARCH;  // debug output and the like
  const std::wstring log = player_directory() + L"PCSaveData\\loader.log";
  say("the game crashed with exception 0x%08lx; what %s says of it:", code, utf8_of(log.c_str()).c_str());
  print_crash_report(log);
  TerminateProcess(GetCurrentProcess(), code);
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

void crash_the_game(Il2CppClass* game_class) {
  AddVectoredExceptionHandler(0, show_report_and_end);
  invoke(find_method(game_class, "Crash", 0), nullptr, nullptr);
  fail(EXIT_NOT_AS_EXPECTED, "the game read address 0 and went on");
}
