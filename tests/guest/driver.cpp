// Runs the tests of one guest image through the real library.
//
//   guest_driver IMAGE [PROBE]
//
// Starts the library with IMAGE (the first export call), then runs the image's own tests (`run_guest_tests`), or, with
// PROBE, calls the image's function of that name without arguments. Exit code: 0 all passed (or the probe returned 0),
// 1 failures, 2 a probe's other result; a fatal error of the library ends the process with 3.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "support/leave.h"
#include "support/open_handles.h"
#include "vlm.h"

using vlm::test::count_open_handles;
using vlm::test::leave;

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
  for (std::int64_t before = -1, now = count_open_handles(); now != before; now = count_open_handles()) {
    before = now;
    Sleep(300);
  }
}

decltype(&vlm_wrap_sysv_function) wrap_sysv;

/// Called by the guest, through a callback stub: Windows code that calls back into it.
std::int64_t call_on_windows(void* guest_function, std::int64_t argument) {
  return reinterpret_cast<std::int64_t (*)(std::int64_t)>(wrap_sysv(guest_function, 1))(argument);
}

/// The library's own handler comes first. How a system goes on is left out: it may take long to look for handlers in
/// frames of game code, which it cannot unwind, and to call a debugger.
LONG CALLBACK end_when_crashed(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code >= 0xC0000000) TerminateProcess(GetCurrentProcess(), code);  // others are debug output and the like
  return EXCEPTION_CONTINUE_SEARCH;
}

constexpr DWORD time_limit_ms = 100'000;

/// Names the test that does not come to an end.
DWORD WINAPI watch(void* running_test) {
  Sleep(time_limit_ms);
  std::printf("%s does not end\n", *static_cast<const char* volatile*>(running_test));
  leave(1);
}

template <class Function>
Function library_function(HMODULE library, const char* name) {
  const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
  if (function == nullptr) {
    std::printf("GameAssembly.dll does not export %s\n", name);
    std::exit(1);
  }
  return function;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::puts("usage: guest_driver IMAGE [PROBE]");
    return 1;
  }
  SetEnvironmentVariableA("VLM_GAMEASSEMBLY", argv[1]);
  const HMODULE library = LoadLibraryA("GameAssembly.dll");
  if (library == nullptr) {
    std::printf("GameAssembly.dll could not be loaded: error %lu\n", GetLastError());
    return 1;
  }
  AddVectoredExceptionHandler(0, end_when_crashed);
  library_function<int (*)(const char*)>(library, "il2cpp_init")("guest");

  const auto native_symbol = library_function<decltype(&vlm_native_symbol)>(library, "vlm_native_symbol");
  wrap_sysv = library_function<decltype(&vlm_wrap_sysv_function)>(library, "vlm_wrap_sysv_function");
  const auto wrap_callback = library_function<decltype(&vlm_wrap_callback)>(library, "vlm_wrap_callback");
  const auto guest_function = [&](const char* name) {
    void* const address = native_symbol(name);
    if (address == nullptr) {
      std::printf("%s has no function %s\n", argv[1], name);
      std::exit(1);
    }
    return reinterpret_cast<std::int64_t (*)(void*)>(wrap_sysv(address, 1));
  };

  if (void* const place = native_symbol("call_on_windows")) {
    *static_cast<void**>(place) = wrap_callback(reinterpret_cast<void*>(&call_on_windows));
  }
  if (void* const place = native_symbol("windows_symbol")) {
    *static_cast<void**>(place) = wrap_callback(reinterpret_cast<void*>(&windows_symbol));
  }
  if (argc > 2) leave(guest_function(argv[2])(nullptr) == 0 ? 0 : 2);
  if (void* const running_test = native_symbol("running_test")) {
    CloseHandle(CreateThread(nullptr, 0, watch, running_test, 0, nullptr));
  }
  if (void* const place = native_symbol("open_handles")) {
    *static_cast<void**>(place) = wrap_callback(reinterpret_cast<void*>(&count_open_handles));
    wait_until_handles_stay();
  }
  const std::int64_t checks = guest_function("run_guest_tests")(wrap_callback(reinterpret_cast<void*>(&report_failure)));
  std::printf("%lld checks, %d failures\n", static_cast<long long>(checks), failures);
  leave(failures == 0 && checks > 0 ? 0 : 1);
}
