// Starts the library with an image that may be damaged and asks for all that it says about an image.
//
//   damage_start IMAGE [FUNCTION]
//
// FUNCTION of the image is called last; it throws. Exit code 0: the library started and answered, 3: it refused; a
// crash ends the process with its own code.
#include <cstddef>
#include <cstring>
#include <iterator>

#include "support/game.h"
#include "support/host_program.h"

using namespace vlm::test;

namespace {

constexpr DWORD report_wanted = 0xC0DE0000;

LONG CALLBACK end_unless_report(EXCEPTION_POINTERS* exception) {
  // The report is written: the library's handler comes first.
  const bool is_written = exception->ExceptionRecord->ExceptionCode == report_wanted;
  return is_written ? EXCEPTION_CONTINUE_EXECUTION : end_when_crashed(exception);
}

/// Many games at a time.
HANDLE WINAPI make_mutex_without_name(SECURITY_ATTRIBUTES*, BOOL, const wchar_t*) {
  SetLastError(ERROR_SUCCESS);
  return GetCurrentProcess();
}

/// Nobody is there to read; the log has the text.
int WINAPI show_no_box(HWND, const wchar_t*, const wchar_t*, UINT) { return IDOK; }

/// Puts a jump to `function` in the place of one of Windows'.
void replace(const char* module, const char* name, void* function) {
  auto* const place = reinterpret_cast<std::byte*>(GetProcAddress(GetModuleHandleA(module), name));
  DWORD before;
  VirtualProtect(place, 12, PAGE_EXECUTE_READWRITE, &before);
  std::memcpy(place, "\x48\xB8--------\xFF\xE0", 12);  // movabs rax, function; jmp rax
  std::memcpy(place + 2, &function, sizeof function);
}

}  // namespace

HOST_PROGRAM(damage_start) {
  if (argc < 2) return std::puts("usage: damage_start IMAGE [FUNCTION]"), 1;
  void* const handler = AddVectoredExceptionHandler(0, end_unless_report);
  replace("kernel32.dll", "CreateMutexW", reinterpret_cast<void*>(&make_mutex_without_name));
  replace("user32.dll", "MessageBoxW", reinterpret_cast<void*>(&show_no_box));
  load_library(argv[1]);
  RemoveVectoredExceptionHandler(handler);
  AddVectoredExceptionHandler(0, end_unless_report);                          // now behind the library's, which reports
  library_function<void (*)(void*)>("il2cpp_set_memory_callbacks")(nullptr);  // starts, and runs no game code

  const std::byte* const image = static_cast<const std::byte*>(find_symbol("game_start"));
  for (const char* name : {"_helper_alias", "", "_far", "not there"}) find_symbol(name);
  const std::byte* volatile stack[64];  // a crash report names the functions that a stack has addresses of
  for (std::size_t i = 0; i < std::size(stack); ++i) stack[i] = image + i * 0x101;
  for (int i = 0; i < 2; ++i) RaiseException(report_wanted, 0, 0, nullptr);
  if (argc > 2) call_game<void>(argv[2]);
  leave(stack[0] == image ? 0 : 1);
}
