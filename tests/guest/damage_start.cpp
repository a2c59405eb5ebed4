// Starts the library with an image that may be damaged and asks for all that it says about an image.
//
//   damage_start IMAGE [expansion | FUNCTION]
//
// expansion: all 64 slots of the TEB are taken before the library is loaded. FUNCTION of the image is called last; it
// throws. Exit code 0: the library started and answered, 3: it refused; a crash ends the process with its own code.
#include <cstddef>
#include <cstring>
#include <iterator>

#include "support/game.h"
#include "support/host_program.h"

using namespace vlm::test;

namespace {

constexpr DWORD report_wanted = 0xC0DE0000;

LONG CALLBACK end_when_crashed(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code == report_wanted) return EXCEPTION_CONTINUE_EXECUTION;  // it is written: the library's handler comes first
  if (code >= 0xC0000000) TerminateProcess(GetCurrentProcess(), code);
  return EXCEPTION_CONTINUE_SEARCH;
}

/// Many games at a time.
HANDLE WINAPI make_mutex_without_name(SECURITY_ATTRIBUTES* attributes, BOOL owned, const wchar_t*) {
  const HANDLE mutex = CreateMutexW(attributes, owned, nullptr);
  SetLastError(ERROR_SUCCESS);
  return mutex;
}

/// Nobody is there to read; the log has the text.
int WINAPI show_no_box(HWND, const wchar_t*, const wchar_t*, UINT) { return IDOK; }

/// Lets the library call another function in place of one that it imports.
bool replace_import(const char* name, void* function) {
  auto* const base = reinterpret_cast<std::byte*>(library);
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (auto* from = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports); from->Name != 0; ++from) {
    auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + from->OriginalFirstThunk);
    auto* slots = reinterpret_cast<void**>(base + from->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slots) {
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
      const auto* const import = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) != 0) continue;
      DWORD before;
      VirtualProtect(slots, sizeof *slots, PAGE_READWRITE, &before);
      *slots = function;
      return true;
    }
  }
  return false;
}

/// Where the image lies, or null.
const std::byte* find_image() {
  const auto is_mac_address = library_function<decltype(&vlm_is_mac_address)>("vlm_is_mac_address");
  MEMORY_BASIC_INFORMATION region;
  for (const std::byte* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;
       at = static_cast<const std::byte*>(region.BaseAddress) + region.RegionSize) {
    if (is_mac_address(region.BaseAddress)) return static_cast<const std::byte*>(region.BaseAddress);
  }
  return nullptr;
}

}  // namespace

HOST_PROGRAM(damage_start) {
  if (argc < 2) return std::puts("usage: damage_start IMAGE [expansion | FUNCTION]"), 1;
  void* const handler = AddVectoredExceptionHandler(0, end_when_crashed);
  const char* const wish = argc > 2 ? argv[2] : "";
  if (std::strcmp(wish, "expansion") == 0) {
    while (TlsAlloc() < 63) {
    }
  }
  load_library(argv[1]);
  if (!replace_import("CreateMutexW", reinterpret_cast<void*>(&make_mutex_without_name)) ||
      !replace_import("MessageBoxW", reinterpret_cast<void*>(&show_no_box))) {
    return std::puts("GameAssembly.dll does not import what it should"), 1;
  }
  RemoveVectoredExceptionHandler(handler);
  AddVectoredExceptionHandler(0, end_when_crashed);                           // now behind the library's, which reports
  library_function<void (*)(void*)>("il2cpp_set_memory_callbacks")(nullptr);  // starts, and runs no game code

  for (const char* name : {"game_start", "_helper_alias", "", "_far", "not there"}) find_symbol(name);
  const std::byte* const image = find_image();
  const std::byte* volatile stack[64];  // a crash report names the functions that a stack has addresses of
  for (std::size_t i = 0; i < std::size(stack); ++i) stack[i] = image + i * 0x101;
  for (int i = 0; i < 2; ++i) RaiseException(report_wanted, 0, 0, nullptr);

  if (*wish != '\0' && std::strcmp(wish, "expansion") != 0) {
    call_game<void>(wish);
  }
  leave(stack[0] == image ? 0 : 1);
}
