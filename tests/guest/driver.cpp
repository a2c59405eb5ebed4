// Runs the tests of one guest image through the real library.
//
//   guest IMAGE [PROBE]
//
// Starts the library with IMAGE (the first export call), then runs the image's own tests (`run_guest_tests`), or, with
// PROBE, calls the image's function of that name without arguments. Exit code: 0 all passed (or the probe returned 0),
// 1 failures, 2 a probe's other result; a fatal error of the library ends the process with 3.
#include "support/game.h"
#include "support/host_program.h"
#include "support/open_handles.h"

using namespace vlm::test;

namespace {

int failures = 0;

/// Called by the guest, through a callback stub, for each check that failed.
void report_failure(const char* file, std::int64_t line, const char* what) {
  ++failures;
  std::printf("%s:%lld: %s\n", file, static_cast<long long>(line), what);
}

/// An export of a Windows module, for guests that reach past the library.
void* windows_symbol(const char* module, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(LoadLibraryA(module), name));
}

/// The library's own thread opens some when it first looks for the game's window.
void wait_until_handles_stay() {
  for (std::int64_t before = -1; before != count_open_handles(); Sleep(300)) before = count_open_handles();
}

/// Called by the guest, through a callback stub: Windows code that calls back into it.
std::int64_t call_on_windows(void* guest_function, std::int64_t argument) {
  return game_function<std::int64_t, std::int64_t>(guest_function)(argument);
}

/// Gives the guest a function of this program, if it has a variable of this name for it.
template <class Function>
bool offer(const char* name, Function* function) {
  void* const place = find_symbol(name);
  if (place != nullptr) *static_cast<void**>(place) = callback(function);
  return place != nullptr;
}

}  // namespace

HOST_PROGRAM(guest) {
  if (argc < 2) return std::puts("usage: guest IMAGE [PROBE]"), 1;
  load_library(argv[1]);
  AddVectoredExceptionHandler(0, end_when_crashed);
  start_game();
  offer("call_on_windows", &call_on_windows);
  offer("windows_symbol", &windows_symbol);
  const bool counts_handles = offer("open_handles", &count_open_handles);
  if (argc > 2) leave(call_game<std::int64_t>(argv[2]) == 0 ? 0 : 2);
  if (counts_handles) wait_until_handles_stay();
  const auto checks = call_game<std::int64_t>("run_guest_tests", callback(&report_failure));
  std::printf("%lld checks, %d failures\n", static_cast<long long>(checks), failures);
  leave(failures == 0 && checks > 0 ? 0 : 1);
}
